// The operating-system layer: files, directories, atomic replacement, special directories, clock.

#include <ole/platform/OS.h>

#include "support/TestHome.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <string>
#include <thread>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

namespace {

using Names = std::vector<std::string>;

std::wstring wide(const std::string& s) {
    return std::wstring(s.begin(), s.end());
}
const Qv::FileSystem& fs() {
    return *OS()->fileSystem();
}

std::string readRest(const Qv::OSFile& file) {
    std::string text;
    char buffer[4];  // small, so that each read continues where the last stopped
    for (long n; (n = file.read(buffer, sizeof buffer)) > 0;) text.append(buffer, std::size_t(n));
    return text;
}

TEST(FileSystem, OpenReadWriteSeekInEveryMode) {
    const std::string path = oletest::makeTempDir("file") + "/data.bin";
    {
        Qv::OSFile out = fs().open(wide(path).c_str(), Qv::OSFile::Write);
        ASSERT_TRUE(out.isOpen());
        EXPECT_TRUE(out.write("hello world", 11));
        EXPECT_TRUE(out.sync());
    }
    Qv::OSFile in = fs().open(wide(path).c_str(), Qv::OSFile::Read);
    EXPECT_EQ(in.size(), 11);
    EXPECT_TRUE(in.seek(6));
    EXPECT_EQ(readRest(in), "world");
    char five[5];
    EXPECT_EQ(in.read(five, 5), 0) << "end of file";
    EXPECT_FALSE(in.write("x", 1)) << "opened for reading only";
    Qv::OSFile moved(std::move(in));
    EXPECT_FALSE(in.isOpen());
    EXPECT_TRUE(moved.seek(0));
    EXPECT_EQ(readRest(moved), "hello world");

    {
        Qv::OSFile rw = fs().open(wide(path).c_str(), Qv::OSFile::ReadWrite);
        EXPECT_TRUE(rw.seek(2) && rw.write("XY", 2));
    }
    EXPECT_TRUE(fs().open(wide(path).c_str(), Qv::OSFile::Append).write("!", 1));
    EXPECT_EQ(oletest::readFile(path), "heXYo world!");
    EXPECT_TRUE(fs().open(wide(path).c_str(), Qv::OSFile::Write).write("new", 3));
    EXPECT_EQ(oletest::readFile(path), "new") << "writing starts the file afresh";

    const std::wstring missing = wide(path + ".missing");
    Qv::OSFile none = fs().open(missing.c_str(), Qv::OSFile::Read);
    EXPECT_FALSE(none.isOpen());
    EXPECT_EQ(none.read(five, 1), -1);
    EXPECT_EQ(none.size(), -1);
    EXPECT_FALSE(none.write("x", 1));
    EXPECT_FALSE(fs().open(wide(path + "/below/a/file").c_str(), Qv::OSFile::Write).isOpen());

    // Descriptor 0 is a file like any other once standard input is closed.
    const int savedInput = dup(0);
    ASSERT_EQ(close(0), 0);
    Qv::OSFile zero = fs().open(wide(path).c_str(), Qv::OSFile::ReadWrite);
    const bool onZero = zero.isOpen() && zero.seek(0) && zero.sync();
    zero.close();
    dup2(savedInput, 0);
    close(savedInput);
    EXPECT_TRUE(onZero);
}

TEST(FileSystem, DirectoriesRenameAndRemove) {
    const std::string root = oletest::makeTempDir("dirs");
    const std::wstring deep = wide(root + "/a/b/c");
    EXPECT_TRUE(fs().createDirectory(deep.c_str()));
    EXPECT_TRUE(fs().isDirectory(deep.c_str()));
    EXPECT_TRUE(fs().createDirectory(deep.c_str())) << "already there counts as success";
    char* cwd = getcwd(nullptr, 0);  // a relative path, from a one-letter first component
    ASSERT_EQ(chdir(root.c_str()), 0);
    EXPECT_TRUE(fs().createDirectory(L"r/s"));
    EXPECT_EQ(chdir(cwd), 0);
    std::free(cwd);
    EXPECT_TRUE(fs().isDirectory(wide(root + "/r/s").c_str()));

    const std::string file = root + "/a/file";
    ASSERT_TRUE(oletest::writeFile(file, "content"));
    EXPECT_FALSE(fs().isDirectory(wide(file).c_str()));
    EXPECT_FALSE(fs().createDirectory(wide(file).c_str())) << "a file is in the way";
    EXPECT_FALSE(fs().createDirectory(wide(file + "/sub").c_str()));

    const std::string renamed = root + "/a/b/renamed";
    EXPECT_TRUE(fs().rename(wide(file).c_str(), wide(renamed).c_str()));
    EXPECT_FALSE(fs().exists(wide(file).c_str()));
    EXPECT_EQ(oletest::readFile(renamed), "content");
    EXPECT_TRUE(fs().remove(wide(renamed).c_str()));
    EXPECT_FALSE(fs().exists(wide(renamed).c_str()));
    EXPECT_FALSE(fs().remove(wide(renamed).c_str()));
    EXPECT_FALSE(fs().rename(wide(renamed).c_str(), wide(file).c_str()));
}

TEST(FileSystem, WriteAtomicallyReplacesContentAndLeavesNoTemporaries) {
    const std::string dir = oletest::makeTempDir("atomic");
    const std::wstring path = wide(dir + "/settings.cfg");
    EXPECT_TRUE(fs().writeAtomically(path.c_str(), "first version, longer", 21));
    EXPECT_TRUE(fs().writeAtomically(path.c_str(), "second", 6));
    EXPECT_EQ(oletest::readFile(dir + "/settings.cfg"), "second");

    EXPECT_FALSE(fs().writeAtomically(wide(dir + "/absent/x.cfg").c_str(), "x", 1));
    // A directory in the way: the data is written but cannot replace it, and the temporary goes.
    ASSERT_TRUE(fs().createDirectory(wide(dir + "/taken/inner").c_str()));
    EXPECT_FALSE(fs().writeAtomically(wide(dir + "/taken").c_str(), "x", 1));
    EXPECT_EQ(oletest::listDirectory(dir), (Names{"settings.cfg", "taken"}));

    // Writers on several threads each leave one whole version.
    std::vector<std::thread> writers;
    for (int t = 0; t < 4; ++t) {
        writers.emplace_back([&, t] {
            const std::string content(1000, char('a' + t));
            for (int i = 0; i < 5; ++i) fs().writeAtomically(path.c_str(), content.data(), content.size());
        });
    }
    for (auto& w : writers) w.join();
    const std::string last = oletest::readFile(dir + "/settings.cfg");
    ASSERT_EQ(last.size(), 1000u);
    EXPECT_EQ(last, std::string(1000, last[0]));
    EXPECT_EQ(oletest::listDirectory(dir), (Names{"settings.cfg", "taken"}));
}

TEST(OperatingSystem, RegistrySpecialDirectoriesAndClock) {
    char buffer[64] = "untouched";
    EXPECT_FALSE(
        OS()->registry()->getString("SOFTWARE\\Quorvane", "InstallDir", "64", buffer, sizeof buffer));

    const std::wstring home = wide(std::getenv("QUORVANE_HOME"));
    std::vector<std::wstring> seen;
    for (int which : {Qv::kUserDataBase, Qv::kConfigBase, Qv::kMachineSettingsBase, Qv::kHomeBase}) {
        wchar_t dir[1024];
        ASSERT_TRUE(OS()->specialDirectory(which, dir, 1024)) << which;
        EXPECT_EQ(std::wstring(dir).compare(0, home.size(), home), 0) << which;
        seen.emplace_back(dir);
    }
    EXPECT_TRUE(seen[0] != seen[1] && seen[1] != seen[2] && seen[0] != seen[2]);
    wchar_t small[4];
    EXPECT_FALSE(OS()->specialDirectory(99, small, 4));

    EXPECT_NEAR(OS()->clock()->now(), double(std::time(nullptr)), 60.0);
    EXPECT_NEAR(double(OS()->clock()->secondsSinceEpoch()), OS()->clock()->now(), 60.0);
    const uint64_t t0 = OS()->clock()->monotonicNanoseconds();
    EXPECT_LE(t0, OS()->clock()->monotonicNanoseconds());
    EXPECT_GE(OS()->threads()->processorCount(), 1u);
    uint64_t otherId = 0;
    std::thread([&] { otherId = OS()->threads()->currentThreadId(); }).join();
    EXPECT_NE(otherId, OS()->threads()->currentThreadId());
}

}  // namespace

TEST(FileSystem, ReplaceKeepsOwnerModeAndLinksAndRefusesReadOnlyFiles) {
    const std::string dir = oletest::makeTempDir("keep");
    const std::string file = dir + "/private.cfg";
    ASSERT_TRUE(oletest::writeFile(file, "old"));
    ASSERT_EQ(::chmod(file.c_str(), 0600), 0);
    const bool root = ::geteuid() == 0;
    ASSERT_TRUE(!root || ::chown(file.c_str(), 65534, 65534) == 0);  // another user's file
    EXPECT_EQ(fs().replaceFile(wide(file).c_str(), "new", 3), Qv::FileStatus::kOk);
    struct stat st;
    ASSERT_EQ(::stat(file.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0600u);
    EXPECT_TRUE(!root || (st.st_uid == 65534 && st.st_gid == 65534));

    ASSERT_EQ(::chmod(file.c_str(), 0444), 0);
    EXPECT_EQ(fs().replaceFile(wide(file).c_str(), "x", 1), Qv::FileStatus::kReadOnly);
    EXPECT_EQ(oletest::readFile(file), "new");
    EXPECT_EQ(fs().replaceFile(wide(file).c_str(), "asked", 5, Qv::FileSystem::kReplaceReadOnly),
              Qv::FileStatus::kOk);
    ASSERT_EQ(::stat(file.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0444u);

    const std::string other = dir + "/other-name";
    ASSERT_TRUE(oletest::writeFile(file + "2", "linked, long text"));
    ASSERT_EQ(::link((file + "2").c_str(), other.c_str()), 0);
    EXPECT_TRUE(fs().writeAtomically(wide(file + "2").c_str(), "short", 5));
    EXPECT_EQ(oletest::readFile(other), "short");  // both names still see one file
}

TEST(FileSystem, ReadsOnlyRegularFilesWithinTheLimit) {
    const std::string dir = oletest::makeTempDir("read");
    const std::string fifo = dir + "/fifo";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    ASSERT_TRUE(oletest::writeFile(dir + "/ten", "0123456789"));
    std::string content = "stale";
    const struct {
        std::string path;
        std::size_t limit;
        Qv::FileStatus status;
    } cases[] = {{"/dev/zero", 100, Qv::FileStatus::kNotRegular},
                 {fifo, 100, Qv::FileStatus::kNotRegular},  // must not wait for a writer
                 {dir, 100, Qv::FileStatus::kNotRegular},
                 {dir + "/absent", 100, Qv::FileStatus::kMissing},
                 {dir + "/ten", 9, Qv::FileStatus::kTooLarge},
                 {dir + "/ten", 10, Qv::FileStatus::kOk}};
    for (const auto& c : cases) {
        EXPECT_EQ(fs().readFile(wide(c.path).c_str(), content, c.limit), c.status) << c.path;
        EXPECT_EQ(content, c.status == Qv::FileStatus::kOk ? "0123456789" : "") << c.path;
    }
    EXPECT_EQ(fs().readFilePrefix(wide(dir + "/ten").c_str(), content, 4), Qv::FileStatus::kOk);
    EXPECT_EQ(content, "0123");
    EXPECT_EQ(fs().replaceFile(wide(fifo).c_str(), "x", 1), Qv::FileStatus::kNotRegular);
}
