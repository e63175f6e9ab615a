#pragma once
// The table behind the browser's entry points (filled by the registry through SetCallbacks).

#include "Velmora/Callbacks.h"

namespace Velmora {

extern Callbacks uvaCallbacks;

// The key systems the library offers, in the order the browser is told them.
inline constexpr const char* kSupportedKeySystems[] = {
    "com.youtube.playready",
    "urn:dvb:casystemid:19219",
    "org.w3.clearkey",
    "webkit-org.w3.clearkey",
};

// Fills `ids` with a new[] array of the key systems and a terminating null; 0 when it cannot allocate.
UVA_STATUS ListSupportedKeySystems(const char**& ids);

}  // namespace Velmora
