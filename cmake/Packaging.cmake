# Debian packages from the install rules, one per install component:
#   libole1     the shared library (libole.so.MAJOR and the file it points to);
#   libole-dev  headers, CMake package, pkg-config file and the libole.so link used at link time;
#   ole-tools   the ole command and its manual page.
# `cpack -G DEB` in the build directory writes them to packages/. The SONAME is the major version, so
# the runtime package carries it in its name and two majors can be installed side by side.

set(CPACK_PACKAGE_NAME ole)
set(CPACK_PACKAGE_VENDOR "Quorvane")
set(CPACK_PACKAGE_CONTACT "Quorvane developers <ole@quorvane.invalid>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Foundation library of the Quorvane video editor")
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime dev tools)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
# dpkg-shlibdeps works out what the binaries link (libc6, libstdc++6, libgcc-s1, libuuid1, zlib1g); the
# build directory is searched too, so that it finds libole.so.MAJOR for the ole command.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR})
set(OLE_DEB_EXACT "libole${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libole${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
    "Foundation library of the Quorvane video editor\n"
    "Shared strings, vectors and pointers, notifiers, the configb record format, cookies, command queues,\n"
    "timecode, footage, frame rates and output formats.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libole-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "${OLE_DEB_EXACT}")
set(CPACK_COMPONENT_DEV_DESCRIPTION
    "Development files of the Quorvane foundation library\n"
    "Headers (under ole/), the CMake package (find_package(ole)) and the pkg-config file of libole.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME ole-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION video)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${OLE_DEB_EXACT}")
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
    "Command-line tool of the Quorvane foundation library\n"
    "ole converts and checks timecode, footage, frame rates, output formats, cookies, IdStamps, configb\n"
    "files and editor preferences.")

include(CPack)
