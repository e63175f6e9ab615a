#pragma once
// The browser's clients, handed to a back-end library with each back-end request. The library never
// deletes a client. Events may be delivered on any thread the media stack raises them on.

#include "Uva/UVADRMEvent.h"
#include "Uva/UVAEvent.h"

class UVADRMBackend;

class UVAClient {
public:
    // Takes ownership of `event`.
    virtual void handleEvent(UVAEvent* event) = 0;
    // Asks the browser for a DRM back-end of the given key system; null when it has none.
    virtual UVADRMBackend* requestDRMBackend(const char* keySystemId) = 0;

protected:
    ~UVAClient() = default;
};

class UVADRMClient {
public:
    // Takes ownership of `event`.
    virtual void handleDRMEvent(UVADRMEvent* event) = 0;

protected:
    ~UVADRMClient() = default;
};
