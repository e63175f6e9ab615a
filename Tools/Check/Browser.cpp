#include "Browser.h"

#include <cxxabi.h>

#include <algorithm>
#include <boost/bind/bind.hpp>
#include <boost/make_shared.hpp>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <thread>
#include <type_traits>
#include <typeinfo>

#include "Velmora/IMediaBackend.h"

namespace Check {

namespace {

using Velmora::BackendEvent;
using Velmora::IAvComponent;
using Velmora::IBackend;
using Clock = std::chrono::steady_clock;
using SourceDescription = UVABackend::SourceDescription;

constexpr std::int32_t kSourceId = 1;
constexpr std::int32_t kSampleMs = 500;
constexpr std::int32_t kStreamMs = 3000;  // long enough for a few data requests, short enough to be quick
constexpr auto kStreamDeadline = std::chrono::seconds(5);
constexpr auto kRemovalDeadline = std::chrono::seconds(2);
constexpr auto kStrayEventWait = std::chrono::milliseconds(300);
constexpr auto kRecheck = std::chrono::milliseconds(20);
// A noisy machine slows single calls down now and then; the median of a few calls is the stack's own.
constexpr int kCallsPerOperation = 3;
constexpr const char* kForeignException = "Unknown exception caught";

std::string Demangled(const std::type_info& type) {
    int status = 0;
    std::unique_ptr<char, void (*)(void*)> name(abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), std::free);
    return status == 0 && name ? name.get() : type.name();
}

template <typename Event>
bool Is(const BackendEvent& event) {
    if constexpr (std::is_same<Event, BackendEvent>::value) {
        return true;  // codes without fields may be raised as any event object
    } else {
        return dynamic_cast<const Event*>(&event) != nullptr;
    }
}

// What each code obliges the raised object to be; the library casts to it without asking twice.
struct EventClass {
    const char* code;
    const char* className;
    bool (*matches)(const BackendEvent&);
};

const EventClass kEventClasses[] = {
    {"BackendResourceRevoked", "BackendEvent", Is<Velmora::BackendEvent>},
    {"NeedData", "NeedDataEvent", Is<Velmora::NeedDataEvent>},
    {"NeedMseData", "NeedMseDataEvent", Is<Velmora::NeedMseDataEvent>},
    {"WriteMseData", "WriteMseDataEvent", Is<Velmora::WriteMseDataEvent>},
    {"CancelDataRequests", "CancelDataRequestsEvent", Is<Velmora::CancelDataRequestsEvent>},
    {"PlaybackFinished", "BackendEvent", Is<Velmora::BackendEvent>},
    {"DurationChanged", "DurationChangedEvent", Is<Velmora::DurationChangedEvent>},
    {"VideoResized", "VideoResizedEvent", Is<Velmora::VideoResizedEvent>},
    {"DecodeError", "BackendEvent", Is<Velmora::BackendEvent>},
    {"SeekCompleted", "BackendEvent", Is<Velmora::BackendEvent>},
    {"VideoFrameAvailable", "BackendEvent", Is<Velmora::BackendEvent>},
    {"DRMRightsError", "DRMRightsErrorEvent", Is<Velmora::DRMRightsErrorEvent>},
    {"ParentalRatingError", "ParentalRatingErrorEvent", Is<Velmora::ParentalRatingErrorEvent>},
    {"ParentalRatingChange", "ParentalRatingChangeEvent", Is<Velmora::ParentalRatingChangeEvent>},
    {"BroadcastPlaystateChange", "BroadcastPlaystateChangeEvent", Is<Velmora::BroadcastPlaystateChangeEvent>},
    {"ChannelChangeError", "ChannelChangeErrorEvent", Is<Velmora::ChannelChangeErrorEvent>},
    {"ChannelChangeSucceeded", "ChannelChangeSucceededEvent", Is<Velmora::ChannelChangeSucceededEvent>},
    {"ProgrammesChanged", "BackendEvent", Is<Velmora::BackendEvent>},
    {"RecordingError", "RecordingErrorEvent", Is<Velmora::RecordingErrorEvent>},
    {"RecordingStateChange", "RecordingStateChangeEvent", Is<Velmora::RecordingStateChangeEvent>},
    {"BufferingProgress", "BackendEvent", Is<Velmora::BackendEvent>},
    {"BufferingNetworkError", "BackendEvent", Is<Velmora::BackendEvent>},
    {"BufferingIdle", "BackendEvent", Is<Velmora::BackendEvent>},
    {"BufferingStreamUnderrun", "BufferingStreamUnderrunEvent", Is<Velmora::BufferingStreamUnderrunEvent>},
    {"BufferingStreamBuffered", "BackendEvent", Is<Velmora::BackendEvent>},
    {"SubtitlesChanged", "SubtitlesChangedEvent", Is<Velmora::SubtitlesChangedEvent>},
    {"ComponentChanged", "ComponentChangedEvent", Is<Velmora::ComponentChangedEvent>},
};
constexpr int kEventCodes = sizeof(kEventClasses) / sizeof(kEventClasses[0]);

bool Insane(double value) { return std::isnan(value) || value < 0.0; }

// Values no stream can have, as the browser receives them; empty when the event is plausible.
std::string InsaneValues(const UVAEvent& event) {
    std::ostringstream out;
    if (const auto* e = dynamic_cast<const ::NeedDataEvent*>(&event)) {
        if (e->offset < 0 || e->size < 0) out << "NEED_DATA with offset " << e->offset << " and size " << e->size;
    } else if (const auto* e = dynamic_cast<const ::CancelDataRequestsEvent*>(&event)) {
        if (Insane(e->position)) out << "CANCEL_DATA_REQUESTS at position " << e->position;
    } else if (const auto* e = dynamic_cast<const ::DurationChangedEvent*>(&event)) {
        if (Insane(e->duration)) out << "DURATION_CHANGED with duration " << e->duration;
    } else if (const auto* e = dynamic_cast<const ::VideoResizedEvent*>(&event)) {
        if (e->width < 0 || e->height < 0 || Insane(e->aspectRatio) || std::isinf(e->aspectRatio)) {
            out << "VIDEO_RESIZED to " << e->width << "x" << e->height << " aspect ratio " << e->aspectRatio;
        }
    } else if (const auto* e = dynamic_cast<const ::BufferingStreamUnderrunEvent*>(&event)) {
        if (e->bufferLevel < 0) out << "BUFFERING_STREAM_UNDERRUN with buffer level " << e->bufferLevel;
    } else if (const auto* e = dynamic_cast<const ::ComponentChangedEvent*>(&event)) {
        if (e->component == nullptr) {
            out << "COMPONENT_CHANGED without a component";
        } else if (Insane(e->component->aspectRatio) || std::isinf(e->component->aspectRatio)) {
            out << "COMPONENT_CHANGED with aspect ratio " << e->component->aspectRatio;
        }
    }
    return out.str();
}

// Sees the stack's events beside the library's slot, on the stack's threads.
class StackProbe {
public:
    void OnEvent(const boost::shared_ptr<BackendEvent>& event) {
        const std::lock_guard<std::mutex> lock(mutex);
        const int code = event->type;
        const BackendEvent& raised = *event;
        if (code < 0 || code >= kEventCodes) {
            wrongClasses.push_back("code " + std::to_string(code) + " is no event code (" + Demangled(typeid(raised)) +
                                   ")");
            return;
        }
        const EventClass& expected = kEventClasses[code];
        if (!expected.matches(*event)) {
            wrongClasses.push_back(std::string(expected.code) + " (" + std::to_string(code) + ") raised as " +
                                   Demangled(typeid(raised)) + ", not " + expected.className);
            return;
        }
        if (const auto* change = dynamic_cast<const Velmora::ComponentChangedEvent*>(event.get())) {
            Follow(*change);
        }
        NoteDeaths();
    }

    // True once a lifetime fault is in, e.g. a component destroyed while its removal never came.
    bool FaultFound() {
        const std::lock_guard<std::mutex> lock(mutex);
        NoteDeaths();
        return !componentFaults.empty();
    }

    // Components still announced must still be alive now.
    void Finish() {
        const std::lock_guard<std::mutex> lock(mutex);
        NoteDeaths();
    }

    std::vector<std::string> wrongClasses;
    std::vector<std::string> componentFaults;
    mutable std::mutex mutex;

private:
    struct Tracked {
        boost::signals2::scoped_connection life;  // disconnected by the component's signal when it dies
        bool traceable = false;
    };

    static std::string Name(const void* component) {
        std::ostringstream out;
        out << "component " << component;
        return out.str();
    }

    void Follow(const Velmora::ComponentChangedEvent& change) {
        IAvComponent* component = change.component;
        const auto known = announced.find(component);
        if (change.action == Velmora::ComponentChangedEvent::Added) {
            Tracked& tracked = announced[component];
            try {
                tracked.life = component->ConnectStateChanged([](bool) {});
                tracked.traceable = tracked.life.connected();
            } catch (...) {
                tracked.traceable = false;  // the library's own connection reports this failure
            }
            return;
        }
        const char* action = change.action == Velmora::ComponentChangedEvent::Removed ? "removed" : "changed";
        if (known == announced.end()) {
            componentFaults.push_back(Name(component) + " " + action + " without being added first");
            return;
        }
        if (change.action == Velmora::ComponentChangedEvent::Removed) {
            if (known->second.traceable && !known->second.life.connected()) {
                componentFaults.push_back(Name(component) + " was already destroyed when its removal was raised");
            }
            announced.erase(known);
        }
    }

    void NoteDeaths() {
        for (auto tracked = announced.begin(); tracked != announced.end();) {
            if (tracked->second.traceable && !tracked->second.life.connected()) {
                componentFaults.push_back(Name(tracked->first) + " was destroyed without a removal event");
                tracked = announced.erase(tracked);
            } else {
                ++tracked;
            }
        }
    }

    std::map<IAvComponent*, Tracked> announced;
};

// The browser: events arrive on the stack's threads and are handled on the calling thread by Pump().
class Browser : public UVAClient {
public:
    explicit Browser(Observations& observations) : observations(observations) {}

    ~Browser() {
        for (UVAEvent* left : queue) {
            delete left;
        }
        delete heldComponentEvent;
    }

    void handleEvent(UVAEvent* event) override {
        const std::string insane = InsaneValues(*event);
        const std::lock_guard<std::mutex> lock(mutex);
        if (!insane.empty()) {
            observations.insaneValues.push_back(insane);
        }
        if (released) {
            observations.afterRelease.push_back("event type " + std::to_string(event->getType()) +
                                                " arrived after UVA_ReleaseBackend returned");
            delete event;
            return;
        }
        queue.push_back(event);
        arrived.notify_one();
    }

    UVADRMBackend* requestDRMBackend(const char*) override { return nullptr; }

    // Handles events until `done` holds or `deadline` passes; false on the deadline. `done` is also
    // asked now and then without an event, for what changes silently (a component dying).
    bool Pump(const std::function<bool()>& done, Clock::duration deadline) {
        const auto until = Clock::now() + deadline;
        while (!done()) {
            std::unique_lock<std::mutex> lock(mutex);
            const auto wake = std::min(until, Clock::now() + kRecheck);
            if (!arrived.wait_until(lock, wake, [this] { return !queue.empty(); })) {
                if (Clock::now() >= until) return done();
                continue;
            }
            UVAEvent* next = queue.front();
            queue.pop_front();
            lock.unlock();
            Handle(next);
        }
        return true;
    }

    void MarkReleased() {
        const std::lock_guard<std::mutex> lock(mutex);
        released = true;
    }

    // A stray event may still be noted on a stack thread while this copies.
    Observations Snapshot() {
        const std::lock_guard<std::mutex> lock(mutex);
        return observations;
    }

    // Selects the first component announced, while an event still names it (so it cannot go away).
    void SelectFirstComponent() {
        if (heldComponentEvent == nullptr) {
            return;
        }
        observations.selectionTried = true;
        observations.selectionStatus = media->selectComponent(heldComponentEvent->component);
        delete heldComponentEvent;
        heldComponentEvent = nullptr;
    }

    UVAMediaBackend* media = nullptr;
    std::int32_t componentsLive = 0;
    std::uint32_t eventsHandled = 0;
    bool streamDone = false;
    bool playbackFinished = false;
    bool durationKnown = false;

private:
    void Handle(UVAEvent* event) {
        if (event->getType() == UVAEvent::NEED_MSE_DATA) {
            Answer(static_cast<NeedMSEDataEvent*>(event));
            return;
        }
        ++eventsHandled;
        if (event->getType() == UVAEvent::NEED_DATA) {
            ++observations.dataRequests;
        } else if (event->getType() == UVAEvent::DECODE_ERROR) {
            ++observations.decodeErrors;
        } else if (event->getType() == UVAEvent::PLAYBACK_FINISHED) {
            playbackFinished = true;
        } else if (event->getType() == UVAEvent::DURATION_CHANGED) {
            durationKnown = true;
        } else if (auto* change = dynamic_cast<::ComponentChangedEvent*>(event)) {
            if (change->action == ::ComponentChangedEvent::ADDED) {
                ++observations.componentsAnnounced;
                ++componentsLive;
                if (heldComponentEvent == nullptr && !observations.selectionTried) {
                    heldComponentEvent = change;
                    return;
                }
            } else if (change->action == ::ComponentChangedEvent::REMOVED) {
                --componentsLive;
            }
        }
        delete event;
    }

    void Answer(NeedMSEDataEvent* request) {
        ++observations.dataRequests;
        if (streamDone) {
            delete request;  // the stream has ended; nothing more to give
            return;
        }
        std::uint32_t filled = 0;
        for (; filled < request->count && nextMs < kStreamMs; ++filled, nextMs += kSampleMs) {
            auto* sample = new UVABackend::MediaSample;
            const std::string bytes(256 + 16 * filled, static_cast<char>('a' + filled));
            sample->data.assign(bytes.data(), static_cast<unsigned int>(bytes.size()));
            sample->streamId = request->sourceId;
            sample->timestampMs = nextMs;
            sample->durationMs = kSampleMs;
            sample->keyFrame = filled == 0 ? 1 : 0;
            request->samples[filled] = sample;
        }
        streamDone = nextMs >= kStreamMs;
        const auto status = streamDone ? UVABackend::WRITE_DATA_END_OF_STREAM : UVABackend::WRITE_DATA_OK;
        const UVA_STATUS answer = media->writeData(request, 0, status);  // takes the request over
        if (answer != UVA_STATUS_OK) {
            streamDone = true;  // a browser gives up on a stream whose data is refused
            observations.writeFailures.push_back("writeData(" + std::to_string(filled) + " samples" +
                                                 (streamDone ? ", end of stream" : "") + ") -> " +
                                                 std::to_string(answer));
            return;
        }
        observations.samplesWritten += filled;
        observations.endOfStreamWritten = observations.endOfStreamWritten || streamDone;
    }

    Observations& observations;
    std::mutex mutex;
    std::condition_variable arrived;
    std::deque<UVAEvent*> queue;
    bool released = false;
    std::int32_t nextMs = 0;
    ::ComponentChangedEvent* heldComponentEvent = nullptr;
};

// Media Source types pages commonly ask for, as a container and its first codec.
struct MseType {
    const char* container;
    const char* codec;
};
const MseType kCommonMseTypes[] = {
    {"video/mp4", "avc1.42E01E"}, {"video/webm", "vp9"},  {"video/webm", "vp8"},
    {"audio/mp4", "mp4a.40.2"},   {"audio/webm", "opus"},
};

std::vector<std::string> SupportedMimetypes(UVAMediaBackend& media, UVA_STATUS& status) {
    char** types = nullptr;
    status = media.getSupportedMimetypes(types);
    std::vector<std::string> supported;
    for (char** type = types; types != nullptr && *type != nullptr; ++type) {
        supported.emplace_back(*type);
        std::free(*type);
    }
    delete[] types;
    return supported;
}

// The first common type the stack can play, else the first of its own list it confirms; empty when
// it plays none, as a page's isTypeSupported would find out.
std::string ChooseMseType(UVAMediaBackend& media) {
    for (const MseType& common : kCommonMseTypes) {
        const char* codecs[] = {common.codec, nullptr};
        if (media.canPlayType(common.container, codecs, nullptr) == UVA_STATUS_OK) {
            return std::string(common.container) + "; codecs=\"" + common.codec + "\"";
        }
    }
    UVA_STATUS status = UVA_STATUS_OK;
    for (const std::string& type : SupportedMimetypes(media, status)) {
        if (media.canPlayType(type.c_str(), nullptr, nullptr) == UVA_STATUS_OK) {
            return type;
        }
    }
    return std::string();
}

SourceDescription* MseSource(const std::string& type) {
    const bool audio = type.rfind("audio/", 0) == 0;
    return SourceDescription::Streaming(audio ? SourceDescription::SOURCE_AUDIO : SourceDescription::SOURCE_VIDEO,
                                        kSourceId, false, 0, type.c_str());
}

// The browser keeps what the back-end did not take.
UVA_STATUS Init(UVAMediaBackend& media, const std::string& url, SourceDescription* source) {
    auto** sources = new SourceDescription* [2] { source, nullptr };
    const UVA_STATUS status = media.initBackend(url.c_str(), sources, false);
    if (status != UVA_STATUS_OK) {
        delete source;
        delete[] sources;
    }
    return status;
}

UVAMediaBackend* RequestMedia(Harness& harness, UVABackend::UVABackendType type, UVAClient& client,
                              std::string& unavailable) {
    const std::string call = "UVA_RequestBackend(" + std::to_string(type) + ")";
    UVABackend* backend = UVA_RequestBackend(type, &client);
    if (backend == nullptr) {
        unavailable = call + " gave no back-end; the library logged: " + harness.LastLine(5);
    } else if (!harness.Layer().GetActiveMediaBackendImpl()) {
        unavailable = "the stack answered " + call + " with no back-end";
        UVA_ReleaseBackend(backend);
        backend = nullptr;
    }
    return static_cast<UVAMediaBackend*>(backend);
}

// Asks the stack for the type unless the user named one.
std::string MseTypeFor(UVAMediaBackend& media, const Feed& feed) {
    return feed.mseType.empty() ? ChooseMseType(media) : feed.mseType;
}

}  // namespace

Observations PlaySession(Harness& harness, const Feed& feed, Ending ending, bool select,
                         const std::function<void(const std::string&)>& step) {
    Observations observations;
    Browser browser(observations);
    const bool url = !feed.mediaUrl.empty();
    step(url ? "requesting a media back-end" : "requesting a Media Source back-end");
    UVAMediaBackend* media = RequestMedia(harness, url ? UVABackend::TYPE_MEDIA : UVABackend::TYPE_MEDIA_SOURCE,
                                          browser, observations.unavailable);
    if (media == nullptr) {
        return observations;
    }
    browser.media = media;
    observations.played = url ? feed.mediaUrl : MseTypeFor(*media, feed);
    if (observations.played.empty()) {
        observations.unavailable = "the stack plays none of the common Media Source types nor any it lists";
        UVA_ReleaseBackend(media);
        return observations;
    }
    boost::shared_ptr<IBackend> impl = harness.Layer().GetActiveMediaBackendImpl();
    const auto probe = boost::make_shared<StackProbe>();
    boost::signals2::scoped_connection probeConnection;
    try {
        probeConnection = impl->ConnectEvent(boost::bind(&StackProbe::OnEvent, probe, boost::placeholders::_1));
    } catch (...) {
        observations.wrongClasses.push_back("ConnectEvent threw on a second connection");
    }

    step(url ? "playing " + feed.mediaUrl
             : "playing a stream of " + std::to_string(kStreamMs) + " ms as " + observations.played);
    SourceDescription* source =
        url ? SourceDescription::BackendStreaming(feed.mediaUrl.c_str()) : MseSource(observations.played);
    const bool whilePlaying = ending == Ending::WhilePlaying;
    if (Init(*media, url ? feed.mediaUrl : "blob:velmora-check", source) != UVA_STATUS_OK ||
        media->play() != UVA_STATUS_OK) {
        observations.writeFailures.push_back("initBackend or play failed: " + harness.LastLine(5));
    } else {
        // Each session ends as soon as what its checks judge is in: a decode error ends any stream; a
        // file has shown its components and duration once prerolled.
        browser.Pump(
            [&] {
                if (observations.decodeErrors > 0 || browser.playbackFinished) return true;
                if (url)
                    return whilePlaying ? browser.eventsHandled > 0
                                        : observations.componentsAnnounced > 0 && browser.durationKnown;
                return whilePlaying ? observations.dataRequests > 0 : browser.streamDone;
            },
            kStreamDeadline);
    }
    if (!whilePlaying && select) {
        step("selecting a component");
        browser.SelectFirstComponent();
    }
    if (!whilePlaying) {
        step("stopping and waiting for the components to be removed");
        media->stop();
        browser.Pump([&] { return browser.componentsLive <= 0 || probe->FaultFound(); }, kRemovalDeadline);
        probe->Finish();
    }
    probeConnection.disconnect();
    impl.reset();  // the release must be the one that lets the stack's back-end go

    step("calling UVA_ReleaseBackend");
    const auto start = Clock::now();
    UVA_ReleaseBackend(media);
    observations.releaseTime = Clock::now() - start;
    browser.MarkReleased();
    if (whilePlaying) {
        step("waiting for stray events");
        std::this_thread::sleep_for(kStrayEventWait);
    }

    Observations seen = browser.Snapshot();
    const std::lock_guard<std::mutex> lock(probe->mutex);
    seen.wrongClasses.insert(seen.wrongClasses.end(), probe->wrongClasses.begin(), probe->wrongClasses.end());
    seen.componentFaults = probe->componentFaults;
    return seen;
}

std::vector<OperationTiming> SweepOperations(Harness& harness, const Feed& feed, std::string& unavailable) {
    Observations ignored;
    Browser browser(ignored);
    UVAMediaBackend* media = RequestMedia(harness, UVABackend::TYPE_MEDIA_SOURCE, browser, unavailable);
    if (media == nullptr) {
        return {};
    }
    // Without a type the stack plays, initBackend fails; the other calls are timed all the same.
    std::string type = MseTypeFor(*media, feed);
    if (type.empty()) type = kCommonMseTypes[0].container;
    using Operation = std::function<UVA_STATUS(UVAMediaBackend&)>;
    const std::vector<std::pair<const char*, Operation>> operations = {
        {"initBackend", [&type](UVAMediaBackend& m) { return Init(m, "blob:velmora-check", MseSource(type)); }},
        {"setWindowId", [](UVAMediaBackend& m) { return m.setWindowId(1); }},
        {"setVideoWindow", [](UVAMediaBackend& m) { return m.setVideoWindow(0, 0, 1280, 720); }},
        {"setClipRect", [](UVAMediaBackend& m) { return m.setClipRect(0, 0, 1280, 720); }},
        {"setVisibility", [](UVAMediaBackend& m) { return m.setVisibility(true, false); }},
        {"setFullScreen", [](UVAMediaBackend& m) { return m.setFullScreen(false); }},
        {"setVolume", [](UVAMediaBackend& m) { return m.setVolume(0.5); }},
        {"setContentSize", [](UVAMediaBackend& m) { return m.setContentSize(1280, 720); }},
        {"setBufferingStrategy",
         [](UVAMediaBackend& m) { return m.setBufferingStrategy(UVABackend::BUFFERING_DEFAULT); }},
        {"canPlayURL", [](UVAMediaBackend& m) { return m.canPlayURL("http://example.invalid/video.mp4"); }},
        {"canPlayType", [](UVAMediaBackend& m) { return m.canPlayType("video/mp4", nullptr, nullptr); }},
        {"getSupportedMimetypes",
         [](UVAMediaBackend& m) {
             UVA_STATUS status = UVA_STATUS_OK;
             SupportedMimetypes(m, status);
             return status;
         }},
        {"play", [](UVAMediaBackend& m) { return m.play(); }},
        {"getDuration",
         [](UVAMediaBackend& m) {
             double d = 0.0;
             return m.getDuration(d);
         }},
        {"getPosition",
         [](UVAMediaBackend& m) {
             double p = 0.0;
             return m.getPosition(p);
         }},
        {"getNativeSize",
         [](UVAMediaBackend& m) {
             int w = 0, h = 0;
             double a = 0.0;
             return m.getNativeSize(w, h, a);
         }},
        {"getBufferedTimeRanges",
         [](UVAMediaBackend& m) {
             UVABackend::TimeRange** ranges = nullptr;
             const UVA_STATUS status = m.getBufferedTimeRanges(nullptr, ranges);
             for (UVABackend::TimeRange** range = ranges; ranges != nullptr && *range != nullptr; ++range) {
                 delete *range;
             }
             delete[] ranges;
             return status;
         }},
        {"getBytesInBuffer",
         [](UVAMediaBackend& m) {
             unsigned int n = 0;
             return m.getBytesInBuffer(n);
         }},
        {"setPlaybackRate", [](UVAMediaBackend& m) { return m.setPlaybackRate(1.0); }},
        {"pause", [](UVAMediaBackend& m) { return m.pause(true); }},
        {"setPosition", [](UVAMediaBackend& m) { return m.setPosition(0.0); }},
        {"stop", [](UVAMediaBackend& m) { return m.stop(); }},
    };
    std::vector<OperationTiming> timings;
    for (const auto& [name, operation] : operations) {
        OperationTiming timing{name, UVA_STATUS_OK, Milliseconds(0), {}};
        const std::size_t foreignBefore = harness.Logged(5, kForeignException).size();
        Milliseconds times[kCallsPerOperation];
        for (Milliseconds& time : times) {
            const auto start = Clock::now();
            timing.status = operation(*media);
            time = Clock::now() - start;
        }
        std::sort(std::begin(times), std::end(times));
        timing.typical = times[kCallsPerOperation / 2];
        const std::vector<std::string> foreign = harness.Logged(5, kForeignException);
        timing.foreignExceptions.assign(foreign.begin() + static_cast<std::ptrdiff_t>(foreignBefore), foreign.end());
        timings.push_back(timing);
    }
    UVA_ReleaseBackend(media);
    browser.MarkReleased();
    return timings;
}

}  // namespace Check
