# shellcheck shell=bash
# ./dev install, uninstall, package.

absolute_prefix() { # [PREFIX]
    (($# <= 1)) || die 64 "one prefix, not $#"
    local prefix=${1-/usr/local}
    [[ -n $prefix && $prefix != -* ]] || die 64 "'$prefix' is no prefix: try ./dev help"
    realpath -m -- "$prefix"
}

# Asking the programs for all their help takes some seconds.
make_pages() {
    local program page version
    version=$(sed -n 's/^#define HAL_BSP_VERSION "\(.*\)"/\1/p' \
        "$root/libhal_bsp/include/hal_bsp/version.h")
    mkdir -p "$release/man"
    for program in halctl vboard; do
        page=$release/man/$program.1
        [[ ! $page -nt $release/$program/$program ]] || continue
        "$root/packaging/man_page" "hal-bsp $version" "$release/$program/$program" \
            >"$page.new" && mv "$page.new" "$page" || return 1
    done
}

cmd_install() {
    local prefix
    prefix=$(absolute_prefix "$@") || exit
    "$root/packaging/installation" check "$prefix" || exit # before minutes of building
    ensure build || exit
    build release programs || exit
    step "manual pages" make_pages || exit 1
    "$root/packaging/installation" install "$release" "$prefix"
}

cmd_uninstall() {
    local prefix
    prefix=$(absolute_prefix "$@") || exit
    "$root/packaging/installation" uninstall "$prefix"
}

cmd_package() {
    local here arch groups=(build package)
    here=$(dpkg --print-architecture) || die 69 "Debian packages are made on Debian"
    arch=${1:-$here}
    [[ $arch == "$here" || $arch == arm64 ]] || die 64 "no packages for '$arch' are made on $here"
    [[ $# -le 1 || ($# -eq 2 && $2 == check) ]] || die 64 "package takes an architecture, and check"
    [[ $arch == "$here" ]] || groups+=("$arch")
    ensure "${groups[@]}" || exit
    [[ $arch == "$here" ]] || build release programs || exit 1 # they tell what they can do
    loud_step "package $arch" "$root/packaging/packages" build "$arch" || exit 1
    sed -n '/^[EW]: /p' "$logs/package-$arch.log"
    ls "$root/build/packages/$arch"/*.deb
    [[ ${2:-} != check ]] || "$root/packaging/packages" check "$arch"
}
