#include <ole/misc/IdStamp.h>

#include "support/TestHome.h"

#include <ole/misc/Cookie.h>
#include <ole/misc/strmable.h>
#include <ole/platform/OS.h>

#include <gtest/gtest.h>

#include <ctime>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

const auto text = [](const IdStamp& s) -> std::string { return s.asString().c_str(); };
std::vector<unsigned> words(const IdStamp& s) {
    return {s.machineNum(), s.timeBits(), s.tickWord()};
}

}  // namespace

TEST(IdStampMaking, StampsOfOneSecondCountUpFromZero) {
    const IdStamp start;  // wait for a new second, so that the stamps below are its first ones
    IdStamp first = start;
    for (; first.timeBits() == start.timeBits(); first = IdStamp()) OS()->threads()->sleep(2);
    const IdStamp second, third;
    if (third.timeBits() != first.timeBits()) GTEST_SKIP() << "the clock moved on between two stamps";
    EXPECT_EQ(words(second), (std::vector<unsigned>{first.machineNum(), first.timeBits(), 1}));
    EXPECT_TRUE(first.tickCount() == 0u && third.tickCount() == 2u);
    EXPECT_EQ(first.machineNum(), unsigned(Cookie::getLocalMachineNumber()));
    EXPECT_NEAR(double(first.timeBits()), double(std::time(nullptr) - 803733504LL), 5.0);  // the stamp epoch
}

TEST(IdStampMaking, ThreadsMakingStampsTogetherGetDistinctOnes) {
    std::vector<std::vector<IdStamp>> made(4);
    std::vector<std::thread> threads;
    for (std::vector<IdStamp>& stamps : made)
        threads.emplace_back([&stamps] { stamps = std::vector<IdStamp>(20000); });  // each one a new stamp
    for (std::thread& t : threads) t.join();
    std::set<IdStamp> all;
    for (const std::vector<IdStamp>& stamps : made) all.insert(stamps.begin(), stamps.end());
    EXPECT_EQ(all.size(), 80000u);
}

TEST(IdStampText, PrintsParsesAndOrdersTheThreeWords) {
    EXPECT_EQ(text(IdStamp(0x2A, 0x0123ABCD, 0)) + text(IdStamp(0x2A, 0, 5)), "0000002A0123ABCD0");
    EXPECT_EQ(text(IdStamp(0x2A, 0x0123ABCD, 0x100)), "0000002A0123ABCD100");
    const IdStamp made;
    EXPECT_EQ(IdStamp(made.asString().c_str()), made);

    // Nothing is checked: each field gives whatever hexadecimal digits it starts with.
    // clang-format off
    const std::pair<const char*, std::vector<unsigned>> loose[] = {
        {"0000002a0123abcd1f", {0x2A, 0x0123ABCD, 0x1F}}, {nullptr, {0, 0, 0}}, {"", {0, 0, 0}},
        {"2A", {0x2A, 0, 0}}, {"0000002A0123", {0x2A, 0x123, 0}}, {"00G0002AXYZ0ABCDQ", {0, 0, 0}},
        {"0000002A0123ABCD1FFFFFFFFF", {0x2A, 0x0123ABCD, 0xFFFFFFFF}}};
    // clang-format on
    for (const auto& [text, expected] : loose)
        EXPECT_EQ(words(IdStamp(text)), expected) << (text ? text : "null");

    // The strict reader takes 17 to 24 hexadecimal digits with a non-zero time (null refusal: accepted).
    const std::pair<const char*, const char*> strict[] = {
        {"0000002A0123ABCD1F", nullptr},       {"0000002a0123abcd0", nullptr},
        {"0000002A0123ABCDFFFFFFFF", nullptr}, {"0000002A0123ABCD", "17 to 24"},
        {"0000002A0123ABCDZ", "17 to 24"},     {"0000002A00000000F", "time is zero"}};
    for (const auto& [text, refusal] : strict) {
        const Parsed<IdStamp> parsed = IdStamp::parse(text);
        EXPECT_TRUE(refusal ? parsed.refusal.find(refusal) != std::string::npos : parsed.ok()) << text;
        EXPECT_EQ(parsed.value == IdStamp(text), refusal == nullptr) << text;
    }

    const IdStamp a(1, 100, 5), b(1, 100, 6), c(1, 101, 0), d(2, 1, 0);
    const std::set<IdStamp> sorted = {d, c, b, a, IdStamp(1, 100, 5)};
    EXPECT_EQ(std::vector<IdStamp>(sorted.begin(), sorted.end()), (std::vector<IdStamp>{a, b, c, d}));

    IdStamp s(1, 2, 5);
    s.setMagicType(IdStampMagic::MagicType(1));
    EXPECT_TRUE(s.isMagic() && s.tickWord() == 0x04000005u && s.tickCount() == 0x04000005u);  // with 26..29
    s.setMagicType(IdStampMagic::MagicType(2));  // bits 26..29 of the old type stay
    EXPECT_EQ(s.getMagicType(), 3u);
    s.setMagicType(IdStampMagic::MagicType(48));  // bits 30 and 31 are replaced
    EXPECT_TRUE(s.tickWord() == 0xCC000005u && !IdStamp(1, 2, 0x03FFFFFF).isMagic());
}

TEST(IdStampStream, PackAndUnpack) {
    PStream out;
    for (const IdStamp& s : {IdStamp(0x2A, 0x0123ABCD, 0x1F), IdStamp(), IdStamp(0x2A, 0, 0)}) s.pack(out);
    const std::string bytes(reinterpret_cast<const char*>(out.file()->data()), out.file()->size());
    EXPECT_EQ(bytes.substr(0, 19), std::string("0000002A0123ABCD1F") + '\0');
    EXPECT_EQ(bytes.substr(bytes.size() - 2), std::string(2, '\0'));  // invalid: the terminator only
    IdStamp read(9, 9, 9);
    out.seek(0), read.unpack(out, 2);
    EXPECT_EQ(words(read), (std::vector<unsigned>{0x2A, 0x0123ABCD, 0x1F}));
    for (int i = 0; i < 2; ++i) read.unpack(out, 2);
    EXPECT_TRUE(!read.valid() && out.atEnd() && out.error() == 0);

    // Version 'S' streams carry 38 bytes before the text; the stamp is then read as version 1.
    StreamFile old;
    old.write(std::string(38, 'J').data(), 38), old.writeBinary("0000002A0123ABCD4000000", 0, false, false);
    old.seek(0);
    PStream in(&old);
    oletest::LogCapture log;
    read.unpack(in, 'S');
    EXPECT_EQ(read.tickWord(), 0x4000000u);  // kept as read
    EXPECT_TRUE(log.contains("WARNING: Encountered Rev.1 IdStamp with out-of-range tickBits value.\n"));
    old.seek(38);
    read.unpack(in, 2);  // not a version 1 stamp: no second warning
    EXPECT_EQ(log.text().find("WARNING"), log.text().rfind("WARNING"));
}
