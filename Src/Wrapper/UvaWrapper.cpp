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
    return std::find_if(list.begin(), list.end(), [pointer](const typename List::value_type& element) {
        return SearchPredicate(element, pointer);
    });
}

// Holds `wrapper` in `list` until the browser releases it; its last release closes its gate first.
template <typename Browser, typename Wrapper>
boost::shared_ptr<Browser> Hold(HeldList<Browser>& list, Wrapper* wrapper) {
    const auto held = SlotGate::Own<Browser>(wrapper, wrapper->Gate());
    list.push_back(held);
    return held;
}

// How one kind's release names itself in the registry's lines.
struct ReleaseTexts {
    CallPolicy policy;
    const char* listName;
    const char* unknownBackend;
};

constexpr ReleaseTexts kReleaseMedia{RegistryCall("ReleaseBackend", kMediaFailure, kUnknownException), "uvaBackends",
                                     " Uva attempts to release invalid media backend resource."};
constexpr ReleaseTexts kReleaseDrm{RegistryCall("ReleaseDrmBackend", kDrmFailure, kUnknownException), "uvaDrmBackends",
                                   " Uva attempts to release invalid drm backend resource."};

// Drops the registry's hold on `backend`; `beforeRelease` runs once it is known.
template <typename Browser, typename BeforeRelease>
UVA_STATUS Release(HeldList<Browser>& list, Browser* backend, const ReleaseTexts& texts,
                   BeforeRelease&& beforeRelease) {
    return Guarded(
        texts.policy,
        [&] {
            VELMORA_LOG(kLog, 2) << kLog.prefix << texts.policy.name << " ..entering. Currently " << texts.listName
                                 << ".size(): " << list.size() << kLog.suffix;
            const auto position = Find(list, backend);
            if (position == list.end()) {
                VELMORA_LOG(kLog, 5) << kLog.prefix << texts.policy.name << texts.unknownBackend << kLog.suffix;
                return UVA_STATUS_ERROR;
            }
            beforeRelease();
            list.erase(position);
            // Released whatever happens to the line: the browser must not be told otherwise.
            VELMORA_LOG_QUIET(kLog, 2) << kLog.prefix << texts.policy.name << "...finished. Now " << texts.listName
                                       << ".size(): " << list.size() << kLog.suffix;
            return UVA_STATUS_OK;
        },
        backend, texts.policy.name);
}

}  // namespace

UvaWrapper::UvaWrapper(IUva* impl) : broadcastBackendCount(0), _impl(impl) {
    VELMORA_LOG(kLog, 2) << kLog.prefix << "UvaWrapper"
                         << " _impl: " << static_cast<const void*>(impl) << kLog.suffix;
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
    VELMORA_LOG_QUIET(kLog, 2) << kLog.prefix << "RequestBackend"
                               << " type: " << static_cast<int>(type) << kLog.suffix;
    static constexpr CallPolicy kPolicy =
        RegistryCall("RequestBackend", kMediaFailure, "Unknown exception caught in UVAWrapper::RequestBackend");
    UVABackend* const added = Guarded(kPolicy, static_cast<UVABackend*>(nullptr), [&]() -> UVABackend* {
        switch (type) {
            case UVABackend::TYPE_MEDIA:
            case UVABackend::TYPE_MEDIA_SOURCE: return AddMediaBackend(type, client);
            case UVABackend::TYPE_VIDEO_BROADCAST: return AddBroadcastBackend(client);
            default: throw GenericErrorException("Uva Backend request failed!");
        }
    });
    VELMORA_LOG_QUIET(kLog, 2) << kLog.prefix << "RequestBackend"
                               << " Now added: " << static_cast<const void*>(added)
                               << ". Number of backends in uvaBackends: " << uvaBackends.size() << kLog.suffix;
    return added;
}

UVABackend* UvaWrapper::AddMediaBackend(UVABackend::UVABackendType type, UVAClient* client) {
    const auto held = Hold<UVABackend>(uvaBackends, new MediaBackendWrapper(_impl->CreateBackend(type), type, client));
    activeMediaBackend = held;
    return held.get();
}

UVABackend* UvaWrapper::AddBroadcastBackend(UVAClient* client) {
    const auto held = Hold<UVABackend>(
        uvaBackends, new VideoBroadcastBackendWrapper(_impl->CreateBackend(UVABackend::TYPE_VIDEO_BROADCAST), client));
    activeBroadcastBackend = held;
    // The media stack may look up broadcast back-ends only while at least one lives.
    if (++broadcastBackendCount == 1) {
        handleLookupConnection =
            _impl->ConnectHandleLookup(gate.Bind<&UvaWrapper::GetBackendByVideoBroadcastHandle>(this));
    }
    return held.get();
}

UVA_STATUS UvaWrapper::ReleaseBackend(UVABackend* backend) {
    return Release(uvaBackends, backend, kReleaseMedia, [&] {
        if (backend->getType() == UVABackend::TYPE_VIDEO_BROADCAST && --broadcastBackendCount == 0) {
            handleLookupConnection.disconnect();
        }
    });
}

UVADRMBackend* UvaWrapper::RequestDrmBackend(const char* keySystemId, UVADRMClient* client) {
    VELMORA_LOG_QUIET(kLog, 2) << kLog.prefix << "RequestDrmBackend"
                               << " id: " << (keySystemId != nullptr ? keySystemId : " empty id!; ")
                               << " client: " << static_cast<const void*>(client) << kLog.suffix;
    static constexpr CallPolicy kPolicy =
        RegistryCall("RequestDrmBackend", kDrmFailure, "Unknown exception caught in UVAWrapper::RequestDrmBackend");
    UVADRMBackend* const added =
        Guarded(kPolicy, static_cast<UVADRMBackend*>(nullptr), [&] { return AddDrmBackend(keySystemId, client); });
    VELMORA_LOG_QUIET(kLog, 2) << kLog.prefix << "RequestDrmBackend"
                               << " ------ Now added: " << static_cast<const void*>(added)
                               << ". Number of backends in uvaDrmBackends: " << uvaDrmBackends.size() << kLog.suffix;
    return added;
}

UVADRMBackend* UvaWrapper::AddDrmBackend(const char* keySystemId, UVADRMClient* client) {
    // Whether the key system is supported is the media stack's decision.
    return Hold<UVADRMBackend>(
               uvaDrmBackends,
               new DrmBackendWrapper(_impl->CreateDrmBackend(Utilities::TextOrEmpty(keySystemId)), client))
        .get();
}

UVA_STATUS UvaWrapper::ReleaseDrmBackend(UVADRMBackend* backend) {
    return Release(uvaDrmBackends, backend, kReleaseDrm, [] {});
}

// The same static list the exported function answers with.
UVA_STATUS UvaWrapper::GetSupportedBackendIDs(const char**& ids) { return ListSupportedKeySystems(ids); }

void UvaWrapper::GetBackendByVideoBroadcastHandle(void* handle, boost::shared_ptr<IBackend>& backend) {
    auto* wrapper =
        dynamic_cast<VideoBroadcastBackendWrapper*>(UVAVideoBroadcastBackend::getBackendByVideoBroadcastHandle(handle));
    backend = wrapper != nullptr ? wrapper->GetVideoBroadcastBackendImpl() : boost::shared_ptr<IBackend>();
    if (!backend) {
        VELMORA_LOG(kLog, 5) << "GetBackendByVideoBroadcastHandle"
                             << ": dynamic cast failed! ";
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
