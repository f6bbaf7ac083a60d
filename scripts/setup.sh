#!/usr/bin/env bash
# Installs from Debian what is missing: setup.sh build | test | check, each with what the one before needs; or
# setup.sh armv7 | package | abi | tsan | bench, with what building needs.
set -euo pipefail

build=(g++ cmake ninja-build pkg-config libzmq3-dev cppzmq-dev nlohmann-json3-dev libcli11-dev)
test=("${build[@]}" libgtest-dev)
check=("${test[@]}" clang libclang-rt-14-dev clang-format clang-tidy git shellcheck)
armv7=("${build[@]}" g++-arm-linux-gnueabihf qemu-user)
package=("${build[@]}" clang dpkg-dev file lintian systemd)
abi=("${build[@]}" abigail-tools)
tsan=("${test[@]}" dpkg-dev)
bench=("${build[@]}" libbenchmark-dev gnuplot-nox python3 valgrind)

case "${1:-}" in
    build) wanted=("${build[@]}") ;;
    test) wanted=("${test[@]}") ;;
    check) wanted=("${check[@]}") ;;
    armv7) wanted=("${armv7[@]}") ;;
    package) wanted=("${package[@]}") ;;
    abi) wanted=("${abi[@]}") ;;
    tsan) wanted=("${tsan[@]}") ;;
    bench) wanted=("${bench[@]}") ;;
    *)
        echo "usage: $0 build|test|check|armv7|package|abi|tsan|bench" >&2
        exit 2
        ;;
esac

missing=()
for package in "${wanted[@]}"; do
    [ "$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null)" = installed ] || missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0

root=()
if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || {
        echo "$0: missing packages, and neither root nor sudo to install them: ${missing[*]}" >&2
        exit 1
    }
    root=(sudo)
fi
echo "Installing ${missing[*]}"
log=$(mktemp)
trap 'rm -f "$log"' EXIT
{
    "${root[@]}" apt-get -qq update &&
        "${root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -qq install -y --no-install-recommends "${missing[@]}"
} >"$log" 2>&1 </dev/null || {
    cat "$log" >&2
    exit 1
}
