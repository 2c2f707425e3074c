#!/bin/bash
# What README.md and docs/in-your-application.md say is so: applications outside this tree are
# built with the installed library, by pkg-config and by CMake, in C and in C++, also when the
# prefix has been moved, and run on the installed board. Then all of it is taken away, and nothing
# else.
# Usage: install_test.sh SOURCE_DIR BUILD_DIR CC CXX
set -eu
source=$1 build=$2 cc=$3 cxx=$4
document=$source/docs/in-your-application.md
installation=$source/packaging/installation
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
    echo "$1" && exit 1
}

# ---- Somebody else's files are in the prefix already, and an older installation of ours ----
mkdir -p "$work/first/bin" "$work/first/share/hal_bsp"
touch "$work/first/bin/theirs" "$work/first/bin/halctl-of-old"
printf '%s\n' share/ share/hal_bsp/ bin/halctl-of-old share/hal_bsp/install_manifest.txt \
    > "$work/first/share/hal_bsp/install_manifest.txt"

"$installation" install "$build" "$work/first"
PREFIX=$work/hal # which is ~/hal in the sessions below
mv "$work/first" "$PREFIX"
[ ! -e "$PREFIX/bin/halctl-of-old" ] || fail "what only the older installation had is still there"
if readelf -S "$PREFIX/bin/vboard" | grep -q debug_info; then fail "vboard is not stripped"; fi

# ---- The document: its sources are the files, its commands do what it shows ----
block_of() { # LANGUAGE: the first block of it
    awk -v fence="\`\`\`$1" '$0 == fence {on = 1; next} on && /^```/ {exit} on' "$document"
}
diff <(block_of c) "$source/examples/own_application/lamp.c"
diff <(block_of cmake) "$source/examples/own_application/CMakeLists.txt"

# The compilers of this build, as whoever takes the library seriously calls them.
mkdir "$work/compilers"
printf '#!/bin/sh\nexec "%s" %s "$@"\n' "$cc" "-pedantic-errors -Wall -Wextra -Werror" \
    > "$work/compilers/cc"
printf '#!/bin/sh\nexec "%s" %s "$@"\n' "$cxx" "-pedantic-errors -Wall -Wextra -Werror" \
    > "$work/compilers/c++"
chmod +x "$work/compilers"/*

session() { # DOCUMENT
    local folder=$work/${1##*/}
    mkdir "$folder"
    ln -s "$source/examples" "$folder"
    awk '/^```console$/ {on = 1; next} /^```/ {on = 0} on' "$1" > "$folder/blocks"
    sed -n 's/^[$>] //p' "$folder/blocks" > "$folder/commands"
    sed '/^[$>] /d' "$folder/blocks" > "$folder/expected"
    [ -s "$folder/expected" ] || fail "$1 shows nothing"
    (
        cd "$folder"
        unset CC CXX CFLAGS CXXFLAGS
        PATH=$work/compilers:$PATH HOME=$work PREFIX=$PREFIX bash -eu commands
    ) > "$folder/printed" 2>&1 || { cat "$folder/printed" && fail "the commands of $1 failed"; }
    awk 'NR == FNR {want[++lines] = $0; next}
         seen < lines && $0 == want[seen + 1] {++seen}
         END {if (seen < lines) {print "not printed: " want[seen + 1]; exit 1}}' \
        "$folder/expected" "$folder/printed" || { cat "$folder/printed" && fail "by $1"; }
}

session "$source/README.md"
session "$document"

# ---- So are the programs of docs/writing-applications.md, which come to run elsewhere ----
# shellcheck disable=SC2046 # several words
"$work/compilers/cc" -std=c99 -fsyntax-only "$source"/examples/families/*.c -I "$source/glue" \
    $(PKG_CONFIG_PATH=$PREFIX/lib/pkgconfig pkg-config --cflags hal_bsp)

# ---- What the library says of itself is one and the same everywhere ----
version=$("$PREFIX/bin/vboard" run -- "$work/lamp" |
    sed -n 's/^libhal_bsp \(.*\): .*/\1/p')
header=$(sed -n 's/^#define HAL_BSP_VERSION "\(.*\)"/\1/p' "$PREFIX/include/hal_bsp/version.h")
package=$(PKG_CONFIG_PATH=$PREFIX/lib/pkgconfig pkg-config --modversion hal_bsp)
[ "$version $package" = "$header $header" ] || fail "versions: $version, $package, $header"

# ---- The installed board has its own font and its own stand-ins ----
# shellcheck disable=SC2016 # the shell on the board expands it
seen=$("$PREFIX/bin/vboard" run -- sh -c '
    command -v ptp4l; halctl oled text 输入 > /dev/null && halctl oled shot --text | head -n 1')
[ "$seen" = "$PREFIX/lib/vboard/commands/ptp4l
输入" ] || fail "on the installed board: $seen"

# ---- And gone again ----
"$installation" uninstall "$PREFIX"
left=$(cd "$PREFIX" && find . -mindepth 1 | sort | tr '\n' ' ')
[ "$left" = "./bin ./bin/theirs " ] || fail "left behind: $left"
if "$installation" uninstall "$PREFIX" 2> /dev/null; then fail "uninstalled twice"; fi
"$installation" install "$build" "$work/fresh"
"$installation" uninstall "$work/fresh"
[ ! -e "$work/fresh" ] || fail "a prefix that was not there before is there"
