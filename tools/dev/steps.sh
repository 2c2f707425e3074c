# shellcheck shell=bash
# Steps of ./dev: one line each, the output in a log that is shown only when the step failed.

# Shows on a terminal how far the step has come, taken from ninja's and ctest's "12/345".
show_progress() { # NAME LOG
    while sleep 0.3 && kill -0 $$ 2>/dev/null; do
        printf '\r  %-24s %s\e[K' "$1" \
            "$(tail -n 5 "$2" | sed -nE 's:^[[ ]*([0-9]+/[0-9]+).*:\1:p' | tail -n 1)" >&2
    done
}

end_of_log() { # LOG: from the first error of a build on, or just the end
    if grep -q '^FAILED: ' "$1"; then
        sed -n '/^FAILED: /,$p' "$1" | sed -n 1,150p
    else
        tail -n 60 "$1"
    fi
}

step() { # NAME COMMAND...
    local name=$1 log=$logs/${1// /-}.log start=${EPOCHREALTIME/./} watcher='' status=0 tenths
    shift
    mkdir -p "$logs"
    : >"$log"
    if [[ -t 2 ]]; then
        show_progress "$name" "$log" &
        watcher=$!
    fi
    (cd "$root" && "$@") </dev/null >"$log" 2>&1 || status=$?
    if [[ -n $watcher ]]; then
        kill "$watcher" 2>/dev/null || true
        wait "$watcher" 2>/dev/null || true
        printf '\r\e[K' >&2
    fi
    tenths=$(((${EPOCHREALTIME/./} - start) / 100000))
    if ((status != 0)); then
        printf '  %-24s %sfailed%s %4d.%d s   %s\n' "$name" "$red" "$plain" \
            $((tenths / 10)) $((tenths % 10)) "${log#"$root"/}" >&2
    elif [[ $quick_steps_shown == yes ]] || ((tenths >= 10)); then
        printf '  %-24s %sok%s     %4d.%d s\n' "$name" "$green" "$plain" \
            $((tenths / 10)) $((tenths % 10)) >&2
    fi
    return "$status"
}

loud_step() { # NAME COMMAND...
    local status=0
    step "$@" || status=$?
    ((status == 0)) || end_of_log "$logs/${1// /-}.log" >&2
    return "$status"
}
