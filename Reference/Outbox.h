#pragma once
// The notifications a back-end has decided on but not raised yet, and the signal it raises them on.
//
// A back-end decides what happens under its own lock, posts the resulting events here, and raises
// them later with the lock released: the library hands every event to the browser synchronously,
// and the browser may call straight back into the back-end (a NeedMseData is answered by
// writeData, for example), which would deadlock on a lock held while raising.

#include <atomic>
#include <boost/shared_ptr.hpp>
#include <boost/signals2/signal.hpp>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace Velmora {
namespace Reference {

template <typename Event>
class Outbox {
public:
    using Signal = boost::signals2::signal<void(boost::shared_ptr<Event>)>;

    boost::signals2::connection Connect(const typename Signal::slot_type& slot) { return signal.connect(slot); }

    // Queues `event` (taken over) for the next delivery. `keepAlive` is held until the event has been
    // raised: a component must outlive the event that announces its removal.
    void Post(Event* event, std::shared_ptr<const void> keepAlive = nullptr) {
        const boost::shared_ptr<Event> shared(event);
        Post([this, shared, keepAlive] {
            signal(shared);
            ++raised;
        });
    }

    // Queues any other notification (a component's state change, a request for a DRM back-end), so
    // that it keeps its place among the events.
    void Post(std::function<void()> notification) {
        const std::lock_guard<std::mutex> lock(mutex);
        pending.push_back(std::move(notification));
    }

    // Runs everything queued, in order, on the calling thread. What the browser posts meanwhile by
    // calling back waits for the next delivery. A slot that throws costs only its own notification:
    // the exception is counted, never allowed to end the thread that delivers.
    void Deliver() {
        std::vector<std::function<void()>> batch;
        {
            const std::lock_guard<std::mutex> lock(mutex);
            batch.swap(pending);
        }
        for (const auto& notification : batch) {
            try {
                notification();
            } catch (...) {
                ++failures;
            }
        }
    }

    std::uint32_t Raised() const { return raised; }
    std::uint32_t Failures() const { return failures; }

private:
    Signal signal;
    std::mutex mutex;
    std::vector<std::function<void()>> pending;
    std::atomic<std::uint32_t> raised{0};
    std::atomic<std::uint32_t> failures{0};
};

}  // namespace Reference
}  // namespace Velmora
