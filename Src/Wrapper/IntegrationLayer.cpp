#include "Velmora/IntegrationLayer.h"

#include "TraceHooks.h"
#include "UvaWrapper.h"

namespace Velmora {
namespace Wrapper {

IntegrationLayer::IntegrationLayer(IUva* uva) : registry(new UvaWrapper(uva)) { Tracing::LibraryStarted(); }

IntegrationLayer::~IntegrationLayer() {
    registry.reset();
    Tracing::LibraryStopped();
}

IUva* IntegrationLayer::GetUvaImpl() { return registry->GetUvaImpl(); }

boost::shared_ptr<IBackend> IntegrationLayer::GetActiveMediaBackendImpl() { return registry->GetActiveMediaBackendImpl(); }

boost::shared_ptr<IBackend> IntegrationLayer::GetActiveVideoBroadcastImpl() {
    return registry->GetActiveVideoBroadcastImpl();
}

}  // namespace Wrapper
}  // namespace Velmora
