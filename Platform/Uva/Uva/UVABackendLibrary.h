#pragma once
// What the browser looks up in a back-end library (dlsym, by these plain names).

#include "Uva/UVABackend.h"
#include "Uva/UVAClient.h"
#include "Uva/UVADRMBackend.h"

extern "C" {
// Returns a back-end of the given type that delivers its events to `client`, or null.
UVABackend* UVA_RequestBackend(UVABackend::UVABackendType type, UVAClient* client);
// Gives back a back-end obtained from UVA_RequestBackend; 1 when it was known.
UVA_STATUS UVA_ReleaseBackend(UVABackend* backend);
// Returns a DRM back-end for the key system (may be null) that reports to `client`, or null.
UVADRMBackend* UVADRM_RequestBackend(const char* keySystemId, UVADRMClient* client);
// Gives back a DRM back-end obtained from UVADRM_RequestBackend; 1 when it was known.
UVA_STATUS UVADRM_ReleaseBackend(UVADRMBackend* backend);
// `ids` receives a null-terminated new[] array of static texts; the caller frees only the array.
UVA_STATUS UVADRM_GetSupportedBackendIDs(const char**& ids);
}

using UVA_RequestBackendFunction = UVABackend* (*)(UVABackend::UVABackendType, UVAClient*);
using UVA_ReleaseBackendFunction = UVA_STATUS (*)(UVABackend*);
using UVADRM_RequestBackendFunction = UVADRMBackend* (*)(const char*, UVADRMClient*);
using UVADRM_ReleaseBackendFunction = UVA_STATUS (*)(UVADRMBackend*);
using UVADRM_GetSupportedBackendIDsFunction = UVA_STATUS (*)(const char**&);
