#pragma once
// Builds the media stack's events from the fuzzer's bytes: any type code on an object of the class that
// code names, or on an object of another class (a media stack that gets its own events wrong).

#include <boost/shared_ptr.hpp>

#include "Fuzz/FuzzInput.h"
#include "Velmora/BackendEvents.h"
#include "Velmora/DrmBackendEvents.h"

namespace VelmoraFuzz {

// The most samples the fuzzed media stack asks for at once; beyond it a request is only a huge
// allocation, which the library is allowed to fail with std::bad_alloc out of its slot.
constexpr std::uint32_t kMaxRequestedSamples = 1024;

// `components` are the stack's components a component event may name (may be empty).
boost::shared_ptr<Velmora::BackendEvent> MakeBackendEvent(FuzzInput& input, Velmora::IAvComponent* const* components,
                                                          std::size_t componentCount);

boost::shared_ptr<Velmora::DrmBackendEvent> MakeDrmEvent(FuzzInput& input);

}  // namespace VelmoraFuzz
