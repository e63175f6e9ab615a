// One fuzzer input is one browser session against the library: the browser's calls through the exported
// functions and the back-ends' operations, interleaved with the media stack's events, ending with every
// back-end released and the library stopped. An input is read as
//   [log level byte] [browser script length, 2 bytes] [browser script] [media stack's answers]
// so that the media stack's behaviour can change without shifting the browser's calls.
// Anything the library gets wrong (a crash, a sanitizer report, a leaked browser object) aborts.

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <memory>
#include <set>
#include <vector>

#include "Fuzz/FuzzEvents.h"
#include "Fuzz/FuzzInput.h"
#include "Fuzz/FuzzStack.h"
#include "Tlog/Tlog.h"
#include "Uva/UVABackendLibrary.h"
#include "Uva/UVALiveObjects.h"
#include "Uva/UVAMediaBackend.h"
#include "Uva/UVAVideoBroadcastBackend.h"
#include "Velmora/Callbacks.h"
#include "Velmora/IntegrationLayer.h"

namespace VelmoraFuzz {
namespace {

class Session;

// Reads a browser text the way the browser would, so that a text the library left unterminated or
// freed is caught here.
// VELMORA_FUZZ_TRACE=1 prints the session an input plays, to make a finding readable.
const bool kTrace = std::getenv("VELMORA_FUZZ_TRACE") != nullptr;

#define FUZZ_TRACE(...)                        \
    do {                                       \
        if (kTrace) {                          \
            std::fprintf(stderr, __VA_ARGS__); \
        }                                      \
    } while (false)

volatile std::size_t readCharacters = 0;
void Read(const char* text) { readCharacters = readCharacters + (text == nullptr ? 0 : std::strlen(text)); }

// The class the event's type code promises; a code on an object of another class is the library's fault.
template <typename Event>
Event& As(UVAEvent& event) {
    auto* typed = dynamic_cast<Event*>(&event);
    if (typed == nullptr) {
        std::fprintf(stderr, "browser event of type %d has the wrong class\n", static_cast<int>(event.getType()));
        std::abort();
    }
    return *typed;
}

// A DRM back-end that did not come from this library.
class ForeignDrmBackend : public UVADRMBackend {
public:
    const char* getId() const override { return "foreign"; }
    const char* getOIPFId() const override { return "foreign"; }
    UVA_STATUS generateKeyRequest(const unsigned char*, unsigned int) override { return UVA_STATUS_ERROR; }
    UVA_STATUS addKey(const unsigned char*, unsigned int, const unsigned char*, unsigned int, const char*) override {
        return UVA_STATUS_ERROR;
    }
    UVA_STATUS cancelKeyRequest(const char*) override { return UVA_STATUS_ERROR; }
    UVA_STATUS getKeyReleases() override { return UVA_STATUS_ERROR; }
    UVA_STATUS addKeyReleaseCommit(const unsigned char*, unsigned int, const char*) override { return UVA_STATUS_ERROR; }
    UVA_STATUS sendDRMMessage(const char*, const char*, char*&) override { return UVA_STATUS_ERROR; }
    UVA_STATUS getDecrypter(UVADRMDecrypter*&, const unsigned char*, unsigned int, bool) override {
        return UVA_STATUS_ERROR;
    }
    UVA_STATUS releaseDecrypter(UVADRMDecrypter*) override { return UVA_STATUS_ERROR; }
    void stopDecrypters() override {}
    UVA_STATUS onInitData(const unsigned char*, unsigned int) override { return UVA_STATUS_ERROR; }
};

// One browser client per request; it keeps a few events, as a browser answering need-data requests does.
class BrowserClient final : public UVAClient, public UVADRMClient {
public:
    explicit BrowserClient(Session& session) : session_(session) {}

    void handleEvent(UVAEvent* event) override;
    UVADRMBackend* requestDRMBackend(const char* keySystemId) override;
    void handleDRMEvent(UVADRMEvent* event) override;

    // Takes back a kept event (ownership passes to the caller), or null.
    UVAEvent* TakeEvent(std::uint8_t which) {
        if (kept_.empty()) {
            return nullptr;
        }
        const auto position = kept_.begin() + which % kept_.size();
        UVAEvent* event = position->release();
        kept_.erase(position);
        return event;
    }

    // The library never deletes a component wrapper itself: one the media stack did not remove before
    // the back-end was released stays with the browser. Standing in for that missing removal, the
    // harness marks such components unused, so that only what the library loses counts as a leak.
    void AbandonComponents() {
        for (UVABackend::AVComponent* component : announced_) {
            component->backendMarkUnused();
        }
        announced_.clear();
    }

    UVABackend* backend = nullptr;  // what this client was requested with
    bool releaseInHandler = false;  // the browser releases its back-end from inside its event handler

private:
    static constexpr std::size_t kKeptEvents = 4;

    Session& session_;
    std::deque<std::unique_ptr<UVAEvent>> kept_;
    std::set<UVABackend::AVComponent*> announced_;  // added and not yet removed
};

class Session {
public:
    explicit Session(const std::uint8_t* data, std::size_t size)
        : browser_(data, 0), stackInput_(data, 0), script_(stackInput_) {
        if (size >= 3) {
            const std::size_t length = std::min<std::size_t>(size - 3, data[1] | (data[2] << 8));
            browser_ = FuzzInput(data + 3, length);
            stackInput_ = FuzzInput(data + 3 + length, size - 3 - length);
        }
        // Levels 2 and 4 exercise the log lines; anything else keeps the log quiet.
        static const std::int32_t kThresholds[] = {6, 2, 4, 5};
        Tlog::SetDefaultThreshold(size == 0 ? 6 : kThresholds[data[0] % 4]);
    }

    void Play() {
        Start();
        while (!browser_.Exhausted()) {
            Step();
        }
        Stop();
    }

    // The browser let go of `backend` (from inside a handler).
    void Forget(UVABackend* backend) {
        for (Held& held : backends_) {
            if (held.pointer == backend) {
                held.pointer = nullptr;
            }
        }
    }

    void Keep(UVABackend::AVComponent* component) {
        component->preventDestruction();
        components_.push_back(component);
    }

    UVADRMBackend* DrmAnswer() {
        switch (drmAnswer_ % 3) {
            case 1: {
                for (UVADRMBackend* drm : drmBackends_) {
                    if (drm != nullptr) {
                        return drm;
                    }
                }
                return nullptr;
            }
            case 2: return &foreignDrm_;
            default: return nullptr;
        }
    }

private:
    struct Held {
        UVABackend* pointer;
        BrowserClient* client;
    };

    enum Operation : std::uint8_t {
        kRequestBackend, kReleaseBackend, kReleaseForeign, kRequestDrm, kReleaseDrm, kSupportedIds, kMediaCall,
        kBroadcastCall, kDrmCall, kWriteData, kRaiseEvent, kRaiseDrmEvent, kComponentState, kDrmRequest,
        kHandleLookup, kDropComponent, kClientChoice, kRestart, kOperationCount,
    };

    void Start() {
        uva_ = new FuzzUva(script_, stack_);
        try {
            layer_.reset(new Velmora::Wrapper::IntegrationLayer(uva_));
        } catch (...) {
            // The layer deleted the root object when it failed.
            uva_ = nullptr;
        }
    }

    // Releases what the browser holds and stops the library, as the owner does before unloading it.
    void Stop() {
        for (Held& held : backends_) {
            if (held.pointer != nullptr && layer_) {
                Release(held);
            }
        }
        backends_.clear();
        for (UVADRMBackend* drm : drmBackends_) {
            if (drm != nullptr && layer_) {
                UVADRM_ReleaseBackend(drm);
            }
        }
        drmBackends_.clear();
        layer_.reset();
        uva_ = nullptr;
        // A request that failed after its wrapper was registered leaves that wrapper with the registry
        // until the layer goes, still delivering events to the client that was told "no back-end".
        for (const auto& client : clients_) {
            client->AbandonComponents();
        }
        clients_.clear();
        for (UVABackend::AVComponent* component : components_) {
            component->stopPreventingDestruction();
        }
        components_.clear();
    }

    void Release(Held& held) {
        FUZZ_TRACE("  release %p\n", static_cast<void*>(held.pointer));
        UVA_ReleaseBackend(held.pointer);
        held.pointer = nullptr;
        if (held.client != nullptr) {
            held.client->AbandonComponents();
        }
    }

    BrowserClient* NewClient() {
        clients_.emplace_back(new BrowserClient(*this));
        return clients_.back().get();
    }

    template <typename Backend>
    Backend* Pick(bool broadcast, BrowserClient** client = nullptr) {
        std::vector<Held*> candidates;
        for (Held& held : backends_) {
            if (held.pointer != nullptr &&
                (held.pointer->getType() == UVABackend::TYPE_VIDEO_BROADCAST) == broadcast) {
                candidates.push_back(&held);
            }
        }
        const std::uint8_t which = browser_.Byte();
        if (candidates.empty()) {
            return nullptr;
        }
        Held* chosen = candidates[which % candidates.size()];
        if (client != nullptr) {
            *client = chosen->client;
        }
        return static_cast<Backend*>(chosen->pointer);
    }

    UVABackend::AVComponent* PickComponent(bool& foreign) {
        const std::uint8_t which = browser_.Byte();
        foreign = false;
        if (which == 0xFF) {
            return nullptr;
        }
        if (which == 0xFE || components_.empty()) {
            // A component the browser made itself: never handed out by the library.
            UVABackend::AVComponentDescription description{};
            foreign = true;
            return new UVABackend::AVComponent(description);
        }
        return components_[which % components_.size()];
    }

    void Step() {
        const int operation = browser_.Byte() % kOperationCount;
        FUZZ_TRACE("browser operation %d\n", operation);
        switch (operation) {
            case kRequestBackend: {
                const auto type = browser_.EnumUpTo<UVABackend::UVABackendType>(3);
                BrowserClient* client = browser_.Byte() % 8 == 7 ? nullptr : NewClient();
                UVABackend* backend = UVA_RequestBackend(type, client);
                FUZZ_TRACE("  request type %d client %p -> %p\n", static_cast<int>(type), static_cast<void*>(client),
                           static_cast<void*>(backend));
                if (backend != nullptr) {
                    if (client != nullptr) {
                        client->backend = backend;
                    }
                    backends_.push_back({backend, client});
                }
                break;
            }
            case kReleaseBackend: {
                const std::uint8_t which = browser_.Byte();
                if (backends_.empty()) {
                    break;
                }
                Held& held = backends_[which % backends_.size()];
                if (held.pointer != nullptr) {
                    UVABackend* const released = held.pointer;
                    Release(held);
                    if (which & 0x80) {
                        // A second release of the same pointer, before anything else was requested.
                        UVA_ReleaseBackend(released);
                    }
                }
                break;
            }
            case kReleaseForeign: {
                if (browser_.Bool()) {
                    UVA_ReleaseBackend(nullptr);
                    UVADRM_ReleaseBackend(nullptr);
                } else {
                    UVADRM_ReleaseBackend(&foreignDrm_);
                }
                break;
            }
            case kRequestDrm: {
                const Text keySystem = browser_.TextOrNull();
                BrowserClient* client = browser_.Byte() % 8 == 7 ? nullptr : NewClient();
                if (UVADRMBackend* drm = UVADRM_RequestBackend(keySystem.Pointer(), client)) {
                    drmBackends_.push_back(drm);
                }
                break;
            }
            case kReleaseDrm: {
                const std::uint8_t which = browser_.Byte();
                if (!drmBackends_.empty() && drmBackends_[which % drmBackends_.size()] != nullptr) {
                    UVADRM_ReleaseBackend(drmBackends_[which % drmBackends_.size()]);
                    drmBackends_[which % drmBackends_.size()] = nullptr;
                }
                break;
            }
            case kSupportedIds: {
                const char** ids = nullptr;
                if (UVADRM_GetSupportedBackendIDs(ids) == UVA_STATUS_OK && ids != nullptr) {
                    for (const char** id = ids; *id != nullptr; ++id) {
                        Read(*id);
                    }
                    delete[] ids;
                }
                break;
            }
            case kMediaCall:
                if (auto* media = Pick<UVAMediaBackend>(false)) {
                    MediaCall(*media);
                }
                break;
            case kBroadcastCall:
                if (auto* broadcast = Pick<UVAVideoBroadcastBackend>(true)) {
                    BroadcastCall(*broadcast);
                }
                break;
            case kDrmCall: {
                const std::uint8_t which = browser_.Byte();
                if (!drmBackends_.empty() && drmBackends_[which % drmBackends_.size()] != nullptr) {
                    DrmCall(*drmBackends_[which % drmBackends_.size()]);
                }
                break;
            }
            case kWriteData: {
                BrowserClient* client = nullptr;
                if (auto* media = Pick<UVAMediaBackend>(false, &client)) {
                    WriteData(*media, client);
                }
                break;
            }
            case kRaiseEvent: RaiseEvent(); break;
            case kRaiseDrmEvent: {
                const std::uint8_t which = browser_.Byte();
                if (!stack_.drmEvents.empty()) {
                    const auto event = MakeDrmEvent(browser_);
                    Raise([&] { (*stack_.drmEvents[which % stack_.drmEvents.size()])(event); });
                }
                break;
            }
            case kComponentState: {
                const std::uint8_t which = browser_.Byte();
                const bool active = browser_.Bool();
                if (!stack_.components.empty()) {
                    auto& component = static_cast<FuzzComponent&>(*stack_.components[which % stack_.components.size()]);
                    Raise([&] { component.state(active); });
                }
                break;
            }
            case kDrmRequest: {
                const std::uint8_t which = browser_.Byte();
                const std::string keySystem = browser_.String();
                std::vector<FuzzMediaBackend*> media;
                for (const StackObjects::Backend& backend : stack_.backends) {
                    if (backend.media != nullptr) {
                        media.push_back(backend.media);
                    }
                }
                if (!media.empty()) {
                    Raise([&] {
                        Velmora::IDrmBackend* drm = media[which % media.size()]->RequestDrmBackend(keySystem);
                        if (auto* ours = dynamic_cast<FuzzDrmBackend*>(drm)) {
                            ours->events.num_slots();  // still alive
                        }
                    });
                }
                break;
            }
            case kHandleLookup: {
                void* handle = HandleOf(browser_.Byte());
                if (uva_ != nullptr) {
                    Raise([&] {
                        boost::shared_ptr<Velmora::IBackend> found;
                        uva_->handleLookups(handle, found);
                    });
                }
                break;
            }
            case kDropComponent: {
                const std::uint8_t which = browser_.Byte();
                if (!components_.empty()) {
                    const auto position = components_.begin() + which % components_.size();
                    UVABackend::AVComponent* component = *position;
                    components_.erase(position);
                    component->stopPreventingDestruction();
                }
                break;
            }
            case kClientChoice: {
                drmAnswer_ = browser_.Byte();
                const std::uint8_t which = browser_.Byte();
                if (!clients_.empty()) {
                    clients_[which % clients_.size()]->releaseInHandler = browser_.Bool();
                }
                break;
            }
            case kRestart:
                Stop();
                Start();
                break;
            default: break;
        }
    }

    // The media stack sees whatever its raising throws; the browser must not have been stopped by it.
    template <typename Raising>
    void Raise(Raising raising) {
        try {
            raising();
        } catch (...) {
        }
    }

    static void* HandleOf(std::uint8_t value) {
        return reinterpret_cast<void*>(static_cast<std::uintptr_t>(value % 4 + 1) * 0x1000);
    }

    void RaiseEvent() {
        const std::uint8_t which = browser_.Byte();
        // Components appear as the media stack announces them; a few are enough to meet each other.
        if (browser_.Byte() % 4 == 0 && stack_.components.size() < 4) {
            stack_.components.emplace_back(new FuzzComponent(script_, static_cast<int>(stack_.components.size())));
        }
        std::vector<Velmora::IAvComponent*> components;
        for (const auto& component : stack_.components) {
            components.push_back(component.get());
        }
        components.push_back(nullptr);  // a component event without its component is logged and ignored
        if (stack_.backends.empty()) {
            return;
        }
        EventSignal& events = *stack_.backends[which % stack_.backends.size()].events;
        const auto event = MakeBackendEvent(browser_, components.data(), components.size());
        Raise([&] { events(event); });
    }

    void MediaCall(UVAMediaBackend& media);
    void BroadcastCall(UVAVideoBroadcastBackend& broadcast);
    void DrmCall(UVADRMBackend& drm);
    void WriteData(UVAMediaBackend& media, BrowserClient* client);
    UVABackend::SourceDescription* Source();

    FuzzInput browser_;
    FuzzInput stackInput_;
    StackScript script_;
    StackObjects stack_;
    FuzzUva* uva_ = nullptr;  // owned by the layer
    std::unique_ptr<Velmora::Wrapper::IntegrationLayer> layer_;
    std::vector<std::unique_ptr<BrowserClient>> clients_;
    std::vector<Held> backends_;
    std::vector<UVADRMBackend*> drmBackends_;
    std::vector<UVABackend::AVComponent*> components_;  // each held with one prevention of ours
    std::uint8_t drmAnswer_ = 0;
    ForeignDrmBackend foreignDrm_;
};

void BrowserClient::handleEvent(UVAEvent* event) {
    std::unique_ptr<UVAEvent> owned(event);
    FUZZ_TRACE("  client %p: event %d\n", static_cast<void*>(this), static_cast<int>(event->getType()));
    switch (event->getType()) {
        case UVAEvent::NEED_MSE_DATA: {
            auto& need = As<NeedMSEDataEvent>(*event);
            if (need.samples == nullptr || need.samples[need.count] != nullptr) {
                std::abort();  // the browser fills `count` entries and relies on the terminator after them
            }
            break;
        }
        case UVAEvent::DRM_RIGHTS_ERROR: {
            auto& error = As<DRMRightsErrorEvent>(*event);
            Read(error.contentId);
            Read(error.drmSystemId);
            Read(error.rightsIssuerUrl);
            break;
        }
        case UVAEvent::PARENTAL_RATING_ERROR:
        case UVAEvent::PARENTAL_RATING_CHANGE: {
            auto& rating = As<ParentalRatingEvent>(*event);
            Read(rating.contentId);
            Read(rating.drmSystemId);
            break;
        }
        case UVAEvent::RECORDING_ERROR: Read(As<RecordingErrorEvent>(*event).recordingId); break;
        case UVAEvent::RECORDING_STATE_CHANGE: Read(As<RecordingStateChangeEvent>(*event).recordingId); break;
        case UVAEvent::SUBTITLES_CHANGED: Read(As<SubtitlesChangedEvent>(*event).language); break;
        case UVAEvent::COMPONENT_CHANGED: {
            const auto& change = As<ComponentChangedEvent>(*event);
            UVABackend::AVComponent* component = change.component;
            FUZZ_TRACE("  component %p action %d\n", static_cast<void*>(component), change.action);
            if (change.action == ComponentChangedEvent::ADDED) {
                announced_.insert(component);
            } else if (change.action == ComponentChangedEvent::REMOVED) {
                announced_.erase(component);
            }
            for (const char* text : {component->language, component->encoding, component->label, component->role,
                                     component->id}) {
                Read(text);
            }
            session_.Keep(component);
            break;
        }
        default: break;
    }
    kept_.push_back(std::move(owned));
    if (kept_.size() > kKeptEvents) {
        kept_.pop_front();
    }
    if (releaseInHandler && backend != nullptr) {
        UVABackend* const releasing = backend;
        backend = nullptr;
        session_.Forget(releasing);
        UVA_ReleaseBackend(releasing);
        AbandonComponents();
    }
}

UVADRMBackend* BrowserClient::requestDRMBackend(const char* keySystemId) {
    Read(keySystemId);
    return session_.DrmAnswer();
}

void BrowserClient::handleDRMEvent(UVADRMEvent* event) {
    Read(event->keySystem);
    Read(event->sessionId);
    if (auto* message = dynamic_cast<UVAKeyMessageDRMEvent*>(event)) {
        Read(message->defaultUrl);
    } else if (auto* result = dynamic_cast<UVAResultMessageDRMEvent*>(event)) {
        Read(result->resultMessage);
    }
    delete event;
}

UVABackend::SourceDescription* Session::Source() {
    if (browser_.Byte() % 4 == 3) {
        const Text url = browser_.TextOrNull();
        return UVABackend::SourceDescription::BackendStreaming(url.Pointer());
    }
    // Type 3 holds a URL in place of the source id and is only made by BackendStreaming; -1 and 4 are
    // types no browser should send.
    static const std::int32_t kTypes[] = {0, 1, 2, -1, 4};
    const std::int32_t type = kTypes[browser_.Byte() % 5];
    const std::int32_t sourceId = browser_.I32();
    const bool encrypted = browser_.Bool();
    const std::int32_t track = browser_.I32();
    const Text mime = browser_.TextOrNull();
    return UVABackend::SourceDescription::Streaming(type, sourceId, encrypted, track, mime.Pointer());
}

void Session::MediaCall(UVAMediaBackend& media) {
    enum : std::uint8_t {
        kInit, kAttach, kRemove, kSetSource, kQueue, kLoop, kWindowId, kVideoWindow, kClipRect, kNativeSize, kFrame,
        kBuffered, kSeekable, kCanPlayUrl, kCanPlayType, kMimetypes, kPlay, kStop, kPause, kRate, kVolume,
        kDuration, kContentSize, kGetPosition, kSetPosition, kVisibility, kSizeFromDuration, kFullScreen,
        kListener, kBuffering, kBytesInBuffer, kKeySystem, kSelect, kUnselect, kCount,
    };
    switch (browser_.Byte() % kCount) {
        case kInit: {
            const Text url = browser_.TextOrNull();
            const std::uint8_t count = browser_.Byte() % 5;
            UVABackend::SourceDescription** sources = nullptr;
            if (count != 4) {
                sources = new UVABackend::SourceDescription*[count + 1]();
                for (std::uint8_t index = 0; index < count; ++index) {
                    sources[index] = Source();
                }
            }
            if (media.initBackend(url.Pointer(), sources, browser_.Bool()) != UVA_STATUS_OK && sources != nullptr) {
                for (auto** source = sources; *source != nullptr; ++source) {
                    delete *source;
                }
                delete[] sources;
            }
            break;
        }
        case kAttach: {
            UVABackend::SourceDescription* source = browser_.Bool() ? nullptr : Source();
            if (media.attachSource(source) != UVA_STATUS_OK) {
                delete source;
            }
            break;
        }
        case kRemove: media.removeSource(browser_.U32()); break;
        case kSetSource: media.setSource(browser_.TextOrNull().Pointer()); break;
        case kQueue: media.queue(browser_.TextOrNull().Pointer()); break;
        case kLoop: media.setLoop(browser_.TextOrNull().Pointer()); break;
        case kWindowId: media.setWindowId(browser_.U32()); break;
        case kVideoWindow:
        case kClipRect: {
            const int x = browser_.I32(), y = browser_.I32(), width = browser_.I32(), height = browser_.I32();
            (void)(browser_.Bool() ? media.setVideoWindow(x, y, width, height) : media.setClipRect(x, y, width, height));
            break;
        }
        case kNativeSize: {
            int width = 0, height = 0;
            double aspect = 0;
            media.getNativeSize(width, height, aspect);
            break;
        }
        case kFrame: {
            std::vector<unsigned char> frame(browser_.Byte());
            media.getVideoFrame(frame.empty() ? nullptr : frame.data(), static_cast<unsigned>(frame.size()));
            break;
        }
        case kBuffered:
        case kSeekable: {
            UVABackend::TimeRange** ranges = nullptr;
            if (browser_.Bool()) {
                media.getBufferedTimeRanges(nullptr, ranges);
            } else {
                media.getSeekableTimeRanges(nullptr, ranges);
            }
            for (auto** range = ranges; range != nullptr && *range != nullptr; ++range) {
                delete *range;
            }
            delete[] ranges;
            break;
        }
        case kCanPlayUrl: media.canPlayURL(browser_.TextOrNull().Pointer()); break;
        case kCanPlayType: {
            const Text type = browser_.TextOrNull();
            const Text keySystem = browser_.TextOrNull();
            std::vector<Text> codecs(browser_.Byte() % 4);
            for (Text& codec : codecs) {
                codec = browser_.TextOrNull();
                codec.null = false;  // a codec list ends at its first null entry
            }
            std::vector<const char*> list;
            for (const Text& codec : codecs) {
                list.push_back(codec.Pointer());
            }
            list.push_back(nullptr);
            media.canPlayType(type.Pointer(), browser_.Bool() ? nullptr : list.data(), keySystem.Pointer());
            break;
        }
        case kMimetypes: {
            char** types = nullptr;
            if (media.getSupportedMimetypes(types) == UVA_STATUS_OK && types != nullptr) {
                for (char** type = types; *type != nullptr; ++type) {
                    Read(*type);
                    std::free(*type);
                }
                delete[] types;
            }
            break;
        }
        case kPlay: media.play(); break;
        case kStop: media.stop(); break;
        case kPause: media.pause(browser_.Bool()); break;
        case kRate: media.setPlaybackRate(browser_.Double()); break;
        case kVolume: media.setVolume(browser_.Double()); break;
        case kDuration: {
            double duration = 0;
            media.getDuration(duration);
            break;
        }
        case kContentSize: {
            const unsigned width = browser_.U32();
            media.setContentSize(width, browser_.U32());
            break;
        }
        case kGetPosition: {
            double position = 0;
            media.getPosition(position);
            break;
        }
        case kSetPosition: media.setPosition(browser_.Double()); break;
        case kVisibility: {
            const bool visible = browser_.Bool();
            media.setVisibility(visible, browser_.Bool());
            break;
        }
        case kSizeFromDuration: {
            unsigned size = 0;
            media.getSizeFromDuration(browser_.Double(), size);
            break;
        }
        case kFullScreen: media.setFullScreen(browser_.Bool()); break;
        case kListener: media.onListenerChanged(browser_.TextOrNull().Pointer()); break;
        case kBuffering: media.setBufferingStrategy(browser_.EnumUpTo<UVABackend::BufferingStrategy>(3)); break;
        case kBytesInBuffer: {
            unsigned bytes = 0;
            media.getBytesInBuffer(bytes);
            break;
        }
        case kKeySystem: media.setKeySystem(browser_.TextOrNull().Pointer()); break;
        case kSelect:
        case kUnselect: {
            const bool select = browser_.Bool();
            bool foreign = false;
            UVABackend::AVComponent* component = PickComponent(foreign);
            (void)(select ? media.selectComponent(component) : media.unselectComponent(component));
            if (foreign) {
                component->backendMarkUnused();
            }
            break;
        }
        default: break;
    }
}

void Session::BroadcastCall(UVAVideoBroadcastBackend& broadcast) {
    enum : std::uint8_t {
        kWindowId, kInit, kRelease, kVideoWindow, kFullScreen, kVisibility, kVolume, kNext, kPrevious, kStop,
        kSelect, kPlayState, kListener, kCurrentChannel, kSetChannel, kBind, kOffset, kMaxOffset, kSpeeds, kRecord,
        kStopRecording, kPause, kResume, kSetSpeed, kSetPosition, kStopTimeShift, kRecordingState, kGetPosition,
        kGetSpeed, kCount,
    };
    switch (browser_.Byte() % kCount) {
        case kWindowId: broadcast.setWindowId(HandleOf(browser_.Byte())); break;
        case kInit: broadcast.initBackend(browser_.TextOrNull().Pointer()); break;
        case kRelease: broadcast.release(); break;
        case kVideoWindow: {
            const int x = browser_.I32(), y = browser_.I32(), width = browser_.I32(), height = browser_.I32();
            (void)(browser_.Bool() ? broadcast.setVideoWindow(x, y, width, height)
                                   : broadcast.setClipRect(x, y, width, height));
            break;
        }
        case kFullScreen: broadcast.setFullScreen(browser_.Bool()); break;
        case kVisibility: {
            const bool visible = browser_.Bool();
            broadcast.setVisibility(visible, browser_.Bool());
            break;
        }
        case kVolume: broadcast.setVolume(browser_.Double()); break;
        case kNext: broadcast.nextChannel(); break;
        case kPrevious: broadcast.previousChannel(); break;
        case kStop: broadcast.stop(); break;
        case kSelect: {
            const bool select = browser_.Bool();
            bool foreign = false;
            UVABackend::AVComponent* component = PickComponent(foreign);
            (void)(select ? broadcast.selectComponent(component) : broadcast.unselectComponent(component));
            if (foreign) {
                component->backendMarkUnused();
            }
            break;
        }
        case kPlayState: {
            UVAVideoBroadcastBackend::PlayState state{};
            broadcast.getPlayState(state);
            break;
        }
        case kListener: broadcast.onListenerChanged(browser_.TextOrNull().Pointer()); break;
        case kCurrentChannel: {
            void* channel = nullptr;
            broadcast.getCurrentChannel(channel);
            break;
        }
        case kSetChannel: {
            void* channel = HandleOf(browser_.Byte());
            const std::uint8_t flags = browser_.Byte();
            const Text access = browser_.TextOrNull();
            broadcast.setChannel(channel, flags & 1, flags & 2, access.Pointer(), flags & 4, flags & 8);
            break;
        }
        case kBind: broadcast.bindToCurrentChannel(); break;
        case kOffset:
        case kMaxOffset: {
            double offset = 0;
            (void)(browser_.Bool() ? broadcast.getPlaybackOffset(offset) : broadcast.getMaxOffset(offset));
            break;
        }
        case kSpeeds: {
            double* speeds = nullptr;
            unsigned count = browser_.Byte() % 32;
            const unsigned capacity = count;
            if (broadcast.getPlaybackSpeeds(speeds, count) == UVA_STATUS_OK) {
                double sum = 0;
                for (unsigned index = 0; index < std::min(count, capacity); ++index) {
                    sum += speeds[index];
                }
                (void)sum;
            }
            delete[] speeds;
            break;
        }
        case kRecord: {
            char* recording = nullptr;
            broadcast.recordNow(browser_.Double(), recording);
            std::free(recording);
            break;
        }
        case kStopRecording: broadcast.stopRecording(); break;
        case kPause: broadcast.pause(); break;
        case kResume: broadcast.resume(); break;
        case kSetSpeed: broadcast.setPlaybackSpeed(browser_.Double()); break;
        case kSetPosition: {
            const double position = browser_.Double();
            broadcast.setPosition(position, browser_.EnumUpTo<UVABackend::PositionReference>(3));
            break;
        }
        case kStopTimeShift: broadcast.stopTimeShift(); break;
        case kRecordingState: {
            UVAVideoBroadcastBackend::RecordingState state{};
            broadcast.getRecordingState(state);
            break;
        }
        case kGetPosition: {
            double position = 0;
            broadcast.getPosition(position);
            break;
        }
        case kGetSpeed: {
            double speed = 0;
            broadcast.getPlaybackSpeed(speed);
            break;
        }
        default: break;
    }
}

void Session::DrmCall(UVADRMBackend& drm) {
    // Byte blocks end in a zero just past their length: the library writes some of them to its log as
    // C texts.
    const auto block = [this] {
        std::vector<std::uint8_t> bytes = browser_.Block();
        bytes.push_back(0);
        return bytes;
    };
    const auto size = [](const std::vector<std::uint8_t>& bytes) { return static_cast<unsigned>(bytes.size() - 1); };
    const auto data = [](const std::vector<std::uint8_t>& bytes) { return bytes.size() == 1 ? nullptr : bytes.data(); };
    switch (browser_.Byte() % 12) {
        case 0: Read(drm.getId()); break;
        case 1: Read(drm.getOIPFId()); break;
        case 2: {
            const auto initData = block();
            drm.generateKeyRequest(data(initData), size(initData));
            break;
        }
        case 3: {
            const auto key = block();
            const auto initData = block();
            const Text session = browser_.TextOrNull();
            drm.addKey(data(key), size(key), data(initData), size(initData), session.Pointer());
            break;
        }
        case 4: drm.cancelKeyRequest(browser_.TextOrNull().Pointer()); break;
        case 5: drm.getKeyReleases(); break;
        case 6: {
            const auto commit = block();
            const Text session = browser_.TextOrNull();
            drm.addKeyReleaseCommit(data(commit), size(commit), session.Pointer());
            break;
        }
        case 7: {
            const Text type = browser_.TextOrNull();
            const Text message = browser_.TextOrNull();
            char* result = nullptr;
            if (drm.sendDRMMessage(type.Pointer(), message.Pointer(), result) == UVA_STATUS_OK) {
                Read(result);
            }
            std::free(result);
            break;
        }
        case 8: {
            UVADRMBackend::UVADRMDecrypter* decrypter = nullptr;
            const auto keyId = block();
            drm.getDecrypter(decrypter, data(keyId), size(keyId), browser_.Bool());
            break;
        }
        case 9: drm.releaseDecrypter(nullptr); break;
        case 10: drm.stopDecrypters(); break;
        default: {
            const auto initData = block();
            drm.onInitData(data(initData), size(initData));
            break;
        }
    }
}

// The browser answers a need-data request it kept, or hands back some other event it was given.
void Session::WriteData(UVAMediaBackend& media, BrowserClient* client) {
    const std::uint8_t which = browser_.Byte();
    UVAEvent* event = client != nullptr ? client->TakeEvent(which) : nullptr;
    if (event == nullptr) {
        event = new DurationChangedEvent();
    }
    if (auto* mse = dynamic_cast<NeedMSEDataEvent*>(event)) {
        const std::uint32_t filled = std::min<std::uint32_t>(mse->count, browser_.Byte() % 4);
        for (std::uint32_t index = 0; index < filled; ++index) {
            if (browser_.Byte() % 4 == 3) {
                continue;  // a gap before the terminator
            }
            auto* sample = new UVABackend::MediaSample;
            mse->samples[index] = sample;
            for (UVABackend::MediaSample::Buffer* buffer : {&sample->data, &sample->keyId, &sample->iv, &sample->codecConfig}) {
                const std::vector<std::uint8_t> bytes = browser_.Block(64);
                if (!bytes.empty()) {
                    buffer->assign(bytes.data(), static_cast<unsigned>(bytes.size()));
                }
            }
            sample->timestampMs = browser_.I32();
            sample->durationMs = browser_.I32();
            sample->width = browser_.I32();
            for (std::uint8_t count = browser_.Byte() % 4; count > 0; --count) {
                const std::uint32_t clear = browser_.U32();
                sample->addSubSample(clear, browser_.U32());
            }
        }
    } else if (auto* need = dynamic_cast<NeedDataEvent*>(event)) {
        need->size = browser_.I32();
    }
    const unsigned size = browser_.U32();
    media.writeData(event, size, browser_.EnumUpTo<UVABackend::WriteDataStatus>(3));
}

}  // namespace
}  // namespace VelmoraFuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool quiet = [] {
        // Every line is built and then dropped: the fuzzer exercises the log code, not the terminal.
        Tlog::SetSink([](const Tlog::Record& record) { (void)record.text.size(); });
        return true;
    }();
    (void)quiet;
    const UvaLiveObjects before = uvaLiveObjects();
    VelmoraFuzz::Session(data, size).Play();
    const UvaLiveObjects after = uvaLiveObjects();
    if (!(after == before)) {
        std::fprintf(stderr,
                     "browser objects left alive: events %ld, DRM events %ld, components %ld, back-ends %ld, "
                     "DRM back-ends %ld, samples %ld, sources %ld\n",
                     after.events - before.events, after.drmEvents - before.drmEvents,
                     after.components - before.components, after.backends - before.backends,
                     after.drmBackends - before.drmBackends, after.samples - before.samples,
                     after.sources - before.sources);
        std::abort();
    }
    return 0;
}
