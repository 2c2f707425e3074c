# What the stand-ins of the PTP daemons share; they set `options`, as getopts takes them, and source
# this. It checks the command line as the daemon would, then stays until it is killed: by name, for
# the process is called as the daemon is.
#
# With VBOARD_REAL_PTP in the environment the machine's own daemon (Debian: linuxptp) takes over.
# shellcheck shell=sh disable=SC2154

name=${0##*/}
if [ -n "${VBOARD_REAL_PTP-}" ]; then
    exec "/usr/sbin/$name" "$@"
fi
interfaces=
while getopts "$options" option; do
    case $option in
    i) interfaces="$interfaces $OPTARG" ;;
    h | \?)
        echo "usage: $name -$options" >&2
        exit 255
        ;;
    esac
done
shift $((OPTIND - 1))
if [ $# -gt 0 ] || { [ "$name" = ptp4l ] && [ -z "$interfaces" ]; }; then
    echo "$name: no interface, or a word too many" >&2
    exit 255
fi

# A pipe that nobody writes to, without a name and without a child.
pipe=$(mktemp -u) && mkfifo "$pipe" && exec 3<>"$pipe" && rm "$pipe" && read -r _ <&3
