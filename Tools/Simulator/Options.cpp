#include "Options.h"

#include <cstdio>
#include <cstdlib>
#include <set>

namespace Simulator {

namespace {

bool ToNumber(const std::string& text, long minimum, long& value) {
    char* end = nullptr;
    value = std::strtol(text.c_str(), &end, 10);
    return !text.empty() && *end == '\0' && value >= minimum;
}

}  // namespace

bool ParseOptions(int argc, char** argv, Options& options, std::string& error) {
    static const std::set<std::string> scenarios{"mse", "url", "drm", "broadcast", "faults", "gst-url", "gst-mse", "all"};
    for (int i = 1; i < argc; ++i) {
        const std::string name = argv[i];
        if (name == "--help" || name == "-h") {
            options.help = true;
            continue;
        }
        if (i + 1 >= argc) {
            error = "unknown option or missing value: " + name;
            return false;
        }
        const std::string value = argv[++i];
        long number = 0;
        if (name == "--scenario" && scenarios.count(value) != 0) {
            options.scenario = value;
        } else if (name == "--trace" && ToNumber(value, 0, number)) {
            options.trace = static_cast<int>(number);
        } else if (name == "--iterations" && ToNumber(value, 1, number)) {
            options.iterations = static_cast<int>(number);
        } else if (name == "--variant" && ToNumber(value, 0, number)) {
            options.variant = static_cast<std::uint32_t>(number);
        } else if (name == "--library") {
            options.library = value;
        } else if (name == "--stack") {
            options.stack = value;
        } else if (name == "--stack-options") {
            options.stackOptions = value;
        } else if (name == "--media") {
            options.media = value;
        } else if (name == "--trace-json") {
            options.traceJson = value;
        } else {
            error = "bad option: " + name + " " + value;
            return false;
        }
    }
    return true;
}

void PrintHelp(const char* program) {
    std::printf(
        "Usage: %s [options]\n"
        "Plays the browser against the Velmora library and the reference media stack, prints a timeline\n"
        "and a summary, and exits non-zero if any expectation broke.\n\n"
        "  --scenario NAME   mse, url, drm, broadcast, faults, gst-url, gst-mse or all (default: all)\n"
        "  --trace LEVEL     the library's log threshold, 0 (everything) to 6 (quiet, the default)\n"
        "  --iterations N    run the scenarios N times (a soak run; default 1)\n"
        "  --variant N       varies sample sizes (default 1)\n"
        "  --trace-json FILE write the session's trace (Chrome trace-event JSON) to FILE; open it in\n"
        "                    Perfetto (ui.perfetto.dev) or chrome://tracing, or summarize it with\n"
        "                    velmora-trace FILE\n"
        "  --library PATH    the libvelmora.so to load (default: the one built with this program,\n"
        "                    %s).\n"
        "                    The reference stack links the library too; so that both use the same\n"
        "                    build, the program restarts itself once with LD_PRELOAD=PATH when PATH\n"
        "                    is another file than the one already loaded.\n"
        "  --stack STACK     reference: only the reference stack's scenarios; gstreamer or the path of\n"
        "                    a stack library (loaded through VelmoraCreateStack): only the real-media\n"
        "                    sessions gst-url and gst-mse on that stack (default: both sets)\n"
        "  --stack-options T options for the stack's factory, e.g. \"video-sink=auto\" for a window\n"
        "  --media FILE      the file the real-media sessions play (default: generated test media,\n"
        "                    %s); Media Source needs WebM or Matroska\n",
        program, VELMORA_LIBRARY_PATH, VELMORA_TEST_MEDIA_PATH);
}

}  // namespace Simulator
