#pragma once
// The table behind the browser's entry points. The registry installs it when it is created; until
// then the entry points answer null or 0. Install it before the browser may call in, and keep the
// browser from calling after the registry is gone: the table is not cleared then.

#include <boost/function.hpp>

#include "Uva/UVABackend.h"
#include "Uva/UVAClient.h"
#include "Uva/UVADRMBackend.h"
#include "Velmora/Export.h"

namespace Velmora {

struct Callbacks {
    boost::function<UVABackend*(UVABackend::UVABackendType, UVAClient*)> requestBackend;
    boost::function<UVA_STATUS(UVABackend*)> releaseBackend;
    boost::function<UVADRMBackend*(const char*, UVADRMClient*)> requestDrmBackend;
    boost::function<UVA_STATUS(UVADRMBackend*)> releaseDrmBackend;
    boost::function<UVA_STATUS(const char**&)> getSupportedBackendIDs;
};

// Replaces the whole table by a copy of `callbacks`; an empty member empties the entry point behind it.
VELMORA_EXPORT void SetCallbacks(const Callbacks& callbacks);

}  // namespace Velmora
