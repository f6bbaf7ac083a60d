# Libraries from the system.

find_package(PkgConfig REQUIRED)
pkg_check_modules(ZeroMQ REQUIRED IMPORTED_TARGET libzmq>=4.3)
find_package(nlohmann_json 3.11 REQUIRED)
