#include <ole/runtime/Log.h>

#include <ole/platform/Assert.h>
#include <ole/platform/OS.h>
#include <ole/runtime/Paths.h>

#include <cstdio>
#include <mutex>
#include <string>

namespace Qv {

LogListener::~LogListener() = default;

namespace {

std::mutex& logLock() {
    static std::mutex lock;
    return lock;
}

LogListener*& listenerSlot() {
    static LogListener* listener = nullptr;
    return listener;
}

std::string formatText(const char* format, va_list args) {
    va_list copy;
    va_copy(copy, args);
    const int needed = std::vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    if (needed <= 0) return std::string();
    std::string text(std::size_t(needed) + 1, '\0');
    std::vsnprintf(text.data(), text.size(), format, args);
    text.resize(std::size_t(needed));
    return text;
}

// The log file is opened for each text: logging is rare, and the user data directory may move (tests
// point it elsewhere) between calls.
void appendToLogFile(const std::string& text) {
    const LightweightString<wchar_t> dir = getUserDataDirectory();
    OS()->fileSystem()->createDirectory(dir.c_str());
    const OSFile file = OS()->fileSystem()->open(joinPath(dir, L"ole.log").c_str(), OSFile::Append);
    file.write(text.data(), text.size());
}

enum Destination { FileOnly = 1, StdErrOnly = 2, Both = 3 };

void emit(Destination destination, const std::string& text) {
    std::lock_guard<std::mutex> lock(logLock());
    if (destination & FileOnly) appendToLogFile(text);
    if (destination & StdErrOnly) {
        std::fputs(text.c_str(), stderr);
        std::fflush(stderr);
    }
    if (LogListener* listener = listenerSlot()) listener->logged(text.c_str());
}

}  // namespace

LogListener* setLogListener(LogListener* listener) {
    std::lock_guard<std::mutex> lock(logLock());
    LogListener* previous = listenerSlot();
    listenerSlot() = listener;
    return previous;
}

}  // namespace Qv

#define OLE_EMIT(destination, prefix)                                 \
    do {                                                              \
        va_list args;                                                 \
        va_start(args, format);                                       \
        Qv::emit(destination, prefix + Qv::formatText(format, args)); \
        va_end(args);                                                 \
    } while (0)

void Log(const char* format, ...) {
    OLE_EMIT(Qv::FileOnly, std::string());
}
void LogBoth(const char* format, ...) {
    OLE_EMIT(Qv::Both, std::string());
}
void ole_splat(const char* format, ...) {
    OLE_EMIT(Qv::Both, std::string("FATAL: "));
}
void DebugOut(const char* format, ...) {
    OLE_EMIT(Qv::StdErrOnly, std::string());
}

// Serious failures reported by the lower floors (which cannot reach the logs) go through ole_splat from
// the moment the library is loaded.
[[maybe_unused]] static const bool kFatalErrorsLogged =
    (Qv::setFatalErrorReporter([](const char* text) { ole_splat("%s\n", text); }), true);

void Qv::logPoolPop(const char* typeName, const BlockPool& pool, const void* block, bool fresh) {
    Log("Pool of %s (%zu-byte blocks): %s block %p\n", typeName, pool.blockSize(), fresh ? "new" : "reused",
        block);
}
