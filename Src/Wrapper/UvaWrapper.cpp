#include "UvaWrapper.h"

#include <algorithm>
#include <boost/bind/bind.hpp>

#include "CallGuard.h"
#include "DrmBackendWrapper.h"
#include "EntryPoints.h"
#include "Log.h"
#include "MediaBackendWrapper.h"
#include "Utilities.h"
#include "Uva/UVAVideoBroadcastBackend.h"
#include "Velmora/Callbacks.h"
#include "Velmora/Exceptions.h"
#include "VideoBroadcastBackendWrapper.h"

namespace Velmora {
namespace Wrapper {

namespace {

const LogSite kLog(kRegistryLogFile, __LINE__);

constexpr const char* kMediaFailure = "virtual function from IMediaBackend failed: ";
// The DRM side writes a blank between the operation's name and its sentence.
constexpr const char* kDrmFailure = " virtual function from IDrmBackend failed: ";

constexpr CallPolicy RegistryCall(const char* name, const char* failureSentence, const char* unknownText) {
    return CallPolicy{&kLog, name, failureSentence, 5, unknownText};
}

template <typename List, typename Raw>
typename List::iterator Find(List& list, Raw pointer) {
    return std::find_if(list.begin(), list.end(),
                        [pointer](const typename List::value_type& element) { return SearchPredicate(element, pointer); });
}

}  // namespace

UvaWrapper::UvaWrapper(IUva* impl) : broadcastBackendCount(0), _impl(impl) {
    VELMORA_LOG(kLog, 2) << kLog.prefix << "UvaWrapper" << " _impl: " << static_cast<const void*>(impl) << kLog.suffix;
    using namespace boost::placeholders;
    Callbacks callbacks;
    callbacks.requestBackend = boost::bind(&UvaWrapper::RequestBackend, this, _1, _2);
    callbacks.releaseBackend = boost::bind(&UvaWrapper::ReleaseBackend, this, _1);
    callbacks.requestDrmBackend = boost::bind(&UvaWrapper::RequestDrmBackend, this, _1, _2);
    callbacks.releaseDrmBackend = boost::bind(&UvaWrapper::ReleaseDrmBackend, this, _1);
    callbacks.getSupportedBackendIDs = boost::bind(&UvaWrapper::GetSupportedBackendIDs, this, _1);
    SetCallbacks(callbacks);
}

// The callback table keeps its bindings on purpose: the owner stops the browser before this runs.
UvaWrapper::~UvaWrapper() { gate.Close(); }

UVABackend* UvaWrapper::RequestBackend(UVABackend::UVABackendType type, UVAClient* client) {
    VELMORA_LOG_QUIET(kLog, 2) << kLog.prefix << "RequestBackend" << " type: " << static_cast<int>(type)
                               << kLog.suffix;
    static constexpr CallPolicy kPolicy =
        RegistryCall("RequestBackend", kMediaFailure, "Unknown exception caught in UVAWrapper::RequestBackend");
    UVABackend* const added =
        Guarded(kPolicy, static_cast<UVABackend*>(nullptr), [&]() -> UVABackend* {
                    switch (type) {
                        case UVABackend::TYPE_MEDIA:
                        case UVABackend::TYPE_MEDIA_SOURCE:
                            return AddMediaBackend(type, client);
                        case UVABackend::TYPE_VIDEO_BROADCAST:
                            return AddBroadcastBackend(client);
                        default:
                            throw GenericErrorException("Uva Backend request failed!");
                    }
                });
    VELMORA_LOG_QUIET(kLog, 2) << kLog.prefix << "RequestBackend" << " Now added: " << static_cast<const void*>(added)
                               << ". Number of backends in uvaBackends: " << uvaBackends.size() << kLog.suffix;
    return added;
}

UVABackend* UvaWrapper::AddMediaBackend(UVABackend::UVABackendType type, UVAClient* client) {
    auto* wrapper = new MediaBackendWrapper(_impl->CreateBackend(type), type, client);
    const auto held = SlotGate::Own<UVABackend>(wrapper, wrapper->Gate());
    uvaBackends.push_back(held);
    activeMediaBackend = held;
    return held.get();
}

UVABackend* UvaWrapper::AddBroadcastBackend(UVAClient* client) {
    auto* wrapper = new VideoBroadcastBackendWrapper(_impl->CreateBackend(UVABackend::TYPE_VIDEO_BROADCAST), client);
    const auto held = SlotGate::Own<UVABackend>(wrapper, wrapper->Gate());
    uvaBackends.push_back(held);
    activeBroadcastBackend = held;
    // The media stack may look up broadcast back-ends only while at least one lives.
    if (++broadcastBackendCount == 1) {
        handleLookupConnection = _impl->ConnectHandleLookup(gate.Bind(&UvaWrapper::GetBackendByVideoBroadcastHandle, this));
    }
    return held.get();
}

UVA_STATUS UvaWrapper::ReleaseBackend(UVABackend* backend) {
    static constexpr CallPolicy kPolicy = RegistryCall("ReleaseBackend", kMediaFailure, kUnknownException);
    return Guarded(kPolicy, [&] {
        VELMORA_LOG(kLog, 2) << kLog.prefix << "ReleaseBackend" << " ..entering. Currently uvaBackends.size(): "
                             << uvaBackends.size() << kLog.suffix;
        BackendList::iterator position;
        FindMediaObject(backend, position);
        if (position == uvaBackends.end()) {
            VELMORA_LOG(kLog, 5) << kLog.prefix << "ReleaseBackend"
                                 << " Uva attempts to release invalid media backend resource." << kLog.suffix;
            return UVA_STATUS_ERROR;
        }
        if (backend->getType() == UVABackend::TYPE_VIDEO_BROADCAST && --broadcastBackendCount == 0) {
            handleLookupConnection.disconnect();
        }
        uvaBackends.erase(position);
        // Released whatever happens to the line: the browser must not be told otherwise.
        VELMORA_LOG_QUIET(kLog, 2) << kLog.prefix << "ReleaseBackend" << "...finished. Now uvaBackends.size(): "
                                   << uvaBackends.size() << kLog.suffix;
        return UVA_STATUS_OK;
    }, backend);
}

void UvaWrapper::FindMediaObject(UVABackend* backend, BackendList::iterator& position) {
    position = Find(uvaBackends, backend);
}

UVADRMBackend* UvaWrapper::RequestDrmBackend(const char* keySystemId, UVADRMClient* client) {
    VELMORA_LOG_QUIET(kLog, 2) << kLog.prefix << "RequestDrmBackend" << " id: "
                               << (keySystemId != nullptr ? keySystemId : " empty id!; ") << " client: "
                               << static_cast<const void*>(client) << kLog.suffix;
    static constexpr CallPolicy kPolicy =
        RegistryCall("RequestDrmBackend", kDrmFailure, "Unknown exception caught in UVAWrapper::RequestDrmBackend");
    UVADRMBackend* const added =
        Guarded(kPolicy, static_cast<UVADRMBackend*>(nullptr), [&] { return AddDrmBackend(keySystemId, client); });
    VELMORA_LOG_QUIET(kLog, 2) << kLog.prefix << "RequestDrmBackend" << " ------ Now added: "
                               << static_cast<const void*>(added)
                               << ". Number of backends in uvaDrmBackends: " << uvaDrmBackends.size() << kLog.suffix;
    return added;
}

UVADRMBackend* UvaWrapper::AddDrmBackend(const char* keySystemId, UVADRMClient* client) {
    // Whether the key system is supported is the media stack's decision.
    auto* wrapper = new DrmBackendWrapper(_impl->CreateDrmBackend(Utilities::TextOrEmpty(keySystemId)), client);
    const auto held = SlotGate::Own<UVADRMBackend>(wrapper, wrapper->Gate());
    uvaDrmBackends.push_back(held);
    return held.get();
}

UVA_STATUS UvaWrapper::ReleaseDrmBackend(UVADRMBackend* backend) {
    static constexpr CallPolicy kPolicy = RegistryCall("ReleaseDrmBackend", kDrmFailure, kUnknownException);
    return Guarded(kPolicy, [&] {
        VELMORA_LOG(kLog, 2) << kLog.prefix << "ReleaseDrmBackend" << " ..entering. Currently uvaDrmBackends.size(): "
                             << uvaDrmBackends.size() << kLog.suffix;
        DrmBackendList::iterator position;
        FindDrmObject(backend, position);
        if (position == uvaDrmBackends.end()) {
            VELMORA_LOG(kLog, 5) << kLog.prefix << "ReleaseDrmBackend"
                                 << " Uva attempts to release invalid drm backend resource." << kLog.suffix;
            return UVA_STATUS_ERROR;
        }
        uvaDrmBackends.erase(position);
        VELMORA_LOG_QUIET(kLog, 2) << kLog.prefix << "ReleaseDrmBackend" << "...finished. Now uvaDrmBackends.size(): "
                                   << uvaDrmBackends.size() << kLog.suffix;
        return UVA_STATUS_OK;
    }, backend);
}

void UvaWrapper::FindDrmObject(UVADRMBackend* backend, DrmBackendList::iterator& position) {
    position = Find(uvaDrmBackends, backend);
}

// The same static list the exported function answers with.
UVA_STATUS UvaWrapper::GetSupportedBackendIDs(const char**& ids) { return ListSupportedKeySystems(ids); }

void UvaWrapper::GetBackendByVideoBroadcastHandle(void* handle, boost::shared_ptr<IBackend>& backend) {
    auto* wrapper =
        dynamic_cast<VideoBroadcastBackendWrapper*>(UVAVideoBroadcastBackend::getBackendByVideoBroadcastHandle(handle));
    backend = wrapper != nullptr ? wrapper->GetVideoBroadcastBackendImpl() : boost::shared_ptr<IBackend>();
    if (!backend) {
        VELMORA_LOG(kLog, 5) << "GetBackendByVideoBroadcastHandle" << ": dynamic cast failed! ";
    }
}

boost::shared_ptr<IBackend> UvaWrapper::GetActiveMediaBackendImpl() {
    const boost::shared_ptr<UVABackend> active = activeMediaBackend.lock();
    auto* wrapper = dynamic_cast<MediaBackendWrapper*>(active.get());
    return wrapper != nullptr ? wrapper->GetMediaBackendImpl() : boost::shared_ptr<IBackend>();
}

boost::shared_ptr<IBackend> UvaWrapper::GetActiveVideoBroadcastImpl() {
    const boost::shared_ptr<UVABackend> active = activeBroadcastBackend.lock();
    auto* wrapper = dynamic_cast<VideoBroadcastBackendWrapper*>(active.get());
    return wrapper != nullptr ? wrapper->GetVideoBroadcastBackendImpl() : boost::shared_ptr<IBackend>();
}

IUva* UvaWrapper::GetUvaImpl() { return _impl.get(); }

}  // namespace Wrapper
}  // namespace Velmora
