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

// The media stack answers `value`, or throws through `raise`.
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

// The media stack's expected call, answered as the row asks.
template <typename Result, typename Expectation>
std::function<void(MockMediaBackend&, const Answer&)> Expects(Expectation expectation) {
    return [expectation](MockMediaBackend& media, const Answer& answer) {
        expectation(media).WillOnce(Respond<Result>(answer));
    };
}

// clang-format off
const Forwarder kForwarders[] = {
    {"setWindowId", [](auto& wrapper) { return wrapper.setWindowId(7); },
     Expects<void>([](auto& media) -> auto& { return EXPECT_CALL(media, SetWindowId(7u)); }), kOk, kOk},
    {"setVideoWindow", [](auto& wrapper) { return wrapper.setVideoWindow(10, 20, 300, 400); },
     Expects<bool>([](auto& media) -> auto& { return EXPECT_CALL(media, SetVideoWindow(Rect(10, 20, 400, 300))); }), kOk, kNo},
    {"setClipRect", [](auto& wrapper) { return wrapper.setClipRect(-1, 2, 70000, 5); },
     Expects<bool>([](auto& media) -> auto& { return EXPECT_CALL(media, SetClipRect(Rect(-1, 2, 5, 4464))); }), kOk, kNo},
    {"canPlayURL", [](auto& wrapper) { return wrapper.canPlayURL("http://a"); },
     Expects<bool>([](auto& media) -> auto& { return EXPECT_CALL(media, CanPlayURL("http://a")); }), kOk, UVA_STATUS_ERROR_2},
    {"play", [](auto& wrapper) { return wrapper.play(); },
     Expects<void>([](auto& media) -> auto& { return EXPECT_CALL(media, Play()); }), kOk, kOk},
    {"getDuration", [](auto& wrapper) { return wrapper.getDuration(someDouble); },
     Expects<bool>([](auto& media) -> auto& { return EXPECT_CALL(media, GetDuration(Ref(someDouble))); }), kOk, kNo, 2},
    {"setPosition", [](auto& wrapper) { return wrapper.setPosition(12.5); },
     Expects<bool>([](auto& media) -> auto& { return EXPECT_CALL(media, SetPosition(12.5)); }), kOk, kNo},
    {"setVisibility", [](auto& wrapper) { return wrapper.setVisibility(true, false); },
     Expects<void>([](auto& media) -> auto& { return EXPECT_CALL(media, SetVisibility(true)); }), kOk, kOk},
    {"setVisibility", [](auto& wrapper) { return wrapper.setVisibility(false, true); },
     Expects<void>([](auto& media) -> auto& { return EXPECT_CALL(media, SetVisibility(false)); }), kOk, kOk},
    {"getSizeFromDuration", [](auto& wrapper) { return wrapper.getSizeFromDuration(5.0, someCount); },
     Expects<void>([](auto& media) -> auto& { return EXPECT_CALL(media, GetSizeFromDuration()); }), kOk, kOk},
    {"setSource", [](auto& wrapper) { return wrapper.setSource(nullptr); },
     Expects<void>([](auto& media) -> auto& { return EXPECT_CALL(media, SetSource("")); }), kOk, kOk},
    {"setBufferingStrategy", [](auto& wrapper) { return wrapper.setBufferingStrategy(UVABackend::BUFFERING_AGGRESSIVE); },
     Expects<void>([](auto& media) -> auto& { return EXPECT_CALL(media, SetBufferingStrategy(true)); }), kOk, kOk},
    {"setBufferingStrategy", [](auto& wrapper) { return wrapper.setBufferingStrategy(UVABackend::BUFFERING_CONSERVATIVE); },
     Expects<void>([](auto& media) -> auto& { return EXPECT_CALL(media, SetBufferingStrategy(false)); }), kOk, kOk},
    {"getBytesInBuffer", [](auto& wrapper) { return wrapper.getBytesInBuffer(someCount); },
     Expects<void>([](auto& media) -> auto& { return EXPECT_CALL(media, GetBytesInBuffer(Ref(someCount))); }), kOk, kOk},
};
// clang-format on

class MediaForwardingTest : public VelmoraTest::MediaWrapperTest, public WithParamInterface<Forwarder> {};

TEST_P(MediaForwardingTest, Forward_StackAnswers) {
    someCount = 77;
    for (const bool value : {true, false}) {
        GetParam().expect(*media, Answer{value, nullptr});
        EXPECT_EQ(GetParam().call(Wrapper()), value ? GetParam().whenTrue : GetParam().whenFalse);
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

template <typename Exception>
std::function<void()> Throws(Exception exception) {
    return [exception] { throw exception; };
}

// clang-format off
const Failure kFailures[] = {
    {"type_3", Throws(ExceptionBase(3, "busy")), UVA_STATUS_ERROR_3, false, "Exception type 3: busy"},
    {"standard", Throws(std::runtime_error("x")), kNo, true, "virtual function from IMediaBackend failed: x"},
    {"not_media", nullptr, kNo, false, "Exception type 1: Exception occurred while performing IMediaBackend cast."},
};
// clang-format on

class MediaFailureTest : public VelmoraTest::MediaWrapperTest,
                         public WithParamInterface<std::tuple<Forwarder, Failure>> {};

TEST_P(MediaFailureTest, Forward_StackThrows) {
    const auto& [forwarder, failure] = GetParam();
    if (failure.raise) {
        forwarder.expect(*media, Answer{true, failure.raise});
    } else {
        backend = boost::make_shared<NiceMock<VelmoraTest::MockVideoBroadcastBackend>>();
    }
    EXPECT_EQ(forwarder.call(Wrapper()), failure.status);
    EXPECT_THAT(MediaLog(), ElementsAre(LogLine(failure.standard ? 5 : forwarder.exceptionLevel,
                                                (failure.standard ? forwarder.name : "") + failure.line)));
    if (failure.raise) {
        forwarder.expect(*media, Answer{true, nullptr});
        EXPECT_EQ(forwarder.call(Wrapper()), forwarder.whenTrue);
    }
}

INSTANTIATE_TEST_SUITE_P(EveryForwarderAndFailure, MediaFailureTest,
                         Combine(ValuesIn(kForwarders), ValuesIn(kFailures)));

using MediaLifetimeTest = VelmoraTest::MediaWrapperTest;

// Subscribes only with a client, to DRM requests only of a media back-end, and lets go of the media stack
// while still subscribed.
TEST_F(MediaLifetimeTest, Destroy_ReleasesBackEndBeforeUnsubscribing) {
    std::size_t slotsWhenReleased = 0;
    boost::shared_ptr<MockMediaBackend> held(new NiceMock<MockMediaBackend>, [&](MockMediaBackend* released) {
        slotsWhenReleased = released->events.num_slots() + released->drmRequests.num_slots();
        delete released;
    });
    auto owner = std::make_unique<MediaBackendWrapper>(held, UVABackend::TYPE_MEDIA, &client);
    {
        const MediaBackendWrapper withoutClient(held, UVABackend::TYPE_MEDIA, nullptr);
        const MediaBackendWrapper notMedia(boost::make_shared<NiceMock<VelmoraTest::MockVideoBroadcastBackend>>(),
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

}  // namespace
