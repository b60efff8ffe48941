# What tools/package puts together, in components: plugin, host, local, docs, admin; cmake/sdk.cmake has "sdk".
#
#     cmake --install build/release --prefix FOLDER [--component NAME]
install(PROGRAMS $<TARGET_FILE:ZdvfsProtocol> $<TARGET_FILE:ZdvfsMessages> DESTINATION bin COMPONENT plugin)
if(TARGET zdhost)
  install(PROGRAMS $<TARGET_FILE:zdhost> DESTINATION bin COMPONENT host)
endif()

# Not beside the plug-in: a machine with a storage product has that product's libraries of the same names.
install(PROGRAMS $<TARGET_FILE:zdvfs> $<TARGET_FILE:hul> DESTINATION local COMPONENT local)
install(FILES "${PROJECT_SOURCE_DIR}/resources/try.cmd" DESTINATION . COMPONENT local)

install(FILES README.md CHANGELOG.md SECURITY.md CONTRIBUTING.md DESTINATION . COMPONENT docs)
install(DIRECTORY docs DESTINATION . COMPONENT docs
  FILES_MATCHING PATTERN "*.md" PATTERN "*.svg")
if(EXISTS "${PROJECT_SOURCE_DIR}/admin")
  install(DIRECTORY admin/ DESTINATION admin COMPONENT admin)
endif()
