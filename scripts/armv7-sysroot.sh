#!/usr/bin/env bash
# Unpacks the armhf libraries that the build needs, from this machine's own Debian mirror: armv7-sysroot.sh FOLDER
# Does nothing when FOLDER holds them already. Needs no root and leaves the machine's own package lists alone.
set -euo pipefail

sysroot=$1
packages=(libc6-dev libstdc++-12-dev libzmq3-dev cppzmq-dev nlohmann-json3-dev libcli11-dev libgtest-dev)

codename=$(sed -n 's/^VERSION_CODENAME=//p' /etc/os-release)
contents="$codename ${packages[*]}"
[[ $(cat "$sysroot/contents" 2>/dev/null) != "$contents" ]] || exit 0
echo "Unpacking armhf packages"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work"/{lists,archives}/partial
: >"$work/status"
apt-get indextargets --no-release-info --format "deb [arch=armhf] \$(REPO_URI) \$(RELEASE) \$(COMPONENT)" \
    "Identifier: Packages" "Component: main" "Release: $codename" | sort -u >"$work/sources.list"

Apt()
{
    apt-get -qq -o APT::Architecture=armhf -o APT::Architectures::=armhf -o APT::Sandbox::User=root \
        -o Dir::State="$work" -o Dir::State::Lists="$work/lists" -o Dir::State::status="$work/status" \
        -o Dir::Cache="$work" -o Dir::Cache::archives="$work/archives" \
        -o Dir::Etc::SourceList="$work/sources.list" -o Dir::Etc::SourceParts=- "$@"
}

# An absolute link would lead out of the sysroot.
MakeLinksRelative()
{
    find "$sysroot" -type l -lname '/*' | while read -r link; do
        ln -sfr "$sysroot$(readlink "$link")" "$link" || return
    done
}

rm -rf "$sysroot"
mkdir -p "$sysroot"
{
    Apt update &&
        Apt install --yes --download-only --no-install-recommends "${packages[@]}" &&
        printf '%s\0' "$work"/archives/*.deb | xargs -0 -I '{}' dpkg -x '{}' "$sysroot" &&
        MakeLinksRelative
} >"$work/log" 2>&1 </dev/null || {
    cat "$work/log" >&2
    exit 1
}
echo "$contents" >"$sysroot/contents"
