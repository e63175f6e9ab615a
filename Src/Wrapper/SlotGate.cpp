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
    // Throws when there is no memory to note the call; the slot then does not run.
    bool Enter() {
        std::lock_guard<std::mutex> lock(mutex_);
        if (closed_) {
            return false;
        }
        running_.push_back(std::this_thread::get_id());
        return true;
    }

    // Allocates nothing: it runs in a destructor, and may run a postponed delete.
    void Leave() noexcept {
        Deferred due;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            const auto self = std::this_thread::get_id();
            running_.erase(std::find(running_.begin(), running_.end(), self));
            if (deferred_.destroy != nullptr && deferred_.thread == self &&
                std::find(running_.begin(), running_.end(), self) == running_.end()) {
                due = deferred_;
                deferred_ = Deferred();
            }
        }
        idle_.notify_all();
        if (due.destroy != nullptr) {
            due.destroy(due.object);
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

    void CloseAndDelete(void (*destroy)(void*), void* object) noexcept {
        try {
            Close();
            std::lock_guard<std::mutex> lock(mutex_);
            const auto self = std::this_thread::get_id();
            if (std::find(running_.begin(), running_.end(), self) != running_.end()) {
                // The gate owns one object, so one place for its postponed delete is enough.
                deferred_ = Deferred{self, destroy, object};
                return;
            }
        } catch (...) {
            // Only a failing mutex can throw here: leaking the object is safer than freeing it under a slot.
            return;
        }
        destroy(object);
    }

private:
    struct Deferred {
        std::thread::id thread;
        void (*destroy)(void*) = nullptr;
        void* object = nullptr;
    };

    std::mutex mutex_;
    std::condition_variable idle_;
    bool closed_ = false;
    std::vector<std::thread::id> running_;  // one entry per slot call in progress
    Deferred deferred_;
};

SlotGate::SlotGate() : state_(new State) {}

SlotGate::~SlotGate() { Close(); }

void SlotGate::CloseAndDelete(State& state, void (*destroy)(void*), void* object) noexcept {
    state.CloseAndDelete(destroy, object);
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
