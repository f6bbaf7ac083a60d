# What every target of ours is built with; used through tolvo_ipc_target(NAME).

add_library(tolvo-ipc-build-settings INTERFACE)
target_compile_features(tolvo-ipc-build-settings INTERFACE cxx_std_17)
target_compile_options(tolvo-ipc-build-settings INTERFACE
    -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Wformat=2 -Wold-style-cast -Wcast-qual
    -Wnon-virtual-dtor -Woverloaded-virtual -Wundef -Wdouble-promotion
    $<$<CXX_COMPILER_ID:GNU>:-Wduplicated-cond -Wlogical-op>
    $<$<BOOL:${TOLVO_IPC_WARNINGS_AS_ERRORS}>:-Werror>)

find_package(Threads REQUIRED)

function(tolvo_ipc_target target)
    set_target_properties(${target} PROPERTIES CXX_EXTENSIONS OFF)
    target_link_libraries(${target} PRIVATE $<BUILD_INTERFACE:tolvo-ipc-build-settings> Threads::Threads)
endfunction()

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
    set(CMAKE_BUILD_TYPE Release)
endif()
