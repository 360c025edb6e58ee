#include <ole/misc/CookieJar.h>

#include <ole/platform/Assert.h>
#include <ole/runtime/Log.h>
#include <ole/platform/OS.h>
#include <ole/runtime/Paths.h>
#include <ole/runtime/RegistryConfig.h>
#include <ole/runtime/Strings.h>
#include <ole/platform/UUID.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

const char kSource[] = "ole/misc/CookieJar";

// The directory part of a path, "" when it has none.
LightweightString<wchar_t> parentDirectory(const LightweightString<wchar_t>& path) {
    for (unsigned i = path.size(); i > 0; --i)
        if (path[i - 1] == Qv::FileSystem::separator()) return path.substr(0, i - 1);
    return LightweightString<wchar_t>();
}

}  // namespace

CookieJar& CookieJar::instance() {
    static CookieJar jar(getCookieDotNumPath());
    return jar;
}

CookieJar::CookieJar(const LightweightString<wchar_t>& counterPath)
    : defaultVersion_(Cookie::eSerial), nextNumber_(0), savedNumber_(0), path_(counterPath) {
    init();
}

CookieJar::~CookieJar() {
    flush();
}

const LightweightString<wchar_t>& CookieJar::getCookieDotNumPath() {
    static const LightweightString<wchar_t> path = joinPath(getDefaultLocalProjectsDir(), L"cookie.num");
    return path;
}

bool CookieJar::init() {
    if (!readCookieNum(path_)) {
        LogBoth("******************************************\n\n");
        LogBoth(" WARNING!!! UNABLE TO FIND COOKIE NUMBER FILE\n");
        LogBoth(" in the current directory or (%s)\n", toUTF8(path_).c_str());
        LogBoth(" This WILL cause repeat cookies and missing shots.\n");
        LogBoth(" System will attempt to repair automatically\n\n");
        LogBoth("******************************************\n");
        nextNumber_ = 1;  // 0 is never handed out from the file
    }
    RegistryConfig& config = UserConfig();
    if (!config.getValue(RegistryConfig::kDefaultSection, "Normal Exit", false))
        Log("previous run exited incorrectly\n");
    return config.setValue(RegistryConfig::kDefaultSection, "Normal Exit", false);
}

unsigned int CookieJar::cookieNum() {
    if (claimed_ == 0) claimBlock();
    --claimed_;
    const uint32_t number = nextNumber_++;
    if (number >= Cookie::kMaxNumber) {
        LogBoth("CookieJar::cookieNum() : next Cookie number is too big! ...setting to zero\n");
        nextNumber_ = 0;
        claimed_ = 1;  // the file never holds 0, so 0 is this jar's to hand out
    }
    return number;
}

Cookie CookieJar::makeCookie(CookieType type, Cookie::eVersion form, int version) {
    if (type == 'I') return Cookie();
    if (form != Cookie::eSerial) return Cookie(type, Qv::UUID::generate(), version);

    // Every retry consumes a number, so arguments that can never be valid must not loop.
    const bool typeOk = Cookie::typeFromChar(type) != 'I';
    const bool versionOk = Cookie::typeFromChar(type) != 'S' || version == Cookie::kDefaultVersion ||
                           (version >= 0 && version <= 35);
    if (!Qv::check(typeOk && versionOk, "makeCookie type and version", kSource, 79)) return Cookie();

    Cookie cookie;
    do {
        cookie = Cookie(type, int(cookieNum()), version, Cookie::kLocalMachine);
    } while (!cookie.valid());
    return cookie;
}

namespace {

void logUnableToUpdate(const LightweightString<wchar_t>& path) {
    LogBoth(
        "******************************************\n\nWARNING!!! UNABLE TO UPDATE COOKIE NUMBER "
        "FILE\n(%s)\n "
        "This WILL cause repeat cookies and missing shots.\n DO SOMETHING NOW!!!\n \n "
        "**************************************\n",
        toUTF8(path).c_str());
}

void makeParentDirectory(const LightweightString<wchar_t>& path) {
    const Qv::FileSystem* fs = OS()->fileSystem();
    const LightweightString<wchar_t> dir = parentDirectory(path);
    if (!dir.empty() && !fs->isDirectory(dir.c_str())) fs->createDirectory(dir.c_str());
}

// Writes the number as decimal digits, making the directory if need be; logs the banner on failure.
bool storeNumber(const LightweightString<wchar_t>& path, uint32_t number) {
    const Qv::FileSystem* fs = OS()->fileSystem();
    makeParentDirectory(path);
    char digits[16];
    const int length = std::snprintf(digits, sizeof digits, "%u", number);
    if (fs->writeAtomically(path.c_str(), digits, size_t(length))) return true;
    logUnableToUpdate(path);
    return false;
}

// The counter file's lock; its directory is made first so that the lock file has a place.
Qv::FileLock lockCounter(const LightweightString<wchar_t>& path) {
    makeParentDirectory(path);
    return OS()->fileSystem()->lock(path.c_str());
}

enum class Counter { kNumber, kNoNumber, kUnreadable };

// What the counter file holds: a usable number (1..1679615, from its first 256 bytes), no number (the file
// is missing or holds something else), or nothing readable (a directory, an unreadable file).
Counter readCounter(const LightweightString<wchar_t>& path, uint32_t& number) {
    std::string text;
    const Qv::FileStatus status = OS()->fileSystem()->readFilePrefix(path.c_str(), text, 256);
    if (status == Qv::FileStatus::kMissing) return Counter::kNoNumber;
    if (status != Qv::FileStatus::kOk) return Counter::kUnreadable;
    const long value = std::strtol(text.c_str(), nullptr, 10);
    if (value < 1 || value > long(Cookie::kMaxNumber)) return Counter::kNoNumber;
    number = uint32_t(value);
    return Counter::kNumber;
}

}  // namespace

bool CookieJar::writeCounter(uint32_t number) {
    if (!storeNumber(path_, number)) return false;
    savedNumber_ = number;
    return true;
}

void CookieJar::claimBlock() {
    const Qv::FileLock lock = lockCounter(path_);
    uint32_t inFile = 0;
    switch (readCounter(path_, inFile)) {
        case Counter::kNumber:
            nextNumber_ = inFile;  // the file is what every process goes by
            break;
        case Counter::kNoNumber:  // gone or unusable: go on from this jar's own number, and repair it
            if (nextNumber_ == 0) nextNumber_ = 1;
            break;
        case Counter::kUnreadable:  // never overwritten; the numbers handed out now may repeat
            logUnableToUpdate(path_);
            safe_ = false;
            claimed_ = kBlockSize;
            return;
    }
    claimed_ = std::min<uint32_t>(kBlockSize, uint32_t(Cookie::kMaxNumber) + 1 - nextNumber_);
    const uint32_t end = nextNumber_ + claimed_;
    // Past the largest number the numbering starts again; the file never holds 0.
    if (!writeCounter(end > Cookie::kMaxNumber ? 1 : end)) safe_ = false;
}

void CookieJar::flush() {
    if (claimed_ == 0 && safe_) return;
    const Qv::FileLock lock = lockCounter(path_);
    uint32_t inFile = 0;
    const Counter state = readCounter(path_, inFile);
    if (state == Counter::kUnreadable) {
        logUnableToUpdate(path_);
        safe_ = false;
        return;
    }
    // The rest of the block goes back only while the file still holds its end (no other process has
    // claimed numbers since); a file that is gone or behind this jar is brought up to its next number.
    const bool ours = state == Counter::kNumber && inFile == savedNumber_;
    const bool behind = state != Counter::kNumber || inFile < nextNumber_;
    claimed_ = 0;
    if (!ours && !behind) return;
    const uint32_t next = std::max<uint32_t>(nextNumber_, 1);
    safe_ = (state == Counter::kNumber && inFile == next) || writeCounter(next);
}

bool CookieJar::readCookieNum(const LightweightString<wchar_t>& path) {
    uint32_t number = 0;
    if (readCounter(path, number) != Counter::kNumber) return false;
    nextNumber_ = savedNumber_ = number;
    return true;
}

bool CookieJar::writeCookieNum(const LightweightString<wchar_t>& path) {
    if (!storeNumber(path, nextNumber_)) return false;
    savedNumber_ = nextNumber_;
    return true;
}

Cookie newCookie(CookieType type, int version) {
    CookieJar& jar = CookieJar::instance();
    return jar.makeCookie(type, jar.getDefaultCookieVersion(), version);
}

Cookie newContainerCookie() {
    return newCookie('G', 0);
}
