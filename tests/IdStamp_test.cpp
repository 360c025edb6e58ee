#include <ole/misc/IdStamp.h>

#include "support/TestHome.h"

#include <ole/misc/Cookie.h>
#include <ole/misc/strmable.h>
#include <platform/OS.h>

#include <gtest/gtest.h>

#include <ctime>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace {

std::string text(const IdStamp& s) {
    return s.asString().c_str();
}

void expectWords(const IdStamp& s, unsigned machine, unsigned time, unsigned tick) {
    EXPECT_EQ(s.machineNum(), machine);
    EXPECT_EQ(s.timeBits(), time);
    EXPECT_EQ(s.tickWord(), tick);
}

}  // namespace

TEST(IdStampMaking, StampsOfOneSecondCountUpFromZero) {
    // Wait for a new second, so that the stamps below are the first ones made in it.
    const IdStamp start;
    IdStamp first = start;
    while (first.timeBits() == start.timeBits()) {
        OS()->threads()->sleep(2);
        first = IdStamp();
    }
    const IdStamp second, third;
    if (third.timeBits() != first.timeBits()) GTEST_SKIP() << "the clock moved on between two stamps";
    EXPECT_EQ(first.tickCount(), 0u);
    EXPECT_EQ(second.tickCount(), 1u);
    EXPECT_EQ(third.tickCount(), 2u);
    EXPECT_EQ(second.timeBits(), first.timeBits());
    EXPECT_EQ(first.machineNum(), unsigned(Cookie::getLocalMachineNumber()));
    EXPECT_TRUE(first.valid());
    EXPECT_FALSE(first.isMagic());

    const long long unixSecond = static_cast<long long>(std::time(nullptr));
    EXPECT_NEAR(double(third.timeBits()), double(unixSecond - 803733504LL), 5.0);  // the stamp epoch
}

TEST(IdStampMaking, ThreadsMakingStampsTogetherGetDistinctOnes) {
    constexpr int kThreads = 4, kEach = 20000;
    std::vector<std::vector<IdStamp>> made(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&made, t] {
            for (int i = 0; i < kEach; ++i) made[t].push_back(IdStamp());
        });
    for (std::thread& t : threads) t.join();
    std::set<IdStamp> all;
    for (const std::vector<IdStamp>& stamps : made) all.insert(stamps.begin(), stamps.end());
    EXPECT_EQ(all.size(), size_t(kThreads * kEach));
}

TEST(IdStampText, PrintsAndParsesTheThreeWords) {
    EXPECT_EQ(text(IdStamp(0x2A, 0x0123ABCD, 0)), "0000002A0123ABCD0");
    EXPECT_EQ(text(IdStamp(0x2A, 0x0123ABCD, 0x1F)), "0000002A0123ABCD1F");
    EXPECT_EQ(text(IdStamp(0x2A, 0x0123ABCD, 0x100)), "0000002A0123ABCD100");
    EXPECT_EQ(text(IdStamp(0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF)), "FFFFFFFFFFFFFFFFFFFFFFFF");
    EXPECT_EQ(text(IdStamp(0x2A, 0, 5)), "");  // time 0: not a valid stamp

    expectWords(IdStamp("0000002A0123ABCD0"), 0x2A, 0x0123ABCD, 0);
    expectWords(IdStamp("0000002a0123abcd1f"), 0x2A, 0x0123ABCD, 0x1F);
    const IdStamp made;
    EXPECT_EQ(IdStamp(made.asString().c_str()), made);

    // Nothing is checked: each field gives whatever hexadecimal digits it starts with.
    expectWords(IdStamp(static_cast<const char*>(nullptr)), 0, 0, 0);
    expectWords(IdStamp(""), 0, 0, 0);
    EXPECT_FALSE(IdStamp("").valid());
    expectWords(IdStamp("2A"), 0x2A, 0, 0);
    expectWords(IdStamp("0000002A0123"), 0x2A, 0x123, 0);
    expectWords(IdStamp("00G0002AXYZ0ABCDQ"), 0, 0, 0);
    expectWords(IdStamp("0000002A0123ABCD1FFFFFFFFF"), 0x2A, 0x0123ABCD, 0xFFFFFFFF);
}

TEST(IdStampCompare, MachineThenTimeThenTick) {
    const IdStamp a(1, 100, 5), b(1, 100, 6), c(1, 101, 0), d(2, 1, 0);
    EXPECT_LT(a.compare(b), 0);
    EXPECT_LT(b.compare(c), 0);
    EXPECT_LT(c.compare(d), 0);
    EXPECT_GT(d.compare(a), 0);
    EXPECT_EQ(a.compare(IdStamp(1, 100, 5)), 0);
    EXPECT_EQ(a, IdStamp(1, 100, 5));
    EXPECT_NE(a, b);
    const std::set<IdStamp> sorted = {d, c, b, a};
    EXPECT_EQ(std::vector<IdStamp>(sorted.begin(), sorted.end()), (std::vector<IdStamp>{a, b, c, d}));
}

TEST(IdStampMagic, TypeSharesTheTickWord) {
    IdStamp s(1, 2, 5);
    s.setMagicType(IdStampMagic::MagicType(1));
    EXPECT_EQ(s.tickWord(), 0x04000005u);
    EXPECT_TRUE(s.isMagic());
    EXPECT_EQ(s.getMagicType(), 1u);
    EXPECT_EQ(s.tickCount(), 0x04000005u);  // includes the magic bits 26..29

    s.setMagicType(IdStampMagic::MagicType(2));  // bits 26..29 of the old type stay
    EXPECT_EQ(s.tickWord(), 0x0C000005u);
    EXPECT_EQ(s.getMagicType(), 3u);

    s.setMagicType(IdStampMagic::MagicType(48));  // bits 30 and 31 are replaced
    EXPECT_EQ(s.tickWord(), 0xCC000005u);
    EXPECT_EQ(s.tickCount(), 0x0C000005u);
    s.setMagicType(IdStampMagic::kNone);
    EXPECT_EQ(s.tickWord(), 0x0C000005u);
    EXPECT_FALSE(IdStamp(1, 2, 0x03FFFFFF).isMagic());
}

TEST(IdStampStream, PackAndUnpack) {
    PStream out;
    IdStamp(0x2A, 0x0123ABCD, 0x1F).pack(out);
    IdStamp().pack(out);
    IdStamp(0x2A, 0, 0).pack(out);  // invalid: only the terminator
    const StreamFile& file = *out.file();
    const std::string bytes(reinterpret_cast<const char*>(file.data()), file.size());
    EXPECT_EQ(bytes.substr(0, 19), std::string("0000002A0123ABCD1F") + '\0');
    EXPECT_EQ(bytes.back(), '\0');
    EXPECT_EQ(bytes[bytes.size() - 2], '\0');

    out.seek(0);
    IdStamp read(9, 9, 9);
    read.unpack(out, 2);
    expectWords(read, 0x2A, 0x0123ABCD, 0x1F);
    read.unpack(out, 2);
    EXPECT_TRUE(read.valid());
    read.unpack(out, 2);
    EXPECT_FALSE(read.valid());
    EXPECT_EQ(out.error(), 0);

    // Version 'S' streams carry 38 bytes before the text; the stamp is then read as version 1.
    StreamFile old;
    const std::string junk(38, 'J');
    old.write(junk.data(), junk.size());
    old.writeBinary("0000002A0123ABCD4000000", 0, false, false);
    old.seek(0);
    PStream in(&old);
    oletest::LogCapture log;
    read.unpack(in, 'S');
    expectWords(read, 0x2A, 0x0123ABCD, 0x4000000);
    EXPECT_TRUE(log.contains("WARNING: Encountered Rev.1 IdStamp with out-of-range tickBits value.\n"));
    EXPECT_TRUE(in.atEnd());

    old.seek(38);
    oletest::LogCapture quiet;
    read.unpack(in, 2);
    EXPECT_EQ(read.tickWord(), 0x4000000u);
    EXPECT_FALSE(quiet.contains("WARNING"));
}
