#include <ole/misc/Cookie.h>

#include <ole/misc/TextFile.h>
#include <ole/platform/Exception.h>
#include <ole/runtime/Log.h>
#include <ole/platform/OS.h>
#include <ole/runtime/Paths.h>
#include <ole/runtime/RegistryConfig.h>
#include <ole/runtime/Strings.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <cwchar>

static_assert(sizeof(Cookie) == 20, "a cookie is 16 identity bytes, the form flag, version and type");
static_assert(std::is_trivially_copyable<Cookie>::value, "cookies are copied as plain bytes");

std::atomic<int> Cookie::localMachineNumber_{Cookie::kLocalMachine};
std::atomic<bool> Cookie::localMachineNumberFound_{false};

namespace {

constexpr char kBase36Codes[] = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";
constexpr char kBase52Codes[] = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ()[]{}+-&$@!=;_~";
constexpr char kBase52Extras[] = "()[]{}+-&$@!=;_~";
static_assert(sizeof(kBase36Codes) == 37 && sizeof(kBase52Codes) == 53 && sizeof(kBase52Extras) == 17,
              "code tables of 36, 52 and 16 characters");

const char kSource[] = "ole/misc/Cookie";

// Index of every byte in kBase52Codes, -1 for bytes that are not code characters. The case-insensitive
// table maps lower-case letters like their upper-case forms.
struct CodeIndex {
    signed char exact[256];
    signed char anyCase[256];
    constexpr CodeIndex() : exact(), anyCase() {
        for (int i = 0; i < 256; ++i) exact[i] = anyCase[i] = -1;
        for (int i = 0; i < 52; ++i) {
            const unsigned char c = static_cast<unsigned char>(kBase52Codes[i]);
            exact[c] = anyCase[c] = static_cast<signed char>(i);
            if (c >= 'A' && c <= 'Z') anyCase[c - 'A' + 'a'] = static_cast<signed char>(i);
        }
    }
};
constexpr CodeIndex kCodeIndex;

// The code of a character pair, or -1 when either is not a code character.
inline int pairToCode(char first, char second) {
    const int i1 = kCodeIndex.anyCase[static_cast<unsigned char>(first)];
    const int i2 = kCodeIndex.anyCase[static_cast<unsigned char>(second)];
    if (i1 < 0 || i2 < 0) return -1;
    if (i1 > 35) return i1 * 52 + i2;
    if (i2 > 35) return i1 * 16 + i2 + 1260;
    return i1 * 36 + i2;
}

// The character pair of a code 0..2703; false above that.
inline bool codeToPair(unsigned code, char& first, char& second) {
    if (code < 1296) {
        first = kBase36Codes[code / 36];
        second = kBase36Codes[code % 36];
    } else if (code < 1872) {
        first = kBase36Codes[(code - 1296) / 16];
        second = kBase52Extras[code % 16];
    } else if (code <= unsigned(Cookie::kMaxMachineNumber)) {
        first = kBase52Extras[(code - 1872) / 52];
        second = kBase52Codes[(code - 1872) % 52];
    } else {
        return false;
    }
    return true;
}

inline bool isAsciiDigit(char c) {
    return c >= '0' && c <= '9';
}
inline bool isAsciiLetter(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}
inline bool isAsciiAlnum(char c) {
    return isAsciiDigit(c) || isAsciiLetter(c);
}
inline bool isHexDigit(char c) {
    return isAsciiDigit(c) || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f');
}

// The first four characters of the UUID form: "%c%02d-" of the type and version, of which a three-digit
// version leaves only "%c%03d" since the UUID text starts at position 4 regardless.
inline void writeUUIDPrefix(char* out, CookieType type, unsigned version) {
    out[0] = type;
    if (version >= 100) {
        out[1] = char('0' + version / 100);
        out[2] = char('0' + version / 10 % 10);
        out[3] = char('0' + version % 10);
    } else {
        out[1] = char('0' + version / 10);
        out[2] = char('0' + version % 10);
        out[3] = '-';
    }
}

// Default version of a type: type S cookies are version 1, every other type 0.
inline uint8_t defaultVersion(CookieType type) {
    return Cookie::typeFromChar(type) == 'S' ? 1 : 0;
}

}  // namespace

// --- construction -----------------------------------------------------------------------------------------

Cookie::Cookie(CookieType type, const Qv::UUID& id, int version) noexcept : Cookie() {
    setUUID(id);
    version_ = uint8_t(version);
    type_ = type;
}

void Cookie::setUUID(const Qv::UUID& id) noexcept {
    std::memcpy(words_, id.bytes(), sizeof words_);
    isUUID_ = 1;
}

Qv::UUID Cookie::getUUID() const noexcept {
    Qv::UUID id;
    std::memcpy(id.bytes(), words_, sizeof words_);
    return id;
}

bool Cookie::initFromString(const char* text, bool withVersion) noexcept {
    invalidate();
    if (!text) return false;
    const size_t length = std::strlen(text);
    if (length != kShortTextLength && length != kUUIDTextLength) return false;
    const CookieType type = typeFromChar(text[0]);
    if (type == 'I') return false;

    if (length == kShortTextLength) {
        const int code = pairToCode(text[1], text[3]);
        if (code < 0) return false;
        const int machine = decodeMachineNumber(unsigned(code));
        if (machine == kLocalMachine) return false;
        const unsigned short version = withVersion ? (unsigned short)charToDigit(text[2]) : kDefaultVersion;
        unsigned number = 0;
        for (int i = 4; i < 8; ++i) number = number * 36 + unsigned(charToDigit(text[i]));
        construct(type, number, version, unsigned(machine));
        return true;
    }

    const Qv::UUID id(text + 4);
    if (!id.valid()) return false;
    setUUID(id);
    type_ = type;
    version_ = withVersion ? uint8_t(std::strtol(text + 1, nullptr, 10)) : 0;
    return true;
}

Parsed<Cookie> Cookie::parse(const char* text) {
    Cookie c;
    if (c.initFromString(text, true)) return Parsed<Cookie>::accept(c);
    const size_t length = text ? std::strlen(text) : 0;
    if (length != kShortTextLength && length != kUUIDTextLength)
        return Parsed<Cookie>::refuse("is not a cookie (a cookie text has 8 or 40 characters)");
    if (typeFromChar(text[0]) == 'I')
        return Parsed<Cookie>::refuse(
            "is not a cookie (it does not start with a type: B C D E F G M O P R S T V)");
    if (length == kShortTextLength)
        return Parsed<Cookie>::refuse("is not a cookie (characters 2 and 4 are not a machine code)");
    return Parsed<Cookie>::refuse("is not a cookie (no UUID from character 5 on)");
}

Parsed<Cookie> Cookie::parseWellFormed(const char* text) {
    Parsed<Cookie> read = parse(text);
    if (read && !isValid(text)) return Parsed<Cookie>::refuse("is not a well-formed cookie text");
    return read;
}

Cookie::Cookie(const LightweightString<wchar_t>& text, bool withVersion) noexcept : Cookie() {
    if (text.size() == kShortTextLength) {
        initFromString(toUTF8(text).c_str(), withVersion);
        return;
    }
    if (text.size() != kUUIDTextLength) return;
    // The type character and the decimal number after it, as "%c%d" would scan them.
    const wchar_t* p = text.c_str();
    const wchar_t type = p[0];
    wchar_t* end = nullptr;
    const long version = std::wcstol(p + 1, &end, 10);
    if (end == p + 1 || type == L'I') return;
    const Qv::UUID id(p + 4);
    if (!id.valid()) return;
    setUUID(id);
    type_ = CookieType(type);
    version_ = withVersion ? uint8_t(version) : 0;
}

Cookie convertCookie(const Cookie& c, CookieType type, unsigned char version) {
    Cookie result = c;
    result.type_ = type;
    result.version_ = version == Cookie::kDefaultVersion ? defaultVersion(type) : version;
    return result;
}

Cookie getWipeCookie(CookieType type, Wipe_Direction dir, int n) {
    const int base = dir == kWipeReverse ? 93312 : 46656;
    return Cookie(type, base + n, 0, Cookie::kBuiltInMachineNumber);
}

// --- text -------------------------------------------------------------------------------------------------

unsigned Cookie::writeText(char* out, bool withVersion) const noexcept {
    if (type_ == 'I') {
        std::memcpy(out, "INVALID", 8);
        return 7;
    }
    const bool showVersion = withVersion || typeFromChar(type_) == 'S';
    if (isUUID_) {
        writeUUIDPrefix(out, type_, showVersion ? version_ : 0);
        getUUID().asString(out + 4);
        return kUUIDTextLength;
    }
    std::memcpy(out, "        ", 9);
    out[0] = type_;
    out[2] = showVersion ? digitToChar(version_) : '0';
    char first, second;
    if (codeToPair(encodeMachineNumber(int(words_[1])), first, second)) {
        out[1] = first;
        out[3] = second;
    } else {
        ole_splat("Failed to encode machine number in cookie_string::construct");
    }
    unsigned number = words_[0];
    for (int i = 7; i >= 4; --i) {
        out[i] = digitToChar(int(number % 36));
        number /= 36;
    }
    return kShortTextLength;
}

LightweightString<char> Cookie::asString(bool withVersion) const {
    char text[kUUIDTextLength + 1];
    const unsigned length = writeText(text, withVersion);
    return LightweightString<char>(text, length);
}

LightweightString<wchar_t> Cookie::asWString() const {
    if (type_ == 'I') return LightweightString<wchar_t>(L"INVALID");
    if (!isUUID_) return Qv::widen(asString(true).c_str());
    // The same prefix as the narrow form, but with the version in every case.
    char prefix[4];
    writeUUIDPrefix(prefix, type_, version_);
    wchar_t text[kUUIDTextLength + 1];
    for (int i = 0; i < 4; ++i) text[i] = wchar_t(static_cast<unsigned char>(prefix[i]));
    getUUID().asWString(text + 4);
    return LightweightString<wchar_t>(text, kUUIDTextLength);
}

bool Cookie::isValid(const char* text) noexcept {
    if (!text) return false;
    const size_t length = std::strlen(text);
    if (length == kShortTextLength) {
        if (!std::strchr("EFGOPRSV", text[0])) return false;
        if (kCodeIndex.exact[static_cast<unsigned char>(text[1])] < 0) return false;
        if (kCodeIndex.exact[static_cast<unsigned char>(text[3])] < 0) return false;
        if (!isAsciiAlnum(text[2])) return false;
        for (int i = 4; i < 8; ++i)
            if (!isAsciiAlnum(text[i])) return false;
        return true;
    }
    if (length == kUUIDTextLength) {
        if (!isAsciiLetter(text[0]) || !isAsciiDigit(text[1]) || !isAsciiDigit(text[2])) return false;
        for (int i : {3, 12, 17, 22, 27})
            if (text[i] != '-') return false;
        // Position 19 (the second digit of the third group) is deliberately not looked at.
        static const unsigned char kHexPositions[] = {4,  5,  6,  7,  8,  9,  10, 11, 13, 14, 15,
                                                      16, 18, 20, 21, 23, 24, 25, 26, 28, 29, 30,
                                                      31, 32, 33, 34, 35, 36, 37, 38, 39};
        for (unsigned char i : kHexPositions)
            if (!isHexDigit(text[i])) return false;
        return true;
    }
    return false;
}

// --- comparison -------------------------------------------------------------------------------------------

int Cookie::compare(const Cookie& other) const noexcept {
    if (type_ != other.type_) return other.type_ - type_;
    if (version_ != other.version_) return version_ - other.version_;
    const Qv::UUID mine = getUUID();
    const Qv::UUID theirs = other.getUUID();
    if (!(mine != theirs)) return 0;
    return theirs < mine ? -1 : 1;
}

// --- built-in effects -------------------------------------------------------------------------------------

namespace {

// The wipe ranges: each holds 20 numbers above its base; direction 0 for the first two.
struct WipeRange {
    uint32_t base;
    int direction;
};
const WipeRange kWipeRanges[] = {{46656, 0}, {93312, 1}, {47952, 0}, {94608, 1}};

const WipeRange* findWipeRange(uint32_t number) {
    for (const WipeRange& range : kWipeRanges)
        if (number > range.base && number <= range.base + 20) return &range;
    return nullptr;
}

}  // namespace

bool Cookie::isDissolve() const noexcept {
    const uint32_t n = words_[0];
    return words_[1] == uint32_t(kBuiltInMachineNumber) && (n == 2 || n == 4 || n == 1298 || n == 1300);
}

bool Cookie::isFilmDissolve() const noexcept {
    const uint32_t n = words_[0];
    return words_[1] == uint32_t(kBuiltInMachineNumber) && (n == 4 || n == 1300);
}

bool Cookie::isWipe() const noexcept {
    return words_[1] == uint32_t(kBuiltInMachineNumber) && findWipeRange(words_[0]) != nullptr;
}

bool Cookie::isEffectGraph() const noexcept {
    return words_[1] == uint32_t(kBuiltInMachineNumber) && words_[0] == 46677;
}

bool Cookie::isInput() const noexcept {
    return words_[1] == uint32_t(kBuiltInMachineNumber) && words_[0] >= 46678 && words_[0] <= 46685;
}

int Cookie::wipeType() const noexcept {
    const WipeRange* range = findWipeRange(words_[0]);
    return range ? int(words_[0] - range->base) : 0;
}

int Cookie::wipeDirection() const noexcept {
    const WipeRange* range = findWipeRange(words_[0]);
    return range ? range->direction : 1;
}

// --- characters and machine codes -------------------------------------------------------------------------

int Cookie::charToDigit(char c) noexcept {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'z') return c - 'a' + 10;
    if (c >= 'A' && c <= 'Z') return c - 'A' + 10;
    return 0;
}

unsigned int Cookie::encodeMachineNumber(int machine) noexcept {
    if (machine >= 0 && machine <= 647) return unsigned(2 * machine + 1);
    if (machine >= 648 && machine <= 1295) return unsigned(2 * machine - 1296);
    if (machine >= 1296 && machine <= kMaxMachineNumber) return unsigned(machine);
    return 0xFFFFFFFFu;
}

int Cookie::decodeMachineNumber(unsigned int code) noexcept {
    if (code > 1295) return code <= unsigned(kMaxMachineNumber) ? int(code) : kLocalMachine;
    if (code % 2 == 0) return int(code / 2 + 648);
    return int(code / 2);
}

std::pair<char, char> Cookie::get2DigitBase52Map36Code(unsigned int code) {
    std::pair<char, char> result;
    if (!codeToPair(code, result.first, result.second))
        throw Qv::Exception::RuntimeError("Number out of range in get2DigitBase52Map36Code!", kSource, 965);
    return result;
}

unsigned int Cookie::base52Map36ToInt(char first, char second) {
    const int code = pairToCode(first, second);
    if (code < 0)
        throw Qv::Exception::RuntimeError("Invalid character(s) passed to base52Map36ToInt", kSource, 979);
    return unsigned(code);
}

// --- the local machine number -----------------------------------------------------------------------------

bool isValidMachineNum(int machine) {
    return machine >= 1 && machine != Cookie::kBuiltInMachineNumber && machine <= Cookie::kMaxMachineNumber;
}

namespace {

// A decimal number as "%d" scans it; 0 when there is none, -1 when it does not fit an int.
int scanDecimal(const char* text) {
    char* end = nullptr;
    errno = 0;
    const long value = std::strtol(text, &end, 10);
    if (end == text) return 0;
    if (errno == ERANGE || value < INT_MIN || value > INT_MAX) return -1;
    return int(value);
}

// Creates the machine-number file with a random number 1..2699 that is not the built-in 647.
void createMachineNumberFile(const LightweightString<wchar_t>& path) {
    std::srand(unsigned(int64_t(OS()->clock()->now())));
    int number = 0;
    while (number == 0 || number == Cookie::kBuiltInMachineNumber) number = std::rand() % 2700;
    TextFile file;
    file.appendLine(stringPrintf("%d", number));
    file.save(path);
}

// The first bytes of the first machine-number file that exists, making the per-machine one if need be;
// false when none exists or the one found cannot be read.
bool readMachineNumberFile(std::string& text) {
    const Qv::FileSystem* fs = OS()->fileSystem();
    for (const wchar_t* name : {L"c:\\machine.num", L"machine.num"}) {
        const Qv::FileStatus status = fs->readFilePrefix(name, text, 33);
        if (status != Qv::FileStatus::kMissing) return status == Qv::FileStatus::kOk;
    }
    const LightweightString<wchar_t> dir = getMachineSettingsDirectory();
    if (!fs->isDirectory(dir.c_str())) fs->createDirectory(dir.c_str());
    const LightweightString<wchar_t> path = joinPath(dir, L"machine.num");
    // Two first runs at once must not each pick a number.
    const Qv::FileLock lock = fs->lock(path.c_str());
    if (!fs->exists(path.c_str())) createMachineNumberFile(path);
    return fs->readFilePrefix(path.c_str(), text, 33) == Qv::FileStatus::kOk;
}

void logMachineNumberBanner() {
    LogBoth(
        "\n"
        "*********************************************************\n\n"
        "***                                                   ***\n\n"
        "***  !! WARNING !!  Cannot find valid Machine Number. ***\n\n"
        "***                                                   ***\n\n"
        "***  You are strongly advised to ABORT and get help.  ***\n\n"
        "***                                                   ***\n\n"
        "*********************************************************\n\n");
}

int checkedMachineNumber(int number) {
    if (isValidMachineNum(number)) return number;
    Log("invalid machine number (%d), resetting to default\n", number);
    return 0;
}

}  // namespace

int our_machine_number_get_from_file() {
    int number = GlobalConfig().getValue(RegistryConfig::Text("machine.num"), 0);
    if (number != 0) return checkedMachineNumber(number);

    char buffer[64] = {};
    if (OS()->registry()->getString("HKEY_LOCAL_MACHINE\\SOFTWARE\\Quorvane\\Configuration", "machine.num",
                                    "wow32", buffer, sizeof buffer)) {
        number = int(std::strtol(buffer, nullptr, 10));
        if (number != 0) return checkedMachineNumber(number);
    }

    std::string text;
    if (readMachineNumberFile(text)) {
        number = scanDecimal(text.c_str());
        if (isValidMachineNum(number)) return number;
        if (number != 0) Log("invalid machine number (%d), resetting to default\n", number);
    }
    logMachineNumberBanner();
    return 0;
}

int Cookie::getLocalMachineNumber() {
    const int cached = localMachineNumber_.load(std::memory_order_relaxed);
    if (isValidMachineNum(cached)) return cached;
    int number = our_machine_number_get_from_file();
    const bool found = isValidMachineNum(number);
    if (!found) number = 1;
    localMachineNumberFound_.store(found, std::memory_order_relaxed);
    localMachineNumber_.store(number, std::memory_order_relaxed);
    return number;
}

bool Cookie::hasLocalMachineNumber() {
    getLocalMachineNumber();
    return localMachineNumberFound_.load(std::memory_order_relaxed);
}

void Cookie::resetLocalMachineNumberForTesting() noexcept {
    localMachineNumber_.store(kLocalMachine, std::memory_order_relaxed);
}

unsigned int Cookie::findHighestCookieNum() {
    const int machine = getLocalMachineNumber();
    if (machine == 0) return 0;
    const std::pair<char, char> code = get2DigitBase52Map36Code(encodeMachineNumber(machine));
    // Bracket characters are wildcard syntax, so they are matched through a one-character class.
    LightweightString<wchar_t> pattern(L"P");
    for (char c : {code.first, '?', code.second}) {
        if (c == '[')
            pattern += L"[[]";
        else if (c == ']')
            pattern += L"[]]";
        else
            pattern.push_back(wchar_t(c));
    }
    pattern += L"????*";

    const LightweightString<wchar_t> ext = getEditFilenameExt(false);
    unsigned int highest = 0;
    for (const LightweightString<wchar_t>& name : getDirListing(getProjectsBaseDirectory(), pattern)) {
        if (!Qv::endsWith(name, ext.c_str(), false)) continue;
        // The whole name when it is a cookie, else the name without its extension.
        Cookie cookie(name, false);
        if (!cookie.valid() && name.size() > ext.size() + 1 && name[name.size() - ext.size() - 1] == L'.')
            cookie = Cookie(name.substr(0, name.size() - ext.size() - 1), false);
        if (cookie.valid() && int(cookie.getMachineNumber()) == machine && cookie.getNumber() > highest)
            highest = cookie.getNumber();
    }
    Log("Highest Cookie num found is %u\n", highest);
    return highest;
}
