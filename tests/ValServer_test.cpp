#include <ole/misc/ValServer.h>

#include "support/StdoutCapture.h"
#include <ole/misc/Cookie.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

namespace {

// Logs what a single-server client hears, with the server's value at that moment.
struct LogClient : ValClient<int> {
    using ValClient<int>::ValClient;
    using ValClient<int>::operator=;
    std::vector<std::string> log;
    void valChangedNtfy() override { log.push_back("post:" + std::to_string(getServerValue())); }
    void valPreChangedNtfy() override { log.push_back("pre:" + std::to_string(getServerValue())); }
};

using Log = std::vector<std::string>;

TEST(ValServer, AnnouncesChangesByKind) {
    ValServer<int> s(1);
    LogClient c(&s);
    s.setValue(2), s.setValue(3, kValueAdjusted);
    s.setValue(4, kValueRefreshed), s.setValue(5, kValueReplaced);
    EXPECT_EQ(c.log, (Log{"pre:1", "post:2", "post:3", "post:4", "pre:4", "post:5"}));
    c.log.clear(), s.setValue(6, kValueChanged, false);  // silently
    EXPECT_EQ(s.getValue(), 6);
    c.disable(), c.disable(), s = 7;
    c.enable(), s = 8;
    EXPECT_TRUE(c.log.empty());  // still disabled once
    c.enable(), c = 9;           // writes through the client
    EXPECT_EQ(c.log, (Log{"pre:8", "post:9"}));
    EXPECT_EQ(int(s), 9);
}

// Counts copies of itself, to see whether a server built an event.
struct Counted {
    Counted() = default;
    Counted(const Counted& other) : v(other.v) { ++copies; }
    Counted& operator=(const Counted&) = default;
    bool operator==(const Counted& other) const { return v == other.v; }
    int v = 0;
    static inline int copies = 0;
};

TEST(ValServer, BuildsNoEventWithoutClients) {
    ValServer<Counted> s;
    Counted::copies = 0;
    s.notifyValChanged(), s.preNotifyValChanged();
    EXPECT_EQ(Counted::copies, 0);
    ValClient<Counted> c(&s);
    s.notifyValChanged();
    EXPECT_GT(Counted::copies, 0);
}

struct Clamp : ValManagerBase<int> {
    std::vector<ValServer<int>*> detached;
    bool approveValue(ValServer<int>*, int& v) override { return (v = std::min(v, 10)) >= 0; }  // veto < 0
    void detachServer(ValServer<int>* s) override { detached.push_back(s); }
};

TEST(ValServer, ManagerVetoesAdjustsAndIsDetached) {
    Clamp first, second;
    std::vector<ValServer<int>*> gone;
    {
        ValServer<int> s(5);
        gone.push_back(&s), s.setManager(&first);
        LogClient c(&s);
        EXPECT_TRUE(!s.updateAndNotify(-1) && s.getValue() == 5);
        EXPECT_TRUE(s.updateAndNotify(42));
        EXPECT_EQ(c.log, (Log{"post:10"}));  // nothing heard of the vetoed value
        s.setManager(&first);                // the same manager again still detaches first
        EXPECT_EQ(first.detached, (std::vector<ValServer<int>*>{&s}));
        s.setManager(&second);
        EXPECT_EQ(first.detached, (std::vector<ValServer<int>*>{&s, &s}));
    }
    EXPECT_EQ(second.detached, gone);
}

TEST(LastValServer, IsKeptPerThreadAndReadOnce) {
    ValServer<int> mine;
    bool theirsIsTheirs = false;
    std::thread([&] {
        ValServer<LightweightString<wchar_t>> other;
        theirsIsTheirs = LastValServer::getLastValServer() == static_cast<ValServerBase*>(&other) &&
                         LastValServer::getLastValServer() == nullptr;
    }).join();
    EXPECT_TRUE(theirsIsTheirs);
    EXPECT_EQ(LastValServer::getLastValServer(), static_cast<ValServerBase*>(&mine));
    EXPECT_EQ(LastValServer::getLastValServer(), nullptr);
    { ValServer<unsigned int> gone; }
    EXPECT_EQ(LastValServer::getLastValServer(), nullptr);  // a dead server does not linger
}

TEST(ValClient, FollowsOneServerUntilToldOrItDies) {
    auto* s = new ValServer<int>(1);
    LogClient c(s);
    c.registerWith(s);
    EXPECT_EQ(s->numClients(), 1u);
    c.registerWith(nullptr), *s = 2;
    EXPECT_EQ(s->numClients() + c.log.size(), 0u);
    c.registerWith(s);
    delete s;
    EXPECT_TRUE(c.getValServer() == nullptr && c.getServerValue() == 0);
    EXPECT_EQ(
        oletest::stdoutOf([&] { c.setServerValue(3); }).rfind("assertion failed server_ != nullptr at ", 0),
        0u);
}

struct Multi : MultiValClient<int> {
    Log log;
    const ValManagerBase<int>* expected = nullptr;
    void valChanged(ValServer<int>* s) override { log.push_back("changed:" + std::to_string(s->getValue())); }
    void startBatchOp(ValManagerBase<int>* m) override { log.push_back(m == expected ? "start" : "start?"); }
    void endBatchOp(ValManagerBase<int>* m) override { log.push_back(m == expected ? "end" : "end?"); }
};

TEST(MultiValClient, FollowsServersAndTheirManagersBatches) {
    ValManagerBase<int> manager;
    ValServer<int> a(1), b(2);
    a.setManager(&manager), b.setManager(&manager);
    auto* unmanaged = new ValServer<int>(3);
    Multi m;
    m.expected = &manager;
    m.addServer(&a), m.addServer(&b), m.addServer(&a), m.addServer(unmanaged);
    EXPECT_TRUE(m.getNumServers() == 3 && manager.numRegistrations() == 1u);  // one per distinct manager

    manager.startBatch(), a = 10, b = 20;
    manager.issueNotification(NotifyMsg("Other"), NotifyMsgTypeDictionary::instance().intern("Other"));
    manager.endBatch();
    EXPECT_EQ(m.log, (Log{"start", "changed:10", "changed:20", "end"}));

    delete unmanaged;  // its receiver leaves with it
    EXPECT_TRUE(m.getNumServers() == 2 && m.getValServer(1) == &b && m.getValServer(2) == nullptr);

    m.log.clear(), m.disable(), a = 11, m.enable();
    EXPECT_TRUE(m.log.empty());
    m.removeServer(&a);
    EXPECT_TRUE(manager.numRegistrations() == 1u && a.numClients() == 0u);  // b still shares it
    m.removeServer(&b);                                                     // the manager's last one
    EXPECT_EQ(manager.numRegistrations(), 0u);
}

}  // namespace

// Servers and clients of whole values, cookies included.
template class ValServer<Cookie>;
template class ValClient<Cookie>;
template class ValClient<LightweightString<char>>;
