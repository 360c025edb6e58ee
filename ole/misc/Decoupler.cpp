#include <ole/misc/Decoupler.h>

#include <ole/platform/Assert.h>
#include <ole/platform/Exception.h>
#include <ole/platform/OS.h>
#include <ole/runtime/Log.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <new>
#include <vector>

namespace QvCmdProcessors {

// ---- PriorityList ---------------------------------------------------------------------------------------

namespace {

// Levels of the heap below: the root's level is 0; even levels hold minima of their subtrees, odd maxima.
bool onMinLevel(std::size_t i) noexcept {
    return ((63 - __builtin_clzll(i)) & 1) == 0;
}

template <bool kMin>
bool before(uint64_t a, uint64_t b) noexcept {
    return kMin ? a < b : a > b;
}

}  // namespace

// The order of a prioritised list. Items of one priority that arrive while their priority's latest run is
// remembered join that run, a linked list in arrival order. A small direct-mapped table remembers a run of
// a priority with its last item for as long as the run waits, if the slot was free when the run began: a
// priority that is not found there starts a new run even if an older run of it waits, which keeps the
// order exact because every item of the older run arrived before the new run began. A run that is not
// remembered keeps its last item in its first item's `prev`. The runs wait in a min-max heap keyed by
// priority and arrival number of their first item, with the lowest key bit saying whether the run is
// remembered; the root is the most urgent run and the larger of its two children the least urgent, so
// both ends are at hand. Joining a run or taking from a run that goes on is O(1); starting or ending one is
// O(log r) for r runs waiting. The 16-byte entries are numbered from 1 in storage aligned to 64 bytes,
// which puts the four grandchildren a step down the heap in one cache line.
//
// While a worker drains a queue that another thread fills, the two stay on separate cache lines: joining a
// run writes only its slot and its last item, and taking from a remembered run that goes on writes only
// the heap's root; the slot is written by the taker only when the run ends.
struct PriorityList::Runs {
    struct Entry {
        uint64_t key;  // priority, arrival number, and 1 when the run keeps its own last item
        QueueLink* first;

        /// The key of a run of priority p that arrived `arrival`-th; `own` when it keeps its last item.
        static uint64_t keyOf(unsigned p, uint32_t arrival, bool own) noexcept {
            return uint64_t(p) << 32 | uint64_t(arrival) << 1 | own;
        }
        unsigned priority() const noexcept { return unsigned(key >> 32); }
        bool remembered() const noexcept { return !(key & 1); }
    };
    struct Latest {
        QueueLink* last;  // null when the slot is free
        unsigned priority;
    };
    static constexpr std::align_val_t kLine{64};
    static constexpr unsigned kLatestBits = 6;

    explicit Runs(uint32_t firstArrival) : nextArrival(std::min(firstArrival, kArrivals)) {}
    ~Runs() { ::operator delete(at, kLine); }
    Runs(const Runs&) = delete;
    Runs& operator=(const Runs&) = delete;

    // Small priorities, and those that differ in any 6-bit digit, get slots of their own.
    Latest& latest(unsigned p) noexcept {
        return remembered[(p ^ p >> 6 ^ p >> 12 ^ p >> 18 ^ p >> 24 ^ p >> 30) & ((1u << kLatestBits) - 1)];
    }
    // Where the last item of the run at heap entry `e` is kept.
    QueueLink*& lastOf(const Entry& e) noexcept {
        return e.remembered() ? latest(e.priority()).last : e.first->prev;
    }
    void start(QueueLink* link) {
        if (nextArrival == kArrivals) renumber();
        if (size + 1 >= capacity) grow();
        link->prev = link;
        link->next = nullptr;
        Latest& slot = latest(link->priority);
        const bool remember = !slot.last;
        place(Entry{Entry::keyOf(link->priority, nextArrival++, !remember), link});
        if (remember) slot = Latest{link, link->priority};
    }
    std::size_t lastRun() const noexcept { return size < 3 ? size : at[2].key > at[3].key ? 2 : 3; }
    // Removes the run at `i`, whose only item is being taken.
    void end(std::size_t i) noexcept {
        if (at[i].remembered()) latest(at[i].priority()).last = nullptr;
        if (i == 1 && size >= 8) {  // the next most urgent is almost surely the least grandchild
            std::size_t m = 4;
            for (std::size_t k = 5; k < 8; ++k) m = at[k].key < at[m].key ? k : m;
            __builtin_prefetch(at[m].first);
        }
        onMinLevel(i) ? remove<true>(i) : remove<false>(i);
        if (!size) nextArrival = 0;
    }

    Entry* at = nullptr;  // at[1] .. at[size]
    std::size_t size = 0;
    std::size_t capacity = 0;
    uint32_t nextArrival;
    alignas(64) Latest remembered[1u << kLatestBits] = {};  // apart from the fields the taker reads

private:
    void place(const Entry& e) noexcept { bubbleUp(++size, e); }
    // Fills the hole at `i` with `e` or with what must come down from above it. Below the hole everything
    // already stands where `e` may stand above it.
    void bubbleUp(std::size_t i, const Entry& e) noexcept {
        if (i > 1) {
            const std::size_t parent = i / 2;
            // A key on the wrong side of its parent belongs to the parent's kind of level.
            if (onMinLevel(i) ? e.key > at[parent].key : e.key < at[parent].key) {
                at[i] = at[parent];
                i = parent;
            }
            i = onMinLevel(i) ? siftUp<true>(i, e) : siftUp<false>(i, e);
        }
        at[i] = e;
    }
    // Moves the hole at `i` up through the levels of its kind while `e` goes before the grandparent.
    template <bool kMin>
    std::size_t siftUp(std::size_t i, const Entry& e) noexcept {
        for (; i >= 4 && before<kMin>(e.key, at[i / 4].key); i /= 4) at[i] = at[i / 4];
        return i;
    }
    // Takes out the entry at `i`, on a level of kind kMin. The hole sinks along the least (or greatest)
    // grandchildren without looking at the entry that will fill it, one cache line a level pair, and the
    // last entry fills it from the bottom, where it almost always belongs.
    template <bool kMin>
    void remove(std::size_t i) noexcept {
        const Entry last = at[size--];
        if (i > size) return;
        for (;;) {
            // What the next step or the filling may read: the children, the children of every grandchild and
            // their children, fetched while this step waits for its own line.
            for (const std::size_t k : {2 * i, 8 * i, 8 * i + 4, 16 * i, 16 * i + 4, 16 * i + 8, 16 * i + 12})
                if (k <= size) __builtin_prefetch(at + k);
            const std::size_t child = 2 * i, grandchild = 4 * i;
            if (grandchild > size) break;
            std::size_t m = grandchild;
            if (grandchild + 3 <= size) {  // a tournament of pairs: short chains, no unpredictable branches
                const std::size_t a = before<kMin>(at[m + 1].key, at[m].key) ? m + 1 : m;
                const std::size_t b = before<kMin>(at[m + 3].key, at[m + 2].key) ? m + 3 : m + 2;
                m = before<kMin>(at[b].key, at[a].key) ? b : a;
            } else {
                for (std::size_t k = grandchild + 1; k <= size; ++k)
                    if (before<kMin>(at[k].key, at[m].key)) m = k;
                // The second child competes when it has no children of its own to stand for it.
                if (child < size && size < grandchild + 2 && before<kMin>(at[child + 1].key, at[m].key))
                    m = child + 1;
            }
            at[i] = at[m];
            i = m;
        }
        // No grandchildren below: a child that must stand above `last` moves up first.
        if (2 * i <= size) {
            const std::size_t c =
                2 * i < size && before<kMin>(at[2 * i + 1].key, at[2 * i].key) ? 2 * i + 1 : 2 * i;
            if (before<kMin>(at[c].key, last.key)) {
                at[i] = at[c];
                i = c;
            }
        }
        bubbleUp(i, last);
    }
    void grow() {
        const std::size_t wanted = capacity ? 2 * capacity : 64;
        Entry* bigger = static_cast<Entry*>(::operator new(wanted * sizeof(Entry), kLine));
        if (size) std::memcpy(bigger + 1, at + 1, size * sizeof(Entry));
        ::operator delete(at, kLine);
        at = bigger;
        capacity = wanted;
    }
    // Arrival numbers ran out: number the waiting runs again from 0, in the order they stand.
    void renumber() {
        std::vector<Entry> all(at + 1, at + 1 + size);
        std::sort(all.begin(), all.end(), [](const Entry& a, const Entry& b) { return a.key < b.key; });
        size = 0;
        nextArrival = 0;
        for (Entry& e : all)
            place(Entry{Entry::keyOf(e.priority(), nextArrival++, !e.remembered()), e.first});
    }
};

PriorityList::PriorityList(bool prioritised, uint32_t firstArrival)
    : runs_(prioritised ? new Runs(firstArrival) : nullptr) {}

PriorityList::~PriorityList() {
    delete runs_;
}

void PriorityList::insert(QueueLink* link) {
    ++count_;
    if (!runs_) {
        link->prev = tail_;
        link->next = nullptr;
        (tail_ ? tail_->next : head_) = link;
        tail_ = link;
        return;
    }
    Runs::Latest& slot = runs_->latest(link->priority);
    if (!slot.last || slot.priority != link->priority) return runs_->start(link);
    link->prev = slot.last;
    link->next = nullptr;
    slot.last->next = link;
    slot.last = link;
}

QueueLink* PriorityList::first() noexcept {
    if (!runs_) return head_;
    return runs_->size ? runs_->at[1].first : nullptr;
}

QueueLink* PriorityList::last() noexcept {
    if (!runs_) return tail_;
    return runs_->size ? runs_->lastOf(runs_->at[runs_->lastRun()]) : nullptr;
}

QueueLink* PriorityList::takeFirst() noexcept {
    if (!count_) return nullptr;
    --count_;
    QueueLink* link;
    if (!runs_) {
        link = head_;
        head_ = link->next;
        (head_ ? head_->prev : tail_) = nullptr;
        return link;
    }
    link = runs_->at[1].first;
    if (QueueLink* next = link->next) {  // the run goes on from its second item
        next->prev = link->prev;         // the last item, if the run keeps it; otherwise unused
        runs_->at[1].first = next;
    } else {
        runs_->end(1);
    }
    if (runs_->size) __builtin_prefetch(runs_->at[1].first);  // on its way while this item runs
    return link;
}

QueueLink* PriorityList::takeLast() noexcept {
    if (!count_) return nullptr;
    --count_;
    QueueLink* link;
    if (!runs_) {
        link = tail_;
        tail_ = link->prev;
        (tail_ ? tail_->next : head_) = nullptr;
        return link;
    }
    const std::size_t i = runs_->lastRun();
    QueueLink* first = runs_->at[i].first;
    QueueLink*& last = runs_->lastOf(runs_->at[i]);
    link = last;
    if (link == first) {
        runs_->end(i);
    } else {
        last = link->prev;
        last->next = nullptr;
    }
    return link;
}

// ---- recursion check ------------------------------------------------------------------------------------

void recursiveAccess(Qv::CriticalSection& cs) {
    Qv::assertionFailed("false", "ole/misc/Decoupler", 189);
    cs.leave();
    throw Qv::Exception::RuntimeError("Recusive access to lock forbidden.", __FILE__, __LINE__);
}

// ---- WorkerThread ---------------------------------------------------------------------------------------

WorkerThread::WorkerThread()
    : mutex_(new iMutex),
      wake_(new iEvent(false)),
      quit_(new iEvent(true)),
      finished_(new iEvent(true)),
      thread_(new iThread) {}

WorkerThread::~WorkerThread() = default;

void WorkerThread::startThread(const char* name, iThread::ePriority priority) {
    if (!thread_->start(name ? name : "", &WorkerThread::threadProcedure, this, priority)) {
        state_ = kInitFailed;
        finished_->set();
    }
}

int WorkerThread::threadProcedure(void* self) {
    return static_cast<WorkerThread*>(self)->run();
}

// Runs the queue until it is empty; a command that throws is logged and the rest still run.
void WorkerThread::drainLogged() {
    for (;;) {
        try {
            drain();
            return;
        } catch (...) {
            LogBoth("Warning: WorkerThreadQueue command threw an exception.\n");
        }
    }
}

int WorkerThread::run() {
    bool started = false;
    try {
        started = runInit();
    } catch (...) {
        LogBoth("Warning: WorkerTheadQueue init command threw an execption.\n");
    }
    if (!started) {
        state_ = kInitFailed;
        finished_->set();
        return 999;
    }
    state_ = kRunning;

    // Each pass holds the mutex, so code that takes it waits until the worker is between passes.
    Qv::Event* const signals[] = {wake_.get(), quit_.get()};
    for (;;) {
        mutex_->lock();
        Qv::Event::waitForAny(signals, 2);
        if (quit_->isSet()) break;
        drainLogged();
        mutex_->unlock();
    }
    // Commands inserted just before the quit still run; the pause lets late inserts land.
    drainLogged();
    OS()->threads()->sleep(100);
    drainLogged();
    mutex_->unlock();
    try {
        runExit();
    } catch (...) {
        LogBoth("Warning: WorkerThreadQueue exit command threw an exception.\n");
    }
    // The state is set before the event: once the event is set the owner may destroy this object.
    state_ = kFinished;
    finished_->set();
    return 0;
}

bool WorkerThread::threadRunning() const {
    while (state_.load() == kStarting) OS()->threads()->sleep(50);
    return state_.load() == kRunning;
}

int WorkerThread::threadExitCode() const {
    return thread_ ? thread_->exitCode() : -1;
}

void WorkerThread::stopThread() {
    stopping_.store(true, std::memory_order_relaxed);
    quit_->set();
    if (finished_->wait(5000))
        thread_->join();
    else
        thread_->detach();  // abandoned, not killed
}

}  // namespace QvCmdProcessors

// ---- CompletionPortHandler ------------------------------------------------------------------------------

namespace {

Qv::Thread::Priority threadPriority(int priority) {
    return Qv::Thread::Priority(std::clamp(priority, int(Qv::Thread::Lowest), int(Qv::Thread::Highest)));
}

}  // namespace

CompletionPortHandler::CompletionPortHandler(const char* name, Callback& callback, int singlePriority,
                                             int firstPriority, int secondPriority, int otherPriority)
    : name_(name ? name : ""), callback_(callback), port_(new Qv::CompletionPort) {
    const int processors = int(std::min(OS()->threads()->processorCount(), 4u));
    if (processors <= 1) {
        createThread(singlePriority, 1);
        return;
    }
    createThread(firstPriority, 1);
    createThread(secondPriority, 2);
    for (int processor = 3; processor <= processors; ++processor) createThread(otherPriority, processor);
}

CompletionPortHandler::~CompletionPortHandler() {
    for (std::size_t i = 0; i < threads_.size(); ++i) port_->post(Qv::CompletionPort::kQuit, 0, 0);
    for (auto& thread : threads_) thread->join();
    threads_.clear();
}

bool CompletionPortHandler::attach(Qv::Ptr<iFile> file) {
    return file && port_->attach(*file);
}

void CompletionPortHandler::createThread(int priority, int processor) {
    if (priority == kNoThread) return;
    char name[64];
    std::snprintf(name, sizeof name, "$ %s Proc[%d]Pri[%d]", name_.c_str(), processor, priority);
    Qv::Ptr<iThread> thread(new iThread);
    const uint64_t affinity = uint64_t(1) << (unsigned(processor - 1) % 64);
    if (thread->start(name, &CompletionPortHandler::waiterProcedure, this, threadPriority(priority),
                      affinity))
        threads_.push_back(thread);
}

bool CompletionPortHandler::post(int32_t status, uint32_t bytes, uint64_t key) {
    return port_->post(status, bytes, key);
}

int CompletionPortHandler::waiterProcedure(void* self) {
    auto* handler = static_cast<CompletionPortHandler*>(self);
    for (;;) {
        Qv::Completion c;
        if (!handler->port_->wait(c)) {
            OS()->threads()->sleep(1);  // a port that cannot be waited on: do not spin
            continue;
        }
        if (c.status == Qv::CompletionPort::kQuit) return 0;
        if (c.status != Qv::CompletionPort::kFailed && c.status != Qv::CompletionPort::kSucceeded) continue;
        CompletionPortHandlerCallbackContext context(c.key, c.bytes,
                                                     c.status == Qv::CompletionPort::kSucceeded);
        try {
            handler->callback_.execute(context);
        } catch (...) {
            LogBoth("Warning: CompletionPortHandler callback threw an exception.\n");
        }
    }
}
