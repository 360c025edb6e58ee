// ole prefs: the user's editor preferences (section "EditorPreferences" of the user configuration).

#include "Arguments.h"
#include "Commands.h"
#include "Files.h"

#include <ole/misc/EditorPreferences.h>
#include <ole/runtime/RegistryConfig.h>
#include <ole/runtime/Strings.h>

#include <cerrno>
#include <climits>
#include <map>
#include <memory>
#include <optional>

namespace oletool {
namespace {

using Text = LightweightString<char>;

struct PrefsOptions {
    std::string name, value, type = "text", fallback, file;
    bool hasFallback = false;
    bool json = false;
};

enum class PrefType { Text, Int, Bool, Double, XY };

PrefType parseType(const std::string& type) {
    if (type == "text") return PrefType::Text;
    if (type == "int") return PrefType::Int;
    if (type == "bool") return PrefType::Bool;
    if (type == "double") return PrefType::Double;
    if (type == "xy") return PrefType::XY;
    throw InputError("--type: unknown type " + quote(type) + " (text, int, bool, double, xy)");
}

std::string userConfigPath() {
    return str(UserConfig().path());
}

void checkName(const std::string& name) {
    const auto bad = [&](const char* why) {
        return InputError("preference name " + quote(name) + " " + why);
    };
    if (name.empty()) throw bad("is empty");
    if (name.find_first_of("=\n\r") != std::string::npos) throw bad("may not hold '=' or line breaks");
    if (name[0] == '[' || name[0] == '#' || name[0] == ';') throw bad("may not start with '[', '#' or ';'");
    if (name.front() == ' ' || name.back() == ' ' || name.front() == '\t' || name.back() == '\t')
        throw bad("may not start or end with blanks");
}

// "(x,y)" or "x,y" with whole numbers.
XY<int> parseXY(const std::string& text, const char* what) {
    std::string inner = text;
    if (inner.size() >= 2 && inner.front() == '(' && inner.back() == ')')
        inner = inner.substr(1, inner.size() - 2);
    const std::size_t comma = inner.find(',');
    if (comma == std::string::npos)
        throw InputError(std::string(what) + ": " + quote(text) + " is not a pair (x,y)");
    return XY<int>(int(parseInteger(inner.substr(0, comma), what, INT_MIN, INT_MAX)),
                   int(parseInteger(inner.substr(comma + 1), what, INT_MIN, INT_MAX)));
}

// The stored text as a value of the type; InputError when it is not one.
Value typedValue(const std::string& text, PrefType type, const char* what) {
    switch (type) {
        case PrefType::Text:
            return text;
        case PrefType::Int:
            return parseInteger(text, what, INT_MIN, INT_MAX);
        case PrefType::Double:
            return number(parseReal(text, what));
        case PrefType::Bool:
            if (text == "true" || text == "1") return true;
            if (text == "false" || text == "0") return false;
            throw InputError(std::string(what) + ": " + quote(text) + " is not true or false");
        case PrefType::XY: {
            const XY<int> xy = parseXY(text, what);
            Value v = Value::object();
            v["x"] = xy.x;
            v["y"] = xy.y;
            return v;
        }
    }
    return nullptr;
}

// The store keeps going when it cannot save; reading the file back is how the tool finds out.
// `expected` maps each name to its value, or to nothing when it must be gone.
using Expected = std::map<std::string, std::optional<std::string>>;

void checkSaved(const Expected& expected) {
    UserConfig().reload();
    for (const auto& [name, value] : expected) {
        const bool present = prefs().hasPreference(name.c_str());
        if (present != value.has_value() ||
            (present && str(prefs().getPreference(name.c_str(), Text())) != *value))
            throw InputError("could not save the preferences to " + quote(userConfigPath()));
    }
}

void get(const PrefsOptions& o) {
    checkName(o.name);
    checkSettingsFile();
    const PrefType type = parseType(o.type);
    std::string text;
    if (prefs().hasPreference(o.name.c_str())) {
        text = str(prefs().getPreference(o.name.c_str(), Text()));
    } else if (o.hasFallback) {
        text = o.fallback;
    } else {
        throw InputError("no preference " + quote(o.name) + " (see 'ole prefs list')");
    }
    const Value value = typedValue(text, type, ("preference " + o.name).c_str());
    Value out = Value::object();
    out["name"] = o.name;
    out["value"] = value;
    print(out, o.json, render(value));
}

void set(const PrefsOptions& o) {
    checkName(o.name);
    const PrefType type = parseType(o.type);
    const Value value = typedValue(o.value, type, "value");
    checkSettingsFile();
    const Text name = o.name.c_str();
    switch (type) {
        case PrefType::Text:
            prefs().setPreference(name, Text(o.value.c_str(), unsigned(o.value.size())));
            break;
        case PrefType::Int:
            prefs().setPreference(name, value.get<int>());
            break;
        case PrefType::Double:
            prefs().setPreference(name, value.get<double>());
            break;
        case PrefType::Bool:
            prefs().setPreference(name, value.get<bool>());
            break;
        case PrefType::XY:
            prefs().setPreference(name, XY<int>(value.at("x").get<int>(), value.at("y").get<int>()));
            break;
    }
    const std::string stored = str(prefs().getPreference(name, Text()));
    prefs().notifyChange(name);
    checkSaved({{o.name, stored}});
    Value out = Value::object();
    out["name"] = o.name;
    out["value"] = stored;
    print(out, o.json, o.name + "=" + oneLine(stored) + "\n");
}

void remove(const PrefsOptions& o) {
    checkName(o.name);
    if (!prefs().hasPreference(o.name.c_str())) throw InputError("no preference " + quote(o.name));
    checkSettingsFile();
    prefs().removePreference(o.name.c_str());
    checkSaved({{o.name, std::nullopt}});
    Value out = Value::object();
    out["name"] = o.name;
    out["removed"] = true;
    print(out, o.json, "removed " + o.name + "\n");
}

void list(const PrefsOptions& o) {
    checkSettingsFile();
    Value table = Value::array();
    Value object = Value::object();
    for (const auto& [name, value] : prefs().getAVPairs()) {
        Value row = Value::object();
        row["name"] = str(name);
        row["value"] = str(value);
        table.push_back(std::move(row));
        object[str(name)] = str(value);
    }
    print(object, o.json, table.empty() ? "" : render(table));
}

// The section as the library will import it, checked line by line first: the library skips lines it does
// not understand, which would quietly lose what the person meant to import.
Expected checkImportFile(const std::string& path) {
    const std::vector<std::string> lines = splitLines(readWholeFile(path));
    const std::string heading = str(EditorPreferences::getSectionHeading());
    std::size_t i = 0;
    while (i < lines.size() && str(Qv::trim(lines[i].c_str())) != heading) ++i;
    if (i == lines.size()) throw InputError(path + " has no " + heading + " section");
    const auto fault = [&](std::size_t line, const std::string& what) {
        return InputError(path + " line " + std::to_string(line + 1) + ": " + what +
                          "; nothing was imported");
    };
    Expected pairs;  // a name given twice takes its last value, as it will in the store
    for (++i; i < lines.size(); ++i) {
        const std::string& line = lines[i];
        const std::string trimmed = str(Qv::trim(line.c_str()));
        if (!trimmed.empty() && trimmed[0] == '[') break;
        if (trimmed.empty() || trimmed[0] == '#' || trimmed[0] == ';') continue;
        const std::size_t eq = line.find('=');
        if (eq == std::string::npos || eq == 0) throw fault(i, quote(line) + " is not name=value");
        if (line.find('\0') != std::string::npos) throw fault(i, quote(line) + " holds a NUL byte");
        try {
            checkName(line.substr(0, eq));
        } catch (const InputError& e) {
            throw fault(i, e.what());
        }
        std::string value;
        for (std::size_t p = eq + 1; p < line.size(); ++p) {
            if (line[p] != '\\') {
                value += line[p];
                continue;
            }
            const char next = p + 1 < line.size() ? line[++p] : '\0';
            if (next != '\\' && next != 'n' && next != 'r')
                throw fault(i, quote(line) + " has an unknown escape");
            value += next == 'n' ? '\n' : next == 'r' ? '\r' : '\\';
        }
        pairs[line.substr(0, eq)] = value;
    }
    return pairs;
}

void importFile(const PrefsOptions& o) {
    const auto pairs = checkImportFile(o.file);
    checkSettingsFile();
    const int count = prefs().importFrom(fromUTF8(o.file.c_str()));
    if (count < 0) throw InputError("cannot read " + quote(o.file));
    checkSaved(pairs);
    Value out = Value::object();
    out["file"] = o.file;
    out["count"] = count;
    print(out, o.json, "imported " + std::to_string(count) + " preferences from " + o.file + "\n");
}

void exportFile(const PrefsOptions& o) {
    errno = 0;
    if (!prefs().exportTo(fromUTF8(o.file.c_str()))) throw writeError(o.file);
    const std::size_t count = prefs().getAVPairs().size();
    Value out = Value::object();
    out["file"] = o.file;
    out["count"] = count;
    print(out, o.json, "exported " + std::to_string(count) + " preferences to " + o.file + "\n");
}

}  // namespace

void addPrefsCommands(CLI::App& app) {
    CLI::App* prefsCmd = app.add_subcommand("prefs", "Read and change the user's editor preferences");
    prefsCmd->require_subcommand(1);
    const char* types = "Value type: text (default), int, bool, double, xy";

    auto g = std::make_shared<PrefsOptions>();
    CLI::App* getCmd = prefsCmd->add_subcommand("get", "Print one preference");
    getCmd->add_option("name", g->name, "Preference name")->required();
    getCmd->add_option("--type", g->type, std::string(types) + "; the value must read as it")
        ->check(NonEmpty);
    getCmd->add_option("--default", g->fallback, "Print this when the preference is not set")
        ->each([g](const std::string&) { g->hasFallback = true; });
    addJsonFlag(getCmd, g->json);
    getCmd->callback([g] { get(*g); });

    auto s = std::make_shared<PrefsOptions>();
    CLI::App* setCmd = prefsCmd->add_subcommand("set", "Set one preference");
    setCmd->add_option("name", s->name, "Preference name")->required();
    setCmd->add_option("value", s->value, "The value, checked against --type")->required();
    setCmd->add_option("--type", s->type, types)->check(NonEmpty);
    addJsonFlag(setCmd, s->json);
    setCmd->callback([s] { set(*s); });

    auto r = std::make_shared<PrefsOptions>();
    CLI::App* removeCmd = prefsCmd->add_subcommand("remove", "Remove one preference");
    removeCmd->add_option("name", r->name, "Preference name")->required();
    addJsonFlag(removeCmd, r->json);
    removeCmd->callback([r] { remove(*r); });

    auto l = std::make_shared<PrefsOptions>();
    CLI::App* listCmd = prefsCmd->add_subcommand("list", "List every preference");
    addJsonFlag(listCmd, l->json);
    listCmd->callback([l] { list(*l); });

    auto e = std::make_shared<PrefsOptions>();
    CLI::App* exportCmd = prefsCmd->add_subcommand(
        "export", "Write the preferences as a [EditorPreferences] section of a file");
    exportCmd->add_option("file", e->file, "Text file; other sections in it are kept")->required();
    addJsonFlag(exportCmd, e->json);
    exportCmd->callback([e] { exportFile(*e); });

    auto i = std::make_shared<PrefsOptions>();
    CLI::App* importCmd =
        prefsCmd->add_subcommand("import", "Read preferences from the [EditorPreferences] section of a file");
    importCmd->add_option("file", i->file, "Text file with a [EditorPreferences] section of name=value lines")
        ->required();
    addJsonFlag(importCmd, i->json);
    importCmd->callback([i] { importFile(*i); });

    prefsCmd->footer(
        "The preferences live in the user configuration (user.cfg in the preferences directory, below\n"
        "$QUORVANE_HOME when it is set).\n"
        "\n"
        "Examples:\n"
        "  ole prefs set AutoSave 10 --type int\n"
        "  ole prefs get AutoSave --type int --json\n"
        "  ole prefs export prefs.txt");
}

}  // namespace oletool
