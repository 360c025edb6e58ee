#include <ole/platform/Threads.h>

#include <chrono>
#include <linux/futex.h>
#include <linux/membarrier.h>
#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Qv {

// --- CriticalSection ------------------------------------------------------------------------------------
// The lock word is 0 free, 1 held. A thread that finds it held looks again after growing pauses (looking
// often would keep pulling the line from the holder, who writes it when it leaves), a couple of hundred
// pauses in all; then it counts itself in `sleepers_`, forces a barrier on every running thread of the
// process and sleeps on the word while it reads 1. The holder leaves with a store of 0 followed by a read
// of `sleepers_`: the forced barrier falls either before the store, and the sleeper sees the word free, or
// after it, and the holder's read sees the sleeper. Either way no wake-up is lost.

namespace {

// Registers the process for expedited barriers once; false where the kernel refuses them.
bool processBarrierAvailable() {
    static const bool available =
        ::syscall(SYS_membarrier, MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED, 0, 0) == 0;
    return available;
}

}  // namespace

void CriticalSection::enterContended() {
    for (int spin = 0, wait = 1; spin < 200; spin += wait, wait = wait < 32 ? 2 * wait : wait) {
        for (int i = 0; i < wait; ++i) __builtin_ia32_pause();
        int expected = kFree;
        if (state_.load(std::memory_order_relaxed) == kFree &&
            state_.compare_exchange_weak(expected, kHeld, std::memory_order_acquire,
                                         std::memory_order_relaxed))
            return;
    }
    sleepers_.fetch_add(1);
    const bool barrier =
        processBarrierAvailable() && ::syscall(SYS_membarrier, MEMBARRIER_CMD_PRIVATE_EXPEDITED, 0, 0) == 0;
    const timespec millisecond{0, 1000000};
    for (int expected = kFree; !state_.compare_exchange_strong(expected, kHeld, std::memory_order_acquire,
                                                               std::memory_order_relaxed);
         expected = kFree)
        ::syscall(SYS_futex, reinterpret_cast<int*>(&state_), FUTEX_WAIT_PRIVATE, kHeld,
                  barrier ? nullptr : &millisecond, nullptr, 0);
    sleepers_.fetch_sub(1);
}

void CriticalSection::wakeOne() {
    ::syscall(SYS_futex, reinterpret_cast<int*>(&state_), FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

// --- Mutex ----------------------------------------------------------------------------------------------

bool Mutex::lock(unsigned timeoutMs) {
    if (timeoutMs == kInfinite) {
        mutex_.lock();
        return true;
    }
    return mutex_.try_lock_for(std::chrono::milliseconds(timeoutMs));
}

// --- Event ----------------------------------------------------------------------------------------------
// An event is one atomic flag. Setting and taking it are plain atomic operations; only a waiter that has
// to sleep uses the lock and condition variable that all events share, which keeps waiting for any of
// several events as simple as waiting for one. A sleeper announces itself in `sleepers` before it looks
// at the flags a last time, and a set looks at `sleepers` after it has set its flag: one of the two sees
// the other, so no wake-up is lost, and a set that finds nobody asleep makes no system call. A waiter
// also looks for a set event for a few microseconds before it sleeps, so a worker fed in quick
// succession never pays for going to sleep and being woken.

namespace {
std::mutex& eventLock() {
    static std::mutex lock;
    return lock;
}
std::condition_variable& eventSignal() {
    static std::condition_variable signal;
    return signal;
}
std::atomic<int> sleepers{0};  // waiters on the shared condition; changed under eventLock()

// Waits on the shared condition until `ready` holds or the time-out passes; returns `ready`'s last answer.
template <class Ready>
bool waitUntil(unsigned timeoutMs, Ready ready) {
    std::unique_lock<std::mutex> lock(eventLock());
    sleepers.fetch_add(1);
    bool readyNow = true;
    if (timeoutMs == Event::kInfinite)
        eventSignal().wait(lock, ready);
    else
        readyNow = eventSignal().wait_for(lock, std::chrono::milliseconds(timeoutMs), ready);
    sleepers.fetch_sub(1);
    return readyNow;
}
}  // namespace

Event::Event(bool manualReset, bool initiallySet) : manualReset_(manualReset), set_(initiallySet) {}

void Event::set() {
    // Already set: whoever set it has woken the sleepers. The exchange writes even then, so that the
    // taker, reading what it wrote, sees everything this thread did before it set the event.
    if (set_.exchange(true) || sleepers.load() == 0) return;
    { std::lock_guard<std::mutex> lock(eventLock()); }  // a sleeper seen above is now waiting
    eventSignal().notify_all();
}

void Event::reset() {
    set_.store(false);
}

bool Event::isSet() const {
    return set_.load();
}

bool Event::tryTake() {
    if (!set_.load()) return false;
    return manualReset_ || set_.exchange(false);
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
    return waitForAny(&self, 1, timeoutMs) == 0;
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
    while (timeoutMs != 0 && !anyTaken() && spinForAny(events, count)) {
    }
    if (taken < 0) waitUntil(timeoutMs, anyTaken);
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
