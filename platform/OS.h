#pragma once

/// @file
/// The operating-system layer: the one place through which libole reaches memory, reference counts,
/// threads, files, the clock and the platform registry. Reach it through OS().
///
/// The layer is a constant-initialised object with no state of its own worth locking: every service is
/// safe to call from any thread. File and directory calls take wide (UTF-32) paths and report failure
/// through their result, never by throwing.

#include <ole/platform/export.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace Qv {

/// Interlocked reference counts. Kept inline because every copy and release of a shared object passes here.
class RefCountService {
public:
    static void increment(int32_t* count) noexcept { __atomic_add_fetch(count, 1, __ATOMIC_RELAXED); }
    /// Returns the new value. Release/acquire ordering makes the last owner see every earlier write.
    static int32_t decrement(int32_t* count) noexcept {
        return __atomic_sub_fetch(count, 1, __ATOMIC_ACQ_REL);
    }
    static int32_t value(const int32_t* count) noexcept { return __atomic_load_n(count, __ATOMIC_ACQUIRE); }
};

/// The memory allocator of the library: the C heap, with a per-thread cache in front of it for small
/// blocks (up to 256 bytes, at most 2 MiB a thread, handed back when the thread ends). Any thread may free
/// a block that another allocated.
class OLE_API Allocator {
public:
    /// Never returns null: an exhausted heap is reported and the process ends.
    void* allocate(std::size_t bytes) const;
    void free(void* block) const noexcept;
};

/// An open file. Movable, not copyable; closes itself. All results report failure as false or -1.
class OLE_API OSFile {
public:
    enum Mode { Read, Write, ReadWrite, Append };

    OSFile() noexcept = default;
    explicit OSFile(int fd) noexcept : fd_(fd) {}
    OSFile(OSFile&& other) noexcept;
    OSFile& operator=(OSFile&& other) noexcept;
    OSFile(const OSFile&) = delete;
    OSFile& operator=(const OSFile&) = delete;
    ~OSFile();

    bool isOpen() const noexcept { return fd_ >= 0; }
    /// The POSIX descriptor, for the platform's own asynchronous I/O; -1 when closed.
    int descriptor() const noexcept { return fd_; }
    /// Reads up to `bytes`; returns the count read (0 at end of file) or -1.
    long read(void* buffer, std::size_t bytes) const;
    /// Writes all of `bytes`; returns false when any part could not be written.
    bool write(const void* data, std::size_t bytes) const;
    bool seek(int64_t offset) const;
    /// Cuts or extends the file to `bytes`.
    bool truncate(int64_t bytes) const;
    int64_t size() const;
    /// Pushes written data to the storage device.
    bool sync() const;
    void close() noexcept;

private:
    int fd_ = -1;
};

/// An exclusive advisory lock held on behalf of one file (see FileSystem::lock). Movable, not copyable;
/// released when it goes. Cooperating processes and threads exclude each other through it; a program that
/// does not take it is not held back.
class OLE_API FileLock {
public:
    FileLock() noexcept = default;
    FileLock(FileLock&& other) noexcept;
    FileLock& operator=(FileLock&& other) noexcept;
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;
    ~FileLock();

    bool isLocked() const noexcept { return fd_ >= 0; }
    void release() noexcept;

private:
    friend class FileSystem;
    FileLock(int fd, std::string lockPath) noexcept : fd_(fd), lockPath_(std::move(lockPath)) {}

    int fd_ = -1;
    std::string lockPath_;
};

/// The outcome of a whole-file read or replace.
enum class FileStatus {
    kOk,
    kMissing,       ///< no such file (or a path component is not a directory)
    kNotRegular,    ///< a directory, device, FIFO or socket: never read or replaced
    kTooLarge,      ///< over FileSystem::kReadLimit
    kUnreadable,    ///< exists but cannot be read (permissions, I/O error)
    kReadOnly,      ///< no write permission on the file, and replacing it was not asked for
    kOwnerNotKept,  ///< the replacement could not be given the file's owner and group
    kWriteFailed    ///< the data or the rename could not be written
};

/// Files and directories on wide (UTF-32) paths; failures are results, never exceptions.
class OLE_API FileSystem {
public:
    /// The largest file readFile() takes.
    static constexpr std::size_t kReadLimit = std::size_t(16) << 20;
    /// A flag of replaceFile(): replace a file even though nobody may write it.
    static constexpr unsigned kReplaceReadOnly = 1;

    OSFile open(const wchar_t* path, OSFile::Mode mode) const;
    bool exists(const wchar_t* path) const;
    bool isDirectory(const wchar_t* path) const;
    /// Creates the directory and any missing parents; true when it exists afterwards.
    bool createDirectory(const wchar_t* path) const;
    bool remove(const wchar_t* path) const;
    bool rename(const wchar_t* from, const wchar_t* to) const;
    /// The names (not paths) of the entries of `dir` other than "." and "..", in no particular order; with a
    /// non-empty `pattern` only those matching that shell wildcard ("*", "?", "[...]"). Nothing when the
    /// directory cannot be read.
    std::vector<std::wstring> listDirectory(const wchar_t* dir, const wchar_t* pattern) const;
    /// Replaces the file's whole content so that a crash at any moment leaves either the old or the new
    /// content: the data goes to a temporary file in the same directory, is synced, and is renamed over.
    /// An existing file keeps its permissions and a symbolic link keeps pointing at the file it names;
    /// a new file gets mode 0644.
    bool writeAtomically(const wchar_t* path, const void* data, std::size_t bytes) const {
        return replaceFile(path, data, bytes) == FileStatus::kOk;
    }
    /// writeAtomically with the reason for a failure. An existing file keeps its owner, group and mode (the
    /// write is refused with kOwnerNotKept when the owner cannot be kept). A file this user may not write,
    /// or with no write permission at all (which root would otherwise ignore), is refused with kReadOnly
    /// unless `flags` holds kReplaceReadOnly; anything but a regular file with kNotRegular. A file with
    /// several hard links is rewritten in place so that every name keeps seeing it (that rewrite is not
    /// atomic: take the file's lock around it).
    FileStatus replaceFile(const wchar_t* path, const void* data, std::size_t bytes,
                           unsigned flags = 0) const;
    /// Reads a whole regular file into `content`, never more than `limit` bytes: a larger file is
    /// kTooLarge. A device, FIFO or directory is refused with kNotRegular without blocking or reading it.
    FileStatus readFile(const wchar_t* path, std::string& content, std::size_t limit = kReadLimit) const;
    /// Reads at most the first `limit` bytes of a regular file, however long it is.
    FileStatus readFilePrefix(const wchar_t* path, std::string& content, std::size_t limit) const;
    /// Blocks until this process holds the exclusive lock of `path`, taken through the lock file
    /// "<path>.lock" beside it, which is removed again on release. Hold it across a read, change and
    /// write of the file so that concurrent writers never lose each other's changes. Not re-entrant: a
    /// thread that asks twice for the same file waits for ever. Gives an unlocked FileLock when the lock
    /// file cannot be made (a directory nobody may write, where the file cannot be replaced either).
    FileLock lock(const wchar_t* path) const;
    /// A sentence fragment for a status: "is not a regular file", "is larger than 16 MiB", ...
    static const char* describe(FileStatus status);
    static constexpr wchar_t separator() { return L'/'; }
};

/// Wall-clock and monotonic time.
class OLE_API Clock {
public:
    /// Wall-clock time in seconds since the Unix epoch.
    double now() const;
    int64_t secondsSinceEpoch() const;
    /// Monotonic time for measuring intervals.
    uint64_t monotonicNanoseconds() const;
};

/// Sleeping, the processor count and the identity of the calling thread.
class OLE_API ThreadServices {
public:
    void sleep(unsigned milliseconds) const;
    unsigned processorCount() const;
    uint64_t currentThreadId() const;
};

/// Well-known base directories. Each answers from the XDG environment, or from below $QUORVANE_HOME
/// when that is set, so that a whole installation (or a test) can be rooted in one directory.
enum SpecialDirectory {
    kUserDataBase = 1,        ///< $XDG_DATA_HOME, ~/.local/share
    kConfigBase = 2,          ///< $XDG_CONFIG_HOME, ~/.config
    kHomeBase = 3,            ///< $HOME
    kMachineSettingsBase = 4  // $XDG_STATE_HOME, ~/.local/state: settings that belong to this machine
};

/// The Windows-style registry of the original platform. Linux has none: lookups always find nothing,
/// but the call keeps its shape so that callers read the same everywhere.
class OLE_API PlatformRegistry {
public:
    /// Looks up `valueName` under `key` in the given registry view; on success copies the text into
    /// `buffer` (at most `size` characters including the terminator) and returns true.
    bool getString(const char* key, const char* valueName, const char* view, char* buffer,
                   std::size_t size) const;
};

/// The operating-system layer: one object that hands out each service.
class OLE_API OperatingSystem {
public:
    constexpr OperatingSystem() = default;

    const Allocator* allocator() const { return &allocator_; }
    const RefCountService* refCounter() const { return &refCounter_; }
    const FileSystem* fileSystem() const { return &fileSystem_; }
    const Clock* clock() const { return &clock_; }
    const ThreadServices* threads() const { return &threads_; }
    const PlatformRegistry* registry() const { return &registry_; }

    /// The base directory for `which` (a SpecialDirectory) as a wide path without a trailing separator,
    /// written into `buffer` of `size` characters; returns false for an unknown number.
    bool specialDirectory(int which, wchar_t* buffer, std::size_t size) const;

private:
    RefCountService refCounter_;
    Allocator allocator_;
    FileSystem fileSystem_;
    Clock clock_;
    ThreadServices threads_;
    PlatformRegistry registry_;
};

/// The one operating-system layer of the process.
extern OLE_API const OperatingSystem theOperatingSystem;

/// The operating-system layer: the way in to every service of the platform floor.
inline const OperatingSystem* OS() noexcept {
    return &theOperatingSystem;
}

}  // namespace Qv

using Qv::OS;
