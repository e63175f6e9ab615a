#include "ReferenceBroadcastBackend.h"

#include <algorithm>
#include <utility>

#include "Uva/UVAVideoBroadcastBackend.h"
#include "Velmora/Exceptions.h"

namespace Velmora {
namespace Reference {

namespace {

const std::vector<double> kSpeeds = {-8.0, -4.0, -2.0, -1.0, 0.0, 1.0, 2.0, 4.0, 8.0};

std::vector<boost::shared_ptr<ChannelSpec>> ChannelList(const std::vector<ChannelSpec>& channels) {
    std::vector<boost::shared_ptr<ChannelSpec>> list;
    for (const auto& channel : channels) {
        list.push_back(boost::shared_ptr<ChannelSpec>(new ChannelSpec(channel)));
    }
    return list;
}

bool HasArea(const VideoRect& rect) { return rect.width > 0 && rect.height > 0; }

std::uint32_t WholeSeconds(double ms) { return static_cast<std::uint32_t>(ms / 1000.0); }

}  // namespace

ReferenceBroadcastBackend::ReferenceBroadcastBackend(const StackOptions& options,
                                                     std::shared_ptr<FaultInjector> faults_)
    : channels(ChannelList(options.channels)),
      parentalRatingLimit(options.parentalRatingLimit),
      timeShiftMs(options.timeShiftSeconds * 1000.0),
      recordingCapacityMs(options.recordingCapacitySeconds * 1000.0),
      periodMs(static_cast<double>(options.stepPeriod.count())),
      faults(std::move(faults_)),
      playState(UVAVideoBroadcastBackend::PLAY_STATE_UNREALIZED),
      recordingState(UVAVideoBroadcastBackend::RECORDING_UNREALIZED) {}

boost::shared_ptr<ReferenceBroadcastBackend> ReferenceBroadcastBackend::Create(const StackOptions& options,
                                                                               std::shared_ptr<FaultInjector> faults) {
    const boost::shared_ptr<ReferenceBroadcastBackend> backend(
        new ReferenceBroadcastBackend(options, std::move(faults)));
    if (options.clock == Clock::Threaded) {
        backend->thread = StepThread::For(backend, options.stepPeriod);
    }
    return backend;
}

ReferenceBroadcastBackend::~ReferenceBroadcastBackend() {
    // Stop the thread before any member goes: no event is raised once the destructor has begun.
    thread.reset();
}

void ReferenceBroadcastBackend::Step() {
    const std::lock_guard<std::mutex> steppingLock(stepping);
    {
        const std::lock_guard<std::mutex> lock(mutex);
        Advance();
    }
    outbox.Deliver();
}

void* ReferenceBroadcastBackend::ChannelHandle(std::size_t index) const {
    return index < channels.size() ? channels[index].get() : nullptr;
}

ReferenceBroadcastBackend::Status ReferenceBroadcastBackend::GetStatus() const {
    const std::lock_guard<std::mutex> lock(mutex);
    Status status;
    status.channel = current < 0 ? std::string() : channels[current]->name;
    status.playState = playState;
    status.recordingState = recordingState;
    status.recordingId = recordingId;
    status.offsetSeconds = offsetMs / 1000.0;
    status.speed = speed;
    status.eventsRaised = outbox.Raised();
    return status;
}

std::vector<ComponentSet::Component> ReferenceBroadcastBackend::Components() const {
    const std::lock_guard<std::mutex> lock(mutex);
    return components.List();
}

// ---- Time, channels and recordings ----------------------------------------------------------------

void ReferenceBroadcastBackend::Advance() {
    if (playState == UVAVideoBroadcastBackend::PLAY_STATE_PRESENTING) {
        presentedMs += periodMs;
        // Below normal speed the playing point falls behind live, above it catches up.
        offsetMs += periodMs * (1.0 - speed);
        if (offsetMs <= 0.0) {
            offsetMs = 0.0;
            speed = std::min(speed, 1.0);  // live cannot be overtaken
        }
        if (offsetMs >= MaxOffsetMs()) {
            offsetMs = MaxOffsetMs();
            speed = speed < 0.0 ? 1.0 : speed;  // rewinding ends at the start of the buffer
        }
    }
    if (recordingState == UVAVideoBroadcastBackend::RECORDING_STARTED) {
        recordedMs += periodMs;
        if (recordedMs > recordingCapacityMs) {
            outbox.Post(new RecordingErrorEvent(kInsufficientStorage, recordingId.c_str()));
            EndRecording(UVAVideoBroadcastBackend::RECORDING_ERROR);
        }
    }
}

void ReferenceBroadcastBackend::Zap(int direction) {
    if (channels.empty()) {
        throw ExceptionBase(ExceptionBase::InvalidState, "the channel list is empty");
    }
    const int count = static_cast<int>(channels.size());
    const int next = current < 0 ? (direction > 0 ? 0 : count - 1) : (current + direction + count) % count;
    Tune(static_cast<std::size_t>(next), false);
}

void ReferenceBroadcastBackend::Tune(std::size_t index, bool keepRecording) {
    const ChannelSpec& channel = *channels[index];
    void* handle = channels[index].get();
    outbox.Post(new BroadcastPlaystateChangeEvent(UVAVideoBroadcastBackend::PLAY_STATE_CONNECTING, 0));
    if (!channel.receivable) {
        // The channel that was on (if any) goes on.
        outbox.Post(new ChannelChangeErrorEvent(handle, kCannotTune));
        outbox.Post(new BroadcastPlaystateChangeEvent(playState, kCannotTune));
        return;
    }
    if (recordingState == UVAVideoBroadcastBackend::RECORDING_STARTED && !keepRecording) {
        EndRecording(UVAVideoBroadcastBackend::RECORDING_COMPLETED);
    }
    components.RemoveAll(outbox);
    current = static_cast<int>(index);
    playState = UVAVideoBroadcastBackend::PLAY_STATE_PRESENTING;
    presentedMs = 0.0;
    offsetMs = 0.0;
    speed = 1.0;
    outbox.Post(new ChannelChangeSucceededEvent(handle));
    outbox.Post(new BroadcastPlaystateChangeEvent(playState, 0));
    components.AddStream(outbox, channel.audioLanguages, channel.subtitleLanguages);
    if (channel.parentalRating > parentalRatingLimit) {
        outbox.Post(new ParentalRatingErrorEvent(channel.name.c_str(), nullptr, channel.parentalRating));
    } else if (channel.parentalRating > 0) {
        outbox.Post(new ParentalRatingChangeEvent(channel.name.c_str(), nullptr, channel.parentalRating));
    }
    outbox.Post(new BackendEvent(BackendEvent::ProgrammesChanged));
}

// Stops presenting; the channel stays current unless the back-end is released.
void ReferenceBroadcastBackend::LeaveChannel(std::int32_t newPlayState) {
    components.RemoveAll(outbox);
    presentedMs = 0.0;
    offsetMs = 0.0;
    speed = 1.0;
    if (playState != newPlayState) {
        playState = newPlayState;
        outbox.Post(new BroadcastPlaystateChangeEvent(playState, 0));
    }
}

void ReferenceBroadcastBackend::EndRecording(std::int32_t state) {
    recordingState = state;
    outbox.Post(new RecordingStateChangeEvent(state, recordingId.c_str()));
}

void ReferenceBroadcastBackend::RequirePresenting() const {
    if (playState != UVAVideoBroadcastBackend::PLAY_STATE_PRESENTING) {
        throw ExceptionBase(ExceptionBase::InvalidState, "time-shift needs a presented channel");
    }
}

double ReferenceBroadcastBackend::MaxOffsetMs() const { return std::min(presentedMs, timeShiftMs); }

// ---- The media stack's operations -----------------------------------------------------------------

boost::signals2::connection ReferenceBroadcastBackend::ConnectEvent(const EventSlot& slot) {
    faults->Check(__func__);
    return outbox.Connect(slot);
}

void ReferenceBroadcastBackend::InitBackend(const std::string& /*id*/) { faults->Check(__func__); }

void ReferenceBroadcastBackend::Release() {
    faults->Check(__func__);
    const std::lock_guard<std::mutex> lock(mutex);
    if (recordingState == UVAVideoBroadcastBackend::RECORDING_STARTED) {
        EndRecording(UVAVideoBroadcastBackend::RECORDING_COMPLETED);
    }
    LeaveChannel(UVAVideoBroadcastBackend::PLAY_STATE_UNREALIZED);
    current = -1;
}

bool ReferenceBroadcastBackend::SetVideoWindow(const VideoRect& rect) {
    faults->Check(__func__);
    return HasArea(rect);
}

bool ReferenceBroadcastBackend::SetClipRect(const VideoRect& rect) {
    faults->Check(__func__);
    return HasArea(rect);
}

void ReferenceBroadcastBackend::SetFullScreen(bool /*fullScreen*/) { faults->Check(__func__); }

void ReferenceBroadcastBackend::SetVisibility(bool /*visible*/, bool /*unmute*/) { faults->Check(__func__); }

void ReferenceBroadcastBackend::SetVolume(double volume) {
    faults->Check(__func__);
    // Broadcast volume runs from 0 to 100; the reference has no audio output to apply it to.
    if (volume < 0.0 || volume > 100.0) {
        throw ExceptionBase(ExceptionBase::GenericError, "volume outside 0 to 100");
    }
}

void ReferenceBroadcastBackend::NextChannel() {
    faults->Check(__func__);
    const std::lock_guard<std::mutex> lock(mutex);
    Zap(+1);
}

void ReferenceBroadcastBackend::PreviousChannel() {
    faults->Check(__func__);
    const std::lock_guard<std::mutex> lock(mutex);
    Zap(-1);
}

void ReferenceBroadcastBackend::Stop() {
    faults->Check(__func__);
    const std::lock_guard<std::mutex> lock(mutex);
    if (current >= 0) {
        LeaveChannel(UVAVideoBroadcastBackend::PLAY_STATE_STOPPED);
    }
}

void ReferenceBroadcastBackend::SelectComponent(IAvComponent* component) {
    faults->Check(__func__);
    const std::lock_guard<std::mutex> lock(mutex);
    const ReferenceComponent* chosen = components.Select(outbox, component);
    if (chosen == nullptr) {
        throw ExceptionBase(ExceptionBase::GenericError, "not a component of this channel");
    }
    if (chosen->GetKind() == ReferenceComponent::Subtitle) {
        outbox.Post(new SubtitlesChangedEvent(chosen->Language().c_str()));
    }
}

void ReferenceBroadcastBackend::UnselectComponent(IAvComponent* component) {
    faults->Check(__func__);
    const std::lock_guard<std::mutex> lock(mutex);
    const ReferenceComponent* chosen = components.Unselect(outbox, component);
    if (chosen == nullptr) {
        throw ExceptionBase(ExceptionBase::GenericError, "not a component of this channel");
    }
    if (chosen->GetKind() == ReferenceComponent::Subtitle) {
        outbox.Post(new SubtitlesChangedEvent(nullptr));  // no language: subtitles are off
    }
}

void ReferenceBroadcastBackend::GetPlayState(std::int32_t& state) {
    faults->Check(__func__);
    const std::lock_guard<std::mutex> lock(mutex);
    state = playState;
}

void ReferenceBroadcastBackend::OnListenerChanged(const std::string& /*listener*/) { faults->Check(__func__); }

boost::shared_ptr<void> ReferenceBroadcastBackend::GetCurrentChannel() {
    faults->Check(__func__);
    const std::lock_guard<std::mutex> lock(mutex);
    return current < 0 ? boost::shared_ptr<void>() : channels[current];
}

void ReferenceBroadcastBackend::SetChannel(void* channel, bool /*trickplay*/, bool keepRecording,
                                           const std::string& /*contentAccess*/, bool /*quiet*/, bool /*offsetReset*/) {
    faults->Check(__func__);
    const std::lock_guard<std::mutex> lock(mutex);
    const auto found =
        std::find_if(channels.begin(), channels.end(),
                     [channel](const boost::shared_ptr<ChannelSpec>& known) { return known.get() == channel; });
    if (found == channels.end()) {
        outbox.Post(new ChannelChangeErrorEvent(channel, kUnknownChannel));
        return;
    }
    Tune(static_cast<std::size_t>(found - channels.begin()), keepRecording);
}

void ReferenceBroadcastBackend::BindToCurrentChannel() {
    faults->Check(__func__);
    const std::lock_guard<std::mutex> lock(mutex);
    if (playState == UVAVideoBroadcastBackend::PLAY_STATE_PRESENTING) {
        return;
    }
    if (channels.empty()) {
        throw ExceptionBase(ExceptionBase::InvalidState, "the channel list is empty");
    }
    // The television shows its first channel until the browser chooses another.
    Tune(current < 0 ? 0 : static_cast<std::size_t>(current), true);
}

void ReferenceBroadcastBackend::GetPlaybackOffset(std::uint32_t& offset) {
    faults->Check(__func__);
    const std::lock_guard<std::mutex> lock(mutex);
    offset = WholeSeconds(offsetMs);
}

void ReferenceBroadcastBackend::GetMaxOffset(std::uint32_t& offset) {
    faults->Check(__func__);
    const std::lock_guard<std::mutex> lock(mutex);
    offset = WholeSeconds(MaxOffsetMs());
}

void ReferenceBroadcastBackend::GetPlaybackSpeeds(std::vector<double>& speeds) {
    faults->Check(__func__);
    speeds = kSpeeds;
}

bool ReferenceBroadcastBackend::RecordNow() {
    faults->Check(__func__);
    const std::lock_guard<std::mutex> lock(mutex);
    if (playState != UVAVideoBroadcastBackend::PLAY_STATE_PRESENTING ||
        recordingState == UVAVideoBroadcastBackend::RECORDING_STARTED) {
        return false;
    }
    recordingId = "rec-" + std::to_string(++recordings);
    recordedMs = 0.0;
    recordingState = UVAVideoBroadcastBackend::RECORDING_STARTED;
    outbox.Post(new RecordingStateChangeEvent(recordingState, recordingId.c_str()));
    return true;
}

bool ReferenceBroadcastBackend::StopRecording() {
    faults->Check(__func__);
    const std::lock_guard<std::mutex> lock(mutex);
    if (recordingState != UVAVideoBroadcastBackend::RECORDING_STARTED) {
        return false;
    }
    EndRecording(UVAVideoBroadcastBackend::RECORDING_COMPLETED);
    return true;
}

void ReferenceBroadcastBackend::Pause() {
    faults->Check(__func__);
    const std::lock_guard<std::mutex> lock(mutex);
    RequirePresenting();
    speed = 0.0;
}

void ReferenceBroadcastBackend::Resume() {
    faults->Check(__func__);
    const std::lock_guard<std::mutex> lock(mutex);
    RequirePresenting();
    speed = 1.0;
}

void ReferenceBroadcastBackend::SetPlaybackSpeed(double newSpeed) {
    faults->Check(__func__);
    const std::lock_guard<std::mutex> lock(mutex);
    RequirePresenting();
    if (std::find(kSpeeds.begin(), kSpeeds.end(), newSpeed) == kSpeeds.end()) {
        throw ExceptionBase(ExceptionBase::NotSupported, "speed " + std::to_string(newSpeed) + " is not offered");
    }
    speed = newSpeed;
}

void ReferenceBroadcastBackend::SetPosition(std::int32_t position, UVABackend::PositionReference reference) {
    faults->Check(__func__);
    const std::lock_guard<std::mutex> lock(mutex);
    RequirePresenting();
    // Positions count seconds from the start of the buffer; from the end they are zero or negative.
    const double ms = position * 1000.0;
    double target = offsetMs;
    switch (reference) {
        case UVABackend::POSITION_FROM_START: target = MaxOffsetMs() - ms; break;
        case UVABackend::POSITION_FROM_CURRENT: target = offsetMs - ms; break;
        case UVABackend::POSITION_FROM_END: target = -ms; break;
    }
    offsetMs = std::clamp(target, 0.0, MaxOffsetMs());
}

void ReferenceBroadcastBackend::StopTimeShift() {
    faults->Check(__func__);
    const std::lock_guard<std::mutex> lock(mutex);
    offsetMs = 0.0;
    speed = 1.0;
}

void ReferenceBroadcastBackend::GetRecordingState(std::int32_t& state) {
    faults->Check(__func__);
    const std::lock_guard<std::mutex> lock(mutex);
    state = recordingState;
}

void ReferenceBroadcastBackend::GetPosition(std::uint32_t& position) {
    faults->Check(__func__);
    const std::lock_guard<std::mutex> lock(mutex);
    position = WholeSeconds(MaxOffsetMs() - offsetMs);
}

void ReferenceBroadcastBackend::GetPlaybackSpeed(double& currentSpeed) {
    faults->Check(__func__);
    const std::lock_guard<std::mutex> lock(mutex);
    currentSpeed = speed;
}

}  // namespace Reference
}  // namespace Velmora
