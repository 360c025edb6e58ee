#include <ole/misc/CommandMacroManager.h>

#include <ole/misc/CommandMapMMC.h>
#include <ole/platform/Assert.h>
#include <ole/platform/OS.h>
#include <ole/runtime/Log.h>
#include <ole/runtime/Paths.h>
#include <ole/runtime/Strings.h>

#include <cstring>
#include <strings.h>

static const wchar_t* const kMacroExtension = L".QvMacro";

// ---- steps ----------------------------------------------------------------------------------------------

MacroElement::MacroElement(const LightweightString<wchar_t>& text) : name_(text) {
    const unsigned n = text.size();
    if (n < 3 || text[n - 1] != L')') return;
    unsigned open = n - 1;
    while (open > 0 && text[open - 1] != L'(') --open;
    if (open < 2 || open == n - 1) return;  // no "(" after the first character, or nothing inside
    uint32_t count = 0;
    for (unsigned i = open; i < n - 1; ++i) {
        const wchar_t c = text[i];
        if (c < L'0' || c > L'9') return;
        count = count * 10 + uint32_t(c - L'0');
        if (count > 0xFFFF) return;
    }
    name_ = text.substr(0, open - 1);
    repeatCount_ = uint16_t(count);
}

MacroElement::MacroElement(const LightweightString<wchar_t>& name, uint16_t repeatCount)
    : name_(name), repeatCount_(repeatCount) {}

LightweightString<wchar_t> MacroElement::asText() const {
    if (repeatCount_ == 1) return name_;
    return name_ + Qv::widen(stringPrintf("(%u)", unsigned(repeatCount_)).c_str());
}

// The index of the client's command named `wanted` (ignoring case), or kUnresolved.
static uint32_t findInClient(const KeyMappingClient& client, const char* wanted) {
    const unsigned n = client.numCommands();
    for (unsigned i = 0; i < n; ++i) {
        const LightweightString<char> name = client.commandName(i);
        if (!name.empty() && ::strcasecmp(name.c_str(), wanted) == 0) return i;
    }
    return MacroElement::kUnresolved;
}

bool MacroElement::lookupCommand(const LightweightString<wchar_t>& name) {
    GlobalCommands();  // lists the command map among the clients
    const KeyMappingManager& manager = KeyMappingManager::instance();
    const LightweightString<char> wanted = toUTF8(name);
    const LightweightString<char> console = LightweightString<char>(ConsoleMappingClient::prefix()) + wanted;
    for (unsigned c = 0; c < manager.numClients(); ++c) {
        const KeyMappingClient& client = *manager.client(c);
        uint32_t index = findInClient(client, wanted.c_str());
        if (index == kUnresolved && client.isConsole()) index = findInClient(client, console.c_str());
        if (index != kUnresolved) {
            commandIndex_ = index;
            clientIndex_ = c;
            return true;
        }
    }
    return false;
}

void MacroElement::execute() {
    if (executing_) {
        DebugOut("Command::execute() : Recursion!!\n");
        return;
    }
    if (!resolved()) lookupCommand(name_);
    if (!resolved()) {
        DebugOut("Command::execute() : Couldn't find '%s'\n", toUTF8(name_).c_str());
        return;
    }
    executing_ = true;
    const KeyMappingClient* client = KeyMappingManager::instance().client(clientIndex_);
    const LightweightString<char> command =
        client ? client->commandName(commandIndex_) : LightweightString<char>();
    const unsigned long id = CommandMap::theCommandMap()->findCommand(command.c_str());
    if (command.empty() || id == CommandMap::invalidCommandId) {
        DebugOut("Command::execute() : Couldn't find '%s'\n", toUTF8(name_).c_str());
    } else {
        for (unsigned i = 0; i < repeatCount_; ++i)
            CommandMap::theCommandMap()->callCommand(id, Cmd::Context());
    }
    executing_ = false;
}

// ---- macros ---------------------------------------------------------------------------------------------

CommandMacro::CommandMacro(const LightweightString<wchar_t>& path) {
    load(path);
}

CommandMacro::CommandMacro(const CommandMacro& other)
    : name_(other.name_), description_(other.description_), path_(other.path_) {
    steps_.reserve(other.steps_.size());
    for (const auto& step : other.steps_) steps_.push_back(std::make_shared<MacroElement>(*step));
}

CommandMacro& CommandMacro::operator=(const CommandMacro& other) {
    if (this != &other) {
        CommandMacro copy(other);
        steps_.swap(copy.steps_);
        name_ = other.name_;
        description_ = other.description_;
        path_ = other.path_;
    }
    return *this;
}

void CommandMacro::setCommand(uint16_t index, const MacroElement& step) {
    if (index < steps_.size()) steps_[index] = std::make_shared<MacroElement>(step);
}

void CommandMacro::setRepeatCount(uint16_t index, uint16_t count) {
    if (index < steps_.size()) steps_[index]->setRepeatCount(count);
}

void CommandMacro::addCommand(const MacroElement& step) {
    steps_.push_back(std::make_shared<MacroElement>(step));
}

TextFile CommandMacro::asTextFile() const {
    TextFile file;
    file.appendLine(LightweightString<char>("Name=") + toUTF8(name_));
    if (!description_.empty())
        file.appendLine(LightweightString<char>("Description=") + toUTF8(description_));
    LightweightString<char> commands;
    for (const auto& step : steps_) {
        if (!commands.empty()) commands += ",";
        commands += toUTF8(step->asText());
    }
    file.appendLine(LightweightString<char>("Commands=") + commands);
    return file;
}

bool CommandMacro::save(const LightweightString<wchar_t>& path) {
    if (!asTextFile().save(path)) return false;
    path_ = path;
    return true;
}

void CommandMacro::readLines(const TextFile& file) {
    steps_.clear();
    name_.clear();
    description_.clear();
    for (const TextFile::Line& line : file.lines()) {
        const unsigned eq = line.find('=');
        if (eq == TextFile::Line::npos) continue;
        LightweightString<char> key = line.substr(0, eq);
        for (unsigned i = 0; i < key.size(); ++i)
            if (key[i] >= 'A' && key[i] <= 'Z') key[i] = char(key[i] - 'A' + 'a');
        const LightweightString<char> value = line.substr(eq + 1);
        if (key == "name") {
            name_ = fromUTF8(value);
        } else if (key == "description") {
            description_ = fromUTF8(value);
        } else if (key == "commands" && !value.empty()) {
            for (const LightweightString<char>& piece : Qv::splitIf(value, ','))
                steps_.push_back(std::make_shared<MacroElement>(fromUTF8(piece)));
        }
    }
}

bool CommandMacro::load(const LightweightString<wchar_t>& path) {
    const TextFile file(path);
    readLines(file);
    path_ = path;
    return !file.empty();
}

void CommandMacro::execute() {
    MacroElement(L"MacroStart", 1).execute();
    for (std::size_t i = 0; i < steps_.size(); ++i) {
        const std::shared_ptr<MacroElement> step = steps_[i];  // alive even if the command removes it
        step->execute();
    }
    MacroElement(L"MacroEnd", 1).execute();
}

// ---- the manager ----------------------------------------------------------------------------------------

CommandMacroManager& CommandMacroManager::instance() {
    static CommandMacroManager manager;
    return manager;
}

CommandMacroManager::CommandMacroManager() {
    Qv::check(CommandMap::theCommandMap() != nullptr, "CommandMap::theCommandMap() != NULL",
              "ole/misc/CommandMacroManager", __LINE__);
    const LightweightString<wchar_t> dir = getPreferencesDirectory();
    for (const LightweightString<wchar_t>& file :
         getDirListing(dir, LightweightString<wchar_t>(L"*") + kMacroExtension)) {
        const CommandMacro macro(joinPath(dir, file));
        if (macro.name().empty()) {
            Log("Ignored macro file %s: it has no name\n", toUTF8(file).c_str());
            continue;
        }
        addMacroInternal(macro);
    }
    buildKeyMapper();
}

CommandMacroManager::~CommandMacroManager() {
    for (const Slot& slot : slots_)
        if (slot.macro) CommandMap::theCommandMap()->deregisterCommand(slot.commandId);
}

int CommandMacroManager::getNotifyMsgType() {
    static const int type = NotifyMsgTypeDictionary::instance().intern("CommandMacroChange");
    return type;
}

LightweightString<char> CommandMacroManager::makeCommandName(const CommandMacro& macro) {
    return LightweightString<char>("Macro:") + toUTF8(macro.name());
}

void CommandMacroManager::executeMacro(const Cmd::Context& context) {
    const CommandMacroManager& manager = instance();
    const uintptr_t position = reinterpret_cast<uintptr_t>(context.userData_);
    if (position >= manager.slots_.size()) return;
    const std::shared_ptr<CommandMacro> macro = manager.slots_[position].macro;  // survives a deletion
    if (macro) macro->execute();
}

LightweightString<wchar_t> CommandMacroManager::makeFileName(const LightweightString<wchar_t>& name) {
    if (name.empty()) return LightweightString<wchar_t>();
    LightweightString<wchar_t> file;
    for (unsigned i = 0; i < name.size(); ++i) {
        const wchar_t c = name[i];
        const bool unsafe = c < 0x20 || c == 0x7F || (c < 0x80 && std::strchr("/\\:*?\"<>|", char(c))) ||
                            (i == 0 && c == L'.');
        file += unsafe ? L'_' : c;
    }
    file += kMacroExtension;
    if (toUTF8(file).size() > 255) return LightweightString<wchar_t>();  // longer than a file name may be
    return file;
}

int CommandMacroManager::findSlot(const LightweightString<wchar_t>& name) const {
    for (std::size_t i = 0; i < slots_.size(); ++i)
        if (slots_[i].macro && slots_[i].macro->name() == name) return int(i);
    return -1;
}

void CommandMacroManager::addMacroInternal(const CommandMacro& macro) {
    auto copy = std::make_shared<CommandMacro>(macro);
    const int existing = findSlot(macro.name());
    if (existing >= 0) {
        slots_[std::size_t(existing)].macro = copy;  // a playing macro keeps its old copy alive
        return;
    }
    Slot slot;
    slot.macro = copy;
    slot.commandId = CommandMap::theCommandMap()->registerCommand(
        makeCommandName(macro).c_str(), &CommandMacroManager::executeMacro,
        reinterpret_cast<void*>(slots_.size()), CommandMapRec::kUserVisible, UIString(macro.name()),
        UIString(macro.description()), MapItem());
    slots_.push_back(slot);
}

void CommandMacroManager::announce(const char* what, const LightweightString<wchar_t>& name) const {
    issueNotification(NotifyMsg(LightweightString<char>(what) + " " + toUTF8(name)), getNotifyMsgType());
}

bool CommandMacroManager::addMacro(const CommandMacro& macro) {
    const LightweightString<wchar_t> dir = getPreferencesDirectory();
    const LightweightString<wchar_t> file = makeFileName(macro.name());
    if (dir.empty() || file.empty()) {
        LogBoth("Failed to save macro file\n");
        return false;
    }
    OS()->fileSystem()->createDirectory(dir.c_str());
    return saveMacro(macro, joinPath(dir, file));
}

bool CommandMacroManager::saveMacro(const CommandMacro& macro, const LightweightString<wchar_t>& path) {
    CommandMacro saved(macro);
    if (!saved.save(path)) {
        LogBoth("Failed to save macro file\n");
        return false;
    }
    addMacroInternal(saved);
    buildKeyMapper();
    announce("added", saved.name());
    return true;
}

const CommandMacro* CommandMacroManager::findMacro(const LightweightString<wchar_t>& name) const {
    const int slot = findSlot(name);
    return slot < 0 ? nullptr : slots_[std::size_t(slot)].macro.get();
}

bool CommandMacroManager::deleteMacro(const LightweightString<wchar_t>& name) {
    const int found = findSlot(name);
    if (found < 0) return false;
    Slot& slot = slots_[std::size_t(found)];
    if (!slot.macro->path().empty()) OS()->fileSystem()->remove(slot.macro->path().c_str());
    CommandMap::theCommandMap()->deregisterCommand(slot.commandId);
    slot.macro.reset();
    slot.commandId = CommandMap::invalidCommandId;
    buildKeyMapper();
    announce("deleted", name);
    return true;
}

std::vector<const CommandMacro*> CommandMacroManager::macros() const {
    std::vector<const CommandMacro*> out;
    for (const Slot& slot : slots_)
        if (slot.macro) out.push_back(slot.macro.get());
    return out;
}

void CommandMacroManager::buildKeyMapper() {
    std::vector<Qv::Ptr<KeyMap>> maps;
    for (const Slot& slot : slots_) {
        if (!slot.macro) continue;
        Qv::Ptr<KeyMap> map(new KeyMap(makeCommandName(*slot.macro), MapItem(), slot.macro->name(),
                                       slot.macro->description(), true));
        map->tag(slot.commandId);
        maps.push_back(map);
    }
    const Qv::Ptr<SimpleKeyMapper> old = mapper_;
    mapper_ = Qv::Ptr<SimpleKeyMapper>(new SimpleKeyMapper(maps));
    if (old)
        for (const auto& binding : old->bindings()) mapper_->bindCommandToKey(binding.second, binding.first);
}

bool CommandMacroManager::bindMacroToKey(const LightweightString<wchar_t>& name, int keycode) {
    const int slot = findSlot(name);
    return slot >= 0 && mapper_->bindCommandToKey(slots_[std::size_t(slot)].commandId, keycode);
}

bool CommandMacroManager::tryKey(int keycode, KeyEvent::eType type) const {
    const KeyMap* bound = mapper_->lookup(keycode);
    if (!bound) return false;
    if (type == KeyEvent::Press)
        CommandMap::theCommandMap()->callCommand(bound->outputString().c_str(), Cmd::Context());
    return true;
}

LightweightString<char> CommandMacroManager::findCommandBoundToKey(int keycode) const {
    const KeyMap* bound = mapper_->lookup(keycode);
    return bound ? bound->outputString() : LightweightString<char>();
}
