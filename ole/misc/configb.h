#pragma once

/// @file
/// configb: a small record of named values, each with a type tag saying how it was written, kept in a
/// std::map ordered case-insensitively (so "Width" and "WIDTH" are one entry and iteration is in
/// case-insensitive alphabetical order). Records are saved to and read from text, either as a whole file,
/// as one block inside a larger text file, or as a string, in this form:
///
///     {
///       Height:int 576
///       Title Evening news
///       Scale:double 1.50000000
///     }
///
/// An opening line that is exactly "{", one line per entry (name, then ":" and the tag when there is one,
/// then a blank and the value when there is one; the value may hold inner blanks and colons), and a closing
/// line holding the end string ("}" unless set_end_str changed it, so a block can sit inside a file whose
/// blocks close with another word). When reading, lines that are blank or start with "#" after white space
/// are skipped, and a missing end line simply reads to the end of the text.
///
/// A value of one type never overwrites an entry of another: set(name, 5) followed by set(name, "five")
/// keeps the integer and returns 0. Setters return 1 when the record changed and 0 when it did not; getters
/// return 0 on success and -1 when there is no such entry (or the name is empty), leaving `out` untouched.
/// Text that does not parse gives what strtol/strtod give for it; nothing throws.
///
/// The dirty flag says that an existing value was replaced or removed since the record was read or init()
/// was called; the owner (a Dirtiable, may be null, not owned) is told when the record becomes dirty.
/// A record is not thread-safe; distinct records may be used on distinct threads.

#include <ole/platform/export.h>
#include <ole/Qv/LightweightString.h>
#include <ole/misc/Cookie.h>
#include <ole/misc/IdStamp.h>
#include <ole/misc/TextFile.h>
#include <ole/misc/strp_field.h>

#include <map>
#include <utility>

class Dirtiable;
class PStream;

/// One value of a configb: its type tag (empty for plain text) and its text.
struct ConfigEntryT {
    LightweightString<char> type;
    LightweightString<char> value;

    ConfigEntryT() = default;
    ConfigEntryT(LightweightString<char> type_, LightweightString<char> value_)
        : type(std::move(type_)), value(std::move(value_)) {}

    friend bool operator==(const ConfigEntryT& a, const ConfigEntryT& b) {
        return a.type == b.type && a.value == b.value;
    }
    friend bool operator!=(const ConfigEntryT& a, const ConfigEntryT& b) { return !(a == b); }
};

/// A record of named, typed values with a text form, ordered case-insensitively.
class OLE_API configb {
public:
    using Text = LightweightString<char>;
    using Entries = std::map<Text, ConfigEntryT, caseInsensitiveCompare>;

    /// The layer revision that pack() writes and unpack() reads.
    static constexpr unsigned char kPackVersion = 1;

    explicit configb(Dirtiable* owner = nullptr);
    /// Reads the record from a file (see readFromFile).
    explicit configb(const LightweightString<wchar_t>& path);
    /// Unpacks a record written by pack(); a stream that fails leaves the record empty.
    explicit configb(PStream& stream);
    /// A copy has the same entries, end string, name and dirty flag, but no owner.
    configb(const configb& other);
    /// Copies entries, end string, name and dirty flag; keeps this record's owner (told if now dirty).
    configb& operator=(const configb& other);
    virtual ~configb();

    // --- whole record ------------------------------------------------------------------------------
    /// Sets the end string back to "}" and clears the dirty flag; the entries stay.
    void init();
    /// Replaces the entries with the block at the top of the file. False when the file cannot be read or
    /// does not start with a block; the record is then empty. Afterwards the record is not dirty.
    bool readFromFile(const LightweightString<wchar_t>& path);
    bool reinit(const LightweightString<wchar_t>& path) { return readFromFile(path); }

    /// Adds the entries of the block that starts at `line` (which must be exactly "{") to the record and
    /// moves `line` past the block's end line (or past the end of the file when there is none). False,
    /// with `line` unchanged, when there is no block there.
    bool buildFrom(const TextFile& file, unsigned int& line);
    bool buildFrom(const TextFile& file);
    /// The same over a string whose lines end with "\n"; false when it holds fewer than two lines or does
    /// not start with a block.
    bool fromString(const Text& text);

    /// The record's text form without outer indentation and with no line end after the end string.
    Text asString() const;
    /// Appends the record to `file`, the "{" and end lines indented by `indent` blanks, the entries by
    /// `indent` + 2.
    void writeTo(TextFile& file, unsigned short indent) const;
    /// Writes the record as a whole file, atomically (temporary file + rename); false on failure.
    bool dump(const LightweightString<wchar_t>& path) const;

    /// Binary form inside a PStream: the entry count, then name, tag and value of each entry as
    /// NUL-terminated texts, then the end string. Results follow the stream conventions: 2 for success,
    /// 6 for failure (the stream flagged an error, or an unknown version).
    int pack(PStream& stream) const;
    int unpack(PStream& stream, unsigned char version);

    void set_end_str(const char* end);
    const Text& get_end_str() const { return endStr_; }
    void set_config_name(const char* name);
    const Text& get_config_name() const { return name_; }
    /// Setting the flag also tells the owner; clearing it does not (the owner may hold other changes).
    void set_dirty(bool dirty);
    bool get_dirty() const { return dirty_; }
    bool isEmpty() const { return entries_.empty(); }
    unsigned size() const { return unsigned(entries_.size()); }
    const Entries& entries() const { return entries_; }
    Dirtiable* owner() const { return owner_; }
    /// Erases the entry (if there is one) and marks the record dirty.
    void remove(const Text& name);

    // --- setters: 1 when the record changed, 0 when not ----------------------------------------------
    int set(const char* name, const ConfigEntryT& entry) { return set(Text(name), entry); }
    int set(const Text& name, const ConfigEntryT& entry);
    int set(const char* name, const char* value) { return set(Text(name), value); }
    int set(const Text& name, const char* value);
    int set(const char* name, const Text& value) { return set(Text(name), value); }
    int set(const Text& name, const Text& value);
    int set(const char* name, int value) { return set(Text(name), value); }
    int set(const Text& name, int value);
    int set(const char* name, double value) { return set(Text(name), value); }
    int set(const Text& name, double value);
    int set(const char* name, bool value) { return set(Text(name), value); }
    int set(const Text& name, bool value);
    int set(const char* name, const Cookie& value) { return set(Text(name), value); }
    int set(const Text& name, const Cookie& value);
    int set(const char* name, const strp_field& value) { return set(Text(name), value); }
    int set(const Text& name, const strp_field& value);
    int set(const char* name, const IdStamp& value) { return set(Text(name), value); }
    int set(const Text& name, const IdStamp& value);

    /// The one way values get in: an existing entry of another tag is left alone (0); the same value
    /// changes nothing (0); a new value for the same tag replaces the old and makes the record dirty (1);
    /// an unknown name is added (1).
    int setInternal(const Text& name, const Text& value, const Text& typeTag);

    // --- getters: 0 on success, -1 when there is no such entry --------------------------------------
    int in(const Text& name, ConfigEntryT& out) const;
    /// A value starting with a digit or '-' is read with strtol; otherwise "true" gives 1 and "false" 0,
    /// and any other text gives -1.
    int in(const Text& name, int& out) const;
    int in(const Text& name, unsigned int& out) const;
    int in(const Text& name, double& out) const;
    /// Only "true" and "false", exactly; any other text leaves `out` as it was (the result is still 0).
    int in(const Text& name, bool& out) const;
    /// Copies at most size - 1 characters and a terminator; -1 also when there is no room at all.
    int in(const Text& name, char* buffer, int size) const;
    /// Copies the whole value and a terminator: the buffer must hold the value's size + 1.
    int in(const Text& name, char* buffer) const;
    int in(const Text& name, Text& out) const;
    /// Text that is not a cookie gives the invalid cookie.
    int in(const Text& name, Cookie& out) const;
    /// The field's own parser decides what text it accepts.
    int in(const Text& name, strp_field& out) const;
    int in(const Text& name, IdStamp& out) const;

private:
    /// setInternal on strings it may take over.
    int store(Text&& name, Text&& value, const Text& typeTag);
    const ConfigEntryT* find(const Text& name) const;
    /// Reads the block that starts at the next line of `lines`; false, having taken one line, when there
    /// is none there.
    template <class Lines>
    bool readBlock(Lines& lines);
    class RecentValues;
    bool parseLine(const char* p, const char* end, RecentValues& recent);

    Dirtiable* owner_ = nullptr;
    Entries entries_;
    Text endStr_;
    Text name_;
    bool dirty_ = false;
};

// --- the process-wide configuration ---------------------------------------------------------------------
/// Settings of this machine, read from GlobalConfig() (section "Configuration"). Each returns the stored
/// value for `name`, or `def` when there is none or it does not parse.
///@{
OLE_API int config_int(const char* name, int def);
OLE_API long config_long(const char* name, long def);
OLE_API double config_double(const char* name, double def);
OLE_API bool config_Bool(const char* name, bool def);
OLE_API LightweightString<char> config_string(const char* name, const char* def);
/// Copies the value (or `def`) into `buffer`, truncated to size - 1 characters; returns `buffer`.
OLE_API char* config_string(const char* name, char* buffer, int size, const char* def);
OLE_API Cookie config_cookie(const char* name, const Cookie& def);
OLE_API IdStamp config_IdStamp(const char* name, const IdStamp& def);
///@}
/// Every change is already on disk when it returns; kept for callers that flush out of habit.
OLE_API void config_flush();

/// config_outb: writes indented "name value" lines into a text file, for human-readable reports of settings.
/// Each line is the indentation of the current depth (two blanks per level, at most 15 levels), two more
/// blanks, the name, one blank and the value. Values are printed as configb prints them. The writer does not
/// own the file; one writer must not be used by two threads at once.
class OLE_API config_outb {
public:
    explicit config_outb(TextFile& file, unsigned depth = 0);

    /// Builds the 16 indentation strings (0 to 30 blanks); done once per process, on first use.
    static void make_prefixes();
    const char* get_prefix_string() const;
    unsigned depth() const { return depth_; }
    /// Depths beyond 15 print as 15.
    void setDepth(unsigned depth) { depth_ = depth; }
    void indent() { ++depth_; }
    void outdent() {
        if (depth_) --depth_;
    }

    void out(const char* name, const char* value);
    void out(const char* name, int value);
    void out(const char* name, unsigned int value);
    void out(const char* name, double value);
    void out(const char* name, const Cookie& value);
    void out(const char* name, IdStamp& value);
    void out(const char* name, bool& value);
    void out(const char* name, strp_field& value);

private:
    TextFile& file_;
    unsigned depth_;
};
