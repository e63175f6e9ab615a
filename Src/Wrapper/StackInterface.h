#pragma once
// What the three wrappers share in reaching the media stack: the back-end resolved once as the interface
// the wrapper drives (a back-end never changes kind), every call forwarded through the guard, and events
// followed only when the browser gave a client to hand them to.

#include <boost/shared_ptr.hpp>
#include <type_traits>

#include "CallGuard.h"
#include "Log.h"

namespace Velmora {
namespace Wrapper {

// Cold and out of line, so a forwarder inlines only the null test.
[[noreturn, gnu::cold, gnu::noinline]] void ThrowMissingInterface(const char* text);

// Whether a wrapper follows its back-end's events: not without a client (which is logged at level 5 as
// `noClientText`), and not without a back-end, since an empty one raises nothing.
bool FollowsEvents(const LogSite& site, const char* noClientText, const void* client, bool hasBackend);

template <typename Interface>
class StackInterface {
public:
    // `missingText` is what every operation fails with when the back-end is missing or of another kind;
    // `owner` names the wrapper in the session trace.
    template <typename Backend>
    StackInterface(const boost::shared_ptr<Backend>& backend, const char* missingText, const void* owner) noexcept
        : resolved_(dynamic_cast<Interface*>(backend.get())), missingText_(missingText), owner_(owner) {}

    Interface* Get() const { return resolved_; }

    // Throws inside the guard, so a wrong or missing back-end fails each operation at the same point.
    Interface& operator()() const {
        if (resolved_ == nullptr) {
            ThrowMissingInterface(missingText_);
        }
        return *resolved_;
    }

    // `call` on the interface inside the guard: a bool answer gives its status, a status is passed on,
    // a call answering nothing gives 1.
    template <typename Call>
    UVA_STATUS Forward(const CallPolicy& policy, Call&& call, const char* operation = __builtin_FUNCTION()) const {
        return Guarded(
            policy,
            [&] {
                Interface& stack = (*this)();
                using Answer = decltype(call(stack));
                if constexpr (std::is_void<Answer>::value) {
                    call(stack);
                    return UVA_STATUS_OK;
                } else if constexpr (std::is_same<Answer, bool>::value) {
                    return StatusOf(call(stack));
                } else {
                    static_assert(std::is_same<Answer, UVA_STATUS>::value, "a forwarded call answers a status");
                    return call(stack);
                }
            },
            owner_, operation);
    }

private:
    Interface* const resolved_;
    const char* const missingText_;
    const void* const owner_;
};

}  // namespace Wrapper
}  // namespace Velmora
