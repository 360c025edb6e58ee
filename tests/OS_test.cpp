#include <ole/platform/OS.h>

#include "support/TestHome.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <random>
#include <ctime>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <sys/stat.h>
#include <malloc.h>
#include <unistd.h>

namespace {

using S = Qv::FileStatus;

const Qv::FileSystem& fs = *OS()->fileSystem();

struct W : std::wstring {  // a path in the wide form the layer takes, alive for the full expression
    W(const std::string& s) : std::wstring(s.begin(), s.end()) {}
    operator const wchar_t*() const { return c_str(); }
};

std::string readRest(const Qv::OSFile& file) {
    char buffer[4];  // small, so that each read continues where the last stopped
    const long n = file.read(buffer, sizeof buffer);
    return n > 0 ? std::string(buffer, std::size_t(n)) + readRest(file) : "";
}

// Freed small blocks wait for the next request of their size: whatever comes back must hold the request.
TEST(Allocator, ABlockHandedOutAlwaysHoldsTheRequest) {
    const Qv::Allocator& heap = *OS()->allocator();
    std::vector<std::pair<void*, std::size_t>> held;
    std::mt19937 random(3);
    int tooSmall = 0;
    for (int step = 0; step < 20000; ++step) {
        if (held.size() < 64 || random() % 2) {
            const std::size_t n = random() % 300;
            void* block = heap.allocate(n);
            tooSmall += malloc_usable_size(block) < n;
            std::memset(block, 0xA5, n);
            held.emplace_back(block, n);
        } else {
            std::swap(held[random() % held.size()], held.back());
            heap.free(held.back().first);
            held.pop_back();
        }
    }
    for (const auto& block : held) heap.free(block.first);
    EXPECT_EQ(tooSmall, 0);
}

TEST(FileSystem, OpenReadWriteSeekInEveryMode) {
    const std::string path = oletest::makeTempDir("file") + "/data.bin";
    EXPECT_TRUE(fs.open(W(path), Qv::OSFile::Write).write("hello world", 11));
    Qv::OSFile in = fs.open(W(path), Qv::OSFile::Read);
    EXPECT_TRUE(in.size() == 11 && in.seek(6) && readRest(in) == "world");
    char five[5];
    EXPECT_TRUE(in.read(five, 5) == 0 && !in.write("x", 1)) << "at the end, and opened for reading only";
    Qv::OSFile moved(std::move(in));
    EXPECT_TRUE(!in.isOpen() && moved.seek(0) && moved.sync() && readRest(moved) == "hello world");

    Qv::OSFile rw = fs.open(W(path), Qv::OSFile::ReadWrite);
    EXPECT_TRUE(rw.seek(2) && rw.write("XY", 2) && fs.open(W(path), Qv::OSFile::Append).write("!", 1));
    EXPECT_EQ(oletest::readFile(path), "heXYo world!");
    EXPECT_TRUE(fs.open(W(path), Qv::OSFile::Write).write("new", 3) && oletest::readFile(path) == "new");

    Qv::OSFile none = fs.open(W(path + ".missing"), Qv::OSFile::Read);
    EXPECT_TRUE(!none.isOpen() && none.read(five, 1) == -1 && none.size() == -1 && !none.write("x", 1));
    EXPECT_FALSE(fs.open(W(path + "/below/a/file"), Qv::OSFile::Write).isOpen());

    const int savedInput = dup(0);  // descriptor 0 is a file like any other once standard input is closed
    ASSERT_EQ(close(0), 0);
    const bool onZero = fs.open(W(path), Qv::OSFile::ReadWrite).sync();  // lands on 0, closed again at once
    EXPECT_TRUE(dup2(savedInput, 0) == 0 && close(savedInput) == 0 && onZero);
}

TEST(FileSystem, DirectoriesRenameAndRemove) {
    const std::string root = oletest::makeTempDir("dirs"), file = root + "/a/f", moved = root + "/a/b/m";
    EXPECT_TRUE(fs.createDirectory(W(root + "/a/b/c")) && fs.isDirectory(W(root + "/a/b/c")) &&
                fs.createDirectory(W(root + "/a/b/c")));  // already there: fine
    char cwd[4096];  // a relative path, from a one-letter first component
    ASSERT_TRUE(getcwd(cwd, sizeof cwd) && chdir(root.c_str()) == 0);
    EXPECT_TRUE(fs.createDirectory(L"r/s") && fs.isDirectory(W(root + "/r/s")));
    EXPECT_EQ(chdir(cwd), 0);

    ASSERT_TRUE(oletest::writeFile(file, "content"));
    EXPECT_FALSE(fs.isDirectory(W(file)) || fs.createDirectory(W(file)) ||
                 fs.createDirectory(W(file + "/s")));
    EXPECT_TRUE(fs.rename(W(file), W(moved)) && !fs.exists(W(file)) && oletest::readFile(moved) == "content");
    EXPECT_TRUE(fs.remove(W(moved)) && !fs.exists(W(moved)) && !fs.remove(W(moved)) &&
                !fs.rename(W(moved), W(file)));
    EXPECT_TRUE(!fs.remove(W(root + "/a/b")) && fs.remove(W(root + "/a/b/c")) &&
                !fs.exists(W(root + "/a/b/c")));
}

TEST(FileSystem, WriteAtomicallyReplacesContentAndLeavesNoTemporaries) {
    const std::string dir = oletest::makeTempDir("atomic"), path = dir + "/settings.cfg";
    EXPECT_TRUE(fs.writeAtomically(W(path), "first version, longer", 21) &&
                fs.writeAtomically(W(path), "second", 6) && oletest::readFile(path) == "second");
    EXPECT_FALSE(fs.writeAtomically(W(dir + "/absent/x.cfg"), "x", 1));
    EXPECT_TRUE(fs.createDirectory(W(dir + "/taken/inner")) &&  // a directory in the way
                !fs.writeAtomically(W(dir + "/taken"), "x", 1));

    std::vector<std::thread> pool;  // concurrent writers each leave one whole version
    for (int t = 0; t < 20; ++t)
        pool.emplace_back([&, t] { fs.writeAtomically(W(path), std::string(1000, 'a' + t).data(), 1000); });
    for (auto& writer : pool) writer.join();
    const std::string last = oletest::readFile(path);
    EXPECT_TRUE(last.size() == 1000 && last == std::string(1000, last[0])) << last.size();
    EXPECT_EQ(oletest::listDirectory(dir), (std::vector<std::string>{"settings.cfg", "taken"}));
}

TEST(OperatingSystem, RegistrySpecialDirectoriesAndClock) {
    char b[64] = "untouched";
    EXPECT_FALSE(OS()->registry()->getString("SOFTWARE\\Quorvane", "InstallDir", "64", b, sizeof b));
    const std::wstring home = W(std::getenv("QUORVANE_HOME"));
    std::vector<std::wstring> seen;
    wchar_t dir[1024], small[4];
    for (int which : {Qv::kUserDataBase, Qv::kConfigBase, Qv::kMachineSettingsBase, Qv::kHomeBase}) {
        ASSERT_TRUE(OS()->specialDirectory(which, dir, 1024)) << which;
        EXPECT_EQ(std::wstring(dir).compare(0, home.size(), home), 0) << which;
        seen.emplace_back(dir);
    }
    EXPECT_TRUE(seen[0] != seen[1] && seen[1] != seen[2] && seen[0] != seen[2]);
    EXPECT_FALSE(OS()->specialDirectory(99, small, 4));

    const uint64_t t0 = OS()->clock()->monotonicNanoseconds();
    EXPECT_NEAR(OS()->clock()->now(), double(std::time(nullptr)), 60.0);
    EXPECT_NEAR(double(OS()->clock()->secondsSinceEpoch()), OS()->clock()->now(), 60.0);
    EXPECT_TRUE(t0 <= OS()->clock()->monotonicNanoseconds() && OS()->threads()->processorCount() >= 1);
    uint64_t otherId = 0;
    std::thread([&] { otherId = OS()->threads()->currentThreadId(); }).join();
    EXPECT_NE(otherId, OS()->threads()->currentThreadId());
}

TEST(FileSystem, ReplaceKeepsOwnerModeAndLinksAndRefusesReadOnlyFiles) {
    const std::string dir = oletest::makeTempDir("keep"), file = dir + "/private.cfg";
    ASSERT_TRUE(oletest::writeFile(file, "old") && ::chmod(file.c_str(), 0600) == 0);
    const bool root = ::geteuid() == 0;
    ASSERT_TRUE(!root || ::chown(file.c_str(), 65534, 65534) == 0);  // another user's file
    struct stat st;
    EXPECT_TRUE(fs.replaceFile(W(file), "new", 3) == S::kOk && ::stat(file.c_str(), &st) == 0 &&
                (st.st_mode & 07777) == 0600u && (!root || (st.st_uid == 65534 && st.st_gid == 65534)));

    ASSERT_EQ(::chmod(file.c_str(), 0444), 0);
    EXPECT_TRUE(fs.replaceFile(W(file), "x", 1) == S::kReadOnly && oletest::readFile(file) == "new");
    EXPECT_EQ(fs.replaceFile(W(file), "asked", 5, Qv::FileSystem::kReplaceReadOnly), S::kOk);
    EXPECT_TRUE(::stat(file.c_str(), &st) == 0 && (st.st_mode & 07777) == 0444u);

    ASSERT_TRUE(oletest::writeFile(dir + "/a", "linked, long text") &&
                ::link((dir + "/a").c_str(), (dir + "/b").c_str()) == 0);
    EXPECT_TRUE(fs.writeAtomically(W(dir + "/a"), "short", 5) && oletest::readFile(dir + "/b") == "short");
}

TEST(FileSystem, ReadsOnlyRegularFilesWithinTheLimit) {
    const std::string dir = oletest::makeTempDir("read"), fifo = dir + "/fifo";
    ASSERT_TRUE(::mkfifo(fifo.c_str(), 0600) == 0 && oletest::writeFile(dir + "/ten", "0123456789"));
    std::string content = "stale";  // the FIFO must be refused without waiting for a writer
    const std::tuple<std::string, std::size_t, S> cases[] = {
        {"/dev/zero", 100, S::kNotRegular},  {fifo, 100, S::kNotRegular},     {dir, 100, S::kNotRegular},
        {dir + "/absent", 100, S::kMissing}, {dir + "/ten", 9, S::kTooLarge}, {dir + "/ten", 10, S::kOk}};
    for (const auto& [path, limit, status] : cases) {
        EXPECT_EQ(fs.readFile(W(path), content, limit), status) << path;
        EXPECT_EQ(content, status == S::kOk ? "0123456789" : "") << path;
    }
    EXPECT_TRUE(fs.readFilePrefix(W(dir + "/ten"), content, 4) == S::kOk && content == "0123");
    EXPECT_EQ(fs.replaceFile(W(fifo), "x", 1), S::kNotRegular);
}

}  // namespace
