#pragma once
// The part every media and broadcast back-end of the media stack shares.
//
// Threading: the media stack may raise its event signal on any of its threads. The library's slot
// translates the event and hands it to the browser on that same thread, synchronously. Once the
// library has released a back-end (the browser released it, or the library was stopped), none of its
// slots starts again, and a slot already running on another thread has returned before the release
// returns. Ownership: the library holds the back-end by shared pointer for as long as its wrapper lives.

#include <boost/function.hpp>
#include <boost/shared_ptr.hpp>
#include <boost/signals2/connection.hpp>
#include <cstdint>
#include <string>

#include "Velmora/BackendEvents.h"
#include "Velmora/Export.h"

namespace Velmora {

// A window rectangle in the media stack's layout: the media stack expects width and height crosswise
// to the browser's argument order (x, y, width, height), so the library stores the browser's height in
// `width` and its width in `height`. Values are truncated to 16 bits.
struct VideoRect {
    std::int16_t x;
    std::int16_t y;
    std::int16_t width;
    std::int16_t height;
};
static_assert(sizeof(VideoRect) == 8, "the rectangle is four 16-bit values");

class VELMORA_EXPORT IBackend {
public:
    // One source the browser streams itself (types 0 to 2).
    struct SourceDescriptionOperaStreaming {
        std::int32_t type;
        std::int32_t sourceId;
        bool encrypted;
        std::int32_t trackIndex;
        std::string mimeType;
    };

    // A source the back-end streams itself from `url`.
    struct SourceDescriptionBackendStreaming {
        std::string url;
    };

    // In the media stack's own time unit.
    struct TimeRange {
        std::uint32_t start;
        std::uint32_t end;
    };

    struct ByteRange {
        std::uint32_t start;
        std::uint32_t end;
    };

    using EventSlot = boost::function<void(boost::shared_ptr<BackendEvent>)>;

    virtual ~IBackend();

    // Connects `slot` to the back-end's event signal.
    virtual boost::signals2::connection ConnectEvent(const EventSlot& slot) = 0;
};

static_assert(sizeof(IBackend::TimeRange) == 8, "a time range is two 32-bit values");
static_assert(sizeof(IBackend::ByteRange) == 8, "a byte range is two 32-bit values");

}  // namespace Velmora
