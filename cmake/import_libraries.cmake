# zdvfs.dll and hul.dll are linked by name, through import libraries made from the lists of their functions alone, so
# that any libraries of these names can stand beside the plug-in.
function(zd_import_library target def)
  set(name "${CMAKE_STATIC_LIBRARY_PREFIX}${target}_import${CMAKE_STATIC_LIBRARY_SUFFIX}")
  set(output "${CMAKE_ARCHIVE_OUTPUT_DIRECTORY}/${name}")
  file(MAKE_DIRECTORY "${CMAKE_ARCHIVE_OUTPUT_DIRECTORY}")
  if(MSVC)
    set(command "${CMAKE_AR}" /nologo /def:${def} /out:${output} /machine:x64)
  else()
    get_filename_component(bin "${CMAKE_AR}" DIRECTORY)
    find_program(ZD_DLLTOOL NAMES x86_64-w64-mingw32-dlltool dlltool HINTS "${bin}" REQUIRED)
    # The tool makes symbols of the name of the library as it is given, and members of the prefix.
    set(command "${CMAKE_COMMAND}" -E chdir "${CMAKE_ARCHIVE_OUTPUT_DIRECTORY}"
      "${ZD_DLLTOOL}" -d "${def}" -l "${name}" --temp-prefix "${target}_import" --deterministic-libraries)
  endif()
  add_custom_command(OUTPUT "${output}" COMMAND ${command} DEPENDS "${def}" VERBATIM)
  add_custom_target(${target}_import_file DEPENDS "${output}")
  add_library(${target}_import INTERFACE)
  add_dependencies(${target}_import ${target}_import_file)
  target_link_libraries(${target}_import INTERFACE "${output}")
endfunction()

zd_import_library(zdvfs "${PROJECT_SOURCE_DIR}/include/zdvfs.def")
zd_import_library(hul "${PROJECT_SOURCE_DIR}/include/hul.def")
