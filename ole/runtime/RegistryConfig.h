#pragma once

/// @file
/// Registry-style configuration: sections of named text values, persisted as a text file of
///     [Section]
///     name=value
/// lines. GlobalConfig() holds the settings of this machine ("global.cfg" in the machine settings
/// directory); UserConfig() those of the user ("user.cfg" in the preferences directory). Names and sections
/// are case-sensitive; values are single lines (line breaks are stored escaped as "\n", a backslash as
/// "\\"). Typed getters fall back to the default when the value is missing or does not parse.
///
/// The file is read on first use; reads are answered from what was read. Each change takes the file's
/// lock, reads the file again, changes only the lines concerned and replaces the file atomically before
/// letting go, so processes changing the same file at once lose none of each other's values. Comments,
/// blank lines and lines the store does not understand stay as they stand. A file that exists but cannot be
/// read (a directory, an unreadable or oversized file) reads as empty, is reported by readError() and is
/// never written over: every change fails. All operations are thread-safe.

#include <ole/platform/export.h>
#include <ole/Qv/LightweightString.h>

#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

/// Sections of named text values persisted as a text file, each change written at once.
class OLE_API RegistryConfig {
public:
    using Text = LightweightString<char>;
    /// The section used by the forms that take no section.
    static constexpr const char* kDefaultSection = "Configuration";

    /// A store backed by the file at `path`; the file is read on first use and need not exist.
    explicit RegistryConfig(const LightweightString<wchar_t>& path);

    Text getValue(const Text& section, const Text& name, const Text& defaultValue) const;
    int getValue(const Text& section, const Text& name, int defaultValue) const;
    long getValue(const Text& section, const Text& name, long defaultValue) const;
    double getValue(const Text& section, const Text& name, double defaultValue) const;
    bool getValue(const Text& section, const Text& name, bool defaultValue) const;
    /// Without these, a text literal would pick the bool overloads.
    Text getValue(const Text& section, const Text& name, const char* defaultValue) const {
        return getValue(section, name, Text(defaultValue));
    }
    Text getValue(const Text& name, const Text& defaultValue) const;
    Text getValue(const Text& name, const char* defaultValue) const {
        return getValue(name, Text(defaultValue));
    }
    int getValue(const Text& name, int defaultValue) const;

    bool hasValue(const Text& section, const Text& name) const;
    /// Stores the value and saves the file; false when the file could not be written.
    bool setValue(const Text& section, const Text& name, const Text& value);
    bool setValue(const Text& section, const Text& name, const char* value) {
        return setValue(section, name, Text(value));
    }
    bool setValue(const Text& section, const Text& name, int value);
    bool setValue(const Text& section, const Text& name, bool value);
    bool setValue(const Text& section, const Text& name, double value);
    /// Stores several values of one section and saves the file once.
    bool setValues(const Text& section, const std::vector<std::pair<Text, Text>>& values);
    /// Removes the value (true when there was one) and saves the file.
    bool removeValue(const Text& section, const Text& name);
    /// Every (name, value) of a section, in name order.
    std::vector<std::pair<Text, Text>> getValues(const Text& section) const;

    const LightweightString<wchar_t>& path() const { return path_; }
    /// Why the file could not be read ("is not a regular file", ...); empty when it was read or is missing.
    Text readError() const;
    /// Forgets what was read, so the next use reads the file again.
    void reload();

private:
    using Section = std::map<Text, Text>;
    /// One line of the file as it stands, with what it means to the store.
    struct Line {
        enum Kind { kOther, kHeading, kValue };
        std::string text;  ///< without the line feed
        Kind kind;
        Text section;  ///< the section the line lies in
        Text name;     ///< for a value line
    };
    void loadLocked() const;
    bool saveLocked() const;
    const Text* findLocked(const Text& section, const Text& name) const;
    /// Takes the file's lock and reads the file afresh, runs `edit`, then saves; false when the file could
    /// not be read or written, or `edit` changed nothing.
    template <class Edit>
    bool change(Edit edit);
    void putLocked(const Text& section, const Text& name, const Text& value);
    bool eraseLocked(const Text& section, const Text& name);

    LightweightString<wchar_t> path_;
    mutable std::mutex mutex_;
    /// Guarded by mutex_:
    mutable bool loaded_ = false;
    mutable int readStatus_ = 0;  ///< a Qv::FileStatus
    mutable std::vector<Line> lines_;
    mutable std::map<Text, Section> sections_;
};

/// The settings of this machine: "global.cfg" in the machine settings directory.
OLE_API RegistryConfig& GlobalConfig();
/// The settings of the user: "user.cfg" in the preferences directory.
OLE_API RegistryConfig& UserConfig();
