// Out-of-line destructors: they anchor each interface's type information in this library, so that
// the media stack and the library agree on it across the library boundary.

#include "Velmora/IAvComponent.h"
#include "Velmora/IBackend.h"
#include "Velmora/IDrmBackend.h"
#include "Velmora/IMediaBackend.h"
#include "Velmora/IUva.h"
#include "Velmora/IVideoBroadcastBackend.h"

namespace Velmora {

IBackend::~IBackend() = default;
IMediaBackend::~IMediaBackend() = default;
IVideoBroadcastBackend::~IVideoBroadcastBackend() = default;
IDrmBackend::~IDrmBackend() = default;
IUva::~IUva() = default;

IAvComponent::IAvComponent() : AvComponentDescription() {}
IAvComponent::~IAvComponent() = default;

}  // namespace Velmora
