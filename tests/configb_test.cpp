#include <ole/misc/configb.h>

#include <ole/misc/Cookie.h>
#include <ole/misc/Dirtiable.h>
#include <ole/misc/strmable.h>
#include <ole/misc/strp_field.h>
#include <ole/runtime/RegistryConfig.h>
#include <ole/runtime/Strings.h>

#include "support/TestHome.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

namespace {

using Text = LightweightString<char>;
using Entry = std::pair<std::string, std::pair<std::string, std::string>>;  // name, (tag, value)

std::vector<Entry> entriesOf(const configb& c) {
    std::vector<Entry> out;
    for (const auto& [name, e] : c.entries())
        out.push_back({name.c_str(), {e.type.c_str(), e.value.c_str()}});
    return out;
}

TextFile linesOf(const char* text) {
    TextFile file;
    file.setText(text);
    return file;
}

struct CountingOwner : Dirtiable {
    int told = 0;
    void setDirty(bool dirty) override { ++told, Dirtiable::setDirty(dirty); }
};

}  // namespace

TEST(ConfigbText, FileWithEveryLineKindReadsIntoExactEntries) {
    const std::string dir = oletest::makeTempDir("configb");
    const std::string path = dir + "/every.cfg";
    ASSERT_TRUE(oletest::writeFile(
        path,
        "{\n  Width:int   720  \n\tTitle   Evening news, late edition  \r\n# a comment\n"
        "   # an indented comment\n\n      \n  Url http://host:80/path\n  Ratio:double 1.5\n"
        "  Name:x\n  Caf\xC3\xA9 \xC3\xA9t\xC3\xA9\n}\n  after:int 9\n"));
    configb c(fromUTF8(path.c_str()));
    EXPECT_FALSE(c.get_dirty());
    const std::vector<Entry> expected = {{"Caf\xC3\xA9", {"", "\xC3\xA9t\xC3\xA9"}},
                                         {"Name", {"x", ""}},
                                         {"Ratio", {"double", "1.5"}},
                                         {"Title", {"", "Evening news, late edition"}},
                                         {"Url", {"", "http://host:80/path"}},
                                         {"Width", {"int", "720"}}};
    EXPECT_EQ(entriesOf(c), expected);

    // Reading again replaces what was there, even when there is nothing to read.
    EXPECT_FALSE(c.readFromFile(fromUTF8((dir + "/missing.cfg").c_str())));
    EXPECT_TRUE(c.isEmpty());
}

TEST(ConfigbText, BlocksInsideLargerFiles) {
    const TextFile file = linesOf(
        "[Section]\n{\n  a:int 1\n  }\n  b two words\nEndSection\n {\n{\n  c 3\n  endsection trailing\n"
        "  d 4\n");
    configb c;
    c.set_end_str("EndSection");
    // {first line, block found, line after it}: no block starts at a heading or an indented "{"; the end
    // word found as a name, in any letter case, also closes the block.
    const std::tuple<unsigned, bool, unsigned> blocks[] = {
        {0, false, 0}, {1, true, 6}, {6, false, 6}, {7, true, 10}};
    for (const auto& [from, found, next] : blocks) {
        unsigned line = from;
        EXPECT_EQ(c.buildFrom(file, line), found) << from;
        EXPECT_EQ(line, next) << from;
    }
    const std::vector<Entry> expected = {
        {"a", {"int", "1"}}, {"b", {"", "two words"}}, {"c", {"", "3"}}, {"}", {"", ""}}};
    EXPECT_EQ(entriesOf(c), expected);

    // Without its end line a block runs to the end of the text.
    configb open;
    unsigned line = 0;
    ASSERT_TRUE(open.buildFrom(linesOf("{\n  x 1\n  y:int 2"), line));
    EXPECT_TRUE(line + 10 * open.size() == 23u && open.fromString("{\n  z 3\n"));
    EXPECT_EQ(open.size(), 3u);  // blocks add to what the record holds

    // A NUL byte ends its line, as it would end the text once written or packed.
    configb nul;
    const char withNul[] = "{\n  a 1\0junk\n}\0x\n  b 2";
    ASSERT_TRUE(nul.fromString(Text(withNul, sizeof withNul - 1)));
    EXPECT_EQ(entriesOf(nul), (std::vector<Entry>{{"a", {"", "1"}}}));
    EXPECT_EQ(nul.entries().begin()->second.value.size(), 1u);

    configb none;
    for (const char* notABlock : {"{", "", "x\n}"}) EXPECT_FALSE(none.fromString(notABlock));
    EXPECT_FALSE(none.buildFrom(TextFile()));
}

TEST(ConfigbText, WrittenFormsReadBackToTheSameRecord) {
    configb c;
    EXPECT_EQ(std::string(c.asString().c_str(), c.asString().size()), "{\n}");
    strp_field field(Text("field text"));
    c.set("count", 42), c.set("Scale", 1.25), c.set("on", true), c.set("title", "a: b  c");
    c.set(Text("blank"), Text("")), c.set("field", field), c.set("clip", Cookie('E', 1234, 0, 17));
    c.set("stamp", IdStamp(0x2A, 0x0123ABCD, 0x1F)), c.set("odd", ConfigEntryT(Text("mytag"), Text("v")));
    c.set("spaceTag", ConfigEntryT(Text("  "), Text("w")));
    EXPECT_EQ(std::string(c.asString().c_str()),
              "{\n  blank\n  clip:cookie " + std::string(Cookie('E', 1234, 0, 17).asString(true).c_str()) +
                  "\n  count:int 42\n  field:textdata field text\n  odd:mytag v\n  on:bool true\n"
                  "  Scale:double 1.25000000\n  spaceTag w\n  stamp:IdStamp 0000002A0123ABCD1F\n  title a: b "
                  " c\n}");

    const Text written = c.asString();
    EXPECT_EQ(written.size(), std::strlen(written.c_str())) << "no room left over past the end line";
    configb back;
    ASSERT_TRUE(back.fromString(written));
    c.remove("spaceTag"), back.remove("spaceTag");  // its blank tag is not written
    EXPECT_EQ(entriesOf(back), entriesOf(c));
    EXPECT_TRUE(ConfigEntryT(Text("t"), Text("v")) != ConfigEntryT(Text("t"), Text("w")));
    Cookie clip;
    IdStamp stamp(0, 0, 0);
    EXPECT_EQ(back.in("CLIP", clip) + back.in("stamp", stamp), 0);
    EXPECT_TRUE(clip == Cookie('E', 1234, 0, 17) && stamp == IdStamp(0x2A, 0x0123ABCD, 0x1F));
    EXPECT_TRUE(back.in("title", clip) == 0 && !clip.valid());  // not a cookie text

    TextFile file;
    configb small;
    small.set("k", 7), small.set_end_str("End"), small.writeTo(file, 2);
    EXPECT_EQ(std::string(file.text().c_str()), "  {\n    k:int 7\n  End\n");

    const std::string path = oletest::makeTempDir("configb") + "/dump.cfg";
    ASSERT_TRUE(c.dump(fromUTF8(path.c_str())));
    EXPECT_EQ(oletest::readFile(path), std::string(c.asString().c_str()) + "\n");
}

TEST(ConfigbSet, ValueOfAnotherTypeNeverOverwritesAcrossLetterCase) {
    CountingOwner owner;
    configb c(&owner);
    // A new entry or an unchanged value is not a change to saved data.
    const std::vector<int> added = {c.set("Width", 5), c.set("WIDTH", "five"), c.set("width", 5),
                                    c.set("wIdTh", 5.0)};
    EXPECT_EQ(added, (std::vector<int>{1, 0, 0, 0}));
    EXPECT_TRUE(!c.get_dirty() && owner.told == 0);
    EXPECT_TRUE(c.set("wIdTh", 6) == 1 && c.get_dirty() && owner.told == 1);
    EXPECT_EQ(entriesOf(c), (std::vector<Entry>{{"Width", {"int", "6"}}}));

    EXPECT_EQ(c.set("", 1), 0);
    c.set("b", 1), c.set("A", 1);
    std::string order;
    for (const auto& entry : c.entries()) order += entry.first.c_str();
    EXPECT_EQ(order, "AbWidth");

    // A record read from text follows the same rule: the first type seen for a name wins.
    configb parsed;
    ASSERT_TRUE(parsed.fromString("{\n  n:int 1\n  N two\n  n:int 3\n}"));
    EXPECT_EQ(entriesOf(parsed), (std::vector<Entry>{{"n", {"int", "3"}}}));

    c.init(), c.remove("nothing");
    EXPECT_FALSE(c.get_dirty());
    c.remove("a");
    EXPECT_TRUE(c.get_dirty() && owner.told == 2);
}

template <class T>
std::pair<int, T> get(const char* value, T out) {
    configb c;
    c.set("k", value);
    const int rc = c.in("K", out);
    return {rc, out};
}

TEST(ConfigbGet, EveryGetterOnGoodAndBadText) {
    using IntResult = std::pair<int, int>;
    const std::pair<const char*, IntResult> ints[] = {{"42", {0, 42}}, {"-7", {0, -7}},  {"12abc", {0, 12}},
                                                      {"-", {0, 0}},   {"true", {0, 1}}, {"false", {0, 0}},
                                                      {"+5", {-1, 9}}, {" 5", {-1, 9}},  {"True", {-1, 9}},
                                                      {"", {-1, 9}},   {"abc", {-1, 9}}};
    for (const auto& [value, expected] : ints) EXPECT_EQ(get(value, 9), expected) << value;

    EXPECT_TRUE(get("abc", 1u) == std::make_pair(0, 0u) && get("2.5", 1.0) == std::make_pair(0, 2.5) &&
                get("abc", 1.0) == std::make_pair(0, 0.0));
    EXPECT_TRUE(get("true", false) == std::make_pair(0, true) &&
                get("false", true) == std::make_pair(0, false));
    for (const char* unchanged : {"True", "", "1", "true "})
        EXPECT_EQ(get(unchanged, false), std::make_pair(0, false)) << unchanged;

    configb c;
    c.set("long", "0123456789");
    char buffer[8] = "xxxxxxx";
    EXPECT_EQ((std::vector<int>{c.in("long", buffer, 5), c.in("long", buffer, 0)}),
              (std::vector<int>{0, -1}));
    EXPECT_STREQ(buffer, "0123");
    Text text;
    EXPECT_TRUE(c.in("LONG", text) == 0 && text == "0123456789");

    int i = 5;
    double d = 1;
    unsigned u = 1;
    bool b = true;  // a missing name is -1 for every getter and leaves the value alone
    EXPECT_TRUE(c.in("nope", i) + c.in("", i) + c.in("nope", d) + c.in("nope", u) + c.in("nope", b) == -5 &&
                i == 5 && d == 1 && u == 1 && b);
}

TEST(ConfigGlobal, ValuesComeFromTheMachineConfigurationWithDefaults) {
    const Text section(RegistryConfig::kDefaultSection);
    const Cookie cookie('P', 99, 0, 12);
    const IdStamp stamp(0x2A, 0x0123ABCD, 7);
    const std::pair<const char*, Text> values[] = {{"cfgInt", "12"},
                                                   {"cfgText", "some text"},
                                                   {"cfgCookie", cookie.asString(true)},
                                                   {"cfgStamp", stamp.asString()}};
    for (const auto& [name, value] : values) GlobalConfig().setValue(section, name, value);
    EXPECT_TRUE(config_long("cfgInt", 3) == 12 && config_int("cfgText", 3) == 3);
    EXPECT_EQ(config_string("cfgMissing", "d"), "d");
    char buffer[5];
    EXPECT_STREQ(config_string("cfgText", buffer, 5, "d"), "some");
    EXPECT_TRUE(config_string("cfgText", buffer, 0, "d") == buffer &&
                config_string("cfgText", nullptr, 5, "d") == nullptr && std::string(buffer) == "some");
    EXPECT_TRUE(config_cookie("cfgCookie", invalid_cookie) == cookie &&
                config_cookie("cfgText", cookie) == cookie);  // text that is no cookie or stamp: the default
    EXPECT_TRUE(config_IdStamp("cfgStamp", IdStamp(0, 0, 0)) == stamp &&
                config_IdStamp("cfgText", stamp) == stamp);
}

TEST(ConfigOutb, IndentedNameValueLines) {
    TextFile file;
    config_outb out(file);
    bool flag = true;
    IdStamp stamp(1, 2, 3);
    out.out("text", "hello there"), out.indent(), out.out("unsigned", 4000000000u), out.indent();
    out.out("double", 0.25), out.outdent(), out.out("flag", flag), out.out("stamp", stamp);
    EXPECT_EQ(std::string(file.text().c_str()),
              "  text hello there\n    unsigned 4000000000\n      double 0.25000000\n    flag true\n"
              "    stamp 00000001000000023\n");
    out.setDepth(40);  // deeper than the deepest prefix
    EXPECT_EQ(std::string(out.get_prefix_string()), std::string(30, ' '));
}

// The record packs between two numbers, so reading too much or too little shows in its neighbours.
TEST(ConfigbPack, RoundTripBetweenNeighbours) {
    configb out;
    out.set("Width", 720), out.set("title", "two words"), out.set("empty", "");
    out.set("odd", ConfigEntryT(Text("mytag"), Text("v")));
    out.set_end_str("EndSettings"), out.set_config_name("render");

    PStream stream;
    stream.setLong(11);
    ASSERT_EQ(out.pack(stream), STRM_OK);
    stream.setLong(-22);
    ASSERT_TRUE(stream.seek(0));
    configb in;
    in.set("stale", 1);
    const int32_t before = stream.getLong();
    ASSERT_EQ(in.unpack(stream, configb::kPackVersion), STRM_OK) << stream.messages().c_str();
    EXPECT_TRUE(before == 11 && stream.getLong() == -22 && entriesOf(in) == entriesOf(out));
    EXPECT_TRUE(in.get_end_str() == "EndSettings" && in.get_config_name() == "render" && !in.get_dirty());

    // A record cut short fails without inventing entries.
    PStream whole;
    out.pack(whole);
    const std::size_t size = whole.position();
    for (std::size_t cut : {std::size_t(2), size / 2, size - 1}) {
        StreamFile part(whole.file()->data(), cut);
        PStream truncated(&part);
        configb c(truncated);
        EXPECT_TRUE(c.isEmpty() && truncated.error() != 0) << cut;
    }
    ASSERT_TRUE(whole.seek(0));
    EXPECT_EQ(in.unpack(whole, configb::kPackVersion + 1), STRM_FAILED);
}

// A million entries in reverse order plus a repeat of one name in other case and tag: each arrives once.
TEST(ConfigbTest, ReadsAMillionEntries) {
    constexpr int kCount = 1000000;
    std::string text = "{\n";
    char line[40];
    for (int i = kCount - 1; i >= 0; --i) {
        std::snprintf(line, sizeof line, "  Key%07d:int %d\n", i, i * 3), text += line;
    }
    text += "  KEY0000007 seven\n}";
    configb c;
    ASSERT_TRUE(c.fromString(Text(text.c_str())));
    EXPECT_EQ(c.size(), unsigned(kCount));
    int v[3] = {-1, -1, -1};
    EXPECT_EQ(c.in("key0000007", v[0]) + c.in("Key0000000", v[1]) + c.in("KEY0999999", v[2]), 0);
    EXPECT_EQ(std::vector<int>(v, v + 3), (std::vector<int>{21, 0, 2999997}));
    EXPECT_EQ(c.entries().begin()->first, "Key0000000");
}
