# Makes the Debian packages, unpacks them into a scratch root and builds tests/consumer against that root with
# CMake and pkg-config; the unpacked tool must run and have its manual page. Not in sanitizer builds.
find_program(OLE_CPACK cpack HINTS ${CMAKE_COMMAND}/..)
find_program(OLE_DPKG dpkg)
if(OLE_SANITIZE OR NOT OLE_CPACK OR NOT OLE_DPKG OR NOT TARGET ole_tool)
    return()
endif()

set(OLE_PACKAGE_ROOT ${CMAKE_CURRENT_BINARY_DIR}/package-root)
add_test(NAME debian_packages
    COMMAND sh -c [[
        set -e
        build=$1 root=$2 cxx=$3 source=$4 generator=$5 ctest=$6
        rm -rf "$build/packages" "$root" "$root-build"
        (cd "$build" && "${7}" -G DEB > /dev/null)
        for name in libole1 libole-dev ole-tools; do
            package=$(ls "$build"/packages/${name}_*.deb)
            dpkg-deb -f "$package" Package Version Depends
            dpkg -x "$package" "$root"
        done
        LD_LIBRARY_PATH=$root/usr/lib "$root/usr/bin/ole" --version
        test -s "$root/usr/share/man/man1/ole.1.gz"
        "$ctest" --build-and-test "$source" "$root-build/cmake" --build-generator "$generator" \
            --build-options -DCMAKE_PREFIX_PATH="$root/usr" -DCMAKE_CXX_COMPILER="$cxx" \
            --test-command consumer
        mkdir -p "$root-build/pkg-config"
        flags=$(PKG_CONFIG_PATH=$root/usr/lib/pkgconfig pkg-config --cflags --libs ole)
        "$cxx" -Wall -Wextra -Werror "$source/main.cpp" -o "$root-build/pkg-config/consumer" $flags
        LD_LIBRARY_PATH=$root/usr/lib "$root-build/pkg-config/consumer"
    ]] sh ${CMAKE_BINARY_DIR} ${OLE_PACKAGE_ROOT} ${CMAKE_CXX_COMPILER} ${CMAKE_CURRENT_LIST_DIR}/consumer
        ${CMAKE_GENERATOR} ${CMAKE_CTEST_COMMAND} ${OLE_CPACK})
set_tests_properties(debian_packages PROPERTIES TIMEOUT 600 PASS_REGULAR_EXPRESSION "Depends: libole1 \\(= ${PROJECT_VERSION}-[0-9]+\\).*ole ${PROJECT_VERSION}.*ole consumer: ok.*ole consumer: ok")
