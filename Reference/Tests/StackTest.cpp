#include <gmock/gmock.h>

#include <chrono>
#include <stdexcept>
#include <thread>

#include "Recorders.h"
#include "ReferenceUva.h"
#include "Velmora/Exceptions.h"

namespace {

using Velmora::Reference::Clock;
using Velmora::Reference::ReferenceMediaBackend;
using Velmora::Reference::ReferenceUva;
using namespace ReferenceTest;

// ---- Faults -----------------------------------------------------------------------------------------

struct FaultCase {
    const char* operation;
    FaultInjector::Fault fault;
    std::function<void(ReferenceUva&)> call;
    const char* thrown;
};

// What a call threw, in words.
std::string Outcome(const std::function<void()>& call) {
    try {
        call();
    } catch (const Velmora::ExceptionBase& error) {
        return "ExceptionBase " + std::to_string(error.GetErrorType()) + ": " + error.What();
    } catch (const std::exception& error) {
        return std::string("std::exception: ") + error.what();
    } catch (int value) {
        return "int " + std::to_string(value);
    }
    return "nothing";
}

class Faults : public ::testing::TestWithParam<FaultCase> {
protected:
    Faults() {
        keep.push_back(uva.CreateBackend(UVABackend::TYPE_MEDIA));
        keep.push_back(uva.CreateBackend(UVABackend::TYPE_VIDEO_BROADCAST));
        keep.push_back(uva.CreateDrmBackend(""));
    }

    ReferenceUva uva{ManualOptions()};
    std::vector<boost::shared_ptr<void>> keep;
};

TEST_P(Faults, Arm_ThrowsBeforeActing) {
    const FaultCase& row = GetParam();
    uva.Faults().Arm(row.operation, row.fault);
    const auto call = [this, &row] { row.call(uva); };
    EXPECT_EQ(Outcome(call), row.thrown);
    EXPECT_EQ(Outcome(call), row.fault.persistent ? row.thrown : "nothing");
    EXPECT_EQ(uva.Faults().Thrown(), row.fault.persistent ? 2u : 1u);
    uva.Faults().DisarmAll();
    EXPECT_EQ(Outcome(call), "nothing");
}

using Kind = FaultInjector::Kind;

INSTANTIATE_TEST_SUITE_P(
    Operations, Faults,
    ::testing::Values(
        FaultCase{"GenerateKeyRequest",
                  {Kind::StandardException, 0, false},
                  [](ReferenceUva& uva) { uva.LatestDrmBackend()->GenerateKeyRequest(Bytes(kKeyId), 16); },
                  "std::exception: injected fault in GenerateKeyRequest"},
        FaultCase{"CreateBackend", {Kind::Int, 7, true}, [](ReferenceUva& uva) { uva.CreateBackend(0); }, "int 7"},
        FaultCase{"NextChannel",
                  {Kind::MediaStackError, Velmora::ExceptionBase::NotSupported, true},
                  [](ReferenceUva& uva) { uva.LatestBroadcastBackend()->NextChannel(); },
                  "ExceptionBase 2: injected fault in NextChannel"},
        FaultCase{
            "ConnectEvent",
            {Kind::MediaStackError, Velmora::ExceptionBase::GenericError, false},
            [](ReferenceUva& uva) { uva.LatestMediaBackend()->ConnectEvent([](boost::shared_ptr<BackendEvent>) {}); },
            "ExceptionBase 1: injected fault in ConnectEvent"}),
    [](const auto& info) { return std::string(info.param.operation); });

// ---- The threaded clock -----------------------------------------------------------------------------

class ThreadedClock : public ::testing::Test {
protected:
    ThreadedClock() {
        options.clock = Clock::Threaded;
        options.stepPeriod = std::chrono::milliseconds(2);
        options.media.durationSeconds = 0.1;
    }

    // Waits (at most five seconds) until `done` holds.
    static bool Eventually(const std::function<bool()>& done) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        while (!done()) {
            if (std::chrono::steady_clock::now() > deadline) {
                return false;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return true;
    }

    void Start(ReferenceMediaBackend& backend) {
        backend.InitBackend("http://example.test/clip.mp4", Velmora::IBackend::SourceDescriptionBackendStreaming{},
                            false);
        backend.Play();
    }

    Velmora::Reference::StackOptions options = ManualOptions();
};

TEST_F(ThreadedClock, Release_FromInsideOwnEvent) {
    auto owner = ReferenceMediaBackend::Create(0, options, std::make_shared<FaultInjector>());
    const boost::weak_ptr<ReferenceMediaBackend> watch = owner;
    EventRecorder events(*owner);
    // On the playback thread, inside the back-end's own step: the last owner lets go.
    events.onEvent = [&owner](const boost::shared_ptr<BackendEvent>&) { owner.reset(); };
    Start(*owner);
    EXPECT_TRUE(Eventually([&] { return watch.expired(); }));
}

}  // namespace
