#include "ComponentRegistry.h"

#include <algorithm>
#include <functional>
#include <memory>

#include "AvComponentWrapper.h"
#include "Utilities.h"
#include "Velmora/Exceptions.h"
#include "WrapperTexts.h"

namespace Velmora {
namespace Wrapper {

namespace {

constexpr const char* kRemoving = "Component to be REMOVED: ";

using BrowserChange = ::ComponentChangedEvent;

// Makes `named` name `component`, which cannot be destroyed while the event names it.
void Name(BrowserChange& named, UVABackend::AVComponent* component, BrowserChange::Action action) noexcept {
    named.action = action;
    component->preventDestruction();
    named.component = component;
}

std::unique_ptr<BrowserChange> NamingEvent(UVABackend::AVComponent* component, BrowserChange::Action action) {
    auto named = std::make_unique<BrowserChange>();
    Name(*named, component, action);
    return named;
}

}  // namespace

// Completes a removal on every way out, the browser told or not (no memory for its event): the wrapper is
// forgotten and marked unused, after the browser has heard of it.
class ComponentRegistry::Retirement {
public:
    Retirement(ComponentRegistry& registry, AvComponentWrapper* shown) noexcept : registry_(registry), shown_(shown) {}
    ~Retirement() {
        registry_.Forget(shown_);
        shown_->BackendMarkUnused();
    }
    Retirement(const Retirement&) = delete;
    Retirement& operator=(const Retirement&) = delete;

private:
    ComponentRegistry& registry_;
    AvComponentWrapper* const shown_;
};

const char* ComponentRegistry::OperationName(Selection which) {
    return which == Selection::Select ? "selectComponent" : "unselectComponent";
}

void ComponentRegistry::OnComponentChanged(const BackendEvent& event) {
    const auto* change = dynamic_cast<const ComponentChangedEvent*>(&event);
    if (change == nullptr) {
        throw GenericErrorException(kEventCastFailed);
    }
    // An unknown action is refused below whatever it carries.
    if (change->component == nullptr && change->action >= ComponentChangedEvent::Added &&
        change->action <= ComponentChangedEvent::Changed) {
        VELMORA_LOG(*policy_.site, 5) << policy_.slotName << kNullComponentIgnored;
        return;
    }
    switch (change->action) {
        case ComponentChangedEvent::Added: Add(change->component); return;
        case ComponentChangedEvent::Removed: Remove(change->component); return;
        case ComponentChangedEvent::Changed: Change(change->component); return;
        default: throw GenericErrorException(kUnknownComponentAction);
    }
}

void ComponentRegistry::Add(IAvComponent* source) {
    // Everything that can fail comes before the wrapper exists, so a failure leaves neither a wrapper nor
    // an entry the browser never heard of.
    auto named = std::make_unique<BrowserChange>();
    if (entries_.size() == entries_.capacity()) {
        entries_.reserve(std::max<Entries::size_type>(4, 2 * entries_.size()));
    }
    auto* const shown = new AvComponentWrapper(source);
    entries_.push_back({shown, source});  // within the capacity made above: cannot fail
    Name(*named, shown, BrowserChange::ADDED);
    if (policy_.addedText != nullptr) {
        VELMORA_LOG_QUIET(*policy_.site, 2) << policy_.addedText << static_cast<const void*>(shown);
    }
    delivery_.Deliver(std::move(named));
}

void ComponentRegistry::Change(IAvComponent* source) {
    const auto entry = FindWrapperOf(source);
    if (entry == entries_.end()) {
        LogUnknown();
        return;
    }
    delivery_.Deliver(NamingEvent(entry->shown, BrowserChange::CHANGED));
}

void ComponentRegistry::Remove(IAvComponent* source) {
    const auto entry = FindWrapperOf(source);
    if (entry == entries_.end()) {
        LogUnknown();
        return;
    }
    AvComponentWrapper* const removed = entry->shown;
    // The media stack has removed it: from here on the browser's protocol decides when it goes.
    const Retirement retirement(*this, removed);
    VELMORA_LOG_QUIET(*policy_.site, 2) << kRemoving << static_cast<const void*>(removed);
    delivery_.Deliver(NamingEvent(removed, BrowserChange::REMOVED));
}

void ComponentRegistry::LogUnknown() const {
    if (policy_.unknownComponentText != nullptr) {
        VELMORA_LOG(*policy_.site, 4) << policy_.unknownComponentText
                                      << Utilities::ConvertEventIdToString(BackendEvent::ComponentChanged);
    }
}

void ComponentRegistry::LogSelected(const IAvComponent* chosen) const {
    if (policy_.selectedText != nullptr) {
        VELMORA_LOG(*policy_.site, 2) << policy_.selectedText << static_cast<const void*>(chosen);
    }
}

IAvComponent* ComponentRegistry::Selectable(Selection which, const UVABackend::AVComponent* component) const {
    const char* const name = OperationName(which);
    if (component == nullptr) {
        VELMORA_LOG(*policy_.site, 5) << name << kNullComponent;
        return nullptr;
    }
    const auto entry = std::find_if(entries_.begin(), entries_.end(),
                                    [component](const Entry& known) { return known.shown == component; });
    if (entry == entries_.end()) {
        VELMORA_LOG(*policy_.site, 5) << name << (which == Selection::Select ? kSelectUnknown : kUnselectUnknown);
        return nullptr;
    }
    // Only a component the media stack reports active can be selected or unselected.
    return entry->shown->state == 0 ? nullptr : entry->source;
}

ComponentRegistry::Entries::iterator ComponentRegistry::FindWrapperOf(const IAvComponent* source) {
    auto found = entries_.end();
    for (auto entry = entries_.begin(); entry != entries_.end(); ++entry) {
        if (entry->source == source && (found == entries_.end() || std::less<>()(entry->shown, found->shown))) {
            found = entry;
        }
    }
    return found;
}

void ComponentRegistry::Forget(const AvComponentWrapper* shown) noexcept {
    const auto entry =
        std::find_if(entries_.begin(), entries_.end(), [shown](const Entry& known) { return known.shown == shown; });
    if (entry != entries_.end()) {
        entries_.erase(entry);
    }
}

}  // namespace Wrapper
}  // namespace Velmora
