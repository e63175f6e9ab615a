#pragma once
// A media element or Media Source back-end of the media stack.
//
// Calls arrive on the browser's thread, one at a time. Failures are reported by throwing an
// ExceptionBase; a bool result answers yes or no. Besides the event signal of IBackend, the back-end
// may ask for a DRM back-end through the signal of ConnectDrmBackendRequest (on any thread): the slot
// fills the pointer with the DRM back-end the browser chose, or null; that back-end stays alive while
// the browser holds its DRM back-end.

#include <boost/function.hpp>
#include <boost/shared_ptr.hpp>
#include <boost/signals2/connection.hpp>
#include <string>
#include <vector>

#include "Uva/UVABackend.h"
#include "Velmora/IBackend.h"

namespace Velmora {

class IAvComponent;
class IDrmBackend;

class VELMORA_EXPORT IMediaBackend : public IBackend {
public:
    using DrmBackendRequestSlot = boost::function<void(std::string keySystemId, IDrmBackend*& drmBackend)>;

    ~IMediaBackend() override;

    virtual void SetWindowId(std::uint32_t windowId) = 0;
    virtual void InitBackend(std::string url, const SourceDescriptionBackendStreaming& source, bool flag) = 0;
    virtual void InitBackend(std::string url, const std::vector<SourceDescriptionOperaStreaming>& sources,
                             bool flag) = 0;
    virtual void AttachSource(const SourceDescriptionOperaStreaming& source) = 0;
    virtual void RemoveSource(std::uint32_t sourceId) = 0;
    virtual bool SetVideoWindow(const VideoRect& rect) = 0;
    virtual bool SetClipRect(const VideoRect& rect) = 0;
    virtual bool GetNativeSize(unsigned short& width, unsigned short& height, double& aspectRatio) = 0;
    virtual bool GetVideoFrame(unsigned char* buffer, std::uint32_t size) = 0;
    virtual bool GetSeekableTimeRanges(std::vector<ByteRange>& byteRanges, std::vector<TimeRange>& timeRanges) = 0;
    virtual bool GetBufferedTimeRanges(std::vector<ByteRange>& byteRanges, std::vector<TimeRange>& timeRanges) = 0;
    virtual bool CanPlayURL(const std::string& url) = 0;
    virtual void Play() = 0;
    virtual void Stop() = 0;
    virtual void Pause(bool paused) = 0;
    virtual void SetPlaybackRate(double rate) = 0;
    virtual void SetVolume(double volume) = 0;
    virtual bool GetDuration(double& duration) = 0;
    virtual void SetContentSize(std::uint32_t width, std::uint32_t height) = 0;
    virtual bool GetPosition(double& position) = 0;
    virtual bool SetPosition(double position) = 0;
    virtual void SetVisibility(bool visible) = 0;
    virtual void GetSizeFromDuration() = 0;
    // `event` is a NeedDataEvent answered by the browser.
    virtual void WriteData(boost::shared_ptr<BackendEvent> event, unsigned int size,
                           UVABackend::WriteDataStatus status) = 0;
    // `event` is a WriteMseDataEvent; the media stack may keep its buffers.
    virtual void WriteMseData(boost::shared_ptr<BackendEvent> event, UVABackend::WriteDataStatus status) = 0;
    virtual bool CanPlayType(const std::string& type, const std::vector<std::string>& codecs,
                             const std::string& keySystem) = 0;
    virtual void SetFullScreen(bool fullScreen) = 0;
    virtual void GetSupportedMimetypes(std::vector<std::string>& types) = 0;
    virtual void SetLoop(std::string loop) = 0;
    virtual void SelectComponent(IAvComponent* component) = 0;
    virtual void UnselectComponent(IAvComponent* component) = 0;
    virtual void SetSource(std::string url) = 0;
    virtual void OnListenerChanged(std::string listener) = 0;
    virtual void SetBufferingStrategy(bool aggressive) = 0;
    virtual void GetBytesInBuffer(unsigned int& bytes) = 0;
    virtual void SetKeySystem(std::string keySystem) = 0;
    virtual boost::signals2::connection ConnectDrmBackendRequest(const DrmBackendRequestSlot& slot) = 0;
};

}  // namespace Velmora
