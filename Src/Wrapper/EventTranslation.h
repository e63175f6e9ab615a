#pragma once
// The media stack's events as the browser's, one table per back-end kind. Codes and names come from
// Utilities; the fields are copied here, texts and byte blocks duplicated for the browser to free.

#include <memory>

#include "Uva/UVADRMEvent.h"
#include "Uva/UVAEvent.h"
#include "Velmora/BackendEvents.h"
#include "Velmora/DrmBackendEvents.h"

namespace Velmora {
namespace Wrapper {

// A media event other than a component change, as `browserType`; null when the media back-end does not
// pass the event on or it is not of the class its code names.
std::unique_ptr<UVAEvent> TranslateMediaEvent(const BackendEvent& event, UVAEvent::Type browserType);

// A broadcast event with a code from ParentalRatingError to SubtitlesChanged; an event not of the class its
// code names is thrown back to the media stack.
std::unique_ptr<UVAEvent> TranslateBroadcastEvent(const BackendEvent& event);

// A DRM event; null for a type the browser has no event for, thrown back when not of its code's class.
UVADRMEvent* TranslateDrmEvent(const DrmBackendEvent& event);

}  // namespace Wrapper
}  // namespace Velmora
