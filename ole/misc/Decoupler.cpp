#include <ole/misc/Decoupler.h>

#include <ole/platform/Assert.h>
#include <ole/platform/Exception.h>
#include <ole/platform/OS.h>
#include <ole/runtime/Log.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <vector>

namespace QvCmdProcessors {

// ---- PriorityList ---------------------------------------------------------------------------------------

// The runs of a prioritised list. Each run is a doubly linked list of its items. The heaps may hold
// priorities whose run has ended (a run ended from one end leaves its entry in the other heap, and a
// priority that comes back is pushed again); such entries are dropped when they surface, and a heap that
// grows to twice the live runs is rebuilt, so the clean-up costs O(1) per run on average.
struct PriorityList::Runs {
    struct Run {
        QueueLink* first;
        QueueLink* last;
    };

    // The runs by priority: open addressing with linear probing, at most half full, so a lookup reads one
    // or two neighbouring slots of one array.
    class Table {
    public:
        Run* find(unsigned priority) noexcept {
            for (std::size_t i = home(priority);; i = (i + 1) & mask_) {
                if (!slots_[i].used) return nullptr;
                if (slots_[i].priority == priority) return &slots_[i].run;
            }
        }
        // The run of `priority`, made from `fresh` if there was none; true when it was made.
        std::pair<Run*, bool> tryEmplace(unsigned priority, const Run& fresh) {
            if (2 * (used_ + 1) > slots_.size()) grow();
            std::size_t i = home(priority);
            for (; slots_[i].used; i = (i + 1) & mask_)
                if (slots_[i].priority == priority) return {&slots_[i].run, false};
            slots_[i] = Slot{priority, true, fresh};
            ++used_;
            return {&slots_[i].run, true};
        }
        // Removes `priority`'s run and shifts later slots of the same probe sequence back into the gap.
        void erase(unsigned priority) noexcept {
            std::size_t gap = home(priority);
            while (slots_[gap].priority != priority || !slots_[gap].used) gap = (gap + 1) & mask_;
            slots_[gap].used = false;
            --used_;
            for (std::size_t j = (gap + 1) & mask_; slots_[j].used; j = (j + 1) & mask_) {
                const std::size_t h = home(slots_[j].priority);
                const bool stays = gap < j ? (h > gap && h <= j) : (h > gap || h <= j);
                if (stays) continue;
                slots_[gap] = slots_[j];
                slots_[j].used = false;
                gap = j;
            }
        }
        std::size_t size() const noexcept { return used_; }

    private:
        struct Slot {
            unsigned priority;
            bool used;
            Run run;
        };
        std::size_t home(unsigned priority) const noexcept {
            return std::size_t((uint64_t(priority) * 0x9E3779B97F4A7C15ull) >> shift_);
        }
        void grow() {
            std::vector<Slot> old(slots_.size() * 2, Slot{0, false, {}});
            old.swap(slots_);
            --shift_;
            mask_ = slots_.size() - 1;
            used_ = 0;
            for (const Slot& slot : old)
                if (slot.used) tryEmplace(slot.priority, slot.run);
        }

        std::vector<Slot> slots_ = std::vector<Slot>(16, Slot{0, false, {}});
        unsigned shift_ = 60;  // 64 - log2(slots)
        std::size_t mask_ = 15;
        std::size_t used_ = 0;
    };

    Table byPriority;
    std::vector<unsigned> mostUrgent;   // a heap with the smallest priority on top
    std::vector<unsigned> leastUrgent;  // a heap with the largest priority on top

    // The live run on top of `heap`, after dropping entries of ended runs.
    template <class Below>
    Run* top(std::vector<unsigned>& heap, Below below) {
        while (!heap.empty()) {
            if (Run* run = byPriority.find(heap.front())) return run;
            std::pop_heap(heap.begin(), heap.end(), below);
            heap.pop_back();
        }
        return nullptr;
    }
    Run* first() { return top(mostUrgent, std::greater<unsigned>()); }
    Run* last() { return top(leastUrgent, std::less<unsigned>()); }

    // Ends the run of `priority`, which is on top of `heap`.
    template <class Below>
    void end(unsigned priority, std::vector<unsigned>& heap, Below below) {
        byPriority.erase(priority);
        std::pop_heap(heap.begin(), heap.end(), below);
        heap.pop_back();
        compact(mostUrgent, std::greater<unsigned>());
        compact(leastUrgent, std::less<unsigned>());
    }
    template <class Below>
    void compact(std::vector<unsigned>& heap, Below below) {
        if (heap.size() <= 2 * byPriority.size() + 32) return;
        std::sort(heap.begin(), heap.end());
        heap.erase(std::unique(heap.begin(), heap.end()), heap.end());
        heap.erase(std::remove_if(heap.begin(), heap.end(), [&](unsigned p) { return !byPriority.find(p); }),
                   heap.end());
        std::make_heap(heap.begin(), heap.end(), below);
    }
};

PriorityList::PriorityList(bool prioritised) : runs_(prioritised ? new Runs : nullptr) {}

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
    const auto placed = runs_->byPriority.tryEmplace(link->priority, Runs::Run{link, link});
    link->next = nullptr;
    if (placed.second) {
        link->prev = nullptr;
        runs_->mostUrgent.push_back(link->priority);
        std::push_heap(runs_->mostUrgent.begin(), runs_->mostUrgent.end(), std::greater<unsigned>());
        runs_->leastUrgent.push_back(link->priority);
        std::push_heap(runs_->leastUrgent.begin(), runs_->leastUrgent.end(), std::less<unsigned>());
        return;
    }
    Runs::Run& run = *placed.first;
    link->prev = run.last;
    run.last->next = link;
    run.last = link;
}

QueueLink* PriorityList::first() noexcept {
    if (!runs_) return head_;
    const Runs::Run* run = runs_->first();
    return run ? run->first : nullptr;
}

QueueLink* PriorityList::last() noexcept {
    if (!runs_) return tail_;
    const Runs::Run* run = runs_->last();
    return run ? run->last : nullptr;
}

QueueLink* PriorityList::takeFirst() noexcept {
    QueueLink* link;
    if (!runs_) {
        link = head_;
        if (!link) return nullptr;
        head_ = link->next;
        (head_ ? head_->prev : tail_) = nullptr;
    } else {
        Runs::Run* run = runs_->first();
        if (!run) return nullptr;
        link = run->first;
        run->first = link->next;
        if (run->first)
            run->first->prev = nullptr;
        else
            runs_->end(link->priority, runs_->mostUrgent, std::greater<unsigned>());
    }
    --count_;
    return link;
}

QueueLink* PriorityList::takeLast() noexcept {
    QueueLink* link;
    if (!runs_) {
        link = tail_;
        if (!link) return nullptr;
        tail_ = link->prev;
        (tail_ ? tail_->next : head_) = nullptr;
    } else {
        Runs::Run* run = runs_->last();
        if (!run) return nullptr;
        link = run->last;
        run->last = link->prev;
        if (run->last)
            run->last->next = nullptr;
        else
            runs_->end(link->priority, runs_->leastUrgent, std::less<unsigned>());
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
