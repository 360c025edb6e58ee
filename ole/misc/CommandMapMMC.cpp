#include <ole/misc/CommandMapMMC.h>

#include <ole/platform/Assert.h>
#include <ole/runtime/Strings.h>

Qv::Ptr<KeyMap> makeKeyMap(const CommandMapRec& record, unsigned long id) {
    if (record.commandName().empty()) return Qv::Ptr<KeyMap>();
    Qv::Ptr<KeyMap> map(new KeyMap(record.commandName(), record.defaultMapItem(), record.displayName(),
                                   record.displayDescription(),
                                   (record.attribs() & CommandMapRec::kUserVisible) != 0));
    map->tag(id);
    return map;
}

CommandMapMMC::CommandMapMMC() {
    init();
}

CommandMapMMC::~CommandMapMMC() {
    if (listed_) KeyMappingManager::instance().removeClient(this);
}

void CommandMapMMC::init() {
    const CommandMap* map = CommandMap::theCommandMap();
    std::vector<Qv::Ptr<KeyMap>> maps;
    maps.reserve(map->names().size());
    for (const auto& entry : map->names())
        maps.push_back(makeKeyMap(*map->getCommand(entry.second), entry.second));
    mapper_ = Qv::Ptr<SimpleKeyMapper>(new SimpleKeyMapper(maps));
}

bool CommandMapMMC::bindCommandToKey(const LightweightString<char>& name, int keycode) {
    const CommandMap* map = CommandMap::theCommandMap();
    const unsigned long cmdID = map->findCommand(name.c_str());
    if (!Qv::check(cmdID != CommandMap::invalidCommandId, "cmdID != CommandMap::invalidCommandId",
                   "ole/misc/CommandMapMMC", 71))
        return false;
    if (mapper_->bindCommandToKey(cmdID, keycode)) return true;
    mapper_->addKeyMap(makeKeyMap(*map->getCommand(cmdID), cmdID));
    return mapper_->bindCommandToKey(cmdID, keycode);
}

LightweightString<char> CommandMapMMC::findCommandBoundToKey(int keycode) const {
    const KeyMap* bound = mapper_->lookup(keycode);
    return bound ? bound->outputString() : LightweightString<char>();
}

bool CommandMapMMC::tryKey(int keycode, KeyEvent::eType type) const {
    const KeyMap* bound = mapper_->lookup(keycode);
    if (!bound || bound->outputString().empty()) return false;
    const CommandMap* map = CommandMap::theCommandMap();
    const unsigned long id = map->findCommand(bound->outputString().c_str());
    if (id == CommandMap::invalidCommandId) return false;
    Cmd::Context context;
    if (map->getCommand(id)->attribs() & CommandMapRec::kPressAndRelease) {
        context.eventKind_ = type == KeyEvent::Press ? Cmd::Context::KeyPress : Cmd::Context::KeyRelease;
        map->callCommand(id, context);
    } else if (type == KeyEvent::Press) {
        map->callCommand(id, context);
    }
    return true;
}

LightweightString<wchar_t> CommandMapMMC::getKeysAssignedToCommand(
    const char* name, const LightweightString<wchar_t>& context) const {
    const SimpleKeyMapper* mapper = mapper_.get();
    if (!context.empty()) {
        const KeyMappingClient* client = KeyMappingManager::instance().findClient(context);
        mapper = client ? client->keyMapper() : nullptr;
    }
    LightweightString<wchar_t> text;
    const unsigned long id = CommandMap::theCommandMap()->findCommand(name);
    if (!mapper || id == CommandMap::invalidCommandId) return text;
    for (int key : mapper->keysFor(id)) {
        if (!text.empty()) text += L", ";
        text += Qv::widen(keyCodeName(key).c_str());
    }
    return text;
}

unsigned CommandMapMMC::numCommands() const {
    return unsigned(CommandMap::theCommandMap()->numRecords());
}

LightweightString<char> CommandMapMMC::commandName(unsigned index) const {
    const CommandMapRec* record = CommandMap::theCommandMap()->getCommand(index);
    return record ? record->commandName() : LightweightString<char>();
}

CommandMapMMC& GlobalCommands() {
    static CommandMapMMC* global = [] {
        KeyMappingManager& manager = KeyMappingManager::instance();  // made first, so it outlives the client
        static CommandMapMMC instance;
        manager.addClient(&instance);
        instance.listed_ = true;
        return &instance;
    }();
    return *global;
}
