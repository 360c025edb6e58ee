// ole cookie: allocate cookies from this user's counter, decode cookie texts, check them.
// ole idstamp: make IdStamps and decode their text.

#include "Arguments.h"
#include "Commands.h"

#include <ole/misc/Cookie.h>
#include <ole/misc/CookieJar.h>
#include <ole/misc/IdStamp.h>
#include <ole/misc/filmgauge.h>
#include <ole/platform/OS.h>
#include <ole/runtime/Paths.h>
#include <ole/runtime/RegistryConfig.h>

#include <cstdint>
#include <ctime>
#include <memory>
#include <vector>

namespace oletool {
namespace {

struct NewCookieOptions {
    std::string type = "G";
    std::string version;
    std::string count = "1";
    bool uuid = false;
    bool json = false;
};

// Identifiers made with the fallback machine number could collide with another machine's.
void requireMachineNumber() {
    if (!Cookie::hasLocalMachineNumber())
        throw InputError("this machine has no valid machine number (see the warning above); nothing is made");
}

std::string cookieText(const Cookie& c) {
    return str(c.asString(true));
}

// A counter that has never existed (no counter file and no project of this machine) is started at 1, as
// the jar itself would, but without the jar's warning about lost numbers, which is meant for a counter
// that went missing.
void startCounterOnFirstUse() {
    const LightweightString<wchar_t>& path = CookieJar::getCookieDotNumPath();
    const Qv::FileSystem* fs = OS()->fileSystem();
    fs->createDirectory(getDefaultLocalProjectsDir().c_str());
    // Under the counter's lock: another process may be starting it, or already handing out numbers.
    const Qv::FileLock lock = fs->lock(path.c_str());
    if (fs->exists(path.c_str()) || Cookie::findHighestCookieNum() != 0) return;
    if (fs->writeAtomically(path.c_str(), "1", 1))
        std::fprintf(stderr, "ole: started the cookie counter at %s\n", str(path).c_str());
}

Value newCookies(const NewCookieOptions& o) {
    if (o.type.size() != 1 || Cookie::typeFromChar(o.type[0]) == 'I')
        throw InputError("--type: " + quote(o.type) +
                         " is not a cookie type (one of B C D E F G M O P R S T V)");
    const CookieType type = Cookie::typeFromChar(o.type[0]);
    // The type's default version is given explicitly: the jar stores a version as given for UUID cookies,
    // where the "default" 255 would print as three digits and break the text form.
    const int version =
        o.version.empty() ? (type == 'S' ? 1 : 0) : int(parseInteger(o.version, "--version", 0, 35));
    const int count = int(parseInteger(o.count, "--count", 1, 10000));

    if (!o.uuid) requireMachineNumber();
    startCounterOnFirstUse();  // the jar reads the counter whichever form is asked for
    CookieJar& jar = CookieJar::instance();
    Value cookies = Value::array();
    for (int i = 0; i < count; ++i) {
        const Cookie c = jar.makeCookie(type, o.uuid ? Cookie::eUUID : Cookie::eSerial, version);
        if (!c.valid()) throw InputError("could not make a cookie of type " + o.type);
        cookies.push_back(cookieText(c));
    }
    jar.flush();
    // The jar marks the run as not yet ended; this one ended normally.
    UserConfig().setValue(RegistryConfig::kDefaultSection, "Normal Exit", true);
    if (!jar.counterSafe())
        throw InputError("could not keep the cookie counter " + quote(str(CookieJar::getCookieDotNumPath())) +
                         " (see the warning above); no cookies are given, as they could repeat");

    Value out = Value::object();
    out["cookies"] = std::move(cookies);
    return out;
}

// The kind of built-in effect a cookie of machine 647 names; null for other cookies.
Value builtInEffect(const Cookie& c) {
    static const struct {
        const Cookie* cookie;
        const char* name;
    } kNamed[] = {{&video_black, "video black"},       {&audio_black, "audio black"},
                  {&video_dissolve, "video dissolve"}, {&film_dissolve, "film dissolve"},
                  {&audio_dissolve, "audio dissolve"}, {&video_mix50, "video mix 50%"},
                  {&audio_mix50, "audio mix 50%"}};
    if (c.isUUID() || c.getMachineNumber() != unsigned(Cookie::kBuiltInMachineNumber)) return nullptr;
    for (const auto& named : kNamed)
        if (*named.cookie == c) return named.name;
    if (c.isFilmDissolve()) return "film dissolve";
    if (c.isDissolve()) return "dissolve";
    if (c.isWipe()) return "wipe";
    if (c.isEffectGraph()) return "effect graph";
    if (c.isInput()) return "input";
    return "other";
}

Value showCookie(const std::string& text) {
    const Cookie c = accepted(Cookie::parse(text.c_str()), text);
    Value out = Value::object();
    out["text"] = text;
    out["canonical"] = cookieText(c);
    out["well_formed"] = Cookie::parseWellFormed(text.c_str()).ok();
    out["form"] = c.isUUID() ? "uuid" : "short";
    out["type"] = std::string(1, c.getType());
    out["version"] = unsigned(c.getVersion());
    if (c.isUUID()) {
        char uuid[40];
        c.getUUID().asString(uuid);
        out["uuid"] = uuid;
        return out;
    }
    const std::string canonical = cookieText(c);
    out["machine"] = c.getMachineNumber();
    out["machine_code"] = canonical.substr(1, 1) + canonical.substr(3, 1);
    out["serial"] = c.getNumber();
    out["serial_base36"] = canonical.substr(4, 4);
    const Value effect = builtInEffect(c);
    out["builtin_effect"] = effect;
    if (c.isWipe()) {
        out["wipe_type"] = c.wipeType();
        out["wipe_direction"] = c.wipeDirection();
    }
    return out;
}

struct CheckOptions {
    std::vector<std::string> texts;
    bool json = false;
};

// Well-formed texts: those that read as a cookie and pass the library's check, as 'cookie show' says.
// Exits 1 when any text fails, each failure on its own line of standard error.
void checkCookies(const CheckOptions& o) {
    Value results = Value::array();
    std::string wellFormed, faults;
    for (const std::string& text : o.texts) {
        const Parsed<Cookie> checked = Cookie::parseWellFormed(text.c_str());
        const Parsed<Cookie> read = Cookie::parse(text.c_str());
        Value r = Value::object();
        r["text"] = text;
        r["well_formed"] = checked.ok();
        r["reads_as"] = read ? Value(cookieText(read.value)) : Value();
        results.push_back(std::move(r));
        if (checked) {
            wellFormed += text + ": well-formed\n";
        } else {
            faults += "ole: " + quote(text) + " " + checked.refusal +
                      (read ? " (the editor reads it as " + cookieText(read.value) + ")" : "") + "\n";
        }
    }
    print(results, o.json, wellFormed);
    if (faults.empty()) return;
    std::fputs(faults.c_str(), stderr);
    throw AlreadyReported{};
}

struct IdStampOptions {
    std::string text;
    std::string count = "1";
    bool json = false;
};

// New identifiers: {"cookies": [...]} as JSON, or one per line for people and shell loops.
std::string listText(const Value& out, const char* key) {
    std::string text;
    for (const Value& v : out.at(key)) text += v.get<std::string>() + "\n";
    return text;
}

Value showIdStamp(const IdStamp& stamp) {
    const std::time_t created = std::time_t(IdStamp::kEpoch) + std::time_t(stamp.timeBits());
    std::tm utc{};
    gmtime_r(&created, &utc);
    char when[40];
    std::strftime(when, sizeof when, "%Y-%m-%dT%H:%M:%SZ", &utc);

    Value out = Value::object();
    out["text"] = str(stamp.asString());
    out["machine"] = stamp.machineNum();
    out["time_bits"] = stamp.timeBits();
    out["created"] = when;
    out["tick"] = stamp.tickCount();
    out["magic"] = stamp.isMagic();
    out["magic_type"] = unsigned(stamp.getMagicType());
    return out;
}

}  // namespace

void addCookieCommands(CLI::App& app) {
    CLI::App* cookie = app.add_subcommand("cookie", "Make, decode and check cookies");
    cookie->require_subcommand(1);

    auto n = std::make_shared<NewCookieOptions>();
    CLI::App* make = cookie->add_subcommand("new", "Allocate new cookies from this user's cookie counter");
    make->add_option("-t,--type", n->type, "Type letter: B C D E F G M O P R S T V (default G, a container)")
        ->check(NonEmpty);
    make->add_option("-v,--version", n->version, "Version 0..35 (default: the type's own, 1 for S, else 0)")
        ->check(NonEmpty);
    make->add_option("-n,--count", n->count, "How many (default 1)")->check(NonEmpty);
    make->add_flag("-u,--uuid", n->uuid, "Make UUID cookies (40 characters) instead of serial ones");
    addJsonFlag(make, n->json);
    make->callback([n] {
        const Value out = newCookies(*n);
        try {
            print(out, n->json, listText(out, "cookies"));
        } catch (const InputError& e) {
            // The cookies are taken from the counter either way; say which, so that none is lost unseen.
            std::string made;
            for (const Value& c : out.at("cookies")) made += (made.empty() ? "" : " ") + c.get<std::string>();
            throw InputError(std::string(e.what()) + "; the cookies made were " + made);
        }
    });

    auto s = std::make_shared<std::pair<std::string, bool>>();
    CLI::App* show = cookie->add_subcommand("show", "Decode a cookie text into its fields");
    show->add_option("cookie", s->first, "Cookie text, 8 or 40 characters")->required();
    addJsonFlag(show, s->second);
    show->callback([s] { print(showCookie(s->first), s->second); });

    auto c = std::make_shared<CheckOptions>();
    CLI::App* check =
        cookie->add_subcommand("check", "Check that cookie texts are well-formed (exit status 1 if not)");
    check->add_option("cookies", c->texts, "Cookie texts")->required();
    addJsonFlag(check, c->json);
    check->callback([c] { checkCookies(*c); });
    cookie->footer(
        "Examples:\n"
        "  ole cookie new --type P --count 3\n"
        "  ole cookie show P00B002S\n"
        "  ole cookie check P00B002S p00B002S");

    CLI::App* idstamp = app.add_subcommand("idstamp", "Make and decode IdStamps");
    idstamp->require_subcommand(1);
    auto in = std::make_shared<IdStampOptions>();
    CLI::App* make2 = idstamp->add_subcommand("new", "Make new IdStamps for this machine");
    make2->add_option("-n,--count", in->count, "How many (default 1)")->check(NonEmpty);
    addJsonFlag(make2, in->json);
    make2->callback([in] {
        const int count = int(parseInteger(in->count, "--count", 1, 10000));
        requireMachineNumber();
        Value out = Value::object();
        out["idstamps"] = Value::array();
        for (int i = 0; i < count; ++i) out["idstamps"].push_back(str(IdStamp().asString()));
        print(out, in->json, listText(out, "idstamps"));
    });
    auto is = std::make_shared<IdStampOptions>();
    CLI::App* show2 = idstamp->add_subcommand("show", "Decode an IdStamp text into its fields");
    show2->add_option("idstamp", is->text, "IdStamp text, 17 to 24 hexadecimal digits")->required();
    addJsonFlag(show2, is->json);
    show2->callback(
        [is] { print(showIdStamp(accepted(IdStamp::parse(is->text.c_str()), is->text)), is->json); });
    idstamp->footer(
        "Examples:\n"
        "  ole idstamp new --count 2\n"
        "  ole idstamp show 0000002A0123ABCD0 --json");
}

}  // namespace oletool
