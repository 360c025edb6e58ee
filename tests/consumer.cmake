# Installs the library into a scratch prefix and builds tests/consumer against it through the CMake package
# and through pkg-config. A sanitizer build's library needs the sanitizer runtimes: the consumer gets the flags.

set(OLE_CONSUMER_PREFIX ${CMAKE_CURRENT_BINARY_DIR}/consumer-prefix)
set(OLE_CONSUMER_SOURCE ${CMAKE_CURRENT_LIST_DIR}/consumer)
set(OLE_CONSUMER_LIBDIR ${OLE_CONSUMER_PREFIX}/${CMAKE_INSTALL_LIBDIR})
set(OLE_CONSUMER_FLAGS "")
if(OLE_SANITIZE)
    set(OLE_CONSUMER_FLAGS "-fsanitize=address,undefined")
endif()

# A fresh prefix each run, so that a header dropped from the install cannot hide behind an old copy.
add_test(NAME consumer_install
    COMMAND sh -c "rm -rf \"$1\" && \"$2\" --install \"$3\" --prefix \"$1\""
        sh ${OLE_CONSUMER_PREFIX} ${CMAKE_COMMAND} ${CMAKE_BINARY_DIR})
set_tests_properties(consumer_install PROPERTIES FIXTURES_SETUP ole_installed TIMEOUT 120)

add_test(NAME consumer_cmake_package
    COMMAND ${CMAKE_CTEST_COMMAND}
        --build-and-test ${OLE_CONSUMER_SOURCE} ${CMAKE_CURRENT_BINARY_DIR}/consumer-cmake
        --build-generator ${CMAKE_GENERATOR}
        --build-options -DCMAKE_PREFIX_PATH=${OLE_CONSUMER_PREFIX} -DCMAKE_CXX_COMPILER=${CMAKE_CXX_COMPILER}
            -DCMAKE_BUILD_TYPE=${CMAKE_BUILD_TYPE} -DCMAKE_CXX_FLAGS=${OLE_CONSUMER_FLAGS}
        --test-command consumer)
set_tests_properties(consumer_cmake_package PROPERTIES FIXTURES_REQUIRED ole_installed TIMEOUT 300)

# The pkg-config flags alone must be enough to compile and link; the rpath only lets the result run.
add_test(NAME consumer_pkg_config
    COMMAND sh -c [[
        set -e
        mkdir -p "$4"
        flags=$("$1" --cflags --libs ole)
        "$2" $5 -Wall -Wextra -Werror "$3/main.cpp" -o "$4/consumer" $flags -Wl,-rpath,"$6"
        "$4/consumer"
    ]] sh ${PKG_CONFIG_EXECUTABLE} ${CMAKE_CXX_COMPILER} ${OLE_CONSUMER_SOURCE}
        ${CMAKE_CURRENT_BINARY_DIR}/consumer-pkg-config "${OLE_CONSUMER_FLAGS}" ${OLE_CONSUMER_LIBDIR})
set_tests_properties(consumer_pkg_config PROPERTIES FIXTURES_REQUIRED ole_installed TIMEOUT 300
    ENVIRONMENT "PKG_CONFIG_PATH=${OLE_CONSUMER_LIBDIR}/pkgconfig")
