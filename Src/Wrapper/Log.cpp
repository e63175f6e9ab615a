#include "Log.h"

namespace Velmora {
namespace Wrapper {

LogSite::LogSite(const LogFileName& name, int line)
    : context(TlogContext::GetLogContext(name.context, name.file, line)), file(name.file) {}

void LogLine::Emit() {
    const std::string text = str();
    TlogPrintf(site_.context, level_, site_.file, line_, "%s", text.c_str());
}

}  // namespace Wrapper
}  // namespace Velmora
