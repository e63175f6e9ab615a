#include "StackInterface.h"

#include "Velmora/Exceptions.h"

namespace Velmora {
namespace Wrapper {

void ThrowMissingInterface(const char* text) { throw GenericErrorException(text); }

bool FollowsEvents(const LogSite& site, const char* noClientText, const void* client, bool hasBackend) {
    if (client == nullptr) {
        VELMORA_LOG(site, 5) << noClientText;
        return false;
    }
    return hasBackend;
}

}  // namespace Wrapper
}  // namespace Velmora
