#include "TraceSettings.h"

#include <cerrno>
#include <cstdlib>

namespace Velmora {
namespace Tracing {

namespace {

bool ToNumber(const std::string& text, unsigned long long& value) {
    if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos) {
        return false;
    }
    errno = 0;
    value = std::strtoull(text.c_str(), nullptr, 10);
    return errno == 0;
}

}  // namespace

std::string ParseTraceSettings(const std::string& text, TraceSettings& settings) {
    const std::string variable = std::string(kTraceVariable) + "=" + text + ": ";
    std::size_t comma = text.find(',');
    settings.path = text.substr(0, comma);
    if (settings.path.empty()) {
        return variable + "no path before the first comma";
    }
    while (comma != std::string::npos) {
        const std::size_t next = text.find(',', comma + 1);
        const std::string item = text.substr(comma + 1, next == std::string::npos ? next : next - comma - 1);
        comma = next;
        const std::size_t equals = item.find('=');
        const std::string key = item.substr(0, equals);
        unsigned long long value = 0;
        if (equals == std::string::npos || !ToNumber(item.substr(equals + 1), value)) {
            return variable + "expected ring=ENTRIES or slow=MILLISECONDS, not \"" + item + "\"";
        }
        if (key == "ring") {
            // Out-of-range sizes are refused, with their range, when the trace starts.
            settings.ringEntries = value > Trace::kMaxRingEntries ? Trace::kMaxRingEntries + 1 : value;
        } else if (key == "slow") {
            const std::string problem =
                ParseSlowCallMilliseconds(item.substr(equals + 1), settings.slowCallMilliseconds);
            if (!problem.empty()) {
                return variable + problem;
            }
        } else {
            return variable + "unknown setting \"" + key + "\" (known: ring, slow)";
        }
    }
    return std::string();
}

std::string ParseSlowCallMilliseconds(const std::string& text, unsigned& milliseconds) {
    unsigned long long value = 0;
    if (!ToNumber(text, value) || value == 0 || value > 3600000) {
        return "slow-call threshold must be 1 to 3600000 milliseconds, not \"" + text + "\"";
    }
    milliseconds = static_cast<unsigned>(value);
    return std::string();
}

}  // namespace Tracing
}  // namespace Velmora
