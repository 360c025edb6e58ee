#include <ole/misc/Decoupler.h>

#include <ole/platform/Assert.h>
#include <ole/platform/Exception.h>
#include <ole/platform/OS.h>
#include <ole/runtime/Log.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <map>

namespace QvCmdProcessors {

// ---- PriorityList ---------------------------------------------------------------------------------------

// The runs of a prioritised list by priority: the first and last item of each. Nodes come from a pool.
struct PriorityList::Runs {
    struct Run {
        QueueLink* first;
        QueueLink* last;
    };
    using Map = std::map<unsigned, Run, std::less<unsigned>, QvPoolAllocator<std::pair<const unsigned, Run>>>;
    Map map;
};

PriorityList::PriorityList(bool prioritised) : runs_(prioritised ? new Runs : nullptr) {}

PriorityList::~PriorityList() {
    delete runs_;
}

// Links `link` after `before` (at the front when `before` is null).
static void linkAfter(QueueLink*& head, QueueLink*& tail, QueueLink* before, QueueLink* link) noexcept {
    link->prev = before;
    link->next = before ? before->next : head;
    (link->next ? link->next->prev : tail) = link;
    (before ? before->next : head) = link;
}

void PriorityList::insert(QueueLink* link) {
    ++count_;
    if (!runs_) {
        linkAfter(head_, tail_, tail_, link);
        return;
    }
    // The new item goes after the last item whose priority is at most its own.
    auto& map = runs_->map;
    auto run = map.upper_bound(link->priority);
    if (run == map.begin()) {
        linkAfter(head_, tail_, nullptr, link);
    } else {
        auto before = std::prev(run);
        linkAfter(head_, tail_, before->second.last, link);
        if (before->first == link->priority) {
            before->second.last = link;
            return;
        }
    }
    map.emplace_hint(run, link->priority, Runs::Run{link, link});
}

QueueLink* PriorityList::takeFirst() noexcept {
    QueueLink* link = head_;
    if (!link) return nullptr;
    if (runs_) {
        auto run = runs_->map.begin();
        if (run->second.last == link)
            runs_->map.erase(run);
        else
            run->second.first = link->next;
    }
    head_ = link->next;
    (head_ ? head_->prev : tail_) = nullptr;
    --count_;
    return link;
}

QueueLink* PriorityList::takeLast() noexcept {
    QueueLink* link = tail_;
    if (!link) return nullptr;
    if (runs_) {
        auto run = std::prev(runs_->map.end());
        if (run->second.first == link)
            runs_->map.erase(run);
        else
            run->second.last = link->prev;
    }
    tail_ = link->prev;
    (tail_ ? tail_->next : head_) = nullptr;
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
