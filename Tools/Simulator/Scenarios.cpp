#include "Scenarios.h"

#include <cstdlib>
#include <functional>

#include "ReferenceDrmBackend.h"
#include "ReferenceUva.h"

namespace Simulator {

namespace {

using Velmora::Reference::Clock;
using Velmora::Reference::FaultInjector;
using Velmora::Reference::StackOptions;
using SourceDescription = UVABackend::SourceDescription;

const char* const kClearKey = Velmora::Reference::ReferenceDrmBackend::kClearKey;

// Everything moves only when the browser steps the stack: what matters is the exact order.
StackOptions Manual() {
    StackOptions options;
    options.clock = Clock::Manual;
    options.stepPeriod = std::chrono::milliseconds(100);
    options.media.durationSeconds = 6.0;
    return options;
}

// The back-ends run on threads of their own; short periods keep the run brief.
StackOptions Threaded() {
    StackOptions options;
    options.clock = Clock::Threaded;
    options.stepPeriod = std::chrono::milliseconds(5);
    options.media.durationSeconds = 2.0;
    return options;
}

// A null-terminated array the browser allocates and the library frees.
SourceDescription** Sources(std::initializer_list<SourceDescription*> descriptions) {
    auto** array = new SourceDescription*[descriptions.size() + 1];
    std::size_t i = 0;
    for (SourceDescription* description : descriptions) {
        array[i++] = description;
    }
    array[i] = nullptr;
    return array;
}

void Mse(Session& s) {
    Timeline& t = s.timeline;
    UVAMediaBackend* media = s.RequestMedia(UVABackend::TYPE_MEDIA_SOURCE);
    if (media == nullptr) {
        return;
    }
    s.AddStream(1, true);
    s.AddStream(2, false);
    t.Call("setKeySystem(\"org.w3.clearkey\")", media->setKeySystem(kClearKey));
    t.Call(
        "initBackend(blob, [encrypted video 1])",
        media->initBackend(
            "blob:velmora-simulator",
            Sources({SourceDescription::Streaming(SourceDescription::SOURCE_VIDEO, 1, true, 0, "video/mp4")}), false));
    t.Call("attachSource(audio 2)", media->attachSource(SourceDescription::Streaming(SourceDescription::SOURCE_AUDIO, 2,
                                                                                     false, 0, "audio/mp4")));
    t.Call("play()", media->play());
    s.Pump([&] { return s.drmSeen[UVADRMEvent::KEY_COMPLETE] > 0; }, "the key session to complete");
    s.Pump([&] { return s.audioTracks.count("deu") != 0; }, "a German audio track");

    t.Call("setPosition(3.0)", media->setPosition(3.0));
    s.Pump([&] { return s.Seen(UVAEvent::SEEK_COMPLETED) > 0; }, "the seek to complete");

    const std::uint32_t changes = s.componentsChanged;
    if (s.audioTracks.count("deu") != 0) {
        t.Call("selectComponent(audio deu)", media->selectComponent(s.audioTracks["deu"]));
        s.Pump([&] { return s.componentsChanged > changes; }, "the track switch");
    }
    s.Pump([&] { return s.Seen(UVAEvent::PLAYBACK_FINISHED) > 0; }, "the end of playback");
    double position = 0.0;
    t.Call("getPosition()", media->getPosition(position));
    t.Expect(position >= 5.5, "playback ended at " + std::to_string(position) + " s");
    t.Note("position " + std::to_string(position) + " s");
}

void Url(Session& s) {
    Timeline& t = s.timeline;
    UVAMediaBackend* media = s.RequestMedia(UVABackend::TYPE_MEDIA);
    if (media == nullptr) {
        return;
    }
    const char* url = "https://media.velmora.example/clip.mp4";
    t.Call("canPlayURL(clip.mp4)", media->canPlayURL(url));
    t.Call("initBackend(clip.mp4, [streamed by the back-end])",
           media->initBackend(url, Sources({SourceDescription::BackendStreaming(url)}), false));
    t.Call("setVideoWindow(0, 0, 1280, 720)", media->setVideoWindow(0, 0, 1280, 720));
    t.Call("play()", media->play());
    s.Pump([&] { return s.Seen(UVAEvent::PLAYBACK_FINISHED) > 0; }, "the end of playback");
    double duration = 0.0;
    t.Call("getDuration()", media->getDuration(duration));
    t.Expect(duration == 2.0, "duration " + std::to_string(duration));
}

void Drm(Session& s) {
    Timeline& t = s.timeline;
    UVAMediaBackend* media = s.RequestMedia(UVABackend::TYPE_MEDIA);
    if (media == nullptr) {
        return;
    }
    const char* url = "https://media.velmora.example/protected.mp4";
    t.Call("initBackend(protected.mp4)",
           media->initBackend(url, Sources({SourceDescription::BackendStreaming(url)}), false));
    t.Call("play()", media->play());
    // The media back-end asks for a DRM back-end; the browser requests one and the key session follows.
    s.Pump([&] { return s.drmSeen[UVADRMEvent::KEY_COMPLETE] > 0; }, "the key session to complete");
    if (s.drm != nullptr) {
        t.Note(std::string("getId() = \"") + s.drm->getId() + "\", getOIPFId() = \"" + s.drm->getOIPFId() + "\"");
        char* session = nullptr;
        t.Call("sendDRMMessage(reference message)",
               s.drm->sendDRMMessage(Velmora::Reference::ReferenceDrmBackend::kDrmMessageType, "<status/>", session));
        t.Expect(session != nullptr, "sendDRMMessage gave no session id");
        std::free(session);
        s.Pump([&] { return s.drmSeen[UVADRMEvent::RESULT_MESSAGE] > 0; }, "the DRM message's result");
    }
    s.Pump([&] { return s.Seen(UVAEvent::PLAYBACK_FINISHED) > 0; }, "the end of playback");
}

void Broadcast(Session& s) {
    Timeline& t = s.timeline;
    UVAVideoBroadcastBackend* tv = s.RequestBroadcast();
    if (tv == nullptr) {
        return;
    }
    static int videoBroadcastObject = 0;
    tv->setWindowId(&videoBroadcastObject);
    t.Expect(UVAVideoBroadcastBackend::getBackendByVideoBroadcastHandle(&videoBroadcastObject) == tv,
             "the back-end is not found by its handle");
    t.Call("bindToCurrentChannel()", tv->bindToCurrentChannel());
    s.Pump([&] { return s.Seen(UVAEvent::CHANNEL_CHANGE_SUCCEEDED) == 1; }, "the first channel");
    t.Call("nextChannel()", tv->nextChannel());
    s.Pump([&] { return s.Seen(UVAEvent::CHANNEL_CHANGE_SUCCEEDED) == 2; }, "the next channel");

    t.Call("pause()", tv->pause());
    s.Steps(30);
    double offset = 0.0;
    t.Call("getPlaybackOffset()", tv->getPlaybackOffset(offset));
    t.Expect(offset >= 2.0, "time-shift offset " + std::to_string(offset) + " s after 3 s paused");
    t.Note("behind live by " + std::to_string(offset) + " s");
    t.Call("resume()", tv->resume());
    t.Call("setPlaybackSpeed(4.0)", tv->setPlaybackSpeed(4.0));
    s.Steps(10);

    char* recordingId = nullptr;
    t.Call("recordNow(60)", tv->recordNow(60.0, recordingId));
    s.Pump([&] { return s.Seen(UVAEvent::RECORDING_STATE_CHANGE) >= 1; }, "the recording to start");
    s.Steps(10);
    t.Call("stopRecording()", tv->stopRecording());
    s.Pump([&] { return s.Seen(UVAEvent::RECORDING_STATE_CHANGE) >= 2; }, "the recording to complete");
    t.Call("stopTimeShift()", tv->stopTimeShift());
}

// Looks for the line the library must have logged about a fault, and shows it.
void ExpectLogged(Session& s, int level, const char* text) {
    const std::string line = s.log.Find(level, text);
    if (s.timeline.Expect(!line.empty(), "no level " + std::to_string(level) + " log line with \"" + text + "\"")) {
        s.timeline.Log(std::to_string(level) + " " + line);
    }
}

// A media-stack failure must come back as the right status and log line, and the session goes on.
void Faults(Session& s) {
    Timeline& t = s.timeline;
    FaultInjector& faults = s.Stack().Faults();
    using Kind = FaultInjector::Kind;

    faults.Arm("CreateBackend", {Kind::MediaStackError, Velmora::ExceptionBase::GenericError, false});
    s.log.Clear();
    t.Note("fault armed in CreateBackend");
    t.Expect(s.library.requestBackend(UVABackend::TYPE_MEDIA, &s.client) == nullptr,
             "a failing CreateBackend still gave a back-end");
    t.Note("UVA_RequestBackend(0) -> null");
    ExpectLogged(s, 5, "injected fault in CreateBackend");

    UVAMediaBackend* media = s.RequestMedia(UVABackend::TYPE_MEDIA);
    if (media == nullptr) {
        return;
    }
    const char* url = "https://media.velmora.example/clip.mp4";
    t.Call("initBackend(clip.mp4)",
           media->initBackend(url, Sources({SourceDescription::BackendStreaming(url)}), false));
    struct Row {
        const char* operation;  // the media stack's
        FaultInjector::Fault fault;
        const char* call;  // the browser's
        std::function<UVA_STATUS()> run;
        UVA_STATUS status;
        const char* logged;
    };
    const Row rows[] = {
        {"Pause",
         {Kind::MediaStackError, Velmora::ExceptionBase::InvalidState, false},
         "pause(true)",
         [&] { return media->pause(true); },
         UVA_STATUS_ERROR_3,
         "Exception type 3: injected fault in Pause"},
        {"SetPlaybackRate",
         {Kind::MediaStackError, Velmora::ExceptionBase::NotSupported, false},
         "setPlaybackRate(2.0)",
         [&] { return media->setPlaybackRate(2.0); },
         UVA_STATUS_ERROR_2,
         "Exception type 2: injected fault in SetPlaybackRate"},
        {"SetVolume",
         {Kind::StandardException, 0, false},
         "setVolume(0.5)",
         [&] { return media->setVolume(0.5); },
         UVA_STATUS_ERROR,
         "injected fault in SetVolume"},
        {"Play", {Kind::Int, 7, false}, "play()", [&] { return media->play(); }, UVA_STATUS_ERROR, "Unknown exception"},
    };
    for (const Row& row : rows) {
        faults.Arm(row.operation, row.fault);
        s.log.Clear();
        t.Note(std::string("fault armed in ") + row.operation);
        t.Call(row.call, row.run(), row.status);
        ExpectLogged(s, 5, row.logged);
        t.Call(std::string(row.call) + ", fault gone", row.run());
    }
    t.Call("pause(false)", media->pause(false));
    t.Call("setPlaybackRate(1.0)", media->setPlaybackRate(1.0));
    s.Pump([&] { return s.Seen(UVAEvent::PLAYBACK_FINISHED) > 0; }, "the end of playback after the faults");
}

struct Scenario {
    const char* name;
    const char* title;
    void (*run)(Session&);
    StackOptions (*options)();
};

const Scenario kScenarios[] = {
    {"mse", "Media Source playback: encrypted video, a seek, an audio track switch", Mse, Manual},
    {"url", "URL playback, events on the media stack's thread", Url, Threaded},
    {"drm", "A DRM key session asked for by the media back-end", Drm,
     [] {
         StackOptions options = Threaded();
         options.media.encrypted = true;
         options.media.keyId = options.contentKeys.begin()->first;
         return options;
     }},
    {"broadcast", "Broadcast: zapping, time-shift and a recording", Broadcast, Manual},
    {"faults", "Faults in the media stack", Faults, Manual},
};

}  // namespace

void RunScenario(const std::string& name, Timeline& timeline, const EntryPoints& library, LogBook& log,
                 std::uint32_t variant) {
    for (const Scenario& scenario : kScenarios) {
        if (name == "all" || name == scenario.name) {
            timeline.Heading(std::string(scenario.name) + ": " + scenario.title);
            Session session(timeline, library, log, variant, scenario.options());
            scenario.run(session);
            session.Close();
            session.ReleaseAll();
        }
    }
}

}  // namespace Simulator
