#pragma once

/// @file
/// The library's assertion line. A failed check prints
///
///     assertion failed <condition> at <source> line <n>
///
/// on standard output and the caller goes on with its fallback value; nothing aborts. The condition text and
/// the source position are passed explicitly because callers and logs match on them.

#include <ole/platform/export.h>

namespace Qv {

/// Prints the assertion line for `condition` at `source` (a path such as "ole/misc/tccvt") and `line`.
OLE_API void assertionFailed(const char* condition, const char* source, int line);

/// Returns `ok`; prints the assertion line first when it is false.
inline bool check(bool ok, const char* condition, const char* source, int line) {
    if (!ok) assertionFailed(condition, source, line);
    return ok;
}

/// Serious failures that the process survives. They go to the installed reporter (the runtime installs
/// one that writes the product logs) or, before one is installed, to standard error.
using FatalErrorReporter = void (*)(const char* text);
/// Hands `text` to the installed reporter.
OLE_API void reportFatalError(const char* text);
/// Installs `reporter` (null restores standard error) and returns the previous one.
OLE_API FatalErrorReporter setFatalErrorReporter(FatalErrorReporter reporter);

}  // namespace Qv

// Checks `cond` and prints the assertion line with the condition's own text when it fails; evaluates to
// whether it held. The source and line are given as written, e.g. QV_ASSERT_AT(n > 0, "ole/misc/x", 42),
// so that the printed line stays the same when the file around it changes.
#define QV_ASSERT_AT(cond, source, line) ::Qv::check(static_cast<bool>(cond), #cond, source, line)
