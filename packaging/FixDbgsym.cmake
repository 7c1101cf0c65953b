# Run by cpack once the packages are made (CPACK_POST_BUILD_SCRIPTS). CPack's -dbgsym package
# lists its files in md5sums by their paths in the staging tree and holds no copyright or
# changelog; it is remade as debhelper makes it: paths relative to the root, the debug files
# not executable, and /usr/share/doc/NAME-dbgsym a link to the documentation of NAME, on which
# it depends.
foreach(package IN LISTS CPACK_PACKAGE_FILES)
    if(NOT package MATCHES "-dbgsym_[^/]*\\.ddeb$")
        continue()
    endif()
    set(tree ${package}.tree)
    file(REMOVE_RECURSE ${tree})
    execute_process(COMMAND dpkg-deb -R ${package} ${tree} COMMAND_ERROR_IS_FATAL ANY)
    file(GLOB_RECURSE debugFiles RELATIVE ${tree} ${tree}/usr/lib/debug/*)
    set(sums "")
    foreach(path IN LISTS debugFiles)
        file(CHMOD ${tree}/${path} PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
        file(MD5 ${tree}/${path} sum)
        string(APPEND sums "${sum}  ${path}\n")
    endforeach()
    file(WRITE ${tree}/DEBIAN/md5sums "${sums}")
    file(MAKE_DIRECTORY ${tree}/usr/share/doc)
    file(CREATE_LINK ${CPACK_PACKAGE_NAME} ${tree}/usr/share/doc/${CPACK_PACKAGE_NAME}-dbgsym
         SYMBOLIC)
    execute_process(COMMAND dpkg-deb --root-owner-group -Zgzip -b ${tree} ${package}
                    OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
    file(REMOVE_RECURSE ${tree})
endforeach()
