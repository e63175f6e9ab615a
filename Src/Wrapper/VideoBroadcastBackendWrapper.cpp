#include "VideoBroadcastBackendWrapper.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

#include "EventTranslation.h"
#include "Log.h"
#include "Utilities.h"
#include "Velmora/Exceptions.h"
#include "WrapperTexts.h"

namespace Velmora {
namespace Wrapper {

namespace {

using Utilities::MakeVideoRect;
using Utilities::TextOrEmpty;
// The browser's component event (the media stack has its own of the same name).
using BrowserChange = ::ComponentChangedEvent;

const LogSite kLog(kBroadcastLogFile, __LINE__);

constexpr const char* kClientNotSet = "VideoBroadcastBackendWrapper Client is not set!";
constexpr const char* kCastFailed = "Exception occurred while performing IVideoBroadcastBackend cast.";
constexpr const char* kCallFailed = "virtual function from IVideoBroadcastBackend failed: ";
constexpr const char* kVolumeCallFailed = "Impl functiond failed: ";  // sic: the volume call's own wording
constexpr const char* kNoSpeeds = "No speeds defined in backend.";
constexpr const char* kNoMemory = "Memory allocation error.";

constexpr const char* kSelected = "Select component: ";

constexpr const char* kNotHandled = "VideoBroadcastBackendEvent not handled. Event ID: ";
constexpr const char* kNoClient = "VideoBroadcastBackendEvent Event cannot be sent since client is not set!";

// Changes and removals of unknown components are dropped silently; a selection is traced.
const ComponentPolicy kComponents{&kLog, "VideoBroadcastBackendEvent", nullptr, nullptr, kSelected};

// The broadcast failure lines carry no operation name.
constexpr CallPolicy kCall{&kLog, "", kCallFailed};
// The media stack's refusals of time-shift, recording and speed operations are traced, not reported.
constexpr CallPolicy kTimeShiftCall{&kLog, "", kCallFailed, 2};
constexpr CallPolicy kVolumeCall{&kLog, "", kVolumeCallFailed};

// The whole part of `position` (toward zero), of which only the low 32 bits travel; not a number gives 0.
std::int32_t WholeLow32(double position) {
    constexpr double kWord = 4294967296.0;
    if (!std::isfinite(position)) {
        return 0;
    }
    double low = std::fmod(std::trunc(position), kWord);  // exact for every double
    if (low < 0) {
        low += kWord;
    }
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(low));
}

}  // namespace

VideoBroadcastBackendWrapper::VideoBroadcastBackendWrapper(boost::shared_ptr<IBackend> backend,
                                                           UVAClient* browserClient)
    : delivery(kLog, kNoClient, browserClient),
      components(kComponents, delivery),
      impl(std::move(backend)),
      broadcast(impl, kCastFailed, this) {
    if (FollowsEvents(kLog, kClientNotSet, browserClient, impl != nullptr)) {
        connection = impl->ConnectEvent(gate.Bind<&VideoBroadcastBackendWrapper::VideoBroadcastBackendEvent>(this));
    }
}

// After the gate, the members go in reverse order: the connection is cut before the back-end is
// dropped. The component wrappers stay alive: the browser's protocol decides when they go.
VideoBroadcastBackendWrapper::~VideoBroadcastBackendWrapper() { gate.Close(); }

boost::shared_ptr<IBackend> VideoBroadcastBackendWrapper::GetVideoBroadcastBackendImpl() { return impl; }

template <typename Value, typename BrowserValue>
UVA_STATUS VideoBroadcastBackendWrapper::Read(const CallPolicy& policy, void (IVideoBroadcastBackend::*read)(Value&),
                                              BrowserValue& out, const char* operation) const {
    return broadcast.Forward(
        policy,
        [&](IVideoBroadcastBackend& backend) {
            Value value{};
            (backend.*read)(value);
            out = static_cast<BrowserValue>(value);
        },
        operation);
}

UVA_STATUS VideoBroadcastBackendWrapper::initBackend(const char* id) {
    return broadcast.Forward(kCall, [&](auto& backend) { backend.InitBackend(TextOrEmpty(id)); });
}

UVA_STATUS VideoBroadcastBackendWrapper::release() {
    return broadcast.Forward(kCall, [](auto& backend) { backend.Release(); });
}

UVA_STATUS VideoBroadcastBackendWrapper::setVideoWindow(int x, int y, int width, int height) {
    return broadcast.Forward(kCall,
                             [&](auto& backend) { return backend.SetVideoWindow(MakeVideoRect(x, y, width, height)); });
}

UVA_STATUS VideoBroadcastBackendWrapper::setClipRect(int x, int y, int width, int height) {
    return broadcast.Forward(kCall,
                             [&](auto& backend) { return backend.SetClipRect(MakeVideoRect(x, y, width, height)); });
}

UVA_STATUS VideoBroadcastBackendWrapper::setFullScreen(bool fullScreen) {
    return broadcast.Forward(kCall, [&](auto& backend) { backend.SetFullScreen(fullScreen); });
}

UVA_STATUS VideoBroadcastBackendWrapper::setVisibility(bool visible, bool unmute) {
    return broadcast.Forward(kCall, [&](auto& backend) { backend.SetVisibility(visible, unmute); });
}

UVA_STATUS VideoBroadcastBackendWrapper::setVolume(double volume) {
    return broadcast.Forward(kVolumeCall, [&](auto& backend) { backend.SetVolume(volume); });
}

UVA_STATUS VideoBroadcastBackendWrapper::nextChannel() {
    return broadcast.Forward(kCall, [](auto& backend) { backend.NextChannel(); });
}

UVA_STATUS VideoBroadcastBackendWrapper::previousChannel() {
    return broadcast.Forward(kCall, [](auto& backend) { backend.PreviousChannel(); });
}

UVA_STATUS VideoBroadcastBackendWrapper::stop() {
    return broadcast.Forward(kCall, [](auto& backend) { backend.Stop(); });
}

UVA_STATUS VideoBroadcastBackendWrapper::getPlayState(PlayState& state) {
    return Read(kCall, &IVideoBroadcastBackend::GetPlayState, state);
}

UVA_STATUS VideoBroadcastBackendWrapper::onListenerChanged(const char* listener) {
    return broadcast.Forward(kCall, [&](auto& backend) { backend.OnListenerChanged(TextOrEmpty(listener)); });
}

UVA_STATUS VideoBroadcastBackendWrapper::getCurrentChannel(void*& channel) {
    // The media stack keeps the current channel alive; the browser gets the bare pointer and this
    // wrapper keeps no share of it.
    return broadcast.Forward(kCall, [&](auto& backend) { channel = backend.GetCurrentChannel().get(); });
}

UVA_STATUS VideoBroadcastBackendWrapper::setChannel(void* channel, bool trickplay, bool keepRecording,
                                                    const char* contentAccess, bool quiet, bool offsetReset) {
    return broadcast.Forward(kCall, [&](auto& backend) {
        backend.SetChannel(channel, trickplay, keepRecording, TextOrEmpty(contentAccess), quiet, offsetReset);
    });
}

UVA_STATUS VideoBroadcastBackendWrapper::bindToCurrentChannel() {
    return broadcast.Forward(kCall, [](auto& backend) { backend.BindToCurrentChannel(); });
}

UVA_STATUS VideoBroadcastBackendWrapper::getPlaybackOffset(double& offset) {
    return Read(kTimeShiftCall, &IVideoBroadcastBackend::GetPlaybackOffset, offset);
}

UVA_STATUS VideoBroadcastBackendWrapper::getMaxOffset(double& offset) {
    return Read(kTimeShiftCall, &IVideoBroadcastBackend::GetMaxOffset, offset);
}

UVA_STATUS VideoBroadcastBackendWrapper::getPlaybackSpeeds(double*& speeds, unsigned int& count) {
    return broadcast.Forward(kTimeShiftCall, [&](auto& backend) {
        std::vector<double> offered;
        backend.GetPlaybackSpeeds(offered);
        if (offered.empty()) {
            throw GenericErrorException(kNoSpeeds);
        }
        // Sized by the capacity the caller passes in `count`, not by the list: the browser allocates
        // its reading for that capacity.
        double* const array = new (std::nothrow) double[count]();
        if (array == nullptr) {
            throw GenericErrorException(kNoMemory);
        }
        // Never written past that capacity, even when the media stack offers more.
        std::copy_n(offered.begin(), std::min<std::size_t>(count, offered.size()), array);
        speeds = array;
        count = static_cast<unsigned int>(offered.size());
    });
}

UVA_STATUS VideoBroadcastBackendWrapper::recordNow(double, char*&) {
    // The media stack records with its own duration and gives no identifier: the browser's text is
    // left as it is.
    return broadcast.Forward(kTimeShiftCall, [](auto& backend) { return backend.RecordNow(); });
}

UVA_STATUS VideoBroadcastBackendWrapper::stopRecording() {
    return broadcast.Forward(kTimeShiftCall, [](auto& backend) { return backend.StopRecording(); });
}

UVA_STATUS VideoBroadcastBackendWrapper::pause() {
    return broadcast.Forward(kTimeShiftCall, [](auto& backend) { backend.Pause(); });
}

UVA_STATUS VideoBroadcastBackendWrapper::resume() {
    return broadcast.Forward(kTimeShiftCall, [](auto& backend) { backend.Resume(); });
}

UVA_STATUS VideoBroadcastBackendWrapper::setPlaybackSpeed(double speed) {
    return broadcast.Forward(kTimeShiftCall, [&](auto& backend) { backend.SetPlaybackSpeed(speed); });
}

UVA_STATUS VideoBroadcastBackendWrapper::setPosition(double position, PositionReference reference) {
    return broadcast.Forward(kTimeShiftCall,
                             [&](auto& backend) { backend.SetPosition(WholeLow32(position), reference); });
}

UVA_STATUS VideoBroadcastBackendWrapper::stopTimeShift() {
    return broadcast.Forward(kTimeShiftCall, [](auto& backend) { backend.StopTimeShift(); });
}

UVA_STATUS VideoBroadcastBackendWrapper::getRecordingState(RecordingState& state) {
    return Read(kTimeShiftCall, &IVideoBroadcastBackend::GetRecordingState, state);
}

UVA_STATUS VideoBroadcastBackendWrapper::getPosition(double& position) {
    return Read(kTimeShiftCall, &IVideoBroadcastBackend::GetPosition, position);
}

UVA_STATUS VideoBroadcastBackendWrapper::getPlaybackSpeed(double& speed) {
    return broadcast.Forward(kTimeShiftCall, [&](auto& backend) { backend.GetPlaybackSpeed(speed); });
}

UVA_STATUS VideoBroadcastBackendWrapper::selectComponent(AVComponent* component) {
    return ChangeSelection(Selection::Select, component);
}

UVA_STATUS VideoBroadcastBackendWrapper::unselectComponent(AVComponent* component) {
    return ChangeSelection(Selection::Unselect, component);
}

UVA_STATUS VideoBroadcastBackendWrapper::ChangeSelection(Selection which, AVComponent* component) {
    const char* const name = ComponentRegistry::OperationName(which);
    return Guarded(
        kCall, [&] { return components.ChangeSelection(broadcast(), which, component); }, this, name);
}

void VideoBroadcastBackendWrapper::VideoBroadcastBackendEvent(boost::shared_ptr<BackendEvent> event) {
    if (!event) {
        VELMORA_LOG(kLog, 5) << "VideoBroadcastBackendEvent" << kNullEventIgnored;
        return;
    }
    const BackendEvent::EventType type = event->type;
    if (type < BackendEvent::ParentalRatingError || type > BackendEvent::ComponentChanged) {
        VELMORA_LOG(kLog, 5) << kNotHandled << Utilities::ConvertEventIdToString(type);
        return;
    }
    if (type == BackendEvent::ComponentChanged) {
        components.OnComponentChanged(*event);
    } else {
        delivery.Deliver(TranslateBroadcastEvent(*event));
    }
}

}  // namespace Wrapper
}  // namespace Velmora
