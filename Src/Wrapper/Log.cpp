#include "Log.h"

namespace Velmora {
namespace Wrapper {

namespace {

std::atomic<unsigned long> droppedLines{0};

}  // namespace

LogSite::LogSite(const LogFileName& name, int line)
    : context(TlogContext::GetLogContext(name.context, name.file, line)), file(name.file) {}

void LogLine::Emit() {
    const std::string text = str();
    TlogPrintf(site_.context, level_, site_.file, line_, "%s", text.c_str());
}

void LogLine::EmitQuietly() noexcept {
    // A failed stream means an insertion ran out of memory: the line would be cut short.
    if (bad()) {
        droppedLines.fetch_add(1, std::memory_order_relaxed);
        return;
    }
    try {
        Emit();
    } catch (...) {
        droppedLines.fetch_add(1, std::memory_order_relaxed);
    }
}

unsigned long DroppedLogLines() noexcept { return droppedLines.load(std::memory_order_relaxed); }

}  // namespace Wrapper
}  // namespace Velmora
