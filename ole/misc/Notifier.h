#pragma once

/// @file
/// Publish/subscribe notification. An object that changes owns a notifier; an interested party registers a
/// callback for one message type (or for every type, "*") and keeps the guard it gets back. While any
/// reference to the guard lives, the callback runs synchronously in the issuing thread each time a matching
/// message is issued; releasing the last reference deregisters it.
///
/// Message types are small integers interned from names by NotifyMsgTypeDictionary: "*" is 0 and matches in
/// both directions, "destroy!" is 1 and is what a dying notifier sends to the registrations it still has.
///
/// Ownership: a notifier does not own its listeners; it holds a counted reference to each callback object.
/// A guard may outlive its notifier: dropping it afterwards is harmless (but not while another thread is
/// destroying that notifier). Listeners must drop their guards before the objects their callbacks touch die.
///
/// Threads: each notifier has its own recursive critical section, held while registering, deregistering and
/// for the whole of an issue, callbacks included. Issues on one notifier from several threads are therefore
/// delivered one after the other, and a callback may register or deregister on the notifier that is calling
/// it. The message type dictionary has no lock and belongs to one thread (only its creation is safe).

#include <ole/platform/export.h>
#include <ole/Qv/DLList.h>
#include <ole/Qv/LightweightString.h>
#include <ole/Qv/Ptr.h>
#include <ole/Qv/Vector.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>

namespace Qv {
class CriticalSection;
}

class Notifier;
template <class T>
class NotifierEx;

// ---- message types -------------------------------------------------------------------------------------

/// Maps message names to dense ids: a new name gets the number of names already known.
class OLE_API NotifyMsgTypeDictionary {
public:
    static NotifyMsgTypeDictionary& instance();

    /// The id of `name`, added with the next free id if it is new.
    int intern(const LightweightString<char>& name);
    /// The name of `id`, or the empty string for an id never handed out.
    LightweightString<char> msgTypeName(int id) const;
    unsigned size() const { return unsigned(ids_.size()); }

    int anyMsgType() const { return anyType_; }
    int destroyMsgType() const { return destroyType_; }

private:
    NotifyMsgTypeDictionary();

    std::map<LightweightString<char>, int> ids_;
    int anyType_;
    int destroyType_;
};

// ---- messages ------------------------------------------------------------------------------------------

/// The shared body of a NotifyMsg. It is a list record so that a body can wait in a Notifiable's queue.
/// Bodies are counted by hand (incRef/decRef); whoever brings the count to zero deletes the body.
class OLE_API NotifyMsgRep : public DLListRec {
public:
    explicit NotifyMsgRep(const LightweightString<char>& text = LightweightString<char>(),
                          const Qv::Ptr<iObject>& payload = Qv::Ptr<iObject>());
    ~NotifyMsgRep() override;

    void incRef() const noexcept { OS()->refCounter()->increment(&refCount_); }
    /// Returns the new count; the caller deletes the body when it reaches zero.
    int32_t decRef() const noexcept { return OS()->refCounter()->decrement(&refCount_); }
    int32_t refCount() const noexcept { return Qv::RefCountService::value(&refCount_); }

    operator const char*() const noexcept { return text_.c_str(); }
    const LightweightString<char>& text() const noexcept { return text_; }
    const Notifier* sender() const noexcept { return sender_; }
    void setSender(const Notifier* sender) noexcept { sender_ = sender; }
    const Qv::Ptr<iObject>& payload() const noexcept { return payload_; }

private:
    friend class Notifiable;

    mutable int32_t refCount_ = 0;
    LightweightString<char> text_;
    const Notifier* sender_ = nullptr;
    Qv::Ptr<iObject> payload_;
    int queuedType_ = 0;  ///< the message type while the body waits in a Notifiable's queue
};

/// A message: a counted reference to a body (or none) and a type id. Copies share the body.
class OLE_API NotifyMsg {
public:
    NotifyMsg() noexcept = default;
    explicit NotifyMsg(const Qv::Ptr<iObject>& payload);
    NotifyMsg(const LightweightString<char>& text, const Qv::Ptr<iObject>& payload = Qv::Ptr<iObject>());
    /// Shares an existing body (taking a reference on it).
    NotifyMsg(NotifyMsgRep* rep, int type) noexcept : rep_(rep), type_(type) {
        if (rep_) rep_->incRef();
    }
    NotifyMsg(const NotifyMsg& other) noexcept : NotifyMsg(other.rep_, other.type_) {}
    NotifyMsg(NotifyMsg&& other) noexcept : rep_(other.rep_), type_(other.type_) { other.rep_ = nullptr; }
    ~NotifyMsg() { release(rep_); }

    /// The incoming body is counted before the old one is released, so self-assignment is safe.
    NotifyMsg& operator=(const NotifyMsg& other) noexcept {
        if (other.rep_) other.rep_->incRef();
        release(rep_);
        rep_ = other.rep_;
        type_ = other.type_;
        return *this;
    }
    NotifyMsg& operator=(NotifyMsg&& other) noexcept {
        if (this != &other) {
            release(rep_);
            rep_ = other.rep_;
            type_ = other.type_;
            other.rep_ = nullptr;
        }
        return *this;
    }

    /// The text, or null when there is no body.
    operator const char*() const noexcept { return rep_ ? rep_->text().c_str() : nullptr; }
    LightweightString<char> text() const { return rep_ ? rep_->text() : LightweightString<char>(); }
    const Notifier* sender() const noexcept { return rep_ ? rep_->sender() : nullptr; }
    Qv::Ptr<iObject> payload() const { return rep_ ? rep_->payload() : Qv::Ptr<iObject>(); }
    NotifyMsgRep* rep() const noexcept { return rep_; }
    int type() const noexcept { return type_; }
    void setType(int type) noexcept { type_ = type; }

private:
    static void release(NotifyMsgRep* rep) noexcept {
        if (rep && rep->decRef() == 0) delete rep;
    }

    NotifyMsgRep* rep_ = nullptr;
    int type_ = 0;
};

/// The argument of value notifications: the type and sender are stamped by the issuing NotifierEx.
template <class T>
struct NotifierEvent {
    NotifierEvent() : type(0), sender(nullptr), value() {}
    explicit NotifierEvent(const T& v, int t = 0, const NotifierEx<T>* s = nullptr)
        : type(t), sender(s), value(v) {}

    int type;
    const NotifierEx<T>* sender;
    T value;
};

// ---- callbacks -----------------------------------------------------------------------------------------

/// A counted callback object. Notifiers call execute() and ignore the result.
template <class R, class A>
class iCallbackBase : public virtual iObject {
public:
    virtual R execute(const A& arg) = 0;
};

/// Calls a member function on an object it does not own.
template <class Obj, class A, class R = int>
class MethodCallback : public iCallbackBase<R, A> {
public:
    using Method = R (Obj::*)(const A&);

    MethodCallback(Obj* object, Method method) : object_(object), method_(method) {}
    R execute(const A& arg) override { return (object_->*method_)(arg); }

private:
    Obj* object_;
    Method method_;
};

/// A counted MethodCallback, ready to register.
template <class Obj, class A, class R>
Qv::Ptr<iCallbackBase<R, A>> makeCallback(Obj* object, R (Obj::*method)(const A&)) {
    return Qv::Ptr<iCallbackBase<R, A>>(new MethodCallback<Obj, A, R>(object, method));
}

/// Several message callbacks run in the order they were added.
class OLE_API CallbackChain : public iCallbackBase<int, NotifyMsg> {
public:
    using Callback = Qv::Ptr<iCallbackBase<int, NotifyMsg>>;

    CallbackChain(const Callback& first, const Callback& second);
    ~CallbackChain() override;

    void add(const Callback& callback);
    unsigned size() const { return unsigned(callbacks_.size()); }
    int execute(const NotifyMsg& msg) override;

private:
    Vector<Callback> callbacks_;
};

class NotifierBase;

/// One registration in a notifier's list. Created by registerNotification and shared between the
/// notifier's list and the guard: whichever lets go last deletes it, always outside the notifier's lock.
class OLE_API CallbackInvokerBase : public DLListRec {
public:
    explicit CallbackInvokerBase(int type) noexcept : type_(type) {}
    ~CallbackInvokerBase() override;

    /// The wildcard id, read once from the dictionary.
    static int anyType();
    bool typeMatch(int type) const {
        const int any = anyType();
        return type_ == any || type == any || type_ == type;
    }
    int type() const noexcept { return type_; }

private:
    friend class NotifierBase;
    friend class NotifierGuard;
    template <class A>
    friend class GenericNotifier;

    const int type_;
    NotifierBase* owner_ = nullptr;  ///< the notifier whose list holds this record
    bool dead_ = false;              ///< deregistered during an issue; unlinked when the issue ends
    int holders_ = 0;                ///< the list and the guard
};

/// A registration that calls a callback taking messages of type A.
template <class A>
class CallbackInvoker : public CallbackInvokerBase {
public:
    CallbackInvoker(const Qv::Ptr<iCallbackBase<int, A>>& callback, int type)
        : CallbackInvokerBase(type), callback_(callback) {}

    const Qv::Ptr<iCallbackBase<int, A>>& callback() const noexcept { return callback_; }

private:
    template <class>
    friend class GenericNotifier;

    Qv::Ptr<iCallbackBase<int, A>> callback_;
};

namespace Qv {
/// An object whose destruction undoes something; a notifier's guard deregisters its registration.
class OLE_API Guard : public iObject {
public:
    ~Guard() override;
};
}  // namespace Qv

// ---- notifiers -----------------------------------------------------------------------------------------

/// The registration list and its lock, shared by every kind of notifier.
///
/// Delivery goes to the registrations in the order they were made. A registration removed during an issue
/// (by a callback, on this thread) is skipped from then on and unlinked when the outermost issue ends, so
/// the walk never touches freed memory. A registration added during an issue does not receive the message
/// being issued; it receives every later one.
class OLE_API NotifierBase {
public:
    /// How a family registers a named command with the command map, once there is one.
    using CommandRegistration = bool (*)(const char* name, void (*action)());

    NotifierBase();
    NotifierBase(const NotifierBase&) = delete;
    NotifierBase& operator=(const NotifierBase&) = delete;
    /// Remaining registrations are let go: their guards stay valid and do nothing when dropped.
    virtual ~NotifierBase();

    /// Unlinks a registration (deferred while an issue is running). Its guard stays valid; dropping the
    /// guard is the usual way in.
    void deregisterNotification(CallbackInvokerBase* invoker);
    /// Releases the caller's reference to a guard (the pointer becomes null); the last one deregisters.
    void deregisterNotification(Qv::Ptr<Qv::Guard>& guard);

    /// The number of live registrations.
    unsigned numRegistrations() const;
    /// The lock held around every registration change and issue, for callers that need several steps
    /// on this notifier to happen together.
    Qv::CriticalSection& criticalSection() const;

    /// A process-wide flag: while set, every issue is traced through DebugOut.
    static bool debugMode() { return debugMode_.load(std::memory_order_relaxed); }
    static void debugMode(bool on) { debugMode_.store(on, std::memory_order_relaxed); }
    static void toggleNotifyDebug();

    /// Registers "toggle_debug_notify" through the installed command registration. Returns false when
    /// none is installed or it refused.
    static bool registerCommands();
    static void setCommandRegistration(CommandRegistration registration);

protected:
    /// Appends the invoker (which the notifier then shares) and returns the guard that deregisters it.
    Qv::Ptr<Qv::Guard> registerInternal(CallbackInvokerBase* invoker);

    /// Holds the critical section for one issue and finishes deferred removals at the outermost one.
    class IssueScope {
    public:
        explicit IssueScope(const NotifierBase& notifier) : notifier_(notifier) { notifier_.enterIssue(); }
        ~IssueScope() { notifier_.leaveIssue(); }
        IssueScope(const IssueScope&) = delete;
        IssueScope& operator=(const IssueScope&) = delete;

    private:
        const NotifierBase& notifier_;
    };

    void traceIssue(int type) const;
    /// Marks that the destruction message went out (returns false if it had already).
    bool markDestroyAnnounced() {
        const bool first = !destroyAnnounced_;
        destroyAnnounced_ = true;
        return first;
    }

    mutable DLList invokers_;

private:
    friend class NotifierGuard;

    /// Called by the guard: lets go of the guard's share of the invoker.
    void releaseFromGuard(CallbackInvokerBase* invoker);
    /// Unlinks the dead registrations, leaves the critical section, then deletes what nobody holds.
    void sweepAndLeave() const;
    void enterIssue() const;
    void leaveIssue() const;

    const std::unique_ptr<Qv::CriticalSection> cs_;  ///< kept out of line: the platform's threads stay below
    mutable unsigned issueDepth_ = 0;
    mutable unsigned deadCount_ = 0;
    bool destroyAnnounced_ = false;

    static std::atomic<bool> debugMode_;
};

/// A notifier of messages of type A.
template <class A>
class GenericNotifier : public NotifierBase {
public:
    Qv::Ptr<Qv::Guard> registerNotification(const Qv::Ptr<iCallbackBase<int, A>>& callback, int type) {
        return registerInternal(new CallbackInvoker<A>(callback, type));
    }

    /// Delivers a copy of `msg` to every registration whose type matches, in registration order.
    virtual void issueNotification(const A& msg, int type) const {
        const A copy(msg);
        deliver(copy, type);
    }

protected:
    void deliver(const A& msg, int type) const {
        IssueScope scope(*this);
        DLListRec* rec = invokers_.first();
        if (!rec) return;
        if (debugMode()) traceIssue(type);
        DLListRec* const last = invokers_.last();  // later registrations wait for the next issue
        const int any = CallbackInvokerBase::anyType();
        for (;;) {
            const auto* invoker = static_cast<const CallbackInvoker<A>*>(rec);
            if (!invoker->dead_ && (type == any || invoker->type_ == any || invoker->type_ == type))
                invoker->callback_->execute(msg);
            if (rec == last) break;
            rec = rec->next();
        }
    }
};

/// A notifier of typed value events. On destruction it sends "destroy!" (with a default value) to the
/// registrations it still has, so that they can drop their guards.
template <class T>
class NotifierEx : public GenericNotifier<NotifierEvent<T>> {
public:
    NotifierEx() = default;
    ~NotifierEx() override { announceDestroy(); }

    /// Stamps `type` and this notifier into the delivered copy of `ev`.
    void issueNotification(const NotifierEvent<T>& ev, int type) const override {
        NotifierEvent<T> copy(ev);
        copy.type = type;
        copy.sender = this;
        this->deliver(copy, type);
    }

protected:
    /// Sends the destruction message once; a derived class may call it early, while its own state is alive.
    void announceDestroy() {
        typename NotifierBase::IssueScope scope(*this);
        if (this->markDestroyAnnounced() && !this->invokers_.empty())
            issueNotification(NotifierEvent<T>(), NotifyMsgTypeDictionary::instance().destroyMsgType());
    }
};

/// A notifier of NotifyMsg. Issuing stamps this notifier as the body's sender; on destruction it sends a
/// "destroy!" message to the registrations it still has.
class OLE_API Notifier : public GenericNotifier<NotifyMsg> {
public:
    Notifier() = default;
    ~Notifier() override;

    void issueNotification(const NotifyMsg& msg, int type) const override;
};

// ---- receivers -----------------------------------------------------------------------------------------

/// A receiver of messages; both operations do nothing unless overridden.
class OLE_API NotifiableBase {
public:
    virtual ~NotifiableBase();
    virtual void notify(const NotifyMsg& msg);
    virtual void destroy(const NotifyMsg& msg);
};

/// A receiver with a queue of messages for processing later, e.g. on another thread's turn. The queue holds
/// a reference on each body. It has no lock: one thread buffers and processes.
class OLE_API Notifiable : public NotifiableBase {
public:
    Notifiable() = default;
    ~Notifiable() override;

    /// Queues the message's body; a message without a body is ignored. A body already waiting in a queue
    /// is queued as a copy.
    void bufNotify(const NotifyMsg& msg);
    unsigned numBuffered() const { return unsigned(queue_.count()); }
    /// Hands the queued messages, oldest first, to destroy() ("destroy!") or notify() (all others),
    /// until the queue is empty.
    void processBuffered();
    void discardBuffered();

private:
    DLList queue_;
};

/// Registered on a Notifier, passes each message to a receiver: "destroy!" to destroy(), others to
/// notify(). With `buffered`, messages go to the Notifiable's queue instead.
class OLE_API NotifiableCallback : public iCallbackBase<int, NotifyMsg> {
public:
    explicit NotifiableCallback(NotifiableBase* target) : target_(target), queue_(nullptr) {}
    explicit NotifiableCallback(Notifiable* target, bool buffered)
        : target_(target), queue_(buffered ? target : nullptr) {}
    ~NotifiableCallback() override;

    int execute(const NotifyMsg& msg) override;

private:
    NotifiableBase* target_;
    Notifiable* queue_;
};

// ---- words of a message --------------------------------------------------------------------------------

/// Steps through the whitespace-separated words of a message's text:
///     for (NotifyMsgTokenIterator it(msg); ++it;) use(*it);
/// Each word is a NUL-terminated copy owned by the iterator until the next step. After the last word
/// (or for a message without text) the current word is null.
class OLE_API NotifyMsgTokenIterator {
public:
    explicit NotifyMsgTokenIterator(const NotifyMsg& msg) : msg_(msg) {}
    ~NotifyMsgTokenIterator();
    NotifyMsgTokenIterator(const NotifyMsgTokenIterator&) = delete;
    NotifyMsgTokenIterator& operator=(const NotifyMsgTokenIterator&) = delete;

    NotifyMsgTokenIterator& operator++();
    const char* operator*() const noexcept { return word_; }
    explicit operator bool() const noexcept { return word_ != nullptr; }

private:
    NotifyMsg msg_;  ///< keeps the text alive
    const char* pos_ = nullptr;
    bool started_ = false;
    char* word_ = nullptr;
};
