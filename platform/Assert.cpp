#include <ole/platform/Assert.h>

#include <cstdio>

namespace Qv {

void assertionFailed(const char* condition, const char* source, int line) {
    std::printf("assertion failed %s at %s line %d\n", condition ? condition : "", source ? source : "", line);
    std::fflush(stdout);
}

}  // namespace Qv
