#pragma once

/// @file
/// The key-map layer under the command map: key codes and their text names, user-interface texts, key maps
/// and the simple mapper that binds keys to them, and the process-wide list of key-mapping clients that
/// macros search for commands.
///
/// Key codes are ints: the low 16 bits name the key, bits 16 to 18 are the Shift, Ctrl and Alt modifiers.
/// A key is a printable ASCII character (letters upper case), "Space", or one of the named keys below
/// (kKeyEscape ... kKeyF24). 0 (kNoKey) is no key. Text names join the modifiers in the order Ctrl, Alt,
/// Shift and the key with "+", e.g. "Ctrl+Shift+F5"; reading them ignores case.
///
/// Threads: none of this is locked; it belongs to the user-interface thread like the command map.

#include <ole/platform/export.h>
#include <ole/Qv/LightweightString.h>
#include <ole/Qv/Ptr.h>

#include <cstdint>
#include <unordered_map>
#include <vector>

namespace KeyEvent {
/// What happened to a key: tryKey() calls a command on a press; a release reaches only the commands that
/// ask for both.
enum eType { Unknown = 0, Press = 1, Release = 2 };
}  // namespace KeyEvent

namespace KeyCode {
constexpr int kNoKey = 0;
constexpr int kShift = 1 << 16;
constexpr int kCtrl = 1 << 17;
constexpr int kAlt = 1 << 18;
constexpr int kModifierMask = kShift | kCtrl | kAlt;
constexpr int kKeyMask = 0xFFFF;

constexpr int kKeySpace = 0x20;
/// Named keys that have no printable character, in the order of their names.
enum NamedKey {
    kKeyEscape = 0x100,
    kKeyTab,
    kKeyEnter,
    kKeyBackspace,
    kKeyDelete,
    kKeyInsert,
    kKeyHome,
    kKeyEnd,
    kKeyPageUp,
    kKeyPageDown,
    kKeyLeft,
    kKeyRight,
    kKeyUp,
    kKeyDown,
    kKeyF1,
    kKeyF24 = kKeyF1 + 23
};

/// The key code of `key` with `modifiers`.
inline constexpr int code(int key, int modifiers = 0) {
    return key | modifiers;
}
}  // namespace KeyCode

/// The text name of a key code ("Ctrl+Shift+F5"); "" for kNoKey and for codes that name no key.
OLE_API LightweightString<char> keyCodeName(int keycode);
/// The key code of a text name, ignoring case ("ctrl+shift+f5", "Alt++"); kNoKey when the text names none.
OLE_API int keyCodeFromName(const char* name);

/// A text shown to the user: either the text itself or the identifier of a resource string. An identifier
/// of 999999 (kNoResource) means none.
class OLE_API UIString {
public:
    static constexpr int kNoResource = 999999;

    UIString() = default;
    UIString(const wchar_t* text) : text_(text) {}
    UIString(const LightweightString<wchar_t>& text) : text_(text) {}
    explicit UIString(int resourceId) : resourceId_(resourceId) {}

    /// The text: the given one when it has any, else the resource string (none for kNoResource).
    LightweightString<wchar_t> resolve() const;
    bool hasText() const { return !text_.empty() || resourceId_ != kNoResource; }
    const LightweightString<wchar_t>& text() const { return text_; }
    int resourceId() const { return resourceId_; }

private:
    LightweightString<wchar_t> text_;
    int resourceId_ = kNoResource;
};

/// A key binding; the default one of a command is given at registration. An empty item binds nothing.
struct MapItem {
    MapItem() = default;
    explicit MapItem(int key) : keycode(key) {}
    bool empty() const { return keycode == KeyCode::kNoKey; }
    bool operator==(const MapItem& o) const { return keycode == o.keycode; }

    int keycode = KeyCode::kNoKey;
};

/// One bindable command as the mapper sees it. The output string is the command name; `tag` is free for the
/// owner (the command map stores the command's identifier there).
class OLE_API KeyMap : public iObject {
public:
    KeyMap(const LightweightString<char>& commandName, const MapItem& defaultBinding,
           const LightweightString<wchar_t>& displayName, const LightweightString<wchar_t>& description,
           bool userVisible);
    ~KeyMap() override;

    const LightweightString<char>& outputString() const { return commandName_; }
    const MapItem& defaultBinding() const { return defaultBinding_; }
    const LightweightString<wchar_t>& displayName() const { return displayName_; }
    const LightweightString<wchar_t>& description() const { return description_; }
    bool userVisible() const { return userVisible_; }
    uint64_t tag() const { return tag_; }
    void tag(uint64_t value) { tag_ = value; }

private:
    LightweightString<char> commandName_;
    MapItem defaultBinding_;
    LightweightString<wchar_t> displayName_;
    LightweightString<wchar_t> description_;
    bool userVisible_;
    uint64_t tag_ = 0;
};

/// Binds key codes to key maps. Built from a vector of key maps whose default bindings become the first
/// bindings (a later map takes a key from an earlier one). One key calls at most one map; a map may have
/// several keys. Shared through Qv::Ptr; not locked.
class OLE_API SimpleKeyMapper : public iObject {
public:
    explicit SimpleKeyMapper(const std::vector<Qv::Ptr<KeyMap>>& maps = std::vector<Qv::Ptr<KeyMap>>());
    ~SimpleKeyMapper() override;

    /// The map bound to the key, or null.
    const KeyMap* lookup(int keycode) const;
    /// Binds the key to the map tagged `tag`; false (and nothing changes) when no map has that tag or the
    /// key is kNoKey.
    bool bindCommandToKey(uint64_t tag, int keycode);
    void unbindKey(int keycode) { keys_.erase(keycode); }
    /// Adds a map (its default binding applies); a map with the tag of an existing one replaces it.
    void addKeyMap(const Qv::Ptr<KeyMap>& map);
    /// The keys bound to the map tagged `tag`, in ascending order.
    std::vector<int> keysFor(uint64_t tag) const;
    /// Every binding as (key, tag), in ascending key order.
    std::vector<std::pair<int, uint64_t>> bindings() const;
    const std::vector<Qv::Ptr<KeyMap>>& keyMaps() const { return maps_; }

private:
    std::vector<Qv::Ptr<KeyMap>> maps_;
    std::unordered_map<uint64_t, unsigned> tags_;  ///< tag -> index in maps_
    std::unordered_map<int, unsigned> keys_;       ///< key code -> index in maps_
};

// ---- key-mapping clients ---------------------------------------------------------------------------------

/// A source of bindable commands (the global commands, the console, ...), listed by the mapping manager.
/// Command indices are the client's own and stay valid while the client lives.
class OLE_API KeyMappingClient {
public:
    virtual ~KeyMappingClient();
    virtual LightweightString<wchar_t> clientName() const = 0;
    virtual unsigned numCommands() const = 0;
    /// The command name at `index`; "" for an index that names no command.
    virtual LightweightString<char> commandName(unsigned index) const = 0;
    virtual bool isConsole() const { return false; }
    /// The client's key bindings, or null when it has none.
    virtual const SimpleKeyMapper* keyMapper() const { return nullptr; }
};

/// The console's commands. Their names carry the prefix "Console:" and are registered in the command map
/// under those full names.
class OLE_API ConsoleMappingClient : public KeyMappingClient {
public:
    static const char* prefix() { return "Console:"; }

    /// Adds a command, prefixing the name when it lacks the prefix; a name already present is not added.
    void addCommand(const LightweightString<char>& name);
    void clearCommands() { names_.clear(); }

    LightweightString<wchar_t> clientName() const override { return L"Console"; }
    unsigned numCommands() const override { return unsigned(names_.size()); }
    LightweightString<char> commandName(unsigned index) const override;
    bool isConsole() const override { return true; }

private:
    std::vector<LightweightString<char>> names_;
};

/// The process-wide list of key-mapping clients, made on first use with the console client as client 0.
/// Clients are not owned; one must be removed before it dies.
class OLE_API KeyMappingManager {
public:
    static KeyMappingManager& instance();

    /// Appends a client (once).
    void addClient(KeyMappingClient* client);
    void removeClient(KeyMappingClient* client);
    unsigned numClients() const { return unsigned(clients_.size()); }
    /// The client at `index`, or null.
    KeyMappingClient* client(unsigned index) const;
    /// The first client of that name, or null.
    KeyMappingClient* findClient(const LightweightString<wchar_t>& name) const;
    ConsoleMappingClient& console() { return console_; }

private:
    KeyMappingManager();

    ConsoleMappingClient console_;
    std::vector<KeyMappingClient*> clients_;
};
