#include <gmock/gmock.h>

#include <memory>
#include <stdexcept>

#include "EntryPoints.h"
#include "Support/LiveObjects.h"
#include "Support/MediaStackMocks.h"
#include "Support/RecordingClients.h"
#include "Uva/UVABackendLibrary.h"
#include "Uva/UVAMediaBackend.h"
#include "Uva/UVAVideoBroadcastBackend.h"
#include "Velmora/Exceptions.h"
#include "Velmora/IntegrationLayer.h"

namespace {

using namespace ::testing;
using Velmora::ExceptionBase;
using Velmora::Wrapper::IntegrationLayer;
using VelmoraTest::LogLine;

std::string Text(const void* pointer) { return PrintToString(pointer); }

// The library started by its owner with a mocked media stack; the test plays the browser through the
// exported functions.
class RegistryTest : public VelmoraTest::LiveObjectsTest {
protected:
    RegistryTest() : saved_(Velmora::uvaCallbacks), uva(new NiceMock<VelmoraTest::MockUva>) {
        layer = std::make_unique<IntegrationLayer>(uva);
        startLines = Lines();
        log.Clear();
    }

    ~RegistryTest() override {
        layer.reset();
        Velmora::SetCallbacks(saved_);
    }

    UVABackend* Request(UVABackend::UVABackendType type) { return UVA_RequestBackend(type, &client); }
    UVADRMBackend* RequestDrm(const char* id) { return UVADRM_RequestBackend(id, &drmClient); }

    std::vector<Tlog::Record> Lines() const { return log.Records("Velmora::Wrapper"); }

    Velmora::Callbacks saved_;
    NiceMock<VelmoraTest::MockUva>* uva;  // owned by the library
    VelmoraTest::RecordingClient client;
    VelmoraTest::RecordingDrmClient drmClient;
    std::unique_ptr<IntegrationLayer> layer;
    std::vector<Tlog::Record> startLines;  // what the library logged while its owner started it
};

// Active means created last, without falling back to an older one once that is released.
TEST_F(RegistryTest, RequestBackend_ActiveUntilReleased) {
    EXPECT_EQ(layer->GetUvaImpl(), uva);
    EXPECT_THAT(startLines, Contains(LogLine(2, "UvaWrapper _impl: " + Text(uva))));
    UVABackend* older = Request(UVABackend::TYPE_MEDIA);
    log.Clear();
    EXPECT_CALL(*uva, CreateBackend(1));
    UVABackend* backend = Request(UVABackend::TYPE_MEDIA_SOURCE);
    ASSERT_NE(backend, nullptr);
    EXPECT_EQ(backend->getType(), UVABackend::TYPE_MEDIA_SOURCE);
    EXPECT_EQ(layer->GetActiveMediaBackendImpl(), uva->medias.at(1));
    EXPECT_EQ(UVA_ReleaseBackend(backend), UVA_STATUS_OK);
    EXPECT_FALSE(layer->GetActiveMediaBackendImpl());
    EXPECT_EQ(UVA_ReleaseBackend(older), UVA_STATUS_OK);
    EXPECT_THAT(Lines(), ElementsAre(LogLine(2, "RequestBackend type: 1"),
                                     LogLine(2, "RequestBackend Now added: " + Text(backend) +
                                                    ". Number of backends in uvaBackends: 2"),
                                     LogLine(2, "ReleaseBackend ..entering. Currently uvaBackends.size(): 2"),
                                     LogLine(2, "ReleaseBackend...finished. Now uvaBackends.size(): 1"),
                                     LogLine(2, "ReleaseBackend ..entering. Currently uvaBackends.size(): 1"),
                                     LogLine(2, "ReleaseBackend...finished. Now uvaBackends.size(): 0")));
}

TEST_F(RegistryTest, ReleaseBackend_TwiceOrForeign) {
    UVABackend* backend = Request(UVABackend::TYPE_MEDIA);
    EXPECT_EQ(UVA_ReleaseBackend(backend), UVA_STATUS_OK);
    log.Clear();
    EXPECT_EQ(UVA_ReleaseBackend(backend), UVA_STATUS_ERROR);
    EXPECT_THAT(Lines(),
                Contains(LogLine(5, "ReleaseBackend Uva attempts to release invalid media backend resource.")));
    EXPECT_EQ(UVADRM_ReleaseBackend(reinterpret_cast<UVADRMBackend*>(backend)), UVA_STATUS_ERROR);
    EXPECT_THAT(Lines(),
                Contains(LogLine(5, "ReleaseDrmBackend Uva attempts to release invalid drm backend resource.")));
}

TEST_F(RegistryTest, RequestBackend_UnknownType) {
    EXPECT_CALL(*uva, CreateBackend(_)).Times(0);
    EXPECT_EQ(Request(static_cast<UVABackend::UVABackendType>(3)), nullptr);
    EXPECT_THAT(Lines(), ElementsAre(LogLine(2, "RequestBackend type: 3"),
                                     LogLine(5, "Exception type 1: Uva Backend request failed!"),
                                     LogLine(2, "RequestBackend Now added: 0. Number of backends in uvaBackends: 0")));
}

struct CreationFailure {
    const char* name;
    std::function<void()> raise;
    const char* mediaLine;
    const char* drmLine;
};

class RegistryFailureTest : public RegistryTest, public WithParamInterface<CreationFailure> {};

TEST_P(RegistryFailureTest, RequestBackend_StackThrows) {
    ON_CALL(*uva, CreateBackend(_)).WillByDefault(Invoke([](int) -> boost::shared_ptr<Velmora::IBackend> {
        GetParam().raise();
        return {};
    }));
    ON_CALL(*uva, CreateDrmBackend(_))
        .WillByDefault(Invoke([](const std::string&) -> boost::shared_ptr<Velmora::IDrmBackend> {
            GetParam().raise();
            return {};
        }));
    EXPECT_EQ(Request(UVABackend::TYPE_MEDIA), nullptr);
    EXPECT_EQ(RequestDrm("org.w3.clearkey"), nullptr);
    EXPECT_THAT(Lines(), Contains(LogLine(5, GetParam().mediaLine)));
    EXPECT_THAT(Lines(), Contains(LogLine(5, GetParam().drmLine)));
    EXPECT_THAT(Lines(),
                Contains(LogLine(2, "RequestDrmBackend ------ Now added: 0. Number of backends in uvaDrmBackends: 0")));
}

INSTANTIATE_TEST_SUITE_P(EveryFailureKind, RegistryFailureTest,
                         Values(CreationFailure{"exception_base", [] { throw ExceptionBase(3, "no tuner"); },
                                                "Exception type 3: no tuner", "Exception type 3: no tuner"},
                                CreationFailure{"standard", [] { throw std::runtime_error("gone"); },
                                                "RequestBackendvirtual function from IMediaBackend failed: gone",
                                                "RequestDrmBackend virtual function from IDrmBackend failed: gone"},
                                CreationFailure{"int", [] { throw 7; },
                                                "Unknown exception caught in UVAWrapper::RequestBackend",
                                                "Unknown exception caught in UVAWrapper::RequestDrmBackend"}),
                         [](const TestParamInfo<CreationFailure>& info) { return std::string(info.param.name); });

TEST_F(RegistryTest, HandleLookup_WhileBroadcastBackendLives) {
    EXPECT_CALL(*uva, ConnectHandleLookup(_)).Times(2);
    auto* first = static_cast<UVAVideoBroadcastBackend*>(Request(UVABackend::TYPE_VIDEO_BROADCAST));
    auto* second = static_cast<UVAVideoBroadcastBackend*>(Request(UVABackend::TYPE_VIDEO_BROADCAST));
    int handle = 0;
    second->setWindowId(&handle);
    EXPECT_EQ(uva->LookUp(&handle), uva->broadcasts.at(1));
    EXPECT_EQ(layer->GetActiveVideoBroadcastImpl(), uva->broadcasts.at(1));
    int unknown = 0;
    EXPECT_FALSE(uva->LookUp(&unknown));
    EXPECT_THAT(Lines(), Contains(LogLine(5, "GetBackendByVideoBroadcastHandle: dynamic cast failed! ")));

    UVA_ReleaseBackend(first);
    EXPECT_EQ(uva->handleLookups.num_slots(), 1u);
    UVA_ReleaseBackend(second);
    EXPECT_EQ(uva->handleLookups.num_slots(), 0u);
    Request(UVABackend::TYPE_VIDEO_BROADCAST);  // the count starts over: connected again
    EXPECT_EQ(uva->handleLookups.num_slots(), 1u);
}

TEST_F(RegistryTest, RequestBackend_LookupConnectThrows) {
    EXPECT_CALL(*uva, ConnectHandleLookup(_))
        .WillOnce(Invoke([](const Velmora::IUva::HandleLookupSlot&) -> boost::signals2::connection { throw 1; }));
    EXPECT_EQ(Request(UVABackend::TYPE_VIDEO_BROADCAST), nullptr);
    EXPECT_THAT(Lines(), Contains(LogLine(2, "RequestBackend Now added: 0. Number of backends in uvaBackends: 1")));
}

TEST_F(RegistryTest, RequestDrmBackend_NullKeySystem) {
    EXPECT_CALL(*uva, CreateDrmBackend(""));
    EXPECT_CALL(*uva, CreateDrmBackend("org.w3.clearkey"));
    UVADRMBackend* first = RequestDrm(nullptr);
    UVADRMBackend* second = RequestDrm("org.w3.clearkey");
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(UVADRM_ReleaseBackend(first), UVA_STATUS_OK);
    EXPECT_EQ(UVADRM_ReleaseBackend(first), UVA_STATUS_ERROR);
    EXPECT_EQ(UVADRM_ReleaseBackend(second), UVA_STATUS_OK);
    const std::string client = Text(&drmClient);
    EXPECT_THAT(Lines(), Contains(LogLine(2, "RequestDrmBackend id:  empty id!;  client: " + client)));
    EXPECT_THAT(Lines(), Contains(LogLine(2, "RequestDrmBackend id: org.w3.clearkey client: " + client)));
    EXPECT_THAT(Lines(), Contains(LogLine(2, "ReleaseDrmBackend...finished. Now uvaDrmBackends.size(): 1")));
}

TEST_F(RegistryTest, Stop_RootBeforeHeldWrappers) {
    Request(UVABackend::TYPE_MEDIA);
    RequestDrm("org.w3.clearkey");
    long backendsWhenRootWent = -1;
    uva->onDestroyed = [&] { backendsWhenRootWent = uvaLiveObjects().backends + uvaLiveObjects().drmBackends; };
    layer.reset();
    EXPECT_EQ(backendsWhenRootWent, 2);
    EXPECT_EQ(uvaLiveObjects().backends + uvaLiveObjects().drmBackends, 0);
}

TEST_F(RegistryTest, RequestBackend_StackAnswersEmpty) {
    ON_CALL(*uva, CreateBackend(_)).WillByDefault(Return(boost::shared_ptr<Velmora::IBackend>()));
    ON_CALL(*uva, CreateDrmBackend(_)).WillByDefault(Return(boost::shared_ptr<Velmora::IDrmBackend>()));
    auto* media = static_cast<UVAMediaBackend*>(Request(UVABackend::TYPE_MEDIA));
    auto* broadcast = static_cast<UVAVideoBroadcastBackend*>(Request(UVABackend::TYPE_VIDEO_BROADCAST));
    UVADRMBackend* drm = RequestDrm("org.w3.clearkey");
    ASSERT_NE(media, nullptr);
    ASSERT_NE(broadcast, nullptr);
    ASSERT_NE(drm, nullptr);
    EXPECT_EQ(media->play(), UVA_STATUS_ERROR);
    EXPECT_STREQ(drm->getId(), "NA");
    EXPECT_EQ(UVA_ReleaseBackend(media), UVA_STATUS_OK);
    EXPECT_EQ(UVA_ReleaseBackend(broadcast), UVA_STATUS_OK);
    EXPECT_EQ(UVADRM_ReleaseBackend(drm), UVA_STATUS_OK);
}

}  // namespace
