#pragma once
// The streams a media back-end plays from when the browser delivers the data: what each stream holds
// (Media Source samples queued in time order, or a byte count for a browser-delivered byte stream),
// how far it is buffered, whether it has ended, and its open data request.
// Not locked by itself and raises nothing: the owning back-end calls it under its own lock, and counts
// and announces what it returns.

#include <cstdint>
#include <deque>
#include <functional>
#include <map>

#include "Uva/UVABackend.h"
#include "Velmora/BackendEvents.h"
#include "Velmora/IBackend.h"

namespace Velmora {
namespace Reference {

class MediaSourceQueue {
public:
    struct Source {
        std::int32_t type = 0;
        bool encrypted = false;
        bool byteStream = false;  // NeedData bytes rather than Media Source samples
        bool ended = false;
        bool requestOpen = false;
        std::int32_t requestId = 0;
        std::uint64_t bytesReceived = 0;
        double bufferedStartMs = 0.0;
        double bufferedEndMs = 0.0;
        std::deque<DecoderBuffer> samples;  // written, not played yet
    };

    // How far playing can go, see Reachable.
    struct Reach {
        double toMs = 0.0;
        bool anyStream = false;  // a stream other than text takes part
        bool held = false;       // a sample that must wait stopped it
    };

    // Adds a stream buffered up to `positionMs`; throws when its id is taken.
    void Add(const IBackend::SourceDescriptionOperaStreaming& description, bool byteStream, double positionMs);
    bool Remove(std::int32_t id);
    void Clear();
    Source* Find(std::int32_t id);

    // Queues a sound sample; false when it ends before `positionMs` (it is then dropped).
    bool Accept(Source& source, const DecoderBuffer& sample, double positionMs);
    void AddBytes(Source& source, std::uint32_t size, double bytesPerSecond);
    // Closes the answered request; false when the browser reported that it could not fetch the data.
    bool Conclude(Source& source, UVABackend::WriteDataStatus status);

    // Opens a request on every stream that has less than `aheadMs` buffered and none open, and hands
    // each to `ask`, in stream order.
    void OpenRequests(double positionMs, double aheadMs,
                      const std::function<void(std::int32_t id, const Source& source)>& ask);
    // Empties every stream for a restart at `targetMs`, handing the id of each open request to `cancel`.
    void Rewind(double targetMs, double bytesPerSecond, const std::function<void(std::int32_t requestId)>& cancel);

    // From `positionMs` towards `limitMs`: not past the buffered end of a stream that has not ended, nor
    // into a sample for which `waits` holds.
    Reach Reachable(double positionMs, double limitMs, const std::function<bool(const DecoderBuffer&)>& waits) const;
    // Hands `play` every sample that starts before `positionMs`, in stream order, and drops it; a stream
    // stops at the first sample `play` refuses.
    void Play(double positionMs, const std::function<bool(const DecoderBuffer&)>& play);

    bool AnyEncrypted() const;
    // `contentEndMs`, or earlier if every stream has ended before it.
    double EndMs(double contentEndMs) const;
    // Narrows [startMs, endMs) to what every stream has buffered.
    void NarrowToBuffered(double& startMs, double& endMs) const;
    // Bytes held ahead of `positionMs`: queued samples, and the byte streams' data not played yet.
    std::uint64_t BytesAhead(double positionMs, double bytesPerSecond) const;

private:
    std::map<std::int32_t, Source> sources;
    std::int32_t requestSerial = 0;
};

}  // namespace Reference
}  // namespace Velmora
