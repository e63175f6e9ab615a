#include "TraceWriter.h"

#include <cxxabi.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <map>
#include <set>

#include "Utilities.h"

namespace Velmora {
namespace Tracing {

namespace {

void AppendEscaped(std::string& out, const char* text) {
    out += '"';
    for (const char* c = text; *c != '\0'; ++c) {
        const unsigned char byte = static_cast<unsigned char>(*c);
        if (byte == '"' || byte == '\\') {
            out += '\\';
            out += *c;
        } else if (byte < 0x20 || byte >= 0x7f) {
            // Bytes outside ASCII are written as code points, so that any text stays valid JSON.
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04x", byte);
            out += escaped;
        } else {
            out += *c;
        }
    }
    out += '"';
}

std::string Microseconds(std::uint64_t ns) {
    char text[32];
    std::snprintf(text, sizeof text, "%" PRIu64 ".%03u", ns / 1000, static_cast<unsigned>(ns % 1000));
    return text;
}

// "Src/Wrapper/MediaBackendWrapper" or a mangled "N7Velmora7Wrapper19MediaBackendWrapperE": the last name.
std::string ShortName(const char* name, bool mangled) {
    if (name == nullptr) {
        return "?";
    }
    std::string text = name;
    if (mangled) {
        int status = 0;
        char* readable = abi::__cxa_demangle(name, nullptr, nullptr, &status);
        if (readable != nullptr) {
            text = readable;
            std::free(readable);
        }
    }
    const std::size_t cut = text.find_last_of(mangled ? ":" : "/");
    return cut == std::string::npos ? text : text.substr(cut + 1);
}

std::string EventName(const Record& record) {
    switch (record.slot) {
        case SlotKind::BackendEvent:
            return Wrapper::Utilities::ConvertEventIdToString(static_cast<BackendEvent::EventType>(record.code));
        case SlotKind::DrmEvent:
            return Wrapper::Utilities::ConvertEventIdToString(static_cast<DrmBackendEvent::EventType>(record.code));
        default: return "media-stack request";
    }
}

const char* EventCategory(SlotKind kind) {
    switch (kind) {
        case SlotKind::BackendEvent: return "event";
        case SlotKind::DrmEvent: return "drm event";
        default: return "request";
    }
}

void AppendHead(std::string& out, const std::string& name, const char* category, const char* phase,
                const Record& record, std::uint32_t process) {
    out += "{\"name\":";
    AppendEscaped(out, name.c_str());
    out += ",\"cat\":\"";
    out += category;
    out += "\",\"ph\":\"";
    out += phase;
    out += "\",\"ts\":" + Microseconds(record.startNs);
    out += ",\"pid\":" + std::to_string(process) + ",\"tid\":" + std::to_string(record.thread);
}

void AppendBackend(std::string& out, const void* backend) {
    if (backend != nullptr) {
        char text[32];
        std::snprintf(text, sizeof text, "%p", backend);
        out += ",\"backend\":\"";
        out += text;
        out += '"';
    }
}

void AppendRecord(std::string& out, const Record& record, std::uint32_t process) {
    switch (record.kind) {
        case RecordKind::Call:
            AppendHead(out, record.name != nullptr ? record.name : "?", "call", "X", record, process);
            out += ",\"dur\":" + Microseconds(record.durationNs) + ",\"args\":{\"owner\":";
            AppendEscaped(out, ShortName(record.context, false).c_str());
            AppendBackend(out, record.backend);
            if (record.status >= 0) {
                out += ",\"status\":" + std::to_string(record.status);
            }
            if (record.slow) {
                out += ",\"slow\":true";
            }
            out += "}}";
            break;
        case RecordKind::Event:
            AppendHead(out, EventName(record), EventCategory(record.slot), "X", record, process);
            out += ",\"dur\":" + Microseconds(record.durationNs) + ",\"args\":{\"owner\":";
            AppendEscaped(out, ShortName(record.context, true).c_str());
            AppendBackend(out, record.backend);
            out += ",\"code\":" + std::to_string(record.code) + "}}";
            break;
        case RecordKind::Failure:
            AppendHead(out, "failure", "failure", "i", record, process);
            out += ",\"s\":\"t\",\"args\":{\"operation\":";
            AppendEscaped(out, record.name != nullptr ? record.name : "teardown");
            out += ",\"errorType\":" + std::to_string(record.code) + ",\"text\":";
            AppendEscaped(out, record.detail);
            out += "}}";
            break;
    }
}

// The threads that call into the library on their own. A call made from inside a slot (a browser
// handler answering an event) runs on the media stack's thread and does not make it the browser's.
std::set<std::uint32_t> BrowserThreads(const std::vector<Record>& records) {
    std::map<std::uint32_t, std::vector<std::pair<std::uint64_t, std::uint64_t>>> slots;
    for (const Record& record : records) {
        if (record.kind == RecordKind::Event) {
            slots[record.thread].emplace_back(record.startNs, record.startNs + record.durationNs);
        }
    }
    for (auto& thread : slots) {
        std::sort(thread.second.begin(), thread.second.end());
    }
    std::set<std::uint32_t> browser;
    for (const Record& record : records) {
        if (record.kind != RecordKind::Call || browser.count(record.thread) != 0) {
            continue;
        }
        const auto& spans = slots[record.thread];
        // Slots nest only a few deep, so the few that started last before the call are enough to look at.
        auto candidate =
            std::upper_bound(spans.begin(), spans.end(), std::make_pair(record.startNs, ~std::uint64_t{0}));
        bool inSlot = false;
        for (int looked = 0; !inSlot && candidate != spans.begin() && looked < 8; ++looked) {
            --candidate;
            inSlot = candidate->second >= record.startNs + record.durationNs;
        }
        if (!inSlot) {
            browser.insert(record.thread);
        }
    }
    return browser;
}

bool WriteWhole(const std::string& path, const std::string& text, std::string& problem) {
    std::FILE* file = std::fopen(path.c_str(), "w");
    if (file == nullptr) {
        problem = "cannot open " + path + ": " + std::strerror(errno);
        return false;
    }
    const bool written = std::fwrite(text.data(), 1, text.size(), file) == text.size() && std::fflush(file) == 0;
    const int writeError = errno;
    if (std::fclose(file) != 0 || !written) {
        problem = "cannot write " + path + ": " + std::strerror(written ? errno : writeError);
        return false;
    }
    return true;
}

}  // namespace

std::string FormatTrace(const TraceContents& contents) {
    std::string out;
    out.reserve(256 + contents.records.size() * 200);
    out += "{\"traceEvents\":[\n";
    out += "{\"name\":\"process_name\",\"ph\":\"M\",\"pid\":" + std::to_string(contents.process) +
           ",\"tid\":0,\"args\":{\"name\":\"velmora\"}}";
    const std::set<std::uint32_t> browser = BrowserThreads(contents.records);
    for (const ThreadName& thread : contents.threads) {
        const std::string label =
            (browser.count(thread.thread) != 0 ? "browser (" : "media stack (") + thread.name + ")";
        out += ",\n{\"name\":\"thread_name\",\"ph\":\"M\",\"pid\":" + std::to_string(contents.process) +
               ",\"tid\":" + std::to_string(thread.thread) + ",\"args\":{\"name\":";
        AppendEscaped(out, label.c_str());
        out += "}}";
    }
    for (const Record& record : contents.records) {
        out += ",\n";
        AppendRecord(out, record, contents.process);
    }
    out += "\n],\"displayTimeUnit\":\"ms\",\"otherData\":{\"producer\":\"velmora\",\"ring\":" +
           std::to_string(contents.capacity) + ",\"dropped\":" + std::to_string(contents.dropped) + "}}\n";
    return out;
}

bool WriteTraceFile(const std::string& path, const TraceContents& contents, std::string& problem) {
    return WriteWhole(path, FormatTrace(contents), problem);
}

bool WriteEmptyTrace(const std::string& path, std::string& problem) {
    return WriteWhole(path, FormatTrace(TraceContents()), problem);
}

}  // namespace Tracing
}  // namespace Velmora
