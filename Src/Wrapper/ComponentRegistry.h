#pragma once
// The components a back-end showed the browser, each paired with the media stack's own: created when the
// media stack announces one, named in the browser's component events, mapped back for selection, and
// retired on removal. The media and the broadcast back-ends differ only in what ComponentPolicy says.

#include <vector>

#include "ClientDelivery.h"
#include "Log.h"
#include "Uva/UVABackend.h"
#include "Uva/UVAStatus.h"
#include "Velmora/BackendEvents.h"
#include "Velmora/IAvComponent.h"

namespace Velmora {
namespace Wrapper {

class AvComponentWrapper;

struct ComponentPolicy {
    const LogSite* site;
    // The back-end's event slot, as the lines about malformed events name it.
    const char* slotName;
    // A change or removal of a component never announced: logged at level 4, followed by the event's
    // name, or dropped silently when null.
    const char* unknownComponentText;
    // Traced with the new wrapper's address once it is named, or null.
    const char* addedText;
    // Traced with the media stack's component after a successful select, or null.
    const char* selectedText;
};

enum class Selection { Select, Unselect };

class ComponentRegistry {
public:
    ComponentRegistry(const ComponentPolicy& policy, const ClientDelivery& delivery) noexcept
        : policy_(policy), delivery_(delivery) {}
    // The wrappers stay alive: the browser's component protocol decides when they go.
    ~ComponentRegistry() = default;
    ComponentRegistry(const ComponentRegistry&) = delete;
    ComponentRegistry& operator=(const ComponentRegistry&) = delete;

    // The browser's operation name for `which`.
    static const char* OperationName(Selection which);

    // A ComponentChanged event of the media stack. A malformed one (of another class, with an unknown
    // action) is thrown back to the media stack.
    void OnComponentChanged(const BackendEvent& event);

    // Selects or unselects, on `backend`, the media stack's component behind the browser's `component`;
    // an error when the component is null, unknown or inactive.
    template <typename Backend>
    UVA_STATUS ChangeSelection(Backend& backend, Selection which, UVABackend::AVComponent* component) const {
        IAvComponent* const chosen = Selectable(which, component);
        if (chosen == nullptr) {
            return UVA_STATUS_ERROR;
        }
        if (which == Selection::Select) {
            backend.SelectComponent(chosen);
            LogSelected(chosen);
        } else {
            backend.UnselectComponent(chosen);
        }
        return UVA_STATUS_OK;
    }

private:
    struct Entry {
        AvComponentWrapper* shown;
        IAvComponent* source;
    };
    using Entries = std::vector<Entry>;
    class Retirement;

    void Add(IAvComponent* source);
    void Change(IAvComponent* source);
    void Remove(IAvComponent* source);
    void LogUnknown() const;
    void LogSelected(const IAvComponent* chosen) const;
    // The media stack's component behind `component`, or null (logged) when it cannot be selected.
    IAvComponent* Selectable(Selection which, const UVABackend::AVComponent* component) const;
    // The lowest-addressed wrapper of `source`, or the end: a component announced twice has two.
    Entries::iterator FindWrapperOf(const IAvComponent* source);
    void Forget(const AvComponentWrapper* shown) noexcept;

    const ComponentPolicy& policy_;
    const ClientDelivery& delivery_;
    Entries entries_;
};

}  // namespace Wrapper
}  // namespace Velmora
