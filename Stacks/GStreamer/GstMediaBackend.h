#pragma once
// A media back-end on GStreamer.
//
// URL playback: InitBackend with a source the back-end streams itself builds a playbin3 for the URL
// (a plain path is taken as a local file). Media Source playback: InitBackend with browser-streamed
// sources, then AttachSource, builds one appsrc ! decodebin branch per source, with caps from the
// source's MIME type (MimeCaps.h). When an appsrc runs low the back-end raises NeedMseData for its
// source; WriteMseData pushes the samples as GstBuffers (timestamp, duration, key-frame flag) and its
// end-of-stream status ends that source. SetPosition flushes every branch (samples queued before the
// seek are dropped), cancels the requests still open with CancelDataRequests at the new position and
// asks again with NeedMseData; the browser then writes from there, and SeekCompleted follows once the
// pipeline has prerolled at the new position.
//
// Events: raised on the back-end's own bus thread only, one at a time, with no lock of the back-end
// held, so the browser may call straight back into the back-end from its slot. Streaming threads never
// raise: what they observe (data wanted, caps negotiated) is posted to the bus thread as a task.
//
// Failures: an operation the pipeline refuses throws ExceptionBase (InvalidState before InitBackend,
// NotSupported for a MIME type without caps or for what GStreamer cannot do here); a stream that does
// not play (missing file, unknown format, undecodable samples) raises DecodeError.
//
// Teardown: the destructor stops the pipeline (which joins the streaming threads), then quits and joins
// the bus thread. The library has cut its subscription and waited for a running slot before it drops
// its last reference, so no slot can hold the bus thread at that point.

#include <gst/app/gstappsrc.h>
#include <gst/gst.h>

#include <atomic>
#include <boost/signals2/signal.hpp>
#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "GstComponent.h"
#include "GstStackOptions.h"
#include "Velmora/IMediaBackend.h"

namespace Velmora {
namespace Gst {

class GstMediaBackend : public IMediaBackend {
public:
    // How many samples one NeedMseData asks for.
    static constexpr std::uint32_t kSamplesPerRequest = 16;

    explicit GstMediaBackend(const StackOptions& options);
    ~GstMediaBackend() override;

    boost::signals2::connection ConnectEvent(const EventSlot& slot) override;
    boost::signals2::connection ConnectDrmBackendRequest(const DrmBackendRequestSlot& slot) override;

    void InitBackend(std::string url, const SourceDescriptionBackendStreaming& source, bool flag) override;
    void InitBackend(std::string url, const std::vector<SourceDescriptionOperaStreaming>& sources, bool flag) override;
    void AttachSource(const SourceDescriptionOperaStreaming& source) override;
    void RemoveSource(std::uint32_t sourceId) override;
    void WriteData(boost::shared_ptr<BackendEvent> event, unsigned int size,
                   UVABackend::WriteDataStatus status) override;
    void WriteMseData(boost::shared_ptr<BackendEvent> event, UVABackend::WriteDataStatus status) override;

    void Play() override;
    void Stop() override;
    void Pause(bool paused) override;
    void SetPlaybackRate(double rate) override;
    void SetVolume(double volume) override;
    bool GetDuration(double& duration) override;
    bool GetPosition(double& position) override;
    bool SetPosition(double position) override;
    bool GetNativeSize(unsigned short& width, unsigned short& height, double& aspectRatio) override;
    bool GetSeekableTimeRanges(std::vector<ByteRange>& byteRanges, std::vector<TimeRange>& timeRanges) override;
    bool GetBufferedTimeRanges(std::vector<ByteRange>& byteRanges, std::vector<TimeRange>& timeRanges) override;
    void GetBytesInBuffer(unsigned int& bytes) override;
    void SelectComponent(IAvComponent* component) override;
    void UnselectComponent(IAvComponent* component) override;

    bool CanPlayURL(const std::string& url) override;
    bool CanPlayType(const std::string& type, const std::vector<std::string>& codecs,
                     const std::string& keySystem) override;
    void GetSupportedMimetypes(std::vector<std::string>& types) override;

    // Rendering is the sinks' business; these have nothing to change here.
    void SetWindowId(std::uint32_t) override {}
    bool SetVideoWindow(const VideoRect&) override { return true; }
    bool SetClipRect(const VideoRect&) override { return true; }
    void SetContentSize(std::uint32_t, std::uint32_t) override {}
    void SetVisibility(bool) override {}
    void SetFullScreen(bool) override {}
    void GetSizeFromDuration() override {}
    void OnListenerChanged(std::string) override {}
    void SetBufferingStrategy(bool) override {}
    bool GetVideoFrame(unsigned char*, std::uint32_t) override { return false; }
    void SetLoop(std::string loop) override;
    void SetSource(std::string url) override;
    void SetKeySystem(std::string keySystem) override;

    // The stream ids playbin3 reported as selected most recently (empty for Media Source).
    std::vector<std::string> SelectedStreams() const;

private:
    struct AppsrcContext {
        GstMediaBackend* backend;
        std::int32_t sourceId;
        std::atomic<bool> seeked{false};  // the latest seek reached this appsrc
    };
    struct Source {
        std::int32_t id = 0;
        GstElement* appsrc = nullptr;  // owned by the pipeline
        AppsrcContext* context = nullptr;
        bool requested = false;  // a NeedMseData is out and not answered yet
        bool ended = false;
        bool removed = false;  // ended for good: a seek does not restart it
        double lastTimestampMs = -1.0;
        std::shared_ptr<GstComponent> component;
    };

    GstElement* MakeSink(bool video);
    void StartPipeline(GstElement* created);
    void AddSource(const SourceDescriptionOperaStreaming& source);
    void WatchVideoCaps(GstElement* sink);
    void SetState(GstState state, const char* operation);
    void SettlePreroll();
    GstElement* Pipeline() const;
    void Seek(double rate, double position, const char* operation);
    bool RestartSources(double rate, double position);

    // The bus thread and what it runs.
    void BusLoop();
    void Dispatch(GstMessage* message);
    void Post(std::function<void()> task);
    void RunTasks();
    void Raise(BackendEvent* event);
    void RequestSamples(std::int32_t sourceId);
    void OnCollection(GstStreamCollection* collection);
    void OnStreamsSelected(GstMessage* message);
    void AnnounceDuration();
    void RemoveAllComponents();

    static void OnPadAdded(GstElement* decodebin, GstPad* pad, gpointer self);
    static void OnNeedData(GstAppSrc* appsrc, guint length, gpointer context);
    static gboolean OnSeekData(GstAppSrc* appsrc, guint64 offset, gpointer context);
    static GstPadProbeReturn OnSinkEvent(GstPad* pad, GstPadProbeInfo* info, gpointer self);

    const StackOptions options;
    boost::signals2::signal<void(boost::shared_ptr<BackendEvent>)> events;
    boost::signals2::signal<void(std::string, IDrmBackend*&)> drmBackendRequests;  // no DRM here: never raised

    mutable std::mutex mutex;  // guards everything below; never held while raising
    GstElement* pipeline = nullptr;
    bool mediaSource = false;
    bool seekPending = false;
    // A seek's target is the position until the pipeline has settled after it and its sinks answer
    // within reach of the target: while it goes back to playing, they can answer a position query with
    // the clock's raw time, and on a busy machine now and then even after the state change.
    std::optional<double> heldPosition;
    bool settledAfterSeek = false;
    std::chrono::steady_clock::time_point seekStarted;
    bool finished = false;
    double rate = 1.0;
    double volume = 1.0;
    double durationSeconds = -1.0;  // as last announced
    double writtenEndMs = 0.0;      // Media Source: the end of the latest sample written
    std::uint16_t width = 0;
    std::uint16_t height = 0;
    double aspectRatio = 0.0;
    std::map<std::int32_t, Source> sources;
    std::vector<std::unique_ptr<AppsrcContext>> appsrcContexts;
    std::vector<GstElement*> volumes;  // Media Source audio branches; owned by the pipeline
    std::vector<std::shared_ptr<GstComponent>> components;
    GstStreamCollection* collection = nullptr;
    std::vector<std::string> selectedStreams;
    std::deque<std::function<void()>> tasks;

    std::atomic<bool> quitting{false};
    std::thread busThread;
};

}  // namespace Gst
}  // namespace Velmora
