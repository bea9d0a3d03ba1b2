# `cpack` in a build folder packs everything that is installed: for Debian, or for Windows.
if(WIN32)
  set(kind WindowsPackage)
elseif(CMAKE_SYSTEM_NAME STREQUAL "Linux" AND NOT H323NAT_FOREIGN)
  set(kind DebianPackages)
else()
  return()
endif()

set(CPACK_PACKAGE_NAME h323nat)
set(CPACK_PACKAGE_VENDOR "h323nat maintainers")
set(CPACK_PACKAGE_CONTACT "h323nat maintainers <maintainers@h323nat.invalid>")
set(CPACK_PACKAGE_DIRECTORY "${PROJECT_BINARY_DIR}/packages")
set(CPACK_STRIP_FILES ON)

# Files in a package bear the time of the commit, and so does the archive around them: the same commit
# gives the same octets whenever it is packed.
set(epoch 0)
find_package(Git QUIET)
if(GIT_FOUND)
  execute_process(COMMAND "${GIT_EXECUTABLE}" log -1 --format=%ct
    WORKING_DIRECTORY "${PROJECT_SOURCE_DIR}"
    OUTPUT_VARIABLE epoch OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
endif()
set(CPACK_PROJECT_CONFIG_FILE "${PROJECT_BINARY_DIR}/package-time.cmake")
file(WRITE "${CPACK_PROJECT_CONFIG_FILE}" "set(ENV{SOURCE_DATE_EPOCH} ${epoch})\n")
include("${kind}")
include(CPack)
