// String helpers of the runtime: UTF-8, suffixes, splitting, numbers.

#include <ole/runtime/Strings.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

std::string n(const NString& s) {
    return std::string(s.c_str(), s.size());
}
std::wstring w(const WString& s) {
    return std::wstring(s.c_str(), s.size());
}

TEST(UTF8, RoundTripsEveryPlane) {
    const std::vector<std::pair<std::string, std::wstring>> cases = {
        {"Gr\xC3\xBC\xC3\x9F"
         "e",
         L"Gr\u00FC\u00DFe"},
        {"\xE6\x97\xA5\xE6\x9C\xAC", L"\u65E5\u672C"},
        {"\xF0\x9F\x98\x80!", L"\U0001F600!"},  // one wide character, not a surrogate pair
        {"\xF4\x8F\xBF\xBF", L"\U0010FFFF"},
    };
    for (const auto& [utf8, wide] : cases) {
        EXPECT_EQ(w(fromUTF8(utf8.c_str())), wide) << utf8;
        EXPECT_EQ(w(fromUTF8(NString(utf8.c_str()))), wide) << utf8;
        EXPECT_EQ(n(toUTF8(wide.c_str())), utf8) << utf8;
        EXPECT_EQ(n(toUTF8(WString(wide.c_str()))), utf8) << utf8;
    }
    EXPECT_TRUE(fromUTF8(static_cast<const char*>(nullptr)).empty());
    EXPECT_TRUE(toUTF8(static_cast<const wchar_t*>(nullptr)).empty());
}

TEST(UTF8, MalformedInputIsReplacedNotFatal) {
    EXPECT_EQ(w(fromUTF8("a\xFF"
                         "b")),
              L"a\uFFFDb");
    EXPECT_EQ(w(fromUTF8("a\x80"
                         "b")),
              L"a\uFFFDb");
    for (const char* text : {"\xC3", "x\xE2\x82", "\xE2\x82x", "\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80",
                             "\xF8\x88\x80\x80\x80"}) {
        const std::wstring decoded = w(fromUTF8(text));
        EXPECT_NE(decoded.find(L'\uFFFD'), std::wstring::npos) << text;
        for (wchar_t c : decoded) EXPECT_TRUE(c == L'\uFFFD' || c == L'x') << text;
    }
    const wchar_t bad[] = {L'a', wchar_t(0xD800), L'b', wchar_t(0x110000), wchar_t(-5), L'c', 0};
    const NString encoded = toUTF8(bad);  // whatever stands for the bad values, the result is valid UTF-8
    EXPECT_EQ(n(toUTF8(fromUTF8(encoded))), n(encoded));
    EXPECT_EQ(n(encoded).find_first_of("abc"), 0u);
    EXPECT_LT(n(encoded).find('b'), n(encoded).find('c'));
}

TEST(Strings, EndsWithInBothCaseModes) {
    const NString file("Project.QVP");
    EXPECT_TRUE(Qv::endsWith(file, ".QVP"));
    EXPECT_FALSE(Qv::endsWith(file, ".qvp"));
    EXPECT_TRUE(Qv::endsWith(file, "project.qvp", false));
    EXPECT_FALSE(Qv::endsWith(file, "xProject.QVP", false)) << "longer than the text";
    EXPECT_TRUE(Qv::endsWith(NString(), ""));
    EXPECT_FALSE(Qv::endsWith(NString(), "a"));
    EXPECT_TRUE(Qv::endsWith(WString(L"Clip.MXF"), L".mxf", false));
    EXPECT_FALSE(Qv::endsWith(WString(L"Clip.MXF"), L".mxf"));
}

TEST(Strings, SplitTrimAndEmptiness) {
    auto pieces = [](const char* text) {
        std::vector<std::string> out;
        for (const NString& piece : Qv::splitIf(NString(text), ',')) out.push_back(n(piece));
        return out;
    };
    EXPECT_EQ(pieces("a,,b"), (std::vector<std::string>{"a", "", "b"}));
    EXPECT_EQ(pieces(""), (std::vector<std::string>{""}));
    EXPECT_EQ(pieces(",a,"), (std::vector<std::string>{"", "a", ""}));

    EXPECT_EQ(n(Qv::trim(NString("  two words \t\n"))), "two words");
    EXPECT_TRUE(Qv::trim(NString(" \t ")).empty());
    EXPECT_TRUE(isEssentiallyEmpty(NString()));
    EXPECT_TRUE(isEssentiallyEmpty(NString(" \t\r\n ")));
    EXPECT_FALSE(isEssentiallyEmpty(NString("  a ")));
    EXPECT_TRUE(isEssentiallyEmpty(WString(L"\t \n")));
    EXPECT_FALSE(isEssentiallyEmpty(WString(L" \u00E9 ")));
}

TEST(Strings, NumbersToAndFromText) {
    EXPECT_EQ(Qv::IntFromWString(WString(L"42")), 42);
    EXPECT_EQ(Qv::IntFromWString(WString(L" -17 frames")), -17);
    EXPECT_EQ(Qv::IntFromWString(WString(L"frames 9")), 0);
    EXPECT_EQ(Qv::IntFromWString(WString()), 0);

    EXPECT_EQ(n(StringFromFloat(1.5, 2)), "1.50");
    EXPECT_EQ(n(StringFromFloat(-0.25, 3)), "-0.250");
    EXPECT_EQ(n(StringFromFloat(2.0)), "2.000000");
    EXPECT_EQ(n(StringFromFloat(3.4, 0)), "3");

    const std::string longText(5000, 'q');
    EXPECT_EQ(n(stringPrintf("<%s>", longText.c_str())), "<" + longText + ">");
    EXPECT_EQ(w(Qv::widen("a\xE9")), (std::wstring{L'a', wchar_t(0xE9)})) << "bytes keep their values";
    EXPECT_STREQ(BoolAsString(false), "false");
    EXPECT_TRUE(resourceStrW(-12345).empty());
}

}  // namespace
