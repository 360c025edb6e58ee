#include <ole/misc/Notifier.h>

#include <ole/misc/Cookie.h>
#include <ole/platform/Threads.h>

#include "support/StdoutCapture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

namespace {

// A callback running a function; counts live instances so that tests can see callbacks being released.
template <class A>
struct Fn : iCallbackBase<int, A> {
    explicit Fn(std::function<void(const A&)> f) : f_(std::move(f)) { ++live; }
    ~Fn() override { --live; }
    int execute(const A& arg) override { return f_(arg), 1; }
    static inline std::atomic<int> live{0};
    std::function<void(const A&)> f_;
};

template <class A>
Qv::Ptr<iCallbackBase<int, A>> on(std::function<void(const A&)> f) {
    return Qv::Ptr<iCallbackBase<int, A>>(new Fn<A>(std::move(f)));
}

Qv::Ptr<iCallbackBase<int, NotifyMsg>> tagger(std::string& log, const char* tag) {
    return on<NotifyMsg>([&log, tag](const NotifyMsg&) { log += tag; });
}

const auto typeId = [](const char* name) { return NotifyMsgTypeDictionary::instance().intern(name); };
const int kAny = 0, kDestroy = 1;

std::string fire(Notifier& n, std::string& log, int type) {
    log.clear(), n.issueNotification(NotifyMsg("x"), type);
    return log;
}

TEST(NotifyMsgTypeDictionary, InternsDenseIdsAndNamesThem) {
    NotifyMsgTypeDictionary& d = NotifyMsgTypeDictionary::instance();
    const int id = int(d.size());
    EXPECT_EQ(std::make_tuple(d.intern("*"), d.intern("destroy!"), d.intern("Dict"), d.intern("Dict")),
              std::make_tuple(kAny, kDestroy, id, id));
    EXPECT_TRUE(d.msgTypeName(id) == "Dict" && d.msgTypeName(99999).empty());
}

TEST(Notifier, DeliversInRegistrationOrderWithWildcardsBothWays) {
    const int a = typeId("OrderA"), b = typeId("OrderB");
    Notifier n;
    std::string log;
    Qv::Ptr<CallbackChain> chain(new CallbackChain(tagger(log, "4"), tagger(log, "5")));
    const std::vector<Qv::Ptr<Qv::Guard>> guards = {
        n.registerNotification(tagger(log, "1"), a), n.registerNotification(tagger(log, "2"), kAny),
        n.registerNotification(tagger(log, "3"), b), n.registerNotification(chain, a)};

    EXPECT_EQ(fire(n, log, a) + "|" + fire(n, log, b) + "|" + fire(n, log, kAny), "1245|23|12345");
}

struct OpenNotifier : Notifier {
    CallbackInvokerBase* first() const { return static_cast<CallbackInvokerBase*>(invokers_.first()); }
};

TEST(Notifier, DeregisteringByTheInvokerLeavesTheGuardValid) {
    const int a = typeId("InvokerA"), b = typeId("InvokerB");
    OpenNotifier n;
    std::string log;
    auto guard = n.registerNotification(tagger(log, "c"), kAny);
    auto copy = guard;
    guard.reset();  // the copy keeps the registration; releasing the last guard deregisters
    EXPECT_EQ(fire(n, log, kAny), "c");
    n.deregisterNotification(copy);
    EXPECT_TRUE(copy == nullptr && fire(n, log, kAny).empty() && n.numRegistrations() == 0 &&
                Fn<NotifyMsg>::live == 0);

    guard = n.registerNotification(tagger(log, "c"), a);
    CallbackInvokerBase* invoker = n.first();
    ASSERT_TRUE(invoker && invoker->typeMatch(a) && invoker->typeMatch(kAny) && !invoker->typeMatch(b));
    n.deregisterNotification(invoker);
    EXPECT_TRUE(fire(n, log, a).empty() && n.numRegistrations() == 0);
    EXPECT_EQ(Fn<NotifyMsg>::live, 1) << "the guard still holds the registration";
    guard.reset();
    EXPECT_EQ(Fn<NotifyMsg>::live, 0);
}

TEST(Notifier, CallbacksMayChangeTheNotifierCallingThem) {
    Notifier n;
    std::string log;
    Qv::Ptr<Qv::Guard> self, victim, added;
    self = n.registerNotification(on<NotifyMsg>([&](const NotifyMsg&) {
                                      log += "s";
                                      self.reset();    // drops itself mid-walk
                                      victim.reset();  // and a later registration
                                      added = n.registerNotification(tagger(log, "a"), kAny);
                                  }),
                                  kAny);
    auto keeper = n.registerNotification(tagger(log, "k"), kAny);
    victim = n.registerNotification(tagger(log, "v"), kAny);

    EXPECT_EQ(fire(n, log, kAny), "sk");  // the victim is skipped, the newcomer waits for the next issue
    EXPECT_EQ(n.numRegistrations() + 10 * Fn<NotifyMsg>::live, 22u)
        << "the dropped ones are freed at the end";
    EXPECT_EQ(fire(n, log, kAny), "ka");

    // A nested issue from a callback runs to completion inside the outer one.
    const int inner = typeId("Inner"), outer = typeId("Outer");
    auto nester = n.registerNotification(
        on<NotifyMsg>([&](const NotifyMsg&) { n.issueNotification(NotifyMsg("nested"), inner); }), outer);
    EXPECT_EQ(fire(n, log, outer), "kaka");

    // A caller that holds the notifier's lock (entered here, then again inside the library) may register.
    Qv::CriticalSection::Lock hold(n.criticalSection());
    EXPECT_TRUE(n.registerNotification(tagger(log, "h"), kAny));
}

TEST(Notifier, DestructionMessageLetsClientsDropTheirGuards) {
    Qv::Ptr<Qv::Guard> polite, stubborn, plain;
    int destroyValue = -1;
    {
        NotifierEx<int> ex;
        polite = ex.registerNotification(on<NotifierEvent<int>>([&](const NotifierEvent<int>& ev) {
                                             EXPECT_TRUE(ev.type == kDestroy && ev.sender == &ex);
                                             destroyValue = ev.value, polite.reset();
                                         }),
                                         kDestroy);
        stubborn = ex.registerNotification(on<NotifierEvent<int>>([](const NotifierEvent<int>&) {}), kAny);
        Notifier n;
        plain = n.registerNotification(on<NotifyMsg>([&](const NotifyMsg& m) {
                                           EXPECT_TRUE(m.type() == kDestroy && m.sender() == &n);
                                           plain.reset();
                                       }),
                                       kAny);
    }
    EXPECT_TRUE(destroyValue == 0 && polite == nullptr && plain == nullptr &&
                NotifierEvent<int>().type == 0 && Fn<NotifierEvent<int>>::live == 1);
    stubborn.reset();  // outlived its notifier: releasing it only frees the callback
    EXPECT_EQ(Fn<NotifierEvent<int>>::live, 0);
}

TEST(NotifyMsg, CopiesShareOneBodyAndTokensSplitOnBlanks) {
    struct Payload : iObject {};
    Qv::Ptr<iObject> payload(new Payload);
    NotifyMsg a("text", payload), c;
    c = a;
    EXPECT_TRUE(a.rep() == c.rep() && c.payload() == payload &&
                std::string(static_cast<const char*>(c)) == "text" &&
                static_cast<const char*>(NotifyMsg()) == nullptr);

    std::vector<std::string> words;
    for (NotifyMsgTokenIterator it(NotifyMsg("  alpha \t beta\n\ngamma   ")); ++it;) words.push_back(*it);
    EXPECT_EQ(words, (std::vector<std::string>{"alpha", "beta", "gamma"}));
    for (const NotifyMsg& blank : {NotifyMsg(""), NotifyMsg("   \t "), NotifyMsg()})
        EXPECT_FALSE(++NotifyMsgTokenIterator{blank});
}

TEST(Notifiable, QueuesBodiesForLater) {
    struct Recorder : Notifiable {
        std::vector<std::string> got;
        void notify(const NotifyMsg& m) override { got.push_back("n:" + std::string(m.text().c_str())); }
        void destroy(const NotifyMsg& m) override { got.push_back("d:" + std::string(m.text().c_str())); }
    };
    Recorder r, other;
    NotifyMsg shared("shared");
    r.bufNotify(NotifyMsg()), other.bufNotify(shared);
    Qv::Ptr<Qv::Guard> g;
    {
        Notifier n;
        g = n.registerNotification(Qv::Ptr<iCallbackBase<int, NotifyMsg>>(new NotifiableCallback(&r, true)),
                                   kAny);
        n.issueNotification(NotifyMsg("one"), typeId("One"));
        r.bufNotify(shared);  // its body waits in another queue too: ours gets a copy
        EXPECT_EQ(r.numBuffered(), 2u) << "an empty message is not queued";
    }
    EXPECT_TRUE(r.got.empty()) << "\"destroy!\" is queued as well, nothing runs yet";
    r.processBuffered();
    EXPECT_EQ(r.got, (std::vector<std::string>{"n:one", "n:shared", "d:destroy!"}));
    EXPECT_EQ(r.numBuffered() + 10 * other.numBuffered(), 10u);
}

TEST(DLList, RefusesRecordsOfOtherListsWithItsAssertionLines) {
    DLList a, b;
    DLListRec rec;
    a.append(&rec);
    EXPECT_EQ(oletest::stdoutOf([&] { b.remove(&rec), a.append(&rec); }),
              "assertion failed rec->list_ == this at ole/Qv/DLList line 64\n"
              "assertion failed !rec->isLinked() at ole/Qv/DLList line 51\n");
    EXPECT_TRUE(rec.list() == &a && a.count() == 1 && b.empty());
}

// The first registration numbers every issue; each probe must see a gap-free run of numbers starting and
// ending within the windows of its registration and release (or none if no issue fell between them).
TEST(Notifier, ConcurrentIssuesAndRegistrationsDeliverExactlyOnce) {
    struct Probe {
        std::vector<uint64_t> seen;
        uint64_t before = 0, after = 0, dropStart = 0, dropEnd = 0;
    };
    Notifier n;
    std::atomic<uint64_t> serial{0}, issued{0};
    auto numberer = n.registerNotification(on<NotifyMsg>([&](const NotifyMsg&) { ++serial; }), kAny);

    constexpr int kIssuers = 2, kRegistrars = 2, kProbes = 400;
    std::vector<std::vector<Probe>> probes(kRegistrars, std::vector<Probe>(kProbes));
    std::atomic<int> registrarsLeft{kRegistrars};
    std::vector<std::thread> threads;
    for (int t = 0; t < kIssuers; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 1000 || (registrarsLeft > 0 && i < 100000); ++i, ++issued)
                n.issueNotification(NotifyMsg("tick"), kAny);
        });
    for (int t = 0; t < kRegistrars; ++t)
        threads.emplace_back([&, t] {
            for (Probe& p : probes[t]) {
                p.before = serial.load();
                auto guard = n.registerNotification(
                    on<NotifyMsg>([&](const NotifyMsg&) { p.seen.push_back(serial); }), kAny);
                p.after = serial.load(), std::this_thread::yield();
                p.dropStart = serial.load(), guard.reset(), p.dropEnd = serial.load();
            }
            --registrarsLeft;
        });
    for (std::thread& t : threads) t.join();

    EXPECT_EQ(serial.load(), issued.load());
    for (const auto& list : probes)
        for (const Probe& p : list) {
            bool ok = p.seen.empty() ? p.dropStart <= p.after
                                     : p.seen.front() > p.before && p.seen.front() <= p.after + 1 &&
                                           p.seen.back() >= p.dropStart && p.seen.back() <= p.dropEnd;
            for (std::size_t i = 1; i < p.seen.size(); ++i) ok = ok && p.seen[i] == p.seen[i - 1] + 1;
            EXPECT_TRUE(ok) << "probe seeing " << p.seen.size() << " issues";
        }
    EXPECT_EQ(n.numRegistrations(), 1u);
    numberer.reset();
    EXPECT_EQ(Fn<NotifyMsg>::live, 0);
}

}  // namespace

template class NotifierEx<Cookie>;
template class NotifierEx<LightweightString<wchar_t>>;
