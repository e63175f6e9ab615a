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
        events.Clear();
        drm->Step();
        return events.Types();
    }

    const boost::shared_ptr<ReferenceDrmBackend> drm =
        ReferenceDrmBackend::Create("org.w3.clearkey", ManualOptions(), std::make_shared<FaultInjector>());
    DrmRecorder events{*drm};
};

TEST_F(DrmBackendTest, GenerateKeyRequest_KeyIdList) {
    for (const std::string initData : {"", "fifteen bytes!!", "seventeen bytes!!"}) {
        EXPECT_FALSE(Request(initData)) << initData.size();
    }
    ASSERT_TRUE(Request(kKeyId));
    EXPECT_THAT(Raised(), ElementsAre(DrmBackendEvent::KeyMessage));
    const auto message = events.Of<Velmora::UvaKeyMessageDrmEvent>().at(0);
    EXPECT_STREQ(message->sessionId, "session-1");
    EXPECT_STREQ(message->keySystem, "org.w3.clearkey");
    EXPECT_STREQ(message->defaultUrl, ReferenceDrmBackend::kLicenseUrl);
    EXPECT_EQ(Text(message->message, message->messageSize), kKeyId);
}

struct KeyCase {
    const char* name;
    std::string key;
    std::string sessionId;
    std::string initData;
    bool accepted;
    std::vector<DrmBackendEvent::EventType> raised;
    bool usable;
};

class KeySession : public DrmBackendTest, public ::testing::WithParamInterface<KeyCase> {};

TEST_P(KeySession, AddKey_Outcome) {
    Request(kKeyId);
    drm->Step();
    const KeyCase& row = GetParam();
    EXPECT_EQ(Add(row.key, row.sessionId, row.initData), row.accepted);
    EXPECT_EQ(Raised(), row.raised);
    EXPECT_EQ(drm->HasKey(kKeyId), row.usable);
}

const std::vector<DrmBackendEvent::EventType> kComplete{DrmBackendEvent::KeyComplete};
const std::vector<DrmBackendEvent::EventType> kError{DrmBackendEvent::KeyError};

INSTANTIATE_TEST_SUITE_P(
    Keys, KeySession,
    ::testing::Values(KeyCase{"RightKeyForTheSession", kKey, "session-1", "", true, kComplete, true},
                      KeyCase{"RightKeyFoundByInitData", kKey, "", kKeyId, true, kComplete, true},
                      KeyCase{"WrongKey", "fedcba9876543210", "session-1", "", true, kError, false},
                      KeyCase{"KeyCutShort", kKey.substr(0, 8), "session-1", "", true, kError, false},
                      KeyCase{"UnknownSession", kKey, "session-9", "", false, {}, false},
                      KeyCase{"NoSessionForTheInitData", kKey, "", "another-key-id-2", false, {}, false}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(DrmBackendTest, AddKey_WrongThenRightKey) {
    Request(kKeyId);
    Add("fedcba9876543210", "session-1");
    drm->Step();
    const auto error = events.Of<Velmora::UvaKeyErrorDrmEvent>().at(0);
    EXPECT_EQ(error->errorCode, ReferenceDrmBackend::kKeyErrorClient);
    EXPECT_EQ(error->systemCode, ReferenceDrmBackend::kSystemCodeWrongKey);

    EXPECT_TRUE(Add(kKey, "session-1"));
    EXPECT_FALSE(Add(kKey, "session-1")) << "a completed session takes no further key";
    EXPECT_THAT(Raised(), ElementsAre(DrmBackendEvent::KeyComplete));
}

TEST_F(DrmBackendTest, AddKey_UnknownKeyId) {
    Request("unlicensed-key-1");
    EXPECT_TRUE(Add("", "session-1"));
    EXPECT_THAT(Raised(), ElementsAre(DrmBackendEvent::KeyMessage, DrmBackendEvent::KeyError));
}

TEST_F(DrmBackendTest, CancelKeyRequest_CompletedSession) {
    Request(kKeyId);
    Request(kKeyId);
    Add(kKey, "session-1");
    EXPECT_FALSE(drm->GetKeyReleases());
    EXPECT_TRUE(drm->CancelKeyRequest("session-2")) << "a pending session simply goes";
    EXPECT_TRUE(drm->CancelKeyRequest("session-1"));
    EXPECT_FALSE(drm->CancelKeyRequest("session-1"));
    EXPECT_FALSE(drm->HasKey(kKeyId));

    drm->Step();
    events.Clear();
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

struct MessageCase {
    const char* type;
    const char* message;
    double resultCode;
    const char* result;
};

class DrmMessage : public DrmBackendTest, public ::testing::WithParamInterface<MessageCase> {};

TEST_P(DrmMessage, SendDrmMessage_Result) {
    std::string sessionId;
    ASSERT_TRUE(drm->SendDrmMessage(GetParam().type, GetParam().message, sessionId));
    EXPECT_EQ(sessionId, "message-1");
    drm->Step();
    const auto answer = events.Of<Velmora::UvaResultMessageDrmEvent>().at(0);
    EXPECT_EQ(answer->sessionId, sessionId);
    EXPECT_EQ(answer->resultCode, GetParam().resultCode);
    EXPECT_EQ(answer->resultMessage == nullptr ? "null" : std::string(answer->resultMessage), GetParam().result);
}

INSTANTIATE_TEST_SUITE_P(Messages, DrmMessage,
                         ::testing::Values(MessageCase{ReferenceDrmBackend::kDrmMessageType, "hello", 0, "ack hello"},
                                           MessageCase{ReferenceDrmBackend::kDrmMessageType, "", 2, "null"},
                                           MessageCase{"application/other", "hello", 3, "null"}));

TEST_F(DrmBackendTest, GetOIPFId_StableWhileAlive) {
    EXPECT_EQ(&drm->GetOIPFId(), &drm->GetOIPFId()) << "the browser keeps the characters without a copy";
}

}  // namespace
