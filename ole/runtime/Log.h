#pragma once

/// @file
/// Logging of the core runtime. Log() appends to the product log file ("ole.log" in the user data
/// directory); LogBoth() does that and also writes to standard error. ole_splat() reports a serious failure
/// through LogBoth and returns: it never aborts. All three take printf formats, are thread-safe, and never
/// fail the caller (a log file that cannot be opened is skipped).
///
/// A listener may be installed to see every logged text, e.g. to show it in a user interface or to check it
/// in a test.
///
/// QvDebugPooledObject<T> is the logging variant of QvPooledObject<T>: T's objects come from a pool of
/// their own that logs every block it hands out, for finding what churns a pool.

#include <ole/platform/export.h>
#include <ole/Qv/QvPooledObject.h>

#include <cstdarg>
#include <typeinfo>

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

namespace Qv {

/// Logs one line for a block a logging pool hands out: the pooled type, the block and whether it is new.
OLE_API void logPoolPop(const char* typeName, const BlockPool& pool, const void* block, bool fresh);

}  // namespace Qv

/// A pool of blocks of T's size that logs each block it hands out. It keeps no thread caches, so each
/// allocation is seen; it is a pool of its own, apart from QvPoolOf<T>.
template <class T>
struct QvDebugPoolOf : Qv::BlockPool {
    QvDebugPoolOf() : Qv::BlockPool(sizeof(T), &logPop) {}

private:
    static void logPop(const Qv::BlockPool& pool, const void* block, bool fresh) {
        Qv::logPoolPop(typeid(T).name(), pool, block, fresh);
    }
};

/// Base of pooled classes whose allocations are logged: `class Node : public QvDebugPooledObject<Node>`.
template <class T>
using QvDebugPooledObject = QvPooledObject<T, QvDebugPoolOf<T>>;
