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

// The order of a prioritised list. Inserted items wait in arrival order until the next look at either end,
// which sorts them by priority, stably, into a run: a sorted array taken from both ends. Runs are kept
// oldest first, and items of one priority in two runs arrived in the order of their runs, so a tie goes to
// the older run at the front and to the newer one at the back. A new run that starts no earlier than the
// newest run ends is appended to it (a queue of one priority keeps a single run); the newest runs are then
// merged while the one before is at most four times as long, which keeps O(log n) runs and moves an item
// O(log n) times in all. Sorting is by insertion for a few items and otherwise by radix on the priority's
// bytes, skipping the bytes every item shares. Inserting is O(1), a look O(log n) amortised: nothing walks
// the items, and a drain reads each run in order, so the items it is about to take are fetched early.
struct PriorityList::Runs {
    struct Entry {
        Entry() noexcept {}  // left unset: buffers are sized just before they are filled
        Entry(unsigned p, QueueLink* l) noexcept : priority(p), link(l) {}
        unsigned priority;
        QueueLink* link;
    };
    using Entries = std::vector<Entry>;
    struct Run {
        Entries items;
        std::size_t front = 0;  // the items before it are taken

        std::size_t size() const noexcept { return items.size() - front; }
        const Entry& first() const noexcept { return items[front]; }
        const Entry& last() const noexcept { return items.back(); }
    };
    static bool before(const Entry& a, const Entry& b) noexcept { return a.priority < b.priority; }
    static constexpr std::size_t kAhead = 4;    // how many items ahead a drain fetches
    static constexpr std::size_t kKept = 4096;  // entries an empty list keeps room for (64 KiB)

    void insert(QueueLink* link) { pending.emplace_back(link->priority, link); }

    QueueLink* first() {
        settle();
        return runs.empty() ? nullptr : runs[firstRun].first().link;
    }
    QueueLink* last() {
        settle();
        return runs.empty() ? nullptr : runs[lastRun].last().link;
    }
    QueueLink* takeFirst() {
        settle();
        Run& run = runs[firstRun];
        QueueLink* const link = run.items[run.front++].link;
        if (run.size() > kAhead) __builtin_prefetch(run.items[run.front + kAhead].link);
        taken(firstRun, kFront);
        return link;
    }
    QueueLink* takeLast() {
        settle();
        Run& run = runs[lastRun];
        QueueLink* const link = run.last().link;
        run.items.pop_back();
        taken(lastRun, kBack);
        return link;
    }

private:
    enum End { kFront, kBack };

    // Files what is pending as a run.
    void settle() {
        if (pending.empty()) return;
        sortPending();
        runs.reserve(runs.size() + 1);
        if (!runs.empty() && !before(pending.front(), runs.back().last())) {
            Run& newest = runs.back();
            if (newest.front >= newest.size()) {  // reclaim the taken half before growing
                newest.items.erase(newest.items.begin(), newest.items.begin() + std::ptrdiff_t(newest.front));
                newest.front = 0;
            }
            newest.items.insert(newest.items.end(), pending.begin(), pending.end());
            pending.clear();
        } else {
            runs.push_back(Run{std::move(pending)});
            pending = std::move(spare);
            pending.clear();
        }
        findEnds();  // right as they stand, should a merge below run out of memory
        if (!mergeDue()) return;
        while (mergeDue()) mergeNewest();
        findEnds();
    }
    bool mergeDue() const noexcept {
        return runs.size() >= 2 && runs[runs.size() - 2].size() <= 4 * runs.back().size();
    }
    void sortPending() {
        if (std::is_sorted(pending.begin(), pending.end(), before)) return;
        if (pending.size() <= 32) {
            for (auto i = pending.begin() + 1; i != pending.end(); ++i)
                for (auto j = i; j != pending.begin() && before(*j, j[-1]); --j) std::swap(*j, j[-1]);
            return;
        }
        radixSort();
    }
    // Sorts by each byte of the priority in turn, least significant first, skipping bytes all items share.
    __attribute__((noinline)) void radixSort() {
        std::size_t counts[4][256] = {};
        for (const Entry& e : pending)
            for (unsigned d = 0; d < 4; ++d) ++counts[d][e.priority >> 8 * d & 255];
        Entries out = std::move(spare);
        out.resize(pending.size());
        for (unsigned d = 0; d < 4; ++d) {
            std::size_t* const count = counts[d];
            if (count[pending.front().priority >> 8 * d & 255] == pending.size()) continue;  // one value
            for (std::size_t b = 0, at = 0; b < 256; ++b) at += std::exchange(count[b], at);
            for (const Entry& e : pending) out[count[e.priority >> 8 * d & 255]++] = e;
            pending.swap(out);
        }
        recycle(out);
    }
    // Merges the newest run into the one before, from the back, in that run's own storage: the older
    // items that go before every newer one stay where they are.
    void mergeNewest() {
        Run& older = runs[runs.size() - 2];
        Run& newer = runs.back();
        std::size_t i = older.items.size(), j = newer.items.size(), k = i + newer.size();
        older.items.resize(k);
        while (j > newer.front)
            older.items[--k] = i > older.front && before(newer.items[j - 1], older.items[i - 1])
                                   ? older.items[--i]
                                   : newer.items[--j];
        recycle(newer.items);
        runs.pop_back();
    }
    // After a take from run i at `end`: drops the run if it is empty, and finds the end that moved. A list
    // that runs empty lets go of large buffers, so that a burst does not keep its memory for good.
    void taken(std::size_t i, End end) noexcept {
        if (runs[i].size()) return end == kFront ? findFirst() : findLast();
        recycle(runs[i].items);
        runs.erase(runs.begin() + std::ptrdiff_t(i));
        if (runs.empty()) {
            if (spare.capacity() > kKept) spare = Entries();
            if (pending.capacity() > kKept) pending = Entries();
        }
        findEnds();
    }
    void findEnds() noexcept {
        findFirst();
        findLast();
    }
    void findFirst() noexcept {
        firstRun = 0;
        for (std::size_t i = 1; i < runs.size(); ++i)
            if (before(runs[i].first(), runs[firstRun].first())) firstRun = i;
    }
    void findLast() noexcept {
        lastRun = 0;
        for (std::size_t i = 1; i < runs.size(); ++i)
            if (!before(runs[i].last(), runs[lastRun].last())) lastRun = i;
    }
    // Keeps the larger of two buffers for the next sort or merge.
    void recycle(Entries& buffer) noexcept {
        if (buffer.capacity() > spare.capacity()) spare.swap(buffer);
        buffer = Entries();
        spare.clear();
    }

    Entries pending;                        // arrival order
    std::vector<Run> runs;                  // oldest first
    Entries spare;                          // storage kept for reuse
    std::size_t firstRun = 0, lastRun = 0;  // the runs holding the two ends, when nothing is pending
};

PriorityList::PriorityList(bool prioritised) : runs_(prioritised ? new Runs : nullptr) {}

PriorityList::~PriorityList() {
    delete runs_;
}

void PriorityList::insert(QueueLink* link) {
    if (runs_) {
        runs_->insert(link);
    } else {
        link->prev = tail_;
        link->next = nullptr;
        (tail_ ? tail_->next : head_) = link;
        tail_ = link;
    }
    ++count_;
}

QueueLink* PriorityList::first() {
    return runs_ ? runs_->first() : head_;
}

QueueLink* PriorityList::last() {
    return runs_ ? runs_->last() : tail_;
}

QueueLink* PriorityList::takeFirst() {
    if (!count_) return nullptr;
    QueueLink* link;
    if (runs_) {
        link = runs_->takeFirst();
    } else {
        link = head_;
        head_ = link->next;
        (head_ ? head_->prev : tail_) = nullptr;
    }
    --count_;
    return link;
}

QueueLink* PriorityList::takeLast() {
    if (!count_) return nullptr;
    QueueLink* link;
    if (runs_) {
        link = runs_->takeLast();
    } else {
        link = tail_;
        tail_ = link->prev;
        (tail_ ? tail_->next : head_) = nullptr;
    }
    --count_;
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
