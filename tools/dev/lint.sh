# shellcheck shell=bash
# ./dev lint.

our_files() { # PATHSPEC...
    git -C "$root" -c safe.directory="$root" ls-files -co --exclude-standard --deduplicate -- "$@" |
        while read -r file; do [[ ! -f $root/$file ]] || printf '%s\n' "$file"; done
}

clang_tidy() { # FOLDER FILE...
    # shellcheck disable=SC2016 # the inner shell expands it
    # Options that GCC alone has are in the way of nothing.
    printf '%s\0' "${@:2}" | folder=$1 xargs -0 -P "$jobs" -n 1 bash -c '
        out=$(clang-tidy --quiet --extra-arg=-Wno-unused-command-line-argument \
            -p "$folder" "$0" 2>&1) && exit
        printf "%s\n" "$out" | grep -vE "^[0-9]+ warnings? (generated|treated)"
        exit 1'
}

# What is compiled and C++: sources of ours, and the files by which several are compiled together.
compiled_files() { # FOLDER
    python3 - "$root/$1/compile_commands.json" "$root" <<'PY'
import json, os, sys
files = {os.path.relpath(entry["file"], sys.argv[2]) for entry in json.load(open(sys.argv[1]))}
for file in sorted(files):
    ours = file.endswith(".cpp") and not file.startswith(("build/", ".."))
    if ours or "/Unity/" in file and file.endswith(".cxx"):
        print(file)
PY
}

is_script() { # FILE
    local first=''
    read -r -n 64 first 2>/dev/null <"$root/$1" || true
    [[ $first =~ ^'#!'.*[/\ ](ba)?sh( |$) ]]
}

keep_chosen() { # FILE...: of the names on stdin, those chosen; all when none is
    if (($# == 0)); then cat; else grep -xF -f <(printf '%s\n' "$@") || true; fi
}

cmd_lint() {
    local chosen=() sources=() code=() scripts=() file list status=0 folder=build/lint together=OFF
    for file in "$@"; do
        [[ -f $file ]] || die 64 "no file '$file'"
        chosen+=("$(realpath --relative-to="$root" "$file")")
    done
    ensure build lint || exit
    # Nothing is built; but clang-tidy wants to know how sources are compiled. All of them are looked
    # at together, which spares it the same headers many times; a chosen one is by itself.
    if ((${#chosen[@]} == 0)); then folder=build/lint-all together=ON; fi
    loud_step "configure lint" configure release -B "$folder" -DCMAKE_UNITY_BUILD=$together || exit 1

    # By way of a variable, so that a list that could not be made ends this, instead of being empty.
    list=$(our_files '*.c' '*.h' '*.cpp' '*.hpp' | keep_chosen "${chosen[@]}")
    mapfile -t sources < <(printf '%s' "$list")
    if ((${#sources[@]} > 0)); then
        list=$(compiled_files "$folder" | keep_chosen "${chosen[@]}")
        mapfile -t code < <(printf '%s' "$list")
    fi
    list=$(our_files | keep_chosen "${chosen[@]}")
    while read -r file; do
        if [[ -n $file ]] && is_script "$file"; then scripts+=("$file"); fi
    done <<<"$list"

    if ((${#sources[@]} > 0)); then
        loud_step "clang-format" clang-format --dry-run -Werror "${sources[@]}" || status=1
    fi
    if ((${#scripts[@]} > 0)); then
        loud_step "shellcheck" shellcheck -x "${scripts[@]}" || status=1
    fi
    if ((${#code[@]} > 0)); then
        loud_step "clang-tidy" clang_tidy "$folder" "${code[@]}" || status=1
    fi
    printf 'lint: %d C and C++ files, clang-tidy on %d units; %d scripts: %s\n' \
        "${#sources[@]}" "${#code[@]}" "${#scripts[@]}" \
        "$( ((status == 0)) && echo clean || echo 'see above')"
    return "$status"
}
