#pragma once
// Stand-in for the platform log library.
//
// A context is one named log channel. Its record keeps the threshold as its second 32-bit field:
// callers may read it directly to skip building a message that would be dropped (a message of level L
// is written when the threshold is not above L). Thresholds come from the environment variable
// TLOG_LEVELS, for example "default=4,Velmora::M=2": comma-separated name=level pairs, where "default"
// applies to every context not named. Without the variable every context starts at level 4.
//
// Output: one line per message on stderr, "<level> <context> <file>:<line>: <text>", unless a test
// installed a sink, which then receives every record instead. All functions are thread-safe.

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

struct TlogContext {
    std::int32_t id;
    std::atomic<std::int32_t> threshold;
    const char* name;

    static TlogContext* GetLogContext(const char* name, const char* file, int line);
};

static_assert(sizeof(std::atomic<std::int32_t>) == 4, "the threshold must stay a plain 32-bit field");

void TlogPrintf(TlogContext* context, int level, const char* file, int line, const char* format, ...)
    __attribute__((format(printf, 5, 6)));

namespace Tlog {

constexpr std::int32_t kDefaultThreshold = 4;

struct Record {
    std::string context;  // empty for the null context
    int level;
    std::string file;
    int line;
    std::string text;
};

using Sink = std::function<void(const Record&)>;

// Replaces stderr output by `sink` (an empty sink restores stderr).
void SetSink(Sink sink);

// Sets the threshold of the named context, now and for contexts created later.
void SetThreshold(const std::string& contextName, std::int32_t threshold);

// Sets the threshold of every context not named explicitly, now and later.
void SetDefaultThreshold(std::int32_t threshold);

// Forgets explicit thresholds and re-reads TLOG_LEVELS.
void ResetThresholds();

}  // namespace Tlog
