#include "MediaSourceQueue.h"

#include <algorithm>
#include <limits>
#include <string>

#include "Velmora/Exceptions.h"

namespace Velmora {
namespace Reference {

namespace {

const double kForever = std::numeric_limits<double>::infinity();

// Subtitles are sparse: a text stream never holds the others up.
bool IsText(const MediaSourceQueue::Source& source) {
    return source.type == UVABackend::SourceDescription::SOURCE_TEXT;
}

}  // namespace

void MediaSourceQueue::Add(const IBackend::SourceDescriptionOperaStreaming& description, bool byteStream,
                           double positionMs) {
    if (sources.count(description.sourceId) != 0) {
        throw ExceptionBase(ExceptionBase::InvalidState,
                            "source " + std::to_string(description.sourceId) + " is attached already");
    }
    Source& source = sources[description.sourceId];
    source.type = description.type;
    source.encrypted = description.encrypted;
    source.byteStream = byteStream;
    source.bufferedStartMs = positionMs;
    source.bufferedEndMs = positionMs;
}

bool MediaSourceQueue::Remove(std::int32_t id) { return sources.erase(id) != 0; }

void MediaSourceQueue::Clear() { sources.clear(); }

MediaSourceQueue::Source* MediaSourceQueue::Find(std::int32_t id) {
    const auto found = sources.find(id);
    return found == sources.end() ? nullptr : &found->second;
}

bool MediaSourceQueue::Accept(Source& source, const DecoderBuffer& sample, double positionMs) {
    const double endMs = sample.timestamp + sample.duration;
    if (endMs <= positionMs) {
        return false;
    }
    // Keeping the buffer shares its bytes; nothing is copied.
    source.samples.push_back(sample);
    source.bufferedEndMs = std::max(source.bufferedEndMs, endMs);
    return true;
}

void MediaSourceQueue::AddBytes(Source& source, std::uint32_t size, double bytesPerSecond) {
    source.bytesReceived += size;
    source.bufferedEndMs += size * 1000.0 / bytesPerSecond;
}

bool MediaSourceQueue::Conclude(Source& source, UVABackend::WriteDataStatus status) {
    source.requestOpen = false;
    if (status == UVABackend::WRITE_DATA_END_OF_STREAM) {
        source.ended = true;
    }
    return status != UVABackend::WRITE_DATA_ERROR;
}

// Asks again only once the previous request has been answered: the requests follow the writes.
void MediaSourceQueue::OpenRequests(double positionMs, double aheadMs,
                                    const std::function<void(std::int32_t id, const Source& source)>& ask) {
    for (auto& [id, source] : sources) {
        if (source.ended || source.requestOpen || source.bufferedEndMs - positionMs >= aheadMs) {
            continue;
        }
        source.requestOpen = true;
        if (source.byteStream) {
            source.requestId = ++requestSerial;
        }
        ask(id, source);
    }
}

void MediaSourceQueue::Rewind(double targetMs, double bytesPerSecond,
                              const std::function<void(std::int32_t requestId)>& cancel) {
    for (auto& [id, source] : sources) {
        if (source.requestOpen) {
            // A Media Source request has no id of its own: the source's id names it.
            cancel(source.byteStream ? source.requestId : id);
            source.requestOpen = false;
        }
        source.samples.clear();
        source.ended = false;
        source.bufferedStartMs = targetMs;
        source.bufferedEndMs = targetMs;
        source.bytesReceived = static_cast<std::uint64_t>(targetMs * bytesPerSecond / 1000.0);
    }
}

MediaSourceQueue::Reach MediaSourceQueue::Reachable(double positionMs, double limitMs,
                                                    const std::function<bool(const DecoderBuffer&)>& waits) const {
    Reach reach;
    reach.toMs = limitMs;
    for (const auto& [id, source] : sources) {
        if (IsText(source)) {
            continue;
        }
        reach.anyStream = true;
        reach.toMs = std::min(reach.toMs, source.ended ? kForever : source.bufferedEndMs);
        for (const auto& sample : source.samples) {
            if (sample.timestamp >= reach.toMs) {
                break;
            }
            if (waits(sample)) {
                reach.toMs = std::max(sample.timestamp, positionMs);
                reach.held = true;
                break;
            }
        }
    }
    return reach;
}

// A sample is played once the position has passed its start.
void MediaSourceQueue::Play(double positionMs, const std::function<bool(const DecoderBuffer&)>& play) {
    for (auto& [id, source] : sources) {
        while (!source.samples.empty() && source.samples.front().timestamp < positionMs) {
            if (!play(source.samples.front())) {
                break;
            }
            source.samples.pop_front();
        }
    }
}

bool MediaSourceQueue::AnyEncrypted() const {
    return std::any_of(sources.begin(), sources.end(), [](const auto& entry) { return entry.second.encrypted; });
}

double MediaSourceQueue::EndMs(double contentEndMs) const {
    double lastMs = 0.0;
    bool anyStream = false;
    for (const auto& [id, source] : sources) {
        if (IsText(source)) {
            continue;
        }
        if (!source.ended) {
            return contentEndMs;
        }
        anyStream = true;
        lastMs = std::max(lastMs, source.bufferedEndMs);
    }
    return anyStream ? std::min(contentEndMs, lastMs) : contentEndMs;
}

// What every stream has: from the latest start to the earliest end.
void MediaSourceQueue::NarrowToBuffered(double& startMs, double& endMs) const {
    for (const auto& [id, source] : sources) {
        if (!IsText(source)) {
            startMs = std::max(startMs, source.bufferedStartMs);
            endMs = std::min(endMs, source.bufferedEndMs);
        }
    }
}

std::uint64_t MediaSourceQueue::BytesAhead(double positionMs, double bytesPerSecond) const {
    std::uint64_t total = 0;
    for (const auto& [id, source] : sources) {
        for (const auto& sample : source.samples) {
            total += sample.dataSize;
        }
        if (source.byteStream && source.bufferedEndMs > positionMs) {
            total += static_cast<std::uint64_t>((source.bufferedEndMs - positionMs) * bytesPerSecond / 1000.0);
        }
    }
    return total;
}

}  // namespace Reference
}  // namespace Velmora
