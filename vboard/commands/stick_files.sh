# Sourced by mount and umount: the files of a stick's FAT file system, out of the stick and back.
# shellcheck shell=sh

# The machine's programs alone, those of the system's folders included.
own=${0%/*}
IFS=:
others=
for folder in $PATH; do
    [ "$folder" = "$own" ] || others=$others:$folder
done
unset IFS
PATH=${others#:}:/usr/sbin:/sbin
export PATH LC_ALL=C.UTF-8 MTOOLS_SKIP_CHECK=1
tab=$(printf '\t')

# What is known of the mounts of sticks: of each a list of its files as they are on the stick.
stick_lists=/dev/shm/.sticks

# stick_node DEVICE - the name of a board's disk or partition; none for anything else.
stick_node() {
    node=$(readlink -f -- "$1") && node=${node#/dev/}
    case $node in
    */* | '') ;;
    *) [ ! -e "/sys/class/block/$node" ] || echo "$node" ;;
    esac
}

# stick_list FOLDER - its files and folders, a line each: path, type, size and time.
stick_list() {
    find "$1" -mindepth 1 \( -type d -printf '%P\td\n' -o -printf '%P\t%y\t%s\t%T@\n' \) | LC_ALL=C sort
}

# stick_name FILE - the list of the file system that FILE is on.
stick_name() {
    echo "$stick_lists/$(stat -c %d -- "$1")"
}

# pattern PATH - which matches this path alone.
pattern() {
    printf '::%s' "$1" | sed 's/[[*?\\]/[&]/g'
}

# stick_store FOLDER LIST DEVICE - what has changed in the folder since the list was made, to the
# device. False where something cannot be stored there.
stick_store() {
    stored=0
    stick_list "$1" >"$2.now"
    cut -f 1,2 "$2" >"$2.had"
    cut -f 1,2 "$2.now" >"$2.has"
    comm -23 "$2.had" "$2.has" | LC_ALL=C sort -r >"$2.gone"
    comm -13 "$2" "$2.now" >"$2.new"
    while IFS=$tab read -r path type; do
        case $type in
        d) mrd -i "$3" "$(pattern "$path")" ;;
        *) mdel -i "$3" "$(pattern "$path")" ;;
        esac </dev/null || stored=1
    done <"$2.gone"
    while IFS=$tab read -r path type _; do
        case $type in
        d) mmd -i "$3" "::$path" ;;
        f) mcopy -o -m -i "$3" "$1/$path" "::$path" ;;
        *) echo "umount: $path: a FAT file system holds files and folders only" >&2 && false ;;
        esac </dev/null || stored=1
    done <"$2.new"
    if [ -s "$2.gone" ] || [ -s "$2.new" ]; then
        sync "$3" || stored=1
    fi
    rm -f "$2.now" "$2.had" "$2.has" "$2.gone" "$2.new"
    return $stored
}
