#pragma once
// The named browser sessions the simulator plays.

#include <cstdint>
#include <string>

#include "Browser.h"

namespace Simulator {

// Runs `name` ("all" runs every scenario); broken expectations are recorded in the timeline.
void RunScenario(const std::string& name, Timeline& timeline, const EntryPoints& library, LogBook& log,
                 std::uint32_t variant);

}  // namespace Simulator
