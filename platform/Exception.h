#pragma once

/// @file
/// The one exception type of the library: a runtime error raised for range errors and for forbidden
/// recursive use of a thread-safe queue. It records where it was raised.

#include <ole/platform/export.h>

#include <stdexcept>
#include <string>

namespace Qv {
namespace Exception {

/// The runtime error of the library, with the place it was raised.
class OLE_API RuntimeError : public std::runtime_error {
public:
    RuntimeError(const std::string& message, const char* file, int line);
    ~RuntimeError() override;

    const std::string& message() const noexcept { return message_; }
    const char* file() const noexcept { return file_.c_str(); }
    int line() const noexcept { return line_; }

private:
    std::string message_;
    std::string file_;
    int line_;
};

}  // namespace Exception
}  // namespace Qv
