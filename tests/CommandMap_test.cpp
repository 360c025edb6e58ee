#include <ole/misc/CommandMap.h>
#include <ole/misc/CommandMapMMC.h>
#include <ole/misc/Notifier.h>

#include "support/StdoutCapture.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

std::vector<std::string> calls;

void recordCall(const Cmd::Context& c) {
    calls.push_back(std::string(static_cast<const char*>(c.userData_)) + ":" + std::to_string(c.eventKind_));
}
void other(const Cmd::Context&) {}
void (*const plainA)() = [] { calls.push_back("plainA"); };
void (*const plainB)() = [] { calls.push_back("plainB"); };

unsigned long add(CommandMap& map, const char* name, CommandMapRec::Function f, char* tag) {
    return map.registerCommand(name, f, tag, 0, UIString(), UIString(), MapItem());
}
unsigned long addPlain(CommandMap& map, const char* name, void (*f)(), UIString display,
                       CommandMap::eCmdScope scope) {
    return map.registerCommand(name, f, display, UIString(), scope, MapItem());
}

constexpr unsigned long kNone = CommandMap::invalidCommandId;
const char* const kAssert193 = "assertion failed it == map_.end() at ole/misc/CommandMap line 193\n";

TEST(CommandMap, IdentifiersSurviveDeregistrationAndAreNeverReused) {
    CommandMap map;
    char tagA[] = "A";
    const unsigned long a = add(map, "A", &recordCall, tagA);
    EXPECT_EQ(add(map, "A", &recordCall, tagA), a);
    EXPECT_EQ(oletest::stdoutOf([&] { EXPECT_EQ(add(map, "A", &other, nullptr), kNone); }), kAssert193);
    EXPECT_EQ(map.getCommand(a)->commandFunction(), &recordCall);  // the first registration stays

    EXPECT_TRUE(map.deregisterCommand(a) && !map.deregisterCommand(a + 100) && map.findCommand("A") == kNone);
    calls.clear();
    map.callCommand(a, Cmd::Context()), map.callCommand(kNone, Cmd::Context());  // an empty record: nothing
    EXPECT_TRUE(calls.empty() && !map.getCommand(kNone));

    const unsigned long again = add(map, "A", &recordCall, tagA);
    EXPECT_TRUE(again != a && map.findCommand("A") == again && map.findCommand("a") == kNone);
    map.callCommand("A", Cmd::Context());
    EXPECT_EQ(calls, std::vector<std::string>{"A:0"});
}

TEST(CommandMap, DisplayNamesMatchWithoutCaseAndScopesSetVisibility) {
    CommandMap map;
    const auto play = addPlain(map, "play", plainA, UIString(L"PLAY"), CommandMap::eScopeUser);
    const auto blank = addPlain(map, "blank", plainB, UIString(), CommandMap::eScopeUserIfNamed);
    const auto named = addPlain(map, "named", plainB, UIString(10007), CommandMap::eScopeUserIfNamed);
    const auto hidden = addPlain(map, "hidden", plainB, UIString(L"Hidden"), CommandMap::eScopeInternal);
    EXPECT_TRUE(map.findCommandByDisplayName(L"Play") == play &&
                map.findCommandByDisplayName(LightweightString<wchar_t>()) == blank &&
                map.findCommandByDisplayName(L"nothing") == kNone);
    EXPECT_TRUE(map.getCommand(named)->displayName() == L"Unknown");  // through the resource table
    for (const auto& [id, bits] : {std::pair{play, 2u}, {blank, 0u}, {named, 2u}, {hidden, 0u}})
        EXPECT_EQ(map.getCommand(id)->attribs(), bits) << id;

    EXPECT_EQ(addPlain(map, "play", plainA, UIString(), CommandMap::eScopeUser), play);  // same one: fine
    EXPECT_EQ(oletest::stdoutOf([&] { addPlain(map, "play", plainB, UIString(), CommandMap::eScopeUser); }),
              kAssert193);
    calls.clear();
    Cmd::Context withCaller;
    withCaller.callerContext_ = &withCaller;
    EXPECT_EQ(oletest::stdoutOf([&] { map.callCommand(play, withCaller); }),
              "assertion failed context.callerContext_ == NULL at ole/misc/CommandMap line 155\n");
    map.callCommand("play", Cmd::Context());
    EXPECT_EQ(calls, (std::vector<std::string>{"plainA", "plainA"}));  // still called after the assertion
}

TEST(CommandMap, SingletonReplacementAndTheNotifierDebugCommand) {
    CommandMap* first = CommandMap::theCommandMap();
    EXPECT_EQ(CommandMap::instance(), first);
    const unsigned long toggle = first->findCommand("toggle_debug_notify");
    ASSERT_NE(toggle, kNone);
    const bool before = NotifierBase::debugMode();
    first->callCommand(toggle, Cmd::Context());
    EXPECT_NE(NotifierBase::debugMode(), before);
    NotifierBase::debugMode(before);

    auto* replacement = new CommandMap;
    CommandMap::theCommandMap(replacement);
    EXPECT_EQ(CommandMap::theCommandMap(), replacement);
    EXPECT_TRUE(NotifierBase::registerCommands() && replacement->findCommand("toggle_debug_notify") != kNone);
}

TEST(CommandMapMMC, KeysDispatchPressesAndReleasesByAttribute) {
    CommandMap* map = CommandMap::theCommandMap();
    static char tagPlain[] = "plain", tagBoth[] = "both";
    const int f5 = keyCodeFromName("Ctrl+Shift+F5");
    map->registerCommand("mmc.plain", &recordCall, tagPlain, 0, UIString(L"Plain"), UIString(), MapItem(f5));
    map->registerCommand("mmc.both", &recordCall, tagBoth, CommandMapRec::kPressAndRelease, UIString(L"Both"),
                         UIString(), MapItem());
    CommandMapMMC mmc;  // picks up the default binding of mmc.plain
    EXPECT_TRUE(mmc.bindCommandToKey("mmc.both", 'B') &&
                mmc.bindCommandToKey("mmc.both", KeyCode::kAlt | 'B'));
    EXPECT_EQ(oletest::stdoutOf([&] { EXPECT_FALSE(mmc.bindCommandToKey("mmc.none", 'N')); }),
              "assertion failed cmdID != CommandMap::invalidCommandId at ole/misc/CommandMapMMC line 71\n");

    calls.clear();
    EXPECT_TRUE(mmc.tryKey(f5, KeyEvent::Press) && calls.size() == 1u);
    EXPECT_TRUE(mmc.tryKey(f5, KeyEvent::Release) && calls.size() == 1u);  // release: not called
    for (KeyEvent::eType kind : {KeyEvent::Press, KeyEvent::Release, KeyEvent::Unknown})
        EXPECT_TRUE(mmc.tryKey('B', kind));
    EXPECT_FALSE(mmc.tryKey('Z', KeyEvent::Press));
    EXPECT_EQ(calls, (std::vector<std::string>{"plain:0", "both:1", "both:2", "both:2"}));

    EXPECT_TRUE(mmc.findCommandBoundToKey(f5) == "mmc.plain" && mmc.findCommandBoundToKey('Z').empty());
    EXPECT_TRUE(mmc.getKeysAssignedToCommand("mmc.both") == L"B, Alt+B" &&
                mmc.getKeysAssignedToCommand("mmc.plain") == L"Ctrl+Shift+F5");
    EXPECT_TRUE(mmc.getKeysAssignedToCommand("mmc.plain", L"Console").empty());
    map->deregisterCommand(map->findCommand("mmc.plain"));  // its key is no longer consumed
    EXPECT_FALSE(mmc.tryKey(f5, KeyEvent::Press));
}

TEST(KeyMap, KeyNamesReadBackAndBadNamesAreNoKey) {
    std::vector<std::pair<std::string, std::string>> names = {
        {"shift+ctrl+f5", "Ctrl+Shift+F5"}, {"a", "A"}, {"space", "Space"}};
    for (const char* same : {"Ctrl+Shift+F5", "Alt++", "+", "PageDown", "F24", "Ctrl+Alt+Esc"})
        names.push_back({same, same});
    for (const auto& [text, printed] : names)
        EXPECT_EQ(keyCodeName(keyCodeFromName(text.c_str())), printed.c_str()) << text;
    for (const char* bad : {"", "F0", "F25", "F01", "Ctrl+", "Hyper+A", "Ctrl+Ctrl+A", "AB", "\x7f"})
        EXPECT_EQ(keyCodeFromName(bad), KeyCode::kNoKey) << bad;
    EXPECT_EQ(keyCodeFromName(nullptr), KeyCode::kNoKey);
    for (int code : {0, 1 << 24 | 'A'}) EXPECT_EQ(keyCodeName(code), "") << code;
}

}  // namespace
