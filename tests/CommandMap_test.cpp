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
void otherFunction(const Cmd::Context&) {}
void plainA() {
    calls.push_back("plainA");
}
void plainB() {
    calls.push_back("plainB");
}

const char* const kAssert193 = "assertion failed it == map_.end() at ole/misc/CommandMap line 193\n";

TEST(CommandMap, IdentifiersSurviveDeregistrationAndAreNeverReused) {
    CommandMap map;
    char tagA[] = "A";
    const unsigned long a = map.registerCommand("A", &recordCall, tagA, 0, UIString(), UIString(), MapItem());
    EXPECT_EQ(map.registerCommand("A", &recordCall, tagA, 0, UIString(), UIString(), MapItem()), a);

    unsigned long other = 0;
    EXPECT_EQ(oletest::stdoutOf([&] {
                  other =
                      map.registerCommand("A", &otherFunction, nullptr, 0, UIString(), UIString(), MapItem());
              }),
              kAssert193);
    EXPECT_EQ(other, CommandMap::invalidCommandId);
    EXPECT_EQ(map.getCommand(a)->commandFunction(), &recordCall);  // the first registration stays

    EXPECT_TRUE(map.deregisterCommand(a));
    EXPECT_FALSE(map.deregisterCommand(a + 100));
    EXPECT_EQ(map.findCommand("A"), CommandMap::invalidCommandId);
    calls.clear();
    map.callCommand(a, Cmd::Context());  // an empty record does nothing
    map.callCommand(CommandMap::invalidCommandId, Cmd::Context());
    EXPECT_TRUE(calls.empty());
    EXPECT_EQ(map.getCommand(CommandMap::invalidCommandId), nullptr);

    const unsigned long again =
        map.registerCommand("A", &recordCall, tagA, 0, UIString(), UIString(), MapItem());
    EXPECT_NE(again, a);
    EXPECT_EQ(map.findCommand("A"), again);
    EXPECT_EQ(map.findCommand("a"), CommandMap::invalidCommandId);
    map.callCommand("A", Cmd::Context());
    EXPECT_EQ(calls, std::vector<std::string>{"A:0"});
}

TEST(CommandMap, DisplayNamesMatchWithoutCaseAndScopesSetVisibility) {
    CommandMap map;
    const unsigned long play = map.registerCommand("play", &plainA, UIString(L"PLAY"), UIString(L"Plays"),
                                                   CommandMap::eScopeUser, MapItem());
    const unsigned long blank = map.registerCommand("blank", &plainB, UIString(), UIString(),
                                                    CommandMap::eScopeUserIfNamed, MapItem());
    const unsigned long named = map.registerCommand("named", &plainB, UIString(10007), UIString(),
                                                    CommandMap::eScopeUserIfNamed, MapItem());
    const unsigned long hidden = map.registerCommand("hidden", &plainB, UIString(L"Hidden"), UIString(),
                                                     CommandMap::eScopeInternal, MapItem());
    EXPECT_EQ(map.findCommandByDisplayName(L"Play"), play);
    EXPECT_EQ(map.findCommandByDisplayName(LightweightString<wchar_t>()), blank);
    EXPECT_EQ(map.findCommandByDisplayName(L""), blank);
    EXPECT_EQ(map.findCommandByDisplayName(L"nothing"), CommandMap::invalidCommandId);
    EXPECT_TRUE(map.getCommand(named)->displayName() == L"Unknown");  // through the resource table

    const std::vector<std::pair<unsigned long, unsigned>> attribs = {
        {play, 2}, {blank, 0}, {named, 2}, {hidden, 0}};
    for (const auto& [id, bits] : attribs) EXPECT_EQ(map.getCommand(id)->attribs(), bits) << id;

    // The same plain function under the same name is harmless; another one is refused.
    EXPECT_EQ(map.registerCommand("play", &plainA, UIString(), UIString(), CommandMap::eScopeUser, MapItem()),
              play);
    EXPECT_EQ(oletest::stdoutOf([&] {
                  map.registerCommand("play", &plainB, UIString(), UIString(), CommandMap::eScopeUser,
                                      MapItem());
              }),
              kAssert193);

    calls.clear();
    int mine = 0;
    Cmd::Context withCaller;
    withCaller.callerContext_ = &mine;
    EXPECT_EQ(oletest::stdoutOf([&] { map.callCommand(play, withCaller); }),
              "assertion failed context.callerContext_ == NULL at ole/misc/CommandMap line 155\n");
    map.callCommand("play", Cmd::Context());
    EXPECT_EQ(calls, (std::vector<std::string>{"plainA", "plainA"}));  // still called after the assertion
}

TEST(CommandMap, SingletonReplacementAndTheNotifierDebugCommand) {
    CommandMap* first = CommandMap::theCommandMap();
    EXPECT_EQ(CommandMap::instance(), first);
    const unsigned long toggle = first->findCommand("toggle_debug_notify");
    ASSERT_NE(toggle, CommandMap::invalidCommandId);
    const bool before = NotifierBase::debugMode();
    first->callCommand(toggle, Cmd::Context());
    EXPECT_NE(NotifierBase::debugMode(), before);
    NotifierBase::debugMode(before);

    auto* replacement = new CommandMap;
    EXPECT_EQ(CommandMap::theCommandMap(replacement), replacement);
    EXPECT_EQ(CommandMap::theCommandMap(), replacement);
    EXPECT_TRUE(NotifierBase::registerCommands());
    EXPECT_NE(replacement->findCommand("toggle_debug_notify"), CommandMap::invalidCommandId);
}

TEST(CommandMapMMC, KeysDispatchPressesAndReleasesByAttribute) {
    CommandMap* map = CommandMap::theCommandMap();
    static char tagPlain[] = "plain", tagBoth[] = "both";
    const int f5 = keyCodeFromName("Ctrl+Shift+F5");
    map->registerCommand("mmc.plain", &recordCall, tagPlain, 0, UIString(L"Plain"), UIString(), MapItem(f5));
    map->registerCommand("mmc.both", &recordCall, tagBoth, CommandMapRec::kPressAndRelease, UIString(L"Both"),
                         UIString(), MapItem());
    CommandMapMMC mmc;  // picks up the default binding of mmc.plain
    EXPECT_TRUE(mmc.bindCommandToKey("mmc.both", 'B'));
    EXPECT_TRUE(mmc.bindCommandToKey("mmc.both", KeyCode::kAlt | 'B'));
    EXPECT_EQ(oletest::stdoutOf([&] { EXPECT_FALSE(mmc.bindCommandToKey("mmc.none", 'N')); }),
              "assertion failed cmdID != CommandMap::invalidCommandId at ole/misc/CommandMapMMC line 71\n");

    calls.clear();
    EXPECT_TRUE(mmc.tryKey(f5, KeyEvent::Press));
    EXPECT_TRUE(mmc.tryKey(f5, KeyEvent::Release));  // consumed, not called
    EXPECT_TRUE(mmc.tryKey('B', KeyEvent::Press));
    EXPECT_TRUE(mmc.tryKey('B', KeyEvent::Release));
    EXPECT_TRUE(mmc.tryKey('B', KeyEvent::Unknown));
    EXPECT_FALSE(mmc.tryKey('Z', KeyEvent::Press));
    EXPECT_EQ(calls, (std::vector<std::string>{"plain:0", "both:1", "both:2", "both:2"}));

    EXPECT_EQ(mmc.findCommandBoundToKey(f5), "mmc.plain");
    EXPECT_EQ(mmc.findCommandBoundToKey('Z'), "");
    EXPECT_TRUE(mmc.getKeysAssignedToCommand("mmc.both") == L"B, Alt+B");
    EXPECT_TRUE(mmc.getKeysAssignedToCommand("mmc.plain") == L"Ctrl+Shift+F5");
    EXPECT_TRUE(mmc.getKeysAssignedToCommand("mmc.plain", L"Console").empty());

    // A deregistered command's key calls nothing and is no longer consumed.
    map->deregisterCommand(map->findCommand("mmc.plain"));
    EXPECT_FALSE(mmc.tryKey(f5, KeyEvent::Press));
}

TEST(KeyMap, KeyNamesReadBackAndBadNamesAreNoKey) {
    const std::vector<std::pair<const char*, const char*>> names = {{"Ctrl+Shift+F5", "Ctrl+Shift+F5"},
                                                                    {"shift+ctrl+f5", "Ctrl+Shift+F5"},
                                                                    {"a", "A"},
                                                                    {"Alt++", "Alt++"},
                                                                    {"+", "+"},
                                                                    {"space", "Space"},
                                                                    {"PageDown", "PageDown"},
                                                                    {"F24", "F24"},
                                                                    {"Ctrl+Alt+Esc", "Ctrl+Alt+Esc"}};
    for (const auto& [text, printed] : names) {
        const int code = keyCodeFromName(text);
        EXPECT_NE(code, KeyCode::kNoKey) << text;
        EXPECT_EQ(keyCodeName(code), printed) << text;
    }
    for (const char* bad : {"", "F0", "F25", "F01", "Ctrl+", "Hyper+A", "Ctrl+Ctrl+A", "AB", "\x7f"})
        EXPECT_EQ(keyCodeFromName(bad), KeyCode::kNoKey) << bad;
    EXPECT_EQ(keyCodeFromName(nullptr), KeyCode::kNoKey);
    EXPECT_EQ(keyCodeName(0), "");
    EXPECT_EQ(keyCodeName(1 << 24 | 'A'), "");
}

}  // namespace
