#pragma once
// Browser clients that keep what they were given. Events are owned, as the browser would own them,
// and deleted with the client.

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Uva/UVAClient.h"

namespace VelmoraTest {

template <typename Event>
class EventQueue {
public:
    void Push(Event* event) {
        std::lock_guard<std::mutex> lock(mutex_);
        events_.emplace_back(event);
    }

    std::size_t Count() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return events_.size();
    }

    // The i-th event, cast to the class the test expects (null when it is of another class).
    template <typename Expected = Event>
    Expected* At(std::size_t index) const {
        std::lock_guard<std::mutex> lock(mutex_);
        return index < events_.size() ? dynamic_cast<Expected*>(events_[index].get()) : nullptr;
    }

    // Deletes every event held so far, as the browser does when it is done with them.
    void Clear() {
        std::lock_guard<std::mutex> lock(mutex_);
        events_.clear();
    }

private:
    mutable std::mutex mutex_;
    std::vector<std::unique_ptr<Event>> events_;
};

class RecordingClient : public UVAClient {
public:
    void handleEvent(UVAEvent* event) override {
        events.Push(event);
        if (onEvent) {
            onEvent(event);
        }
    }

    UVADRMBackend* requestDRMBackend(const char* keySystemId) override {
        requestedKeySystems.push_back(keySystemId == nullptr ? "null" : keySystemId);
        return drmBackendToGive;
    }

    EventQueue<UVAEvent> events;
    // Runs on the delivering thread after the event was stored (a browser reacting in its handler).
    std::function<void(UVAEvent*)> onEvent;
    UVADRMBackend* drmBackendToGive = nullptr;
    std::vector<std::string> requestedKeySystems;
};

class RecordingDrmClient : public UVADRMClient {
public:
    void handleDRMEvent(UVADRMEvent* event) override { events.Push(event); }

    EventQueue<UVADRMEvent> events;
};

}  // namespace VelmoraTest
