#include <ole/misc/CommandMacroManager.h>
#include <ole/runtime/Paths.h>
#include <ole/runtime/Strings.h>

#include "support/TestHome.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace {

std::vector<std::string> calls;

unsigned long registerRecorder(const char* name) {
    auto record = [](const Cmd::Context& c) { calls.push_back(static_cast<const char*>(c.userData_)); };
    return CommandMap::theCommandMap()->registerCommand(name, +record, const_cast<char*>(name), 0, UIString(),
                                                        UIString(), MapItem());
}

const auto narrow = [](const LightweightString<wchar_t>& s) -> std::string { return toUTF8(s).c_str(); };

TEST(MacroElement, StepTextsWithAndWithoutCounts) {
    for (std::string c : {"Play(2)|Play|2", "Play|Play|1", "Play(x)|Play(x)|1", "(2)|(2)|1",
                          "Play()|Play()|1", "A(B(3)|A(B|3", "Nudge Left(0)|Nudge Left|0", "X(007)|X|7",
                          "X(65536)|X(65536)|1", "X(-1)|X(-1)|1", "||1"}) {
        const MacroElement step(fromUTF8(c.substr(0, c.find('|')).c_str()));
        EXPECT_EQ(c.substr(c.find('|') + 1), narrow(step.name()) + "|" + std::to_string(step.repeatCount()));
        const MacroElement b(step.asText());  // the text form reads back to the same step
        EXPECT_TRUE(!step.resolved() && b.name() == step.name() && b.repeatCount() == step.repeatCount())
            << c;
    }
}

TEST(CommandMacro, FilesAreWrittenAndReadBackByteForByte) {
    const std::string dir = oletest::makeTempDir("macro");
    const auto path = fromUTF8((dir + "/Trim.QvMacro").c_str());
    CommandMacro trim;  // step "Ignored" goes past the end: nothing
    trim.setName(L"Trim");
    trim.setDescription(L"Trim both ends"), trim.addCommand(MacroElement(L"Mark In", 1));
    trim.addCommand(MacroElement(L"Nudge Left", 4)), trim.setCommand(2, MacroElement(L"Ignored", 1));
    ASSERT_TRUE(trim.save(path));
    EXPECT_EQ(oletest::readFile(narrow(path)),
              "Name=Trim\nDescription=Trim both ends\nCommands=Mark In,Nudge Left(4)\n");

    CommandMacro back(path);
    ASSERT_EQ(back.numCommands(), 2u);
    back.setDescription(L""), back.setRepeatCount(0, 3), back.setRepeatCount(9, 3);
    ASSERT_TRUE(back.save(path));
    EXPECT_EQ(oletest::readFile(narrow(path)), "Name=Trim\nCommands=Mark In(3),Nudge Left(4)\n");

    oletest::writeFile(dir + "/odd.QvMacro", "NAME=Foo\nnoequals\ndescription=a=b\nCOMMANDS=x(2),,y\r\n");
    CommandMacro odd(fromUTF8((dir + "/odd.QvMacro").c_str()));
    EXPECT_EQ(narrow(odd.name()) + "|" + narrow(odd.description()) + "|" + odd.asTextFile().text().c_str(),
              "Foo|a=b|Name=Foo\nDescription=a=b\nCommands=x(2),,y\n");

    CommandMacro missing(fromUTF8((dir + "/none.QvMacro").c_str()));
    EXPECT_TRUE(missing.name().empty() && missing.numCommands() == 0 &&
                narrow(missing.path()) == dir + "/none.QvMacro");
}

TEST(CommandMacro, PlaybackIsBracketedAndSkipsRecursionAndUnknownSteps) {
    KeyMappingManager::instance().console().addCommand("Rewind");  // listed as "Console:Rewind"
    for (const char* name : {"MacroStart", "MacroEnd", "Step", "Console:Rewind"}) registerRecorder(name);
    CommandMacro macro;
    static CommandMacro* self = &macro;
    CommandMap::theCommandMap()->registerCommand(
        "PlaySelf", +[] { self->execute(); }, UIString(), UIString(), CommandMap::eScopeInternal, MapItem());
    for (const wchar_t* text : {L"step(2)", L"playself", L"Missing", L"Step(0)", L"STEP", L"rewind"})
        macro.addCommand(MacroElement(LightweightString<wchar_t>(text)));
    calls.clear();
    oletest::LogCapture log;
    macro.execute();
    const std::vector<std::string> expected = {"MacroStart", "Step", "Step",           "MacroStart",
                                               "Step",       "Step", "Step",           "Console:Rewind",
                                               "MacroEnd",   "Step", "Console:Rewind", "MacroEnd"};
    EXPECT_EQ(calls, expected);
    EXPECT_EQ(log.text(),
              "Command::execute() : Recursion!!\n"
              "Command::execute() : Couldn't find 'Missing'\n"
              "Command::execute() : Couldn't find 'Missing'\n");
    EXPECT_TRUE(macro.command(0).resolved() && macro.command(5).clientIndex() == 0u);  // console client first
}

struct Listener {
    std::vector<std::string> got;
    int onMsg(const NotifyMsg& msg) { return got.push_back(msg.text().c_str()), 0; }
};

TEST(CommandMacroManager, LoadsDroppedFilesAndKeepsFilesCommandsAndKeysInStep) {
    const LightweightString<wchar_t> prefs = getPreferencesDirectory();
    OS()->fileSystem()->createDirectory(prefs.c_str());
    const std::string dir = narrow(prefs);
    oletest::writeFile(dir + "/dropped.QvMacro", "Name=Dropped\nCommands=Step(2)\n");
    oletest::writeFile(dir + "/nameless.QvMacro", "Commands=Step\n"), registerRecorder("Step");

    CommandMacroManager& manager = CommandMacroManager::instance();
    ASSERT_EQ(manager.macros().size(), 1u);
    calls.clear();
    CommandMap::theCommandMap()->callCommand("Macro:Dropped", Cmd::Context());
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "Step"), 2);  // bracketing commands may exist too

    Listener listener;
    const auto guard =
        manager.registerNotification(makeCallback(&listener, &Listener::onMsg), manager.getNotifyMsgType());
    CommandMacro added;
    added.setName(L"a/b"), added.addCommand(MacroElement(L"Step", 1));
    ASSERT_TRUE(manager.addMacro(added));
    EXPECT_EQ(oletest::readFile(dir + "/a_b.QvMacro"), "Name=a/b\nCommands=Step\n");
    ASSERT_TRUE(manager.findMacro(L"a/b") && !manager.findMacro(L"A/B"));

    const int ctrlM = keyCodeFromName("Ctrl+M");
    EXPECT_TRUE(manager.bindMacroToKey(L"a/b", ctrlM));
    manager.buildKeyMapper();  // bindings survive a rebuild
    EXPECT_EQ(manager.findCommandBoundToKey(ctrlM), "Macro:a/b");
    calls.clear();
    EXPECT_TRUE(manager.tryKey(ctrlM, KeyEvent::Press) && manager.tryKey(ctrlM, KeyEvent::Release));
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "Step"), 1);

    EXPECT_TRUE(manager.deleteMacro(L"a/b") && !manager.deleteMacro(L"a/b"));  // only once
    EXPECT_FALSE(OS()->fileSystem()->exists(fromUTF8((dir + "/a_b.QvMacro").c_str()).c_str()));
    EXPECT_EQ(CommandMap::theCommandMap()->findCommand("Macro:a/b"), CommandMap::invalidCommandId);
    EXPECT_FALSE(manager.tryKey(ctrlM, KeyEvent::Press));
    EXPECT_EQ(listener.got, (std::vector<std::string>{"added a/b", "deleted a/b"}));

    oletest::LogCapture log;
    EXPECT_TRUE(!manager.addMacro(CommandMacro()) && log.contains("Failed to save macro file"));
    EXPECT_TRUE(CommandMacroManager::makeFileName(L".x:y*") == L"_x_y_.QvMacro" &&
                CommandMacroManager::makeFileName(std::wstring(300, L'x').c_str()).empty());
}

}  // namespace
