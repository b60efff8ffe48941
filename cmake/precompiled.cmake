# Builds that look for trouble read the system's headers once for plug-in and host. The release build goes without: there
# each file has to include what it uses, and what ships is the same byte for byte wherever it is built.
if(CMAKE_BUILD_TYPE STREQUAL "Release" OR NOT CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  return()
endif()

target_precompile_headers(zd_base PRIVATE <windows.h> <algorithm> <array> <atomic> <cerrno> <cstdint> <cstdio> <cstdlib>
  <cstring> <functional> <limits> <map> <memory> <mutex> <new> <optional> <set> <span> <string> <string_view> <utility>
  <vector>)
foreach(folder IN ITEMS plugin host)
  if(NOT IS_DIRECTORY "${PROJECT_BINARY_DIR}/${folder}")
    continue()
  endif()
  get_property(targets DIRECTORY "${PROJECT_SOURCE_DIR}/${folder}" PROPERTY BUILDSYSTEM_TARGETS)
  list(REMOVE_ITEM targets zd_base)
  foreach(target IN LISTS targets)
    target_precompile_headers(${target} REUSE_FROM zd_base)
  endforeach()
endforeach()
# What it defines has to stand before the first header.
set_source_files_properties("${PROJECT_SOURCE_DIR}/plugin/operations/GetRandomTag.cpp" DIRECTORY plugin PROPERTIES SKIP_PRECOMPILE_HEADERS ON)
