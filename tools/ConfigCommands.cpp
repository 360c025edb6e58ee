// ole config: read and edit a configb file.
//
// Edits keep the file's form: comments, blank lines, the order of the entries, indentation and line ends
// all stay, and only the line of the entry concerned is rewritten (or added before the end line, or
// removed). Before changing anything the whole file must read cleanly, more strictly than the library
// reads it: the "{" line first, an end line, nothing but blank lines after it, every entry named, no name
// given twice; and the library must read the same entries from it. The result is read back the same way
// before it replaces the file, atomically; the file's lock is held from the read to the replace, so
// concurrent edits of one file never lose each other's changes.

#include "Arguments.h"
#include "Commands.h"
#include "Files.h"

#include <ole/misc/Cookie.h>
#include <ole/misc/IdStamp.h>
#include <ole/misc/TextFile.h>
#include <ole/misc/configb.h>
#include <ole/misc/strp_field.h>
#include <ole/runtime/Strings.h>

#include <cstdint>
#include <memory>
#include <strings.h>
#include <unordered_map>
#include <vector>

namespace oletool {
namespace {

bool isBlank(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

// The name as strcasecmp compares it in the C locale: ASCII letters in lower case.
std::string folded(const std::string& name) {
    std::string out = name;
    for (char& c : out)
        if (c >= 'A' && c <= 'Z') c = char(c - 'A' + 'a');
    return out;
}

struct Line {
    std::string text;    // without the line end
    std::string ending;  // "\n", "\r\n", or "" for a last line without one
};

struct Entry {
    std::size_t line;
    std::string indent, name, tag, value;
};

class ConfigFile {
public:
    ConfigFile(std::string path, std::string end) : path_(std::move(path)), end_(std::move(end)) {}

    // Reads and checks `content`; InputError naming the line at the first fault.
    void parse(const std::string& content);
    // The library must find the same entries in the text.
    void crossCheck(const std::string& content) const;
    std::string text() const;

    const std::vector<Entry>& entries() const { return entries_; }
    const Entry* find(const std::string& name) const;
    const std::string& path() const { return path_; }
    const std::string& end() const { return end_; }

    void replaceLine(std::size_t line, const std::string& text) { lines_[line].text = text; }
    void removeLine(std::size_t line) { lines_.erase(lines_.begin() + std::ptrdiff_t(line)); }
    // Adds a line just before the end line, indented and ended like the entries already there.
    void addEntryLine(const std::string& entryText);

private:
    InputError fault(std::size_t line, const std::string& what) const {
        return InputError(path_ + " line " + std::to_string(line + 1) + ": " + what +
                          "; the file is left as it is");
    }
    // The entry on a line, or nothing for blank and comment lines. Sets `isEnd` for a line the library takes
    // as the end of the record.
    bool parseEntry(std::size_t index, Entry& entry, bool& isEnd) const;

    std::string path_;
    std::string end_;
    std::vector<Line> lines_;
    std::vector<Entry> entries_;
    std::unordered_map<std::string, std::size_t> byName_;  // folded name -> index in entries_
    std::size_t endLine_ = 0;
};

bool ConfigFile::parseEntry(std::size_t index, Entry& entry, bool& isEnd) const {
    const std::string& s = lines_[index].text;
    isEnd = s == end_;
    if (isEnd) return false;
    std::size_t p = 0;
    while (p < s.size() && isBlank(s[p])) ++p;
    if (p == s.size() || s[p] == '#') return false;
    std::size_t tokenEnd = p;
    while (tokenEnd < s.size() && !isBlank(s[tokenEnd])) ++tokenEnd;
    std::size_t value = tokenEnd;
    while (value < s.size() && isBlank(s[value])) ++value;
    std::size_t valueEnd = s.size();
    while (valueEnd > value && isBlank(s[valueEnd - 1])) --valueEnd;
    const std::size_t colon = s.find(':', p);
    const std::size_t nameEnd = colon < tokenEnd ? colon : tokenEnd;
    if (nameEnd == p) throw fault(index, quote(s) + " has no entry name");
    // The library ends the record at an entry whose name matches the end string over the name's length.
    if (::strncasecmp(s.c_str() + p, end_.c_str(), nameEnd - p) == 0) {
        isEnd = true;
        return false;
    }
    entry.line = index;
    entry.indent = s.substr(0, p);
    entry.name = s.substr(p, nameEnd - p);
    entry.tag = colon < tokenEnd ? s.substr(colon + 1, tokenEnd - colon - 1) : "";
    entry.value = s.substr(value, valueEnd - value);
    return true;
}

void ConfigFile::parse(const std::string& content) {
    if (content.find('\0') != std::string::npos)
        throw InputError(path_ + " is not a text file; the file is left as it is");
    lines_.clear();
    entries_.clear();
    byName_.clear();
    std::size_t start = 0;
    while (start < content.size()) {
        std::size_t eol = content.find('\n', start);
        Line line;
        if (eol == std::string::npos) {
            line.text = content.substr(start);
            start = content.size();
        } else {
            const bool crlf = eol > start && content[eol - 1] == '\r';
            line.text = content.substr(start, eol - start - (crlf ? 1 : 0));
            line.ending = crlf ? "\r\n" : "\n";
            start = eol + 1;
        }
        lines_.push_back(std::move(line));
    }
    if (lines_.empty()) throw InputError(path_ + " is empty; a configb file starts with a '{' line");
    if (lines_[0].text != "{") throw fault(0, "expected '{', found " + quote(lines_[0].text));

    bool ended = false;
    for (std::size_t i = 1; i < lines_.size(); ++i) {
        if (ended) {
            if (lines_[i].text.find_first_not_of(" \t\r\f\v") != std::string::npos)
                throw fault(i, quote(lines_[i].text) + " follows the end line " + quote(end_));
            continue;
        }
        Entry entry;
        bool isEnd = false;
        if (!parseEntry(i, entry, isEnd)) {
            if (isEnd) ended = true, endLine_ = i;
            continue;
        }
        if (const Entry* earlier = find(entry.name))
            throw fault(i, "entry " + quote(entry.name) + " repeats the one on line " +
                               std::to_string(earlier->line + 1));
        byName_.emplace(folded(entry.name), entries_.size());
        entries_.push_back(std::move(entry));
    }
    if (!ended) throw InputError(path_ + " has no end line " + quote(end_) + "; the file is left as it is");
}

void ConfigFile::crossCheck(const std::string& content) const {
    TextFile file;
    file.setText(LightweightString<char>(content.c_str(), unsigned(content.size())));
    configb record;
    record.set_end_str(end_.c_str());
    bool same = record.buildFrom(file) && record.size() == entries_.size();
    for (const Entry& e : entries_) {
        ConfigEntryT got;
        same = same && record.in(e.name.c_str(), got) == 0 && str(got.type) == e.tag &&
               str(got.value) == e.value;
    }
    if (!same) throw InputError(path_ + " reads differently in the editor; the file is left as it is");
}

std::string ConfigFile::text() const {
    std::string out;
    for (const Line& line : lines_) out += line.text + line.ending;
    return out;
}

const Entry* ConfigFile::find(const std::string& name) const {
    const auto it = byName_.find(folded(name));
    return it == byName_.end() ? nullptr : &entries_[it->second];
}

void ConfigFile::addEntryLine(const std::string& entryText) {
    const std::string indent = entries_.empty() ? "  " : entries_.back().indent;
    std::string ending = lines_[0].ending;
    lines_.insert(lines_.begin() + std::ptrdiff_t(endLine_), Line{indent + entryText, ending});
}

// --- values --------------------------------------------------------------------------------------------

// The type names the tool takes and the tags the library writes for them.
struct TypeName {
    const char* name;
    const char* tag;
};
constexpr TypeName kTypes[] = {
    {"text", ""},         {"int", "int"},         {"double", "double"},    {"bool", "bool"},
    {"cookie", "cookie"}, {"idstamp", "IdStamp"}, {"textdata", "textdata"}};

const char* tagOfType(const std::string& type) {
    for (const TypeName& t : kTypes)
        if (::strcasecmp(type.c_str(), t.name) == 0) return t.tag;
    throw InputError("--type: unknown type " + quote(type) +
                     " (text, int, double, bool, cookie, idstamp, textdata)");
}

std::string typeOfTag(const std::string& tag) {
    for (const TypeName& t : kTypes)
        if (tag == t.tag) return t.name;
    return tag;
}

void checkName(const std::string& name, const std::string& end) {
    const auto bad = [&](const char* why) { return InputError("entry name " + quote(name) + " " + why); };
    if (name.empty()) throw bad("is empty");
    for (char c : name)
        if (isBlank(c) || c == ':' || (unsigned char)c < 0x20)
            throw bad("may not hold blanks, ':' or control characters");
    if (name[0] == '#') throw bad("would read as a comment");
    if (::strncasecmp(name.c_str(), end.c_str(), name.size()) == 0) throw bad("would read as the end line");
}

// The tag and value text the library writes for `text` read as `tag`; InputError when `text` is not a value
// of that type or would not read back the same.
ConfigEntryT makeEntry(const std::string& text, const std::string& tag) {
    for (char c : text)
        if (c == '\n' || c == '\r') throw InputError("a value may not hold line breaks");
    if (!text.empty() && (isBlank(text.front()) || isBlank(text.back())))
        throw InputError("value " + quote(text) + " starts or ends with blanks, which would not read back");
    configb record;
    if (tag == "int") {
        record.set("v", int(parseInteger(text, "value", INT32_MIN, INT32_MAX)));
    } else if (tag == "double") {
        record.set("v", parseReal(text, "value"));
    } else if (tag == "bool") {
        if (text != "true" && text != "false")
            throw InputError("value: " + quote(text) + " is not true or false");
        record.set("v", text == "true");
    } else if (tag == "cookie") {
        record.set("v", accepted(Cookie::parse(text.c_str()), text));
    } else if (tag == "IdStamp") {
        record.set("v", accepted(IdStamp::parse(text.c_str()), text));
    } else if (tag == "textdata") {
        record.set("v", strp_field(text.c_str()));
    } else {
        record.set("v", text.c_str());
    }
    ConfigEntryT entry;
    record.in("v", entry);
    return entry;
}

std::string entryLine(const std::string& name, const std::string& tag, const std::string& value) {
    return name + (tag.empty() ? "" : ":" + tag) + (value.empty() ? "" : " " + value);
}

Value entryValue(const Entry& e) {
    Value v = Value::object();
    v["name"] = e.name;
    v["type"] = typeOfTag(e.tag);
    v["value"] = e.value;
    return v;
}

// --- commands ------------------------------------------------------------------------------------------

struct ConfigOptions {
    std::string file, name, value, type, end = "}";
    bool create = false;
    bool json = false;
};

ConfigFile load(const ConfigOptions& o) {
    ConfigFile file(o.file, o.end);
    const std::string content = readWholeFile(o.file);
    file.parse(content);
    file.crossCheck(content);
    return file;
}

// Checks the edited file as strictly as the original, then replaces the original with it.
void save(ConfigFile& edited) {
    const std::string content = edited.text();
    ConfigFile check(edited.path(), edited.end());
    check.parse(content);
    check.crossCheck(content);
    writeWholeFile(edited.path(), content);
}

const Entry& findEntry(const ConfigFile& file, const std::string& name) {
    const Entry* e = file.find(name);
    if (!e) throw InputError("no entry " + quote(name) + " in " + file.path());
    return *e;
}

void show(const ConfigOptions& o) {
    const ConfigFile file = load(o);
    Value entries = Value::array();
    for (const Entry& e : file.entries()) entries.push_back(entryValue(e));
    Value out = Value::object();
    out["file"] = o.file;
    out["end"] = o.end;
    out["entries"] = entries;
    print(out, o.json, entries.empty() ? "" : render(entries));
}

void get(const ConfigOptions& o) {
    const ConfigFile file = load(o);
    const Entry& e = findEntry(file, o.name);
    if (!o.type.empty() && e.tag != tagOfType(o.type))
        throw InputError("entry " + quote(e.name) + " is " + typeOfTag(e.tag) + ", not " + o.type);
    print(entryValue(e), o.json, e.value + "\n");
}

void set(const ConfigOptions& o) {
    const std::string tag = tagOfType(o.type.empty() ? "text" : o.type);
    checkName(o.name, o.end);
    const ConfigEntryT made = makeEntry(o.value, tag);
    const std::string value = str(made.value);

    const Qv::FileLock lock = lockFile(o.file);  // held from the read to the write
    ConfigFile file(o.file, o.end);
    if (o.create && !fileExists(o.file)) {
        file.parse("{\n" + o.end + "\n");
    } else {
        file = load(o);
    }
    const Entry* existing = file.find(o.name);
    if (existing && existing->tag != tag)
        throw InputError("entry " + quote(existing->name) + " is " + typeOfTag(existing->tag) + ", not " +
                         typeOfTag(tag) + "; remove it first to change its type");
    const bool changed = !existing || existing->value != value;
    const std::string name = existing ? existing->name : o.name;
    if (changed) {
        if (existing) {
            file.replaceLine(existing->line, existing->indent + entryLine(name, tag, value));
        } else {
            file.addEntryLine(entryLine(name, tag, value));
        }
        save(file);
    }
    Value out = Value::object();
    out["name"] = name;
    out["type"] = typeOfTag(tag);
    out["value"] = value;
    out["changed"] = changed;
    print(out, o.json, entryLine(name, tag, value) + (changed ? "" : " (unchanged)") + "\n");
}

void remove(const ConfigOptions& o) {
    const Qv::FileLock lock = lockFile(o.file);
    ConfigFile file = load(o);
    const Entry e = findEntry(file, o.name);
    file.removeLine(e.line);
    save(file);
    Value out = Value::object();
    out["name"] = e.name;
    out["removed"] = true;
    print(out, o.json, "removed " + e.name + "\n");
}

}  // namespace

void addConfigCommands(CLI::App& app) {
    CLI::App* config = app.add_subcommand("config", "Read and edit a configb file, keeping its form");
    config->require_subcommand(1);
    const auto common = [](CLI::App* cmd, ConfigOptions& o, bool named) {
        cmd->add_option("file", o.file, "The configb file")->required();
        if (named) cmd->add_option("name", o.name, "Entry name (any letter case)")->required();
        cmd->add_option("--end", o.end, "The record's end line (default '}')");
        addJsonFlag(cmd, o.json);
    };
    const char* types = "Value type: text (default), int, double, bool, cookie, idstamp, textdata";

    auto s = std::make_shared<ConfigOptions>();
    CLI::App* showCmd = config->add_subcommand("show", "List the entries: name, type and value");
    common(showCmd, *s, false);
    showCmd->callback([s] { show(*s); });

    auto g = std::make_shared<ConfigOptions>();
    CLI::App* getCmd = config->add_subcommand("get", "Print the value of one entry");
    common(getCmd, *g, true);
    getCmd->add_option("--type", g->type, "Fail unless the entry has this type")->check(NonEmpty);
    getCmd->callback([g] { get(*g); });

    auto t = std::make_shared<ConfigOptions>();
    CLI::App* setCmd =
        config->add_subcommand("set", "Set one entry, adding it before the end line if it is new");
    common(setCmd, *t, true);
    setCmd->add_option("value", t->value, "The value, checked against --type")->required();
    setCmd->add_option("--type", t->type, types)->check(NonEmpty);
    setCmd->add_flag("--create", t->create, "Create the file when it does not exist");
    setCmd->callback([t] { set(*t); });

    auto r = std::make_shared<ConfigOptions>();
    CLI::App* removeCmd = config->add_subcommand("remove", "Remove one entry");
    common(removeCmd, *r, true);
    removeCmd->callback([r] { remove(*r); });

    config->footer(
        "A file that does not read cleanly (no '{' first line, no end line, text after it, an entry\n"
        "without a name or given twice) is reported and never changed.\n"
        "\n"
        "Examples:\n"
        "  ole config show project.cfg\n"
        "  ole config get project.cfg width\n"
        "  ole config set project.cfg Width 1920 --type int\n"
        "  ole config remove project.cfg Title");
}

}  // namespace oletool
