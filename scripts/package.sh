#!/usr/bin/env bash
# Makes the Debian packages for amd64 in build/package/packages and, with the argument armhf, those for armhf in
# build/armv7/packages as well, and beside each with programs or libraries one with its debug symbols (-dbgsym). Checks
# them with lintian, and that their programs and libraries are hardened.
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"

# CPack's packages of debug symbols list files with paths of this machine, have no documents, and end in .ddeb, which apt
# doesn't install.
FinishSymbols()
{
    local package name
    for package in "$1"/*.ddeb; do
        name=$(dpkg-deb -f "$package" Package) &&
            dpkg-deb -R "$package" "$1/$name" &&
            mkdir -p "$1/$name/usr/share/doc" &&
            ln -s "${name%-dbgsym}" "$1/$name/usr/share/doc/$name" &&
            (cd "$1/$name" && find usr -type f -exec chmod 644 {} + -exec md5sum {} + >DEBIAN/md5sums) &&
            dpkg-deb --root-owner-group -z1 -b "$1/$name" "${package%.ddeb}.deb" &&
            rm -r "${1:?}/$name" "$package" || return
    done
}

# Pack FOLDER ARCHITECTURE [OPTION...]
Pack()
{
    local folder=$1 architecture=$2
    echo "Packing for $architecture"
    rm -rf "$folder/packages"
    (cd "$folder" && Quietly cpack "${@:3}")
    Quietly FinishSymbols "$folder/packages"
    Quietly lintian --allow-root --fail-on error "$folder"/packages/*_"$architecture".deb
    find "$folder/packages/_CPack_Packages" -type f '(' -name '*.so.*' -o -path '*/bin/*' ')' -print0 |
        xargs -0 scripts/check/hardening.sh
    printf '    %s\n' "$folder"/packages/*.deb
}

scripts/setup.sh package
scripts/build.sh package
Pack build/package amd64

if [[ ${1:-} == armhf ]]; then
    scripts/lib/armv7-sysroot.sh
    scripts/build.sh armv7
    options=()
    for component in RUNTIME:libtolvo-ipc-transport[0-9] PLATFORM:tolvo-platform-stand-ins TOOLS:tolvo-ipc-tools; do
        # shellcheck disable=SC2086 # a pattern
        depends=$(dpkg-deb -f build/package/packages/${component#*:}_*.deb Depends)
        options+=(-D "CPACK_DEBIAN_${component%:*}_PACKAGE_DEPENDS=$depends")
    done
    Pack build/armv7 armhf "${options[@]}"
fi
