#pragma once

// What a piece of code prints on standard output, where the library's assertion lines go, or on standard
// error, where debug output and the log's copies go.

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

template <class F>
std::string stderrOf(F&& f) {
    testing::internal::CaptureStderr();
    std::forward<F>(f)();
    return testing::internal::GetCapturedStderr();
}

}  // namespace oletest
