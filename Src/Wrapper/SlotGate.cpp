#include "SlotGate.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

namespace Velmora {
namespace Wrapper {

class SlotGate::State {
public:
    bool Enter() {
        std::lock_guard<std::mutex> lock(mutex_);
        if (closed_) {
            return false;
        }
        running_.push_back(std::this_thread::get_id());
        return true;
    }

    void Leave() {
        std::vector<std::function<void()>> due;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            const auto self = std::this_thread::get_id();
            running_.erase(std::find(running_.begin(), running_.end(), self));
            if (std::find(running_.begin(), running_.end(), self) == running_.end()) {
                TakeDeferred(self, due);
            }
        }
        idle_.notify_all();
        for (auto& action : due) {
            action();
        }
    }

    void Close() {
        std::unique_lock<std::mutex> lock(mutex_);
        closed_ = true;
        const auto self = std::this_thread::get_id();
        idle_.wait(lock, [&] {
            return std::all_of(running_.begin(), running_.end(), [&](std::thread::id id) { return id == self; });
        });
    }

    void CloseAndDelete(std::function<void()> deleteObject) noexcept {
        try {
            Close();
            std::lock_guard<std::mutex> lock(mutex_);
            const auto self = std::this_thread::get_id();
            if (std::find(running_.begin(), running_.end(), self) != running_.end()) {
                deferred_.emplace_back(self, std::move(deleteObject));
                return;
            }
        } catch (...) {
            // Out of memory while postponing: leaking the object is safer than freeing it under a slot.
            return;
        }
        deleteObject();
    }

private:
    void TakeDeferred(std::thread::id self, std::vector<std::function<void()>>& due) {
        for (auto entry = deferred_.begin(); entry != deferred_.end();) {
            if (entry->first == self) {
                due.push_back(std::move(entry->second));
                entry = deferred_.erase(entry);
            } else {
                ++entry;
            }
        }
    }

    std::mutex mutex_;
    std::condition_variable idle_;
    bool closed_ = false;
    std::vector<std::thread::id> running_;  // one entry per slot call in progress
    std::vector<std::pair<std::thread::id, std::function<void()>>> deferred_;
};

SlotGate::SlotGate() : state_(new State) {}

SlotGate::~SlotGate() { Close(); }

void SlotGate::CloseAndDelete(State& state, std::function<void()> deleteObject) noexcept {
    state.CloseAndDelete(std::move(deleteObject));
}

void SlotGate::Close() noexcept {
    try {
        state_->Close();
    } catch (...) {
        // Only a failing mutex can throw here; the gate is closed regardless of waiting.
    }
}

SlotGate::Passage::Passage(boost::shared_ptr<State> state) : state_(std::move(state)), admitted_(state_->Enter()) {}

SlotGate::Passage::~Passage() {
    if (admitted_) {
        state_->Leave();
    }
}

}  // namespace Wrapper
}  // namespace Velmora
