#pragma once
// The log statement. Every source file opens one LogSite and writes
//     VELMORA_LOG(kLog, 2) << "getNativeSize" << "; " << width << "; ";
// The threshold is tested first; the stream arguments are not evaluated at all when the level is off.
// The statement is a single expression, safe under an unbraced if/else.
//
// Where no exception may leave (outside a call guard, in a catch clause, in a destructor or on a path
// that must complete), write VELMORA_LOG_QUIET instead: a line that cannot be built or sent for lack of
// memory is dropped and counted. Inside a guard VELMORA_LOG lets the failure reach the guard.

#include <atomic>
#include <sstream>

#include "Tlog/Tlog.h"

namespace Velmora {
namespace Wrapper {

struct LogFileName {
    const char* context;
    const char* file;
};

// One log context per source file.
inline constexpr LogFileName kMediaLogFile{"Velmora::M", "Src/Wrapper/MediaBackendWrapper"};
inline constexpr LogFileName kRegistryLogFile{"Velmora::Wrapper", "Src/Wrapper/UvaWrapper"};
inline constexpr LogFileName kBroadcastLogFile{"Velmora::VB", "Src/Wrapper/VideoBroadcastBackendWrapper"};
inline constexpr LogFileName kComponentLogFile{"Velmora::AV", "Src/Wrapper/AvComponentWrapper"};
inline constexpr LogFileName kDrmLogFile{"Velmora::Wrapper:Drm", "Src/Wrapper/DrmBackendWrapper"};

// A source file's log context, opened once during static initialisation.
struct LogSite {
    LogSite(const LogFileName& name, int line);
    // For a context obtained elsewhere (the platform may hand out none: null).
    LogSite(TlogContext* context, const char* file) : context(context), file(file) {}

    TlogContext* const context;  // null: every message is written
    const char* const file;
    // Written around the registry's trace lines. Empty, so that a build can decorate them all at once.
    const char* const prefix = "";
    const char* const suffix = "";
};

inline bool LogEnabled(const LogSite& site, int level) {
    return site.context == nullptr || site.context->threshold.load(std::memory_order_relaxed) <= level;
}

// The text of one log line; sent when the statement's expression completes.
class LogLine : public std::ostringstream {
public:
    LogLine(const LogSite& site, int level, int line) : site_(site), level_(level), line_(line) {}
    std::ostream& Stream() { return *this; }
    void Emit();
    // Drops the line instead of throwing when it cannot be finished.
    void EmitQuietly() noexcept;

private:
    const LogSite& site_;
    int level_;
    int line_;
};

struct LogEmitter {
    // Lower precedence than <<, so the whole line is built first.
    void operator&(std::ostream& line) const { static_cast<LogLine&>(line).Emit(); }
};

struct QuietLogEmitter {
    void operator&(std::ostream& line) const noexcept { static_cast<LogLine&>(line).EmitQuietly(); }
};

// How many quiet lines were dropped since the library was loaded.
unsigned long DroppedLogLines() noexcept;

}  // namespace Wrapper
}  // namespace Velmora

#define VELMORA_LOG_WITH(emitter, site, level)       \
    !::Velmora::Wrapper::LogEnabled((site), (level)) \
        ? static_cast<void>(0)                       \
        : ::Velmora::Wrapper::emitter() & ::Velmora::Wrapper::LogLine((site), (level), __LINE__).Stream()

#define VELMORA_LOG(site, level) VELMORA_LOG_WITH(LogEmitter, site, level)
#define VELMORA_LOG_QUIET(site, level) VELMORA_LOG_WITH(QuietLogEmitter, site, level)
