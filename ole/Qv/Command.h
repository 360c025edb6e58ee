#pragma once

/// @file
/// Deferred calls. A command handle (QvDC::Cmd) is a small value that shares a counted representation
/// holding something to execute later with a context: a receiver to call (SmplCmd), a receiver and a stored
/// parameter (ParamCmd), or a list of other commands (CompCmd). Handles are copied freely, across threads
/// too: the counts are atomic, and the last handle to go deletes the representation.
///
/// A handle holds one of three things: nothing (a default-constructed, uninitialised handle: executing it
/// reports a fatal error and fails), the null command (does nothing and succeeds), or a representation.
///
/// Every template takes a thread-safety policy. With ThreadSafetyTraits::ThreadSafe each representation has
/// a recursive critical section: a simple command holds it while its receiver runs (so concurrent
/// executions of one command are serialised), a compound command holds it for changes to its list and
/// while its members run (so a member must not change the compound command that runs it). NoLocking takes
/// no locks. Receivers are not owned: a receiver must outlive the commands that point at it.

#include <ole/platform/export.h>
#include <ole/platform/OS.h>
#include <ole/platform/Threads.h>
#include <ole/Qv/QvPooledObject.h>

#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

namespace QvDC {

/// The empty context of commands that need none.
struct NoCtx {};
/// The default tag: commands with the same context and policy share one representation type.
struct NoTag {};

namespace ThreadSafetyTraits {
/// Policy for commands used from one thread: no lock, no flags.
struct NoLocking {};
/// Policy for commands shared between threads: a recursive critical section around execution.
struct ThreadSafe {};
}  // namespace ThreadSafetyTraits

/// Reports, through the fatal-error reporter, that an uninitialised handle was executed.
OLE_API void reportUninitialisedCommand();

namespace detail {

template <class TS>
class RepLocking;

template <>
class RepLocking<ThreadSafetyTraits::NoLocking> {
public:
    struct Scope {
        explicit Scope(const RepLocking&) noexcept {}
    };
};

template <>
class RepLocking<ThreadSafetyTraits::ThreadSafe> {
public:
    /// Holds the representation's critical section for the life of the scope.
    class Scope {
    public:
        explicit Scope(const RepLocking& rep) : cs_(rep.cs_) { cs_.enter(); }
        ~Scope() { cs_.leave(); }
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

    private:
        Qv::CriticalSection& cs_;
    };

protected:
    bool flagA_ = false;  ///< kept for representations that want per-command state; unused here
    bool flagB_ = false;
    mutable Qv::CriticalSection cs_;
};

}  // namespace detail

/// The counted representation behind a handle. The count starts at 0; handles raise and lower it.
template <class Ctx, class TS = ThreadSafetyTraits::NoLocking>
class CommandRep : public detail::RepLocking<TS> {
public:
    using Scope = typename detail::RepLocking<TS>::Scope;

    CommandRep() = default;
    CommandRep(const CommandRep&) = delete;
    CommandRep& operator=(const CommandRep&) = delete;
    virtual ~CommandRep() = default;

    virtual bool execute(Ctx& context) = 0;

    void incRef() noexcept { OS()->refCounter()->increment(&refCount_); }
    /// Deletes the representation when this was the last reference.
    void decRef() noexcept {
        if (OS()->refCounter()->decrement(&refCount_) == 0) delete this;
    }
    int32_t refCount() const noexcept { return Qv::RefCountService::value(&refCount_); }

private:
    mutable int32_t refCount_ = 0;
};

/// A shared handle on a deferred call: copies share one counted representation; a null handle executes as a
/// failure.
template <class Ctx, class TS = ThreadSafetyTraits::NoLocking>
class Cmd : public QvPooledObject<Cmd<Ctx, TS>> {
public:
    using ContextType = Ctx;
    using Rep = CommandRep<Ctx, TS>;

    Cmd() noexcept : rep_(nullptr) {}
    /// Shares `rep` (which may be new, with a count of 0).
    explicit Cmd(Rep* rep) noexcept : rep_(rep) { acquire(); }
    Cmd(const Cmd& other) noexcept : rep_(other.rep_) { acquire(); }
    Cmd(Cmd&& other) noexcept : rep_(other.rep_) { other.rep_ = nullptr; }
    virtual ~Cmd() { release(rep_); }

    Cmd& operator=(const Cmd& other) noexcept {
        if (other.rep_ != rep_) {
            Rep* old = rep_;
            rep_ = other.rep_;
            acquire();
            release(old);
        }
        return *this;
    }
    Cmd& operator=(Cmd&& other) noexcept {
        if (this != &other) {
            Rep* old = rep_;
            rep_ = other.rep_;
            other.rep_ = nullptr;
            release(old);
        }
        return *this;
    }

    /// The null command succeeds without doing anything; an uninitialised handle reports and fails.
    bool execute(Ctx& context) const {
        if (!rep_) {
            reportUninitialisedCommand();
            return false;
        }
        return isNullCommand() || rep_->execute(context);
    }

    bool isNullCommand() const noexcept { return rep_ == nullRep(); }
    bool isValid() const noexcept { return rep_ && rep_ != nullRep(); }
    Rep* getRep() const noexcept { return rep_; }

    /// Equal when both are not valid (uninitialised or null, in any mix) or both share one representation.
    friend bool operator==(const Cmd& a, const Cmd& b) noexcept {
        return (!a.isValid() && !b.isValid()) || a.rep_ == b.rep_;
    }
    friend bool operator!=(const Cmd& a, const Cmd& b) noexcept { return !(a == b); }

protected:
    struct NullTag {};
    explicit Cmd(NullTag) noexcept : rep_(nullRep()) {}
    static Rep* nullRep() noexcept { return reinterpret_cast<Rep*>(uintptr_t(1)); }

private:
    void acquire() const noexcept {
        if (isValid()) rep_->incRef();
    }
    static void release(Rep* rep) noexcept {
        if (rep && rep != nullRep()) rep->decRef();
    }

    Rep* rep_;
};

/// A handle on the null command.
template <class Ctx, class TS = ThreadSafetyTraits::NoLocking>
class NullCommand : public Cmd<Ctx, TS> {
public:
    NullCommand() noexcept : Cmd<Ctx, TS>(typename Cmd<Ctx, TS>::NullTag()) {}
};

/// What a command calls when it executes; told which handle is executing so one receiver can serve many.
template <class Command>
class Receiver {
public:
    virtual ~Receiver() = default;
    virtual bool executeCommand(Command& command, typename Command::ContextType& context) = 0;
};

template <class Ctx, class Tag, class TS>
class SmplCmd;

/// The representation of a simple command: executing it calls its receiver with a handle on itself.
template <class Ctx, class Tag = NoTag, class TS = ThreadSafetyTraits::NoLocking>
class SimpleCommandRep : public CommandRep<Ctx, TS>, public QvPooledObject<SimpleCommandRep<Ctx, Tag, TS>> {
public:
    using Command = SmplCmd<Ctx, Tag, TS>;
    using QvPooledObject<SimpleCommandRep>::operator new;
    using QvPooledObject<SimpleCommandRep>::operator delete;

    explicit SimpleCommandRep(Receiver<Command>* receiver) noexcept : receiver_(receiver) {}

    /// Calls the receiver with a handle on this representation; fails when there is no receiver.
    bool execute(Ctx& context) override {
        typename CommandRep<Ctx, TS>::Scope lock(*this);
        Command self(this);
        return receiver_ && receiver_->executeCommand(self, context);
    }
    Receiver<Command>* receiver() const noexcept { return receiver_; }

private:
    Receiver<Command>* receiver_;
};

/// A handle on a simple command, made from a receiver.
template <class Ctx, class Tag = NoTag, class TS = ThreadSafetyTraits::NoLocking>
class SmplCmd : public Cmd<Ctx, TS> {
public:
    using RepType = SimpleCommandRep<Ctx, Tag, TS>;

    SmplCmd() noexcept = default;
    explicit SmplCmd(Receiver<SmplCmd>* receiver) : Cmd<Ctx, TS>(new RepType(receiver)) {}
    explicit SmplCmd(RepType* rep) noexcept : Cmd<Ctx, TS>(rep) {}

    RepType* rep() const noexcept { return static_cast<RepType*>(this->getRep()); }
};

/// The representation of a compound command: an ordered list of commands executed in turn.
template <class Ctx, class TS = ThreadSafetyTraits::NoLocking>
class CompoundCommandRep : public CommandRep<Ctx, TS>, public QvPooledObject<CompoundCommandRep<Ctx, TS>> {
public:
    using Command = Cmd<Ctx, TS>;
    using Entry = std::pair<uint64_t, Command>;
    using Scope = typename CommandRep<Ctx, TS>::Scope;
    using QvPooledObject<CompoundCommandRep>::operator new;
    using QvPooledObject<CompoundCommandRep>::operator delete;

    /// `ordered`: keep the members ascending by priority (equal priorities in the order added); otherwise
    /// members run in the order added and the priority is only stored.
    explicit CompoundCommandRep(bool ordered) noexcept : ordered_(ordered) {}

    static uint64_t getPriority(const Entry& entry) noexcept { return entry.first; }
    static const Command& getCommand(const Entry& entry) noexcept { return entry.second; }

    void add(const Command& command, unsigned long priority) {
        Scope lock(*this);
        auto at = entries_.end();
        if (ordered_)
            at = std::upper_bound(entries_.begin(), entries_.end(), uint64_t(priority),
                                  [](uint64_t p, const Entry& e) { return p < e.first; });
        entries_.insert(at, Entry(priority, command));
    }
    /// Removes the first member equal to `command`; false when there is none.
    bool remove(const Command& command) {
        Scope lock(*this);
        const auto found = std::find_if(entries_.begin(), entries_.end(),
                                        [&](const Entry& e) { return e.second == command; });
        if (found == entries_.end()) return false;
        entries_.erase(found);
        return true;
    }
    bool stopOnFailure() const {
        Scope lock(*this);
        return stopOnFailure_;
    }
    void stopOnFailure(bool stop) {
        Scope lock(*this);
        stopOnFailure_ = stop;
    }
    std::size_t size() const {
        Scope lock(*this);
        return entries_.size();
    }

    /// Runs the members in order; false when any failed. With stopOnFailure the first failure ends the run.
    bool execute(Ctx& context) override {
        Scope lock(*this);
        bool ok = true;
        for (std::size_t i = 0; i < entries_.size(); ++i) {
            const Command member = entries_[i].second;
            if (!member.execute(context)) {
                ok = false;
                if (stopOnFailure_) break;
            }
        }
        return ok;
    }

private:
    std::vector<Entry> entries_;  ///< guarded by the critical section (ThreadSafe)
    bool stopOnFailure_ = false;  ///< guarded by the critical section (ThreadSafe)
    const bool ordered_;
};

/// A handle on a compound command, optionally stopping at the first command that fails.
template <class Ctx, class TS = ThreadSafetyTraits::NoLocking>
class CompCmd : public Cmd<Ctx, TS> {
public:
    using RepType = CompoundCommandRep<Ctx, TS>;
    using Entry = typename RepType::Entry;

    explicit CompCmd(bool ordered = false) : Cmd<Ctx, TS>(new RepType(ordered)) {}
    explicit CompCmd(RepType* rep) noexcept : Cmd<Ctx, TS>(rep) {}

    void add(const Cmd<Ctx, TS>& command, unsigned long priority = 0) { rep()->add(command, priority); }
    bool remove(const Cmd<Ctx, TS>& command) { return rep()->remove(command); }
    bool stopOnFailure() const { return rep()->stopOnFailure(); }
    void stopOnFailure(bool stop) { rep()->stopOnFailure(stop); }
    std::size_t size() const { return rep()->size(); }
    static uint64_t getPriority(const Entry& entry) noexcept { return RepType::getPriority(entry); }
    static const Cmd<Ctx, TS>& getCommand(const Entry& entry) noexcept { return RepType::getCommand(entry); }

    RepType* rep() const noexcept { return static_cast<RepType*>(this->getRep()); }
};

template <class Param, class Tag, class Ctx, class RecvParam, class TS>
class ParamCmd;

/// A receiver and a stored parameter that the receiver reads back (as RecvParam) when the command runs.
/// The parameter is not guarded: re-arm a command only while nothing executes it.
template <class Param, class Tag = NoTag, class Ctx = NoCtx, class RecvParam = const Param&,
          class TS = ThreadSafetyTraits::NoLocking>
class ParameterizedCommandRep
    : public CommandRep<Ctx, TS>,
      public QvPooledObject<ParameterizedCommandRep<Param, Tag, Ctx, RecvParam, TS>> {
public:
    using Command = ParamCmd<Param, Tag, Ctx, RecvParam, TS>;
    using QvPooledObject<ParameterizedCommandRep>::operator new;
    using QvPooledObject<ParameterizedCommandRep>::operator delete;

    ParameterizedCommandRep(Receiver<Command>* receiver, const Param& param)
        : receiver_(receiver), param_(param) {}
    ParameterizedCommandRep(Receiver<Command>* receiver, Param&& param)
        : receiver_(receiver), param_(std::move(param)) {}

    bool execute(Ctx& context) override {
        Command self(this);
        return receiver_ && receiver_->executeCommand(self, context);
    }
    Receiver<Command>* receiver() const noexcept { return receiver_; }
    RecvParam param() const noexcept { return param_; }
    void setParam(const Param& param) { param_ = param; }

private:
    Receiver<Command>* receiver_;
    Param param_;
};

/// A handle on a command that carries a parameter for its receiver.
template <class Param, class Tag = NoTag, class Ctx = NoCtx, class RecvParam = const Param&,
          class TS = ThreadSafetyTraits::NoLocking>
class ParamCmd : public Cmd<Ctx, TS> {
public:
    using RepType = ParameterizedCommandRep<Param, Tag, Ctx, RecvParam, TS>;

    ParamCmd() noexcept = default;
    explicit ParamCmd(Receiver<ParamCmd>* receiver, Param param = Param())
        : Cmd<Ctx, TS>(new RepType(receiver, std::move(param))) {}
    explicit ParamCmd(RepType* rep) noexcept : Cmd<Ctx, TS>(rep) {}

    /// A new command for the same receiver carrying `param`; this one is left as it is.
    ParamCmd withParam(Param param) const {
        return ParamCmd(rep() ? rep()->receiver() : nullptr, std::move(param));
    }
    /// Re-arms this command (and every handle sharing it) with `param`.
    void rearm(const Param& param) { rep()->setParam(param); }
    RecvParam param() const noexcept { return rep()->param(); }

    RepType* rep() const noexcept { return static_cast<RepType*>(this->getRep()); }
};

}  // namespace QvDC
