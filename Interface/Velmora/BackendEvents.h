#pragma once
// Events a media or broadcast back-end raises on its event signal (IBackend::ConnectEvent), always as
// boost::shared_ptr<BackendEvent>. The library reads `type` first and then casts down to the class
// named beside each code, so a raised object must be of that class. Events own their texts (copied
// at construction); the library copies whatever it passes on and keeps no pointer into an event.

#include <boost/noncopyable.hpp>
#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <vector>

#include "Velmora/Export.h"

namespace Velmora {

class IAvComponent;

class VELMORA_EXPORT BackendEvent {
public:
    enum EventType : std::int32_t {
        BackendResourceRevoked = 0,     // BackendEvent
        NeedData = 1,                   // NeedDataEvent
        NeedMseData = 2,                // NeedMseDataEvent
        WriteMseData = 3,               // WriteMseDataEvent (media stack input only, see WriteMseData)
        CancelDataRequests = 4,         // CancelDataRequestsEvent
        PlaybackFinished = 5,           // BackendEvent
        DurationChanged = 6,            // DurationChangedEvent
        VideoResized = 7,               // VideoResizedEvent
        DecodeError = 8,                // BackendEvent
        SeekCompleted = 9,              // BackendEvent
        VideoFrameAvailable = 10,       // BackendEvent
        DRMRightsError = 11,            // DRMRightsErrorEvent
        ParentalRatingError = 12,       // ParentalRatingErrorEvent
        ParentalRatingChange = 13,      // ParentalRatingChangeEvent
        BroadcastPlaystateChange = 14,  // BroadcastPlaystateChangeEvent
        ChannelChangeError = 15,        // ChannelChangeErrorEvent
        ChannelChangeSucceeded = 16,    // ChannelChangeSucceededEvent
        ProgrammesChanged = 17,         // BackendEvent
        RecordingError = 18,            // RecordingErrorEvent
        RecordingStateChange = 19,      // RecordingStateChangeEvent
        BufferingProgress = 20,         // BackendEvent
        BufferingNetworkError = 21,     // BackendEvent
        BufferingIdle = 22,             // BackendEvent
        BufferingStreamUnderrun = 23,   // BufferingStreamUnderrunEvent
        BufferingStreamBuffered = 24,   // BackendEvent
        SubtitlesChanged = 25,          // SubtitlesChangedEvent
        ComponentChanged = 26,          // ComponentChangedEvent
        LastEvent = 27,                 // end marker, never raised
    };

    explicit BackendEvent(EventType eventType);
    virtual ~BackendEvent();

    EventType type;
};

class VELMORA_EXPORT NeedDataEvent : public BackendEvent, private boost::noncopyable {
public:
    NeedDataEvent(std::int32_t first, std::int32_t second, std::int32_t third, std::int32_t fourth);
    ~NeedDataEvent() override;
    std::int32_t first;
    std::int32_t second;
    std::int32_t third;
    std::int32_t fourth;
};

class VELMORA_EXPORT NeedMseDataEvent : public BackendEvent, private boost::noncopyable {
public:
    NeedMseDataEvent(std::int32_t sourceId, std::uint32_t count);
    ~NeedMseDataEvent() override;
    std::int32_t sourceId;
    std::uint32_t count;
};

struct SubSampleEncryptionInfo {
    std::uint32_t clearBytes;
    std::uint32_t encryptedBytes;
};
static_assert(sizeof(SubSampleEncryptionInfo) == 8, "the sub-sample record is two 32-bit counts");

// One Media Source sample, copied out of the browser's sample. Owns its bytes through shared arrays,
// so the media stack may keep them (or copies of the buffer, which share them) as long as it likes.
// A buffer of length 0 is null.
struct DecoderBuffer {
    boost::shared_ptr<unsigned char> data;
    std::uint32_t dataSize = 0;
    boost::shared_ptr<unsigned char> keyId;
    std::uint32_t keyIdSize = 0;
    boost::shared_ptr<unsigned char> iv;
    std::uint32_t ivSize = 0;
    std::int32_t streamId = 0;
    std::int32_t encryptionScheme = 0;
    double timestamp = 0.0;  // the browser's millisecond timestamp
    std::int32_t duration = 0;
    std::int32_t keyFrame = 0;
    std::vector<SubSampleEncryptionInfo> subSamples;
    std::int32_t configVersion = 0;
    boost::shared_ptr<unsigned char> codecConfig;
    std::uint32_t codecConfigSize = 0;
    std::int32_t width = 0;
    std::int32_t height = 0;
    std::int32_t sampleRate = 0;
};

// The library's answer to a NeedMseData request, handed to IMediaBackend::WriteMseData.
class VELMORA_EXPORT WriteMseDataEvent : public BackendEvent {
public:
    WriteMseDataEvent(std::int32_t sourceId, boost::shared_ptr<std::vector<DecoderBuffer>> buffers,
                      std::uint32_t count);
    ~WriteMseDataEvent() override;
    std::int32_t sourceId;
    boost::shared_ptr<std::vector<DecoderBuffer>> buffers;
    std::uint32_t count;  // the browser's sample count; buffers holds one entry per sample present
};

class VELMORA_EXPORT CancelDataRequestsEvent : public BackendEvent, private boost::noncopyable {
public:
    CancelDataRequestsEvent(double position, std::int32_t requestId);
    ~CancelDataRequestsEvent() override;
    double position;
    std::int32_t requestId;
};

class VELMORA_EXPORT DurationChangedEvent : public BackendEvent, private boost::noncopyable {
public:
    explicit DurationChangedEvent(double duration);
    ~DurationChangedEvent() override;
    double duration;
};

class VELMORA_EXPORT VideoResizedEvent : public BackendEvent, private boost::noncopyable {
public:
    VideoResizedEvent(std::uint16_t width, std::uint16_t height, double aspectRatio);
    ~VideoResizedEvent() override;
    std::uint16_t width;
    std::uint16_t height;
    double aspectRatio;
};

class VELMORA_EXPORT DRMRightsErrorEvent : public BackendEvent, private boost::noncopyable {
public:
    DRMRightsErrorEvent(std::int32_t errorState, const char* contentId, const char* drmSystemId,
                        const char* rightsIssuerUrl);
    ~DRMRightsErrorEvent() override;
    std::int32_t errorState;
    const char* contentId;
    const char* drmSystemId;
    const char* rightsIssuerUrl;
};

// Fields shared by the two parental rating events.
class VELMORA_EXPORT ParentalRatingEventBase : public BackendEvent, private boost::noncopyable {
public:
    ~ParentalRatingEventBase() override;
    const char* contentId;
    const char* drmSystemId;
    std::int32_t rating;

protected:
    ParentalRatingEventBase(EventType eventType, const char* contentId, const char* drmSystemId, std::int32_t rating);
};

class VELMORA_EXPORT ParentalRatingErrorEvent : public ParentalRatingEventBase {
public:
    ParentalRatingErrorEvent(const char* contentId, const char* drmSystemId, std::int32_t rating);
    ~ParentalRatingErrorEvent() override;
};

class VELMORA_EXPORT ParentalRatingChangeEvent : public ParentalRatingEventBase {
public:
    ParentalRatingChangeEvent(const char* contentId, const char* drmSystemId, std::int32_t rating);
    ~ParentalRatingChangeEvent() override;
};

class VELMORA_EXPORT BroadcastPlaystateChangeEvent : public BackendEvent, private boost::noncopyable {
public:
    BroadcastPlaystateChangeEvent(std::int32_t state, std::int32_t error);
    ~BroadcastPlaystateChangeEvent() override;
    std::int32_t state;
    std::int32_t error;
};

class VELMORA_EXPORT ChannelChangeErrorEvent : public BackendEvent, private boost::noncopyable {
public:
    ChannelChangeErrorEvent(void* channel, std::int32_t errorState);
    ~ChannelChangeErrorEvent() override;
    void* channel;  // opaque to the library, handed to the browser as it is
    std::int32_t errorState;
};

class VELMORA_EXPORT ChannelChangeSucceededEvent : public BackendEvent, private boost::noncopyable {
public:
    explicit ChannelChangeSucceededEvent(void* channel);
    ~ChannelChangeSucceededEvent() override;
    void* channel;
};

class VELMORA_EXPORT RecordingErrorEvent : public BackendEvent, private boost::noncopyable {
public:
    RecordingErrorEvent(std::int32_t error, const char* recordingId);
    ~RecordingErrorEvent() override;
    std::int32_t error;
    const char* recordingId;
};

class VELMORA_EXPORT RecordingStateChangeEvent : public BackendEvent, private boost::noncopyable {
public:
    RecordingStateChangeEvent(std::int32_t state, const char* recordingId);
    ~RecordingStateChangeEvent() override;
    std::int32_t state;
    const char* recordingId;
};

class VELMORA_EXPORT BufferingStreamUnderrunEvent : public BackendEvent, private boost::noncopyable {
public:
    explicit BufferingStreamUnderrunEvent(std::int32_t bufferLevel);
    ~BufferingStreamUnderrunEvent() override;
    std::int32_t bufferLevel;
};

class VELMORA_EXPORT SubtitlesChangedEvent : public BackendEvent, private boost::noncopyable {
public:
    explicit SubtitlesChangedEvent(const char* language);
    ~SubtitlesChangedEvent() override;
    const char* language;
};

// A component appeared, disappeared or changed. The component must stay alive until the event that
// removes it has been raised; the library keeps the pointer while the component is known.
class VELMORA_EXPORT ComponentChangedEvent : public BackendEvent, private boost::noncopyable {
public:
    enum Action : std::int32_t { Added = 0, Removed = 1, Changed = 2 };

    ComponentChangedEvent(IAvComponent* component, std::int32_t action);
    ~ComponentChangedEvent() override;
    IAvComponent* component;  // not owned
    std::int32_t action;
};

}  // namespace Velmora
