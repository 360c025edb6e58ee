#include <ole/misc/configb.h>

#include <ole/misc/Cookie.h>
#include <ole/misc/Dirtiable.h>
#include <ole/misc/IdStamp.h>
#include <ole/misc/strmable.h>
#include <ole/misc/strp_field.h>
#include <ole/runtime/RegistryConfig.h>
#include <ole/runtime/Strings.h>

#include <cctype>
#include <cstdio>
#include <strings.h>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <utility>

namespace {

using Text = configb::Text;

// White space as isspace() sees it in the C locale. Bytes with the top bit set never count, so UTF-8
// names and values are never split inside a character.
inline bool isBlank(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

bool hasVisibleText(const Text& text) {
    for (char c : text)
        if (!isBlank(c)) return true;
    return false;
}

// The tags written by the typed setters. Reading hands out these shared strings instead of a fresh copy
// per entry, which matters for records of thousands of entries.
const Text& tagInt() {
    static const Text tag("int");
    return tag;
}
const Text& tagDouble() {
    static const Text tag("double");
    return tag;
}
const Text& tagBool() {
    static const Text tag("bool");
    return tag;
}
const Text& tagCookie() {
    static const Text tag("cookie");
    return tag;
}
const Text& tagTextData() {
    static const Text tag("textdata");
    return tag;
}
const Text& tagIdStamp() {
    static const Text tag("IdStamp");
    return tag;
}

// A copy of `n` characters in a block that fits them; join() skips the zero fill that the (text, length)
// constructor does first, which shows when thousands of entries are read.
Text copyText(const char* p, unsigned n) {
    return Text::join(p, n, nullptr, 0);
}

// The tag of `n` characters at `p`: one of the shared tags when it is one, else a copy kept in `other`.
const Text& makeTag(const char* p, unsigned n, Text& other) {
    if (n == 0) return other;
    for (const Text* known :
         {&tagInt(), &tagDouble(), &tagBool(), &tagCookie(), &tagTextData(), &tagIdStamp()})
        if (known->size() == n && std::memcmp(known->c_str(), p, n) == 0) return *known;
    other = copyText(p, n);
    return other;
}

// A line of text that the reader looks at without copying.
struct LineSpan {
    const char* p;
    unsigned n;
};

// Lines are C texts: a NUL byte ends a line, as it ends every value once written or packed.
inline LineSpan cText(const char* p, unsigned n) {
    return {p, unsigned(::strnlen(p, n))};
}

// The lines of a text file from a given index, one at a time.
class FileLines {
public:
    FileLines(const TextFile& file, unsigned first) : file_(file), next_(first) {}
    bool next(LineSpan& line) {
        if (next_ >= file_.size()) return false;
        const Text& text = file_[next_++];
        line = cText(text.c_str(), text.size());
        return true;
    }
    // The index of the line after the last one handed out.
    unsigned position() const { return next_; }

private:
    const TextFile& file_;
    unsigned next_;
};

// A string's lines, one at a time, cut at newline characters without copying; every newline ends a line,
// so "{\n" is "{" and "".
class StringLines {
public:
    explicit StringLines(const Text& text) : p_(text.c_str()), end_(p_ + text.size()) {}
    bool next(LineSpan& line) {
        if (!p_) return false;
        const char* eol = static_cast<const char*>(std::memchr(p_, '\n', std::size_t(end_ - p_)));
        line = cText(p_, unsigned((eol ? eol : end_) - p_));
        p_ = eol ? eol + 1 : nullptr;
        return true;
    }

private:
    const char* p_;
    const char* end_;
};

// Length of an entry's line without indentation and line end.
std::size_t entryLineLength(const Text& name, const ConfigEntryT& entry) {
    std::size_t n = name.size();
    if (hasVisibleText(entry.type)) n += 1 + entry.type.size();
    if (hasVisibleText(entry.value)) n += 1 + entry.value.size();
    return n;
}

// Writes an entry's line (without indentation and line end) at `out`; returns the end of what it wrote.
char* writeEntryLine(char* out, const Text& name, const ConfigEntryT& entry) {
    std::memcpy(out, name.c_str(), name.size());
    out += name.size();
    if (hasVisibleText(entry.type)) {
        *out++ = ':';
        std::memcpy(out, entry.type.c_str(), entry.type.size());
        out += entry.type.size();
    }
    if (hasVisibleText(entry.value)) {
        *out++ = ' ';
        std::memcpy(out, entry.value.c_str(), entry.value.size());
        out += entry.value.size();
    }
    return out;
}

// A fresh string of `n` characters that the caller fills through the returned pointer.
char* prepare(Text& text, std::size_t n) {
    text.resizeFor(unsigned(n));
    return n ? text.impl()->data : nullptr;
}

// Copies as much of the text as fits in `size` bytes (size > 0) with its terminator.
void copyTruncated(const Text& text, char* buffer, unsigned size) {
    const unsigned n = text.size() < size ? text.size() : size - 1;
    std::memcpy(buffer, text.c_str(), n);
    buffer[n] = '\0';
}

Text textOf(int value) {
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%d", value);
    return Text(buffer);
}

Text textOf(double value) {
    // "%.8lf" of the largest double needs 309 digits, a sign, the point and 8 decimals.
    char buffer[400];
    std::snprintf(buffer, sizeof buffer, "%.8lf", value);
    return Text(buffer);
}

}  // namespace

// --- construction -------------------------------------------------------------------------------------

configb::configb(Dirtiable* owner) : owner_(owner) {
    init();
}

configb::configb(const LightweightString<wchar_t>& path) {
    init();
    readFromFile(path);
}

configb::configb(PStream& stream) {
    init();
    unpack(stream, kPackVersion);
}

configb::configb(const configb& other)
    : owner_(nullptr),
      entries_(other.entries_),
      endStr_(other.endStr_),
      name_(other.name_),
      dirty_(other.dirty_) {}

configb& configb::operator=(const configb& other) {
    if (this != &other) {
        entries_ = other.entries_;
        endStr_ = other.endStr_;
        name_ = other.name_;
        set_dirty(other.dirty_);
    }
    return *this;
}

configb::~configb() = default;

void configb::init() {
    endStr_ = "}";
    dirty_ = false;
}

void configb::set_end_str(const char* end) {
    endStr_ = end;
}

void configb::set_config_name(const char* name) {
    name_ = name;
}

void configb::set_dirty(bool dirty) {
    dirty_ = dirty;
    if (dirty && owner_) owner_->setDirty(true);
}

void configb::remove(const Text& name) {
    if (entries_.erase(name)) set_dirty(true);
}

// --- setting ------------------------------------------------------------------------------------------

int configb::setInternal(const Text& name, const Text& value, const Text& typeTag) {
    return store(Text(name), Text(value), typeTag);
}

int configb::store(Text&& name, Text&& value, const Text& typeTag) {
    if (name.empty()) return 0;
    const caseInsensitiveCompare less;
    // Text written by asString() arrives in map order, so a new name usually belongs at the end: checking
    // the last entry first makes reading a sorted record linear instead of a search per line.
    auto at = entries_.end();
    if (!entries_.empty() && !less(std::prev(at)->first, name)) {
        at = entries_.lower_bound(name);
        if (at != entries_.end() && !less(name, at->first)) {
            ConfigEntryT& entry = at->second;
            if (entry.type != typeTag || entry.value == value) return 0;
            entry.value = std::move(value);
            set_dirty(true);
            return 1;
        }
    }
    entries_.emplace_hint(at, std::move(name), ConfigEntryT(typeTag, std::move(value)));
    return 1;
}

int configb::set(const Text& name, const ConfigEntryT& entry) {
    return setInternal(name, entry.value, entry.type);
}
int configb::set(const Text& name, const char* value) {
    return setInternal(name, Text(value), Text());
}
int configb::set(const Text& name, const Text& value) {
    return setInternal(name, value, Text());
}
int configb::set(const Text& name, int value) {
    return setInternal(name, textOf(value), tagInt());
}
int configb::set(const Text& name, double value) {
    return setInternal(name, textOf(value), tagDouble());
}
int configb::set(const Text& name, bool value) {
    return setInternal(name, Text(BoolAsString(value)), tagBool());
}

int configb::set(const Text& name, const Cookie& value) {
    return setInternal(name, value.asString(true), tagCookie());
}

int configb::set(const Text& name, const IdStamp& value) {
    return setInternal(name, value.asString(), tagIdStamp());
}

int configb::set(const Text& name, const strp_field& value) {
    return setInternal(name, value.getPersistableString(), tagTextData());
}

// --- getting ------------------------------------------------------------------------------------------

const ConfigEntryT* configb::find(const Text& name) const {
    if (name.empty()) return nullptr;
    const auto it = entries_.find(name);
    return it == entries_.end() ? nullptr : &it->second;
}

int configb::in(const Text& name, ConfigEntryT& out) const {
    const ConfigEntryT* entry = find(name);
    if (!entry) return -1;
    out = *entry;
    return 0;
}

int configb::in(const Text& name, int& out) const {
    const ConfigEntryT* entry = find(name);
    if (!entry) return -1;
    const char* text = entry->value.c_str();
    if (std::isdigit(static_cast<unsigned char>(text[0])) || text[0] == '-') {
        out = int(std::strtol(text, nullptr, 10));
        return 0;
    }
    // Flags written as words are accepted where a number is asked for.
    if (entry->value == "true") {
        out = 1;
        return 0;
    }
    if (entry->value == "false") {
        out = 0;
        return 0;
    }
    return -1;
}

int configb::in(const Text& name, unsigned int& out) const {
    const ConfigEntryT* entry = find(name);
    if (!entry) return -1;
    out = unsigned(std::strtol(entry->value.c_str(), nullptr, 10));
    return 0;
}

int configb::in(const Text& name, double& out) const {
    const ConfigEntryT* entry = find(name);
    if (!entry) return -1;
    out = std::strtod(entry->value.c_str(), nullptr);
    return 0;
}

int configb::in(const Text& name, bool& out) const {
    const ConfigEntryT* entry = find(name);
    if (!entry) return -1;
    if (entry->value == "true")
        out = true;
    else if (entry->value == "false")
        out = false;
    return 0;
}

int configb::in(const Text& name, char* buffer, int size) const {
    const ConfigEntryT* entry = find(name);
    if (!entry || !buffer || size <= 0) return -1;
    copyTruncated(entry->value, buffer, unsigned(size));
    return 0;
}

int configb::in(const Text& name, char* buffer) const {
    const ConfigEntryT* entry = find(name);
    if (!entry || !buffer) return -1;
    std::memcpy(buffer, entry->value.c_str(), entry->value.size() + 1);
    return 0;
}

int configb::in(const Text& name, Text& out) const {
    const ConfigEntryT* entry = find(name);
    if (!entry) return -1;
    out = entry->value;
    return 0;
}

int configb::in(const Text& name, Cookie& out) const {
    const ConfigEntryT* entry = find(name);
    if (!entry) return -1;
    out = Cookie(entry->value.c_str(), true);
    return 0;
}

int configb::in(const Text& name, IdStamp& out) const {
    const ConfigEntryT* entry = find(name);
    if (!entry) return -1;
    out = IdStamp(entry->value.c_str());
    return 0;
}

int configb::in(const Text& name, strp_field& out) const {
    const ConfigEntryT* entry = find(name);
    if (!entry) return -1;
    out.setPersistableString(entry->value);
    return 0;
}

// --- text form ----------------------------------------------------------------------------------------

// Short values met while reading one block, so that a value repeated on many lines (flags, zeros, the same
// text) shares one block instead of taking a fresh copy per entry. Direct-mapped on length and the first
// and last characters; a miss just makes a copy.
class configb::RecentValues {
public:
    Text get(const char* p, unsigned n) {
        if (n == 0) return Text();
        if (n > kLongest) return copyText(p, n);
        Text& slot =
            slots_[(n * 31u + static_cast<unsigned char>(p[0]) * 7u + static_cast<unsigned char>(p[n - 1])) %
                   kSlots];
        if (slot.size() != n || std::memcmp(slot.c_str(), p, n) != 0) slot = copyText(p, n);
        return slot;
    }

private:
    static constexpr unsigned kLongest = 40;
    static constexpr unsigned kSlots = 61;
    Text slots_[kSlots];
};

bool configb::parseLine(const char* p, const char* end, RecentValues& recent) {
    while (p < end && isBlank(*p)) ++p;
    if (p == end || *p == '#') return true;  // blank line or comment

    // The name token runs to the first blank. A colon in it splits it into name and tag; a colon further on
    // belongs to the value.
    const char* colon = nullptr;
    const char* tokenEnd = p;
    for (; tokenEnd < end && !isBlank(*tokenEnd); ++tokenEnd) {
        if (*tokenEnd == ':' && !colon) colon = tokenEnd;
    }
    const char* value = tokenEnd;
    while (value < end && isBlank(*value)) ++value;
    const char* valueEnd = end;
    while (valueEnd > value && isBlank(valueEnd[-1])) --valueEnd;

    const char* const nameEnd = colon ? colon : tokenEnd;
    const unsigned nameLen = unsigned(nameEnd - p);
    if (nameLen == 0) return true;  // ":tag value" names nothing
    // The first characters differ (the 0x20 bit aside, which is all that case folding changes) for all
    // but the end line, which spares the full comparison on every other line.
    if ((p[0] | 0x20) == (endStr_.c_str()[0] | 0x20) && ::strncasecmp(p, endStr_.c_str(), nameLen) == 0) {
        return false;
    }

    Text otherTag;
    const Text& tag = colon ? makeTag(colon + 1, unsigned(tokenEnd - colon - 1), otherTag) : otherTag;
    store(copyText(p, nameLen), recent.get(value, unsigned(valueEnd - value)), tag);
    return true;
}

template <class Lines>
bool configb::readBlock(Lines& lines) {
    LineSpan s;
    if (!lines.next(s) || s.n != 1 || s.p[0] != '{') return false;
    RecentValues recent;
    while (lines.next(s)) {
        if (s.n == endStr_.size() && std::memcmp(s.p, endStr_.c_str(), s.n) == 0) break;
        if (!parseLine(s.p, s.p + s.n, recent)) break;
    }
    return true;
}

bool configb::buildFrom(const TextFile& file, unsigned int& line) {
    FileLines lines(file, line);
    if (!readBlock(lines)) return false;
    line = lines.position();
    return true;
}

bool configb::buildFrom(const TextFile& file) {
    unsigned int line = 0;
    return buildFrom(file, line);
}

bool configb::fromString(const Text& text) {
    // At least two lines: the text holds a line end.
    if (text.find('\n') == Text::npos) return false;
    StringLines lines(text);
    return readBlock(lines);
}

bool configb::readFromFile(const LightweightString<wchar_t>& path) {
    entries_.clear();
    TextFile file;
    const bool ok = file.load(path) && buildFrom(file);
    dirty_ = false;
    return ok;
}

Text configb::asString() const {
    std::size_t total = 2 + endStr_.size();  // "{\n" and the end string
    for (const auto& [name, entry] : entries_) total += 2 + entryLineLength(name, entry) + 1;

    Text text;
    char* out = prepare(text, total);
    *out++ = '{';
    *out++ = '\n';
    for (const auto& [name, entry] : entries_) {
        *out++ = ' ';
        *out++ = ' ';
        out = writeEntryLine(out, name, entry);
        *out++ = '\n';
    }
    std::memcpy(out, endStr_.c_str(), endStr_.size());
    return text;
}

void configb::writeTo(TextFile& file, unsigned short indent) const {
    const auto indented = [indent](const Text& text) {
        Text line;
        char* out = prepare(line, indent + std::size_t(text.size()));
        std::memset(out, ' ', indent);
        std::memcpy(out + indent, text.c_str(), text.size());
        return line;
    };
    file.appendLine(indented("{"));
    const std::size_t entryIndent = indent + 2u;
    for (const auto& [name, entry] : entries_) {
        Text line;
        char* out = prepare(line, entryIndent + entryLineLength(name, entry));
        std::memset(out, ' ', entryIndent);
        writeEntryLine(out + entryIndent, name, entry);
        file.appendLine(line);
    }
    file.appendLine(indented(endStr_));
}

bool configb::dump(const LightweightString<wchar_t>& path) const {
    TextFile file;
    writeTo(file, 0);
    return file.save(path);
}

// --- binary form ----------------------------------------------------------------------------------------

int configb::pack(PStream& stream) const {
    const auto text = [&stream](const Text& t) { stream.writeBinary(t.c_str(), 0, false, false); };
    stream.setUnsignedLong(uint32_t(entries_.size()));
    for (const auto& [name, entry] : entries_) {
        text(name);
        text(entry.type);
        text(entry.value);
    }
    text(endStr_);
    text(name_);
    return stream.error() ? STRM_FAILED : STRM_OK;
}

int configb::unpack(PStream& stream, unsigned char version) {
    entries_.clear();
    dirty_ = false;
    if (version != kPackVersion) {
        stream.messages().appendf("Unknown configb version %d.\n", version);
        return STRM_FAILED;
    }
    // Every entry takes at least three bytes (three empty texts), which bounds a count read from bad data.
    const uint32_t count = stream.getUnsignedLong();
    if (stream.error() || count > stream.file()->remaining() / 3) {
        stream.messages().append("Bad configb entry count.\n");
        stream.setError();
        return STRM_FAILED;
    }
    for (uint32_t i = 0; i < count && !stream.error(); ++i) {
        Text name = stream.getString();
        const Text tag = stream.getString();
        store(std::move(name), stream.getString(), tag);
    }
    endStr_ = stream.getString();
    name_ = stream.getString();
    if (stream.error()) {
        entries_.clear();
        init();
        return STRM_FAILED;
    }
    return STRM_OK;
}

// --- the process-wide configuration ---------------------------------------------------------------------

namespace {
const Text& configSection() {
    static const Text section(RegistryConfig::kDefaultSection);
    return section;
}
}  // namespace

int config_int(const char* name, int def) {
    return GlobalConfig().getValue(configSection(), Text(name), def);
}
long config_long(const char* name, long def) {
    return GlobalConfig().getValue(configSection(), Text(name), def);
}
double config_double(const char* name, double def) {
    return GlobalConfig().getValue(configSection(), Text(name), def);
}
bool config_Bool(const char* name, bool def) {
    return GlobalConfig().getValue(configSection(), Text(name), def);
}

LightweightString<char> config_string(const char* name, const char* def) {
    return GlobalConfig().getValue(configSection(), Text(name), Text(def));
}

char* config_string(const char* name, char* buffer, int size, const char* def) {
    if (!buffer || size <= 0) return buffer;
    copyTruncated(config_string(name, def), buffer, unsigned(size));
    return buffer;
}

Cookie config_cookie(const char* name, const Cookie& def) {
    const Text text = config_string(name, "");
    const Cookie cookie(text.c_str(), true);
    return cookie.valid() ? cookie : def;
}

IdStamp config_IdStamp(const char* name, const IdStamp& def) {
    const IdStamp stamp(config_string(name, "").c_str());
    return stamp.valid() ? stamp : def;
}

void config_flush() {}

// --- config_outb ----------------------------------------------------------------------------------------

namespace {
constexpr unsigned kPrefixCount = 16;

struct Prefixes {
    char text[kPrefixCount][2 * kPrefixCount];
    Prefixes() {
        for (unsigned i = 0; i < kPrefixCount; ++i) {
            std::memset(text[i], ' ', 2 * i);
            text[i][2 * i] = '\0';
        }
    }
};

const Prefixes& prefixes() {
    static const Prefixes table;
    return table;
}
}  // namespace

config_outb::config_outb(TextFile& file, unsigned depth) : file_(file), depth_(depth) {
    make_prefixes();
}

void config_outb::make_prefixes() {
    prefixes();
}

const char* config_outb::get_prefix_string() const {
    return prefixes().text[depth_ < kPrefixCount ? depth_ : kPrefixCount - 1];
}

void config_outb::out(const char* name, const char* value) {
    Text line(get_prefix_string());
    line += "  ";
    line += name;
    line += ' ';
    line += value;
    file_.appendLine(line);
}

void config_outb::out(const char* name, int value) {
    out(name, textOf(value).c_str());
}
void config_outb::out(const char* name, unsigned int value) {
    out(name, stringPrintf("%u", value).c_str());
}
void config_outb::out(const char* name, double value) {
    out(name, textOf(value).c_str());
}
void config_outb::out(const char* name, const Cookie& value) {
    out(name, value.asString(true).c_str());
}
void config_outb::out(const char* name, IdStamp& value) {
    out(name, value.asString().c_str());
}
void config_outb::out(const char* name, bool& value) {
    out(name, BoolAsString(value));
}
void config_outb::out(const char* name, strp_field& value) {
    out(name, value.getPersistableString().c_str());
}
