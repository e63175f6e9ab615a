#pragma once
// The exception firewall. Every browser-facing operation runs its body through Guarded:
//
//     return Guarded(MediaCall("pause"), [&] { Media().Pause(paused); return UVA_STATUS_OK; });
//
// A failure never leaves the guard. It is logged under the policy's texts and answered with a status
// (the media stack's error type mapped to the browser's status), a given failure value, or nothing.

#include <type_traits>
#include <utility>

#include "Log.h"
#include "TraceHooks.h"
#include "Uva/UVAStatus.h"

namespace Velmora {
namespace Wrapper {

inline constexpr const char* kUnknownException = "Unknown exception caught";

// What differs between operations: where and how their failures are written.
struct CallPolicy {
    const LogSite* site;
    // The standard-exception line is `name` immediately followed by `failureSentence` and what().
    const char* name;
    const char* failureSentence;
    int exceptionBaseLevel = 5;
    const char* unknownText = kUnknownException;
};

// The status the browser gets for a media stack error type; unknown types are logged and give 0.
UVA_STATUS StatusForErrorType(const LogSite& site, int errorType);

inline UVA_STATUS StatusOf(bool answer) { return answer ? UVA_STATUS_OK : UVA_STATUS_ERROR; }

// Logs the exception being handled and returns its status. Call only from inside a catch block.
UVA_STATUS ReportCurrentException(const CallPolicy& policy, bool mapErrorType) noexcept;

namespace Unwatched {

// Inlined into each operation: on success the guard costs nothing but the call it wraps.
template <typename Body>
[[gnu::always_inline]] inline auto Guarded(const CallPolicy& policy, Body&& body) noexcept -> decltype(body()) {
    using Result = decltype(body());
    static_assert(std::is_same<Result, UVA_STATUS>::value || std::is_void<Result>::value,
                  "give other results a failure value");
    try {
        return std::forward<Body>(body)();
    } catch (...) {
        if constexpr (std::is_void<Result>::value) {
            ReportCurrentException(policy, false);
        } else {
            return ReportCurrentException(policy, true);
        }
    }
}

template <typename Result, typename Body>
[[gnu::always_inline]] inline Result Guarded(const CallPolicy& policy, Result failure, Body&& body) noexcept {
    try {
        return std::forward<Body>(body)();
    } catch (...) {
        ReportCurrentException(policy, false);
        return failure;
    }
}

}  // namespace Unwatched

// The guard timed for the session trace and the slow-call watchdog: out of line and cold, so that the
// untimed path a forwarder inlines is one flag test before the guarded call.
namespace Timed {

template <typename Body>
[[gnu::cold, gnu::noinline]] auto Guarded(const CallPolicy& policy, Body& body, const void* backend,
                                          const char* operation) noexcept -> decltype(body()) {
    Tracing::CallTimer timer(*policy.site, operation, backend);
    if constexpr (std::is_void<decltype(body())>::value) {
        Unwatched::Guarded(policy, body);
    } else {
        return timer.Returns(Unwatched::Guarded(policy, body));
    }
}

template <typename Result, typename Body>
[[gnu::cold, gnu::noinline]] Result Guarded(const CallPolicy& policy, Result failure, Body& body, const void* backend,
                                            const char* operation) noexcept {
    Tracing::CallTimer timer(*policy.site, operation, backend);
    return timer.Returns(Unwatched::Guarded(policy, failure, body), failure);
}

}  // namespace Timed

// The guard, timed while the session trace or the watchdog is on. `backend` and `operation` name the call
// there; the operation defaults to the calling function's own name. `policy` is best a static constant:
// the untimed path then reads it only when a failure is reported.

// For operations answering a UVA_STATUS, or nothing.
template <typename Body>
auto Guarded(const CallPolicy& policy, Body&& body, const void* backend = nullptr,
             const char* operation = __builtin_FUNCTION()) noexcept -> decltype(body()) {
    if (Tracing::Armed()) {
        return Timed::Guarded(policy, body, backend, operation);
    }
    return Unwatched::Guarded(policy, std::forward<Body>(body));
}

// For operations answering a pointer or a text: `failure` on every failure.
template <typename Result, typename Body>
auto Guarded(const CallPolicy& policy, Result failure, Body&& body, const void* backend = nullptr,
             const char* operation = __builtin_FUNCTION()) noexcept
    -> std::enable_if_t<std::is_invocable<Body&&>::value, Result> {
    if (Tracing::Armed()) {
        return Timed::Guarded(policy, failure, body, backend, operation);
    }
    return Unwatched::Guarded(policy, failure, std::forward<Body>(body));
}

// For teardown steps that must not fail: any failure is logged as `text` alone, at level 5, and swallowed.
void ReportTeardownFailure(const LogSite& site, const char* text) noexcept;

template <typename Body>
void Quietly(const LogSite& site, const char* text, Body&& body) noexcept {
    try {
        std::forward<Body>(body)();
    } catch (...) {
        ReportTeardownFailure(site, text);
    }
}

}  // namespace Wrapper
}  // namespace Velmora
