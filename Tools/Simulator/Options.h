#pragma once
// The simulator's command line.

#include <cstdint>
#include <cstdio>
#include <string>

namespace Simulator {

struct Options {
    std::string scenario = "all";
    int trace = 6;  // the library's log threshold: 6 keeps it quiet
    int iterations = 1;
    std::uint32_t variant = 1;
    std::string library = VELMORA_LIBRARY_PATH;
    // Empty: the reference scenarios, then the real-media sessions on the GStreamer stack (when built).
    std::string stack;
    std::string stackOptions;
    std::string media = VELMORA_TEST_MEDIA_PATH;
    std::string traceJson;  // where the session's trace goes; empty: no trace
    bool help = false;
};

// Parses argv (`--name value` or `--name=value`); on a mistake writes it to `error` and returns false.
bool ParseOptions(int argc, char** argv, Options& options, std::string& error);
void PrintHelp(std::FILE* to, const char* program);

}  // namespace Simulator
