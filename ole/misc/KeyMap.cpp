#include <ole/misc/KeyMap.h>

#include <ole/runtime/Strings.h>

#include <algorithm>
#include <cstring>
#include <strings.h>

// ---- key names ------------------------------------------------------------------------------------------

namespace {

// Names of the keys without a printable character, indexed from kKeyEscape; F1 to F24 are made on the fly.
const char* const kNamedKeys[] = {"Esc", "Tab",    "Enter",    "Backspace", "Delete", "Insert", "Home",
                                  "End", "PageUp", "PageDown", "Left",      "Right",  "Up",     "Down"};
constexpr int kNumNamed = int(sizeof kNamedKeys / sizeof kNamedKeys[0]);

struct Modifier {
    const char* name;
    int bit;
};
const Modifier kModifiers[] = {{"Ctrl", KeyCode::kCtrl}, {"Alt", KeyCode::kAlt}, {"Shift", KeyCode::kShift}};

bool isPrintableKey(int key) {
    return key > 0x20 && key < 0x7F && !(key >= 'a' && key <= 'z');
}

// The key part of a code's name, "" when the key is not one we name.
LightweightString<char> keyName(int key) {
    if (key == KeyCode::kKeySpace) return "Space";
    if (isPrintableKey(key)) {
        const char text[2] = {char(key), 0};
        return text;
    }
    if (key >= KeyCode::kKeyEscape && key < KeyCode::kKeyEscape + kNumNamed)
        return kNamedKeys[key - KeyCode::kKeyEscape];
    if (key >= KeyCode::kKeyF1 && key <= KeyCode::kKeyF24)
        return stringPrintf("F%d", key - KeyCode::kKeyF1 + 1);
    return LightweightString<char>();
}

// The key of a name (without modifiers), kNoKey when unknown.
int keyFromName(const char* text, std::size_t len) {
    if (len == 1) {
        const unsigned char c = static_cast<unsigned char>(text[0]);
        if (c >= 'a' && c <= 'z') return c - 'a' + 'A';
        return isPrintableKey(c) ? c : KeyCode::kNoKey;
    }
    const LightweightString<char> name(text, unsigned(len));
    if (::strcasecmp(name.c_str(), "Space") == 0) return KeyCode::kKeySpace;
    for (int i = 0; i < kNumNamed; ++i)
        if (::strcasecmp(name.c_str(), kNamedKeys[i]) == 0) return KeyCode::kKeyEscape + i;
    if ((text[0] == 'F' || text[0] == 'f') && len <= 3) {
        int n = 0;
        for (std::size_t i = 1; i < len; ++i) {
            if (text[i] < '0' || text[i] > '9') return KeyCode::kNoKey;
            n = n * 10 + (text[i] - '0');
        }
        if (n >= 1 && n <= 24 && text[1] != '0') return KeyCode::kKeyF1 + n - 1;
    }
    return KeyCode::kNoKey;
}

}  // namespace

LightweightString<char> keyCodeName(int keycode) {
    if (keycode & ~(KeyCode::kKeyMask | KeyCode::kModifierMask)) return LightweightString<char>();
    const LightweightString<char> key = keyName(keycode & KeyCode::kKeyMask);
    if (key.empty()) return key;
    LightweightString<char> out;
    for (const Modifier& m : kModifiers)
        if (keycode & m.bit) (out += m.name) += "+";
    return out + key;
}

int keyCodeFromName(const char* name) {
    if (!name || !*name) return KeyCode::kNoKey;
    int modifiers = 0;
    const char* p = name;
    for (;;) {
        // The key is the last piece; "+" itself may be the key ("Ctrl++").
        if (!*p) break;
        const char* plus = std::strchr(p + 1, '+');
        if (!plus) break;
        const std::size_t len = std::size_t(plus - p);
        int bit = 0;
        for (const Modifier& m : kModifiers)
            if (std::strlen(m.name) == len && ::strncasecmp(p, m.name, len) == 0) bit = m.bit;
        if (bit == 0 || (modifiers & bit)) return KeyCode::kNoKey;
        modifiers |= bit;
        p = plus + 1;
    }
    const int key = keyFromName(p, std::strlen(p));
    return key == KeyCode::kNoKey ? KeyCode::kNoKey : key | modifiers;
}

// ---- texts and maps -------------------------------------------------------------------------------------

LightweightString<wchar_t> UIString::resolve() const {
    if (!text_.empty() || resourceId_ == kNoResource) return text_;
    return resourceStrW(resourceId_);
}

KeyMap::KeyMap(const LightweightString<char>& commandName, const MapItem& defaultBinding,
               const LightweightString<wchar_t>& displayName, const LightweightString<wchar_t>& description,
               bool userVisible)
    : commandName_(commandName),
      defaultBinding_(defaultBinding),
      displayName_(displayName),
      description_(description),
      userVisible_(userVisible) {}

KeyMap::~KeyMap() = default;

SimpleKeyMapper::SimpleKeyMapper(const std::vector<Qv::Ptr<KeyMap>>& maps) {
    maps_.reserve(maps.size());
    for (const Qv::Ptr<KeyMap>& map : maps) addKeyMap(map);
}

SimpleKeyMapper::~SimpleKeyMapper() = default;

const KeyMap* SimpleKeyMapper::lookup(int keycode) const {
    const auto it = keys_.find(keycode);
    return it == keys_.end() ? nullptr : maps_[it->second].get();
}

bool SimpleKeyMapper::bindCommandToKey(uint64_t tag, int keycode) {
    const auto it = tags_.find(tag);
    if (it == tags_.end() || keycode == KeyCode::kNoKey) return false;
    keys_[keycode] = it->second;
    return true;
}

void SimpleKeyMapper::addKeyMap(const Qv::Ptr<KeyMap>& map) {
    if (!map) return;
    const auto found = tags_.find(map->tag());
    unsigned index;
    if (found != tags_.end()) {
        index = found->second;
        maps_[index] = map;
    } else {
        index = unsigned(maps_.size());
        maps_.push_back(map);
        tags_.emplace(map->tag(), index);
    }
    if (!map->defaultBinding().empty()) keys_[map->defaultBinding().keycode] = index;
}

std::vector<int> SimpleKeyMapper::keysFor(uint64_t tag) const {
    std::vector<int> keys;
    const auto found = tags_.find(tag);
    if (found == tags_.end()) return keys;
    for (const auto& binding : keys_)
        if (binding.second == found->second) keys.push_back(binding.first);
    std::sort(keys.begin(), keys.end());
    return keys;
}

std::vector<std::pair<int, uint64_t>> SimpleKeyMapper::bindings() const {
    std::vector<std::pair<int, uint64_t>> out;
    out.reserve(keys_.size());
    for (const auto& binding : keys_) out.emplace_back(binding.first, maps_[binding.second]->tag());
    std::sort(out.begin(), out.end());
    return out;
}

// ---- clients --------------------------------------------------------------------------------------------

KeyMappingClient::~KeyMappingClient() = default;

void ConsoleMappingClient::addCommand(const LightweightString<char>& name) {
    const LightweightString<char> full = std::strncmp(name.c_str(), prefix(), std::strlen(prefix())) == 0
                                             ? name
                                             : LightweightString<char>(prefix()) + name;
    if (std::find(names_.begin(), names_.end(), full) == names_.end()) names_.push_back(full);
}

LightweightString<char> ConsoleMappingClient::commandName(unsigned index) const {
    return index < names_.size() ? names_[index] : LightweightString<char>();
}

KeyMappingManager::KeyMappingManager() {
    clients_.push_back(&console_);
}

KeyMappingManager& KeyMappingManager::instance() {
    static KeyMappingManager manager;
    return manager;
}

void KeyMappingManager::addClient(KeyMappingClient* client) {
    if (client && std::find(clients_.begin(), clients_.end(), client) == clients_.end())
        clients_.push_back(client);
}

void KeyMappingManager::removeClient(KeyMappingClient* client) {
    clients_.erase(std::remove(clients_.begin(), clients_.end(), client), clients_.end());
}

KeyMappingClient* KeyMappingManager::client(unsigned index) const {
    return index < clients_.size() ? clients_[index] : nullptr;
}

KeyMappingClient* KeyMappingManager::findClient(const LightweightString<wchar_t>& name) const {
    for (KeyMappingClient* c : clients_)
        if (c->clientName() == name) return c;
    return nullptr;
}
