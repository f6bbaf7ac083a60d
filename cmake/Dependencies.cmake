# Libraries from the system.

find_package(PkgConfig REQUIRED)
pkg_check_modules(ZeroMQ REQUIRED IMPORTED_TARGET libzmq>=4.3)
if(NOT ZeroMQ_VERSION MATCHES "^4\\.3\\.[45]$")
    message(WARNING "ZeroMQ ${ZeroMQ_VERSION} is untested: the end of a server rests on what 4.3.4 and 4.3.5 do")
endif()
# Without the flags of libraries that only a static libzmq needs: those come and go between configurations.
find_path(ZeroMQ_HEADERS zmq.h HINTS ${ZeroMQ_INCLUDE_DIRS} REQUIRED)
set_target_properties(PkgConfig::ZeroMQ PROPERTIES
    INTERFACE_COMPILE_OPTIONS "" INTERFACE_INCLUDE_DIRECTORIES ${ZeroMQ_HEADERS})
if(NOT TOLVO_IPC_SYSTEM_PLATFORM OR TOLVO_IPC_BUILD_TOOLS)
    find_package(nlohmann_json 3.11 REQUIRED)
endif()
