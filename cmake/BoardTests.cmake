# Two kinds of test programs, both GoogleTest:
#   hal_plain_test(NAME SOURCES... [LIBS ...])  pure logic, each test a plain process
#   hal_board_test(NAME SOURCES... [LIBS ...])  each test in a virtual board of its own
# Every test is registered by itself, so ctest runs them in parallel and
# `ctest -R NAME` runs one alone.

find_package(GTest REQUIRED)
include(GoogleTest)

# How long a test may take. Under a sanitizer the longest stories take half a minute.
set(HAL_TEST_SECONDS 60)
if(HAL_SANITIZE)
  set(HAL_TEST_SECONDS 180)
endif()

# For every program of the tests in which threads are cancelled.
set(HAL_ASAN_OPTIONS ${CMAKE_CURRENT_LIST_DIR}/asan_options.cpp)

function(_hal_test_program name)
  cmake_parse_arguments(ARG "" "" "LIBS" ${ARGN})
  add_executable(${name} ${ARG_UNPARSED_ARGUMENTS} ${HAL_ASAN_OPTIONS})
  target_link_libraries(${name} PRIVATE hal_options GTest::gtest GTest::gmock ${ARG_LIBS})
endfunction()

function(hal_plain_test name)
  _hal_test_program(${name} ${ARGN})
  target_link_libraries(${name} PRIVATE GTest::gtest_main)
  gtest_discover_tests(${name} NO_PRETTY_VALUES DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
    PROPERTIES TIMEOUT ${HAL_TEST_SECONDS})
endfunction()

# The launcher is the "emulator" of these programs: CMake puts it before every run.
function(hal_board_test name)
  _hal_test_program(${name} ${ARGN})
  target_link_libraries(${name} PRIVATE vboard_test_main)
  add_dependencies(${name} vboard vboard_clock)
  set_target_properties(${name} PROPERTIES
    CROSSCOMPILING_EMULATOR "$<TARGET_FILE:vboard>;run;--speed;1;--")
  gtest_discover_tests(${name} NO_PRETTY_VALUES DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
    PROPERTIES TIMEOUT ${HAL_TEST_SECONDS})
endfunction()
