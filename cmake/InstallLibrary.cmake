# tolvo_ipc_install_library(TARGET PACKAGE NAME NAMESPACE NS DESCRIPTION TEXT
#                           COMPONENT NAME DEVELOPMENT_COMPONENT NAME
#                           [CMAKE_DEPENDS "PACKAGE [VERSION]"...] [CMAKE_LOOKS_FOR "PACKAGE [VERSION]"...]
#                           [PKG_CONFIG_REQUIRES MODULE...])
#
# Installs a shared library for other people's builds: the library in COMPONENT; its headers, a CMake package and a
# pkg-config file, which finds its prefix from where it lies, in DEVELOPMENT_COMPONENT.

include(CMakePackageConfigHelpers)

set(templates ${CMAKE_CURRENT_LIST_DIR})

function(tolvo_ipc_install_library target)
    cmake_parse_arguments(PARSE_ARGV 1 LIBRARY ""
        "PACKAGE;NAMESPACE;COMPONENT;DEVELOPMENT_COMPONENT;DESCRIPTION" "CMAKE_DEPENDS;CMAKE_LOOKS_FOR;PKG_CONFIG_REQUIRES")
    set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/${LIBRARY_PACKAGE})
    set(generated ${CMAKE_CURRENT_BINARY_DIR}/${LIBRARY_PACKAGE})

    set_target_properties(${target} PROPERTIES INSTALL_RPATH $ORIGIN)
    install(TARGETS ${target} EXPORT ${LIBRARY_PACKAGE}
        LIBRARY COMPONENT ${LIBRARY_COMPONENT} NAMELINK_COMPONENT ${LIBRARY_DEVELOPMENT_COMPONENT}
        FILE_SET HEADERS COMPONENT ${LIBRARY_DEVELOPMENT_COMPONENT})
    install(EXPORT ${LIBRARY_PACKAGE} FILE ${LIBRARY_PACKAGE}-targets.cmake NAMESPACE ${LIBRARY_NAMESPACE}::
        DESTINATION ${package_dir} COMPONENT ${LIBRARY_DEVELOPMENT_COMPONENT})

    list(TRANSFORM LIBRARY_CMAKE_DEPENDS REPLACE "(.+)" "find_dependency(\\1)")
    list(TRANSFORM LIBRARY_CMAKE_LOOKS_FOR REPLACE "(.+)" "find_package(\\1 QUIET)")
    list(JOIN LIBRARY_CMAKE_DEPENDS "\n" find_dependencies)
    list(JOIN LIBRARY_CMAKE_LOOKS_FOR "\n" find_optional)
    configure_package_config_file(${templates}/package-config.cmake.in ${generated}-config.cmake
        INSTALL_DESTINATION ${package_dir} NO_SET_AND_CHECK_MACRO)
    write_basic_package_version_file(${generated}-config-version.cmake COMPATIBILITY SameMinorVersion)

    file(RELATIVE_PATH prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
    string(REGEX REPLACE "/$" "" prefix ${prefix})
    list(JOIN LIBRARY_PKG_CONFIG_REQUIRES " " requires)
    get_target_property(output_name ${target} OUTPUT_NAME)
    if(NOT output_name)
        set(output_name ${target})
    endif()
    configure_file(${templates}/package.pc.in ${generated}.pc @ONLY)

    install(FILES ${generated}-config.cmake ${generated}-config-version.cmake
        DESTINATION ${package_dir} COMPONENT ${LIBRARY_DEVELOPMENT_COMPONENT})
    install(FILES ${generated}.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT ${LIBRARY_DEVELOPMENT_COMPONENT})
endfunction()
