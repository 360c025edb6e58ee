#pragma once

/// @file
/// Observable values. A ValServer<T> holds one value and tells its clients, through its own notifier, when
/// the value is about to change ("PreValChange") and when it has changed ("ValChange"). A client follows
/// one server (ValClient<T>) or several (MultiValClient<T>). An optional manager (ValManagerBase<T>) may
/// refuse or adjust values proposed through updateAndNotify(), and brackets groups of changes with the
/// batch messages "StartBatch" and "EndBatch".
///
/// Ownership: a server does not own its clients or its manager; the manager must outlive the servers that
/// point at it (or be detached with setManager(nullptr)). A dying server sends "destroy!" to its clients,
/// which then forget it. A client that is destroyed drops its registration; a derived client whose handlers
/// touch its own members should call registerWith(nullptr) in its destructor.
///
/// Threads: delivery runs in the thread that changed the value, under the server's critical section. The
/// value itself is not locked: writers on several threads must agree among themselves. Clients and
/// MultiValClient's lists belong to one thread. The register of the last constructed server is per thread.

#include <ole/platform/export.h>
#include <ole/misc/Notifier.h>
#include <ole/platform/Assert.h>

/// How a value changes. Kinds 0 and 3 announce the change beforehand with "PreValChange".
enum DataChangeType {
    kValueChanged = 0,    ///< an edit: announced before and after
    kValueAdjusted = 1,   ///< a small correction: announced after
    kValueRefreshed = 2,  ///< the same value re-read: announced after
    kValueReplaced = 3    // wholly replaced: announced before and after
};

/// An enable counter: enabled while the counter is 0 or below, so disable() calls nest.
class EnableDisable {
public:
    void enable() noexcept { --disableCount_; }
    void disable() noexcept { ++disableCount_; }
    bool enabled() const noexcept { return disableCount_ <= 0; }

private:
    int disableCount_ = 0;
};

/// What every value server is: counted, linkable into lists, and the holder of the message type ids.
class OLE_API ValServerBase : public DLListRec, public iObject {
public:
    ~ValServerBase() override;

    /// Interned when the library starts, in this order.
    static const int valChangedMsgType_;     ///< "ValChange"
    static const int preValChangedMsgType_;  ///< "PreValChange"
    static const int startBatchMsgType_;     ///< "StartBatch"
    static const int endBatchMsgType_;       ///< "EndBatch"

protected:
    void traceChange(int type, unsigned clients) const;
};

/// The most recently constructed server of the calling thread. A server that dies while registered here
/// removes itself.
class OLE_API LastValServer {
public:
    explicit LastValServer(ValServerBase* server);
    LastValServer(const LastValServer&) = delete;
    LastValServer& operator=(const LastValServer&) = delete;
    ~LastValServer();

    /// The last server constructed on this thread; the register is cleared, so a second call gives null.
    static ValServerBase* getLastValServer();

private:
    ValServerBase* server_;
};

template <class T>
class ValServer;

/// Vets the values proposed to the servers it manages, and sends batch messages to their clients.
template <class T>
class ValManagerBase : public Notifier {
public:
    /// Asked before a proposed value is stored; may adjust `value`. Returning false refuses it.
    virtual bool approveValue(ValServer<T>* server, T& value) {
        (void)server;
        (void)value;
        return true;
    }
    /// `server` has dropped this manager or is going away.
    virtual void detachServer(ValServer<T>* server) { (void)server; }

    void startBatch() const { issueNotification(NotifyMsg("StartBatch"), ValServerBase::startBatchMsgType_); }
    void endBatch() const { issueNotification(NotifyMsg("EndBatch"), ValServerBase::endBatchMsgType_); }
};

/// An observable value that tells its clients before and after it changes.
template <class T>
class ValServer : public NotifierEx<T>, public ValServerBase, private LastValServer {
public:
    ValServer() : LastValServer(this), value_() {}
    explicit ValServer(const T& value) : LastValServer(this), value_(value) {}
    /// Copies the value only: the copy starts without clients or manager.
    ValServer(const ValServer& other)
        : Qv::InternalRefCount(),
          NotifierEx<T>(),
          ValServerBase(),
          LastValServer(this),
          value_(other.value_) {}
    ~ValServer() override {
        if (manager_) manager_->detachServer(this);
        this->announceDestroy();  // while the value can still be read
    }

    ValServer& operator=(const T& value) {
        setValue(value);
        return *this;
    }
    ValServer& operator=(const ValServer& other) {
        if (this != &other) setValue(other.value_);
        return *this;
    }
    bool operator==(const ValServer& other) const { return value_ == other.value_; }
    bool operator!=(const ValServer& other) const { return !(value_ == other.value_); }

    operator T() const { return value_; }
    T getValue() const { return value_; }
    const T& getDataRef() const { return value_; }

    /// Stores the value. With `notify`, clients get ValChange afterwards and, for kValueChanged and
    /// kValueReplaced, PreValChange before; without it nobody is told. The manager is not asked.
    void setValue(const T& value, DataChangeType change = kValueChanged, bool notify = true) {
        if (!notify) {
            value_ = value;
            return;
        }
        if (change == kValueChanged || change == kValueReplaced) preNotifyValChanged();
        value_ = value;
        notifyValChanged();
    }

    virtual void notifyValChanged() { issueValEvent(valChangedMsgType_); }
    virtual void preNotifyValChanged() { issueValEvent(preValChangedMsgType_); }

    /// Stores the value the manager approves (possibly adjusted) and sends ValChange. Returns false, with
    /// the value unchanged and nothing sent, when the manager refuses.
    virtual bool updateAndNotify(const T& value) {
        if (manager_) {
            T proposed(value);
            if (!manager_->approveValue(this, proposed)) return false;
            value_ = proposed;
        } else {
            value_ = value;
        }
        notifyValChanged();
        return true;
    }

    /// Replaces the manager (null for none). The manager it had is told to detach this server first, even
    /// when it is the one given again.
    void setManager(ValManagerBase<T>* manager) {
        if (manager_) manager_->detachServer(this);
        manager_ = manager;
    }
    ValManagerBase<T>* getManager() const { return manager_; }

    unsigned numClients() const { return this->numRegistrations(); }
    /// Traces each ValChange and PreValChange of this server through DebugOut.
    void setDebugMode(bool on) { traceChanges_ = on; }

private:
    void issueValEvent(int type) {
        typename NotifierBase::IssueScope scope(*this);
        const unsigned clients = numClients();
        if (clients == 0) return;  // nobody listens: no event, no copy of the value
        if (traceChanges_) traceChange(type, clients);
        this->deliver(NotifierEvent<T>(value_, type, this), type);
    }

    T value_;
    ValManagerBase<T>* manager_ = nullptr;
    bool traceChanges_ = false;
};

/// Follows one server: ValChange and PreValChange reach the virtual handlers while the client is enabled;
/// the destruction of the server makes the client forget it. Not copyable: the registration points at
/// this object.
template <class T>
class ValClient : public EnableDisable {
public:
    ValClient() = default;
    explicit ValClient(ValServer<T>* server) { registerWith(server); }
    ValClient(const ValClient&) = delete;
    ValClient& operator=(const ValClient&) = delete;
    virtual ~ValClient() = default;

    /// Follows `server` (null: none) for every message type. Following the current server again does nothing.
    void registerWith(ValServer<T>* server) {
        if (server == server_) return;
        server_ = server;
        if (!server) {
            guard_.reset();
            return;
        }
        guard_ = server->registerNotification(makeCallback(this, &ValClient::handleValueChange),
                                              CallbackInvokerBase::anyType());
    }

    int handleValueChange(const NotifierEvent<T>& ev) {
        if (ev.type == ValServerBase::valChangedMsgType_) {
            if (enabled()) valChangedNtfy();
        } else if (ev.type == ValServerBase::preValChangedMsgType_) {
            if (enabled()) valPreChangedNtfy();
        } else if (ev.type == NotifyMsgTypeDictionary::instance().destroyMsgType()) {
            server_ = nullptr;
            guard_.reset();
        }
        return 0;
    }

    virtual void valChangedNtfy() {}
    virtual void valPreChangedNtfy() {}

    ValServer<T>* getValServer() const { return server_; }
    /// A default value when no server is followed.
    T getServerValue() const { return server_ ? server_->getValue() : T(); }
    /// Sets the followed server's value as operator= on the server does; without a server, prints the
    /// assertion line and does nothing.
    void setServerValue(const T& value) {
        if (QV_ASSERT_AT(server_ != nullptr, "ole/misc/ValServer", 219)) server_->setValue(value);
    }
    operator T() const { return getServerValue(); }
    ValClient& operator=(const T& value) {
        setServerValue(value);
        return *this;
    }

private:
    ValServer<T>* server_ = nullptr;
    Qv::Ptr<Qv::Guard> guard_;
};

/// The target side of ValClientReceiver: an enable counter, the list of receivers that relay to it (it owns
/// them) and the operations they call, with the server as context.
class OLE_API ValClientBase : public EnableDisable {
public:
    ValClientBase() = default;
    ValClientBase(const ValClientBase&) = delete;
    ValClientBase& operator=(const ValClientBase&) = delete;
    /// Deletes the receivers still in the list.
    virtual ~ValClientBase();

    virtual void valChangedNtfy(ValServerBase* server);
    virtual void valPreChangedNtfy(ValServerBase* server);

    DLList& receivers() { return receivers_; }
    const DLList& receivers() const { return receivers_; }

protected:
    void deleteReceivers();

private:
    DLList receivers_;
};

/// Relays one server's ValChange and PreValChange to a target, with the server as context. It links itself
/// into the target's list on construction; on the server's destruction message it unlinks and deletes itself.
template <class T>
class ValClientReceiver : public DLListRec {
public:
    ValClientReceiver(ValClientBase* target, ValServer<T>* server) : target_(target), server_(server) {
        target_->receivers().append(this);  // before any message can arrive
        guard_ = server->registerNotification(makeCallback(this, &ValClientReceiver::valChangedNtfy),
                                              CallbackInvokerBase::anyType());
    }

    ValServer<T>* server() const { return server_; }

    int valChangedNtfy(const NotifierEvent<T>& ev) {
        if (ev.type == ValServerBase::valChangedMsgType_) {
            target_->valChangedNtfy(server_);
        } else if (ev.type == ValServerBase::preValChangedMsgType_) {
            target_->valPreChangedNtfy(server_);
        } else if (ev.type == NotifyMsgTypeDictionary::instance().destroyMsgType()) {
            target_->receivers().remove(this);
            delete this;  // the notifier keeps the callback object alive until its issue ends
        }
        return 0;
    }

private:
    ValClientBase* target_;
    ValServer<T>* server_;
    Qv::Ptr<Qv::Guard> guard_;
};

/// Follows several servers, and the batch messages of their managers (one registration per distinct
/// manager). Change handlers get the server that changed; they run only while the client is enabled.
template <class T>
class MultiValClient : private Notifiable, public ValClientBase {
public:
    MultiValClient() = default;
    ~MultiValClient() override { removeAllServers(); }

    /// Follows `server` as well (once), and its manager's batch messages.
    void addServer(ValServer<T>* server) {
        if (!server || findReceiver(server)) return;
        new ValClientReceiver<T>(this, server);
        addManagerFor(server);
    }
    /// Stops following `server`; its manager too, unless another followed server shares it.
    void removeServer(ValServer<T>* server) {
        ValClientReceiver<T>* receiver = findReceiver(server);
        if (!receiver) return;
        delete receiver;
        ValManagerBase<T>* manager = server->getManager();
        for (DLListRec* rec = receivers().first(); rec; rec = rec->next())
            if (static_cast<ValClientReceiver<T>*>(rec)->server()->getManager() == manager) return;
        removeManagerFor(server);
    }
    void removeAllServers() {
        deleteReceivers();
        managers_.clear();
    }

    int getNumServers() const { return int(receivers().count()); }
    /// The index-th followed server in the order added, or null.
    ValServer<T>* getValServer(int index) const {
        int i = 0;
        for (DLListRec* rec = receivers().first(); rec; rec = rec->next(), ++i)
            if (i == index) return static_cast<ValClientReceiver<T>*>(rec)->server();
        return nullptr;
    }

    void addManagerFor(ValServer<T>* server) {
        ValManagerBase<T>* manager = server->getManager();
        if (!manager || findManager(manager)) return;
        Qv::Ptr<Qv::Guard> guard = manager->registerNotification(
            makeCallback(this, &MultiValClient::handleNotification), CallbackInvokerBase::anyType());
        managers_.push_back(ManagerEntry{manager, manager, guard});
    }
    void removeManagerFor(ValServer<T>* server) {
        ValManagerBase<T>* manager = server->getManager();
        for (auto it = managers_.begin(); it != managers_.end(); ++it) {
            if (it->manager == manager) {
                managers_.erase(it);  // the guard goes with it
                return;
            }
        }
    }

    /// "StartBatch" and "EndBatch" from a followed manager reach the batch operations; a manager's
    /// destruction message drops it; anything else is ignored.
    int handleNotification(const NotifyMsg& msg) {
        for (auto it = managers_.begin(); it != managers_.end(); ++it) {
            if (it->sender != msg.sender()) continue;
            if (msg.type() == NotifyMsgTypeDictionary::instance().destroyMsgType())
                managers_.erase(it);
            else if (msg.text() == "StartBatch")
                startBatchOp(it->manager);
            else if (msg.text() == "EndBatch")
                endBatchOp(it->manager);
            break;
        }
        return 0;
    }

    void valChangedNtfy(ValServerBase* server) override {
        if (enabled()) valChanged(static_cast<ValServer<T>*>(server));
    }
    void valPreChangedNtfy(ValServerBase* server) override {
        if (enabled()) valPreChanged(static_cast<ValServer<T>*>(server));
    }

    virtual void valChanged(ValServer<T>* server) { (void)server; }
    virtual void valPreChanged(ValServer<T>* server) { (void)server; }
    virtual void startBatchOp(ValManagerBase<T>* manager) { (void)manager; }
    virtual void endBatchOp(ValManagerBase<T>* manager) { (void)manager; }

private:
    struct ManagerEntry {
        ValManagerBase<T>* manager;
        const Notifier* sender;  ///< the manager as the sender of its messages, kept for its destruction
        Qv::Ptr<Qv::Guard> guard;
    };

    ValClientReceiver<T>* findReceiver(ValServer<T>* server) const {
        for (DLListRec* rec = receivers().first(); rec; rec = rec->next()) {
            auto* receiver = static_cast<ValClientReceiver<T>*>(rec);
            if (receiver->server() == server) return receiver;
        }
        return nullptr;
    }
    bool findManager(ValManagerBase<T>* manager) const {
        for (const ManagerEntry& entry : managers_)
            if (entry.manager == manager) return true;
        return false;
    }

    Vector<ManagerEntry> managers_;
};
