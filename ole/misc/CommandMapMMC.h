#pragma once

/// @file
/// Binds the command map's commands to keys and dispatches key presses to them. It holds a shared
/// SimpleKeyMapper whose key maps carry command names and are tagged with command identifiers.
///
/// It is also a key-mapping client listing every command of the map, indexed by identifier; the shared
/// GlobalCommands() instance adds itself to the KeyMappingManager, so that macros find the map's commands.
///
/// Threads: none, like the command map.

#include <ole/platform/export.h>
#include <ole/misc/CommandMap.h>
#include <ole/misc/KeyMap.h>

/// Binds the command map's commands to keys and dispatches key presses to them.
class OLE_API CommandMapMMC : public KeyMappingClient {
public:
    /// Builds the key mapper from the commands registered so far (see init()).
    CommandMapMMC();
    ~CommandMapMMC() override;
    CommandMapMMC(const CommandMapMMC&) = delete;
    CommandMapMMC& operator=(const CommandMapMMC&) = delete;

    /// Replaces the key mapper with one built from every registered command in name order, each key map
    /// tagged with the command's identifier and bound to its default key.
    void init();
    /// Binds the named command to the key; an unknown name prints the assertion and binds nothing. A
    /// command registered after init() is added to the mapper first. Returns whether a binding was made.
    bool bindCommandToKey(const LightweightString<char>& name, int keycode);
    /// The name of the command bound to the key, or "".
    LightweightString<char> findCommandBoundToKey(int keycode) const;
    /// Calls the command bound to the key. A command with the press-and-release attribute gets KeyPress
    /// for a press and KeyRelease for anything else; others are called (as a plain call) on a press only.
    /// True when a live command is bound to the key, whether or not it was called.
    bool tryKey(int keycode, KeyEvent::eType type) const;
    /// The keys bound to the command as names joined by ", " in key-code order ("" when none). A non-empty
    /// `context` names the key-mapping client whose bindings are read instead of this one's.
    LightweightString<wchar_t> getKeysAssignedToCommand(
        const char* name, const LightweightString<wchar_t>& context = LightweightString<wchar_t>()) const;

    const Qv::Ptr<SimpleKeyMapper>& sharedKeyMapper() const { return mapper_; }

    /// KeyMappingClient: the command map's commands by identifier.
    LightweightString<wchar_t> clientName() const override { return L"Global"; }
    unsigned numCommands() const override;
    LightweightString<char> commandName(unsigned index) const override;
    const SimpleKeyMapper* keyMapper() const override { return mapper_.get(); }

private:
    friend OLE_API CommandMapMMC& GlobalCommands();

    Qv::Ptr<SimpleKeyMapper> mapper_;
    bool listed_ = false;  ///< added to the KeyMappingManager
};

/// The shared instance for commands that apply everywhere; made on first use and listed as a key-mapping
/// client. Call init() after registering commands to bind their default keys.
OLE_API CommandMapMMC& GlobalCommands();

/// The key map of a registered command, tagged with its identifier (null for an empty record).
OLE_API Qv::Ptr<KeyMap> makeKeyMap(const CommandMapRec& record, unsigned long id);
