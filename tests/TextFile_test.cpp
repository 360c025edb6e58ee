#include <ole/misc/TextFile.h>

#include "support/TestHome.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using Lines = std::vector<std::string>;

LightweightString<wchar_t> ws(const std::string& s) {
    return std::wstring(s.begin(), s.end()).c_str();
}

Lines linesOf(const TextFile& file) {
    Lines lines;
    for (const TextFile::Line& line : file.lines()) lines.emplace_back(line.c_str(), line.size());
    return lines;
}

TEST(TextFile, LoadsBothLineEndsAndFailsQuietly) {
    const std::string dir = oletest::makeTempDir("text"), path = dir + "/file.txt";
    const std::vector<std::pair<std::string, Lines>> cases = {
        {"", {}},
        {"\n", {""}},
        {"one\ntwo\n", {"one", "two"}},
        {"one\r\n\r\nthree\nfour", {"one", "", "three", "four"}}};
    TextFile file;  // reused: each load replaces the lines
    for (const auto& [content, expected] : cases) {
        EXPECT_TRUE(oletest::writeFile(path, content) && file.load(ws(path)));
        EXPECT_EQ(linesOf(file), expected) << content;
    }
    EXPECT_TRUE(!file.load(ws(dir + "/absent")) && file.empty()) << "a file that cannot be read: no lines";
    EXPECT_TRUE(static_cast<const TextFile&>(file)[3].empty()) << "a line past the end reads as empty";
    file.removeLine(5);
    EXPECT_FALSE(file.save(ws(path + "/below-a-file")));
    EXPECT_FALSE(TextFile().save()) << "never loaded, so nowhere to save";
    EXPECT_EQ(oletest::listDirectory(dir), Lines{"file.txt"});
}

TEST(TextFile, SaveThenLoadGivesTheSameLines) {
    const std::string dir = oletest::makeTempDir("roundtrip"), path = dir + "/macro.txt";
    const std::string umlaut = std::string("Gr\xC3\xBC\xC3\x9F") + "e";
    TextFile file;
    for (const char* line : {"first", "", umlaut.c_str()}) file.appendLine(line);
    file.insertLine(0, "zeroth");
    EXPECT_TRUE(file.save(ws(path)) && oletest::readFile(path) == "zeroth\nfirst\n\n" + umlaut + "\n");

    TextFile loaded(ws(path));
    EXPECT_EQ(linesOf(loaded), linesOf(file));
    loaded.removeLine(1), loaded[0] = "changed";
    EXPECT_TRUE(loaded.save());  // back to where it came from
    EXPECT_EQ(oletest::readFile(path), "changed\n\n" + umlaut + "\n");
    EXPECT_EQ(oletest::listDirectory(dir), Lines{"macro.txt"}) << "no temporary file is left beside it";

    file.setText("a\n\nc");
    EXPECT_EQ(linesOf(file), (Lines{"a", "", "c"}));
    EXPECT_EQ(std::string(file.text().c_str()), "a\n\nc\n");
}

}  // namespace

TEST(TextFile, WritingPastTheEndIsReportedAndChangesNothing) {
    TextFile file;
    file.appendLine("one"), file[0] = "first", testing::internal::CaptureStdout(), file[3] = "lost";
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "assertion failed index < lines_.size() at ole/misc/TextFile line 67\n");
    EXPECT_TRUE(file.size() == 1u && file[0] == "first");
}
