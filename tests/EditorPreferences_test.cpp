#include <ole/misc/EditorPreferences.h>

#include <ole/misc/TextFile.h>
#include <ole/runtime/RegistryConfig.h>
#include <ole/runtime/Strings.h>

#include "support/TestHome.h"

#include <gtest/gtest.h>

namespace {

using Text = LightweightString<char>;

// Hears one preference, or all of them for an empty name, until guard is reset.
struct Recorder {
    std::vector<std::string> heard;
    std::vector<int> types;
    Qv::Ptr<Qv::Guard> guard;
    explicit Recorder(const char* name)
        : guard(prefs().addListener(makeCallback(this, &Recorder::onChange), Text(name))) {}
    int onChange(const NotifyMsg& msg) {
        return heard.push_back(msg.text().c_str()), types.push_back(msg.type()), 0;
    }
};

}  // namespace

TEST(EditorPreferences, ValuesOfEveryTypeDefaultsAndListeners) {
    EditorPreferences& p = prefs();
    p.setPreference("vText", "some text"), p.setPreference("vWide", LightweightString<wchar_t>(L"caf\u00e9"));
    p.setPreference("vXY", XY<int>(3, -4));
    EXPECT_TRUE(p.getPreference("vWide", L"d") == L"caf\u00e9" &&
                p.getPreference("vXY", XY<int>()) == XY<int>(3, -4));
    EXPECT_EQ(UserConfig().getValue(Text("EditorPreferences"), Text("vXY"), "?"), "(3,-4)");
    p.setPreference("vXY", "(10, 20)");
    EXPECT_EQ(p.getPreference("vXY", XY<int>()), XY<int>(10, 20));

    // Missing values and text that is not of the asked type give the default.
    EXPECT_TRUE(p.getPreference("vText", 7) == 7 && p.getPreference("vText", XY<int>(1, 2)) == XY<int>(1, 2));
    EXPECT_TRUE(p.removePreference("vText") && !p.removePreference("vText"));
    EXPECT_EQ(p.getPreference("vText", "d"), "d");

    Recorder one("nWidth"), all(""), other("nHeight");

    PrefVal<int> width("nWidth", 640);
    PrefVal<Text> title("nTitle", Text("untitled"));
    PrefVal<double> quiet("nQuiet", 1.0, false);  // stores without announcing
    EXPECT_TRUE(int(width) == 640 && !width.hasValue());
    width = 720, title = Text("news"), quiet = 2.5;

    EXPECT_EQ(one.heard, std::vector<std::string>{"nWidth"});
    EXPECT_EQ(one.types, std::vector<int>{EditorPreferences::makeNotificationType("nWidth")});
    EXPECT_EQ(all.heard, (std::vector<std::string>{"nWidth", "nTitle"}));
    EXPECT_TRUE(other.heard.empty());

    EXPECT_TRUE(width.hasValue() && quiet.getValue() == 2.5 && (PrefVal<int>("nWidth", 0) == 720) &&
                (width != 640) && !(title != Text("news")));

    all.guard.reset(), width = 800;
    EXPECT_TRUE(all.heard.size() == 2 && one.heard.size() == 2);
}

TEST(EditorPreferences, ExportThenImportRestoresEveryValue) {
    EditorPreferences& p = prefs();
    p.setPreference("xText", "a=b \\ c"), p.setPreference("xLines", "first\nsecond\r\n");
    p.setPreference("xInt", 42), p.setPreference("xBool", false), p.setPreference("xDouble", 1e-300);
    p.setPreference("xXY", XY<int>(-1, 1));
    const auto saved = p.getAVPairs();

    const std::string path = oletest::makeTempDir("prefs") + "/export.txt";
    ASSERT_TRUE(oletest::writeFile(path, "[Other]\nkeep=1\n[EditorPreferences]\nstale=1\n[Tail]\nkeep=2\n"));
    const WString wpath = fromUTF8(path.c_str());
    ASSERT_TRUE(p.exportTo(wpath) && p.exportTo(wpath));  // a second export replaces the section
    const TextFile file(wpath);
    EXPECT_EQ(file.size(), 3 + saved.size() + 2);
    EXPECT_TRUE(file[0] == "[Other]" && file[2] == "[EditorPreferences]" &&
                file[3 + saved.size()] == "[Tail]");

    for (const auto& [name, value] : saved) p.removePreference(name);
    p.setPreference("xInt", 7);
    Recorder all("");
    EXPECT_TRUE(p.importFrom(wpath) == int(saved.size()) && p.getAVPairs() == saved);
    EXPECT_EQ(all.heard.size(), saved.size());

    // Importing what is already there announces nothing.
    Vector<Text> lines;
    p.exportTo(lines);
    EXPECT_EQ(lines.front(), EditorPreferences::getSectionHeading());
    EXPECT_TRUE(p.importFrom(lines) == int(saved.size()) && all.heard.size() == saved.size());

    // A file that starts with the section: a second export finds it and replaces it.
    const WString fresh = fromUTF8((path + ".fresh").c_str());
    ASSERT_TRUE(p.exportTo(fresh) && p.exportTo(fresh));
    EXPECT_EQ(TextFile(fresh).size(), 1 + saved.size());
    EXPECT_EQ(p.importFrom(wpath, 3), -1);  // no section at or after line 3
    EXPECT_EQ(p.importFrom(fromUTF8((path + ".missing").c_str())), -1);
}
