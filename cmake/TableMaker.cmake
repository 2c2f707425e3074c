# Programs that make tables while the tree is built. They run on the machine that builds, whatever
# machine it builds for.
#   hal_table_maker(NAME SOURCE [LIBRARY TARGET PKG_CONFIG MODULE])
# sets NAME_program, for the COMMAND that runs it and for what DEPENDS on it. The library that the
# program needs is TARGET, or what pkg-config says of MODULE.
function(hal_table_maker name source)
  cmake_parse_arguments(ARG "" "LIBRARY;PKG_CONFIG" "" ${ARGN})
  if(NOT CMAKE_CROSSCOMPILING)
    add_executable(${name} ${source})
    target_link_libraries(${name} PRIVATE hal_warnings ${ARG_LIBRARY})
    set(${name}_program ${name} PARENT_SCOPE)
    return()
  endif()
  find_program(HAL_BUILD_CXX NAMES c++ g++ clang++ REQUIRED)
  set(flags)
  if(ARG_PKG_CONFIG)
    execute_process(
      COMMAND ${CMAKE_COMMAND} -E env --unset=PKG_CONFIG_LIBDIR
        pkg-config --cflags --libs ${ARG_PKG_CONFIG}
      OUTPUT_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    separate_arguments(flags UNIX_COMMAND "${flags}")
  endif()
  set(program ${CMAKE_CURRENT_BINARY_DIR}/${name})
  set(source ${CMAKE_CURRENT_SOURCE_DIR}/${source})
  add_custom_command(OUTPUT ${program}
    COMMAND ${HAL_BUILD_CXX} -std=c++20 -O1 ${source} -o ${program} ${flags}
    DEPENDS ${source} VERBATIM)
  set(${name}_program ${program} PARENT_SCOPE)
endfunction()
