#pragma once
// The thread of the media stack's own that moves a back-end's time: it calls `step` once per period
// until it is destroyed. Destruction stops and joins it, so no step runs once the destructor has
// returned. When the last owner of a back-end lets go inside a step (the browser released the
// back-end from an event handler), the destructor runs on this very thread; it cannot join itself
// then, so it detaches, and the thread ends without touching the back-end again.

#include <boost/shared_ptr.hpp>
#include <boost/weak_ptr.hpp>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

namespace Velmora {
namespace Reference {

class StepThread {
public:
    StepThread(std::chrono::milliseconds period, std::function<void()> step);
    ~StepThread();
    StepThread(const StepThread&) = delete;
    StepThread& operator=(const StepThread&) = delete;

    // A thread that steps `backend`. It is started only once the back-end is owned, and every step
    // holds the back-end: an owner letting go meanwhile destroys it after the step, not inside it,
    // and a back-end already being destroyed is not stepped again.
    template <typename Backend>
    static std::unique_ptr<StepThread> For(const boost::shared_ptr<Backend>& backend,
                                           std::chrono::milliseconds period) {
        const boost::weak_ptr<Backend> owner = backend;
        return std::unique_ptr<StepThread>(new StepThread(period, [owner] {
            if (const auto held = owner.lock()) {
                held->Step();
            }
        }));
    }

private:
    // Shared with the thread, so that a detached thread still finds its stop flag.
    struct Shared {
        std::mutex mutex;
        std::condition_variable wake;
        bool stopping = false;
        std::chrono::milliseconds period;
        std::function<void()> step;
    };

    static void Run(const std::shared_ptr<Shared>& shared);

    std::shared_ptr<Shared> shared;
    std::thread thread;
};

}  // namespace Reference
}  // namespace Velmora
