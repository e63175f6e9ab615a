#include "Fuzz/FuzzEvents.h"

#include <boost/make_shared.hpp>
#include <boost/smart_ptr/make_shared_array.hpp>
#include <vector>

namespace VelmoraFuzz {

using namespace Velmora;

namespace {

enum class EventClass {
    Plain,
    NeedData,
    NeedMseData,
    WriteMseData,
    CancelDataRequests,
    DurationChanged,
    VideoResized,
    DrmRightsError,
    ParentalRatingError,
    ParentalRatingChange,
    BroadcastPlaystateChange,
    ChannelChangeError,
    ChannelChangeSucceeded,
    RecordingError,
    RecordingStateChange,
    BufferingStreamUnderrun,
    SubtitlesChanged,
    ComponentChanged,
    Count,
};

// The class each type code names; codes outside the list are raised on the plain class.
EventClass ClassOf(std::int32_t code) {
    static const EventClass kClasses[] = {
        EventClass::Plain,
        EventClass::NeedData,
        EventClass::NeedMseData,
        EventClass::WriteMseData,
        EventClass::CancelDataRequests,
        EventClass::Plain,
        EventClass::DurationChanged,
        EventClass::VideoResized,
        EventClass::Plain,
        EventClass::Plain,
        EventClass::Plain,
        EventClass::DrmRightsError,
        EventClass::ParentalRatingError,
        EventClass::ParentalRatingChange,
        EventClass::BroadcastPlaystateChange,
        EventClass::ChannelChangeError,
        EventClass::ChannelChangeSucceeded,
        EventClass::Plain,
        EventClass::RecordingError,
        EventClass::RecordingStateChange,
        EventClass::Plain,
        EventClass::Plain,
        EventClass::Plain,
        EventClass::BufferingStreamUnderrun,
        EventClass::Plain,
        EventClass::SubtitlesChanged,
        EventClass::ComponentChanged,
    };
    return code >= 0 && code < static_cast<std::int32_t>(sizeof kClasses / sizeof kClasses[0]) ? kClasses[code]
                                                                                               : EventClass::Plain;
}

// Constructor arguments that read the input are braced: their reading order is then fixed, so an input
// means the same session whatever the compiler.

// Opaque channel handles: the library hands them on and never reads through them.
void* Channel(FuzzInput& input) { return reinterpret_cast<void*>(static_cast<std::uintptr_t>(input.Byte()) * 64); }

boost::shared_ptr<unsigned char> SharedBlock(const std::vector<std::uint8_t>& block) {
    if (block.empty()) {
        return boost::shared_ptr<unsigned char>();
    }
    boost::shared_ptr<unsigned char> bytes(new unsigned char[block.size()],
                                           boost::checked_array_deleter<unsigned char>());
    std::copy(block.begin(), block.end(), bytes.get());
    return bytes;
}

BackendEvent* Make(EventClass eventClass, BackendEvent::EventType type, FuzzInput& input,
                   Velmora::IAvComponent* const* components, std::size_t componentCount) {
    switch (eventClass) {
        case EventClass::NeedData: return new NeedDataEvent{input.I32(), input.I32(), input.I32(), input.I32()};
        case EventClass::NeedMseData:
            return new NeedMseDataEvent{input.I32(), input.Count() % (kMaxRequestedSamples + 1)};
        case EventClass::WriteMseData:
            return new WriteMseDataEvent{input.I32(), boost::make_shared<std::vector<DecoderBuffer>>(), input.Count()};
        case EventClass::CancelDataRequests: return new CancelDataRequestsEvent{input.Double(), input.I32()};
        case EventClass::DurationChanged: return new DurationChangedEvent(input.Double());
        case EventClass::VideoResized:
            return new VideoResizedEvent{static_cast<std::uint16_t>(input.U32()),
                                         static_cast<std::uint16_t>(input.U32()), input.Double()};
        case EventClass::DrmRightsError: {
            const std::int32_t state = input.I32();
            const Text content = input.TextOrNull();
            const Text system = input.TextOrNull();
            const Text issuer = input.TextOrNull();
            return new DRMRightsErrorEvent(state, content.Pointer(), system.Pointer(), issuer.Pointer());
        }
        case EventClass::ParentalRatingError:
        case EventClass::ParentalRatingChange: {
            const Text content = input.TextOrNull();
            const Text system = input.TextOrNull();
            const std::int32_t rating = input.I32();
            if (eventClass == EventClass::ParentalRatingError) {
                return new ParentalRatingErrorEvent(content.Pointer(), system.Pointer(), rating);
            }
            return new ParentalRatingChangeEvent(content.Pointer(), system.Pointer(), rating);
        }
        case EventClass::BroadcastPlaystateChange: return new BroadcastPlaystateChangeEvent{input.I32(), input.I32()};
        case EventClass::ChannelChangeError: return new ChannelChangeErrorEvent{Channel(input), input.I32()};
        case EventClass::ChannelChangeSucceeded: return new ChannelChangeSucceededEvent(Channel(input));
        case EventClass::RecordingError:
        case EventClass::RecordingStateChange: {
            const std::int32_t value = input.I32();
            const Text recording = input.TextOrNull();
            if (eventClass == EventClass::RecordingError) {
                return new RecordingErrorEvent(value, recording.Pointer());
            }
            return new RecordingStateChangeEvent(value, recording.Pointer());
        }
        case EventClass::BufferingStreamUnderrun: return new BufferingStreamUnderrunEvent(input.I32());
        case EventClass::SubtitlesChanged: {
            const Text language = input.TextOrNull();
            return new SubtitlesChangedEvent(language.Pointer());
        }
        case EventClass::ComponentChanged: {
            const std::uint8_t which = input.Byte();
            IAvComponent* component = componentCount == 0 ? nullptr : components[which % componentCount];
            const std::uint8_t action = input.Byte();
            return new ComponentChangedEvent(component, action < 0xF0 ? action % 4 : input.I32());
        }
        default: return new BackendEvent(type);
    }
}

}  // namespace

boost::shared_ptr<BackendEvent> MakeBackendEvent(FuzzInput& input, IAvComponent* const* components,
                                                 std::size_t componentCount) {
    const std::uint8_t code = input.Byte();
    const std::int32_t type = code < 0xF0 ? code % (BackendEvent::LastEvent + 2) : input.I32();
    const std::uint8_t shape = input.Byte();
    if (shape == 0xFF) {  // the library logs and ignores a null event
        return boost::shared_ptr<BackendEvent>();
    }
    // Mostly the class the code names; every fourth shape another class, so casts must be checked.
    const EventClass eventClass =
        shape % 4 == 3 ? static_cast<EventClass>((shape / 4) % static_cast<int>(EventClass::Count)) : ClassOf(type);
    boost::shared_ptr<BackendEvent> event(
        Make(eventClass, static_cast<BackendEvent::EventType>(type), input, components, componentCount));
    event->type = static_cast<BackendEvent::EventType>(type);
    return event;
}

boost::shared_ptr<DrmBackendEvent> MakeDrmEvent(FuzzInput& input) {
    const std::uint8_t code = input.Byte();
    const std::int32_t type = code < 0xF0 ? code % 6 : input.I32();
    const std::uint8_t shape = input.Byte();
    if (shape == 0xFF) {  // the library logs and ignores a null event
        return boost::shared_ptr<DrmBackendEvent>();
    }
    const int eventClass = shape % 4 == 3 ? (shape / 4) % 6 : type;
    const Text keySystem = input.TextOrNull();
    const Text session = input.TextOrNull();
    const bool flag = input.Bool();
    DrmBackendEvent* event = nullptr;
    switch (eventClass) {
        case DrmBackendEvent::KeyNeeded: {
            const std::vector<std::uint8_t> initData = input.Block();
            event = new UvaNeedKeyDRMEvent(keySystem.Pointer(), session.Pointer(), flag, SharedBlock(initData),
                                           static_cast<std::uint32_t>(initData.size()), input.Bool());
            break;
        }
        case DrmBackendEvent::KeyMessage: {
            const Text url = input.TextOrNull();
            const std::vector<std::uint8_t> message = input.Block();
            event = new UvaKeyMessageDrmEvent(keySystem.Pointer(), session.Pointer(), flag, url.Pointer(),
                                              SharedBlock(message), static_cast<std::uint32_t>(message.size()));
            break;
        }
        case DrmBackendEvent::KeyComplete:
            event = new UvaKeyCompleteDrmEvent(keySystem.Pointer(), session.Pointer(), flag);
            break;
        case DrmBackendEvent::KeyError:
            event = new UvaKeyErrorDrmEvent{keySystem.Pointer(), session.Pointer(), flag, input.I32(),
                                            static_cast<std::uint16_t>(input.U32())};
            break;
        case DrmBackendEvent::DrmMessageResult: {
            const Text result = input.TextOrNull();
            event = new UvaResultMessageDrmEvent(keySystem.Pointer(), session.Pointer(), flag, result.Pointer(),
                                                 input.Double());
            break;
        }
        default:
            event = new DrmBackendEvent(static_cast<DrmBackendEvent::EventType>(type), keySystem.Pointer(),
                                        session.Pointer(), flag);
    }
    event->type = static_cast<DrmBackendEvent::EventType>(type);
    return boost::shared_ptr<DrmBackendEvent>(event);
}

}  // namespace VelmoraFuzz
