# Compiler options of every target of ours, as two interface libraries:
#   hal_warnings  the warnings, which are errors
#   hal_options   the warnings and, in a sanitizer build, the sanitizers; without those checks of
#                 theirs that the target's property HAL_NO_SANITIZE names
# A library that is preloaded into foreign programs takes hal_warnings only: a program that
# was not built with a sanitizer cannot load one that was.

find_package(Threads REQUIRED)

set(HAL_SANITIZE "" CACHE STRING "Sanitizers for every target, as -fsanitize takes them")

# A source of every program that has threads and may be built with a sanitizer.
set(HAL_SANITIZER_OPTIONS ${CMAKE_CURRENT_LIST_DIR}/sanitizer_options.cpp)

# For what runs often. A sanitizer build leaves all else unoptimised: it builds in less time.
set(HAL_RUNS_OFTEN $<$<CONFIG:RelWithDebInfo>:-O2>)
if(HAL_SANITIZE)
  set(HAL_RUNS_OFTEN -O1)
endif()

# GCC looks for memory that it could use again from 128 MB on, which sources that are compiled
# together soon have.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  add_compile_options(--param=ggc-min-heapsize=524288)
endif()

add_library(hal_warnings INTERFACE)
target_compile_options(hal_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror
  -fno-omit-frame-pointer -fasynchronous-unwind-tables)

# The library is looked at for all there is. With the rest the address sanitizer notices null, and
# this machine reads at any address: a compiler takes half as long again to look for both.
define_property(TARGET PROPERTY HAL_NO_SANITIZE INITIALIZE_FROM_VARIABLE HAL_NO_SANITIZE)
set(HAL_NO_SANITIZE null,alignment)

add_library(hal_options INTERFACE)
target_link_libraries(hal_options INTERFACE hal_warnings Threads::Threads)
if(HAL_SANITIZE)
  target_compile_options(hal_options INTERFACE
    -fsanitize=${HAL_SANITIZE} -fno-sanitize-recover=all
    $<$<BOOL:$<TARGET_PROPERTY:HAL_NO_SANITIZE>>:-fno-sanitize=$<TARGET_PROPERTY:HAL_NO_SANITIZE>>)
  target_link_options(hal_options INTERFACE -fsanitize=${HAL_SANITIZE})
endif()

# What a distribution builds its libraries with, for what runs on the board. Binding stays lazy:
# some functions come from the process later. The frames are small enough for small stacks.
add_library(hal_hardened INTERFACE)
if(NOT HAL_SANITIZE)
  target_compile_options(hal_hardened INTERFACE
    -fstack-protector-strong -fstack-clash-protection -Wframe-larger-than=2048
    $<$<CONFIG:RelWithDebInfo>:-U_FORTIFY_SOURCE> $<$<CONFIG:RelWithDebInfo>:-D_FORTIFY_SOURCE=2>)
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|amd64")
    target_compile_options(hal_hardened INTERFACE -fcf-protection)
  elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "aarch64|arm64")
    target_compile_options(hal_hardened INTERFACE -mbranch-protection=standard)
  endif()
  target_link_options(hal_hardened INTERFACE -Wl,-z,relro -Wl,-z,separate-code -Wl,-z,noexecstack)
endif()
