#pragma once

/// @file
/// I/O completion ports. A port collects completions, each a (status, byte count, key) triple, from the
/// reads and writes of the files attached to it and from whoever posts one directly; any number of threads
/// may wait on a port, and each completion goes to exactly one waiter, in the order they finished.
///
/// Reads and writes go through io_uring where the kernel allows it. Where io_uring_setup is refused (as it
/// often is in containers), or when OLE_COMPLETION_PORT=threads is set in the environment, the port does the
/// I/O on worker threads of its own and posts the results; callers see no difference.
///
/// Every call is thread-safe. A port must outlive the operations it started: destroy it only after their
/// completions have been taken (buffers likewise stay valid until their completion arrives).

#include <ole/platform/export.h>
#include <ole/platform/OS.h>
#include <ole/platform/Threads.h>

#include <atomic>
#include <cstdint>
#include <memory>

namespace Qv {

/// One completion: its status, the bytes moved and the key of the file or poster.
struct Completion {
    int32_t status = 0;  ///< CompletionPort::Status for I/O; anything a poster chose otherwise
    uint32_t bytes = 0;
    uint64_t key = 0;
};

class iFile;

/// An I/O completion port: io_uring where the kernel allows it, otherwise I/O threads of our own.
class OLE_API CompletionPort {
public:
    enum Status { kFailed = 0, kSucceeded = 1, kQuit = 2 };
    enum Engine { kAutomatic, kUring, kThreads };
    static constexpr unsigned kInfinite = ~0u;

    /// kAutomatic uses io_uring when available; kUring falls back to threads when it is not.
    explicit CompletionPort(Engine engine = kAutomatic);
    ~CompletionPort();
    CompletionPort(const CompletionPort&) = delete;
    CompletionPort& operator=(const CompletionPort&) = delete;

    bool usesUring() const;

    /// Makes the file's reads and writes complete here, with the file's completion key. False when the
    /// file is closed or already attached to a port.
    bool attach(iFile& file);
    /// Queues a completion of our own; status kQuit conventionally ends the waiter that takes it.
    bool post(int32_t status, uint32_t bytes, uint64_t key);
    /// Takes the next completion; false when none came within `timeoutMs`.
    bool wait(Completion& completion, unsigned timeoutMs = kInfinite);

private:
    friend class iFile;
    bool submit(bool write, int fd, uint64_t key, void* buffer, uint32_t bytes, int64_t offset);

    struct Engines;
    std::unique_ptr<Engines> engines_;
};

/// A file whose reads and writes are asynchronous once it is attached to a completion port. Shared
/// through Qv::Ptr; it must outlive its outstanding operations.
class OLE_API iFile : public SharedObject {
public:
    explicit iFile(OSFile file) : file_(std::move(file)), key_(uint64_t(reinterpret_cast<uintptr_t>(this))) {}

    const OSFile& file() const { return file_; }
    /// The key this file's completions carry: the object's address unless set before attaching.
    uint64_t completionKey() const { return key_; }
    void setCompletionKey(uint64_t key) { key_ = key; }

    /// Starts a read of up to `bytes` at `offset` into `buffer`, or a write of `bytes` from `data`. True
    /// when the request was queued: its completion then reports the bytes done, status kFailed on error.
    /// False (and no completion) when the file is not attached.
    bool readAsync(void* buffer, uint32_t bytes, int64_t offset);
    bool writeAsync(const void* data, uint32_t bytes, int64_t offset);

private:
    friend class CompletionPort;

    OSFile file_;
    uint64_t key_;
    std::atomic<CompletionPort*> port_{nullptr};
};

}  // namespace Qv

using Qv::iFile;
