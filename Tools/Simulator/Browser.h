#pragma once
// The browser's half of a session: the library's five entry points found with dlsym, the clients that
// receive its events, and the answers a browser gives (samples for data requests, licences for key
// messages). Events are queued by the clients on whatever thread raises them and handled on the
// browser's thread by Pump(), as a browser's event loop would.

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <string>

#include "StackOptions.h"
#include "Timeline.h"
#include "Uva/UVABackendLibrary.h"
#include "Uva/UVAMediaBackend.h"
#include "Uva/UVAVideoBroadcastBackend.h"

namespace Velmora {
class IUva;
namespace Reference {
class ReferenceUva;
}
namespace Wrapper {
class IntegrationLayer;
}
}  // namespace Velmora

namespace Simulator {

struct EntryPoints {
    UVA_RequestBackendFunction requestBackend = nullptr;
    UVA_ReleaseBackendFunction releaseBackend = nullptr;
    UVADRM_RequestBackendFunction requestDrmBackend = nullptr;
    UVADRM_ReleaseBackendFunction releaseDrmBackend = nullptr;
    UVADRM_GetSupportedBackendIDsFunction supportedIds = nullptr;
};

// Loads `path` and resolves the entry points by name; on failure writes why to `error`.
bool LoadLibrary(const std::string& path, EntryPoints& entryPoints, std::string& error);

// What the library logged during a session, for scenarios that look for a line.
class LogBook {
public:
    void Add(int level, const std::string& text);
    // The first line of `level` containing `text` logged since the last Clear(); empty if none.
    std::string Find(int level, const std::string& text) const;
    void Clear();

private:
    mutable std::mutex mutex;
    std::deque<std::pair<int, std::string>> lines;
};

class Session;

class MediaClient : public UVAClient {
public:
    explicit MediaClient(Session& session) : session(session) {}
    void handleEvent(UVAEvent* event) override;
    UVADRMBackend* requestDRMBackend(const char* keySystemId) override;
    std::atomic<bool> released{false};  // set on the browser thread, read on the raising one

private:
    Session& session;
};

class DrmClient : public UVADRMClient {
public:
    explicit DrmClient(Session& session) : session(session) {}
    void handleDRMEvent(UVADRMEvent* event) override;
    std::atomic<bool> released{false};  // set on the browser thread, read on the raising one

private:
    Session& session;
};

class Session {
public:
    Session(Timeline& timeline, const EntryPoints& library, LogBook& log, std::uint32_t variant,
            const Velmora::Reference::StackOptions& options);
    // Against another media stack (taken over), whose threads move time by themselves.
    Session(Timeline& timeline, const EntryPoints& library, LogBook& log, Velmora::IUva* mediaStack);
    ~Session();

    Timeline& timeline;
    const EntryPoints& library;
    LogBook& log;
    Velmora::Reference::ReferenceUva& Stack() { return *stack; }

    // Back-ends, requested and released through the entry points.
    UVAMediaBackend* RequestMedia(UVABackend::UVABackendType type);
    UVAVideoBroadcastBackend* RequestBroadcast();
    UVADRMBackend* RequestDrm(const char* keySystem);
    // Stops what plays and waits until the media stack has removed every component.
    void Close();
    void ReleaseAll();

    // Handles events (stepping the stack first with the manual clock) until `done` holds; false after
    // `seconds` without it.
    bool Pump(const std::function<bool()>& done, const std::string& what, int seconds = 120);
    // Steps the manual clock `steps` times, handling what they raise.
    void Steps(int steps);

    // What the browser has seen, by event type (and component action for ComponentChanged).
    std::uint32_t Seen(UVAEvent::Type type) const;
    std::uint32_t componentsChanged = 0;
    int componentsHeld = 0;  // added and not removed yet
    std::uint32_t drmSeen[5] = {};
    // Browser-side audio component by language, from ComponentChanged.
    std::map<std::string, UVABackend::AVComponent*> audioTracks;
    // Changed events per audio language; the latest duration and video size announced.
    std::map<std::string, std::uint32_t> audioChanges;
    double duration = -1.0;
    std::uint32_t videoWidth = 0;
    std::uint32_t videoHeight = 0;
    // When set, answers NeedMSEData instead of the made-up samples (and takes the event over).
    std::function<void(NeedMSEDataEvent*)> feedMediaSource;

    // Called by the clients on the raising thread.
    void Deliver(UVAEvent* event, bool afterRelease);
    void Deliver(UVADRMEvent* event, bool afterRelease);
    UVADRMBackend* AnswerDrmRequest(const char* keySystem);

private:
    struct Queued {
        UVAEvent* media = nullptr;
        UVADRMEvent* drm = nullptr;
    };
    struct Stream {
        std::int32_t nextMs = 0;
        bool encrypted = false;
    };
    void Handle(UVAEvent* event);
    void Handle(UVADRMEvent* event);
    void Answer(NeedMSEDataEvent* request);
    void DrainQueue();

    const Velmora::Reference::StackOptions options;
    Velmora::Reference::ReferenceUva* stack;
    std::unique_ptr<Velmora::Wrapper::IntegrationLayer> layer;
    std::mt19937 random;

    std::mutex mutex;
    std::condition_variable arrived;
    std::deque<Queued> queue;

    std::map<int, std::uint32_t> seen;
    std::map<std::int32_t, Stream> streams;

public:
    MediaClient client{*this};
    DrmClient drmClient{*this};
    UVAMediaBackend* media = nullptr;
    UVAVideoBroadcastBackend* broadcast = nullptr;
    UVADRMBackend* drm = nullptr;
    // Media Source streams the browser feeds: id -> encrypted.
    void AddStream(std::int32_t sourceId, bool encrypted);
};

std::string Describe(const UVAEvent& event);

}  // namespace Simulator
