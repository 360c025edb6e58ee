#pragma once

/// @file
/// Synchronisation objects and threads of the operating-system layer.
///
/// CriticalSection is recursive: the thread that holds it may enter again (a notifier's callback may
/// register on the notifier that is calling it). Mutex is not recursive and can be waited for with a
/// time-out. Event follows the Windows model: manual-reset events stay set until reset, automatic-reset
/// events release one waiter and clear themselves. None of these objects may be copied.

#include <ole/platform/export.h>

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace Qv {

/// A recursive lock: the thread that holds it may enter again.
class OLE_API CriticalSection {
public:
    CriticalSection() = default;
    CriticalSection(const CriticalSection&) = delete;
    CriticalSection& operator=(const CriticalSection&) = delete;

    void enter() { mutex_.lock(); }
    bool tryEnter() { return mutex_.try_lock(); }
    void leave() { mutex_.unlock(); }

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
    std::recursive_mutex mutex_;
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
    bool tryTake();  ///< caller holds the shared lock

    const bool manualReset_;
    bool set_;
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
    void join();
    bool running() const { return thread_.joinable(); }

private:
    std::thread thread_;
};

}  // namespace Qv
