#include <ole/misc/Cookie.h>

#include "support/TestHome.h"

#include <platform/Exception.h>
#include <platform/OS.h>
#include <platform/Paths.h>
#include <platform/RegistryConfig.h>
#include <platform/Strings.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <set>
#include <ostream>
#include <string>
#include <unistd.h>
#include <vector>

// Cookies in failure messages as their text.
void PrintTo(const Cookie& c, std::ostream* os) {
    *os << c.asString(true).c_str();
}

namespace {

constexpr Cookie kVideoBlack('V', 1, 0, 647);
static_assert(kVideoBlack.valid() && kVideoBlack.getNumber() == 1 && kVideoBlack.getMachineNumber() == 647,
              "built-in cookies can be constants");
static_assert(!invalid_cookie.valid() && invalid_cookie.getType() == 'I', "the invalid cookie is a constant");

std::string text(const Cookie& c, bool withVersion = true) {
    return c.asString(withVersion).c_str();
}

std::string narrow(const LightweightString<wchar_t>& w) {
    return toUTF8(w).c_str();
}

const char kUUIDText[] = "6BA7B810-9DAD-11D1-80B4-00C04FD430C8";

Qv::UUID uuidOfWords(uint32_t a, uint32_t b) {
    Qv::UUID id;
    std::memcpy(id.bytes(), &a, 4);
    std::memcpy(id.bytes() + 4, &b, 4);
    return id;
}

}  // namespace

TEST(CookieCodes, MachineNumbersEncodeToDistinctCodesAndBack) {
    std::set<unsigned> codes;
    for (int m = 0; m <= 2703; ++m) {
        const unsigned code = Cookie::encodeMachineNumber(m);
        ASSERT_LE(code, 2703u) << m;
        ASSERT_EQ(Cookie::decodeMachineNumber(code), m);
        const std::pair<char, char> pair = Cookie::get2DigitBase52Map36Code(code);
        ASSERT_EQ(Cookie::base52Map36ToInt(pair.first, pair.second), code) << m;
        codes.insert(code);
    }
    EXPECT_EQ(codes.size(), 2704u);
    EXPECT_EQ(Cookie::encodeMachineNumber(2704), 0xFFFFFFFFu);
    EXPECT_EQ(Cookie::encodeMachineNumber(-1), 0xFFFFFFFFu);
    EXPECT_EQ(Cookie::decodeMachineNumber(2704), 65535);
    EXPECT_EQ(Cookie::base52Map36ToInt('z', 'z'), 1295u);  // letters in either case
}

TEST(CookieCodes, BadCodesAndCharactersThrowWithTheirPlaceOfOrigin) {
    try {
        Cookie::get2DigitBase52Map36Code(2704);
        FAIL() << "no exception";
    } catch (const Qv::Exception::RuntimeError& e) {
        EXPECT_EQ(e.message(), "Number out of range in get2DigitBase52Map36Code!");
        EXPECT_STREQ(e.file(), "ole/misc/Cookie");
        EXPECT_EQ(e.line(), 965);
    }
    for (const char* pair : {"0*", "*0", "0 ",
                             "\x80"
                             "0"}) {
        try {
            Cookie::base52Map36ToInt(pair[0], pair[1]);
            FAIL() << "no exception for " << pair;
        } catch (const Qv::Exception::RuntimeError& e) {
            EXPECT_EQ(e.message(), "Invalid character(s) passed to base52Map36ToInt");
            EXPECT_STREQ(e.file(), "ole/misc/Cookie");
            EXPECT_EQ(e.line(), 979);
        }
    }
}

TEST(CookieCodes, CharacterFunctions) {
    for (char c = 'A'; c <= 'Z'; ++c) {
        const bool isType = std::strchr("BCDEFGMOPRSTV", c) != nullptr;
        EXPECT_EQ(Cookie::typeFromChar(c), isType ? c : 'I') << c;
        EXPECT_EQ(Cookie::typeFromChar(char(c - 'A' + 'a')), isType ? c : 'I') << c;
    }
    EXPECT_EQ(Cookie::typeFromChar('1'), 'I');
    EXPECT_EQ(Cookie::digitToChar(0), '0');
    EXPECT_EQ(Cookie::digitToChar(9), '9');
    EXPECT_EQ(Cookie::digitToChar(10), 'A');
    EXPECT_EQ(Cookie::digitToChar(35), 'Z');
    EXPECT_EQ(Cookie::digitToChar(36), '[');  // runs on past Z unchecked
    EXPECT_EQ(Cookie::charToDigit('7'), 7);
    EXPECT_EQ(Cookie::charToDigit('a'), 10);
    EXPECT_EQ(Cookie::charToDigit('Z'), 35);
    EXPECT_EQ(Cookie::charToDigit('-'), 0);
    EXPECT_EQ(Cookie::charToDigit('\xC3'), 0);
}

TEST(CookieText, ShortFormRoundTripsAtEveryCodeRangeBoundary) {
    struct Case {
        int machine;
        char first, second;
    };
    const Case cases[] = {{647, 'Z', 'Z'},  {648, '0', '0'},  {0, '0', '1'},    {1, '0', '3'},
                          {1296, '0', '('}, {1871, 'Z', '~'}, {1872, '(', '0'}, {2703, '~', '~'}};
    for (const Case& c : cases) {
        const Cookie cookie('P', 100, 0, c.machine);
        ASSERT_TRUE(cookie.valid()) << c.machine;
        const std::string expected = std::string("P") + c.first + "0" + c.second + "002S";
        EXPECT_EQ(text(cookie), expected);
        EXPECT_EQ(narrow(cookie.asWString()), expected);

        const Cookie parsed(expected.c_str(), true);
        EXPECT_EQ(parsed, cookie) << expected;
        EXPECT_EQ(parsed.getMachineNumber(), unsigned(c.machine));
        EXPECT_EQ(parsed.getNumber(), 100u);
        EXPECT_FALSE(parsed.isUUID());
        EXPECT_EQ(Cookie(Qv::widen(expected.c_str()), true), cookie);
    }
    // Every machine number survives the text form.
    for (int m = 0; m <= 2703; ++m) {
        const Cookie cookie('E', m * 613 % 1679616, 7, m);
        ASSERT_EQ(Cookie(cookie.asString(true).c_str(), true), cookie) << m;
    }
    EXPECT_EQ(text(Cookie('P', 1679615, 0, 5)), "P00BZZZZ");
    EXPECT_EQ(text(Cookie('P', 100, 0, 5)), "P00B002S");
}

TEST(CookieText, ValuesPastTheRangesAreRejectedOrReported) {
    EXPECT_FALSE(Cookie('P', 100, 0, 2704).valid());
    EXPECT_FALSE(Cookie('P', 100, 0, -1).valid());
    EXPECT_FALSE(Cookie('P', 1679616, 0, 5).valid());
    EXPECT_FALSE(Cookie('P', -1, 0, 5).valid());
    EXPECT_FALSE(Cookie('A', 1, 0, 5).valid());
    EXPECT_FALSE(Cookie('S', 1, 36, 5).valid());
    EXPECT_FALSE(Cookie('S', 1, -1, 5).valid());
    EXPECT_TRUE(Cookie('S', 1, 35, 5).valid());
    EXPECT_EQ(Cookie('S', 1, 255, 5).getVersion(), 1);
    EXPECT_EQ(Cookie('P', 1, 300, 5).getVersion(), 300 % 256);  // only type S checks its version

    // A machine number beyond the codes cannot be printed: its code positions stay blank.
    Cookie unprintable;
    unprintable.construct('P', 100, 0, 2704);
    oletest::LogCapture log;
    EXPECT_EQ(text(unprintable), "P 0 002S");
    EXPECT_TRUE(log.contains("Failed to encode machine number in cookie_string::construct"));

    // Only the four low base-36 digits of a too-large number are printed.
    Cookie large;
    large.construct('P', 1679616 + 100, 0, 5);
    EXPECT_EQ(text(large), "P00B002S");
}

TEST(CookieText, VersionDigitAndDefaults) {
    const Cookie o('O', 7, 3, 5);
    EXPECT_EQ(text(o, false), "O00B0007");
    EXPECT_EQ(text(o, true), "O03B0007");
    EXPECT_EQ(text(Cookie('S', 7, 12, 5), false), "S0CB0007");  // type S shows its version regardless

    EXPECT_EQ(Cookie("O03B0007", true).getVersion(), 3);
    EXPECT_EQ(Cookie("O03B0007", false).getVersion(), 0);
    EXPECT_EQ(Cookie("S0CB0007", false).getVersion(), 1);
    EXPECT_EQ(Cookie("S0CB0007", true).getVersion(), 12);

    EXPECT_EQ(text(Cookie()), "INVALID");
    EXPECT_EQ(narrow(Cookie().asWString()), "INVALID");
    EXPECT_FALSE(Cookie("INVALID", true).valid());
    EXPECT_FALSE(Cookie(static_cast<const char*>(nullptr), true).valid());
    EXPECT_FALSE(Cookie("", true).valid());
    EXPECT_FALSE(Cookie("P00B002", true).valid());
    EXPECT_FALSE(Cookie("P00B002S ", true).valid());
}

TEST(CookieText, UUIDFormRoundTripsNarrowAndWide) {
    const Qv::UUID id(kUUIDText);
    const Cookie cookie('P', id, 7);
    const std::string full = std::string("P07-") + kUUIDText;
    EXPECT_EQ(text(cookie, true), full);
    EXPECT_EQ(text(cookie, false), std::string("P00-") + kUUIDText);
    EXPECT_EQ(narrow(cookie.asWString()), full);  // the wide form always shows the version
    EXPECT_EQ(text(Cookie('S', id, 4), false), std::string("S04-") + kUUIDText);

    const Cookie parsed(full.c_str(), true);
    EXPECT_TRUE(parsed.isUUID());
    EXPECT_EQ(parsed, cookie);
    EXPECT_EQ(Cookie(full.c_str(), false).getVersion(), 0);
    EXPECT_EQ(Cookie((std::string("S07-") + kUUIDText).c_str(), false).getVersion(), 0);  // not S's default
    EXPECT_EQ(Cookie(Qv::widen(full.c_str()), true), cookie);
    EXPECT_EQ(Cookie(Qv::widen(full.c_str()), false).getVersion(), 0);

    // Lower-case type letters: upper-cased by the narrow parser, kept as they are by the wide one.
    const std::string lower = std::string("p07-") + kUUIDText;
    EXPECT_EQ(Cookie(lower.c_str(), true).getType(), 'P');
    EXPECT_EQ(Cookie(Qv::widen(lower.c_str()), true).getType(), 'p');
    EXPECT_FALSE(Cookie(Qv::widen((std::string("I07-") + kUUIDText).c_str()), true).valid());
    EXPECT_FALSE(Cookie(Qv::widen((std::string("PXX-") + kUUIDText).c_str()), true).valid());
    EXPECT_FALSE(Cookie("P07-00000000-0000-0000-0000-000000000000", true).valid());  // nil UUID

    // A three-digit version pushes nothing past position 4: the UUID text starts there regardless.
    const Cookie wideVersion('P', id, 200);
    EXPECT_EQ(text(wideVersion), std::string("P200") + kUUIDText);
    EXPECT_EQ(wideVersion.asString(true).size(), 40u);
    EXPECT_EQ(narrow(wideVersion.asWString()), std::string("P200") + kUUIDText);
}

TEST(CookieText, IsValidAndParsingDisagreeWhereDesigned) {
    struct Case {
        std::string text;
        bool wellFormed;
        bool parses;
    };
    const std::string uuidTail = std::string("-") + kUUIDText;
    std::string gapAt19 = "P07" + uuidTail;
    gapAt19[19] = 'G';
    std::string noDash = "P07" + uuidTail;
    noDash[3] = 'x';
    const Case cases[] = {
        {"P00B002S", true, true},        {"p00B002S", false, true},  // lower-case type letter
        {"P00b002S", false, true},                                   // lower-case machine code
        {"B00B002S", false, true},                                   // a type outside the narrower set
        {"P00B00.S", false, true},                                   // punctuation in the number counts as 0
        {"P0.B002S", false, true},       {"P00*002S", false, false},
        {"A00B002S", false, false},      {gapAt19, true, false},  // position 19 is not looked at by the check
        {noDash, false, true},                                    // position 3 is not looked at by the parser
        {"A07" + uuidTail, true, false}, {"b07" + uuidTail, true, true},
        {"P7A" + uuidTail, false, true}, {"INVALID", false, false},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(Cookie::isValid(c.text.c_str()), c.wellFormed) << c.text;
        EXPECT_EQ(Cookie(c.text.c_str(), true).valid(), c.parses) << c.text;
    }
    EXPECT_EQ(Cookie("P00B00.S", true).getNumber(), 28u);
    EXPECT_FALSE(Cookie::isValid(nullptr));
}

TEST(CookieCompare, MixedDirectionsOrderASortedSet) {
    const Cookie v1('V', 1, 0, 5), p1('P', 1, 0, 5), p256('P', 256, 0, 5), p1v2('P', 1, 2, 5),
        b1('B', 1, 0, 5);
    EXPECT_GT(b1.compare(p1), 0);
    EXPECT_LT(p1.compare(b1), 0);
    EXPECT_LT(p1.compare(p1v2), 0);

    const std::set<Cookie> sorted = {b1, p1v2, p256, v1, p1, Cookie('P', 1, 0, 5)};
    const std::vector<Cookie> expected = {v1, p1, p256, p1v2,
                                          b1};  // types down, versions up, identities down
    EXPECT_EQ(std::vector<Cookie>(sorted.begin(), sorted.end()), expected);

    // The form takes no part: equal identity bytes are equal cookies.
    EXPECT_EQ(Cookie('P', uuidOfWords(1, 5), 0).compare(p1), 0);
    EXPECT_NE(p1, Cookie('P', 1, 0, 6));
}

TEST(CookieEffects, BuiltInPredicatesAndWipes) {
    EXPECT_TRUE(Cookie('V', 2, 0, 647).isDissolve());
    EXPECT_TRUE(Cookie('V', 1298, 0, 647).isDissolve());
    EXPECT_FALSE(Cookie('V', 3, 0, 647).isDissolve());
    EXPECT_FALSE(Cookie('V', 2, 0, 646).isDissolve());
    EXPECT_TRUE(Cookie('V', 1300, 0, 647).isFilmDissolve());
    EXPECT_FALSE(Cookie('V', 1298, 0, 647).isFilmDissolve());

    struct Range {
        int first, last, direction;
    };
    for (const Range& r :
         {Range{46657, 46676, 0}, Range{47953, 47972, 0}, Range{93313, 93332, 1}, Range{94609, 94628, 1}}) {
        EXPECT_FALSE(Cookie('V', r.first - 1, 0, 647).isWipe()) << r.first;
        EXPECT_FALSE(Cookie('V', r.last + 1, 0, 647).isWipe()) << r.last;
        EXPECT_TRUE(Cookie('V', r.first, 0, 647).isWipe());
        EXPECT_TRUE(Cookie('V', r.last, 0, 647).isWipe());
        EXPECT_FALSE(Cookie('V', r.first, 0, 5).isWipe());
        EXPECT_EQ(Cookie('V', r.first, 0, 5).wipeType(), 1);  // no machine test
        EXPECT_EQ(Cookie('V', r.last, 0, 647).wipeType(), 20);
        EXPECT_EQ(Cookie('V', r.first, 0, 647).wipeDirection(), r.direction);
    }
    EXPECT_EQ(Cookie('V', 46656, 0, 647).wipeType(), 0);
    EXPECT_EQ(Cookie('V', 100, 0, 647).wipeDirection(), 1);

    EXPECT_TRUE(Cookie('V', 46677, 0, 647).isEffectGraph());
    EXPECT_FALSE(Cookie('V', 46677, 0, 647).isInput());
    EXPECT_TRUE(Cookie('V', 46678, 0, 647).isInput());
    EXPECT_TRUE(Cookie('V', 46685, 0, 647).isInput());
    EXPECT_FALSE(Cookie('V', 46686, 0, 647).isInput());

    EXPECT_EQ(getWipeCookie('V', kWipeForward, 3), Cookie('V', 46659, 0, 647));
    EXPECT_EQ(getWipeCookie('V', kWipeReverse, 3), Cookie('V', 93315, 0, 647));
    EXPECT_EQ(text(getWipeCookie('V', kWipeForward, 1)), "VZ0Z1001");
}

TEST(CookieConvert, KeepsIdentityAndAppliesTheTypeDefault) {
    const Cookie uuid('P', Qv::UUID(kUUIDText), 3);
    const Cookie s = convertCookie(uuid, 'S', 255);
    EXPECT_EQ(s.getType(), 'S');
    EXPECT_EQ(s.getVersion(), 1);
    EXPECT_TRUE(s.isUUID());
    EXPECT_EQ(s.getUUID(), uuid.getUUID());
    EXPECT_EQ(convertCookie(Cookie('P', 9, 0, 5), 'G', 255).getVersion(), 0);
    EXPECT_EQ(convertCookie(Cookie('P', 9, 0, 5), 'G', 4), Cookie('G', 9, 4, 5));
}

// The machine-number lookup, each case in its own product home and working directory.
class MachineNumberTest : public ::testing::Test {
protected:
    void SetUp() override {
        char* cwd = getcwd(nullptr, 0);
        oldCwd_ = cwd;
        std::free(cwd);
        oldHome_ = std::getenv("QUORVANE_HOME");
        cwd_ = oletest::makeTempDir("cwd");
        ASSERT_EQ(chdir(cwd_.c_str()), 0);
        setenv("QUORVANE_HOME", oletest::makeTempDir("home").c_str(), 1);
        GlobalConfig().removeValue(RegistryConfig::kDefaultSection, "machine.num");
        Cookie::resetLocalMachineNumberForTesting();
    }
    void TearDown() override {
        GlobalConfig().removeValue(RegistryConfig::kDefaultSection, "machine.num");
        ASSERT_EQ(chdir(oldCwd_.c_str()), 0);
        setenv("QUORVANE_HOME", oldHome_.c_str(), 1);
        Cookie::resetLocalMachineNumberForTesting();
    }
    static std::string settingsFile() { return narrow(getMachineSettingsDirectory()) + "/machine.num"; }
    static std::string projectsDir() {
        const std::string dir = narrow(getProjectsBaseDirectory());
        OS()->fileSystem()->createDirectory(getProjectsBaseDirectory().c_str());
        return dir;
    }

    std::string oldCwd_, oldHome_, cwd_;
};

TEST_F(MachineNumberTest, FirstUseCreatesARandomNumberThatLaterRunsReuse) {
    oletest::LogCapture log;
    const int number = Cookie::getLocalMachineNumber();
    EXPECT_TRUE(isValidMachineNum(number));
    EXPECT_LT(number, 2700);
    EXPECT_EQ(oletest::readFile(settingsFile()), std::to_string(number) + "\n");
    EXPECT_FALSE(log.contains("WARNING"));

    oletest::writeFile(settingsFile(), "1234");
    EXPECT_EQ(Cookie::getLocalMachineNumber(), number);  // cached for the process
    Cookie::resetLocalMachineNumberForTesting();
    EXPECT_EQ(Cookie::getLocalMachineNumber(), 1234);
    EXPECT_EQ(Cookie('P', 1, 0, 65535).getMachineNumber(), 1234u);
}

TEST_F(MachineNumberTest, SourcesAreTriedInOrder) {
    OS()->fileSystem()->createDirectory(getMachineSettingsDirectory().c_str());
    oletest::writeFile(settingsFile(), "30");
    oletest::writeFile(cwd_ + "/machine.num", "20");
    oletest::writeFile(cwd_ + "/c:\\machine.num", "10 trailing");
    EXPECT_EQ(our_machine_number_get_from_file(), 10);
    unlink((cwd_ + "/c:\\machine.num").c_str());
    EXPECT_EQ(our_machine_number_get_from_file(), 20);
    unlink((cwd_ + "/machine.num").c_str());
    EXPECT_EQ(our_machine_number_get_from_file(), 30);
    ASSERT_TRUE(GlobalConfig().setValue(RegistryConfig::kDefaultSection, "machine.num", 40));
    EXPECT_EQ(our_machine_number_get_from_file(), 40);
}

TEST_F(MachineNumberTest, InvalidNumbersWarnAndFallBackToOne) {
    OS()->fileSystem()->createDirectory(getMachineSettingsDirectory().c_str());
    for (const char* content : {"647", "0", "2704", "-3", "abc", "99999999999"}) {
        oletest::writeFile(settingsFile(), content);
        Cookie::resetLocalMachineNumberForTesting();
        oletest::LogCapture log;
        EXPECT_EQ(Cookie::getLocalMachineNumber(), 1) << content;
        EXPECT_TRUE(log.contains("***  !! WARNING !!  Cannot find valid Machine Number. ***")) << content;
        EXPECT_TRUE(log.contains("***  You are strongly advised to ABORT and get help.  ***")) << content;
    }
    {
        oletest::writeFile(settingsFile(), "647");
        oletest::LogCapture log;
        EXPECT_EQ(our_machine_number_get_from_file(), 0);
        EXPECT_TRUE(log.contains("invalid machine number (647), resetting to default\n"));
    }
    // An invalid configured number stops the search: the files are not consulted.
    oletest::writeFile(settingsFile(), "30");
    ASSERT_TRUE(GlobalConfig().setValue(RegistryConfig::kDefaultSection, "machine.num", 3000));
    oletest::LogCapture log;
    EXPECT_EQ(our_machine_number_get_from_file(), 0);
    EXPECT_TRUE(log.contains("invalid machine number (3000), resetting to default\n"));
    EXPECT_FALSE(log.contains("Cannot find valid Machine Number"));
}

TEST_F(MachineNumberTest, HighestCookieNumberCountsOnlyThisMachinesProjects) {
    OS()->fileSystem()->createDirectory(getMachineSettingsDirectory().c_str());
    oletest::writeFile(settingsFile(), "5");  // code pair 0, B
    const std::string dir = projectsDir();
    {
        oletest::LogCapture log;
        EXPECT_EQ(Cookie::findHighestCookieNum(), 0u);
        EXPECT_TRUE(log.contains("Highest Cookie num found is 0\n"));
    }
    for (const char* name : {"P00B002S.qvp", "P01B0100.QVP", "P00C0ZZZ.qvp", "P00BZZZZ.txt", "E00BZZZZ.qvp",
                             "P00B0ZZZZ.qvp", "P00BZZZZ"})
        oletest::writeFile(dir + "/" + name, "");
    oletest::LogCapture log;
    EXPECT_EQ(Cookie::findHighestCookieNum(), 1296u);
    EXPECT_TRUE(log.contains("Highest Cookie num found is 1296\n"));

    // Code characters that are wildcard syntax still match only themselves.
    oletest::writeFile(settingsFile(), "2015");  // code pair [, ]
    Cookie::resetLocalMachineNumberForTesting();
    oletest::writeFile(dir + "/P[0]0010.qvp", "");
    oletest::writeFile(dir + "/P?0]0020.qvp", "");
    EXPECT_EQ(Cookie::findHighestCookieNum(), 36u);
}
