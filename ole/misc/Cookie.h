#pragma once

/// @file
/// Cookie: the identifier of a persistent thing (a project, a container, a built-in effect). A cookie is
/// either a short serial cookie (a per-machine serial number plus the number of the machine that made it,
/// printed as exactly 8 characters) or a UUID cookie (printed as exactly 40 characters); both carry a
/// one-letter type and a small version number.
///
/// A Cookie is a 20-byte trivially copyable value with no resources; copy it freely. Parsing never throws:
/// text that does not parse gives the invalid cookie (type 'I'). Only get2DigitBase52Map36Code and
/// base52Map36ToInt, called directly with bad input, throw Qv::Exception::RuntimeError.
///
/// The local machine number is looked up once per process (GlobalConfig, then the machine.num files) and
/// cached; the cache is written without a lock, so concurrent first calls may each run the lookup and store
/// the same result. Allocation of new serial numbers lives in CookieJar.

#include <ole/platform/export.h>
#include <ole/Qv/LightweightString.h>
#include <ole/Qv/Parsed.h>
#include <ole/platform/UUID.h>

#include <atomic>
#include <cstdint>
#include <utility>

/// The type letter of a cookie: one of B C D E F G M O P R S T V, or 'I' for invalid.
typedef char CookieType;

/// The two directions of the built-in wipe effects.
enum Wipe_Direction { kWipeForward = 0, kWipeReverse = 1 };

/// The identifier of a persistent thing: a short serial cookie or a UUID cookie, with a type letter.
class OLE_API Cookie {
public:
    /// The form a new cookie takes when it is allocated (see CookieJar): serial or UUID.
    enum eVersion : uint8_t { eSerial = 0, eUUID = 1 };

    static constexpr uint32_t kMaxNumber = 1679615;  ///< 36^4 - 1: four base-36 digits
    static constexpr int kMaxMachineNumber = 2703;
    static constexpr int kBuiltInMachineNumber = 647;
    static constexpr int kLocalMachine = 65535;  ///< "use the local machine number"
    static constexpr int kDefaultVersion = 255;  ///< "use the type's default version"
    static constexpr unsigned kShortTextLength = 8;
    static constexpr unsigned kUUIDTextLength = 40;

    /// The invalid cookie.
    constexpr Cookie() noexcept : words_{0, 0, 0, 0}, isUUID_(0), version_(0), type_('I') {}

    /// A short cookie. Invalid when the number exceeds kMaxNumber, the type is not a cookie type, a type-S
    /// cookie gets a version outside 0..35 (other than 255), or the machine is neither 65535 nor 0..2703.
    /// Machine 65535 means the local machine number; version 255 means the type's default.
    constexpr Cookie(CookieType type, int number, int version, int machine) noexcept
        : words_{0, 0, 0, 0}, isUUID_(0), version_(0), type_('I') {
        if (unsigned(number) > kMaxNumber || typeFromChar(type) == 'I') return;
        if (typeFromChar(type) == 'S' && version != kDefaultVersion && (version < 0 || version > 35)) return;
        if (machine != kLocalMachine && (machine < 0 || machine > kMaxMachineNumber)) return;
        construct(type, unsigned(number), (unsigned short)version,
                  machine == kLocalMachine ? unsigned(getLocalMachineNumber()) : unsigned(machine));
    }

    /// A UUID cookie; nothing is checked.
    Cookie(CookieType type, const Qv::UUID& id, int version) noexcept;

    /// Parse a text form (8 or 40 characters). Without `withVersion` the version in the text is ignored and
    /// the cookie gets the default version (short form) or 0 (UUID form).
    Cookie(const char* text, bool withVersion) noexcept { initFromString(text, withVersion); }
    /// The same from wide text; a 40-character text keeps its type character as it stands.
    Cookie(const LightweightString<wchar_t>& text, bool withVersion) noexcept;

    /// Stores the fields of a short cookie without checking them (version 255: the type's default).
    constexpr void construct(CookieType type, unsigned int number, unsigned short version,
                             unsigned int machine) noexcept {
        words_[0] = number;
        words_[1] = machine;
        words_[2] = 0;
        words_[3] = 0;
        isUUID_ = 0;
        version_ = uint8_t(version == kDefaultVersion ? (typeFromChar(type) == 'S' ? 1 : 0) : version);
        type_ = type;
    }
    /// Replaces the identity with a UUID; type and version stay.
    void setUUID(const Qv::UUID& id) noexcept;
    /// Parses a text form into this cookie; false (and the invalid cookie) when it does not parse.
    bool initFromString(const char* text, bool withVersion) noexcept;
    void invalidate() noexcept { *this = Cookie(); }

    // --- reading ------------------------------------------------------------------------------------
    constexpr CookieType getType() const noexcept { return type_; }
    constexpr uint8_t getVersion() const noexcept { return version_; }
    constexpr bool isUUID() const noexcept { return isUUID_ != 0; }
    constexpr bool valid() const noexcept { return type_ != 'I'; }
    /// The serial and machine number words of the identity (meaningful for short cookies).
    constexpr uint32_t getNumber() const noexcept { return words_[0]; }
    constexpr uint32_t getMachineNumber() const noexcept { return words_[1]; }
    /// The 16 identity bytes as a UUID, whatever the form.
    Qv::UUID getUUID() const noexcept;

    // --- text ---------------------------------------------------------------------------------------
    /// "INVALID" for an invalid cookie. The version is shown when `withVersion` is set and always for type
    /// S. A short cookie whose machine number cannot be encoded is reported and printed with spaces in
    /// place of the machine code.
    LightweightString<char> asString(bool withVersion) const;
    /// The wide text form; the version is always shown.
    LightweightString<wchar_t> asWString() const;
    /// Writes the 8 or 40 characters of the text form and a terminator into `out` (at least 41 chars);
    /// returns the length. This is asString without the string allocation.
    unsigned writeText(char* out, bool withVersion) const noexcept;

    /// Whether a text is a well-formed cookie text, without building one. Stricter than parsing in places
    /// (the type letter must be one of "EFGOPRSV", the machine code is case-sensitive) and looser in others
    /// (position 19 of the UUID form is not looked at).
    static bool isValid(const char* text) noexcept;

    /// A cookie text typed by a person, read as the constructor reads it with the version, saying why a
    /// text that reads as the invalid cookie was refused (length, type letter, machine code, UUID).
    [[nodiscard]] static Parsed<Cookie> parse(const char* text);
    /// Stricter: the text must also be well-formed (isValid). Accepts exactly the texts that both read as a
    /// cookie and pass isValid.
    [[nodiscard]] static Parsed<Cookie> parseWellFormed(const char* text);

    // --- comparison ---------------------------------------------------------------------------------
    /// Types in descending letter order, then versions ascending, then identities descending (byte-wise
    /// UUID order, whatever the form). Sorted collections and files depend on these directions.
    int compare(const Cookie& other) const noexcept;
    bool operator==(const Cookie& o) const noexcept { return compare(o) == 0; }
    bool operator!=(const Cookie& o) const noexcept { return compare(o) != 0; }
    bool operator<(const Cookie& o) const noexcept { return compare(o) < 0; }
    bool operator>(const Cookie& o) const noexcept { return compare(o) > 0; }

    // --- built-in effects (machine 647) -------------------------------------------------------------
    bool isDissolve() const noexcept;
    bool isFilmDissolve() const noexcept;
    bool isWipe() const noexcept;
    bool isEffectGraph() const noexcept;
    bool isInput() const noexcept;
    /// 1..20 within the wipe ranges, else 0 (the machine number is not looked at).
    int wipeType() const noexcept;
    /// 0 for the direction-0 wipe ranges, 1 for everything else.
    int wipeDirection() const noexcept;

    // --- characters and machine numbers -------------------------------------------------------------
    /// The upper-cased letter when it is a cookie type, else 'I'.
    static constexpr CookieType typeFromChar(char c) noexcept {
        const char u = (c >= 'a' && c <= 'z') ? char(c - 'a' + 'A') : c;
        for (const char* type = "BCDEFGMOPRSTV"; *type; ++type)
            if (*type == u) return u;
        return 'I';
    }
    /// 0..9 to '0'..'9', 10..35 to 'A'..'Z' (larger values run on past 'Z').
    static char digitToChar(int d) noexcept { return d > 9 ? char(d + 55) : char('0' + d); }
    /// '0'..'9' to 0..9, letters of either case to 10..35, anything else to 0.
    static int charToDigit(char c) noexcept;

    /// Machine number to its code 0..2703 (0xFFFFFFFF when out of range) and back (65535 when the code is
    /// out of range).
    static unsigned int encodeMachineNumber(int machine) noexcept;
    static int decodeMachineNumber(unsigned int code) noexcept;
    /// The two characters of a machine code; throws Qv::Exception::RuntimeError for a code above 2703.
    static std::pair<char, char> get2DigitBase52Map36Code(unsigned int code);
    /// The code of two characters (either case); throws Qv::Exception::RuntimeError for characters that
    /// are not code characters.
    static unsigned int base52Map36ToInt(char first, char second);

    /// This machine's number, looked up on first use and cached; 1 when no valid number can be found.
    static int getLocalMachineNumber();
    /// False when getLocalMachineNumber() found no valid number and fell back to 1 (after its banner):
    /// identifiers made now may collide with another machine's, and callers that hand them on should stop.
    static bool hasLocalMachineNumber();
    /// The largest serial number of this machine's project cookies found in the projects directory.
    static unsigned int findHighestCookieNum();
    /// Forgets the cached local machine number so that the next use looks it up again. For tests that
    /// point the configuration at another directory.
    static void resetLocalMachineNumberForTesting() noexcept;

private:
    friend OLE_API Cookie convertCookie(const Cookie& c, CookieType type, unsigned char version);

    uint32_t words_[4];  ///< identity: the UUID bytes, or serial number, machine number, 0, 0
    uint8_t isUUID_;
    uint8_t version_;
    CookieType type_;

    static std::atomic<int> localMachineNumber_;
    static std::atomic<bool> localMachineNumberFound_;
};

/// The invalid cookie.
inline constexpr Cookie invalid_cookie{};

/// True for the machine numbers that may allocate cookies: 1..2703 except 647.
OLE_API bool isValidMachineNum(int machine);
/// Looks the machine number up in the configuration and the machine.num files (creating one with a random
/// number when there is none); 0 when nothing valid is found, after logging a warning.
OLE_API int our_machine_number_get_from_file();

/// A copy of `c` with another type and version (255: the type's default); nothing is checked.
OLE_API Cookie convertCookie(const Cookie& c, CookieType type, unsigned char version);
/// The built-in wipe `n` (1..20) of a direction.
OLE_API Cookie getWipeCookie(CookieType type, Wipe_Direction dir, int n);
