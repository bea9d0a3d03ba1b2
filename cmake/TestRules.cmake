# One way to add a test program.

find_package(GTest REQUIRED)
include(GoogleTest)

# 32-bit Windows programs are built everywhere and run where Wine can run them.
set(H323NAT_TESTS_RUN ON)
if(WIN32 AND CMAKE_CROSSCOMPILING AND CMAKE_SIZEOF_VOID_P EQUAL 4)
  execute_process(COMMAND ${CMAKE_CROSSCOMPILING_EMULATOR} --runs-32-bit RESULT_VARIABLE failed)
  if(failed)
    set(H323NAT_TESTS_RUN OFF)
    message(STATUS "Wine here runs no 32-bit programs: tests are built and not run")
  endif()
endif()

# h323nat_test(NAME SOURCE...)
#
# Adds the GoogleTest program NAME and registers each of its cases with ctest. Windows programs run
# under Wine, whose first start takes a while.
function(h323nat_test name)
  add_executable(${name} ${ARGN})
  target_link_libraries(${name} PRIVATE h323nat_rules GTest::gtest_main)
  if(H323NAT_TESTS_RUN)
    gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 120)
  endif()
endfunction()
