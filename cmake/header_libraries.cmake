# Header-only libraries of the building machine. Their headers stand in /usr/include, which a cross compiler must not
# see as a whole: a folder of the build tree shows it the few subfolders.

# zd_header_library(name header folder...): the interface target `name` over `folder...` of the place where `header`
# stands; no target where it stands nowhere.
function(zd_header_library name header)
  if(TARGET ${name})
    return()
  endif()
  find_path(${name}_PARENT NAMES ${header} PATHS /usr/include /usr/local/include
    NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
  if(NOT ${name}_PARENT)
    return()
  endif()
  set(view "${CMAKE_BINARY_DIR}/headers/${name}")
  file(MAKE_DIRECTORY "${view}")
  foreach(folder IN LISTS ARGN)
    file(CREATE_LINK "${${name}_PARENT}/${folder}" "${view}/${folder}" COPY_ON_ERROR SYMBOLIC)
  endforeach()
  add_library(${name} INTERFACE)
  target_include_directories(${name} SYSTEM INTERFACE "${view}")
endfunction()

# CLI11 and JSON for Modern C++ as their own packages describe them, or as above: zd_cli11 and zd_json.
find_package(CLI11 CONFIG QUIET)
if(TARGET CLI11::CLI11)
  add_library(zd_cli11 INTERFACE)
  target_link_libraries(zd_cli11 INTERFACE CLI11::CLI11)
else()
  zd_header_library(zd_cli11 CLI/CLI.hpp CLI)
endif()
find_package(nlohmann_json CONFIG QUIET)
if(TARGET nlohmann_json::nlohmann_json)
  add_library(zd_json INTERFACE)
  target_link_libraries(zd_json INTERFACE nlohmann_json::nlohmann_json)
else()
  zd_header_library(zd_json nlohmann/json.hpp nlohmann)
endif()
if(TARGET zd_cli11)
  # The parser's own checks of paths are not used, and std::filesystem does not link with the cross toolchain's runtime.
  target_compile_definitions(zd_cli11 INTERFACE CLI11_HAS_FILESYSTEM=0)
endif()

# zd_require_header_libraries(program option): ends the configuration where one of the two is missing.
function(zd_require_header_libraries program option)
  foreach(pair "zd_cli11;CLI11;libcli11-dev" "zd_json;JSON for Modern C++;nlohmann-json3-dev")
    list(GET pair 0 target)
    list(GET pair 1 what)
    list(GET pair 2 package)
    if(NOT TARGET ${target})
      message(FATAL_ERROR "${program} needs ${what} (Debian: ${package}). -D${option}=OFF builds without ${program}.")
    endif()
  endforeach()
endfunction()
