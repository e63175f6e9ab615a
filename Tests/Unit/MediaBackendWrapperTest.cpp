// The media wrapper over a mocked media back-end: forwarding, the data path, sources, queries and events.

#include <gmock/gmock.h>

#include <boost/make_shared.hpp>
#include <cstdlib>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "DrmBackendWrapper.h"
#include "MediaBackendWrapper.h"
#include "Support/DescribeEvents.h"
#include "Support/LiveObjects.h"
#include "Support/MediaStackMocks.h"
#include "Support/RecordingClients.h"
#include "Velmora/Exceptions.h"

namespace {

using namespace ::testing;
namespace Stack = Velmora;  // the media stack's side
using Stack::BackendEvent;
using Stack::ExceptionBase;
using Velmora::Wrapper::MediaBackendWrapper;
using namespace VelmoraTest;
using Lines = std::vector<Matcher<Tlog::Record>>;
using Source = UVABackend::SourceDescription;
using Streaming = Velmora::IBackend::SourceDescriptionOperaStreaming;
using StreamingList = const std::vector<Streaming>&;
using BackendStreaming = const Velmora::IBackend::SourceDescriptionBackendStreaming&;

constexpr UVA_STATUS kOk = UVA_STATUS_OK;
constexpr UVA_STATUS kNo = UVA_STATUS_ERROR;

class MediaWrapperTest : public LiveObjectsTest {
protected:
    MediaBackendWrapper& Wrapper() {
        if (wrapper == nullptr) {
            wrapper = std::make_unique<MediaBackendWrapper>(backend, UVABackend::TYPE_MEDIA_SOURCE, &client);
        }
        return *wrapper;
    }
    std::vector<Tlog::Record> MediaLog() const { return log.Records("Velmora::M"); }

    boost::shared_ptr<NiceMock<MockMediaBackend>> media = boost::make_shared<NiceMock<MockMediaBackend>>();
    boost::shared_ptr<Velmora::IBackend> backend = media;
    RecordingClient client;
    std::unique_ptr<MediaBackendWrapper> wrapper;
};

// The media stack answers `value`, or throws through `raise`.
struct Answer {
    bool value;
    std::function<void()> raise;
};

struct Forwarder {
    const char* name;  // as the failure line writes it
    std::function<UVA_STATUS(MediaBackendWrapper&)> call;
    std::function<void(MockMediaBackend&, const Answer&)> expect;  // the exact call the media stack must see
    UVA_STATUS whenFalse;
    int exceptionLevel = 5;
};

void PrintTo(const Forwarder& forwarder, std::ostream* out) { *out << forwarder.name; }

MATCHER_P4(Rect, x, y, width, height, "") {
    return arg.x == x && arg.y == y && arg.width == width && arg.height == height;
}

double someDouble = 0.0;
unsigned someCount = 0;

// The media stack's call picked out by `expect`, answered as the row asks.
template <typename Result, typename Expect>
std::function<void(MockMediaBackend&, const Answer&)> Answered(Expect expect) {
    return [expect](MockMediaBackend& stack, const Answer& answer) {
        expect(stack).WillOnce(InvokeWithoutArgs([answer]() -> Result {
            if (answer.raise) answer.raise();
            return static_cast<Result>(answer.value);
        }));
    };
}

const Forwarder kForwarders[] = {
    {"setWindowId", [](auto& media) { return media.setWindowId(7); },
     Answered<void>([](auto& stack) -> auto& { return EXPECT_CALL(stack, SetWindowId(7u)); }), kOk},
    {"setVideoWindow", [](auto& media) { return media.setVideoWindow(10, 20, 300, 400); },
     Answered<bool>([](auto& stack) -> auto& { return EXPECT_CALL(stack, SetVideoWindow(Rect(10, 20, 400, 300))); }),
     kNo},
    {"setClipRect", [](auto& media) { return media.setClipRect(-1, 2, 70000, 5); },
     Answered<bool>([](auto& stack) -> auto& { return EXPECT_CALL(stack, SetClipRect(Rect(-1, 2, 5, 4464))); }), kNo},
    {"canPlayURL", [](auto& media) { return media.canPlayURL("http://a"); },
     Answered<bool>([](auto& stack) -> auto& { return EXPECT_CALL(stack, CanPlayURL("http://a")); }),
     UVA_STATUS_ERROR_2},
    {"play", [](auto& media) { return media.play(); },
     Answered<void>([](auto& stack) -> auto& { return EXPECT_CALL(stack, Play()); }), kOk},
    {"getDuration", [](auto& media) { return media.getDuration(someDouble); },
     Answered<bool>([](auto& stack) -> auto& { return EXPECT_CALL(stack, GetDuration(Ref(someDouble))); }), kNo, 2},
    {"setPosition", [](auto& media) { return media.setPosition(12.5); },
     Answered<bool>([](auto& stack) -> auto& { return EXPECT_CALL(stack, SetPosition(12.5)); }), kNo},
    {"setVisibility", [](auto& media) { return media.setVisibility(true, false); },
     Answered<void>([](auto& stack) -> auto& { return EXPECT_CALL(stack, SetVisibility(true)); }), kOk},
    {"setVisibility", [](auto& media) { return media.setVisibility(false, true); },
     Answered<void>([](auto& stack) -> auto& { return EXPECT_CALL(stack, SetVisibility(false)); }), kOk},
    {"getSizeFromDuration", [](auto& media) { return media.getSizeFromDuration(5.0, someCount); },
     Answered<void>([](auto& stack) -> auto& { return EXPECT_CALL(stack, GetSizeFromDuration()); }), kOk},
    {"setSource", [](auto& media) { return media.setSource(nullptr); },
     Answered<void>([](auto& stack) -> auto& { return EXPECT_CALL(stack, SetSource("")); }), kOk},
    {"setBufferingStrategy", [](auto& media) { return media.setBufferingStrategy(UVABackend::BUFFERING_AGGRESSIVE); },
     Answered<void>([](auto& stack) -> auto& { return EXPECT_CALL(stack, SetBufferingStrategy(true)); }), kOk},
    {"setBufferingStrategy", [](auto& media) { return media.setBufferingStrategy(UVABackend::BUFFERING_CONSERVATIVE); },
     Answered<void>([](auto& stack) -> auto& { return EXPECT_CALL(stack, SetBufferingStrategy(false)); }), kOk},
    {"getBytesInBuffer", [](auto& media) { return media.getBytesInBuffer(someCount); },
     Answered<void>([](auto& stack) -> auto& { return EXPECT_CALL(stack, GetBytesInBuffer(Ref(someCount))); }), kOk},
};

class MediaForwardingTest : public MediaWrapperTest, public WithParamInterface<Forwarder> {};

TEST_P(MediaForwardingTest, Forward_StackAnswers) {
    someCount = 77;
    for (const bool value : {true, false}) {
        GetParam().expect(*media, Answer{value, nullptr});
        EXPECT_EQ(GetParam().call(Wrapper()), value ? kOk : GetParam().whenFalse);
    }
    EXPECT_EQ(someCount, 77u) << "what the media stack did not fill stays untouched";
    EXPECT_THAT(MediaLog(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(EveryForwarder, MediaForwardingTest, ValuesIn(kForwarders));

struct Failure {
    const char* name;
    std::function<void()> raise;  // null: the back-end is not a media back-end
    UVA_STATUS status;
    bool standard;  // a standard exception: the line follows the operation's name
    std::string line;
};

void PrintTo(const Failure& failure, std::ostream* out) { *out << failure.name; }

// clang-format off
const Failure kFailures[] = {
    {"type_3", [] { throw ExceptionBase(3, "busy"); }, UVA_STATUS_ERROR_3, false, "Exception type 3: busy"},
    {"standard", [] { throw std::runtime_error("x"); }, kNo, true, "virtual function from IMediaBackend failed: x"},
    {"not_media", nullptr, kNo, false, "Exception type 1: Exception occurred while performing IMediaBackend cast."},
};
// clang-format on

class MediaFailureTest : public MediaWrapperTest, public WithParamInterface<std::tuple<Forwarder, Failure>> {};

TEST_P(MediaFailureTest, Forward_StackThrows) {
    const auto& [forwarder, failure] = GetParam();
    if (failure.raise) {
        forwarder.expect(*media, Answer{true, failure.raise});
    } else {
        backend = boost::make_shared<NiceMock<MockVideoBroadcastBackend>>();
    }
    EXPECT_EQ(forwarder.call(Wrapper()), failure.status);
    EXPECT_THAT(MediaLog(), ElementsAre(LogLine(failure.standard ? 5 : forwarder.exceptionLevel,
                                                (failure.standard ? forwarder.name : "") + failure.line)));
    if (failure.raise) {
        forwarder.expect(*media, Answer{true, nullptr});
        EXPECT_EQ(forwarder.call(Wrapper()), kOk);
    }
}

INSTANTIATE_TEST_SUITE_P(EveryForwarderAndFailure, MediaFailureTest,
                         Combine(ValuesIn(kForwarders), ValuesIn(kFailures)));

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
    EXPECT_CALL(*media, WriteData(_, 100u, UVABackend::WRITE_DATA_ERROR)).WillOnce(SaveArg<0>(&passed));
    EXPECT_EQ(Wrapper().writeData(answer, 100, UVABackend::WRITE_DATA_ERROR), UVA_STATUS_OK);
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
    EXPECT_CALL(*media, WriteMseData(_, UVABackend::WRITE_DATA_END_OF_STREAM)).WillOnce(SaveArg<0>(&passed));
    EXPECT_EQ(Wrapper().writeData(answer, 0, UVABackend::WRITE_DATA_END_OF_STREAM), UVA_STATUS_OK);
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
    GetParam().expect(*media);
    EXPECT_EQ(GetParam().act(Wrapper()), GetParam().status);
    EXPECT_THAT(MediaLog(), ElementsAreArray(GetParam().lines));
}

INSTANTIATE_TEST_SUITE_P(SourcesDataAndQueries, MediaScenarioTest, ValuesIn(kScenarios));

TEST_F(MediaWrapperTest, getSupportedMimetypes_NullTerminated) {
    const std::vector<std::string> supported{"video/mp4", "audio/mp4", "video/webm"};
    EXPECT_CALL(*media, GetSupportedMimetypes(IsEmpty())).WillOnce(SetArgReferee<0>(supported));
    char** types = nullptr;
    EXPECT_EQ(Wrapper().getSupportedMimetypes(types), UVA_STATUS_OK);
    EXPECT_EQ(std::vector<std::string>(types, types + 3), supported);
    EXPECT_EQ(types[3], nullptr);
    std::for_each(types, types + 3, std::free);
    delete[] types;
}

TEST_F(MediaWrapperTest, getTimeRanges_NullTerminated) {
    const std::vector<Velmora::IBackend::TimeRange> ranges{{0, 4294967295u}, {10, 20}};
    EXPECT_CALL(*media, GetBufferedTimeRanges(IsEmpty(), IsEmpty()))
        .WillOnce(DoAll(SetArgReferee<1>(ranges), Return(false)));
    EXPECT_CALL(*media, GetSeekableTimeRanges(IsEmpty(), IsEmpty())).WillOnce(Return(true));
    UVABackend::TimeRange** buffered = nullptr;
    UVABackend::TimeRange** seekable = nullptr;
    EXPECT_EQ(Wrapper().getBufferedTimeRanges(nullptr, buffered), UVA_STATUS_ERROR);
    EXPECT_EQ(Wrapper().getSeekableTimeRanges(nullptr, seekable), UVA_STATUS_OK);
    EXPECT_THAT(std::vector<double>({buffered[0]->start, buffered[0]->end, buffered[1]->start, buffered[1]->end}),
                ElementsAre(0.0, 4294967295.0, 10.0, 20.0));
    EXPECT_THAT(std::vector<void*>({buffered[2], seekable[0]}), Each(IsNull()));
    delete buffered[0], delete buffered[1], delete[] buffered, delete[] seekable;
}

// The media stack asks for the DRM back-end of a key system; it gets the one behind the browser's choice.
TEST_F(MediaWrapperTest, RequestDrmBackend_BrowsersChoice) {
    auto drm = boost::make_shared<NiceMock<MockDrmBackend>>();
    Velmora::Wrapper::DrmBackendWrapper chosen(drm, nullptr);
    Wrapper();
    EXPECT_EQ(media->RequestDrmBackend(""), nullptr);
    EXPECT_EQ(media->RequestDrmBackend("org.w3.clearkey"), nullptr);
    client.drmBackendToGive = &chosen;
    EXPECT_EQ(media->RequestDrmBackend("com.youtube.playready"), drm.get());
    EXPECT_THAT(client.requestedKeySystems, ElementsAre("org.w3.clearkey", "com.youtube.playready"));
    const char* const requesting = " <><><><><><>  Uva Media Backend is requesting DRM backend! ";
    EXPECT_THAT(
        MediaLog(),
        ElementsAre(LogLine(2, "GetDRMBackend Empty keySystemId is used to request DRMBackend! "),
                    LogLine(2, requesting),
                    LogLine(5, "GetDRMBackend Unable to get DRM backend from Uva Client! value(ptrOperaContext): 0"),
                    LogLine(2, requesting)));
}

struct Translation {
    const char* name;  // as the log names the media stack's event
    std::function<BackendEvent*()> raise;
    std::string delivered;  // empty: nothing reaches the browser
};

void PrintTo(const Translation& translation, std::ostream* out) { *out << translation.name; }

template <typename Event, typename... Args>
std::function<BackendEvent*()> New(Args... args) {
    return [=] { return new Event(args...); };
}

std::function<BackendEvent*()> Plain(int code) { return New<BackendEvent>(static_cast<BackendEvent::EventType>(code)); }

// clang-format off
const Translation kTranslations[] = {
    {"BackendResourceRevoked", Plain(0), "UVAEvent 0"}, {"PlaybackFinished", Plain(5), "UVAEvent 4"},
    {"DecodeError", Plain(8), "UVAEvent 7"}, {"SeekCompleted", Plain(9), "UVAEvent 8"},
    {"VideoFrameAvailable", Plain(10), "UVAEvent 9"}, {"BufferingProgress", Plain(20), "UVAEvent 19"},
    {"BufferingNetworkError", Plain(21), "UVAEvent 20"}, {"BufferingIdle", Plain(22), "UVAEvent 21"},
    {"BufferingStreamBuffered", Plain(24), "UVAEvent 23"},
    {"NeedData", New<Stack::NeedDataEvent>(1, 2, 3, 4), "NeedDataEvent 1 1 2 3 4"},
    {"NeedMseData", New<Stack::NeedMseDataEvent>(9, 0u), "NeedMSEDataEvent 2 9 1 null null"},
    {"NeedMseData", New<Stack::NeedMseDataEvent>(9, 3u), "NeedMSEDataEvent 2 9 3 null null null null"},
    {"CancelDataRequests", New<Stack::CancelDataRequestsEvent>(12.5, 4), "CancelDataRequestsEvent 3 12.5 4"},
    {"DurationChanged", New<Stack::DurationChangedEvent>(61.5), "DurationChangedEvent 5 61.5"},
    {"VideoResized", New<Stack::VideoResizedEvent>(65535, 1080, 1.777), "VideoResizedEvent 6 65535 1080 1.777"},
    {"DRMRightsError", New<Stack::DRMRightsErrorEvent>(3, "cid", "sys", nullptr), "DRMRightsErrorEvent 10 3 cid sys null"},
    {"ParentalRatingError", New<Stack::ParentalRatingErrorEvent>("cid", nullptr, 18), "ParentalRatingErrorEvent 11 cid 18 null"},
    {"ParentalRatingChange", New<Stack::ParentalRatingChangeEvent>(nullptr, "sys", 12), "ParentalRatingChangeEvent 12 null 12 sys"},
    {"BufferingStreamUnderrun", New<Stack::BufferingStreamUnderrunEvent>(40), "BufferingStreamUnderrunEvent 22 40"},
    {"WriteMseData", New<Stack::WriteMseDataEvent>(1, nullptr, 0u), ""},
    {"BroadcastPlaystateChange", New<Stack::BroadcastPlaystateChangeEvent>(1, 0), ""},
    {"SubtitlesChanged", New<Stack::SubtitlesChangedEvent>("eng"), ""},
    {"Unknown event ID", Plain(40), ""},
    {"DurationChanged", Plain(6), ""},  // the code names a class the event is not of
};
// clang-format on

class MediaEventTest : public MediaWrapperTest, public WithParamInterface<Translation> {};

TEST_P(MediaEventTest, Raise_EveryCode) {
    Wrapper();
    media->Raise(GetParam().raise());
    const std::string name = GetParam().name;
    Lines expected{LogLine(2, "MediaBackendEvent; (sending event to Opera): " + name)};
    if (GetParam().delivered.empty()) {
        expected.push_back(LogLine(4, "MediaBackendEvent not handled. Event ID: " + name));
    }
    ASSERT_EQ(client.events.Count(), GetParam().delivered.empty() ? 0u : 1u);
    EXPECT_EQ(client.events.Count() == 0 ? "" : Describe(client.events.At(0)), GetParam().delivered);
    EXPECT_THAT(MediaLog(), ElementsAreArray(expected));
}

INSTANTIATE_TEST_SUITE_P(EveryEventCode, MediaEventTest, ValuesIn(kTranslations));

}  // namespace
