#pragma once
// Hands the browser's events to its client. Each back-end words a missing client its own way.

#include <memory>

#include "Log.h"
#include "Uva/UVAClient.h"
#include "Uva/UVAEvent.h"

namespace Velmora {
namespace Wrapper {

class ClientDelivery {
public:
    ClientDelivery(const LogSite& site, const char* noClientText, UVAClient* client) noexcept
        : site_(site), noClientText_(noClientText), client_(client) {}

    UVAClient* Client() const { return client_; }

    // The browser owns `event` from here on; without a client it is deleted and the line logged. Inline:
    // every event the browser gets passes here.
    void Deliver(std::unique_ptr<UVAEvent> event) const {
        if (client_ == nullptr) {
            DropForWantOfClient(std::move(event));
            return;
        }
        client_->handleEvent(event.release());
    }

private:
    void DropForWantOfClient(std::unique_ptr<UVAEvent> event) const;

    const LogSite& site_;
    const char* const noClientText_;
    UVAClient* const client_;
};

}  // namespace Wrapper
}  // namespace Velmora
