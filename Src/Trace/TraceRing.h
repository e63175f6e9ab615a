#pragma once
// A bounded ring of trace records. Recording copies one fixed-size record under a short spin lock and
// never allocates; when the ring is full the oldest record is overwritten and counted as dropped.

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace Velmora {
namespace Tracing {

enum class RecordKind : std::uint8_t { Call, Event, Failure };

// Which of the library's signals a slot served: the two event signals carry a type code.
enum class SlotKind : std::uint8_t { None, BackendEvent, DrmEvent, Request };

struct Record {
    static constexpr std::size_t kDetailSize = 64;

    RecordKind kind = RecordKind::Call;
    SlotKind slot = SlotKind::None;
    bool slow = false;
    std::int32_t status = -1;   // calls: the browser's status; -1 for none
    std::int32_t code = -1;     // events: the media stack's type code; failures: the error type
    std::uint32_t thread = 0;   // the kernel's thread id
    std::uint64_t startNs = 0;  // since the trace started
    std::uint64_t durationNs = 0;
    const void* backend = nullptr;
    const char* name = nullptr;     // static text: an operation's name
    const char* context = nullptr;  // static text: the log context, or the owner's type name
    char detail[kDetailSize] = {};  // a failure's text, cut to fit
};

class TraceRing {
public:
    // Allocates the whole ring; throws std::bad_alloc when it cannot.
    explicit TraceRing(std::size_t capacity);
    TraceRing(const TraceRing&) = delete;
    TraceRing& operator=(const TraceRing&) = delete;

    void Push(const Record& record) noexcept;

    // The records held, oldest first, and how many were overwritten before they could be read.
    std::vector<Record> Snapshot(std::uint64_t& dropped) const;

    std::size_t Capacity() const { return capacity_; }

private:
    class SpinLock {
    public:
        void lock() noexcept;
        void unlock() noexcept { flag_.clear(std::memory_order_release); }

    private:
        std::atomic_flag flag_ = ATOMIC_FLAG_INIT;
    };

    const std::size_t capacity_;
    std::unique_ptr<Record[]> records_;
    std::uint64_t written_ = 0;  // guarded by lock_
    mutable SpinLock lock_;
};

}  // namespace Tracing
}  // namespace Velmora
