#pragma once
// Builds the media stack's events from the fuzzer's bytes: any type code on an object of the class that
// code names, or on an object of another class (a media stack that gets its own events wrong).
// Constructor arguments that read the input are braced: their reading order is then fixed, so an input
// means the same session whatever the compiler.

#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>
#include <iterator>
#include <tuple>
#include <vector>

#include "Fuzz/FuzzInput.h"
#include "Velmora/BackendEvents.h"
#include "Velmora/DrmBackendEvents.h"

namespace VelmoraFuzz {
// The media stack's event classes share their names with the browser's; only this namespace sees them bare.
namespace StackEvents {

using namespace Velmora;

// The most samples the fuzzed media stack asks for at once; beyond it a request is only a huge
// allocation, which the library is allowed to fail with std::bad_alloc out of its slot.
constexpr std::uint32_t kMaxRequestedSamples = 1024;

// The components a component event may name; the last is null (logged and ignored by the library).
using Components = std::vector<IAvComponent*>;
using EventMaker = BackendEvent* (*)(FuzzInput&, const Components&);

// An event of class `Event`, its constructor's arguments read by type (braced: read in order).
template <typename Event, typename... Params>
BackendEvent* New(FuzzInput& in, const Components&) {
    std::tuple<Argument<Params>...> arguments{Argument<Params>(in)...};
    return std::apply([](auto&... argument) { return new Event(argument.Get()...); }, arguments);
}

// One maker per event class.
inline const EventMaker kEventMakers[] = {
    [](auto&, auto&) { return new BackendEvent(BackendEvent::BackendResourceRevoked); },
    &New<NeedDataEvent, std::int32_t, std::int32_t, std::int32_t, std::int32_t>,
    [](auto& in, auto&) -> BackendEvent* {
        return new NeedMseDataEvent{in.I32(), in.Count() % (kMaxRequestedSamples + 1)};
    },
    [](auto& in, auto&) -> BackendEvent* {
        return new WriteMseDataEvent{in.I32(), boost::make_shared<std::vector<DecoderBuffer>>(), in.Count()};
    },
    &New<CancelDataRequestsEvent, double, std::int32_t>,
    &New<DurationChangedEvent, double>,
    &New<VideoResizedEvent, std::uint16_t, std::uint16_t, double>,
    &New<DRMRightsErrorEvent, std::int32_t, const char*, const char*, const char*>,
    &New<ParentalRatingErrorEvent, const char*, const char*, std::int32_t>,
    &New<ParentalRatingChangeEvent, const char*, const char*, std::int32_t>,
    &New<BroadcastPlaystateChangeEvent, std::int32_t, std::int32_t>,
    &New<ChannelChangeErrorEvent, void*, std::int32_t>,
    &New<ChannelChangeSucceededEvent, void*>,
    &New<RecordingErrorEvent, std::int32_t, const char*>,
    &New<RecordingStateChangeEvent, std::int32_t, const char*>,
    &New<BufferingStreamUnderrunEvent, std::int32_t>,
    &New<SubtitlesChangedEvent, const char*>,
    [](auto& in, auto& components) -> BackendEvent* {
        IAvComponent* const component = components[in.Byte() % components.size()];
        const std::uint8_t action = in.Byte();
        return new ComponentChangedEvent(component, action < 0xF0 ? action % 4 : in.I32());
    },
};

// The maker of the class each type code names; codes outside the list are raised on the plain class.
constexpr std::uint8_t kClassOfCode[] = {0,  1,  2,  3, 4,  0,  5, 6, 0, 0,  0, 7,  8, 9,
                                         10, 11, 12, 0, 13, 14, 0, 0, 0, 15, 0, 16, 17};

inline boost::shared_ptr<BackendEvent> MakeBackendEvent(FuzzInput& in, const Components& components) {
    const std::uint8_t code = in.Byte();
    const std::int32_t type = code < 0xF0 ? code % (BackendEvent::LastEvent + 2) : in.I32();
    const std::uint8_t shape = in.Byte();
    if (shape == 0xFF) {  // the library logs and ignores a null event
        return nullptr;
    }
    // Mostly the class the code names; every fourth shape another class, so casts must be checked.
    const bool named = type >= 0 && type < static_cast<std::int32_t>(std::size(kClassOfCode));
    const std::size_t maker = shape % 4 == 3 ? shape / 4 % std::size(kEventMakers) : named ? kClassOfCode[type] : 0;
    boost::shared_ptr<BackendEvent> event(kEventMakers[maker](in, components));
    event->type = static_cast<BackendEvent::EventType>(type);
    return event;
}

// A shared byte block and its length; an empty block is a null pointer.
struct SharedBlock {
    explicit SharedBlock(FuzzInput& in) : size(0) {
        const std::vector<std::uint8_t> block = in.Block();
        size = static_cast<std::uint32_t>(block.size());
        if (size != 0) {
            bytes.reset(new unsigned char[size], boost::checked_array_deleter<unsigned char>());
            std::copy(block.begin(), block.end(), bytes.get());
        }
    }
    boost::shared_ptr<unsigned char> bytes;
    std::uint32_t size;
};

using DrmEventMaker = DrmBackendEvent* (*)(FuzzInput&, const char*, const char*, bool);

// One maker per DRM event code, in code order; the last is the plain class.
inline const DrmEventMaker kDrmEventMakers[] = {
    [](auto& in, auto keySystem, auto session, auto flag) -> DrmBackendEvent* {
        const SharedBlock initData(in);
        return new UvaNeedKeyDRMEvent(keySystem, session, flag, initData.bytes, initData.size, in.Bool());
    },
    [](auto& in, auto keySystem, auto session, auto flag) -> DrmBackendEvent* {
        const Text url = in.TextOrNull();
        const SharedBlock message(in);
        return new UvaKeyMessageDrmEvent(keySystem, session, flag, url.Pointer(), message.bytes, message.size);
    },
    [](auto&, auto keySystem, auto session, auto flag) -> DrmBackendEvent* {
        return new UvaKeyCompleteDrmEvent(keySystem, session, flag);
    },
    [](auto& in, auto keySystem, auto session, auto flag) -> DrmBackendEvent* {
        return new UvaKeyErrorDrmEvent{keySystem, session, flag, in.I32(), static_cast<std::uint16_t>(in.U32())};
    },
    [](auto& in, auto keySystem, auto session, auto flag) -> DrmBackendEvent* {
        return new UvaResultMessageDrmEvent{keySystem, session, flag, in.TextOrNull().Pointer(), in.Double()};
    },
    [](auto&, auto keySystem, auto session, auto flag) {
        return new DrmBackendEvent(DrmBackendEvent::KeyNeeded, keySystem, session, flag);
    },
};

inline boost::shared_ptr<DrmBackendEvent> MakeDrmEvent(FuzzInput& in) {
    const std::uint8_t code = in.Byte();
    const std::int32_t type = code < 0xF0 ? code % 6 : in.I32();
    const std::uint8_t shape = in.Byte();
    if (shape == 0xFF) {  // the library logs and ignores a null event
        return nullptr;
    }
    const std::size_t maker = shape % 4 == 3 ? shape / 4 % 6 : type >= 0 && type < 6 ? type : 5;
    const Text keySystem = in.TextOrNull();
    const Text session = in.TextOrNull();
    const bool flag = in.Bool();
    boost::shared_ptr<DrmBackendEvent> event(kDrmEventMakers[maker](in, keySystem.Pointer(), session.Pointer(), flag));
    event->type = static_cast<DrmBackendEvent::EventType>(type);
    return event;
}

}  // namespace StackEvents

using StackEvents::Components;
using StackEvents::MakeBackendEvent;
using StackEvents::MakeDrmEvent;

}  // namespace VelmoraFuzz
