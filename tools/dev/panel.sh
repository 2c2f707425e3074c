# shellcheck shell=bash
# ./dev panel and ./dev test panel: a board with its panel, and browser tests of that.

panel=$root/build/panel

# A few sticks to plug in: files without a table, two partitions, and one that is no stick at all.
make_example_sticks() { # FOLDER
    local make=$release/vboard/commands/make_stick
    mkdir -p "$1" "$panel/texts" "$panel/pictures"
    cp "$root"/docs/*.md "$panel/texts"
    cp "$root"/docs/*.svg "$panel/pictures"
    [[ -e $1/texts.img ]] || "$make" none "$1/texts.img" "$panel/texts"
    [[ -e $1/texts-and-pictures.img ]] ||
        "$make" gpt "$1/texts-and-pictures.img" "$panel/texts" "$panel/pictures"
    [[ -e $1/rubbish.img ]] || head -c 1048576 /dev/urandom >"$1/rubbish.img"
    [[ -e $panel/disk.img ]] || "$make" none "$panel/disk.img" "$panel/texts"
}

cmd_panel() { # VBOARD RUN OPTIONS...
    quick_steps_shown=no
    build_release programs
    make_example_sticks "$panel/sticks"
    printf 'dev: open the address below in a browser; Ctrl-C ends it\n' >&2
    exec vboard run --speed 1 --http 0 --sticks "$panel/sticks" "$@" -- \
        "$root/tools/dev/panel_programs" "$panel/disk.img"
}

# npm is not always Debian's package.
ensure_panel() {
    local groups=(build panel)
    command -v npm >/dev/null || groups+=(npm)
    ensure "${groups[@]}"
}

# What the tests are run with is outside the tree.
install_modules() {
    local given=$root/vboard/tests/browser/package-lock.json
    cmp -s "$given" "$panel/package-lock.json" && [[ -d $panel/node_modules ]] && return
    mkdir -p "$panel"
    cp "$root/vboard/tests/browser/package.json" "$panel"
    (cd "$panel" && cp "$given" . && npm ci --ignore-scripts --no-audit --no-fund) ||
        { rm -f "$panel/package-lock.json" && return 1; }
}

# The packages of another machine's registry may be out of reach: then there is nothing to say of
# the panel, neither good nor bad.
test_panel() { # [--pictures FOLDER]
    local pictures='' log="$logs/test-panel.log" status=0 passed failed
    case "$#:${1:-}" in
        0:) ;;
        2:--pictures) pictures=$(mkdir -p "$2" && cd "$2" && pwd) ;;
        *) die 64 "test panel takes --pictures FOLDER, or nothing" ;;
    esac
    if ! ensure_panel || ! step "modules panel" install_modules; then
        die 69 "the panel is not tested: what drives a browser cannot be had"
    fi
    build_release programs
    export PANEL_MODULES=$panel
    step "test panel" node --test --test-reporter=tap "$root/vboard/tests/browser/panel.test.js" ||
        status=$?
    passed=$(sed -n 's/^# pass //p' "$log") failed=$(sed -n 's/^# fail //p' "$log")
    sed -nE 's/^ *not ok [0-9]+ - /    failed: /p' "$log"
    if ((status != 0)); then end_of_log "$log"; fi
    if ((status != 0 && ${failed:-0} == 0)); then failed=1; fi
    if [[ -n $pictures ]]; then
        make_example_sticks "$panel/sticks"
        loud_step "pictures panel" node "$root/vboard/tests/browser/pictures.js" "$pictures" \
            --sticks "$panel/sticks" -- "$root/tools/dev/panel_programs" "$panel/disk.img" ||
            failed=$((failed + 1))
    fi
    printf '%d passed, %d failed\n' "${passed:-0}" "${failed:-0}"
    ((${failed:-0} == 0 && ${passed:-0} > 0))
}
