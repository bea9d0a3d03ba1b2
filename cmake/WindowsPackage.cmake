# The zip for Windows: module, import library, header, tool, and their documents as plain text.
set(CPACK_GENERATOR ZIP)
set(CPACK_PACKAGE_FILE_NAME "h323nat-${PROJECT_VERSION}-windows-${CMAKE_SYSTEM_PROCESSOR}")
install(FILES
  "${PROJECT_SOURCE_DIR}/CHANGELOG.md"
  "${PROJECT_SOURCE_DIR}/docs/what-is-translated.md"
  DESTINATION doc)
