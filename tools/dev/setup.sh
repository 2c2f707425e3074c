# shellcheck shell=bash
# ./dev setup: Debian packages that are missing, by the table in dev.

# Prints the packages of the groups that are not installed. No network, no cache of its own.
missing_packages() { # GROUP...
    local line group name wanted=()
    for line in "${packages[@]}"; do
        read -r group name _ <<<"$line"
        if [[ " $* " == *" $group "* ]]; then wanted+=("$name"); fi
    done
    comm -23 <(printf '%s\n' "${wanted[@]}" | sort) \
        <(dpkg-query -W -f '${db:Status-Status} ${binary:Package}\n' "${wanted[@]}" 2>/dev/null |
            sed -n "s/:$(dpkg --print-architecture)\$//; s/^installed //p" | sort -u)
}

# An update that did not reach every source is no reason to stop: what counts is whether the
# packages can be installed.
apt_install() { # PACKAGE...
    local as_root=(env DEBIAN_FRONTEND=noninteractive)
    ((EUID == 0)) || as_root=(sudo "${as_root[@]}")
    if [[ " $* " == *:arm64* ]]; then "${as_root[@]}" dpkg --add-architecture arm64; fi
    "${as_root[@]}" apt-get -o Acquire::Retries=3 update
    "${as_root[@]}" apt-get -o Acquire::Retries=3 -o DPkg::Lock::Timeout=300 \
        install -y --no-install-recommends "$@"
}

ensure() { # GROUP...
    local missing
    if ! command -v dpkg-query >/dev/null; then
        printf 'dev: not a Debian system: it is up to you to install what this script lists\n' >&2
        return 0
    fi
    mapfile -t missing < <(missing_packages "$@")
    ((${#missing[@]} > 0)) || return 0
    if ((EUID != 0)); then
        if ! command -v sudo >/dev/null; then
            printf '%s\n' "dev: packages are missing, and neither root nor sudo is here." \
                "As root: apt-get install ${missing[*]}" >&2
            return 69
        fi
        if [[ -t 0 ]]; then sudo -v || return 69; fi
    fi
    if [[ "${missing[*]}" == *:arm64* ]]; then
        printf '  adding packages of the architecture arm64 to those of this machine\n' >&2
    fi
    printf '  installing %s\n' "${missing[*]}" >&2
    loud_step "set-up" apt_install "${missing[@]}" || return 69
}

cmd_setup() {
    local group
    (($# > 0)) || set -- build
    for group in "$@"; do
        [[ $group =~ ^(build|arm64|clang|lint|guest|package|panel|npm)$ ]] ||
            die 64 "no group '$group': build, arm64, clang, lint, guest, package, panel or npm"
    done
    ensure "$@"
}
