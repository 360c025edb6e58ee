#include <ole/misc/Cookie.h>

#include "support/TestHome.h"

#include <ole/platform/Exception.h>
#include <ole/platform/OS.h>
#include <ole/runtime/Paths.h>
#include <ole/runtime/RegistryConfig.h>
#include <ole/runtime/Strings.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <tuple>
#include <set>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

constexpr Cookie kVideoBlack('V', 1, 0, 647);
static_assert(kVideoBlack.valid() && kVideoBlack.getMachineNumber() == 647 && !invalid_cookie.valid());

const char kUUIDText[] = "6BA7B810-9DAD-11D1-80B4-00C04FD430C8";

const auto text = [](const Cookie& c, bool full = true) -> std::string { return c.asString(full).c_str(); };
const auto narrow = [](const LightweightString<wchar_t>& w) -> std::string { return toUTF8(w).c_str(); };

template <class F>
void expectRuntimeError(F f, const char* message, int line) {
    try {
        f();
        ADD_FAILURE() << "no exception: " << message;
    } catch (const Qv::Exception::RuntimeError& e) {
        EXPECT_EQ(e.message(), message);
        EXPECT_STREQ(e.file(), "ole/misc/Cookie");
        EXPECT_EQ(e.line(), line);
    }
}

}  // namespace

TEST(CookieCodes, EveryMachineNumberHasItsOwnCodeAndPair) {
    std::set<std::pair<char, char>> pairs;
    for (int m = 0; m <= 2703; ++m) {
        const unsigned code = Cookie::encodeMachineNumber(m);
        ASSERT_EQ(Cookie::decodeMachineNumber(code), m);
        const std::pair<char, char> pair = *pairs.insert(Cookie::get2DigitBase52Map36Code(code)).first;
        ASSERT_EQ(Cookie::base52Map36ToInt(pair.first, pair.second), code) << m;
        const Cookie cookie('E', m * 613 % 1679616, 7, m);  // and the whole text form
        ASSERT_EQ(Cookie(cookie.asString(true).c_str(), true), cookie);
    }
    EXPECT_EQ(pairs.size(), 2704u);
    EXPECT_TRUE(Cookie::encodeMachineNumber(2704) == 0xFFFFFFFFu &&
                Cookie::decodeMachineNumber(2704) == 65535 && Cookie::base52Map36ToInt('z', 'z') == 1295u);
    expectRuntimeError([] { Cookie::get2DigitBase52Map36Code(2704); },
                       "Number out of range in get2DigitBase52Map36Code!", 965);
    for (const char* bad : {"0*", "*0", "0 ", "\2000"})  // "\200": a byte above 127
        expectRuntimeError([bad] { Cookie::base52Map36ToInt(bad[0], bad[1]); },
                           "Invalid character(s) passed to base52Map36ToInt", 979);
}

TEST(CookieText, ShortFormBothWaysAtEveryCodeRangeBoundary) {
    const std::pair<int, const char*> cases[] = {{647, "PZ0Z002S"},  {648, "P000002S"},  {0, "P001002S"},
                                                 {1296, "P00(002S"}, {1871, "PZ0~002S"}, {1872, "P(00002S"},
                                                 {2703, "P~0~002S"}};
    for (const auto& [machine, form] : cases) {
        const Cookie cookie('P', 100, 0, machine);
        EXPECT_EQ(text(cookie) + narrow(cookie.asWString()), std::string(form) + form) << machine;
        EXPECT_TRUE(Cookie(form, true) == cookie && Cookie(Qv::widen(form), true) == cookie) << form;
    }
    EXPECT_EQ(text(Cookie('P', 1679615, 0, 5)), "P00BZZZZ");
    for (const Cookie& bad : {Cookie('P', 100, 0, 2704), Cookie('P', 100, 0, -1), Cookie('P', 1679616, 0, 5),
                              Cookie('A', 1, 0, 5), Cookie('S', 1, 36, 5)})
        EXPECT_FALSE(bad.valid()) << text(bad);

    Cookie unprintable;  // a machine number past the codes leaves its code positions blank
    unprintable.construct('P', 100, 0, 2704);
    oletest::LogCapture log;
    EXPECT_TRUE(text(unprintable) == "P 0 002S" &&
                log.contains("Failed to encode machine number in cookie_string::construct"));
}

TEST(CookieText, VersionsAndTheUUIDForm) {
    EXPECT_EQ(text(Cookie('O', 7, 3, 5), false) + text(Cookie('O', 7, 3, 5), true), "O00B0007O03B0007");
    EXPECT_EQ(text(Cookie('S', 7, 12, 5), false), "S0CB0007");  // type S always shows its version
    EXPECT_TRUE(Cookie("S0CB0007", false).getVersion() == 1 && text(Cookie()) == "INVALID");
    EXPECT_FALSE(Cookie("INVALID", true).valid() || Cookie("P00B002S ", true).valid());

    const Qv::UUID id(kUUIDText);
    const std::string full = std::string("P07-") + kUUIDText;
    EXPECT_EQ(text(Cookie('P', id, 7), false), std::string("P00-") + kUUIDText);
    EXPECT_EQ(text(Cookie('P', id, 7)) + narrow(Cookie('P', id, 7).asWString()), full + full);
    EXPECT_TRUE(Cookie(full.c_str(), true) == Cookie('P', id, 7) && Cookie(full.c_str(), true).isUUID());
    EXPECT_EQ(Cookie((std::string("S07-") + kUUIDText).c_str(), false).getVersion(), 0);  // not S's default
    EXPECT_EQ(Cookie(Qv::widen(full.c_str()), true), Cookie('P', id, 7));
    EXPECT_EQ(Cookie(Qv::widen(("p" + full.substr(1)).c_str()), true).getType(), 'p');  // wide: as it stands
    EXPECT_EQ(Cookie(("p" + full.substr(1)).c_str(), true).getType(), 'P');
    EXPECT_FALSE(Cookie("P07-00000000-0000-0000-0000-000000000000", true).valid());
    // A three-digit version takes the place of the "-": the UUID starts at position 4 regardless.
    const std::string long200 = std::string("P200") + kUUIDText;
    EXPECT_EQ(text(Cookie('P', id, 200)) + narrow(Cookie('P', id, 200).asWString()), long200 + long200);
}

TEST(CookieText, IsValidAndParsingDisagreeWhereDesigned) {
    const std::string uuid = std::string("P07-") + kUUIDText;
    const auto withG = [&uuid](std::size_t i) { return uuid.substr(0, i) + 'G' + uuid.substr(i + 1); };
    const std::string gap19 = withG(19), noDash = uuid.substr(0, 3) + 'x' + uuid.substr(4);
    using C = std::tuple<std::string, bool, const char*>;  // text, well formed, refusal (null: it reads)
    for (const auto& [form, wellFormed, refusal] :
         {C{"P00B002S", true, nullptr}, C{"p00B002S", false, nullptr}, C{"P00b002S", false, nullptr},
          C{"B00B002S", false, nullptr}, C{"P00B00.S", false, nullptr}, C{"P0.B002S", false, nullptr},
          C{"P(0B002S", true, nullptr}, C{noDash, false, nullptr}, C{gap19, true, "no UUID"},
          C{"P00*002S", false, "machine code"}, C{"A00B002S", false, "start with a type"},
          C{"A" + uuid.substr(1), true, "start with a type"}, C{"P 0B002S", false, "machine code"},
          C{"P00B002", false, "8 or 40 characters"}, C{"P7A" + uuid.substr(3), false, nullptr},
          C{"G00-1D153E8D-61E0-4AB7-A921-7729CD364C42", true, nullptr}}) {
        EXPECT_EQ(Cookie::isValid(form.c_str()), wellFormed) << form;
        const Parsed<Cookie> read = Cookie::parse(form.c_str());
        EXPECT_TRUE(read.value == Cookie(form.c_str(), true) && read.value.valid() == !refusal) << form;
        EXPECT_TRUE(refusal ? !read.ok() && read.refusal.find(refusal) != std::string::npos : read.ok())
            << form << ": " << read.refusal;
        EXPECT_EQ(Cookie::parseWellFormed(form.c_str()).ok(), wellFormed && !refusal) << form;
    }
    EXPECT_EQ(Cookie("P00B00.S", true).getNumber(), 28u);  // punctuation counts as the digit 0
    for (std::size_t i = 4; i < uuid.size(); ++i)  // every hexadecimal position of the UUID form but 19
        EXPECT_TRUE(uuid[i] == '-' || i == 19 || !Cookie::isValid(withG(i).c_str())) << i;
}

TEST(CookieCompare, TypesDescendVersionsAscendIdentitiesDescend) {
    const Cookie v1('V', 1, 0, 5), p1('P', 1, 0, 5), p256('P', 256, 0, 5), p1v2('P', 1, 2, 5),
        b1('B', 1, 0, 5);
    EXPECT_GT(b1.compare(p1), 0);
    const std::set<Cookie> sorted = {b1, p1v2, p256, v1, p1, Cookie('P', 1, 0, 5)};
    // Identities compare as bytes: serial 1 (01 00 ...) sorts before serial 256 (00 01 ...).
    EXPECT_EQ(std::vector<Cookie>(sorted.begin(), sorted.end()),
              (std::vector<Cookie>{v1, p1, p256, p1v2, b1}));
    Qv::UUID sameBytes;
    const uint32_t words[2] = {1, 5};
    std::memcpy(sameBytes.bytes(), words, sizeof words);
    EXPECT_EQ(Cookie('P', sameBytes, 0), p1);  // the form takes no part
}

TEST(CookieEffects, BuiltInRangesNeedTheBuiltInMachine) {
    const auto wipe = [](int number, int machine) { return Cookie('V', number, 0, machine).isWipe(); };
    for (int first : {46657, 47953, 93313, 94609}) {
        EXPECT_TRUE(!wipe(first - 1, 647) && !wipe(first + 20, 647) && wipe(first + 19, 647) &&
                    !wipe(first, 5))
            << first;
        EXPECT_EQ(Cookie('V', first + 19, 0, 5).wipeType(), 20);  // no machine test
        EXPECT_EQ(Cookie('V', first, 0, 647).wipeDirection(), first > 90000 ? 1 : 0);
    }
    EXPECT_TRUE(Cookie('V', 1298, 0, 647).isDissolve() && !Cookie('V', 1298, 0, 647).isFilmDissolve());
    EXPECT_TRUE(Cookie('V', 46677, 0, 647).isEffectGraph() && Cookie('V', 46685, 0, 647).isInput());
    EXPECT_TRUE(text(getWipeCookie('V', kWipeForward, 1)) == "VZ0Z1001" &&
                getWipeCookie('V', kWipeReverse, 3).getNumber() == 93315u);
    EXPECT_EQ(convertCookie(Cookie('P', 9, 0, 5), 'S', 255), Cookie('S', 9, 1, 5));
}

// The machine-number lookup, each case in its own product home and working directory.
class MachineNumberTest : public ::testing::Test {
protected:
    void SetUp() override {
        char cwd[4096];
        oldCwd_ = getcwd(cwd, sizeof cwd), oldHome_ = std::getenv("QUORVANE_HOME");
        ASSERT_EQ(chdir((cwd_ = oletest::makeTempDir("cwd")).c_str()), 0);
        setenv("QUORVANE_HOME", oletest::makeTempDir("home").c_str(), 1);
        GlobalConfig().removeValue(RegistryConfig::kDefaultSection, "machine.num");
        Cookie::resetLocalMachineNumberForTesting();
        settingsFile_ = narrow(getMachineSettingsDirectory()) + "/machine.num";
    }
    void TearDown() override {
        GlobalConfig().removeValue(RegistryConfig::kDefaultSection, "machine.num");
        setenv("QUORVANE_HOME", oldHome_.c_str(), 1), Cookie::resetLocalMachineNumberForTesting();
        ASSERT_EQ(chdir(oldCwd_.c_str()), 0);
    }
    void writeSettingsFile(const char* content) {
        OS()->fileSystem()->createDirectory(getMachineSettingsDirectory().c_str());
        oletest::writeFile(settingsFile_, content), Cookie::resetLocalMachineNumberForTesting();
    }
    std::string oldCwd_, oldHome_, cwd_, settingsFile_;
};

TEST_F(MachineNumberTest, SourcesAreTriedInOrder) {
    writeSettingsFile("30"), oletest::writeFile(cwd_ + "/machine.num", "20");
    oletest::writeFile(cwd_ + "/c:\\machine.num", "10 trailing");
    const std::pair<int, const char*> sources[] = {{10, "c:\\machine.num"}, {20, "machine.num"}, {30, ""}};
    for (const auto& [number, file] : sources) {  // each file in turn is found, then removed
        EXPECT_EQ(our_machine_number_get_from_file(), number);
        unlink((cwd_ + "/" + file).c_str());
    }
    ASSERT_TRUE(GlobalConfig().setValue(RegistryConfig::kDefaultSection, "machine.num", 40));
    EXPECT_EQ(our_machine_number_get_from_file(), 40);
}

TEST_F(MachineNumberTest, InvalidNumbersWarnAndFallBackToOne) {
    for (const char* content : {"647", "0", "2704", "-3", "abc", "99999999999"}) {
        writeSettingsFile(content);
        oletest::LogCapture log;
        EXPECT_EQ(Cookie::getLocalMachineNumber(), 1) << content;
        EXPECT_TRUE(log.contains("***  !! WARNING !!  Cannot find valid Machine Number. ***")) << content;
        EXPECT_EQ(log.contains("invalid machine number (647), resetting to default\n"), content[0] == '6');
    }
    // An invalid configured number ends the search without the files.
    ASSERT_TRUE(GlobalConfig().setValue(RegistryConfig::kDefaultSection, "machine.num", 3000));
    oletest::LogCapture log;
    EXPECT_EQ(our_machine_number_get_from_file(), 0);
    EXPECT_TRUE(log.contains("invalid machine number (3000), resetting to default\n") &&
                !log.contains("Cannot find valid Machine Number"));
}

TEST_F(MachineNumberTest, HighestCookieNumberOfThisMachine) {
    writeSettingsFile("2015");  // code pair "[" "]", which are wildcard syntax
    OS()->fileSystem()->createDirectory(getProjectsBaseDirectory().c_str());
    for (const char* name :
         {"P[0]002S.qvp", "P[1]0100.QVP", "P?0]ZZZZ.qvp", "P[0]ZZZZ.txt", "E[0]ZZZZ.qvp", "P[0]ZZZZ"})
        oletest::writeFile(narrow(getProjectsBaseDirectory()) + "/" + name, "");
    oletest::LogCapture log;
    EXPECT_TRUE(Cookie::findHighestCookieNum() == 1296u &&
                log.contains("Highest Cookie num found is 1296\n"));
}

// Several first runs at once agree on one stored, cached random number; callers can tell a fallback.
TEST_F(MachineNumberTest, FirstRunsAtOnceAgreeAndFallbackIsVisible) {
    EXPECT_TRUE(oletest::inChildProcesses(4, [&](int c) {
        return oletest::writeFile(cwd_ + "/child" + std::to_string(c),
                                  std::to_string(Cookie::getLocalMachineNumber()));
    }));
    const std::string chosen = oletest::readFile(settingsFile_);
    for (int c = 0; c < 4; ++c)
        EXPECT_EQ(oletest::readFile(cwd_ + "/child" + std::to_string(c)) + "\n", chosen);
    const int number = Cookie::getLocalMachineNumber();
    EXPECT_TRUE(isValidMachineNum(number) && number < 2700 && std::to_string(number) + "\n" == chosen);
    oletest::writeFile(settingsFile_, "1234");
    EXPECT_EQ(Cookie::getLocalMachineNumber(), number);  // cached for the process
    Cookie::resetLocalMachineNumberForTesting();
    EXPECT_TRUE(Cookie('P', 1, 0, 65535).getMachineNumber() == 1234u && Cookie::hasLocalMachineNumber());
    writeSettingsFile("99999");
    oletest::LogCapture log;
    EXPECT_TRUE(!Cookie::hasLocalMachineNumber() && Cookie::getLocalMachineNumber() == 1);
}
