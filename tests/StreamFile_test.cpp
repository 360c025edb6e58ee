#include <ole/misc/StreamFile.h>
#include <ole/misc/strmable.h>

#include "support/TestHome.h"

#include <gtest/gtest.h>

#include <string>

static std::string bytesOf(const StreamFile& f) {
    return std::string(reinterpret_cast<const char*>(f.data()), f.size());
}

TEST(StreamFile, PrimitivesAreLittleEndianAtNaturalWidthAndReadBack) {
    StreamFile f;
    PStream s(&f);
    s.setCookedChar(0xAB), s.setShort(-2), s.setUnsignedLong(0x89ABCDEF), s.setInt64(-4), s.setDouble(-0.25);
    ASSERT_EQ(f.size(), 1u + 2 + 4 + 8 + 8);
    EXPECT_EQ(bytesOf(f).substr(0, 7), std::string("\xAB\xFE\xFF\xEF\xCD\xAB\x89", 7));
    EXPECT_TRUE(f.seek(0) && s.getCookedChar() == 0xAB && s.getShort() == -2 &&
                s.getUnsignedLong() == 0x89ABCDEFu && s.getInt64() == -4 && s.getDouble() == -0.25 &&
                f.atEnd() && s.error() == 0);

    // Writing overwrites in place, then extends.
    StreamFile g("abcdef", 6);
    ASSERT_TRUE(g.seek(4) && g.write("XYZW", 4) && g.seek(1) && g.write("--", 2));
    EXPECT_TRUE(bytesOf(g) == "a--dXYZW" && g.position() == 3);
}

// Runs of every length up to 20 (short runs are copied word-wise from both ends), patches in place, and
// texts read into a string that is reused.
TEST(StreamFile, RunsOfEveryLengthPatchesAndReusedStrings) {
    const std::string source = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJ";
    StreamFile f;
    for (std::size_t n = 0; n <= 20; ++n) f.write(source.data() + n, n);
    ASSERT_TRUE(f.seek(0));
    for (std::size_t n = 0; n <= 20; ++n) {
        char run[20] = {};
        EXPECT_TRUE(f.read(run, n) && std::string(run, n) == source.substr(n, n)) << n;
    }
    EXPECT_TRUE(f.atEnd() && !f.failed());

    StreamFile g("abcdef", 6);
    EXPECT_TRUE(g.overwrite(4, "XY", 2) && bytesOf(g) == "abcdXY" && g.position() == 0 && !g.failed());
    EXPECT_TRUE(!g.overwrite(5, "XY", 2) && g.failed() && bytesOf(g) == "abcdXY");  // past the content

    StreamFile t("rim\0hub cap\0", 12);
    LightweightString<char> text("wheel");
    EXPECT_TRUE(t.getString(text) && text == "rim" && t.getString(text) && text == "hub cap");
    EXPECT_TRUE(!t.getString(text) && text.empty() && t.failed());

    // Texts of every length around the 16 bytes looked at a word at a time, among bytes of 0x81 and 0x01
    // that a faulty zero-byte test would take for the terminator.
    StreamFile many;
    for (std::size_t n = 0; n <= 40; ++n)
        many.writeBinary(std::string(n, n % 2 ? '\x81' : '\x01').c_str(), 0, false, false);
    ASSERT_TRUE(many.seek(0));
    for (std::size_t n = 0; n <= 40; ++n) EXPECT_EQ(many.getString().size(), n);
    EXPECT_TRUE(many.atEnd() && !many.failed());
}

TEST(StreamFile, ReadsPastTheEndGiveZerosAndFlagTheStream) {
    StreamFile f("\1\2\3", 3);
    PStream s(&f);
    EXPECT_EQ(s.getLong(), 0);  // four bytes wanted, three left: nothing is taken
    EXPECT_TRUE(f.failed() && s.error() != 0 && f.atEnd() && s.getCookedChar() == 0);
    s.clearError();
    EXPECT_EQ(s.error(), 0);
    EXPECT_TRUE(!f.seek(4) && f.position() == 3 && f.seek(1) && !f.skip(3) && f.atEnd());  // past the end

    StreamFile open("abc", 3);  // a text without its terminator is not a text
    EXPECT_TRUE(open.getString().empty() && open.failed());
    PStream orphan(nullptr);
    EXPECT_TRUE(orphan.error() != 0 && orphan.getDouble() == 0.0);
}

TEST(StreamFile, WriteBinaryFormsAndTheirReaders) {
    StreamFile f;
    PStream s(&f);
    s.writeBinary("abc", 0, false, false), s.writeBinary("abc", 0, true, false);
    s.writeBinary("xyz!", 2, false, true);
    EXPECT_EQ(bytesOf(f), std::string("abc\0\x03\0\0\0abcxy", 13));
    s.writeBinary("", 0, false, false), s.writeBinary(nullptr, 5, true, false);
    s.writeBinary("longer text", 0, false, false), s.writeBinary("longer", 0, true, false);

    ASSERT_TRUE(f.seek(0));
    char buffer[8];
    EXPECT_TRUE(s.readBinary(buffer, sizeof buffer, false, false) == 3 && std::string(buffer) == "abc");
    EXPECT_TRUE(s.readBinary(buffer, sizeof buffer, true, false) == 3 && std::string(buffer, 3) == "abc");
    EXPECT_TRUE(s.readBinary(buffer, 2, false, true) == 2 && std::string(buffer, 2) == "xy");
    EXPECT_TRUE(s.getString().empty() && s.getUnsignedLong() == 0);
    // Too long for the buffer: kept in part, the rest is skipped.
    EXPECT_TRUE(s.readBinary(buffer, 4, false, false) == 3 && std::string(buffer) == "lon");
    EXPECT_TRUE(s.readBinary(buffer, 4, true, false) == 4 && std::string(buffer, 4) == "long");
    EXPECT_TRUE(f.atEnd() && s.error() == 0);

    StreamFile lying("\xFF\0\0\0ab", 6);  // a length prefix that promises more than the stream holds
    EXPECT_TRUE(lying.readBinary(buffer, sizeof buffer, true, false) == 0u && lying.failed());
}

TEST(StreamFile, FilesAreLoadedWholeAndSavedOnFlushOrClose) {
    const std::string path = oletest::makeTempDir("streamfile") + "/objects.strm";
    const LightweightString<wchar_t> wide = std::wstring(path.begin(), path.end()).c_str();
    StreamFile missing;
    EXPECT_FALSE(missing.open(wide, StreamFile::ReadOnly) || missing.failed());
    {
        StreamFile out;
        ASSERT_TRUE(out.open(wide, StreamFile::Create));
        PStream s(&out);
        s.setUnsignedLong(7), s.writeBinary("seven", 0, false, false);
    }  // saved by the destructor
    EXPECT_EQ(oletest::readFile(path), std::string("\x07\0\0\0seven\0", 10));

    StreamFile in;
    ASSERT_TRUE(in.open(wide, StreamFile::ReadOnly));
    EXPECT_TRUE(in.readValue<uint32_t>() == 7 && in.getString() == LightweightString<char>("seven"));
    EXPECT_TRUE(!in.write("x", 1) && in.failed() && in.close());

    StreamFile update;
    ASSERT_TRUE(update.open(wide, StreamFile::Update) && update.seek(0));
    update.writeValue(uint32_t(8));
    EXPECT_TRUE(update.flush() && oletest::readFile(path) == std::string("\x08\0\0\0seven\0", 10));

    const std::string big(200000, 'q');  // larger than one load block, still loaded whole
    StreamFile large;
    ASSERT_TRUE(oletest::writeFile(path, big) && large.open(wide, StreamFile::ReadOnly));
    EXPECT_EQ(bytesOf(large), big);
}
