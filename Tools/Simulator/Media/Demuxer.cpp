#include "Demuxer.h"

#include <gst/app/gstappsink.h>
#include <gst/video/video.h>

namespace Simulator {

namespace {

struct KnownCodec {
    const char* mediaType;
    const char* mimeType;
};

const KnownCodec kCodecs[] = {
    {"video/x-vp8", "video/webm; codecs=\"vp8\""},
    {"video/x-vp9", "video/webm; codecs=\"vp9\""},
    {"audio/x-opus", "audio/webm; codecs=\"opus\""},
    {"audio/x-vorbis", "audio/webm; codecs=\"vorbis\""},
};

constexpr GstClockTime kWait = 10 * GST_SECOND;

}  // namespace

Demuxer::~Demuxer() {
    if (pipeline != nullptr) {
        gst_element_set_state(pipeline, GST_STATE_NULL);
        gst_object_unref(pipeline);
    }
}

// Every stream gets a queue and an appsink that keeps all its samples (sync off: the file is read at
// full speed). The queue lets each sink preroll while another already holds the demuxer's thread.
void Demuxer::OnPadAdded(GstElement* /*demuxer*/, GstPad* pad, gpointer self) {
    auto* demuxer = static_cast<Demuxer*>(self);
    GstElement* queue = gst_element_factory_make("queue", nullptr);
    GstElement* sink = gst_element_factory_make("appsink", nullptr);
    g_object_set(sink, "sync", FALSE, nullptr);
    gst_bin_add_many(GST_BIN(demuxer->pipeline), queue, sink, nullptr);
    gst_element_link(queue, sink);
    gst_element_sync_state_with_parent(sink);
    gst_element_sync_state_with_parent(queue);
    GstPad* input = gst_element_get_static_pad(queue, "sink");
    gst_pad_link(pad, input);
    gst_object_unref(input);

    DemuxedStream stream;
    stream.sink = sink;
    GstCaps* caps = gst_pad_get_current_caps(pad);
    if (caps != nullptr) {
        const GstStructure* structure = gst_caps_get_structure(caps, 0);
        const std::string mediaType = gst_structure_get_name(structure);
        stream.video = mediaType.rfind("video/", 0) == 0;
        stream.mimeType = mediaType;
        for (const KnownCodec& codec : kCodecs) {
            if (mediaType == codec.mediaType) {
                stream.mimeType = codec.mimeType;
            }
        }
        gint width = 0;
        gint height = 0;
        if (gst_structure_get_int(structure, "width", &width) && gst_structure_get_int(structure, "height", &height)) {
            stream.width = static_cast<std::uint32_t>(width);
            stream.height = static_cast<std::uint32_t>(height);
        }
        gst_caps_unref(caps);
    }
    demuxer->streams.push_back(stream);
}

bool Demuxer::Open(const std::string& path, std::string& error) {
    gst_init(nullptr, nullptr);
    if (!g_file_test(path.c_str(), G_FILE_TEST_IS_REGULAR)) {
        error = "no such file: " + path;
        return false;
    }
    pipeline = gst_pipeline_new("browser-demuxer");
    GstElement* source = gst_element_factory_make("filesrc", nullptr);
    GstElement* demuxer = gst_element_factory_make("matroskademux", nullptr);
    if (source == nullptr || demuxer == nullptr) {
        error = "filesrc or matroskademux is missing";
        return false;
    }
    g_object_set(source, "location", path.c_str(), nullptr);
    gst_bin_add_many(GST_BIN(pipeline), source, demuxer, nullptr);
    gst_element_link(source, demuxer);
    g_signal_connect(demuxer, "pad-added", G_CALLBACK(&Demuxer::OnPadAdded), this);
    g_signal_connect(demuxer, "no-more-pads",
                     G_CALLBACK(+[](GstElement*, gpointer self) { static_cast<Demuxer*>(self)->allPads = true; }),
                     this);
    gst_element_set_state(pipeline, GST_STATE_PAUSED);
    // The demuxer finds its streams on its own thread; a file it cannot read ends in an error instead.
    GstBus* bus = gst_element_get_bus(pipeline);
    GstMessage* failure = nullptr;
    for (int waited = 0; !allPads && failure == nullptr && waited < 100; ++waited) {
        failure = gst_bus_timed_pop_filtered(bus, 100 * GST_MSECOND, GST_MESSAGE_ERROR);
    }
    gst_object_unref(bus);
    if (failure != nullptr) {
        gst_message_unref(failure);
    }
    const GstStateChangeReturn prerolled = gst_element_get_state(pipeline, nullptr, nullptr, kWait);
    if (!allPads || failure != nullptr || prerolled != GST_STATE_CHANGE_SUCCESS || streams.empty()) {
        error = "not a Matroska or WebM file the browser can demux: " + path;
        return false;
    }
    gint64 length = 0;
    if (gst_element_query_duration(pipeline, GST_FORMAT_TIME, &length) && length > 0) {
        durationSeconds = static_cast<double>(length) / GST_SECOND;
    }
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    return true;
}

// A flushing seek drops what the sinks hold; the demuxer reads on from the new position.
bool Demuxer::Seek(double seconds) {
    const auto target = static_cast<gint64>(seconds * GST_SECOND);
    return gst_element_seek_simple(
               pipeline, GST_FORMAT_TIME,
               static_cast<GstSeekFlags>(GST_SEEK_FLAG_FLUSH | GST_SEEK_FLAG_KEY_UNIT | GST_SEEK_FLAG_SNAP_BEFORE),
               target) != FALSE;
}

bool Demuxer::Next(std::size_t index, DemuxedSample& sample) {
    GstSample* pulled = gst_app_sink_try_pull_sample(GST_APP_SINK(streams.at(index).sink), kWait);
    if (pulled == nullptr) {
        return false;
    }
    GstBuffer* buffer = gst_sample_get_buffer(pulled);
    GstMapInfo map;
    if (buffer != nullptr && gst_buffer_map(buffer, &map, GST_MAP_READ)) {
        sample.bytes.assign(map.data, map.data + map.size);
        gst_buffer_unmap(buffer, &map);
        sample.timestampMs =
            GST_BUFFER_PTS_IS_VALID(buffer) ? static_cast<std::int32_t>(GST_BUFFER_PTS(buffer) / GST_MSECOND) : 0;
        sample.durationMs = GST_BUFFER_DURATION_IS_VALID(buffer)
                                ? static_cast<std::int32_t>(GST_BUFFER_DURATION(buffer) / GST_MSECOND)
                                : 0;
        sample.keyFrame = !GST_BUFFER_FLAG_IS_SET(buffer, GST_BUFFER_FLAG_DELTA_UNIT);
    }
    gst_sample_unref(pulled);
    return true;
}

}  // namespace Simulator
