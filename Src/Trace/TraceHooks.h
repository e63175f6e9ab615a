#pragma once
// What the call guard and the slot gate call to feed the session trace and the slow-call watchdog.
// While both are off, a guarded call pays one relaxed load and one well-predicted branch (Armed()).

#include <atomic>
#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <type_traits>
#include <typeinfo>

#include "TraceRing.h"
#include "Uva/UVAStatus.h"

namespace Velmora {

class BackendEvent;
class DrmBackendEvent;

namespace Wrapper {
struct LogSite;
}

namespace Tracing {

// True while the trace records or the watchdog watches.
extern std::atomic<bool> armed __attribute__((visibility("hidden")));

inline bool Armed() noexcept { return __builtin_expect(armed.load(std::memory_order_relaxed), 0) != 0; }

// Times one guarded call on the browser's side and records it when it goes out of scope.
class CallTimer {
public:
    CallTimer(const Wrapper::LogSite& site, const char* operation, const void* backend) noexcept;
    ~CallTimer();
    CallTimer(const CallTimer&) = delete;
    CallTimer& operator=(const CallTimer&) = delete;

    UVA_STATUS Returns(UVA_STATUS status) noexcept {
        status_ = status;
        return status;
    }
    // A request answers with the back-end it made: that is the back-end the call is about.
    template <typename Result>
    Result* Returns(Result* result, Result* failure) noexcept {
        status_ = result != failure ? UVA_STATUS_OK : UVA_STATUS_ERROR;
        if (std::is_class<Result>::value && backend_ == nullptr) {
            backend_ = result;
        }
        return result;
    }

    const char* Operation() const { return operation_; }

private:
    const Wrapper::LogSite& site_;
    const char* operation_;
    const void* backend_;
    std::int32_t status_ = -1;
    std::uint64_t startNs_;
    CallTimer* outer_;
};

// The failure the guard is handling; recorded against the call being timed on this thread.
void NoteFailure(int errorType, const char* text) noexcept;

// Times one slot the media stack runs: the translation and the browser's handler.
class SlotTimer {
public:
    template <typename Owner, typename... Args>
    SlotTimer(const Owner* owner, const Args&... args) noexcept : active_(Armed()) {
        if (active_) {
            const SlotKind kind = KindOf(args...);
            Begin(owner, typeid(Owner).name(), kind, CodeOf(args...));
        }
    }
    ~SlotTimer() {
        if (active_) {
            End();
        }
    }
    SlotTimer(const SlotTimer&) = delete;
    SlotTimer& operator=(const SlotTimer&) = delete;

private:
    template <typename... Rest>
    static SlotKind KindOf(const boost::shared_ptr<BackendEvent>&, const Rest&...) {
        return SlotKind::BackendEvent;
    }
    template <typename... Rest>
    static SlotKind KindOf(const boost::shared_ptr<DrmBackendEvent>&, const Rest&...) {
        return SlotKind::DrmEvent;
    }
    template <typename... Any>
    static SlotKind KindOf(const Any&...) {
        return SlotKind::Request;
    }

    template <typename... Rest>
    static int CodeOf(const boost::shared_ptr<BackendEvent>& event, const Rest&...) {
        return EventCode(event.get());
    }
    template <typename... Rest>
    static int CodeOf(const boost::shared_ptr<DrmBackendEvent>& event, const Rest&...) {
        return EventCode(event.get());
    }
    template <typename... Any>
    static int CodeOf(const Any&...) {
        return -1;
    }
    static int EventCode(const BackendEvent* event) noexcept;
    static int EventCode(const DrmBackendEvent* event) noexcept;

    void Begin(const void* owner, const char* ownerType, SlotKind kind, int code) noexcept;
    void End() noexcept;

    const bool active_;
    SlotKind kind_ = SlotKind::None;
    std::int32_t code_ = -1;
    const void* owner_ = nullptr;
    const char* ownerType_ = nullptr;
    std::uint64_t startNs_ = 0;
};

// The library starts: the environment may switch the trace on (read once per process).
void LibraryStarted() noexcept;
// The library stops: the trace is written to its path, if it has one.
void LibraryStopped() noexcept;

}  // namespace Tracing
}  // namespace Velmora
