# shellcheck shell=bash
# What ./dev runs: programs on boards and in guests, the demonstration, benchmarks, fuzzers.

build_release() { # TARGET
    ensure build || exit
    build release "$1" || exit
    export PATH=$release/vboard:$release/halctl:$release/examples:$PATH
}

on_board() { # run|shell ARGS...
    quick_steps_shown=no
    build_release programs
    exec vboard "$@"
}

cmd_demo() {
    build_release programs
    exec "$root/examples/demo" "$release" "$@"
}

# The fuzzers are of the Clang build, in a folder of their own: they are instrumented throughout.
cmd_fuzz() {
    local seconds=${1:-60} program status=0
    [[ $seconds =~ ^[1-9][0-9]*$ ]] || die 64 "fuzz takes a number of seconds"
    ensure build clang || exit
    step "configure fuzz" cmake --preset clang -B build/fuzz -DHAL_BUILD_FUZZERS=ON \
        -DHAL_BUILD_TESTS=OFF -DHAL_BUILD_BENCH=OFF
    while read -r program; do
        loud_step "build $program" cmake --build build/fuzz --target "$program" -j "$jobs" || exit 1
        step "fuzz $program" "build/fuzz/libhal_bsp/fuzz/$program" -max_total_time="$seconds" ||
            status=1
    done < <(sed -n 's/^hal_fuzzer(\([a-z_]*\)[ )].*/\1/p' "$root/libhal_bsp/fuzz/CMakeLists.txt")
    return "$status"
}

# A benchmark is a program NAME_bench in a folder bench/; one called NAME_board_bench runs on a
# virtual board of its own, all others as plain programs with vboard on PATH.
cmd_bench() {
    local program name found=no status=0
    build_release benchmarks
    while read -r program; do
        name=${program##*/}
        [[ $name == *"${1:-}"* ]] || continue
        found=yes
        printf '\n%s\n' "$name"
        case $name in
            *_board_bench) vboard run -- "$program" </dev/null || status=1 ;;
            *) "$program" </dev/null || status=1 ;;
        esac
    done < <(find "$release" -path '*/bench/*_bench' -type f -executable | sort)
    [[ $found == yes ]] || die 1 "no benchmark is called *${1:-}*"
    return "$status"
}

# Board time is fast, since each recovery takes seconds of it; faster, and a busy machine is late.
cmd_soak() {
    if [[ ${1:-} == sticks ]]; then
        soak_sticks "${@:2}"
        return
    fi
    [[ ${1:-1} =~ ^[1-9][0-9]*$ ]] || die 64 "soak takes a number of packets"
    build_release programs
    build release mcu_soak || exit
    vboard run --speed 100 -- "$release/libhal_bsp/bench/mcu_soak" "${1:-1000000}" </dev/null
}

# What mount and umount say of sticks that are gone already is in a log.
soak_sticks() {
    [[ ${1:-1} =~ ^[1-9][0-9]*$ && ${2:-1} =~ ^[0-9]+$ ]] ||
        die 64 "soak sticks takes a number of cycles, and a seed"
    build_release programs
    build release stick_soak || exit
    vboard run -- "$release/libhal_bsp/bench/stick_soak" "${1:-1000}" "${@:2}" \
        </dev/null 2>"$logs/soak-sticks.log" || {
        tail -n 3 "$logs/soak-sticks.log" >&2
        return 1
    }
}

# What is built is what the machine can run, which its options do not tell from their values.
cmd_guest() {
    local word preset=''
    for word in "$@"; do
        case $word in
            arm64) preset=arm64 && break ;;
            amd64) preset=release && break ;;
            -h | --help) exec "$root/guest/guest" --help ;;
        esac
    done
    if [[ -n $preset ]]; then
        quick_steps_shown=no
        ensure_for "$preset" guest || exit
        build "$preset" programs || exit
        build "$preset" guest_programs || exit
    fi
    exec "$root/guest/guest" "$@"
}

cmd_mutants() {
    ensure build || exit
    "$root/tools/mutants.py" "$@"
}

# A look at the interface takes a second; the library itself is built for either processor without
# anything else of the tree.
library_abi() { # check|renew PRESET: release or arm64
    build "$2" hal_bsp || return 1
    loud_step "abi $1 $2" "$root/libhal_bsp/abi/abi" "$1" \
        "$root/build/$2/libhal_bsp/libhal_bsp.so" "$root/libhal_bsp/include"
}

cmd_abi() {
    local what=${1:-renew} preset status=0
    [[ $what =~ ^(check|renew)$ && $# -le 1 ]] || die 64 "abi takes check, or nothing"
    ensure build arm64 || exit
    for preset in release arm64; do library_abi "$what" "$preset" || status=1; done
    git -C "$root" -c safe.directory="$root" diff --stat -- libhal_bsp/abi
    return "$status"
}
