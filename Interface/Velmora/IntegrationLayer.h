#pragma once
// The owner's switch for the whole library. Constructing it with the media stack's root object makes the
// browser's entry points live; destroying it stops the library and deletes the root object.
//
// Order for the owner: create the IUva, then the IntegrationLayer (it takes the IUva over from the first
// instruction of its constructor: should the constructor throw, the IUva has been deleted; never delete it
// yourself). Before destroying the IntegrationLayer, have the browser release its back-ends, or stop the
// browser: the destructor deletes the IUva and then every back-end still registered, so a back-end pointer
// the browser still holds dangles, and the entry points are not switched off. A media stack's back-ends
// still alive at that point outlive their IUva and must not call back into it when destroyed.

#include <boost/noncopyable.hpp>
#include <boost/shared_ptr.hpp>

#include "Velmora/Export.h"

namespace Velmora {

class IBackend;
class IUva;

namespace Wrapper {

class UvaWrapper;

class VELMORA_EXPORT IntegrationLayer : private boost::noncopyable {
public:
    explicit IntegrationLayer(IUva* uva);
    ~IntegrationLayer();

    // The root object given to the constructor; it stays owned by the library.
    IUva* GetUvaImpl();
    // The media stack's back-end behind the media back-end the browser requested last, while the browser
    // holds it; empty otherwise. Likewise for the broadcast back-end.
    boost::shared_ptr<IBackend> GetActiveMediaBackendImpl();
    boost::shared_ptr<IBackend> GetActiveVideoBroadcastImpl();

private:
    boost::shared_ptr<UvaWrapper> registry;
};

}  // namespace Wrapper
}  // namespace Velmora
