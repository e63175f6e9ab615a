#include <cstdlib>
#include <cstring>
#include <utility>

#include "Velmora/BackendEvents.h"
#include "Velmora/DrmBackendEvents.h"

namespace Velmora {

namespace {

// Events own copies of their texts; null stays null.
const char* CopyText(const char* text) { return text == nullptr ? nullptr : strdup(text); }

void FreeText(const char* text) { std::free(const_cast<char*>(text)); }

}  // namespace

BackendEvent::BackendEvent(EventType eventType) : type(eventType) {}
BackendEvent::~BackendEvent() = default;

NeedDataEvent::NeedDataEvent(std::int32_t first_, std::int32_t second_, std::int32_t third_, std::int32_t fourth_)
    : BackendEvent(NeedData), first(first_), second(second_), third(third_), fourth(fourth_) {}
NeedDataEvent::~NeedDataEvent() = default;

NeedMseDataEvent::NeedMseDataEvent(std::int32_t sourceId_, std::uint32_t count_)
    : BackendEvent(NeedMseData), sourceId(sourceId_), count(count_) {}
NeedMseDataEvent::~NeedMseDataEvent() = default;

WriteMseDataEvent::WriteMseDataEvent(std::int32_t sourceId_, boost::shared_ptr<std::vector<DecoderBuffer>> buffers_,
                                     std::uint32_t count_)
    : BackendEvent(WriteMseData), sourceId(sourceId_), buffers(std::move(buffers_)), count(count_) {}
WriteMseDataEvent::~WriteMseDataEvent() = default;

CancelDataRequestsEvent::CancelDataRequestsEvent(double position_, std::int32_t requestId_)
    : BackendEvent(CancelDataRequests), position(position_), requestId(requestId_) {}
CancelDataRequestsEvent::~CancelDataRequestsEvent() = default;

DurationChangedEvent::DurationChangedEvent(double duration_) : BackendEvent(DurationChanged), duration(duration_) {}
DurationChangedEvent::~DurationChangedEvent() = default;

VideoResizedEvent::VideoResizedEvent(std::uint16_t width_, std::uint16_t height_, double aspectRatio_)
    : BackendEvent(VideoResized), width(width_), height(height_), aspectRatio(aspectRatio_) {}
VideoResizedEvent::~VideoResizedEvent() = default;

DRMRightsErrorEvent::DRMRightsErrorEvent(std::int32_t errorState_, const char* contentId_, const char* drmSystemId_,
                                         const char* rightsIssuerUrl_)
    : BackendEvent(DRMRightsError),
      errorState(errorState_),
      contentId(CopyText(contentId_)),
      drmSystemId(CopyText(drmSystemId_)),
      rightsIssuerUrl(CopyText(rightsIssuerUrl_)) {}
DRMRightsErrorEvent::~DRMRightsErrorEvent() {
    FreeText(contentId);
    FreeText(drmSystemId);
    FreeText(rightsIssuerUrl);
}

ParentalRatingEventBase::ParentalRatingEventBase(EventType eventType, const char* contentId_, const char* drmSystemId_,
                                                 std::int32_t rating_)
    : BackendEvent(eventType), contentId(CopyText(contentId_)), drmSystemId(CopyText(drmSystemId_)), rating(rating_) {}
ParentalRatingEventBase::~ParentalRatingEventBase() {
    FreeText(contentId);
    FreeText(drmSystemId);
}

ParentalRatingErrorEvent::ParentalRatingErrorEvent(const char* contentId_, const char* drmSystemId_,
                                                   std::int32_t rating_)
    : ParentalRatingEventBase(ParentalRatingError, contentId_, drmSystemId_, rating_) {}
ParentalRatingErrorEvent::~ParentalRatingErrorEvent() = default;

ParentalRatingChangeEvent::ParentalRatingChangeEvent(const char* contentId_, const char* drmSystemId_,
                                                     std::int32_t rating_)
    : ParentalRatingEventBase(ParentalRatingChange, contentId_, drmSystemId_, rating_) {}
ParentalRatingChangeEvent::~ParentalRatingChangeEvent() = default;

BroadcastPlaystateChangeEvent::BroadcastPlaystateChangeEvent(std::int32_t state_, std::int32_t error_)
    : BackendEvent(BroadcastPlaystateChange), state(state_), error(error_) {}
BroadcastPlaystateChangeEvent::~BroadcastPlaystateChangeEvent() = default;

ChannelChangeErrorEvent::ChannelChangeErrorEvent(void* channel_, std::int32_t errorState_)
    : BackendEvent(ChannelChangeError), channel(channel_), errorState(errorState_) {}
ChannelChangeErrorEvent::~ChannelChangeErrorEvent() = default;

ChannelChangeSucceededEvent::ChannelChangeSucceededEvent(void* channel_)
    : BackendEvent(ChannelChangeSucceeded), channel(channel_) {}
ChannelChangeSucceededEvent::~ChannelChangeSucceededEvent() = default;

RecordingErrorEvent::RecordingErrorEvent(std::int32_t error_, const char* recordingId_)
    : BackendEvent(RecordingError), error(error_), recordingId(CopyText(recordingId_)) {}
RecordingErrorEvent::~RecordingErrorEvent() { FreeText(recordingId); }

RecordingStateChangeEvent::RecordingStateChangeEvent(std::int32_t state_, const char* recordingId_)
    : BackendEvent(RecordingStateChange), state(state_), recordingId(CopyText(recordingId_)) {}
RecordingStateChangeEvent::~RecordingStateChangeEvent() { FreeText(recordingId); }

BufferingStreamUnderrunEvent::BufferingStreamUnderrunEvent(std::int32_t bufferLevel_)
    : BackendEvent(BufferingStreamUnderrun), bufferLevel(bufferLevel_) {}
BufferingStreamUnderrunEvent::~BufferingStreamUnderrunEvent() = default;

SubtitlesChangedEvent::SubtitlesChangedEvent(const char* language_)
    : BackendEvent(SubtitlesChanged), language(CopyText(language_)) {}
SubtitlesChangedEvent::~SubtitlesChangedEvent() { FreeText(language); }

ComponentChangedEvent::ComponentChangedEvent(IAvComponent* component_, std::int32_t action_)
    : BackendEvent(ComponentChanged), component(component_), action(action_) {}
ComponentChangedEvent::~ComponentChangedEvent() = default;

DrmBackendEvent::DrmBackendEvent(EventType eventType, const char* keySystem_, const char* sessionId_, bool flag_)
    : type(eventType), keySystem(CopyText(keySystem_)), sessionId(CopyText(sessionId_)), flag(flag_) {}
DrmBackendEvent::~DrmBackendEvent() {
    FreeText(keySystem);
    FreeText(sessionId);
}

UvaNeedKeyDRMEvent::UvaNeedKeyDRMEvent(const char* keySystem_, const char* sessionId_, bool flag_,
                                       boost::shared_ptr<unsigned char> initData_, std::uint32_t initDataSize_,
                                       bool needKeyFlag_)
    : DrmBackendEvent(KeyNeeded, keySystem_, sessionId_, flag_),
      initData(std::move(initData_)),
      initDataSize(initDataSize_),
      needKeyFlag(needKeyFlag_) {}
UvaNeedKeyDRMEvent::~UvaNeedKeyDRMEvent() = default;

UvaKeyMessageDrmEvent::UvaKeyMessageDrmEvent(const char* keySystem_, const char* sessionId_, bool flag_,
                                             const char* defaultUrl_, boost::shared_ptr<unsigned char> message_,
                                             std::uint32_t messageSize_)
    : DrmBackendEvent(KeyMessage, keySystem_, sessionId_, flag_),
      defaultUrl(CopyText(defaultUrl_)),
      message(std::move(message_)),
      messageSize(messageSize_) {}
UvaKeyMessageDrmEvent::~UvaKeyMessageDrmEvent() { FreeText(defaultUrl); }

UvaKeyCompleteDrmEvent::UvaKeyCompleteDrmEvent(const char* keySystem_, const char* sessionId_, bool flag_)
    : DrmBackendEvent(KeyComplete, keySystem_, sessionId_, flag_) {}
UvaKeyCompleteDrmEvent::~UvaKeyCompleteDrmEvent() = default;

UvaKeyErrorDrmEvent::UvaKeyErrorDrmEvent(const char* keySystem_, const char* sessionId_, bool flag_,
                                         std::int32_t errorCode_, std::uint16_t systemCode_)
    : DrmBackendEvent(KeyError, keySystem_, sessionId_, flag_), errorCode(errorCode_), systemCode(systemCode_) {}
UvaKeyErrorDrmEvent::~UvaKeyErrorDrmEvent() = default;

UvaResultMessageDrmEvent::UvaResultMessageDrmEvent(const char* keySystem_, const char* sessionId_, bool flag_,
                                                   const char* resultMessage_, double resultCode_)
    : DrmBackendEvent(DrmMessageResult, keySystem_, sessionId_, flag_),
      resultMessage(CopyText(resultMessage_)),
      resultCode(resultCode_) {}
UvaResultMessageDrmEvent::~UvaResultMessageDrmEvent() { FreeText(resultMessage); }

}  // namespace Velmora
