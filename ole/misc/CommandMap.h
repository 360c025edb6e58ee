#pragma once

/// @file
/// The process-wide registry of named user commands. Each command has a stable numeric identifier, an
/// internal name, a display name and description, a default key binding and a function to call; key
/// handling, macros and menus find commands by name or display name and call them by identifier.
///
/// Identifiers index a vector of records that only grows: deregistering empties a record and forgets its
/// name, so an identifier never comes back for another command, and calling an empty record does nothing.
/// Misuse (a name registered again with another function, a context-free command given a caller context)
/// prints the library's assertion line and goes on; nothing throws.
///
/// Threads: none. The map is not locked and belongs to the user-interface thread.

#include <ole/platform/export.h>
#include <ole/misc/KeyMap.h>
#include <ole/Qv/LightweightString.h>

#include <cstdint>
#include <cstring>
#include <map>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace Cmd {

/// What every command function receives: three machine words.
struct Context {
    enum EventKind : uintptr_t { Call = 0, KeyPress = 1, KeyRelease = 2 };

    uintptr_t eventKind_ = Call;     ///< Call, or KeyPress / KeyRelease from key dispatch
    void* callerContext_ = nullptr;  ///< the caller's own context, or null
    void* userData_ = nullptr;       ///< replaced by the command's registered data just before the call
};
static_assert(sizeof(Context) == 3 * sizeof(void*), "a context is three machine words");

}  // namespace Cmd

/// One registered command. A record without a function (never registered, or deregistered) does nothing
/// when called.
class OLE_API CommandMapRec {
public:
    using Function = void (*)(const Cmd::Context&);

    /// Attribute bits.
    static constexpr unsigned kPressAndRelease = 1u << 0;  ///< wants key releases as well as presses
    static constexpr unsigned kUserVisible = 1u << 1;      ///< registered with a user-visible scope

    CommandMapRec() = default;

    const LightweightString<char>& commandName() const { return name_; }
    void commandName(const LightweightString<char>& name) { name_ = name; }
    const LightweightString<wchar_t>& displayName() const { return displayName_; }
    const LightweightString<wchar_t>& displayDescription() const { return description_; }
    void display(const LightweightString<wchar_t>& name, const LightweightString<wchar_t>& description);
    const MapItem& defaultMapItem() const { return defaultMapItem_; }
    void defaultMapItem(const MapItem& item) { defaultMapItem_ = item; }
    Function commandFunction() const { return function_; }
    void* userData() const { return userData_; }
    void commandFunction(Function function, void* userData);
    unsigned attribs() const { return attribs_; }
    void attribs(unsigned bits) { attribs_ = bits; }

    /// Clears the function, the data and the attributes and empties the default binding.
    void init();
    /// Releases the name, display name and description.
    void invalidate();
    /// Calls the function with a copy of `context` whose user data is this record's data.
    void call(const Cmd::Context& context) const;

    /// By command name, byte by byte; an empty name first.
    bool operator<(const CommandMapRec& other) const { return name_ < other.name_; }

private:
    LightweightString<char> name_;
    Function function_ = nullptr;
    void* userData_ = nullptr;
    LightweightString<wchar_t> displayName_;
    LightweightString<wchar_t> description_;
    MapItem defaultMapItem_;
    uint32_t attribs_ = 0;
};

/// The process-wide registry of named user commands, indexed by stable identifiers.
class OLE_API CommandMap {
public:
    /// Orders names byte by byte and compares them with plain texts too, so lookups need no string.
    struct NameLess {
        using is_transparent = void;
        static const char* text(const LightweightString<char>& s) { return s.c_str(); }
        static const char* text(const char* s) { return s; }
        template <class A, class B>
        bool operator()(const A& a, const B& b) const {
            return std::strcmp(text(a), text(b)) < 0;
        }
    };
    using NameMap = std::map<LightweightString<char>, unsigned long, NameLess>;

    static constexpr unsigned long invalidCommandId = ~0ul;

    /// Who a context-free command is for: eScopeUser sets kUserVisible, eScopeUserIfNamed sets it only when
    /// the display name has text, eScopeInternal never.
    enum eCmdScope { eScopeInternal = 0, eScopeUser = 1, eScopeUserIfNamed = 2 };

    /// The singleton, made on first use. Making it also lets the notifiers register their debug command.
    static CommandMap* theCommandMap();
    static CommandMap* instance() { return theCommandMap(); }
    /// Installs `map` as the singleton; the current one, when different, is destroyed. Returns `map`.
    static CommandMap* theCommandMap(CommandMap* map);

    CommandMap() = default;
    CommandMap(const CommandMap&) = delete;
    CommandMap& operator=(const CommandMap&) = delete;

    /// Registers a command and returns its identifier. A name already registered with the same function
    /// (and data) keeps its identifier; with another function the assertion is printed, the first
    /// registration stays and the result is invalidCommandId. A null or empty name is refused.
    unsigned long registerCommand(const char* name, CommandMapRec::Function function, void* userData,
                                  unsigned attribs, const UIString& displayName, const UIString& description,
                                  const MapItem& defaultBinding);
    /// Registers a function without a context (see eCmdScope). It must be called without a caller context.
    unsigned long registerCommand(const char* name, void (*function)(), const UIString& displayName,
                                  const UIString& description, eCmdScope scope,
                                  const MapItem& defaultBinding);
    /// Empties the record and forgets its name; false for an identifier out of range.
    bool deregisterCommand(unsigned long id);

    /// Exact, case-sensitive lookup; invalidCommandId when absent.
    unsigned long findCommand(const char* name) const;
    /// The first live command, in identifier order, whose display name equals `displayName` ignoring case
    /// (null and "" are equal); invalidCommandId when none.
    unsigned long findCommandByDisplayName(const LightweightString<wchar_t>& displayName) const;
    /// The record, or null for an identifier out of range.
    const CommandMapRec* getCommand(unsigned long id) const;

    /// Calls the command; an identifier out of range does nothing. The command may change the map.
    void callCommand(unsigned long id, const Cmd::Context& context) const;
    void callCommand(const char* name, const Cmd::Context& context) const {
        callCommand(findCommand(name), context);
    }

    /// The number of records ever made (every identifier is below it).
    unsigned long numRecords() const { return records_.size(); }
    /// Live names and their identifiers, in name order.
    const NameMap& names() const { return map_; }

private:
    NameMap map_;
    /// The same names hashed, for lookups; the views point into map_'s keys, which never change.
    std::unordered_map<std::string_view, unsigned long> index_;
    std::vector<CommandMapRec> records_;
};

/// Registers one command in the singleton map when constructed, for registration at start-up.
class OLE_API CommandRegistrar {
public:
    CommandRegistrar(const char* name, CommandMapRec::Function function, void* userData, unsigned attribs,
                     const UIString& displayName, const UIString& description,
                     const MapItem& defaultBinding = MapItem());
    CommandRegistrar(const char* name, void (*function)(), const UIString& displayName,
                     const UIString& description, CommandMap::eCmdScope scope,
                     const MapItem& defaultBinding = MapItem());

    unsigned long id() const { return id_; }

private:
    unsigned long id_;
};
