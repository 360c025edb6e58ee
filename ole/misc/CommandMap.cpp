#include <ole/misc/CommandMap.h>

#include <ole/misc/Notifier.h>
#include <ole/platform/Assert.h>

#include <cwchar>

static const char* const kSource = "ole/misc/CommandMap";

// ---- records --------------------------------------------------------------------------------------------

void CommandMapRec::display(const LightweightString<wchar_t>& name,
                            const LightweightString<wchar_t>& description) {
    displayName_ = name;
    description_ = description;
}

void CommandMapRec::commandFunction(Function function, void* userData) {
    function_ = function;
    userData_ = userData;
}

void CommandMapRec::init() {
    function_ = nullptr;
    userData_ = nullptr;
    attribs_ = 0;
    defaultMapItem_ = MapItem();
}

void CommandMapRec::invalidate() {
    name_.clear();
    displayName_.clear();
    description_.clear();
}

void CommandMapRec::call(const Cmd::Context& context) const {
    if (!function_) return;
    Cmd::Context copy = context;
    copy.userData_ = userData_;
    // The function may change the map and move this record: nothing here is touched after the call.
    function_(copy);
}

// ---- the singleton --------------------------------------------------------------------------------------

static CommandMap* currentMap = nullptr;

// How the notifiers register their debug command once there is a map.
static bool registerForNotifiers(const char* name, void (*action)()) {
    return CommandMap::theCommandMap()->registerCommand(name, action, UIString(), UIString(),
                                                        CommandMap::eScopeInternal,
                                                        MapItem()) != CommandMap::invalidCommandId;
}

CommandMap* CommandMap::theCommandMap() {
    if (!currentMap) {
        currentMap = new CommandMap;
        NotifierBase::setCommandRegistration(&registerForNotifiers);
        NotifierBase::registerCommands();
    }
    return currentMap;
}

CommandMap* CommandMap::theCommandMap(CommandMap* map) {
    if (map != currentMap) {
        delete currentMap;
        currentMap = map;
    }
    return map;
}

// ---- registration ---------------------------------------------------------------------------------------

// The function stored for context-free commands: the plain function travels in the user-data word.
static void contextFreeRedirector(const Cmd::Context& context) {
    Qv::check(context.callerContext_ == nullptr, "context.callerContext_ == NULL", kSource, 155);
    if (context.userData_) reinterpret_cast<void (*)()>(context.userData_)();
}

unsigned long CommandMap::registerCommand(const char* name, CommandMapRec::Function function, void* userData,
                                          unsigned attribs, const UIString& displayName,
                                          const UIString& description, const MapItem& defaultBinding) {
    if (!name || !*name) return invalidCommandId;
    const LightweightString<char> key(name);
    const auto it = map_.find(key);
    if (it != map_.end()) {
        const CommandMapRec& existing = records_[it->second];
        // A context-free command is the same command only with the same plain function.
        const bool same = existing.commandFunction() == function &&
                          (function != &contextFreeRedirector || existing.userData() == userData);
        if (same) return it->second;
        Qv::assertionFailed("it == map_.end()", kSource, 193);
        return invalidCommandId;
    }
    CommandMapRec record;
    record.commandName(key);
    record.commandFunction(function, userData);
    record.attribs(attribs);
    record.display(displayName.resolve(), description.resolve());
    record.defaultMapItem(defaultBinding);
    const unsigned long id = records_.size();
    records_.push_back(record);
    const auto added = map_.emplace(key, id).first;
    index_.emplace(std::string_view(added->first.c_str(), added->first.size()), id);
    return id;
}

unsigned long CommandMap::registerCommand(const char* name, void (*function)(), const UIString& displayName,
                                          const UIString& description, eCmdScope scope,
                                          const MapItem& defaultBinding) {
    unsigned attribs = 0;
    if (scope == eScopeUser || (scope == eScopeUserIfNamed && displayName.hasText()))
        attribs = CommandMapRec::kUserVisible;
    return registerCommand(name, &contextFreeRedirector, reinterpret_cast<void*>(function), attribs,
                           displayName, description, defaultBinding);
}

bool CommandMap::deregisterCommand(unsigned long id) {
    if (id >= records_.size()) return false;
    CommandMapRec& record = records_[id];
    const auto it = map_.find(record.commandName());
    if (it != map_.end() && it->second == id) {
        index_.erase(std::string_view(it->first.c_str(), it->first.size()));
        map_.erase(it);
    }
    record.init();
    record.invalidate();
    return true;
}

// ---- lookup and calls -----------------------------------------------------------------------------------

unsigned long CommandMap::findCommand(const char* name) const {
    if (!name) return invalidCommandId;
    const auto it = index_.find(std::string_view(name));
    return it == index_.end() ? invalidCommandId : it->second;
}

unsigned long CommandMap::findCommandByDisplayName(const LightweightString<wchar_t>& displayName) const {
    const wchar_t* wanted = displayName.c_str();
    for (unsigned long id = 0; id < records_.size(); ++id) {
        const CommandMapRec& record = records_[id];
        if (!record.commandName().empty() && ::wcscasecmp(record.displayName().c_str(), wanted) == 0)
            return id;
    }
    return invalidCommandId;
}

const CommandMapRec* CommandMap::getCommand(unsigned long id) const {
    return id < records_.size() ? &records_[id] : nullptr;
}

void CommandMap::callCommand(unsigned long id, const Cmd::Context& context) const {
    if (id < records_.size()) records_[id].call(context);
}

// ---- static registration --------------------------------------------------------------------------------

CommandRegistrar::CommandRegistrar(const char* name, CommandMapRec::Function function, void* userData,
                                   unsigned attribs, const UIString& displayName, const UIString& description,
                                   const MapItem& defaultBinding)
    : id_(CommandMap::theCommandMap()->registerCommand(name, function, userData, attribs, displayName,
                                                       description, defaultBinding)) {}

CommandRegistrar::CommandRegistrar(const char* name, void (*function)(), const UIString& displayName,
                                   const UIString& description, CommandMap::eCmdScope scope,
                                   const MapItem& defaultBinding)
    : id_(CommandMap::theCommandMap()->registerCommand(name, function, displayName, description, scope,
                                                       defaultBinding)) {}
