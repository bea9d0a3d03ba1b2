# `cpack` in a build folder makes the Debian package of everything that is installed.
if(NOT CMAKE_SYSTEM_NAME STREQUAL "Linux" OR H323NAT_FOREIGN)
  return()
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME h323nat)
set(CPACK_PACKAGE_VENDOR "h323nat maintainers")
set(CPACK_PACKAGE_CONTACT "h323nat maintainers <maintainers@h323nat.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "H.323 address translation for NAT gateways")
set(CPACK_PACKAGE_DESCRIPTION
  "A module that a program doing IPv4 NAT loads to translate the addresses in
H.323 signalling (H.225.0 call signalling, fast start, H.245, RAS), with its
header and CMake package for host programs, and the command-line tool h323nat,
which decodes messages, replays captures and runs the gateway for Linux.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_DIRECTORY "${PROJECT_BINARY_DIR}/packages")
set(CPACK_STRIP_FILES ON)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The tool links the module that stands beside it in this package.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${CMAKE_LIBRARY_OUTPUT_DIRECTORY}")
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(control "${PROJECT_SOURCE_DIR}/packaging/debian")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA "${control}/triggers")
if(TARGET h323gateway_live)
  list(APPEND CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
    "${control}/conffiles" "${control}/postinst" "${control}/prerm")
endif()
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

# Files in the package bear the time of the commit, so that it is the same octets whenever made.
set(epoch 0)
find_package(Git QUIET)
if(GIT_FOUND)
  execute_process(COMMAND "${GIT_EXECUTABLE}" log -1 --format=%ct
    WORKING_DIRECTORY "${PROJECT_SOURCE_DIR}"
    OUTPUT_VARIABLE epoch OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
endif()
set(CPACK_PROJECT_CONFIG_FILE "${PROJECT_BINARY_DIR}/package-time.cmake")
file(WRITE "${CPACK_PROJECT_CONFIG_FILE}" "set(ENV{SOURCE_DATE_EPOCH} ${epoch})\n")
include(CPack)
