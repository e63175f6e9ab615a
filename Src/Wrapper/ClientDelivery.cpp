#include "ClientDelivery.h"

namespace Velmora {
namespace Wrapper {

void ClientDelivery::DropForWantOfClient(std::unique_ptr<UVAEvent> event) const {
    event.reset();
    VELMORA_LOG(site_, 5) << noClientText_;
}

}  // namespace Wrapper
}  // namespace Velmora
