#include <ole/misc/CookieJar.h>

#include "support/StdoutCapture.h"
#include "support/TestHome.h"

#include <ole/runtime/RegistryConfig.h>
#include <ole/runtime/Strings.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <random>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

struct CookieJarTest : ::testing::Test {
    LightweightString<wchar_t> path() const { return fromUTF8(path_.c_str()); }
    std::string counter() const { return oletest::readFile(path_); }
    const std::string path_ = oletest::makeTempDir("jar") + "/cookie.num";
};

TEST_F(CookieJarTest, UnusableCounterRestartsAtOneOthersContinueAndWrapBadArgumentsTakeNoNumber) {
    for (const char* content : {"", "0", "1679616", "-5", "abc"}) {
        oletest::writeFile(path_, content);
        oletest::LogCapture log;
        CookieJar jar(path());
        EXPECT_TRUE(jar.cookieNum() == 1 && log.contains(" WARNING!!! UNABLE TO FIND COOKIE NUMBER FILE\n") &&
                    log.contains(" in the current directory or (" + path_ + ")\n"));
        jar.flush();
        EXPECT_EQ(counter(), "2");  // digits only
    }

    // Numbers continue from the file, wrap after the largest and are flushed only once taken.
    oletest::writeFile(path_, "42\n");
    {
        CookieJar jar(path());
        const Cookie first = jar.makeCookie('P', Cookie::eSerial, 0);
        EXPECT_TRUE(first.getNumber() == 42 &&
                    first.getMachineNumber() == unsigned(Cookie::getLocalMachineNumber()));
        EXPECT_EQ(jar.makeCookie('S', Cookie::eSerial, 255).getVersion(), 1);
    }  // flushed when the jar goes
    EXPECT_EQ(counter(), "44");

    oletest::writeFile(path_, "1679615");
    CookieJar jar(path());
    oletest::LogCapture log;
    EXPECT_TRUE(jar.makeCookie('P', Cookie::eSerial, 0).getNumber() == 1679615 && jar.cookieNum() == 0);
    EXPECT_TRUE(log.contains("CookieJar::cookieNum() : next Cookie number is too big! ...setting to zero\n"));
    jar.flush();
    EXPECT_EQ(counter(), "1");

    // Flushing writes only after serial numbers were taken.
    oletest::writeFile(path_, "7\n");  // a rewrite would drop the line end
    CookieJar quiet(path());
    EXPECT_TRUE(quiet.makeCookie('P', Cookie::eUUID, 3).isUUID());
    quiet.flush();
    EXPECT_EQ(counter(), "7\n");
    quiet.cookieNum(), quiet.flush();
    EXPECT_EQ(counter(), "8");  // claimed a block, then gave back its unused end

    oletest::writeFile(path_, "10");
    ASSERT_TRUE(UserConfig().setValue(RegistryConfig::kDefaultSection, "Normal Exit", true));
    {
        oletest::LogCapture log;
        CookieJar jar(path());
        EXPECT_FALSE(log.contains("previous run exited incorrectly") ||
                     UserConfig().getValue(RegistryConfig::kDefaultSection, "Normal Exit", true));
    }
    oletest::LogCapture restart;
    CookieJar again(path());
    EXPECT_TRUE(restart.contains("previous run exited incorrectly\n") &&
                !again.makeCookie('I', Cookie::eSerial, 0).valid());
    const std::string out = oletest::stdoutOf([&] {  // 'Q' would never become valid
        EXPECT_FALSE(again.makeCookie('Q', Cookie::eSerial, 0).valid() ||
                     again.makeCookie('S', Cookie::eSerial, 40).valid());
    });
    EXPECT_NE(out.find("assertion failed makeCookie type and version at "), std::string::npos);
    EXPECT_EQ(again.cookieNum(), 10u);  // nothing consumed
}

// Numbers still come from a counter that cannot be kept, but not safely, and what is in its place stays.
TEST_F(CookieJarTest, CounterThatCannotBeKeptIsReportedAndLeftAlone) {
    ASSERT_TRUE(oletest::writeFile(path_, "5") && ::chmod(path_.c_str(), 0444) == 0);
    oletest::LogCapture log;
    {
        CookieJar jar(path());
        EXPECT_TRUE(jar.cookieNum() == 5 && !jar.counterSafe());
        EXPECT_TRUE(log.contains("WARNING!!! UNABLE TO UPDATE COOKIE NUMBER FILE\n(" + path_ + ")\n"));
    }
    EXPECT_EQ(counter(), "5");

    const std::string dir = oletest::makeTempDir("jar-dir") + "/cookie.num";
    ASSERT_EQ(::mkdir(dir.c_str(), 0755), 0);
    CookieJar jar(fromUTF8(dir.c_str()));
    EXPECT_EQ(jar.cookieNum(), 1u);
    jar.flush();
    struct stat st;
    EXPECT_TRUE(!jar.counterSafe() && ::stat(dir.c_str(), &st) == 0 && S_ISDIR(st.st_mode));

    // A failed flush is reported and retried: the directory is made and the number written next time.
    const std::string blocked = path_ + ".d", path = blocked + "/cookie.num";
    oletest::writeFile(blocked, "a file where the directory should be");
    CookieJar retried(fromUTF8(path.c_str()));
    retried.cookieNum(), retried.flush();
    EXPECT_TRUE(log.contains("WARNING!!! UNABLE TO UPDATE COOKIE NUMBER FILE\n(" + path + ")\n"));
    ::unlink(blocked.c_str()), retried.flush();
    EXPECT_EQ(oletest::readFile(path), "2");
}

// Starts cookie_child rooted and working in `home` (so no machine.num there).
FILE* startChild(const std::string& home, const std::string& args) {
    const std::string run = "cd '" + home + "' && QUORVANE_HOME='" + home + "' exec " OLE_COOKIE_CHILD " ";
    return ::popen((run + args + " 2>stderr.txt").c_str(), "r");
}

bool next(FILE* child, char& tag, unsigned& number) {
    return std::fscanf(child, " %c %u", &tag, &number) == 2;
}

std::vector<unsigned> numbersOf(FILE* child, std::vector<unsigned> numbers = {}) {
    char tag;
    for (unsigned number; next(child, tag, number);) numbers.push_back(number);
    EXPECT_EQ(::pclose(child), 0);
    return numbers;
}

TEST(CookieJarProcess, NumbersContinueAcrossRunsAreNeverSharedAndSurviveKillsDuringFlush) {
    const std::string home = oletest::makeTempDir("runs");
    EXPECT_EQ(numbersOf(startChild(home, "run 3")), (std::vector<unsigned>{1, 2, 3}));
    EXPECT_NE(oletest::readFile(home + "/stderr.txt").find("UNABLE TO FIND"), std::string::npos);
    FILE *first = startChild(home, "run 1100"), *second = startChild(home, "run 1100");
    std::vector<unsigned> numbers = numbersOf(second, numbersOf(first));
    EXPECT_EQ(oletest::readFile(home + "/stderr.txt").find("UNABLE TO FIND"), std::string::npos);
    ASSERT_EQ(numbers.size(), 2200u);
    std::sort(numbers.begin(), numbers.end());
    EXPECT_EQ(numbers.front(), 4u) << "the first run flushed its counter at exit";
    EXPECT_EQ(std::adjacent_find(numbers.begin(), numbers.end()), numbers.end()) << "a number given twice";

    // A child flushing in a loop is killed at random moments: the counter must always hold a usable
    // number, and no run may hand out a number at or below one an earlier run had flushed.
    const std::string killed = oletest::makeTempDir("kills"),
                      file = killed + "/data/Quorvane/Projects/cookie.num";
    const unsigned seed = std::random_device()();
    std::mt19937 random(seed);
    unsigned highestFlushed = 0;  // the largest number handed out before a completed flush, any run
    for (int run = 0; run < 40; ++run) {
        const std::string before = oletest::readFile(file);
        FILE* child = startChild(killed, "loop");
        char tag = 0;
        unsigned pid = 0, opening = 0, number = 0;
        ASSERT_TRUE(next(child, tag, pid) && tag == 'I' && next(child, tag, opening) && tag == 'S');
        EXPECT_TRUE(run == 0 || (std::to_string(opening) == before && opening > highestFlushed))
            << "run " << run << " seed " << seed;
        ASSERT_TRUE(next(child, tag, number) && tag == 'F');
        ::usleep(useconds_t(random() % 3000));
        ::kill(pid_t(pid), SIGKILL);
        do  // confirmations that got out before the kill
            highestFlushed = std::max(highestFlushed, number);
        while (next(child, tag, number));
        ::pclose(child);

        const std::string content = oletest::readFile(file);
        ASSERT_TRUE(!content.empty() && content.find_first_not_of("0123456789") == content.npos) << content;
        EXPECT_TRUE(std::stoul(content) > highestFlushed && std::stoul(content) <= 1679615u) << "run " << run;
    }
}

}  // namespace
