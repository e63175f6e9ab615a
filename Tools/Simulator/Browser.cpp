#include "Browser.h"

#include <dlfcn.h>

#include <chrono>
#include <cstring>
#include <sstream>

#include "ReferenceDrmBackend.h"
#include "ReferenceUva.h"
#include "Velmora/IntegrationLayer.h"

namespace Simulator {

namespace {

template <typename Function>
bool Find(void* library, const char* name, Function& function, std::string& error) {
    function = reinterpret_cast<Function>(dlsym(library, name));
    if (function == nullptr) {
        error = std::string("missing entry point ") + name;
    }
    return function != nullptr;
}

const char* const kEventNames[] = {"RESOURCE_REVOKED",
                                   "NEED_DATA",
                                   "NEED_MSE_DATA",
                                   "CANCEL_DATA_REQUESTS",
                                   "PLAYBACK_FINISHED",
                                   "DURATION_CHANGED",
                                   "VIDEO_RESIZED",
                                   "DECODE_ERROR",
                                   "SEEK_COMPLETED",
                                   "VIDEO_FRAME_AVAILABLE",
                                   "DRM_RIGHTS_ERROR",
                                   "PARENTAL_RATING_ERROR",
                                   "PARENTAL_RATING_CHANGE",
                                   "BROADCAST_PLAYSTATE_CHANGE",
                                   "CHANNEL_CHANGE_ERROR",
                                   "CHANNEL_CHANGE_SUCCEEDED",
                                   "PROGRAMMES_CHANGED",
                                   "RECORDING_ERROR",
                                   "RECORDING_STATE_CHANGE",
                                   "BUFFERING_PROGRESS",
                                   "BUFFERING_NETWORK_ERROR",
                                   "BUFFERING_IDLE",
                                   "BUFFERING_STREAM_UNDERRUN",
                                   "BUFFERING_STREAM_BUFFERED",
                                   "SUBTITLES_CHANGED",
                                   "COMPONENT_CHANGED"};
const char* const kDrmEventNames[] = {"NEED_KEY", "KEY_MESSAGE", "KEY_COMPLETE", "KEY_ERROR", "RESULT_MESSAGE"};
const char* const kComponentTypes[] = {"video", "audio", "subtitle"};
const char* const kActions[] = {"added", "removed", "changed"};

std::string Text(const char* text) { return text != nullptr ? text : "(null)"; }

std::string Describe(const UVADRMEvent& event) {
    std::ostringstream out;
    out << kDrmEventNames[event.kind] << " session " << Text(event.sessionId);
    if (const auto* message = dynamic_cast<const UVAResultMessageDRMEvent*>(&event)) {
        out << " result " << message->resultCode << " \"" << Text(message->resultMessage) << "\"";
    } else if (const auto* error = dynamic_cast<const UVAKeyErrorDRMEvent*>(&event)) {
        out << " error " << error->errorCode << "/" << error->systemCode;
    }
    return out.str();
}

constexpr std::int32_t kSampleMs = 500;
constexpr char kIv[] = "iv-of-16-bytes!!";

}  // namespace

std::string Describe(const UVAEvent& event) {
    std::ostringstream out;
    const int type = event.getType();
    out << (type >= 0 && type <= UVAEvent::COMPONENT_CHANGED ? kEventNames[type] : "UNKNOWN");
    if (const auto* e = dynamic_cast<const NeedMSEDataEvent*>(&event)) {
        out << " source " << e->sourceId << " count " << e->count;
    } else if (const auto* e = dynamic_cast<const NeedDataEvent*>(&event)) {
        out << " source " << e->sourceId << " offset " << e->offset << " size " << e->size;
    } else if (const auto* e = dynamic_cast<const CancelDataRequestsEvent*>(&event)) {
        out << " position " << e->position << " request " << e->requestId;
    } else if (const auto* e = dynamic_cast<const DurationChangedEvent*>(&event)) {
        out << " " << e->duration << " s";
    } else if (const auto* e = dynamic_cast<const VideoResizedEvent*>(&event)) {
        out << " " << e->width << "x" << e->height;
    } else if (const auto* e = dynamic_cast<const ComponentChangedEvent*>(&event)) {
        const auto* component = e->component;
        out << " " << (e->action >= 0 && e->action <= 2 ? kActions[e->action] : "?") << " "
            << (component->type >= 0 && component->type <= 2 ? kComponentTypes[component->type] : "?") << " "
            << Text(component->language);
    } else if (const auto* e = dynamic_cast<const BroadcastPlaystateChangeEvent*>(&event)) {
        out << " state " << e->state << " error " << e->error;
    } else if (const auto* e = dynamic_cast<const ChannelChangeErrorEvent*>(&event)) {
        out << " error " << e->errorState;
    } else if (const auto* e = dynamic_cast<const RecordingStateChangeEvent*>(&event)) {
        out << " state " << e->state << " " << Text(e->recordingId);
    } else if (const auto* e = dynamic_cast<const ParentalRatingEvent*>(&event)) {
        out << " rating " << e->rating;
    } else if (const auto* e = dynamic_cast<const SubtitlesChangedEvent*>(&event)) {
        out << " " << Text(e->language);
    }
    return out.str();
}

bool LoadLibrary(const std::string& path, EntryPoints& entryPoints, std::string& error) {
    void* library = dlopen(path.c_str(), RTLD_NOW);  // kept open for the whole run
    if (library == nullptr) {
        error = dlerror();
        return false;
    }
    return Find(library, "UVA_RequestBackend", entryPoints.requestBackend, error) &&
           Find(library, "UVA_ReleaseBackend", entryPoints.releaseBackend, error) &&
           Find(library, "UVADRM_RequestBackend", entryPoints.requestDrmBackend, error) &&
           Find(library, "UVADRM_ReleaseBackend", entryPoints.releaseDrmBackend, error) &&
           Find(library, "UVADRM_GetSupportedBackendIDs", entryPoints.supportedIds, error);
}

// ---- Log book ---------------------------------------------------------------------------------------

void LogBook::Add(int level, const std::string& text) {
    const std::lock_guard<std::mutex> lock(mutex);
    lines.emplace_back(level, text);
}

std::string LogBook::Find(int level, const std::string& text) const {
    const std::lock_guard<std::mutex> lock(mutex);
    for (const auto& [lineLevel, line] : lines) {
        if (lineLevel == level && line.find(text) != std::string::npos) {
            return line;
        }
    }
    return std::string();
}

void LogBook::Clear() {
    const std::lock_guard<std::mutex> lock(mutex);
    lines.clear();
}

// ---- Clients ----------------------------------------------------------------------------------------

void MediaClient::handleEvent(UVAEvent* event) { session.Deliver(event, released); }

UVADRMBackend* MediaClient::requestDRMBackend(const char* keySystemId) { return session.AnswerDrmRequest(keySystemId); }

void DrmClient::handleDRMEvent(UVADRMEvent* event) { session.Deliver(event, released); }

// ---- Session ----------------------------------------------------------------------------------------

Session::Session(Timeline& timeline, const EntryPoints& library, LogBook& log, std::uint32_t variant,
                 const Velmora::Reference::StackOptions& options)
    : timeline(timeline),
      library(library),
      log(log),
      options(options),
      stack(new Velmora::Reference::ReferenceUva(options)),
      layer(std::make_unique<Velmora::Wrapper::IntegrationLayer>(stack)),
      random(variant) {}

Session::Session(Timeline& timeline, const EntryPoints& library, LogBook& log, Velmora::IUva* mediaStack)
    : timeline(timeline),
      library(library),
      log(log),
      stack(nullptr),
      layer(std::make_unique<Velmora::Wrapper::IntegrationLayer>(mediaStack)),
      random(1) {}

Session::~Session() {
    ReleaseAll();
    layer.reset();  // deletes the stack
    for (const Queued& left : queue) {
        delete left.media;
        delete left.drm;
    }
}

UVAMediaBackend* Session::RequestMedia(UVABackend::UVABackendType type) {
    media = static_cast<UVAMediaBackend*>(library.requestBackend(type, &client));
    timeline.Expect(media != nullptr, "UVA_RequestBackend(" + std::to_string(type) + ") gave no back-end");
    timeline.Note("UVA_RequestBackend(" + std::to_string(type) + ") -> " + (media ? "media back-end" : "null"));
    return media;
}

UVAVideoBroadcastBackend* Session::RequestBroadcast() {
    broadcast =
        static_cast<UVAVideoBroadcastBackend*>(library.requestBackend(UVABackend::TYPE_VIDEO_BROADCAST, &client));
    timeline.Expect(broadcast != nullptr, "UVA_RequestBackend(2) gave no back-end");
    timeline.Note(std::string("UVA_RequestBackend(2) -> ") + (broadcast ? "broadcast back-end" : "null"));
    return broadcast;
}

UVADRMBackend* Session::RequestDrm(const char* keySystem) {
    drm = library.requestDrmBackend(keySystem, &drmClient);
    timeline.Expect(drm != nullptr, std::string("UVADRM_RequestBackend(") + keySystem + ") gave no back-end");
    timeline.Note(std::string("UVADRM_RequestBackend(\"") + keySystem + "\") -> " + (drm ? "DRM back-end" : "null"));
    return drm;
}

// Components end only when the media stack removes them, so the content is stopped (and its
// components seen off) before a back-end is released.
void Session::Close() {
    if (media != nullptr) {
        timeline.Call("stop()", media->stop());
    }
    if (broadcast != nullptr) {
        timeline.Call("stop()", broadcast->stop());
    }
    Pump([this] { return componentsHeld == 0; }, "the components to be removed");
}

void Session::ReleaseAll() {
    for (UVABackend** backend : {reinterpret_cast<UVABackend**>(&media), reinterpret_cast<UVABackend**>(&broadcast)}) {
        if (*backend != nullptr) {
            timeline.Call("UVA_ReleaseBackend", library.releaseBackend(*backend));
            *backend = nullptr;
        }
    }
    client.released = true;
    if (drm != nullptr) {
        timeline.Call("UVADRM_ReleaseBackend", library.releaseDrmBackend(drm));
        drm = nullptr;
    }
    drmClient.released = true;
}

UVADRMBackend* Session::AnswerDrmRequest(const char* keySystem) {
    timeline.Event(std::string("requestDRMBackend(\"") + Text(keySystem) + "\")");
    if (drm == nullptr) {
        RequestDrm(keySystem);
    }
    return drm;
}

void Session::Deliver(UVAEvent* event, bool afterRelease) {
    timeline.Event(Describe(*event));
    timeline.Expect(!afterRelease, "event after release: " + Describe(*event));
    const std::lock_guard<std::mutex> lock(mutex);
    queue.push_back({event, nullptr});
    arrived.notify_one();
}

void Session::Deliver(UVADRMEvent* event, bool afterRelease) {
    timeline.Event(Describe(*event));
    timeline.Expect(!afterRelease, "DRM event after release: " + Describe(*event));
    const std::lock_guard<std::mutex> lock(mutex);
    queue.push_back({nullptr, event});
    arrived.notify_one();
}

void Session::DrainQueue() {
    std::deque<Queued> batch;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        batch.swap(queue);
    }
    for (const Queued& next : batch) {
        if (next.media != nullptr) {
            Handle(next.media);
        } else {
            Handle(next.drm);
        }
    }
}

bool Session::Pump(const std::function<bool()>& done, const std::string& what, int seconds) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    const bool manual = stack != nullptr && options.clock == Velmora::Reference::Clock::Manual;
    while (true) {
        DrainQueue();
        if (done()) {
            return true;
        }
        if (std::chrono::steady_clock::now() > deadline) {
            return timeline.Expect(false, "gave up waiting for " + what);
        }
        if (manual) {
            stack->Step();
        } else {
            std::unique_lock<std::mutex> lock(mutex);
            arrived.wait_for(lock, std::chrono::milliseconds(20), [this] { return !queue.empty(); });
        }
    }
}

void Session::Steps(int steps) {
    for (int i = 0; i < steps && stack != nullptr; ++i) {
        stack->Step();
        DrainQueue();
    }
}

std::uint32_t Session::Seen(UVAEvent::Type type) const {
    const auto found = seen.find(type);
    return found == seen.end() ? 0 : found->second;
}

void Session::AddStream(std::int32_t sourceId, bool encrypted) { streams[sourceId] = Stream{0, encrypted}; }

void Session::Handle(UVAEvent* event) {
    ++seen[event->getType()];
    switch (event->getType()) {
        case UVAEvent::NEED_MSE_DATA:
            if (feedMediaSource) {
                feedMediaSource(static_cast<NeedMSEDataEvent*>(event));
            } else {
                Answer(static_cast<NeedMSEDataEvent*>(event));
            }
            return;  // writeData took the event over
        case UVAEvent::DURATION_CHANGED: duration = static_cast<DurationChangedEvent*>(event)->duration; break;
        case UVAEvent::VIDEO_RESIZED:
            videoWidth = static_cast<std::uint32_t>(static_cast<VideoResizedEvent*>(event)->width);
            videoHeight = static_cast<std::uint32_t>(static_cast<VideoResizedEvent*>(event)->height);
            break;
        case UVAEvent::NEED_DATA: {
            auto* request = static_cast<NeedDataEvent*>(event);
            const auto size = static_cast<unsigned int>(request->size);
            timeline.AddBytes(size);
            const std::string call = "writeData(NEED_DATA, " + std::to_string(size) + " bytes)";
            timeline.Call(call, media->writeData(event, size, UVABackend::WRITE_DATA_OK));
            return;
        }
        case UVAEvent::CANCEL_DATA_REQUESTS: {
            const auto* cancel = static_cast<CancelDataRequestsEvent*>(event);
            for (auto& [id, stream] : streams) {
                stream.nextMs = static_cast<std::int32_t>(cancel->position * 1000.0) / kSampleMs * kSampleMs;
            }
            break;
        }
        case UVAEvent::COMPONENT_CHANGED: {
            const auto* change = static_cast<ComponentChangedEvent*>(event);
            UVABackend::AVComponent* component = change->component;
            if (change->action == ComponentChangedEvent::ADDED) {
                ++componentsHeld;
            } else if (change->action == ComponentChangedEvent::REMOVED) {
                --componentsHeld;
            }
            if (change->action == ComponentChangedEvent::CHANGED) {
                ++componentsChanged;
                if (component->type == 1 && component->language != nullptr) {
                    ++audioChanges[component->language];
                }
            } else if (component->type == 1 && component->language != nullptr) {
                if (change->action == ComponentChangedEvent::ADDED) {
                    audioTracks[component->language] = component;
                } else {
                    audioTracks.erase(component->language);
                }
            }
            break;
        }
        default: break;
    }
    delete event;
}

// Fills the request with samples of 500 ms, sizes varied by the variant number, encrypted where the stream is;
// the last answer of a stream ends it.
void Session::Answer(NeedMSEDataEvent* request) {
    Stream& stream = streams[request->sourceId];
    const auto endMs = static_cast<std::int32_t>(options.media.durationSeconds * 1000.0);
    std::uniform_int_distribution<unsigned int> size(64, 1024);
    std::uint64_t bytes = 0;
    std::uint32_t filled = 0;
    for (; filled < request->count && stream.nextMs < endMs; ++filled, stream.nextMs += kSampleMs) {
        auto* sample = new UVABackend::MediaSample;
        std::string data(size(random), static_cast<char>('a' + filled));
        sample->data.assign(data.data(), static_cast<unsigned int>(data.size()));
        sample->streamId = request->sourceId;
        sample->timestampMs = stream.nextMs;
        sample->durationMs = kSampleMs;
        sample->keyFrame = filled == 0 ? 1 : 0;
        if (stream.encrypted) {
            const std::string& keyId = options.contentKeys.begin()->first;
            sample->keyId.assign(keyId.data(), static_cast<unsigned int>(keyId.size()));
            sample->iv.assign(kIv, 16);
            sample->addSubSample(16, static_cast<std::uint32_t>(data.size()) - 16);
        }
        request->samples[filled] = sample;
        bytes += data.size();
    }
    const bool last = stream.nextMs >= endMs;
    timeline.AddBytes(bytes);
    // Named before the call: writeData takes the request over and deletes it.
    const std::string call = "writeData(NEED_MSE_DATA source " + std::to_string(request->sourceId) + ", " +
                             std::to_string(filled) + " samples, " + std::to_string(bytes) + " bytes" +
                             (last ? ", end of stream)" : ")");
    timeline.Call(
        call, media->writeData(request, 0, last ? UVABackend::WRITE_DATA_END_OF_STREAM : UVABackend::WRITE_DATA_OK));
}

// The browser's licence server knows the content keys: a key message names the key ids it needs.
void Session::Handle(UVADRMEvent* event) {
    ++drmSeen[event->kind];
    if (event->kind == UVADRMEvent::NEED_KEY) {
        const auto* need = static_cast<UVANeedKeyDRMEvent*>(event);
        timeline.Call("generateKeyRequest(" + std::to_string(need->initDataLength) + " bytes)",
                      drm->generateKeyRequest(need->initData, need->initDataLength));
    } else if (event->kind == UVADRMEvent::KEY_MESSAGE) {
        const auto* message = static_cast<UVAKeyMessageDRMEvent*>(event);
        const std::string keyId(reinterpret_cast<const char*>(message->message), message->messageLength);
        const auto key = options.contentKeys.find(keyId);
        timeline.Expect(key != options.contentKeys.end(), "the licence server knows no key for " + keyId);
        if (key != options.contentKeys.end()) {
            const auto* bytes = reinterpret_cast<const unsigned char*>(key->second.data());
            timeline.Call(
                "addKey(session " + Text(message->sessionId) + ")",
                drm->addKey(bytes, static_cast<unsigned int>(key->second.size()), nullptr, 0, message->sessionId));
        }
    }
    delete event;
}

}  // namespace Simulator
