#include <ole/misc/EditorPreferences.h>

#include <ole/misc/TextFile.h>
#include <ole/platform/OS.h>
#include <ole/runtime/RegistryConfig.h>
#include <ole/runtime/Strings.h>

#include <cstdlib>
#include <string>

namespace {

using Text = EditorPreferences::Text;

const Text& section() {
    static const Text name(EditorPreferences::kSectionName);
    return name;
}

bool startsSection(const Text& line) {
    const char* p = line.c_str();
    while (*p == ' ' || *p == '\t') ++p;
    return *p == '[';
}

// The index just past the last line of the section whose heading is at `heading`.
unsigned sectionEnd(const Vector<Text>& lines, unsigned heading) {
    unsigned i = heading + 1;
    while (i < lines.size() && !startsSection(lines[i])) ++i;
    return i;
}

}  // namespace

EditorPreferences::EditorPreferences() = default;

EditorPreferences& prefs() {
    static EditorPreferences instance;
    return instance;
}

// --- values -----------------------------------------------------------------------------------------------

void EditorPreferences::setPreference(const Text& name, const Text& value) {
    UserConfig().setValue(section(), name, value);
}
void EditorPreferences::setPreference(const Text& name, const LightweightString<wchar_t>& value) {
    UserConfig().setValue(section(), name, toUTF8(value));
}
void EditorPreferences::setPreference(const Text& name, int value) {
    UserConfig().setValue(section(), name, value);
}
void EditorPreferences::setPreference(const Text& name, bool value) {
    UserConfig().setValue(section(), name, value);
}
void EditorPreferences::setPreference(const Text& name, double value) {
    UserConfig().setValue(section(), name, value);
}
void EditorPreferences::setPreference(const Text& name, const XY<int>& value) {
    UserConfig().setValue(section(), name, stringPrintf("(%d,%d)", value.x, value.y));
}

Text EditorPreferences::getPreference(const Text& name, const Text& def) const {
    return UserConfig().getValue(section(), name, def);
}
LightweightString<wchar_t> EditorPreferences::getPreference(const Text& name,
                                                            const LightweightString<wchar_t>& def) const {
    return hasPreference(name) ? fromUTF8(getPreference(name, Text())) : def;
}
int EditorPreferences::getPreference(const Text& name, int def) const {
    return UserConfig().getValue(section(), name, def);
}
bool EditorPreferences::getPreference(const Text& name, bool def) const {
    return UserConfig().getValue(section(), name, def);
}
double EditorPreferences::getPreference(const Text& name, double def) const {
    return UserConfig().getValue(section(), name, def);
}

XY<int> EditorPreferences::getPreference(const Text& name, const XY<int>& def) const {
    const Text text = getPreference(name, Text());
    const unsigned comma = text.find(',');
    if (comma == Text::npos) return def;
    const char* x = text.c_str();
    if (*x == '(') ++x;
    return XY<int>(int(std::strtol(x, nullptr, 10)), int(std::strtol(text.c_str() + comma + 1, nullptr, 10)));
}

bool EditorPreferences::hasPreference(const Text& name) const {
    return UserConfig().hasValue(section(), name);
}

bool EditorPreferences::removePreference(const Text& name) {
    return UserConfig().removeValue(section(), name);
}

Vector<EditorPreferences::AVPair> EditorPreferences::getAVPairs() const {
    return UserConfig().getValues(section());
}

// --- notification -----------------------------------------------------------------------------------------

int EditorPreferences::makeNotificationType(const Text& name) {
    return NotifyMsgTypeDictionary::instance().intern(Text("EditorPreferences:") + name);
}

Qv::Ptr<Qv::Guard> EditorPreferences::addListener(const Listener& callback, const Text& name) {
    const int type = name.empty() ? CallbackInvokerBase::anyType() : makeNotificationType(name);
    return notifier_.registerNotification(callback, type);
}

void EditorPreferences::notifyChange(const Text& name) const {
    notifier_.issueNotification(NotifyMsg(name), makeNotificationType(name));
}

// --- export and import ------------------------------------------------------------------------------------

Text EditorPreferences::getSectionHeading() {
    return getSectionHeading(section());
}

Text EditorPreferences::getSectionHeading(const Text& sectionName) {
    return Text("[") + sectionName + "]";
}

int EditorPreferences::findPrefsFileSection(const Vector<Text>& lines, unsigned from) {
    const Text heading = getSectionHeading();
    for (unsigned i = from; i < lines.size(); ++i)
        if (Qv::trim(lines[i]) == heading) return int(i);
    return -1;
}

unsigned EditorPreferences::startPrefsFileSection(Vector<Text>& lines) {
    lines.push_back(getSectionHeading());
    return unsigned(lines.size());
}

unsigned EditorPreferences::getPrefsFileSection(Vector<Text>& lines) {
    const int heading = findPrefsFileSection(lines);
    if (heading < 0) return startPrefsFileSection(lines);
    const unsigned body = unsigned(heading) + 1;
    lines.erase(lines.begin() + body, lines.begin() + sectionEnd(lines, unsigned(heading)));
    return body;
}

void EditorPreferences::exportTo(Vector<Text>& lines) const {
    const unsigned at = getPrefsFileSection(lines);
    Vector<Text> pairs;
    for (const AVPair& pair : getAVPairs()) pairs.push_back(pair.first + "=" + Qv::escapeLine(pair.second));
    lines.insert(lines.begin() + at, pairs.begin(), pairs.end());
}

bool EditorPreferences::exportTo(const LightweightString<wchar_t>& path) const {
    const Qv::FileLock lock = OS()->fileSystem()->lock(path.c_str());
    TextFile file(path);  // a file that does not exist yet starts empty; one that cannot be read is kept
    if (file.loadStatus() != Qv::FileStatus::kOk && file.loadStatus() != Qv::FileStatus::kMissing)
        return false;
    Vector<Text> lines = file.lines();
    exportTo(lines);
    file.clear();
    for (const Text& line : lines) file.appendLine(line);
    return file.save(path);
}

int EditorPreferences::importLines(const Vector<Text>& lines, unsigned from) {
    const int heading = findPrefsFileSection(lines, from);
    if (heading < 0) return -1;
    std::vector<std::pair<Text, Text>> pairs;
    std::vector<Text> changed;
    const unsigned end = sectionEnd(lines, unsigned(heading));
    for (unsigned i = unsigned(heading) + 1; i < end; ++i) {
        const Text& line = lines[i];
        const char first = Qv::trim(line)[0];
        const unsigned eq = line.find('=');
        if (first == '#' || first == ';' || eq == Text::npos || eq == 0) continue;
        const Text name = line.substr(0, eq);
        const Text value = Qv::unescapeLine(line.c_str() + eq + 1, line.c_str() + line.size());
        if (!hasPreference(name) || getPreference(name, Text()) != value) changed.push_back(name);
        pairs.emplace_back(name, value);
    }
    // One write of the store for the whole section, then the announcements.
    if (!pairs.empty()) UserConfig().setValues(section(), pairs);
    for (const Text& name : changed) notifyChange(name);
    return int(pairs.size());
}

int EditorPreferences::importFrom(const Vector<Text>& lines) {
    return importLines(lines, 0);
}

int EditorPreferences::importFrom(const LightweightString<wchar_t>& path, unsigned int startLine) {
    TextFile file;
    if (!file.load(path)) return -1;
    return importLines(file.lines(), startLine);
}
