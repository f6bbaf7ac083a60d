#!/usr/bin/env bash
# Builds Debian's own libzmq with the thread sanitizer and installs it in FOLDER: tsan-libzmq.sh FOLDER
# The sanitizer can't see the ordering that an uninstrumented libzmq makes. Does nothing when it is there already.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

prefix=$(realpath -m "$1")
[[ ! -e $prefix/complete ]] || exit 0
scripts/setup.sh tsan
echo "Building libzmq with the thread sanitizer"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work"/lists/partial
codename=$(sed -n 's/^VERSION_CODENAME=//p' /etc/os-release)
apt-get indextargets --no-release-info --format "deb-src \$(REPO_URI) \$(RELEASE) \$(COMPONENT)" \
    "Identifier: Packages" "Component: main" "Release: $codename" | sort -u >"$work/sources.list"

Apt()
{
    apt-get -qq -o APT::Sandbox::User=root -o Dir::State="$work" -o Dir::State::Lists="$work/lists" \
        -o Dir::Etc::SourceList="$work/sources.list" -o Dir::Etc::SourceParts=- "$@"
}

Build()
{
    Apt update &&
        (cd "$work" && Apt source zeromq3) &&
        cmake -S "$work"/zeromq3-* -B "$work/build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
            -DCMAKE_CXX_FLAGS="-fsanitize=thread -Wno-tsan" -DCMAKE_INSTALL_PREFIX="$prefix" \
            -DCMAKE_INSTALL_LIBDIR=lib -DWITH_PERF_TOOL=OFF -DWITH_DOCS=OFF -DZMQ_BUILD_TESTS=OFF -DBUILD_STATIC=OFF \
            -DENABLE_CURVE=OFF -DWITH_LIBSODIUM=OFF -DENABLE_CPACK=OFF &&
        cmake --build "$work/build" --target install
}

Build >"$work/log" 2>&1 </dev/null || {
    cat "$work/log" >&2
    exit 1
}
touch "$prefix/complete"
