#include <ole/platform/OS.h>

#include "internal/Text.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <dirent.h>
#include <fnmatch.h>
#include <memory>
#include <fcntl.h>
#include <libgen.h>
#include <malloc.h>
#include <pthread.h>
#include <string>
#include <pwd.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <thread>
#include <time.h>
#include <unistd.h>

namespace Qv {

const OperatingSystem theOperatingSystem;

// --- Allocator ------------------------------------------------------------------------------------------

namespace {

// Small blocks freed by a thread wait in that thread's lists, one list per 16-byte step of usable size, for
// the thread's next allocation of that size. Strings are made and dropped in great numbers (a record read
// from text makes two or three per entry), and glibc's own per-thread cache keeps only seven blocks of a
// size, so a burst of frees went to its shared bins and each later allocation came back through them. A
// thread holds at most kBudget bytes this way and gives them back to the heap when it ends. Under
// AddressSanitizer nothing is held, so that a block used after it was freed is still reported.
struct SmallBlocks {
    static constexpr std::size_t kStep = 16, kLists = 16, kBudget = std::size_t(2) << 20;
    struct Free {
        Free* next;
    };

    Free* lists[kLists + 1];  // lists[k]: blocks of at least 16k usable bytes, for requests of up to 16k
    std::size_t held;
    bool registered;  // the release at thread exit is arranged
    bool ended;       // the thread is ending: blocks go straight back to the heap

    static std::size_t listFor(std::size_t bytes) noexcept { return (bytes + kStep - 1) / kStep; }
    static void release(void* self) noexcept;
};

#if defined(__has_feature)  // Clang says so here; GCC defines __SANITIZE_ADDRESS__
#if __has_feature(address_sanitizer)
#define OLE_ADDRESS_SANITIZER 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(OLE_ADDRESS_SANITIZER)
constexpr bool kHoldBlocks = false;
#else
constexpr bool kHoldBlocks = true;
#endif

// Zero-initialised and trivially destructible: usable until the thread ends. Initial-exec, as the library is
// loaded with the program, so that reaching it costs no call.
__attribute__((tls_model("initial-exec"))) thread_local SmallBlocks tBlocks;

pthread_key_t releaseKey() {
    static const pthread_key_t key = [] {
        pthread_key_t k;
        pthread_key_create(&k, &SmallBlocks::release);
        return k;
    }();
    return key;
}

void SmallBlocks::release(void* self) noexcept {
    SmallBlocks& blocks = *static_cast<SmallBlocks*>(self);
    blocks.ended = true;
    for (Free*& list : blocks.lists) {
        while (Free* block = list) {
            list = block->next;
            std::free(block);
        }
    }
    blocks.held = 0;
}

}  // namespace

void* Allocator::allocate(std::size_t bytes) const {
    const std::size_t k = SmallBlocks::listFor(bytes ? bytes : 1);
    if (k <= SmallBlocks::kLists) {
        SmallBlocks& blocks = tBlocks;
        if (SmallBlocks::Free* block = blocks.lists[k]) {
            blocks.lists[k] = block->next;
            blocks.held -= k * SmallBlocks::kStep;
            return block;
        }
        bytes = k * SmallBlocks::kStep;  // so that the block comes back to the same list
    }
    void* block = std::malloc(bytes ? bytes : 1);
    if (!block) {
        std::fputs("ole: out of memory\n", stderr);
        std::abort();
    }
    return block;
}

void Allocator::free(void* block) const noexcept {
    if (!block) return;
    if (kHoldBlocks) {
        const std::size_t k = malloc_usable_size(block) / SmallBlocks::kStep;
        SmallBlocks& blocks = tBlocks;
        if (k <= SmallBlocks::kLists && !blocks.ended &&
            blocks.held + k * SmallBlocks::kStep <= SmallBlocks::kBudget) {
            if (!blocks.registered) {
                blocks.registered = true;
                pthread_setspecific(releaseKey(), &blocks);
            }
            blocks.held += k * SmallBlocks::kStep;
            auto* free = static_cast<SmallBlocks::Free*>(block);
            free->next = blocks.lists[k];
            blocks.lists[k] = free;
            return;
        }
    }
    std::free(block);
}

// --- OSFile ---------------------------------------------------------------------------------------------

OSFile::OSFile(OSFile&& other) noexcept : fd_(other.fd_) {
    other.fd_ = -1;
}

OSFile& OSFile::operator=(OSFile&& other) noexcept {
    if (this != &other) {
        close();
        fd_ = other.fd_;
        other.fd_ = -1;
    }
    return *this;
}

OSFile::~OSFile() {
    close();
}

long OSFile::read(void* buffer, std::size_t bytes) const {
    if (fd_ < 0) return -1;
    std::size_t done = 0;
    while (done < bytes) {
        const ssize_t n = ::read(fd_, static_cast<char*>(buffer) + done, bytes - done);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return -1;
        if (n == 0) break;
        done += std::size_t(n);
    }
    return long(done);
}

bool OSFile::write(const void* data, std::size_t bytes) const {
    if (fd_ < 0) return false;
    std::size_t done = 0;
    while (done < bytes) {
        const ssize_t n = ::write(fd_, static_cast<const char*>(data) + done, bytes - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        done += std::size_t(n);
    }
    return true;
}

bool OSFile::seek(int64_t offset) const {
    return fd_ >= 0 && ::lseek(fd_, offset, SEEK_SET) == offset;
}

bool OSFile::truncate(int64_t bytes) const {
    return fd_ >= 0 && ::ftruncate(fd_, off_t(bytes)) == 0;
}

int64_t OSFile::size() const {
    struct stat st;
    if (fd_ < 0 || ::fstat(fd_, &st) != 0) return -1;
    return st.st_size;
}

bool OSFile::sync() const {
    return fd_ >= 0 && ::fsync(fd_) == 0;
}

void OSFile::close() noexcept {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
}

// --- FileSystem -----------------------------------------------------------------------------------------

OSFile FileSystem::open(const wchar_t* path, OSFile::Mode mode) const {
    if (!path || !*path) return OSFile();
    int flags = O_CLOEXEC;
    switch (mode) {
        case OSFile::Read:
            flags |= O_RDONLY;
            break;
        case OSFile::Write:
            flags |= O_WRONLY | O_CREAT | O_TRUNC;
            break;
        case OSFile::ReadWrite:
            flags |= O_RDWR | O_CREAT;
            break;
        case OSFile::Append:
            flags |= O_WRONLY | O_CREAT | O_APPEND;
            break;
    }
    int fd;
    do {
        fd = ::open(platform::narrow(path).c_str(), flags, 0644);
    } while (fd < 0 && errno == EINTR);
    return OSFile(fd);
}

bool FileSystem::exists(const wchar_t* path) const {
    struct stat st;
    return path && ::stat(platform::narrow(path).c_str(), &st) == 0;
}

bool FileSystem::isDirectory(const wchar_t* path) const {
    struct stat st;
    return path && ::stat(platform::narrow(path).c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool FileSystem::createDirectory(const wchar_t* path) const {
    if (!path || !*path) return false;
    const std::string target = platform::narrow(path);
    // Make each missing component in turn; another process making one at the same time is fine.
    for (std::size_t slash = target.find('/', 1);; slash = target.find('/', slash + 1)) {
        const std::string part = target.substr(0, slash);
        if (::mkdir(part.c_str(), 0755) != 0 && errno != EEXIST) return false;
        if (slash == std::string::npos) break;
    }
    return isDirectory(path);
}

bool FileSystem::remove(const wchar_t* path) const {
    if (!path) return false;
    const std::string p = platform::narrow(path);
    return ::unlink(p.c_str()) == 0 || ::rmdir(p.c_str()) == 0;
}

bool FileSystem::rename(const wchar_t* from, const wchar_t* to) const {
    return from && to && ::rename(platform::narrow(from).c_str(), platform::narrow(to).c_str()) == 0;
}

std::vector<std::wstring> FileSystem::listDirectory(const wchar_t* dir, const wchar_t* pattern) const {
    std::vector<std::wstring> names;
    if (!dir) return names;
    const std::unique_ptr<DIR, int (*)(DIR*)> stream(::opendir(platform::narrow(dir).c_str()), ::closedir);
    if (!stream) return names;
    const std::string glob = platform::narrow(pattern);
    while (const dirent* entry = ::readdir(stream.get())) {
        const std::string name = entry->d_name;
        if (name == "." || name == "..") continue;
        if (!glob.empty() && ::fnmatch(glob.c_str(), name.c_str(), 0) != 0) continue;
        names.push_back(platform::wide(name));
    }
    return names;
}

namespace {

// The path with symbolic links resolved; as given when it cannot be resolved (e.g. it does not exist).
std::string resolvedPath(const std::string& path) {
    char* resolved = ::realpath(path.c_str(), nullptr);
    if (!resolved) return path;
    std::string result = resolved;
    std::free(resolved);
    return result;
}

std::string directoryPart(const std::string& path) {
    std::string copy = path;
    return ::dirname(copy.data());
}

// Gives the written file `fd` a fresh name beside `target` and returns it ("" on failure). An unnamed
// file (O_TMPFILE) is linked through /proc; a named temporary file already has its name.
std::string nameFor(int fd, const std::string& target, const std::string& existingName) {
    if (!existingName.empty()) return existingName;
    static std::atomic<unsigned> serial{0};
    const std::string procPath = "/proc/self/fd/" + std::to_string(fd);
    for (int attempt = 0; attempt < 100; ++attempt) {
        const std::string name =
            target + ".tmp" + std::to_string(::getpid()) + "-" + std::to_string(serial++);
        if (::linkat(AT_FDCWD, procPath.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0) return name;
        if (errno != EEXIST) break;
    }
    return std::string();
}

// A file with several names cannot be replaced without cutting the other names off: its content is
// rewritten where it lies.
FileStatus rewriteInPlace(const std::string& target, const void* data, std::size_t bytes) {
    const OSFile file(::open(target.c_str(), O_WRONLY | O_CLOEXEC | O_NOFOLLOW));
    const bool done = file.write(data, bytes) && file.truncate(int64_t(bytes)) && file.sync();
    return done ? FileStatus::kOk : FileStatus::kWriteFailed;
}

FileStatus readRegularFile(const wchar_t* path, std::string& content, std::size_t limit, bool prefixOnly) {
    content.clear();
    if (!path || !*path) return FileStatus::kMissing;
    // O_NONBLOCK: opening a FIFO must not wait for a writer; it is refused below without being read.
    int fd;
    do {
        fd = ::open(platform::narrow(path).c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) {
        if (errno == ENOENT || errno == ENOTDIR) return FileStatus::kMissing;
        return errno == ENXIO ? FileStatus::kNotRegular : FileStatus::kUnreadable;
    }
    const OSFile file(fd);
    struct stat st;
    if (::fstat(fd, &st) != 0) return FileStatus::kUnreadable;
    if (!S_ISREG(st.st_mode)) return FileStatus::kNotRegular;
    if (!prefixOnly && uint64_t(st.st_size) > limit) return FileStatus::kTooLarge;
    // One byte past the limit tells a file that grew since fstat from one that fits.
    const std::size_t wanted = prefixOnly ? limit : limit + 1;
    char buffer[65536];
    while (content.size() < wanted) {
        const long n = file.read(buffer, std::min(sizeof buffer, wanted - content.size()));
        if (n < 0) {
            content.clear();
            return FileStatus::kUnreadable;
        }
        if (n == 0) break;
        content.append(buffer, std::size_t(n));
    }
    if (content.size() > limit) {
        content.clear();
        return FileStatus::kTooLarge;
    }
    return FileStatus::kOk;
}

}  // namespace

FileStatus FileSystem::replaceFile(const wchar_t* path, const void* data, std::size_t bytes,
                                   unsigned flags) const {
    if (!path || !*path) return FileStatus::kWriteFailed;
    // A symbolic link is written through, so it keeps pointing at the file.
    const std::string target = resolvedPath(platform::narrow(path));
    struct stat existing;
    const bool exists = ::stat(target.c_str(), &existing) == 0;
    if (exists) {
        if (!S_ISREG(existing.st_mode)) return FileStatus::kNotRegular;
        const bool writable =
            (existing.st_mode & 0222) != 0 && ::faccessat(AT_FDCWD, target.c_str(), W_OK, AT_EACCESS) == 0;
        if (!writable && !(flags & kReplaceReadOnly)) return FileStatus::kReadOnly;
        if (existing.st_nlink > 1) return rewriteInPlace(target, data, bytes);
    }
    const std::string dir = directoryPart(target);
    // The data goes to an unnamed file in the target's directory, so a crash while writing leaves nothing
    // behind; where the file system cannot make one, to a named temporary file instead.
    std::string tempName;
    int fd = ::open(dir.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0644);
    if (fd < 0) {
        tempName = target + ".XXXXXX";
        fd = ::mkostemp(tempName.data(), O_CLOEXEC);
        if (fd < 0) return FileStatus::kWriteFailed;
    }
    OSFile file(fd);
    const auto discard = [&](FileStatus status) {
        const int error = errno;  // the caller's reason, not the clean-up's
        file.close();
        if (!tempName.empty()) ::unlink(tempName.c_str());
        errno = error;
        return status;
    };
    // Owner and group first: changing them clears set-id bits that the mode then puts back.
    struct stat made;
    if (exists && ::fstat(fd, &made) == 0 &&
        (made.st_uid != existing.st_uid || made.st_gid != existing.st_gid) &&
        ::fchown(fd, existing.st_uid, existing.st_gid) != 0)
        return discard(FileStatus::kOwnerNotKept);
    ::fchmod(fd, exists ? (existing.st_mode & 07777) : 0644);
    if (!file.write(data, bytes) || !file.sync()) return discard(FileStatus::kWriteFailed);
    tempName = nameFor(fd, target, tempName);
    if (tempName.empty() || ::rename(tempName.c_str(), target.c_str()) != 0)
        return discard(FileStatus::kWriteFailed);
    file.close();
    // Make the rename itself durable.
    const int dirFd = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dirFd >= 0) {
        ::fsync(dirFd);
        ::close(dirFd);
    }
    return FileStatus::kOk;
}

FileStatus FileSystem::readFile(const wchar_t* path, std::string& content, std::size_t limit) const {
    return readRegularFile(path, content, limit, false);
}

FileStatus FileSystem::readFilePrefix(const wchar_t* path, std::string& content, std::size_t limit) const {
    return readRegularFile(path, content, limit, true);
}

FileLock FileSystem::lock(const wchar_t* path) const {
    if (!path || !*path) return FileLock();
    // Through a symbolic link to a regular file the lock is that of the file it names, the one replaced.
    std::string target = platform::narrow(path);
    struct stat st;
    if (::stat(target.c_str(), &st) == 0 && S_ISREG(st.st_mode)) target = resolvedPath(target);
    const std::string lockPath = target + ".lock";
    for (;;) {
        int fd = ::open(lockPath.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0644);
        if (fd < 0 && errno == EINTR) continue;
        if (fd < 0) fd = ::open(lockPath.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);  // not ours to write
        if (fd < 0) return FileLock();
        int locked;
        do {
            locked = ::flock(fd, LOCK_EX);
        } while (locked != 0 && errno == EINTR);
        // The holder before us removes the lock file as it lets go: a lock on a file that no longer has
        // the name excludes nobody, so start again on the file that has it now.
        struct stat held, named;
        if (locked == 0 && ::fstat(fd, &held) == 0 && ::stat(lockPath.c_str(), &named) == 0 &&
            held.st_dev == named.st_dev && held.st_ino == named.st_ino)
            return FileLock(fd, lockPath);
        ::close(fd);
        if (locked != 0) return FileLock();
    }
}

const char* FileSystem::describe(FileStatus status) {
    switch (status) {
        case FileStatus::kOk:
            return "was read or written";
        case FileStatus::kMissing:
            return "does not exist";
        case FileStatus::kNotRegular:
            return "is not a regular file";
        case FileStatus::kTooLarge:
            return "is larger than 16 MiB";
        case FileStatus::kUnreadable:
            return "cannot be read";
        case FileStatus::kReadOnly:
            return "is read-only";
        case FileStatus::kOwnerNotKept:
            return "cannot be replaced without changing its owner";
        case FileStatus::kWriteFailed:
            return "cannot be written";
    }
    return "cannot be used";
}

// --- FileLock -------------------------------------------------------------------------------------------

FileLock::FileLock(FileLock&& other) noexcept : fd_(other.fd_), lockPath_(std::move(other.lockPath_)) {
    other.fd_ = -1;
}

FileLock& FileLock::operator=(FileLock&& other) noexcept {
    if (this != &other) {
        release();
        fd_ = other.fd_;
        lockPath_ = std::move(other.lockPath_);
        other.fd_ = -1;
    }
    return *this;
}

FileLock::~FileLock() {
    release();
}

void FileLock::release() noexcept {
    if (fd_ < 0) return;
    ::unlink(lockPath_.c_str());  // still held: whoever waits on this file sees it lose its name and retries
    ::close(fd_);
    fd_ = -1;
}

// --- Clock and threads ----------------------------------------------------------------------------------

double Clock::now() const {
    struct timespec ts;
    ::clock_gettime(CLOCK_REALTIME, &ts);
    return double(ts.tv_sec) + double(ts.tv_nsec) * 1e-9;
}

int64_t Clock::secondsSinceEpoch() const {
    return int64_t(::time(nullptr));
}

uint64_t Clock::monotonicNanoseconds() const {
    struct timespec ts;
    ::clock_gettime(CLOCK_MONOTONIC, &ts);
    return uint64_t(ts.tv_sec) * 1000000000u + uint64_t(ts.tv_nsec);
}

void ThreadServices::sleep(unsigned milliseconds) const {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

unsigned ThreadServices::processorCount() const {
    const long n = ::sysconf(_SC_NPROCESSORS_ONLN);
    return n > 0 ? unsigned(n) : 1u;
}

uint64_t ThreadServices::currentThreadId() const {
    return uint64_t(::syscall(SYS_gettid));
}

// --- Registry and special directories -------------------------------------------------------------------

bool PlatformRegistry::getString(const char*, const char*, const char*, char* buffer,
                                 std::size_t size) const {
    if (buffer && size) buffer[0] = '\0';
    return false;
}

static std::string homeDirectory() {
    std::string home = platform::environment("HOME");
    if (home.empty()) {
        if (const passwd* pw = ::getpwuid(::getuid())) home = pw->pw_dir;
    }
    return home.empty() ? "/tmp" : home;
}

// An XDG variable if it holds an absolute path (relative ones are to be ignored), else the default below
// the home directory.
static std::string xdgDirectory(const char* variable, const char* fallbackBelowHome) {
    const std::string value = platform::environment(variable);
    if (!value.empty() && value[0] == '/') return value;
    return homeDirectory() + "/" + fallbackBelowHome;
}

static std::string specialDirectoryPath(int which) {
    const std::string root = platform::environment("QUORVANE_HOME");
    if (!root.empty()) {
        switch (which) {
            case kUserDataBase:
                return root + "/data";
            case kConfigBase:
                return root + "/config";
            case kHomeBase:
                return root;
            case kMachineSettingsBase:
                return root + "/state";
            default:
                return std::string();
        }
    }
    switch (which) {
        case kUserDataBase:
            return xdgDirectory("XDG_DATA_HOME", ".local/share");
        case kConfigBase:
            return xdgDirectory("XDG_CONFIG_HOME", ".config");
        case kHomeBase:
            return homeDirectory();
        case kMachineSettingsBase:
            return xdgDirectory("XDG_STATE_HOME", ".local/state");
        default:
            return std::string();
    }
}

bool OperatingSystem::specialDirectory(int which, wchar_t* buffer, std::size_t size) const {
    const std::string path = specialDirectoryPath(which);
    if (path.empty() || !buffer || size == 0) return false;
    const std::wstring widePath = platform::wide(path);
    if (widePath.size() + 1 > size) return false;
    std::wmemcpy(buffer, widePath.c_str(), widePath.size() + 1);
    return true;
}

}  // namespace Qv
