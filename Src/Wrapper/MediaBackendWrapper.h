#pragma once
// The browser's media (and Media Source) back-end: hands every browser call to the media stack's
// IMediaBackend, translates the media stack's events into the browser's, and keeps the components it
// showed the browser paired with the media stack's own.

#include <boost/shared_ptr.hpp>
#include <boost/signals2/connection.hpp>
#include <memory>
#include <string>
#include <vector>

#include "ClientDelivery.h"
#include "ComponentRegistry.h"
#include "SlotGate.h"
#include "StackInterface.h"
#include "Uva/UVAClient.h"
#include "Uva/UVAMediaBackend.h"
#include "Velmora/BackendEvents.h"
#include "Velmora/IAvComponent.h"
#include "Velmora/IBackend.h"
#include "Velmora/IDrmBackend.h"
#include "Velmora/IMediaBackend.h"

namespace Velmora {
namespace Wrapper {

class MediaBackendWrapper : public UVAMediaBackend {
public:
    // Subscribes to the back-end's events only when there is a client to hand them to.
    MediaBackendWrapper(boost::shared_ptr<IBackend> backend, UVABackend::UVABackendType type, UVAClient* client);
    ~MediaBackendWrapper() override;

    boost::shared_ptr<IBackend> GetMediaBackendImpl();
    // Keeps the media stack's threads out of this wrapper once its release begins.
    const SlotGate& Gate() const { return gate; }

    UVA_STATUS initBackend(const char* url, SourceDescription** sources, bool flag) override;
    UVA_STATUS attachSource(SourceDescription* source) override;
    UVA_STATUS removeSource(unsigned int sourceId) override;
    UVA_STATUS setSource(const char* url) override;
    UVA_STATUS queue(const char* url) override;
    UVA_STATUS setLoop(const char* loop) override;
    UVA_STATUS setWindowId(unsigned int windowId) override;
    UVA_STATUS setVideoWindow(int x, int y, int width, int height) override;
    UVA_STATUS setClipRect(int x, int y, int width, int height) override;
    UVA_STATUS getNativeSize(int& width, int& height, double& aspectRatio) override;
    UVA_STATUS getVideoFrame(unsigned char* buffer, unsigned int size) override;
    UVA_STATUS getBufferedTimeRanges(ByteRange** byteRanges, TimeRange**& timeRanges) override;
    UVA_STATUS getSeekableTimeRanges(ByteRange** byteRanges, TimeRange**& timeRanges) override;
    UVA_STATUS canPlayURL(const char* url) override;
    UVA_STATUS canPlayType(const char* type, const char** codecs, const char* keySystem) override;
    UVA_STATUS getSupportedMimetypes(char**& types) override;
    UVA_STATUS play() override;
    UVA_STATUS stop() override;
    UVA_STATUS pause(bool paused) override;
    UVA_STATUS setPlaybackRate(double rate) override;
    UVA_STATUS setVolume(double volume) override;
    UVA_STATUS getDuration(double& duration) override;
    UVA_STATUS setContentSize(unsigned int width, unsigned int height) override;
    UVA_STATUS getPosition(double& position) override;
    UVA_STATUS setPosition(double position) override;
    UVA_STATUS setVisibility(bool visible, bool unused) override;
    UVA_STATUS getSizeFromDuration(double duration, unsigned int& size) override;
    UVA_STATUS writeData(UVAEvent* event, unsigned int size, WriteDataStatus status) override;
    UVA_STATUS setFullScreen(bool fullScreen) override;
    UVA_STATUS onListenerChanged(const char* listener) override;
    UVA_STATUS setBufferingStrategy(BufferingStrategy strategy) override;
    UVA_STATUS getBytesInBuffer(unsigned int& bytes) override;
    UVA_STATUS setKeySystem(const char* keySystem) override;
    UVA_STATUS selectComponent(AVComponent* component) override;
    UVA_STATUS unselectComponent(AVComponent* component) override;

    // Runs on the media stack's thread: hands the browser its version of `event`.
    void MediaBackendEvent(boost::shared_ptr<BackendEvent> event);
    // Runs on the media stack's thread: the DRM back-end the browser chose for `keySystemId`, or null.
    void GetDRMBackend(std::string keySystemId, IDrmBackend*& drmBackend);

private:
    using TimeRangeQuery = bool (IMediaBackend::*)(std::vector<IBackend::ByteRange>&,
                                                   std::vector<IBackend::TimeRange>&);
    UVA_STATUS ReportTimeRanges(const CallPolicy& policy, TimeRangeQuery query, TimeRange**& timeRanges);
    UVA_STATUS ChangeSelection(Selection which, AVComponent* component);

    boost::signals2::scoped_connection eventConnection;
    boost::signals2::scoped_connection drmRequestConnection;
    const ClientDelivery delivery;
    ComponentRegistry components;
    boost::shared_ptr<IBackend> backend;
    const StackInterface<IMediaBackend> media;
    SlotGate gate;
};

}  // namespace Wrapper
}  // namespace Velmora
