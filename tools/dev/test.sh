# shellcheck shell=bash
# ./dev test: suites, guests, and the sum of them.

# Reads a suite's results, prints what a reader wants to know of them, and writes
# "PASSED FAILED" to LOGS/test-PRESET.counts. A test that ctest could not start has failed; one that
# skipped itself has neither passed nor failed.
report() { # PRESET JUNIT...
    python3 - "$1" "$logs/test-$1.counts" "${@:2}" <<'PY'
import re, shlex, sys
import xml.etree.ElementTree as xml

preset, counts, *junits = sys.argv[1:]
passed, failed, skipped = [], [], []
for case in (case for junit in junits for case in xml.parse(junit).getroot().iter("testcase")):
    skip = case.find("skipped")
    why = skip.get("message", "") if skip is not None else ""
    if case.get("status") == "run":
        passed.append(case)
    elif case.get("status") == "disabled" or why.startswith("SKIP_"):
        skipped.append(case)
    else:
        failed.append(case)

for case in failed:
    cause = next((e.get("message") for e in case if e.tag in ("failure", "skipped")), "")
    lines = (case.findtext("system-out") or "").rstrip().splitlines()
    print(f"\n---- {preset}: {case.get('name')} {cause}")
    if len(lines) > 120:
        print(f"[{len(lines) - 120} lines left out: build/logs/test-{preset}.log]")
    print("\n".join(lines[-120:]))
for case in skipped:
    print(f"    skipped: {case.get('name')}")
ran = [(float(case.get("time", 0)), case.get("name")) for case in passed + failed]
for seconds, name in sorted(ran, reverse=True)[:5]:
    print(f"    slowest: {seconds:6.2f} s  {name}")
for case in failed:
    pattern = shlex.quote("^" + re.escape(case.get("name")) + "$")
    print(f"    failed: {case.get('name')}\n      alone: ./dev test {preset} -R {pattern}")
print(f"    {preset}: passed {len(passed)}, failed {len(failed)}, skipped {len(skipped)}")
with open(counts, "w") as out:
    out.write(f"{len(passed)} {len(failed)}\n")
PY
}

total_passed=0 total_failed=0

# Runs a suite in so many shares at once. The results of each are in a file of its own.
run_shares() { # PRESET SHARES [CTEST OPTION...]
    local machine
    mapfile -t machine < <(machine_for "$1")
    # Which tests there are in programs for another machine ctest finds out there, into files of the
    # build: that is for one alone.
    if (($2 > 1)); then "${machine[@]}" ctest --preset "$1" -N; fi
    seq "$2" | xargs -P "$2" -I{} "${machine[@]}" ctest --preset "$1" -j "$test_jobs" \
        --no-tests=error --output-junit "$logs/test-$1.{}.xml" -I "{},,$2" "${@:3}"
}

# A suite that cannot be built, or in which nothing ran, is one failure more: the closing
# line must not look well when there is nothing behind it. An emulated machine keeps one processor
# busy, whatever runs there: a whole suite is shared by two of them.
test_suite() { # PRESET [CTEST OPTION...]
    local preset=$1 shares=1 status=0 passed=0 failed=0 results
    shift
    if [[ $preset == arm64 ]] && (($# == 0 && jobs > 1)); then shares=2; fi
    rm -f "$logs/test-$preset".*
    if ! build "$preset" all || { [[ $preset == arm64 ]] && ! build arm64 guest_programs; }; then
        total_failed=$((total_failed + 1))
        return
    fi
    step "test $preset" run_shares "$preset" "$shares" "$@" || status=$?
    mapfile -t results < <(compgen -G "$logs/test-$preset.*.xml")
    if ((${#results[@]} > 0)) && report "$preset" "${results[@]}"; then
        read -r passed failed <"$logs/test-$preset.counts"
    fi
    if ((passed + failed == 0 || (failed == 0 && status != 0))); then
        printf '    %s: no test ran, or ctest itself failed:\n' "$preset"
        end_of_log "$logs/test-$preset.log"
        failed=$((failed + 1))
    fi
    total_passed=$((total_passed + passed))
    total_failed=$((total_failed + failed))
}

# A list of steps that came out alike is a test passed.
compare_guest() { # ARCH [LIST...]
    local log="$logs/guest-$1.log" status=0 failed
    step "guest $1" "$root/guest/compare" "$@" || status=$?
    if ((status == 69)) && [[ ${2:-} == --short ]]; then # the suite itself needs no network
        printf '    skipped: guest %s: what it boots from cannot be had\n' "$1"
        return
    fi
    sed -nE 's/^(.*: (alike|DIFFERENT))$/    \1/p' "$log"
    failed=$(grep -c ': DIFFERENT$' "$log" || true)
    if ((failed > 0 || status != 0)); then end_of_log "$log"; fi
    if ((failed == 0 && status != 0)); then failed=1; fi
    total_passed=$((total_passed + $(grep -c ': alike$' "$log" || true)))
    total_failed=$((total_failed + failed))
}

# What was built against the library that ships runs with this one, too.
test_abi() { # PRESET
    if library_abi check "$1"; then
        total_passed=$((total_passed + 1))
    else
        total_failed=$((total_failed + 1))
    fi
}

test_guest() { # ARCH [LIST...]
    local preset=$1
    [[ $1 != amd64 ]] || preset=release
    if build release programs && build "$preset" programs && build "$preset" guest_programs; then
        compare_guest "$@"
    else
        total_failed=$((total_failed + 1))
    fi
}

cmd_test() {
    if [[ ${1:-} == panel ]]; then
        test_panel "${@:2}"
        return
    fi
    local presets=() groups=() options=() guests='' short='' abi='' preset arch
    while (($# > 0)); do
        case $1 in
            -R)
                [[ -n ${2:-} ]] || die 64 "-R needs a pattern"
                options=(-R "$2")
                shift
                ;;
            -*) die 64 "test knows no option '$1': try ./dev help" ;;
            guest) guests='amd64 arm64' presets+=(arm64) ;;
            *) presets+=("$1") ;;
        esac
        shift
    done
    if ((${#presets[@]} == 0)); then
        presets=(release asan tsan)
        ((${#options[@]} > 0)) || guests=amd64 short=--short abi=arm64
    fi
    if [[ -n $guests || " ${presets[*]} " == *" arm64 "* ]]; then groups=(guest); fi
    if ensure_for "${presets[@]}" "${groups[@]}" "$abi"; then
        for preset in "${presets[@]}"; do check_preset "$preset"; done
        [[ -z $abi ]] || test_abi "$abi"
        for arch in $guests; do test_guest "$arch" ${short:+"$short"}; done
        for preset in "${presets[@]}"; do test_suite "$preset" "${options[@]}"; done
    else
        total_failed=1
    fi
    printf '%d passed, %d failed\n' "$total_passed" "$total_failed"
    ((total_failed == 0 && total_passed > 0))
}
