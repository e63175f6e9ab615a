// Back-ends released by the browser while the media stack raises events on them from its own threads:
// no slot may run on a wrapper that is gone, and once the release has returned not one more event may
// reach the browser. Run under ASan and TSan; without the slot gate these fail.

#include <gmock/gmock.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <thread>
#include <vector>

#include "Support/LiveObjects.h"
#include "Support/MediaStackMocks.h"
#include "Uva/UVABackendLibrary.h"
#include "Uva/UVAMediaBackend.h"
#include "Velmora/Callbacks.h"
#include "Velmora/IntegrationLayer.h"

namespace {

using ::testing::NiceMock;
using Velmora::BackendEvent;
using VelmoraTest::MockUva;

// A browser client that handles events at once.
class CountingClient : public UVAClient, public UVADRMClient {
public:
    void handleEvent(UVAEvent* event) override {
        ++events;
        delete event;
    }
    void handleDRMEvent(UVADRMEvent* event) override {
        ++events;
        delete event;
    }
    UVADRMBackend* requestDRMBackend(const char*) override { return nullptr; }

    std::atomic<long> events{0};
};

// The soak in CI asks for more rounds than a developer's run through VELMORA_STRESS_ITERATIONS.
int Iterations(int usual) {
    const char* asked = std::getenv("VELMORA_STRESS_ITERATIONS");
    const int iterations = asked != nullptr ? std::atoi(asked) : 0;
    return iterations > 0 ? iterations : usual;
}

class TeardownStressTest : public VelmoraTest::LiveObjectsTest {
protected:
    TeardownStressTest() {
        Tlog::SetDefaultThreshold(9);  // tracing every event would only slow the race down
        owner = std::make_unique<Velmora::Wrapper::IntegrationLayer>(uva);
    }
    ~TeardownStressTest() override {
        owner.reset();
        Velmora::SetCallbacks(Velmora::Callbacks{});
    }

    NiceMock<MockUva>* uva = new NiceMock<MockUva>;  // owned by the library
    CountingClient client;
    std::unique_ptr<Velmora::Wrapper::IntegrationLayer> owner;
};

// A kind of back-end: the browser's request and release, and the events a media stack thread raises on
// the back-end made last (`thread` tells the threads apart).
struct Kind {
    const char* name;
    std::function<void*(CountingClient&)> request;
    std::function<UVA_STATUS(void*)> release;
    std::function<void(MockUva&, int thread)> raise;
};

const Kind kKinds[] = {
    {"media", [](auto& client) { return UVA_RequestBackend(UVABackend::TYPE_MEDIA_SOURCE, &client); },
     [](void* backend) { return UVA_ReleaseBackend(static_cast<UVABackend*>(backend)); },
     [](MockUva& uva, int thread) {
         if (thread % 2 == 0) {
             uva.medias.back()->Raise(new Velmora::NeedMseDataEvent(1, 4));
             uva.medias.back()->Raise(new BackendEvent(BackendEvent::PlaybackFinished));
         } else {
             uva.medias.back()->Raise(new Velmora::DurationChangedEvent(1.0));
         }
     }},
    {"broadcast", [](auto& client) { return UVA_RequestBackend(UVABackend::TYPE_VIDEO_BROADCAST, &client); },
     [](void* backend) { return UVA_ReleaseBackend(static_cast<UVABackend*>(backend)); },
     [](MockUva& uva, int) { uva.broadcasts.back()->Raise(new Velmora::BroadcastPlaystateChangeEvent(2, 0)); }},
    {"drm", [](auto& client) { return UVADRM_RequestBackend("org.w3.clearkey", &client); },
     [](void* backend) { return UVADRM_ReleaseBackend(static_cast<UVADRMBackend*>(backend)); },
     [](MockUva& uva, int) { uva.drms.back()->Raise(new Velmora::UvaKeyCompleteDrmEvent("ks", "s", true)); }},
};

class ReleaseRaceTest : public TeardownStressTest, public ::testing::WithParamInterface<Kind> {};

// Four media stack threads hammer the very back-end the browser releases.
TEST_P(ReleaseRaceTest, ReleaseBackend_NoEventAfterReturn) {
    constexpr int kEventThreads = 4;
    const int iterations = Iterations(100);
    for (int iteration = 0; iteration < iterations; ++iteration) {
        void* backend = GetParam().request(client);
        ASSERT_NE(backend, nullptr);
        std::atomic<bool> running{true};
        std::atomic<int> started{0};
        std::vector<std::thread> mediaStackThreads;
        for (int index = 0; index < kEventThreads; ++index) {
            mediaStackThreads.emplace_back([&, index] {
                ++started;
                while (running) {
                    GetParam().raise(*uva, index);
                }
            });
        }
        while (started < kEventThreads) {
            std::this_thread::yield();
        }
        ASSERT_EQ(GetParam().release(backend), UVA_STATUS_OK);
        const long afterRelease = client.events;
        std::this_thread::yield();
        running = false;
        for (auto& thread : mediaStackThreads) {
            thread.join();
        }
        ASSERT_EQ(client.events, afterRelease) << "iteration " << iteration;
    }
    EXPECT_GT(client.events, 0);
}

INSTANTIATE_TEST_SUITE_P(EveryKind, ReleaseRaceTest, ::testing::ValuesIn(kKinds),
                         [](const auto& info) { return std::string(info.param.name); });

// A removal is the event whose handling goes on after the browser was told (the component is marked
// unused and forgotten), so it is the one a release from inside the handler endangers.
TEST_F(TeardownStressTest, ReleaseBackend_FromInsideHandler) {
    struct ReleasingClient : CountingClient {
        void handleEvent(UVAEvent* event) override {
            const auto* change = dynamic_cast<ComponentChangedEvent*>(event);
            const bool removed = change != nullptr && change->action == ComponentChangedEvent::REMOVED;
            CountingClient::handleEvent(event);
            if (removed) {
                released = UVA_ReleaseBackend(backend);
            }
        }
        UVABackend* backend = nullptr;
        UVA_STATUS released = UVA_STATUS_ERROR;
    } releasing;
    releasing.backend = UVA_RequestBackend(UVABackend::TYPE_MEDIA, &releasing);
    const auto media = uva->medias.at(0);
    NiceMock<VelmoraTest::MockAvComponent> component;
    std::thread([&] {
        media->Raise(new Velmora::ComponentChangedEvent(&component, Velmora::ComponentChangedEvent::Added));
        media->Raise(new Velmora::ComponentChangedEvent(&component, Velmora::ComponentChangedEvent::Removed));
    }).join();
    EXPECT_EQ(releasing.released, UVA_STATUS_OK);
    EXPECT_EQ(uvaLiveObjects().backends, 0) << "deleted once its handler returned";
    media->Raise(new Velmora::DurationChangedEvent(2.0));
    EXPECT_EQ(releasing.events, 2);
}

}  // namespace
