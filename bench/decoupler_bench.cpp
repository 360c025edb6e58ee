// Command queues against the standard library. Prioritised insert + executeAll of 1e6 commands against a
// std::priority_queue made stable with a sequence number, both locked per operation; the hand-off of
// commands to a worker thread against a std::condition_variable queue; pooled allocation against
// new/delete; and the cost of a queue against its length.

#include <ole/misc/Decoupler.h>

#include <benchmark/benchmark.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <queue>
#include <random>
#include <thread>
#include <vector>

namespace {

using QvCmdProcessors::Queue;
using QvCmdProcessors::WorkerThreadQueue;
using QvDC::Cmd;
using QvDC::NoCtx;
using QvDC::ThreadSafetyTraits::ThreadSafe;
using Command = Cmd<NoCtx, ThreadSafe>;

// A command that bumps a counter.
struct Bump : QvDC::CommandRep<NoCtx, ThreadSafe> {
    explicit Bump(std::atomic<long>& n) : n(n) {}
    bool execute(NoCtx&) override {
        n.fetch_add(1, std::memory_order_relaxed);
        return true;
    }
    std::atomic<long>& n;
};

// Priorities drawn from 0..range-1, or from the whole 32-bit range when range is 0.
std::vector<unsigned> priorities(std::size_t count, int64_t range) {
    std::mt19937 random(7);
    std::vector<unsigned> out(count);
    for (unsigned& p : out) p = range ? unsigned(random() % uint64_t(range)) : unsigned(random());
    return out;
}

constexpr std::size_t kCommands = 1000000;

// Inserts every priority's command into a thread-safe prioritised queue and drains it, per iteration.
void insertAndDrain(benchmark::State& state, const std::vector<unsigned>& prio) {
    std::atomic<long> ran{0};
    const Command bump(new Bump(ran));
    Queue<ThreadSafe> queue(true);
    for (auto _ : state) {
        for (unsigned p : prio) queue.insert(bump, p);
        queue.executeAll();
    }
    state.SetItemsProcessed(int64_t(state.iterations() * prio.size()));
}

void BM_PrioritisedInsertExecute_OleQueue(benchmark::State& state) {
    insertAndDrain(state, priorities(kCommands, state.range(0)));
}
BENCHMARK(BM_PrioritisedInsertExecute_OleQueue)->Arg(16)->Arg(0)->Unit(benchmark::kMillisecond);

void BM_PrioritisedInsertExecute_StdPriorityQueue(benchmark::State& state) {
    struct Item {
        unsigned priority;
        uint64_t sequence;
        Command command;
    };
    struct Later {
        bool operator()(const Item& a, const Item& b) const {
            return a.priority != b.priority ? a.priority > b.priority : a.sequence > b.sequence;
        }
    };
    const auto prio = priorities(kCommands, state.range(0));
    std::atomic<long> ran{0};
    const Command bump(new Bump(ran));
    std::priority_queue<Item, std::vector<Item>, Later> queue;
    std::mutex lock;
    uint64_t sequence = 0;
    NoCtx none;
    for (auto _ : state) {
        for (unsigned p : prio) {
            std::lock_guard<std::mutex> hold(lock);
            queue.push(Item{p, sequence++, bump});
        }
        for (;;) {
            Command next;
            {
                std::lock_guard<std::mutex> hold(lock);
                if (queue.empty()) break;
                next = queue.top().command;
                queue.pop();
            }
            next.execute(none);
        }
    }
    state.SetItemsProcessed(int64_t(state.iterations() * kCommands));
}
BENCHMARK(BM_PrioritisedInsertExecute_StdPriorityQueue)->Arg(16)->Arg(0)->Unit(benchmark::kMillisecond);

// ---- hand-off to a worker thread ------------------------------------------------------------------------

// The plain alternative: a deque of commands under a mutex, a condition variable and one thread.
class ConditionVariableQueue {
public:
    ConditionVariableQueue() : worker_([this] { run(); }) {}
    ~ConditionVariableQueue() {
        {
            std::lock_guard<std::mutex> hold(lock_);
            quit_ = true;
        }
        ready_.notify_one();
        worker_.join();
    }
    void insert(const Command& command) {
        {
            std::lock_guard<std::mutex> hold(lock_);
            items_.push_back(command);
        }
        ready_.notify_one();
    }

private:
    void run() {
        NoCtx none;
        std::unique_lock<std::mutex> hold(lock_);
        for (;;) {
            ready_.wait(hold, [this] { return quit_ || !items_.empty(); });
            if (items_.empty()) return;
            Command next = std::move(items_.front());
            items_.pop_front();
            hold.unlock();
            next.execute(none);
            hold.lock();
        }
    }

    std::mutex lock_;
    std::condition_variable ready_;
    std::deque<Command> items_;
    bool quit_ = false;
    std::thread worker_;
};

// The count a worker bumps and the producer polls, on a cache line of its own: sharing a line with the
// producer's locals would make every insert wait for the worker's last bump, on either side.
struct alignas(64) RunCount {
    std::atomic<long> value{0};
};

void waitFor(const std::atomic<long>& counter, long target) {
    while (counter.load(std::memory_order_acquire) < target) std::this_thread::yield();
}

// Hands `batch` commands to the worker per iteration, cycling through `commands`, and waits until all ran.
template <class Insert>
void handOff(benchmark::State& state, std::atomic<long>& ran, const std::vector<Command>& commands,
             Insert insert) {
    const long batch = state.range(0);  // 1: latency of one round trip; more: throughput
    long target = 0;
    std::size_t next = 0;
    for (auto _ : state) {
        for (long i = 0; i < batch; ++i, next = next + 1 == commands.size() ? 0 : next + 1)
            insert(commands[next]);
        target += batch;
        waitFor(ran, target);
    }
    state.SetItemsProcessed(state.iterations() * batch);
}

// One command handed over again and again, or (Many) 1,000 different ones in turn.
std::vector<Command> bumps(std::atomic<long>& ran, std::size_t count) {
    std::vector<Command> out;
    for (std::size_t i = 0; i < count; ++i) out.emplace_back(new Bump(ran));
    return out;
}

template <std::size_t kCommands>
void handOffToWorker(benchmark::State& state) {
    RunCount ran;
    const std::vector<Command> commands = bumps(ran.value, kCommands);
    WorkerThreadQueue<ThreadSafe> worker("bench", QvDC::NullCommand<NoCtx, ThreadSafe>(),
                                         QvDC::NullCommand<NoCtx, ThreadSafe>());
    handOff(state, ran.value, commands, [&](const Command& c) { worker.insert(c, 0); });
}
template <std::size_t kCommands>
void handOffToConditionVariable(benchmark::State& state) {
    RunCount ran;
    const std::vector<Command> commands = bumps(ran.value, kCommands);
    ConditionVariableQueue worker;
    handOff(state, ran.value, commands, [&](const Command& c) { worker.insert(c); });
}

void BM_HandOff_OleWorkerThreadQueue(benchmark::State& state) {
    handOffToWorker<1>(state);
}
BENCHMARK(BM_HandOff_OleWorkerThreadQueue)->Arg(1)->Arg(1000)->UseRealTime();
void BM_HandOff_ConditionVariableQueue(benchmark::State& state) {
    handOffToConditionVariable<1>(state);
}
BENCHMARK(BM_HandOff_ConditionVariableQueue)->Arg(1)->Arg(1000)->UseRealTime();
void BM_HandOffMany_OleWorkerThreadQueue(benchmark::State& state) {
    handOffToWorker<1000>(state);
}
BENCHMARK(BM_HandOffMany_OleWorkerThreadQueue)->Arg(1000)->UseRealTime();
void BM_HandOffMany_ConditionVariableQueue(benchmark::State& state) {
    handOffToConditionVariable<1000>(state);
}
BENCHMARK(BM_HandOffMany_ConditionVariableQueue)->Arg(1000)->UseRealTime();

// ---- allocation -----------------------------------------------------------------------------------------

struct PooledNode : QvPooledObject<PooledNode> {
    void* links[3];
    unsigned priority;
};
struct PlainNode {
    void* links[3];
    unsigned priority;
};

// Allocates a batch of 64 nodes and frees them, as a queue filling and draining does.
template <class Node>
void allocateBatches(benchmark::State& state) {
    Node* nodes[64];
    for (auto _ : state) {
        for (Node*& n : nodes) {
            n = new Node;
            benchmark::DoNotOptimize(n);
        }
        for (Node* n : nodes) delete n;
    }
    state.SetItemsProcessed(state.iterations() * 64);
}
void BM_Allocate_OlePooledObject(benchmark::State& state) {
    allocateBatches<PooledNode>(state);
}
BENCHMARK(BM_Allocate_OlePooledObject)->ThreadRange(1, 2);
void BM_Allocate_NewDelete(benchmark::State& state) {
    allocateBatches<PlainNode>(state);
}
BENCHMARK(BM_Allocate_NewDelete)->ThreadRange(1, 2);

// ---- cost against length --------------------------------------------------------------------------------

// Fills a queue to length n and drains it; the fit shows how the cost per command grows with n.
void queueOfLength(benchmark::State& state, int64_t range) {
    insertAndDrain(state, priorities(std::size_t(state.range(0)), range));
    state.SetComplexityN(state.range(0));
}
void BM_QueueLength_Priorities16(benchmark::State& state) {
    queueOfLength(state, 16);
}
BENCHMARK(BM_QueueLength_Priorities16)->RangeMultiplier(4)->Range(1 << 10, 1 << 18)->Complexity();
void BM_QueueLength_Priorities32Bit(benchmark::State& state) {
    queueOfLength(state, 0);
}
BENCHMARK(BM_QueueLength_Priorities32Bit)->RangeMultiplier(4)->Range(1 << 10, 1 << 18)->Complexity();

}  // namespace
