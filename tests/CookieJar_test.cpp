#include <ole/misc/CookieJar.h>

#include "support/TestHome.h"

#include <platform/OS.h>
#include <platform/RegistryConfig.h>
#include <platform/Strings.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

LightweightString<wchar_t> wide(const std::string& path) {
    return fromUTF8(path.c_str());
}

ino_t inodeOf(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 ? st.st_ino : 0;
}

bool allDigits(const std::string& text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

// A jar on its own counter file in a fresh directory.
class CookieJarTest : public ::testing::Test {
protected:
    void SetUp() override {
        dir_ = oletest::makeTempDir("jar");
        path_ = dir_ + "/cookie.num";
    }
    std::string counter() const { return oletest::readFile(path_); }

    std::string dir_, path_;
};

}  // namespace

TEST_F(CookieJarTest, MissingOrUnusableCounterWarnsAndRestartsAtOne) {
    for (const char* content : {static_cast<const char*>(nullptr), "0", "1679616", "-5", "abc", ""}) {
        if (content) oletest::writeFile(path_, content);
        oletest::LogCapture log;
        CookieJar jar(wide(path_));
        EXPECT_TRUE(log.contains(" WARNING!!! UNABLE TO FIND COOKIE NUMBER FILE\n"))
            << (content ? content : "none");
        EXPECT_TRUE(log.contains(" in the current directory or (" + path_ + ")\n"));
        EXPECT_TRUE(log.contains(" This WILL cause repeat cookies and missing shots.\n"));
        EXPECT_EQ(jar.cookieNum(), 1u);
        jar.flush();
        EXPECT_EQ(counter(), "2");
        ::unlink(path_.c_str());
    }
}

TEST_F(CookieJarTest, NumbersContinueFromTheFileAndWrapAfterTheLargest) {
    oletest::writeFile(path_, "42\n");
    {
        oletest::LogCapture log;
        CookieJar jar(wide(path_));
        EXPECT_FALSE(log.contains("WARNING"));
        const Cookie first = jar.makeCookie('P', Cookie::eSerial, 0);
        EXPECT_EQ(first.getNumber(), 42u);
        EXPECT_EQ(first.getMachineNumber(), unsigned(Cookie::getLocalMachineNumber()));
        EXPECT_EQ(jar.makeCookie('S', Cookie::eSerial, 255).getVersion(), 1);
    }  // flushed when the jar goes
    EXPECT_EQ(counter(), "44");

    oletest::writeFile(path_, "1679615");
    CookieJar jar(wide(path_));
    oletest::LogCapture log;
    EXPECT_EQ(jar.makeCookie('P', Cookie::eSerial, 0).getNumber(), 1679615u);
    EXPECT_TRUE(log.contains("CookieJar::cookieNum() : next Cookie number is too big! ...setting to zero\n"));
    EXPECT_EQ(jar.cookieNum(), 0u);
    EXPECT_EQ(jar.cookieNum(), 1u);
    jar.flush();
    EXPECT_EQ(counter(), "2");
}

TEST_F(CookieJarTest, FlushWritesOnlyWhenSerialNumbersWereTaken) {
    oletest::writeFile(path_, "7");
    CookieJar jar(wide(path_));
    const ino_t original = inodeOf(path_);
    jar.flush();
    const Cookie uuid = jar.makeCookie('P', Cookie::eUUID, 3);
    EXPECT_TRUE(uuid.isUUID());
    EXPECT_EQ(uuid.getVersion(), 3);
    jar.flush();
    EXPECT_EQ(inodeOf(path_), original);  // never rewritten
    EXPECT_EQ(counter(), "7");

    jar.cookieNum();
    jar.flush();
    EXPECT_EQ(counter(), "8");
    const ino_t rewritten = inodeOf(path_);
    EXPECT_NE(rewritten, original);
    jar.flush();
    EXPECT_EQ(inodeOf(path_), rewritten);
}

TEST_F(CookieJarTest, FailedFlushIsReportedAndRetried) {
    const std::string blocked = dir_ + "/blocked";
    oletest::writeFile(blocked, "a file where the directory should be");
    const std::string path = blocked + "/cookie.num";
    CookieJar jar(wide(path));
    jar.cookieNum();
    {
        oletest::LogCapture log;
        jar.flush();
        EXPECT_TRUE(log.contains("WARNING!!! UNABLE TO UPDATE COOKIE NUMBER FILE\n(" + path + ")\n"));
        EXPECT_TRUE(log.contains(" DO SOMETHING NOW!!!\n"));
    }
    ::unlink(blocked.c_str());
    oletest::LogCapture log;
    jar.flush();  // the directory is made and the number written this time
    EXPECT_FALSE(log.contains("WARNING"));
    EXPECT_EQ(oletest::readFile(path), "2");
}

TEST_F(CookieJarTest, ImpossibleArgumentsGiveTheInvalidCookie) {
    oletest::writeFile(path_, "10");
    CookieJar jar(wide(path_));
    EXPECT_FALSE(jar.makeCookie('I', Cookie::eSerial, 0).valid());
    testing::internal::CaptureStdout();
    EXPECT_FALSE(jar.makeCookie('Q', Cookie::eSerial, 0).valid());
    EXPECT_FALSE(jar.makeCookie('S', Cookie::eSerial, 40).valid());
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(out.find("assertion failed makeCookie type and version at ole/misc/CookieJar line "),
              std::string::npos);
    EXPECT_EQ(jar.cookieNum(), 10u);  // nothing consumed
    // A UUID cookie takes the type as it is.
    EXPECT_EQ(jar.makeCookie('Q', Cookie::eUUID, 0).getType(), 'Q');
}

TEST_F(CookieJarTest, StartUpNotesAnAbnormalPreviousExit) {
    oletest::writeFile(path_, "10");
    ASSERT_TRUE(UserConfig().setValue(RegistryConfig::kDefaultSection, "Normal Exit", true));
    {
        oletest::LogCapture log;
        CookieJar jar(wide(path_));
        EXPECT_FALSE(log.contains("previous run exited incorrectly"));
    }
    EXPECT_FALSE(UserConfig().getValue(RegistryConfig::kDefaultSection, "Normal Exit", true));
    oletest::LogCapture log;
    CookieJar jar(wide(path_));
    EXPECT_TRUE(log.contains("previous run exited incorrectly\n"));
}

TEST(CookieJarInstance, NewCookiesComeFromTheProcessJar) {
    CookieJar& jar = CookieJar::instance();
    EXPECT_EQ(jar.counterPath(), CookieJar::getCookieDotNumPath());
    EXPECT_TRUE(Qv::endsWith(CookieJar::getCookieDotNumPath(), L"/Quorvane/Projects/cookie.num"));

    const Cookie a = newContainerCookie();
    const Cookie b = newCookie('P', 0);
    EXPECT_EQ(a.getType(), 'G');
    EXPECT_EQ(a.getVersion(), 0);
    EXPECT_FALSE(a.isUUID());
    EXPECT_EQ(b.getNumber(), a.getNumber() + 1);

    jar.setDefaultCookieVersion(Cookie::eUUID);
    const Cookie u = newCookie('P', 2);
    jar.setDefaultCookieVersion(Cookie::eSerial);
    EXPECT_TRUE(u.isUUID());
    EXPECT_EQ(newCookie('P', 0).getNumber(), b.getNumber() + 1);

    jar.flush();
    EXPECT_EQ(oletest::readFile(toUTF8(CookieJar::getCookieDotNumPath()).c_str()),
              std::to_string(b.getNumber() + 2));
}

// --- the counter across processes ------------------------------------------------------------------------

namespace {

// A running cookie_child with its standard output on a pipe, rooted in `home` and started in `home`.
class Child {
public:
    Child(const std::string& home, std::vector<std::string> args, const std::string& errFile) {
        int fds[2];
        if (::pipe(fds) != 0) return;
        pid_ = ::fork();
        if (pid_ == 0) {
            ::dup2(fds[1], STDOUT_FILENO);
            ::close(fds[0]);
            ::close(fds[1]);
            FILE* err = std::freopen(errFile.c_str(), "w", stderr);
            (void)err;
            ::setenv("QUORVANE_HOME", home.c_str(), 1);
            if (::chdir(home.c_str()) != 0) ::_exit(126);
            std::vector<char*> argv = {const_cast<char*>(OLE_COOKIE_CHILD)};
            for (std::string& a : args) argv.push_back(a.data());
            argv.push_back(nullptr);
            ::execv(OLE_COOKIE_CHILD, argv.data());
            ::_exit(127);
        }
        ::close(fds[1]);
        out_ = ::fdopen(fds[0], "r");
    }
    ~Child() {
        if (pid_ > 0) wait();
        if (out_) std::fclose(out_);
    }

    // The next "<tag> <number>" line; false at the end of the output.
    bool next(char& tag, unsigned& number) { return out_ && std::fscanf(out_, " %c %u", &tag, &number) == 2; }
    void kill() { ::kill(pid_, SIGKILL); }
    int wait() {
        int status = 0;
        ::waitpid(pid_, &status, 0);
        pid_ = -1;
        return status;
    }

private:
    pid_t pid_ = -1;
    FILE* out_ = nullptr;
};

std::vector<unsigned> runChild(const std::string& home, int count, const std::string& errFile) {
    Child child(home, {"run", std::to_string(count)}, errFile);
    std::vector<unsigned> numbers;
    char tag;
    unsigned number;
    while (child.next(tag, number)) numbers.push_back(number);
    EXPECT_EQ(child.wait(), 0);
    return numbers;
}

}  // namespace

TEST(CookieJarProcess, NumberingContinuesAcrossRuns) {
    const std::string home = oletest::makeTempDir("runs");
    const std::string err = home + "/stderr.txt";
    EXPECT_EQ(runChild(home, 3, err), (std::vector<unsigned>{1, 2, 3}));
    EXPECT_NE(oletest::readFile(err).find("UNABLE TO FIND COOKIE NUMBER FILE"), std::string::npos);
    EXPECT_EQ(oletest::readFile(home + "/data/Quorvane/Projects/cookie.num"), "4");  // written at exit

    EXPECT_EQ(runChild(home, 3, err), (std::vector<unsigned>{4, 5, 6}));
    EXPECT_EQ(oletest::readFile(err).find("UNABLE TO FIND"), std::string::npos);
    EXPECT_EQ(oletest::readFile(home + "/data/Quorvane/Projects/cookie.num"), "7");
}

// Kills a child that flushes in a loop at random moments: the counter file must always hold a usable
// number, and no run may hand out a number below one that an earlier run had confirmed as flushed.
TEST(CookieJarProcess, KillDuringFlushNeverLosesOrRepeatsFlushedNumbers) {
    const std::string home = oletest::makeTempDir("kills");
    const std::string counterFile = home + "/data/Quorvane/Projects/cookie.num";
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    std::uniform_int_distribution<int> delayMicros(0, 3000);

    unsigned highestFlushed = 0;  // the largest number handed out before a completed flush, any run
    for (int run = 0; run < 40; ++run) {
        const std::string counterBefore = oletest::readFile(counterFile);
        Child child(home, {"loop"}, home + "/stderr.txt");
        char tag = 0;
        unsigned number = 0;
        ASSERT_TRUE(child.next(tag, number));
        ASSERT_EQ(tag, 'S');
        if (run > 0) {
            EXPECT_EQ(std::to_string(number), counterBefore);  // the run starts at the file's number
            EXPECT_GT(number, highestFlushed) << "run " << run;
        }
        ASSERT_TRUE(child.next(tag, number));
        ASSERT_EQ(tag, 'F');
        highestFlushed = std::max(highestFlushed, number);
        ::usleep(useconds_t(delayMicros(random)));
        child.kill();
        while (child.next(tag, number))  // confirmations that made it out before the kill
            if (tag == 'F') highestFlushed = std::max(highestFlushed, number);
        const int status = child.wait();
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);

        const std::string content = oletest::readFile(counterFile);
        ASSERT_TRUE(allDigits(content)) << "run " << run << ": \"" << content << "\"";
        const unsigned long saved = std::stoul(content);
        EXPECT_GE(saved, 1u);
        EXPECT_LE(saved, 1679615u);
        EXPECT_GT(saved, highestFlushed) << "run " << run;
    }
}
