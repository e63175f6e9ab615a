#include <map>
#include <mutex>

#include "LiveObjects.h"
#include "Uva/UVADRMBackend.h"
#include "Uva/UVAMediaBackend.h"
#include "Uva/UVAVideoBroadcastBackend.h"

using UvaPlatform::Live;

UVAMediaBackend::UVAMediaBackend(UVABackendType type) : UVABackend(type) {}

UVAMediaBackend::~UVAMediaBackend() = default;

namespace {

// The browser's video broadcast handles and the back-ends registered under them.
struct HandleRegistry {
    std::mutex mutex;
    std::map<void*, UVAVideoBroadcastBackend*> backends;

    void Forget(UVAVideoBroadcastBackend* backend) {
        for (auto entry = backends.begin(); entry != backends.end();) {
            entry = entry->second == backend ? backends.erase(entry) : std::next(entry);
        }
    }
};

HandleRegistry& Handles() {
    static HandleRegistry registry;
    return registry;
}

}  // namespace

UVAVideoBroadcastBackend::UVAVideoBroadcastBackend() : UVABackend(TYPE_VIDEO_BROADCAST) {}

UVAVideoBroadcastBackend::~UVAVideoBroadcastBackend() {
    std::lock_guard<std::mutex> lock(Handles().mutex);
    Handles().Forget(this);
}

UVAVideoBroadcastBackend* UVAVideoBroadcastBackend::getBackendByVideoBroadcastHandle(void* handle) {
    std::lock_guard<std::mutex> lock(Handles().mutex);
    const auto found = Handles().backends.find(handle);
    return found == Handles().backends.end() ? nullptr : found->second;
}

void UVAVideoBroadcastBackend::setWindowId(void* videoBroadcastHandle) {
    std::lock_guard<std::mutex> lock(Handles().mutex);
    Handles().Forget(this);
    Handles().backends[videoBroadcastHandle] = this;
}

UVADRMBackend::UVADRMDecrypter::~UVADRMDecrypter() = default;

UVADRMBackend::UVADRMBackend() { ++Live().drmBackends; }

UVADRMBackend::~UVADRMBackend() { --Live().drmBackends; }
