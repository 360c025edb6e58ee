#pragma once

/// @file
/// Command macros: named, described sequences of commands, each with a repeat count, that are saved to
/// ".QvMacro" files in the preferences directory, loaded again and played through the command map.
///
/// A macro file holds lines "key=value" (keys read in any case): Name, an optional Description and
/// Commands, the steps joined by ",", each "name" or "name(count)" when the count is not 1. Steps find
/// their command by name, ignoring case, among the key-mapping clients' commands (the console's with the
/// "Console:" prefix); unknown commands and a step that would play itself again are reported on the
/// debug output and skipped, and playback goes on.
///
/// Files are replaced atomically. Bad files load as what could be read; nothing throws.
/// Threads: none; macros, like the command map, belong to the user-interface thread.

#include <ole/platform/export.h>
#include <ole/misc/CommandMap.h>
#include <ole/misc/KeyMap.h>
#include <ole/misc/Notifier.h>
#include <ole/misc/TextFile.h>
#include <ole/Qv/LightweightString.h>

#include <cstdint>
#include <memory>
#include <vector>

/// One step of a macro.
class OLE_API MacroElement {
public:
    static constexpr uint32_t kUnresolved = 0xFFFFFFFFu;

    MacroElement() = default;
    /// Reads the text form: "Play(2)" is Play twice; "Play", "Play(x)" and "(2)" are names played once.
    explicit MacroElement(const LightweightString<wchar_t>& text);
    MacroElement(const LightweightString<wchar_t>& name, uint16_t repeatCount);

    /// The text form: the name, followed by "(count)" when the count is not 1.
    LightweightString<wchar_t> asText() const;

    /// Finds `name` among the key-mapping clients' commands and caches where; false when none has it.
    bool lookupCommand(const LightweightString<wchar_t>& name);
    /// Calls the command repeatCount() times through the command map.
    void execute();

    const LightweightString<wchar_t>& name() const { return name_; }
    uint16_t repeatCount() const { return repeatCount_; }
    void setRepeatCount(uint16_t count) { repeatCount_ = count; }
    bool resolved() const { return commandIndex_ != kUnresolved; }
    uint32_t commandIndex() const { return commandIndex_; }
    uint32_t clientIndex() const { return clientIndex_; }

private:
    LightweightString<wchar_t> name_;
    uint16_t repeatCount_ = 1;
    uint32_t commandIndex_ = kUnresolved;
    uint32_t clientIndex_ = kUnresolved;
    bool executing_ = false;  ///< set while the step runs: a step reached again is recursion
};

/// A named, described sequence of command steps, each with a repeat count.
class OLE_API CommandMacro {
public:
    CommandMacro() = default;
    /// Loads the macro from the file (see load()).
    explicit CommandMacro(const LightweightString<wchar_t>& path);
    CommandMacro(const CommandMacro& other);
    CommandMacro& operator=(const CommandMacro& other);

    /// Replaces the step at `index`; an index past the end changes nothing.
    void setCommand(uint16_t index, const MacroElement& step);
    void setRepeatCount(uint16_t index, uint16_t count);
    void addCommand(const MacroElement& step);
    void clearCommands() { steps_.clear(); }
    unsigned numCommands() const { return unsigned(steps_.size()); }
    /// The step at `index`; index must be below numCommands().
    const MacroElement& command(unsigned index) const { return *steps_[index]; }

    const LightweightString<wchar_t>& name() const { return name_; }
    void setName(const LightweightString<wchar_t>& name) { name_ = name; }
    const LightweightString<wchar_t>& description() const { return description_; }
    void setDescription(const LightweightString<wchar_t>& description) { description_ = description; }
    /// The file the macro was last loaded from or saved to.
    const LightweightString<wchar_t>& path() const { return path_; }

    bool save(const LightweightString<wchar_t>& path);
    /// Clears the macro and reads the file; a missing file leaves it empty. The path is kept either way.
    bool load(const LightweightString<wchar_t>& path);
    /// The file's lines, and the macro read back from them.
    TextFile asTextFile() const;
    void readLines(const TextFile& file);

    /// Plays "MacroStart", every step in order, then "MacroEnd". A step may change this macro: the step
    /// count is read again after each step.
    void execute();

private:
    /// Shared so that a step that is running stays alive while a command changes the macro.
    std::vector<std::shared_ptr<MacroElement>> steps_;
    LightweightString<wchar_t> name_;
    LightweightString<wchar_t> description_;
    LightweightString<wchar_t> path_;
};

/// The user's macros: every "*.QvMacro" file of the preferences directory is loaded when the manager is
/// made, and each macro is registered as the command "Macro:<name>" that plays it. Additions and deletions
/// are announced with getNotifyMsgType() and the texts "added <name>" and "deleted <name>".
class OLE_API CommandMacroManager : public Notifier {
public:
    /// The process-wide manager, made on first use and destroyed at exit.
    static CommandMacroManager& instance();
    ~CommandMacroManager() override;

    static int getNotifyMsgType();
    /// "Macro:" and the name in UTF-8.
    static LightweightString<char> makeCommandName(const CommandMacro& macro);
    /// The command function of every macro: plays the macro at the position in the context's user data.
    static void executeMacro(const Cmd::Context& context);
    /// The file name of a macro: its name with "/", control and other unsafe characters made "_", and
    /// ".QvMacro"; "" when the name cannot make one (empty, or too long).
    static LightweightString<wchar_t> makeFileName(const LightweightString<wchar_t>& name);

    /// Saves the macro in the preferences directory under its file name and adds it (replacing a macro of
    /// that name). False, logged as "Failed to save macro file", when there is no valid path or the write
    /// fails.
    bool addMacro(const CommandMacro& macro);
    /// Saves the macro to `path` and adds it; false when the write fails.
    bool saveMacro(const CommandMacro& macro, const LightweightString<wchar_t>& path);
    /// The macro of that name (exact), or null.
    const CommandMacro* findMacro(const LightweightString<wchar_t>& name) const;
    /// Removes the macro, its command and its file; false when there is no such macro.
    bool deleteMacro(const LightweightString<wchar_t>& name);
    /// The macros, in the order they were added.
    std::vector<const CommandMacro*> macros() const;

    /// Rebuilds the key mapper from the current macros, keeping the keys of macros that remain.
    void buildKeyMapper();
    /// Binds a key to the named macro; false when there is no such macro.
    bool bindMacroToKey(const LightweightString<wchar_t>& name, int keycode);
    /// Plays the macro bound to the key on a press; true when a macro is bound (a release is consumed).
    bool tryKey(int keycode, KeyEvent::eType type) const;
    /// The command name of the macro bound to the key, or "".
    LightweightString<char> findCommandBoundToKey(int keycode) const;
    const Qv::Ptr<SimpleKeyMapper>& keyMapper() const { return mapper_; }

private:
    CommandMacroManager();
    /// Adds or replaces the macro and registers its command.
    void addMacroInternal(const CommandMacro& macro);
    int findSlot(const LightweightString<wchar_t>& name) const;
    void announce(const char* what, const LightweightString<wchar_t>& name) const;

    struct Slot {
        std::shared_ptr<CommandMacro> macro;  ///< null once deleted; positions are never reused
        unsigned long commandId = CommandMap::invalidCommandId;
    };
    std::vector<Slot> slots_;
    Qv::Ptr<SimpleKeyMapper> mapper_;
};
