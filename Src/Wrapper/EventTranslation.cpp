#include "EventTranslation.h"

#include <cstdint>
#include <typeinfo>
#include <utility>

#include "Utilities.h"
#include "Velmora/Exceptions.h"
#include "WrapperTexts.h"

namespace Velmora {
namespace Wrapper {

namespace {

using Utilities::DuplicateText;

// `event` as `Derived`, or null. The media stack raises the very class its code names, which needs no
// search of the class tree; anything else, a class derived from it included, takes the checked cast.
template <typename Derived, typename Base>
const Derived* CastTo(const Base& event) {
    if (typeid(event) == typeid(Derived)) {
        return static_cast<const Derived*>(&event);
    }
    return dynamic_cast<const Derived*>(&event);
}

// The media stack's event as the class its type code names; never read fields of another class. The
// throw leaves the slot towards whoever raised the event.
template <typename Derived, typename Base>
const Derived& As(const Base& event) {
    const auto* derived = CastTo<Derived>(event);
    if (derived == nullptr) {
        throw GenericErrorException(kEventCastFailed);
    }
    return *derived;
}

// Both back-ends pass the ratings on with the same fields.
void CopyParentalRating(const ParentalRatingEventBase& from, ::ParentalRatingEvent& to) {
    to.contentId = DuplicateText(from.contentId);
    to.rating = from.rating;
    to.drmSystemId = DuplicateText(from.drmSystemId);
}

// The browser's `To` filled from the media stack's `From`; null when the event is of another class.
template <typename From, typename To, typename Fill>
std::unique_ptr<UVAEvent> Translated(const BackendEvent& event, Fill fill) {
    const auto* from = CastTo<From>(event);
    if (from == nullptr) {
        return nullptr;
    }
    auto to = std::make_unique<To>();
    fill(*from, *to);
    return to;
}

template <typename BrowserEvent, typename Event>
std::unique_ptr<UVAEvent> CopyRating(const BackendEvent& event) {
    const auto& source = As<Event>(event);
    auto rating = std::make_unique<BrowserEvent>();
    CopyParentalRating(source, *rating);
    return rating;
}

// What every DRM event carries. The browser frees the texts with free().
void CopyCommonFields(UVADRMEvent& target, const DrmBackendEvent& source, bool flag) {
    target.keySystem = DuplicateText(source.keySystem);
    target.sessionId = DuplicateText(source.sessionId);
    target.flag = flag;
}

// The browser frees the block with free(); without memory it gets no block and length 0.
void CopyBytes(const boost::shared_ptr<unsigned char>& bytes, std::uint32_t size, unsigned char*& target,
               std::uint32_t& targetLength) {
    target = Utilities::MallocCopy(bytes.get(), size);
    targetLength = target == nullptr ? 0 : size;
}

}  // namespace

// Media

// The browser's version of a media event other than a component change; null when the media back-end
// does not pass the event on or it is not of the class its code names.
std::unique_ptr<UVAEvent> TranslateMediaEvent(const BackendEvent& event, UVAEvent::Type browserType) {
    switch (event.type) {
        case BackendEvent::BackendResourceRevoked:
        case BackendEvent::PlaybackFinished:
        case BackendEvent::DecodeError:
        case BackendEvent::SeekCompleted:
        case BackendEvent::VideoFrameAvailable:
        case BackendEvent::BufferingProgress:
        case BackendEvent::BufferingNetworkError:
        case BackendEvent::BufferingIdle:
        case BackendEvent::BufferingStreamBuffered: return std::make_unique<UVAEvent>(browserType);
        case BackendEvent::NeedData:
            return Translated<Velmora::NeedDataEvent, ::NeedDataEvent>(event, [](const auto& from, auto& to) {
                to.sourceId = from.first;
                to.requestId = from.second;
                to.offset = from.third;
                to.size = from.fourth;
            });
        case BackendEvent::NeedMseData:
            return Translated<Velmora::NeedMseDataEvent, ::NeedMSEDataEvent>(event, [](const auto& from, auto& to) {
                to.sourceId = from.sourceId;
                // Never zero, so the browser always finds a slot before the terminator it walks to.
                to.count = from.count == 0 ? 1 : from.count;
                to.samples = Utilities::NullTerminatedArray<UVABackend::MediaSample>(to.count);
            });
        case BackendEvent::CancelDataRequests:
            return Translated<Velmora::CancelDataRequestsEvent, ::CancelDataRequestsEvent>(
                event, [](const auto& from, auto& to) {
                    to.position = from.position;
                    to.requestId = from.requestId;
                });
        case BackendEvent::DurationChanged:
            return Translated<Velmora::DurationChangedEvent, ::DurationChangedEvent>(
                event, [](const auto& from, auto& to) { to.duration = from.duration; });
        case BackendEvent::VideoResized:
            return Translated<Velmora::VideoResizedEvent, ::VideoResizedEvent>(event, [](const auto& from, auto& to) {
                to.width = from.width;
                to.height = from.height;
                to.aspectRatio = from.aspectRatio;
            });
        case BackendEvent::DRMRightsError:
            return Translated<Velmora::DRMRightsErrorEvent, ::DRMRightsErrorEvent>(
                event, [](const auto& from, auto& to) {
                    to.errorState = from.errorState;
                    to.contentId = DuplicateText(from.contentId);
                    to.drmSystemId = DuplicateText(from.drmSystemId);
                    to.rightsIssuerUrl = DuplicateText(from.rightsIssuerUrl);
                });
        case BackendEvent::ParentalRatingError:
            return Translated<Velmora::ParentalRatingErrorEvent, ::ParentalRatingErrorEvent>(event, CopyParentalRating);
        case BackendEvent::ParentalRatingChange:
            return Translated<Velmora::ParentalRatingChangeEvent, ::ParentalRatingChangeEvent>(event,
                                                                                               CopyParentalRating);
        case BackendEvent::BufferingStreamUnderrun:
            return Translated<Velmora::BufferingStreamUnderrunEvent, ::BufferingStreamUnderrunEvent>(
                event, [](const auto& from, auto& to) { to.bufferLevel = from.bufferLevel; });
        default: return nullptr;
    }
}

// Broadcast

// The browser's event for a code from ParentalRatingError to SubtitlesChanged.
std::unique_ptr<UVAEvent> TranslateBroadcastEvent(const BackendEvent& event) {
    switch (event.type) {
        case BackendEvent::ParentalRatingError:
            return CopyRating<::ParentalRatingErrorEvent, Velmora::ParentalRatingErrorEvent>(event);
        case BackendEvent::ParentalRatingChange:
            return CopyRating<::ParentalRatingChangeEvent, Velmora::ParentalRatingChangeEvent>(event);
        case BackendEvent::BroadcastPlaystateChange: {
            const auto& source = As<Velmora::BroadcastPlaystateChangeEvent>(event);
            auto change = std::make_unique<::BroadcastPlaystateChangeEvent>();
            change->state = source.state;
            change->error = source.error;
            return change;
        }
        case BackendEvent::ChannelChangeError: {
            const auto& source = As<Velmora::ChannelChangeErrorEvent>(event);
            auto failure = std::make_unique<::ChannelChangeErrorEvent>();
            failure->channel = source.channel;
            failure->errorState = source.errorState;
            return failure;
        }
        case BackendEvent::ChannelChangeSucceeded: {
            const auto& source = As<Velmora::ChannelChangeSucceededEvent>(event);
            auto success = std::make_unique<::ChannelChangeSucceededEvent>();
            success->channel = source.channel;
            return success;
        }
        case BackendEvent::RecordingError: {
            const auto& source = As<Velmora::RecordingErrorEvent>(event);
            auto failure = std::make_unique<::RecordingErrorEvent>();
            failure->error = source.error;
            failure->recordingId = DuplicateText(source.recordingId);
            return failure;
        }
        case BackendEvent::RecordingStateChange: {
            const auto& source = As<Velmora::RecordingStateChangeEvent>(event);
            auto change = std::make_unique<::RecordingStateChangeEvent>();
            change->state = source.state;
            change->recordingId = DuplicateText(source.recordingId);
            return change;
        }
        case BackendEvent::SubtitlesChanged: {
            const auto& source = As<Velmora::SubtitlesChangedEvent>(event);
            auto change = std::make_unique<::SubtitlesChangedEvent>();
            change->language = DuplicateText(source.language);
            return change;
        }
        default: {
            // Programmes changed and the buffering events carry nothing the browser reads here; the
            // stream underrun's buffer level is deliberately not passed on by broadcast.
            UVAEvent::Type code = UVAEvent::RESOURCE_REVOKED;
            Utilities::ToBrowserEventType(event.type, code);
            return std::make_unique<UVAEvent>(code);
        }
    }
}

// DRM

// The browser's counterpart of `event`, or null for a type the browser has no event for.
UVADRMEvent* TranslateDrmEvent(const DrmBackendEvent& event) {
    switch (event.type) {
        case DrmBackendEvent::KeyNeeded: {
            const auto& source = As<UvaNeedKeyDRMEvent>(event);
            auto* target = new UVANeedKeyDRMEvent;
            // The browser starts a key request on every need-key event, so its flag is always set.
            CopyCommonFields(*target, source, true);
            CopyBytes(source.initData, source.initDataSize, target->initData, target->initDataLength);
            target->needKey = source.needKeyFlag;
            return target;
        }
        case DrmBackendEvent::KeyMessage: {
            const auto& source = As<UvaKeyMessageDrmEvent>(event);
            auto* target = new UVAKeyMessageDRMEvent;
            CopyCommonFields(*target, source, source.flag);
            CopyBytes(source.message, source.messageSize, target->message, target->messageLength);
            target->defaultUrl = DuplicateText(source.defaultUrl);
            return target;
        }
        case DrmBackendEvent::KeyComplete: {
            auto* target = new UVADRMEvent(UVADRMEvent::KEY_COMPLETE);
            CopyCommonFields(*target, event, event.flag);
            return target;
        }
        case DrmBackendEvent::KeyError: {
            const auto& source = As<UvaKeyErrorDrmEvent>(event);
            auto* target = new UVAKeyErrorDRMEvent;
            CopyCommonFields(*target, source, source.flag);
            target->errorCode = source.errorCode;
            target->systemCode = source.systemCode;
            return target;
        }
        case DrmBackendEvent::DrmMessageResult: {
            const auto& source = As<UvaResultMessageDrmEvent>(event);
            auto* target = new UVAResultMessageDRMEvent;
            CopyCommonFields(*target, source, source.flag);
            target->resultMessage = DuplicateText(source.resultMessage);
            target->resultCode = source.resultCode;
            return target;
        }
    }
    return nullptr;
}

}  // namespace Wrapper
}  // namespace Velmora
