# One way to add a test program.

find_package(GTest REQUIRED)
include(GoogleTest)

# h323nat_test(NAME SOURCE...)
#
# Adds the GoogleTest program NAME and registers each of its cases with ctest. Windows programs run
# under Wine.
function(h323nat_test name)
  add_executable(${name} ${ARGN})
  target_link_libraries(${name} PRIVATE h323nat_rules GTest::gtest_main)
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST)
endfunction()
