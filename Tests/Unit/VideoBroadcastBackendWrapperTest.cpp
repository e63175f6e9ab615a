#include <gmock/gmock.h>

#include <boost/make_shared.hpp>
#include <functional>
#include <memory>
#include <new>
#include <sstream>
#include <stdexcept>
#include <string>
#include <tuple>
#include <typeinfo>
#include <utility>
#include <vector>

#include "AvComponentWrapper.h"
#include "Support/DescribeEvents.h"
#include "Support/LiveObjects.h"
#include "Support/MediaStackMocks.h"
#include "Support/RecordingClients.h"
#include "Velmora/Exceptions.h"
#include "VideoBroadcastBackendWrapper.h"

namespace {
thread_local bool failNextNothrowArray = false;
}  // namespace

// Lets a test fail the next non-throwing array allocation; otherwise the usual allocation.
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    if (std::exchange(failNextNothrowArray, false)) {
        return nullptr;
    }
    try {
        return ::operator new[](size);
    } catch (...) {
        return nullptr;
    }
}

namespace {

using namespace ::testing;
using Velmora::BackendEvent;
using Velmora::ExceptionBase;
using namespace VelmoraTest;
using Mock = NiceMock<MockVideoBroadcastBackend>;
using Broadcast = Velmora::Wrapper::VideoBroadcastBackendWrapper;
using Hook = std::function<void()>;  // runs first inside the media stack's operation; a failing one throws
using Lines = std::vector<Matcher<Tlog::Record>>;
using Component = UVABackend::AVComponent;

const boost::shared_ptr<int> kChannel = boost::make_shared<int>(7);
const auto kName = [](const auto& info) { return std::string(info.param.name); };

MATCHER_P4(Packed, a, b, c, d, "") { return arg.x == a && arg.y == b && arg.width == c && arg.height == d; }

// Media stack answers: the hook runs first, then `value` is returned or stored into the out-parameter.
template <typename T>
auto Then(Hook hook, T value) {
    return [hook, value] {
        hook();
        return value;
    };
}
template <typename T>
auto Store(Hook hook, T value) {
    return [hook, value](auto& out) {
        hook();
        out = value;
    };
}

// The out-parameter holds `expected` after a success and is untouched after a failure.
template <typename T>
UVA_STATUS Out(UVA_STATUS status, const T& value, const T& expected) {
    EXPECT_EQ(value, status == UVA_STATUS_OK ? expected : T{});
    return status;
}

// A browser call that reads one value.
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

struct Operation {
    const char* name;
    int level;  // of the media stack's own failures
    std::function<void(Mock&, Hook)> expect;
    std::function<UVA_STATUS(Broadcast&)> call;
    UVA_STATUS status = UVA_STATUS_OK;
    std::string failed = "virtual function from IVideoBroadcastBackend failed: ";
};

// Each row: the media stack's call expected with its answer, and the browser's call.
const Operation kOperations[] = {
    {"initBackend_null", 5, [](Mock& stack, Hook hook) { EXPECT_CALL(stack, InitBackend("")).WillOnce(hook); },
     [](Broadcast& broadcast) { return broadcast.initBackend(nullptr); }},
    {"release", 5, [](Mock& stack, Hook hook) { EXPECT_CALL(stack, Release()).WillOnce(hook); },
     [](Broadcast& broadcast) { return broadcast.release(); }},
    {"setVideoWindow_crosswise", 5,
     [](Mock& stack, Hook hook) {
         EXPECT_CALL(stack, SetVideoWindow(Packed(10, 20, 400, 300))).WillOnce(Then(hook, false));
     },
     [](Broadcast& broadcast) { return broadcast.setVideoWindow(10, 20, 300, 400); }, UVA_STATUS_ERROR},
    {"setClipRect_16_bits", 5,
     [](Mock& stack, Hook hook) { EXPECT_CALL(stack, SetClipRect(Packed(4464, -1, 6, 5))).WillOnce(Then(hook, true)); },
     [](Broadcast& broadcast) { return broadcast.setClipRect(70000, -1, 5, 6); }},
    {"setVisibility", 5, [](Mock& stack, Hook hook) { EXPECT_CALL(stack, SetVisibility(true, false)).WillOnce(hook); },
     [](Broadcast& broadcast) { return broadcast.setVisibility(true, false); }},
    {"setVolume", 5, [](Mock& stack, Hook hook) { EXPECT_CALL(stack, SetVolume(0.25)).WillOnce(hook); },
     [](Broadcast& broadcast) { return broadcast.setVolume(0.25); }, UVA_STATUS_OK, "Impl functiond failed: "},
    {"getPlayState", 5, [](Mock& stack, Hook hook) { EXPECT_CALL(stack, GetPlayState(_)).WillOnce(Store(hook, 2)); },
     Reads(&Broadcast::getPlayState, Broadcast::PLAY_STATE_PRESENTING)},
    {"getCurrentChannel", 5,
     [](Mock& stack, Hook hook) {
         EXPECT_CALL(stack, GetCurrentChannel()).WillOnce([hook] {
             hook();
             return kChannel;
         });
     },
     Reads(&Broadcast::getCurrentChannel, static_cast<void*>(kChannel.get()))},
    {"setChannel_null_text", 5,
     [](Mock& stack, Hook hook) {
         EXPECT_CALL(stack, SetChannel(kChannel.get(), true, false, "", true, false)).WillOnce(hook);
     },
     [](Broadcast& broadcast) { return broadcast.setChannel(kChannel.get(), true, false, nullptr, true, false); }},
    {"getPlaybackOffset_unsigned", 2,
     [](Mock& stack, Hook hook) { EXPECT_CALL(stack, GetPlaybackOffset(_)).WillOnce(Store(hook, 4294967295u)); },
     Reads(&Broadcast::getPlaybackOffset, 4294967295.0)},
    {"getPlaybackSpeeds", 2,
     [](Mock& stack, Hook hook) {
         EXPECT_CALL(stack, GetPlaybackSpeeds(_)).WillOnce(Store(hook, std::vector<double>{-2, 1, 8}));
     },
     Speeds},
    {"recordNow_writes_no_text", 2,
     [](Mock& stack, Hook hook) { EXPECT_CALL(stack, RecordNow()).WillOnce(Then(hook, true)); },
     [](Broadcast& broadcast) {
         char* id = nullptr;
         return Out<char*>(broadcast.recordNow(60.0, id), id, nullptr);
     }},
    {"stopRecording", 2,
     [](Mock& stack, Hook hook) { EXPECT_CALL(stack, StopRecording()).WillOnce(Then(hook, false)); },
     [](Broadcast& broadcast) { return broadcast.stopRecording(); }, UVA_STATUS_ERROR},
    {"setPosition_truncates", 2,
     [](Mock& stack, Hook hook) { EXPECT_CALL(stack, SetPosition(12, Broadcast::POSITION_FROM_START)).WillOnce(hook); },
     [](Broadcast& broadcast) { return broadcast.setPosition(12.9, Broadcast::POSITION_FROM_START); }},
    {"setPosition_low_32_bits", 2,
     [](Mock& stack, Hook hook) {
         EXPECT_CALL(stack, SetPosition(2, Broadcast::POSITION_FROM_CURRENT)).WillOnce(hook);
     },
     [](Broadcast& broadcast) { return broadcast.setPosition(4294967298.7, Broadcast::POSITION_FROM_CURRENT); }},
    {"getRecordingState", 2,
     [](Mock& stack, Hook hook) { EXPECT_CALL(stack, GetRecordingState(_)).WillOnce(Store(hook, 2)); },
     Reads(&Broadcast::getRecordingState, Broadcast::RECORDING_STARTED)},
};

class BroadcastTest : public LiveObjectsTest {
protected:
    boost::shared_ptr<Mock> backend = boost::make_shared<Mock>();
    NiceMock<MockAvComponent> component;
    RecordingClient client;
    std::unique_ptr<Broadcast> wrapper = std::make_unique<Broadcast>(backend, &client);
};

class ForwardingTest : public BroadcastTest, public WithParamInterface<Operation> {};

TEST_P(ForwardingTest, Forward_StackAnswers) {
    GetParam().expect(*backend, [] {});
    EXPECT_EQ(GetParam().call(*wrapper), GetParam().status);
    EXPECT_EQ(kChannel.use_count(), 1) << "the wrapper keeps no share of the current channel";
    EXPECT_THAT(log.Records(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(EveryOperation, ForwardingTest, ValuesIn(kOperations), kName);

struct Failure {
    const char* name;
    Hook raise;
    UVA_STATUS status;
    std::function<Lines(const Operation&)> lines;
    boost::shared_ptr<Velmora::IBackend> (*impl)() = nullptr;  // a wrapper over this back-end instead
};

Lines Typed(const Operation& operation, int type, const std::string& text) {
    return {LogLine(operation.level, "Exception type " + std::to_string(type) + ": " + text)};
}

const char* const kCastFailed = "Exception occurred while performing IVideoBroadcastBackend cast.";

const Failure kFailures[] = {
    {"type2", [] { throw ExceptionBase(2, "no"); }, UVA_STATUS_ERROR_2, [](auto& op) { return Typed(op, 2, "no"); }},
    {"standard", [] { throw std::runtime_error("x"); }, UVA_STATUS_ERROR,
     [](auto& op) { return Lines{LogLine(5, op.failed + "x")}; }},
    {"no_backend", nullptr, UVA_STATUS_ERROR, [](auto& op) { return Typed(op, 1, kCastFailed); },
     [] { return boost::shared_ptr<Velmora::IBackend>(); }},
    {"media_backend", nullptr, UVA_STATUS_ERROR, [](auto& op) { return Typed(op, 1, kCastFailed); },
     [] { return boost::shared_ptr<Velmora::IBackend>(boost::make_shared<NiceMock<MockMediaBackend>>()); }},
};

class FailureTest : public BroadcastTest, public WithParamInterface<std::tuple<Operation, Failure>> {};

TEST_P(FailureTest, Forward_StackThrows) {
    const auto& [operation, failure] = GetParam();
    if (failure.impl != nullptr) {
        wrapper = std::make_unique<Broadcast>(failure.impl(), &client);
    } else {
        operation.expect(*backend, failure.raise);
    }
    EXPECT_EQ(operation.call(*wrapper), failure.status);
    EXPECT_THAT(log.Records("Velmora::VB"), ElementsAreArray(failure.lines(operation)));
}

INSTANTIATE_TEST_SUITE_P(EveryOperationAndFailure, FailureTest, Combine(ValuesIn(kOperations), ValuesIn(kFailures)),
                         [](const auto& info) {
                             return std::string(std::get<0>(info.param).name) + "_" + std::get<1>(info.param).name;
                         });

TEST_F(BroadcastTest, getPlaybackSpeeds_EmptyListOrNoMemory) {
    for (const bool emptyList : {true, false}) {
        EXPECT_CALL(*backend, GetPlaybackSpeeds(_)).WillOnce(Store([] {}, std::vector<double>(emptyList ? 0 : 2, 1.0)));
        failNextNothrowArray = !emptyList;
        double* speeds = nullptr;
        unsigned int count = 4;
        EXPECT_EQ(wrapper->getPlaybackSpeeds(speeds, count), UVA_STATUS_ERROR);
        EXPECT_FALSE(failNextNothrowArray) << "the array is allocated without throwing";
        EXPECT_EQ(std::make_pair(speeds, count), std::make_pair(static_cast<double*>(nullptr), 4u));
        const char* const text = emptyList ? "No speeds defined in backend." : "Memory allocation error.";
        EXPECT_THAT(log.Records(), ElementsAre(LogLine(2, std::string("Exception type 1: ") + text)));
        log.Clear();
    }
}

TEST_F(BroadcastTest, Destroy_HandleForgottenComponentsKept) {
    int handle = 0;
    wrapper->setWindowId(&handle);
    EXPECT_EQ(Broadcast::getBackendByVideoBroadcastHandle(&handle), wrapper.get());
    EXPECT_EQ(wrapper->GetVideoBroadcastBackendImpl(), backend);
    backend->Raise(new Velmora::ComponentChangedEvent(&component, Velmora::ComponentChangedEvent::Added));
    auto* shown =
        static_cast<Velmora::Wrapper::AvComponentWrapper*>(client.events.At<::ComponentChangedEvent>(0)->component);
    client.events.Clear();
    const long components = uvaLiveObjects().components;
    wrapper.reset();
    EXPECT_EQ(Broadcast::getBackendByVideoBroadcastHandle(&handle), nullptr);
    EXPECT_EQ(backend->events.num_slots(), 0u);
    EXPECT_EQ(backend.use_count(), 1);
    EXPECT_EQ(uvaLiveObjects().components, components);
    shown->BackendMarkUnused();
}

TEST_F(BroadcastTest, Construct_WithoutClient) {
    EXPECT_CALL(*backend, ConnectEvent(_)).Times(0);
    EXPECT_CALL(*backend, Stop());
    wrapper = std::make_unique<Broadcast>(backend, nullptr);
    EXPECT_EQ(wrapper->stop(), UVA_STATUS_OK);
    wrapper->VideoBroadcastBackendEvent(boost::make_shared<BackendEvent>(BackendEvent::BufferingIdle));
    EXPECT_THAT(log.Records("Velmora::VB"),
                ElementsAre(LogLine(5, "VideoBroadcastBackendWrapper Client is not set!"),
                            LogLine(5, "VideoBroadcastBackendEvent Event cannot be sent since client is not set!")));
}

struct Translation {
    const char* name;
    std::function<Velmora::BackendEvent*()> raise;
    std::string delivered;             // empty: nothing reaches the browser
    const char* notHandled = nullptr;  // the event name in the level-5 line
    std::string thrown = "";           // back to the media stack
};

class TranslationTest : public BroadcastTest, public WithParamInterface<Translation> {};

TEST_P(TranslationTest, Raise_EveryCode) {
    std::string thrown;
    try {
        backend->Raise(GetParam().raise());  // the media stack's event and its texts are gone from here on
    } catch (const ExceptionBase& failure) {
        thrown = failure.What();
    }
    EXPECT_EQ(thrown, GetParam().thrown);
    EXPECT_EQ(client.events.Count() == 0 ? "" : Describe(client.events.At(0)), GetParam().delivered);
    const std::string line =
        std::string("VideoBroadcastBackendEvent not handled. Event ID: ") + Text(GetParam().notHandled);
    EXPECT_THAT(log.Records("Velmora::VB"),
                ElementsAreArray(GetParam().notHandled ? Lines{LogLine(5, line)} : Lines{}));
}

BackendEvent* Plain(BackendEvent::EventType type) { return new BackendEvent(type); }
void* const kHandle = reinterpret_cast<void*>(0x1234);

INSTANTIATE_TEST_SUITE_P(
    EveryCode, TranslationTest,
    ValuesIn(std::vector<Translation>{
        {"rating_error", [] { return new Velmora::ParentalRatingErrorEvent("c1", nullptr, 15); },
         "ParentalRatingErrorEvent 11 c1 15 null"},
        {"rating_change", [] { return new Velmora::ParentalRatingChangeEvent(nullptr, "d1", 12); },
         "ParentalRatingChangeEvent 12 null 12 d1"},
        {"playstate", [] { return new Velmora::BroadcastPlaystateChangeEvent(2, 5); },
         "BroadcastPlaystateChangeEvent 13 2 5"},
        {"channel_error", [] { return new Velmora::ChannelChangeErrorEvent(kHandle, 9); },
         "ChannelChangeErrorEvent 14 0x1234 9"},
        {"channel_changed", [] { return new Velmora::ChannelChangeSucceededEvent(kHandle); },
         "ChannelChangeSucceededEvent 15 0x1234"},
        {"programmes", [] { return Plain(BackendEvent::ProgrammesChanged); }, "UVAEvent 16"},
        {"recording_error", [] { return new Velmora::RecordingErrorEvent(3, "r1"); }, "RecordingErrorEvent 17 3 r1"},
        {"recording_state", [] { return new Velmora::RecordingStateChangeEvent(2, nullptr); },
         "RecordingStateChangeEvent 18 2 null"},
        {"idle", [] { return Plain(BackendEvent::BufferingIdle); }, "UVAEvent 21"},
        {"underrun_without_level", [] { return new Velmora::BufferingStreamUnderrunEvent(40); }, "UVAEvent 22"},
        {"subtitles_null", [] { return new Velmora::SubtitlesChangedEvent(nullptr); }, "SubtitlesChangedEvent 24 null"},
        {"media_only", [] { return Plain(BackendEvent::PlaybackFinished); }, "", "PlaybackFinished"},
        {"drm_rights", [] { return new Velmora::DRMRightsErrorEvent(1, "c", "d", "u"); }, "", "DRMRightsError"},
        {"end_marker", [] { return Plain(BackendEvent::LastEvent); }, "", "LastEvent"},
        {"unknown", [] { return Plain(static_cast<BackendEvent::EventType>(30)); }, "", "Unknown event ID"},
        {"wrong_class", [] { return Plain(BackendEvent::SubtitlesChanged); }, "", nullptr,
         "Dynamic cast of Velmora::BackendEventPtr failed."}}),
    kName);

}  // namespace
