#include <gmock/gmock.h>

#include "Recorders.h"
#include "ReferenceBroadcastBackend.h"
#include "Uva/UVAVideoBroadcastBackend.h"
#include "Velmora/Exceptions.h"

namespace {

using ::testing::ElementsAreArray;
using Velmora::Reference::ReferenceBroadcastBackend;
using Velmora::Reference::ReferenceComponent;
using namespace ReferenceTest;

using Backend = UVAVideoBroadcastBackend;

class BroadcastBackendTest : public ::testing::Test {
protected:
    void Steps(int count) { ReferenceTest::Steps(*backend, count); }
    // The events the last browser calls led to, without the components' own.
    std::vector<BackendEvent::EventType> Raised() {
        events.Clear();
        backend->Step();
        std::vector<BackendEvent::EventType> raised;
        for (const auto type : events.Types()) {
            if (type != BackendEvent::ComponentChanged) {
                raised.push_back(type);
            }
        }
        return raised;
    }
    std::uint32_t Offset() {
        std::uint32_t offset = 0;
        backend->GetPlaybackOffset(offset);
        return offset;
    }
    void* Channel(std::size_t index) const { return backend->ChannelHandle(index); }

    Velmora::Reference::StackOptions options = ManualOptions();
    boost::shared_ptr<ReferenceBroadcastBackend> backend =
        ReferenceBroadcastBackend::Create(options, std::make_shared<FaultInjector>());
    EventRecorder events{*backend};
};

const std::vector<BackendEvent::EventType> kTuned{
    BackendEvent::BroadcastPlaystateChange, BackendEvent::ChannelChangeSucceeded,
    BackendEvent::BroadcastPlaystateChange, BackendEvent::ProgrammesChanged};
const std::vector<BackendEvent::EventType> kNotTuned{BackendEvent::BroadcastPlaystateChange,
                                                     BackendEvent::ChannelChangeError,
                                                     BackendEvent::BroadcastPlaystateChange};

struct ZapCase {
    const char* name;
    std::function<void(ReferenceBroadcastBackend&)> zap;
    std::vector<BackendEvent::EventType> raised;
    std::size_t components;
    const char* channel;
};

class Zapping : public BroadcastBackendTest, public ::testing::WithParamInterface<ZapCase> {};

TEST_P(Zapping, ReportsTheChangeWithItsComponents) {
    GetParam().zap(*backend);
    EXPECT_THAT(Raised(), ElementsAreArray(GetParam().raised));
    EXPECT_EQ(backend->Components().size(), GetParam().components);
    EXPECT_EQ(backend->GetStatus().channel, GetParam().channel);
}

int kNotAChannel = 0;

void Tune(ReferenceBroadcastBackend& backend, void* channel) {
    backend.SetChannel(channel, false, false, "", false, false);
}

std::vector<BackendEvent::EventType> With(std::vector<BackendEvent::EventType> events, BackendEvent::EventType extra) {
    events.insert(events.end() - 1, extra);
    return events;
}

INSTANTIATE_TEST_SUITE_P(
    Channels, Zapping,
    ::testing::Values(
        ZapCase{"SetChannel", [](auto& b) { Tune(b, b.ChannelHandle(1)); }, kTuned, 2, "Velmora News"},
        ZapCase{"NextFromNoChannel", [](auto& b) { b.NextChannel(); }, kTuned, 4, "Velmora One"},
        ZapCase{"PreviousWrapsToTheLastChannelWhichHasNoSignal", [](auto& b) { b.PreviousChannel(); }, kNotTuned, 0,
                ""},
        ZapCase{"BindToCurrentChannel", [](auto& b) { b.BindToCurrentChannel(); }, kTuned, 4, "Velmora One"},
        ZapCase{"RatedAboveTheLimit", [](auto& b) { Tune(b, b.ChannelHandle(2)); },
                With(kTuned, BackendEvent::ParentalRatingError), 5, "Velmora Cinema"},
        ZapCase{"UnknownHandle", [](auto& b) { Tune(b, &kNotAChannel); }, {BackendEvent::ChannelChangeError}, 0, ""}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(BroadcastBackendTest, AFailedChangeNamesTheChannelAndKeepsThePreviousOneOn) {
    backend->NextChannel();
    backend->Step();
    Tune(*backend, Channel(3));
    EXPECT_EQ(Raised(), kNotTuned);
    const auto error = events.Of<Velmora::ChannelChangeErrorEvent>().at(0);
    EXPECT_EQ(error->channel, Channel(3));
    EXPECT_EQ(error->errorState, ReferenceBroadcastBackend::kCannotTune);
    const auto states = events.Of<Velmora::BroadcastPlaystateChangeEvent>();
    EXPECT_EQ(states.back()->state, Backend::PLAY_STATE_PRESENTING);
    EXPECT_EQ(states.back()->error, ReferenceBroadcastBackend::kCannotTune);
    EXPECT_EQ(backend->GetCurrentChannel().get(), Channel(0));
}

TEST_F(BroadcastBackendTest, TimeShiftFallsBehindLiveWhilePausedAndCatchesUpAtHigherSpeed) {
    EXPECT_THROW(backend->Pause(), ExceptionBase) << "nothing to pause before a channel is on";
    backend->BindToCurrentChannel();
    Steps(10);
    backend->Pause();
    Steps(20);
    EXPECT_EQ(Offset(), 2u);
    std::uint32_t position = 0, maxOffset = 0;
    backend->GetPosition(position);
    backend->GetMaxOffset(maxOffset);
    EXPECT_EQ(maxOffset, 3u);
    EXPECT_EQ(position, 1u);

    EXPECT_THROW(backend->SetPlaybackSpeed(3.0), ExceptionBase);
    backend->SetPlaybackSpeed(4.0);
    Steps(6);
    EXPECT_EQ(backend->GetStatus().speed, 4.0);
    backend->Step();
    EXPECT_EQ(Offset(), 0u);
    EXPECT_EQ(backend->GetStatus().speed, 1.0) << "live cannot be overtaken";

    backend->SetPosition(0, UVABackend::POSITION_FROM_START);
    EXPECT_EQ(Offset(), 3u);
    backend->SetPosition(-1, UVABackend::POSITION_FROM_END);
    EXPECT_EQ(Offset(), 1u);
    backend->SetPosition(-60, UVABackend::POSITION_FROM_END);
    EXPECT_EQ(Offset(), 3u) << "no further back than the buffer reaches";
}

TEST_F(BroadcastBackendTest, RecordsOneRecordingAtATimeUntilStoppedOrTheStorageIsFull) {
    EXPECT_FALSE(backend->RecordNow()) << "nothing to record before a channel is on";
    backend->BindToCurrentChannel();
    ASSERT_TRUE(backend->RecordNow());
    EXPECT_FALSE(backend->RecordNow());
    EXPECT_TRUE(backend->StopRecording());
    EXPECT_FALSE(backend->StopRecording());
    Raised();
    const auto states = events.Of<Velmora::RecordingStateChangeEvent>();
    ASSERT_EQ(states.size(), 2u);
    EXPECT_EQ(states[0]->state, Backend::RECORDING_STARTED);
    EXPECT_EQ(states[1]->state, Backend::RECORDING_COMPLETED);
    EXPECT_STREQ(states[1]->recordingId, "rec-1");

    options.recordingCapacitySeconds = 1;
    backend = ReferenceBroadcastBackend::Create(options, std::make_shared<FaultInjector>());
    EventRecorder full(*backend);
    backend->BindToCurrentChannel();
    backend->RecordNow();
    Steps(11);
    const auto error = full.Of<Velmora::RecordingErrorEvent>();
    ASSERT_EQ(error.size(), 1u);
    EXPECT_EQ(error[0]->error, ReferenceBroadcastBackend::kInsufficientStorage);
    EXPECT_EQ(backend->GetStatus().recordingState, Backend::RECORDING_ERROR);
}

TEST_F(BroadcastBackendTest, SelectingSubtitlesReportsTheirLanguageAndUnselectingReportsNone) {
    backend->BindToCurrentChannel();
    backend->Step();
    const auto subtitles = backend->Components().back();
    ASSERT_EQ(subtitles->GetKind(), ReferenceComponent::Subtitle);
    backend->SelectComponent(subtitles.get());
    backend->UnselectComponent(subtitles.get());
    EXPECT_THAT(Raised(), ElementsAre(BackendEvent::SubtitlesChanged, BackendEvent::SubtitlesChanged));
    const auto changes = events.Of<Velmora::SubtitlesChangedEvent>();
    EXPECT_STREQ(changes[0]->language, "eng");
    EXPECT_EQ(changes[1]->language, nullptr);
}

}  // namespace
