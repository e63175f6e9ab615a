#include "MediaSessions.h"

#include <dlfcn.h>
#include <gst/gst.h>

#include <array>
#include <cmath>
#include <cstdio>

#include "Demuxer.h"
#include "Velmora/StackFactory.h"

namespace Simulator {

namespace {

using SourceDescription = UVABackend::SourceDescription;

// The library stays loaded for the whole run: the back-ends' code must outlive every release.
Velmora::IUva* CreateStack(const MediaSessionOptions& options, std::string& error) {
    void* library = dlopen(options.stackPath.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        error = dlerror();
        return nullptr;
    }
    auto create = reinterpret_cast<Velmora::StackFactory>(dlsym(library, VELMORA_STACK_FACTORY_SYMBOL));
    if (create == nullptr) {
        error = options.stackPath + " exports no " VELMORA_STACK_FACTORY_SYMBOL;
        return nullptr;
    }
    Velmora::IUva* stack = create(VELMORA_STACK_INTERFACE_VERSION, options.stackOptions.c_str());
    if (stack == nullptr) {
        error = "the stack's factory refused options \"" + options.stackOptions + "\"";
    }
    return stack;
}

SourceDescription** Sources(SourceDescription* description) {
    auto** array = new SourceDescription*[2];
    array[0] = description;
    array[1] = nullptr;
    return array;
}

int FirstStream(const Demuxer& demuxer, bool video) {
    for (std::size_t i = 0; i < demuxer.Streams().size(); ++i) {
        if (demuxer.Streams()[i].video == video) {
            return static_cast<int>(i);
        }
    }
    return -1;
}

std::string Seconds(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.3f s", value);
    return text;
}

// The position once it has passed `seconds`, polled as a browser's progress bar would.
double WaitForPosition(Session& s, UVAMediaBackend* media, double seconds) {
    double position = 0.0;
    s.Pump([&] { return media->getPosition(position) == UVA_STATUS_OK && position >= seconds; },
           "the position to pass " + Seconds(seconds), 30);
    s.timeline.Call("getPosition() = " + Seconds(position), media->getPosition(position));
    return position;
}

// A stream the media stack cannot play ends the session at once, with the reason, instead of a wait.
bool Failed(Session& s, const std::string& what) {
    return s.Seen(UVAEvent::DECODE_ERROR) != 0 &&
           !s.timeline.Expect(false, "the media stack reported DECODE_ERROR: it cannot play " + what);
}

void ExpectFileFacts(Session& s, const Demuxer& file) {
    Timeline& t = s.timeline;
    t.Expect(std::fabs(s.duration - file.DurationSeconds()) < 0.1,
             "duration " + Seconds(s.duration) + ", the file's is " + Seconds(file.DurationSeconds()));
    const int video = FirstStream(file, true);
    if (video >= 0) {
        const DemuxedStream& stream = file.Streams()[static_cast<std::size_t>(video)];
        t.Expect(s.videoWidth == stream.width && s.videoHeight == stream.height,
                 "video size " + std::to_string(s.videoWidth) + "x" + std::to_string(s.videoHeight) +
                     ", the file's is " + std::to_string(stream.width) + "x" + std::to_string(stream.height));
    }
}

void Url(Session& s, const Demuxer* file, const std::string& path) {
    Timeline& t = s.timeline;
    UVAMediaBackend* media = s.RequestMedia(UVABackend::TYPE_MEDIA);
    if (media == nullptr) {
        return;
    }
    gchar* uri = gst_filename_to_uri(path.c_str(), nullptr);
    const std::string url = uri != nullptr ? uri : path;
    g_free(uri);
    t.Call("canPlayURL(" + url + ")", media->canPlayURL(url.c_str()));
    t.Call("initBackend(" + url + ", [streamed by the back-end])",
           media->initBackend(url.c_str(), Sources(SourceDescription::BackendStreaming(url.c_str())), false));
    const bool hasVideo = file == nullptr || FirstStream(*file, true) >= 0;
    s.Pump([&] { return s.Seen(UVAEvent::DECODE_ERROR) != 0 || (s.duration > 0.0 && (!hasVideo || s.videoWidth > 0)); },
           "the duration and the video size");
    if (Failed(s, path)) {
        return;
    }
    t.Call("play()", media->play());
    const double early = WaitForPosition(s, media, 0.3);

    const double target = std::max(early + 0.5, s.duration * 0.5);
    t.Call("setPosition(" + Seconds(target) + ")", media->setPosition(target));
    s.Pump([&] { return s.Seen(UVAEvent::SEEK_COMPLETED) > 0; }, "the seek to complete");
    WaitForPosition(s, media, target);

    // A track that has not changed yet is not the one playing: selecting it must reach the pipeline,
    // which answers with the new selection (a Changed event for that track).
    std::string language;
    for (const auto& [trackLanguage, component] : s.audioTracks) {
        if (s.audioChanges[trackLanguage] == 0) {
            language = trackLanguage;
        }
    }
    if (!language.empty()) {
        const std::uint32_t before = s.audioChanges[language];
        t.Call("selectComponent(audio " + language + ")", media->selectComponent(s.audioTracks[language]));
        s.Pump([&] { return s.audioChanges[language] > before; }, "the pipeline to switch to audio " + language);
    }
    s.Pump([&] { return s.Seen(UVAEvent::PLAYBACK_FINISHED) > 0; }, "the end of playback");
    if (file != nullptr) {
        ExpectFileFacts(s, *file);
    }
}

// The browser answers each request with the next samples of that source's stream; the last answer
// of a stream ends it.
void Feed(Session& s, UVAMediaBackend* media, Demuxer& file, const std::array<int, 3>& streamOfSource,
          NeedMSEDataEvent* request) {
    const int stream = request->sourceId >= 1 && request->sourceId <= 2
                           ? streamOfSource[static_cast<std::size_t>(request->sourceId)]
                           : -1;
    std::uint32_t filled = 0;
    std::uint64_t bytes = 0;
    bool last = stream < 0;
    DemuxedSample next;
    while (!last && filled < request->count) {
        if (!file.Next(static_cast<std::size_t>(stream), next)) {
            last = true;
            break;
        }
        auto* sample = new UVABackend::MediaSample;
        sample->data.assign(next.bytes.data(), static_cast<unsigned int>(next.bytes.size()));
        sample->streamId = request->sourceId;
        sample->timestampMs = next.timestampMs;
        sample->durationMs = next.durationMs;
        sample->keyFrame = next.keyFrame ? 1 : 0;
        request->samples[filled++] = sample;
        bytes += next.bytes.size();
    }
    s.timeline.AddBytes(bytes);
    const std::string call = "writeData(NEED_MSE_DATA source " + std::to_string(request->sourceId) + ", " +
                             std::to_string(filled) + " samples, " + std::to_string(bytes) + " bytes" +
                             (last ? ", end of stream)" : ")");
    s.timeline.Call(
        call, media->writeData(request, 0, last ? UVABackend::WRITE_DATA_END_OF_STREAM : UVABackend::WRITE_DATA_OK));
}

void Mse(Session& s, Demuxer* file) {
    Timeline& t = s.timeline;
    if (file == nullptr) {
        return;
    }
    const std::array<int, 3> streamOfSource{-1, FirstStream(*file, true), FirstStream(*file, false)};
    UVAMediaBackend* media = s.RequestMedia(UVABackend::TYPE_MEDIA_SOURCE);
    if (media == nullptr) {
        return;
    }
    s.feedMediaSource = [&s, media, file, streamOfSource](NeedMSEDataEvent* request) {
        Feed(s, media, *file, streamOfSource, request);
    };
    const int kinds[3] = {0, SourceDescription::SOURCE_VIDEO, SourceDescription::SOURCE_AUDIO};
    bool initialised = false;
    for (int id = 1; id <= 2; ++id) {
        if (streamOfSource[static_cast<std::size_t>(id)] < 0) {
            continue;
        }
        const std::string& mime =
            file->Streams()[static_cast<std::size_t>(streamOfSource[static_cast<std::size_t>(id)])].mimeType;
        SourceDescription* source = SourceDescription::Streaming(kinds[id], id, false, 0, mime.c_str());
        const std::string what = std::string(id == 1 ? "video " : "audio ") + std::to_string(id) + ", " + mime;
        if (!initialised) {
            t.Call("initBackend(blob, [" + what + "])",
                   media->initBackend("blob:velmora-simulator", Sources(source), false));
            initialised = true;
        } else {
            t.Call("attachSource(" + what + ")", media->attachSource(source));
        }
    }
    t.Call("play()", media->play());
    s.Pump([&] { return s.Seen(UVAEvent::DECODE_ERROR) != 0 || s.videoWidth > 0 || streamOfSource[1] < 0; },
           "the first frames");
    if (Failed(s, "the samples")) {
        return;
    }
    const double early = WaitForPosition(s, media, 0.5);

    // The browser appends from the new position itself: its demuxer goes there before the next request
    // is answered, and whatever the stack still asks for the old position is answered from the new one.
    const double target = std::max(early + 0.5, file->DurationSeconds() * 0.5);
    t.Call("setPosition(" + Seconds(target) + ")", media->setPosition(target));
    t.Expect(file->Seek(target), "the browser's demuxer cannot seek to " + Seconds(target));
    s.Pump([&] { return s.Seen(UVAEvent::DECODE_ERROR) != 0 || s.Seen(UVAEvent::SEEK_COMPLETED) > 0; },
           "the seek to complete");
    if (Failed(s, "the samples after the seek")) {
        return;
    }
    double position = 0.0;
    const UVA_STATUS known = media->getPosition(position);
    t.Call("getPosition() = " + Seconds(position), known);
    // Playing on since the seek, the position may be ahead of the target: "not before the target, not
    // past the end" is held (a stack answering its clock's raw time fails here).
    t.Expect(position > target - 0.1 && position < file->DurationSeconds() + 0.25,
             "position " + Seconds(position) + " after the seek, the target was " + Seconds(target));
    s.Pump([&] { return s.Seen(UVAEvent::PLAYBACK_FINISHED) > 0; }, "the end of playback");
    ExpectFileFacts(s, *file);
}

struct MediaScenario {
    const char* name;
    const char* title;
};

const MediaScenario kMediaScenarios[] = {
    {"gst-url", "URL playback of a real file: the media stack reads, decodes and plays it"},
    {"gst-mse", "Media Source playback of the same file, demuxed by the browser into samples"},
};

}  // namespace

bool IsMediaSession(const std::string& name) {
    for (const MediaScenario& scenario : kMediaScenarios) {
        if (name == scenario.name) {
            return true;
        }
    }
    return false;
}

void RunMediaSessions(const std::string& name, Timeline& timeline, const EntryPoints& library, LogBook& log,
                      const MediaSessionOptions& options) {
    for (const MediaScenario& scenario : kMediaScenarios) {
        if (name != "all" && name != scenario.name) {
            continue;
        }
        timeline.Heading(std::string(scenario.name) + ": " + scenario.title);
        timeline.Note("media " + options.media + ", stack " + options.stackPath);
        Demuxer file;
        std::string demuxError;
        const bool demuxed = file.Open(options.media, demuxError);
        const bool isUrl = std::string(scenario.name) == "gst-url";
        if (!demuxed && (!isUrl || !g_file_test(options.media.c_str(), G_FILE_TEST_EXISTS))) {
            timeline.Expect(false, demuxError);
            continue;
        }
        if (!demuxed) {
            timeline.Note("the browser cannot demux it (" + demuxError + "): played without checking its facts");
        }
        std::string error;
        Velmora::IUva* stack = CreateStack(options, error);
        if (!timeline.Expect(stack != nullptr, "cannot load the media stack " + options.stackPath + ": " + error)) {
            continue;
        }
        Session session(timeline, library, log, stack);
        if (isUrl) {
            Url(session, demuxed ? &file : nullptr, options.media);
        } else {
            Mse(session, &file);
        }
        session.Close();
        session.ReleaseAll();
    }
}

}  // namespace Simulator
