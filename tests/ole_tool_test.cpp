// Runs the built ole tool as a separate process on good and bad input and checks what it prints, its exit
// status and the files it leaves. Each run gets its own $QUORVANE_HOME unless a test shares one on purpose.
// JSON output is read back with a small reader of our own, so that a fault in the tool's writer (escaping,
// number text) cannot hide behind the same code reading it.

#include "support/TestHome.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

extern char** environ;

namespace {

// --- a small JSON reader -------------------------------------------------------------------------------

struct Json {
    enum Type { Null, Bool, Number, String, Array, Object } type = Null;
    bool boolean = false;
    double number = 0;
    std::string text;
    std::vector<Json> items;
    std::vector<std::pair<std::string, Json>> members;

    const Json& operator[](const std::string& key) const {
        for (const auto& m : members)
            if (m.first == key) return m.second;
        static const Json missing;
        ADD_FAILURE() << "no member " << key;
        return missing;
    }
    const Json& operator[](std::size_t i) const { return items.at(i); }
    bool has(const std::string& key) const {
        for (const auto& m : members)
            if (m.first == key) return true;
        return false;
    }
};

class JsonReader {
public:
    explicit JsonReader(const std::string& text) : s_(text) {}

    // False when the text is not exactly one JSON value (white space around it allowed).
    bool read(Json& out) {
        ok_ = true;
        value(out);
        space();
        return ok_ && i_ == s_.size();
    }

private:
    void space() {
        while (i_ < s_.size() && std::strchr(" \t\r\n", s_[i_])) ++i_;
    }
    bool take(char c) {
        space();
        if (i_ < s_.size() && s_[i_] == c) return ++i_, true;
        return false;
    }
    bool word(const char* w) {
        if (s_.compare(i_, std::strlen(w), w) != 0) return false;
        i_ += std::strlen(w);
        return true;
    }
    void value(Json& out) {
        space();
        if (i_ >= s_.size()) return void(ok_ = false);
        const char c = s_[i_];
        if (c == '{') {
            out.type = Json::Object;
            ++i_;
            if (take('}')) return;
            do {
                std::string key;
                space();
                if (!string(key) || !take(':')) return void(ok_ = false);
                out.members.emplace_back(key, Json());
                value(out.members.back().second);
            } while (ok_ && take(','));
            if (!take('}')) ok_ = false;
        } else if (c == '[') {
            out.type = Json::Array;
            ++i_;
            if (take(']')) return;
            do {
                out.items.emplace_back();
                value(out.items.back());
            } while (ok_ && take(','));
            if (!take(']')) ok_ = false;
        } else if (c == '"') {
            out.type = Json::String;
            ok_ = string(out.text);
        } else if (word("true") || word("false")) {
            out.type = Json::Bool;
            out.boolean = c == 't';
        } else if (word("null")) {
            out.type = Json::Null;
        } else {
            // JSON's number grammar: no leading '+', no leading zeros, digits on both sides of a point.
            const std::size_t start = i_;
            if (s_[i_] == '-') ++i_;
            const std::size_t intStart = i_;
            while (i_ < s_.size() && std::isdigit((unsigned char)s_[i_])) ++i_;
            const std::size_t intDigits = i_ - intStart;
            if (intDigits == 0 || (intDigits > 1 && s_[intStart] == '0')) return void(ok_ = false);
            if (i_ < s_.size() && s_[i_] == '.') {
                const std::size_t frac = ++i_;
                while (i_ < s_.size() && std::isdigit((unsigned char)s_[i_])) ++i_;
                if (i_ == frac) return void(ok_ = false);
            }
            if (i_ < s_.size() && (s_[i_] == 'e' || s_[i_] == 'E')) {
                ++i_;
                if (i_ < s_.size() && (s_[i_] == '+' || s_[i_] == '-')) ++i_;
                const std::size_t exp = i_;
                while (i_ < s_.size() && std::isdigit((unsigned char)s_[i_])) ++i_;
                if (i_ == exp) return void(ok_ = false);
            }
            out.type = Json::Number;
            out.number = std::strtod(s_.substr(start, i_ - start).c_str(), nullptr);
        }
    }
    static void utf8(std::string& out, unsigned code) {
        if (code < 0x80) {
            out += char(code);
        } else if (code < 0x800) {
            out += char(0xC0 | (code >> 6));
            out += char(0x80 | (code & 0x3F));
        } else if (code < 0x10000) {
            out += char(0xE0 | (code >> 12));
            out += char(0x80 | ((code >> 6) & 0x3F));
            out += char(0x80 | (code & 0x3F));
        } else {
            out += char(0xF0 | (code >> 18));
            out += char(0x80 | ((code >> 12) & 0x3F));
            out += char(0x80 | ((code >> 6) & 0x3F));
            out += char(0x80 | (code & 0x3F));
        }
    }
    bool hex4(unsigned& code) {
        if (i_ + 4 > s_.size()) return false;
        code = unsigned(std::strtoul(s_.substr(i_, 4).c_str(), nullptr, 16));
        i_ += 4;
        return true;
    }
    bool string(std::string& out) {
        if (s_[i_++] != '"') return false;
        while (i_ < s_.size()) {
            const unsigned char c = s_[i_++];
            if (c == '"') return true;
            if (c < 0x20) return false;  // control characters must be escaped
            if (c != '\\') {
                out += char(c);
                continue;
            }
            if (i_ >= s_.size()) return false;
            const char e = s_[i_++];
            const char* simple = std::strchr("\"\\/bfnrt", e);
            if (simple && e) {
                out += "\"\\/\b\f\n\r\t"[simple - "\"\\/bfnrt"];
            } else if (e == 'u') {
                unsigned code, low;
                if (!hex4(code)) return false;
                if (code >= 0xD800 && code < 0xDC00) {
                    if (!word("\\u") || !hex4(low)) return false;
                    code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
                }
                utf8(out, code);
            } else {
                return false;
            }
        }
        return false;
    }

    const std::string& s_;
    std::size_t i_ = 0;
    bool ok_ = true;
};

// --- running the tool ----------------------------------------------------------------------------------

struct Result {
    int status = -1;
    std::string out, err;
    Json json() const {
        Json j;
        EXPECT_TRUE(JsonReader(out).read(j)) << "not JSON:\n" << out;
        return j;
    }
    // Bad input: status 1, nothing on standard output, one "ole: " line on standard error holding `piece`.
    void expectRefused(const std::string& piece) const {
        EXPECT_EQ(status, 1) << err;
        EXPECT_EQ(out, "");
        EXPECT_EQ(err.rfind("ole: ", 0), 0u) << err;
        EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
        EXPECT_NE(err.find(piece), std::string::npos) << err << "(looked for: " << piece << ")";
    }
};

Result ole(const std::vector<std::string>& args, const std::string& home) {
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

Result ole(const std::vector<std::string>& args) {
    return ole(args, oletest::makeTempDir("home"));
}

class OleTool : public testing::Test {
protected:
    void SetUp() override {
#ifndef OLE_TOOL_PATH
        GTEST_SKIP() << "the ole tool is not built (OLE_BUILD_TOOLS=OFF)";
#endif
    }
};

// --- timecode --------------------------------------------------------------------------------------------

TEST_F(OleTool, TimecodeConvertsEveryWayAndAgrees) {
    Json j = ole({"timecode", "--rate", "25", "--seconds", "3723.5", "--json"}).json();
    EXPECT_EQ(j["timecode"].text, "01:02:03.12");
    EXPECT_EQ(j["frames"].number, 93087);
    EXPECT_EQ(j["seconds"].number, 3723.48);  // the start of the frame

    // Drop frame: the first frame of minute 1 is ;02, minute 10 keeps ;00, and the label may come from the
    // separator alone.
    EXPECT_EQ(ole({"timecode", "-r", "30M", "--drop", "--frames", "1800", "--to", "timecode"}).out,
              "00:01:00;02\n");
    EXPECT_EQ(ole({"timecode", "-r", "30M", "--tc", "00:10:00;00", "--to", "frames"}).out, "17982\n");
    EXPECT_EQ(ole({"timecode", "-r", "29.97 fps", "--tc", "01:00:00;00", "--to", "frames"}).out, "107892\n");
    EXPECT_EQ(ole({"timecode", "-r", "30M", "--tc", "00:01:00;02", "--to", "seconds"}).out, "60.06\n");

    // Whatever the starting form, the three forms describe one frame.
    for (const std::string rate : {"24", "24M", "25", "30M", "30M --drop", "60", "100"}) {
        std::vector<std::string> kind{"timecode", "-r", rate.substr(0, rate.find(' '))};
        if (rate.find("--drop") != std::string::npos) kind.push_back("--drop");
        const auto convert = [&kind](const char* option, const std::string& value) {
            std::vector<std::string> args = kind;
            args.insert(args.end(), {option, value, "--json"});
            return ole(args).json();
        };
        for (const char* frames : {"0", "1", "1799", "1800", "17982", "90000", "2000000"}) {
            const Json a = convert("-f", frames);
            EXPECT_EQ(a["frames"].number, std::atof(frames)) << rate;
            EXPECT_EQ(convert("-s", std::to_string(a["seconds"].number))["frames"].number, a["frames"].number)
                << rate << " " << frames;
            EXPECT_EQ(convert("-t", a["timecode"].text)["frames"].number, a["frames"].number)
                << rate << " " << a["timecode"].text;
        }
    }

    // A negative time prints and reads back as non-drop.
    EXPECT_EQ(ole({"timecode", "-r", "25", "--seconds=-1.5", "--to", "timecode"}).out, "-00:00:01.12\n");
    EXPECT_EQ(ole({"timecode", "-r", "25", "--tc=-00:00:01.13", "--to", "frames"}).out, "-38\n");

    // The formatting flags, by number or by name; frames alone need the frames flag.
    EXPECT_EQ(ole({"timecode", "-r", "25", "-s", "62", "--flags", "0", "--to", "timecode"}).out, "1:02.00\n");
    EXPECT_EQ(ole({"timecode", "-r", "25", "-s", "0.04", "--flags", "0", "--to", "timecode"}).out, "\n");
    EXPECT_EQ(ole({"timecode", "-r", "25", "-s", "0.04", "--flags", "frames", "--to", "timecode"}).out,
              ".01\n");
    EXPECT_EQ(ole({"timecode", "-r", "25", "-s", "62", "--flags", "hours+seconds", "--to", "timecode"}).out,
              "00:01:02.00\n");
}

TEST_F(OleTool, TimecodeThroughPulldownCountsFilmFrames) {
    // At 30 fps four film frames take five video frames; the phase moves where the repeat falls.
    Json j = ole({"timecode", "-r", "30", "-f", "4", "--pulldown", "--json"}).json();
    EXPECT_EQ(j["video_frames"].number, 5);
    EXPECT_EQ(j["timecode"].text, "00:00:00.05");
    j = ole({"timecode", "-r", "30", "-t", "00:00:00.04", "--pulldown", "--phase", "0", "--json"}).json();
    EXPECT_EQ(j["frames"].number, 3);  // the repeated video frame shows the film frame before it
    j = ole({"timecode", "-r", "25", "-f", "48", "--pulldown", "--phase", "23", "--json"}).json();
    EXPECT_EQ(j["video_frames"].number, 50);
    EXPECT_EQ(j["frames"].number, 48);
}

TEST_F(OleTool, TimecodeRefusesBadInputWithOneLine) {
    ole({"timecode", "-r", "26", "-s", "1"}).expectRefused("unknown frame rate '26'");
    ole({"timecode", "-r", "30m", "-s", "1"}).expectRefused("'30m'");
    ole({"timecode", "-r", "25", "-t", "1:2:3.4"}).expectRefused("'1:2:3.4' is not timecode");
    ole({"timecode", "-r", "25", "-t", "00:00:00.25"}).expectRefused("frame 25");
    ole({"timecode", "-r", "25", "-t", "00:60:00.00"}).expectRefused("59 minutes");
    ole({"timecode", "-r", "30M", "-t", "00:01:00;01"}).expectRefused("does not exist in drop-frame");
    ole({"timecode", "-r", "25", "-t", "00:00:01;00"}).expectRefused("29.97");
    ole({"timecode", "-r", "30M", "--drop", "-s", "-1"}).expectRefused("no negative times");
    ole({"timecode", "-r", "24", "-f", "1", "--pulldown"}).expectRefused("takes no pulldown");
    ole({"timecode", "-r", "30", "-f", "1", "--pulldown", "--phase", "4"})
        .expectRefused("out of range (0 to 3)");
    ole({"timecode", "-r", "25", "-s", "1x"}).expectRefused("'1x' is not a number");
    ole({"timecode", "-r", "25", "-s", "nan"}).expectRefused("is not a number");
    ole({"timecode", "-r", "25", "-s", "90000"}).expectRefused("24 hours");
    ole({"timecode", "-r", "25", "-f", "-1"}).expectRefused("unset time");
    ole({"timecode", "-r", "24F", "-f", "1"}).expectRefused("film rate");
    ole({"timecode", "-r", "24D2", "-t", "00:00:01.00"}).expectRefused("no timecode");
    ole({"timecode", "-r", "120", "-t", "00:00:01.00"}).expectRefused("pass two digits");
    ole({"timecode", "-r", "25", "-s", "1", "--flags", "16"}).expectRefused("--flags");

    // Usage errors are status 2.
    EXPECT_EQ(ole({"timecode", "-r", "25"}).status, 2);
    EXPECT_EQ(ole({"timecode", "-r", "25", "-s", "1", "-f", "1"}).status, 2);
    EXPECT_EQ(ole({"timecode", "-s", "1"}).status, 2);
    EXPECT_EQ(ole({"timecode", "-r", "25", "-s", "1", "--phase", "1"}).status, 2);
    EXPECT_EQ(ole({"timecode", "-r", "25", "-s", "1", "--bogus"}).status, 2);
    EXPECT_EQ(ole({"nosuchcommand"}).status, 2);
    EXPECT_EQ(ole({}).status, 2);
}

// --- footage and pulldown --------------------------------------------------------------------------------

TEST_F(OleTool, FootageForEveryGaugeAndBack) {
    const Json all = ole({"footage", "--frames", "17", "--json"}).json();
    ASSERT_EQ(all["gauges"].items.size(), 4u);
    std::map<std::string, std::string> footage;
    for (const Json& g : all["gauges"].items) footage[g["edl"].text] = g["footage"].text;
    EXPECT_EQ(footage["F35"], "1.01");
    EXPECT_EQ(footage["F16"], "0.17");
    EXPECT_EQ(footage["F353"], "0.17");
    EXPECT_EQ(ole({"footage", "-g", "35mm", "-f", "-17", "--json"}).json()["footage"].text, "-1.01");
    EXPECT_EQ(ole({"footage", "-g", "16", "-f", "485", "--zero-pad", "--json"}).json()["footage"].text,
              "0012.05");

    // 3-perf feet hold 21 or 22 frames; footage text reads back to the same frame count.
    for (int frames : {20, 21, 22, 43, 64, 1000}) {
        const Json there = ole({"footage", "-g", "F353", "-f", std::to_string(frames), "--json"}).json();
        const Json back = ole({"footage", "-g", "f353", "--feet", there["footage"].text, "--json"}).json();
        EXPECT_EQ(back["frames"].number, frames);
        EXPECT_EQ(back["perfs"].number, 3 * frames);
    }
    EXPECT_EQ(ole({"footage", "-g", "35mm 3-perf", "--feet", "1.00", "--json"}).json()["frames"].number, 21);
    EXPECT_EQ(ole({"footage", "-g", "35mm", "--perfs", "68", "--json"}).json()["frames"].number, 17);
    EXPECT_EQ(ole({"footage", "-g", "F35", "--feet", "12+05", "--json"}).json()["frames"].number, 197);

    ole({"footage", "-g", "35mm", "--feet", "1.16"}).expectRefused("has no frame 16");
    ole({"footage", "-g", "F353", "--feet", "0.21"}).expectRefused("has no frame 21");
    ole({"footage", "-g", "35mm", "--feet", "1.2.3"}).expectRefused("is not footage");
    ole({"footage", "-g", "35mm", "--perfs", "7"}).expectRefused("not a whole number of 35mm frames");
    ole({"footage", "-g", "70mm", "-f", "1"}).expectRefused("--gauge: '70mm' is not a film gauge");
    ole({"footage", "--feet", "1.00"}).expectRefused("needs --gauge");
}

TEST_F(OleTool, PulldownRemoveUndoesAdd) {
    for (const char* rate : {"30", "60M", "25"}) {
        const bool thirty = std::string(rate) != "25";
        for (int phase : {0, thirty ? 3 : 23}) {
            for (int n : {0, 1, 3, 4, 5, 47, 1000}) {
                const std::string p = std::to_string(phase);
                const Json added =
                    ole({"pulldown", "add", std::to_string(n), "-r", rate, "--phase", p, "--json"}).json();
                const std::string video = std::to_string(int(added["video_frames"].number));
                const Json removed =
                    ole({"pulldown", "remove", video, "-r", rate, "--phase", p, "--json"}).json();
                EXPECT_EQ(removed["film_frames"].number, n) << rate << " phase " << phase;
            }
        }
    }
    EXPECT_NE(ole({"pulldown", "add", "4", "-r", "30"}).out.find("\nvideo frames  5\n"), std::string::npos);
    EXPECT_EQ(ole({"pulldown", "remove", "4", "-r", "30", "--json"}).json()["film_frames"].number, 3);
    ole({"pulldown", "add", "4", "-r", "24"}).expectRefused("takes no pulldown");
    ole({"pulldown", "remove", "4", "-r", "30", "--phase", "5"}).expectRefused("out of range (0 to 4)");
    ole({"pulldown", "add", "-3", "-r", "30"}).expectRefused("out of range");
}

// --- rates and formats -----------------------------------------------------------------------------------

TEST_F(OleTool, RateAndFormatTables) {
    const Json rates = ole({"rates", "--json"}).json();
    ASSERT_EQ(rates.items.size(), 47u);
    for (const Json& r : rates.items) {
        // Every persistable string names its own rate again.
        const Json one = ole({"rates", r["persistable"].text, "--json"}).json();
        EXPECT_EQ(one["value"].number, r["value"].number) << r["persistable"].text;
    }
    const Json ntsc = ole({"rates", "30M", "--json"}).json();
    EXPECT_EQ(ntsc["ticks"].number, 30);
    EXPECT_TRUE(ntsc["drop_frame_timecode"].boolean);
    EXPECT_EQ(ntsc["project_rate"].text, "30");
    EXPECT_EQ(ntsc["pulldown_video_cycle"].number, 5);
    EXPECT_EQ(ole({"rates", "23.98 fps", "--json"}).json()["value"].number, 2);  // never 48MD2
    EXPECT_EQ(ole({"rates", "24F", "--json"}).json()["fps"].type, Json::Null);
    EXPECT_EQ(ole({"rates", "--project", "--json"}).json().items.size(), 6u);
    EXPECT_EQ(ole({"rates", "--group", "decimated", "--json"}).json().items.size(), 20u);
    ole({"rates", "31"}).expectRefused("unknown frame rate");

    const Json formats = ole({"formats", "--json"}).json();
    ASSERT_EQ(formats.items.size(), 32u);
    EXPECT_EQ(formats[9]["label"].text, "60.0fps");
    EXPECT_EQ(formats[14]["label"].text, "30fps");
    // A format's persistable string finds its row again.
    for (const char* index : {"0", "3", "12", "31"}) {
        const Json f = ole({"formats", index, "--json"}).json();
        EXPECT_EQ(ole({"formats", f["persistable"].text, "--json"}).json()["index"].number, std::atof(index));
        EXPECT_EQ(f["interlaced"].boolean, std::string(index) != "31");
    }
    std::vector<double> pal;
    for (const Json& f : ole({"formats", "--project-rate", "25", "--json"}).json().items)
        pal.push_back(f["index"].number);
    EXPECT_EQ(pal, (std::vector<double>{0, 1, 6, 12, 17, 29}));
    ole({"formats", "32"}).expectRefused("out of range (0 to 31)");
    ole({"formats", "4|0|1|1920|1080|8|2|3|25fps|28x"}).expectRefused("not an output format string");
    ole({"formats", "4|0|1|1920|1080|8|2|99|25fps"}).expectRefused("unknown frame rate 99");
}

// --- cookies and IdStamps --------------------------------------------------------------------------------

TEST_F(OleTool, NewCookiesComeFromTheUsersCounter) {
    const std::string home = oletest::makeTempDir("cookies");
    const std::string counter = home + "/data/Quorvane/Projects/cookie.num";
    Result first = ole({"cookie", "new", "--type", "P", "--count", "3"}, home);
    ASSERT_EQ(first.status, 0) << first.err;
    EXPECT_EQ(first.err.find("WARNING"), std::string::npos) << first.err;
    EXPECT_EQ(oletest::readFile(counter), "4");

    const Json next = ole({"cookie", "new", "--json"}, home).json();
    const std::string text = next["cookies"][0].text;
    EXPECT_EQ(oletest::readFile(counter), "5");
    const Json shown = ole({"cookie", "show", text, "--json"}, home).json();
    EXPECT_EQ(shown["type"].text, "G");
    EXPECT_EQ(shown["serial"].number, 4);
    EXPECT_EQ(shown["serial_base36"].text, "0004");
    // The same machine made both.
    const std::string firstCookie = first.out.substr(0, 8);
    EXPECT_EQ(ole({"cookie", "show", firstCookie, "--json"}, home).json()["machine"].number,
              shown["machine"].number);
    EXPECT_EQ(ole({"cookie", "check", firstCookie, text}, home).status, 0);

    // UUID cookies leave the counter alone; a type-S cookie carries its default version 1.
    const Json uuid = ole({"cookie", "new", "--uuid", "-t", "s", "--json"}, home).json();
    EXPECT_EQ(oletest::readFile(counter), "5");
    const std::string u = uuid["cookies"][0].text;
    ASSERT_EQ(u.size(), 40u);
    EXPECT_EQ(u.substr(0, 4), "S01-");
    EXPECT_EQ(ole({"cookie", "show", u, "--json"}, home).json()["form"].text, "uuid");

    ole({"cookie", "new", "--type", "X"}, home).expectRefused("'X' is not a cookie type");
    ole({"cookie", "new", "--version", "36"}, home).expectRefused("out of range (0 to 35)");
    EXPECT_EQ(oletest::readFile(counter), "5");
}

TEST_F(OleTool, CookieShowAndCheck) {
    Json j = ole({"cookie", "show", "P00B002S", "--json"}).json();
    EXPECT_EQ(j["machine"].number, 5);
    EXPECT_EQ(j["serial"].number, 100);
    EXPECT_EQ(j["builtin_effect"].type, Json::Null);
    EXPECT_EQ(ole({"cookie", "show", "VZ0Z0001", "--json"}).json()["builtin_effect"].text, "video black");
    EXPECT_EQ(ole({"cookie", "show", "VZ0Z0004", "--json"}).json()["builtin_effect"].text, "film dissolve");
    j = ole({"cookie", "show", "VZ0Z2001", "--json"}).json();
    EXPECT_EQ(j["builtin_effect"].text, "wipe");
    EXPECT_EQ(j["wipe_type"].number, 1);
    EXPECT_EQ(j["wipe_direction"].number, 1);

    // The library reads a lower-case cookie but does not call it well-formed; the tool says both.
    j = ole({"cookie", "show", "p00B002S", "--json"}).json();
    EXPECT_EQ(j["canonical"].text, "P00B002S");
    EXPECT_FALSE(j["well_formed"].boolean);
    const Result check = ole({"cookie", "check", "P00B002S", "p00B002S"});
    EXPECT_EQ(check.status, 1);
    EXPECT_EQ(check.out, "P00B002S: well-formed\n");
    EXPECT_EQ(check.err,
              "ole: 'p00B002S' is not a well-formed cookie text (the editor reads it as P00B002S)\n");
    // Check and show agree: a text the library's check passes but which reads as no cookie is refused.
    EXPECT_EQ(ole({"cookie", "check", "P00-E9D99A1F-73D2-4XD3-B417-825F6B9CF8AF"}).status, 1);
    const Json checked =
        ole({"cookie", "check", "G00-E9D99A1F-73D2-43D3-B417-825F6B9CF8AF", "--json"}).json();
    EXPECT_TRUE(checked[0]["well_formed"].boolean);

    ole({"cookie", "show", "INVALID"}).expectRefused("8 or 40 characters");
    ole({"cookie", "show", "X00B002S"}).expectRefused("'X00B002S' is not a cookie");
    EXPECT_EQ(ole({"cookie", "show"}).status, 2);
}

TEST_F(OleTool, IdStamps) {
    const std::string home = oletest::makeTempDir("stamps");
    const Json made = ole({"idstamp", "new", "-n", "2", "--json"}, home).json();
    ASSERT_EQ(made["idstamps"].items.size(), 2u);
    const Json a = ole({"idstamp", "show", made["idstamps"][0].text, "--json"}, home).json();
    const Json b = ole({"idstamp", "show", made["idstamps"][1].text, "--json"}, home).json();
    EXPECT_EQ(a["machine"].number, b["machine"].number);
    EXPECT_TRUE(a["time_bits"].number < b["time_bits"].number || a["tick"].number + 1 == b["tick"].number);

    const Json j = ole({"idstamp", "show", "0000002A0123ABCD1F", "--json"}).json();
    EXPECT_EQ(j["machine"].number, 42);
    EXPECT_EQ(j["time_bits"].number, 0x0123ABCD);
    EXPECT_EQ(j["tick"].number, 31);
    EXPECT_EQ(j["created"].text, "1996-01-28T17:01:01Z");
    ole({"idstamp", "show", "0000002A0123ABCD"}).expectRefused("17 to 24 hexadecimal digits");
    ole({"idstamp", "show", "0000002A0123ABCG0"}).expectRefused("not an IdStamp");
    ole({"idstamp", "show", "0000002A000000000"}).expectRefused("its time is zero");
}

// --- configb files ---------------------------------------------------------------------------------------

TEST_F(OleTool, ConfigEditsKeepTheFilesForm) {
    const std::string dir = oletest::makeTempDir("config");
    const std::string path = dir + "/project.cfg";
    ASSERT_TRUE(
        oletest::writeFile(path,
                           "{\r\n  # picture\r\n    Height:int   576  \r\n  Title Evening news: late\r\n\r\n"
                           "  Scale:double 1.50000000\r\n}\r\n"));
    const Json shown = ole({"config", "show", path, "--json"}).json();
    ASSERT_EQ(shown["entries"].items.size(), 3u);
    EXPECT_EQ(shown["entries"][1]["value"].text, "Evening news: late");
    EXPECT_EQ(shown["entries"][2]["type"].text, "double");
    EXPECT_EQ(ole({"config", "get", path, "HEIGHT"}).out, "576\n");

    EXPECT_EQ(ole({"config", "set", path, "height", "720", "--type", "int"}).out, "Height:int 720\n");
    EXPECT_EQ(ole({"config", "set", path, "Width", "1920", "--type", "int"}).status, 0);
    EXPECT_EQ(ole({"config", "set", path, "Gamma", "2.2", "--type", "double"}).status, 0);
    EXPECT_EQ(ole({"config", "set", path, "Id", "P00B002S", "--type", "cookie"}).status, 0);
    EXPECT_EQ(ole({"config", "remove", path, "scale"}).out, "removed Scale\n");
    const Json again = ole({"config", "set", path, "Width", "1920", "--type", "int", "--json"}).json();
    EXPECT_FALSE(again["changed"].boolean);
    EXPECT_EQ(oletest::readFile(path),
              "{\r\n  # picture\r\n    Height:int 720\r\n  Title Evening news: late\r\n\r\n"
              "  Width:int 1920\r\n  Gamma:double 2.20000000\r\n  Id:cookie P00B002S\r\n}\r\n");

    // A value of another type never replaces an entry, and typed values must read as their type.
    const std::string before = oletest::readFile(path);
    ole({"config", "set", path, "Height", "tall"}).expectRefused("'Height' is int, not text");
    ole({"config", "set", path, "Flag", "yes", "--type", "bool"}).expectRefused("'yes' is not true or false");
    ole({"config", "set", path, "Id2", "P00B00", "--type", "cookie"}).expectRefused("8 or 40 characters");
    ole({"config", "set", path, "Note", " padded"}).expectRefused("starts or ends with blanks");
    ole({"config", "set", path, "#x", "1"}).expectRefused("comment");
    ole({"config", "get", path, "Height", "--type", "double"}).expectRefused("is int, not double");
    ole({"config", "get", path, "Depth"}).expectRefused("no entry 'Depth'");
    ole({"config", "remove", path, "Depth"}).expectRefused("no entry 'Depth'");
    EXPECT_EQ(oletest::readFile(path), before);

    // A record with another end word.
    const std::string block = dir + "/block.cfg";
    ASSERT_TRUE(oletest::writeFile(block, "{\nA 1\nEND\n"));
    EXPECT_EQ(ole({"config", "set", block, "B", "2", "--end", "END"}).status, 0);
    EXPECT_EQ(oletest::readFile(block), "{\nA 1\nB 2\nEND\n");
    EXPECT_EQ(ole({"config", "set", dir + "/new.cfg", "A", "1", "--create"}).status, 0);
    EXPECT_EQ(oletest::readFile(dir + "/new.cfg"), "{\n  A 1\n}\n");
}

TEST_F(OleTool, ConfigNeverChangesAFileItCannotFullyRead) {
    const std::string dir = oletest::makeTempDir("badconfig");
    const struct {
        const char* content;
        const char* complaint;
    } cases[] = {
        {"", "is empty"},
        {"A 1\n}\n", "line 1: expected '{'"},
        {" {\nA 1\n}\n", "line 1: expected '{'"},
        {"{\nA 1\n", "has no end line '}'"},
        {"{\nA 1\n}\nB 2\n", "line 4: 'B 2' follows the end line"},
        {"{\nA 1\n  a:int 2\n}\n", "line 3: entry 'a' repeats the one on line 2"},
        {"{\n  :int 5\n}\n", "line 2: '  :int 5' has no entry name"},
        {"{\nA 1\n}\n\0\n", "is not a text file"},
    };
    for (const auto& c : cases) {
        const std::string path = dir + "/bad.cfg";
        const std::string content(c.content,
                                  std::strlen(c.content) + (std::strstr(c.complaint, "text file") ? 2 : 0));
        ASSERT_TRUE(oletest::writeFile(path, content));
        ole({"config", "set", path, "B", "3"}).expectRefused(c.complaint);
        ole({"config", "remove", path, "A"}).expectRefused(c.complaint);
        ole({"config", "show", path}).expectRefused(c.complaint);
        EXPECT_EQ(oletest::readFile(path), content) << c.complaint;
    }
    ole({"config", "show", dir + "/missing.cfg"}).expectRefused("No such file or directory");
    ole({"config", "set", dir + "/missing.cfg", "A", "1"}).expectRefused("No such file or directory");
    ole({"config", "show", dir}).expectRefused("Is a directory");
}

TEST_F(OleTool, JsonOutputEscapesWhatTheFilesHold) {
    const std::string dir = oletest::makeTempDir("escapes");
    const std::string path = dir + "/odd.cfg";
    const std::string odd = "say \"hi\" \\ now\ttab \x01 caf\xC3\xA9 \xF0\x9F\x8E\xAC";
    ASSERT_TRUE(oletest::writeFile(path, "{\n  Odd " + odd + "\n  Raw bad\xFFmark\n}\n"));
    const Json j = ole({"config", "show", path, "--json"}).json();
    EXPECT_EQ(j["entries"][0]["value"].text, odd);
    EXPECT_EQ(j["entries"][1]["value"].text, "bad\xEF\xBF\xBDmark");  // U+FFFD for the byte that is not UTF-8

    // Real numbers print in their shortest exact form, never in exponent form for ordinary sizes.
    EXPECT_EQ(ole({"timecode", "-r", "25", "-f", "90000", "--to", "seconds"}).out, "3600\n");
    const Result r = ole({"timecode", "-r", "24M", "-f", "1", "--json"});
    EXPECT_NE(r.out.find("\"seconds\": 0.041708,"), std::string::npos) << r.out;
}

// --- preferences -----------------------------------------------------------------------------------------

TEST_F(OleTool, PreferencesSetGetExportImport) {
    const std::string home = oletest::makeTempDir("prefs");
    EXPECT_EQ(ole({"prefs", "set", "AutoSave", "10", "--type", "int"}, home).out, "AutoSave=10\n");
    EXPECT_EQ(ole({"prefs", "set", "Window", "(640,480)", "--type", "xy"}, home).status, 0);
    EXPECT_EQ(ole({"prefs", "set", "Snap", "true", "--type", "bool"}, home).status, 0);
    EXPECT_EQ(ole({"prefs", "set", "Note", "two\nlines = \\"}, home).out, "Note=two\\nlines = \\\n");

    EXPECT_EQ(ole({"prefs", "get", "AutoSave", "--type", "int", "--json"}, home).json()["value"].number, 10);
    const Json xy = ole({"prefs", "get", "Window", "--type", "xy", "--json"}, home).json();
    EXPECT_EQ(xy["value"]["x"].number, 640);
    EXPECT_EQ(xy["value"]["y"].number, 480);
    EXPECT_EQ(ole({"prefs", "get", "Missing", "--default", "7"}, home).out, "7\n");
    const Json all = ole({"prefs", "list", "--json"}, home).json();
    EXPECT_EQ(all["Note"].text, "two\nlines = \\");
    EXPECT_EQ(all.members.size(), 4u);

    // Export, then import into a fresh home.
    const std::string file = oletest::makeTempDir("exported") + "/prefs.txt";
    ASSERT_TRUE(oletest::writeFile(file, "[Other]\nkeep=me\n"));
    EXPECT_EQ(ole({"prefs", "export", file}, home).status, 0);
    EXPECT_NE(oletest::readFile(file).find("[Other]\nkeep=me\n"), std::string::npos);
    const std::string fresh = oletest::makeTempDir("fresh");
    EXPECT_EQ(ole({"prefs", "import", file, "--json"}, fresh).json()["count"].number, 4);
    EXPECT_EQ(ole({"prefs", "list", "--json"}, fresh).out, ole({"prefs", "list", "--json"}, home).out);
    EXPECT_EQ(ole({"prefs", "remove", "Snap"}, fresh).status, 0);
    EXPECT_FALSE(ole({"prefs", "list", "--json"}, fresh).json().has("Snap"));

    ole({"prefs", "get", "AutoSave", "--type", "bool"}, home).expectRefused("'10' is not true or false");
    ole({"prefs", "get", "Missing"}, home).expectRefused("no preference 'Missing'");
    ole({"prefs", "set", "A=B", "1"}, home).expectRefused("may not hold '='");
    ole({"prefs", "set", "N", "1.5", "--type", "int"}, home).expectRefused("'1.5' is not a whole number");
    ole({"prefs", "remove", "Missing"}, home).expectRefused("no preference 'Missing'");
}

TEST_F(OleTool, PreferencesRefuseFilesTheyCannotFullyRead) {
    const std::string home = oletest::makeTempDir("prefsbad");
    ASSERT_EQ(ole({"prefs", "set", "A", "1"}, home).status, 0);
    const std::string userCfg = home + "/config/Quorvane/user.cfg";
    const std::string before = oletest::readFile(userCfg);

    const std::string dir = oletest::makeTempDir("imports");
    ASSERT_TRUE(oletest::writeFile(dir + "/junk.txt", "[EditorPreferences]\nB=2\njunk\n"));
    ole({"prefs", "import", dir + "/junk.txt"}, home).expectRefused("line 3: 'junk' is not name=value");
    ASSERT_TRUE(oletest::writeFile(dir + "/escape.txt", "[EditorPreferences]\nB=a\\tb\n"));
    ole({"prefs", "import", dir + "/escape.txt"}, home).expectRefused("unknown escape");
    ASSERT_TRUE(oletest::writeFile(dir + "/none.txt", "[Other]\nB=2\n"));
    ole({"prefs", "import", dir + "/none.txt"}, home).expectRefused("has no [EditorPreferences] section");
    ole({"prefs", "import", dir + "/missing.txt"}, home).expectRefused("No such file or directory");
    EXPECT_EQ(oletest::readFile(userCfg), before);

    // The settings store drops lines it does not understand when it saves, so the tool will not save.
    ASSERT_TRUE(oletest::writeFile(userCfg, before + "stray line\n"));
    ole({"prefs", "set", "B", "2"}, home).expectRefused("'stray line' is not a setting");
    EXPECT_EQ(oletest::readFile(userCfg), before + "stray line\n");
}

// --- help ------------------------------------------------------------------------------------------------

TEST_F(OleTool, HelpOnEveryCommand) {
    const Result top = ole({"--help"});
    EXPECT_EQ(top.status, 0);
    EXPECT_NE(top.out.find("Exit status: 0 success; 1 bad input"), std::string::npos);
    const std::vector<std::vector<std::string>> commands = {
        {"timecode"},           {"footage"},         {"pulldown"},         {"pulldown", "add"},
        {"pulldown", "remove"}, {"rates"},           {"formats"},          {"cookie"},
        {"cookie", "new"},      {"cookie", "show"},  {"cookie", "check"},  {"idstamp"},
        {"idstamp", "new"},     {"idstamp", "show"}, {"config"},           {"config", "show"},
        {"config", "get"},      {"config", "set"},   {"config", "remove"}, {"prefs"},
        {"prefs", "get"},       {"prefs", "set"},    {"prefs", "remove"},  {"prefs", "list"},
        {"prefs", "export"},    {"prefs", "import"}};
    for (auto args : commands) {
        const std::string name = args.back();
        EXPECT_NE(top.out.find(args.front()), std::string::npos) << args.front();
        args.push_back("--help");
        const Result r = ole(args);
        EXPECT_EQ(r.status, 0) << name;
        EXPECT_NE(r.out.find("Usage:"), std::string::npos) << name;
    }
    EXPECT_EQ(ole({"--version"}).out.rfind("ole ", 0), 0u);
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
