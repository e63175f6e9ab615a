#include <functional>
#include <stdexcept>
#include <string>

#include "MediaBackendWrapperFixture.h"
#include "Velmora/Exceptions.h"

namespace {

using namespace ::testing;
using Velmora::ExceptionBase;
using VelmoraTest::Lines;
using VelmoraTest::LogLine;
using VelmoraTest::MediaBackendWrapper;
using VelmoraTest::MockMediaBackend;

constexpr UVA_STATUS kOk = UVA_STATUS_OK;
constexpr UVA_STATUS kNo = UVA_STATUS_ERROR;

// What the media stack does when called: answer `value`, or throw through `raise`.
struct Answer {
    bool value;
    std::function<void()> raise;
};

template <typename Result>
auto Respond(Answer answer) {
    return InvokeWithoutArgs([answer]() -> Result {
        if (answer.raise) {
            answer.raise();
        }
        return static_cast<Result>(answer.value);
    });
}

struct Forwarder {
    const char* name;  // as the failure line writes it
    std::function<UVA_STATUS(MediaBackendWrapper&)> call;
    std::function<void(MockMediaBackend&, const Answer&)> expect;  // the exact call the media stack must see
    UVA_STATUS whenTrue;
    UVA_STATUS whenFalse;
    int exceptionLevel = 5;
};

void PrintTo(const Forwarder& forwarder, std::ostream* out) { *out << forwarder.name; }

MATCHER_P4(Rect, x, y, width, height, "") {
    return arg.x == x && arg.y == y && arg.width == width && arg.height == height;
}

double someDouble = 0.0;
unsigned someCount = 0;
unsigned char frame[4];

#define CALL(operation) [](MediaBackendWrapper& wrapper) { return wrapper.operation; }
#define FORWARDED(Result, expected) \
    [](MockMediaBackend& media, const Answer& answer) { EXPECT_CALL(media, expected).WillOnce(Respond<Result>(answer)); }

const Forwarder kForwarders[] = {
    {"setWindowId", CALL(setWindowId(7)), FORWARDED(void, SetWindowId(7u)), kOk, kOk},
    {"removeSource", CALL(removeSource(3)), FORWARDED(void, RemoveSource(3u)), kOk, kOk},
    {"setVideoWindow", CALL(setVideoWindow(10, 20, 300, 400)), FORWARDED(bool, SetVideoWindow(Rect(10, 20, 400, 300))),
     kOk, kNo},
    {"setClipRect", CALL(setClipRect(-1, 2, 70000, 5)), FORWARDED(bool, SetClipRect(Rect(-1, 2, 5, 4464))), kOk, kNo},
    {"getVideoFrame", CALL(getVideoFrame(frame, 4)), FORWARDED(bool, GetVideoFrame(frame, 4u)), kOk, kNo},
    {"canPlayURL", CALL(canPlayURL("http://a")), FORWARDED(bool, CanPlayURL("http://a")), kOk, UVA_STATUS_ERROR_2},
    {"play", CALL(play()), FORWARDED(void, Play()), kOk, kOk},
    {"stop", CALL(stop()), FORWARDED(void, Stop()), kOk, kOk},
    {"pause", CALL(pause(true)), FORWARDED(void, Pause(true)), kOk, kOk},
    {"setPlaybackRate", CALL(setPlaybackRate(-2.0)), FORWARDED(void, SetPlaybackRate(-2.0)), kOk, kOk},
    {"setVolume", CALL(setVolume(0.25)), FORWARDED(void, SetVolume(0.25)), kOk, kOk},
    {"getDuration", CALL(getDuration(someDouble)), FORWARDED(bool, GetDuration(Ref(someDouble))), kOk, kNo, 2},
    {"setContentSize", CALL(setContentSize(640, 480)), FORWARDED(void, SetContentSize(640u, 480u)), kOk, kOk},
    {"getPosition", CALL(getPosition(someDouble)), FORWARDED(bool, GetPosition(Ref(someDouble))), kOk, kNo},
    {"setPosition", CALL(setPosition(12.5)), FORWARDED(bool, SetPosition(12.5)), kOk, kNo},
    {"setVisibility", CALL(setVisibility(true, false)), FORWARDED(void, SetVisibility(true)), kOk, kOk},
    {"setVisibility", CALL(setVisibility(true, true)), FORWARDED(void, SetVisibility(true)), kOk, kOk},
    {"setVisibility", CALL(setVisibility(false, true)), FORWARDED(void, SetVisibility(false)), kOk, kOk},
    {"getSizeFromDuration", CALL(getSizeFromDuration(5.0, someCount)), FORWARDED(void, GetSizeFromDuration()), kOk, kOk},
    {"setFullScreen", CALL(setFullScreen(true)), FORWARDED(void, SetFullScreen(true)), kOk, kOk},
    {"setLoop", CALL(setLoop("true")), FORWARDED(void, SetLoop("true")), kOk, kOk},
    {"setSource", CALL(setSource(nullptr)), FORWARDED(void, SetSource("")), kOk, kOk},
    {"onListenerChanged", CALL(onListenerChanged("ended")), FORWARDED(void, OnListenerChanged("ended")), kOk, kOk},
    {"setBufferingStrategy", CALL(setBufferingStrategy(UVABackend::BUFFERING_AGGRESSIVE)),
     FORWARDED(void, SetBufferingStrategy(true)), kOk, kOk},
    {"setBufferingStrategy", CALL(setBufferingStrategy(UVABackend::BUFFERING_DEFAULT)),
     FORWARDED(void, SetBufferingStrategy(false)), kOk, kOk},
    {"setBufferingStrategy", CALL(setBufferingStrategy(UVABackend::BUFFERING_CONSERVATIVE)),
     FORWARDED(void, SetBufferingStrategy(false)), kOk, kOk},
    {"setBufferingStrategy", CALL(setBufferingStrategy(static_cast<UVABackend::BufferingStrategy>(3))),
     FORWARDED(void, SetBufferingStrategy(false)), kOk, kOk},
    {"getBytesInBuffer", CALL(getBytesInBuffer(someCount)), FORWARDED(void, GetBytesInBuffer(Ref(someCount))), kOk, kOk},
    {"setKeySystem", CALL(setKeySystem(nullptr)), FORWARDED(void, SetKeySystem("")), kOk, kOk},
};

class MediaForwardingTest : public VelmoraTest::MediaWrapperTest, public WithParamInterface<Forwarder> {};

TEST_P(MediaForwardingTest, HandsOnTheArgumentsAndAnswersWithTheResult) {
    someCount = 77;
    for (const bool value : {true, false}) {
        GetParam().expect(*media, Answer{value, nullptr});
        EXPECT_EQ(GetParam().call(Wrapper()), value ? GetParam().whenTrue : GetParam().whenFalse);
    }
    EXPECT_EQ(someCount, 77u) << "nothing the media stack did not fill is written";
    EXPECT_THAT(MediaLog(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(EveryForwarder, MediaForwardingTest, ValuesIn(kForwarders));

struct Failure {
    const char* name;
    std::function<void()> raise;  // null: the back-end is not a media back-end
    UVA_STATUS status;
    std::function<Lines(const Forwarder&)> lines;
};

void PrintTo(const Failure& failure, std::ostream* out) { *out << failure.name; }

Lines Reported(const Forwarder& forwarder, const char* text) { return {LogLine(forwarder.exceptionLevel, text)}; }

const Failure kFailures[] = {
    {"generic", [] { throw Velmora::GenericErrorException("lost"); }, kNo,
     [](const Forwarder& op) { return Reported(op, "Exception type 1: lost"); }},
    {"type_2", [] { throw ExceptionBase(2, "no"); }, UVA_STATUS_ERROR_2,
     [](const Forwarder& op) { return Reported(op, "Exception type 2: no"); }},
    {"type_3", [] { throw ExceptionBase(3, "state"); }, UVA_STATUS_ERROR_3,
     [](const Forwarder& op) { return Reported(op, "Exception type 3: state"); }},
    {"type_4", [] { throw ExceptionBase(4, "later"); }, UVA_STATUS_ERROR_2,
     [](const Forwarder& op) { return Reported(op, "Exception type 4: later"); }},
    {"type_7", [] { throw ExceptionBase(7, "odd"); }, kNo,
     [](const Forwarder& op) {
         return Lines{LogLine(op.exceptionLevel, "Exception type 7: odd"), LogLine(5, "Unknown error type caught: 7")};
     }},
    {"standard", [] { throw std::runtime_error("x"); }, kNo,
     [](const Forwarder& op) {
         return Lines{LogLine(5, std::string(op.name) + "virtual function from IMediaBackend failed: x")};
     }},
    {"int", [] { throw 7; }, kNo, [](const Forwarder&) { return Lines{LogLine(5, "Unknown exception caught")}; }},
    {"not_media", nullptr, kNo,
     [](const Forwarder& op) {
         return Reported(op, "Exception type 1: Exception occurred while performing IMediaBackend cast.");
     }},
};

class MediaFailureTest : public VelmoraTest::MediaWrapperTest,
                         public WithParamInterface<std::tuple<Forwarder, Failure>> {};

TEST_P(MediaFailureTest, AnswersAStatusLogsTheFailureAndStaysUsable) {
    const auto& [forwarder, failure] = GetParam();
    if (failure.raise) {
        forwarder.expect(*media, Answer{true, failure.raise});
    } else {
        backend = boost::make_shared<NiceMock<VelmoraTest::MockVideoBroadcastBackend>>();
    }
    EXPECT_EQ(forwarder.call(Wrapper()), failure.status);
    EXPECT_THAT(MediaLog(), ElementsAreArray(failure.lines(forwarder)));
    if (failure.raise) {
        forwarder.expect(*media, Answer{true, nullptr});
        EXPECT_EQ(forwarder.call(Wrapper()), forwarder.whenTrue);
    }
}

INSTANTIATE_TEST_SUITE_P(EveryForwarderAndFailure, MediaFailureTest,
                         Combine(ValuesIn(kForwarders), ValuesIn(kFailures)));

using MediaLifetimeTest = VelmoraTest::MediaWrapperTest;

TEST_F(MediaLifetimeTest, SubscribesOnlyWithAClientAndTheDrmRequestOnlyForAMediaBackEnd) {
    auto broadcast = boost::make_shared<NiceMock<VelmoraTest::MockVideoBroadcastBackend>>();
    {
        MediaBackendWrapper withClient(media, UVABackend::TYPE_MEDIA, &client);
        MediaBackendWrapper withoutClient(media, UVABackend::TYPE_MEDIA, nullptr);
        MediaBackendWrapper notMedia(broadcast, UVABackend::TYPE_MEDIA, &client);
        EXPECT_EQ(media->events.num_slots(), 1u);
        EXPECT_EQ(media->drmRequests.num_slots(), 1u);
        EXPECT_EQ(broadcast->events.num_slots(), 1u);
        EXPECT_EQ(withClient.GetMediaBackendImpl(), media);
    }
    EXPECT_EQ(media->events.num_slots() + media->drmRequests.num_slots() + broadcast->events.num_slots(), 0u);
    EXPECT_THAT(MediaLog(), ElementsAre(LogLine(5, "MediaBackendWrapper Client is not set!"), LogLine(2, "~MediaBackendWrapper"),
                                        LogLine(2, "~MediaBackendWrapper"), LogLine(2, "~MediaBackendWrapper")));
}

// The wrapper lets go of the media stack before it cuts the event subscription.
TEST_F(MediaLifetimeTest, ReleasesTheBackEndWhileStillSubscribed) {
    std::size_t slotsWhenReleased = 0;
    boost::shared_ptr<MockMediaBackend> held(new NiceMock<MockMediaBackend>, [&](MockMediaBackend* released) {
        slotsWhenReleased = released->events.num_slots();
        delete released;
    });
    auto* owner = new MediaBackendWrapper(held, UVABackend::TYPE_MEDIA, &client);
    held.reset();
    delete owner;
    EXPECT_EQ(slotsWhenReleased, 1u);
}

TEST_F(MediaLifetimeTest, QueueIsAcceptedAndDropped) {
    EXPECT_EQ(Wrapper().queue("http://next"), kOk);
    EXPECT_EQ(Wrapper().queue(nullptr), kOk);
    EXPECT_THAT(MediaLog(), ElementsAre(LogLine(2, "queue : http://next"), LogLine(2, "queue : ")));
}

}  // namespace
