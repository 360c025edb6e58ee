#include <ole/platform/CompletionPort.h>
#include <ole/platform/Threads.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

// Bounds waits a broken implementation would never end, so the test fails instead of hanging.
constexpr unsigned kGiveUpMs = 10000;

auto spawn = [](auto body) { return std::async(std::launch::async, body); };  // its future joins the thread

template <class F>
void onThreads(int count, F body) {
    std::vector<std::thread> threads;
    for (int t = 0; t < count; ++t) threads.emplace_back(body);
    for (auto& thread : threads) thread.join();
}

TEST(Locks, CriticalSectionIsRecursiveAndExclusiveMutexTimesOut) {
    Qv::CriticalSection cs;
    {
        Qv::CriticalSection::Lock outer(cs);
        Qv::CriticalSection::Lock inner(cs);  // the owner may enter again
        EXPECT_FALSE(spawn([&] { return cs.tryEnter(); }).get());
    }
    EXPECT_TRUE(spawn([&] { return cs.tryEnter() ? (cs.leave(), true) : false; }).get());
    int counter = 0;
    onThreads(4, [&] {
        for (int i = 0; i < 10000; ++i) cs.enter(), ++counter, cs.leave();
    });
    EXPECT_EQ(counter, 40000);
    cs.enter();  // held long enough for a waiter to go to sleep, which leaving must wake
    auto sleeper = spawn([&] { return cs.enter(), cs.leave(), true; });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    cs.leave();
    EXPECT_EQ(sleeper.wait_for(std::chrono::milliseconds(kGiveUpMs)), std::future_status::ready);

    Qv::Mutex mutex;
    ASSERT_TRUE(mutex.lock());
    EXPECT_FALSE(spawn([&] { return mutex.lock(20) || mutex.lock(0); }).get());
    auto taken = spawn([&] { return mutex.lock(Qv::Mutex::kInfinite) ? (mutex.unlock(), true) : false; });
    mutex.unlock();
    EXPECT_TRUE(taken.get());
}

TEST(Event, ManualStaysSetAutomaticIsTakenByOneWaitAnyGivesTheLowestIndex) {
    Qv::Event manual(true), autoA(false, true), autoB;
    EXPECT_FALSE(manual.wait(0));
    manual.set();
    EXPECT_TRUE(manual.wait(0) && manual.wait(0));
    manual.reset();
    std::atomic<int> released{0}, finished{0};
    auto setter = spawn([&] { manual.set(); });
    onThreads(3, [&] { released += manual.wait(kGiveUpMs); });
    EXPECT_EQ(released.load(), 3) << "one set releases every waiter";

    EXPECT_TRUE(Qv::Event(true, true).wait(0) && autoA.wait(0) && !autoA.isSet() && !autoA.wait(0));
    released = 0;  // each set releases exactly one of two waiters
    auto waitOnce = [&] { released += autoA.wait(kGiveUpMs), ++finished; };
    std::thread a(waitOnce), b(waitOnce);
    autoA.set();
    while (finished.load() == 0) std::this_thread::yield();
    EXPECT_FALSE(autoA.isSet()) << "consumed by the waiter";
    autoA.set(), a.join(), b.join();
    EXPECT_EQ(released.load(), 2);

    Qv::Event* events[] = {&manual, &autoA, &autoB};
    manual.reset();
    EXPECT_EQ(Qv::Event::waitForAny(events, 3, 10), -1);
    autoA.set(), autoB.set();
    EXPECT_EQ(Qv::Event::waitForAny(events, 3, 0), 1);
    EXPECT_TRUE(!autoA.isSet() && autoB.isSet()) << "only the returned autoA event is taken";
    manual.set();  // a manual event stays set
    EXPECT_TRUE(Qv::Event::waitForAny(events, 3, 0) == 0 && Qv::Event::waitForAny(events, 3, 0) == 0);
    manual.reset();
    EXPECT_EQ(Qv::Event::waitForAny(events, 3, kGiveUpMs), 2);
    auto setterA = spawn([&] { autoA.set(); });
    EXPECT_EQ(Qv::Event::waitForAny(events, 3), 1);
}

TEST(Thread, RunsNamedJoinsAndRestarts) {
    Qv::Thread thread;
    EXPECT_EQ(thread.exitCode(), -1);
    Qv::Event proceed(true);
    char name[32] = {};
    cpu_set_t allowed, free;
    ASSERT_EQ(sched_getaffinity(0, sizeof allowed, &allowed), 0);
    ASSERT_TRUE(thread.start("ole-worker-with-a-long-name", [&] {
        pthread_getname_np(pthread_self(), name, sizeof name), sched_getaffinity(0, sizeof free, &free);
        proceed.wait(kGiveUpMs);
    }));
    EXPECT_TRUE(thread.running() && !thread.start("second", [] {})) << "one body at a time";
    proceed.set(), thread.join();
    EXPECT_EQ(std::string(name), "ole-worker-with");  // Linux keeps 15 characters
    EXPECT_TRUE(!thread.running() && CPU_EQUAL(&free, &allowed))
        << "joined; default affinity allows all CPUs";

    // Pinned to the last processor this process may use, at a raised priority it may not get.
    int target = 0, cpu = -1, argument = 41;
    for (int i = 0; i < 64; ++i) target = CPU_ISSET(i, &allowed) ? i : target;
    ASSERT_TRUE(thread.start(
        "pinned", [&] { cpu = sched_getcpu(); }, Qv::Thread::Highest, uint64_t(1) << target));
    thread.join();
    EXPECT_EQ(cpu, target);
    ASSERT_TRUE(thread.start(
        "procedure", [](void* a) { return ++*static_cast<int*>(a); }, &argument));
    thread.join();
    EXPECT_EQ(thread.exitCode(), 42);

    std::atomic<bool> finished{false};
    Qv::Thread().start("unjoined", [&] { finished = !Qv::Event().wait(20); });
    EXPECT_TRUE(finished) << "destroying a running thread waits for it";
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
        for (uint32_t i = 0; i < 3; ++i) ASSERT_TRUE(port.post(int32_t(i), i + 9, i + 7));
        for (uint32_t i = 0; i < 3; ++i)
            EXPECT_TRUE(port.wait(c, kGiveUpMs) && c.status == int(i) && c.bytes == i + 9 && c.key == i + 7);
        std::atomic<int> ended{0};  // each quit completion ends exactly one of several waiters
        for (int t = 0; t < 3; ++t) port.post(2, 0, 0);  // the quit status
        onThreads(3, [&] {
            Qv::Completion mine;
            ended += port.wait(mine, kGiveUpMs) && mine.status == Qv::CompletionPort::kQuit;
        });
        EXPECT_TRUE(ended.load() == 3 && !port.wait(c, 0));
    }
}

}  // namespace
