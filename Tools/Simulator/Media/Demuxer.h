#pragma once
// The browser's own demuxer for Media Source sessions: it reads a WebM (or any Matroska) file with
// GStreamer's matroskademux into one appsink per stream, the way a browser's JavaScript player would
// cut a file into samples before appending them. It is the browser's side and shares nothing with the
// media stack, not even a pipeline.

#include <gst/gst.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

namespace Simulator {

struct DemuxedStream {
    bool video = false;
    std::string mimeType;  // "video/webm; codecs=\"vp8\"", ... or the caps' media type when unknown
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    GstElement* sink = nullptr;  // appsink, owned by the demuxer's pipeline
};

struct DemuxedSample {
    std::vector<unsigned char> bytes;
    std::int32_t timestampMs = 0;
    std::int32_t durationMs = 0;
    bool keyFrame = false;
};

class Demuxer {
public:
    Demuxer() = default;
    ~Demuxer();
    Demuxer(const Demuxer&) = delete;
    Demuxer& operator=(const Demuxer&) = delete;

    // Opens `path` and learns its streams and duration; false with the reason in `error`.
    bool Open(const std::string& path, std::string& error);

    const std::vector<DemuxedStream>& Streams() const { return streams; }
    double DurationSeconds() const { return durationSeconds; }
    // The next sample of stream `index`; false at its end.
    bool Next(std::size_t index, DemuxedSample& sample);
    // Every stream goes on from the key frame at or before `seconds`, as a player appends after a seek.
    bool Seek(double seconds);

private:
    static void OnPadAdded(GstElement* demuxer, GstPad* pad, gpointer self);

    GstElement* pipeline = nullptr;
    std::atomic<bool> allPads{false};
    std::vector<DemuxedStream> streams;  // filled on the demuxer's thread until allPads
    double durationSeconds = 0.0;
};

}  // namespace Simulator
