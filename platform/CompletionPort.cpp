#include <ole/platform/CompletionPort.h>

#include "internal/Text.h"

#include <liburing.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <unistd.h>
#include <vector>

namespace Qv {

namespace {

// One queued read or write.
struct Request {
    bool write;
    int fd;
    uint64_t key;
    char* buffer;
    uint32_t bytes;
    int64_t offset;
};

// Reads or writes the whole request where the file allows; returns the completion it gives.
Completion perform(const Request& r) {
    uint32_t done = 0;
    while (done < r.bytes) {
        const ssize_t n = r.write ? ::pwrite(r.fd, r.buffer + done, r.bytes - done, r.offset + done)
                                  : ::pread(r.fd, r.buffer + done, r.bytes - done, r.offset + done);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return Completion{CompletionPort::kFailed, done, r.key};
        if (n == 0) break;
        done += uint32_t(n);
    }
    return Completion{CompletionPort::kSucceeded, done, r.key};
}

// The completion queue of our own: I/O threads perform the requests and post their results.
class ThreadEngine {
public:
    static constexpr int kIoThreads = 2;

    ThreadEngine() {
        for (int i = 0; i < kIoThreads; ++i) io_.emplace_back([this] { serve(); });
    }
    ~ThreadEngine() {
        {
            std::lock_guard<std::mutex> lock(lock_);
            stopping_ = true;
        }
        requestReady_.notify_all();
        for (std::thread& t : io_) t.join();
    }

    void submit(const Request& r) {
        {
            std::lock_guard<std::mutex> lock(lock_);
            requests_.push_back(r);
        }
        requestReady_.notify_one();
    }
    void post(const Completion& c) {
        {
            std::lock_guard<std::mutex> lock(lock_);
            done_.push_back(c);
        }
        completionReady_.notify_one();
    }
    bool wait(Completion& c, unsigned timeoutMs) {
        std::unique_lock<std::mutex> lock(lock_);
        auto ready = [this] { return !done_.empty(); };
        if (timeoutMs == CompletionPort::kInfinite)
            completionReady_.wait(lock, ready);
        else if (!completionReady_.wait_for(lock, std::chrono::milliseconds(timeoutMs), ready))
            return false;
        c = done_.front();
        done_.pop_front();
        return true;
    }

private:
    void serve() {
        std::unique_lock<std::mutex> lock(lock_);
        for (;;) {
            requestReady_.wait(lock, [this] { return stopping_ || !requests_.empty(); });
            if (requests_.empty()) return;  // stopping with nothing left to do
            const Request r = requests_.front();
            requests_.pop_front();
            lock.unlock();
            const Completion c = perform(r);
            lock.lock();
            done_.push_back(c);
            completionReady_.notify_one();
        }
    }

    std::mutex lock_;
    std::condition_variable requestReady_;     // guarded by lock_
    std::condition_variable completionReady_;  // guarded by lock_
    std::deque<Request> requests_;             // guarded by lock_
    std::deque<Completion> done_;              // guarded by lock_
    bool stopping_ = false;                    // guarded by lock_
    std::vector<std::thread> io_;
};

// io_uring: each submission carries a heap record as its user data, which the waiter that reaps it turns
// into a completion. Posted completions travel as no-op submissions. One waiter at a time reaps the ring.
class UringEngine {
public:
    struct Record {
        Record(bool io, int32_t status, uint32_t bytes, uint64_t key)
            : io(io), status(status), bytes(bytes), key(key) {
            published.store(true, std::memory_order_release);
        }
        bool io;
        int32_t status;  // posted completions only
        uint32_t bytes;  // posted completions only
        uint64_t key;
        // The kernel orders the submitter's writes before the reaper's reads, but race detectors cannot
        // see that; this flag states the same ordering in the program.
        std::atomic<bool> published{false};
    };

    // True when the kernel gave us a ring that supports timed waits without a submission slot.
    bool open() {
        if (::io_uring_queue_init(256, &ring_, 0) != 0) return false;
        if (!(ring_.features & IORING_FEAT_EXT_ARG)) {
            ::io_uring_queue_exit(&ring_);
            return false;
        }
        open_ = true;
        return true;
    }
    ~UringEngine() {
        if (open_) ::io_uring_queue_exit(&ring_);
    }

    bool submit(const Request& r) {
        auto* record = new Record(true, 0, 0, r.key);
        std::lock_guard<std::mutex> lock(submitLock_);
        io_uring_sqe* sqe = slot();
        if (!sqe) return delete record, false;
        if (r.write)
            ::io_uring_prep_write(sqe, r.fd, r.buffer, r.bytes, uint64_t(r.offset));
        else
            ::io_uring_prep_read(sqe, r.fd, r.buffer, r.bytes, uint64_t(r.offset));
        ::io_uring_sqe_set_data(sqe, record);
        return flush(record);
    }
    bool post(const Completion& c) {
        auto* record = new Record(false, c.status, c.bytes, c.key);
        std::lock_guard<std::mutex> lock(submitLock_);
        io_uring_sqe* sqe = slot();
        if (!sqe) return delete record, false;
        ::io_uring_prep_nop(sqe);
        ::io_uring_sqe_set_data(sqe, record);
        return flush(record);
    }
    bool wait(Completion& c, unsigned timeoutMs) {
        std::lock_guard<std::mutex> lock(reapLock_);
        io_uring_cqe* cqe = nullptr;
        for (;;) {
            int rc;
            if (timeoutMs == CompletionPort::kInfinite) {
                rc = ::io_uring_wait_cqe(&ring_, &cqe);
            } else {
                __kernel_timespec ts{timeoutMs / 1000, long(timeoutMs % 1000) * 1000000L};
                rc = ::io_uring_wait_cqe_timeout(&ring_, &cqe, &ts);
            }
            if (rc == 0 && cqe) break;
            if (rc != -EINTR) return false;
        }
        const Record* record = static_cast<const Record*>(::io_uring_cqe_get_data(cqe));
        record->published.load(std::memory_order_acquire);
        if (record->io)
            c = Completion{cqe->res >= 0 ? CompletionPort::kSucceeded : CompletionPort::kFailed,
                           cqe->res >= 0 ? uint32_t(cqe->res) : 0u, record->key};
        else
            c = Completion{record->status, record->bytes, record->key};
        ::io_uring_cqe_seen(&ring_, cqe);
        delete record;
        return true;
    }

private:
    // A free submission slot; when the ring is full, what is queued goes to the kernel first.
    io_uring_sqe* slot() {
        io_uring_sqe* sqe = ::io_uring_get_sqe(&ring_);
        if (!sqe && ::io_uring_submit(&ring_) >= 0) sqe = ::io_uring_get_sqe(&ring_);
        return sqe;
    }
    bool flush(Record* record) {
        int rc;
        do rc = ::io_uring_submit(&ring_);
        while (rc == -EINTR);
        if (rc < 0) delete record;
        return rc >= 0;
    }

    io_uring ring_{};
    bool open_ = false;
    std::mutex submitLock_;  // guards the submission queue
    std::mutex reapLock_;    // guards the completion queue
};

}  // namespace

struct CompletionPort::Engines {
    std::unique_ptr<UringEngine> uring;
    std::unique_ptr<ThreadEngine> threads;
};

CompletionPort::CompletionPort(Engine engine) : engines_(new Engines) {
    const bool threadsWanted =
        engine == kThreads || platform::environment("OLE_COMPLETION_PORT") == "threads";
    if (!threadsWanted) {
        auto uring = std::make_unique<UringEngine>();
        if (uring->open()) engines_->uring = std::move(uring);
    }
    if (!engines_->uring) engines_->threads = std::make_unique<ThreadEngine>();
}

CompletionPort::~CompletionPort() = default;

bool CompletionPort::usesUring() const {
    return engines_->uring != nullptr;
}

bool CompletionPort::attach(iFile& file) {
    if (!file.file().isOpen()) return false;
    CompletionPort* none = nullptr;
    return file.port_.compare_exchange_strong(none, this) || none == this;
}

bool CompletionPort::post(int32_t status, uint32_t bytes, uint64_t key) {
    const Completion c{status, bytes, key};
    if (engines_->uring) return engines_->uring->post(c);
    engines_->threads->post(c);
    return true;
}

bool CompletionPort::wait(Completion& completion, unsigned timeoutMs) {
    return engines_->uring ? engines_->uring->wait(completion, timeoutMs)
                           : engines_->threads->wait(completion, timeoutMs);
}

bool CompletionPort::submit(bool write, int fd, uint64_t key, void* buffer, uint32_t bytes, int64_t offset) {
    const Request r{write, fd, key, static_cast<char*>(buffer), bytes, offset};
    if (engines_->uring) return engines_->uring->submit(r);
    engines_->threads->submit(r);
    return true;
}

bool iFile::readAsync(void* buffer, uint32_t bytes, int64_t offset) {
    CompletionPort* port = port_.load();
    return port && port->submit(false, file_.descriptor(), key_, buffer, bytes, offset);
}

bool iFile::writeAsync(const void* data, uint32_t bytes, int64_t offset) {
    CompletionPort* port = port_.load();
    return port && port->submit(true, file_.descriptor(), key_, const_cast<void*>(data), bytes, offset);
}

}  // namespace Qv
