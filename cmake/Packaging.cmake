# Installing and packaging. `cmake --install` of the host tree installs the three programs and
# the documentation; of a cross tree, the process alone (the tools are bench programs of the
# PC). `cpack` in a build tree makes its .deb from the same install rules: the host tree gives
# metadatamgr-tools (native), the ppc tree metadatamgr (powerpc). Both programs go in stripped;
# their debug info goes into a -dbgsym package beside them, found by build-id.
# Nothing here runs while configuring, building or testing.
include(GNUInstallDirs)

if(CMAKE_CROSSCOMPILING)
    set(MM_PACKAGE_NAME metadatamgr)
    install(TARGETS MetadataMgr RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
else()
    set(MM_PACKAGE_NAME metadatamgr-tools)
    install(TARGETS MetadataMgr linxpeer mdstore RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
install(FILES ${PROJECT_SOURCE_DIR}/README.md DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${MM_PACKAGE_NAME})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/ DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${MM_PACKAGE_NAME}
        FILES_MATCHING PATTERN "*.md")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ${MM_PACKAGE_NAME})
if(PROJECT_VERSION)
    set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
else()
    set(CPACK_PACKAGE_VERSION 0.0.0)
endif()
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
set(CPACK_PACKAGE_CONTACT "MetadataMgr developers")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION misc)
# Split the debug info off rather than strip it away: CPack keeps it in <name>-dbgsym.
set(CPACK_STRIP_FILES OFF)
set(CPACK_DEBIAN_DEBUGINFO_PACKAGE ON)
set(CPACK_OBJCOPY_EXECUTABLE ${CMAKE_OBJCOPY})
set(CPACK_READELF_EXECUTABLE ${CMAKE_READELF})
if(CMAKE_CROSSCOMPILING)
    set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
        "MetadataMgr, the metadata process of the in-car video recorder (target build)")
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE powerpc)
    # dpkg-shlibdeps cannot look into a foreign sysroot: the C and C++ runtimes are named.
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS OFF)
    set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6, libstdc++6, libgcc-s1")
else()
    set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
        "MetadataMgr bench tools: linxpeer, mdstore and the process against the host platform")
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
endif()
include(CPack)
