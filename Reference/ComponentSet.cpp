#include "ComponentSet.h"

#include <algorithm>

namespace Velmora {
namespace Reference {

void ComponentSet::AddStream(Outbox<BackendEvent>& outbox, const std::vector<std::string>& audioLanguages,
                             const std::vector<std::string>& subtitleLanguages) {
    Add(outbox, ReferenceComponent::Video, 0, std::string(), true);
    for (std::size_t i = 0; i < audioLanguages.size(); ++i) {
        Add(outbox, ReferenceComponent::Audio, static_cast<std::int32_t>(i), audioLanguages[i], i == 0);
    }
    for (std::size_t i = 0; i < subtitleLanguages.size(); ++i) {
        Add(outbox, ReferenceComponent::Subtitle, static_cast<std::int32_t>(i), subtitleLanguages[i], false);
    }
}

void ComponentSet::Add(Outbox<BackendEvent>& outbox, ReferenceComponent::Kind kind, std::int32_t index,
                       const std::string& language, bool selected) {
    const auto component = std::make_shared<ReferenceComponent>(kind, index, language);
    component->SetSelected(selected);
    components.push_back(component);
    // The browser's copy of a component is made from the Added event and follows the state signal
    // from then on, so the state is raised after the announcement, never before.
    outbox.Post(new ComponentChangedEvent(component.get(), ComponentChangedEvent::Added));
    outbox.Post([component] { component->SetActive(true); });
}

void ComponentSet::RemoveAll(Outbox<BackendEvent>& outbox) {
    for (const auto& component : components) {
        outbox.Post(new ComponentChangedEvent(component.get(), ComponentChangedEvent::Removed), component);
    }
    components.clear();
}

ReferenceComponent* ComponentSet::Select(Outbox<BackendEvent>& outbox, IAvComponent* component) {
    const Component chosen = Find(component);
    if (chosen && !chosen->IsSelected()) {
        for (const auto& other : components) {
            if (other->GetKind() == chosen->GetKind() && other->IsSelected()) {
                ChangeSelection(outbox, other, false);
            }
        }
        ChangeSelection(outbox, chosen, true);
    }
    return chosen.get();
}

ReferenceComponent* ComponentSet::Unselect(Outbox<BackendEvent>& outbox, IAvComponent* component) {
    const Component chosen = Find(component);
    if (chosen && chosen->IsSelected()) {
        ChangeSelection(outbox, chosen, false);
    }
    return chosen.get();
}

void ComponentSet::ChangeSelection(Outbox<BackendEvent>& outbox, const Component& component, bool selected) {
    component->SetSelected(selected);
    outbox.Post(new ComponentChangedEvent(component.get(), ComponentChangedEvent::Changed));
}

ComponentSet::Component ComponentSet::Find(IAvComponent* component) const {
    const auto found = std::find_if(components.begin(), components.end(),
                                    [component](const Component& known) { return known.get() == component; });
    return found == components.end() ? nullptr : *found;
}

}  // namespace Reference
}  // namespace Velmora
