#include <gmock/gmock.h>

#include <chrono>
#include <thread>

#include "Recorders.h"
#include "ReferenceUva.h"
#include "Velmora/Exceptions.h"

namespace {

using Velmora::Reference::Clock;
using Velmora::Reference::ReferenceMediaBackend;
using Velmora::Reference::ReferenceUva;
using namespace ReferenceTest;

// The media back-end's faults are the simulator's; these are the other back-ends', one of them lasting.
TEST(FaultInjectorTest, Arm_OnceOrForGood) {
    ReferenceUva uva{ManualOptions()};
    const auto tv = uva.CreateBackend(UVABackend::TYPE_VIDEO_BROADCAST);
    const auto drm = uva.CreateDrmBackend("");
    uva.Faults().Arm("GenerateKeyRequest", {FaultInjector::Kind::StandardException, 0, false});
    uva.Faults().Arm("NextChannel", {FaultInjector::Kind::MediaStackError, ExceptionBase::NotSupported, true});
    const auto request = [&uva] { uva.LatestDrmBackend()->GenerateKeyRequest(Bytes(kKeyId), 16); };
    const auto zap = [&uva] { uva.LatestBroadcastBackend()->NextChannel(); };
    EXPECT_THROW(request(), std::exception);
    EXPECT_NO_THROW(request());
    EXPECT_THROW(zap(), ExceptionBase);
    EXPECT_THROW(zap(), ExceptionBase) << "a lasting fault";
    EXPECT_EQ(uva.Faults().Thrown(), 3u);
    uva.Faults().DisarmAll();
    EXPECT_NO_THROW(zap());
}

// On the playback thread, inside the back-end's own step, the last owner lets go: the back-end must
// go without waiting for itself.
TEST(ThreadedClock, Release_FromInsideOwnEvent) {
    auto options = ManualOptions();
    options.clock = Clock::Threaded;
    options.stepPeriod = std::chrono::milliseconds(2);
    auto owner = ReferenceMediaBackend::Create(0, options, std::make_shared<FaultInjector>());
    const boost::weak_ptr<ReferenceMediaBackend> watch = owner;
    owner->ConnectEvent([&owner](boost::shared_ptr<BackendEvent>) { owner.reset(); });
    // Loading raises events without Play, so that nothing here touches `owner` once it may be gone.
    owner->InitBackend("http://example.test/clip.mp4", Velmora::IBackend::SourceDescriptionBackendStreaming{}, false);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (!watch.expired() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_TRUE(watch.expired());
}

}  // namespace
