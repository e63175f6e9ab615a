#include "GstUva.h"

#include <gst/gst.h>

#include "GstMediaBackend.h"
#include "Velmora/IDrmBackend.h"

namespace Velmora {
namespace Gst {

GstUva::GstUva(StackOptions stackOptions) : options(stackOptions) { gst_init(nullptr, nullptr); }

GstUva::~GstUva() = default;

boost::shared_ptr<IBackend> GstUva::CreateBackend(int type) {
    if (type == 0 || type == 1) {
        return boost::shared_ptr<IBackend>(new GstMediaBackend(options));
    }
    return boost::shared_ptr<IBackend>();
}

boost::shared_ptr<IDrmBackend> GstUva::CreateDrmBackend(const std::string& /*keySystemId*/) {
    return boost::shared_ptr<IDrmBackend>();
}

boost::signals2::connection GstUva::ConnectHandleLookup(const HandleLookupSlot& slot) {
    return handleLookup.connect(slot);
}

}  // namespace Gst
}  // namespace Velmora
