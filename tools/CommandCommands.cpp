// ole commands: the registered commands with their display names and keys.
// ole macro show|check|run FILE: a command macro file read, checked against the registered commands, or
// played.
//
// The tool registers a few editing commands of its own that print a line each time they run ("Mark In",
// "Nudge Left", ...) and the "MacroStart" / "MacroEnd" brackets, so that a played macro shows its order
// and repeat counts. The user's macros in the preferences directory are registered as well.

#include "Arguments.h"
#include "Commands.h"
#include "Files.h"

#include <ole/misc/CommandMacroManager.h>
#include <ole/misc/CommandMap.h>
#include <ole/misc/CommandMapMMC.h>
#include <ole/runtime/Strings.h>

#include <cstdio>
#include <memory>

namespace oletool {
namespace {

struct ToolCommand {
    const char* name;
    const wchar_t* description;
    const char* key;
};

const ToolCommand kToolCommands[] = {
    {"Mark In", L"Marks the in point", "I"},
    {"Mark Out", L"Marks the out point", "O"},
    {"Nudge Left", L"Moves the selection one frame left", "Ctrl+Left"},
    {"Nudge Right", L"Moves the selection one frame right", "Ctrl+Right"},
    {"Play", L"Starts playback", "Space"},
    {"Stop", L"Stops playback", "K"},
    {"MacroStart", L"Prepares for a macro playback", ""},
    {"MacroEnd", L"Finishes a macro playback", ""},
};

void printRun(const Cmd::Context& context) {
    std::printf("> %s\n", static_cast<const ToolCommand*>(context.userData_)->name);
}

// Registers the tool's commands and the user's macros, and binds the default keys.
void registerCommands() {
    CommandMap* map = CommandMap::theCommandMap();
    for (const ToolCommand& c : kToolCommands)
        map->registerCommand(c.name, &printRun, const_cast<ToolCommand*>(&c), CommandMapRec::kUserVisible,
                             UIString(fromUTF8(c.name)), UIString(c.description),
                             MapItem(keyCodeFromName(c.key)));
    CommandMacroManager::instance();
    GlobalCommands().init();
}

// The one place the answers leave through the output layer.
void emit(const Value& answer, bool json) {
    print(answer, json);
}

CommandMacro readMacro(const std::string& path) {
    TextFile file;
    file.setText(LightweightString<char>(readWholeFile(path).c_str()));
    CommandMacro macro;
    macro.readLines(file);
    return macro;
}

Value stepsOf(const CommandMacro& macro) {
    Value steps = Value::array();
    for (unsigned i = 0; i < macro.numCommands(); ++i) {
        Value step = Value::object();
        step["command"] = str(macro.command(i).name());
        step["count"] = unsigned(macro.command(i).repeatCount());
        steps.push_back(std::move(step));
    }
    return steps;
}

void addListCommand(CLI::App& app) {
    auto json = std::make_shared<bool>(false);
    CLI::App* cmd =
        app.add_subcommand("commands", "List the registered commands with their display names and keys");
    addJsonFlag(cmd, *json);
    cmd->callback([json] {
        registerCommands();
        const CommandMap* map = CommandMap::theCommandMap();
        Value rows = Value::array();
        for (const auto& entry : map->names()) {
            const CommandMapRec* record = map->getCommand(entry.second);
            Value row = Value::object();
            row["name"] = str(record->commandName());
            row["display_name"] = str(record->displayName());
            row["keys"] = str(GlobalCommands().getKeysAssignedToCommand(record->commandName().c_str()));
            row["description"] = str(record->displayDescription());
            rows.push_back(std::move(row));
        }
        emit(rows, *json);
    });
}

void addMacroCommands(CLI::App& app) {
    CLI::App* macro = app.add_subcommand("macro", "Show, check or play a command macro file (.QvMacro)");
    macro->require_subcommand(1);

    struct Options {
        std::string file;
        bool json = false;
    };
    auto show = std::make_shared<Options>();
    CLI::App* showCmd = macro->add_subcommand("show", "Print a macro's name, description and steps");
    showCmd->add_option("FILE", show->file, "The macro file")->required();
    addJsonFlag(showCmd, show->json);
    showCmd->callback([show] {
        const CommandMacro m = readMacro(show->file);
        Value out = Value::object();
        out["name"] = str(m.name());
        out["description"] = str(m.description());
        out["steps"] = stepsOf(m);
        emit(out, show->json);
    });

    auto check = std::make_shared<Options>();
    CLI::App* checkCmd = macro->add_subcommand(
        "check", "Check that every step names a registered command (exit status 1 if not)");
    checkCmd->add_option("FILE", check->file, "The macro file")->required();
    addJsonFlag(checkCmd, check->json);
    checkCmd->callback([check] {
        registerCommands();
        const CommandMacro m = readMacro(check->file);
        Value unknown = Value::array();
        for (unsigned i = 0; i < m.numCommands(); ++i) {
            MacroElement step = m.command(i);
            if (!step.lookupCommand(step.name())) unknown.push_back(str(step.name()));
        }
        Value out = Value::object();
        out["steps"] = m.numCommands();
        out["unknown"] = unknown;
        emit(out, check->json);
        if (unknown.empty()) return;
        std::fflush(stdout);
        for (const Value& name : unknown)
            std::fprintf(stderr, "ole: %s: unknown command %s\n", check->file.c_str(),
                         quote(name.get<std::string>()).c_str());
        throw AlreadyReported();
    });

    auto run = std::make_shared<Options>();
    CLI::App* runCmd = macro->add_subcommand("run", "Play a macro against the tool's own commands");
    runCmd->add_option("FILE", run->file, "The macro file")->required();
    runCmd->callback([run] {
        registerCommands();
        CommandMacro m = readMacro(run->file);
        m.execute();
        std::fflush(stdout);
    });
}

}  // namespace

void addCommandCommands(CLI::App& app) {
    addListCommand(app);
    addMacroCommands(app);
}

}  // namespace oletool
