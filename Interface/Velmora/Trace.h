#pragma once
// The session trace and the slow-call watchdog, for the owner.
//
// Off by default. When on, the library records every browser call on a back-end, every media-stack
// event, every request and release and every failure its call guard caught, each with its thread and
// its time, into a bounded in-memory ring (when full, the oldest entries go and are counted). The ring
// is written as Chrome trace-event JSON (open it in Perfetto or chrome://tracing) by WriteTrace, and
// once more when the IntegrationLayer is destroyed.
//
// Instead of calling StartTrace, the owner may set the environment variable, read once when the first
// IntegrationLayer is constructed:
//     VELMORA_TRACE=path[,ring=ENTRIES][,slow=MILLISECONDS]
// and, for the watchdog alone:
//     VELMORA_SLOW_CALL_MS=MILLISECONDS
//
// The watchdog logs once per operation and back-end a media-stack operation that kept the browser's
// thread longer than its threshold, and marks it in the trace. It runs while the trace is on (threshold
// 50 ms unless set) or when a threshold was set on its own; otherwise a call pays a single flag test.
//
// Every function here may be called from any thread, never throws, and reports a bad setting with a
// false result, a text in `error` (when given) and one log line.

#include <cstddef>
#include <string>

#include "Velmora/Export.h"

namespace Velmora {
namespace Trace {

const std::size_t kDefaultRingEntries = 65536;
// Larger rings are refused: the ring is allocated whole when the trace starts.
const std::size_t kMaxRingEntries = 16u * 1024u * 1024u;
const unsigned kDefaultSlowCallMilliseconds = 50;

// Starts (or restarts, with an empty ring) the trace. `path` is where the trace is written when the
// library stops; empty: only on WriteTrace. The path is tried at once, so a bad one is reported here.
VELMORA_EXPORT bool StartTrace(const std::string& path, std::size_t ringEntries = kDefaultRingEntries,
                               std::string* error = 0);

// Stops recording; the ring is kept until the next StartTrace, so it can still be written.
VELMORA_EXPORT void StopTrace();

// Writes what the ring holds to `path` (empty: the path given to StartTrace).
VELMORA_EXPORT bool WriteTrace(const std::string& path = std::string(), std::string* error = 0);

// 0 switches the watchdog off unless the trace is on (then it watches with the default threshold).
VELMORA_EXPORT bool SetSlowCallThreshold(unsigned milliseconds, std::string* error = 0);

}  // namespace Trace
}  // namespace Velmora
