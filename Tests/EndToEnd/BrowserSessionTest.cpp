// The library as the browser meets it: loaded with dlopen, reached only through the five functions
// found by their plain names, started by its owner with a media stack.

#include <dlfcn.h>
#include <gmock/gmock.h>

#include <boost/make_shared.hpp>
#include <thread>

#include "Support/LiveObjects.h"
#include "Support/MediaStackMocks.h"
#include "Support/RecordingClients.h"
#include "Uva/UVABackendLibrary.h"
#include "Uva/UVAMediaBackend.h"
#include "Velmora/Callbacks.h"
#include "Velmora/IntegrationLayer.h"

namespace {

using ::testing::_;
using ::testing::Invoke;
using ::testing::NiceMock;
using ::testing::Return;
using ::testing::ReturnRef;

template <typename Function>
Function Find(void* library, const char* name) {
    return reinterpret_cast<Function>(dlsym(library, name));
}

class BrowserSessionTest : public VelmoraTest::LiveObjectsTest {
protected:
    BrowserSessionTest() : library(dlopen(VELMORA_LIBRARY_PATH, RTLD_NOW)) {
        if (library == nullptr) {
            ADD_FAILURE() << dlerror();
            return;
        }
        requestBackend = Find<UVA_RequestBackendFunction>(library, "UVA_RequestBackend");
        releaseBackend = Find<UVA_ReleaseBackendFunction>(library, "UVA_ReleaseBackend");
        requestDrmBackend = Find<UVADRM_RequestBackendFunction>(library, "UVADRM_RequestBackend");
        releaseDrmBackend = Find<UVADRM_ReleaseBackendFunction>(library, "UVADRM_ReleaseBackend");
        supportedIds = Find<UVADRM_GetSupportedBackendIDsFunction>(library, "UVADRM_GetSupportedBackendIDs");

        ON_CALL(*uva, CreateBackend(0)).WillByDefault(Return(media));
        ON_CALL(*uva, CreateBackend(1)).WillByDefault(Return(media));
        ON_CALL(*uva, CreateDrmBackend("org.w3.clearkey")).WillByDefault(Return(drm));
        ON_CALL(*drm, GetId()).WillByDefault(ReturnRef(drmId));
    }

    ~BrowserSessionTest() override {
        owner.reset();
        Velmora::SetCallbacks(Velmora::Callbacks{});
        if (library != nullptr) {
            dlclose(library);
        }
    }

    void Start() { owner = std::make_unique<Velmora::Wrapper::IntegrationLayer>(uva); }

    void* library;
    UVA_RequestBackendFunction requestBackend = nullptr;
    UVA_ReleaseBackendFunction releaseBackend = nullptr;
    UVADRM_RequestBackendFunction requestDrmBackend = nullptr;
    UVADRM_ReleaseBackendFunction releaseDrmBackend = nullptr;
    UVADRM_GetSupportedBackendIDsFunction supportedIds = nullptr;

    const std::string drmId = "org.w3.clearkey";
    NiceMock<VelmoraTest::MockUva>* uva = new NiceMock<VelmoraTest::MockUva>;
    boost::shared_ptr<NiceMock<VelmoraTest::MockMediaBackend>> media =
        boost::make_shared<NiceMock<VelmoraTest::MockMediaBackend>>();
    boost::shared_ptr<NiceMock<VelmoraTest::MockDrmBackend>> drm =
        boost::make_shared<NiceMock<VelmoraTest::MockDrmBackend>>();
    VelmoraTest::RecordingClient client;
    VelmoraTest::RecordingDrmClient drmClient;
    std::unique_ptr<Velmora::Wrapper::IntegrationLayer> owner;
};

TEST_F(BrowserSessionTest, dlsym_BeforeOwnerStarts) {
    ASSERT_NE(requestBackend, nullptr);
    ASSERT_NE(releaseBackend, nullptr);
    ASSERT_NE(requestDrmBackend, nullptr);
    ASSERT_NE(releaseDrmBackend, nullptr);
    ASSERT_NE(supportedIds, nullptr);
    EXPECT_EQ(requestBackend(UVABackend::TYPE_MEDIA, &client), nullptr);
    const char** ids = nullptr;
    ASSERT_EQ(supportedIds(ids), UVA_STATUS_OK);
    EXPECT_STREQ(ids[2], "org.w3.clearkey");
    delete[] ids;
    delete uva;  // never handed to the library
}

TEST_F(BrowserSessionTest, MediaSession_EventsFromStackThread) {
    Start();
    auto* backend = static_cast<UVAMediaBackend*>(requestBackend(UVABackend::TYPE_MEDIA_SOURCE, &client));
    ASSERT_NE(backend, nullptr);
    EXPECT_EQ(owner->GetActiveMediaBackendImpl(), media);

    EXPECT_CALL(*media, Play());
    EXPECT_EQ(backend->play(), UVA_STATUS_OK);
    std::thread([this] { media->Raise(new Velmora::DurationChangedEvent(42.5)); }).join();
    ASSERT_TRUE(client.events.WaitFor(1));
    ASSERT_NE(client.events.At<DurationChangedEvent>(0), nullptr);
    EXPECT_EQ(client.events.At<DurationChangedEvent>(0)->duration, 42.5);

    // The media stack needs a DRM back-end for encrypted content; the browser answers with one it requested.
    UVADRMBackend* drmBackend = requestDrmBackend("org.w3.clearkey", &drmClient);
    ASSERT_NE(drmBackend, nullptr);
    EXPECT_STREQ(drmBackend->getId(), "org.w3.clearkey");
    client.drmBackendToGive = drmBackend;
    EXPECT_EQ(media->RequestDrmBackend("org.w3.clearkey"), drm.get());

    EXPECT_EQ(releaseDrmBackend(drmBackend), UVA_STATUS_OK);
    EXPECT_EQ(releaseBackend(backend), UVA_STATUS_OK);
    EXPECT_FALSE(owner->GetActiveMediaBackendImpl());
    media->Raise(new Velmora::DurationChangedEvent(1.0));
    EXPECT_EQ(client.events.Count(), 1u) << "no event after release";
}

}  // namespace
