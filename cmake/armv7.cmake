# ARMv7 hard-float, built on another machine: Debian's cross compiler, the libraries that scripts/armv7.sh unpacked into
# TOLVO_IPC_SYSROOT, and programs run by qemu-arm.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)

list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES TOLVO_IPC_SYSROOT)
if(NOT EXISTS ${TOLVO_IPC_SYSROOT}/usr/include/zmq.h)
    message(FATAL_ERROR "TOLVO_IPC_SYSROOT=${TOLVO_IPC_SYSROOT} has no ZeroMQ: scripts/armv7.sh makes this folder")
endif()
set(CMAKE_SYSROOT ${TOLVO_IPC_SYSROOT})

if(NOT DEFINED CMAKE_CXX_COMPILER)
    set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
endif()
set(CMAKE_CXX_COMPILER_TARGET arm-linux-gnueabihf) # for clang++
set(CMAKE_CXX_FLAGS_INIT "-march=armv7-a+fp -mfloat-abi=hard -Wno-psabi") # no notes about g++ 6
# The libraries of the libraries lie in the sysroot, where the linker looks for them only when told.
foreach(kind IN ITEMS EXE SHARED)
    set(CMAKE_${kind}_LINKER_FLAGS_INIT
        "-Wl,-rpath-link,${CMAKE_SYSROOT}/lib/arm-linux-gnueabihf:${CMAKE_SYSROOT}/usr/lib/arm-linux-gnueabihf")
endforeach()

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR} ${CMAKE_SYSROOT}/usr/lib/arm-linux-gnueabihf/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig)

set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L ${CMAKE_SYSROOT})
