// Process-wide heap settings for every benchmark in the binary. glibc hands blocks of 128 KiB and more
// straight to the kernel and gives them back on free, so a benchmark that grows a string to 1 MB each
// iteration would mostly time page faults, whose cost depends on the machine far more than on the code
// under test. Here the heap keeps what it was given, for ours and the peers alike.

#include <malloc.h>

namespace {

const bool kHeapKept = [] {
    mallopt(M_MMAP_THRESHOLD, 256 << 20);
    mallopt(M_TRIM_THRESHOLD, 1 << 30);
    return true;
}();

}  // namespace
