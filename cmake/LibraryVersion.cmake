# Sets HAL_BSP_VERSION to the library's version as its public header tells it to applications: in
# numbers for the preprocessor, in text for people, and both the same.

block(PROPAGATE HAL_BSP_VERSION)
  set(header ${CMAKE_CURRENT_LIST_DIR}/../libhal_bsp/include/hal_bsp/version.h)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${header})
  file(READ ${header} content)

  foreach(part MAJOR MINOR PATCH)
    string(REGEX MATCH "#define HAL_BSP_VERSION_${part} ([0-9]+)\n" line "${content}")
    list(APPEND numbers "${CMAKE_MATCH_1}")
  endforeach()
  list(JOIN numbers . HAL_BSP_VERSION)
  string(REGEX MATCH "#define HAL_BSP_VERSION \"([0-9]+\\.[0-9]+\\.[0-9]+)\"\n" line "${content}")
  set(text "${CMAKE_MATCH_1}")
  if(NOT text STREQUAL HAL_BSP_VERSION)
    message(FATAL_ERROR "version.h says \"${text}\" in text, ${HAL_BSP_VERSION} in numbers")
  endif()
endblock()
