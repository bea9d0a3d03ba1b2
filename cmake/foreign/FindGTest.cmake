# GoogleTest for targets other than the build machine: Debian's package has it for the build
# machine's own processor only, so the sources of the package `googletest` are built along.
set(H323NAT_GOOGLETEST_SOURCE "/usr/src/googletest" CACHE PATH
  "GoogleTest's sources, built for targets that have no packaged GoogleTest")
if(EXISTS "${H323NAT_GOOGLETEST_SOURCE}/CMakeLists.txt")
  set(INSTALL_GTEST OFF)
  set(BUILD_GMOCK OFF)
  add_subdirectory("${H323NAT_GOOGLETEST_SOURCE}" "${PROJECT_BINARY_DIR}/googletest"
    EXCLUDE_FROM_ALL)
  target_compile_options(gtest PRIVATE -w)
endif()
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(GTest
  REQUIRED_VARS gtest_SOURCE_DIR
  REASON_FAILURE_MESSAGE
  "no ${H323NAT_GOOGLETEST_SOURCE}/CMakeLists.txt. Install the package googletest or build with -DH323NAT_TESTS=OFF")
