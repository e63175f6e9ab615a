// Media Source throughput into the GStreamer stack: the same VP8 frames pushed (1) by the browser
// through the library's writeData into the stack's appsrc ! decodebin pipeline, and (2) straight into
// the same pipeline built by hand. Sinks run free of the clock, so both measure how fast bytes get
// decoded; the ratio library/direct shows what the library's copies and events cost on top.

#include <benchmark/benchmark.h>
#include <gst/app/gstappsink.h>
#include <gst/app/gstappsrc.h>
#include <gst/gst.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <vector>

#include "GstUva.h"
#include "Uva/UVABackendLibrary.h"
#include "Uva/UVAMediaBackend.h"
#include "Velmora/IntegrationLayer.h"

namespace {

constexpr int kFrames = 250;  // 10 s at 25 frames per second
constexpr std::uint32_t kFrameMs = 40;

struct Frame {
    std::vector<unsigned char> bytes;
    bool key = false;
};

// Encoded once per run: 320x240 VP8 from the test source.
const std::vector<Frame>& Frames() {
    static const std::vector<Frame> frames = [] {
        gst_init(nullptr, nullptr);
        std::vector<Frame> encoded;
        GstElement* pipeline = gst_parse_launch(
            "videotestsrc num-buffers=250 ! video/x-raw,width=320,height=240,framerate=25/1 ! vp8enc deadline=1 "
            "! appsink name=out sync=false",
            nullptr);
        GstElement* sink = gst_bin_get_by_name(GST_BIN(pipeline), "out");
        gst_element_set_state(pipeline, GST_STATE_PLAYING);
        while (GstSample* sample = gst_app_sink_pull_sample(GST_APP_SINK(sink))) {
            GstBuffer* buffer = gst_sample_get_buffer(sample);
            GstMapInfo map;
            gst_buffer_map(buffer, &map, GST_MAP_READ);
            encoded.push_back({std::vector<unsigned char>(map.data, map.data + map.size),
                               !GST_BUFFER_FLAG_IS_SET(buffer, GST_BUFFER_FLAG_DELTA_UNIT)});
            gst_buffer_unmap(buffer, &map);
            gst_sample_unref(sample);
        }
        gst_element_set_state(pipeline, GST_STATE_NULL);
        gst_object_unref(sink);
        gst_object_unref(pipeline);
        return encoded;
    }();
    return frames;
}

std::uint64_t TotalBytes() {
    std::uint64_t total = 0;
    for (const Frame& frame : Frames()) {
        total += frame.bytes.size();
    }
    return total;
}

class Finish {
public:
    void Signal() {
        const std::lock_guard<std::mutex> lock(mutex);
        done = true;
        finished.notify_all();
    }
    void Wait() {
        std::unique_lock<std::mutex> lock(mutex);
        finished.wait(lock, [this] { return done; });
    }

private:
    std::mutex mutex;
    std::condition_variable finished;
    bool done = false;
};

// (2) The stack's Media Source pipeline by hand, fed from appsrc's own need-data callback.
double DirectSeconds() {
    GstElement* pipeline = gst_parse_launch(
        "appsrc name=in format=time caps=video/x-vp8 ! decodebin ! videoconvert ! fakesink sync=false", nullptr);
    GstElement* source = gst_bin_get_by_name(GST_BIN(pipeline), "in");
    struct Feeder {
        std::size_t next = 0;
    } feeder;
    GstAppSrcCallbacks callbacks{};
    callbacks.need_data = [](GstAppSrc* appsrc, guint, gpointer data) {
        auto* state = static_cast<Feeder*>(data);
        for (int i = 0; i < 16 && state->next < Frames().size(); ++i, ++state->next) {
            const Frame& frame = Frames()[state->next];
            GstBuffer* buffer = gst_buffer_new_memdup(frame.bytes.data(), frame.bytes.size());
            GST_BUFFER_PTS(buffer) = state->next * kFrameMs * GST_MSECOND;
            GST_BUFFER_DURATION(buffer) = kFrameMs * GST_MSECOND;
            if (!frame.key) {
                GST_BUFFER_FLAG_SET(buffer, GST_BUFFER_FLAG_DELTA_UNIT);
            }
            gst_app_src_push_buffer(appsrc, buffer);
        }
        if (state->next == Frames().size()) {
            gst_app_src_end_of_stream(appsrc);
        }
    };
    gst_app_src_set_callbacks(GST_APP_SRC(source), &callbacks, &feeder, nullptr);
    const auto start = std::chrono::steady_clock::now();
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    GstBus* bus = gst_element_get_bus(pipeline);
    GstMessage* end = gst_bus_timed_pop_filtered(bus, GST_CLOCK_TIME_NONE,
                                                 static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    gst_message_unref(end);
    gst_object_unref(bus);
    gst_element_set_state(pipeline, GST_STATE_NULL);
    gst_object_unref(source);
    gst_object_unref(pipeline);
    return elapsed.count();
}

// (1) A browser that answers every NeedMSEData on the thread that raised it.
class Browser : public UVAClient {
public:
    void handleEvent(UVAEvent* event) override {
        if (event->getType() == UVAEvent::NEED_MSE_DATA) {
            auto* request = static_cast<NeedMSEDataEvent*>(event);
            std::uint32_t filled = 0;
            for (; filled < request->count && next < Frames().size(); ++filled, ++next) {
                auto* sample = new UVABackend::MediaSample;
                sample->data.assign(Frames()[next].bytes.data(),
                                    static_cast<unsigned int>(Frames()[next].bytes.size()));
                sample->streamId = request->sourceId;
                sample->timestampMs = static_cast<std::int32_t>(next * kFrameMs);
                sample->durationMs = kFrameMs;
                sample->keyFrame = Frames()[next].key ? 1 : 0;
                request->samples[filled] = sample;
            }
            media->writeData(
                request, 0, next == Frames().size() ? UVABackend::WRITE_DATA_END_OF_STREAM : UVABackend::WRITE_DATA_OK);
            return;
        }
        if (event->getType() == UVAEvent::PLAYBACK_FINISHED || event->getType() == UVAEvent::DECODE_ERROR) {
            finish.Signal();
        }
        delete event;
    }
    UVADRMBackend* requestDRMBackend(const char*) override { return nullptr; }

    UVAMediaBackend* media = nullptr;
    std::size_t next = 0;
    Finish finish;
};

double LibrarySeconds(Velmora::Gst::StackOptions options) {
    Velmora::Wrapper::IntegrationLayer layer(new Velmora::Gst::GstUva(options));
    Browser browser;
    browser.media = static_cast<UVAMediaBackend*>(UVA_RequestBackend(UVABackend::TYPE_MEDIA_SOURCE, &browser));
    auto** sources = new UVABackend::SourceDescription* [2] {
        UVABackend::SourceDescription::Streaming(UVABackend::SourceDescription::SOURCE_VIDEO, 1, false, 0,
                                                 "video/webm; codecs=\"vp8\""),
            nullptr
    };
    const auto start = std::chrono::steady_clock::now();
    browser.media->initBackend("blob:bench", sources, false);
    browser.media->play();
    browser.finish.Wait();
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    browser.media->stop();
    UVA_ReleaseBackend(browser.media);
    return elapsed.count();
}

void BM_MediaSourceIntoGStreamer(benchmark::State& state) {
    Velmora::Gst::StackOptions options;
    options.syncToClock = false;
    const double bytes = static_cast<double>(TotalBytes());
    double library = 0.0;
    double direct = 0.0;
    for (auto _ : state) {
        direct += DirectSeconds();
        const double seconds = LibrarySeconds(options);
        library += seconds;
        state.SetIterationTime(seconds);
    }
    const double runs = static_cast<double>(state.iterations());
    state.counters["library_bytes_per_s"] = bytes * runs / library;
    state.counters["direct_bytes_per_s"] = bytes * runs / direct;
    state.counters["library_vs_direct"] = direct / library;  // 1.0: the library costs nothing measurable
}
BENCHMARK(BM_MediaSourceIntoGStreamer)->UseManualTime()->Iterations(5)->Unit(benchmark::kMillisecond);

}  // namespace
