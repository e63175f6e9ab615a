// velmora-check: runs the contract a media stack must keep against a stack library, with the Velmora
// library in front of it and this program in the browser's place.
//
//     velmora-check path/to/libstack.so [--options TEXT] [--media URL] [--mse-mime TYPE] [--junit FILE]
//                   [--budget-ms N] [--check NAME]... [--timeout-s N] [--trace-dir DIR] [--list]

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>
#include <vector>

#include "Runner.h"

namespace {

constexpr const char* kUsage =
    "usage: velmora-check path/to/libstack.so [--options TEXT] [--media URL] [--mse-mime TYPE] [--junit FILE]\n"
    "                     [--budget-ms N] [--check NAME]... [--timeout-s N] [--trace-dir DIR] [--list]\n"
    "  --options TEXT  handed to the stack's factory (name=value pairs separated by ';')\n"
    "  --media URL     a file the stack can play: the event and component checks play it instead of\n"
    "                  a Media Source stream, so that a real engine shows its components\n"
    "  --mse-mime TYPE the Media Source type to stream (default: the first the stack says it plays)\n"
    "  --junit FILE    also write the results as JUnit XML\n"
    "  --budget-ms N   the longest a browser call may take (default 5)\n"
    "  --check NAME    run only this check (repeatable)\n"
    "  --timeout-s N   a check that takes longer is stopped and fails (default 20)\n"
    "  --trace-dir DIR record each check's session with the library's trace and write a failing\n"
    "                  check's to DIR/CHECK.json (open it in Perfetto or summarize it with velmora-trace)\n"
    "  --list          list the checks and what each one holds the stack to\n";

int Usage(const std::string& problem) {
    std::fprintf(stderr, "velmora-check: %s\n%s", problem.c_str(), kUsage);
    return 2;
}

bool Number(const char* text, double minimum, double& value) {
    char* end = nullptr;
    value = std::strtod(text, &end);
    return end != text && *end == '\0' && value >= minimum;
}

}  // namespace

int main(int argc, char** argv) {
    using namespace Check;
    Settings settings;
    std::string junit;
    std::set<std::string> only;
    bool list = false;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        const bool hasValue = i + 1 < argc;
        double number = 0.0;
        if (argument == "--list") {
            list = true;
        } else if (argument == "--options" && hasValue) {
            settings.options = argv[++i];
        } else if (argument == "--media" && hasValue) {
            settings.feed.mediaUrl = argv[++i];
        } else if (argument == "--mse-mime" && hasValue) {
            settings.feed.mseType = argv[++i];
        } else if (argument == "--junit" && hasValue) {
            junit = argv[++i];
        } else if (argument == "--trace-dir" && hasValue) {
            settings.traceDir = argv[++i];
        } else if (argument == "--check" && hasValue) {
            only.insert(argv[++i]);
        } else if (argument == "--budget-ms" && hasValue) {
            if (!Number(argv[++i], 0.001, number)) return Usage("--budget-ms needs a positive number");
            settings.budgetMs = number;
        } else if (argument == "--timeout-s" && hasValue) {
            if (!Number(argv[++i], 1, number)) return Usage("--timeout-s needs a whole number of seconds, at least 1");
            settings.timeoutSeconds = static_cast<int>(number);
        } else if (!argument.empty() && argument[0] != '-' && settings.library.empty()) {
            settings.library = argument;
        } else {
            return Usage("unexpected argument " + argument);
        }
    }
    if (list) {
        for (const CheckDefinition& check : AllChecks()) {
            std::printf("%-24s %s\n", check.name, check.clause);
        }
        return 0;
    }
    if (settings.library.empty()) return Usage("no stack library given");
    for (const std::string& name : only) {
        bool known = false;
        for (const CheckDefinition& check : AllChecks()) known = known || name == check.name;
        if (!known) return Usage("no check named " + name + " (see --list)");
    }

    std::printf("velmora-check %s%s\n", settings.library.c_str(),
                settings.options.empty() ? "" : (" (options \"" + settings.options + "\")").c_str());
    const auto start = std::chrono::steady_clock::now();
    std::vector<Report> reports;
    bool stackMade = true;
    for (const CheckDefinition& check : AllChecks()) {
        if (!only.empty() && only.count(check.name) == 0) continue;
        Report report{check.name, check.clause, Outcome::Skip, "the stack could not be made (see stack-factory)", 0.0,
                      ""};
        if (stackMade) {
            report = Run(check, settings);
        }
        // Without a stack every other check would fail for the same reason.
        stackMade = stackMade && !(report.name == "stack-factory" && report.outcome == Outcome::Fail);
        Print(report);
        reports.push_back(report);
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::size_t counts[3] = {};
    for (const Report& report : reports) ++counts[static_cast<int>(report.outcome)];
    std::printf("%zu checks: %zu passed, %zu failed, %zu skipped in %.1f s\n", reports.size(), counts[0], counts[1],
                counts[2], seconds);
    if (!junit.empty() && !WriteJUnit(junit, reports, seconds)) {
        std::fprintf(stderr, "velmora-check: cannot write %s\n", junit.c_str());
        return 2;
    }
    return counts[static_cast<int>(Outcome::Fail)] == 0 ? 0 : 1;
}
