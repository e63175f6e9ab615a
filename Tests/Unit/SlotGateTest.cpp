#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>

#include "SlotGate.h"

namespace {

using Velmora::Wrapper::SlotGate;

// Owns a gate the way a wrapper does, and reports what happened to it.
class Subscriber {
public:
    explicit Subscriber(std::atomic<int>& destroyed) : destroyed_(destroyed) {}
    virtual ~Subscriber() {
        gate.Close();
        ++destroyed_;
    }

    void Handle(int value) {
        ++calls;
        last = value;
        if (during) {
            during();
        }
    }

    SlotGate gate;
    std::function<void()> during;
    std::atomic<int> calls{0};
    int last = 0;

private:
    std::atomic<int>& destroyed_;
};

TEST(SlotGateTest, Slot_ClosedOrOwnerGone) {
    std::atomic<int> destroyed{0};
    boost::function<void(int)> slot;
    {
        Subscriber subscriber(destroyed);
        slot = subscriber.gate.Bind<&Subscriber::Handle>(&subscriber);
        slot(7);
        subscriber.gate.Close();
        slot(8);
        EXPECT_EQ(subscriber.calls, 1);
        EXPECT_EQ(subscriber.last, 7);
    }
    slot(1);  // would touch freed memory without the gate
    EXPECT_EQ(destroyed, 1);
}

TEST(SlotGateTest, Close_SlotRunningOnAnotherThread) {
    std::atomic<int> destroyed{0};
    Subscriber subscriber(destroyed);
    std::promise<void> entered;
    std::promise<void> proceed;
    std::shared_future<void> proceeding = proceed.get_future().share();
    subscriber.during = [&] {
        entered.set_value();
        proceeding.wait();
    };
    const auto slot = subscriber.gate.Bind<&Subscriber::Handle>(&subscriber);
    std::thread mediaStack([&] { slot(1); });
    entered.get_future().wait();

    auto closing = std::async(std::launch::async, [&] { subscriber.gate.Close(); });
    EXPECT_EQ(closing.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    proceed.set_value();
    closing.wait();
    mediaStack.join();
    EXPECT_EQ(subscriber.calls, 1);
}

TEST(SlotGateTest, Close_FromInsideItsOwnSlot) {
    std::atomic<int> destroyed{0};
    Subscriber subscriber(destroyed);
    subscriber.during = [&] { subscriber.gate.Close(); };
    subscriber.gate.Bind<&Subscriber::Handle> (&subscriber)(1);
    EXPECT_EQ(subscriber.calls, 1);
}

TEST(SlotGateTest, DeleteOwner_InsideItsOwnSlot) {
    for (const bool insideSlot : {true, false}) {
        std::atomic<int> destroyed{0};
        auto* subscriber = new Subscriber(destroyed);
        boost::shared_ptr<Subscriber> owner = SlotGate::Own<Subscriber>(subscriber, subscriber->gate);
        int destroyedRightAfterRelease = -1;
        const std::function<void()> release = [&] { owner.reset(), destroyedRightAfterRelease = destroyed; };
        const auto slot = subscriber->gate.Bind<&Subscriber::Handle>(subscriber);
        insideSlot ? void(subscriber->during = release) : release();
        slot(1);  // after an outside release: must not reach the deleted owner
        EXPECT_EQ(destroyedRightAfterRelease, insideSlot ? 0 : 1);
        EXPECT_EQ(destroyed, 1);
    }
}

}  // namespace
