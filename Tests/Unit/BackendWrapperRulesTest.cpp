// The rules the media and the broadcast back-end wrapper share, each table run on both: forwarding through
// the guard and its failure lines, event translation and delivery, and component handling.

#include <gmock/gmock.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "Support/BackendSides.h"
#include "Support/DescribeEvents.h"
#include "Support/LiveObjects.h"
#include "Support/RecordingClients.h"
#include "Velmora/Exceptions.h"

namespace {

using namespace ::testing;
using namespace VelmoraTest;
using Velmora::BackendEvent;
using Velmora::ExceptionBase;
using Action = Velmora::ComponentChangedEvent::Action;
using Component = UVABackend::AVComponent;
using Lines = std::vector<Matcher<Tlog::Record>>;
using Hook = std::function<void()>;  // runs first inside the media stack's operation; a failing one throws
using Media = Velmora::Wrapper::MediaBackendWrapper;
using Broadcast = Velmora::Wrapper::VideoBroadcastBackendWrapper;

const Kind kKinds[] = {kMedia, kBroadcast};
const auto kByName = [](const auto& info) { return std::string(info.param.name); };

class WrapperFixture : public LiveObjectsTest {
protected:
    explicit WrapperFixture(const Kind& kind) : kind(kind), side(kind.make(&client, Over::Own)) {}

    // Raises a component event; the component that the browser's event names, if any.
    Component* Announce(Action action) {
        const std::size_t before = client.events.Count();
        side->Raise(new Velmora::ComponentChangedEvent(&audio, action));
        const auto* changed = client.events.At<::ComponentChangedEvent>(before);
        EXPECT_TRUE(changed == nullptr || changed->action == static_cast<std::int32_t>(action));
        return changed == nullptr ? nullptr : changed->component;
    }
    std::vector<Tlog::Record> WrapperLog() const { return log.Records(kind.context); }

    const Kind& kind;
    NiceMock<MockAvComponent> audio{"deu"};
    RecordingClient client;
    std::unique_ptr<Side> side;
};

// Forwarding

MATCHER_P4(Rect, x, y, width, height, "") {
    return arg.x == x && arg.y == y && arg.width == width && arg.height == height;
}

const boost::shared_ptr<int> kChannel = boost::make_shared<int>(7);
double someDouble = 0.0;
unsigned someCount = 0;

// Media stack answers: the hook runs first, then `value` is returned or stored into the out-parameter.
template <typename T>
auto Then(Hook hook, T value) {
    return [hook, value] { return hook(), value; };
}
template <typename T>
auto Store(Hook hook, T value) {
    return [hook, value](auto& out) { hook(), out = value; };
}

// The out-parameter holds `expected` after a success and is untouched after a failure.
template <typename T>
UVA_STATUS Out(UVA_STATUS status, const T& value, const T& expected) {
    EXPECT_EQ(value, status == UVA_STATUS_OK ? expected : T{});
    return status;
}

template <typename T>
std::function<UVA_STATUS(Broadcast&)> Reads(UVA_STATUS (Broadcast::*read)(T&), T expected) {
    return [read, expected](Broadcast& wrapper) {
        T value{};
        return Out((wrapper.*read)(value), value, expected);
    };
}

UVA_STATUS Speeds(Broadcast& wrapper) {
    double* speeds = nullptr;
    unsigned int count = 3;
    const UVA_STATUS status = wrapper.getPlaybackSpeeds(speeds, count);
    const std::unique_ptr<double[]> owned(speeds);
    return Out<std::vector<double>>(
        status, speeds ? std::vector<double>(speeds, speeds + count) : std::vector<double>{}, {-2, 1, 8});
}

struct Forwarder {
    const char* name;  // the operation, as a failure line writes it
    const Kind* kind;
    std::function<void(Side&, const Hook&)> expect;  // the exact call the media stack must see, and its answer
    std::function<UVA_STATUS(Side&)> call;
    UVA_STATUS status;                 // for that answer
    int level;                         // of the media stack's own failures
    const char* callFailed = nullptr;  // the operation's own wording of a standard exception
};

// Makes the rows of one wrapper kind from calls on its mock and on the wrapper.
template <typename Wrapped>
struct RowsOver {
    template <typename Expect, typename Call>
    Forwarder operator()(const char* name, Expect expect, Call call, UVA_STATUS status = UVA_STATUS_OK, int level = 5,
                         const char* callFailed = nullptr) const {
        return {name,
                &kind,
                [expect](Side& side, const Hook& hook) { expect(*static_cast<Wrapped&>(side).stack, hook); },
                [call](Side& side) { return call(static_cast<Wrapped&>(side).wrapper); },
                status,
                level,
                callFailed};
    }
    const Kind& kind;
};

const RowsOver<MediaSide> OnMedia{kMedia};
const RowsOver<BroadcastSide> OnBroadcast{kBroadcast};
constexpr UVA_STATUS kNo = UVA_STATUS_ERROR;

// clang-format off
const Forwarder kForwarders[] = {
    OnMedia("setWindowId", [](auto& stack, Hook hook) { EXPECT_CALL(stack, SetWindowId(7u)).WillOnce(hook); },
            [](Media& media) { return media.setWindowId(7); }),
    OnMedia("setVideoWindow",
            [](auto& stack, Hook hook) { EXPECT_CALL(stack, SetVideoWindow(Rect(10, 20, 400, 300))).WillOnce(Then(hook, false)); },
            [](Media& media) { return media.setVideoWindow(10, 20, 300, 400); }, kNo),
    OnMedia("setClipRect",
            [](auto& stack, Hook hook) { EXPECT_CALL(stack, SetClipRect(Rect(-1, 2, 5, 4464))).WillOnce(Then(hook, true)); },
            [](Media& media) { return media.setClipRect(-1, 2, 70000, 5); }),
    OnMedia("canPlayURL", [](auto& stack, Hook hook) { EXPECT_CALL(stack, CanPlayURL("http://a")).WillOnce(Then(hook, false)); },
            [](Media& media) { return media.canPlayURL("http://a"); }, UVA_STATUS_ERROR_2),
    OnMedia("play", [](auto& stack, Hook hook) { EXPECT_CALL(stack, Play()).WillOnce(hook); },
            [](Media& media) { return media.play(); }),
    OnMedia("getDuration",
            [](auto& stack, Hook hook) { EXPECT_CALL(stack, GetDuration(Ref(someDouble))).WillOnce(Then(hook, false)); },
            [](Media& media) { return media.getDuration(someDouble); }, kNo, 2),
    OnMedia("setPosition", [](auto& stack, Hook hook) { EXPECT_CALL(stack, SetPosition(12.5)).WillOnce(Then(hook, true)); },
            [](Media& media) { return media.setPosition(12.5); }),
    OnMedia("setVisibility", [](auto& stack, Hook hook) { EXPECT_CALL(stack, SetVisibility(false)).WillOnce(hook); },
            [](Media& media) { return media.setVisibility(false, true); }),
    OnMedia("getSizeFromDuration", [](auto& stack, Hook hook) { EXPECT_CALL(stack, GetSizeFromDuration()).WillOnce(hook); },
            [](Media& media) { return media.getSizeFromDuration(5.0, someCount); }),
    OnMedia("setSource", [](auto& stack, Hook hook) { EXPECT_CALL(stack, SetSource("")).WillOnce(hook); },
            [](Media& media) { return media.setSource(nullptr); }),
    OnMedia("setBufferingStrategy", [](auto& stack, Hook hook) { EXPECT_CALL(stack, SetBufferingStrategy(true)).WillOnce(hook); },
            [](Media& media) { return media.setBufferingStrategy(UVABackend::BUFFERING_AGGRESSIVE); }),
    OnMedia("setBufferingStrategy", [](auto& stack, Hook hook) { EXPECT_CALL(stack, SetBufferingStrategy(false)).WillOnce(hook); },
            [](Media& media) { return media.setBufferingStrategy(UVABackend::BUFFERING_CONSERVATIVE); }),
    OnMedia("getBytesInBuffer", [](auto& stack, Hook hook) { EXPECT_CALL(stack, GetBytesInBuffer(Ref(someCount))).WillOnce(hook); },
            [](Media& media) { return media.getBytesInBuffer(someCount); }),
    OnBroadcast("initBackend", [](auto& stack, Hook hook) { EXPECT_CALL(stack, InitBackend("")).WillOnce(hook); },
                [](Broadcast& broadcast) { return broadcast.initBackend(nullptr); }),
    OnBroadcast("release", [](auto& stack, Hook hook) { EXPECT_CALL(stack, Release()).WillOnce(hook); },
                [](Broadcast& broadcast) { return broadcast.release(); }),
    OnBroadcast("setVideoWindow",
                [](auto& stack, Hook hook) { EXPECT_CALL(stack, SetVideoWindow(Rect(10, 20, 400, 300))).WillOnce(Then(hook, false)); },
                [](Broadcast& broadcast) { return broadcast.setVideoWindow(10, 20, 300, 400); }, kNo),
    OnBroadcast("setClipRect",
                [](auto& stack, Hook hook) { EXPECT_CALL(stack, SetClipRect(Rect(4464, -1, 6, 5))).WillOnce(Then(hook, true)); },
                [](Broadcast& broadcast) { return broadcast.setClipRect(70000, -1, 5, 6); }),
    OnBroadcast("setVisibility", [](auto& stack, Hook hook) { EXPECT_CALL(stack, SetVisibility(true, false)).WillOnce(hook); },
                [](Broadcast& broadcast) { return broadcast.setVisibility(true, false); }),
    OnBroadcast("setVolume", [](auto& stack, Hook hook) { EXPECT_CALL(stack, SetVolume(0.25)).WillOnce(hook); },
                [](Broadcast& broadcast) { return broadcast.setVolume(0.25); }, UVA_STATUS_OK, 5, "Impl functiond failed: "),
    OnBroadcast("getPlayState", [](auto& stack, Hook hook) { EXPECT_CALL(stack, GetPlayState(_)).WillOnce(Store(hook, 2)); },
                Reads(&Broadcast::getPlayState, Broadcast::PLAY_STATE_PRESENTING)),
    OnBroadcast("getCurrentChannel",
                [](auto& stack, Hook hook) { EXPECT_CALL(stack, GetCurrentChannel()).WillOnce([hook] { return hook(), kChannel; }); },
                Reads(&Broadcast::getCurrentChannel, static_cast<void*>(kChannel.get()))),
    OnBroadcast("setChannel",
                [](auto& stack, Hook hook) { EXPECT_CALL(stack, SetChannel(kChannel.get(), true, false, "", true, false)).WillOnce(hook); },
                [](Broadcast& broadcast) { return broadcast.setChannel(kChannel.get(), true, false, nullptr, true, false); }),
    OnBroadcast("getPlaybackOffset",
                [](auto& stack, Hook hook) { EXPECT_CALL(stack, GetPlaybackOffset(_)).WillOnce(Store(hook, 4294967295u)); },
                Reads(&Broadcast::getPlaybackOffset, 4294967295.0), UVA_STATUS_OK, 2),
    OnBroadcast("getPlaybackSpeeds",
                [](auto& stack, Hook hook) { EXPECT_CALL(stack, GetPlaybackSpeeds(_)).WillOnce(Store(hook, std::vector<double>{-2, 1, 8})); },
                Speeds, UVA_STATUS_OK, 2),
    OnBroadcast("recordNow", [](auto& stack, Hook hook) { EXPECT_CALL(stack, RecordNow()).WillOnce(Then(hook, true)); },
                [](Broadcast& broadcast) {
                    char* id = nullptr;  // no text is written
                    return Out<char*>(broadcast.recordNow(60.0, id), id, nullptr);
                }, UVA_STATUS_OK, 2),
    OnBroadcast("stopRecording", [](auto& stack, Hook hook) { EXPECT_CALL(stack, StopRecording()).WillOnce(Then(hook, false)); },
                [](Broadcast& broadcast) { return broadcast.stopRecording(); }, kNo, 2),
    OnBroadcast("setPosition",  // the whole part travels, toward zero
                [](auto& stack, Hook hook) { EXPECT_CALL(stack, SetPosition(-1, Broadcast::POSITION_FROM_START)).WillOnce(hook); },
                [](Broadcast& broadcast) { return broadcast.setPosition(-1.5, Broadcast::POSITION_FROM_START); }, UVA_STATUS_OK, 2),
    OnBroadcast("setPosition",  // of which only the low 32 bits
                [](auto& stack, Hook hook) { EXPECT_CALL(stack, SetPosition(2, Broadcast::POSITION_FROM_CURRENT)).WillOnce(hook); },
                [](Broadcast& broadcast) { return broadcast.setPosition(4294967298.7, Broadcast::POSITION_FROM_CURRENT); },
                UVA_STATUS_OK, 2),
    OnBroadcast("getRecordingState", [](auto& stack, Hook hook) { EXPECT_CALL(stack, GetRecordingState(_)).WillOnce(Store(hook, 2)); },
                Reads(&Broadcast::getRecordingState, Broadcast::RECORDING_STARTED), UVA_STATUS_OK, 2),
};
// clang-format on

void PrintTo(const Forwarder& row, std::ostream* out) { *out << row.kind->name << ' ' << row.name; }

std::string RowName(const Forwarder& row, std::size_t index) {
    return std::string(row.kind->name) + "_" + row.name + "_" + std::to_string(index);
}

struct Failure {
    const char* name;
    Over over;  // Own: the media stack answers as the row has it, or throws through `raise`
    Hook raise;
    UVA_STATUS status;  // OK: the row's own status, and no line
    std::string text;   // the line of an ExceptionBase; empty: of the wrapper's cast failure
    bool standard = false;
};

const Failure kFailures[] = {
    {"answers", Over::Own, [] {}, UVA_STATUS_OK, ""},
    {"type_3", Over::Own, [] { throw ExceptionBase(3, "busy"); }, UVA_STATUS_ERROR_3, "Exception type 3: busy"},
    {"standard", Over::Own, [] { throw std::runtime_error("x"); }, UVA_STATUS_ERROR, "", true},
    {"foreign_backend", Over::Foreign, nullptr, UVA_STATUS_ERROR, ""},
    {"no_backend", Over::Nothing, nullptr, UVA_STATUS_ERROR, ""},
};

void PrintTo(const Failure& failure, std::ostream* out) { *out << failure.name; }

class ForwardingTest : public WrapperFixture, public WithParamInterface<std::tuple<Forwarder, Failure>> {
protected:
    ForwardingTest() : WrapperFixture(*std::get<0>(GetParam()).kind) {}
};

TEST_P(ForwardingTest, Forward_AnswersOrFails) {
    const auto& [row, failure] = GetParam();
    if (failure.raise) {
        row.expect(*side, failure.raise);
    } else {
        side = kind.make(&client, failure.over);
        log.Clear();
    }
    const bool answers = failure.status == UVA_STATUS_OK;
    EXPECT_EQ(row.call(*side), answers ? row.status : failure.status);
    EXPECT_EQ(kChannel.use_count(), 1) << "the wrapper keeps no share of the current channel";
    const std::string standard = std::string(kind.namesOperation ? row.name : "") +
                                 (row.callFailed != nullptr ? row.callFailed : kind.callFailed.c_str()) + "x";
    const std::string typed = failure.text.empty() ? "Exception type 1: " + kind.castFailed : failure.text;
    Lines expected;
    if (!answers) {
        expected.push_back(failure.standard ? LogLine(5, standard) : LogLine(row.level, typed));
    }
    EXPECT_THAT(log.Records(), ElementsAreArray(expected));
}

INSTANTIATE_TEST_SUITE_P(EveryForwarderAndFailure, ForwardingTest, Combine(ValuesIn(kForwarders), ValuesIn(kFailures)),
                         [](const auto& info) {
                             return RowName(std::get<0>(info.param), info.index) + "_" + std::get<1>(info.param).name;
                         });

// Events

struct Translation {
    const Kind* kind;
    const char* name;  // the media stack's event, as the lines name it
    std::function<BackendEvent*()> raise;
    std::string delivered;    // empty: nothing reaches the browser
    std::string thrown = "";  // back to the media stack
};

template <typename Event, typename... Args>
std::function<BackendEvent*()> New(Args... args) {
    return [=] { return new Event(args...); };
}

std::function<BackendEvent*()> Plain(int code) { return New<BackendEvent>(static_cast<BackendEvent::EventType>(code)); }

void* const kHandle = reinterpret_cast<void*>(0x1234);
namespace Stack = Velmora;  // the media stack's side

// clang-format off
const Translation kTranslations[] = {
    {&kMedia, "BackendResourceRevoked", Plain(0), "UVAEvent 0"}, {&kMedia, "PlaybackFinished", Plain(5), "UVAEvent 4"},
    {&kMedia, "DecodeError", Plain(8), "UVAEvent 7"}, {&kMedia, "SeekCompleted", Plain(9), "UVAEvent 8"},
    {&kMedia, "VideoFrameAvailable", Plain(10), "UVAEvent 9"}, {&kMedia, "BufferingProgress", Plain(20), "UVAEvent 19"},
    {&kMedia, "BufferingNetworkError", Plain(21), "UVAEvent 20"}, {&kMedia, "BufferingIdle", Plain(22), "UVAEvent 21"},
    {&kMedia, "BufferingStreamBuffered", Plain(24), "UVAEvent 23"},
    {&kMedia, "NeedData", New<Stack::NeedDataEvent>(1, 2, 3, 4), "NeedDataEvent 1 1 2 3 4"},
    {&kMedia, "NeedMseData", New<Stack::NeedMseDataEvent>(9, 0u), "NeedMSEDataEvent 2 9 1 null null"},
    {&kMedia, "NeedMseData", New<Stack::NeedMseDataEvent>(9, 3u), "NeedMSEDataEvent 2 9 3 null null null null"},
    {&kMedia, "CancelDataRequests", New<Stack::CancelDataRequestsEvent>(12.5, 4), "CancelDataRequestsEvent 3 12.5 4"},
    {&kMedia, "DurationChanged", New<Stack::DurationChangedEvent>(61.5), "DurationChangedEvent 5 61.5"},
    {&kMedia, "VideoResized", New<Stack::VideoResizedEvent>(65535, 1080, 1.777), "VideoResizedEvent 6 65535 1080 1.777"},
    {&kMedia, "DRMRightsError", New<Stack::DRMRightsErrorEvent>(3, "cid", "sys", "url"), "DRMRightsErrorEvent 10 3 cid sys url"},
    {&kMedia, "ParentalRatingError", New<Stack::ParentalRatingErrorEvent>("cid", nullptr, 18), "ParentalRatingErrorEvent 11 cid 18 null"},
    {&kMedia, "ParentalRatingChange", New<Stack::ParentalRatingChangeEvent>(nullptr, "sys", 12), "ParentalRatingChangeEvent 12 null 12 sys"},
    {&kMedia, "BufferingStreamUnderrun", New<Stack::BufferingStreamUnderrunEvent>(40), "BufferingStreamUnderrunEvent 22 40"},
    {&kMedia, "WriteMseData", New<Stack::WriteMseDataEvent>(1, nullptr, 0u), ""},
    {&kMedia, "BroadcastPlaystateChange", New<Stack::BroadcastPlaystateChangeEvent>(1, 0), ""},
    {&kMedia, "SubtitlesChanged", New<Stack::SubtitlesChangedEvent>("eng"), ""},
    {&kMedia, "Unknown event ID", Plain(40), ""},
    {&kMedia, "DurationChanged", Plain(6), ""},  // the code names a class the event is not of
    {&kBroadcast, "ParentalRatingError", New<Stack::ParentalRatingErrorEvent>("c1", nullptr, 15), "ParentalRatingErrorEvent 11 c1 15 null"},
    {&kBroadcast, "ParentalRatingChange", New<Stack::ParentalRatingChangeEvent>(nullptr, "d1", 12), "ParentalRatingChangeEvent 12 null 12 d1"},
    {&kBroadcast, "BroadcastPlaystateChange", New<Stack::BroadcastPlaystateChangeEvent>(2, 5), "BroadcastPlaystateChangeEvent 13 2 5"},
    {&kBroadcast, "ChannelChangeError", New<Stack::ChannelChangeErrorEvent>(kHandle, 9), "ChannelChangeErrorEvent 14 0x1234 9"},
    {&kBroadcast, "ChannelChangeSucceeded", New<Stack::ChannelChangeSucceededEvent>(kHandle), "ChannelChangeSucceededEvent 15 0x1234"},
    {&kBroadcast, "ProgrammesChanged", Plain(BackendEvent::ProgrammesChanged), "UVAEvent 16"},
    {&kBroadcast, "RecordingError", New<Stack::RecordingErrorEvent>(3, "r1"), "RecordingErrorEvent 17 3 r1"},
    {&kBroadcast, "RecordingStateChange", New<Stack::RecordingStateChangeEvent>(2, nullptr), "RecordingStateChangeEvent 18 2 null"},
    {&kBroadcast, "BufferingIdle", Plain(BackendEvent::BufferingIdle), "UVAEvent 21"},
    {&kBroadcast, "BufferingStreamUnderrun", New<Stack::BufferingStreamUnderrunEvent>(40), "UVAEvent 22"},  // without its level
    {&kBroadcast, "SubtitlesChanged", New<Stack::SubtitlesChangedEvent>(nullptr), "SubtitlesChangedEvent 24 null"},
    {&kBroadcast, "PlaybackFinished", Plain(BackendEvent::PlaybackFinished), ""},
    {&kBroadcast, "DRMRightsError", New<Stack::DRMRightsErrorEvent>(1, "c", "d", "u"), ""},
    {&kBroadcast, "LastEvent", Plain(BackendEvent::LastEvent), ""},
    {&kBroadcast, "Unknown event ID", Plain(30), ""},
    {&kBroadcast, "SubtitlesChanged", Plain(BackendEvent::SubtitlesChanged), "", "Dynamic cast of Velmora::BackendEventPtr failed."},
};
// clang-format on

void PrintTo(const Translation& row, std::ostream* out) { *out << row.kind->name << ' ' << row.name; }

class EventTest : public WrapperFixture, public WithParamInterface<Translation> {
protected:
    EventTest() : WrapperFixture(*GetParam().kind) {}
};

TEST_P(EventTest, Raise_EveryCode) {
    const Translation& row = GetParam();
    std::string thrown;
    try {
        side->Raise(row.raise());  // the media stack's event and its texts are gone from here on
    } catch (const ExceptionBase& failure) {
        thrown = failure.What();
    }
    EXPECT_EQ(thrown, row.thrown);
    ASSERT_EQ(client.events.Count(), row.delivered.empty() ? 0u : 1u);
    EXPECT_EQ(client.events.Count() == 0 ? "" : Describe(client.events.At(0)), row.delivered);
    Lines expected;
    if (kind.tracesSending) {
        expected.push_back(LogLine(2, kind.slot + "; (sending event to Opera): " + row.name));
    }
    if (row.delivered.empty() && row.thrown.empty()) {
        expected.push_back(LogLine(kind.notHandledLevel, kind.slot + " not handled. Event ID: " + row.name));
    }
    EXPECT_THAT(WrapperLog(), ElementsAreArray(expected));
}

INSTANTIATE_TEST_SUITE_P(EveryEventCode, EventTest, ValuesIn(kTranslations), [](const auto& info) {
    return std::string(info.param.kind->name) + "_" + std::to_string(info.index);
});

// Components

class ComponentTest : public WrapperFixture, public WithParamInterface<Kind> {
protected:
    ComponentTest() : WrapperFixture(GetParam()) {}
};

TEST_P(ComponentTest, Removal_TellsTheBrowserBeforeTheComponentIsMarkedUnused) {
    Component* const shown = Announce(Action::Added);
    audio.SetActive(true);
    std::int32_t stateWhenTold = -1;
    client.onEvent = [&](UVAEvent*) { stateWhenTold = shown->state; };
    EXPECT_EQ(Announce(Action::Removed), shown);
    EXPECT_EQ(stateWhenTold, 1);
    EXPECT_EQ(shown->state, 0);
}

TEST_P(ComponentTest, AnnouncedTwice_LowerAddressFirst) {
    const long components = uvaLiveObjects().components;
    Component* const first = Announce(Action::Added);
    Component* const second = Announce(Action::Added);
    EXPECT_STREQ(first->language, "deu");
    EXPECT_EQ(first->encoding, nullptr) << "a null text stays null";
    Component* const lower = std::min(first, second, std::less<>());
    Component* const upper = lower == first ? second : first;
    EXPECT_EQ(Announce(Action::Changed), lower);
    EXPECT_EQ(Announce(Action::Removed), lower);
    EXPECT_EQ(Announce(Action::Removed), upper);
    EXPECT_THAT(WrapperLog(), IsSupersetOf({LogLine(2, "Component to be REMOVED: " + PrintToString(lower)),
                                            LogLine(2, "Component to be REMOVED: " + PrintToString(upper))}));
    EXPECT_THAT(WrapperLog(), Contains(LogLine(2, "Component ADDED: " + PrintToString(first))).Times(kind.tracesAdded));
    EXPECT_EQ(uvaLiveObjects().components - components, 2) << "still named by the browser's events";
}

TEST_P(ComponentTest, Raise_UnknownOrMalformed) {
    side->Raise(new Velmora::ComponentChangedEvent(&audio, Action::Removed));
    side->Raise(new Velmora::ComponentChangedEvent(&audio, Action::Changed));
    side->Raise(new Velmora::ComponentChangedEvent(nullptr, Action::Added));
    side->Raise(nullptr);
    EXPECT_THROW(side->Raise(new Velmora::ComponentChangedEvent(&audio, 3)), Velmora::GenericErrorException);
    EXPECT_THROW(side->Raise(new Velmora::BackendEvent(Velmora::BackendEvent::ComponentChanged)), std::exception);
    EXPECT_EQ(client.events.Count(), 0u);
    EXPECT_THAT(WrapperLog(), IsSupersetOf({LogLine(5, kind.slot + ": component event without a component ignored"),
                                            LogLine(5, kind.slot + ": null event ignored")}));
    const std::string unknown = kind.slot + " not handled. Event ID: ComponentChanged";
    EXPECT_THAT(WrapperLog(), Contains(LogLine(4, unknown)).Times(kind.reportsUnknown ? 2 : 0));
}

INSTANTIATE_TEST_SUITE_P(BothBackEnds, ComponentTest, ValuesIn(kKinds), kByName);

enum class Target { Null, Removed, Inactive, Active };

struct Selection {
    const char* name;
    Target target;
    bool select;
    UVA_STATUS status;
    std::string line;  // the one line at level 5, empty for none
};

class SelectionTest : public WrapperFixture, public WithParamInterface<std::tuple<Kind, Selection>> {
protected:
    SelectionTest() : WrapperFixture(std::get<0>(GetParam())) {}
};

TEST_P(SelectionTest, SelectOrUnselect_BrowsersComponent) {
    const Selection& row = std::get<1>(GetParam());
    Component* const target = row.target == Target::Null ? nullptr : Announce(Action::Added);
    audio.SetActive(row.target != Target::Inactive);
    if (row.target == Target::Removed) {
        Announce(Action::Removed);
    } else if (row.target == Target::Active) {
        side->ExpectSelection(row.select, &audio);
    }
    log.Clear();
    EXPECT_EQ(side->Select(row.select, target), row.status);
    Lines expected;
    if (!row.line.empty()) {
        expected.push_back(LogLine(5, row.line));
    } else if (row.status == UVA_STATUS_OK && row.select && kind.tracesSelected) {
        expected.push_back(LogLine(2, "Select component: " + PrintToString(&audio)));
    }
    EXPECT_THAT(WrapperLog(), ElementsAreArray(expected));
    if (row.target >= Target::Inactive) {
        Announce(Action::Removed);
    }
}

const Selection kSelections[] = {
    {"select_null", Target::Null, true, UVA_STATUS_ERROR,
     "selectComponent Uva attempts to select nullpointer AVComponent id."},
    {"unselect_null", Target::Null, false, UVA_STATUS_ERROR,
     "unselectComponent Uva attempts to select nullpointer AVComponent id."},
    {"select_removed", Target::Removed, true, UVA_STATUS_ERROR,
     "selectComponent Uva attempts to select non-existing AVComponent id."},
    {"unselect_removed", Target::Removed, false, UVA_STATUS_ERROR,
     "unselectComponent Uva attempts to select invalid AVComponent id."},
    {"select_inactive", Target::Inactive, true, UVA_STATUS_ERROR, ""},
    {"select", Target::Active, true, UVA_STATUS_OK, ""},
    {"unselect", Target::Active, false, UVA_STATUS_OK, ""},
};

INSTANTIATE_TEST_SUITE_P(BothBackEnds, SelectionTest, Combine(ValuesIn(kKinds), ValuesIn(kSelections)),
                         [](const auto& info) {
                             return std::string(std::get<0>(info.param).name) + "_" + std::get<1>(info.param).name;
                         });

}  // namespace
