#include <ole/misc/QvDataCompression.h>

#include <gtest/gtest.h>

#include <utility>
#include <vector>

using namespace QvDataCompression;

namespace {

using Bytes = std::vector<uint8_t>;

Bytes pattern(std::size_t n) {  // compressible, not trivial
    Bytes bytes(n);
    uint32_t x = 12345;
    for (std::size_t i = 0; i < n; ++i)
        bytes[i] = uint8_t(((x = x * 1103515245u + 12345u) >> 16) % 7 + (i / 4096) % 3);
    return bytes;
}

TEST(QvDataCompression, RoundTripsAndRefusesCorruptTruncatedAndExpandingStreams) {
    Bytes packed, out;
    for (std::size_t n : {std::size_t(0), std::size_t(64) << 20, std::size_t(1), std::size_t(100000)}) {
        const Bytes in = pattern(n);
        ASSERT_EQ(zlibCompress(in.data(), in.size(), packed, n > (1 << 20) ? 1 : -1), Ok) << n;
        for (std::size_t known : {std::size_t(0), n}) {  // with and without the size known up front
            EXPECT_EQ(zlibUncompress(packed.data(), packed.size(), out, n, known), Ok) << n;
            EXPECT_TRUE(out == in) << n;
        }
        EXPECT_EQ(zlibUncompress(packed.data(), packed.size(), out, n - 1), n ? TooLarge : Ok) << n;
        EXPECT_TRUE(out.empty()) << n;  // a refused stream leaves nothing behind; n - 1 wraps for 0
    }
    EXPECT_TRUE(zlibCompress(nullptr, 0, out, 9) == Ok && zlibCompress(nullptr, 3, out) == InvalidArgument);
    EXPECT_EQ(zlibCompress("x", 1, out, 10), InvalidArgument);
    EXPECT_STREQ(resultText(TruncatedData), "truncated data");
    std::vector<std::pair<Bytes, Result>> cases(4, {packed, CorruptData});
    cases[0].first[packed.size() / 2] ^= 0x55, cases[1].first.back() ^= 1, cases[2].first.push_back(0);
    cases[3].first = {0x12, 0x34, 0x56};
    cases.push_back({Bytes(packed.begin(), packed.end() - 5), TruncatedData});
    for (const auto& [bytes, expected] : cases) {
        out.assign(3, 1);
        EXPECT_EQ(zlibUncompress(bytes.data(), bytes.size(), out, 1 << 20), expected);
        EXPECT_TRUE(out.empty());
    }
    EXPECT_EQ(zlibUncompress(nullptr, 0, out, 100), TruncatedData);
    EXPECT_EQ(zlibUncompress(nullptr, 5, out, 100), InvalidArgument);
    // 64 MiB of zeros packs into about 64 KiB; a small limit stops it without holding the whole output.
    const Bytes zeros(std::size_t(64) << 20);
    ASSERT_EQ(zlibCompress(zeros.data(), zeros.size(), packed, 9), Ok);
    EXPECT_EQ(zlibUncompress(packed.data(), packed.size(), out, 1 << 20, zeros.size()), TooLarge);
    EXPECT_EQ(out.capacity(), 0u);
}

}  // namespace
