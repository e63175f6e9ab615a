#pragma once
// Texts that more than one wrapper writes, kept exactly as the browser's logs have always shown them.

namespace Velmora {
namespace Wrapper {

inline constexpr const char* kEventCastFailed = "Dynamic cast of Velmora::BackendEventPtr failed.";
// The DRM wrapper reports the events it cannot pass on under the media wrapper's wording.
inline constexpr const char* kMediaEventNotHandled = "MediaBackendEvent not handled. Event ID: ";
inline constexpr const char* kUnknownComponentAction = "Unknown ComponentChangedEvent action!";
// The selection refusals say "select" for both operations, and word an unknown component differently.
inline constexpr const char* kNullComponent = " Uva attempts to select nullpointer AVComponent id.";
inline constexpr const char* kSelectUnknown = " Uva attempts to select non-existing AVComponent id.";
inline constexpr const char* kUnselectUnknown = " Uva attempts to select invalid AVComponent id.";
// Written after the name of the slot that received it: the media stack sent what it must never send.
inline constexpr const char* kNullEventIgnored = ": null event ignored";
inline constexpr const char* kNullComponentIgnored = ": component event without a component ignored";

}  // namespace Wrapper
}  // namespace Velmora
