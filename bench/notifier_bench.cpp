// Notifiers against Boost.Signals2: one message issued to 1, 10 and 100 listeners, each of which bumps a
// counter. Both sides are thread-safe (a lock around each issue) and call a member of the listener object
// per slot. NotifyMsg carries a counted body; the value events carry an int.

#include <ole/misc/Notifier.h>

#include <benchmark/benchmark.h>
#include <boost/signals2/signal.hpp>

#include <vector>

namespace {

struct Listener {
    long count = 0;
    int onMsg(const NotifyMsg&) {
        ++count;
        return 0;
    }
    int onEvent(const NotifierEvent<int>& ev) {
        count += ev.value;
        return 0;
    }
};

void BM_Notify_OleNotifier(benchmark::State& state) {
    std::vector<Listener> listeners(state.range(0));
    Notifier notifier;
    const int type = NotifyMsgTypeDictionary::instance().intern("BenchMsg");
    std::vector<Qv::Ptr<Qv::Guard>> guards;
    for (Listener& l : listeners)
        guards.push_back(notifier.registerNotification(makeCallback(&l, &Listener::onMsg), type));
    const NotifyMsg msg("changed");
    for (auto _ : state) notifier.issueNotification(msg, type);
    benchmark::DoNotOptimize(listeners.front().count);
    state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_Notify_OleNotifier)->Arg(1)->Arg(10)->Arg(100)->Complexity();

void BM_Notify_BoostSignals2(benchmark::State& state) {
    std::vector<Listener> listeners(state.range(0));
    boost::signals2::signal<void(const NotifyMsg&)> signal;
    for (Listener& l : listeners) signal.connect([&l](const NotifyMsg& m) { l.onMsg(m); });
    const NotifyMsg msg("changed");
    for (auto _ : state) signal(msg);
    benchmark::DoNotOptimize(listeners.front().count);
    state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_Notify_BoostSignals2)->Arg(1)->Arg(10)->Arg(100)->Complexity();

void BM_ValueEvent_OleNotifierEx(benchmark::State& state) {
    std::vector<Listener> listeners(state.range(0));
    NotifierEx<int> notifier;
    const int type = NotifyMsgTypeDictionary::instance().intern("BenchValue");
    std::vector<Qv::Ptr<Qv::Guard>> guards;
    for (Listener& l : listeners)
        guards.push_back(notifier.registerNotification(makeCallback(&l, &Listener::onEvent), type));
    const NotifierEvent<int> ev(1);
    for (auto _ : state) notifier.issueNotification(ev, type);
    benchmark::DoNotOptimize(listeners.front().count);
    state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_ValueEvent_OleNotifierEx)->Arg(1)->Arg(10)->Arg(100)->Complexity();

void BM_ValueEvent_BoostSignals2(benchmark::State& state) {
    std::vector<Listener> listeners(state.range(0));
    boost::signals2::signal<void(const NotifierEvent<int>&)> signal;
    for (Listener& l : listeners) signal.connect([&l](const NotifierEvent<int>& ev) { l.onEvent(ev); });
    const NotifierEvent<int> ev(1);
    for (auto _ : state) signal(ev);
    benchmark::DoNotOptimize(listeners.front().count);
    state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_ValueEvent_BoostSignals2)->Arg(1)->Arg(10)->Arg(100)->Complexity();

}  // namespace
