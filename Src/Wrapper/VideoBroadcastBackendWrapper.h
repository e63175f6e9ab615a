#pragma once
// The browser's broadcast television back-end, driven by a broadcast back-end of the media stack.
// Every browser call is forwarded inside the call guard; every media stack event is translated into the
// browser's event and handed to the client; component events create the component wrappers the browser
// selects from.

#include <boost/shared_ptr.hpp>
#include <boost/signals2/connection.hpp>
#include <memory>

#include "CallGuard.h"
#include "ClientDelivery.h"
#include "ComponentRegistry.h"
#include "SlotGate.h"
#include "StackInterface.h"
#include "Uva/UVAClient.h"
#include "Uva/UVAVideoBroadcastBackend.h"
#include "Velmora/BackendEvents.h"
#include "Velmora/IAvComponent.h"
#include "Velmora/IBackend.h"
#include "Velmora/IVideoBroadcastBackend.h"

namespace Velmora {
namespace Wrapper {

class VideoBroadcastBackendWrapper : public UVAVideoBroadcastBackend {
public:
    // Without a client the wrapper still forwards calls but subscribes to no events.
    VideoBroadcastBackendWrapper(boost::shared_ptr<IBackend> impl, UVAClient* client);
    ~VideoBroadcastBackendWrapper() override;

    boost::shared_ptr<IBackend> GetVideoBroadcastBackendImpl();
    // Keeps the media stack's threads out of this wrapper once its release begins.
    const SlotGate& Gate() const { return gate; }

    UVA_STATUS initBackend(const char* id) override;
    UVA_STATUS release() override;
    UVA_STATUS setVideoWindow(int x, int y, int width, int height) override;
    UVA_STATUS setClipRect(int x, int y, int width, int height) override;
    UVA_STATUS setFullScreen(bool fullScreen) override;
    UVA_STATUS setVisibility(bool visible, bool unmute) override;
    UVA_STATUS setVolume(double volume) override;
    UVA_STATUS nextChannel() override;
    UVA_STATUS previousChannel() override;
    UVA_STATUS stop() override;
    UVA_STATUS selectComponent(AVComponent* component) override;
    UVA_STATUS unselectComponent(AVComponent* component) override;
    UVA_STATUS getPlayState(PlayState& state) override;
    UVA_STATUS onListenerChanged(const char* listener) override;
    UVA_STATUS getCurrentChannel(void*& channel) override;
    UVA_STATUS setChannel(void* channel, bool trickplay, bool keepRecording, const char* contentAccess, bool quiet,
                          bool offsetReset) override;
    UVA_STATUS bindToCurrentChannel() override;
    UVA_STATUS getPlaybackOffset(double& offset) override;
    UVA_STATUS getMaxOffset(double& offset) override;
    UVA_STATUS getPlaybackSpeeds(double*& speeds, unsigned int& count) override;
    UVA_STATUS recordNow(double duration, char*& recordingId) override;
    UVA_STATUS stopRecording() override;
    UVA_STATUS pause() override;
    UVA_STATUS resume() override;
    UVA_STATUS setPlaybackSpeed(double speed) override;
    UVA_STATUS setPosition(double position, PositionReference reference) override;
    UVA_STATUS stopTimeShift() override;
    UVA_STATUS getRecordingState(RecordingState& state) override;
    UVA_STATUS getPosition(double& position) override;
    UVA_STATUS getPlaybackSpeed(double& speed) override;

    // The slot on the media stack's event signal; runs on the media stack's thread. A malformed event
    // (wrong class for its code, unknown component action) is thrown back to the media stack.
    void VideoBroadcastBackendEvent(boost::shared_ptr<BackendEvent> event);

private:
    // Reads one value from the back-end into the browser's out-parameter, converted to the browser's type.
    template <typename Value, typename BrowserValue>
    UVA_STATUS Read(const CallPolicy& policy, void (IVideoBroadcastBackend::*read)(Value&), BrowserValue& out,
                    const char* operation = __builtin_FUNCTION()) const;

    UVA_STATUS ChangeSelection(Selection which, AVComponent* component);

    const ClientDelivery delivery;
    ComponentRegistry components;
    boost::shared_ptr<IBackend> impl;
    const StackInterface<IVideoBroadcastBackend> broadcast;
    boost::signals2::scoped_connection connection;
    SlotGate gate;
};

}  // namespace Wrapper
}  // namespace Velmora
