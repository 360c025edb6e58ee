// Runs the built ole tool as a separate process and checks what it prints, its exit status and the files
// it leaves. The arithmetic behind each command is the library tests' job: here every command runs once
// through its main path, and one table holds the exit statuses of bad input and bad usage. JSON output is
// read with nlohmann::json, so a fault in the tool's own writer (escaping, number text) cannot hide.

#include "support/TestHome.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <string>
#include <vector>

extern char** environ;

namespace {

using nlohmann::json;
using Args = std::vector<std::string>;

struct Result {
    int status = -1;
    std::string out, err;
    json parsed() const {
        json j = json::parse(out, nullptr, false);
        EXPECT_FALSE(j.is_discarded()) << "not JSON:\n" << out;
        return j;
    }
};

Result ole(const Args& args, const std::string& home) {
    Result r;
#ifdef OLE_TOOL_PATH
    const std::string dir = oletest::makeTempDir("run");
    const std::string outPath = dir + "/out", errPath = dir + "/err";
    std::vector<std::string> env;
    for (char** e = environ; *e; ++e)
        if (std::strncmp(*e, "QUORVANE_HOME=", 14) != 0) env.push_back(*e);
    env.push_back("QUORVANE_HOME=" + home);
    std::vector<char*> argv{const_cast<char*>(OLE_TOOL_PATH)}, envp;
    for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    for (auto& e : env) envp.push_back(e.data());
    envp.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&actions, 2, errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    pid_t pid;
    const int spawned = posix_spawn(&pid, OLE_TOOL_PATH, &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) {
        ADD_FAILURE() << "cannot run " << OLE_TOOL_PATH << ": " << std::strerror(spawned);
        return r;
    }
    int wstatus = 0;
    waitpid(pid, &wstatus, 0);
    r.status = WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : 128 + WTERMSIG(wstatus);
    r.out = oletest::readFile(outPath);
    r.err = oletest::readFile(errPath);
#else
    (void)args;
    (void)home;
#endif
    return r;
}

Result ole(const Args& args) {
    return ole(args, oletest::makeTempDir("home"));
}
json oleJson(Args args, const std::string& home) {
    args.push_back("--json");
    return ole(args, home).parsed();
}
json oleJson(const Args& args) {
    return oleJson(args, oletest::makeTempDir("home"));
}

class OleTool : public testing::Test {
protected:
    void SetUp() override {
#ifndef OLE_TOOL_PATH
        GTEST_SKIP() << "the ole tool is not built (OLE_BUILD_TOOLS=OFF)";
#endif
    }
};

TEST_F(OleTool, Timecode) {
    json j = oleJson({"timecode", "--rate", "25", "--seconds", "3723.5"});
    EXPECT_EQ(j["timecode"], "01:02:03.12");
    EXPECT_EQ(j["frames"], 93087);
    EXPECT_EQ(j["seconds"], 3723.48);  // the start of the frame
    // Drop frame, with the label taken from the separator alone; each form reads back to the same frame.
    EXPECT_EQ(ole({"timecode", "-r", "30M", "--drop", "--frames", "1800", "--to", "timecode"}).out,
              "00:01:00;02\n");
    EXPECT_EQ(ole({"timecode", "-r", "29.97 fps", "--tc", "01:00:00;00", "--to", "frames"}).out, "107892\n");
    EXPECT_EQ(ole({"timecode", "-r", "30M", "--tc", "00:01:00;02", "--to", "seconds"}).out, "60.06\n");
    j = oleJson({"timecode", "-r", "24M", "-f", "17982"});
    EXPECT_EQ(oleJson({"timecode", "-r", "24M", "-s", j["seconds"].dump()})["frames"], 17982);
    EXPECT_EQ(oleJson({"timecode", "-r", "24M", "-t", j["timecode"]})["frames"], 17982);
    // Negative times are non-drop; the formatting flags go by number or by name.
    EXPECT_EQ(ole({"timecode", "-r", "25", "--seconds=-1.5", "--to", "timecode"}).out, "-00:00:01.12\n");
    EXPECT_EQ(ole({"timecode", "-r", "25", "--tc=-00:00:01.13", "--to", "frames"}).out, "-38\n");
    EXPECT_EQ(ole({"timecode", "-r", "25", "-s", "62", "--flags", "0", "--to", "timecode"}).out, "1:02.00\n");
    EXPECT_EQ(ole({"timecode", "-r", "25", "-s", "62", "--flags", "hours+seconds", "--to", "timecode"}).out,
              "00:01:02.00\n");
    // Real numbers print in their shortest exact form.
    EXPECT_EQ(ole({"timecode", "-r", "25", "-f", "90000", "--to", "seconds"}).out, "3600\n");
    EXPECT_NE(ole({"timecode", "-r", "24M", "-f", "1", "--json"}).out.find("\"seconds\": 0.041708,"),
              std::string::npos);
    // Through pulldown: at 30 fps four film frames take five video frames.
    j = oleJson({"timecode", "-r", "30", "-f", "4", "--pulldown"});
    EXPECT_EQ(j["video_frames"], 5);
    EXPECT_EQ(j["timecode"], "00:00:00.05");
    EXPECT_EQ(oleJson({"timecode", "-r", "30", "-t", "00:00:00.04", "--pulldown", "--phase", "0"})["frames"],
              3);
}

TEST_F(OleTool, FootageAndPulldown) {
    const json all = oleJson({"footage", "--frames", "17"});
    ASSERT_EQ(all["gauges"].size(), 4u);
    std::map<std::string, std::string> footage;
    for (const json& g : all["gauges"]) footage[g["edl"]] = g["footage"];
    EXPECT_EQ(footage["F35"], "1.01");
    EXPECT_EQ(footage["F16"], "0.17");
    EXPECT_EQ(footage["F353"], "0.17");
    EXPECT_EQ(oleJson({"footage", "-g", "16", "-f", "485", "--zero-pad"})["footage"], "0012.05");
    // 3-perf feet hold 21 or 22 frames; footage text reads back to the same frame count.
    const json there = oleJson({"footage", "-g", "F353", "-f", "43"});
    const json back = oleJson({"footage", "-g", "f353", "--feet", there["footage"]});
    EXPECT_EQ(back["frames"], 43);
    EXPECT_EQ(back["perfs"], 129);
    EXPECT_EQ(oleJson({"footage", "-g", "35mm 3-perf", "--feet", "1.00"})["frames"], 21);
    EXPECT_EQ(oleJson({"footage", "-g", "35mm", "--perfs", "68"})["frames"], 17);
    EXPECT_EQ(oleJson({"footage", "-g", "F35", "--feet", "12+05"})["frames"], 197);

    EXPECT_NE(ole({"pulldown", "add", "4", "-r", "30"}).out.find("\nvideo frames  5\n"), std::string::npos);
    const json added = oleJson({"pulldown", "add", "47", "-r", "60M", "--phase", "3"});
    const std::string video = added["video_frames"].dump();
    EXPECT_EQ(oleJson({"pulldown", "remove", video, "-r", "60M", "--phase", "3"})["film_frames"], 47);
    EXPECT_EQ(oleJson({"pulldown", "remove", "4", "-r", "30"})["film_frames"], 3);
}

TEST_F(OleTool, RatesAndFormats) {
    const json rates = oleJson({"rates"});
    ASSERT_EQ(rates.size(), 47u);
    for (const json& r : rates)  // every persistable string names its own rate again
        EXPECT_EQ(oleJson({"rates", r["persistable"]})["value"], r["value"]) << r["persistable"];
    const json ntsc = oleJson({"rates", "30M"});
    EXPECT_EQ(ntsc["ticks"], 30);
    EXPECT_EQ(ntsc["drop_frame_timecode"], true);
    EXPECT_EQ(ntsc["project_rate"], "30");
    EXPECT_EQ(ntsc["pulldown_video_cycle"], 5);
    EXPECT_EQ(oleJson({"rates", "23.98 fps"})["value"], 2);  // never 48MD2
    EXPECT_TRUE(oleJson({"rates", "24F"})["fps"].is_null());
    EXPECT_EQ(oleJson({"rates", "--project"}).size(), 6u);
    EXPECT_EQ(oleJson({"rates", "--group", "decimated"}).size(), 20u);

    const json formats = oleJson({"formats"});
    ASSERT_EQ(formats.size(), 32u);
    EXPECT_EQ(formats[9]["label"], "60.0fps");
    EXPECT_EQ(formats[14]["label"], "30fps");
    for (int index : {0, 12, 31}) {  // a format's persistable string finds its row again
        const json f = oleJson({"formats", std::to_string(index)});
        EXPECT_EQ(oleJson({"formats", f["persistable"]})["index"], index);
        EXPECT_EQ(f["interlaced"], index != 31);
    }
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
    const json shown = oleJson({"cookie", "show", text}, home);
    EXPECT_EQ(shown["type"], "G");
    EXPECT_EQ(shown["serial"], 4);
    EXPECT_EQ(shown["serial_base36"], "0004");
    EXPECT_EQ(oleJson({"cookie", "show", first.out.substr(0, 8)}, home)["machine"], shown["machine"]);
    // UUID cookies leave the counter alone; a type-S cookie carries its default version 1.
    const std::string u = oleJson({"cookie", "new", "--uuid", "-t", "s"}, home)["cookies"][0];
    EXPECT_EQ(oletest::readFile(counter), "5");
    EXPECT_EQ(u.size(), 40u);
    EXPECT_EQ(u.substr(0, 4), "S01-");
    EXPECT_EQ(oleJson({"cookie", "show", u}, home)["form"], "uuid");

    json j = oleJson({"cookie", "show", "P00B002S"});
    EXPECT_EQ(j["machine"], 5);
    EXPECT_EQ(j["serial"], 100);
    EXPECT_TRUE(j["builtin_effect"].is_null());
    EXPECT_EQ(oleJson({"cookie", "show", "VZ0Z0004"})["builtin_effect"], "film dissolve");
    j = oleJson({"cookie", "show", "VZ0Z2001"});
    EXPECT_EQ(j["builtin_effect"], "wipe");
    EXPECT_EQ(j["wipe_type"], 1);
    EXPECT_EQ(j["wipe_direction"], 1);
    // A lower-case cookie reads, but is not well-formed; position 19 of the UUID form is not looked at.
    j = oleJson({"cookie", "show", "p00B002S"});
    EXPECT_EQ(j["canonical"], "P00B002S");
    EXPECT_EQ(j["well_formed"], false);
    const Result check = ole({"cookie", "check", "P00B002S", "p00B002S"});
    EXPECT_EQ(check.status, 1);
    EXPECT_EQ(check.out, "P00B002S: well-formed\n");
    EXPECT_EQ(check.err,
              "ole: 'p00B002S' is not a well-formed cookie text (the editor reads it as P00B002S)\n");
    EXPECT_EQ(ole({"cookie", "check", "P00-E9D99A1F-73D2-4XD3-B417-825F6B9CF8AF"}).status,
              1);  // reads as no cookie: refused
    EXPECT_EQ(oleJson({"cookie", "check", "G00-E9D99A1F-73D2-43D3-B417-825F6B9CF8AF"})[0]["well_formed"],
              true);

    const json made = oleJson({"idstamp", "new", "-n", "2"}, home);
    ASSERT_EQ(made["idstamps"].size(), 2u);
    const json a = oleJson({"idstamp", "show", made["idstamps"][0]}, home);
    const json b = oleJson({"idstamp", "show", made["idstamps"][1]}, home);
    EXPECT_EQ(a["machine"], b["machine"]);
    EXPECT_TRUE(a["time_bits"] < b["time_bits"] || a["tick"].get<int>() + 1 == b["tick"]);
    j = oleJson({"idstamp", "show", "0000002A0123ABCD1F"});
    EXPECT_EQ(j["machine"], 42);
    EXPECT_EQ(j["time_bits"], 0x0123ABCD);
    EXPECT_EQ(j["tick"], 31);
    EXPECT_EQ(j["created"], "1996-01-28T17:01:01Z");
}

TEST_F(OleTool, ConfigEditsKeepTheFilesForm) {
    const std::string dir = oletest::makeTempDir("config");
    const std::string path = dir + "/project.cfg";
    ASSERT_TRUE(
        oletest::writeFile(path,
                           "{\r\n  # picture\r\n    Height:int   576  \r\n  Title Evening news: late\r\n\r\n"
                           "  Scale:double 1.50000000\r\n}\r\n"));
    const json shown = oleJson({"config", "show", path});
    ASSERT_EQ(shown["entries"].size(), 3u);
    EXPECT_EQ(shown["entries"][1]["value"], "Evening news: late");
    EXPECT_EQ(shown["entries"][2]["type"], "double");
    EXPECT_EQ(ole({"config", "get", path, "HEIGHT"}).out, "576\n");
    EXPECT_EQ(ole({"config", "set", path, "height", "720", "--type", "int"}).out, "Height:int 720\n");
    EXPECT_EQ(ole({"config", "set", path, "Width", "1920", "--type", "int"}).status, 0);
    EXPECT_EQ(ole({"config", "set", path, "Gamma", "2.2", "--type", "double"}).status, 0);
    EXPECT_EQ(ole({"config", "set", path, "Id", "P00B002S", "--type", "cookie"}).status, 0);
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
    EXPECT_EQ(j["entries"][0]["value"], odd);
    EXPECT_EQ(j["entries"][1]["value"], "bad\xEF\xBF\xBDmark");
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
    EXPECT_EQ(all["Note"], "two\nlines = \\");
    EXPECT_EQ(all.size(), 4u);

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
         {"timecode",   "footage",      "pulldown add",  "pulldown remove", "rates",        "formats",
          "cookie new", "cookie show",  "cookie check",  "idstamp new",     "idstamp show", "config show",
          "config get", "config set",   "config remove", "prefs get",       "prefs set",    "prefs remove",
          "prefs list", "prefs export", "prefs import"}) {
        Args args{command.substr(0, command.find(' '))};
        EXPECT_NE(top.out.find(args[0]), std::string::npos) << args[0];
        if (command.find(' ') != std::string::npos) args.push_back(command.substr(command.find(' ') + 1));
        args.push_back("--help");
        const Result r = ole(args);
        EXPECT_EQ(r.status, 0) << command;
        EXPECT_NE(r.out.find("Usage:"), std::string::npos) << command;
    }
    EXPECT_EQ(ole({"--version"}).out.rfind("ole ", 0), 0u);
}

// Bad input exits 1 with nothing on standard output and one "ole: " line naming the fault, and leaves every
// file as it was; bad usage exits 2. "@" in an argument stands for a folder of prepared files.
TEST_F(OleTool, ExitStatuses) {
    const std::string dir = oletest::makeTempDir("inputs");
    const struct {
        const char* name;
        std::string content;
    } files[] = {
        {"ok.cfg", "{\n  Height:int 576\n}\n"},
        {"empty.cfg", ""},
        {"nobrace.cfg", "A 1\n}\n"},
        {"indented.cfg", " {\nA 1\n}\n"},
        {"noend.cfg", "{\nA 1\n"},
        {"after.cfg", "{\nA 1\n}\nB 2\n"},
        {"repeat.cfg", "{\nA 1\n  a:int 2\n}\n"},
        {"noname.cfg", "{\n  :int 5\n}\n"},
        {"binary.cfg", std::string("{\nA 1\n}\n\0\n", 10)},
        {"junk.txt", "[EditorPreferences]\nB=2\njunk\n"},
        {"escape.txt", "[EditorPreferences]\nB=a\\tb\n"},
        {"none.txt", "[Other]\nB=2\n"},
    };
    for (const auto& f : files) ASSERT_TRUE(oletest::writeFile(dir + "/" + f.name, f.content));
    const std::string home = oletest::makeTempDir("statushome");
    ASSERT_EQ(ole({"prefs", "set", "AutoSave", "10"}, home).status, 0);
    const std::string userCfg = oletest::readFile(home + "/config/Quorvane/user.cfg");

    const struct {
        Args args;
        int status;
        const char* message;
    } cases[] = {
        {{"timecode", "-r", "26", "-s", "1"}, 1, "unknown frame rate '26'"},
        {{"timecode", "-r", "30m", "-s", "1"}, 1, "'30m'"},
        {{"timecode", "-r", "25", "-t", "1:2:3.4"}, 1, "'1:2:3.4' is not timecode"},
        {{"timecode", "-r", "25", "-t", "00:00:00.25"}, 1, "frame 25"},
        {{"timecode", "-r", "25", "-t", "00:60:00.00"}, 1, "59 minutes"},
        {{"timecode", "-r", "30M", "-t", "00:01:00;01"}, 1, "does not exist in drop-frame"},
        {{"timecode", "-r", "25", "-t", "00:00:01;00"}, 1, "29.97"},
        {{"timecode", "-r", "30M", "--drop", "-s", "-1"}, 1, "no negative times"},
        {{"timecode", "-r", "24", "-f", "1", "--pulldown"}, 1, "takes no pulldown"},
        {{"timecode", "-r", "30", "-f", "1", "--pulldown", "--phase", "4"}, 1, "out of range (0 to 3)"},
        {{"timecode", "-r", "25", "-s", "1x"}, 1, "'1x' is not a number"},
        {{"timecode", "-r", "25", "-s", "nan"}, 1, "is not a number"},
        {{"timecode", "-r", "25", "-s", "90000"}, 1, "24 hours"},
        {{"timecode", "-r", "25", "-f", "-1"}, 1, "unset time"},
        {{"timecode", "-r", "24F", "-f", "1"}, 1, "film rate"},
        {{"timecode", "-r", "24D2", "-t", "00:00:01.00"}, 1, "no timecode"},
        {{"timecode", "-r", "120", "-t", "00:00:01.00"}, 1, "pass two digits"},
        {{"timecode", "-r", "25", "-s", "1", "--flags", "16"}, 1, "--flags"},
        {{"footage", "-g", "35mm", "--feet", "1.16"}, 1, "has no frame 16"},
        {{"footage", "-g", "F353", "--feet", "0.21"}, 1, "has no frame 21"},
        {{"footage", "-g", "35mm", "--feet", "1.2.3"}, 1, "is not footage"},
        {{"footage", "-g", "35mm", "--perfs", "7"}, 1, "not a whole number of 35mm frames"},
        {{"footage", "-g", "70mm", "-f", "1"}, 1, "unknown film gauge '70mm'"},
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
        {{"config", "remove", "@ok.cfg", "Depth"}, 1, "no entry 'Depth'"},
        {{"config", "show", "@empty.cfg"}, 1, "is empty"},
        {{"config", "set", "@nobrace.cfg", "B", "3"}, 1, "line 1: expected '{'"},
        {{"config", "remove", "@indented.cfg", "A"}, 1, "line 1: expected '{'"},
        {{"config", "set", "@noend.cfg", "B", "3"}, 1, "has no end line '}'"},
        {{"config", "remove", "@after.cfg", "A"}, 1, "line 4: 'B 2' follows the end line"},
        {{"config", "set", "@repeat.cfg", "B", "3"}, 1, "line 3: entry 'a' repeats the one on line 2"},
        {{"config", "show", "@noname.cfg"}, 1, "line 2: '  :int 5' has no entry name"},
        {{"config", "set", "@binary.cfg", "B", "3"}, 1, "is not a text file"},
        {{"config", "show", "@missing.cfg"}, 1, "No such file or directory"},
        {{"config", "set", "@missing.cfg", "A", "1"}, 1, "No such file or directory"},
        {{"config", "show", "@"}, 1, "Is a directory"},
        {{"prefs", "get", "AutoSave", "--type", "bool"}, 1, "'10' is not true or false"},
        {{"prefs", "get", "Missing"}, 1, "no preference 'Missing'"},
        {{"prefs", "set", "A=B", "1"}, 1, "may not hold '='"},
        {{"prefs", "set", "N", "1.5", "--type", "int"}, 1, "'1.5' is not a whole number"},
        {{"prefs", "remove", "Missing"}, 1, "no preference 'Missing'"},
        {{"prefs", "import", "@junk.txt"}, 1, "line 3: 'junk' is not name=value"},
        {{"prefs", "import", "@escape.txt"}, 1, "unknown escape"},
        {{"prefs", "import", "@none.txt"}, 1, "has no [EditorPreferences] section"},
        {{"prefs", "import", "@missing.txt"}, 1, "No such file or directory"},
        {{"timecode", "-r", "25"}, 2, ""},
        {{"timecode", "-r", "25", "-s", "1", "-f", "1"}, 2, ""},
        {{"timecode", "-s", "1"}, 2, ""},
        {{"timecode", "-r", "25", "-s", "1", "--phase", "1"}, 2, ""},
        {{"timecode", "-r", "25", "-s", "1", "--bogus"}, 2, ""},
        {{"cookie", "show"}, 2, ""},
        {{"nosuchcommand"}, 2, ""},
        {{}, 2, ""},
    };
    for (const auto& c : cases) {
        Args args = c.args;
        for (auto& a : args)
            if (a[0] == '@') a = dir + "/" + a.substr(1);
        const Result r = ole(args, home);
        const std::string shown = testing::PrintToString(c.args);
        EXPECT_EQ(r.status, c.status) << shown << "\n" << r.err;
        if (c.status != 1) continue;
        EXPECT_EQ(r.out, "") << shown;
        EXPECT_EQ(r.err.rfind("ole: ", 0), 0u) << r.err;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err << "(looked for: " << c.message << ")";
    }
    for (const auto& f : files) EXPECT_EQ(oletest::readFile(dir + "/" + f.name), f.content) << f.name;
    EXPECT_EQ(oletest::readFile(home + "/config/Quorvane/user.cfg"), userCfg);
}

// --- failures: one row per bad command line ---------------------------------------------------------------

TEST(OleToolFailures, ExitStatusAndMessageNameTheFault) {
#ifndef OLE_TOOL_PATH
    GTEST_SKIP() << "the ole tool is not built (OLE_BUILD_TOOLS=OFF)";
#else
    const struct {
        const char* command;  // arguments and redirections, as the shell reads them
        int status;
        const char* message;  // a piece of standard error
    } rows[] = {
        {"cookie new >/dev/full", 1, "No space left on device; the cookies made were "},
        {"rates >&-", 1, "ole: cannot write to standard output"},
        {"rates '' >/dev/null", 2, "rate: the value is empty"},
        {"formats '' >/dev/null", 2, "format: the value is empty"},
        {"formats --project-rate '' >/dev/null", 2, "--project-rate: the value is empty"},
        {"rates --group '' >/dev/null", 2, "--group: the value is empty"},
        {"footage --gauge '' --frames 1 >/dev/null", 2, "--gauge: the value is empty"},
        {"cookie new --type S --version '' >/dev/null", 2, "--version: the value is empty"},
        {"config set f.cfg Z 1 --type '' >/dev/null", 2, "--type: the value is empty"},
        {"timecode --rate 25 --seconds '' >/dev/null", 2, "--seconds"},
        {"footage --frames '' >/dev/null", 2, "--frames"},
        {"nosuch >/dev/null", 2, "unknown command 'nosuch'"},
        {"cookie nosuch >/dev/null", 2, "unknown command 'cookie nosuch'"},
        {"config set /nonexistent/f.cfg Z 1 --create >/dev/null", 1, "'/nonexistent/f.cfg': No such file"},
        {"formats '4|0|1|-1920|1080|8|2|3|25fps' >/dev/null", 1, "has a width of -1920"},
        {"formats '4|0|9|1920|1080|8|2|3|25fps' >/dev/null", 1, "has an unknown scan mode 9"},
        {"formats '4|0|1|1920|1080|8|9|3|25fps' >/dev/null", 1, "has an unknown aspect code 9"},
        {"formats '4|0|1|0|0|8|2|3|25fps' >/dev/null", 1, "has a width of 0"},
        {"cookie check A00-1D153E8D-61E0-4AB7-A921-7729CD364C42 >/dev/null", 1, "does not start with a type"},
        {"printf '[EditorPreferences]\\n A=1\\n' >p.txt; $OLE prefs import p.txt", 1, "may not start or end"},
        {"printf '[EditorPreferences]\\nA=1\\0002\\n' >p.txt; $OLE prefs import p.txt", 1, "NUL byte"},
    };
    for (const auto& row : rows) {
        const std::string dir = oletest::makeTempDir("failures");
        std::string command = row.command;
        if (command.find("$OLE") == std::string::npos) command = "$OLE " + command;
        const std::string script = "cd '" + dir + "' && export QUORVANE_HOME='" + dir +
                                   "' OLE='" OLE_TOOL_PATH "' && { " + command + "; } 2>'" + dir + "/err'";
        const int status = std::system(script.c_str());
        const std::string err = oletest::readFile(dir + "/err");
        EXPECT_EQ(WIFEXITED(status) ? WEXITSTATUS(status) : -1, row.status) << row.command << "\n" << err;
        EXPECT_NE(err.find(row.message), std::string::npos) << row.command << "\n" << err;
    }
#endif
}

}  // namespace

// --- commands and macros ---------------------------------------------------------------------------------
// Self-contained: runs the tool through the shell and reads what it printed.

namespace cmdtool {

struct Run {
    int status = -1;
    std::string out, err;
};

Run run(const std::string& args) {
    Run r;
#ifdef OLE_TOOL_PATH
    const std::string dir = oletest::makeTempDir("cmdtool");
    const std::string line =
        "QUORVANE_HOME='" + dir + "' '" OLE_TOOL_PATH "' " + args + " >'" + dir + "/out' 2>'" + dir + "/err'";
    const int status = std::system(line.c_str());
    r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    r.out = oletest::readFile(dir + "/out");
    r.err = oletest::readFile(dir + "/err");
#else
    (void)args;
#endif
    return r;
}

bool has(const std::string& text, const std::string& piece) {
    return text.find(piece) != std::string::npos;
}

}  // namespace cmdtool

TEST_F(OleTool, CommandsListsNamesDisplayNamesAndKeys) {
    const cmdtool::Run r = cmdtool::run("commands --json");
    EXPECT_EQ(r.status, 0) << r.err;
    for (const char* piece : {"\"name\": \"Nudge Left\"", "\"keys\": \"Ctrl+Left\"",
                              "\"name\": \"toggle_debug_notify\"", "\"display_name\": \"Mark In\""})
        EXPECT_TRUE(cmdtool::has(r.out, piece)) << piece << "\n" << r.out;
}

TEST_F(OleTool, MacroShowCheckAndRun) {
    const std::string dir = oletest::makeTempDir("macro");
    ASSERT_TRUE(oletest::writeFile(
        dir + "/trim.QvMacro",
        "Name=Trim\nDescription=Trim both ends\nCommands=mark in,Nudge Left(3),Bogus,Stop(0)\n"));
    ASSERT_TRUE(oletest::writeFile(dir + "/ok.QvMacro", "NAME=Ok\nCOMMANDS=Play,Stop\n"));
    const std::string trim = "'" + dir + "/trim.QvMacro'";

    cmdtool::Run r = cmdtool::run("macro run " + trim);
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "> MacroStart\n> Mark In\n> Nudge Left\n> Nudge Left\n> Nudge Left\n> MacroEnd\n");
    EXPECT_TRUE(cmdtool::has(r.err, "Couldn't find 'Bogus'")) << r.err;

    r = cmdtool::run("macro check " + trim);
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(cmdtool::has(r.err, "unknown command 'Bogus'")) << r.err;
    EXPECT_EQ(cmdtool::run("macro check '" + dir + "/ok.QvMacro'").status, 0);

    r = cmdtool::run("macro show --json " + trim);
    EXPECT_EQ(r.status, 0);
    EXPECT_TRUE(cmdtool::has(r.out, "Trim both ends") && cmdtool::has(r.out, "\"count\": 3")) << r.out;
    EXPECT_EQ(cmdtool::run("macro show '" + dir + "/none.QvMacro'").status, 1);
}

// Files the tool must not trust: a counter it cannot keep, devices and FIFOs, a settings file that is a
// directory; and many processes changing one file at once.
TEST(OleToolFiles, RefusesWhatItCannotKeepAndLosesNothingUnderContention) {
#ifndef OLE_TOOL_PATH
    GTEST_SKIP() << "the ole tool is not built (OLE_BUILD_TOOLS=OFF)";
#else
    const std::string home = oletest::makeTempDir("toolfiles");
    // Runs a shell command with the tool as $OLE; its exit status, and standard output in `out`.
    const auto run = [&](const std::string& command, std::string* out = nullptr) {
        FILE* pipe = ::popen(("cd '" + home + "' && QUORVANE_HOME='" + home +
                              "' OLE=" OLE_TOOL_PATH " sh -c '" + command + "' 2>/dev/null")
                                 .c_str(),
                             "r");
        std::string text;
        char buffer[4096];
        for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) text.append(buffer, n);
        if (out) *out = text;
        const int status = ::pclose(pipe);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    };
    const std::string projects = home + "/data/Quorvane/Projects";
    std::string out;
    ASSERT_EQ(
        ::system(("mkdir -p " + projects + "/cookie.num " + home + "/config/Quorvane/user.cfg").c_str()), 0);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(run("$OLE cookie new --type P", &out), 1);
        EXPECT_EQ(out, "");
    }
    ASSERT_EQ(
        ::system(
            ("rmdir " + projects + "/cookie.num && ln -s /dev/full " + projects + "/cookie.num").c_str()),
        0);
    EXPECT_EQ(run("$OLE cookie new --type P", &out), 1);
    EXPECT_EQ(out, "");
    EXPECT_EQ(run("$OLE prefs list"), 1);  // user.cfg is a directory
    EXPECT_EQ(run("$OLE prefs set A 1"), 1);

    ASSERT_EQ(run("mkfifo fifo"), 0);
    EXPECT_EQ(run("$OLE config show /dev/zero"), 1);
    EXPECT_EQ(run("$OLE config show fifo"), 1);  // refused, not waited on

    ASSERT_EQ(::system(("rmdir " + home + "/config/Quorvane/user.cfg").c_str()), 0);
    ASSERT_TRUE(oletest::writeFile(home + "/record.cfg", "{\n}\n"));
    ASSERT_EQ(
        run("for i in $(seq 20); do $OLE prefs set P$i $i & $OLE config set record.cfg e$i $i & done; wait"),
        0);
    ASSERT_EQ(run("$OLE prefs list --json | grep -c \\\"P[0-9]", &out), 0);
    EXPECT_EQ(out, "20\n");
    ASSERT_EQ(run("$OLE config show record.cfg --json | grep -c \\\"e[0-9]", &out), 0);
    EXPECT_EQ(out, "20\n");
#endif
}
