#pragma once
// KvDC commands: a counted command body (CommandRep) behind a small handle (Cmd) that can be
// copied into queues and run on any thread. A ParamCmd carries one parameter to a Receiver,
// which does the work in its executeCommand. Bodies of parameterised commands come from a
// process-wide pool, so that issuing a command on every frame costs no trip to the heap.
//
//     class Worker : KvDC::Receiver<MyCmd> {
//         int executeCommand(MyCmd& cmd, KvDC::NoCtx&) override { ... cmd.paramRep()->param ... }
//     };
//     MyCmd cmd(&worker);          // a fresh body, parameter value-initialised
//     cmd.paramRep()->param = p;   // under the body's section when others may look
//     queue.insert(cmd, 0);        // the queue keeps its own count on the body

#include "ole/platform/commands/KvPooledObject.h"
#include "ole/platform/os/CriticalSection.h"
#include "ole/platform/os/KvPlatformExport.h"
#include "ole/platform/os/OSCore.h"

namespace KvDC {

// No tag type, no context: the common case.
struct NoTag {};
struct NoCtx {};

namespace ThreadSafetyTraits {
// Counts change atomically and the body has a re-entrant section: handles may be copied and
// dropped on any thread.
struct ThreadSafe {};
}  // namespace ThreadSafetyTraits

// Reports a handle without a body where a body was needed; the caller goes on.
KV_EXPORT void ErrorNullRep();

template <class Ctx, class ThreadSafety>
class Cmd;

// The body of a command: a reference count, two flag bytes for the queues' bookkeeping, and a
// re-entrant section that a body's execute may hold while it runs.
template <class Ctx, class ThreadSafety>
class CommandRep {
public:
    CommandRep() : refCount_(0), flags_{0, 0} {}
    CommandRep(const CommandRep&) = delete;
    CommandRep& operator=(const CommandRep&) = delete;
    virtual ~CommandRep() = default;

    // Runs the command; the result is the command's own.
    virtual int execute(Ctx& context) = 0;

    void incRef() noexcept { Kv::Platform::incrementCount(&refCount_); }
    // The last handle gone, the body goes (back to its pool, for pooled bodies).
    void decRef() noexcept
    {
        if (Kv::Platform::decrementCount(&refCount_) == 0) delete this;
    }
    int refCount() const noexcept { return __atomic_load_n(&refCount_, __ATOMIC_RELAXED); }

    CriticalSection& section() noexcept { return section_; }
    unsigned char& flag(int which) noexcept { return flags_[which & 1]; }

private:
    int refCount_;
    unsigned char flags_[2];
    CriticalSection section_;
};

// A counted handle on a body; the empty handle (no body) does nothing when run.
template <class Ctx, class ThreadSafety>
class Cmd {
public:
    using Context = Ctx;
    using Rep = CommandRep<Ctx, ThreadSafety>;

    Cmd() noexcept : rep_(nullptr) {}
    explicit Cmd(Rep* rep) noexcept : rep_(rep)
    {
        if (rep_) rep_->incRef();
    }
    Cmd(const Cmd& other) noexcept : rep_(other.rep_)
    {
        if (rep_) rep_->incRef();
    }
    Cmd(Cmd&& other) noexcept : rep_(other.rep_) { other.rep_ = nullptr; }
    Cmd& operator=(const Cmd& other) noexcept
    {
        if (other.rep_) other.rep_->incRef();
        Rep* old = rep_;
        rep_ = other.rep_;
        if (old) old->decRef();
        return *this;
    }
    Cmd& operator=(Cmd&& other) noexcept
    {
        if (this == &other) return *this;
        Rep* old = rep_;
        rep_ = other.rep_;
        other.rep_ = nullptr;
        if (old) old->decRef();
        return *this;
    }
    virtual ~Cmd()
    {
        if (rep_) rep_->decRef();
    }

    bool isValid() const noexcept { return rep_ != nullptr; }
    Rep* rep() const noexcept { return rep_; }
    // 0 for the empty handle.
    int execute(Ctx& context) const { return rep_ ? rep_->execute(context) : 0; }
    // Lets go of the body.
    void reset() noexcept
    {
        if (rep_) rep_->decRef();
        rep_ = nullptr;
    }

protected:
    Rep* rep_;
};

// The command that does nothing: what a queue is given when it needs no command to run as its
// thread starts or stops.
template <class Ctx, class ThreadSafety>
class NullCommand : public Cmd<Ctx, ThreadSafety> {
public:
    NullCommand() noexcept = default;
};

// Whoever does the work of a command type CmdT.
template <class CmdT>
class Receiver {
public:
    virtual ~Receiver() = default;
    virtual int executeCommand(CmdT& command, typename CmdT::Context& context) = 0;
};

template <class T>
class DefaultPoolBase
    : public Kv::PooledObject<
          T,
          Kv::PooledObjectAllocation::Traits<Kv::PooledObjectAllocation::NullInitTraits,
                                             Kv::PooledObjectAllocation::NullFiniTraits,
                                             Kv::PooledObjectAllocation::ExpandingAllocator,
                                             Kv::PooledObjectAllocation::ExpandingDeallocator>,
          Kv::PooledObjectDebug::NullTraits> {
protected:
    DefaultPoolBase() noexcept {}
    DefaultPoolBase(const DefaultPoolBase&) noexcept {}
    ~DefaultPoolBase() = default;
};

template <class Param, class Tag, class Ctx, class Stored, class ThreadSafety>
class ParamCmd;

// The body of a parameterised command: whom to call, and the parameter to hand over.
template <class Param, class Tag, class Ctx, class Stored, class ThreadSafety>
class ParameterizedCommandRep
    : public CommandRep<Ctx, ThreadSafety>,
      public DefaultPoolBase<ParameterizedCommandRep<Param, Tag, Ctx, Stored, ThreadSafety>> {
public:
    using Handle = ParamCmd<Param, Tag, Ctx, Stored, ThreadSafety>;
    using ReceiverType = Receiver<Handle>;

    explicit ParameterizedCommandRep(ReceiverType* receiver_) : receiver(receiver_), param() {}
    ~ParameterizedCommandRep() override = default;

    // Holds the body's section for the whole run of the receiver, which may enter it again on
    // this thread to read the parameter; the section is left also when the receiver throws.
    int execute(Ctx& context) override
    {
        CriticalSection::Lock hold(this->section());
        Handle handle(this);
        return receiver->executeCommand(handle, context);
    }

    ReceiverType* receiver;
    Stored param;
};

// The handle of a parameterised command. Made from a receiver, it takes a fresh body from the
// pool; made from a body, it is one more handle on it.
template <class Param, class Tag, class Ctx, class Stored, class ThreadSafety>
class ParamCmd
    : public Cmd<Ctx, ThreadSafety>,
      public DefaultPoolBase<ParameterizedCommandRep<Param, Tag, Ctx, Stored, ThreadSafety>> {
public:
    using RepType = ParameterizedCommandRep<Param, Tag, Ctx, Stored, ThreadSafety>;
    using ReceiverType = Receiver<ParamCmd>;

    explicit ParamCmd(ReceiverType* receiver) : Cmd<Ctx, ThreadSafety>(new RepType(receiver)) {}
    explicit ParamCmd(RepType* rep) noexcept : Cmd<Ctx, ThreadSafety>(rep) {}
    ParamCmd(const ParamCmd& other) noexcept
        : Cmd<Ctx, ThreadSafety>(other), DefaultPoolBase<RepType>()
    {
    }
    ParamCmd& operator=(const ParamCmd& other) noexcept
    {
        Cmd<Ctx, ThreadSafety>::operator=(other);
        return *this;
    }
    ~ParamCmd() override = default;

    RepType* paramRep() const noexcept { return static_cast<RepType*>(this->rep_); }
};

}  // namespace KvDC
