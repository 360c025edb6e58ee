#pragma once

/// @file
/// CookieJar: the process-wide allocator of new cookies. Serial cookies take the next number of a counter
/// that persists in the file "cookie.num" of the default local projects directory, so numbering continues
/// across runs; UUID cookies need no counter.
///
/// Processes share the counter file safely: each takes the file's lock, re-reads the number in it and
/// claims a block of numbers by writing the number past the block before handing any of them out. flush()
/// (also run when the jar is destroyed at process exit) gives back the unused end of the block when no
/// other process has claimed numbers since, so the file normally holds the next number to hand out. A
/// crash only skips the rest of a block: no number is ever handed out twice. The file is replaced
/// atomically, never torn.
///
/// When the counter cannot be kept (the file cannot be read or written, e.g. a directory or a read-only
/// file in its place) the jar logs its banner and still hands out numbers, which may then repeat:
/// counterSafe() says so, and callers that need unique cookies must not use those. A file that exists but
/// cannot be read is never overwritten; one that reads but holds no usable number gets the warning banner
/// and numbering restarts at 1.
///
/// The jar has no lock of its own: allocation and flush must come from one thread at a time. Making the
/// singleton is thread-safe.

#include <ole/platform/export.h>
#include <ole/misc/Cookie.h>
#include <ole/Qv/LightweightString.h>

#include <cstdint>

/// The allocator of new cookies, with a serial counter kept in a file.
class OLE_API CookieJar {
public:
    /// The jar of the process, on getCookieDotNumPath(); made on first use.
    static CookieJar& instance();
    /// A jar on its own counter file; runs init() like the process jar. The process jar is the one to use;
    /// this one exists for tools and tests that keep their counter elsewhere.
    explicit CookieJar(const LightweightString<wchar_t>& counterPath);
    /// Flushes the counter.
    ~CookieJar();
    CookieJar(const CookieJar&) = delete;
    CookieJar& operator=(const CookieJar&) = delete;

    /// A new cookie of `type`: a UUID cookie when `form` is non-zero (the type is not checked), otherwise a
    /// serial cookie of the local machine. Type 'I' gives the invalid cookie. A type that is not a cookie
    /// type, or a type-S version outside 0..35 and 255, can never make a serial cookie: that is reported as
    /// an assertion failure and gives the invalid cookie.
    Cookie makeCookie(CookieType type, Cookie::eVersion form, int version);
    /// The next serial number. After handing out 1679615 (or more) the numbering restarts at 0.
    unsigned int cookieNum();

    Cookie::eVersion getDefaultCookieVersion() const { return defaultVersion_; }
    void setDefaultCookieVersion(Cookie::eVersion form) { defaultVersion_ = form; }

    /// Reads the counter (warning and restarting at 1 when there is no usable one) and notes in the user
    /// configuration that this run has not yet exited normally; the result is that of the store.
    bool init();
    /// Gives back the unclaimed rest of the current block (see above), or writes the counter that an
    /// earlier failure could not write; a failed write is logged and tried again at the next flush.
    void flush();
    /// Takes the number in the file when it is 1..1679615; false (jar unchanged) otherwise.
    bool readCookieNum(const LightweightString<wchar_t>& path);
    /// Replaces the file's content with the next number in decimal digits; false when it cannot be written.
    bool writeCookieNum(const LightweightString<wchar_t>& path);
    /// False once a number was handed out that the counter file does not cover (it could not be read or
    /// written); true again after a flush wrote the counter past every number handed out.
    bool counterSafe() const { return safe_; }

    /// How many numbers one visit to the counter file claims.
    static constexpr uint32_t kBlockSize = 64;

    /// The process's counter file: "cookie.num" in the default local projects directory, fixed at first use.
    static const LightweightString<wchar_t>& getCookieDotNumPath();
    const LightweightString<wchar_t>& counterPath() const { return path_; }

private:
    bool writeCounter(uint32_t number);
    void claimBlock();

    Cookie::eVersion defaultVersion_;
    uint32_t nextNumber_;
    uint32_t savedNumber_;  ///< the number the file held when last read or written by this jar
    uint32_t claimed_ = 0;  ///< numbers of the current block not yet handed out
    bool safe_ = true;
    LightweightString<wchar_t> path_;
};

/// A new cookie from the process jar, in its default form.
OLE_API Cookie newCookie(CookieType type, int version);
/// A new container cookie: type G, version 0.
OLE_API Cookie newContainerCookie();
