#include "Utilities.h"

#include <boost/checked_delete.hpp>
#include <cstdlib>
#include <cstring>
#include <iterator>

namespace Velmora {
namespace Wrapper {
namespace Utilities {

namespace {

constexpr const char* kUnknownEventId = "Unknown event ID";

constexpr const char* kBackendEventNames[] = {
    "BackendResourceRevoked",
    "NeedData",
    "NeedMseData",
    "WriteMseData",
    "CancelDataRequests",
    "PlaybackFinished",
    "DurationChanged",
    "VideoResized",
    "DecodeError",
    "SeekCompleted",
    "VideoFrameAvailable",
    "DRMRightsError",
    "ParentalRatingError",
    "ParentalRatingChange",
    "BroadcastPlaystateChange",
    "ChannelChangeError",
    "ChannelChangeSucceeded",
    "ProgrammesChanged",
    "RecordingError",
    "RecordingStateChange",
    "BufferingProgress",
    "BufferingNetworkError",
    "BufferingIdle",
    "BufferingStreamUnderrun",
    "BufferingStreamBuffered",
    "SubtitlesChanged",
    "ComponentChanged",
    "LastEvent",
};
static_assert(std::size(kBackendEventNames) == BackendEvent::LastEvent + 1, "one name per event code");

constexpr const char* kDrmEventNames[] = {"KeyNeeded", "KeyMessage", "KeyComplete", "KeyError", "DrmMessageResult"};
static_assert(std::size(kDrmEventNames) == DrmBackendEvent::DrmMessageResult + 1, "one name per DRM event code");

template <std::size_t N>
const char* NameOf(const char* const (&names)[N], std::int32_t eventId) noexcept {
    // Compared unsigned, so negative codes are unknown too.
    return static_cast<std::uint32_t>(eventId) < N ? names[eventId] : kUnknownEventId;
}

}  // namespace

std::string ConvertEventIdToString(BackendEvent::EventType eventId) { return EventName(eventId); }

const char* EventName(BackendEvent::EventType eventId) noexcept { return NameOf(kBackendEventNames, eventId); }

std::string ConvertEventIdToString(DrmBackendEvent::EventType eventId) { return NameOf(kDrmEventNames, eventId); }

char* DuplicateText(const char* text) { return text == nullptr ? nullptr : strdup(text); }

unsigned char* MallocCopy(const void* bytes, std::size_t size) {
    auto* copy = static_cast<unsigned char*>(std::malloc(size));
    if (copy != nullptr && size > 0) {
        std::memcpy(copy, bytes, size);
    }
    return copy;
}

boost::shared_ptr<unsigned char> CopyToSharedBytes(const unsigned char* bytes, std::uint32_t size) {
    boost::shared_ptr<unsigned char> copy(new unsigned char[size], boost::checked_array_deleter<unsigned char>());
    if (size > 0) {
        std::memcpy(copy.get(), bytes, size);
    }
    return copy;
}

std::string TextOrEmpty(const char* text) { return text == nullptr ? std::string() : std::string(text); }

VideoRect MakeVideoRect(int x, int y, int width, int height) {
    // The media stack expects width and height crosswise.
    return VideoRect{static_cast<std::int16_t>(x), static_cast<std::int16_t>(y), static_cast<std::int16_t>(height),
                     static_cast<std::int16_t>(width)};
}

}  // namespace Utilities
}  // namespace Wrapper
}  // namespace Velmora
