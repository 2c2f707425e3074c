#!/bin/sh
# What the library offers and what it needs, asked of the file itself.
# Usage: surface_test.sh LIBRARY MAP HEADER_DIR SYMBOLS MODULE_INDEX SANITIZERS
set -eu
library=$1 map=$2 headers=$3 symbols=$4 index=$5 sanitizers=$6
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export LC_ALL=C
failed=0

# compare WHAT EXPECTED ACTUAL
compare() {
    if ! diff -u --label "expected" --label "$1" "$2" "$3"; then
        failed=1
    fi
}

sort "$symbols" > "$work/expected"
cut -d' ' -f1,2 "$work/expected" > "$work/symbols"
cut -d' ' -f1 "$work/expected" > "$work/names"

nm -D --defined-only "$library" | awk '{print $3, $2}' | sort > "$work/library"
compare "symbols of the library" "$work/symbols" "$work/library"
echo "$(wc -l < "$work/symbols") symbols: $(comm -23 "$work/symbols" "$work/library" | wc -l) missing," \
    "$(comm -13 "$work/symbols" "$work/library" | wc -l) extra"

if [ -z "$sanitizers" ]; then # theirs are longer
    # On ARM64 a lock takes eight bytes more: two are in each of these objects.
    more=0
    if readelf -h "$library" | grep -q 'Machine: *AArch64'; then more=16; fi
    sed -n '/ T$/d; s/^\([^ ]*\) [^ ]* /\1 /p' "$work/expected" |
        awk -v more=$more '$1 == "safe_info" || $1 == "sata_usb_prv" { $2 += more } 1' > "$work/objects"
    "$(dirname "$0")"/objects_of.py "$library" | sort > "$work/library"
    compare "objects of the library, their sizes and first bytes" "$work/objects" "$work/library"
fi

sed -n 's/^ *\([A-Za-z_][A-Za-z_0-9]*\);$/\1/p' "$map" | sort > "$work/map"
compare "names in the version script" "$work/names" "$work/map"

grep -hv '^#' "$headers"/*.h | tr '\n' ' ' | grep -oE 'HAL_API [^;(]*[;(]' |
    sed -E 's/\[[^]]*\]//g; s/[;(]$//; s/.*[ *]//' | sort > "$work/headers"
compare "names marked in the headers" "$work/names" "$work/headers"

# shellcheck disable=SC2016 # the dollar is the end of the line
sed -n 's/^| `\([A-Za-z_][A-Za-z_0-9]*\)` | [^|]* |$/\1/p' "$index" | sort > "$work/index"
compare "names in the module index" "$work/names" "$work/index"

readelf -d "$library" > "$work/dynamic"
if ! grep -q 'SONAME.*\[libhal_bsp\.so\.1\]' "$work/dynamic"; then
    echo "the SONAME is not libhal_bsp.so.1" && failed=1
fi
if [ -z "$sanitizers" ] && sed -n 's/.*NEEDED.*\[\(.*\)\]/\1/p' "$work/dynamic" |
    grep -vE '^(lib(c|m|stdc\+\+|gcc_s|z|crypto)\.so\.|ld-linux)'; then
    echo "^ needed, but not to be" && failed=1
fi
if [ -z "$sanitizers" ]; then
    # Threads that nobody joins stay mapped; pointers into other libraries cannot be overwritten;
    # functions that come from the process later are looked up when they are called.
    readelf -lW "$library" > "$work/segments"
    if ! grep -q 'FLAGS_1.*NODELETE' "$work/dynamic" || grep -qE 'BIND_NOW|FLAGS_1.*NOW' "$work/dynamic" ||
        ! grep -q GNU_RELRO "$work/segments" || ! grep -q 'GNU_STACK.* RW ' "$work/segments"; then
        echo "not linked as it has to be:" && cat "$work/dynamic" "$work/segments" && failed=1
    fi
    nm -D --undefined-only "$library" > "$work/undefined"
    if ! grep -q __stack_chk_fail "$work/undefined" || ! grep -q __snprintf_chk "$work/undefined"; then
        echo "not compiled with checks of the stack and of buffers" && failed=1
    fi
fi
exit $failed
