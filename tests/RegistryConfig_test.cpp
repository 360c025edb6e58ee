// RegistryConfig: sections of named values, typed reads, and the file that keeps them.

#include <ole/runtime/Paths.h>
#include <ole/runtime/RegistryConfig.h>

#include "support/TestHome.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include <sys/stat.h>

namespace {

using Text = RegistryConfig::Text;
using Wide = LightweightString<wchar_t>;

std::string narrow(const Text& t) {
    return std::string(t.c_str(), t.size());
}

class RegistryConfigTest : public ::testing::Test {
protected:
    void SetUp() override { dir_ = oletest::makeTempDir("config"); }
    Wide path() const { return Wide(std::wstring(dir_.begin(), dir_.end()).append(L"/test.cfg").c_str()); }
    std::string file() const { return oletest::readFile(dir_ + "/test.cfg"); }
    std::string dir_;
};

TEST_F(RegistryConfigTest, ValuesLiveInTheirOwnSection) {
    RegistryConfig config(path());
    EXPECT_EQ(narrow(config.getValue("Video", "Standard", "none")), "none");
    EXPECT_TRUE(config.setValue("Video", "Standard", "PAL"));
    EXPECT_TRUE(config.setValue("Audio", "Standard", "48k"));
    EXPECT_TRUE(config.setValue("Video", "Aspect", "16:9"));
    EXPECT_EQ(narrow(config.getValue("Audio", "Standard", "")), "48k");
    EXPECT_FALSE(config.hasValue("Video", "standard")) << "names are case-sensitive";
    EXPECT_FALSE(config.hasValue("video", "Standard")) << "sections are case-sensitive";

    const auto video = config.getValues("Video");
    ASSERT_EQ(video.size(), 2u);
    EXPECT_EQ(narrow(video[0].first), "Aspect");
    EXPECT_EQ(narrow(video[1].second), "PAL");

    EXPECT_TRUE(config.removeValue("Video", "Standard"));
    EXPECT_FALSE(config.removeValue("Video", "Standard"));
    EXPECT_TRUE(config.hasValue("Audio", "Standard"));

    EXPECT_TRUE(config.setValue(RegistryConfig::kDefaultSection, "Machine", 7));
    EXPECT_EQ(config.getValue("Machine", 0), 7) << "the forms without a section use Configuration";
}

TEST_F(RegistryConfigTest, TypedReadsFallBackOnMissingOrBadText) {
    RegistryConfig config(path());
    config.setValue("T", "int", -42);
    config.setValue("T", "double", 2.5);
    config.setValue("T", "true", true);
    config.setValue("T", "long", "9000000000");
    config.setValue("T", "word", "banana");
    EXPECT_EQ(config.getValue("T", "int", 5), -42);
    EXPECT_DOUBLE_EQ(config.getValue("T", "double", 0.0), 2.5);
    EXPECT_TRUE(config.getValue("T", "true", false));
    EXPECT_EQ(config.getValue("T", "long", 0L), 9000000000L);

    EXPECT_EQ(config.getValue("T", "missing", 5), 5);
    EXPECT_EQ(config.getValue("T", "word", 5), 5);
    EXPECT_EQ(config.getValue("T", "word", 3L), 3L);
    EXPECT_DOUBLE_EQ(config.getValue("T", "word", 1.25), 1.25);
    EXPECT_TRUE(config.getValue("T", "word", true));
    EXPECT_FALSE(config.getValue("T", "word", false));

    // A number too big for the type asked for does not parse as that type.
    config.setValue("T", "huge", "99999999999999999999");
    EXPECT_EQ(config.getValue("T", "long", 5), 5) << "9000000000 is no int";
    EXPECT_EQ(config.getValue("T", "huge", 3L), 3L);
}

TEST_F(RegistryConfigTest, ValuesPersistAndSurviveAFreshStore) {
    const Text awkward("line one\nline two\\n not a break \\ end\\");
    {
        RegistryConfig config(path());
        config.setValue("Paths", "Media", "/srv/media=shared");
        config.setValue("Paths", "Notes", awkward);
        config.setValue("Other", "Count", 3);
        config.setValue("Other", "Gone", 4);
        config.removeValue("Other", "Gone");
    }
    const std::string text = file();
    EXPECT_NE(text.find("[Other]\nCount=3\n"), std::string::npos) << text;
    EXPECT_EQ(text.find("line two"), text.find("line one") + 10) << "the line break is escaped:\n" << text;

    RegistryConfig fresh(path());
    EXPECT_EQ(narrow(fresh.getValue("Paths", "Media", "")), "/srv/media=shared");
    EXPECT_EQ(narrow(fresh.getValue("Paths", "Notes", "")), narrow(awkward));
    EXPECT_FALSE(fresh.hasValue("Other", "Gone"));
    EXPECT_EQ(oletest::listDirectory(dir_), std::vector<std::string>{"test.cfg"})
        << "no temporary files are left";

    ASSERT_TRUE(oletest::writeFile(dir_ + "/test.cfg", "junk\n=\n[Other]\r\nCount=9\r\n"));
    fresh.reload();
    EXPECT_EQ(fresh.getValue("Other", "Count", 0), 9);
    EXPECT_FALSE(fresh.hasValue("Paths", "Media"));

    RegistryConfig blocked(Wide((std::wstring(dir_.begin(), dir_.end()) + L"/test.cfg/inner.cfg").c_str()));
    EXPECT_FALSE(blocked.setValue("S", "n", 5)) << "a path below a plain file cannot be written";
}

TEST_F(RegistryConfigTest, ConcurrentWritersLoseNothing) {
    RegistryConfig config(path());
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 10; ++i)
                config.setValue("Threads", ("v" + std::to_string(t * 10 + i)).c_str(), i);
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(RegistryConfig(path()).getValues("Threads").size(), 40u);
    EXPECT_EQ(oletest::listDirectory(dir_), std::vector<std::string>{"test.cfg"});
}

TEST(RegistryConfigStores, GlobalAndUserFilesFollowTheLayout) {
    EXPECT_TRUE(GlobalConfig().path() == joinPath(getMachineSettingsDirectory(), L"global.cfg"));
    EXPECT_TRUE(UserConfig().path() == joinPath(getPreferencesDirectory(), L"user.cfg"));
}

}  // namespace

namespace {

TEST_F(RegistryConfigTest, KeepsLinesItDoesNotOwnAndNeverWritesOverAnUnreadableFile) {
    const std::string original =
        "# written by hand\n[Paths]\nnot a setting\nMedia=/srv\n\n; note\n[Other]\nA=1\n";
    ASSERT_TRUE(oletest::writeFile(dir_ + "/test.cfg", original));
    RegistryConfig config(path());
    ASSERT_TRUE(config.setValue("Paths", "Cache", "/tmp"));
    ASSERT_TRUE(config.setValue("Other", "A", 2));
    EXPECT_EQ(file(),
              "# written by hand\n[Paths]\nnot a setting\nMedia=/srv\nCache=/tmp\n\n; note\n[Other]\nA=2\n");

    const std::string blocked = oletest::makeTempDir("blocked") + "/user.cfg";
    ASSERT_EQ(::mkdir(blocked.c_str(), 0755), 0);
    RegistryConfig unreadable(Wide(std::wstring(blocked.begin(), blocked.end()).c_str()));
    EXPECT_EQ(narrow(unreadable.readError()), "is not a regular file");
    EXPECT_FALSE(unreadable.setValue("S", "n", 5));
    EXPECT_TRUE(narrow(config.readError()).empty());
}

TEST_F(RegistryConfigTest, ProcessesChangingOneFileLoseNothing) {
    EXPECT_TRUE(oletest::inChildProcesses(6, [&](int c) {
        RegistryConfig config(path());
        bool ok = true;
        for (int i = 0; i < 10; ++i)
            ok = config.setValue("P", ("v" + std::to_string(c * 10 + i)).c_str(), i) && ok;
        return ok;
    }));
    EXPECT_EQ(RegistryConfig(path()).getValues("P").size(), 60u);
}

}  // namespace
