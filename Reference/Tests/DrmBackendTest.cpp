#include <gmock/gmock.h>

#include "Recorders.h"
#include "ReferenceDrmBackend.h"

namespace {

using Velmora::Reference::ReferenceDrmBackend;
using namespace ReferenceTest;

class DrmBackendTest : public ::testing::Test {
protected:
    bool Request(const std::string& initData) {
        return drm->GenerateKeyRequest(Bytes(initData), static_cast<std::uint32_t>(initData.size()));
    }
    bool Add(const std::string& key, const std::string& sessionId, const std::string& initData = std::string()) {
        return drm->AddKey(Bytes(key), static_cast<std::uint32_t>(key.size()), Bytes(initData),
                           static_cast<std::uint32_t>(initData.size()), sessionId);
    }
    // Raises what was decided, and returns it.
    std::vector<DrmBackendEvent::EventType> Raised() {
        events.raised.clear();
        drm->Step();
        return events.Types();
    }

    const boost::shared_ptr<ReferenceDrmBackend> drm =
        ReferenceDrmBackend::Create("org.w3.clearkey", ManualOptions(), std::make_shared<FaultInjector>());
    DrmRecorder events{*drm};
};

// A session from its request to the release of its key; a wrong key may be followed by the right one.
TEST_F(DrmBackendTest, AddKey_SessionLifetime) {
    for (const std::string initData : {"", "fifteen bytes!!", "seventeen bytes!!"}) {
        EXPECT_FALSE(Request(initData)) << initData.size();
    }
    ASSERT_TRUE(Request(kKeyId));
    Request(kKeyId);  // session-2
    EXPECT_THAT(Raised(), ElementsAre(DrmBackendEvent::KeyMessage, DrmBackendEvent::KeyMessage));
    const auto message = events.Of<Velmora::UvaKeyMessageDrmEvent>().at(0);
    EXPECT_STREQ(message->sessionId, "session-1");
    EXPECT_STREQ(message->keySystem, "org.w3.clearkey");
    EXPECT_STREQ(message->defaultUrl, ReferenceDrmBackend::kLicenseUrl);

    EXPECT_TRUE(Add("fedcba9876543210", "session-1"));
    EXPECT_TRUE(Add(kKey, "session-1"));
    EXPECT_FALSE(Add(kKey, "session-1")) << "a completed session takes no further key";
    EXPECT_THAT(Raised(), ElementsAre(DrmBackendEvent::KeyError, DrmBackendEvent::KeyComplete));
    EXPECT_FALSE(drm->GetKeyReleases());

    EXPECT_TRUE(drm->CancelKeyRequest("session-2")) << "a pending session simply goes";
    EXPECT_TRUE(drm->CancelKeyRequest("session-1"));
    EXPECT_FALSE(drm->CancelKeyRequest("session-1"));
    EXPECT_FALSE(drm->HasKey(kKeyId));
    EXPECT_TRUE(drm->GetKeyReleases());
    EXPECT_THAT(Raised(), ElementsAre(DrmBackendEvent::KeyMessage));
    const auto release = events.Of<Velmora::UvaKeyMessageDrmEvent>().at(0);
    EXPECT_STREQ(release->sessionId, "session-1");
    EXPECT_TRUE(release->flag);
    EXPECT_FALSE(drm->AddKeyReleaseCommit(nullptr, 0, "session-2"));
    EXPECT_TRUE(drm->AddKeyReleaseCommit(Bytes("ack"), 3, "session-1"));
    EXPECT_FALSE(drm->AddKeyReleaseCommit(Bytes("ack"), 3, "session-1"));
    EXPECT_FALSE(drm->GetKeyReleases());
}

const std::vector<DrmBackendEvent::EventType> kComplete{DrmBackendEvent::KeyComplete};
const std::vector<DrmBackendEvent::EventType> kError{DrmBackendEvent::KeyError};

struct KeyCase {
    const char* name;
    std::string requested;  // the key ids of session-1
    std::string key;
    std::string sessionId;
    std::string initData;
    bool accepted;
    std::vector<DrmBackendEvent::EventType> raised;
};

class KeySession : public DrmBackendTest, public ::testing::WithParamInterface<KeyCase> {};

TEST_P(KeySession, AddKey_Outcome) {
    const KeyCase& row = GetParam();
    Request(row.requested);
    drm->Step();
    EXPECT_EQ(Add(row.key, row.sessionId, row.initData), row.accepted);
    EXPECT_EQ(Raised(), row.raised);
    EXPECT_EQ(drm->HasKey(row.requested), row.raised == kComplete);
    for (const auto& error : events.Of<Velmora::UvaKeyErrorDrmEvent>()) {
        EXPECT_EQ(error->errorCode, ReferenceDrmBackend::kKeyErrorClient);
        EXPECT_EQ(error->systemCode, ReferenceDrmBackend::kSystemCodeWrongKey);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Keys, KeySession,
    ::testing::Values(KeyCase{"RightKeyForTheSession", kKeyId, kKey, "session-1", "", true, kComplete},
                      KeyCase{"RightKeyFoundByInitData", kKeyId, kKey, "", kKeyId, true, kComplete},
                      KeyCase{"WrongKey", kKeyId, "fedcba9876543210", "session-1", "", true, kError},
                      KeyCase{"KeyCutShort", kKeyId, kKey.substr(0, 8), "session-1", "", true, kError},
                      KeyCase{"UnlicensedKeyId", "unlicensed-key-1", "", "session-1", "", true, kError},
                      KeyCase{"UnknownSession", kKeyId, kKey, "session-9", "", false, {}},
                      KeyCase{"NoSessionForTheInitData", kKeyId, kKey, "", "another-key-id-2", false, {}}),
    [](const auto& info) { return std::string(info.param.name); });

// The reference's own message type is answered; an empty message or another type is not understood.
TEST_F(DrmBackendTest, SendDrmMessage_Result) {
    std::string sessionIds[3];
    ASSERT_TRUE(drm->SendDrmMessage(ReferenceDrmBackend::kDrmMessageType, "hello", sessionIds[0]));
    ASSERT_TRUE(drm->SendDrmMessage(ReferenceDrmBackend::kDrmMessageType, "", sessionIds[1]));
    ASSERT_TRUE(drm->SendDrmMessage("application/other", "hello", sessionIds[2]));
    drm->Step();
    const auto answers = events.Of<Velmora::UvaResultMessageDrmEvent>();
    ASSERT_EQ(answers.size(), 3u);
    const double codes[] = {0, 2, 3};
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(answers[i]->sessionId, sessionIds[i]);
        EXPECT_EQ(answers[i]->resultCode, codes[i]);
        EXPECT_STREQ(answers[i]->resultMessage, i == 0 ? "ack hello" : nullptr);
    }
    EXPECT_EQ(sessionIds[0], "message-1");
}

}  // namespace
