#include <gmock/gmock.h>

#include <boost/make_shared.hpp>
#include <cstring>
#include <functional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "DrmBackendWrapper.h"
#include "Support/DescribeEvents.h"
#include "Support/LiveObjects.h"
#include "Support/MediaStackMocks.h"
#include "Support/RecordingClients.h"
#include "Velmora/Exceptions.h"

namespace {

using namespace std::string_literals;
using namespace Velmora;
using namespace ::testing;
using Velmora::Wrapper::DrmBackendWrapper;
using Block = boost::shared_ptr<unsigned char>;
using Strings = std::vector<std::string>;
using namespace VelmoraTest;

template <typename Value>
std::string Str(const Value& value) {
    std::ostringstream text;
    text << value;
    return text.str();
}

Block Shared(const std::string& bytes) {
    Block copy(new unsigned char[bytes.size()], boost::checked_array_deleter<unsigned char>());
    std::memcpy(copy.get(), bytes.data(), bytes.size());
    return copy;
}

// A DRM back-end that keeps what reaches it and answers `answer`, or fails through `failure`.
class DrmBackendWrapperTest : public LiveObjectsTest {
protected:
    DrmBackendWrapperTest() {
        auto respond = [this](const auto&... arguments) {
            ++calls;
            (Keep(arguments), ...);
            return failure ? (failure(), false) : answer;
        };
        ON_CALL(*impl, GenerateKeyRequest).WillByDefault(respond);
        ON_CALL(*impl, AddKey).WillByDefault(respond);
        ON_CALL(*impl, CancelKeyRequest).WillByDefault(respond);
        ON_CALL(*impl, GetKeyReleases).WillByDefault(respond);
        ON_CALL(*impl, AddKeyReleaseCommit).WillByDefault(respond);
        ON_CALL(*impl, SendDrmMessage).WillByDefault([=](auto& type, auto& message, std::string& session) {
            return (session = sessionToGive, respond(type, message));
        });
        ON_CALL(*impl, GetId).WillByDefault([=]() -> const std::string& { return respond(), id; });
        ON_CALL(*impl, GetOIPFId).WillByDefault([=]() -> const std::string& { return respond(), oipfId; });
        wrapper.reset(new DrmBackendWrapper(impl, &client));
        log.Clear();
    }

    void Keep(const Block& bytes) { blocks.push_back(bytes); }
    void Keep(const std::string& text) { texts.push_back(text); }
    void Keep(std::uint32_t) {}

    Strings Lines(int level) const {
        Strings lines;
        for (const auto& record : log.Records("Velmora::Wrapper:Drm")) {
            if (record.level == level) lines.push_back(record.text);
        }
        return lines;
    }
    std::string Entry(const std::string& name) const { return name + " (impl pointer): " + Str(impl.get()) + "; "; }

    const std::string id = "org.w3.clearkey", oipfId = "urn:dvb:casystemid:19219";
    std::string sessionToGive = "session-7";
    bool answer = true;
    std::function<void()> failure;
    int calls = 0;
    std::vector<Block> blocks;
    Strings texts;
    boost::shared_ptr<NiceMock<MockDrmBackend>> impl = boost::make_shared<NiceMock<MockDrmBackend>>();
    RecordingDrmClient client;
    std::unique_ptr<DrmBackendWrapper> wrapper;
};

TEST_F(DrmBackendWrapperTest, Construct_WithoutClient) {
    wrapper.reset();
    wrapper.reset(new DrmBackendWrapper(impl, nullptr));
    EXPECT_EQ(impl->events.num_slots(), 0u);
    wrapper->DrmBackendEventHandler(boost::make_shared<UvaKeyCompleteDrmEvent>("ks", "s", true));
    EXPECT_THAT(Lines(5), ElementsAre("DrmBackendWrapper Client is not set!",
                                      "DrmBackendEventHandler Event cannot be sent since client is not set!"));
    EXPECT_EQ(Lines(2).front(), "DrmBackendWrapper (impl pointer): " + Str(impl.get()) + "; ");
}

struct EventCase {
    const char* name;
    std::function<DrmBackendEvent*()> make;
    std::string browserEvent;
};

class DrmEventTest : public DrmBackendWrapperTest, public WithParamInterface<EventCase> {};

TEST_P(DrmEventTest, Deliver_KnownType) {
    impl->Raise(GetParam().make());  // the media stack's event and its texts are gone after this
    ASSERT_EQ(client.events.Count(), 1u);
    EXPECT_EQ(Describe(client.events.At(0)), GetParam().browserEvent);
}

INSTANTIATE_TEST_SUITE_P(
    Events, DrmEventTest,
    Values(EventCase{"NeedKey", [] { return new UvaNeedKeyDRMEvent("ks", "s1", false, Shared("i\0d"s), 3, true); },
                     "0 ks s1 1 init i\0d/3 1"s},
           EventCase{"NeedKeyNulls", [] { return new UvaNeedKeyDRMEvent(nullptr, nullptr, true, Block(), 0, false); },
                     "0 null null 1 init /0 0"},
           EventCase{"KeyMessage", [] { return new UvaKeyMessageDrmEvent("ks", "s2", true, "u", Shared("m\0g"s), 3); },
                     "1 ks s2 1 message m\0g/3 url u"s},
           EventCase{"KeyMessageNullUrl",
                     [] { return new UvaKeyMessageDrmEvent("ks", "", false, nullptr, Block(), 0); },
                     "1 ks  0 message /0 url null"},
           EventCase{"KeyComplete", [] { return new UvaKeyCompleteDrmEvent("ks", "s3", true); }, "2 ks s3 1"},
           EventCase{"KeyError", [] { return new UvaKeyErrorDrmEvent("ks", "s4", false, -7, 65535); },
                     "3 ks s4 0 error -7 65535"},
           EventCase{"Result", [] { return new UvaResultMessageDrmEvent("ks", "s5", true, "done", 2.5); },
                     "4 ks s5 1 result done 2.5"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(DrmBackendWrapperTest, Deliver_UnknownTypeOrWrongClass) {
    for (const int type : {5, -1}) {
        impl->Raise(new DrmBackendEvent(static_cast<DrmBackendEvent::EventType>(type), "ks", "s", true));
    }
    impl->Raise(nullptr);
    auto* impostor = new UvaKeyCompleteDrmEvent("ks", "s", true);
    impostor->type = DrmBackendEvent::KeyError;
    EXPECT_THROW(impl->Raise(impostor), GenericErrorException);
    EXPECT_EQ(client.events.Count(), 0u);
    Strings failures(2, "MediaBackendEvent not handled. Event ID: Unknown event ID");
    failures.push_back("DrmBackendEventHandler: null event ignored");
    EXPECT_EQ(Lines(5), failures);
    EXPECT_EQ(Lines(2).back(), "DrmBackendEventHandler; (sending event to Opera) KeyError");
}

TEST_F(DrmBackendWrapperTest, addKey_BlocksCopied) {
    auto* key = new unsigned char[4]{'k', '1', 0, 'x'};
    auto* initData = new unsigned char[3]{'a', 'b', 0};  // the trace line reads up to the zero
    EXPECT_EQ(wrapper->addKey(key, 4, initData, 2, nullptr), UVA_STATUS_OK);
    EXPECT_EQ(wrapper->addKeyReleaseCommit(nullptr, 0, "s9"), UVA_STATUS_OK);
    delete[] key;
    delete[] initData;
    ASSERT_EQ(blocks.size(), 3u);
    EXPECT_EQ(Bytes(blocks[0].get(), 4) + Bytes(blocks[1].get(), 2), "k1\0xab"s);
    EXPECT_NE(blocks[2], nullptr) << "an empty array, not a null one";
    EXPECT_EQ(texts, Strings({"", "s9"}));
}

TEST_F(DrmBackendWrapperTest, addKey_TraceStopsAtZeroOrEnd) {
    const unsigned char initData[] = "ab\0cd";
    const std::vector<unsigned char> key{'k', 'e', 'y'};  // no zero: the line must stop at the block's end
    wrapper->generateKeyRequest(initData, 5);
    wrapper->addKey(key.data(), 3, nullptr, 0, "s");  // the null block fails the stream: the line ends there
    EXPECT_EQ(Lines(2),
              Strings({Entry("generateKeyRequest") + " Value of init_data is : ab Value of init_data_size is : 5",
                       Entry("addKey") + " Key value: key; ; key_size: 3 Value of init_data is : "}));
    EXPECT_EQ(Bytes(blocks[0].get(), 5), "ab\0cd"s);
}

TEST_F(DrmBackendWrapperTest, getId_BackendsOwnText) {
    EXPECT_EQ(wrapper->getId(), id.c_str());
    EXPECT_EQ(wrapper->getOIPFId(), oipfId.c_str());
    EXPECT_EQ(Lines(2), Strings({Entry("getId"), Entry("getOIPFId"), "getOIPFIdReceived " + oipfId + " from impl."}));
}

TEST_F(DrmBackendWrapperTest, sendDRMMessage_SessionIdCopied) {
    char* result = nullptr;
    for (const bool given : {true, false}) {
        answer = given;
        EXPECT_EQ(wrapper->sendDRMMessage("type", nullptr, result), given ? UVA_STATUS_OK : UVA_STATUS_ERROR);
        EXPECT_STREQ(result, "session-7");
    }
    std::free(result);
    EXPECT_EQ(texts, Strings({"type", "", "type", ""}));
    EXPECT_EQ(Lines(5), Strings{"Exception type 1:  The impl for IDrmBackend::SendDrmMessage message failed!"});
}

TEST_F(DrmBackendWrapperTest, getDecrypter_Refused) {
    auto* const given = reinterpret_cast<UVADRMBackend::UVADRMDecrypter*>(0x1234);
    UVADRMBackend::UVADRMDecrypter* decrypter = given;
    const UVA_STATUS statuses[] = {wrapper->getDecrypter(decrypter, nullptr, 0, true),
                                   wrapper->releaseDecrypter(decrypter), wrapper->onInitData(nullptr, 0)};
    wrapper->stopDecrypters();
    EXPECT_THAT(statuses, Each(UVA_STATUS_ERROR_2));
    EXPECT_EQ(decrypter, given);
    EXPECT_EQ(Lines(2), Strings({"getDecrypter", "releaseDecrypter", "onInitData", "stopDecrypters"}));
    EXPECT_EQ(calls, 0);
}

struct Operation {
    const char* name;
    std::function<std::string(DrmBackendWrapper&)> call;
    bool answersText = false;
};

const unsigned char kData[] = "d";
const Operation kOperations[] = {
    {"generateKeyRequest", [](DrmBackendWrapper& drm) { return Str(drm.generateKeyRequest(kData, 1)); }},
    {"addKey", [](DrmBackendWrapper& drm) { return Str(drm.addKey(kData, 1, kData, 1, "s")); }},
    {"addKeyReleaseCommit", [](DrmBackendWrapper& drm) { return Str(drm.addKeyReleaseCommit(kData, 1, "s")); }},
    {"sendDRMMessage",
     [](DrmBackendWrapper& drm) {
         char* sessionId = nullptr;
         const std::string status = Str(drm.sendDRMMessage("t", "m", sessionId));
         return std::free(sessionId), status;
     }},
    {"getOIPFId", [](DrmBackendWrapper& drm) { return std::string(drm.getOIPFId()); }, true},
};

TEST_F(DrmBackendWrapperTest, Forward_StackAnswers) {
    for (const bool given : {true, false}) {
        answer = given;
        for (const Operation& operation : kOperations) {
            if (!operation.answersText) {
                EXPECT_EQ(operation.call(*wrapper), given ? "1" : "0") << operation.name;
            }
        }
    }
}

// Failure kinds; a line starting with "virtual" follows the operation's name directly.
struct Failure {
    const char* name;
    std::function<void()> raise;
    const char* status;
    Strings lines;
};

const Failure kFailures[] = {
    {"Type3", [] { throw ExceptionBase(3, "bad"); }, "3", {"Exception type 3: bad"}},
    {"Type7", [] { throw ExceptionBase(7, "bad"); }, "0", {"Exception type 7: bad", "Unknown error type caught: 7"}},
    {"Standard", [] { throw std::runtime_error("boom"); }, "0", {"virtual function from IDrmBackend failed: boom"}},
};

class DrmFailureTest : public DrmBackendWrapperTest, public WithParamInterface<std::tuple<Operation, Failure>> {};

// Identities answer "NA" to every failure; a text has no status, so their error type is not mapped.
TEST_P(DrmFailureTest, Forward_StackThrows) {
    const auto& [operation, given] = GetParam();
    failure = given.raise;
    Strings lines(given.lines.begin(), given.lines.begin() + (operation.answersText ? 1 : given.lines.size()));
    if (lines[0].rfind("virtual", 0) == 0) lines[0] = operation.name + lines[0];
    EXPECT_EQ(operation.call(*wrapper), operation.answersText ? "NA" : given.status);
    EXPECT_EQ(Lines(5), lines);
    EXPECT_THAT(Lines(2), ElementsAre(StartsWith(Entry(operation.name))));
}

INSTANTIATE_TEST_SUITE_P(Matrix, DrmFailureTest, Combine(ValuesIn(kOperations), ValuesIn(kFailures)),
                         [](const auto& info) {
                             return std::string(std::get<0>(info.param).name) + "_" + std::get<1>(info.param).name;
                         });

}  // namespace
