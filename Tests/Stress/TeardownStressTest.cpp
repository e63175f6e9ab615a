// Back-ends released by the browser while the media stack raises events on its own threads: no slot
// may run on a wrapper that is gone. Run under ASan and TSan; without the slot gate these fail.

#include <gmock/gmock.h>

#include <atomic>
#include <boost/make_shared.hpp>
#include <cstdlib>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

#include "Support/LiveObjects.h"
#include "Support/MediaStackMocks.h"
#include "Uva/UVABackendLibrary.h"
#include "Uva/UVAMediaBackend.h"
#include "Velmora/Callbacks.h"
#include "Velmora/IntegrationLayer.h"

namespace {

using ::testing::_;
using ::testing::Invoke;
using ::testing::NiceMock;
using Velmora::BackendEvent;

// A browser client that handles events at once and can release back-ends from inside its handler.
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

// The back-ends the mocked media stack created last, for the event threads to pick from. Older ones
// are let go (a thread raising on one holds its own share), so a long soak stays as fast per round.
class MediaStack {
public:
    explicit MediaStack(NiceMock<VelmoraTest::MockUva>& uva) {
        ON_CALL(uva, CreateBackend(_)).WillByDefault(Invoke([this](int type) -> boost::shared_ptr<Velmora::IBackend> {
            std::lock_guard<std::mutex> lock(mutex_);
            if (type == UVABackend::TYPE_VIDEO_BROADCAST) {
                return Add(broadcasts_, boost::make_shared<NiceMock<VelmoraTest::MockVideoBroadcastBackend>>());
            }
            return Add(medias_, boost::make_shared<NiceMock<VelmoraTest::MockMediaBackend>>());
        }));
        ON_CALL(uva, CreateDrmBackend(_)).WillByDefault(Invoke([this](const std::string&) {
            std::lock_guard<std::mutex> lock(mutex_);
            return boost::shared_ptr<Velmora::IDrmBackend>(
                Add(drms_, boost::make_shared<NiceMock<VelmoraTest::MockDrmBackend>>()));
        }));
    }

    // Raises one event on a recently created back-end, as a media stack thread does.
    void RaiseSomewhere(std::mt19937& random) {
        boost::shared_ptr<VelmoraTest::MockMediaBackend> media;
        boost::shared_ptr<VelmoraTest::MockVideoBroadcastBackend> broadcast;
        boost::shared_ptr<VelmoraTest::MockDrmBackend> drm;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            media = Recent(medias_, random);
            broadcast = Recent(broadcasts_, random);
            drm = Recent(drms_, random);
        }
        if (media) {
            media->Raise(new Velmora::NeedMseDataEvent(1, 4));
            media->Raise(new Velmora::DurationChangedEvent(3.0));
        }
        if (broadcast) {
            broadcast->Raise(new Velmora::BroadcastPlaystateChangeEvent(2, 0));
        }
        if (drm) {
            drm->Raise(new Velmora::UvaKeyCompleteDrmEvent("org.w3.clearkey", "s", true));
        }
    }

private:
    static constexpr std::size_t kWindow = 4;

    template <typename Backend>
    static Backend Add(std::vector<Backend>& backends, Backend backend) {
        if (backends.size() == 2 * kWindow) {
            backends.erase(backends.begin(), backends.begin() + kWindow);
        }
        backends.push_back(backend);
        return backend;
    }

    template <typename Backend>
    static Backend Recent(const std::vector<Backend>& backends, std::mt19937& random) {
        if (backends.empty()) {
            return Backend();
        }
        const std::size_t window = std::min<std::size_t>(backends.size(), kWindow);
        return backends[backends.size() - 1 - random() % window];
    }

    std::mutex mutex_;
    std::vector<boost::shared_ptr<NiceMock<VelmoraTest::MockMediaBackend>>> medias_;
    std::vector<boost::shared_ptr<NiceMock<VelmoraTest::MockVideoBroadcastBackend>>> broadcasts_;
    std::vector<boost::shared_ptr<NiceMock<VelmoraTest::MockDrmBackend>>> drms_;
};

// The soak in CI asks for more rounds than a developer's run through VELMORA_STRESS_ITERATIONS.
int Iterations(int usual) {
    const char* asked = std::getenv("VELMORA_STRESS_ITERATIONS");
    const int iterations = asked != nullptr ? std::atoi(asked) : 0;
    return iterations > 0 ? iterations : usual;
}

class TeardownStressTest : public VelmoraTest::LiveObjectsTest {
protected:
    TeardownStressTest() : stack(*uva) {
        Tlog::SetDefaultThreshold(9);  // tracing every event would only slow the race down
        owner = std::make_unique<Velmora::Wrapper::IntegrationLayer>(uva);
    }
    ~TeardownStressTest() override {
        owner.reset();
        Velmora::SetCallbacks(Velmora::Callbacks{});
    }

    NiceMock<VelmoraTest::MockUva>* uva = new NiceMock<VelmoraTest::MockUva>;
    MediaStack stack;
    CountingClient client;
    std::unique_ptr<Velmora::Wrapper::IntegrationLayer> owner;
};

TEST_F(TeardownStressTest, ReleaseBackend_WhileStackThreadsRaise) {
    const int kIterations = Iterations(400);
    constexpr int kEventThreads = 3;
    std::atomic<bool> running{true};
    std::vector<std::thread> mediaStackThreads;
    for (int index = 0; index < kEventThreads; ++index) {
        mediaStackThreads.emplace_back([&, index] {
            std::mt19937 random(index + 1);
            while (running) {
                stack.RaiseSomewhere(random);
            }
        });
    }
    for (int iteration = 0; iteration < kIterations; ++iteration) {
        UVABackend* media = UVA_RequestBackend(UVABackend::TYPE_MEDIA_SOURCE, &client);
        UVABackend* broadcast = UVA_RequestBackend(UVABackend::TYPE_VIDEO_BROADCAST, &client);
        UVADRMBackend* drm = UVADRM_RequestBackend("org.w3.clearkey", &client);
        ASSERT_NE(media, nullptr);
        std::this_thread::yield();
        EXPECT_EQ(UVA_ReleaseBackend(media), UVA_STATUS_OK);
        EXPECT_EQ(UVADRM_ReleaseBackend(drm), UVA_STATUS_OK);
        EXPECT_EQ(UVA_ReleaseBackend(broadcast), UVA_STATUS_OK);
    }
    running = false;
    for (auto& thread : mediaStackThreads) {
        thread.join();
    }
    EXPECT_GT(client.events, 0);
}

// Four media stack threads hammer the very back-end the browser releases: once the release has
// returned, not one more event may reach the browser.
TEST_F(TeardownStressTest, ReleaseBackend_NoEventAfterReturn) {
    constexpr int kIterations = 100;
    constexpr int kEventThreads = 4;
    for (int iteration = 0; iteration < kIterations; ++iteration) {
        UVABackend* media = UVA_RequestBackend(UVABackend::TYPE_MEDIA, &client);
        auto mock = boost::dynamic_pointer_cast<VelmoraTest::MockMediaBackend>(owner->GetActiveMediaBackendImpl());
        ASSERT_TRUE(mock);
        std::atomic<bool> running{true};
        std::atomic<int> started{0};
        std::vector<std::thread> mediaStackThreads;
        for (int index = 0; index < kEventThreads; ++index) {
            mediaStackThreads.emplace_back([&, index] {
                ++started;
                while (running) {
                    if (index % 2 == 0) {
                        mock->Raise(new BackendEvent(BackendEvent::PlaybackFinished));
                    } else {
                        mock->Raise(new Velmora::DurationChangedEvent(1.0));
                    }
                }
            });
        }
        while (started < kEventThreads) {
            std::this_thread::yield();
        }
        ASSERT_EQ(UVA_ReleaseBackend(media), UVA_STATUS_OK);
        const long afterRelease = client.events;
        std::this_thread::yield();
        running = false;
        for (auto& thread : mediaStackThreads) {
            thread.join();
        }
        ASSERT_EQ(client.events, afterRelease) << "iteration " << iteration;
    }
}

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
    auto media = boost::dynamic_pointer_cast<VelmoraTest::MockMediaBackend>(owner->GetActiveMediaBackendImpl());
    ASSERT_TRUE(media);
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
