#pragma once
// The ring as Chrome trace-event JSON: complete ("X") events with microsecond times, instant events for
// failures, and the threads' names as metadata.

#include <cstdint>
#include <string>
#include <vector>

#include "TraceRing.h"

namespace Velmora {
namespace Tracing {

struct ThreadName {
    std::uint32_t thread;
    std::string name;
};

struct TraceContents {
    std::vector<Record> records;
    std::uint64_t dropped = 0;
    std::size_t capacity = 0;
    std::vector<ThreadName> threads;
    std::uint32_t process = 0;
};

std::string FormatTrace(const TraceContents& contents);

// Each returns false with the reason in `problem` when the file cannot be written whole.
bool WriteTraceFile(const std::string& path, const TraceContents& contents, std::string& problem);
bool WriteEmptyTrace(const std::string& path, std::string& problem);

}  // namespace Tracing
}  // namespace Velmora
