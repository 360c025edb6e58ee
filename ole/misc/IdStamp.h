#pragma once

/// @file
/// IdStamp: a 96-bit identifier made of the local machine number, the second of creation (counted from
/// the stamp epoch, Unix time 803733504) and a counter within that second. Stamps are unique across
/// machines and over time without any persistent counter, as long as the clock moves forward between runs.
///
/// The third word holds the counter in bits 0..29 and a magic type in bits 26..31; the two overlap in
/// bits 26..29 by design. Ordinary stamps keep the counter below 2^26; a stamp with any of bits 26..31 set
/// is magic.
///
/// An IdStamp is a plain value. Making stamps (the default constructor) is serialised by a process-wide
/// lock, so threads making stamps at the same moment still get distinct ones. Parsing never fails: text
/// gives whatever hexadecimal digits it holds, null or empty text gives the null stamp.

#include <ole/platform/export.h>
#include <ole/Qv/LightweightString.h>
#include <ole/Qv/Parsed.h>

#include <cstdint>

class PStream;

namespace IdStampMagic {
/// Markers carried in the top six bits of the tick word; 0 is an ordinary stamp, 1..63 are free for the
/// callers that mark special stamps.
enum MagicType : unsigned int { kNone = 0, kFirst = 1, kLast = 63 };
}  // namespace IdStampMagic

/// A 96-bit identifier: machine number, second of creation and a count within that second.
class OLE_API IdStamp {
public:
    static constexpr uint32_t kEpoch = 803733504;  ///< 0x2FE80000, the Unix time of stamp second 0

    /// A new stamp: this machine, this second, the next count within the second.
    IdStamp();
    constexpr IdStamp(unsigned int machine, unsigned int timeBits, unsigned int tickWord) noexcept
        : machine_(machine), time_(timeBits), tick_(tickWord) {}
    /// Parses the text form: characters 0..7 and 8..15 as hexadecimal machine number and time, the rest as
    /// the tick word. Nothing is checked; null or empty text gives the null stamp.
    explicit IdStamp(const char* text) noexcept;
    /// An IdStamp text typed by a person: 17 to 24 hexadecimal digits (machine, time, then the count) with a
    /// time that is not zero. Refuses anything else (the null stamp).
    [[nodiscard]] static Parsed<IdStamp> parse(const char* text);
    IdStamp(const IdStamp&) noexcept = default;
    IdStamp& operator=(const IdStamp&) noexcept = default;

    unsigned int machineNum() const noexcept { return machine_; }
    unsigned int timeBits() const noexcept { return time_; }
    unsigned int tickWord() const noexcept { return tick_; }
    /// The count within the second; for a magic stamp it includes the magic bits 26..29.
    unsigned int tickCount() const noexcept { return tick_ & 0x3FFFFFFFu; }
    bool valid() const noexcept { return time_ != 0; }
    void nullify() noexcept { machine_ = time_ = tick_ = 0; }
    void invalidate() noexcept { nullify(); }

    /// Merges the type into bits 26..31; only bits 30 and 31 of the old word are cleared, so setting a type
    /// on an already magic stamp gives the union of the bits in 26..29.
    void setMagicType(IdStampMagic::MagicType type) noexcept {
        tick_ = (tick_ & 0x3FFFFFFFu) | (unsigned(type) << 26);
    }
    IdStampMagic::MagicType getMagicType() const noexcept { return IdStampMagic::MagicType(tick_ >> 26); }
    bool isMagic() const noexcept { return (tick_ & 0xFC000000u) != 0; }

    /// Machine number, then time, then tick word, each compared as the difference of the two words.
    int compare(const IdStamp& other) const noexcept {
        if (machine_ != other.machine_) return int(machine_ - other.machine_);
        if (time_ != other.time_) return int(time_ - other.time_);
        return int(tick_ - other.tick_);
    }
    bool operator==(const IdStamp& o) const noexcept { return compare(o) == 0; }
    bool operator!=(const IdStamp& o) const noexcept { return compare(o) != 0; }
    bool operator<(const IdStamp& o) const noexcept { return compare(o) < 0; }

    /// Upper-case hexadecimal "%08X%08X%X"; the empty string for an invalid stamp.
    LightweightString<char> asString() const;
    /// Writes the text form and a terminator into `out` (at least 25 chars); returns its length.
    unsigned writeText(char* out) const noexcept;

    /// Writes the text form as a NUL-terminated text (only the NUL for an invalid stamp).
    void pack(PStream& stream) const;
    /// Reads a stamp written by pack(). Version 'S' streams carry 38 bytes before the text, which are
    /// skipped. A version-1 stamp whose tick word uses bits 26 and up is kept as read, with a warning.
    void unpack(PStream& stream, unsigned char version);

private:
    uint32_t machine_;
    uint32_t time_;
    uint32_t tick_;
};
