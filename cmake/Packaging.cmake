# Debian packages, one for each component: `cpack` in a build folder whose prefix is /usr.

set(TOLVO_IPC_PACKAGE_CONTACT "The libtolvo-ipc-transport engineers <maintainers@tolvo-ipc-transport.example>"
    CACHE STRING "Maintainer named in the Debian packages")

# package(COMPONENT NAME SECTION SUMMARY DESCRIPTION [dependency that is no shared library...])
function(package component name section summary description)
    list(APPEND CPACK_COMPONENTS_ALL ${component})
    string(TOUPPER ${component} upper)
    list(JOIN ARGN ", " depends)
    set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${name} PARENT_SCOPE)
    set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section} PARENT_SCOPE)
    set(CPACK_DEBIAN_${upper}_PACKAGE_DEPENDS "${depends}" PARENT_SCOPE)
    set(CPACK_COMPONENT_${upper}_DESCRIPTION "${summary}\n${description}" PARENT_SCOPE)
    set(CPACK_COMPONENTS_ALL ${CPACK_COMPONENTS_ALL} PARENT_SCOPE)
endfunction()

set(same_version "(= ${PROJECT_VERSION})")
set(CPACK_COMPONENTS_ALL)
set(stand_ins)
if(NOT TOLVO_IPC_SYSTEM_PLATFORM)
    set(stand_ins "tolvo-platform-stand-ins-dev ${same_version}")
    package(platform tolvo-platform-stand-ins libs
        "stand-ins for the device's own libraries"
        "Statuses, logging and registration messages for a desk, and for a device image\nthat is tried without the device's real libraries.")
    package(platform-development tolvo-platform-stand-ins-dev libdevel
        "stand-ins for the device's own libraries (development)"
        "Headers, CMake packages and pkg-config files of the stand-ins."
        "tolvo-platform-stand-ins ${same_version}" nlohmann-json3-dev)
endif()
package(runtime libtolvo-ipc-transport${PROJECT_VERSION_MAJOR} libs
    "request/reply transport between the services of one device"
    "Services answer requests of other processes; clients wait for a reply no\nlonger than they want to.")
package(development libtolvo-ipc-transport-dev libdevel
    "request/reply transport between the services of one device (development)"
    "Headers, CMake package and pkg-config file of libtolvo-ipc-transport."
    "libtolvo-ipc-transport${PROJECT_VERSION_MAJOR} ${same_version}" ${stand_ins})
if(TOLVO_IPC_BUILD_TOOLS)
    package(tools tolvo-ipc-tools utils
        "registration service and shell client for the desk"
        "tolvo-quillmere registers services where no device is at hand; tolvo-ipc-call\nsends requests from a shell.")
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each component has its own
set(CPACK_PACKAGE_CONTACT ${TOLVO_IPC_PACKAGE_CONTACT})
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
# Strips the files, and puts what it took into packages of its own for debuggers.
set(CPACK_DEBIAN_DEBUGINFO_PACKAGE ON)
set(CPACK_OBJCOPY_EXECUTABLE ${CMAKE_OBJCOPY})
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/triggers)
set(CPACK_DEBIAN_PLATFORM_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/triggers)
# dpkg-shlibdeps can't read a sysroot: scripts/package.sh passes the dependencies computed on this machine.
if(CMAKE_CROSSCOMPILING)
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
else()
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/src ${PROJECT_BINARY_DIR}/platform)
endif()
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/stage.cmake)
set(CPACK_TOLVO_SOURCE_DIR ${PROJECT_SOURCE_DIR})
set(CPACK_TOLVO_LIBDIR usr/${CMAKE_INSTALL_LIBDIR})

include(CPack)
