// Command handles, queues, worker threads, pools and the completion port handler.

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
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace QvDC;
using QvCmdProcessors::Queue;
using QvCmdProcessors::WorkerThreadQueue;
using ThreadSafetyTraits::NoLocking;
using ThreadSafetyTraits::ThreadSafe;

constexpr unsigned kGiveUpMs = 10000;

// A command running a function; counts live representations so that leaks and double frees show.
std::atomic<int> liveCalls{0};
template <class TS, class Ctx = NoCtx>
struct Call : CommandRep<Ctx, TS> {
    explicit Call(std::function<bool(Ctx&)> f) : f(std::move(f)) { ++liveCalls; }
    ~Call() override { --liveCalls; }
    bool execute(Ctx& c) override { return f(c); }
    std::function<bool(Ctx&)> f;
};
template <class TS, class Ctx = NoCtx, class F>
Cmd<Ctx, TS> call(F f) {
    return Cmd<Ctx, TS>(new Call<TS, Ctx>(std::move(f)));
}
// A command that appends `id` to `log` and returns `ok`.
template <class TS>
Cmd<NoCtx, TS> note(std::vector<int>& log, int id, bool ok = true) {
    return call<TS>([&log, id, ok](NoCtx&) { return log.push_back(id), ok; });
}

TEST(Cmd, HandlesShareCountAndCompare) {
    oletest::LogCapture log;
    NoCtx none;
    EXPECT_FALSE(Cmd<NoCtx>().execute(none));
    EXPECT_TRUE(log.contains("Attempted to use unitinitalized QvDecoupler::Command!"));
    EXPECT_TRUE(NullCommand<NoCtx>().execute(none));

    std::vector<int> ran;
    {
        Cmd<NoCtx> a = note<NoLocking>(ran, 1), b = note<NoLocking>(ran, 2), copy = a;
        EXPECT_EQ(a.getRep()->refCount(), 2);
        copy = a;
        copy = copy;
        EXPECT_EQ(a.getRep()->refCount(), 2);
        const bool table[][2] = {{Cmd<NoCtx>() == Cmd<NoCtx>(), true},
                                 {NullCommand<NoCtx>() == Cmd<NoCtx>(), true},
                                 {a == copy, true},
                                 {a == b, false},
                                 {a == NullCommand<NoCtx>(), false}};
        for (const auto& row : table) EXPECT_EQ(row[0], row[1]);
        EXPECT_TRUE(a.isValid() && !Cmd<NoCtx>().isValid() && NullCommand<NoCtx>().isNullCommand());
        copy.execute(none);
    }
    EXPECT_EQ(ran, std::vector<int>{1});
    EXPECT_EQ(liveCalls.load(), 0);
}

// A receiver serving two simple commands: told which one runs, it records the command and the context.
struct Counter : Receiver<SmplCmd<int, NoTag, ThreadSafe>> {
    bool executeCommand(SmplCmd<int, NoTag, ThreadSafe>& c, int& ctx) override {
        seen.push_back(c == first ? ctx : -ctx);
        return true;
    }
    SmplCmd<int, NoTag, ThreadSafe> first{this};
    std::vector<int> seen;
};

TEST(Cmd, SimpleAndCompoundCommands) {
    Counter counter;
    SmplCmd<int, NoTag, ThreadSafe> second(&counter);
    int ctx = 7;
    EXPECT_TRUE(counter.first.execute(ctx) && second.execute(ctx));
    EXPECT_EQ(counter.seen, (std::vector<int>{7, -7}));

    std::vector<int> ran;
    CompCmd<NoCtx, ThreadSafe> ordered(true), arrival(false);
    const Cmd<NoCtx, ThreadSafe> fails = note<ThreadSafe>(ran, 0, false);
    for (int p : {5, 1, 5, 3}) {
        ordered.add(note<ThreadSafe>(ran, p * 10 + int(ordered.size())), p);
        arrival.add(note<ThreadSafe>(ran, p), p);
    }
    NoCtx none;
    EXPECT_TRUE(ordered.execute(none));
    EXPECT_EQ(ran, (std::vector<int>{11, 33, 50, 52}));  // ascending, equal priorities in order added
    ran.clear();
    arrival.add(fails, 0);
    arrival.add(Cmd<NoCtx, ThreadSafe>(), 0);
    arrival.add(note<ThreadSafe>(ran, 9), 0);
    EXPECT_FALSE(arrival.execute(none));
    EXPECT_EQ(ran, (std::vector<int>{5, 1, 5, 3, 0, 9})) << "every member runs";
    ran.clear();
    arrival.stopOnFailure(true);
    EXPECT_FALSE(arrival.execute(none));
    EXPECT_EQ(ran, (std::vector<int>{5, 1, 5, 3, 0})) << "stops at the first failure";
    EXPECT_TRUE(arrival.remove(fails));
    EXPECT_FALSE(arrival.remove(fails));
}

template <class TS>
class QueueTest : public testing::Test {};
using Policies = testing::Types<NoLocking, ThreadSafe>;
TYPED_TEST_SUITE(QueueTest, Policies);

TYPED_TEST(QueueTest, OrdersAndStopsAtTheFirstItemThatDoesNotQualify) {
    struct Case {
        bool prioritised;
        std::vector<unsigned> priorities;
        std::function<void(Queue<TypeParam>&)> op;
        std::vector<int> ran, left;  // items are identified by insertion index
    };
    using Q = Queue<TypeParam>;
    const Case cases[] = {
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
    for (const Case& c : cases) {
        std::vector<int> ran;
        Q queue(c.prioritised);
        for (std::size_t i = 0; i < c.priorities.size(); ++i)
            queue.insert(note<TypeParam>(ran, int(i)), c.priorities[i]);
        c.op(queue);
        EXPECT_EQ(ran, c.ran);
        EXPECT_EQ(queue.size(), c.left.size());
        ran.clear();
        queue.executeAll();
        EXPECT_EQ(ran, c.left);
        EXPECT_TRUE(queue.isEmpty());
    }
    EXPECT_EQ(liveCalls.load(), 0);
}

TYPED_TEST(QueueTest, MatchesAStableSortUnderMixedUse) {
    std::mt19937 random(42);
    std::vector<std::pair<unsigned, int>> model;  // what the queue should hold, in order
    std::vector<int> ran;
    Queue<TypeParam> queue(true);
    for (int i = 0; i < 5000; ++i) {
        const unsigned p = random() % (i % 3 ? 8 : 1000);  // long runs, and many short ones
        switch (random() % 4) {
            case 0:
                queue.executeHead();
                if (!model.empty()) model.erase(model.begin());
                break;
            case 1:
                queue.flushPriorityLessThan(6);
                while (!model.empty() && model.back().first > 6) model.pop_back();
                break;
            default:
                queue.insert(note<TypeParam>(ran, i), p);
                model.insert(std::upper_bound(model.begin(), model.end(), std::make_pair(p, i)), {p, i});
        }
    }
    ran.clear();
    queue.executeAll();
    std::vector<int> expected;
    for (const auto& item : model) expected.push_back(item.second);
    EXPECT_EQ(ran, expected);
}

TYPED_TEST(QueueTest, CommandsUseTheQueueRunningThemAndMayThrow) {
    Queue<TypeParam> queue(true);
    std::vector<int> ran;
    queue.insert(call<TypeParam>([&](NoCtx&) { return queue.insert(note<TypeParam>(ran, 2), 0), true; }), 1);
    queue.insert(call<TypeParam>([&](NoCtx&) { return queue.executeHead(), true; }), 3);
    queue.insert(note<TypeParam>(ran, 4), 4);
    queue.insert(note<TypeParam>(ran, 5), 5);
    queue.executeAll();
    EXPECT_EQ(ran, (std::vector<int>{2, 4, 5})) << "inserted and executed from inside the run";

    queue.insert(call<TypeParam>([](NoCtx&) -> bool { throw std::runtime_error("boom"); }), 1);
    queue.insert(note<TypeParam>(ran, 6), 2);
    EXPECT_THROW(queue.executeAll(), std::runtime_error);
    EXPECT_EQ(queue.size(), 1u);
    std::thread([&] { queue.executeAll(); }).join();  // nothing left locked
    EXPECT_EQ(ran.back(), 6);
}

TEST(Queue, RecursiveAccessFromInsideTheLockThrows) {
    Queue<ThreadSafe> queue;
    std::string error;
    struct TouchesQueueWhenDestroyed : Call<ThreadSafe> {
        TouchesQueueWhenDestroyed(Queue<ThreadSafe>& q, std::string& e)
            : Call([](NoCtx&) { return true; }), q(q), e(e) {}
        ~TouchesQueueWhenDestroyed() override {
            try {
                q.size();
            } catch (const Qv::Exception::RuntimeError& x) {
                e = x.message();
            }
        }
        Queue<ThreadSafe>& q;
        std::string& e;
    };
    queue.insert(Cmd<NoCtx, ThreadSafe>(new TouchesQueueWhenDestroyed(queue, error)), 1);
    EXPECT_EQ(oletest::stdoutOf([&] { queue.flushAll(); }),
              "assertion failed false at ole/misc/Decoupler line 189\n");
    EXPECT_EQ(error, "Recusive access to lock forbidden.");
    std::thread([&] { queue.size(); }).join();  // the lock was left
    EXPECT_TRUE(queue.isEmpty());
}

// Names of this process's threads as the kernel reports them.
std::vector<std::string> threadNames() {
    std::vector<std::string> names;
    for (const std::string& task : oletest::listDirectory("/proc/self/task")) {
        std::string name = oletest::readFile("/proc/self/task/" + task + "/comm");
        names.push_back(name.substr(0, name.find('\n')));
    }
    return names;
}

TEST(WorkerThreadQueue, RunsInOrderDrainsAtShutdownAndRefusesLateInserts) {
    std::vector<int> ran;
    std::atomic<long> initThread{0}, exitThread{0};
    Qv::Event gate(true);
    using Worker = WorkerThreadQueue<ThreadSafe>;
    auto record = [&](int id) { return note<ThreadSafe>(ran, id); };
    Worker* worker = nullptr;
    const auto init = call<ThreadSafe>([&](NoCtx&) { return initThread = syscall(SYS_gettid), true; });
    const auto exit = call<ThreadSafe>([&](NoCtx&) {
        exitThread = syscall(SYS_gettid);
        worker->insert(record(99), 0);  // refused: the worker is stopping
        return true;
    });
    worker = new Worker("ole-decoupler", init, exit, iThread::Normal, 0, true);
    ASSERT_TRUE(worker->threadRunning());
    const auto names = threadNames();
    EXPECT_NE(std::find(names.begin(), names.end(), "ole-decoupler"), names.end());
    worker->insert(call<ThreadSafe>([&](NoCtx&) { return gate.wait(kGiveUpMs); }), 0);
    int i = 0;
    for (int p : {5, 1, 5, 3}) worker->insert(record(p * 10 + i++), p);
    gate.set();
    delete worker;
    EXPECT_EQ(ran, (std::vector<int>{11, 33, 50, 52}));
    EXPECT_TRUE(initThread != 0 && initThread == exitThread && initThread != syscall(SYS_gettid));
}

TEST(WorkerThreadQueue, FailedInitEndsTheThreadWith999) {
    oletest::LogCapture log;
    std::vector<int> ran;
    for (bool throws : {false, true}) {
        WorkerThreadQueue<ThreadSafe> worker("ole-failing", call<ThreadSafe>([throws](NoCtx&) -> bool {
                                                 if (throws) throw std::runtime_error("init");
                                                 return false;
                                             }),
                                             NullCommand<NoCtx, ThreadSafe>());
        EXPECT_FALSE(worker.threadRunning());
        EXPECT_EQ(worker.threadState(), 3);
        worker.insert(note<ThreadSafe>(ran, 1), 0);
        for (int i = 0; i < 1000 && worker.threadExitCode() == -1; ++i) usleep(10000);
        EXPECT_EQ(worker.threadExitCode(), 999);
        EXPECT_EQ(log.contains("Warning: WorkerTheadQueue init command threw an execption.\n"), throws);
    }
    EXPECT_TRUE(ran.empty());
}

// Each command runs exactly once and none is lost at shutdown, with four threads inserting at once.
TEST(WorkerThreadQueue, StressFourProducers) {
#ifdef __SANITIZE_THREAD__
    constexpr int kPerProducer = 10000, kProducers = 4;
#else
    constexpr int kPerProducer = 100000, kProducers = 4;
#endif
    std::atomic<int> executed{0};
    struct Id {
        int value = 0;
    };
    std::vector<std::atomic<unsigned char>> hits(kPerProducer * kProducers);
    const auto hit = call<ThreadSafe, Id>([&](Id& id) { return ++hits[id.value], ++executed, true; });
    {
        WorkerThreadQueue<ThreadSafe, Id> worker("ole-stress", NullCommand<Id, ThreadSafe>(),
                                                 NullCommand<Id, ThreadSafe>());
        std::vector<std::thread> producers;
        for (int t = 0; t < kProducers; ++t)
            producers.emplace_back([&, t] {
                for (int i = 0; i < kPerProducer; ++i)
                    worker.insert(hit, unsigned(i % 16), Id{t * kPerProducer + i});
            });
        for (auto& p : producers) p.join();
        // Most is drained before shutdown so that a slow machine stays within the 5 s shutdown wait;
        // the rest is left for the final drain.
        for (int i = 0; i < 6000 && executed < kPerProducer * kProducers - 1000; ++i) usleep(10000);
    }
    EXPECT_EQ(std::count(hits.begin(), hits.end(), 1), kPerProducer * kProducers);
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
            std::vector<Node*> held;
            for (int round = 0; round < 2000; ++round) {
                for (int i = 0; i < 32; ++i) held.push_back(new Node(t));
                for (Node* n : held) clashes += n->owner[0] != t || n->owner[2] != t;
                for (Node* n : held) delete n;
                held.clear();
            }
        });
    for (auto& t : threads) t.join();
    EXPECT_EQ(clashes.load(), 0);
    const Qv::BlockPool& pool = Node::pool();
    EXPECT_EQ(pool.freeBlocks(), pool.blocksMade());
    EXPECT_LE(pool.blocksMade(), 4u * 32u);
    EXPECT_EQ(&QvLokiSingleton<QvPoolOf<Node>>::instance(), &pool);
}

// Records each completion and the thread that delivered it.
struct Completions : Receiver<SmplCmd<CompletionPortHandlerCallbackContext, NoTag, ThreadSafe>> {
    bool executeCommand(SmplCmd<CompletionPortHandlerCallbackContext, NoTag, ThreadSafe>&,
                        CompletionPortHandlerCallbackContext& c) override {
        got.push_back(c);
        threads.push_back(long(syscall(SYS_gettid)));
        done.set();
        return true;
    }
    std::vector<CompletionPortHandlerCallbackContext> got;
    std::vector<long> threads;
    Qv::Event done;
};

TEST(CompletionPortHandler, DeliversFileCompletionsOnPinnedThreads) {
    const std::string path = oletest::makeTempDir("port") + "/data.bin";
    const std::string content(10000, 'q');
    for (const char* engine : {"automatic", "threads"}) {
        ASSERT_TRUE(oletest::writeFile(path, content));
        setenv("OLE_COMPLETION_PORT", engine, 1);
        Completions completions;
        SmplCmd<CompletionPortHandlerCallbackContext, NoTag, ThreadSafe> callback(&completions);
        CompletionPortHandler::Callback cb = callback;
        CompletionPortHandler handler("io", cb, 0, 0, -1, -1);
        unsetenv("OLE_COMPLETION_PORT");
        const unsigned threads = handler.threadCount();
        handler.createThread(-999, 1);
        EXPECT_EQ(handler.threadCount(), threads);
        const auto names = threadNames();
        EXPECT_NE(std::find(names.begin(), names.end(), "$ io Proc[1]Pri"), names.end());

        Qv::Ptr<iFile> file(new iFile(
            OS()->fileSystem()->open(std::wstring(path.begin(), path.end()).c_str(), Qv::OSFile::ReadWrite)));
        std::string buffer(20000, '\0');
        EXPECT_FALSE(file->readAsync(&buffer[0], 20000, 0)) << "not attached yet";
        ASSERT_TRUE(handler.attach(file));
        ASSERT_TRUE(file->readAsync(&buffer[0], 20000, 0));
        ASSERT_TRUE(completions.done.wait(kGiveUpMs));
        handler.post(7, 0, 0);  // not a completion status: ignored
        ASSERT_TRUE(file->writeAsync("xyz", 3, 10000));
        ASSERT_TRUE(completions.done.wait(kGiveUpMs));
        ASSERT_EQ(completions.got.size(), 2u);
        EXPECT_EQ(completions.got[0].bytesProcessed(), 10000u);
        EXPECT_EQ(completions.got[1].bytesProcessed(), 3u);
        EXPECT_TRUE(completions.got[0].succeeded() && completions.got[1].succeeded());
        EXPECT_EQ(completions.got[0].context(), file->completionKey());
        EXPECT_EQ(buffer.substr(0, 10000), content) << engine;
        // The delivering thread is pinned to one processor.
        cpu_set_t cpus;
        ASSERT_EQ(sched_getaffinity(pid_t(completions.threads[0]), sizeof cpus, &cpus), 0);
        EXPECT_EQ(CPU_COUNT(&cpus), 1);
        EXPECT_EQ(oletest::readFile(path), content + "xyz");
    }
}

}  // namespace
