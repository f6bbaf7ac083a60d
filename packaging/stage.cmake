# Run by CPack when a package's files are staged: adds what only Debian packages have.

# Names the package of each of our libraries, so that dpkg-shlibdeps finds the dependencies between our own packages.
set(shlibs)
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
    string(TOUPPER ${component} upper)
    file(GLOB libraries RELATIVE ${CPACK_TEMPORARY_DIRECTORY}/${component}/${CPACK_TOLVO_LIBDIR}
        ${CPACK_TEMPORARY_DIRECTORY}/${component}/${CPACK_TOLVO_LIBDIR}/*.so.*)
    foreach(library IN LISTS libraries)
        if(library MATCHES "^(.+)\\.so\\.([0-9]+)$")
            string(APPEND shlibs "${CMAKE_MATCH_1} ${CMAKE_MATCH_2} ${CPACK_DEBIAN_${upper}_PACKAGE_NAME}"
                " (>= ${CPACK_PACKAGE_VERSION})\n")
        endif()
    endforeach()
endforeach()

foreach(component IN LISTS CPACK_COMPONENTS_ALL)
    string(TOUPPER ${component} upper)
    set(staged ${CPACK_TEMPORARY_DIRECTORY}/${component})
    set(package ${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
    set(doc ${staged}/usr/share/doc/${package})
    configure_file(${CPACK_TOLVO_SOURCE_DIR}/LICENSE ${doc}/copyright COPYONLY
        FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
    configure_file(${CPACK_TOLVO_SOURCE_DIR}/packaging/changelog.in ${doc}/changelog @ONLY)
    file(GLOB pages ${staged}/usr/share/man/man?/*)
    execute_process(COMMAND gzip -9n ${doc}/changelog ${pages} COMMAND_ERROR_IS_FATAL ANY)

    # The loader looks into a package's folders anyway.
    file(GLOB programs ${staged}/usr/bin/* ${staged}/${CPACK_TOLVO_LIBDIR}/*.so.*)
    foreach(program IN LISTS programs)
        if(NOT IS_SYMLINK ${program})
            file(RPATH_REMOVE FILE ${program})
        endif()
    endforeach()

    if(programs AND CPACK_DEBIAN_PACKAGE_SHLIBDEPS) # CPack removes the folder again
        file(WRITE ${staged}/debian/shlibs.local ${shlibs})
    endif()
endforeach()
