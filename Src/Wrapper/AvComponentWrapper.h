#pragma once
// The browser's view of one audio, video or subtitle component of the media stack. Created by a back-end
// wrapper when the media stack announces the component; from then on the browser's component protocol
// (preventDestruction / stopPreventingDestruction / backendMarkUnused) decides when it is deleted.

#include <boost/signals2/connection.hpp>

#include "SlotGate.h"
#include "Uva/UVABackend.h"
#include "Velmora/IAvComponent.h"

namespace Velmora {
namespace Wrapper {

class AvComponentWrapper : public UVABackend::AVComponent {
public:
    // Copies the component's description (texts duplicated) and follows its state signal.
    explicit AvComponentWrapper(IAvComponent* component);

    // Runs on the media stack's thread: 1 while the component is active.
    void SetState(bool active);
    // The back-end stops using the component; the browser's protocol may delete it inside this call.
    // Cannot fail, so a removal always completes.
    void BackendMarkUnused() noexcept;

protected:
    ~AvComponentWrapper() override;

private:
    boost::signals2::scoped_connection stateConnection;
    SlotGate gate;
};

}  // namespace Wrapper
}  // namespace Velmora
