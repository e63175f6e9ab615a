#include "Options.h"

#include <getopt.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <set>

namespace Simulator {

namespace {

enum OptionId { kScenario = 256, kTrace, kIterations, kVariant, kLibrary, kStack, kStackOptions, kMedia, kTraceJson };

// A whole decimal number within [minimum, maximum]; strtoll reports overflow through errno.
bool ParseNumber(const char* text, long long minimum, long long maximum, long long& value) {
    if (!(*text == '-' || (*text >= '0' && *text <= '9'))) {
        return false;
    }
    char* end = nullptr;
    errno = 0;
    value = std::strtoll(text, &end, 10);
    return *end == '\0' && errno == 0 && value >= minimum && value <= maximum;
}

bool NumberOption(const char* name, const char* text, long long minimum, long long maximum, long long& value,
                  std::string& error) {
    if (ParseNumber(text, minimum, maximum, value)) {
        return true;
    }
    error = std::string("--") + name + ": \"" + text + "\" is not a whole number from " + std::to_string(minimum) +
            " to " + std::to_string(maximum);
    return false;
}

}  // namespace

bool ParseOptions(int argc, char** argv, Options& options, std::string& error) {
    static const std::set<std::string> scenarios{"mse",    "url",     "drm",     "broadcast",
                                                 "faults", "gst-url", "gst-mse", "all"};
    static const option longOptions[] = {{"scenario", required_argument, nullptr, kScenario},
                                         {"trace", required_argument, nullptr, kTrace},
                                         {"iterations", required_argument, nullptr, kIterations},
                                         {"variant", required_argument, nullptr, kVariant},
                                         {"library", required_argument, nullptr, kLibrary},
                                         {"help", no_argument, nullptr, 'h'},
                                         {"stack", required_argument, nullptr, kStack},
                                         {"stack-options", required_argument, nullptr, kStackOptions},
                                         {"media", required_argument, nullptr, kMedia},
                                         {"trace-json", required_argument, nullptr, kTraceJson},
                                         {nullptr, 0, nullptr, 0}};
    optind = 0;  // glibc starts afresh, so the command line can be parsed more than once
    opterr = 0;  // mistakes are reported once, by the caller
    int id = 0;
    while ((id = getopt_long(argc, argv, ":h", longOptions, nullptr)) != -1) {
        long long number = 0;
        switch (id) {
            case 'h': options.help = true; break;
            case kScenario:
                if (scenarios.count(optarg) == 0) {
                    error = std::string("--scenario: unknown scenario \"") + optarg + "\"";
                    return false;
                }
                options.scenario = optarg;
                break;
            case kTrace:
                if (!NumberOption("trace", optarg, 0, 6, number, error)) {
                    return false;
                }
                options.trace = static_cast<int>(number);
                break;
            case kIterations:
                if (!NumberOption("iterations", optarg, 1, INT_MAX, number, error)) {
                    return false;
                }
                options.iterations = static_cast<int>(number);
                break;
            case kVariant:
                if (!NumberOption("variant", optarg, 0, UINT32_MAX, number, error)) {
                    return false;
                }
                options.variant = static_cast<std::uint32_t>(number);
                break;
            case kLibrary: options.library = optarg; break;
            case kStack: options.stack = optarg; break;
            case kStackOptions: options.stackOptions = optarg; break;
            case kMedia: options.media = optarg; break;
            case kTraceJson: options.traceJson = optarg; break;
            case ':': error = std::string("missing value for ") + argv[optind - 1]; return false;
            default: error = std::string("unknown option ") + argv[optind - 1]; return false;
        }
    }
    if (optind < argc) {
        error = std::string("unexpected argument ") + argv[optind];
        return false;
    }
    return true;
}

void PrintHelp(std::FILE* to, const char* program) {
    std::fprintf(to,
                 "Usage: %s [options]\n"
                 "Plays the browser against the Velmora library and the reference media stack, prints a timeline\n"
                 "and a summary, and exits non-zero if any expectation broke. Options take their value as\n"
                 "--name VALUE or --name=VALUE.\n\n"
                 "  --scenario NAME   mse, url, drm, broadcast, faults, gst-url, gst-mse or all (default: all)\n"
                 "  --trace LEVEL     the library's log threshold, 0 (everything) to 6 (quiet, the default)\n"
                 "  --iterations N    run the scenarios N times, 1 to 2147483647 (a soak run; default 1)\n"
                 "  --variant N       varies sample sizes, 0 to 4294967295 (default 1)\n"
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
                 "                    %s); Media Source needs WebM or Matroska\n"
                 "Exit status: 0 passed, 1 an expectation broke, 2 a usage or loading error.\n",
                 program, VELMORA_LIBRARY_PATH, VELMORA_TEST_MEDIA_PATH);
}

}  // namespace Simulator
