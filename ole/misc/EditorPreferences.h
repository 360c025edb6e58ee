#pragma once

/// @file
/// EditorPreferences: the editor's user preferences, one process-wide instance reached through prefs().
/// Every preference is a text value in the user's configuration (UserConfig(), section
/// "EditorPreferences"), keyed by its name; numbers, flags and XY<int> pairs are stored as their text
/// ("(x,y)" for a pair). Each change made through a PrefVal handle is announced on the preferences
/// notifier with a message type of its own, "EditorPreferences:" + the name, whose text is the name; a
/// listener added for the empty name hears every preference.
///
/// Reading a preference that is missing, or whose text does not parse as the asked type, gives the default.
/// Storage is thread-safe and each change is saved at once, atomically. Notifications run synchronously in
/// the thread that makes the change; message types are interned through NotifyMsgTypeDictionary, which
/// belongs to one thread, so handles should be made and assigned on the main thread.
///
/// Export and import use one section of a line-oriented text file:
///
///     [EditorPreferences]
///     name=value
///     ...
///
/// The section runs from its heading to the next line that starts with "[" or the end of the file. Each
/// pair is the name (which must not hold "=" or a line break), "=", and the value with a backslash written as
/// `\\`, a line feed as `\n` and a carriage return as `\r`. Blank lines, lines starting with "#" or ";" and
/// lines without "=" are skipped when importing. Exporting into a file that already holds the section
/// replaces that section and keeps every other line; the file is replaced atomically (temporary file +
/// rename) under its lock, and a file that exists but cannot be read is left alone (the export fails).

#include <ole/platform/export.h>
#include <ole/Qv/LightweightString.h>
#include <ole/Qv/Ptr.h>
#include <ole/Qv/Vector.h>
#include <ole/Qv/XY.h>
#include <ole/misc/Notifier.h>

#include <type_traits>
#include <utility>

/// The user's editor preferences: named text values in the user configuration, announced on change.
class OLE_API EditorPreferences {
public:
    using Text = LightweightString<char>;
    using AVPair = std::pair<Text, Text>;
    using Listener = Qv::Ptr<iCallbackBase<int, NotifyMsg>>;

    static constexpr const char* kSectionName = "EditorPreferences";

    EditorPreferences(const EditorPreferences&) = delete;
    EditorPreferences& operator=(const EditorPreferences&) = delete;

    /// Nothing to do: the instance is ready when prefs() returns it.
    void init() {}

    // --- values (these store without notifying; PrefVal announces its changes) --------------------------
    void setPreference(const Text& name, const Text& value);
    void setPreference(const Text& name, const char* value) { setPreference(name, Text(value)); }
    void setPreference(const Text& name, const LightweightString<wchar_t>& value);
    void setPreference(const Text& name, int value);
    void setPreference(const Text& name, bool value);
    void setPreference(const Text& name, double value);
    void setPreference(const Text& name, const XY<int>& value);

    Text getPreference(const Text& name, const Text& def) const;
    Text getPreference(const Text& name, const char* def) const { return getPreference(name, Text(def)); }
    LightweightString<wchar_t> getPreference(const Text& name, const LightweightString<wchar_t>& def) const;
    LightweightString<wchar_t> getPreference(const Text& name, const wchar_t* def) const {
        return getPreference(name, LightweightString<wchar_t>(def));
    }
    int getPreference(const Text& name, int def) const;
    bool getPreference(const Text& name, bool def) const;
    double getPreference(const Text& name, double def) const;
    XY<int> getPreference(const Text& name, const XY<int>& def) const;

    bool hasPreference(const Text& name) const;
    /// True when there was a value to remove.
    bool removePreference(const Text& name);
    /// Every (name, value) of the section, in name order.
    Vector<AVPair> getAVPairs() const;

    // --- notification -----------------------------------------------------------------------------------
    /// The message type of one preference.
    static int makeNotificationType(const Text& name);
    /// Calls `callback` for each change of the named preference, or of every preference when `name` is
    /// empty, for as long as the returned guard lives.
    Qv::Ptr<Qv::Guard> addListener(const Listener& callback, const Text& name);
    /// Announces a change of `name` to its listeners.
    void notifyChange(const Text& name) const;
    Notifier& notifier() { return notifier_; }

    // --- export and import ------------------------------------------------------------------------------
    /// Writes the preferences into the file at `path` (see above); false when it cannot be written.
    bool exportTo(const LightweightString<wchar_t>& path) const;
    /// Writes the preferences into `lines` the same way.
    void exportTo(Vector<Text>& lines) const;
    /// Reads the first section found at or after line `startLine` and stores each pair, announcing every
    /// value that changed. Returns the number of pairs read, or -1 when the file cannot be read or holds no
    /// section.
    int importFrom(const LightweightString<wchar_t>& path, unsigned int startLine = 0);
    int importFrom(const Vector<Text>& lines);

    /// "[EditorPreferences]"; the second form makes the heading of any section name.
    static Text getSectionHeading();
    static Text getSectionHeading(const Text& sectionName);
    /// The index of the heading line at or after `from`, or -1.
    static int findPrefsFileSection(const Vector<Text>& lines, unsigned from = 0);
    /// Appends a heading; returns the index where the section's pairs go.
    static unsigned startPrefsFileSection(Vector<Text>& lines);
    /// Empties the existing section, or starts one at the end; returns the index where its pairs go.
    static unsigned getPrefsFileSection(Vector<Text>& lines);

private:
    friend OLE_API EditorPreferences& prefs();
    EditorPreferences();
    int importLines(const Vector<Text>& lines, unsigned from);

    Notifier notifier_;
};

/// The single instance, made on first use.
OLE_API EditorPreferences& prefs();

/// PrefVal<T>: a typed handle on one preference, for T in bool, int, double and LightweightString<char>.
/// Reading gives the stored value or the handle's default; assigning stores the value and, when the handle
/// was made with `notify`, announces the change. The handle holds no value of its own, so handles on the
/// same name see each other's changes.
template <class T>
class PrefVal {
    static_assert(std::is_same_v<T, bool> || std::is_same_v<T, int> || std::is_same_v<T, double> ||
                      std::is_same_v<T, LightweightString<char>>,
                  "preferences are bool, int, double or LightweightString<char>");

public:
    PrefVal(const LightweightString<char>& name, const T& def, bool notify = true)
        : name_(name), default_(def), notify_(notify) {}

    PrefVal& operator=(const T& value) {
        prefs().setPreference(name_, value);
        if (notify_) prefs().notifyChange(name_);
        hasValue_ = true;
        return *this;
    }
    T getValue() const { return prefs().getPreference(name_, default_); }
    operator T() const { return getValue(); }
    bool operator==(const T& value) const { return getValue() == value; }
    bool operator!=(const T& value) const { return !(*this == value); }

    const LightweightString<char>& name() const { return name_; }
    const T& defaultValue() const { return default_; }
    /// Whether a value was assigned through this handle.
    bool hasValue() const { return hasValue_; }
    bool notifies() const { return notify_; }

private:
    LightweightString<char> name_;
    T default_;
    bool notify_;
    bool hasValue_ = false;
};
