#!/usr/bin/env bash
# Builds Debian's own libzmq with the thread sanitizer into build/libzmq-tsan, unless it is there already: the sanitizer
# can't see the ordering that an uninstrumented libzmq makes.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
source "$(dirname "${BASH_SOURCE[0]}")/mirror.sh"

readonly prefix=$PWD/build/libzmq-tsan
[[ ! -e $prefix/complete ]] || exit 0

scripts/setup.sh tsan
echo "Building libzmq with the thread sanitizer"
MakeWorkFolder
OpenMirror "$work" deb-src
(cd "$work" && Quietly "${apt[@]}" source zeromq3)
Quietly cmake -S "$work"/zeromq3-* -B "$work/build" -G Ninja -DCMAKE_BUILD_TYPE=None \
    -DCMAKE_CXX_FLAGS="-O1 -g1 -DNDEBUG -fsanitize=thread -Wno-tsan" -DCMAKE_INSTALL_PREFIX="$prefix" \
    -DCMAKE_INSTALL_LIBDIR=lib -DWITH_PERF_TOOL=OFF -DWITH_DOCS=OFF -DZMQ_BUILD_TESTS=OFF -DBUILD_STATIC=OFF \
    -DENABLE_CURVE=OFF -DWITH_LIBSODIUM=OFF -DENABLE_CPACK=OFF
Quietly cmake --build "$work/build" --target install
touch "$prefix/complete"
