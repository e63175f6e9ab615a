#pragma once
// The browser's Media Source samples, copied into the media stack's decoder buffers.

#include <boost/shared_ptr.hpp>

#include "Uva/UVAEvent.h"
#include "Velmora/BackendEvents.h"

namespace Velmora {
namespace Wrapper {

// The media stack's WriteMseData event for the browser's answer to a NEED_MSE_DATA request; takes the
// samples' sub-sample lists, copies their bytes.
boost::shared_ptr<BackendEvent> WriteMseDataOf(::NeedMSEDataEvent& answer);

}  // namespace Wrapper
}  // namespace Velmora
