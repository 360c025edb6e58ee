#include <ole/runtime/Strings.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

const auto n = [](const NString& s) -> std::string { return std::string(s.c_str(), s.size()); };
const auto w = [](const WString& s) -> std::wstring { return std::wstring(s.c_str(), s.size()); };

TEST(UTF8, RoundTripsEveryPlaneAndReplacesMalformedInput) {
    const std::vector<std::pair<std::string, std::wstring>> cases = {
        {"Gr\303\274\303\237e", L"Gr\u00FC\u00DFe"},
        {"\xE6\x97\xA5\xE6\x9C\xAC", L"\u65E5\u672C"},
        {"\xF0\x9F\x98\x80!", L"\U0001F600!"},  // one wide character, not a surrogate pair
        {"\xF4\x8F\xBF\xBF", L"\U0010FFFF"},
    };
    for (const auto& [utf8, wide] : cases) {
        EXPECT_TRUE(w(fromUTF8(utf8.c_str())) == wide && w(fromUTF8(NString(utf8.c_str()))) == wide) << utf8;
        EXPECT_TRUE(n(toUTF8(wide.c_str())) == utf8 && n(toUTF8(WString(wide.c_str()))) == utf8) << utf8;
    }
    EXPECT_TRUE(fromUTF8(static_cast<const char*>(nullptr)).empty() &&
                toUTF8(static_cast<const wchar_t*>(nullptr)).empty());

    // Malformed input is replaced, not fatal.
    EXPECT_TRUE(w(fromUTF8("a\377b")) == L"a\uFFFDb" && w(fromUTF8("a\200b")) == L"a\uFFFDb");
    for (const char* text : {"\xC3", "x\xE2\x82", "\xE2\x82x", "\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80",
                             "\xF8\x88\x80\x80\x80"}) {
        const std::wstring decoded = w(fromUTF8(text));
        EXPECT_NE(decoded.find(L'\uFFFD'), std::wstring::npos) << text;
        for (wchar_t c : decoded) EXPECT_TRUE(c == L'\uFFFD' || c == L'x') << text;
    }
    const wchar_t bad[] = {L'a', wchar_t(0xD800), L'b', wchar_t(0x110000), wchar_t(-5), L'c', 0};
    const NString encoded = toUTF8(bad);  // whatever stands for the bad values, the result is valid UTF-8
    EXPECT_EQ(n(toUTF8(fromUTF8(encoded))), n(encoded));
    EXPECT_TRUE(n(encoded).find_first_of("abc") == 0 && n(encoded).find('b') < n(encoded).find('c'));
}

TEST(Strings, EndsWithSplitTrimEmptinessAndNumbers) {
    const NString file("Project.QVP");
    EXPECT_TRUE(Qv::endsWith(file, ".QVP") && !Qv::endsWith(file, ".qvp") &&
                Qv::endsWith(file, "project.qvp", false));
    EXPECT_FALSE(Qv::endsWith(file, "xProject.QVP", false)) << "longer than the text";
    EXPECT_TRUE(Qv::endsWith(NString(), "") && !Qv::endsWith(NString(), "a"));
    EXPECT_TRUE(Qv::endsWith(WString(L"Clip.MXF"), L".mxf", false) &&
                !Qv::endsWith(WString(L"Clip.MXF"), L".mxf"));

    auto pieces = [](const char* text) {
        std::vector<std::string> out;
        for (const NString& piece : Qv::splitIf(NString(text), ',')) out.push_back(n(piece));
        return out;
    };
    EXPECT_EQ(pieces("a,,b"), (std::vector<std::string>{"a", "", "b"}));
    EXPECT_EQ(pieces(""), (std::vector<std::string>{""}));
    EXPECT_EQ(pieces(",a,"), (std::vector<std::string>{"", "a", ""}));

    EXPECT_TRUE(n(Qv::trim(NString("  two words \t\n"))) == "two words" && Qv::trim(NString(" \t ")).empty());
    EXPECT_TRUE(isEssentiallyEmpty(NString()) && isEssentiallyEmpty(NString(" \t\r\n ")));
    EXPECT_TRUE(isEssentiallyEmpty(WString(L"\t \n")) && !isEssentiallyEmpty(NString("  a ")) &&
                !isEssentiallyEmpty(WString(L" \u00E9 ")));

    for (const auto& [text, value] :
         {std::pair{L"42", 42}, {L" -17 frames", -17}, {L"frames 9", 0}, {L"", 0}})
        EXPECT_EQ(Qv::IntFromWString(WString(text)), value) << text;
    EXPECT_TRUE(n(StringFromFloat(1.5, 2)) == "1.50" && n(StringFromFloat(-0.25, 3)) == "-0.250");
    EXPECT_TRUE(n(StringFromFloat(2.0)) == "2.000000" && n(StringFromFloat(3.4, 0)) == "3");

    const std::string longText(5000, 'q');
    EXPECT_EQ(n(stringPrintf("<%s>", longText.c_str())), "<" + longText + ">");
    EXPECT_EQ(w(Qv::widen("a\xE9")), (std::wstring{L'a', wchar_t(0xE9)})) << "bytes keep their values";
    EXPECT_TRUE(std::string(BoolAsString(false)) == "false" && resourceStrW(-12345).empty());
}

}  // namespace
