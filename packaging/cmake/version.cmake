# The version that project() states is the only one: it goes into the version resource of every binary that ships, and
# into what zdhost answers to --version.
enable_language(RC)
if(CMAKE_RC_COMPILER MATCHES "windres")
  # windres takes none of the options that the targets compile their C++ with.
  set(CMAKE_RC_COMPILE_OBJECT "<CMAKE_RC_COMPILER> -O coff <DEFINES> <INCLUDES> <SOURCE> <OBJECT>")
endif()

# zd_version_resource(target description): adds a version resource to a program or library.
function(zd_version_resource target description)
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
