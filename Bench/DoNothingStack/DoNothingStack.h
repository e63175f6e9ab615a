#pragma once
// A media stack that does nothing, for measuring what the library itself costs. Its classes live in
// their own file, so the benchmarks' direct calls cannot be resolved or inlined by the compiler.

#include <boost/shared_ptr.hpp>
#include <boost/signals2/signal.hpp>
#include <memory>

#include "Velmora/BackendEvents.h"
#include "Velmora/DrmBackendEvents.h"
#include "Velmora/IAvComponent.h"
#include "Velmora/IDrmBackend.h"
#include "Velmora/IMediaBackend.h"
#include "Velmora/IUva.h"

namespace Bench {

using EventSignal = boost::signals2::signal<void(boost::shared_ptr<Velmora::BackendEvent>)>;
using DrmEventSignal = boost::signals2::signal<void(boost::shared_ptr<Velmora::DrmBackendEvent>)>;

Velmora::IUva* NewDoNothingStack();

// The back-end the stack created last, and the signals it raises its events on.
Velmora::IMediaBackend* LastMediaBackend();
EventSignal& LastMediaEvents();
DrmEventSignal& LastDrmEvents();

std::unique_ptr<Velmora::IAvComponent> NewDoNothingComponent();

}  // namespace Bench
