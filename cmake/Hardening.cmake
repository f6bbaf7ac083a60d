# How our own targets are hardened, and what keeps two builds of one commit equal wherever they are made.

include(CheckPIESupported)
check_pie_supported()
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

target_compile_options(tolvo-ipc-build-settings INTERFACE -fstack-protector-strong)
# Needs an optimiser, and would take calls away from the sanitizers.
if(NOT CMAKE_CXX_FLAGS MATCHES -fsanitize)
    target_compile_options(tolvo-ipc-build-settings INTERFACE
        $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE> $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=2>)
endif()
target_link_options(tolvo-ipc-build-settings INTERFACE -Wl,-z,relro,-z,now,-z,noexecstack)

# The run path of the build is relative as well: its length must not depend on the folder.
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)
foreach(folder IN ITEMS ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR} ${CMAKE_SYSROOT}) # g++ takes the last that fits
    target_compile_options(tolvo-ipc-build-settings INTERFACE -ffile-prefix-map=${folder}=.)
endforeach()
