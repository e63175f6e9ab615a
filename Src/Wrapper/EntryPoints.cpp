// The browser's only door into the library: five functions exported with plain names. Four of them
// call through the callback table, so they exist from load time on, before any registry does.

#include "EntryPoints.h"

#include <iterator>
#include <new>

#include "Uva/UVABackendLibrary.h"
#include "Velmora/Export.h"

namespace Velmora {

Callbacks uvaCallbacks;

// All five are copied before any is swapped in: a copy that fails for lack of memory leaves the
// table as it was, never half bound to a registry that is about to go. The old callables die with `copy`.
void SetCallbacks(const Callbacks& callbacks) {
    Callbacks copy(callbacks);
    uvaCallbacks.requestBackend.swap(copy.requestBackend);
    uvaCallbacks.releaseBackend.swap(copy.releaseBackend);
    uvaCallbacks.requestDrmBackend.swap(copy.requestDrmBackend);
    uvaCallbacks.releaseDrmBackend.swap(copy.releaseDrmBackend);
    uvaCallbacks.getSupportedBackendIDs.swap(copy.getSupportedBackendIDs);
}

UVA_STATUS ListSupportedKeySystems(const char**& ids) {
    constexpr auto count = std::size(kSupportedKeySystems);
    ids = new (std::nothrow) const char*[count + 1];
    if (ids == nullptr) {
        return UVA_STATUS_ERROR;
    }
    for (std::size_t index = 0; index < count; ++index) {
        ids[index] = kSupportedKeySystems[index];
    }
    ids[count] = nullptr;
    return UVA_STATUS_OK;
}

}  // namespace Velmora

using Velmora::uvaCallbacks;

extern "C" {

VELMORA_EXPORT UVABackend* UVA_RequestBackend(UVABackend::UVABackendType type, UVAClient* client) {
    return uvaCallbacks.requestBackend.empty() ? nullptr : uvaCallbacks.requestBackend(type, client);
}

VELMORA_EXPORT UVA_STATUS UVA_ReleaseBackend(UVABackend* backend) {
    return uvaCallbacks.releaseBackend.empty() ? UVA_STATUS_ERROR : uvaCallbacks.releaseBackend(backend);
}

VELMORA_EXPORT UVADRMBackend* UVADRM_RequestBackend(const char* keySystemId, UVADRMClient* client) {
    return uvaCallbacks.requestDrmBackend.empty() ? nullptr : uvaCallbacks.requestDrmBackend(keySystemId, client);
}

VELMORA_EXPORT UVA_STATUS UVADRM_ReleaseBackend(UVADRMBackend* backend) {
    return uvaCallbacks.releaseDrmBackend.empty() ? UVA_STATUS_ERROR : uvaCallbacks.releaseDrmBackend(backend);
}

// Answers by itself: the list is fixed and does not depend on the media stack.
VELMORA_EXPORT UVA_STATUS UVADRM_GetSupportedBackendIDs(const char**& ids) {
    return Velmora::ListSupportedKeySystems(ids);
}
}
