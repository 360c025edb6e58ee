#include <ole/misc/Notifier.h>

#include <ole/platform/Threads.h>
#include <ole/runtime/Log.h>

#include <cctype>
#include <cstring>

// ---- message types -------------------------------------------------------------------------------------

NotifyMsgTypeDictionary& NotifyMsgTypeDictionary::instance() {
    static NotifyMsgTypeDictionary dictionary;
    return dictionary;
}

NotifyMsgTypeDictionary::NotifyMsgTypeDictionary() {
    anyType_ = intern("*");
    destroyType_ = intern("destroy!");
}

int NotifyMsgTypeDictionary::intern(const LightweightString<char>& name) {
    const auto found = ids_.find(name);
    if (found != ids_.end()) return found->second;
    const int id = int(ids_.size());
    ids_.emplace(name, id);
    return id;
}

LightweightString<char> NotifyMsgTypeDictionary::msgTypeName(int id) const {
    for (const auto& entry : ids_)
        if (entry.second == id) return entry.first;
    return LightweightString<char>();
}

// ---- messages ------------------------------------------------------------------------------------------

NotifyMsgRep::NotifyMsgRep(const LightweightString<char>& text, const Qv::Ptr<iObject>& payload)
    : text_(text), payload_(payload) {}

NotifyMsgRep::~NotifyMsgRep() = default;

NotifyMsg::NotifyMsg(const Qv::Ptr<iObject>& payload)
    : NotifyMsg(new NotifyMsgRep(LightweightString<char>(), payload), 0) {}

NotifyMsg::NotifyMsg(const LightweightString<char>& text, const Qv::Ptr<iObject>& payload)
    : NotifyMsg(new NotifyMsgRep(text, payload), 0) {}

// ---- callbacks -----------------------------------------------------------------------------------------

CallbackChain::CallbackChain(const Callback& first, const Callback& second) {
    add(first);
    add(second);
}

CallbackChain::~CallbackChain() = default;

void CallbackChain::add(const Callback& callback) {
    if (callback) callbacks_.push_back(callback);
}

int CallbackChain::execute(const NotifyMsg& msg) {
    for (const Callback& callback : callbacks_) callback->execute(msg);
    return 0;
}

CallbackInvokerBase::~CallbackInvokerBase() = default;

int CallbackInvokerBase::anyType() {
    static const int any = NotifyMsgTypeDictionary::instance().anyMsgType();
    return any;
}

Qv::Guard::~Guard() = default;

// ---- notifiers -----------------------------------------------------------------------------------------

std::atomic<bool> NotifierBase::debugMode_{false};

static std::atomic<NotifierBase::CommandRegistration> commandRegistration{nullptr};

// The guard of one registration: holds a share of the invoker, which knows its notifier for as long as
// the notifier's list holds it.
class NotifierGuard : public Qv::Guard {
public:
    explicit NotifierGuard(CallbackInvokerBase* invoker) : invoker_(invoker) {}
    ~NotifierGuard() override;

private:
    CallbackInvokerBase* invoker_;
};

Qv::Ptr<Qv::Guard> NotifierBase::registerInternal(CallbackInvokerBase* invoker) {
    Qv::Ptr<Qv::Guard> guard(new NotifierGuard(invoker));
    Qv::CriticalSection::Lock lock(*cs_);
    invoker->owner_ = this;
    invoker->holders_ = 2;
    invokers_.append(invoker);
    return guard;
}

NotifierGuard::~NotifierGuard() {
    // The invoker's owner is cleared only under the notifier's lock, by the list letting go of a record
    // this guard still holds; that happens when the notifier dies, which must not race with this.
    NotifierBase* owner = invoker_->owner_;
    if (owner)
        owner->releaseFromGuard(invoker_);
    else if (--invoker_->holders_ == 0)
        delete invoker_;
}

void NotifierBase::releaseFromGuard(CallbackInvokerBase* invoker) {
    bool unheld = false;
    cs_->enter();
    if (invoker->owner_ != this) {
        unheld = --invoker->holders_ == 0;  // the list let go meanwhile
    } else if (issueDepth_ > 0) {
        --invoker->holders_;  // the sweep at the end of the issue drops the list's share
        if (!invoker->dead_) {
            invoker->dead_ = true;
            ++deadCount_;
        }
    } else {
        if (invoker->dead_) --deadCount_;
        invokers_.remove(invoker);
        invoker->owner_ = nullptr;
        invoker->holders_ -= 2;
        unheld = true;
    }
    cs_->leave();
    if (unheld) delete invoker;  // outside the lock: the callback's release may deregister elsewhere
}

void NotifierBase::deregisterNotification(CallbackInvokerBase* invoker) {
    if (!invoker) return;
    bool unheld = false;
    cs_->enter();
    if (QV_ASSERT_AT(invoker->owner_ == this, "ole/misc/Notifier", 137) && !invoker->dead_) {
        if (issueDepth_ > 0) {
            invoker->dead_ = true;
            ++deadCount_;
        } else {
            invokers_.remove(invoker);
            invoker->owner_ = nullptr;
            unheld = --invoker->holders_ == 0;
        }
    }
    cs_->leave();
    if (unheld) delete invoker;  // outside the lock: the callback's release may deregister elsewhere
}

void NotifierBase::deregisterNotification(Qv::Ptr<Qv::Guard>& guard) {
    Qv::Ptr<Qv::Guard> released(std::move(guard));
}

void NotifierBase::sweepAndLeave() const {
    // Dead records are unlinked into a private chain first, so that deleting them (which releases their
    // callbacks, which may deregister elsewhere) never meets a half-changed list or this lock.
    DLList unheld;
    DLListRec* rec = invokers_.first();
    while (rec) {
        auto* invoker = static_cast<CallbackInvokerBase*>(rec);
        rec = rec->next();
        if (!invoker->dead_) continue;
        invokers_.remove(invoker);
        invoker->owner_ = nullptr;
        invoker->dead_ = false;
        if (--invoker->holders_ == 0) unheld.append(invoker);
    }
    deadCount_ = 0;
    cs_->leave();
    while (DLListRec* done = unheld.popFront()) delete static_cast<CallbackInvokerBase*>(done);
}

unsigned NotifierBase::numRegistrations() const {
    Qv::CriticalSection::Lock lock(*cs_);
    return unsigned(invokers_.count()) - deadCount_;
}

NotifierBase::NotifierBase() : cs_(new Qv::CriticalSection) {}

Qv::CriticalSection& NotifierBase::criticalSection() const {
    return *cs_;
}

void NotifierBase::enterIssue() const {
    cs_->enter();
    ++issueDepth_;
}

void NotifierBase::leaveIssue() const {
    if (--issueDepth_ == 0 && deadCount_ != 0)
        sweepAndLeave();
    else
        cs_->leave();
}

NotifierBase::~NotifierBase() {
    DLList unheld;
    cs_->enter();
    while (DLListRec* rec = invokers_.popFront()) {
        auto* invoker = static_cast<CallbackInvokerBase*>(rec);
        invoker->owner_ = nullptr;
        if (--invoker->holders_ == 0) unheld.append(invoker);
    }
    cs_->leave();
    while (DLListRec* done = unheld.popFront()) delete static_cast<CallbackInvokerBase*>(done);
}

void NotifierBase::traceIssue(int type) const {
    DebugOut("notifier %p: issuing type %d to %u registration(s)\n", static_cast<const void*>(this), type,
             unsigned(invokers_.count()) - deadCount_);
}

void NotifierBase::toggleNotifyDebug() {
    bool on = debugMode_.load(std::memory_order_relaxed);
    while (!debugMode_.compare_exchange_weak(on, !on, std::memory_order_relaxed)) {
    }
}

void NotifierBase::setCommandRegistration(CommandRegistration registration) {
    commandRegistration.store(registration);
}

bool NotifierBase::registerCommands() {
    const CommandRegistration registration = commandRegistration.load();
    return registration && registration("toggle_debug_notify", &NotifierBase::toggleNotifyDebug);
}

Notifier::~Notifier() {
    Qv::CriticalSection::Lock lock(criticalSection());
    if (markDestroyAnnounced() && !invokers_.empty()) {
        const int destroyType = NotifyMsgTypeDictionary::instance().destroyMsgType();
        issueNotification(NotifyMsg("destroy!"), destroyType);
    }
}

void Notifier::issueNotification(const NotifyMsg& msg, int type) const {
    // The stamps are written before the copy is counted, so the interlocked count and the lock that
    // follows it run back to back, with no store of ours waiting in between.
    if (NotifyMsgRep* rep = msg.rep()) rep->setSender(this);
    const NotifyMsg copy(msg.rep(), type);
    deliver(copy, type);
}

// ---- receivers -----------------------------------------------------------------------------------------

NotifiableBase::~NotifiableBase() = default;
void NotifiableBase::notify(const NotifyMsg&) {}
void NotifiableBase::destroy(const NotifyMsg&) {}

Notifiable::~Notifiable() {
    discardBuffered();
}

void Notifiable::bufNotify(const NotifyMsg& msg) {
    NotifyMsgRep* rep = msg.rep();
    if (!rep) return;
    if (rep->isLinked()) {
        // A body has one set of links: a body already waiting somewhere is queued as a copy.
        NotifyMsgRep* copy = new NotifyMsgRep(rep->text(), rep->payload());
        copy->setSender(rep->sender());
        rep = copy;
    }
    rep->incRef();
    rep->queuedType_ = msg.type();
    queue_.append(rep);
}

void Notifiable::processBuffered() {
    const int destroyType = NotifyMsgTypeDictionary::instance().destroyMsgType();
    while (DLListRec* rec = queue_.popFront()) {
        auto* rep = static_cast<NotifyMsgRep*>(rec);
        const NotifyMsg msg(rep, rep->queuedType_);
        rep->decRef();  // the queue's reference; msg keeps the body alive
        if (msg.type() == destroyType)
            destroy(msg);
        else
            notify(msg);
    }
}

void Notifiable::discardBuffered() {
    while (DLListRec* rec = queue_.popFront()) {
        auto* rep = static_cast<NotifyMsgRep*>(rec);
        if (rep->decRef() == 0) delete rep;
    }
}

NotifiableCallback::~NotifiableCallback() = default;

int NotifiableCallback::execute(const NotifyMsg& msg) {
    if (queue_)
        queue_->bufNotify(msg);
    else if (msg.type() == NotifyMsgTypeDictionary::instance().destroyMsgType())
        target_->destroy(msg);
    else
        target_->notify(msg);
    return 0;
}

// ---- words of a message --------------------------------------------------------------------------------

NotifyMsgTokenIterator::~NotifyMsgTokenIterator() {
    delete[] word_;
}

NotifyMsgTokenIterator& NotifyMsgTokenIterator::operator++() {
    const auto isSpace = [](char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; };
    if (!started_) {
        started_ = true;
        pos_ = msg_;
        while (pos_ && isSpace(*pos_)) ++pos_;
    }
    delete[] word_;
    word_ = nullptr;
    if (!pos_) return *this;
    const char* start = pos_;
    while (*pos_ && !isSpace(*pos_)) ++pos_;
    const std::size_t len = std::size_t(pos_ - start);
    if (len) {
        word_ = new char[len + 1];
        std::memcpy(word_, start, len);
        word_[len] = '\0';
    }
    while (isSpace(*pos_)) ++pos_;
    return *this;
}
