#include "StepThread.h"

#include <utility>

namespace Velmora {
namespace Reference {

StepThread::StepThread(std::chrono::milliseconds period, std::function<void()> step)
    : shared(std::make_shared<Shared>()) {
    shared->period = period;
    shared->step = std::move(step);
    thread = std::thread(&StepThread::Run, shared);
}

StepThread::~StepThread() {
    {
        const std::lock_guard<std::mutex> lock(shared->mutex);
        shared->stopping = true;
    }
    shared->wake.notify_all();
    if (thread.get_id() == std::this_thread::get_id()) {
        thread.detach();
    } else {
        thread.join();
    }
}

void StepThread::Run(const std::shared_ptr<Shared>& shared) {
    std::unique_lock<std::mutex> lock(shared->mutex);
    while (!shared->wake.wait_for(lock, shared->period, [&] { return shared->stopping; })) {
        lock.unlock();
        shared->step();
        lock.lock();
    }
}

}  // namespace Reference
}  // namespace Velmora
