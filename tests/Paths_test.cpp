#include <ole/runtime/Paths.h>

#include "support/TestHome.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace {

using Wide = LightweightString<wchar_t>;
using Names = std::vector<std::wstring>;

const auto w = [](const Wide& s) -> std::wstring { return std::wstring(s.c_str(), s.size()); };
const auto wide = [](const std::string& s) -> std::wstring { return std::wstring(s.begin(), s.end()); };

Names listing(const std::string& dir, const wchar_t* pattern) {
    Names names;
    for (const Wide& name : getDirListing(Wide(wide(dir).c_str()), Wide(pattern))) names.push_back(w(name));
    return names;
}

TEST(Paths, DirectoriesLieBelowTheHomeReadAtEachCallAndListingsMatchWildcards) {
    const std::string saved = std::getenv("QUORVANE_HOME");
    for (const std::string& home : {saved, oletest::makeTempDir("elsewhere")}) {
        setenv("QUORVANE_HOME", home.c_str(), 1);
        const std::wstring prefix = wide(home) + L"/";
        const std::wstring data = w(getUserDataDirectory());
        for (const std::wstring& dir : {data, w(getPreferencesDirectory()), w(getMachineSettingsDirectory())})
            EXPECT_TRUE(dir.compare(0, prefix.size(), prefix) == 0 && dir.back() != L'/')
                << std::string(dir.begin(), dir.end());
        EXPECT_TRUE(w(getProjectsBaseDirectory()) == data + L"/Projects" &&
                    w(getDefaultLocalProjectsDir()) == data + L"/Projects");
        EXPECT_TRUE(w(getPreferencesDirectory()) != data &&
                    w(getMachineSettingsDirectory()) != w(getPreferencesDirectory()));
    }
    setenv("QUORVANE_HOME", saved.c_str(), 1);

    EXPECT_TRUE(w(joinPath(L"/a/b", L"c.cfg")) == L"/a/b/c.cfg" &&
                w(joinPath(L"/a/b/", L"c.cfg")) == L"/a/b/c.cfg");
    EXPECT_TRUE(w(getEditFilenameExt(true)) == L".qvp" && w(getEditFilenameExt(false)) == L"qvp");

    // Directory listings match wildcards and come sorted.
    const std::string dir = oletest::makeTempDir("listing");
    for (const char* name : {"b.cfg", "a.cfg", "c.txt", "ab.cfg", "notes.cfg.bak", "Z.cfg"})
        ASSERT_TRUE(oletest::writeFile(dir + "/" + name, "x"));
    ASSERT_EQ(mkdir((dir + "/sub.cfg").c_str(), 0755), 0);

    EXPECT_EQ(listing(dir, L"*.cfg"), (Names{L"Z.cfg", L"a.cfg", L"ab.cfg", L"b.cfg", L"sub.cfg"}));
    EXPECT_EQ(listing(dir, L"?.cfg"), (Names{L"Z.cfg", L"a.cfg", L"b.cfg"}));
    EXPECT_EQ(listing(dir, L"[ab]*"), (Names{L"a.cfg", L"ab.cfg", L"b.cfg"}));
    EXPECT_EQ(listing(dir, L"*").size(), 7u) << "every entry, without . and ..";
    EXPECT_TRUE(listing(dir + "/absent", L"*").empty());
}

}  // namespace
