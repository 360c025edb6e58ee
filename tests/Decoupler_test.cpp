#include <ole/misc/Decoupler.h>
#include <ole/platform/Exception.h>

#include "support/StdoutCapture.h"
#include "support/TestHome.h"

#include <gtest/gtest.h>

#include <sched.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

namespace {

using namespace QvDC;
using namespace QvCmdProcessors;
using namespace ThreadSafetyTraits;

constexpr unsigned kGiveUpMs = 10000;

// A command running a function; counts live representations so that leaks and double frees show.
std::atomic<int> liveCalls{0};
template <class TS, class Ctx = NoCtx>
struct Call : CommandRep<Ctx, TS> {
    explicit Call(std::function<bool(Ctx&)> f) : f(std::move(f)) { ++liveCalls; }
    ~Call() override { --liveCalls, onDestroy ? onDestroy() : void(); }
    bool execute(Ctx& c) override { return f(c); }
    std::function<bool(Ctx&)> f;
    std::function<void()> onDestroy;
};
template <class TS, class Ctx = NoCtx, class F>
Cmd<Ctx, TS> call(F f) {
    return Cmd<Ctx, TS>(new Call<TS, Ctx>(std::move(f)));
}
template <class TS>
Cmd<NoCtx, TS> note(std::vector<int>& log, int id, bool ok = true) {
    return call<TS>([&log, id, ok](NoCtx&) { return log.push_back(id), ok; });
}

// A receiver serving two simple commands: told which one runs, it records the command and the context.
using Smpl = SmplCmd<int, NoTag, ThreadSafe>;
struct Counter : Receiver<Smpl> {
    bool executeCommand(Smpl& c, int& ctx) override { return seen.push_back(c == first ? ctx : -ctx), true; }
    Smpl first{this};
    std::vector<int> seen;
};

TEST(Cmd, HandlesShareCountAndCompareSimpleAndCompoundCommandsRun) {
    oletest::LogCapture log;
    NoCtx none;
    EXPECT_FALSE(Cmd<NoCtx>().execute(none));
    EXPECT_TRUE(log.contains("Attempted to use unitinitalized QvDecoupler::Command!") &&
                NullCommand<NoCtx>().execute(none));

    std::vector<int> ran;
    {
        Cmd<NoCtx> a = note<NoLocking>(ran, 1), b = note<NoLocking>(ran, 2), copy = a;
        copy = a, copy = copy;
        EXPECT_EQ(a.getRep()->refCount(), 2);
        EXPECT_TRUE(Cmd<NoCtx>() == Cmd<NoCtx>() && NullCommand<NoCtx>() == Cmd<NoCtx>() && a == copy);
        EXPECT_FALSE(a == b || a == NullCommand<NoCtx>() || !a.isValid() || Cmd<NoCtx>().isValid() ||
                     !NullCommand<NoCtx>().isNullCommand());
        copy.execute(none);
    }
    EXPECT_TRUE(ran == std::vector<int>{1} && liveCalls == 0);

    Counter counter;
    Smpl second(&counter);
    int ctx = 7;
    EXPECT_TRUE(counter.first.execute(ctx) && second.execute(ctx) &&
                counter.seen == (std::vector<int>{7, -7}));

    ran.clear();
    CompCmd<NoCtx, ThreadSafe> ordered(true), arrival(false);
    const Cmd<NoCtx, ThreadSafe> fails = note<ThreadSafe>(ran, 0, false);
    for (int id : {50, 11, 52, 33})  // priority, then insertion index
        ordered.add(note<ThreadSafe>(ran, id), id / 10), arrival.add(note<ThreadSafe>(ran, id / 10), id / 10);
    ordered.add(note<ThreadSafe>(ran, 1)), ordered.add(note<ThreadSafe>(ran, 2), 0);  // the default is 0
    EXPECT_TRUE(ordered.execute(none));
    EXPECT_EQ(ran, (std::vector<int>{1, 2, 11, 33, 50, 52}));  // ascending, equal priorities in order added
    for (const auto& extra : {fails, Cmd<NoCtx, ThreadSafe>(), note<ThreadSafe>(ran, 9)})
        arrival.add(extra, 0);
    for (bool stop : {false, true}) {
        ran.clear(), arrival.stopOnFailure(stop);
        EXPECT_FALSE(arrival.execute(none));
        EXPECT_EQ(ran, (stop ? std::vector<int>{5, 1, 5, 3, 0} : std::vector<int>{5, 1, 5, 3, 0, 9}));
    }
    EXPECT_TRUE(arrival.remove(fails) && !arrival.remove(fails));
}

template <class TS>
class QueueTest : public testing::Test {};
using Policies = testing::Types<NoLocking, ThreadSafe>;
TYPED_TEST_SUITE(QueueTest, Policies);

TYPED_TEST(QueueTest, OrdersStopsAtTheFirstItemThatDoesNotQualifyAndSurvivesReentryAndThrows) {
    using Q = Queue<TypeParam>;  // items are identified by insertion index
    using V = std::vector<int>;
    const std::tuple<bool, std::vector<unsigned>, std::function<void(Q&)>, V, V> cases[] = {
        {true, {5, 1, 5, 3}, [](Q& q) { q.executeAll(); }, {1, 3, 0, 2}, {}},
        {false, {5, 1, 5, 3}, [](Q& q) { q.executeAll(); }, {0, 1, 2, 3}, {}},
        {true, {5, 1, 3}, [](Q& q) { q.executePriorityAtLeast(3); }, {1, 2}, {0}},
        {true, {5, 1, 3}, [](Q& q) { q.executePriorityLessThan(3); }, {0}, {1, 2}},
        {false, {5, 1}, [](Q& q) { q.executePriorityAtLeast(3); }, {}, {0, 1}},
        {false, {1, 5, 2, 7}, [](Q& q) { q.executePriorityLessThan(3); }, {3}, {0, 1, 2}},
        {true, {4, 2, 4}, [](Q& q) { q.executeHead(); }, {1}, {0, 2}},
        {true, {5, 1, 3}, [](Q& q) { q.flushHead(); }, {}, {2, 0}},
        {true, {5, 1, 3, 9}, [](Q& q) { q.flushPriorityAtLeast(3); }, {}, {0, 3}},
        {true, {5, 1, 3, 9}, [](Q& q) { q.flushPriorityLessThan(3); }, {}, {1, 2}},
        {false, {1, 9, 2}, [](Q& q) { q.flushPriorityLessThan(3); }, {}, {0, 1, 2}},
        {true, {5, 1}, [](Q& q) { q.flushAll(); }, {}, {}},
    };
    for (const auto& [prioritised, priorities, op, expected, left] : cases) {
        std::vector<int> ran;
        Q queue(prioritised);
        for (std::size_t i = 0; i < priorities.size(); ++i)
            queue.insert(note<TypeParam>(ran, int(i)), priorities[i]);
        op(queue);
        EXPECT_TRUE(ran == expected && queue.size() == left.size());
        ran.clear(), queue.executeAll();
        EXPECT_TRUE(ran == left && queue.isEmpty());
    }
    EXPECT_EQ(liveCalls.load(), 0);
    using Item = QueueItem<NoCtx, TypeParam>;
    const Item urgent(NullCommand<NoCtx, TypeParam>(), 1), later(NullCommand<NoCtx, TypeParam>(), 5);
    EXPECT_TRUE(typename Item::priority_greater()(later, urgent) &&
                !typename Item::priority_greater()(urgent, urgent));

    // Commands may use the queue running them, and a throwing one leaves the rest queued and unlocked.
    Queue<TypeParam> queue(true);
    std::vector<int> ran;
    queue.insert(call<TypeParam>([&](NoCtx&) { return queue.insert(note<TypeParam>(ran, 2), 0), true; }), 1);
    queue.insert(call<TypeParam>([&](NoCtx&) { return queue.executeHead(), true; }), 3);
    for (int id : {4, 5}) queue.insert(note<TypeParam>(ran, id), id);
    queue.executeAll();
    EXPECT_EQ(ran, (std::vector<int>{2, 4, 5})) << "inserted and executed from inside the run";

    queue.insert(call<TypeParam>([](NoCtx&) -> bool { throw std::runtime_error("boom"); }), 1);
    queue.insert(note<TypeParam>(ran, 6), 2);
    EXPECT_THROW(queue.executeAll(), std::runtime_error);
    std::thread([&] { EXPECT_EQ(queue.size(), 1u) << "nothing left locked"; }).join();
    queue.executeAll();
    EXPECT_EQ(ran.back(), 6);
}

// Random bursts of inserts and takes from both ends against a sorted model: few and many distinct
// priorities, priorities that differ only in their upper bytes, single items and bursts long enough to be
// sorted by radix, a queue that grows and then shrinks.
TEST(PriorityList, MatchesASortedModelAtBothEnds) {
    const std::pair<unsigned, unsigned> draws[] = {{1, 1}, {5, 1}, {40, 1}, {4, 1u << 24}, {1000, 1}, {0, 1}};
    for (const auto& [range, spacing] : draws)
        for (const unsigned longest : {1u, 3u, 200u}) {
            std::mt19937 random(range + longest);
            PriorityList list(true);
            std::vector<QueueLink> links(6000);
            std::set<std::pair<unsigned, std::size_t>> model;  // priority, arrival
            for (std::size_t step = 0, arrived = 0; arrived < links.size(); ++step) {
                const unsigned r = random() % 8;
                if (r < (4 * arrived < 3 * links.size() ? 5u : 3u)) {
                    for (unsigned n = 1 + random() % longest; n-- && arrived < links.size(); ++arrived) {
                        links[arrived].priority = range ? random() % range * spacing : unsigned(random());
                        list.insert(&links[arrived]), model.emplace(links[arrived].priority, arrived);
                    }
                } else if (!model.empty()) {
                    const bool front = r % 2;
                    const auto it = front ? model.begin() : std::prev(model.end());
                    ASSERT_EQ(front ? list.first() : list.last(), &links[it->second]);
                    ASSERT_EQ(front ? list.takeFirst() : list.takeLast(), &links[it->second]) << step;
                    model.erase(it);
                }
                ASSERT_EQ(list.size(), model.size());
            }
            for (const auto& [priority, arrival] : model) ASSERT_EQ(list.takeFirst(), &links[arrival]);
            EXPECT_TRUE(!list.takeFirst() && !list.takeLast() && !list.first() && !list.last());
        }
}

TEST(Queue, RecursiveAccessFromInsideTheLockThrows) {
    Queue<ThreadSafe> queue;
    std::string error;
    auto* touching = new Call<ThreadSafe>([](NoCtx&) { return true; });
    touching->onDestroy = [&] {  // runs while flushAll holds the lock
        try {
            queue.size();
        } catch (const Qv::Exception::RuntimeError& x) {
            error = x.message();
        }
    };
    queue.insert(Cmd<NoCtx, ThreadSafe>(touching), 1);
    EXPECT_EQ(oletest::stdoutOf([&] { queue.flushAll(); }),
              "assertion failed false at ole/misc/Decoupler line 189\n");
    EXPECT_EQ(error, "Recusive access to lock forbidden.");
    std::thread([&] { EXPECT_TRUE(queue.isEmpty()); }).join();  // the lock was left
}

bool hasThreadNamed(const std::string& name) {
    for (const std::string& task : oletest::listDirectory("/proc/self/task"))
        if (oletest::readFile("/proc/self/task/" + task + "/comm") == name + "\n") return true;
    return false;
}

TEST(WorkerThreadQueue, RunsInOrderDrainsAtShutdownRefusesLateInsertsAndEndsWith999OnFailedInit) {
    std::vector<int> ran;
    std::atomic<long> initThread{0}, exitThread{0};
    Qv::Event gate(true);
    WorkerThreadQueue<ThreadSafe>* worker = nullptr;
    const auto init = call<ThreadSafe>([&](NoCtx&) { return initThread = syscall(SYS_gettid), true; });
    const auto exit = call<ThreadSafe>([&](NoCtx&) {
        return exitThread = syscall(SYS_gettid), worker->insert(note<ThreadSafe>(ran, 99), 0), true;
    });
    worker = new WorkerThreadQueue<ThreadSafe>("ole-decoupler", init, exit, iThread::Normal, 0, true);
    ASSERT_TRUE(worker->threadRunning() && hasThreadNamed("ole-decoupler"));  // as the system sees it
    worker->insert(call<ThreadSafe>([&](NoCtx&) { return gate.wait(kGiveUpMs); }), 0);
    for (int id : {50, 11, 52, 33}) worker->insert(note<ThreadSafe>(ran, id), id / 10);
    std::vector<int> expected{11, 33, 50, 52};
    for (int id = 100; id < 1300; ++id) worker->insert(note<ThreadSafe>(ran, id), 7 + id % 2);  // > the ring
    for (int odd : {0, 1})
        for (int id = 100 + odd; id < 1300; id += 2) expected.push_back(id);
    gate.set();
    delete worker;
    EXPECT_EQ(ran, expected) << "drained in order, and 99 refused while stopping";
    EXPECT_TRUE(initThread != 0 && initThread == exitThread && initThread != syscall(SYS_gettid));

    oletest::LogCapture log;
    for (bool throws : {false, true}) {
        const auto fail =
            call<ThreadSafe>([throws](NoCtx&) { return throws ? throw std::runtime_error("init") : false; });
        WorkerThreadQueue<ThreadSafe> worker("ole-failing", fail, NullCommand<NoCtx, ThreadSafe>());
        EXPECT_TRUE(!worker.threadRunning() && worker.threadState() == 3);
        worker.insert(note<ThreadSafe>(ran, 1), 0);
        for (int i = 0; i < 1000 && worker.threadExitCode() == -1; ++i) usleep(10000);
        EXPECT_EQ(worker.threadExitCode(), 999);
        EXPECT_EQ(log.contains("Warning: WorkerTheadQueue init command threw an execption.\n"), throws);
    }
    EXPECT_EQ(ran.size(), expected.size()) << "nothing runs after a failed init";
}

// Each command runs exactly once and none is lost at shutdown, with four threads inserting at once.
TEST(WorkerThreadQueue, StressFourProducers) {
    constexpr int kPerProducer = 100000, kProducers = 4;
    std::atomic<int> executed{0};
    std::vector<std::atomic<unsigned char>> hits(kPerProducer * kProducers);
    const auto hit = call<ThreadSafe, int>([&](int& id) { return ++hits[id], ++executed, true; });
    {
        WorkerThreadQueue<ThreadSafe, int> worker("ole-stress", NullCommand<int, ThreadSafe>(),
                                                  NullCommand<int, ThreadSafe>());
        std::vector<std::thread> producers;
        for (int t = 0; t < kProducers; ++t)
            producers.emplace_back([&, t] {
                for (int i = 0; i < kPerProducer; ++i)
                    worker.insert(hit, unsigned(i % 16), t * kPerProducer + i);
            });
        for (auto& p : producers) p.join();  // drain most first: a slow machine must fit the 5 s stop wait
        for (int i = 0; i < 6000 && executed < kPerProducer * kProducers - 1000; ++i) usleep(10000);
    }
    EXPECT_EQ(std::count(hits.begin(), hits.end(), 1), kPerProducer * kProducers);
}

// Two inserts, then a wait for both, many times: a worker that went to sleep with the second insert still
// being made, while that insert saw the first one's wake-up still pending, would leave it waiting.
TEST(WorkerThreadQueue, NeverSleepsWithAnInsertPending) {
    constexpr int kRounds = 20000;
    std::atomic<int> executed{0};
    const auto bump = call<ThreadSafe>([&](NoCtx&) { return ++executed, true; });
    WorkerThreadQueue<ThreadSafe> worker("ole-rounds", NullCommand<NoCtx, ThreadSafe>(),
                                         NullCommand<NoCtx, ThreadSafe>());
    for (int round = 1; round <= kRounds; ++round) {
        worker.insert(bump, 0);
        worker.insert(bump, 0);
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        while (executed < 2 * round && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
        ASSERT_EQ(executed, 2 * round) << "round " << round;
    }
}

TEST(Pool, FourThreadsNeverShareABlockAndEveryBlockComesBack) {
    struct Node : QvPooledObject<Node> {
        explicit Node(long t) : owner{t, t, t} {}
        long owner[3];
    };
    std::atomic<int> clashes{0};
    std::vector<std::thread> threads;
    for (long t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (int round = 0; round < 2000; ++round) {
                Node* held[32];
                for (Node*& n : held) n = new Node(t);
                for (Node* n : held) clashes += n->owner[0] != t || n->owner[2] != t, delete n;
            }
        });
    for (auto& t : threads) t.join();
    const Qv::BlockPool& pool = Node::pool();
    // Small blocks are made 64 at a time: one run covers the 32 a thread holds, and is then reused.
    EXPECT_TRUE(clashes == 0 && pool.freeBlocks() == pool.blocksMade() && pool.blocksMade() <= 4u * 64u);
    EXPECT_EQ(&QvLokiSingleton<QvPoolOf<Node>>::instance(), &pool);
}

TEST(Pool, ThreadCachesReuseBlocksAndHandThemBackWhenTheThreadEnds) {
    struct Node : QvPooledObject<Node> {
        long value[2];
    };
    const Qv::BlockPool& pool = Node::pool();
    const auto churn = [](std::size_t count) {
        std::vector<Node*> held(count);
        for (Node*& n : held) n = new Node;
        for (Node* n : held) delete n;
    };
    std::thread([&] {
        Node* first = new Node;
        EXPECT_EQ(reinterpret_cast<uintptr_t>(first) % 64, 16u)
            << "a small block starts a line, after its header";
        delete first;
        EXPECT_TRUE(new Node == first&& pool.freeBlocks() == 0) << "the freed block waits in this thread";
        churn(300);
        EXPECT_TRUE(pool.freeBlocks() > 0 && pool.freeBlocks() < 300) << "a full cache hands some back";
        delete first;
    }).join();
    const uint64_t made = pool.blocksMade();
    EXPECT_EQ(pool.freeBlocks(), made) << "an ended thread's cache is back on the stack";
    std::thread([&] { churn(made); }).join();
    EXPECT_EQ(pool.blocksMade(), made) << "another thread reuses them all";
}

TEST(CompletionPortHandler, DeliversFileCompletionsOnPinnedThreads) {
    const std::string path = oletest::makeTempDir("port") + "/data.bin", content(10000, 'q');
    for (const char* engine : {"automatic", "threads"}) {
        ASSERT_TRUE(oletest::writeFile(path, content));
        setenv("OLE_COMPLETION_PORT", engine, 1);
        using Context = CompletionPortHandlerCallbackContext;
        std::vector<Context> got;  // each completion, and the thread that delivered it
        std::vector<long> threads;
        Qv::Event done;
        CompletionPortHandler::Callback cb = call<ThreadSafe, Context>([&](Context& c) {
            return got.push_back(c), threads.push_back(long(syscall(SYS_gettid))), done.set(), true;
        });
        CompletionPortHandler handler("io", cb, 0, 0, -1, -1);
        unsetenv("OLE_COMPLETION_PORT");
        const unsigned count = handler.threadCount();
        handler.createThread(-999, 1);  // no such processor
        EXPECT_TRUE(handler.threadCount() == count && hasThreadNamed("$ io Proc[1]Pri"));

        Qv::Ptr<iFile> file(new iFile(
            OS()->fileSystem()->open(std::wstring(path.begin(), path.end()).c_str(), Qv::OSFile::ReadWrite)));
        std::string buffer(20000, '\0');
        EXPECT_FALSE(file->readAsync(&buffer[0], 20000, 0)) << "not attached yet";
        ASSERT_TRUE(handler.attach(file) && file->readAsync(&buffer[0], 20000, 0) && done.wait(kGiveUpMs));
        handler.post(7, 0, 0);  // not a completion status: ignored
        ASSERT_TRUE(file->writeAsync("xyz", 3, 10000) && done.wait(kGiveUpMs));
        ASSERT_EQ(got.size(), 2u);
        EXPECT_TRUE(got[0].bytesProcessed() == 10000 && got[1].bytesProcessed() == 3 && got[0].succeeded() &&
                    got[1].succeeded() && got[0].context() == file->completionKey());
        cpu_set_t cpus;
        EXPECT_TRUE(sched_getaffinity(pid_t(threads[0]), sizeof cpus, &cpus) == 0 && CPU_COUNT(&cpus) == 1)
            << "the delivering thread is pinned to one processor";
        EXPECT_TRUE(buffer.substr(0, 10000) == content && oletest::readFile(path) == content + "xyz")
            << engine;
    }
}

}  // namespace
