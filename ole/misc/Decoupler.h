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
#include <new>
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

/// The order of a queue's items, whatever they carry. A prioritised list keeps its items in runs sorted by
/// priority and arrival, so the most and the least urgent item are both at hand: an insert is O(1), and the
/// first look at either end after some inserts sorts them into the runs, O(log n) amortised per item; never
/// a walk over the items, whatever the queue's length. A list that is not prioritised is a linked list in
/// arrival order. Not thread-safe.
class OLE_API PriorityList {
public:
    explicit PriorityList(bool prioritised);
    ~PriorityList();
    PriorityList(const PriorityList&) = delete;
    PriorityList& operator=(const PriorityList&) = delete;

    void insert(QueueLink* link);
    /// The first or last item, or null when empty.
    QueueLink* first();
    QueueLink* last();
    /// Unlink and return the first or last item; null when empty.
    QueueLink* takeFirst();
    QueueLink* takeLast();
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

/// A bounded ring that any thread may post values to and one thread at a time takes them from, in the order
/// the posts claimed their slots. A post claims a slot with a compare-and-swap on the write position, moves
/// its value in and publishes the slot by storing its sequence number. The taker only reads the slots: it
/// tells the posting side how far it has taken through a count on a line of its own, which posts read
/// only when their copy of it says the ring is full. So a slot's line moves from the poster to the taker
/// and back only as a fresh copy, and a stream of posts costs the taker about one line per two values,
/// with no allocation on either side.
///
/// A thread that posts and then looks at a flag, and a taker that clears the flag (with a
/// read-modify-write) and then takes with `waitForClaimed`, cannot both miss each other: the claim is a
/// sequentially consistent read-modify-write, and the taker waits for every claimed slot.
template <class T, uint32_t N>
class PostRing {
    static_assert((N & (N - 1)) == 0, "the ring's size is a power of two");

public:
    PostRing() : slots_(new Slot[N]), postTo_(slots_.get()), takeFrom_(slots_.get()) {
        for (uint32_t i = 0; i < N; ++i) slots_[i].seq.store(0, std::memory_order_relaxed);
    }
    /// Destroys the values still posted; no post may be under way.
    ~PostRing() {
        takeAll([](T&&, uint32_t) {}, false);
    }
    PostRing(const PostRing&) = delete;
    PostRing& operator=(const PostRing&) = delete;

    /// Moves `value` with its tag into the ring; false, with `value` left as it was, when the ring is full.
    bool post(T& value, uint32_t tag) noexcept {
        static_assert(std::is_nothrow_move_constructible_v<T>, "a claimed slot is always published");
        uint32_t pos = write_.load(std::memory_order_relaxed);
        do {
            if (pos - freedSeen_.load(std::memory_order_acquire) >= N) {  // full, as far as posts know
                const uint32_t freed = freed_.load(std::memory_order_acquire);
                freedSeen_.store(freed, std::memory_order_release);
                if (pos - freed >= N) return false;
            }
        } while (!write_.compare_exchange_weak(pos, pos + 1, std::memory_order_seq_cst,
                                               std::memory_order_relaxed));
        Slot& slot = postTo_[pos & (N - 1)];
        new (slot.value) T(std::move(value));
        slot.tag = tag;
        slot.seq.store(pos + 1, std::memory_order_release);
        return true;
    }

    /// Hands each value posted so far to `f(T&&, tag)`, oldest first. It stops at a slot that is claimed
    /// and not yet published unless `waitForClaimed`, when it waits for that post to finish: a value
    /// posted afterwards, by a thread that saw the earlier post, must not overtake it. Only one thread at
    /// a time may take.
    template <class F>
    void takeAll(F&& f, bool waitForClaimed) {
        for (;;) {
            Slot& slot = takeFrom_[read_ & (N - 1)];
            if (slot.seq.load(std::memory_order_acquire) != read_ + 1) {
                if (!waitForClaimed || write_.load(std::memory_order_seq_cst) == read_) break;
                __builtin_ia32_pause();
                continue;
            }
            __builtin_prefetch(&takeFrom_[(read_ + 4) & (N - 1)]);  // two lines ahead
            T* value = std::launder(reinterpret_cast<T*>(slot.value));
            T taken(std::move(*value));
            value->~T();
            const uint32_t tag = slot.tag;
            freed_.store(++read_, std::memory_order_release);
            f(std::move(taken), tag);
        }
    }

private:
    struct alignas(32) Slot {
        std::atomic<uint32_t> seq;  // the position it was posted at, plus one
        uint32_t tag;
        alignas(T) unsigned char value[sizeof(T)];
    };

    // Each side keeps what it reads most beside what it writes, on a line of its own.
    const std::unique_ptr<Slot[]> slots_;
    alignas(64) Slot* const postTo_;
    std::atomic<uint32_t> write_{0};      ///< the next slot to claim
    std::atomic<uint32_t> freedSeen_{0};  ///< the last count of freed slots a post read
    alignas(64) Slot* const takeFrom_;
    uint32_t read_ = 0;               ///< the next slot to take; guarded by the taker
    std::atomic<uint32_t> freed_{0};  ///< slots below it are taken; written by the taker
};

}  // namespace detail

// ---- queue ----------------------------------------------------------------------------------------------

/// A queue of commands in priority order (or arrival order), executed on demand by its owner. A queue starts
/// a cache line, which holds its lock and its list: a thread that takes the lock has the list with it. An
/// operation that runs several commands lets go of them in batches of up to 64, with the lock released,
/// and of the last ones before it returns.
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
    /// For a subclass that queues items elsewhere (see WorkerThreadQueue): absorbPosted() then runs under
    /// the lock before every look at the list and moves them into it with adopt(). An item queued before
    /// an operation begins is therefore part of it, as if inserted, unless an insert that began earlier
    /// is still under way at the look; a look that finds the list empty waits for such inserts
    /// (`waitForClaimed`), so an operation that runs the queue dry never leaves one behind.
    Queue(bool prioritised, bool absorbs) : list_(prioritised), absorbs_(absorbs) {}
    virtual void absorbPosted(bool waitForClaimed) { (void)waitForClaimed; }
    /// Adds a command to the list; only from absorbPosted() or inside underLock().
    void adopt(Command&& command, unsigned priority) {
        std::unique_ptr<Item> item(new Item(std::move(command), priority));
        list_.insert(item.get());
        item.release();
    }
    /// Runs `f` holding the queue's lock, with the recursion check.
    template <class F>
    void underLock(F&& f) {
        Hold hold(*this);
        f();
    }

private:
    using Hold = typename detail::QueueLocking<TS>::Hold;
    enum End { kFront, kBack };

    void link(Item* item) {
        std::unique_ptr<Item> owned(item);  // freed if the lock or the list throws
        Hold hold(*this);
        items().insert(item);
        owned.release();
    }

    /// The list, with whatever was posted moved into it first; only under the lock.
    PriorityList& items() {
        if (absorbs_) absorbPosted(false);
        return list_;
    }

    template <class F>
    static void withDefault(F&& f) {
        Ctx context{};
        f(context);
    }

    /// The item at `end`. A look that finds the list empty waits for posts still being made, so that an
    /// operation never ends with a post missed; other looks take what has been posted so far.
    QueueLink* look(End end) {
        QueueLink* link = end == kFront ? items().first() : items().last();
        if (link || !absorbs_) return link;
        absorbPosted(true);
        return end == kFront ? list_.first() : list_.last();
    }

    /// Commands a drain has run, dropped a batch at a time with the lock released. A command queued again
    /// and again by another thread would otherwise have its count touched by both threads at every turn.
    class Executed {
    public:
        Executed() = default;
        Executed(const Executed&) = delete;
        Executed& operator=(const Executed&) = delete;
        ~Executed() { dropAll(); }

        void keep(Command&& command) {
            if (count_ == kBatch) dropAll();
            ::new (held_ + count_++ * sizeof(Command)) Command(std::move(command));
        }
        void dropAll() noexcept {
            while (count_)
                std::launder(reinterpret_cast<Command*>(held_ + --count_ * sizeof(Command)))->~Command();
        }

    private:
        static constexpr unsigned kBatch = 64;
        alignas(Command) unsigned char held_[kBatch * sizeof(Command)];  // made only as commands are kept
        unsigned count_ = 0;
    };

    /// Takes items from `end` while `qualifies` holds and runs each with the lock released. The commands
    /// that ran are dropped before it returns, never under the lock.
    template <class Qualifies>
    void runWhile(Hold& hold, Ctx& context, End end, Qualifies qualifies, bool once = false) {
        Executed executed;
        for (;;) {
            QueueLink* link = look(end);
            if (!link || !qualifies(link)) return hold.release();
            end == kFront ? list_.takeFirst() : list_.takeLast();
            Item* item = static_cast<Item*>(link);
            Command command(std::move(item->command));
            delete item;
            hold.release();
            command.execute(context);
            if (once) return;
            executed.keep(std::move(command));
            hold.acquire();
        }
    }

    PriorityList list_;  ///< guarded by the queue's lock (ThreadSafe)
    const bool absorbs_ = false;
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
        : Queue<TS, NoCtx>(prioritised, true), prototype_(this), init_(init), exit_(exit) {
        (void)unused;
        startThread(name, priority);
    }
    ~WorkerThreadQueue() override { stopThread(); }

    /// Queues `command` to run on the worker with `context`; ignored once destruction has begun. The pair
    /// goes into a ring without taking the queue's lock, and the worker wraps it in its command and moves
    /// it into the queue before it next looks there, so the producer neither waits for the worker nor
    /// allocates. When the ring is full (or the context's move may throw) the pair goes into the queue under
    /// the lock, behind everything posted before it.
    void insert(const Command& command, unsigned priority, const Ctx& context = Ctx()) {
        if (stopping()) return;
        Pair pair{command, context};
        bool posted = false;
        if constexpr (std::is_nothrow_move_constructible_v<Pair>) posted = posted_.post(pair, priority);
        if (!posted) {
            this->underLock([&] {
                posted_.takeAll(adoptPosted(), true);
                adoptPosted()(std::move(pair), priority);
            });
        }
        wake();
    }

private:
    static constexpr uint32_t kRingSize = 512;

    auto adoptPosted() {
        return [this](Pair&& pair, unsigned priority) {
            __builtin_prefetch(pair.command.getRep());  // read when it runs; here it is on its way
            this->adopt(prototype_.withParam(std::move(pair)), priority);
        };
    }
    // The worker's last look of a pass waits for claimed slots: the insert that claimed one may have seen
    // the wake event still set, and will not set it again.
    void absorbPosted(bool waitForClaimed) override { posted_.takeAll(adoptPosted(), waitForClaimed); }

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
    detail::PostRing<Pair, kRingSize> posted_;  ///< posted by any thread, taken under the queue's lock
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
