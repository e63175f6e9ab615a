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

// Completes the removal of a map's component on every way out of the scope, the browser's event sent
// or not (no memory for it): the component is marked unused and forgotten, never left registered.
template <typename ComponentMap>
class ComponentRemoval {
public:
    ComponentRemoval(ComponentMap& map, typename ComponentMap::iterator entry) : map_(map), entry_(entry) {}
    ~ComponentRemoval() {
        if (auto* removed = dynamic_cast<AvComponentWrapper*>(entry_->first)) {
            removed->BackendMarkUnused();
        }
        map_.erase(entry_);
    }
    ComponentRemoval(const ComponentRemoval&) = delete;
    ComponentRemoval& operator=(const ComponentRemoval&) = delete;

private:
    ComponentMap& map_;
    typename ComponentMap::iterator entry_;
};

}  // namespace Wrapper
}  // namespace Velmora
