// One fuzzer input is one browser session against the library: the browser's calls through the exported
// functions and the back-ends' operations, interleaved with the media stack's events, ending with every
// back-end released and the library stopped. An input is read as
//   [log level byte] [browser script length, 2 bytes] [browser script] [media stack's answers]
// so that the media stack's behaviour can change without shifting the browser's calls.
// Anything the library gets wrong (a crash, a sanitizer report, a leaked browser object) aborts.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <set>
#include <tuple>
#include <type_traits>
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

// Reads browser texts the way the browser would, so that a text the library left unterminated or freed
// is caught here.
volatile std::size_t readCharacters = 0;
void Read(std::initializer_list<const char*> texts) {
    for (const char* text : texts) {
        readCharacters = readCharacters + (text == nullptr ? 0 : std::strlen(text));
    }
}

// An out-argument nobody reads: a temporary that lives until the end of the call's full expression.
template <typename T>
T& Out(T&& value = T()) {
    return value;
}

// Hands each entry of a null-terminated list the library gave the browser to `each`, then the list.
template <typename T, typename Each>
void Consume(T** list, Each each) {
    for (T** entry = list; entry != nullptr && *entry != nullptr; ++entry) {
        each(*entry);
    }
    delete[] list;
}

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
    UVA_STATUS generateKeyRequest(const unsigned char*, unsigned) override { return UVA_STATUS_ERROR; }
    UVA_STATUS addKey(const unsigned char*, unsigned, const unsigned char*, unsigned, const char*) override {
        return UVA_STATUS_ERROR;
    }
    UVA_STATUS cancelKeyRequest(const char*) override { return UVA_STATUS_ERROR; }
    UVA_STATUS getKeyReleases() override { return UVA_STATUS_ERROR; }
    UVA_STATUS addKeyReleaseCommit(const unsigned char*, unsigned, const char*) override { return UVA_STATUS_ERROR; }
    UVA_STATUS sendDRMMessage(const char*, const char*, char*&) override { return UVA_STATUS_ERROR; }
    UVA_STATUS getDecrypter(UVADRMDecrypter*&, const unsigned char*, unsigned, bool) override {
        return UVA_STATUS_ERROR;
    }
    UVA_STATUS releaseDecrypter(UVADRMDecrypter*) override { return UVA_STATUS_ERROR; }
    void stopDecrypters() override {}
    UVA_STATUS onInitData(const unsigned char*, unsigned) override { return UVA_STATUS_ERROR; }
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
    Session& session_;
    std::deque<std::unique_ptr<UVAEvent>> kept_;
    std::set<UVABackend::AVComponent*> announced_;  // added and not yet removed
};

class Session {
public:
    Session(const std::uint8_t* data, std::size_t size) : browser_(data, 0), stackInput_(data, 0) {
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
            using Operation = void (Session::*)();
            static constexpr Operation kOperations[] = {
                &Session::RequestBackend, &Session::ReleaseBackend, &Session::ReleaseForeign, &Session::RequestDrm,
                &Session::ReleaseDrm,     &Session::SupportedIds,   &Session::MediaCall,      &Session::BroadcastCall,
                &Session::DrmCall,        &Session::WriteData,      &Session::RaiseEvent,     &Session::RaiseDrmEvent,
                &Session::ComponentState, &Session::DrmRequest,     &Session::HandleLookup,   &Session::DropComponent,
                &Session::ClientChoice,   &Session::Restart,
            };
            (this->*kOperations[browser_.Byte() % std::size(kOperations)])();
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

    // What a client answers the library's DRM back-end request with: none, one of ours, a foreign one.
    UVADRMBackend* DrmAnswer() {
        if (drmAnswer_ % 3 != 1) {
            return drmAnswer_ % 3 == 2 ? &foreignDrm_ : nullptr;
        }
        for (UVADRMBackend* drm : drmBackends_) {
            if (drm != nullptr) {
                return drm;  // the first still held
            }
        }
        return nullptr;
    }

private:
    struct Held {
        UVABackend* pointer;
        BrowserClient* client;
    };

    void Start() {
        uva_ = new FuzzUva(script_, stack_);
        try {
            layer_.reset(new Velmora::Wrapper::IntegrationLayer(uva_));
        } catch (...) {
            uva_ = nullptr;  // the layer deleted the root object when it failed
        }
    }

    // Releases what the browser holds and stops the library, as the owner does before unloading it.
    void Stop() {
        for (Held& held : backends_) {
            if (held.pointer != nullptr && layer_) {
                Release(held);
            }
        }
        for (UVADRMBackend* drm : drmBackends_) {
            if (drm != nullptr && layer_) {
                UVADRM_ReleaseBackend(drm);
            }
        }
        backends_.clear();
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
        UVA_ReleaseBackend(held.pointer);
        held.pointer = nullptr;
        if (held.client != nullptr) {
            held.client->AbandonComponents();
        }
    }

    // Null when the browser asks without a client.
    BrowserClient* NewClient() {
        if (browser_.Byte() % 8 == 7) {
            return nullptr;
        }
        return clients_.emplace_back(new BrowserClient(*this)).get();
    }

    template <typename Backend>
    Backend* Pick(bool broadcast, BrowserClient** client = nullptr) {
        std::vector<Held*> candidates;
        for (Held& held : backends_) {
            if (held.pointer != nullptr && (held.pointer->getType() == UVABackend::TYPE_VIDEO_BROADCAST) == broadcast) {
                candidates.push_back(&held);
            }
        }
        Held** chosen = Choose(candidates, browser_.Byte());
        if (chosen != nullptr && client != nullptr) {
            *client = (*chosen)->client;
        }
        return chosen == nullptr ? nullptr : static_cast<Backend*>((*chosen)->pointer);
    }

    // Any entry of `list`, picked by `which`; null when the list is empty.
    template <typename T>
    static T* Choose(std::vector<T>& list, std::uint8_t which) {
        return list.empty() ? nullptr : &list[which % list.size()];
    }

    void RequestBackend() {
        const auto type = Argument<UVABackend::UVABackendType>::Of(browser_);
        BrowserClient* client = NewClient();
        if (UVABackend* backend = UVA_RequestBackend(type, client)) {
            if (client != nullptr) {
                client->backend = backend;
            }
            backends_.push_back({backend, client});
        }
    }

    void ReleaseBackend() {
        const std::uint8_t which = browser_.Byte();
        Held* held = Choose(backends_, which);
        if (held != nullptr && held->pointer != nullptr) {
            UVABackend* const released = held->pointer;
            Release(*held);
            if (which & 0x80) {
                UVA_ReleaseBackend(released);  // a second release of the same pointer
            }
        }
    }

    void ReleaseForeign() {
        if (browser_.Bool()) {
            UVA_ReleaseBackend(nullptr);
            UVADRM_ReleaseBackend(nullptr);
        } else {
            UVADRM_ReleaseBackend(&foreignDrm_);
        }
    }

    void RequestDrm() {
        const Text keySystem = browser_.TextOrNull();
        if (UVADRMBackend* drm = UVADRM_RequestBackend(keySystem.Pointer(), NewClient())) {
            drmBackends_.push_back(drm);
        }
    }

    void ReleaseDrm() {
        UVADRMBackend** drm = Choose(drmBackends_, browser_.Byte());
        if (drm != nullptr && *drm != nullptr) {
            UVADRM_ReleaseBackend(*drm);
            *drm = nullptr;
        }
    }

    void SupportedIds() {
        const char** ids = nullptr;
        if (UVADRM_GetSupportedBackendIDs(ids) == UVA_STATUS_OK) {
            Consume(ids, [](const char* id) { Read({id}); });
        }
    }

    // The media stack sees whatever its raising throws; the browser must not have been stopped by it.
    template <typename Raising>
    static void Raise(Raising raising) {
        try {
            raising();
        } catch (...) {
        }
    }

    void RaiseEvent() {
        const std::uint8_t which = browser_.Byte();
        // Components appear as the media stack announces them; a few are enough to meet each other.
        if (browser_.Byte() % 4 == 0 && stack_.components.size() < 4) {
            stack_.components.emplace_back(new FuzzComponent(script_, static_cast<int>(stack_.components.size())));
        }
        Components components;
        for (const auto& component : stack_.components) {
            components.push_back(component.get());
        }
        components.push_back(nullptr);
        if (auto* backend = Choose(stack_.backends, which)) {
            const auto event = MakeBackendEvent(browser_, components);
            Raise([&] { backend->second->events(event); });
        }
    }

    void RaiseDrmEvent() {
        if (auto* drm = Choose(stack_.drmBackends, browser_.Byte())) {
            const auto event = MakeDrmEvent(browser_);
            Raise([&] { (*drm)->events(event); });
        }
    }

    void ComponentState() {
        const std::uint8_t which = browser_.Byte();
        const bool active = browser_.Bool();
        if (auto* component = Choose(stack_.components, which)) {
            Raise([&] { (*component)->state(active); });
        }
    }

    void DrmRequest() {
        const std::uint8_t which = browser_.Byte();
        const std::string keySystem = browser_.String();
        std::vector<FuzzMediaBackend*> media;
        for (const auto& backend : stack_.backends) {
            if (auto* ours = dynamic_cast<FuzzMediaBackend*>(backend.first.get())) {
                media.push_back(ours);
            }
        }
        if (FuzzMediaBackend** asked = Choose(media, which)) {
            Raise([&] {
                Velmora::IDrmBackend* answer = nullptr;
                (*asked)->drmRequests(keySystem, answer);
                if (auto* drm = dynamic_cast<FuzzDrmBackend*>(answer)) {
                    drm->events.num_slots();  // still alive
                }
            });
        }
    }

    void HandleLookup() {
        void* handle = Argument<void*>(browser_).Get();
        if (uva_ != nullptr) {
            Raise([&] { uva_->handleLookups(handle, Out<boost::shared_ptr<Velmora::IBackend>>()); });
        }
    }

    void DropComponent() {
        const std::uint8_t which = browser_.Byte();
        if (!components_.empty()) {
            const auto position = components_.begin() + which % components_.size();
            (*position)->stopPreventingDestruction();
            components_.erase(position);
        }
    }

    void ClientChoice() {
        drmAnswer_ = browser_.Byte();
        if (auto* client = Choose(clients_, browser_.Byte())) {
            (*client)->releaseInHandler = browser_.Bool();
        }
    }

    void Restart() {
        Stop();
        Start();
    }

    // Selects or unselects a component the library announced, none, or one the browser made itself
    // (0xFE, or when none was announced), which the library never handed out.
    template <typename Backend>
    void Select(bool select, Backend& backend) {
        const std::uint8_t which = browser_.Byte();
        const bool foreign = which == 0xFE || (which != 0xFF && components_.empty());
        UVABackend::AVComponent* const component =
            foreign         ? new UVABackend::AVComponent(UVABackend::AVComponentDescription{})
            : which == 0xFF ? nullptr
                            : components_[which % components_.size()];
        (void)(select ? backend.selectComponent(component) : backend.unselectComponent(component));
        if (foreign) {
            component->backendMarkUnused();
        }
    }

    UVABackend::SourceDescription* Source();
    void MediaCall();
    void BroadcastCall();
    void DrmCall();
    void WriteData();

    FuzzInput browser_;
    FuzzInput stackInput_;
    StackScript script_{stackInput_};
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
            Read({error.contentId, error.drmSystemId, error.rightsIssuerUrl});
            break;
        }
        case UVAEvent::PARENTAL_RATING_ERROR:
        case UVAEvent::PARENTAL_RATING_CHANGE: {
            auto& rating = As<ParentalRatingEvent>(*event);
            Read({rating.contentId, rating.drmSystemId});
            break;
        }
        case UVAEvent::RECORDING_ERROR: Read({As<RecordingErrorEvent>(*event).recordingId}); break;
        case UVAEvent::RECORDING_STATE_CHANGE: Read({As<RecordingStateChangeEvent>(*event).recordingId}); break;
        case UVAEvent::SUBTITLES_CHANGED: Read({As<SubtitlesChangedEvent>(*event).language}); break;
        case UVAEvent::COMPONENT_CHANGED: {
            const auto& change = As<ComponentChangedEvent>(*event);
            UVABackend::AVComponent* component = change.component;
            if (change.action == ComponentChangedEvent::ADDED) {
                announced_.insert(component);
            } else if (change.action == ComponentChangedEvent::REMOVED) {
                announced_.erase(component);
            }
            Read({component->language, component->encoding, component->label, component->role, component->id});
            session_.Keep(component);
            break;
        }
        default: break;
    }
    kept_.push_back(std::move(owned));
    if (kept_.size() > 4) {
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
    Read({keySystemId});
    return session_.DrmAnswer();
}

void BrowserClient::handleDRMEvent(UVADRMEvent* event) {
    Read({event->keySystem, event->sessionId});
    if (auto* message = dynamic_cast<UVAKeyMessageDRMEvent*>(event)) {
        Read({message->defaultUrl});
    } else if (auto* result = dynamic_cast<UVAResultMessageDRMEvent*>(event)) {
        Read({result->resultMessage});
    }
    delete event;
}

UVABackend::SourceDescription* Session::Source() {
    if (browser_.Byte() % 4 == 3) {
        return UVABackend::SourceDescription::BackendStreaming(browser_.TextOrNull().Pointer());
    }
    // Type 3 holds a URL in place of the source id and is only made by BackendStreaming; -1 and 4 are
    // types no browser should send.
    static const std::int32_t kTypes[] = {0, 1, 2, -1, 4};
    const std::int32_t type = kTypes[browser_.Byte() % 5];
    const std::int32_t sourceId = browser_.I32();
    const bool encrypted = browser_.Bool();
    const std::int32_t track = browser_.I32();
    return UVABackend::SourceDescription::Streaming(type, sourceId, encrypted, track, browser_.TextOrNull().Pointer());
}

}  // namespace

// Out-arguments are scratch that nobody reads.
template <typename T>
struct Argument<T&> {
    explicit Argument(FuzzInput&) {}
    T& Get() { return value; }
    T value{};
};

// A text the library hands over: read as the browser reads it, then freed.
template <>
struct Argument<char*&> {
    explicit Argument(FuzzInput&) {}
    ~Argument() {
        Read({value});
        std::free(value);
    }
    char*& Get() { return value; }
    char* value = nullptr;
};

// A null-terminated list the library hands over, deleted entry by entry.
template <typename T>
struct Argument<T**&> {
    explicit Argument(FuzzInput&) {}
    ~Argument() {
        Consume(value, [](T* entry) { delete entry; });
    }
    T**& Get() { return value; }
    T** value = nullptr;
};

namespace {

// Calls `method` with its arguments read from the script in parameter order (braced: read in order).
template <auto method, typename Backend, typename Class, typename Result, typename... Params>
void Invoke(FuzzInput& in, Backend& backend, Result (Class::*)(Params...)) {
    std::tuple<Argument<Params>...> arguments{Argument<Params>(in)...};
    std::apply([&](auto&... argument) { (backend.*method)(argument.Get()...); }, arguments);
}

template <auto method, typename Backend>
void Simple(Session&, FuzzInput& in, Backend& backend) {
    Invoke<method>(in, backend, method);
}

template <typename Backend>
using Call = void (*)(Session&, FuzzInput&, Backend&);

// Runs one browser call on `backend`, if there is one: one of `methods`, its arguments read by parameter
// type, or (numbered on after them) one of the `custom` calls, which read their arguments themselves.
template <auto... methods, typename Backend, std::size_t CustomCount>
void Dispatch(Session& session, FuzzInput& in, Backend* backend, const Call<Backend> (&custom)[CustomCount]) {
    static const Call<Backend> kSimple[] = {&Simple<methods, Backend>...};
    constexpr std::size_t kSimpleCount = sizeof...(methods);
    if (backend != nullptr) {
        const std::size_t index = in.Byte() % (kSimpleCount + CustomCount);
        (index < kSimpleCount ? kSimple[index] : custom[index - kSimpleCount])(session, in, *backend);
    }
}

void Session::MediaCall() {
    using M = UVAMediaBackend;
    static const Call<M> kCustom[] = {
        [](auto& session, auto& in, auto& m) {
            const Text url = in.TextOrNull();
            const std::uint8_t count = in.Byte() % 5;
            UVABackend::SourceDescription** sources = nullptr;
            if (count != 4) {  // 4: a null list
                sources = new UVABackend::SourceDescription*[count + 1]();
                std::generate_n(sources, count, [&] { return session.Source(); });
            }
            if (m.initBackend(url.Pointer(), sources, in.Bool()) != UVA_STATUS_OK) {
                Consume(sources, [](UVABackend::SourceDescription* source) { delete source; });
            }
        },
        [](auto& session, auto& in, auto& m) {
            UVABackend::SourceDescription* source = in.Bool() ? nullptr : session.Source();
            if (m.attachSource(source) != UVA_STATUS_OK) {
                delete source;
            }
        },
        [](auto&, auto& in, auto& m) {
            std::vector<unsigned char> frame(in.Byte());
            m.getVideoFrame(frame.empty() ? nullptr : frame.data(), static_cast<unsigned>(frame.size()));
        },
        [](auto&, auto& in, auto& m) {
            const Text type = in.TextOrNull();
            const Text keySystem = in.TextOrNull();
            std::vector<Text> codecs(in.Byte() % 4);
            std::vector<const char*> list;
            for (Text& codec : codecs) {
                codec = in.TextOrNull();
                codec.null = false;  // a codec list ends at its first null entry
                list.push_back(codec.Pointer());
            }
            list.push_back(nullptr);
            m.canPlayType(type.Pointer(), in.Bool() ? nullptr : list.data(), keySystem.Pointer());
        },
        [](auto&, auto&, auto& m) {
            char** types = nullptr;
            if (m.getSupportedMimetypes(types) == UVA_STATUS_OK) {  // a failed call hands nothing over
                Consume(types, [](char* type) {
                    Read({type});
                    std::free(type);
                });
            }
        },
        [](auto& session, auto& in, auto& m) { session.Select(in.Bool(), m); },
    };
    Dispatch<&M::removeSource, &M::setSource, &M::queue, &M::setLoop, &M::setWindowId, &M::setVideoWindow,
             &M::setClipRect, &M::getNativeSize, &M::getBufferedTimeRanges, &M::getSeekableTimeRanges, &M::canPlayURL,
             &M::play, &M::stop, &M::pause, &M::setPlaybackRate, &M::setVolume, &M::getDuration, &M::setContentSize,
             &M::getPosition, &M::setPosition, &M::setVisibility, &M::getSizeFromDuration, &M::setFullScreen,
             &M::onListenerChanged, &M::setBufferingStrategy, &M::getBytesInBuffer, &M::setKeySystem>(
        *this, browser_, Pick<M>(false), kCustom);
}

void Session::BroadcastCall() {
    using B = UVAVideoBroadcastBackend;
    static const Call<B> kCustom[] = {
        [](auto& session, auto& in, auto& b) { session.Select(in.Bool(), b); },
        [](auto&, auto& in, auto& b) {
            // Every speed the library reports is read, up to the count the browser had room for.
            double* speeds = nullptr;
            const unsigned capacity = in.Byte() % 32;
            unsigned count = capacity;
            if (b.getPlaybackSpeeds(speeds, count) == UVA_STATUS_OK) {
                volatile double sum = 0;
                for (unsigned index = 0; index < std::min(count, capacity); ++index) {
                    sum = sum + speeds[index];
                }
            }
            delete[] speeds;
        },
    };
    Dispatch<&B::setWindowId, &B::initBackend, &B::release, &B::setVideoWindow, &B::setClipRect, &B::setFullScreen,
             &B::setVisibility, &B::setVolume, &B::nextChannel, &B::previousChannel, &B::stop, &B::getPlayState,
             &B::onListenerChanged, &B::getCurrentChannel, &B::setChannel, &B::bindToCurrentChannel,
             &B::getPlaybackOffset, &B::getMaxOffset, &B::recordNow, &B::stopRecording, &B::pause, &B::resume,
             &B::setPlaybackSpeed, &B::setPosition, &B::stopTimeShift, &B::getRecordingState, &B::getPosition,
             &B::getPlaybackSpeed>(*this, browser_, Pick<B>(true), kCustom);
}

// Byte blocks end in a zero just past their length: the library writes some of them to its log as C texts.
struct Bytes {
    explicit Bytes(FuzzInput& in) : bytes(in.Block()) { bytes.push_back(0); }
    const std::uint8_t* Data() const { return bytes.size() == 1 ? nullptr : bytes.data(); }
    unsigned Size() const { return static_cast<unsigned>(bytes.size() - 1); }
    std::vector<std::uint8_t> bytes;
};

void Session::DrmCall() {
    using D = UVADRMBackend;
    static const Call<D> kCustom[] = {
        [](auto&, auto&, auto& d) { Read({d.getId()}); },
        [](auto&, auto&, auto& d) { Read({d.getOIPFId()}); },
        [](auto&, auto& in, auto& d) {
            const Bytes initData(in);
            d.generateKeyRequest(initData.Data(), initData.Size());
        },
        [](auto&, auto& in, auto& d) {
            const Bytes key(in);
            const Bytes initData(in);
            d.addKey(key.Data(), key.Size(), initData.Data(), initData.Size(), in.TextOrNull().Pointer());
        },
        [](auto&, auto& in, auto& d) {
            const Bytes commit(in);
            d.addKeyReleaseCommit(commit.Data(), commit.Size(), in.TextOrNull().Pointer());
        },
        [](auto&, auto& in, auto& d) {
            const Bytes keyId(in);
            d.getDecrypter(Out<D::UVADRMDecrypter*>(), keyId.Data(), keyId.Size(), in.Bool());
        },
        [](auto&, auto& in, auto& d) {
            const Bytes initData(in);
            d.onInitData(initData.Data(), initData.Size());
        },
    };
    UVADRMBackend** const drm = Choose(drmBackends_, browser_.Byte());
    Dispatch<&D::cancelKeyRequest, &D::getKeyReleases, &D::sendDRMMessage, &D::releaseDecrypter, &D::stopDecrypters>(
        *this, browser_, drm == nullptr ? nullptr : *drm, kCustom);
}

// The browser answers a need-data request it kept, or hands back some other event it was given.
void Session::WriteData() {
    BrowserClient* client = nullptr;
    auto* media = Pick<UVAMediaBackend>(false, &client);
    if (media == nullptr) {
        return;
    }
    const std::uint8_t which = browser_.Byte();
    UVAEvent* event = client != nullptr ? client->TakeEvent(which) : nullptr;
    if (event == nullptr) {
        event = new DurationChangedEvent();
    }
    if (auto* mse = dynamic_cast<NeedMSEDataEvent*>(event)) {
        const std::uint32_t filled = std::min<std::uint32_t>(mse->count, browser_.Byte() % 4);
        for (std::uint32_t index = 0; index < filled; ++index) {
            if (browser_.Byte() % 4 == 3) {
                break;  // an early null: the browser's destructor stops there, so nothing may follow it
            }
            auto* sample = new UVABackend::MediaSample;
            mse->samples[index] = sample;
            for (UVABackend::MediaSample::Buffer* buffer :
                 {&sample->data, &sample->keyId, &sample->iv, &sample->codecConfig}) {
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
    media->writeData(event, size, Argument<UVABackend::WriteDataStatus>::Of(browser_));
}

}  // namespace
}  // namespace VelmoraFuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // Every line is built and then dropped: the fuzzer exercises the log code, not the terminal.
    static const bool quiet = (Tlog::SetSink([](const Tlog::Record& record) { (void)record.text.size(); }), true);
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
