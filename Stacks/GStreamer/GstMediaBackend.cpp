#include "GstMediaBackend.h"

#include <gst/tag/tag.h>
#include <gst/video/video.h>

#include <algorithm>
#include <cmath>

#include "MimeCaps.h"
#include "Velmora/Exceptions.h"

namespace Velmora {
namespace Gst {

namespace {

constexpr GstClockTime kBusPollPeriod = 100 * GST_MSECOND;
constexpr GstClockTime kPrerollPatience = 5 * GST_SECOND;

std::uint32_t ToMilliseconds(gint64 time) { return static_cast<std::uint32_t>(time / GST_MSECOND); }

GstEvent* NewSeek(double rate, double position) {
    return gst_event_new_seek(
        rate, GST_FORMAT_TIME, static_cast<GstSeekFlags>(GST_SEEK_FLAG_FLUSH | GST_SEEK_FLAG_ACCURATE),
        GST_SEEK_TYPE_SET, static_cast<gint64>(position * GST_SECOND), GST_SEEK_TYPE_NONE, GST_CLOCK_TIME_NONE);
}

// An element made but never added to a bin: its floating reference is ours to drop.
void Discard(GstElement* element) {
    if (element != nullptr) {
        gst_object_unref(gst_object_ref_sink(element));
    }
}

[[noreturn]] void Fail(ExceptionBase::ErrorType type, const std::string& message) {
    throw ExceptionBase(type, message);
}

// Asks playbin3 to play exactly `wanted`; `operation` names the browser's call in the failure.
void SelectStreams(GstElement* playing, const std::vector<std::string>& wanted, const char* operation) {
    GList* ids = nullptr;
    for (const std::string& id : wanted) {
        ids = g_list_append(ids, const_cast<gchar*>(id.c_str()));
    }
    const bool sent = gst_element_send_event(playing, gst_event_new_select_streams(ids));
    g_list_free(ids);
    if (!sent) {
        Fail(ExceptionBase::NotSupported, std::string(operation) + ": the pipeline refused the stream selection");
    }
}

// A DecoderBuffer's bytes, lent to GStreamer without a copy: the buffer keeps the shared array alive.
GstBuffer* WrapSample(const DecoderBuffer& sample) {
    auto* owner = new boost::shared_ptr<unsigned char>(sample.data);
    GstBuffer* buffer = gst_buffer_new_wrapped_full(
        GST_MEMORY_FLAG_READONLY, sample.data.get(), sample.dataSize, 0, sample.dataSize, owner,
        [](gpointer held) { delete static_cast<boost::shared_ptr<unsigned char>*>(held); });
    GST_BUFFER_PTS(buffer) = static_cast<GstClockTime>(std::llround(sample.timestamp * GST_MSECOND));
    if (sample.duration > 0) {
        GST_BUFFER_DURATION(buffer) = static_cast<GstClockTime>(sample.duration) * GST_MSECOND;
    }
    if (sample.keyFrame == 0) {
        GST_BUFFER_FLAG_SET(buffer, GST_BUFFER_FLAG_DELTA_UNIT);
    }
    return buffer;
}

GstComponent::Kind KindOf(GstStreamType type, bool& known) {
    known = true;
    if ((type & GST_STREAM_TYPE_VIDEO) != 0) {
        return GstComponent::Video;
    }
    if ((type & GST_STREAM_TYPE_AUDIO) != 0) {
        return GstComponent::Audio;
    }
    known = (type & GST_STREAM_TYPE_TEXT) != 0;
    return GstComponent::Subtitle;
}

std::string LanguageOf(GstStream* stream) {
    std::string language;
    GstTagList* tags = gst_stream_get_tags(stream);
    gchar* code = nullptr;
    if (tags != nullptr && gst_tag_list_get_string(tags, GST_TAG_LANGUAGE_CODE, &code)) {
        // Broadcast and HbbTV name languages with three letters; GStreamer keeps two where there are.
        const gchar* threeLetters = gst_tag_get_language_code_iso_639_2T(code);
        language = threeLetters != nullptr ? threeLetters : code;
        g_free(code);
    }
    if (tags != nullptr) {
        gst_tag_list_unref(tags);
    }
    return language;
}

std::string CodecOf(GstStream* stream) {
    GstCaps* caps = gst_stream_get_caps(stream);
    std::string codec = CodecName(caps);
    if (caps != nullptr) {
        gst_caps_unref(caps);
    }
    return codec;
}

}  // namespace

GstMediaBackend::GstMediaBackend(const StackOptions& stackOptions) : options(stackOptions) {}

GstMediaBackend::~GstMediaBackend() {
    quitting = true;
    GstElement* stopping = nullptr;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        stopping = pipeline;
    }
    if (busThread.joinable()) {
        // Woken at once; the bus stops carrying messages once the pipeline is down, so it goes first.
        GstBus* bus = gst_element_get_bus(stopping);
        gst_bus_post(bus, gst_message_new_application(nullptr, gst_structure_new_empty("velmora-quit")));
        gst_object_unref(bus);
        busThread.join();
    }
    if (stopping != nullptr) {
        SettlePreroll();
        // Joins the streaming threads; what they post from now on is dropped.
        gst_element_set_state(stopping, GST_STATE_NULL);
    }
    try {
        RemoveAllComponents();
    } catch (...) {
        // Nobody listens any more: the library cut its subscription before letting go of the back-end.
    }
    if (collection != nullptr) {
        gst_object_unref(collection);
    }
    if (stopping != nullptr) {
        gst_object_unref(stopping);
    }
}

boost::signals2::connection GstMediaBackend::ConnectEvent(const EventSlot& slot) { return events.connect(slot); }

boost::signals2::connection GstMediaBackend::ConnectDrmBackendRequest(const DrmBackendRequestSlot& slot) {
    return drmBackendRequests.connect(slot);
}

// ---- Building the pipeline -------------------------------------------------------------------------

GstElement* GstMediaBackend::MakeSink(bool video) {
    const bool real = video ? options.windowVideo : options.realAudio;
    GstElement* sink =
        gst_element_factory_make(real ? (video ? "autovideosink" : "autoaudiosink") : "fakesink", nullptr);
    if (sink == nullptr) {
        Fail(ExceptionBase::NotSupported, "no GStreamer sink element available");
    }
    if (!real) {
        // At the pace of the clock, positions and end of stream come as in a product.
        g_object_set(sink, "sync", options.syncToClock ? TRUE : FALSE, nullptr);
    }
    if (video) {
        WatchVideoCaps(sink);
    }
    return sink;
}

void GstMediaBackend::WatchVideoCaps(GstElement* sink) {
    GstPad* pad = gst_element_get_static_pad(sink, "sink");
    if (pad != nullptr) {
        gst_pad_add_probe(pad, GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM, &GstMediaBackend::OnSinkEvent, this, nullptr);
        gst_object_unref(pad);
    }
}

void GstMediaBackend::InitBackend(std::string url, const SourceDescriptionBackendStreaming& source, bool /*flag*/) {
    const std::string location = source.url.empty() ? url : source.url;
    GstElement* playbin = gst_element_factory_make("playbin3", nullptr);
    if (playbin == nullptr) {
        Fail(ExceptionBase::NotSupported, "playbin3 is not available");
    }
    std::string uri = location;
    if (!gst_uri_is_valid(location.c_str())) {
        gchar* fileUri = gst_filename_to_uri(location.c_str(), nullptr);
        uri = fileUri != nullptr ? fileUri : location;
        g_free(fileUri);
    }
    g_object_set(playbin, "uri", uri.c_str(), "video-sink", MakeSink(true), "audio-sink", MakeSink(false), nullptr);
    StartPipeline(playbin);
}

void GstMediaBackend::InitBackend(std::string /*url*/, const std::vector<SourceDescriptionOperaStreaming>& sourceList,
                                  bool /*flag*/) {
    GstElement* created = gst_pipeline_new(nullptr);
    {
        const std::lock_guard<std::mutex> lock(mutex);
        if (pipeline != nullptr) {
            Discard(created);
            Fail(ExceptionBase::InvalidState, "InitBackend: the back-end is initialised already");
        }
        pipeline = created;
        mediaSource = true;
    }
    // Samples come from the browser's own demuxer: one it cannot decode is a fault to report at once,
    // not a frame to drop silently.
    g_signal_connect(created, "deep-element-added", G_CALLBACK(+[](GstBin*, GstBin*, GstElement* element, gpointer) {
                         if (g_object_class_find_property(G_OBJECT_GET_CLASS(element), "max-errors") != nullptr) {
                             g_object_set(element, "max-errors", 0, nullptr);
                         }
                     }),
                     nullptr);
    for (const SourceDescriptionOperaStreaming& source : sourceList) {
        AddSource(source);
    }
    StartPipeline(nullptr);
}

// `created` is a pipeline not installed yet, or null when InitBackend installed it already.
void GstMediaBackend::StartPipeline(GstElement* created) {
    if (created != nullptr) {
        const std::lock_guard<std::mutex> lock(mutex);
        if (pipeline != nullptr) {
            Discard(created);
            Fail(ExceptionBase::InvalidState, "InitBackend: the back-end is initialised already");
        }
        pipeline = created;
    }
    busThread = std::thread(&GstMediaBackend::BusLoop, this);
    // Prerolls: duration, size and streams are known (and announced) before the browser plays.
    SetState(GST_STATE_PAUSED, "InitBackend");
}

void GstMediaBackend::AttachSource(const SourceDescriptionOperaStreaming& source) {
    if (!mediaSource) {
        Fail(ExceptionBase::InvalidState, "AttachSource: not a Media Source back-end");
    }
    AddSource(source);
}

void GstMediaBackend::AddSource(const SourceDescriptionOperaStreaming& description) {
    GstCaps* caps = CapsForMimeType(description.mimeType);
    if (caps == nullptr) {
        Fail(ExceptionBase::NotSupported, "no elementary stream caps for MIME type \"" + description.mimeType + "\"");
    }
    GstElement* appsrc = gst_element_factory_make("appsrc", nullptr);
    GstElement* decodebin = gst_element_factory_make("decodebin", nullptr);
    if (appsrc == nullptr || decodebin == nullptr) {
        gst_caps_unref(caps);
        Discard(appsrc);
        Discard(decodebin);
        Fail(ExceptionBase::NotSupported, "appsrc or decodebin is not available");
    }
    const std::string mediaType = gst_structure_get_name(gst_caps_get_structure(caps, 0));
    const std::string codec = CodecName(caps);
    // Seekable, so that a flushing seek reaches every branch and empties its queue; the samples from the
    // new position are the browser's to send.
    g_object_set(appsrc, "caps", caps, "format", GST_FORMAT_TIME, "stream-type", GST_APP_STREAM_TYPE_SEEKABLE, nullptr);
    gst_caps_unref(caps);

    const GstComponent::Kind kind = mediaType.rfind("video/", 0) == 0 ? GstComponent::Video : GstComponent::Audio;
    auto component =
        std::make_shared<GstComponent>(kind, 0, std::to_string(description.sourceId), codec, std::string());
    AppsrcContext* context = nullptr;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        if (sources.count(description.sourceId) != 0) {
            Discard(appsrc);
            Discard(decodebin);
            Fail(ExceptionBase::InvalidState,
                 "source " + std::to_string(description.sourceId) + " is attached already");
        }
        Source& source = sources[description.sourceId];
        source.id = description.sourceId;
        source.appsrc = appsrc;
        source.component = component;
        source.component->selected = true;
        components.push_back(component);
        appsrcContexts.push_back(std::unique_ptr<AppsrcContext>(new AppsrcContext{this, description.sourceId}));
        context = appsrcContexts.back().get();
        source.context = context;
    }
    GstAppSrcCallbacks callbacks{};
    callbacks.need_data = &GstMediaBackend::OnNeedData;
    callbacks.seek_data = &GstMediaBackend::OnSeekData;
    gst_app_src_set_callbacks(GST_APP_SRC(appsrc), &callbacks, context, nullptr);
    g_signal_connect(decodebin, "pad-added", G_CALLBACK(&GstMediaBackend::OnPadAdded), this);
    gst_bin_add_many(GST_BIN(pipeline), appsrc, decodebin, nullptr);
    gst_element_link(appsrc, decodebin);
    gst_element_sync_state_with_parent(decodebin);
    gst_element_sync_state_with_parent(appsrc);
    Post([this, component] {
        Raise(new ComponentChangedEvent(component.get(), ComponentChangedEvent::Added));
        component->SetActive(true);
    });
}

// On a streaming thread: the decoder's output gets a converter and a sink.
void GstMediaBackend::OnPadAdded(GstElement* /*decodebin*/, GstPad* pad, gpointer self) {
    auto* backend = static_cast<GstMediaBackend*>(self);
    GstCaps* caps = gst_pad_get_current_caps(pad);
    if (caps == nullptr) {
        caps = gst_pad_query_caps(pad, nullptr);
    }
    const bool video = std::string(gst_structure_get_name(gst_caps_get_structure(caps, 0))).rfind("video/", 0) == 0;
    gst_caps_unref(caps);
    std::vector<GstElement*> chain;
    if (video) {
        chain.push_back(gst_element_factory_make("videoconvert", nullptr));
    } else {
        chain.push_back(gst_element_factory_make("audioconvert", nullptr));
        chain.push_back(gst_element_factory_make("audioresample", nullptr));
        chain.push_back(gst_element_factory_make("volume", nullptr));
    }
    try {
        chain.push_back(backend->MakeSink(video));
    } catch (...) {
        chain.push_back(nullptr);
    }
    if (std::find(chain.begin(), chain.end(), nullptr) != chain.end()) {
        for (GstElement* element : chain) {
            Discard(element);
        }
        backend->Post([backend] { backend->Raise(new BackendEvent(BackendEvent::DecodeError)); });
        return;
    }
    if (!video) {
        const std::lock_guard<std::mutex> lock(backend->mutex);
        g_object_set(chain[2], "volume", backend->volume, nullptr);
        backend->volumes.push_back(chain[2]);
    }
    for (GstElement* element : chain) {
        gst_bin_add(GST_BIN(backend->pipeline), element);
    }
    for (std::size_t i = 1; i < chain.size(); ++i) {
        gst_element_link(chain[i - 1], chain[i]);
    }
    for (GstElement* element : chain) {
        gst_element_sync_state_with_parent(element);
    }
    GstPad* input = gst_element_get_static_pad(chain.front(), "sink");
    gst_pad_link(pad, input);
    gst_object_unref(input);
}

void GstMediaBackend::RemoveSource(std::uint32_t sourceId) {
    std::shared_ptr<GstComponent> component;
    GstElement* appsrc = nullptr;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        const auto found = sources.find(static_cast<std::int32_t>(sourceId));
        if (found == sources.end()) {
            Fail(ExceptionBase::InvalidState, "RemoveSource: unknown source " + std::to_string(sourceId));
        }
        found->second.ended = true;
        found->second.removed = true;
        appsrc = found->second.appsrc;
        component = found->second.component;
        components.erase(std::remove(components.begin(), components.end(), component), components.end());
    }
    // The branch stays in the pipeline, ended, so the other sources play on.
    gst_app_src_end_of_stream(GST_APP_SRC(appsrc));
    Post([this, component] { Raise(new ComponentChangedEvent(component.get(), ComponentChangedEvent::Removed)); });
}

// ---- Media Source data --------------------------------------------------------------------------

void GstMediaBackend::OnNeedData(GstAppSrc* /*appsrc*/, guint /*length*/, gpointer context) {
    auto* known = static_cast<AppsrcContext*>(context);
    GstMediaBackend* backend = known->backend;
    const std::int32_t sourceId = known->sourceId;
    backend->Post([backend, sourceId] { backend->RequestSamples(sourceId); });
}

// On the seeking thread, maybe with the appsrc's own lock held (so no lock of ours is taken here): the
// seek flushed this branch. The browser is asked for data once the seek is done.
gboolean GstMediaBackend::OnSeekData(GstAppSrc* /*appsrc*/, guint64 /*offset*/, gpointer context) {
    static_cast<AppsrcContext*>(context)->seeked = true;
    return TRUE;
}

void GstMediaBackend::RequestSamples(std::int32_t sourceId) {
    {
        const std::lock_guard<std::mutex> lock(mutex);
        const auto found = sources.find(sourceId);
        if (found == sources.end() || found->second.requested || found->second.ended) {
            return;
        }
        found->second.requested = true;
    }
    Raise(new NeedMseDataEvent(sourceId, kSamplesPerRequest));
}

void GstMediaBackend::WriteData(boost::shared_ptr<BackendEvent> /*event*/, unsigned int /*size*/,
                                UVABackend::WriteDataStatus /*status*/) {
    Fail(ExceptionBase::NotSupported, "WriteData: this back-end takes Media Source samples only");
}

void GstMediaBackend::WriteMseData(boost::shared_ptr<BackendEvent> event, UVABackend::WriteDataStatus status) {
    const auto* written = dynamic_cast<const WriteMseDataEvent*>(event.get());
    if (written == nullptr) {
        Fail(ExceptionBase::GenericError, "WriteMseData: not a WriteMseDataEvent");
    }
    GstElement* appsrc = nullptr;
    std::vector<GstBuffer*> buffers;
    std::uint32_t backwards = 0;
    bool allEnded = true;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        const auto found = sources.find(written->sourceId);
        // After a seek the browser may still answer a request it was asked before, so the end of a
        // stream can come twice: the second time, with nothing in it, there is nothing to do.
        const bool endedAgain = found != sources.end() && found->second.ended && !found->second.removed &&
                                status == UVABackend::WRITE_DATA_END_OF_STREAM &&
                                (!written->buffers || written->buffers->empty());
        if (endedAgain) {
            return;
        }
        if (found == sources.end() || found->second.ended) {
            Fail(ExceptionBase::InvalidState,
                 "WriteMseData: source " + std::to_string(written->sourceId) + " is unknown or ended");
        }
        Source& source = found->second;
        source.requested = false;
        appsrc = source.appsrc;
        if (written->buffers) {
            for (const DecoderBuffer& sample : *written->buffers) {
                // A decoder cannot go back in time within a stream: only a key frame may restart it.
                if (sample.dataSize == 0 || (sample.timestamp < source.lastTimestampMs && sample.keyFrame == 0)) {
                    backwards += sample.dataSize == 0 ? 0 : 1;
                    continue;
                }
                source.lastTimestampMs = sample.timestamp;
                writtenEndMs = std::max(writtenEndMs, sample.timestamp + sample.duration);
                buffers.push_back(WrapSample(sample));
            }
        }
        source.ended = status != UVABackend::WRITE_DATA_OK;
        for (const auto& [id, each] : sources) {
            allEnded = allEnded && each.ended;
        }
    }
    for (GstBuffer* buffer : buffers) {
        gst_app_src_push_buffer(GST_APP_SRC(appsrc), buffer);  // takes the buffer
    }
    if (status != UVABackend::WRITE_DATA_OK) {
        gst_app_src_end_of_stream(GST_APP_SRC(appsrc));
    }
    if (status == UVABackend::WRITE_DATA_ERROR) {
        Post([this] { Raise(new BackendEvent(BackendEvent::DecodeError)); });
    }
    if (allEnded) {
        Post([this] { AnnounceDuration(); });
    }
    if (backwards != 0) {
        Fail(ExceptionBase::GenericError, "WriteMseData: " + std::to_string(backwards) + " sample(s) of source " +
                                              std::to_string(written->sourceId) + " go back in time; dropped");
    }
}

void GstMediaBackend::GetBytesInBuffer(unsigned int& bytes) {
    const std::lock_guard<std::mutex> lock(mutex);
    bytes = 0;
    for (const auto& [id, source] : sources) {
        guint64 level = 0;
        g_object_get(source.appsrc, "current-level-bytes", &level, nullptr);
        bytes += static_cast<unsigned int>(level);
    }
}

// ---- Playback control ----------------------------------------------------------------------------

GstElement* GstMediaBackend::Pipeline() const {
    const std::lock_guard<std::mutex> lock(mutex);
    if (pipeline == nullptr) {
        Fail(ExceptionBase::InvalidState, "the back-end is not initialised");
    }
    return pipeline;
}

// playbin3 of GStreamer 1.22 can deadlock when it is taken down while its source is still finding
// the stream's type, so a state change downwards first lets a running preroll end (or time out).
void GstMediaBackend::SettlePreroll() {
    GstElement* playing = nullptr;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        playing = mediaSource ? nullptr : pipeline;
    }
    if (playing != nullptr) {
        gst_element_get_state(playing, nullptr, nullptr, kPrerollPatience);
    }
}

void GstMediaBackend::SetState(GstState state, const char* operation) {
    if (state < GST_STATE_PAUSED) {
        SettlePreroll();
    }
    if (gst_element_set_state(Pipeline(), state) == GST_STATE_CHANGE_FAILURE) {
        Fail(ExceptionBase::InvalidState, std::string(operation) + ": the pipeline refused the state change");
    }
}

void GstMediaBackend::Play() { SetState(GST_STATE_PLAYING, "Play"); }

void GstMediaBackend::Pause(bool paused) { SetState(paused ? GST_STATE_PAUSED : GST_STATE_PLAYING, "Pause"); }

void GstMediaBackend::Stop() {
    SetState(GST_STATE_READY, "Stop");
    {
        const std::lock_guard<std::mutex> lock(mutex);
        for (auto& [id, source] : sources) {
            source.requested = false;
        }
        selectedStreams.clear();
    }
    // In order after every event already posted: the browser sees each component go exactly once.
    Post([this] { RemoveAllComponents(); });
}

void GstMediaBackend::Seek(double newRate, double position, const char* operation) {
    if (!gst_element_send_event(Pipeline(), NewSeek(newRate, position))) {
        Fail(ExceptionBase::NotSupported, std::string(operation) + ": the pipeline cannot seek");
    }
}

bool GstMediaBackend::SetPosition(double position) {
    double currentRate = 1.0;
    bool restart = false;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        if (mediaSource && !(position >= 0.0)) {
            return false;
        }
        seekPending = true;
        heldPosition = position;
        settledAfterSeek = false;
        seekStarted = std::chrono::steady_clock::now();
        currentRate = rate;
        restart = mediaSource;
        for (auto& [id, source] : sources) {
            source.context->seeked = false;
        }
    }
    bool sought = true;
    try {
        Seek(currentRate, position, "SetPosition");
    } catch (const ExceptionBase&) {
        sought = false;
    }
    // A Media Source pipeline refuses the seek while a branch's decoder is still being linked; the
    // branches it did not reach are seeked on their own.
    if (restart) {
        sought = RestartSources(currentRate, position);
    }
    if (!sought) {
        const std::lock_guard<std::mutex> lock(mutex);
        seekPending = false;
        heldPosition.reset();
    }
    return sought;
}

// After a Media Source seek every branch is flushed and waits for samples from `position`. The
// pipeline's seek reaches a branch only through its sink, so a branch without one yet is seeked
// directly. A request still open was for the old position: the browser learns it is void before it
// is asked again. Every source but a removed one is asked here, since a branch that had ended may
// have nobody left to ask.
bool GstMediaBackend::RestartSources(double currentRate, double position) {
    std::vector<GstElement*> unreached;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        for (const auto& [id, source] : sources) {
            if (!source.removed && !source.context->seeked) {
                unreached.push_back(source.appsrc);
            }
        }
    }
    for (GstElement* appsrc : unreached) {
        if (!gst_element_send_event(appsrc, NewSeek(currentRate, position))) {
            return false;
        }
    }
    std::vector<std::int32_t> cancelled;
    std::vector<std::int32_t> restarted;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        for (auto& [id, source] : sources) {
            if (source.removed) {
                continue;
            }
            if (source.requested) {
                cancelled.push_back(id);
            }
            source.requested = false;
            source.ended = false;
            source.lastTimestampMs = -1.0;
            restarted.push_back(id);
        }
    }
    // A Media Source request has no id of its own: the source's id names it.
    for (const std::int32_t id : cancelled) {
        Post([this, position, id] { Raise(new CancelDataRequestsEvent(position, id)); });
    }
    for (const std::int32_t id : restarted) {
        Post([this, id] { RequestSamples(id); });
    }
    return true;
}

void GstMediaBackend::SetPlaybackRate(double newRate) {
    if (!(newRate > 0.0)) {
        Fail(ExceptionBase::NotSupported, "SetPlaybackRate: only forward rates are supported");
    }
    {
        // The rate's seek would flush the Media Source branches and lose the samples they hold.
        const std::lock_guard<std::mutex> lock(mutex);
        if (mediaSource) {
            Fail(ExceptionBase::NotSupported, "SetPlaybackRate: the pipeline cannot seek");
        }
    }
    double position = 0.0;
    if (!GetPosition(position)) {
        Fail(ExceptionBase::InvalidState, "SetPlaybackRate: the position is not known yet");
    }
    Seek(newRate, position, "SetPlaybackRate");
    const std::lock_guard<std::mutex> lock(mutex);
    rate = newRate;
}

void GstMediaBackend::SetVolume(double newVolume) {
    GstElement* playing = Pipeline();
    const std::lock_guard<std::mutex> lock(mutex);
    volume = std::clamp(newVolume, 0.0, 1.0);
    if (!mediaSource) {
        g_object_set(playing, "volume", volume, nullptr);
    }
    for (GstElement* element : volumes) {
        g_object_set(element, "volume", volume, nullptr);
    }
}

void GstMediaBackend::SetLoop(std::string /*loop*/) { Fail(ExceptionBase::NotImplemented, "SetLoop"); }

void GstMediaBackend::SetSource(std::string /*url*/) { Fail(ExceptionBase::NotImplemented, "SetSource"); }

void GstMediaBackend::SetKeySystem(std::string /*keySystem*/) {
    Fail(ExceptionBase::NotSupported, "SetKeySystem: the GStreamer stack decrypts nothing");
}

// ---- Queries --------------------------------------------------------------------------------------

bool GstMediaBackend::GetPosition(double& position) {
    std::optional<double> held;
    std::chrono::steady_clock::time_point heldSince;
    double heldRate = 1.0;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        if (heldPosition && !settledAfterSeek) {
            position = *heldPosition;
            return true;
        }
        held = heldPosition;
        heldSince = seekStarted;
        heldRate = rate;
    }
    gint64 now = 0;
    const bool known = gst_element_query_position(Pipeline(), GST_FORMAT_TIME, &now) && now >= 0;
    const double queried = static_cast<double>(now) / GST_SECOND;
    if (held) {
        // Played on since the seek at most at the rate, with a second's slack for the sinks' latency.
        const double played = std::chrono::duration<double>(std::chrono::steady_clock::now() - heldSince).count();
        if (!known || queried < *held - 0.1 || queried > *held + played * heldRate + 1.0) {
            position = *held;
            return true;
        }
        const std::lock_guard<std::mutex> lock(mutex);
        if (seekStarted == heldSince) {
            heldPosition.reset();
        }
    }
    if (!known) {
        return false;
    }
    position = queried;
    return true;
}

bool GstMediaBackend::GetDuration(double& duration) {
    GstElement* playing = Pipeline();
    {
        const std::lock_guard<std::mutex> lock(mutex);
        if (mediaSource) {
            duration = durationSeconds;
            return durationSeconds >= 0.0;
        }
    }
    gint64 length = 0;
    if (!gst_element_query_duration(playing, GST_FORMAT_TIME, &length) || length < 0) {
        return false;
    }
    duration = static_cast<double>(length) / GST_SECOND;
    return true;
}

bool GstMediaBackend::GetNativeSize(unsigned short& nativeWidth, unsigned short& nativeHeight, double& ratio) {
    const std::lock_guard<std::mutex> lock(mutex);
    if (width == 0 || height == 0) {
        return false;
    }
    nativeWidth = width;
    nativeHeight = height;
    ratio = aspectRatio;
    return true;
}

bool GstMediaBackend::GetSeekableTimeRanges(std::vector<ByteRange>& /*byteRanges*/,
                                            std::vector<TimeRange>& timeRanges) {
    GstElement* playing = Pipeline();
    GstQuery* query = gst_query_new_seeking(GST_FORMAT_TIME);
    gboolean seekable = FALSE;
    gint64 start = 0;
    gint64 end = 0;
    const bool answered = gst_element_query(playing, query);
    if (answered) {
        gst_query_parse_seeking(query, nullptr, &seekable, &start, &end);
    }
    gst_query_unref(query);
    if (answered && seekable && end > start && start >= 0) {
        timeRanges.push_back({ToMilliseconds(start), ToMilliseconds(end)});
    }
    return answered;
}

bool GstMediaBackend::GetBufferedTimeRanges(std::vector<ByteRange>& /*byteRanges*/,
                                            std::vector<TimeRange>& timeRanges) {
    GstElement* playing = Pipeline();
    {
        const std::lock_guard<std::mutex> lock(mutex);
        if (mediaSource) {
            if (writtenEndMs > 0.0) {
                timeRanges.push_back({0, static_cast<std::uint32_t>(writtenEndMs)});
            }
            return true;
        }
    }
    GstQuery* query = gst_query_new_buffering(GST_FORMAT_TIME);
    bool answered = gst_element_query(playing, query);
    for (guint i = 0; answered && i < gst_query_get_n_buffering_ranges(query); ++i) {
        gint64 start = 0;
        gint64 stop = 0;
        if (gst_query_parse_nth_buffering_range(query, i, &start, &stop) && start >= 0 && stop > start) {
            timeRanges.push_back({ToMilliseconds(start), ToMilliseconds(stop)});
        }
    }
    gst_query_unref(query);
    // A local file has no buffering element: all of it is available.
    double duration = 0.0;
    if (!answered && GetDuration(duration)) {
        timeRanges.push_back({0, static_cast<std::uint32_t>(duration * 1000.0)});
        answered = true;
    }
    return answered;
}

bool GstMediaBackend::CanPlayURL(const std::string& url) {
    if (gst_uri_is_valid(url.c_str())) {
        gchar* protocol = gst_uri_get_protocol(url.c_str());
        const bool supported = gst_uri_protocol_is_supported(GST_URI_SRC, protocol);
        g_free(protocol);
        return supported;
    }
    return g_file_test(url.c_str(), G_FILE_TEST_IS_REGULAR);
}

bool GstMediaBackend::CanPlayType(const std::string& type, const std::vector<std::string>& codecs,
                                  const std::string& keySystem) {
    if (!keySystem.empty()) {
        return false;
    }
    std::vector<std::string> asked = codecs.empty() ? std::vector<std::string>{""} : codecs;
    return std::all_of(asked.begin(), asked.end(), [&](const std::string& codec) {
        GstCaps* caps = CapsForMimeType(codec.empty() ? type : type + "; codecs=\"" + codec + "\"");
        if (caps != nullptr) {
            gst_caps_unref(caps);
        }
        return caps != nullptr;
    });
}

void GstMediaBackend::GetSupportedMimetypes(std::vector<std::string>& types) { types = SupportedMimeTypes(); }

std::vector<std::string> GstMediaBackend::SelectedStreams() const {
    const std::lock_guard<std::mutex> lock(mutex);
    return selectedStreams;
}

// ---- Components ------------------------------------------------------------------------------------

void GstMediaBackend::SelectComponent(IAvComponent* chosen) {
    std::vector<std::string> wanted;
    GstElement* playing = Pipeline();
    {
        const std::lock_guard<std::mutex> lock(mutex);
        const auto found = std::find_if(components.begin(), components.end(),
                                        [chosen](const std::shared_ptr<GstComponent>& c) { return c.get() == chosen; });
        if (found == components.end()) {
            Fail(ExceptionBase::InvalidState, "SelectComponent: unknown component");
        }
        if (mediaSource) {
            return;  // every Media Source source plays; there is nothing to switch
        }
        for (const auto& other : components) {
            const bool keep = other == *found || (other->GetKind() != (*found)->GetKind() && other->selected);
            if (keep) {
                wanted.push_back(other->StreamId());
            }
        }
    }
    SelectStreams(playing, wanted, "SelectComponent");
}

void GstMediaBackend::UnselectComponent(IAvComponent* chosen) {
    std::vector<std::string> wanted;
    GstElement* playing = Pipeline();
    {
        const std::lock_guard<std::mutex> lock(mutex);
        bool known = false;
        for (const auto& other : components) {
            known = known || other.get() == chosen;
            if (other.get() != chosen && other->selected) {
                wanted.push_back(other->StreamId());
            }
        }
        if (!known) {
            Fail(ExceptionBase::InvalidState, "UnselectComponent: unknown component");
        }
        if (mediaSource) {
            return;
        }
    }
    SelectStreams(playing, wanted, "UnselectComponent");
}

// On the bus thread: the streams playbin3 found become components; streams that went away are removed.
void GstMediaBackend::OnCollection(GstStreamCollection* found) {
    std::vector<std::shared_ptr<GstComponent>> added;
    std::vector<std::shared_ptr<GstComponent>> removed;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        std::vector<std::shared_ptr<GstComponent>> next;
        std::int32_t counts[3] = {0, 0, 0};
        for (guint i = 0; i < gst_stream_collection_get_size(found); ++i) {
            GstStream* stream = gst_stream_collection_get_stream(found, i);
            bool known = false;
            const GstComponent::Kind kind = KindOf(gst_stream_get_stream_type(stream), known);
            const gchar* streamId = gst_stream_get_stream_id(stream);
            if (!known || streamId == nullptr) {
                continue;
            }
            const auto existing =
                std::find_if(components.begin(), components.end(),
                             [&](const std::shared_ptr<GstComponent>& c) { return c->StreamId() == streamId; });
            if (existing != components.end()) {
                next.push_back(*existing);
            } else {
                next.push_back(
                    std::make_shared<GstComponent>(kind, counts[kind], streamId, CodecOf(stream), LanguageOf(stream)));
                added.push_back(next.back());
            }
            ++counts[kind];
        }
        for (const auto& old : components) {
            if (std::find(next.begin(), next.end(), old) == next.end()) {
                removed.push_back(old);
            }
        }
        components.swap(next);
        if (collection != nullptr) {
            gst_object_unref(collection);
        }
        collection = GST_STREAM_COLLECTION(gst_object_ref(found));
    }
    for (const auto& component : removed) {
        Raise(new ComponentChangedEvent(component.get(), ComponentChangedEvent::Removed));
    }
    for (const auto& component : added) {
        Raise(new ComponentChangedEvent(component.get(), ComponentChangedEvent::Added));
        component->SetActive(true);
    }
}

// On the bus thread: what the pipeline now plays; every component whose selection flipped is Changed.
void GstMediaBackend::OnStreamsSelected(GstMessage* message) {
    std::vector<std::string> ids;
    for (guint i = 0; i < gst_message_streams_selected_get_size(message); ++i) {
        GstStream* stream = gst_message_streams_selected_get_stream(message, i);
        if (stream != nullptr && gst_stream_get_stream_id(stream) != nullptr) {
            ids.push_back(gst_stream_get_stream_id(stream));
        }
        if (stream != nullptr) {
            gst_object_unref(stream);
        }
    }
    std::vector<std::shared_ptr<GstComponent>> changed;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        selectedStreams = ids;
        for (const auto& component : components) {
            const bool selected = std::find(ids.begin(), ids.end(), component->StreamId()) != ids.end();
            if (selected != component->selected) {
                component->selected = selected;
                changed.push_back(component);
            }
        }
    }
    for (const auto& component : changed) {
        Raise(new ComponentChangedEvent(component.get(), ComponentChangedEvent::Changed));
    }
}

void GstMediaBackend::RemoveAllComponents() {
    std::vector<std::shared_ptr<GstComponent>> removed;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        removed.swap(components);
    }
    for (const auto& component : removed) {
        Raise(new ComponentChangedEvent(component.get(), ComponentChangedEvent::Removed));
    }
}

// ---- The bus thread ----------------------------------------------------------------------------------

void GstMediaBackend::BusLoop() {
    GstBus* bus = gst_element_get_bus(pipeline);
    while (!quitting) {
        GstMessage* message = gst_bus_timed_pop(bus, kBusPollPeriod);
        if (message != nullptr) {
            if (!quitting) {
                Dispatch(message);
            }
            gst_message_unref(message);
        }
        RunTasks();
    }
    gst_object_unref(bus);
}

void GstMediaBackend::Post(std::function<void()> task) {
    if (quitting) {
        return;
    }
    {
        const std::lock_guard<std::mutex> lock(mutex);
        tasks.push_back(std::move(task));
    }
    // Wakes the bus thread at once.
    gst_element_post_message(
        pipeline, gst_message_new_application(GST_OBJECT(pipeline), gst_structure_new_empty("velmora-task")));
}

void GstMediaBackend::RunTasks() {
    while (!quitting) {
        std::function<void()> task;
        {
            const std::lock_guard<std::mutex> lock(mutex);
            if (tasks.empty()) {
                return;
            }
            task = std::move(tasks.front());
            tasks.pop_front();
        }
        task();
    }
}

void GstMediaBackend::Raise(BackendEvent* event) {
    const boost::shared_ptr<BackendEvent> shared(event);
    try {
        events(shared);
    } catch (...) {
        // A slot's failure costs its own event only; the bus thread goes on.
    }
}

void GstMediaBackend::Dispatch(GstMessage* message) {
    switch (GST_MESSAGE_TYPE(message)) {
        case GST_MESSAGE_ERROR: Raise(new BackendEvent(BackendEvent::DecodeError)); break;
        case GST_MESSAGE_EOS: {
            {
                const std::lock_guard<std::mutex> lock(mutex);
                finished = true;
            }
            AnnounceDuration();
            Raise(new BackendEvent(BackendEvent::PlaybackFinished));
            break;
        }
        case GST_MESSAGE_ASYNC_DONE: {
            bool seeked = false;
            GstState pending = GST_STATE_VOID_PENDING;
            gst_element_get_state(pipeline, nullptr, &pending, 0);
            {
                const std::lock_guard<std::mutex> lock(mutex);
                seeked = seekPending;
                seekPending = false;
                if (pending == GST_STATE_VOID_PENDING) {
                    settledAfterSeek = true;
                }
            }
            AnnounceDuration();
            if (seeked) {
                Raise(new BackendEvent(BackendEvent::SeekCompleted));
            }
            break;
        }
        case GST_MESSAGE_STATE_CHANGED: {
            GstState pending = GST_STATE_VOID_PENDING;
            gst_message_parse_state_changed(message, nullptr, nullptr, &pending);
            const std::lock_guard<std::mutex> lock(mutex);
            // The pipeline's own change after the seek completed: its sinks run on the new timeline.
            if (GST_MESSAGE_SRC(message) == GST_OBJECT_CAST(pipeline) && pending == GST_STATE_VOID_PENDING &&
                !seekPending) {
                settledAfterSeek = true;
            }
            break;
        }
        case GST_MESSAGE_DURATION_CHANGED: AnnounceDuration(); break;
        case GST_MESSAGE_BUFFERING: {
            gint percent = 0;
            gst_message_parse_buffering(message, &percent);
            Raise(new BackendEvent(percent < 100 ? BackendEvent::BufferingProgress
                                                 : BackendEvent::BufferingStreamBuffered));
            break;
        }
        case GST_MESSAGE_STREAM_COLLECTION: {
            GstStreamCollection* found = nullptr;
            gst_message_parse_stream_collection(message, &found);
            if (found != nullptr) {
                OnCollection(found);
                gst_object_unref(found);
            }
            break;
        }
        case GST_MESSAGE_STREAMS_SELECTED: OnStreamsSelected(message); break;
        default: break;
    }
}

// The duration as the pipeline knows it (Media Source: the end of what was written, once every
// source has ended), raised when it changed.
void GstMediaBackend::AnnounceDuration() {
    double duration = -1.0;
    bool source = false;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        source = mediaSource;
        if (source) {
            const bool allEnded =
                std::all_of(sources.begin(), sources.end(), [](const auto& each) { return each.second.ended; });
            if (allEnded && !sources.empty()) {
                duration = writtenEndMs / 1000.0;
            }
        }
    }
    gint64 length = 0;
    if (!source && gst_element_query_duration(pipeline, GST_FORMAT_TIME, &length) && length > 0) {
        duration = static_cast<double>(length) / GST_SECOND;
    }
    {
        const std::lock_guard<std::mutex> lock(mutex);
        if (duration < 0.0 || std::fabs(duration - durationSeconds) < 0.001) {
            return;
        }
        durationSeconds = duration;
    }
    Raise(new DurationChangedEvent(duration));
}

// On a streaming thread: the video sink's caps give the frame size.
GstPadProbeReturn GstMediaBackend::OnSinkEvent(GstPad* /*pad*/, GstPadProbeInfo* info, gpointer self) {
    GstEvent* event = GST_PAD_PROBE_INFO_EVENT(info);
    if (GST_EVENT_TYPE(event) != GST_EVENT_CAPS) {
        return GST_PAD_PROBE_OK;
    }
    GstCaps* caps = nullptr;
    gst_event_parse_caps(event, &caps);
    GstVideoInfo video;
    if (caps == nullptr || !gst_video_info_from_caps(&video, caps) || video.width <= 0 || video.height <= 0) {
        return GST_PAD_PROBE_OK;
    }
    const auto newWidth = static_cast<std::uint16_t>(video.width);
    const auto newHeight = static_cast<std::uint16_t>(video.height);
    const double ratio =
        static_cast<double>(video.width) * video.par_n / (static_cast<double>(video.height) * video.par_d);
    auto* backend = static_cast<GstMediaBackend*>(self);
    backend->Post([backend, newWidth, newHeight, ratio] {
        {
            const std::lock_guard<std::mutex> lock(backend->mutex);
            if (backend->width == newWidth && backend->height == newHeight) {
                return;
            }
            backend->width = newWidth;
            backend->height = newHeight;
            backend->aspectRatio = ratio;
        }
        backend->Raise(new VideoResizedEvent(newWidth, newHeight, ratio));
    });
    return GST_PAD_PROBE_OK;
}

}  // namespace Gst
}  // namespace Velmora
