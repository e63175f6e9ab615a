// The media wrapper over a mocked media back-end: the data path, sources and queries (the rules it shares with
// the broadcast wrapper are in BackendWrapperRulesTest).

#include <gmock/gmock.h>

#include <boost/make_shared.hpp>
#include <cstdlib>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "DrmBackendWrapper.h"
#include "Support/BackendSides.h"
#include "Support/DescribeEvents.h"
#include "Support/LiveObjects.h"
#include "Support/RecordingClients.h"
#include "Velmora/Exceptions.h"

namespace {

using namespace ::testing;
namespace Stack = Velmora;  // the media stack's side
using Stack::BackendEvent;
using Velmora::Wrapper::MediaBackendWrapper;
using namespace VelmoraTest;
using Lines = std::vector<Matcher<Tlog::Record>>;
using Source = UVABackend::SourceDescription;
using Streaming = Velmora::IBackend::SourceDescriptionOperaStreaming;
using StreamingList = const std::vector<Streaming>&;
using BackendStreaming = const Velmora::IBackend::SourceDescriptionBackendStreaming&;

class MediaWrapperTest : public LiveObjectsTest {
protected:
    std::vector<Tlog::Record> MediaLog() const { return log.Records("Velmora::M"); }

    RecordingClient client;
    MediaSide side{&client, Over::Own, UVABackend::TYPE_MEDIA_SOURCE};
    MockMediaBackend& media = *side.stack;
    MediaBackendWrapper& wrapper = side.wrapper;
};

// Subscribes only with a client, to DRM requests only of a media back-end, and lets go of the media stack
// while still subscribed.
TEST_F(MediaWrapperTest, Destroy_ReleasesBackEndBeforeUnsubscribing) {
    std::size_t slotsWhenReleased = 0;
    boost::shared_ptr<MockMediaBackend> held(new NiceMock<MockMediaBackend>, [&](MockMediaBackend* released) {
        slotsWhenReleased = released->events.num_slots() + released->drmRequests.num_slots();
        delete released;
    });
    auto owner = std::make_unique<MediaBackendWrapper>(held, UVABackend::TYPE_MEDIA, &client);
    {
        const MediaBackendWrapper withoutClient(held, UVABackend::TYPE_MEDIA, nullptr);
        const MediaBackendWrapper notMedia(boost::make_shared<NiceMock<MockVideoBroadcastBackend>>(),
                                           UVABackend::TYPE_MEDIA, &client);
        EXPECT_EQ(held->events.num_slots() + held->drmRequests.num_slots(), 2u);
        EXPECT_EQ(owner->GetMediaBackendImpl(), held);
    }
    held.reset();
    owner.reset();
    EXPECT_EQ(slotsWhenReleased, 2u);
    EXPECT_THAT(MediaLog(),
                ElementsAre(LogLine(5, "MediaBackendWrapper Client is not set!"), LogLine(2, "~MediaBackendWrapper"),
                            LogLine(2, "~MediaBackendWrapper"), LogLine(2, "~MediaBackendWrapper")));
}

TEST_F(MediaWrapperTest, writeData_NeedDataAnswer) {
    auto* answer = new ::NeedDataEvent;
    answer->sourceId = 5, answer->requestId = 6, answer->offset = 7, answer->size = 8;
    boost::shared_ptr<BackendEvent> passed;
    EXPECT_CALL(media, WriteData(_, 100u, UVABackend::WRITE_DATA_ERROR)).WillOnce(SaveArg<0>(&passed));
    EXPECT_EQ(wrapper.writeData(answer, 100, UVABackend::WRITE_DATA_ERROR), UVA_STATUS_OK);
    const auto& need = dynamic_cast<Velmora::NeedDataEvent&>(*passed);
    EXPECT_THAT(std::vector<int>({need.type, need.first, need.second, need.third, need.fourth}),
                ElementsAre(BackendEvent::NeedData, 5, 6, 7, 8));
}

// The copies must outlive the browser's event, which writeData deletes.
TEST_F(MediaWrapperTest, writeData_MediaSourceSamples) {
    auto* answer = new ::NeedMSEDataEvent;
    answer->sourceId = 4, answer->count = 3, answer->samples = new UVABackend::MediaSample*[4]();
    UVABackend::MediaSample* const full = answer->samples[0] = new UVABackend::MediaSample;
    answer->samples[1] = new UVABackend::MediaSample;
    full->data.assign("abcd", 4), full->keyId.assign("k", 1), full->iv.assign("iv", 2);
    full->streamId = 1, full->encryptionScheme = 2, full->timestampMs = 3, full->durationMs = 4, full->keyFrame = 5;
    full->configVersion = 6, full->width = 7, full->height = 8, full->sampleRate = 9;
    full->addSubSample(10, 20), full->addSubSample(30, 40);
    boost::shared_ptr<BackendEvent> passed;
    EXPECT_CALL(media, WriteMseData(_, UVABackend::WRITE_DATA_END_OF_STREAM)).WillOnce(SaveArg<0>(&passed));
    EXPECT_EQ(wrapper.writeData(answer, 0, UVABackend::WRITE_DATA_END_OF_STREAM), UVA_STATUS_OK);
    const auto& written = dynamic_cast<Velmora::WriteMseDataEvent&>(*passed);
    EXPECT_THAT(std::vector<std::uint32_t>({std::uint32_t(written.sourceId), written.count}), ElementsAre(4, 3));
    ASSERT_EQ(written.buffers->size(), 2u);
    const Velmora::DecoderBuffer& copy = written.buffers->front();
    const Velmora::DecoderBuffer& empty = written.buffers->back();
    EXPECT_THAT(std::vector<std::string>({Bytes(copy.data.get(), copy.dataSize),
                                          Bytes(copy.keyId.get(), copy.keyIdSize), Bytes(copy.iv.get(), copy.ivSize)}),
                ElementsAre("abcd", "k", "iv"));
    EXPECT_THAT(std::vector<double>({double(copy.streamId), double(copy.encryptionScheme), copy.timestamp,
                                     double(copy.duration), double(copy.keyFrame), double(copy.configVersion),
                                     double(copy.width), double(copy.height), double(copy.sampleRate)}),
                ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9));
    EXPECT_THAT(copy.subSamples, ElementsAre(FieldsAre(10u, 20u), FieldsAre(30u, 40u)));
    EXPECT_THAT(std::vector<void*>({copy.codecConfig.get(), empty.data.get(), empty.keyId.get(), empty.iv.get()}),
                Each(IsNull()));
    EXPECT_THAT(empty.subSamples, IsEmpty());
}

// initBackend over sources of these types; the browser frees them when the wrapper refused them.
std::function<UVA_STATUS(MediaBackendWrapper&)> Init(std::vector<int> types) {
    return [types](MediaBackendWrapper& wrapper) {
        auto** sources = new Source*[types.size() + 1]();
        for (std::size_t index = 0; index < types.size(); ++index) {
            sources[index] = types[index] == 3 ? Source::BackendStreaming("http://stream")
                                               : Source::Streaming(types[index], int(index) + 10, index == 1,
                                                                   int(index), index == 0 ? "video/mp4" : nullptr);
        }
        const UVA_STATUS status = wrapper.initBackend("http://page", sources, true);
        if (status != UVA_STATUS_OK) {
            for (Source** next = sources; *next != nullptr; ++next) delete *next;
            delete[] sources;
        }
        return status;
    };
}

struct Scenario {
    const char* name;
    std::function<void(MockMediaBackend&)> expect;
    std::function<UVA_STATUS(MediaBackendWrapper&)> act;
    UVA_STATUS status;
    Lines lines;
};

void PrintTo(const Scenario& scenario, std::ostream* out) { *out << scenario.name; }

const auto kNothing = [](MockMediaBackend&) {};
const char* const kMixedTypes =
    "SourceDescription included more than one type of sources. Looks like an error in Opera.";
const char* kCodecs[] = {"avc1", "mp4a", nullptr};
const char* const kNoSources = "initBackend failed, since '_sources' is nullpointer";
const char* const kInvalidType = "Exception type 1:  initBackend called with invalid sourceType!";

// clang-format off
const Scenario kScenarios[] = {
    {"writeData_other_event", kNothing, [](auto& media) { return media.writeData(new ::DurationChangedEvent, 1, {}); },
     UVA_STATUS_ERROR, {LogLine(5, "Exception type 1:  Wrong event type received with WriteData method")}},
    {"writeData_media_stack_fails",
     [](auto& stack) { EXPECT_CALL(stack, WriteData(_, _, _)).WillOnce(Throw(std::runtime_error("full"))); },
     [](auto& media) { return media.writeData(new ::NeedDataEvent, 1, {}); },
     UVA_STATUS_ERROR, {LogLine(5, "writeData virtual function from IMediaBackend failed: full")}},
    {"initBackend_leading_run_of_one_type",
     [](auto& stack) {
         EXPECT_CALL(stack, InitBackend("http://page", Matcher<StreamingList>(ElementsAre(
             FieldsAre(1, 10, false, 0, "video/mp4"), FieldsAre(1, 11, true, 1, ""))), true));
     },
     Init({1, 1, 2}), UVA_STATUS_OK, {LogLine(5, kMixedTypes)}},
    {"initBackend_backend_streaming_from_the_first",
     [](auto& stack) {
         EXPECT_CALL(stack, InitBackend("http://page", Matcher<BackendStreaming>(FieldsAre("http://stream")), true));
     },
     Init({3, 0}), UVA_STATUS_OK, {}},
    {"initBackend_type_above_range", kNothing, Init({4}), UVA_STATUS_ERROR, {LogLine(5, kInvalidType)}},
    {"initBackend_no_sources", kNothing, Init({}), UVA_STATUS_ERROR, {LogLine(5, kNoSources)}},
    {"initBackend_media_stack_fails",
     [](auto& stack) { EXPECT_CALL(stack, InitBackend(_, A<StreamingList>(), _)).WillOnce(Throw(1)); },
     Init({0}), UVA_STATUS_ERROR, {LogLine(5, "Unknown exception caught in initBackend")}},
    {"canPlayType_no", [](auto& stack) { EXPECT_CALL(stack, CanPlayType("", ElementsAre("avc1", "mp4a"), "")); },
     [](auto& media) { return media.canPlayType(nullptr, kCodecs, nullptr); },
     UVA_STATUS_ERROR_2, {LogLine(4, " Can play type returned false from MediaBackendImpl! ")}},
    {"attachSource_of_any_type", [](auto& stack) { EXPECT_CALL(stack, AttachSource(Field(&Streaming::type, 3))); },
     [](auto& media) { return media.attachSource(Source::BackendStreaming("http://x")); }, UVA_STATUS_OK, {}},
    {"queue_is_dropped", kNothing, [](auto& media) { return media.queue(nullptr); }, UVA_STATUS_OK, {LogLine(2, "queue : ")}},
    {"getNativeSize_written_whatever_the_answer",
     [](auto& stack) {
         EXPECT_CALL(stack, GetNativeSize).WillOnce(DoAll(SetArgReferee<0>(65535), SetArgReferee<1>(480), Return(false)));
     },
     [](auto& media) {
         int width = 0, height = 0;
         double aspectRatio = 0.0;
         const UVA_STATUS status = media.getNativeSize(width, height, aspectRatio);
         EXPECT_EQ(std::make_pair(width, height), std::make_pair(65535, 480));
         return status;
     },
     UVA_STATUS_ERROR, {LogLine(2, "getNativeSize; 65535; 480; ")}},
};
// clang-format on

class MediaScenarioTest : public MediaWrapperTest, public WithParamInterface<Scenario> {};

TEST_P(MediaScenarioTest, Call_StatusAndLog) {
    GetParam().expect(media);
    EXPECT_EQ(GetParam().act(wrapper), GetParam().status);
    EXPECT_THAT(MediaLog(), ElementsAreArray(GetParam().lines));
}

INSTANTIATE_TEST_SUITE_P(SourcesDataAndQueries, MediaScenarioTest, ValuesIn(kScenarios));

TEST_F(MediaWrapperTest, getSupportedMimetypes_NullTerminated) {
    const std::vector<std::string> supported{"video/mp4", "audio/mp4", "video/webm"};
    EXPECT_CALL(media, GetSupportedMimetypes(IsEmpty())).WillOnce(SetArgReferee<0>(supported));
    char** types = nullptr;
    EXPECT_EQ(wrapper.getSupportedMimetypes(types), UVA_STATUS_OK);
    EXPECT_EQ(std::vector<std::string>(types, types + 3), supported);
    EXPECT_EQ(types[3], nullptr);
    std::for_each(types, types + 3, std::free);
    delete[] types;
}

TEST_F(MediaWrapperTest, getTimeRanges_NullTerminated) {
    const std::vector<Velmora::IBackend::TimeRange> ranges{{0, 4294967295u}, {10, 20}};
    EXPECT_CALL(media, GetBufferedTimeRanges(IsEmpty(), IsEmpty()))
        .WillOnce(DoAll(SetArgReferee<1>(ranges), Return(false)));
    EXPECT_CALL(media, GetSeekableTimeRanges(IsEmpty(), IsEmpty())).WillOnce(Return(true));
    UVABackend::TimeRange** buffered = nullptr;
    UVABackend::TimeRange** seekable = nullptr;
    EXPECT_EQ(wrapper.getBufferedTimeRanges(nullptr, buffered), UVA_STATUS_ERROR);
    EXPECT_EQ(wrapper.getSeekableTimeRanges(nullptr, seekable), UVA_STATUS_OK);
    EXPECT_THAT(std::vector<double>({buffered[0]->start, buffered[0]->end, buffered[1]->start, buffered[1]->end}),
                ElementsAre(0.0, 4294967295.0, 10.0, 20.0));
    EXPECT_THAT(std::vector<void*>({buffered[2], seekable[0]}), Each(IsNull()));
    delete buffered[0], delete buffered[1], delete[] buffered, delete[] seekable;
}

// The media stack asks for the DRM back-end of a key system; it gets the one behind the browser's choice.
TEST_F(MediaWrapperTest, RequestDrmBackend_BrowsersChoice) {
    auto drm = boost::make_shared<NiceMock<MockDrmBackend>>();
    Velmora::Wrapper::DrmBackendWrapper chosen(drm, nullptr);
    EXPECT_EQ(media.RequestDrmBackend(""), nullptr);
    EXPECT_EQ(media.RequestDrmBackend("org.w3.clearkey"), nullptr);
    client.drmBackendToGive = &chosen;
    EXPECT_EQ(media.RequestDrmBackend("com.youtube.playready"), drm.get());
    EXPECT_THAT(client.requestedKeySystems, ElementsAre("org.w3.clearkey", "com.youtube.playready"));
    const char* const requesting = " <><><><><><>  Uva Media Backend is requesting DRM backend! ";
    EXPECT_THAT(
        MediaLog(),
        ElementsAre(LogLine(2, "GetDRMBackend Empty keySystemId is used to request DRMBackend! "),
                    LogLine(2, requesting),
                    LogLine(5, "GetDRMBackend Unable to get DRM backend from Uva Client! value(ptrOperaContext): 0"),
                    LogLine(2, requesting)));
}

}  // namespace
