#include <ole/misc/StreamFile.h>
#include <ole/misc/strmable.h>

#include "support/TestHome.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string bytesOf(const StreamFile& f) {
    return std::string(reinterpret_cast<const char*>(f.data()), f.size());
}

LightweightString<wchar_t> widePath(const std::string& path) {
    LightweightString<wchar_t> wide;
    for (char c : path) wide += wchar_t(c);
    return wide;
}

}  // namespace

TEST(StreamFile, PrimitivesAreLittleEndianAtNaturalWidthAndReadBack) {
    StreamFile f;
    PStream s(&f);
    s.setCookedChar(0xAB);
    s.setShort(-2);
    s.setUnsignedLong(0x89ABCDEF);
    s.setInt64(-4);
    s.setDouble(-0.25);
    ASSERT_EQ(f.size(), 1u + 2 + 4 + 8 + 8);
    EXPECT_EQ(bytesOf(f).substr(0, 7), std::string("\xAB\xFE\xFF\xEF\xCD\xAB\x89", 7));

    ASSERT_TRUE(f.seek(0));
    EXPECT_EQ(s.getCookedChar(), 0xAB);
    EXPECT_EQ(s.getShort(), -2);
    EXPECT_EQ(s.getUnsignedLong(), 0x89ABCDEFu);
    EXPECT_EQ(s.getInt64(), -4);
    EXPECT_EQ(s.getDouble(), -0.25);
    EXPECT_TRUE(f.atEnd());
    EXPECT_EQ(s.error(), 0);

    // Writing overwrites in place, then extends.
    StreamFile g("abcdef", 6);
    ASSERT_TRUE(g.seek(4) && g.write("XYZW", 4) && g.seek(1) && g.write("--", 2));
    EXPECT_EQ(bytesOf(g), "a--dXYZW");
    EXPECT_EQ(g.position(), 3u);
}

TEST(StreamFile, ReadsPastTheEndGiveZerosAndFlagTheStream) {
    const char three[] = {1, 2, 3};
    StreamFile f(three, sizeof three);
    PStream s(&f);
    EXPECT_EQ(s.getLong(), 0);  // four bytes wanted, three left: nothing is taken
    EXPECT_TRUE(f.failed());
    EXPECT_NE(s.error(), 0);
    EXPECT_TRUE(f.atEnd());
    EXPECT_EQ(s.getCookedChar(), 0);

    s.clearError();
    EXPECT_EQ(s.error(), 0);
    EXPECT_FALSE(f.seek(4));  // beyond the end
    EXPECT_EQ(f.position(), 3u);
    EXPECT_TRUE(f.seek(1));
    EXPECT_FALSE(f.skip(3));
    EXPECT_TRUE(f.atEnd());

    // A text without its terminator is not a text.
    StreamFile open("abc", 3);
    EXPECT_TRUE(open.getString().empty());
    EXPECT_TRUE(open.failed());

    PStream orphan(nullptr);
    EXPECT_NE(orphan.error(), 0);
    EXPECT_EQ(orphan.getDouble(), 0.0);
}

TEST(StreamFile, WriteBinaryFormsAndTheirReaders) {
    StreamFile f;
    PStream s(&f);
    s.writeBinary("abc", 0, false, false);
    EXPECT_EQ(bytesOf(f), std::string("abc\0", 4));
    s.writeBinary("abc", 0, true, false);
    EXPECT_EQ(bytesOf(f).substr(4), std::string("\x03\0\0\0abc", 7));
    s.writeBinary("xyz!", 2, false, true);
    EXPECT_EQ(bytesOf(f).substr(11), "xy");
    s.writeBinary("", 0, false, false);
    s.writeBinary(nullptr, 5, true, false);
    s.writeBinary("longer text", 0, false, false);
    s.writeBinary("longer", 0, true, false);

    ASSERT_TRUE(f.seek(0));
    char buffer[8];
    EXPECT_EQ(s.readBinary(buffer, sizeof buffer, false, false), 3u);
    EXPECT_STREQ(buffer, "abc");
    EXPECT_EQ(s.readBinary(buffer, sizeof buffer, true, false), 3u);
    EXPECT_EQ(std::string(buffer, 3), "abc");
    EXPECT_EQ(s.readBinary(buffer, 2, false, true), 2u);
    EXPECT_EQ(std::string(buffer, 2), "xy");
    EXPECT_EQ(s.getString(), LightweightString<char>(""));
    EXPECT_EQ(s.getUnsignedLong(), 0u);
    // Too long for the buffer: kept in part, the rest is skipped.
    EXPECT_EQ(s.readBinary(buffer, 4, false, false), 3u);
    EXPECT_STREQ(buffer, "lon");
    EXPECT_EQ(s.readBinary(buffer, 4, true, false), 4u);
    EXPECT_EQ(std::string(buffer, 4), "long");
    EXPECT_TRUE(f.atEnd());
    EXPECT_EQ(s.error(), 0);

    // A length prefix that promises more than the stream holds.
    StreamFile lying("\xFF\0\0\0ab", 6);
    EXPECT_EQ(lying.readBinary(buffer, sizeof buffer, true, false), 0u);
    EXPECT_TRUE(lying.failed());
}

TEST(StreamFile, FilesAreLoadedWholeAndSavedOnFlushOrClose) {
    const std::string dir = oletest::makeTempDir("streamfile");
    const std::string path = dir + "/objects.strm";

    StreamFile missing;
    EXPECT_FALSE(missing.open(widePath(path), StreamFile::ReadOnly));
    EXPECT_FALSE(missing.failed());

    {
        StreamFile out;
        ASSERT_TRUE(out.open(widePath(path), StreamFile::Create));
        PStream s(&out);
        s.setUnsignedLong(7);
        s.writeBinary("seven", 0, false, false);
    }  // saved by the destructor
    EXPECT_EQ(oletest::readFile(path), std::string("\x07\0\0\0seven\0", 10));

    StreamFile in;
    ASSERT_TRUE(in.open(widePath(path), StreamFile::ReadOnly));
    EXPECT_EQ(in.readValue<uint32_t>(), 7u);
    EXPECT_EQ(in.getString(), LightweightString<char>("seven"));
    EXPECT_FALSE(in.write("x", 1));
    EXPECT_TRUE(in.failed());
    EXPECT_TRUE(in.close());

    StreamFile update;
    ASSERT_TRUE(update.open(widePath(path), StreamFile::Update));
    ASSERT_TRUE(update.seek(0));
    update.writeValue(uint32_t(8));
    ASSERT_TRUE(update.flush());
    EXPECT_EQ(oletest::readFile(path), std::string("\x08\0\0\0seven\0", 10));

    // A file larger than one load block comes in whole.
    const std::string big(200000, 'q');
    ASSERT_TRUE(oletest::writeFile(path, big));
    StreamFile large;
    ASSERT_TRUE(large.open(widePath(path), StreamFile::ReadOnly));
    EXPECT_EQ(bytesOf(large), big);
}
