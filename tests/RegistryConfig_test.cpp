#include <ole/runtime/Paths.h>
#include <ole/runtime/RegistryConfig.h>

#include "support/TestHome.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

#include <sys/stat.h>

namespace {

using Text = RegistryConfig::Text;
using Wide = LightweightString<wchar_t>;

class RegistryConfigTest : public ::testing::Test {
protected:
    void SetUp() override { dir_ = oletest::makeTempDir("config"); }
    static Wide wide(const std::string& s) { return Wide(std::wstring(s.begin(), s.end()).c_str()); }
    Wide path() const { return wide(dir_ + "/test.cfg"); }
    std::string file() const { return oletest::readFile(dir_ + "/test.cfg"); }
    std::string dir_;
};

TEST_F(RegistryConfigTest, ValuesLiveInTheirOwnSectionAndPersist) {
    const Text awkward("line one\nline two\\n not a break \\ end\\");
    {
        RegistryConfig config(path());
        EXPECT_TRUE(
            config.getValue("Video", "Standard", "none") == "none" &&
            config.setValue("Video", "Standard", "PAL") && config.setValue("Audio", "Standard", "48k") &&
            config.setValue("Video", "Aspect", "16:9=wide") && config.setValue("Paths", "Notes", awkward));
        EXPECT_TRUE(config.getValue("Audio", "Standard", "") == "48k" &&
                    !config.hasValue("Video", "standard") && !config.hasValue("video", "Standard"));
        const auto video = config.getValues("Video");
        EXPECT_TRUE(video.size() == 2 && video[0].first == "Aspect" && video[1].second == "PAL");
        EXPECT_TRUE(config.removeValue("Video", "Standard") && !config.removeValue("Video", "Standard") &&
                    config.hasValue("Audio", "Standard"));
        EXPECT_TRUE(config.setValue(RegistryConfig::kDefaultSection, "Machine", 7));
        EXPECT_EQ(config.getValue("Machine", 0), 7) << "the forms without a section use Configuration";
    }
    const std::string text = file();
    EXPECT_NE(text.find("[Audio]\nStandard=48k\n"), std::string::npos) << text;
    EXPECT_EQ(text.find("line two"), text.find("line one") + 10) << "the line break is escaped:\n" << text;
    RegistryConfig fresh(path());
    EXPECT_TRUE(fresh.getValue("Video", "Aspect", "") == "16:9=wide" &&
                fresh.getValue("Paths", "Notes", "") == awkward && !fresh.hasValue("Video", "Standard"));

    ASSERT_TRUE(oletest::writeFile(dir_ + "/test.cfg", "junk\n=\n[Other]\r\nCount=9\r\n"));
    fresh.reload();
    EXPECT_TRUE(fresh.getValue("Other", "Count", 0) == 9 && !fresh.hasValue("Paths", "Notes"));
    // A path below a plain file cannot be written.
    EXPECT_FALSE(RegistryConfig(wide(dir_ + "/test.cfg/in.cfg")).setValue("S", "n", 5));
}

TEST_F(RegistryConfigTest, TypedReadsFallBackOnMissingOrBadText) {
    RegistryConfig config(path());
    config.setValue("T", "int", -42), config.setValue("T", "double", 2.5), config.setValue("T", "true", true);
    for (const char* name : {"9000000000", "x", "99999999999999999999"}) config.setValue("T", name, name);
    EXPECT_TRUE(config.getValue("T", "int", 5) == -42 && config.getValue("T", "double", 0.0) == 2.5 &&
                config.getValue("T", "true", false) && config.getValue("T", "9000000000", 0L) == 9000000000L);
    const char* huge = "99999999999999999999";  // like 9000000000 for an int: too big, so no number
    EXPECT_TRUE(config.getValue("T", "9000000000", 5) == 5 && config.getValue("T", huge, 3L) == 3L);
    for (const char* bad : {"missing", "x"})
        EXPECT_TRUE(config.getValue("T", bad, 5) == 5 && config.getValue("T", bad, 3L) == 3L &&
                    config.getValue("T", bad, 1.25) == 1.25 && config.getValue("T", bad, true) &&
                    !config.getValue("T", bad, false))
            << bad;
}

TEST_F(RegistryConfigTest, KeepsLinesItDoesNotOwnAndNeverWritesOverAnUnreadableFile) {
    ASSERT_TRUE(oletest::writeFile(
        dir_ + "/test.cfg",
        "# written by hand\n[Paths]\nnot a setting\nMedia=/srv\n\n; note\n[Other]\nA=1\n"));
    RegistryConfig config(path());
    ASSERT_TRUE(config.setValue("Paths", "Cache", "/tmp") && config.setValue("Other", "A", 2));
    EXPECT_EQ(file(),
              "# written by hand\n[Paths]\nnot a setting\nMedia=/srv\nCache=/tmp\n\n; note\n[Other]\nA=2\n");

    const std::string blocked = oletest::makeTempDir("blocked") + "/user.cfg";
    ASSERT_EQ(::mkdir(blocked.c_str(), 0755), 0);
    RegistryConfig unreadable(wide(blocked));
    EXPECT_TRUE(unreadable.readError() == "is not a regular file" && !unreadable.setValue("S", "n", 5));

    EXPECT_TRUE(GlobalConfig().path() == joinPath(getMachineSettingsDirectory(), L"global.cfg"));
    EXPECT_TRUE(UserConfig().path() == joinPath(getPreferencesDirectory(), L"user.cfg"));
}

TEST_F(RegistryConfigTest, ThreadsAndProcessesChangingOneFileLoseNothing) {
    EXPECT_TRUE(oletest::inChildProcesses(3, [&](int c) {
        RegistryConfig config(path());
        auto write = [&config](int t) {
            for (int i = 0; i < 10; ++i) config.setValue("P", ("v" + std::to_string(t * 10 + i)).c_str(), i);
        };
        std::thread helper(write, 2 * c + 1);  // a second writer in the same process
        write(2 * c);
        helper.join();
        return true;
    }));
    EXPECT_EQ(RegistryConfig(path()).getValues("P").size(), 60u);
    EXPECT_EQ(oletest::listDirectory(dir_), std::vector<std::string>{"test.cfg"});  // no temporary files
}

}  // namespace
