#pragma once

// What a piece of code prints on standard output, where the library's assertion lines go.

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace oletest {

template <class F>
std::string stdoutOf(F&& f) {
    testing::internal::CaptureStdout();
    std::forward<F>(f)();
    return testing::internal::GetCapturedStdout();
}

}  // namespace oletest
