// zlib decompression of arbitrary bytes: it must never crash or hold more than its limit, and whatever it
// accepts must compress and decompress back to the same bytes.

#include <ole/misc/QvDataCompression.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr std::size_t kLimit = 1 << 20;
    std::vector<uint8_t> out;
    const QvDataCompression::Result result = QvDataCompression::zlibUncompress(data, size, out, kLimit);
    if (result != QvDataCompression::Ok) {
        if (!out.empty()) std::abort();
        return 0;
    }
    if (out.size() > kLimit) std::abort();
    std::vector<uint8_t> packed, back;
    if (QvDataCompression::zlibCompress(out.data(), out.size(), packed) != QvDataCompression::Ok)
        std::abort();
    if (QvDataCompression::zlibUncompress(packed.data(), packed.size(), back, kLimit, out.size()) !=
            QvDataCompression::Ok ||
        back != out)
        std::abort();
    return 0;
}
