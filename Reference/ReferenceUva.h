#pragma once
// The reference media stack's root object: what a TV integrator hands to the library's
// IntegrationLayer, which owns it from then on.
//
// It creates the back-ends the browser asks for (media for types 0 and 1, broadcast for type 2, DRM
// for the clear key systems), all sharing one FaultInjector. The back-ends do not refer back to it:
// they may outlive it while the browser still holds them. With the manual clock nothing moves until
// a scenario calls Step(); with the threaded clock every back-end runs on a thread of its own.
//
//     StackOptions options;
//     options.clock = Clock::Manual;
//     auto* stack = new ReferenceUva(options);
//     Velmora::Wrapper::IntegrationLayer layer(stack);  // owns `stack` from here on
//     ...the browser requests back-ends and drives them...
//     stack->Step();                                   // one period for every back-end
//     stack->LatestMediaBackend()->GetStatus();        // what reached the media stack

#include <boost/shared_ptr.hpp>
#include <boost/signals2/signal.hpp>
#include <boost/weak_ptr.hpp>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "FaultInjector.h"
#include "ReferenceBroadcastBackend.h"
#include "ReferenceDrmBackend.h"
#include "ReferenceMediaBackend.h"
#include "StackOptions.h"
#include "Velmora/IUva.h"

namespace Velmora {
namespace Reference {

class ReferenceUva : public IUva {
public:
    explicit ReferenceUva(StackOptions options = StackOptions());
    ~ReferenceUva() override;

    boost::shared_ptr<IBackend> CreateBackend(int type) override;
    boost::shared_ptr<IDrmBackend> CreateDrmBackend(const std::string& keySystemId) override;
    boost::signals2::connection ConnectHandleLookup(const HandleLookupSlot& slot) override;

    // The media stack's side of the handle lookup: its broadcast back-end that the browser bound to
    // `handle`, or null.
    boost::shared_ptr<IBackend> LookupBroadcastBackend(void* handle);

    // One step of every back-end still alive, in the order they were created, on the calling thread.
    void Step();

    // Applies to back-ends created afterwards.
    void SetOptions(const StackOptions& options);
    StackOptions GetOptions() const;
    FaultInjector& Faults() { return *faults; }

    // The most recently created back-end of each kind, if it is still alive.
    boost::shared_ptr<ReferenceMediaBackend> LatestMediaBackend() const;
    boost::shared_ptr<ReferenceBroadcastBackend> LatestBroadcastBackend() const;
    boost::shared_ptr<ReferenceDrmBackend> LatestDrmBackend() const;

private:
    const std::shared_ptr<FaultInjector> faults = std::make_shared<FaultInjector>();

    mutable std::mutex mutex;  // back-ends are created on the browser's thread and, for DRM, on playback threads
    StackOptions options;
    std::vector<boost::weak_ptr<ReferenceMediaBackend>> media;
    std::vector<boost::weak_ptr<ReferenceBroadcastBackend>> broadcast;
    std::vector<boost::weak_ptr<ReferenceDrmBackend>> drm;
    boost::signals2::signal<void(void*, boost::shared_ptr<IBackend>&)> handleLookup;
};

}  // namespace Reference
}  // namespace Velmora
