#pragma once
// What velmora-trace prints: per-operation latencies, the slowest calls, events per back-end.

#include <ostream>
#include <string>

#include "Json.h"

namespace TraceSummary {

// Writes the summary of a parsed trace. False with `error` when it is not a trace the library wrote.
bool Summarize(const JsonValue& trace, std::ostream& out, std::string& error, std::size_t slowest = 10);

// Reads and summarizes the file; the exit status of the program.
int SummarizeFile(const std::string& path, std::ostream& out, std::ostream& err);

}  // namespace TraceSummary
