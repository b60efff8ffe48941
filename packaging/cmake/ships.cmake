# What ships, and what is built of it for that. The release build of the cross compiler (the preset release) is what is
# tested and what packaging/make packs: its debug information goes into files of its own, and nothing in it differs from
# one folder or hour to another. Other builds and compilers, and all that does not ship, go without.
#
# The version that project() states is the only one: it goes into the version resource of every binary that ships, and
# into what zdhost answers to --version.
enable_language(RC)
if(CMAKE_RC_COMPILER MATCHES "windres")
  # windres takes none of the options that the targets compile their C++ with.
  set(CMAKE_RC_COMPILE_OBJECT "<CMAKE_RC_COMPILER> -O coff <DEFINES> <INCLUDES> <SOURCE> <OBJECT>")
endif()

if(MINGW AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_BUILD_TYPE STREQUAL "Release")
  set(ZD_REPRODUCIBLE ON)
else()
  set(ZD_REPRODUCIBLE OFF)
endif()

function(zd_describe target description)
  get_target_property(type ${target} TYPE)
  get_target_property(name ${target} OUTPUT_NAME)
  if(NOT name)
    set(name ${target})
  endif()
  if(type STREQUAL "EXECUTABLE")
    set(ZD_RC_TYPE 0x1L)
    set(ZD_RC_FILE "${name}.exe")
  else()
    set(ZD_RC_TYPE 0x2L)
    set(ZD_RC_FILE "${name}.dll")
  endif()
  set(ZD_RC_NAME "${name}")
  set(ZD_RC_DESCRIPTION "${description}")
  set(ZD_RC_NUMBERS "${PROJECT_VERSION_MAJOR},${PROJECT_VERSION_MINOR},${PROJECT_VERSION_PATCH},0")
  set(resource "${CMAKE_CURRENT_BINARY_DIR}/${name}_version.rc")
  configure_file("${PROJECT_SOURCE_DIR}/packaging/resources/version.rc.in" "${resource}" @ONLY)
  target_sources(${target} PRIVATE "${resource}")
endfunction()

# zd_ships(target description): gives a program or library its version resource; a map beside it, which tells the
# libraries that went into it; and its debug information in a file beside it, where it does not slow its loading.
function(zd_ships target description)
  zd_describe(${target} "${description}")
  set_property(GLOBAL APPEND PROPERTY ZD_SHIPPED ${target})
  set_target_properties(${target} PROPERTIES ZD_SHIPS ON)
  if(NOT ZD_REPRODUCIBLE)
    return()
  endif()
  set(file "$<TARGET_FILE:${target}>")
  target_link_options(${target} PRIVATE -Wl,--no-insert-timestamp "-Wl,-Map,${file}.map")
  # Both would put the hour back in without the option that keeps the linker's.
  add_custom_command(TARGET ${target} POST_BUILD
    COMMAND "${CMAKE_OBJCOPY}" --preserve-dates --only-keep-debug "${file}" "${file}.debug"
    COMMAND "${CMAKE_STRIP}" --preserve-dates --strip-debug "${file}" VERBATIM)
endfunction()

# zd_compile_reproducibly(folder debug): all targets of the folder, with debug information as the option `debug` says.
function(zd_compile_reproducibly folder debug)
  if(NOT ZD_REPRODUCIBLE)
    return()
  endif()
  get_property(targets DIRECTORY "${PROJECT_SOURCE_DIR}/${folder}" PROPERTY BUILDSYSTEM_TARGETS)
  foreach(target IN LISTS targets)
    get_target_property(type ${target} TYPE)
    if(type MATCHES "^(STATIC_LIBRARY|OBJECT_LIBRARY|SHARED_LIBRARY|EXECUTABLE)$")
      # Later mappings come first: the build folder may stand within the sources.
      target_compile_options(${target} PRIVATE "$<$<COMPILE_LANGUAGE:C,CXX>:${debug}>"
        "$<$<COMPILE_LANGUAGE:C,CXX>:-ffile-prefix-map=${PROJECT_SOURCE_DIR}=/ZdvfsProtocol>"
        "$<$<COMPILE_LANGUAGE:C,CXX>:-ffile-prefix-map=${CMAKE_BINARY_DIR}=/ZdvfsProtocol-build>")
    endif()
    if(type STREQUAL "STATIC_LIBRARY")
      # Tests and the benchmark that link it would only load more slowly.
      target_link_options(${target} INTERFACE "$<$<NOT:$<BOOL:$<TARGET_PROPERTY:ZD_SHIPS>>>:-Wl,--strip-debug>")
    endif()
  endforeach()
endfunction()
