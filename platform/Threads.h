#pragma once

/// @file
/// Synchronisation objects and threads of the operating-system layer.
///
/// CriticalSection is recursive: the thread that holds it may enter again (a notifier's callback may
/// register on the notifier that is calling it). Mutex is not recursive and can be waited for with a
/// time-out. Event follows the Windows model: manual-reset events stay set until reset, automatic-reset
/// events release one waiter and clear themselves. None of these objects may be copied.
///
/// iMutex, iEvent and iThread are the same objects made shareable: they carry the count word that Qv::Ptr
/// looks for, so a component can hold them as Qv::Ptr<iThread> and the last owner deletes them.

#include <ole/platform/export.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

namespace Qv {

/// A recursive lock: the thread that holds it may enter again. A thread that finds it held spins briefly
/// before it sleeps: the sections it guards are a few list operations long, and on a busy hand-off the
/// holder is usually done before a sleep and a wake-up could be paid for.
///
/// Leaving is a plain store and a look at the count of sleepers, with no interlocked instruction: a thread
/// about to sleep counts itself in and then makes every other running thread of the process pass a memory
/// barrier (membarrier), so a holder that leaves either sees the count or has already freed the lock
/// where the sleeper will see it. Where the kernel refuses membarrier, sleepers wake every millisecond to
/// look again, so a wake-up missed in that window costs at most that delay.
class OLE_API CriticalSection {
public:
    CriticalSection() = default;
    CriticalSection(const CriticalSection&) = delete;
    CriticalSection& operator=(const CriticalSection&) = delete;

    void enter() {
        if (tryEnter()) return;
        enterContended();
        own();
    }
    bool tryEnter() {
        if (owner_.load(std::memory_order_relaxed) == currentThreadToken()) {
            ++depth_;
            return true;
        }
        int expected = kFree;
        if (!state_.compare_exchange_strong(expected, kHeld, std::memory_order_acquire,
                                            std::memory_order_relaxed))
            return false;
        own();
        return true;
    }
    void leave() {
        if (--depth_ != 0) return;
        owner_.store(0, std::memory_order_relaxed);
        state_.store(kFree, std::memory_order_release);
        std::atomic_signal_fence(std::memory_order_seq_cst);  // the look below stays after the store
        if (sleepers_.load(std::memory_order_relaxed) != 0) wakeOne();
    }

    /// Holds the section for the life of the scope.
    class Lock {
    public:
        explicit Lock(CriticalSection& cs) : cs_(cs) { cs_.enter(); }
        ~Lock() { cs_.leave(); }
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;

    private:
        CriticalSection& cs_;
    };

private:
    enum : int { kFree = 0, kHeld = 1 };

    /// A value unique to the calling thread while it lives, the same in every module of the process (an
    /// inline function's thread_local would be one per shared object).
    static uintptr_t currentThreadToken() noexcept {
        return reinterpret_cast<uintptr_t>(__builtin_thread_pointer());
    }
    /// Records the calling thread, which has just taken the lock word, as the owner.
    void own() noexcept {
        owner_.store(currentThreadToken(), std::memory_order_relaxed);
        depth_ = 1;
    }
    void enterContended();
    void wakeOne();

    std::atomic<int> state_{kFree};
    std::atomic<int> sleepers_{0};     ///< threads asleep on state_, or about to be
    unsigned depth_ = 0;               ///< entries by the owner; touched only by the owner
    std::atomic<uintptr_t> owner_{0};  ///< the owner's token, 0 when free
};

/// A non-recursive lock that can be waited for with a time-out.
class OLE_API Mutex {
public:
    static constexpr unsigned kInfinite = ~0u;

    Mutex() = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    /// Waits at most `timeoutMs` milliseconds (kInfinite: for ever); true when the mutex was taken.
    bool lock(unsigned timeoutMs = kInfinite);
    void unlock() { mutex_.unlock(); }

private:
    std::timed_mutex mutex_;
};

/// A manual-reset or automatic-reset event in the Windows model.
class OLE_API Event {
public:
    static constexpr unsigned kInfinite = ~0u;

    explicit Event(bool manualReset = false, bool initiallySet = false);
    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;

    void set();
    void reset();
    bool isSet() const;
    /// True when the event was (or became) set within `timeoutMs`; an automatic-reset event is cleared
    /// by the wait that takes it.
    bool wait(unsigned timeoutMs = kInfinite);
    /// Waits until any of the `count` events is set; returns its index, or -1 on time-out. When several
    /// are set the lowest index wins. An automatic-reset event that is returned is cleared.
    static int waitForAny(Event* const* events, int count, unsigned timeoutMs = kInfinite);

private:
    bool tryTake();  ///< true when the event was set; clears an automatic-reset event
    /// Looks, without the lock, whether any of the events is set, for a short while before a wait sleeps.
    static bool spinForAny(Event* const* events, int count);

    const bool manualReset_;
    std::atomic<bool> set_;
};

/// A named thread of the operating-system layer. The thread runs `body` once; join() waits for it.
/// A Thread that is destroyed while still running joins it first.
class OLE_API Thread {
public:
    enum Priority { Lowest = -2, BelowNormal = -1, Normal = 0, AboveNormal = 1, Highest = 2 };

    Thread() = default;
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;
    ~Thread();

    /// Starts the thread. The name is cut to the 15 characters Linux keeps. Priorities above Normal
    /// need privileges Linux rarely grants and are then silently kept at Normal; `affinityMask` 0 means
    /// any processor. Returns false if a thread is already running or could not be made.
    bool start(const std::string& name, std::function<void()> body, Priority priority = Normal,
               uint64_t affinityMask = 0);
    /// The same for a thread procedure: `procedure(argument)` runs on the thread and its result becomes
    /// the thread's exit code.
    bool start(const std::string& name, int (*procedure)(void*), void* argument, Priority priority = Normal,
               uint64_t affinityMask = 0);
    void join();
    /// Lets the thread run on unowned; this object no longer refers to it.
    void detach();
    bool running() const { return thread_.joinable(); }
    /// The procedure's result once the thread has ended (0 for a body), -1 before.
    int exitCode() const { return exitCode_ ? exitCode_->load() : -1; }

private:
    bool start(const std::string& name, int (*procedure)(void*), void* argument, Priority priority,
               uint64_t affinityMask, bool ownsArgument);

    std::thread thread_;
    std::shared_ptr<std::atomic<int>> exitCode_;  ///< shared with the running thread, which may outlive us
};

/// Base of platform objects shared through Qv::Ptr. The count starts at 0 and is changed only by Qv::Ptr;
/// the last owner deletes the object through the virtual destructor.
class OLE_API SharedObject {
public:
    SharedObject() = default;
    SharedObject(const SharedObject&) = delete;
    SharedObject& operator=(const SharedObject&) = delete;
    virtual ~SharedObject();

    int32_t* refCountPtr() const noexcept { return &refCount_; }

private:
    mutable int32_t refCount_ = 0;
};

/// A Mutex that a Qv::Ptr can own.
class OLE_API iMutex : public SharedObject, public Mutex {};

/// An Event that a Qv::Ptr can own.
class OLE_API iEvent : public SharedObject, public Event {
public:
    explicit iEvent(bool manualReset = false, bool initiallySet = false) : Event(manualReset, initiallySet) {}
};

/// A Thread that a Qv::Ptr can own.
class OLE_API iThread : public SharedObject, public Thread {
public:
    using ePriority = Thread::Priority;
};

}  // namespace Qv

using Qv::iEvent;
using Qv::iMutex;
using Qv::iThread;
