#include "Velmora/IntegrationLayer.h"

#include <memory>

#include "TraceHooks.h"
#include "UvaWrapper.h"

namespace Velmora {
namespace Wrapper {

namespace {

// The IUva is ours from the first instruction: whatever fails, it is deleted exactly once. The
// registry's storage is allocated before its argument is evaluated, so `owned` still holds it when
// that allocation fails; from its constructor on the registry owns it.
boost::shared_ptr<UvaWrapper> MakeRegistry(IUva* uva) {
    std::unique_ptr<IUva> owned(uva);
    return boost::shared_ptr<UvaWrapper>(new UvaWrapper(owned.release()));
}

}  // namespace

IntegrationLayer::IntegrationLayer(IUva* uva) : registry(MakeRegistry(uva)) { Tracing::LibraryStarted(); }

IntegrationLayer::~IntegrationLayer() {
    registry.reset();
    Tracing::LibraryStopped();
}

IUva* IntegrationLayer::GetUvaImpl() { return registry->GetUvaImpl(); }

boost::shared_ptr<IBackend> IntegrationLayer::GetActiveMediaBackendImpl() {
    return registry->GetActiveMediaBackendImpl();
}

boost::shared_ptr<IBackend> IntegrationLayer::GetActiveVideoBroadcastImpl() {
    return registry->GetActiveVideoBroadcastImpl();
}

}  // namespace Wrapper
}  // namespace Velmora
