#pragma once

/// @file
/// Logging of the core runtime. Log() appends to the product log file ("ole.log" in the user data
/// directory); LogBoth() does that and also writes to standard error. ole_splat() reports a serious failure
/// through LogBoth and returns: it never aborts. All three take printf formats, are thread-safe, and never
/// fail the caller (a log file that cannot be opened is skipped).
///
/// A listener may be installed to see every logged text, e.g. to show it in a user interface or to check it
/// in a test.

#include <ole/platform/export.h>

#include <cstdarg>

/// Appends a printf-formatted text to the product log file.
OLE_API void Log(const char* format, ...) __attribute__((format(printf, 1, 2)));
/// Logs like Log() and also writes the text to standard error.
OLE_API void LogBoth(const char* format, ...) __attribute__((format(printf, 1, 2)));
/// Reports a serious failure through LogBoth() and returns; it never aborts.
OLE_API void ole_splat(const char* format, ...) __attribute__((format(printf, 1, 2)));
/// Debug output of the library (standard error only).
OLE_API void DebugOut(const char* format, ...) __attribute__((format(printf, 1, 2)));

namespace Qv {

/// Sees every logged text, e.g. to show it in a user interface or to check it in a test.
class OLE_API LogListener {
public:
    virtual ~LogListener();
    /// Called with each formatted text, under the log's lock.
    virtual void logged(const char* text) = 0;
};

/// Installs a listener (null removes it) and returns the previous one.
OLE_API LogListener* setLogListener(LogListener* listener);

}  // namespace Qv
