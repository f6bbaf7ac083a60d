#!/usr/bin/env bash
# Installs what building for armhf needs; its libraries are unpacked into build/armv7-sysroot, unless they are there.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
source "$(dirname "${BASH_SOURCE[0]}")/mirror.sh"

scripts/setup.sh armv7
readonly sysroot=$PWD/build/armv7-sysroot
packages=(libc6-dev libstdc++-12-dev libzmq3-dev cppzmq-dev nlohmann-json3-dev libcli11-dev libgtest-dev)
contents="$codename ${packages[*]}"
[[ $(cat "$sysroot/contents" 2>/dev/null) != "$contents" ]] || exit 0

echo "Unpacking armhf packages"
MakeWorkFolder
OpenMirror "$work" "deb [arch=armhf]" -o APT::Architecture=armhf -o APT::Architectures::=armhf
Quietly "${apt[@]}" install --yes --download-only --no-install-recommends "${packages[@]}"
rm -rf "$sysroot"
mkdir -p "$sysroot"
for package in "$work"/archives/*.deb; do Quietly dpkg -x "$package" "$sysroot"; done
# An absolute link would lead out of the sysroot.
find "$sysroot" -type l -lname '/*' | while read -r link; do ln -sfr "$sysroot$(readlink "$link")" "$link"; done
echo "$contents" >"$sysroot/contents"
