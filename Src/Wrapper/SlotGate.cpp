#include "SlotGate.h"

#include <atomic>
#include <boost/make_shared.hpp>
#include <condition_variable>
#include <mutex>
#include <utility>

namespace Velmora {
namespace Wrapper {

// A slot's way through the gate costs two atomic operations; the mutex and the condition are only
// touched once the gate is closing, by the closing thread and by slots leaving while it waits.
class SlotGate::State {
public:
    bool Enter() noexcept {
        // Counted before the flag is read, and Close sets the flag before it reads the count (both
        // sequentially consistent): either this slot sees the gate closed, or Close sees this slot.
        inFlight_.fetch_add(1, std::memory_order_seq_cst);
        if (closed_.load(std::memory_order_seq_cst)) {
            Leave();
            return false;
        }
        return true;
    }

    void Leave() noexcept {
        inFlight_.fetch_sub(1, std::memory_order_seq_cst);
        if (closed_.load(std::memory_order_seq_cst)) {
            // Taking the mutex orders this wake-up after the closing thread's last look at the count.
            { const std::lock_guard<std::mutex> lock(mutex_); }
            idle_.notify_all();
        }
    }

    // Waits until the only slots left in the gate are the `own` ones of the calling thread.
    void Close(unsigned own) {
        closed_.store(true, std::memory_order_seq_cst);
        if (inFlight_.load(std::memory_order_seq_cst) == own) {
            return;
        }
        std::unique_lock<std::mutex> lock(mutex_);
        idle_.wait(lock, [&] { return inFlight_.load(std::memory_order_seq_cst) == own; });
    }

private:
    std::atomic<unsigned> inFlight_{0};  // slot calls in progress, on every thread
    std::atomic<bool> closed_{false};
    std::mutex mutex_;
    std::condition_variable idle_;
};

// Static TLS: a first use on a thread, a release for instance, must not allocate the thread's block.
__attribute__((tls_model("initial-exec"))) thread_local SlotGate::Passage* SlotGate::innermostPassage = nullptr;

unsigned SlotGate::OwnPassages(const State& state, Passage** outermost) noexcept {
    unsigned count = 0;
    for (Passage* passage = innermostPassage; passage != nullptr; passage = passage->outer_) {
        if (passage->state_ == &state) {
            ++count;
            *outermost = passage;
        }
    }
    return count;
}

// One block for the state and its count: a gate is made for every back-end and component.
SlotGate::SlotGate() : state_(boost::make_shared<State>()) {}

SlotGate::~SlotGate() { Close(); }

void SlotGate::CloseAndDelete(State& state, void (*destroy)(void*), void* object) noexcept {
    Passage* outermost = nullptr;
    const unsigned own = OwnPassages(state, &outermost);
    try {
        state.Close(own);
    } catch (...) {
        // Only a failing mutex can throw here: leaking the object is safer than freeing it under a slot.
        return;
    }
    if (outermost != nullptr) {
        // The gate owns one object, so one place for its postponed delete is enough.
        outermost->destroy_ = destroy;
        outermost->object_ = object;
        return;
    }
    destroy(object);
}

void SlotGate::Close() noexcept {
    Passage* outermost = nullptr;
    try {
        state_->Close(OwnPassages(*state_, &outermost));
    } catch (...) {
        // Only a failing mutex can throw here; the gate is closed regardless of waiting.
    }
}

SlotGate::Passage::Passage(State& state) noexcept : state_(&state), admitted_(state.Enter()) {
    if (admitted_) {
        outer_ = innermostPassage;
        innermostPassage = this;
    }
}

SlotGate::Passage::~Passage() {
    if (!admitted_) {
        return;
    }
    innermostPassage = outer_;
    state_->Leave();
    if (destroy_ != nullptr) {
        destroy_(object_);
    }
}

}  // namespace Wrapper
}  // namespace Velmora
