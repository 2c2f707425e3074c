# Two kinds of test programs, both GoogleTest:
#   hal_plain_test(NAME SOURCES... [LIBS ...])  what needs no board, or starts its own
#   hal_board_test(NAME SOURCES... [LIBS ...] [BOARD FILE])
#                                               what runs on a virtual board: the standard one, or
#                                               that of a board file
# SINGLE_THREADED PATTERN names tests, as a filter of GoogleTest's, in which no thread meets another:
# the thread sanitizer passes them over.
# Every test is registered by itself and gets a process (and a board) of its own, so ctest runs
# them in parallel and `ctest -R NAME` runs one alone. A program can also be run whole:
#   PROGRAM                              a plain one
#   vboard run --speed 1 -- PROGRAM      one for a board

find_package(GTest REQUIRED)
include(GoogleTest)

# How long a test may take. Under a sanitizer the longest stories take half a minute, and on an
# emulated machine everything takes many times as long.
set(HAL_TEST_SECONDS 60)
set(HAL_SANITIZED 0)
set(HAL_SLOW 0)
if(HAL_SANITIZE)
  set(HAL_TEST_SECONDS 180)
  set(HAL_SANITIZED 1)
  set(HAL_SLOW 1)
elseif(CMAKE_CROSSCOMPILING)
  set(HAL_TEST_SECONDS 900)
  set(HAL_SLOW 1)
endif()
target_compile_definitions(vboard_board_main PRIVATE HAL_TEST_SECONDS=${HAL_TEST_SECONDS})

# Headers of nearly every test. A program of a few tests reads them for longer than its own sources:
# they are read once for all. Where sources are not joined, each has to include what it needs.
if(CMAKE_UNITY_BUILD)
  file(CONFIGURE OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/test_headers.cpp CONTENT "")
  add_library(test_headers OBJECT ${CMAKE_CURRENT_BINARY_DIR}/test_headers.cpp)
  target_link_libraries(test_headers PRIVATE hal_options GTest::gtest GTest::gmock)
  target_compile_options(test_headers PRIVATE -O0)
  target_compile_options(test_headers PRIVATE $<$<CXX_COMPILER_ID:GNU>:-fpch-preprocess>)
  set_target_properties(test_headers PROPERTIES HAL_NO_SANITIZE undefined)
  target_precompile_headers(test_headers PRIVATE <algorithm> <array> <atomic> <chrono> <filesystem>
    <fstream> <functional> <map> <mutex> <random> <set> <sstream> <string> <thread> <vector>
    <gmock/gmock.h> <gtest/gtest.h> <nlohmann/json.hpp>)
endif()

function(_hal_test_program name main)
  cmake_parse_arguments(ARG "" "SINGLE_THREADED" "LIBS" ${ARGN})
  add_executable(${name} ${ARG_UNPARSED_ARGUMENTS} ${HAL_SANITIZER_OPTIONS})
  target_compile_options(${name} PRIVATE -O0) # they run but once for each time they are built
  # Sweeps over all there is take samples under a sanitizer: a transfer is five times as dear. On
  # every slow machine a board's time is less hurried.
  target_compile_definitions(${name} PRIVATE HAL_SANITIZED=${HAL_SANITIZED} HAL_SLOW=${HAL_SLOW})
  target_link_libraries(${name} PRIVATE
    hal_options ${main} GTest::gtest GTest::gmock ${ARG_LIBS})
  # The code under test is looked at for undefined behaviour: doing so with a test's own takes a
  # compiler as long again.
  set_target_properties(${name} PROPERTIES HAL_NO_SANITIZE undefined)
  if(CMAKE_UNITY_BUILD)
    target_precompile_headers(${name} REUSE_FROM test_headers)
    target_compile_options(${name} PRIVATE
      $<$<CXX_COMPILER_ID:GNU>:-fpch-preprocess>) # for the compiler cache
  endif()
  set(filter)
  if(ARG_SINGLE_THREADED AND HAL_SANITIZE STREQUAL "thread")
    set(filter TEST_FILTER "-${ARG_SINGLE_THREADED}")
  endif()
  gtest_discover_tests(${name} ${filter} NO_PRETTY_VALUES DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
    PROPERTIES TIMEOUT ${HAL_TEST_SECONDS})
endfunction()

function(hal_plain_test name)
  _hal_test_program(${name} GTest::gtest_main ${ARGN})
endfunction()

# The launcher is the "emulator" of these programs: CMake puts it before every run.
function(hal_board_test name)
  cmake_parse_arguments(ARG "" "BOARD" "" ${ARGN})
  set(board)
  if(ARG_BOARD)
    set(board "--board;${ARG_BOARD};")
  endif()
  set(CMAKE_CROSSCOMPILING_EMULATOR "$<TARGET_FILE:vboard>;run;${board}--speed;1;--")
  _hal_test_program(${name} vboard_board_main ${ARG_UNPARSED_ARGUMENTS})
  add_dependencies(${name} vboard vboard_clock)
endfunction()
