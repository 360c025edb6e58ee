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

// Values are kept on one line: line breaks and backslashes are escaped in the file.
std::string escape(const Text& value) {
    std::string out;
    for (char c : value) {
        if (c == '\\')
            out += "\\\\";
        else if (c == '\n')
            out += "\\n";
        else if (c == '\r')
            out += "\\r";
        else
            out += c;
    }
    return out;
}

Text unescape(const std::string& value) {
    std::string out;
    for (std::size_t i = 0; i < value.size(); ++i) {
        if (value[i] == '\\' && i + 1 < value.size()) {
            const char next = value[++i];
            out += next == 'n' ? '\n' : next == 'r' ? '\r' : next;
        } else {
            out += value[i];
        }
    }
    return Text(out.c_str(), unsigned(out.size()));
}

Text toText(const std::string& s) {
    return Text(s.c_str(), unsigned(s.size()));
}

}  // namespace

RegistryConfig::RegistryConfig(const LightweightString<wchar_t>& path) : path_(path) {}

void RegistryConfig::loadLocked() const {
    if (loaded_) return;
    loaded_ = true;
    sections_.clear();
    const Qv::OSFile file = OS()->fileSystem()->open(path_.c_str(), Qv::OSFile::Read);
    if (!file.isOpen()) return;
    std::string content;
    char buffer[4096];
    for (long n; (n = file.read(buffer, sizeof buffer)) > 0;) content.append(buffer, std::size_t(n));

    Section* current = &sections_[Text()];
    std::size_t start = 0;
    while (start < content.size()) {
        std::size_t end = content.find('\n', start);
        if (end == std::string::npos) end = content.size();
        std::string line = content.substr(start, end - start);
        start = end + 1;
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.empty() || line[0] == '#' || line[0] == ';') continue;
        if (line[0] == '[' && line.back() == ']') {
            current = &sections_[toText(line.substr(1, line.size() - 2))];
            continue;
        }
        const std::size_t eq = line.find('=');
        if (eq == std::string::npos) continue;  // not ours: ignored, and dropped at the next save
        (*current)[toText(line.substr(0, eq))] = unescape(line.substr(eq + 1));
    }
}

bool RegistryConfig::saveLocked() const {
    std::string content;
    for (const auto& [name, section] : sections_) {
        if (section.empty()) continue;
        content += "[" + std::string(name.c_str()) + "]\n";
        for (const auto& [key, value] : section)
            content += std::string(key.c_str()) + "=" + escape(value) + "\n";
    }
    const LightweightString<wchar_t> dir = directoryOf(path_);
    if (!dir.empty()) OS()->fileSystem()->createDirectory(dir.c_str());
    return OS()->fileSystem()->writeAtomically(path_.c_str(), content.data(), content.size());
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
    std::lock_guard<std::mutex> lock(mutex_);
    loadLocked();
    sections_[section][name] = value;
    return saveLocked();
}

bool RegistryConfig::setValues(const Text& section, const std::vector<std::pair<Text, Text>>& values) {
    std::lock_guard<std::mutex> lock(mutex_);
    loadLocked();
    Section& target = sections_[section];
    for (const auto& [name, value] : values) target[name] = value;
    return saveLocked();
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
    std::lock_guard<std::mutex> lock(mutex_);
    loadLocked();
    const auto s = sections_.find(section);
    if (s == sections_.end() || s->second.erase(name) == 0) return false;
    saveLocked();
    return true;
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
