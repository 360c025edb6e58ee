#include <ole/platform/Assert.h>

#include <atomic>
#include <cstdio>

namespace Qv {

void assertionFailed(const char* condition, const char* source, int line) {
    std::printf("assertion failed %s at %s line %d\n", condition ? condition : "", source ? source : "",
                line);
    std::fflush(stdout);
}

static std::atomic<FatalErrorReporter>& fatalErrorReporter() {
    static std::atomic<FatalErrorReporter> reporter{nullptr};
    return reporter;
}

void reportFatalError(const char* text) {
    if (FatalErrorReporter reporter = fatalErrorReporter().load()) {
        reporter(text ? text : "");
    } else {
        std::fprintf(stderr, "%s\n", text ? text : "");
        std::fflush(stderr);
    }
}

FatalErrorReporter setFatalErrorReporter(FatalErrorReporter reporter) {
    return fatalErrorReporter().exchange(reporter);
}

}  // namespace Qv
