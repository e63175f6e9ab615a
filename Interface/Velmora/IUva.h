#pragma once
// The media stack's root object. The owner creates it and hands it to an IntegrationLayer, whose
// registry owns it from then on and deletes it when the IntegrationLayer is destroyed.
//
// The handle-lookup signal lets the media stack find its broadcast back-end for a browser video
// broadcast handle: raise it with the handle and an empty pointer; the library's slot fills the
// pointer (or leaves it empty). The library keeps that slot connected while at least one broadcast
// back-end is requested.

#include <boost/function.hpp>
#include <boost/shared_ptr.hpp>
#include <boost/signals2/connection.hpp>
#include <string>

#include "Velmora/Export.h"

namespace Velmora {

class IBackend;
class IDrmBackend;

class VELMORA_EXPORT IUva {
public:
    using HandleLookupSlot = boost::function<void(void* videoBroadcastHandle, boost::shared_ptr<IBackend>& backend)>;

    virtual ~IUva();

    // `type` is the browser's back-end type: 0 or 1 for media, 2 for broadcast.
    virtual boost::shared_ptr<IBackend> CreateBackend(int type) = 0;
    // `keySystemId` is empty when the browser named none.
    virtual boost::shared_ptr<IDrmBackend> CreateDrmBackend(const std::string& keySystemId) = 0;
    virtual boost::signals2::connection ConnectHandleLookup(const HandleLookupSlot& slot) = 0;
};

}  // namespace Velmora
