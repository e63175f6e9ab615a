#pragma once
// The browser's back-end events. A back-end library creates them with new and hands them to its
// UVAClient, which owns them from then on. Every text in an event is freed with free by the event's
// destructor, so texts put into events must be allocated with malloc or strdup.

#include <cstdint>

#include "Uva/UVABackend.h"

class UVAEvent {
public:
    enum Type {
        RESOURCE_REVOKED = 0,
        NEED_DATA = 1,
        NEED_MSE_DATA = 2,
        CANCEL_DATA_REQUESTS = 3,
        PLAYBACK_FINISHED = 4,
        DURATION_CHANGED = 5,
        VIDEO_RESIZED = 6,
        DECODE_ERROR = 7,
        SEEK_COMPLETED = 8,
        VIDEO_FRAME_AVAILABLE = 9,
        DRM_RIGHTS_ERROR = 10,
        PARENTAL_RATING_ERROR = 11,
        PARENTAL_RATING_CHANGE = 12,
        BROADCAST_PLAYSTATE_CHANGE = 13,
        CHANNEL_CHANGE_ERROR = 14,
        CHANNEL_CHANGE_SUCCEEDED = 15,
        PROGRAMMES_CHANGED = 16,
        RECORDING_ERROR = 17,
        RECORDING_STATE_CHANGE = 18,
        BUFFERING_PROGRESS = 19,
        BUFFERING_NETWORK_ERROR = 20,
        BUFFERING_IDLE = 21,
        BUFFERING_STREAM_UNDERRUN = 22,
        BUFFERING_STREAM_BUFFERED = 23,
        SUBTITLES_CHANGED = 24,
        COMPONENT_CHANGED = 25,
    };

    explicit UVAEvent(Type type);
    virtual ~UVAEvent();
    UVAEvent(const UVAEvent&) = delete;
    UVAEvent& operator=(const UVAEvent&) = delete;

    Type getType() const { return type; }

    Type type;
};

class NeedDataEvent : public UVAEvent {
public:
    NeedDataEvent();
    std::int32_t sourceId = 0;
    std::int32_t requestId = 0;
    std::int32_t offset = 0;
    std::int32_t size = 0;
};

// The browser answers it by storing up to `count` samples (allocated with new) into `samples` and
// passing the event back through writeData. The array is allocated by the back-end with new[] and
// holds count + 1 entries, the last one null; the destructor deletes every sample up to the first
// null entry and then the array.
class NeedMSEDataEvent : public UVAEvent {
public:
    NeedMSEDataEvent();
    ~NeedMSEDataEvent() override;
    std::int32_t sourceId = 0;
    std::uint32_t count = 0;
    UVABackend::MediaSample** samples = nullptr;
};

class CancelDataRequestsEvent : public UVAEvent {
public:
    CancelDataRequestsEvent();
    double position = 0.0;
    std::int32_t requestId = 0;
};

class DurationChangedEvent : public UVAEvent {
public:
    DurationChangedEvent();
    double duration = 0.0;
};

class VideoResizedEvent : public UVAEvent {
public:
    VideoResizedEvent();
    std::int32_t width = 0;
    std::int32_t height = 0;
    double aspectRatio = 0.0;
};

class DRMRightsErrorEvent : public UVAEvent {
public:
    DRMRightsErrorEvent();
    ~DRMRightsErrorEvent() override;
    std::int32_t errorState = 0;
    char* contentId = nullptr;
    char* drmSystemId = nullptr;
    char* rightsIssuerUrl = nullptr;
};

// Shared layout of the two parental rating events.
class ParentalRatingEvent : public UVAEvent {
public:
    ~ParentalRatingEvent() override;
    char* contentId = nullptr;
    std::int32_t rating = 0;
    char* drmSystemId = nullptr;

protected:
    explicit ParentalRatingEvent(Type type);
};

class ParentalRatingErrorEvent : public ParentalRatingEvent {
public:
    ParentalRatingErrorEvent();
};

class ParentalRatingChangeEvent : public ParentalRatingEvent {
public:
    ParentalRatingChangeEvent();
};

class BroadcastPlaystateChangeEvent : public UVAEvent {
public:
    BroadcastPlaystateChangeEvent();
    std::int32_t state = 0;
    std::int32_t error = 0;
};

class ChannelChangeErrorEvent : public UVAEvent {
public:
    ChannelChangeErrorEvent();
    void* channel = nullptr;
    std::int32_t errorState = 0;
};

class ChannelChangeSucceededEvent : public UVAEvent {
public:
    ChannelChangeSucceededEvent();
    void* channel = nullptr;
};

class RecordingErrorEvent : public UVAEvent {
public:
    RecordingErrorEvent();
    ~RecordingErrorEvent() override;
    std::int32_t error = 0;
    char* recordingId = nullptr;
};

class RecordingStateChangeEvent : public UVAEvent {
public:
    RecordingStateChangeEvent();
    ~RecordingStateChangeEvent() override;
    std::int32_t state = 0;
    char* recordingId = nullptr;
};

class BufferingStreamUnderrunEvent : public UVAEvent {
public:
    BufferingStreamUnderrunEvent();
    std::int32_t bufferLevel = 0;
};

class SubtitlesChangedEvent : public UVAEvent {
public:
    SubtitlesChangedEvent();
    ~SubtitlesChangedEvent() override;
    char* language = nullptr;
};

// Names a component; the back-end calls component->preventDestruction() before delivering it, and the
// event's destructor balances that with stopPreventingDestruction().
class ComponentChangedEvent : public UVAEvent {
public:
    enum Action { ADDED = 0, REMOVED = 1, CHANGED = 2 };

    ComponentChangedEvent();
    ~ComponentChangedEvent() override;
    UVABackend::AVComponent* component = nullptr;
    std::int32_t action = ADDED;
};
