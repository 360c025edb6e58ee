#include <ole/platform/Threads.h>

#include <chrono>
#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Qv {

// --- Mutex ----------------------------------------------------------------------------------------------

bool Mutex::lock(unsigned timeoutMs) {
    if (timeoutMs == kInfinite) {
        mutex_.lock();
        return true;
    }
    return mutex_.try_lock_for(std::chrono::milliseconds(timeoutMs));
}

// --- Event ----------------------------------------------------------------------------------------------
// All events share one lock and one condition variable. That keeps waiting for any of several events as
// simple as waiting for one. A waiter first looks for a set event without the lock for a few microseconds
// before it sleeps, and a set that finds nobody asleep, or its event already set, wakes nobody: a worker
// fed in quick succession then never pays the system calls of going to sleep and being woken.

namespace {
std::mutex& eventLock() {
    static std::mutex lock;
    return lock;
}
std::condition_variable& eventSignal() {
    static std::condition_variable signal;
    return signal;
}
int sleepers = 0;  // waiters asleep on the shared condition; guarded by eventLock()

// Waits on the shared condition until `ready` holds or the time-out passes; returns `ready`'s last answer.
template <class Ready>
bool waitUntil(std::unique_lock<std::mutex>& lock, unsigned timeoutMs, Ready ready) {
    if (ready()) return true;
    ++sleepers;
    bool readyNow = true;
    if (timeoutMs == Event::kInfinite)
        eventSignal().wait(lock, ready);
    else
        readyNow = eventSignal().wait_for(lock, std::chrono::milliseconds(timeoutMs), ready);
    --sleepers;
    return readyNow;
}
}  // namespace

Event::Event(bool manualReset, bool initiallySet) : manualReset_(manualReset), set_(initiallySet) {}

void Event::set() {
    bool wake;
    {
        std::lock_guard<std::mutex> lock(eventLock());
        wake = !set_.exchange(true, std::memory_order_relaxed) && sleepers > 0;
    }
    if (wake) eventSignal().notify_all();
}

void Event::reset() {
    std::lock_guard<std::mutex> lock(eventLock());
    set_.store(false, std::memory_order_relaxed);
}

bool Event::isSet() const {
    std::lock_guard<std::mutex> lock(eventLock());
    return set_.load(std::memory_order_relaxed);
}

bool Event::tryTake() {
    if (!set_.load(std::memory_order_relaxed)) return false;
    if (!manualReset_) set_.store(false, std::memory_order_relaxed);
    return true;
}

bool Event::spinForAny(Event* const* events, int count) {
    for (int round = 0; round < 2000; ++round) {
        for (int i = 0; i < count; ++i)
            if (events[i] && events[i]->set_.load(std::memory_order_relaxed)) return true;
        __builtin_ia32_pause();
    }
    return false;
}

bool Event::wait(unsigned timeoutMs) {
    Event* const self = this;
    if (timeoutMs != 0) spinForAny(&self, 1);
    std::unique_lock<std::mutex> lock(eventLock());
    return waitUntil(lock, timeoutMs, [this] { return tryTake(); });
}

int Event::waitForAny(Event* const* events, int count, unsigned timeoutMs) {
    int taken = -1;
    auto anyTaken = [&] {
        for (int i = 0; i < count; ++i) {
            if (events[i] && events[i]->tryTake()) {
                taken = i;
                return true;
            }
        }
        return false;
    };
    if (timeoutMs != 0) spinForAny(events, count);
    std::unique_lock<std::mutex> lock(eventLock());
    waitUntil(lock, timeoutMs, anyTaken);
    return taken;
}

// --- Thread ---------------------------------------------------------------------------------------------

Thread::~Thread() {
    join();
}

// Applies name, priority and affinity to the calling thread; each is best effort.
static void configureCurrentThread(const std::string& name, Thread::Priority priority,
                                   uint64_t affinityMask) {
    pthread_setname_np(pthread_self(), name.substr(0, 15).c_str());
    if (priority != Thread::Normal) {
        // Linux threads take a nice value of their own; lowering priority always works, raising it
        // needs privileges and is skipped when refused.
        const pid_t tid = pid_t(::syscall(SYS_gettid));
        ::setpriority(PRIO_PROCESS, id_t(tid), -5 * int(priority));
    }
    if (affinityMask) {
        cpu_set_t set;
        CPU_ZERO(&set);
        for (int cpu = 0; cpu < 64 && cpu < CPU_SETSIZE; ++cpu)
            if (affinityMask & (uint64_t(1) << cpu)) CPU_SET(cpu, &set);
        pthread_setaffinity_np(pthread_self(), sizeof(set), &set);
    }
}

bool Thread::start(const std::string& name, std::function<void()> body, Priority priority,
                   uint64_t affinityMask) {
    if (!body) return false;
    return start(
        name, [](void* b) { return (*static_cast<std::function<void()>*>(b))(), 0; },
        new std::function<void()>(std::move(body)), priority, affinityMask, true);
}

bool Thread::start(const std::string& name, int (*procedure)(void*), void* argument, Priority priority,
                   uint64_t affinityMask) {
    return start(name, procedure, argument, priority, affinityMask, false);
}

// `ownsArgument`: the argument is a heap body that the thread deletes when it has run.
bool Thread::start(const std::string& name, int (*procedure)(void*), void* argument, Priority priority,
                   uint64_t affinityMask, bool ownsArgument) {
    auto release = [&] {
        if (ownsArgument) delete static_cast<std::function<void()>*>(argument);
    };
    if (thread_.joinable() || !procedure) {
        release();
        return false;
    }
    auto exitCode = std::make_shared<std::atomic<int>>(-1);
    try {
        thread_ = std::thread([=] {
            configureCurrentThread(name, priority, affinityMask);
            const int code = procedure(argument);
            if (ownsArgument) delete static_cast<std::function<void()>*>(argument);
            exitCode->store(code);
        });
    } catch (const std::system_error&) {
        release();
        return false;
    }
    // Named here as well, so that the name is visible to the system as soon as start() returns.
    pthread_setname_np(thread_.native_handle(), name.substr(0, 15).c_str());
    exitCode_ = std::move(exitCode);
    return true;
}

void Thread::join() {
    if (thread_.joinable() && thread_.get_id() != std::this_thread::get_id()) thread_.join();
}

void Thread::detach() {
    if (thread_.joinable()) thread_.detach();
}

SharedObject::~SharedObject() = default;

}  // namespace Qv
