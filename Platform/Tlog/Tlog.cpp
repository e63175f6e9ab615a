#include "Tlog/Tlog.h"

#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <sstream>
#include <vector>

namespace {

struct Registry {
    std::mutex mutex;
    std::map<std::string, std::unique_ptr<TlogContext>> contexts;
    std::map<std::string, std::int32_t> explicitThresholds;
    std::int32_t defaultThreshold = Tlog::kDefaultThreshold;
    Tlog::Sink sink;

    Registry() { ReadEnvironment(); }

    void ReadEnvironment() {
        explicitThresholds.clear();
        defaultThreshold = Tlog::kDefaultThreshold;
        const char* levels = std::getenv("TLOG_LEVELS");
        if (levels == nullptr) {
            return;
        }
        std::istringstream entries(levels);
        std::string entry;
        std::string ignored;
        while (std::getline(entries, entry, ',')) {
            const auto equals = entry.rfind('=');
            std::int32_t level = 0;
            if (equals == std::string::npos || equals == 0 || !ParseLevel(entry.substr(equals + 1), level)) {
                ignored += (ignored.empty() ? "\"" : ", \"") + entry + "\"";
                continue;
            }
            const std::string name = entry.substr(0, equals);
            if (name == "default") {
                defaultThreshold = level;
            } else {
                explicitThresholds[name] = level;
            }
        }
        // One line for the whole variable: a typo must not pass silently, nor flood the log.
        if (!ignored.empty()) {
            std::fprintf(stderr, "TLOG_LEVELS: ignoring %s (expected NAME=LEVEL, LEVEL a whole number)\n",
                         ignored.c_str());
        }
    }

    static bool ParseLevel(const std::string& text, std::int32_t& level) {
        if (text.empty() || !(text[0] == '-' || (text[0] >= '0' && text[0] <= '9'))) {
            return false;
        }
        char* end = nullptr;
        errno = 0;
        const long long value = std::strtoll(text.c_str(), &end, 10);
        if (*end != '\0' || errno != 0 || value < INT32_MIN || value > INT32_MAX) {
            return false;
        }
        level = static_cast<std::int32_t>(value);
        return true;
    }

    std::int32_t ThresholdFor(const std::string& name) const {
        const auto found = explicitThresholds.find(name);
        return found == explicitThresholds.end() ? defaultThreshold : found->second;
    }

    void ApplyThresholds() {
        for (auto& entry : contexts) {
            entry.second->threshold.store(ThresholdFor(entry.first), std::memory_order_relaxed);
        }
    }
};

Registry& TheRegistry() {
    static Registry* registry = new Registry;  // never destroyed: contexts outlive every static user
    return *registry;
}

}  // namespace

TlogContext* TlogContext::GetLogContext(const char* name, const char*, int) {
    Registry& registry = TheRegistry();
    const std::string key = name == nullptr ? std::string() : std::string(name);
    std::lock_guard<std::mutex> lock(registry.mutex);
    auto& slot = registry.contexts[key];
    if (!slot) {
        slot.reset(new TlogContext);
        slot->id = static_cast<std::int32_t>(registry.contexts.size());
        slot->threshold.store(registry.ThresholdFor(key), std::memory_order_relaxed);
        slot->name = registry.contexts.find(key)->first.c_str();
    }
    return slot.get();
}

void TlogPrintf(TlogContext* context, int level, const char* file, int line, const char* format, ...) {
    if (context != nullptr && context->threshold.load(std::memory_order_relaxed) > level) {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    va_list measuring;
    va_copy(measuring, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, measuring);
    va_end(measuring);
    std::vector<char> text(length > 0 ? static_cast<std::size_t>(length) + 1 : 1, '\0');
    if (length > 0) {
        std::vsnprintf(text.data(), text.size(), format, arguments);
    }
    va_end(arguments);

    Registry& registry = TheRegistry();
    std::lock_guard<std::mutex> lock(registry.mutex);
    const char* contextName = context != nullptr ? context->name : "";
    if (registry.sink) {
        registry.sink(Tlog::Record{contextName, level, file != nullptr ? file : "", line, text.data()});
        return;
    }
    std::fprintf(stderr, "%d %s %s:%d: %s\n", level, contextName, file != nullptr ? file : "", line, text.data());
}

namespace Tlog {

void SetSink(Sink sink) {
    Registry& registry = TheRegistry();
    std::lock_guard<std::mutex> lock(registry.mutex);
    registry.sink = std::move(sink);
}

void SetThreshold(const std::string& contextName, std::int32_t threshold) {
    Registry& registry = TheRegistry();
    std::lock_guard<std::mutex> lock(registry.mutex);
    registry.explicitThresholds[contextName] = threshold;
    registry.ApplyThresholds();
}

void SetDefaultThreshold(std::int32_t threshold) {
    Registry& registry = TheRegistry();
    std::lock_guard<std::mutex> lock(registry.mutex);
    registry.defaultThreshold = threshold;
    registry.ApplyThresholds();
}

void ResetThresholds() {
    Registry& registry = TheRegistry();
    std::lock_guard<std::mutex> lock(registry.mutex);
    registry.ReadEnvironment();
    registry.ApplyThresholds();
}

}  // namespace Tlog
