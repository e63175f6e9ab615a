#pragma once
// Keeps the media stack's threads out of a wrapper that is going away.
//
// Boost.Signals2 may still run a slot after disconnect() returned, when the signal was raised on
// another thread at the same moment. Every slot a wrapper hands to the media stack is therefore bound
// through the wrapper's gate:
//  - once Close() has begun, no slot of the gate starts;
//  - Close() returns only when the slots running on other threads have returned;
//  - a slot running on the closing thread itself is not waited for, so a wrapper can be released from
//    inside its own slot without a deadlock; Own() then postpones the delete until that slot returns,
//    so the slot never runs on freed memory.
// Every wrapper closes its gate first in its destructor.

#include <boost/function.hpp>
#include <boost/shared_ptr.hpp>
#include <utility>

#include "TraceHooks.h"

namespace Velmora {
namespace Wrapper {

class SlotGate {
public:
    SlotGate();
    ~SlotGate();
    SlotGate(const SlotGate&) = delete;
    SlotGate& operator=(const SlotGate&) = delete;

    // A slot that calls owner->*Handler(args...) while the gate is open, and does nothing afterwards. The
    // handler is part of the slot's type, so the slot is small enough to live inside boost::function
    // without an allocation of its own.
    template <auto Handler, typename Owner>
    auto Bind(Owner* owner) const {
        return SlotFor<Handler>(owner, Handler);
    }

    // Idempotent. Must not be called while holding anything a slot of this gate waits for.
    void Close() noexcept;

    // Holds `object` so that its last release closes `gate` (waiting for slots on other threads) and
    // deletes it, or, when that release happens inside one of the gate's slots, deletes it as soon as
    // that slot returns. One object per gate. The release allocates nothing, so it cannot fail.
    template <typename Base, typename Object>
    static boost::shared_ptr<Base> Own(Object* object, const SlotGate& gate) {
        const boost::shared_ptr<State> state = gate.state_;
        return boost::shared_ptr<Base>(object,
                                       [state](Base* held) noexcept { CloseAndDelete(*state, &DeleteAs<Base>, held); });
    }

private:
    class State;

    template <auto Handler, typename Owner, typename... Args>
    boost::function<void(Args...)> SlotFor(Owner* owner, void (Owner::*)(Args...)) const {
        const boost::shared_ptr<State> state = state_;
        return [state, owner](Args... args) {
            const Passage passage(*state);
            if (passage.Admitted()) {
                const Tracing::SlotTimer timer(owner, args...);
                (owner->*Handler)(static_cast<Args&&>(args)...);
            }
        };
    }

    template <typename Base>
    static void DeleteAs(void* object) noexcept {
        delete static_cast<Base*>(object);
    }

    static void CloseAndDelete(State& state, void (*destroy)(void*), void* object) noexcept;

    class Passage;
    // How many slot calls of `state` the calling thread is inside, and the outermost of them.
    static unsigned OwnPassages(const State& state, Passage** outermost) noexcept;
    // The innermost slot call of this thread, of any gate.
    static thread_local Passage* innermostPassage;

    // One slot call in progress. Passages of a thread form a list through the thread's stack, so the
    // gate can tell a slot running on the closing thread itself without any shared bookkeeping.
    class Passage {
    public:
        // `state` outlives the passage without a share of its own: the slot running it holds one for as
        // long as it runs, even when the gate's object is deleted meanwhile.
        explicit Passage(State& state) noexcept;
        ~Passage();
        Passage(const Passage&) = delete;
        Passage& operator=(const Passage&) = delete;
        bool Admitted() const { return admitted_; }

    private:
        friend class SlotGate;
        State* const state_;
        bool admitted_;
        Passage* outer_ = nullptr;
        // A delete postponed until this (the outermost) slot of the gate on this thread returns.
        void (*destroy_)(void*) = nullptr;
        void* object_ = nullptr;
    };

    boost::shared_ptr<State> state_;
};

}  // namespace Wrapper
}  // namespace Velmora
