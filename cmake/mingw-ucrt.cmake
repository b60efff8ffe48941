# Cross-builds for Windows x86-64 with Debian's MinGW-w64, over the universal C runtime instead of msvcrt.dll. It serves
# the project itself and, as part of the SDK, hosts that are built elsewhere.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)
# Packages that are named to this build are for Windows too.
set(CMAKE_FIND_ROOT_PATH /usr/x86_64-w64-mingw32 ${CMAKE_PREFIX_PATH})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The driver's own description of how to link, with the C runtime exchanged.
get_filename_component(ZD_TOOLS "${CMAKE_CURRENT_LIST_DIR}/../tools" ABSOLUTE)
if(EXISTS "${ZD_TOOLS}/wine-test")
  get_filename_component(ZD_SPECS "${ZD_TOOLS}/../build/toolchain/ucrt.specs" ABSOLUTE)
else()
  set(ZD_SPECS "${CMAKE_BINARY_DIR}/toolchain/ucrt.specs")
endif()
if(NOT EXISTS "${ZD_SPECS}")
  execute_process(COMMAND ${CMAKE_CXX_COMPILER} -dumpspecs OUTPUT_VARIABLE ZD_SPECS_TEXT COMMAND_ERROR_IS_FATAL ANY)
  string(REPLACE "-lmsvcrt" "-lucrt" ZD_SPECS_TEXT "${ZD_SPECS_TEXT}")
  file(WRITE "${ZD_SPECS}" "${ZD_SPECS_TEXT}")
endif()

set(CMAKE_C_FLAGS_INIT "\"-specs=${ZD_SPECS}\" -D_UCRT")
set(CMAKE_CXX_FLAGS_INIT "\"-specs=${ZD_SPECS}\" -D_UCRT")
# The static thread library was compiled for the other runtime and asks for its setjmp.
set(ZD_LINK "-static -Wl,--defsym,_setjmp=__intrinsic_setjmp")
set(CMAKE_EXE_LINKER_FLAGS_INIT "${ZD_LINK}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${ZD_LINK}")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "${ZD_LINK}")

if(EXISTS "${ZD_TOOLS}/wine-test")
  set(CMAKE_CROSSCOMPILING_EMULATOR "${ZD_TOOLS}/wine-test")
endif()
