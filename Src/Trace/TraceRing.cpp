#include "TraceRing.h"

#include <mutex>
#include <thread>

namespace Velmora {
namespace Tracing {

void TraceRing::SpinLock::lock() noexcept {
    while (flag_.test_and_set(std::memory_order_acquire)) {
        std::this_thread::yield();
    }
}

TraceRing::TraceRing(std::size_t capacity) : capacity_(capacity), records_(new Record[capacity]) {}

void TraceRing::Push(const Record& record) noexcept {
    const std::lock_guard<SpinLock> hold(lock_);
    records_[written_ % capacity_] = record;
    ++written_;
}

std::vector<Record> TraceRing::Snapshot(std::uint64_t& dropped) const {
    std::vector<Record> copy;
    copy.reserve(capacity_);
    const std::lock_guard<SpinLock> hold(lock_);
    const std::uint64_t held = written_ < capacity_ ? written_ : capacity_;
    dropped = written_ - held;
    for (std::uint64_t i = written_ - held; i < written_; ++i) {
        copy.push_back(records_[i % capacity_]);
    }
    return copy;
}

}  // namespace Tracing
}  // namespace Velmora
