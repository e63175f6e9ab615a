#pragma once
// What the reference media back-end checks in every Media Source sample before it queues it.

#include <string>

#include "Velmora/BackendEvents.h"

namespace Velmora {
namespace Reference {

// The sample's key id as bytes; empty for a clear sample.
std::string KeyIdOf(const DecoderBuffer& sample);

// Why `sample` cannot be decoded, or null when it is sound.
const char* ProblemWith(const DecoderBuffer& sample);

}  // namespace Reference
}  // namespace Velmora
