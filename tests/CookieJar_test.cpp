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

ino_t inodeOf(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 ? st.st_ino : 0;
}

// A jar on its own counter file in a fresh directory.
class CookieJarTest : public ::testing::Test {
protected:
    void SetUp() override { path_ = oletest::makeTempDir("jar") + "/cookie.num"; }
    LightweightString<wchar_t> path() const { return fromUTF8(path_.c_str()); }
    std::string counter() const { return oletest::readFile(path_); }

    std::string path_;
};

}  // namespace

TEST_F(CookieJarTest, UnusableCounterWarnsAndRestartsAtOne) {
    for (const char* content : {"", "0", "1679616", "-5", "abc"}) {
        oletest::writeFile(path_, content);
        oletest::LogCapture log;
        CookieJar jar(path());
        EXPECT_TRUE(log.contains(" WARNING!!! UNABLE TO FIND COOKIE NUMBER FILE\n")) << content;
        EXPECT_TRUE(log.contains(" in the current directory or (" + path_ + ")\n"));
        EXPECT_EQ(jar.cookieNum(), 1u);
        jar.flush();
        EXPECT_EQ(counter(), "2");  // digits only
    }
}

TEST_F(CookieJarTest, NumbersContinueFromTheFileAndWrapAfterTheLargest) {
    oletest::writeFile(path_, "42\n");
    {
        CookieJar jar(path());
        const Cookie first = jar.makeCookie('P', Cookie::eSerial, 0);
        EXPECT_EQ(first.getNumber(), 42u);
        EXPECT_EQ(first.getMachineNumber(), unsigned(Cookie::getLocalMachineNumber()));
        EXPECT_EQ(jar.makeCookie('S', Cookie::eSerial, 255).getVersion(), 1);
    }  // flushed when the jar goes
    EXPECT_EQ(counter(), "44");

    oletest::writeFile(path_, "1679615");
    CookieJar jar(path());
    oletest::LogCapture log;
    EXPECT_EQ(jar.makeCookie('P', Cookie::eSerial, 0).getNumber(), 1679615u);
    EXPECT_TRUE(log.contains("CookieJar::cookieNum() : next Cookie number is too big! ...setting to zero\n"));
    EXPECT_EQ(jar.cookieNum(), 0u);
    jar.flush();
    EXPECT_EQ(counter(), "1");
}

TEST_F(CookieJarTest, FlushWritesOnlyAfterSerialNumbersWereTaken) {
    oletest::writeFile(path_, "7");
    CookieJar jar(path());
    const ino_t original = inodeOf(path_);
    jar.flush();
    EXPECT_TRUE(jar.makeCookie('P', Cookie::eUUID, 3).isUUID());
    jar.flush();
    EXPECT_EQ(inodeOf(path_), original);  // never rewritten
    jar.cookieNum();
    jar.flush();
    EXPECT_EQ(counter(), "8");  // claimed a block, then gave back its unused end
}

TEST_F(CookieJarTest, FailedFlushIsReportedAndRetried) {
    const std::string blocked = path_ + ".d";
    oletest::writeFile(blocked, "a file where the directory should be");
    const std::string path = blocked + "/cookie.num";
    CookieJar jar(fromUTF8(path.c_str()));
    jar.cookieNum();
    {
        oletest::LogCapture log;
        jar.flush();
        EXPECT_TRUE(log.contains("WARNING!!! UNABLE TO UPDATE COOKIE NUMBER FILE\n(" + path + ")\n"));
    }
    ::unlink(blocked.c_str());
    jar.flush();  // the directory is made and the number written this time
    EXPECT_EQ(oletest::readFile(path), "2");
}

TEST_F(CookieJarTest, StartUpAndImpossibleArguments) {
    oletest::writeFile(path_, "10");
    ASSERT_TRUE(UserConfig().setValue(RegistryConfig::kDefaultSection, "Normal Exit", true));
    {
        oletest::LogCapture log;
        CookieJar jar(path());
        EXPECT_FALSE(log.contains("previous run exited incorrectly"));
        EXPECT_FALSE(UserConfig().getValue(RegistryConfig::kDefaultSection, "Normal Exit", true));
    }
    oletest::LogCapture log;
    CookieJar jar(path());
    EXPECT_TRUE(log.contains("previous run exited incorrectly\n"));

    EXPECT_FALSE(jar.makeCookie('I', Cookie::eSerial, 0).valid());
    const std::string out = oletest::stdoutOf([&] {
        EXPECT_FALSE(jar.makeCookie('Q', Cookie::eSerial, 0).valid());  // would never become valid
        EXPECT_FALSE(jar.makeCookie('S', Cookie::eSerial, 40).valid());
    });
    EXPECT_NE(out.find("assertion failed makeCookie type and version at "), std::string::npos);
    EXPECT_EQ(jar.cookieNum(), 10u);  // nothing consumed
}

// --- the process jar across processes --------------------------------------------------------------------

namespace {

// Starts cookie_child rooted in `home`, in `home` as its working directory (so no machine.num there).
FILE* startChild(const std::string& home, const std::string& args) {
    return ::popen(("cd '" + home + "' && QUORVANE_HOME='" + home + "' exec " OLE_COOKIE_CHILD " " + args +
                    " 2>stderr.txt")
                       .c_str(),
                   "r");
}

// The next "<tag> <number>" line of the child; false at the end of its output.
bool next(FILE* child, char& tag, unsigned& number) {
    return std::fscanf(child, " %c %u", &tag, &number) == 2;
}

std::vector<unsigned> runChild(const std::string& home, int count) {
    FILE* child = startChild(home, "run " + std::to_string(count));
    std::vector<unsigned> numbers;
    char tag;
    unsigned number;
    while (next(child, tag, number)) numbers.push_back(number);
    EXPECT_EQ(::pclose(child), 0);
    return numbers;
}

}  // namespace

TEST(CookieJarProcess, NumberingContinuesAcrossRuns) {
    const std::string home = oletest::makeTempDir("runs");
    EXPECT_EQ(runChild(home, 3), (std::vector<unsigned>{1, 2, 3}));
    EXPECT_NE(oletest::readFile(home + "/stderr.txt").find("UNABLE TO FIND COOKIE NUMBER FILE"),
              std::string::npos);
    EXPECT_EQ(runChild(home, 3), (std::vector<unsigned>{4, 5, 6}));  // the jar flushed at exit
    EXPECT_EQ(oletest::readFile(home + "/stderr.txt").find("UNABLE TO FIND"), std::string::npos);
}

// Kills a child that flushes in a loop at random moments: the counter file must always hold a usable
// number, and no run may hand out a number at or below one an earlier run had flushed.
TEST(CookieJarProcess, KillDuringFlushNeverLeavesABadCounter) {
    const std::string home = oletest::makeTempDir("kills");
    const std::string counterFile = home + "/data/Quorvane/Projects/cookie.num";
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    std::uniform_int_distribution<int> delayMicros(0, 3000);

    unsigned highestFlushed = 0;  // the largest number handed out before a completed flush, any run
    for (int run = 0; run < 40; ++run) {
        const std::string before = oletest::readFile(counterFile);
        FILE* child = startChild(home, "loop");
        char tag = 0;
        unsigned pid = 0, first = 0, number = 0;
        ASSERT_TRUE(next(child, tag, pid) && tag == 'I' && next(child, tag, first) && tag == 'S');
        if (run > 0) {
            EXPECT_EQ(std::to_string(first), before);  // each run starts at the file's number
            EXPECT_GT(first, highestFlushed) << "run " << run;
        }
        ASSERT_TRUE(next(child, tag, number) && tag == 'F');
        ::usleep(useconds_t(delayMicros(random)));
        ::kill(pid_t(pid), SIGKILL);
        do  // confirmations that got out before the kill
            highestFlushed = std::max(highestFlushed, number);
        while (next(child, tag, number));
        ::pclose(child);

        const std::string content = oletest::readFile(counterFile);
        ASSERT_TRUE(!content.empty() && content.find_first_not_of("0123456789") == std::string::npos)
            << "run " << run << ": \"" << content << "\"";
        EXPECT_GT(std::stoul(content), highestFlushed) << "run " << run;
        EXPECT_LE(std::stoul(content), 1679615u);
    }
}

// A counter that cannot be kept: the numbers still come (with the banner) but the jar says they are not
// safe, and what stands in the file's place is left as it is.
TEST_F(CookieJarTest, CounterThatCannotBeKeptIsReportedAndLeftAlone) {
    ASSERT_TRUE(oletest::writeFile(path_, "5"));
    ASSERT_EQ(::chmod(path_.c_str(), 0444), 0);
    {
        CookieJar jar(path());
        oletest::LogCapture log;
        EXPECT_EQ(jar.cookieNum(), 5u);
        EXPECT_FALSE(jar.counterSafe());
        EXPECT_TRUE(log.contains("WARNING!!! UNABLE TO UPDATE COOKIE NUMBER FILE\n(" + path_ + ")\n"));
    }
    EXPECT_EQ(counter(), "5");

    const std::string dir = oletest::makeTempDir("jar-dir") + "/cookie.num";
    ASSERT_EQ(::mkdir(dir.c_str(), 0755), 0);
    CookieJar jar(fromUTF8(dir.c_str()));
    EXPECT_EQ(jar.cookieNum(), 1u);
    jar.flush();
    EXPECT_FALSE(jar.counterSafe());
    struct stat st;
    EXPECT_TRUE(::stat(dir.c_str(), &st) == 0 && S_ISDIR(st.st_mode));
}

TEST(CookieJarProcess, TwoProcessesAtOnceNeverShareANumber) {
    const std::string home = oletest::makeTempDir("pair");
    FILE* children[] = {startChild(home, "run 1100"), startChild(home, "run 1100")};
    std::vector<unsigned> numbers;
    for (FILE* child : children) {
        char tag;
        unsigned number;
        while (next(child, tag, number)) numbers.push_back(number);
        EXPECT_EQ(::pclose(child), 0);
    }
    ASSERT_EQ(numbers.size(), 2200u);
    std::sort(numbers.begin(), numbers.end());
    EXPECT_EQ(std::adjacent_find(numbers.begin(), numbers.end()), numbers.end()) << "a number given twice";
}
