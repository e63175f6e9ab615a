#pragma once
// A broadcast television back-end with a channel list, time-shift and recording.
//
// A channel handle is the address of an entry of the channel list; the browser receives it from
// GetCurrentChannel and change events, and a scenario from ChannelHandle(). Tuning reports connecting,
// then either success (the new channel's components, its parental rating and programmes) or a channel
// change error, after which the previous channel goes on. While a channel is presented a time-shift
// buffer fills; pausing, trick speeds and seeks move the playing point behind live, in whole seconds.
// A recording runs until it is stopped or the storage is full. Events are raised only from Step().

#include <boost/enable_shared_from_this.hpp>
#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "ComponentSet.h"
#include "FaultInjector.h"
#include "Outbox.h"
#include "StackOptions.h"
#include "StepThread.h"
#include "Velmora/IVideoBroadcastBackend.h"

namespace Velmora {
namespace Reference {

class ReferenceBroadcastBackend : public IVideoBroadcastBackend,
                                  public boost::enable_shared_from_this<ReferenceBroadcastBackend> {
public:
    // Channel change error states, as OIPF numbers them.
    static constexpr std::int32_t kCannotTune = 1;  // no signal
    static constexpr std::int32_t kUnknownChannel = 5;
    // Recording error: the storage is full.
    static constexpr std::int32_t kInsufficientStorage = 0;

    struct Status {
        std::string channel;  // name of the current channel; empty when none
        std::int32_t playState = 0;
        std::int32_t recordingState = 0;
        std::string recordingId;
        double offsetSeconds = 0.0;  // behind live
        double speed = 1.0;
        std::uint32_t eventsRaised = 0;
    };

    static boost::shared_ptr<ReferenceBroadcastBackend> Create(const StackOptions& options,
                                                               std::shared_ptr<FaultInjector> faults);
    ~ReferenceBroadcastBackend() override;

    // Moves time on by one period and raises what it (and the browser calls since the last step) led
    // to, on the calling thread, which holds a shared pointer to the back-end meanwhile. Not to be
    // called from inside one of the back-end's own events.
    void Step();

    // The handle of the channel at `index` in the channel list; null beyond its end.
    void* ChannelHandle(std::size_t index) const;
    Status GetStatus() const;
    std::vector<ComponentSet::Component> Components() const;

    boost::signals2::connection ConnectEvent(const EventSlot& slot) override;
    void InitBackend(const std::string& id) override;
    void Release() override;
    bool SetVideoWindow(const VideoRect& rect) override;
    bool SetClipRect(const VideoRect& rect) override;
    void SetFullScreen(bool fullScreen) override;
    void SetVisibility(bool visible, bool unmute) override;
    void SetVolume(double volume) override;
    void NextChannel() override;
    void PreviousChannel() override;
    void Stop() override;
    void SelectComponent(IAvComponent* component) override;
    void UnselectComponent(IAvComponent* component) override;
    void GetPlayState(std::int32_t& state) override;
    void OnListenerChanged(const std::string& listener) override;
    boost::shared_ptr<void> GetCurrentChannel() override;
    void SetChannel(void* channel, bool trickplay, bool keepRecording, const std::string& contentAccess, bool quiet,
                    bool offsetReset) override;
    void BindToCurrentChannel() override;
    void GetPlaybackOffset(std::uint32_t& offset) override;
    void GetMaxOffset(std::uint32_t& offset) override;
    void GetPlaybackSpeeds(std::vector<double>& speeds) override;
    bool RecordNow() override;
    bool StopRecording() override;
    void Pause() override;
    void Resume() override;
    void SetPlaybackSpeed(double speed) override;
    void SetPosition(std::int32_t position, UVABackend::PositionReference reference) override;
    void StopTimeShift() override;
    void GetRecordingState(std::int32_t& state) override;
    void GetPosition(std::uint32_t& position) override;
    void GetPlaybackSpeed(double& speed) override;

private:
    ReferenceBroadcastBackend(const StackOptions& options, std::shared_ptr<FaultInjector> faults);

    // All of these run with `mutex` held.
    void Advance();
    void Zap(int direction);
    void Tune(std::size_t index, bool keepRecording);
    void LeaveChannel(std::int32_t newPlayState);
    void EndRecording(std::int32_t state);
    void RequirePresenting() const;
    double MaxOffsetMs() const;

    const std::vector<boost::shared_ptr<ChannelSpec>> channels;
    const std::int32_t parentalRatingLimit;
    const double timeShiftMs;
    const double recordingCapacityMs;
    const double periodMs;
    const std::shared_ptr<FaultInjector> faults;

    mutable std::mutex mutex;
    int current = -1;
    std::int32_t playState = 0;
    double presentedMs = 0.0;
    double offsetMs = 0.0;
    double speed = 1.0;
    std::int32_t recordingState = 0;
    std::string recordingId;
    double recordedMs = 0.0;
    std::uint32_t recordings = 0;
    ComponentSet components;

    std::mutex stepping;
    Outbox<BackendEvent> outbox;
    std::unique_ptr<StepThread> thread;  // last: the first member to go
};

}  // namespace Reference
}  // namespace Velmora
