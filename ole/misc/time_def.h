#pragma once

/// @file
/// time_def: a time in seconds together with the kind of timecode it is shown in (rate and drop flag), with
/// its text forms. tc_field: a persistent record field holding one time, in text files and in streams.
///
/// The text forms of time_def return one of three process-wide static buffers, shared by every time_def and
/// overwritten by the next call of the same function; they are not safe from two threads at once. Everything
/// else is a plain value. Unparsable timecode text gives the time 0.0 (see string_to_tc).

#include <ole/platform/export.h>
#include <ole/Qv/Ptr.h>
#include <ole/misc/FrameRate.h>
#include <ole/misc/tccvt.h>

#include <fstream>

class PStream;

/// Kinds of timecode label. Only these three choose a timecode kind; every other value means 24 fps.
enum label_t {
    LABEL_UNKNOWN = 0,
    LABEL_EBU = 5,         ///< 25 fps
    LABEL_SMPTE = 6,       ///< 30 fps, non-drop
    LABEL_SMPTE_DROP = 7,  ///< 30 fps, drop frame
};

/// A time in seconds with the kind of timecode it is shown in.
class OLE_API time_def {
public:
    time_def(double t, Qv::FrameRate rate, bool dropFrame);
    /// The text is parsed with string_to_tc at the given kind.
    time_def(const char* text, Qv::FrameRate rate, bool dropFrame);
    time_def(double t, const TCInf& info);
    time_def(const char* text, const TCInf& info);
    /// The kind comes from the label kind; null text gives the time 0.0.
    time_def(const char* text, label_t kind);

    void set(double t, Qv::FrameRate rate, bool dropFrame);

    /// "HH:MM:SS.FF" or "HH:MM:SS;FF" ("" for a time_def whose rate is FRInvalid, after an assertion line).
    char* get_punctuated_str();
    /// The same digits without punctuation: "HHMMSSFF" (a minus sign is punctuation too).
    char* get_label_str();
    /// Deprecated; prints an assertion line, then "time rate drop" ("%lf %d %d").
    char* get_database_str();

    double time;
    Qv::FrameRate rate;
    bool dropFrame;
};

/// The base of persistent record fields: each reads and writes itself as text.
class OLE_API data_field : public iObject {
public:
    ~data_field() override;
    virtual bool read(std::ifstream* in) = 0;
    virtual bool write(std::ofstream* out) = 0;
};

/// A time in seconds as a record field. Its text form is one line, "%.8lf"; its stream form is the 8-byte
/// double. A line that does not parse leaves the time as it was.
class OLE_API tc_field : public data_field {
public:
    explicit tc_field(double t = 0.0) : time(t) {}
    ~tc_field() override;

    /// Reads one line of at most 255 characters. Always true.
    bool read(std::ifstream* in) override;
    /// Writes the line and flushes. Always true.
    bool write(std::ofstream* out) override;

    void pack(PStream& stream) const;
    /// `version` is not used: the form has never changed. A stream that ends early leaves the time as it was.
    void unpack(PStream& stream, unsigned char version);

    double time;
};
