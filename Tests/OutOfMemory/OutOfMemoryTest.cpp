// Whole browser sessions through the exported functions while memory runs out: the N-th allocation made
// while the library works fails (or every one from the N-th on), for every N until a session completes,
// with the log at its default and at level 2. For every N: no crash and no std::terminate; an exception
// leaves the library only towards the media stack (its signals) or from the IntegrationLayer constructor,
// which has then deleted the IUva; and once the session is over every allocation is returned and no
// browser-side or media-stack object is left alive.
//
// Usage: out_of_memory_tests [minimum failure points]

#include <boost/make_shared.hpp>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <memory>
#include <optional>
#include <type_traits>

#include "OutOfMemory/CountingAllocator.h"
#include "Support/LiveObjects.h"
#include "Support/MediaStackMocks.h"
#include "Tlog/Tlog.h"
#include "Uva/UVABackendLibrary.h"
#include "Uva/UVAMediaBackend.h"
#include "Uva/UVAVideoBroadcastBackend.h"
#include "Velmora/Callbacks.h"
#include "Velmora/IntegrationLayer.h"

namespace {

using OutOfMemory::Window;
using namespace ::testing;

// The first thing that went wrong in the current session; a literal, so recording it never allocates.
const char* fault;
unsigned long currentN;

void Fault(const char* what) {
    if (fault == nullptr) {
        fault = what;
    }
}

// A browser call: nothing may come out of it.
template <typename Call>
void Browser(const char* step, Call&& call) {
    const Window window;
    try {
        call();
    } catch (...) {
        Fault(step);
    }
}

// The media stack raising a signal: the slot may throw back at it (no memory, a malformed event).
template <typename Call>
void Stack(Call&& raise) {
    const Window window;
    try {
        raise();
    } catch (...) {
    }
}

// The media stack raising `event`, made before the library starts working on it.
template <typename Mock, typename Event>
void Raise(Mock& mock, Event* event) {
    using Base = typename std::conditional<std::is_base_of<Velmora::DrmBackendEvent, Event>::value,
                                           Velmora::DrmBackendEvent, Velmora::BackendEvent>::type;
    const boost::shared_ptr<Base> raised(event);
    Stack([&] { mock.events(raised); });
}

// The browser's client: takes every event and deletes it at once, except the Media Source request it
// answers later; notes the components it was shown; may release its back-end from inside the handler.
class Client : public UVAClient, public UVADRMClient {
public:
    void handleEvent(UVAEvent* event) override {
        if (auto* changed = dynamic_cast<ComponentChangedEvent*>(event)) {
            if (changed->action == ComponentChangedEvent::ADDED) {
                component = changed->component;
            }
        }
        if (event->getType() == UVAEvent::NEED_MSE_DATA && needData == nullptr) {
            needData = static_cast<NeedMSEDataEvent*>(event);
            return;
        }
        const bool release = event->getType() == UVAEvent::DURATION_CHANGED && releaseFromHandler != nullptr;
        delete event;
        if (release) {
            // Under memory pressure the release may fail (it logs inside its guard); it must not throw.
            UVA_ReleaseBackend(releaseFromHandler);
        }
    }

    UVADRMBackend* requestDRMBackend(const char*) override { return drmBackend; }
    void handleDRMEvent(UVADRMEvent* event) override { delete event; }

    UVABackend::AVComponent* component = nullptr;
    NeedMSEDataEvent* needData = nullptr;
    UVABackend* releaseFromHandler = nullptr;
    UVADRMBackend* drmBackend = nullptr;
};

// The media stack's objects of one session, made outside the counted windows.
struct MediaStack {
    MediaStack() {
        ON_CALL(*uva, CreateBackend(0)).WillByDefault(Return(media));
        ON_CALL(*uva, CreateBackend(1)).WillByDefault(Return(mediaSource));
        ON_CALL(*uva, CreateBackend(2)).WillByDefault(Return(broadcast));
        ON_CALL(*uva, CreateDrmBackend(_)).WillByDefault(Return(drm));
        uva->onDestroyed = [this] { ++uvaDeleted; };
        ON_CALL(*drm, GetId()).WillByDefault(ReturnRef(drmId));
        ON_CALL(*drm, GetOIPFId()).WillByDefault(ReturnRef(drmId));
        ON_CALL(*drm, GenerateKeyRequest(_, _)).WillByDefault(Return(true));
        ON_CALL(*drm, AddKey(_, _, _, _, _)).WillByDefault(Return(true));
        ON_CALL(*drm, SendDrmMessage(_, _, _)).WillByDefault(DoAll(SetArgReferee<2>(sessionId), Return(true)));
        ON_CALL(*media, GetDuration(_)).WillByDefault(DoAll(SetArgReferee<0>(12.5), Return(true)));
    }

    int uvaDeleted = 0;
    const std::string drmId = "org.w3.clearkey";
    const std::string sessionId = "session-1";
    NiceMock<VelmoraTest::MockUva>* uva = new NiceMock<VelmoraTest::MockUva>;
    boost::shared_ptr<NiceMock<VelmoraTest::MockMediaBackend>> media =
        boost::make_shared<NiceMock<VelmoraTest::MockMediaBackend>>();
    boost::shared_ptr<NiceMock<VelmoraTest::MockMediaBackend>> mediaSource =
        boost::make_shared<NiceMock<VelmoraTest::MockMediaBackend>>();
    boost::shared_ptr<NiceMock<VelmoraTest::MockVideoBroadcastBackend>> broadcast =
        boost::make_shared<NiceMock<VelmoraTest::MockVideoBroadcastBackend>>();
    boost::shared_ptr<NiceMock<VelmoraTest::MockDrmBackend>> drm =
        boost::make_shared<NiceMock<VelmoraTest::MockDrmBackend>>();
    NiceMock<VelmoraTest::MockAvComponent> audio{"eng"};
    NiceMock<VelmoraTest::MockAvComponent> subtitles{"deu"};
};

// Added, changed, selected (once active), unselected and removed; then a component never added, a null
// component and a null event.
template <typename Backend, typename Mock>
void ComponentLifecycle(Backend* backend, Mock& mock, NiceMock<VelmoraTest::MockAvComponent>& component,
                        Client& client) {
    using Velmora::ComponentChangedEvent;
    client.component = nullptr;
    Raise(mock, new ComponentChangedEvent(&component, ComponentChangedEvent::Added));
    Stack([&] { component.SetActive(true); });
    Raise(mock, new ComponentChangedEvent(&component, ComponentChangedEvent::Changed));
    if (client.component != nullptr) {
        Browser("selectComponent", [&] { backend->selectComponent(client.component); });
        Browser("unselectComponent", [&] { backend->unselectComponent(client.component); });
    }
    Raise(mock, new ComponentChangedEvent(&component, ComponentChangedEvent::Removed));
    Raise(mock, new ComponentChangedEvent(&component, ComponentChangedEvent::Removed));
    Raise(mock, new ComponentChangedEvent(nullptr, ComponentChangedEvent::Added));
    Stack([&] { mock.events(boost::shared_ptr<Velmora::BackendEvent>()); });
}

void MediaWithUrl(MediaStack& stack, Client& client) {
    UVAMediaBackend* backend = nullptr;
    Browser("UVA_RequestBackend media",
            [&] { backend = static_cast<UVAMediaBackend*>(UVA_RequestBackend(UVABackend::TYPE_MEDIA, &client)); });
    if (backend == nullptr) {
        return;
    }
    Browser("setSource", [&] { backend->setSource("http://example.com/movie.mp4"); });
    Browser("play", [&] { backend->play(); });
    Browser("getDuration", [&] {
        double duration = 0;
        backend->getDuration(duration);
    });
    Browser("getSupportedMimetypes", [&] {
        char** types = nullptr;
        if (backend->getSupportedMimetypes(types) == UVA_STATUS_OK && types != nullptr) {
            for (char** type = types; *type != nullptr; ++type) {
                std::free(*type);
            }
            delete[] types;
        }
    });
    Raise(*stack.media, new Velmora::DRMRightsErrorEvent(2, "content", "drm", "http://rights"));
    Raise(*stack.media, new Velmora::VideoResizedEvent(1920, 1080, 1.777));
    ComponentLifecycle(backend, *stack.media, stack.audio, client);
    // The media stack asks the browser for a DRM back-end for encrypted content.
    Stack([&] { stack.media->RequestDrmBackend("org.w3.clearkey"); });
    Browser("UVA_ReleaseBackend media", [&] { UVA_ReleaseBackend(backend); });
}

void MediaSourceWithSamples(MediaStack& stack, Client& client) {
    UVAMediaBackend* backend = nullptr;
    Browser("UVA_RequestBackend Media Source", [&] {
        backend = static_cast<UVAMediaBackend*>(UVA_RequestBackend(UVABackend::TYPE_MEDIA_SOURCE, &client));
    });
    if (backend == nullptr) {
        return;
    }
    Raise(*stack.mediaSource, new Velmora::NeedMseDataEvent(7, 2));
    if (NeedMSEDataEvent* answer = client.needData) {
        client.needData = nullptr;
        // The browser fills the request with its own samples before it answers.
        answer->samples[0] = new UVABackend::MediaSample;
        answer->samples[0]->data.assign("abcd", 4);
        answer->samples[0]->keyId.assign("k", 1);
        answer->samples[0]->addSubSample(1, 3);
        answer->samples[1] = new UVABackend::MediaSample;
        Browser("writeData", [&] { backend->writeData(answer, 4, UVABackend::WRITE_DATA_OK); });
    }
    // The browser releases this one from inside its own event handler.
    client.releaseFromHandler = backend;
    Raise(*stack.mediaSource, new Velmora::DurationChangedEvent(3.0));
    client.releaseFromHandler = nullptr;
    // Released already, unless memory ran out first: then once more from outside.
    Browser("UVA_ReleaseBackend Media Source", [&] { UVA_ReleaseBackend(backend); });
}

void BroadcastWithComponents(MediaStack& stack, Client& client) {
    UVAVideoBroadcastBackend* backend = nullptr;
    Browser("UVA_RequestBackend broadcast", [&] {
        backend = static_cast<UVAVideoBroadcastBackend*>(UVA_RequestBackend(UVABackend::TYPE_VIDEO_BROADCAST, &client));
    });
    if (backend == nullptr) {
        return;
    }
    int handle = 0;
    backend->setWindowId(&handle);
    Stack([&] { stack.uva->LookUp(&handle); });
    Browser("nextChannel", [&] { backend->nextChannel(); });
    Raise(*stack.broadcast, new Velmora::ChannelChangeSucceededEvent(&handle));
    Raise(*stack.broadcast, new Velmora::RecordingErrorEvent(3, "recording-1"));
    Raise(*stack.broadcast, new Velmora::SubtitlesChangedEvent("deu"));
    ComponentLifecycle(backend, *stack.broadcast, stack.subtitles, client);
    Browser("UVA_ReleaseBackend broadcast", [&] { UVA_ReleaseBackend(backend); });
}

// Leaves the DRM back-end to the browser, which gives it to the media back-end asking for one.
UVADRMBackend* DrmKeySession(MediaStack& stack, Client& client) {
    UVADRMBackend* backend = nullptr;
    Browser("UVADRM_RequestBackend", [&] { backend = UVADRM_RequestBackend("org.w3.clearkey", &client); });
    if (backend == nullptr) {
        return nullptr;
    }
    client.drmBackend = backend;
    // Terminated: the DRM back-end's trace lines write these bytes up to the first zero.
    const unsigned char initData[] = "init";
    Browser("getId", [&] { backend->getId(); });
    Browser("getOIPFId", [&] { backend->getOIPFId(); });
    Browser("generateKeyRequest", [&] { backend->generateKeyRequest(initData, 4); });
    const boost::shared_ptr<unsigned char> message(new unsigned char[3](),
                                                   boost::checked_array_deleter<unsigned char>());
    Raise(*stack.drm,
          new Velmora::UvaKeyMessageDrmEvent("org.w3.clearkey", "session-1", true, "http://licence", message, 3));
    Browser("addKey", [&] { backend->addKey(initData, 4, initData, 4, "session-1"); });
    Raise(*stack.drm, new Velmora::UvaKeyCompleteDrmEvent("org.w3.clearkey", "session-1", true));
    Stack([&] { stack.drm->events(boost::shared_ptr<Velmora::DrmBackendEvent>()); });
    Browser("sendDRMMessage", [&] {
        char* result = nullptr;
        if (backend->sendDRMMessage("application/vnd.oipf.cspg-hexbinary", "message", result) == UVA_STATUS_OK) {
            std::free(result);
        }
    });
    Browser("getDecrypter", [&] {
        UVADRMBackend::UVADRMDecrypter* decrypter = nullptr;
        backend->getDecrypter(decrypter, initData, 4, false);
    });
    Browser("onInitData", [&] { backend->onInitData(initData, 4); });
    Browser("releaseDecrypter", [&] { backend->releaseDecrypter(nullptr); });
    Browser("stopDecrypters", [&] { backend->stopDecrypters(); });
    return backend;
}

bool NothingAlive() {
    const UvaLiveObjects live = uvaLiveObjects();
    if (live.Total() != 0) {
        std::cerr << "alive: " << PrintToString(live) << '\n';
    }
    return live.Total() == 0;
}

// One session; false with `fault` set when anything went wrong.
bool Session() {
    fault = nullptr;
    {
        MediaStack stack;
        Client client;
        // The owner's own storage for the layer is not the library's to allocate.
        std::optional<Velmora::Wrapper::IntegrationLayer> owner;
        bool constructorThrew = false;
        {
            const Window window;
            try {
                owner.emplace(stack.uva);
            } catch (...) {
                constructorThrew = true;
            }
        }
        if (constructorThrew && stack.uvaDeleted != 1) {
            Fault("IntegrationLayer constructor: IUva not deleted exactly once");
        }
        if (owner) {
            UVADRMBackend* const drmBackend = DrmKeySession(stack, client);
            MediaWithUrl(stack, client);
            if (drmBackend != nullptr) {
                Browser("UVADRM_ReleaseBackend", [&] { UVADRM_ReleaseBackend(drmBackend); });
            }
            MediaSourceWithSamples(stack, client);
            BroadcastWithComponents(stack, client);
            const Window window;
            owner.reset();
        }
        delete client.needData;  // a request the session did not get to answer
        if (stack.uvaDeleted != 1) {
            Fault("IUva not deleted exactly once");
        }
        Velmora::SetCallbacks(Velmora::Callbacks{});
    }
    if (!NothingAlive()) {
        Fault("browser-side objects left alive");
    }
    if (OutOfMemory::Outstanding() != 0) {
        Fault("allocations not returned");
    }
    return fault == nullptr;
}

struct LogSetting {
    const char* name;
    int threshold;
};

[[noreturn]] void Terminated() {
    std::fprintf(stderr, "std::terminate while allocation %lu failed\n", currentN);
    std::abort();
}

}  // namespace

int main(int argc, char** argv) {
    const unsigned long floor = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 0;
    std::set_terminate(Terminated);
    Tlog::SetSink([](const Tlog::Record&) {});
    unsigned long points = 0;
    int failures = 0;
    for (const LogSetting log : {LogSetting{"default", Tlog::kDefaultThreshold}, LogSetting{"level 2", 2}}) {
        Tlog::SetDefaultThreshold(log.threshold);
        // First-use caches (locales, the log contexts' streams, the mocks' own books) are warmed here.
        OutOfMemory::Plan(0, false);
        if (!Session()) {
            std::fprintf(stderr, "log %s: the session fails without any allocation failing: %s\n", log.name, fault);
            return 1;
        }
        for (const bool persistent : {false, true}) {
            unsigned long n = 1;
            for (;; ++n) {
                currentN = n;
                OutOfMemory::Plan(n, persistent);
                const bool passed = Session();
                if (!OutOfMemory::Injected()) {
                    break;  // the session completed before reaching allocation n
                }
                if (!passed) {
                    ++failures;
                    std::fprintf(stderr, "log %s, %s failure of allocation %lu: %s\n", log.name,
                                 persistent ? "persistent" : "single", n, fault);
                }
            }
            std::printf("log %s, %s failure: %lu failure points\n", log.name, persistent ? "persistent" : "single",
                        n - 1);
            points += n - 1;
        }
    }
    std::printf("%lu failure points covered, %d failed (floor %lu)\n", points, failures, floor);
    if (points < floor) {
        std::fprintf(stderr, "fewer failure points than the floor: a session lost coverage\n");
        return 1;
    }
    return failures == 0 ? 0 : 1;
}
