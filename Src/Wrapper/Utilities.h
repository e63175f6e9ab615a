#pragma once
// Small helpers every adapter uses: event names and codes, and the copies that cross the library
// boundary. Each copy helper fixes one allocation rule, so that who frees what is decided here.

#include <boost/shared_ptr.hpp>
#include <cstddef>
#include <cstdint>
#include <string>

#include "Uva/UVAEvent.h"
#include "Velmora/BackendEvents.h"
#include "Velmora/DrmBackendEvents.h"
#include "Velmora/IBackend.h"

namespace Velmora {
namespace Wrapper {
namespace Utilities {

// The enumerator's name, or "Unknown event ID".
std::string ConvertEventIdToString(BackendEvent::EventType eventId);
std::string ConvertEventIdToString(DrmBackendEvent::EventType eventId);
// The same name without allocating, for lines that must not fail.
const char* EventName(BackendEvent::EventType eventId) noexcept;

// The browser's code for an event of the media stack. The browser has no counterpart of WriteMseData,
// so every code above it is one lower on the browser's side. False for WriteMseData and codes outside
// the media stack's range.
inline bool ToBrowserEventType(BackendEvent::EventType eventId, UVAEvent::Type& browserType) {
    if (eventId < BackendEvent::BackendResourceRevoked || eventId >= BackendEvent::LastEvent ||
        eventId == BackendEvent::WriteMseData) {
        return false;
    }
    browserType = static_cast<UVAEvent::Type>(eventId < BackendEvent::WriteMseData ? eventId : eventId - 1);
    return true;
}

// A copy the browser frees with free(); null stays null.
char* DuplicateText(const char* text);

// A copy the browser frees with free(); null when malloc fails (malloc(0) as the platform answers).
unsigned char* MallocCopy(const void* bytes, std::size_t size);

// A copy the media stack may keep: exactly `size` bytes in a new[] array owned by a shared count.
// Null bytes with size 0 give an empty array.
boost::shared_ptr<unsigned char> CopyToSharedBytes(const unsigned char* bytes, std::uint32_t size);

// The browser's optional text as the media stack's string: null becomes empty.
std::string TextOrEmpty(const char* text);

// A new[] array of count + 1 null entries: terminated however far it gets filled.
template <typename Entry>
Entry** NullTerminatedArray(std::uint64_t count) {
    return new Entry*[count + 1]();
}

// The media stack's rectangle from the browser's (x, y, width, height).
VideoRect MakeVideoRect(int x, int y, int width, int height);

}  // namespace Utilities
}  // namespace Wrapper
}  // namespace Velmora
