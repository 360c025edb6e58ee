#include <ole/misc/CookieJar.h>

#include <ole/platform/Assert.h>
#include <ole/runtime/Log.h>
#include <ole/platform/OS.h>
#include <ole/runtime/Paths.h>
#include <ole/runtime/RegistryConfig.h>
#include <ole/runtime/Strings.h>
#include <ole/platform/UUID.h>

#include <cstdio>
#include <cstdlib>

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
        cookieNum();  // 0 is never handed out: numbering goes on from 1
    }
    RegistryConfig& config = UserConfig();
    if (!config.getValue(RegistryConfig::kDefaultSection, "Normal Exit", false))
        Log("previous run exited incorrectly\n");
    return config.setValue(RegistryConfig::kDefaultSection, "Normal Exit", false);
}

unsigned int CookieJar::cookieNum() {
    const uint32_t number = nextNumber_++;
    if (number >= Cookie::kMaxNumber) {
        LogBoth("CookieJar::cookieNum() : next Cookie number is too big! ...setting to zero\n");
        nextNumber_ = 0;
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

void CookieJar::flush() {
    if (nextNumber_ != savedNumber_) writeCookieNum(path_);
}

bool CookieJar::readCookieNum(const LightweightString<wchar_t>& path) {
    const Qv::OSFile file = OS()->fileSystem()->open(path.c_str(), Qv::OSFile::Read);
    if (!file.isOpen()) return false;
    char text[257] = {};
    if (file.read(text, 256) <= 0) return false;
    const long number = std::strtol(text, nullptr, 10);
    if (number < 1 || number > long(Cookie::kMaxNumber)) return false;
    nextNumber_ = savedNumber_ = uint32_t(number);
    return true;
}

bool CookieJar::writeCookieNum(const LightweightString<wchar_t>& path) {
    const Qv::FileSystem* fs = OS()->fileSystem();
    const LightweightString<wchar_t> dir = parentDirectory(path);
    if (!dir.empty() && !fs->isDirectory(dir.c_str())) fs->createDirectory(dir.c_str());

    char digits[16];
    const int length = std::snprintf(digits, sizeof digits, "%d", int(nextNumber_));
    if (!fs->writeAtomically(path.c_str(), digits, size_t(length))) {
        LogBoth(
            "******************************************\n\nWARNING!!! UNABLE TO UPDATE COOKIE NUMBER "
            "FILE\n(%s)\n "
            "This WILL cause repeat cookies and missing shots.\n DO SOMETHING NOW!!!\n \n "
            "**************************************\n",
            toUTF8(path).c_str());
        return false;
    }
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
