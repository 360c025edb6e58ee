// Critical sections, timed mutexes, events and named threads of the operating-system layer.

#include <ole/platform/CompletionPort.h>
#include <ole/platform/Threads.h>

#include <gtest/gtest.h>

#include <pthread.h>
#include <sched.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

// Waits that a broken implementation would never end give up after this long, so that the test fails
// instead of hanging. Nothing is asserted about how long anything takes.
constexpr unsigned kGiveUpMs = 10000;

template <class F>
auto onOtherThread(F body) {
    decltype(body()) result{};
    std::thread([&] { result = body(); }).join();
    return result;
}

TEST(CriticalSection, IsRecursiveAndExcludesOtherThreads) {
    Qv::CriticalSection cs;
    {
        Qv::CriticalSection::Lock outer(cs);
        Qv::CriticalSection::Lock inner(cs);  // the owner may enter again
        EXPECT_FALSE(onOtherThread([&] { return cs.tryEnter(); }));
    }
    EXPECT_TRUE(onOtherThread([&] { return cs.tryEnter() ? (cs.leave(), true) : false; }));

    int counter = 0;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 10000; ++i) {
                Qv::CriticalSection::Lock lock(cs);
                ++counter;
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(counter, 40000);
}

TEST(Mutex, TimesOutWhileHeldElsewhere) {
    Qv::Mutex mutex;
    ASSERT_TRUE(mutex.lock());
    EXPECT_FALSE(onOtherThread([&] { return mutex.lock(20); }));
    EXPECT_FALSE(onOtherThread([&] { return mutex.lock(0); }));
    std::atomic<bool> taken{false};
    std::thread waiter([&] {
        taken = mutex.lock(Qv::Mutex::kInfinite);
        mutex.unlock();
    });
    mutex.unlock();
    waiter.join();
    EXPECT_TRUE(taken);
}

TEST(Event, ManualResetStaysSetUntilReset) {
    Qv::Event event(true);
    EXPECT_FALSE(event.wait(0));
    event.set();
    EXPECT_TRUE(event.wait(0) && event.wait(0));
    event.reset();
    EXPECT_FALSE(event.isSet());
    EXPECT_TRUE(Qv::Event(true, true).wait(0));

    Qv::Event gate(true);
    std::atomic<int> released{0};
    std::vector<std::thread> waiters;
    for (int t = 0; t < 3; ++t) waiters.emplace_back([&] { released += gate.wait(kGiveUpMs); });
    gate.set();
    for (auto& w : waiters) w.join();
    EXPECT_EQ(released.load(), 3) << "one set releases every waiter";
}

TEST(Event, AutomaticResetIsTakenByOneWait) {
    Qv::Event event(false, true);
    EXPECT_TRUE(event.wait(0));
    EXPECT_FALSE(event.isSet());
    EXPECT_FALSE(event.wait(0));

    std::atomic<bool> woke{false};
    std::thread waiter([&] { woke = event.wait(); });
    event.set();
    waiter.join();
    EXPECT_TRUE(woke);
    EXPECT_FALSE(event.isSet()) << "consumed by the waiter";

    // Each set releases exactly one of two waiters.
    std::atomic<int> released{0}, finished{0};
    auto waitOnce = [&] {
        released += event.wait(kGiveUpMs);
        ++finished;
    };
    std::thread a(waitOnce), b(waitOnce);
    event.set();
    while (finished.load() == 0) std::this_thread::yield();
    EXPECT_FALSE(event.isSet());
    event.set();
    a.join();
    b.join();
    EXPECT_EQ(released.load(), 2);
}

TEST(Event, WaitForAnyGivesTheLowestSetIndex) {
    Qv::Event manual(true), autoA, autoB;
    Qv::Event* events[] = {&manual, &autoA, &autoB};
    EXPECT_EQ(Qv::Event::waitForAny(events, 3, 10), -1);

    autoA.set();
    autoB.set();
    EXPECT_EQ(Qv::Event::waitForAny(events, 3, 0), 1);
    EXPECT_FALSE(autoA.isSet()) << "the returned automatic event is taken";
    EXPECT_TRUE(autoB.isSet()) << "the others are left alone";

    manual.set();
    EXPECT_EQ(Qv::Event::waitForAny(events, 3, 0), 0);
    EXPECT_EQ(Qv::Event::waitForAny(events, 3, 0), 0) << "a manual event stays set";
    manual.reset();
    EXPECT_EQ(Qv::Event::waitForAny(events, 3, kGiveUpMs), 2);

    std::thread setter([&] { autoA.set(); });
    EXPECT_EQ(Qv::Event::waitForAny(events, 3), 1);
    setter.join();
}

TEST(Thread, RunsNamedJoinsAndRestarts) {
    Qv::Thread thread;
    Qv::Event proceed(true);
    std::atomic<int> runs{0};
    char name[32] = {};
    cpu_set_t allowed, free;
    ASSERT_EQ(sched_getaffinity(0, sizeof allowed, &allowed), 0);
    ASSERT_TRUE(thread.start("ole-worker-with-a-long-name", [&] {
        pthread_getname_np(pthread_self(), name, sizeof name);
        sched_getaffinity(0, sizeof free, &free);
        proceed.wait(kGiveUpMs);
        ++runs;
    }));
    EXPECT_TRUE(thread.running());
    EXPECT_FALSE(thread.start("second", [] {})) << "one body at a time";
    proceed.set();
    thread.join();
    EXPECT_FALSE(thread.running());
    EXPECT_EQ(std::string(name), "ole-worker-with");  // Linux keeps 15 characters
    EXPECT_TRUE(CPU_EQUAL(&free, &allowed)) << "the default affinity leaves every processor";

    // Pinned to the last processor this process may use, at a raised priority it may not get.
    int target = 0;
    for (int i = 0; i < 64; ++i)
        if (CPU_ISSET(i, &allowed)) target = i;
    int cpu = -1;
    ASSERT_TRUE(thread.start(
        "pinned", [&] { cpu = sched_getcpu(); }, Qv::Thread::Highest, uint64_t(1) << target));
    thread.join();
    EXPECT_EQ(cpu, target);

    std::atomic<bool> finished{false};
    {
        Qv::Thread unjoined;
        ASSERT_TRUE(unjoined.start("unjoined", [&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            finished = true;
        }));
    }
    EXPECT_TRUE(finished) << "destroying a running thread waits for it";
    EXPECT_EQ(runs.load(), 1);
}

}  // namespace

TEST(Thread, ProcedureExitCodeAndDetach) {
    Qv::Thread thread;
    EXPECT_EQ(thread.exitCode(), -1);
    int argument = 41;
    ASSERT_TRUE(thread.start(
        "procedure", [](void* a) { return ++*static_cast<int*>(a); }, &argument));
    thread.join();
    EXPECT_EQ(thread.exitCode(), 42);

    auto gate = std::make_shared<Qv::Event>(true);
    ASSERT_TRUE(thread.start("detached", [gate] { gate->wait(kGiveUpMs); }));
    thread.detach();
    EXPECT_FALSE(thread.running()) << "no longer ours to join";
    gate->set();
}

TEST(CompletionPort, PostedCompletionsReachOneWaiterEachInOrder) {
    for (auto engine : {Qv::CompletionPort::kUring, Qv::CompletionPort::kThreads}) {
        Qv::CompletionPort port(engine);
        EXPECT_TRUE(engine == Qv::CompletionPort::kUring || !port.usesUring());
        Qv::Completion c;
        EXPECT_FALSE(port.wait(c, 10));
        for (uint32_t i = 0; i < 3; ++i) ASSERT_TRUE(port.post(int32_t(i), i * 10, 100 + i));
        for (uint32_t i = 0; i < 3; ++i) {
            ASSERT_TRUE(port.wait(c, kGiveUpMs));
            EXPECT_EQ(c.status, int32_t(i));
            EXPECT_EQ(c.bytes, i * 10);
            EXPECT_EQ(c.key, 100 + i);
        }
        // Several waiters: each quit completion ends exactly one of them.
        std::atomic<int> ended{0};
        std::vector<std::thread> waiters;
        for (int t = 0; t < 3; ++t)
            waiters.emplace_back([&] {
                Qv::Completion mine;
                while (port.wait(mine, kGiveUpMs) && mine.status != Qv::CompletionPort::kQuit) {
                }
                ++ended;
            });
        for (int t = 0; t < 3; ++t) port.post(Qv::CompletionPort::kQuit, 0, 0);
        for (auto& w : waiters) w.join();
        EXPECT_EQ(ended.load(), 3);
        EXPECT_FALSE(port.wait(c, 0));
    }
}
