# What the author of a host needs, as an installation of its own:
#
#     cmake --install build/release --prefix FOLDER --component sdk
include(CMakePackageConfigHelpers)

# The headers of the host's side. zdvfs.h is there for the numbers of control requests and the mode word; hul.h is
# between the plug-in and its storage alone.
set(ZD_SDK_HEADERS IProtocolManager.h Logger.h StorageErrors.h ZdvfsLoader.h zdvfs.h)
set(ZD_SDK_HEADER_FOLDER include/ZdvfsProtocol)
set(ZD_SDK_PACKAGE_FOLDER lib/cmake/ZdvfsProtocol)
set(ZD_SDK_SHARE_FOLDER share/ZdvfsProtocol)

list(TRANSFORM ZD_SDK_HEADERS PREPEND "${PROJECT_SOURCE_DIR}/include/" OUTPUT_VARIABLE headers)
install(FILES ${headers} DESTINATION ${ZD_SDK_HEADER_FOLDER} COMPONENT sdk)

configure_package_config_file("${CMAKE_CURRENT_LIST_DIR}/ZdvfsProtocolConfig.cmake.in"
  "${CMAKE_BINARY_DIR}/sdk/ZdvfsProtocolConfig.cmake"
  INSTALL_DESTINATION ${ZD_SDK_PACKAGE_FOLDER} PATH_VARS ZD_SDK_HEADER_FOLDER)
# Before version 1 a minor version may change the interface.
write_basic_package_version_file("${CMAKE_BINARY_DIR}/sdk/ZdvfsProtocolConfigVersion.cmake"
  COMPATIBILITY SameMinorVersion)
install(FILES "${CMAKE_BINARY_DIR}/sdk/ZdvfsProtocolConfig.cmake"
  "${CMAKE_BINARY_DIR}/sdk/ZdvfsProtocolConfigVersion.cmake"
  DESTINATION ${ZD_SDK_PACKAGE_FOLDER} COMPONENT sdk)

install(FILES "${PROJECT_SOURCE_DIR}/samples/host/main.cpp" "${PROJECT_SOURCE_DIR}/samples/host/CMakeLists.txt"
  DESTINATION ${ZD_SDK_SHARE_FOLDER}/sample COMPONENT sdk)
install(FILES "${PROJECT_SOURCE_DIR}/cmake/mingw-ucrt.cmake"
  DESTINATION ${ZD_SDK_SHARE_FOLDER}/toolchain COMPONENT sdk)
