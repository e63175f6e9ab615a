#pragma once
// The trace's settings as the environment gives them.

#include <cstddef>
#include <string>

#include "Velmora/Trace.h"

namespace Velmora {
namespace Tracing {

constexpr const char* kTraceVariable = "VELMORA_TRACE";
constexpr const char* kSlowCallVariable = "VELMORA_SLOW_CALL_MS";

struct TraceSettings {
    std::string path;
    std::size_t ringEntries = Trace::kDefaultRingEntries;
    unsigned slowCallMilliseconds = 0;  // 0: the default while tracing
};

// "path[,ring=ENTRIES][,slow=MILLISECONDS]". Returns what is wrong with `text`, or nothing.
std::string ParseTraceSettings(const std::string& text, TraceSettings& settings);

// A whole decimal number of milliseconds. Returns what is wrong with `text`, or nothing.
std::string ParseSlowCallMilliseconds(const std::string& text, unsigned& milliseconds);

}  // namespace Tracing
}  // namespace Velmora
