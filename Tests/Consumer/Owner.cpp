// The owner's side: a media stack with nothing to offer, handed to an IntegrationLayer, and the
// browser's entry points linked directly.
#include <cstdio>

#include "Uva/UVABackendLibrary.h"
#include "Velmora/IUva.h"
#include "Velmora/IntegrationLayer.h"

namespace {

class EmptyStack : public Velmora::IUva {
public:
    boost::shared_ptr<Velmora::IBackend> CreateBackend(int) override {
        ++requests;
        return {};
    }
    boost::shared_ptr<Velmora::IDrmBackend> CreateDrmBackend(const std::string&) override { return {}; }
    boost::signals2::connection ConnectHandleLookup(const HandleLookupSlot&) override { return {}; }

    int requests = 0;
};

}  // namespace

int main() {
    EmptyStack* stack = new EmptyStack;
    Velmora::Wrapper::IntegrationLayer layer(stack);
    // The browser's request reaches the stack the layer owns.
    UVABackend* backend = UVA_RequestBackend(UVABackend::UVABackendType(0), nullptr);
    const bool reached = stack->requests == 1 && layer.GetUvaImpl() == stack;
    if (backend != nullptr) {
        UVA_ReleaseBackend(backend);
    }
    if (!reached) {
        std::fputs("owner: the request did not reach the stack\n", stderr);
        return 1;
    }
    std::puts("owner: OK");
    return 0;
}
