# shellcheck shell=bash
# ./dev build and reference.

ensure_for() { # PRESET|guest...
    local groups=(build) group
    for group in clang arm64 guest; do
        if [[ " $* " == *" $group "* ]]; then groups+=("$group"); fi
    done
    ensure "${groups[@]}"
}

check_preset() { # PRESET
    [[ $(cd "$root" && cmake --list-presets) == *"\"$1\""* ]] ||
        die 64 "no preset '$1': see CMakePresets.json"
}

configure() { # PRESET [CMAKE-OPTION...]
    local options=()
    if command -v ccache >/dev/null; then
        options+=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
    fi
    cmake --preset "$1" "${options[@]}" "${@:2}"
}

configured() { # PRESET: ninja itself sees to changes of CMakeLists.txt
    local made=$root/build/$1/build.ninja
    [[ -e $made && ! $root/CMakePresets.json -nt $made && ! $root/tools/dev/build.sh -nt $made ]]
}

# The words, a line each, that begin a command where programs of a preset can run. Those for the
# board run on an emulated machine. A thread-sanitizer program of GCC 12 does not start where the
# kernel spreads addresses over more bits than it knows of.
machine_for() { # PRESET
    if [[ $1 == arm64 ]]; then
        printf '%s\n' "$root/guest/guest" --memory 4096 --limit 10800 arm64 --
    elif [[ $1 == tsan ]] && setarch "$(uname -m)" -R true 2>/dev/null; then
        printf '%s\n' setarch "$(uname -m)" -R
    fi
}

build() { # PRESET TARGET: programs, benchmarks, or all, which is programs and tests
    configured "$1" || loud_step "configure $1" configure "$1" || return 1
    loud_step "build $1" cmake --build --preset "$1" --target "$2" -j "$jobs" || return 1
}

cmd_build() {
    (($# <= 1)) || die 64 "build takes one preset"
    local preset=${1:-release}
    ensure_for "$preset" || exit
    check_preset "$preset"
    build "$preset" programs
}

# Anything that Doxygen warns of ends it.
cmd_reference() {
    (($# == 0)) || die 64 "reference takes nothing"
    ensure build || exit
    mkdir -p "$root/build"
    loud_step "reference" doxygen docs/Doxyfile || exit 1
    printf 'build/reference/html/index.html\n'
}
