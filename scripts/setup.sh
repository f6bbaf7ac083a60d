#!/usr/bin/env bash
# Installs from Debian what is missing: setup.sh build | test | check, each with what the one before needs; or
# setup.sh armv7 | package | abi | tsan | bench | soak | memcheck | fuzz | docs | guide | debian, with what it needs.
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"

declare -A packages
packages[build]="g++ cmake ninja-build pkg-config libzmq3-dev cppzmq-dev nlohmann-json3-dev libcli11-dev"
packages[test]="${packages[build]} libgtest-dev iproute2 socat"
packages[check]="${packages[test]} clang libclang-rt-14-dev clang-format clang-tidy git shellcheck"
packages[armv7]="${packages[build]} g++-arm-linux-gnueabihf qemu-user"
packages[package]="${packages[build]} clang dpkg-dev file lintian systemd"
packages[abi]="${packages[build]} abigail-tools"
packages[tsan]="${packages[test]} dpkg-dev"
packages[bench]="${packages[build]} libbenchmark-dev gnuplot-nox python3 valgrind"
packages[soak]="${packages[build]} python3"
packages[memcheck]="${packages[test]} valgrind"
packages[fuzz]="${packages[build]} clang libclang-rt-14-dev"
packages[docs]="${packages[build]} doxygen graphviz mandoc"
packages[guide]="${packages[build]} python3 python3-zmq socat"
packages[debian]="git mmdebstrap procps"

wanted=${packages[${1:-none}]:-}
[[ -n $wanted ]] || Fail "usage: $0 NAME, one of ${!packages[*]}" 2

missing=()
for package in $wanted; do
    [[ $(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null) == installed ]] || missing+=("$package")
done
[[ ${#missing[@]} != 0 ]] || exit 0

root=()
if [[ $(id -u) != 0 ]]; then
    command -v sudo >/dev/null || Fail "missing packages, and neither root nor sudo to install them: ${missing[*]}"
    root=(sudo)
fi
echo "Installing ${missing[*]}"
Quietly "${root[@]}" apt-get -qq update
Quietly "${root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -qq install -y --no-install-recommends "${missing[@]}"
