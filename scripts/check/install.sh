#!/usr/bin/env bash
# Shows that what is installed works in other people's builds: the README's service and client are built and run
# against a moved prefix, by CMake and by pkg-config, against the unpacked Debian packages, and against a library that
# was built on installed platform libraries only. Leaves nothing behind but the build folder. Its
# argument is that of package.sh.
source "$(dirname "${BASH_SOURCE[0]}")/../lib/common.sh"

readonly patience=20 # seconds that a step which works never needs

# End PROCESS SIGNAL NAME: it must end with 0.
End()
{
    kill "-$2" "$1"
    wait "$1" || Fail "the $3 ended with exit code $?"
}

# Greet PROGRAMS TOOLS: runs the service and the client in the folder PROGRAMS, by the tools in TOOLS.
Greet()
{
    local folder=$work/desk quillmere service answer
    rm -rf "$folder"
    mkdir -p "$folder/clients"
    Launch serving timeout "$patience" "$2/tolvo-quillmere" --servers "ipc://$folder/servers" --clients "$folder/clients"
    quillmere=$!
    timeout "$patience" "$1/hello_service" 2>"$work/log" &
    service=$!
    Await "$output" 'registered as "greeter"'
    answer=$(timeout "$patience" "$1/hello_client") || Fail "the client failed"
    [[ $answer == "hi too" ]] || Fail "the client got '$answer'"
    answer=$(printf hello | timeout "$patience" "$2/tolvo-ipc-call" "ipc://$folder/clients/greeter")
    [[ $answer == "hello too" ]] || Fail "tolvo-ipc-call got '$answer'"
    End "$service" INT service
    End "$quillmere" TERM "registration service"
}

# BuildWithCMake FOLDER PREFIX [OPTION...]
BuildWithCMake()
{
    # Only who includes the data scheme's header needs nlohmann-json.
    Quietly cmake -S "$work/consumer" -B "$1" -G Ninja "-DCMAKE_PREFIX_PATH=$2" \
        -DCMAKE_DISABLE_FIND_PACKAGE_nlohmann_json=ON -Dwanted=0.1 "${@:3}"
    Quietly cmake --build "$1"
}

scripts/setup.sh package
scripts/package.sh "$@"
MakeWorkFolder

mkdir "$work/consumer"
for program in service client; do
    sed "s|ipc://desk|ipc://$work/desk|" "examples/hello/$program.cpp" >"$work/consumer/$program.cpp"
done
cat >"$work/consumer/CMakeLists.txt" <<'END'
cmake_minimum_required(VERSION 3.25)
project(consumer LANGUAGES CXX)
if(sources)
    add_subdirectory(${sources} library)
else()
    find_package(tolvo-ipc-transport ${wanted} REQUIRED)
endif()
foreach(program service client)
    add_executable(hello_${program} ${program}.cpp)
    target_link_libraries(hello_${program} PRIVATE tolvo::ipc-transport)
endforeach()
END

echo "Installing, then moving the prefix"
Quietly cmake --install build/package --prefix "$work/first"
mv "$work/first" "$work/moved"
libdir=$(dirname "$(echo "$work"/moved/lib/*/libtolvo-ipc-transport.so)")
for stray in "$PWD" "$work/first"; do
    if grep -rlF -- "$stray" "$work/moved"; then Fail "the files above name $stray"; fi
done
soname=$(readelf -d "$libdir/libtolvo-ipc-transport.so" | sed -n 's/.*soname: \[\(.*\)\]/\1/p')
[[ $soname == libtolvo-ipc-transport.so.0 ]] || Fail "the soname is $soname"
Quietly scripts/check/hardening.sh "$libdir"/*.so "$work"/moved/bin/*

echo "A device image: the runtime component alone"
Quietly cmake --install build/package --prefix "$work/image" --component runtime
strays=$(find "$work/image" ! -type d ! -name 'libtolvo-ipc-transport.so.*')
[[ -z $strays ]] || Fail "the runtime component holds $strays"

echo "A CMake project against the moved prefix"
BuildWithCMake "$work/cmake" "$work/moved"
Greet "$work/cmake" "$work/moved/bin"
if cmake -S "$work/consumer" -B "$work/newer" "-DCMAKE_PREFIX_PATH=$work/moved" -Dwanted=0.2 >"$work/log" 2>&1; then
    Fail "version 0.2 was asked for and found"
fi
grep -q 'requested version "0.2"' "$work/log" || Fail "$(<"$work/log")"

echo "A CMake project that adds this folder"
BuildWithCMake "$work/added" /nowhere "-Dsources=$PWD" -DCMAKE_DISABLE_FIND_PACKAGE_nlohmann_json=OFF
Greet "$work/added" "$work/moved/bin"

echo "g++ with pkg-config against the moved prefix"
mkdir "$work/pkg-config"
export PKG_CONFIG_PATH=$libdir/pkgconfig
for program in service client; do
    # shellcheck disable=SC2046 # several words
    Quietly g++ -std=c++17 -o "$work/pkg-config/hello_$program" "$work/consumer/$program.cpp" \
        $(pkg-config --cflags --libs tolvo-ipc-transport) "-Wl,-rpath,$libdir"
done
unset PKG_CONFIG_PATH
Greet "$work/pkg-config" "$work/moved/bin"

echo "clang++ against the unpacked Debian packages"
for package in build/package/packages/*.deb; do Quietly dpkg -x "$package" "$work/root"; done
packaged=$(dirname "$(echo "$work"/root/usr/lib/*/libtolvo-ipc-transport.so)")
BuildWithCMake "$work/unpacked" "$work/root/usr" -DCMAKE_CXX_COMPILER=clang++
LD_LIBRARY_PATH=$packaged Greet "$work/unpacked" "$work/root/usr/bin"

echo "The library alone, by clang++, on installed platform libraries"
Quietly cmake --install build/package --prefix "$work/platform" --component platform
Quietly cmake --install build/package --prefix "$work/platform" --component platform-development
Quietly cmake -S . -B "$work/alone" -G Ninja -DCMAKE_CXX_COMPILER=clang++ -DTOLVO_IPC_SYSTEM_PLATFORM=ON \
    -DTOLVO_IPC_BUILD_TOOLS=OFF -DTOLVO_IPC_BUILD_EXAMPLES=OFF -DTOLVO_IPC_BUILD_TESTS=OFF \
    -DTOLVO_IPC_WARNINGS_AS_ERRORS=ON "-DCMAKE_PREFIX_PATH=$work/platform"
Quietly cmake --build "$work/alone"
Quietly cmake --install "$work/alone" --prefix "$work/device"
strays=$(find "$work/alone" "$work/device" -name 'lib*.so*' ! -name 'libtolvo-ipc-transport.so*')
[[ -z $strays ]] || Fail "stand-ins were built: $strays"
# The installed platform is in no package of this machine, so its dependencies can't be computed.
(cd "$work/alone" && Quietly cpack -D CPACK_DEBIAN_PACKAGE_SHLIBDEPS=OFF)
for package in "$work"/alone/packages/*.deb; do
    if dpkg-deb -f "$package" Package Depends | grep stand-ins; then Fail "a package of the library alone names stand-ins"; fi
done
BuildWithCMake "$work/on-device" "$work/device;$work/platform"
platform=$(dirname "$(echo "$work"/platform/lib/*/libtolvo-foundation.so)")
LD_LIBRARY_PATH=$platform Greet "$work/on-device" "$work/moved/bin"
ldd_output=$(LD_LIBRARY_PATH=$platform ldd "$work/on-device/hello_service")
grep -qF "$work/device/lib/libtolvo-ipc-transport.so.0" <<<"$ldd_output" || Fail "another library was run: $ldd_output"

echo "A ZeroMQ that nobody has tested"
mkdir "$work/zeromq"
sed 's/^Version:.*/Version: 4.3.6/' "$(pkg-config --variable=libdir libzmq)/pkgconfig/libzmq.pc" >"$work/zeromq/libzmq.pc"
PKG_CONFIG_PATH=$work/zeromq cmake -S . -B "$work/untested" -G Ninja -DTOLVO_IPC_BUILD_TESTS=OFF >"$work/log" 2>&1 || true
grep -q "ZeroMQ 4.3.6 is untested" "$work/log" || Fail "no warning of ZeroMQ 4.3.6: $(<"$work/log")"

echo "The sample systemd unit"
sed 's|^ExecStart=[^ ]*|ExecStart=/bin/true|' packaging/systemd/device-status.service >"$work/device-status.service"
systemd-analyze verify "$work/device-status.service" >"$work/log" 2>&1 || Fail "$(cat "$work/log")"
# What systemd would ignore is no error to it. Other units of this machine are none of ours.
! grep device-status "$work/log" || Fail "the unit has mistakes"
