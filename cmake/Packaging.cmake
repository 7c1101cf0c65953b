# Installing and packaging. `cmake --install` of the host tree installs the three programs and
# the documentation; of a cross tree, the process alone (the tools are bench programs of the
# PC). `cpack` in a build tree makes its .deb from the same install rules: the host tree gives
# metadatamgr-tools (for the PC it is built on), the ppc tree metadatamgr (powerpc). Both
# programs go in stripped; their debug info goes into a -dbgsym package beside them, found by
# build-id. The manual pages, shell completion, copyright and changelog come from packaging/.
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

set(MM_PACKAGE_MAINTAINER "MetadataMgr developers <metadatamgr-dev@example.org>"
    CACHE STRING "Maintainer of the packages: name <address>")
# The project's version is upstream's; the packages are its first Debian revision.
set(MM_PACKAGE_RELEASE 1)
set(MM_PACKAGE_FULL_VERSION ${PROJECT_VERSION}-${MM_PACKAGE_RELEASE})
add_subdirectory(${PROJECT_SOURCE_DIR}/packaging ${CMAKE_BINARY_DIR}/packaging)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ${MM_PACKAGE_NAME})
if(PROJECT_VERSION)
    set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
else()
    set(CPACK_PACKAGE_VERSION 0.0.0)
endif()
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${MM_PACKAGE_RELEASE})
set(CPACK_PACKAGE_CONTACT "${MM_PACKAGE_MAINTAINER}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION misc)
# Split the debug info off rather than strip it away: CPack keeps it in <name>-dbgsym.
set(CPACK_STRIP_FILES OFF)
set(CPACK_DEBIAN_DEBUGINFO_PACKAGE ON)
set(CPACK_OBJCOPY_EXECUTABLE ${CMAKE_OBJCOPY})
set(CPACK_READELF_EXECUTABLE ${CMAKE_READELF})
# CPack's -dbgsym lists its files by their staging paths and has no documentation: remade as
# debhelper makes it.
set(CPACK_POST_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/packaging/FixDbgsym.cmake)
if(CMAKE_CROSSCOMPILING)
    set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "metadata process of the in-car video recorder")
    set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
        "MetadataMgr collects the state of the vehicle system as it changes
(recording, bookmarks, vehicle inputs, GPS, radar, microphones, temperatures,
cameras, streams, configuration), stamps every change with the sender's system
tick and writes it to the metadata files kept beside the recorded video.
This is the build for the unit's 32-bit PowerPC computer.")
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE powerpc)
    # dpkg-shlibdeps cannot look into a foreign sysroot: the C and C++ runtimes are named.
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS OFF)
    set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6, libstdc++6, libgcc-s1")
else()
    set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "bench tools of the in-car video recorder's metadata")
    set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
        "The metadata process of the in-car video recorder built for a PC, with its
bench tools. MetadataMgr runs against a Linux implementation of its platform.
linxpeer plays the other processes of the vehicle over the IPC, runs scenarios
and replays captured traffic. mdstore reads, checks, copies and exports the
metadata files (GPX, GeoJSON, CSV, KML, MCAP), draws a drive as an HTML page
and makes signed evidence packages.")
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
endif()
include(CPack)
