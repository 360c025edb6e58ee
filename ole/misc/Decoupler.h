#pragma once

/// @file
/// Command processors: queues of commands waiting to be executed, a worker thread that drains its own
/// queue, and the dispatcher of I/O completions.
///
/// Queue holds command handles with unsigned priorities, a smaller number being more urgent. A prioritised
/// queue keeps its items ascending by priority, equal priorities in arrival order; otherwise items stay in
/// arrival order. Executing takes the item out of the queue first and then runs it, so a command may insert
/// into, or execute from, the queue that runs it; an exception from a command reaches the caller of the
/// execute operation with the item already gone. Operations that stop at a priority stop at the first item
/// that does not qualify, whatever lies behind it.
///
/// Queue<ThreadSafe> guards each operation with a recursive critical section that is never held while a
/// command runs. Touching the queue from code that runs inside one of its own list operations (a command's
/// destructor run by a flush) prints the assertion line and throws Qv::Exception::RuntimeError.
/// Queue<NoLocking> takes no lock and belongs to one thread at a time.
///
/// WorkerThreadQueue runs an init command on a thread of its own, then executes whatever is inserted, from
/// any thread, in queue order. Destroying it drains what is queued (waiting at most 5 s for the thread) and
/// refuses inserts meanwhile; an exception from a command is logged and the worker carries on. Inserting
/// from other threads needs the ThreadSafe policy: under NoLocking the queue the worker drains is unguarded.
///
/// CompletionPortHandler owns a completion port and one waiter thread per processor (at most four); each
/// completion of an attached file's reads and writes is handed to the callback on one of those threads.

#include <ole/platform/export.h>
#include <ole/platform/CompletionPort.h>
#include <ole/platform/Threads.h>
#include <ole/Qv/Command.h>
#include <ole/Qv/Ptr.h>
#include <ole/Qv/QvPooledObject.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

namespace QvCmdProcessors {

using QvDC::NoCtx;
using QvDC::ThreadSafetyTraits::NoLocking;
using QvDC::ThreadSafetyTraits::ThreadSafe;

// ---- ordering -------------------------------------------------------------------------------------------

/// The links every queue item carries.
struct QueueLink {
    QueueLink* prev = nullptr;
    QueueLink* next = nullptr;
    unsigned priority = 0;
};

/// The order of a queue's items, whatever they carry. A prioritised list keeps runs of items of one
/// priority in arrival order, and the runs in a min-max heap keyed by priority and arrival, so the most and
/// the least urgent item are both at hand. An item joins the latest run of its priority in O(1) when that
/// run is remembered; otherwise it starts a run, in O(log r) for r runs waiting: never a walk over the
/// items, whatever the queue's length. Runs are numbered from `firstArrival` (tests start near the end,
/// kArrivals); when the numbers run out, the waiting runs are numbered again in their order. A list that is
/// not prioritised is a linked list in arrival order. Not thread-safe.
class OLE_API PriorityList {
public:
    /// Runs are numbered below kArrivals.
    static constexpr uint32_t kArrivals = uint32_t(1) << 31;

    explicit PriorityList(bool prioritised, uint32_t firstArrival = 0);
    ~PriorityList();
    PriorityList(const PriorityList&) = delete;
    PriorityList& operator=(const PriorityList&) = delete;

    void insert(QueueLink* link);
    /// The first or last item, or null when empty.
    QueueLink* first() noexcept;
    QueueLink* last() noexcept;
    /// Unlink and return the first or last item; null when empty.
    QueueLink* takeFirst() noexcept;
    QueueLink* takeLast() noexcept;
    unsigned size() const noexcept { return count_; }

private:
    struct Runs;
    QueueLink* head_ = nullptr;  ///< arrival order, when not prioritised
    QueueLink* tail_ = nullptr;
    unsigned count_ = 0;
    Runs* runs_;  ///< null when not prioritised
};

/// One queued command with its priority; nodes come from the per-type pool.
template <class Ctx, class TS>
struct QueueItem : QueueLink, QvPooledObject<QueueItem<Ctx, TS>> {
    explicit QueueItem(const QvDC::Cmd<Ctx, TS>& c, unsigned p) : command(c) { priority = p; }
    explicit QueueItem(QvDC::Cmd<Ctx, TS>&& c, unsigned p) : command(std::move(c)) { priority = p; }

    /// Orders items by descending priority.
    struct priority_greater {
        bool operator()(const QueueItem& a, const QueueItem& b) const noexcept {
            return a.priority > b.priority;
        }
    };

    QvDC::Cmd<Ctx, TS> command;
};

// ---- locking --------------------------------------------------------------------------------------------

/// Prints the assertion line, leaves `cs` and throws the runtime error for recursive access.
[[noreturn]] OLE_API void recursiveAccess(Qv::CriticalSection& cs);

namespace detail {

template <class TS>
class QueueLocking;

template <>
class QueueLocking<NoLocking> {
protected:
    struct Hold {
        explicit Hold(const QueueLocking&) noexcept {}
        void release() noexcept {}
        void acquire() noexcept {}
    };
};

template <>
class QueueLocking<ThreadSafe> {
protected:
    /// Holds the queue's lock for its list work: entered (with the recursion check) on construction, left
    /// on destruction; release() and acquire() let a command run unlocked in between.
    class Hold {
    public:
        explicit Hold(const QueueLocking& q) : q_(const_cast<QueueLocking&>(q)) { acquire(); }
        ~Hold() { release(); }
        Hold(const Hold&) = delete;
        Hold& operator=(const Hold&) = delete;

        void acquire() {
            q_.cs_.enter();
            if (q_.forbidRecursion_ && q_.insideLock_) recursiveAccess(q_.cs_);
            q_.insideLock_ = true;
            held_ = true;
        }
        void release() noexcept {
            if (!held_) return;
            held_ = false;
            q_.insideLock_ = false;
            q_.cs_.leave();
        }

    private:
        QueueLocking& q_;
        bool held_ = false;
    };

private:
    Qv::CriticalSection cs_;
    bool forbidRecursion_ = true;  ///< guarded by cs_
    bool insideLock_ = false;      ///< guarded by cs_
};

}  // namespace detail

// ---- queue ----------------------------------------------------------------------------------------------

/// A queue of commands in priority order (or arrival order), executed on demand by its owner. A queue starts
/// a cache line, which holds its lock and its list: a thread that takes the lock has the list with it.
/// Items posted without the lock (see post()) wait on a line of their own until the next operation under
/// the lock moves them into the list.
template <class TS = NoLocking, class Ctx = NoCtx>
class alignas(64) Queue : private detail::QueueLocking<TS> {
public:
    using Command = QvDC::Cmd<Ctx, TS>;
    using Item = QueueItem<Ctx, TS>;

    explicit Queue(bool prioritised = true) : list_(prioritised) {}
    Queue(const Queue&) = delete;
    Queue& operator=(const Queue&) = delete;
    /// Destroys the items still queued without executing them.
    virtual ~Queue() {
        while (QueueLink* link = items().takeFirst()) delete static_cast<Item*>(link);
    }

    void insert(const Command& command, unsigned priority) { link(new Item(command, priority)); }
    /// The same, taking over the caller's handle.
    void insert(Command&& command, unsigned priority) { link(new Item(std::move(command), priority)); }

    bool isEmpty() const { return size() == 0; }
    unsigned size() const {
        Hold hold(*this);
        return const_cast<Queue*>(this)->items().size();
    }

    void executeHead() {
        withDefault([this](Ctx& c) { executeHead(c); });
    }
    void executeHead(Ctx& context) {
        Hold hold(*this);
        runWhile(
            hold, context, kFront, [](const QueueLink*) { return true; }, true);
    }
    /// Until the queue is empty, including what the commands insert meanwhile.
    void executeAll() {
        withDefault([this](Ctx& c) { executeAll(c); });
    }
    void executeAll(Ctx& context) {
        Hold hold(*this);
        runWhile(hold, context, kFront, [](const QueueLink*) { return true; });
    }
    /// From the front while the priority is at most `p`.
    void executePriorityAtLeast(unsigned p) {
        withDefault([=](Ctx& c) { executePriorityAtLeast(p, c); });
    }
    void executePriorityAtLeast(unsigned p, Ctx& context) {
        Hold hold(*this);
        runWhile(hold, context, kFront, [p](const QueueLink* l) { return l->priority <= p; });
    }
    /// From the back (least urgent first) while the priority is greater than `p`.
    void executePriorityLessThan(unsigned p) {
        withDefault([=](Ctx& c) { executePriorityLessThan(p, c); });
    }
    void executePriorityLessThan(unsigned p, Ctx& context) {
        Hold hold(*this);
        runWhile(hold, context, kBack, [p](const QueueLink* l) { return l->priority > p; });
    }

    void flushAll() {
        Hold hold(*this);
        while (QueueLink* link = items().takeFirst()) delete static_cast<Item*>(link);
    }
    void flushHead() {
        Hold hold(*this);
        delete static_cast<Item*>(items().takeFirst());
    }
    void flushPriorityAtLeast(unsigned p) {
        Hold hold(*this);
        while (items().first() && list_.first()->priority <= p) delete static_cast<Item*>(list_.takeFirst());
    }
    void flushPriorityLessThan(unsigned p) {
        Hold hold(*this);
        while (items().last() && list_.last()->priority > p) delete static_cast<Item*>(list_.takeLast());
    }

protected:
    /// Queues `command` like insert() but, under ThreadSafe, without taking the lock: the item is pushed on
    /// a lock-free intake stack that the next operation under the lock moves into the list, oldest first,
    /// before it looks at the list. An item posted before an operation begins is therefore part of it, as
    /// if inserted. This is for a producer feeding a consumer that works through the list: the producer
    /// never waits for the consumer's lock, and the lock's line stays with the consumer. There is no
    /// recursion check, so it is only for queues whose list work runs no code of the caller's.
    void post(Command&& command, unsigned priority) {
        Item* item = new Item(std::move(command), priority);
        if constexpr (std::is_same_v<TS, ThreadSafe>) {
            QueueLink* top = intake_.load(std::memory_order_relaxed);
            do item->next = top;
            while (!intake_.compare_exchange_weak(top, item, std::memory_order_seq_cst,
                                                  std::memory_order_relaxed));
        } else {
            link(item);
        }
    }

private:
    using Hold = typename detail::QueueLocking<TS>::Hold;
    enum End { kFront, kBack };

    void link(Item* item) {
        Hold hold(*this);
        items().insert(item);
    }

    /// The list, with whatever was posted moved into it first; only under the lock.
    PriorityList& items() noexcept {
        if (intake_.load(std::memory_order_seq_cst)) absorb();
        return list_;
    }
    void absorb() noexcept {
        QueueLink* newest = intake_.exchange(nullptr, std::memory_order_seq_cst);
        QueueLink* oldest = nullptr;
        while (newest) {  // the stack holds the newest first: turn it round
            QueueLink* next = newest->next;
            // Each command's representation was written by the producer: fetch it now, alongside the walk,
            // rather than one at a time as the commands run.
            __builtin_prefetch(static_cast<Item*>(newest)->command.getRep(), 1);
            newest->next = oldest;
            oldest = newest;
            newest = next;
        }
        while (oldest) {
            QueueLink* next = oldest->next;
            list_.insert(oldest);
            oldest = next;
        }
    }

    template <class F>
    static void withDefault(F&& f) {
        Ctx context{};
        f(context);
    }

    /// Takes items from `end` while `qualifies` holds and runs each with the lock released.
    template <class Qualifies>
    void runWhile(Hold& hold, Ctx& context, End end, Qualifies qualifies, bool once = false) {
        for (;;) {
            QueueLink* link = end == kFront ? items().first() : items().last();
            if (!link || !qualifies(link)) return;
            end == kFront ? list_.takeFirst() : list_.takeLast();
            Item* item = static_cast<Item*>(link);
            Command command(std::move(item->command));
            delete item;
            hold.release();
            command.execute(context);
            if (once) return;
            command = Command();
            hold.acquire();
        }
    }

    PriorityList list_;  ///< guarded by the queue's lock (ThreadSafe)
    /// Items posted and not yet in the list, newest first; pushed by any thread, emptied under the lock.
    alignas(64) std::atomic<QueueLink*> intake_{nullptr};
};

// ---- worker thread --------------------------------------------------------------------------------------

/// A command and the context to run it with.
template <class TS = ThreadSafe, class Ctx = NoCtx>
struct CommandContextPair {
    QvDC::Cmd<Ctx, TS> command;
    Ctx context{};
};

/// The life of a worker thread, apart from what it executes.
class OLE_API WorkerThread {
public:
    enum State { kStarting = 0, kRunning = 1, kFinished = 2, kInitFailed = 3 };

    /// Waits while the thread is starting; true when its init command succeeded and it has not finished.
    bool threadRunning() const;
    int threadState() const noexcept { return state_.load(); }
    /// The thread's exit code once it has ended (999 after a failed init), -1 before.
    int threadExitCode() const;

protected:
    WorkerThread();
    virtual ~WorkerThread();

    void startThread(const char* name, iThread::ePriority priority);
    /// Refuses further work, asks the thread to finish and waits up to 5 s for it.
    void stopThread();
    /// Wakes the worker for what was just queued. An event that is still set has not been taken yet: the
    /// worker's next pass, which looks at the queue after taking it, will find the new item.
    void wake() {
        if (!wake_->isSet()) wake_->set();
    }
    bool stopping() const noexcept { return stopping_.load(std::memory_order_relaxed); }

    virtual bool runInit() = 0;
    virtual void drain() = 0;
    virtual void runExit() = 0;

private:
    static int threadProcedure(void* self);
    int run();
    void drainLogged();

    Qv::Ptr<iMutex> mutex_;  ///< held by the worker during each pass
    Qv::Ptr<iEvent> wake_, quit_, finished_;
    Qv::Ptr<iThread> thread_;
    std::atomic<bool> stopping_{false};
    std::atomic<int> state_{kStarting};
};

/// A queue drained in priority order by a worker thread of its own, from start to an orderly shutdown.
template <class TS = ThreadSafe, class Ctx = NoCtx>
class WorkerThreadQueue
    : private Queue<TS, NoCtx>,
      private QvDC::Receiver<QvDC::ParamCmd<CommandContextPair<TS, Ctx>, QvDC::NoTag, NoCtx,
                                            const CommandContextPair<TS, Ctx>&, TS>>,
      public WorkerThread {
public:
    using Command = QvDC::Cmd<Ctx, TS>;
    using Pair = CommandContextPair<TS, Ctx>;
    using Job = QvDC::ParamCmd<Pair, QvDC::NoTag, NoCtx, const Pair&, TS>;

    /// `unused` is accepted for callers that pass it. Use NullCommand for no init or exit work: an
    /// uninitialised init command fails the start.
    WorkerThreadQueue(const char* name, const Command& init, const Command& exit,
                      iThread::ePriority priority = iThread::Normal, int unused = 0, bool prioritised = true)
        : Queue<TS, NoCtx>(prioritised), prototype_(this), init_(init), exit_(exit) {
        (void)unused;
        startThread(name, priority);
    }
    ~WorkerThreadQueue() override { stopThread(); }

    /// Queues `command` to run on the worker with `context`; ignored once destruction has begun.
    void insert(const Command& command, unsigned priority, const Ctx& context = Ctx()) {
        if (stopping()) return;
        Queue<TS, NoCtx>::post(prototype_.withParam(Pair{command, context}), priority);
        wake();
    }

private:
    bool executeCommand(Job& job, NoCtx&) override {
        const Pair& pair = job.param();
        Ctx context = pair.context;
        return pair.command.execute(context);
    }
    bool runInit() override {
        Ctx context{};
        return init_.execute(context);
    }
    void drain() override { Queue<TS, NoCtx>::executeAll(); }
    void runExit() override {
        Ctx context{};
        exit_.execute(context);
    }

    const Job prototype_;
    const Command init_;
    const Command exit_;
};

// ---- completion port ------------------------------------------------------------------------------------

/// What a completion-port callback receives: the completion key, the bytes moved and whether the I/O
/// succeeded.
class OLE_API CompletionPortHandlerCallbackContext {
public:
    CompletionPortHandlerCallbackContext(uint64_t key = 0, uint32_t bytes = 0, bool ok = false) noexcept
        : key_(key), bytes_(bytes), ok_(ok) {}

    uint64_t context() const noexcept { return key_; }
    uint32_t bytesProcessed() const noexcept { return bytes_; }
    bool succeeded() const noexcept { return ok_; }

private:
    uint64_t key_;
    uint32_t bytes_;
    bool ok_;
};

}  // namespace QvCmdProcessors

using QvCmdProcessors::CompletionPortHandlerCallbackContext;

/// Threads that wait on an I/O completion port and hand each completion to a callback command.
class OLE_API CompletionPortHandler {
public:
    using Callback = QvDC::Cmd<CompletionPortHandlerCallbackContext, QvDC::ThreadSafetyTraits::ThreadSafe>;
    static constexpr int kNoThread = -999;

    /// Starts one waiter per processor (at most four): the first two with their own priorities, the rest
    /// with `otherPriority`; a single processor gets one waiter with `singlePriority`.
    CompletionPortHandler(const char* name, Callback& callback, int singlePriority, int firstPriority,
                          int secondPriority, int otherPriority);
    /// Ends every waiter (each takes one quit completion) and waits for them.
    ~CompletionPortHandler();
    CompletionPortHandler(const CompletionPortHandler&) = delete;
    CompletionPortHandler& operator=(const CompletionPortHandler&) = delete;

    /// Associates the file with the port: its asynchronous reads and writes complete to the callback.
    bool attach(Qv::Ptr<iFile> file);
    /// Starts a waiter pinned to `processor` (1-based); nothing for priority kNoThread.
    void createThread(int priority, int processor);
    /// Queues a completion of the caller's own; status 2 ends one waiter.
    bool post(int32_t status, uint32_t bytes, uint64_t key);

    unsigned threadCount() const { return unsigned(threads_.size()); }
    bool usesUring() const { return port_->usesUring(); }

private:
    static int waiterProcedure(void* self);

    std::string name_;
    Callback callback_;
    std::unique_ptr<Qv::CompletionPort> port_;
    std::vector<Qv::Ptr<iThread>> threads_;
};
