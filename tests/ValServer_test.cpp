#include <ole/misc/ValServer.h>

#include "support/StdoutCapture.h"
#include <ole/misc/Cookie.h>

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

namespace {

using Log = std::vector<std::string>;

struct LogClient : ValClient<int> {  // logs what it hears, with the server's value at that moment
    using ValClient<int>::ValClient;
    using ValClient<int>::operator=;
    Log log;
    void valChangedNtfy() override { log.push_back("post:" + std::to_string(getServerValue())); }
    void valPreChangedNtfy() override { log.push_back("pre:" + std::to_string(getServerValue())); }
};

struct Counted {  // counts its copies, to see whether a server built an event
    Counted() = default;
    Counted(const Counted& other) : v(other.v) { ++copies; }
    Counted& operator=(const Counted&) = default;
    bool operator==(const Counted& other) const { return v == other.v; }
    int v = 0;
    static inline int copies = 0;
};

TEST(ValServer, IsItsThreadsLastAndAnnouncesChangesOnlyToClients) {
    ValServer<int> s(1);
    std::thread([&] {
        ValServer<LightweightString<wchar_t>> other;
        EXPECT_TRUE(LastValServer::getLastValServer() == &other && !LastValServer::getLastValServer());
    }).join();
    EXPECT_TRUE(LastValServer::getLastValServer() == &s && !LastValServer::getLastValServer());
    { ValServer<unsigned int> gone; }
    EXPECT_EQ(LastValServer::getLastValServer(), nullptr);  // a dead server does not linger
    LogClient c(&s);
    s.setValue(2), s.setValue(3, kValueAdjusted);
    s.setValue(4, kValueRefreshed), s.setValue(5, kValueReplaced);
    s.setValue(6, kValueChanged, false);  // silently
    EXPECT_EQ(int(s), 6);
    c.disable(), c.disable(), s = 7;
    c.enable(), s = 8;  // still disabled once
    c.enable(), c = 9;  // writes through the client
    EXPECT_EQ(c.log, (Log{"pre:1", "post:2", "post:3", "post:4", "pre:4", "post:5", "pre:8", "post:9"}));

    ValServer<Counted> counted;
    Counted::copies = 0;
    counted.notifyValChanged(), counted.preNotifyValChanged();
    EXPECT_EQ(Counted::copies, 0);
    ValClient<Counted> listener(&counted);
    counted.notifyValChanged();
    EXPECT_GT(Counted::copies, 0);
}

struct Clamp : ValManagerBase<int> {
    std::vector<ValServer<int>*> detached;
    bool approveValue(ValServer<int>*, int& v) override { return (v = v > 10 ? 10 : v) >= 0; }  // veto < 0
    void detachServer(ValServer<int>* s) override { detached.push_back(s); }
};

TEST(ValServer, ManagerVetoesAdjustsAndIsDetached) {
    Clamp first, second;
    {
        ValServer<int> s(5);
        s.setManager(&first);
        LogClient c(&s);
        EXPECT_TRUE(!s.updateAndNotify(-1) && s.getValue() == 5 && s.updateAndNotify(42));
        EXPECT_EQ(c.log, (Log{"post:10"}));  // nothing heard of the vetoed value
        s.setManager(&first);                // the same manager again still detaches first
        EXPECT_EQ(first.detached, (std::vector<ValServer<int>*>{&s}));
        s.setManager(&second);
        EXPECT_EQ(first.detached, (std::vector<ValServer<int>*>{&s, &s}));
    }
    EXPECT_EQ(second.detached, (std::vector<ValServer<int>*>{first.detached[0]}));
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
    const std::string out = oletest::stdoutOf([&] { c.setServerValue(3); });
    EXPECT_EQ(out.rfind("assertion failed server_ != nullptr at ", 0), 0u);
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
    m.expected = &manager, m.addServer(&a), m.addServer(&b), m.addServer(&a), m.addServer(unmanaged);
    EXPECT_TRUE(m.getNumServers() == 3 && manager.numRegistrations() == 1u);  // one per distinct manager

    manager.startBatch(), a = 10, b = 20;
    manager.issueNotification(NotifyMsg("Other"), NotifyMsgTypeDictionary::instance().intern("Other"));
    manager.endBatch();
    EXPECT_EQ(m.log, (Log{"start", "changed:10", "changed:20", "end"}));

    delete unmanaged;  // its receiver leaves with it
    EXPECT_TRUE(m.getNumServers() == 2 && m.getValServer(1) == &b && m.getValServer(2) == nullptr);

    m.log.clear(), m.disable(), a = 11, m.enable();
    m.removeServer(&a);  // b still shares the manager
    EXPECT_TRUE(m.log.empty() && manager.numRegistrations() == 1u && a.numClients() == 0u);
    m.removeServer(&b);  // the manager's last one
    EXPECT_EQ(manager.numRegistrations(), 0u);
}

}  // namespace

template class ValServer<Cookie>;  // servers and clients of whole values, cookies included
template class ValClient<Cookie>;
template class ValClient<LightweightString<char>>;
