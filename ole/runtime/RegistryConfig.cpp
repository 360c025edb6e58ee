#include <ole/runtime/RegistryConfig.h>

#include <ole/platform/OS.h>
#include <ole/runtime/Paths.h>
#include <ole/runtime/Strings.h>

#include <cerrno>
#include <cstdlib>
#include <limits>
#include <string>

namespace {

using Text = RegistryConfig::Text;

Text toText(const std::string& s) {
    return Text(s.c_str(), unsigned(s.size()));
}

}  // namespace

RegistryConfig::RegistryConfig(const LightweightString<wchar_t>& path) : path_(path) {}

void RegistryConfig::loadLocked() const {
    if (loaded_) return;
    loaded_ = true;
    lines_.clear();
    sections_.clear();
    std::string content;
    const Qv::FileStatus status = OS()->fileSystem()->readFile(path_.c_str(), content);
    readStatus_ = int(status);
    if (status != Qv::FileStatus::kOk) return;

    Text section;
    for (std::size_t start = 0; start < content.size();) {
        std::size_t end = content.find('\n', start);
        if (end == std::string::npos) end = content.size();
        Line line{content.substr(start, end - start), Line::kOther, section, Text()};
        start = end + 1;
        std::string text = line.text;
        if (!text.empty() && text.back() == '\r') text.pop_back();
        const std::size_t eq = text.find('=');
        if (text.empty() || text[0] == '#' || text[0] == ';') {
            // a comment or blank line: kept as it is
        } else if (text[0] == '[' && text.back() == ']') {
            section = line.section = toText(text.substr(1, text.size() - 2));
            line.kind = Line::kHeading;
            sections_[section];
        } else if (eq != std::string::npos) {
            line.kind = Line::kValue;
            line.name = toText(text.substr(0, eq));
            sections_[section][line.name] = Qv::unescapeLine(text.data() + eq + 1, text.data() + text.size());
        }
        lines_.push_back(std::move(line));
    }
}

bool RegistryConfig::saveLocked() const {
    std::string content;
    for (const Line& line : lines_) content += line.text + "\n";
    return OS()->fileSystem()->writeAtomically(path_.c_str(), content.data(), content.size());
}

template <class Edit>
bool RegistryConfig::change(Edit edit) {
    std::lock_guard<std::mutex> lock(mutex_);
    const Qv::FileSystem* fs = OS()->fileSystem();
    const LightweightString<wchar_t> dir = directoryOf(path_);
    if (!dir.empty()) fs->createDirectory(dir.c_str());
    const Qv::FileLock fileLock = fs->lock(path_.c_str());
    loaded_ = false;  // another process may have changed the file since it was read
    loadLocked();
    const auto status = Qv::FileStatus(readStatus_);
    if (status != Qv::FileStatus::kOk && status != Qv::FileStatus::kMissing) return false;
    return edit() && saveLocked();
}

void RegistryConfig::putLocked(const Text& section, const Text& name, const Text& value) {
    sections_[section][name] = value;
    const std::string text = std::string(name.c_str(), name.size()) + "=" + Qv::escapeLine(value).c_str();
    // The last line of the name is the one that counts; a new name goes after the last line of its section.
    std::size_t insertAt = std::string::npos;
    for (std::size_t i = lines_.size(); i-- > 0;) {
        const Line& line = lines_[i];
        if (line.kind == Line::kOther || !(line.section == section)) continue;
        if (line.kind == Line::kValue && line.name == name) {
            lines_[i].text = text;
            return;
        }
        if (insertAt == std::string::npos) insertAt = i + 1;
    }
    if (insertAt == std::string::npos) {
        if (section.empty()) {
            insertAt = 0;
        } else {
            lines_.push_back(Line{"[" + std::string(section.c_str(), section.size()) + "]", Line::kHeading,
                                  section, Text()});
            insertAt = lines_.size();
        }
    }
    lines_.insert(lines_.begin() + std::ptrdiff_t(insertAt), Line{text, Line::kValue, section, name});
}

bool RegistryConfig::eraseLocked(const Text& section, const Text& name) {
    const auto s = sections_.find(section);
    if (s == sections_.end() || s->second.erase(name) == 0) return false;
    for (std::size_t i = lines_.size(); i-- > 0;)
        if (lines_[i].kind == Line::kValue && lines_[i].section == section && lines_[i].name == name)
            lines_.erase(lines_.begin() + std::ptrdiff_t(i));
    return true;
}

RegistryConfig::Text RegistryConfig::readError() const {
    std::lock_guard<std::mutex> lock(mutex_);
    loadLocked();
    const auto status = Qv::FileStatus(readStatus_);
    if (status == Qv::FileStatus::kOk || status == Qv::FileStatus::kMissing) return Text();
    return Text(Qv::FileSystem::describe(status));
}

const Text* RegistryConfig::findLocked(const Text& section, const Text& name) const {
    loadLocked();
    const auto s = sections_.find(section);
    if (s == sections_.end()) return nullptr;
    const auto v = s->second.find(name);
    return v == s->second.end() ? nullptr : &v->second;
}

Text RegistryConfig::getValue(const Text& section, const Text& name, const Text& defaultValue) const {
    std::lock_guard<std::mutex> lock(mutex_);
    const Text* value = findLocked(section, name);
    return value ? *value : defaultValue;
}

// Parses a whole number that fits `Number`; text with anything else in it is not a number.
template <class Number>
static bool parseInteger(const Text& text, Number& out) {
    const std::string s = Qv::trim(text).c_str();
    if (s.empty()) return false;
    char* end = nullptr;
    errno = 0;
    const long long v = std::strtoll(s.c_str(), &end, 10);
    if (*end || errno == ERANGE) return false;
    if (v < std::numeric_limits<Number>::min() || v > std::numeric_limits<Number>::max()) return false;
    out = Number(v);
    return true;
}

int RegistryConfig::getValue(const Text& section, const Text& name, int defaultValue) const {
    int out = defaultValue;
    return parseInteger(getValue(section, name, Text()), out) ? out : defaultValue;
}

long RegistryConfig::getValue(const Text& section, const Text& name, long defaultValue) const {
    long out = defaultValue;
    return parseInteger(getValue(section, name, Text()), out) ? out : defaultValue;
}

double RegistryConfig::getValue(const Text& section, const Text& name, double defaultValue) const {
    const std::string s = Qv::trim(getValue(section, name, Text())).c_str();
    if (s.empty()) return defaultValue;
    char* end = nullptr;
    const double v = std::strtod(s.c_str(), &end);
    return *end ? defaultValue : v;
}

bool RegistryConfig::getValue(const Text& section, const Text& name, bool defaultValue) const {
    const Text value = Qv::trim(getValue(section, name, Text()));
    if (value == "true" || value == "1") return true;
    if (value == "false" || value == "0") return false;
    return defaultValue;
}

Text RegistryConfig::getValue(const Text& name, const Text& defaultValue) const {
    return getValue(Text(kDefaultSection), name, defaultValue);
}

int RegistryConfig::getValue(const Text& name, int defaultValue) const {
    return getValue(Text(kDefaultSection), name, defaultValue);
}

bool RegistryConfig::hasValue(const Text& section, const Text& name) const {
    std::lock_guard<std::mutex> lock(mutex_);
    return findLocked(section, name) != nullptr;
}

bool RegistryConfig::setValue(const Text& section, const Text& name, const Text& value) {
    return change([&] {
        putLocked(section, name, value);
        return true;
    });
}

bool RegistryConfig::setValues(const Text& section, const std::vector<std::pair<Text, Text>>& values) {
    return change([&] {
        for (const auto& [name, value] : values) putLocked(section, name, value);
        return true;
    });
}

bool RegistryConfig::setValue(const Text& section, const Text& name, int value) {
    return setValue(section, name, stringPrintf("%d", value));
}

bool RegistryConfig::setValue(const Text& section, const Text& name, bool value) {
    return setValue(section, name, Text(BoolAsString(value)));
}

bool RegistryConfig::setValue(const Text& section, const Text& name, double value) {
    return setValue(section, name, stringPrintf("%.17g", value));
}

bool RegistryConfig::removeValue(const Text& section, const Text& name) {
    return change([&] { return eraseLocked(section, name); });
}

std::vector<std::pair<Text, Text>> RegistryConfig::getValues(const Text& section) const {
    std::lock_guard<std::mutex> lock(mutex_);
    loadLocked();
    std::vector<std::pair<Text, Text>> values;
    const auto s = sections_.find(section);
    if (s != sections_.end()) values.assign(s->second.begin(), s->second.end());
    return values;
}

void RegistryConfig::reload() {
    std::lock_guard<std::mutex> lock(mutex_);
    loaded_ = false;
}

// The stores follow the directory layout as it is when first used.
RegistryConfig& GlobalConfig() {
    static RegistryConfig config(joinPath(getMachineSettingsDirectory(), L"global.cfg"));
    return config;
}

RegistryConfig& UserConfig() {
    static RegistryConfig config(joinPath(getPreferencesDirectory(), L"user.cfg"));
    return config;
}
