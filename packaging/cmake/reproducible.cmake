# What packaging/make adds to a release build: debug information, which it splits off, and nothing in the binaries that
# differs from one folder or hour to another. A map beside each binary tells which libraries went into it.
option(ZD_PACKAGE "Debug information and the same bytes from every build folder" OFF)
if(NOT ZD_PACKAGE)
  return()
endif()
if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  message(FATAL_ERROR "ZD_PACKAGE needs GCC: its options are that compiler's.")
endif()

# Later mappings come first: the build folder may stand within the sources. zdhost gets lines and functions alone: the
# headers that it is made with would make its debug information larger than all else together.
add_compile_options(
  "$<$<COMPILE_LANGUAGE:C,CXX>:$<IF:$<STREQUAL:$<TARGET_PROPERTY:NAME>,zdhost>,-g1,-g>>"
  "$<$<COMPILE_LANGUAGE:C,CXX>:-ffile-prefix-map=${PROJECT_SOURCE_DIR}=/ZdvfsProtocol>"
  "$<$<COMPILE_LANGUAGE:C,CXX>:-ffile-prefix-map=${CMAKE_BINARY_DIR}=/ZdvfsProtocol-build>")
add_link_options(-Wl,--no-insert-timestamp
  "$<$<NOT:$<STREQUAL:$<TARGET_PROPERTY:TYPE>,STATIC_LIBRARY>>:-Wl,-Map,$<TARGET_FILE:$<TARGET_PROPERTY:NAME>>.map>")
