// Entry point of every test binary: roots the product's directories in a fresh temporary directory
// before anything runs, so that no test reads or writes the real home.

#include "support/TestHome.h"

#include <gtest/gtest.h>

#include <cstdlib>

int main(int argc, char** argv) {
    setenv("QUORVANE_HOME", oletest::testHome().c_str(), 1);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
