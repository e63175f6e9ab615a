#pragma once
// A broadcast television back-end of the media stack.
//
// Calls arrive on the browser's thread, one at a time; events on the media stack's threads (see
// IBackend). The media stack must not raise component events while the browser selects components:
// the library keeps its component map without a lock. Failures are reported by throwing an
// ExceptionBase.

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <string>
#include <vector>

#include "Uva/UVABackend.h"
#include "Velmora/IBackend.h"

namespace Velmora {

class IAvComponent;

class VELMORA_EXPORT IVideoBroadcastBackend : public IBackend {
public:
    ~IVideoBroadcastBackend() override;

    virtual void InitBackend(const std::string& id) = 0;
    virtual void Release() = 0;
    virtual bool SetVideoWindow(const VideoRect& rect) = 0;
    virtual bool SetClipRect(const VideoRect& rect) = 0;
    virtual void SetFullScreen(bool fullScreen) = 0;
    virtual void SetVisibility(bool visible, bool unmute) = 0;
    virtual void SetVolume(double volume) = 0;
    virtual void NextChannel() = 0;
    virtual void PreviousChannel() = 0;
    virtual void Stop() = 0;
    virtual void SelectComponent(IAvComponent* component) = 0;
    virtual void UnselectComponent(IAvComponent* component) = 0;
    virtual void GetPlayState(std::int32_t& state) = 0;
    virtual void OnListenerChanged(const std::string& listener) = 0;
    // The browser gets the raw pointer; the media stack keeps the channel alive while it is current.
    virtual boost::shared_ptr<void> GetCurrentChannel() = 0;
    virtual void SetChannel(void* channel, bool trickplay, bool keepRecording, const std::string& contentAccess,
                            bool quiet, bool offsetReset) = 0;
    virtual void BindToCurrentChannel() = 0;
    virtual void GetPlaybackOffset(std::uint32_t& offset) = 0;
    virtual void GetMaxOffset(std::uint32_t& offset) = 0;
    virtual void GetPlaybackSpeeds(std::vector<double>& speeds) = 0;
    virtual bool RecordNow() = 0;
    virtual bool StopRecording() = 0;
    virtual void Pause() = 0;
    virtual void Resume() = 0;
    virtual void SetPlaybackSpeed(double speed) = 0;
    virtual void SetPosition(std::int32_t position, UVABackend::PositionReference reference) = 0;
    virtual void StopTimeShift() = 0;
    virtual void GetRecordingState(std::int32_t& state) = 0;
    virtual void GetPosition(std::uint32_t& position) = 0;
    virtual void GetPlaybackSpeed(double& speed) = 0;
};

}  // namespace Velmora
