#pragma once
// The components of the stream a back-end plays, and the events that tell the browser about them.
// Not locked by itself: the owning back-end calls it under its own lock.

#include <memory>
#include <string>
#include <vector>

#include "Outbox.h"
#include "ReferenceComponent.h"
#include "Velmora/BackendEvents.h"

namespace Velmora {
namespace Reference {

class ComponentSet {
public:
    using Component = std::shared_ptr<ReferenceComponent>;

    // Announces one video component, one audio component per language and one subtitle component per
    // language. The video and the first audio component start selected.
    void AddStream(Outbox<BackendEvent>& outbox, const std::vector<std::string>& audioLanguages,
                   const std::vector<std::string>& subtitleLanguages);

    // Announces the removal of every component.
    void RemoveAll(Outbox<BackendEvent>& outbox);

    // Selects `component` in place of the selected one of its kind (each change is announced), or
    // deselects it. Null when the component is not one of this stream's.
    ReferenceComponent* Select(Outbox<BackendEvent>& outbox, IAvComponent* component);
    ReferenceComponent* Unselect(Outbox<BackendEvent>& outbox, IAvComponent* component);

    std::vector<Component> List() const { return components; }

private:
    void Add(Outbox<BackendEvent>& outbox, ReferenceComponent::Kind kind, std::int32_t index,
             const std::string& language, bool selected);
    void ChangeSelection(Outbox<BackendEvent>& outbox, const Component& component, bool selected);
    Component Find(IAvComponent* component) const;

    std::vector<Component> components;
};

}  // namespace Reference
}  // namespace Velmora
