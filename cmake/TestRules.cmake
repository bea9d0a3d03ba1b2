# GoogleTest, and one way to add a test program.
#
# Debian's package has GoogleTest for the build machine's own processor only. For other targets the
# sources of the package `googletest` are built along.

include(GoogleTest)

find_package(GTest CONFIG QUIET)
if(NOT GTest_FOUND)
  set(H323NAT_GOOGLETEST_SOURCE "/usr/src/googletest" CACHE PATH
    "GoogleTest's sources, built for targets that have no packaged GoogleTest")
  if(NOT EXISTS "${H323NAT_GOOGLETEST_SOURCE}/CMakeLists.txt")
    message(FATAL_ERROR
      "No GoogleTest for this target, and no sources in ${H323NAT_GOOGLETEST_SOURCE}. "
      "Install the package libgtest-dev (googletest for cross builds), or build with "
      "-DH323NAT_TESTS=OFF.")
  endif()
  set(INSTALL_GTEST OFF)
  set(BUILD_GMOCK OFF)
  add_subdirectory("${H323NAT_GOOGLETEST_SOURCE}" "${PROJECT_BINARY_DIR}/googletest"
    EXCLUDE_FROM_ALL)
  foreach(kind gtest gtest_main)
    if(NOT TARGET GTest::${kind})
      add_library(GTest::${kind} ALIAS ${kind})
    endif()
  endforeach()
endif()

# h323nat_test(NAME SOURCE...)
#
# Adds the GoogleTest program NAME and registers each of its cases with ctest. Windows programs run
# under Wine.
function(h323nat_test name)
  add_executable(${name} ${ARGN})
  target_link_libraries(${name} PRIVATE h323nat_rules GTest::gtest_main)
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST)
endfunction()
