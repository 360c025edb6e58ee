// Runs the built ole tool as a process: each command once through its options (arithmetic is the library
// tests' job), and tables of exit statuses. nlohmann::json reads the JSON, so the tool's writer cannot hide.

#include "support/TestHome.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sys/wait.h>

#ifndef OLE_TOOL_PATH
#define OLE_TOOL_PATH ""
#endif

#include <algorithm>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

namespace {

using nlohmann::json;
using Args = std::vector<std::string>;

struct Result {
    int status = -1;
    std::string out, err;
};

std::string quoted(const std::string& text) {
    std::string q = "'";
    for (char c : text) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return q + "'";
}

// Runs a shell command in `home`, with $QUORVANE_HOME pointing there and the tool as $OLE.
Result sh(const std::string& command, const std::string& home) {
    const std::string dir = oletest::makeTempDir("run"), out = dir + "/out", err = dir + "/err";
    const std::string line = "cd " + quoted(home) + " && QUORVANE_HOME=" + quoted(home) +
                             " OLE=" + quoted(OLE_TOOL_PATH) + " sh -c " + quoted(command) + " >" +
                             quoted(out) + " 2>" + quoted(err);
    const int status = std::system(line.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, oletest::readFile(out), oletest::readFile(err)};
}

Result ole(const Args& args, const std::string& home = oletest::makeTempDir("home")) {
    std::string command = "\"$OLE\"";
    for (const auto& a : args) command += " " + quoted(a);
    return sh(command, home);
}
json oleJson(Args args, const std::string& home = oletest::makeTempDir("home")) {
    args.push_back("--json");
    const std::string out = ole(args, home).out;
    json j = json::parse(out, nullptr, false);
    EXPECT_FALSE(j.is_discarded()) << "not JSON:\n" << out;
    return j;
}

void expectHas(const json& j, const char* subset) {
    const json wanted = json::parse(subset);
    for (const auto& [key, value] : wanted.items())
        EXPECT_EQ(j.value(key, json()), value) << key << " in " << j.dump();
}

class OleTool : public testing::Test {
protected:
    void SetUp() override {
        if (!*OLE_TOOL_PATH) GTEST_SKIP() << "the ole tool is not built (OLE_BUILD_TOOLS=OFF)";
    }
};

TEST_F(OleTool, Timecode) {
    expectHas(oleJson({"timecode", "--rate", "25", "--seconds", "3723.5"}),
              R"({"timecode": "01:02:03.12", "frames": 93087, "seconds": 3723.48})");  // the frame's start
    EXPECT_EQ(ole({"timecode", "-r", "30M", "--drop", "--frames", "1800", "--to", "timecode"}).out,
              "00:01:00;02\n");
    EXPECT_EQ(ole({"timecode", "-r", "25", "-s", "62", "--flags", "hours+seconds", "--to", "timecode"}).out,
              "00:01:02.00\n");
    EXPECT_EQ(ole({"timecode", "-r", "25", "-f", "90000", "--to", "seconds"}).out, "3600\n");
    expectHas(oleJson({"timecode", "-r", "30", "-f", "4", "--pulldown", "--phase", "0"}),
              R"({"video_frames": 5, "timecode": "00:00:00.05"})");
}

TEST_F(OleTool, FootageAndPulldown) {
    EXPECT_EQ(oleJson({"footage", "--frames", "17"})["gauges"].size(), 4u);
    EXPECT_EQ(oleJson({"footage", "-g", "16", "-f", "485", "--zero-pad"})["footage"], "0012.05");
    // 3-perf feet hold 21 or 22 frames; footage text reads back to the same frame count.
    const json there = oleJson({"footage", "-g", "F353", "-f", "43"});
    expectHas(oleJson({"footage", "-g", "f353", "--feet", there["footage"]}),
              R"({"frames": 43, "perfs": 129})");

    EXPECT_NE(ole({"pulldown", "add", "4", "-r", "30"}).out.find("\nvideo frames  5\n"), std::string::npos);
    const std::string video =
        oleJson({"pulldown", "add", "47", "-r", "60M", "--phase", "3"})["video_frames"].dump();
    EXPECT_EQ(oleJson({"pulldown", "remove", video, "-r", "60M", "--phase", "3"})["film_frames"], 47);
}

TEST_F(OleTool, RatesAndFormats) {
    EXPECT_EQ(oleJson({"rates"}).size(), 47u);
    expectHas(oleJson({"rates", "30M"}), R"({"drop_frame_timecode": true, "pulldown_video_cycle": 5})");
    EXPECT_EQ(oleJson({"rates", "--project"}).size(), 6u);
    EXPECT_EQ(oleJson({"rates", "--group", "decimated"}).size(), 20u);

    EXPECT_EQ(oleJson({"formats"}).size(), 32u);
    const json last = oleJson({"formats", "31"});  // a format's persistable string finds its row again
    EXPECT_EQ(oleJson({"formats", last["persistable"]})["index"], 31);
    std::vector<int> pal;
    for (const json& f : oleJson({"formats", "--project-rate", "25"})) pal.push_back(f["index"]);
    EXPECT_EQ(pal, (std::vector<int>{0, 1, 6, 12, 17, 29}));
}

TEST_F(OleTool, CookiesAndIdStamps) {
    const std::string home = oletest::makeTempDir("cookies");
    const std::string counter = home + "/data/Quorvane/Projects/cookie.num";
    const Result first = ole({"cookie", "new", "--type", "P", "--count", "3"}, home);
    ASSERT_EQ(first.status, 0) << first.err;
    EXPECT_EQ(first.err.find("WARNING"), std::string::npos) << first.err;
    EXPECT_EQ(oletest::readFile(counter), "4");
    const std::string text = oleJson({"cookie", "new"}, home)["cookies"][0];
    EXPECT_EQ(oletest::readFile(counter), "5");
    expectHas(oleJson({"cookie", "show", text}, home),
              R"({"type": "G", "serial": 4, "serial_base36": "0004"})");
    // UUID cookies leave the counter alone; a type-S cookie carries its default version 1.
    const std::string u = oleJson({"cookie", "new", "--uuid", "-t", "s"}, home)["cookies"][0];
    EXPECT_TRUE(oletest::readFile(counter) == "5" && u.substr(0, 4) + std::to_string(u.size()) == "S01-40");
    EXPECT_EQ(oleJson({"cookie", "show", u}, home)["form"], "uuid");

    expectHas(oleJson({"cookie", "show", "P00B002S"}),
              R"({"machine": 5, "serial": 100, "builtin_effect": null})");
    const Result check = ole({"cookie", "check", "P00B002S", "p00B002S"});
    EXPECT_TRUE(check.status == 1 && check.out == "P00B002S: well-formed\n");
    EXPECT_EQ(check.err,
              "ole: 'p00B002S' is not a well-formed cookie text (the editor reads it as P00B002S)\n");
    EXPECT_EQ(oleJson({"cookie", "check", "G00-E9D99A1F-73D2-43D3-B417-825F6B9CF8AF"})[0]["well_formed"],
              true);

    const json made = oleJson({"idstamp", "new", "-n", "2"}, home)["idstamps"];
    EXPECT_TRUE(made.size() == 2 && made[0] != made[1]) << made;
    expectHas(oleJson({"idstamp", "show", "0000002A0123ABCD1F"}),
              R"({"machine": 42, "time_bits": 19114957, "tick": 31, "created": "1996-01-28T17:01:01Z"})");
}

TEST_F(OleTool, ConfigEditsKeepTheFilesForm) {
    const std::string dir = oletest::makeTempDir("config");
    const std::string path = dir + "/project.cfg";
    ASSERT_TRUE(
        oletest::writeFile(path,
                           "{\r\n  # picture\r\n    Height:int   576  \r\n  Title Evening news: late\r\n\r\n"
                           "  Scale:double 1.50000000\r\n}\r\n"));
    EXPECT_EQ(oleJson({"config", "show", path})["entries"][2]["type"], "double");
    EXPECT_EQ(ole({"config", "get", path, "HEIGHT"}).out, "576\n");
    EXPECT_EQ(ole({"config", "set", path, "height", "720", "--type", "int"}).out, "Height:int 720\n");
    for (Args set : {Args{"Width", "1920", "int"}, {"Gamma", "2.2", "double"}, {"Id", "P00B002S", "cookie"}})
        EXPECT_EQ(ole({"config", "set", path, set[0], set[1], "--type", set[2]}).status, 0) << set[0];
    EXPECT_EQ(ole({"config", "remove", path, "scale"}).out, "removed Scale\n");
    EXPECT_EQ(oleJson({"config", "set", path, "Width", "1920", "--type", "int"})["changed"], false);
    EXPECT_EQ(oletest::readFile(path),
              "{\r\n  # picture\r\n    Height:int 720\r\n  Title Evening news: late\r\n\r\n"
              "  Width:int 1920\r\n  Gamma:double 2.20000000\r\n  Id:cookie P00B002S\r\n}\r\n");
    ASSERT_TRUE(oletest::writeFile(dir + "/block.cfg", "{\nA 1\nEND\n"));  // a record with another end word
    EXPECT_EQ(ole({"config", "set", dir + "/block.cfg", "B", "2", "--end", "END"}).status, 0);
    EXPECT_EQ(oletest::readFile(dir + "/block.cfg"), "{\nA 1\nB 2\nEND\n");
    EXPECT_EQ(ole({"config", "set", dir + "/new.cfg", "A", "1", "--create"}).status, 0);
    EXPECT_EQ(oletest::readFile(dir + "/new.cfg"), "{\n  A 1\n}\n");

    // JSON output escapes what the file holds; a byte that is not UTF-8 shows as U+FFFD.
    const std::string odd = "say \"hi\" \\ now\ttab \x01 caf\xC3\xA9 \xF0\x9F\x8E\xAC";
    ASSERT_TRUE(oletest::writeFile(dir + "/odd.cfg", "{\n  Odd " + odd + "\n  Raw bad\xFFmark\n}\n"));
    json j = oleJson({"config", "show", dir + "/odd.cfg"});
    EXPECT_TRUE(j["entries"][0]["value"] == odd && j["entries"][1]["value"] == "bad\xEF\xBF\xBDmark");
}

TEST_F(OleTool, Preferences) {
    const std::string home = oletest::makeTempDir("prefs");
    EXPECT_EQ(ole({"prefs", "set", "AutoSave", "10", "--type", "int"}, home).out, "AutoSave=10\n");
    EXPECT_EQ(ole({"prefs", "set", "Window", "(640,480)", "--type", "xy"}, home).status, 0);
    EXPECT_EQ(ole({"prefs", "set", "Snap", "true", "--type", "bool"}, home).status, 0);
    EXPECT_EQ(ole({"prefs", "set", "Note", "two\nlines = \\"}, home).out, "Note=two\\nlines = \\\n");
    EXPECT_EQ(oleJson({"prefs", "get", "AutoSave", "--type", "int"}, home)["value"], 10);
    EXPECT_EQ(oleJson({"prefs", "get", "Window", "--type", "xy"}, home)["value"],
              (json{{"x", 640}, {"y", 480}}));
    EXPECT_EQ(ole({"prefs", "get", "Missing", "--default", "7"}, home).out, "7\n");
    const json all = oleJson({"prefs", "list"}, home);
    EXPECT_TRUE(all["Note"] == "two\nlines = \\" && all.size() == 4u);

    // Export keeps the file's other sections; import into a fresh home brings back the same list.
    const std::string file = oletest::makeTempDir("exported") + "/prefs.txt";
    ASSERT_TRUE(oletest::writeFile(file, "[Other]\nkeep=me\n"));
    EXPECT_EQ(ole({"prefs", "export", file}, home).status, 0);
    EXPECT_NE(oletest::readFile(file).find("[Other]\nkeep=me\n"), std::string::npos);
    const std::string fresh = oletest::makeTempDir("fresh");
    EXPECT_EQ(oleJson({"prefs", "import", file}, fresh)["count"], 4);
    EXPECT_EQ(oleJson({"prefs", "list"}, fresh), all);
    EXPECT_EQ(ole({"prefs", "remove", "Snap"}, fresh).status, 0);
    EXPECT_FALSE(oleJson({"prefs", "list"}, fresh).contains("Snap"));

    // The settings store keeps lines it does not understand when it saves.
    const std::string userCfg = fresh + "/config/Quorvane/user.cfg";
    ASSERT_TRUE(oletest::writeFile(userCfg, oletest::readFile(userCfg) + "stray line\n"));
    EXPECT_EQ(ole({"prefs", "set", "B", "2"}, fresh).status, 0);
    EXPECT_NE(oletest::readFile(userCfg).find("stray line\n"), std::string::npos);
}

TEST_F(OleTool, HelpOnEveryCommand) {
    const Result top = ole({"--help"});
    EXPECT_EQ(top.status, 0);
    EXPECT_NE(top.out.find("Exit status: 0 success; 1 bad input"), std::string::npos);
    for (std::string command :
         {"timecode",     "footage",     "pulldown add", "pulldown remove", "rates",
          "formats",      "cookie new",  "cookie show",  "cookie check",    "idstamp new",
          "idstamp show", "config show", "config get",   "config set",      "config remove",
          "prefs get",    "prefs set",   "prefs remove", "prefs list",      "prefs export",
          "prefs import", "commands",    "macro show",   "macro check",     "macro run"}) {
        EXPECT_NE(top.out.find(command.substr(0, command.find(' '))), std::string::npos) << command;
        const Result r = sh("\"$OLE\" " + command + " --help", oletest::makeTempDir("help"));
        EXPECT_EQ(r.status, 0) << command;
        EXPECT_NE(r.out.find("Usage:"), std::string::npos) << command;
    }
    EXPECT_EQ(ole({"--version"}).out.rfind("ole ", 0), 0u);
}

TEST_F(OleTool, CommandsAndMacros) {
    const std::string commands = ole({"commands", "--json"}).out;
    for (const char* piece : {"\"keys\": \"Ctrl+Left\"", "\"display_name\": \"Mark In\""})
        EXPECT_NE(commands.find(piece), std::string::npos) << piece;

    const std::string trim = oletest::makeTempDir("macro") + "/trim.QvMacro";
    ASSERT_TRUE(oletest::writeFile(
        trim, "Name=Trim\nDescription=Trim both ends\nCommands=mark in,Nudge Left(3),Bogus,Stop(0)\n"));
    const Result r = ole({"macro", "run", trim});
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "> MacroStart\n> Mark In\n> Nudge Left\n> Nudge Left\n> Nudge Left\n> MacroEnd\n");
    EXPECT_NE(r.err.find("Couldn't find 'Bogus'"), std::string::npos) << r.err;
    const Result check = ole({"macro", "check", trim});
    EXPECT_EQ(check.status, 1);
    EXPECT_NE(check.err.find("unknown command 'Bogus'"), std::string::npos) << check.err;
    const json shown = oleJson({"macro", "show", trim});
    EXPECT_EQ(shown["description"], "Trim both ends");
    EXPECT_EQ(shown["steps"][1], (json{{"command", "Nudge Left"}, {"count", 3}}));
}

// Bad input exits 1 with no output and one "ole: " line naming the fault, leaving files as they were; bad
// usage exits 2. An argument "@name" names a file in a scratch folder, "<text" a new file there holding text.
TEST_F(OleTool, ExitStatuses) {
    const std::string dir = oletest::makeTempDir("inputs");
    std::map<std::string, std::string> files{{dir + "/ok.cfg", "{\n  Height:int 576\n}\n"}};
    ASSERT_TRUE(oletest::writeFile(dir + "/ok.cfg", files.begin()->second));
    const std::string home = oletest::makeTempDir("statushome");
    ASSERT_EQ(ole({"prefs", "set", "AutoSave", "10"}, home).status, 0);
    const std::string userCfg = oletest::readFile(home + "/config/Quorvane/user.cfg");

    const struct {
        Args args;
        int status;
        const char* message;
    } cases[] = {
        {{"timecode", "-r", "26", "-s", "1"}, 1, "unknown frame rate '26'"},
        {{"timecode", "-r", "25", "-t", "1:2:3.4"}, 1, "'1:2:3.4' is not timecode"},
        {{"timecode", "-r", "25", "-t", "00:00:00.25"}, 1, "frame 25"},
        {{"timecode", "-r", "25", "-t", "00:60:00.00"}, 1, "59 minutes"},
        {{"timecode", "-r", "30M", "-t", "00:01:00;01"}, 1, "does not exist in drop-frame"},
        {{"timecode", "-r", "25", "-t", "00:00:01;00"}, 1, "29.97"},
        {{"timecode", "-r", "30M", "--drop", "-s", "-1"}, 1, "no negative times"},
        {{"timecode", "-r", "24", "-f", "1", "--pulldown"}, 1, "takes no pulldown"},
        {{"timecode", "-r", "30", "-f", "1", "--pulldown", "--phase", "4"}, 1, "out of range (0 to 3)"},
        {{"timecode", "-r", "25", "-s", "1x"}, 1, "'1x' is not a number"},
        {{"timecode", "-r", "25", "-s", "90000"}, 1, "24 hours"},
        {{"timecode", "-r", "25", "-f", "-1"}, 1, "unset time"},
        {{"timecode", "-r", "24F", "-f", "1"}, 1, "film rate"},
        {{"timecode", "-r", "24D2", "-t", "00:00:01.00"}, 1, "no timecode"},
        {{"timecode", "-r", "120", "-t", "00:00:01.00"}, 1, "pass two digits"},
        {{"timecode", "-r", "25", "-s", "1", "--flags", "16"}, 1, "--flags"},
        {{"footage", "-g", "35mm", "--feet", "1.16"}, 1, "has no frame 16"},
        {{"footage", "-g", "35mm", "--feet", "1.2.3"}, 1, "is not footage"},
        {{"footage", "-g", "35mm", "--perfs", "7"}, 1, "not a whole number of 35mm frames"},
        {{"footage", "-g", "70mm", "-f", "1"}, 1, "--gauge: '70mm' is not a film gauge"},
        {{"footage", "--feet", "1.00"}, 1, "needs --gauge"},
        {{"pulldown", "add", "4", "-r", "24"}, 1, "takes no pulldown"},
        {{"pulldown", "remove", "4", "-r", "30", "--phase", "5"}, 1, "out of range (0 to 4)"},
        {{"pulldown", "add", "-3", "-r", "30"}, 1, "out of range"},
        {{"rates", "31"}, 1, "unknown frame rate"},
        {{"formats", "32"}, 1, "out of range (0 to 31)"},
        {{"formats", "4|0|1|1920|1080|8|2|3|25fps|28x"}, 1, "not an output format string"},
        {{"formats", "4|0|1|1920|1080|8|2|99|25fps"}, 1, "unknown frame rate 99"},
        {{"cookie", "new", "--type", "X"}, 1, "'X' is not a cookie type"},
        {{"cookie", "new", "--version", "36"}, 1, "out of range (0 to 35)"},
        {{"cookie", "show", "INVALID"}, 1, "8 or 40 characters"},
        {{"cookie", "show", "X00B002S"}, 1, "'X00B002S' is not a cookie"},
        {{"idstamp", "show", "0000002A0123ABCD"}, 1, "17 to 24 hexadecimal digits"},
        {{"idstamp", "show", "0000002A0123ABCG0"}, 1, "not an IdStamp"},
        {{"idstamp", "show", "0000002A000000000"}, 1, "its time is zero"},
        {{"config", "set", "@ok.cfg", "Height", "tall"}, 1, "'Height' is int, not text"},
        {{"config", "set", "@ok.cfg", "Flag", "yes", "--type", "bool"}, 1, "'yes' is not true or false"},
        {{"config", "set", "@ok.cfg", "Id2", "P00B00", "--type", "cookie"}, 1, "8 or 40 characters"},
        {{"config", "set", "@ok.cfg", "Note", " padded"}, 1, "starts or ends with blanks"},
        {{"config", "set", "@ok.cfg", "#x", "1"}, 1, "comment"},
        {{"config", "get", "@ok.cfg", "Height", "--type", "double"}, 1, "is int, not double"},
        {{"config", "get", "@ok.cfg", "Depth"}, 1, "no entry 'Depth'"},
        {{"config", "show", "<"}, 1, "is empty"},
        {{"config", "set", "<A 1\n}\n", "B", "3"}, 1, "line 1: expected '{'"},
        {{"config", "set", "<{\nA 1\n", "B", "3"}, 1, "has no end line '}'"},
        {{"config", "remove", "<{\nA 1\n}\nB 2\n", "A"}, 1, "line 4: 'B 2' follows the end line"},
        {{"config", "set", "<{\nA 1\n  a:int 2\n}\n", "B", "3"},
         1,
         "line 3: entry 'a' repeats the one on line 2"},
        {{"config", "show", "<{\n  :int 5\n}\n"}, 1, "line 2: '  :int 5' has no entry name"},
        {{"config", "set", std::string("<{\nA 1\n}\n\0\n", 11), "B", "3"}, 1, "is not a text file"},
        {{"config", "show", "@missing.cfg"}, 1, "No such file or directory"},
        {{"config", "show", "@"}, 1, "Is a directory"},
        {{"config", "show", "/dev/zero"}, 1, ""},
        {{"config", "show", "@fifo"}, 1, ""},  // refused, not waited on
        {{"prefs", "get", "AutoSave", "--type", "bool"}, 1, "'10' is not true or false"},
        {{"prefs", "get", "Missing"}, 1, "no preference 'Missing'"},
        {{"prefs", "set", "A=B", "1"}, 1, "may not hold '='"},
        {{"prefs", "set", "N", "1.5", "--type", "int"}, 1, "'1.5' is not a whole number"},
        {{"prefs", "remove", "Missing"}, 1, "no preference 'Missing'"},
        {{"prefs", "import", "<[EditorPreferences]\nB=2\njunk\n"}, 1, "line 3: 'junk' is not name=value"},
        {{"prefs", "import", "<[EditorPreferences]\nB=a\\tb\n"}, 1, "unknown escape"},
        {{"prefs", "import", "<[Other]\nB=2\n"}, 1, "has no [EditorPreferences] section"},
        {{"prefs", "import", "@missing.txt"}, 1, "No such file or directory"},
        {{"macro", "show", "@none.QvMacro"}, 1, ""},
        {{"formats", "4|0|1|-1920|1080|8|2|3|25fps"}, 1, "has a width of -1920"},
        {{"formats", "4|0|9|1920|1080|8|2|3|25fps"}, 1, "has an unknown scan mode 9"},
        {{"formats", "4|0|1|1920|1080|8|9|3|25fps"}, 1, "has an unknown aspect code 9"},
        {{"formats", "4|0|1|0|0|8|2|3|25fps"}, 1, "has a width of 0"},
        {{"cookie", "check", "A00-1D153E8D-61E0-4AB7-A921-7729CD364C42"}, 1, "does not start with a type"},
        {{"config", "set", "/none/f.cfg", "Z", "1", "--create"}, 1, "'/none/f.cfg': No such file"},
        {{"prefs", "import", "<[EditorPreferences]\n A=1\n"}, 1, "may not start or end"},
        {{"prefs", "import", std::string("<[EditorPreferences]\nA=1\0002\n", 27)}, 1, "NUL byte"},
        {{"rates", ""}, 2, "rate: the value is empty"},
        {{"formats", ""}, 2, "format: the value is empty"},
        {{"formats", "--project-rate", ""}, 2, "--project-rate: the value is empty"},
        {{"rates", "--group", ""}, 2, "--group: the value is empty"},
        {{"footage", "--gauge", "", "--frames", "1"}, 2, "--gauge: the value is empty"},
        {{"cookie", "new", "--type", "S", "--version", ""}, 2, "--version: the value is empty"},
        {{"config", "set", "f.cfg", "Z", "1", "--type", ""}, 2, "--type: the value is empty"},
        {{"timecode", "--rate", "25", "--seconds", ""}, 2, "--seconds"},
        {{"footage", "--frames", ""}, 2, "--frames"},
        {{"nosuch"}, 2, "unknown command 'nosuch'"},
        {{"cookie", "nosuch"}, 2, "unknown command 'cookie nosuch'"},
        {{"timecode", "-r", "25"}, 2, ""},
        {{"timecode", "-r", "25", "-s", "1", "-f", "1"}, 2, ""},
        {{"timecode", "-r", "25", "-s", "1", "--bogus"}, 2, ""},
        {{}, 2, ""},
    };
    ASSERT_EQ(sh("mkfifo " + quoted(dir + "/fifo"), home).status, 0);
    for (const auto& c : cases) {
        Args args = c.args;
        for (auto& a : args) {
            if (a.empty()) continue;
            const std::string path = dir + "/in" + std::to_string(files.size());
            if (a[0] == '<' && oletest::writeFile(path, files[path] = a.substr(1))) a = path;
            if (a[0] == '@') a = dir + "/" + a.substr(1);
        }
        const Result r = ole(args, home);
        const bool oneLine =
            r.err.rfind("ole: ", 0) == 0 && std::count(r.err.begin(), r.err.end(), '\n') == 1;
        EXPECT_TRUE(r.status == c.status && r.err.find(c.message) != std::string::npos &&
                    (c.status != 1 || (r.out.empty() && oneLine)))
            << testing::PrintToString(c.args) << " exited " << r.status << "\nout: " << r.out
            << "err: " << r.err << "(looked for: " << c.message << ")";
    }
    for (const auto& [path, content] : files) EXPECT_EQ(oletest::readFile(path), content) << path;
    EXPECT_EQ(oletest::readFile(home + "/config/Quorvane/user.cfg"), userCfg);
}

// Files the tool cannot keep are refused; many processes changing one file at once lose or double nothing.
TEST_F(OleTool, RefusesWhatItCannotKeepAndLosesNothingUnderContention) {
    const std::string home = oletest::makeTempDir("toolfiles");
    ASSERT_EQ(sh("mkdir -p data/Quorvane/Projects/cookie.num config/Quorvane/user.cfg", home).status, 0);
    for (const char* command : {"\"$OLE\" cookie new --type P", "\"$OLE\" cookie new --type P",
                                "rmdir data/Quorvane/Projects/cookie.num && "
                                "ln -s /dev/full data/Quorvane/Projects/cookie.num && \"$OLE\" cookie new",
                                "\"$OLE\" prefs list", "\"$OLE\" prefs set A 1"}) {
        const Result r = sh(command, home);
        EXPECT_TRUE(r.status == 1 && r.out.empty()) << command << "\n" << r.out;
    }
    ASSERT_EQ(sh("rmdir config/Quorvane/user.cfg && printf '{\\n}\\n' >record.cfg", home).status, 0);
    const char* both =
        "for i in $(seq 20); do \"$OLE\" prefs set P$i $i & \"$OLE\" config set record.cfg e$i $i & done";
    ASSERT_EQ(sh(std::string(both) + "; wait", home).status, 0);
    for (const auto& [command, message] :
         {std::pair{"cookie new >/dev/full", "No space left on device; the cookies made were "},
          {"rates >&-", "ole: cannot write to standard output"}}) {
        const Result r = sh(std::string("\"$OLE\" ") + command, oletest::makeTempDir("output"));
        EXPECT_TRUE(r.status == 1 && r.err.find(message) != std::string::npos) << command << "\n" << r.err;
    }
    EXPECT_EQ(sh("\"$OLE\" prefs list --json | grep -c '\"P[0-9]'", home).out, "20\n");
    EXPECT_EQ(sh("\"$OLE\" config show record.cfg --json | grep -c '\"e[0-9]'", home).out, "20\n");
}

}  // namespace
