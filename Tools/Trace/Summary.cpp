#include "Summary.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>
#include <vector>

namespace TraceSummary {

namespace {

struct Span {
    std::string name;
    std::string owner;
    std::string backend;
    double start = 0;
    double duration = 0;
    double thread = 0;
    bool slow = false;
};

std::string TextOf(const JsonValue* value, const char* fallback = "") {
    return value != nullptr && value->kind == JsonValue::Kind::String ? value->text : fallback;
}

bool NumberOf(const JsonValue* value, double& number) {
    if (value == nullptr || value->kind != JsonValue::Kind::Number) {
        return false;
    }
    number = value->number;
    return true;
}

// Nearest rank over sorted values.
double Percentile(const std::vector<double>& sorted, double percent) {
    const std::size_t rank = static_cast<std::size_t>(std::ceil(percent / 100.0 * sorted.size()));
    return sorted[rank == 0 ? 0 : rank - 1];
}

std::string Fixed(double value, int decimals = 1) {
    char text[48];
    std::snprintf(text, sizeof text, "%.*f", decimals, value);
    return text;
}

std::string Pad(const std::string& text, std::size_t width) {
    return text.size() >= width ? text + " " : text + std::string(width - text.size(), ' ');
}

std::string PadLeft(const std::string& text, std::size_t width) {
    return text.size() >= width ? " " + text : std::string(width - text.size(), ' ') + text;
}

}  // namespace

bool Summarize(const JsonValue& trace, std::ostream& out, std::string& error, std::size_t slowest) {
    const JsonValue* events = trace.Find("traceEvents");
    const JsonValue* other = trace.Find("otherData");
    if (events == nullptr || events->kind != JsonValue::Kind::Array) {
        error = "not a trace-event file: no \"traceEvents\" array";
        return false;
    }
    if (other == nullptr || TextOf(other->Find("producer")) != "velmora") {
        error = "not a Velmora trace: \"otherData\" does not name the producer \"velmora\"";
        return false;
    }
    std::vector<Span> calls;
    std::vector<Span> raised;
    std::size_t failures = 0;
    double first = 0;
    double last = 0;
    for (const JsonValue& event : events->items) {
        const std::string phase = TextOf(event.Find("ph"));
        if (phase == "M") {
            continue;
        }
        Span span;
        if (!NumberOf(event.Find("ts"), span.start) || !NumberOf(event.Find("tid"), span.thread)) {
            error = "malformed trace: an event without a numeric \"ts\" or \"tid\"";
            return false;
        }
        if (phase == "X" && !NumberOf(event.Find("dur"), span.duration)) {
            error = "malformed trace: a complete event without a numeric \"dur\"";
            return false;
        }
        first = calls.empty() && raised.empty() && failures == 0 ? span.start : std::min(first, span.start);
        last = std::max(last, span.start + span.duration);
        const std::string category = TextOf(event.Find("cat"));
        if (phase == "i" && category == "failure") {
            ++failures;
            continue;
        }
        if (phase != "X") {
            continue;
        }
        span.name = TextOf(event.Find("name"), "?");
        const JsonValue* args = event.Find("args");
        span.owner = TextOf(args != nullptr ? args->Find("owner") : nullptr, "?");
        span.backend = TextOf(args != nullptr ? args->Find("backend") : nullptr, "-");
        const JsonValue* slow = args != nullptr ? args->Find("slow") : nullptr;
        span.slow = slow != nullptr && slow->kind == JsonValue::Kind::Bool && slow->boolean;
        (category == "call" ? calls : raised).push_back(span);
    }
    double ring = 0;
    double dropped = 0;
    NumberOf(other->Find("ring"), ring);
    NumberOf(other->Find("dropped"), dropped);
    const double seconds = (last - first) / 1e6;
    out << calls.size() << " calls, " << raised.size() << " media-stack events, " << failures << " failures over "
        << Fixed(seconds, 3) << " s; " << Fixed(dropped, 0) << " entries dropped (ring of " << Fixed(ring, 0) << ")\n";

    std::map<std::string, std::vector<const Span*>> byOperation;
    for (const Span& call : calls) {
        byOperation[call.name].push_back(&call);
    }
    out << "\nCalls per operation (microseconds)\n  " << Pad("operation", 26) << PadLeft("count", 7)
        << PadLeft("p50", 11) << PadLeft("p99", 11) << PadLeft("max", 11) << PadLeft("slow", 6) << "\n";
    for (const auto& operation : byOperation) {
        std::vector<double> durations;
        std::size_t slowCount = 0;
        for (const Span* call : operation.second) {
            durations.push_back(call->duration);
            slowCount += call->slow ? 1 : 0;
        }
        std::sort(durations.begin(), durations.end());
        out << "  " << Pad(operation.first, 26) << PadLeft(std::to_string(durations.size()), 7)
            << PadLeft(Fixed(Percentile(durations, 50)), 11) << PadLeft(Fixed(Percentile(durations, 99)), 11)
            << PadLeft(Fixed(durations.back()), 11) << PadLeft(std::to_string(slowCount), 6) << "\n";
    }

    std::vector<const Span*> ranked;
    for (const Span& call : calls) {
        ranked.push_back(&call);
    }
    std::sort(ranked.begin(), ranked.end(), [](const Span* a, const Span* b) { return a->duration > b->duration; });
    ranked.resize(std::min(ranked.size(), slowest));
    out << "\nSlowest calls\n  " << PadLeft("us", 10) << "  " << Pad("operation", 26) << Pad("owner", 30)
        << Pad("back-end", 16) << "thread\n";
    for (const Span* call : ranked) {
        out << "  " << PadLeft(Fixed(call->duration), 10) << "  " << Pad(call->name, 26) << Pad(call->owner, 30)
            << Pad(call->backend, 16) << Fixed(call->thread, 0) << (call->slow ? "  SLOW" : "") << "\n";
    }

    std::map<std::pair<std::string, std::string>, std::size_t> perBackend;
    for (const Span& event : raised) {
        ++perBackend[{event.backend, event.owner}];
    }
    out << "\nMedia-stack events per back-end\n  " << Pad("back-end", 16) << Pad("owner", 30) << PadLeft("events", 8)
        << PadLeft("per second", 12) << "\n";
    for (const auto& backend : perBackend) {
        out << "  " << Pad(backend.first.first, 16) << Pad(backend.first.second, 30)
            << PadLeft(std::to_string(backend.second), 8)
            << PadLeft(seconds > 0 ? Fixed(backend.second / seconds) : std::string("-"), 12) << "\n";
    }
    return true;
}

int SummarizeFile(const std::string& path, std::ostream& out, std::ostream& err) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        err << "velmora-trace: cannot open " << path << "\n";
        return 2;
    }
    std::ostringstream contents;
    contents << file.rdbuf();
    JsonValue trace;
    std::string error;
    if (!ParseJson(contents.str(), trace, error)) {
        err << "velmora-trace: " << path << " is not valid JSON: " << error << "\n";
        return 1;
    }
    std::ostringstream summary;
    if (!Summarize(trace, summary, error)) {
        err << "velmora-trace: " << path << ": " << error << "\n";
        return 1;
    }
    out << path << ": " << summary.str();
    return 0;
}

}  // namespace TraceSummary
