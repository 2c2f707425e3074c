#!/bin/sh
# An application outside this tree finds the installed library, by pkg-config and by CMake, also
# when the prefix has been moved, and runs with it.
# Usage: install_test.sh CMAKE BUILD_DIR PROGRAM_DIR CC CXX SANITIZERS
set -eu
cmake=$1 build=$2 program=$3 cc=$4 cxx=$5 sanitize=${6:+-fsanitize=$6}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

expect_stamp() {
    printed=$("$@")
    if [ "$printed" != "BSP_HAL_VER: 2024-01-31-09-04-42" ]; then
        echo "$1 printed: $printed" && exit 1
    fi
    # The installed board, with its clock, and the same program on it.
    printed=$("$work/moved/bin/vboard" run --speed 10 -- "$1" on-board)
    if [ "$printed" != "line 3 is 1" ]; then
        echo "$1 printed on the board: $printed" && exit 1
    fi
}

"$cmake" --install "$build" --prefix "$work/first" > "$work/install.log"
mv "$work/first" "$work/moved"
library=$(dirname "$(find "$work/moved" -name libhal_bsp.so)")
cp -r "$program" "$work/outside"

export PKG_CONFIG_PATH="$library/pkgconfig"
flags=$(pkg-config --cflags --libs hal_bsp)
# shellcheck disable=SC2086 # the flags are several words
"$cc" -std=c99 -pedantic-errors -Wall -Wextra -Werror "$work/outside/program.c" \
    -o "$work/by_pkgconfig_c" $flags $sanitize -Wl,-rpath,"$library"
# shellcheck disable=SC2086
"$cxx" -x c++ "$work/outside/program.c" -x none \
    -o "$work/by_pkgconfig_cpp" $flags $sanitize -Wl,-rpath,"$library"
expect_stamp "$work/by_pkgconfig_c"
expect_stamp "$work/by_pkgconfig_cpp"

"$cmake" -S "$work/outside" -B "$work/build" -DCMAKE_PREFIX_PATH="$work/moved" \
    -DCMAKE_C_COMPILER="$cc" -DCMAKE_CXX_COMPILER="$cxx" \
    -DCMAKE_C_FLAGS="$sanitize" -DCMAKE_CXX_FLAGS="$sanitize" > "$work/cmake.log"
"$cmake" --build "$work/build" > "$work/build.log" || { cat "$work/build.log"; exit 1; }
expect_stamp "$work/build/program_c"
expect_stamp "$work/build/program_cpp"
