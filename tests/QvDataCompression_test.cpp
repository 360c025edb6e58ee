#include <ole/misc/QvDataCompression.h>

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

using namespace QvDataCompression;

namespace {

std::vector<uint8_t> pattern(std::size_t n) {
    std::vector<uint8_t> bytes(n);
    uint32_t x = 12345;
    for (std::size_t i = 0; i < n; ++i) {
        x = x * 1103515245u + 12345u;
        bytes[i] = uint8_t((x >> 16) % 7 + (i / 4096) % 3);  // compressible, not trivial
    }
    return bytes;
}

TEST(QvDataCompression, RoundTripsEmptySmallAndLargeBuffers) {
    for (std::size_t n : {std::size_t(0), std::size_t(1), std::size_t(1000), std::size_t(64) << 20}) {
        const std::vector<uint8_t> in = pattern(n);
        std::vector<uint8_t> packed, back;
        ASSERT_EQ(zlibCompress(in.data(), in.size(), packed, n > (1 << 20) ? 1 : -1), Ok) << n;
        EXPECT_EQ(zlibUncompress(packed.data(), packed.size(), back, n), Ok) << n;
        EXPECT_TRUE(back == in) << n;
        EXPECT_EQ(zlibUncompress(packed.data(), packed.size(), back, n, n), Ok) << n;  // with the size known
        EXPECT_TRUE(back == in) << n;
        if (n) {
            EXPECT_EQ(zlibUncompress(packed.data(), packed.size(), back, n - 1), TooLarge) << n;
            EXPECT_TRUE(back.empty());
        }
    }
    std::vector<uint8_t> out;
    EXPECT_EQ(zlibCompress(nullptr, 0, out, 9), Ok);
    EXPECT_EQ(zlibCompress(nullptr, 3, out), InvalidArgument);
    EXPECT_EQ(zlibCompress("x", 1, out, 10), InvalidArgument);
    EXPECT_STREQ(resultText(TruncatedData), "truncated data");
}

TEST(QvDataCompression, RefusesCorruptTruncatedAndExpandingStreams) {
    const std::vector<uint8_t> in = pattern(100000);
    std::vector<uint8_t> packed, out;
    ASSERT_EQ(zlibCompress(in.data(), in.size(), packed), Ok);

    std::vector<uint8_t> flipped = packed;
    flipped[flipped.size() / 2] ^= 0x55;
    std::vector<uint8_t> badCheck = packed;
    badCheck.back() ^= 1;
    std::vector<uint8_t> trailing = packed;
    trailing.push_back(0);
    const std::vector<uint8_t> header = {0x12, 0x34, 0x56};
    const std::vector<uint8_t> truncated(packed.begin(), packed.end() - 5);
    struct Case {
        const std::vector<uint8_t>* bytes;
        Result expected;
    };
    const Case cases[] = {{&flipped, CorruptData},
                          {&badCheck, CorruptData},
                          {&trailing, CorruptData},
                          {&header, CorruptData},
                          {&truncated, TruncatedData}};
    for (const Case& c : cases) {
        out.assign(3, 1);
        EXPECT_EQ(zlibUncompress(c.bytes->data(), c.bytes->size(), out, 1 << 20), c.expected);
        EXPECT_TRUE(out.empty());
    }
    EXPECT_EQ(zlibUncompress(nullptr, 0, out, 100), TruncatedData);
    EXPECT_EQ(zlibUncompress(nullptr, 5, out, 100), InvalidArgument);

    // 64 MiB of zeros packs into about 64 KiB; a small limit stops it without holding the whole output.
    const std::vector<uint8_t> zeros(std::size_t(64) << 20);
    ASSERT_EQ(zlibCompress(zeros.data(), zeros.size(), packed, 9), Ok);
    EXPECT_EQ(zlibUncompress(packed.data(), packed.size(), out, 1 << 20, zeros.size()), TooLarge);
    EXPECT_EQ(out.capacity(), 0u);
}

}  // namespace
