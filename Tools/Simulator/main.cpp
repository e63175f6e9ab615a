// velmora-simulator: plays the browser's part in a TV session against the library.

#include <dlfcn.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "Browser.h"
#if VELMORA_WITH_GSTREAMER
#include "MediaSessions.h"
#endif
#include "Options.h"
#include "Scenarios.h"
#include "Timeline.h"
#include "Tlog/Tlog.h"
#include "Uva/UVALiveObjects.h"
#include "Velmora/Trace.h"

namespace {

constexpr const char* kReexecGuard = "VELMORA_SIMULATOR_PRELOADED";

std::string RealPath(const std::string& path) {
    char resolved[PATH_MAX];
    return realpath(path.c_str(), resolved) != nullptr ? resolved : path;
}

// The library the reference stack is linked with, as the dynamic linker loaded it.
std::string LoadedLibrary() {
    Dl_info info{};
    void* symbol = dlsym(RTLD_DEFAULT, "UVA_RequestBackend");
    return symbol != nullptr && dladdr(symbol, &info) != 0 ? RealPath(info.dli_fname) : std::string();
}

// The reference stack's IntegrationLayer and the entry points must come from the same build, so
// another library is put in place of the linked one before anything is loaded.
void UseLibrary(const std::string& path, char** argv) {
    if (RealPath(path) == LoadedLibrary() || std::getenv(kReexecGuard) != nullptr) {
        return;
    }
    setenv("LD_PRELOAD", path.c_str(), 1);
    setenv(kReexecGuard, "1", 1);
    execv("/proc/self/exe", argv);
    std::perror("re-executing with LD_PRELOAD");
    std::exit(2);
}

// The reference stack's scenarios, then the sessions on real media, as --stack and --scenario choose.
void RunSessions(const Simulator::Options& options, Simulator::Timeline& timeline,
                 const Simulator::EntryPoints& library, Simulator::LogBook& log, std::uint32_t variant) {
    const bool media = options.scenario.rfind("gst-", 0) == 0;
    if ((options.stack.empty() || options.stack == "reference") && !media) {
        Simulator::RunScenario(options.scenario, timeline, library, log, variant);
    }
    if (options.stack == "reference" || (!media && options.scenario != "all")) {
        return;
    }
#if VELMORA_WITH_GSTREAMER
    Simulator::MediaSessionOptions sessions;
    sessions.stackPath = options.stack.empty() || options.stack == "gstreamer" ? VELMORA_GST_STACK_PATH : options.stack;
    sessions.stackOptions = options.stackOptions;
    sessions.media = options.media;
    Simulator::RunMediaSessions(options.scenario, timeline, library, log, sessions);
#else
    if (media || !options.stack.empty()) {
        timeline.Expect(false, "this simulator was built without GStreamer: no real-media sessions");
    }
#endif
}

}  // namespace

int main(int argc, char** argv) {
    Simulator::Options options;
    std::string error;
    if (!Simulator::ParseOptions(argc, argv, options, error)) {
        std::fprintf(stderr, "%s: %s\n", argv[0], error.c_str());
        Simulator::PrintHelp(stderr, argv[0]);
        return 2;
    }
    if (options.help) {
        Simulator::PrintHelp(stdout, argv[0]);
        return 0;
    }
    UseLibrary(options.library, argv);

    Simulator::EntryPoints library;
    if (!Simulator::LoadLibrary(options.library, library, error)) {
        std::fprintf(stderr, "cannot load %s: %s\n", options.library.c_str(), error.c_str());
        return 2;
    }
    const std::string loaded = LoadedLibrary();
    std::printf("velmora-simulator: library %s, scenario %s, %d iteration(s), variant %u\n", loaded.c_str(),
                options.scenario.c_str(), options.iterations, options.variant);
    if (loaded != RealPath(options.library)) {
        std::fprintf(stderr, "the media stack uses %s, not %s\n", loaded.c_str(), options.library.c_str());
        return 2;
    }

    Simulator::Timeline timeline;
    timeline.MarkBrowserThread();
    Simulator::LogBook log;
    // Errors are always kept (the faults scenario looks for them); printed only from --trace on.
    Tlog::SetDefaultThreshold(options.trace < 5 ? options.trace : 5);
    Tlog::SetSink([&](const Tlog::Record& record) {
        log.Add(record.level, record.text);
        if (record.level >= options.trace) {
            timeline.Log(std::to_string(record.level) + " " + record.context + ": " + record.text);
        }
    });

    std::string traceError;
    if (!options.traceJson.empty() &&
        !Velmora::Trace::StartTrace(options.traceJson, Velmora::Trace::kDefaultRingEntries, &traceError)) {
        std::fprintf(stderr, "%s\n", traceError.c_str());
        return 2;
    }
    const UvaLiveObjects before = uvaLiveObjects();
    for (int i = 0; i < options.iterations; ++i) {
        if (options.iterations > 1) {
            timeline.Heading("iteration " + std::to_string(i + 1));
        }
        RunSessions(options, timeline, library, log, options.variant + static_cast<std::uint32_t>(i));
    }
    const UvaLiveObjects after = uvaLiveObjects();
    const long alive = after.Total() - before.Total();
    timeline.Expect(alive == 0, "objects still alive: " + std::to_string(alive) + " (events " +
                                    std::to_string(after.events - before.events) + ", DRM events " +
                                    std::to_string(after.drmEvents - before.drmEvents) + ", components " +
                                    std::to_string(after.components - before.components) + ", back-ends " +
                                    std::to_string(after.backends - before.backends) + ", DRM back-ends " +
                                    std::to_string(after.drmBackends - before.drmBackends) + ", samples " +
                                    std::to_string(after.samples - before.samples) + ", sources " +
                                    std::to_string(after.sources - before.sources) + ")");
    Tlog::SetSink(nullptr);
    // The library rewrote the file each time a scenario stopped it; a last write takes in what came after.
    if (!options.traceJson.empty()) {
        timeline.Expect(Velmora::Trace::WriteTrace(std::string(), &traceError), "trace: " + traceError);
        std::printf("trace written to %s\n", options.traceJson.c_str());
    }
    timeline.PrintSummary(alive);
    return timeline.Failed() ? 1 : 0;
}
