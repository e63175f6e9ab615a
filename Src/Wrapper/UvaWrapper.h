#pragma once
// The registry behind the browser's entry points: creates a wrapper for every back-end the browser
// requests, keeps it alive until the browser releases it, and remembers the media and broadcast back-ends
// requested last. Requests and releases come from the browser one at a time; the registry takes no lock.

#include <boost/shared_ptr.hpp>
#include <boost/signals2/connection.hpp>
#include <boost/weak_ptr.hpp>
#include <cstdint>
#include <list>
#include <memory>

#include "SlotGate.h"
#include "Uva/UVABackend.h"
#include "Uva/UVAClient.h"
#include "Uva/UVADRMBackend.h"
#include "Velmora/IBackend.h"
#include "Velmora/IUva.h"

namespace Velmora {
namespace Wrapper {

// True when the list element holds exactly `pointer`.
template <typename SharedPointer, typename RawPointer>
bool SearchPredicate(SharedPointer element, RawPointer pointer) {
    return element.get() == pointer;
}

// The browser's wrappers of one kind, each held until the browser releases it.
template <typename Browser>
using HeldList = std::list<boost::shared_ptr<Browser>>;

class UvaWrapper {
public:
    // Takes `impl` over and installs the browser's callback table.
    explicit UvaWrapper(IUva* impl);
    ~UvaWrapper();
    UvaWrapper(const UvaWrapper&) = delete;
    UvaWrapper& operator=(const UvaWrapper&) = delete;

    UVABackend* RequestBackend(UVABackend::UVABackendType type, UVAClient* client);
    UVA_STATUS ReleaseBackend(UVABackend* backend);

    UVADRMBackend* RequestDrmBackend(const char* keySystemId, UVADRMClient* client);
    UVA_STATUS ReleaseDrmBackend(UVADRMBackend* backend);
    UVA_STATUS GetSupportedBackendIDs(const char**& ids);

    // The handle-lookup slot, called by the media stack while a broadcast back-end lives.
    void GetBackendByVideoBroadcastHandle(void* handle, boost::shared_ptr<IBackend>& backend);

    boost::shared_ptr<IBackend> GetActiveMediaBackendImpl();
    boost::shared_ptr<IBackend> GetActiveVideoBroadcastImpl();
    IUva* GetUvaImpl();

private:
    UVABackend* AddMediaBackend(UVABackend::UVABackendType type, UVAClient* client);
    UVABackend* AddBroadcastBackend(UVAClient* client);
    UVADRMBackend* AddDrmBackend(const char* keySystemId, UVADRMClient* client);

    // Destroyed in reverse: the gate closes, the lookup is cut, the IUva goes, and only then the wrappers
    // the browser did not release.
    HeldList<UVABackend> uvaBackends;
    HeldList<UVADRMBackend> uvaDrmBackends;
    std::uint16_t broadcastBackendCount;
    boost::weak_ptr<UVABackend> activeMediaBackend;
    boost::weak_ptr<UVABackend> activeBroadcastBackend;
    std::unique_ptr<IUva> _impl;
    boost::signals2::scoped_connection handleLookupConnection;
    SlotGate gate;
};

}  // namespace Wrapper
}  // namespace Velmora
