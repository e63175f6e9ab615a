#pragma once
// The GStreamer media stack's root object: what an owner hands to the library's IntegrationLayer when
// the TV's media engine is GStreamer. Built as libvelmora_gst.so and found through VelmoraCreateStack.
//
// Media back-ends (types 0 and 1) play a URL through playbin3, or Media Source samples the browser
// demuxed itself through one appsrc per source. GStreamer has neither a tuner nor a clear-key
// decryptor, so broadcast (type 2) and DRM requests are answered with an empty back-end: the library
// turns that into a failed request or a back-end whose every operation fails. An integrator who
// needs them combines this stack with another one.
//
// Threads: every event of a back-end is raised on that back-end's own bus thread, never on the
// thread that calls it; releasing a back-end stops its pipeline and joins that thread.

#include "GstStackOptions.h"
#include "Velmora/IUva.h"

#include <boost/signals2/signal.hpp>

namespace Velmora {
namespace Gst {

class GstUva : public IUva {
public:
    explicit GstUva(StackOptions options);
    ~GstUva() override;

    boost::shared_ptr<IBackend> CreateBackend(int type) override;
    boost::shared_ptr<IDrmBackend> CreateDrmBackend(const std::string& keySystemId) override;
    boost::signals2::connection ConnectHandleLookup(const HandleLookupSlot& slot) override;

private:
    const StackOptions options;
    // Never raised: there is no broadcast back-end to look up.
    boost::signals2::signal<void(void*, boost::shared_ptr<IBackend>&)> handleLookup;
};

}  // namespace Gst
}  // namespace Velmora
