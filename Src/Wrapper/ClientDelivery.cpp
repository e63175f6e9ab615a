#include "ClientDelivery.h"

namespace Velmora {
namespace Wrapper {

void ClientDelivery::Deliver(std::unique_ptr<UVAEvent> event) const {
    if (client_ == nullptr) {
        event.reset();
        VELMORA_LOG(site_, 5) << noClientText_;
        return;
    }
    client_->handleEvent(event.release());
}

}  // namespace Wrapper
}  // namespace Velmora
