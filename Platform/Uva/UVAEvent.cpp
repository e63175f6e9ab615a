#include "Uva/UVAEvent.h"

#include <cstdlib>

#include "LiveObjects.h"

using UvaPlatform::Live;

UVAEvent::UVAEvent(Type eventType) : type(eventType) { ++Live().events; }

UVAEvent::~UVAEvent() { --Live().events; }

NeedDataEvent::NeedDataEvent() : UVAEvent(NEED_DATA) {}

NeedMSEDataEvent::NeedMSEDataEvent() : UVAEvent(NEED_MSE_DATA) {}

NeedMSEDataEvent::~NeedMSEDataEvent() {
    if (samples == nullptr) {
        return;
    }
    for (UVABackend::MediaSample** entry = samples; *entry != nullptr; ++entry) {
        delete *entry;
    }
    delete[] samples;
}

CancelDataRequestsEvent::CancelDataRequestsEvent() : UVAEvent(CANCEL_DATA_REQUESTS) {}

DurationChangedEvent::DurationChangedEvent() : UVAEvent(DURATION_CHANGED) {}

VideoResizedEvent::VideoResizedEvent() : UVAEvent(VIDEO_RESIZED) {}

DRMRightsErrorEvent::DRMRightsErrorEvent() : UVAEvent(DRM_RIGHTS_ERROR) {}

DRMRightsErrorEvent::~DRMRightsErrorEvent() {
    std::free(contentId);
    std::free(drmSystemId);
    std::free(rightsIssuerUrl);
}

ParentalRatingEvent::ParentalRatingEvent(Type type) : UVAEvent(type) {}

ParentalRatingEvent::~ParentalRatingEvent() {
    std::free(contentId);
    std::free(drmSystemId);
}

ParentalRatingErrorEvent::ParentalRatingErrorEvent() : ParentalRatingEvent(PARENTAL_RATING_ERROR) {}

ParentalRatingChangeEvent::ParentalRatingChangeEvent() : ParentalRatingEvent(PARENTAL_RATING_CHANGE) {}

BroadcastPlaystateChangeEvent::BroadcastPlaystateChangeEvent() : UVAEvent(BROADCAST_PLAYSTATE_CHANGE) {}

ChannelChangeErrorEvent::ChannelChangeErrorEvent() : UVAEvent(CHANNEL_CHANGE_ERROR) {}

ChannelChangeSucceededEvent::ChannelChangeSucceededEvent() : UVAEvent(CHANNEL_CHANGE_SUCCEEDED) {}

RecordingErrorEvent::RecordingErrorEvent() : UVAEvent(RECORDING_ERROR) {}

RecordingErrorEvent::~RecordingErrorEvent() { std::free(recordingId); }

RecordingStateChangeEvent::RecordingStateChangeEvent() : UVAEvent(RECORDING_STATE_CHANGE) {}

RecordingStateChangeEvent::~RecordingStateChangeEvent() { std::free(recordingId); }

BufferingStreamUnderrunEvent::BufferingStreamUnderrunEvent() : UVAEvent(BUFFERING_STREAM_UNDERRUN) {}

SubtitlesChangedEvent::SubtitlesChangedEvent() : UVAEvent(SUBTITLES_CHANGED) {}

SubtitlesChangedEvent::~SubtitlesChangedEvent() { std::free(language); }

ComponentChangedEvent::ComponentChangedEvent() : UVAEvent(COMPONENT_CHANGED) {}

ComponentChangedEvent::~ComponentChangedEvent() {
    if (component != nullptr) {
        component->stopPreventingDestruction();
    }
}
