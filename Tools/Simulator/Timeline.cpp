#include "Timeline.h"

#include <cstdio>

namespace Simulator {

const char* StatusName(UVA_STATUS status) {
    switch (status) {
        case UVA_STATUS_OK: return "OK";
        case UVA_STATUS_ERROR: return "ERROR";
        case UVA_STATUS_ERROR_2: return "ERROR_2";
        case UVA_STATUS_ERROR_3: return "ERROR_3";
    }
    return "?";
}

void Timeline::MarkBrowserThread() {
    const std::lock_guard<std::mutex> lock(mutex);
    browser = std::this_thread::get_id();
}

std::string Timeline::ThreadName() {
    const auto id = std::this_thread::get_id();
    if (id == browser) {
        return "browser";
    }
    auto found = names.find(id);
    if (found == names.end()) {
        found = names.emplace(id, "media#" + std::to_string(names.size() + 1)).first;
    }
    return found->second;
}

void Timeline::Line(const char* kind, const std::string& text) {
    std::printf("  %-8s %-6s %s\n", ThreadName().c_str(), kind, text.c_str());
    std::fflush(stdout);
}

void Timeline::Heading(const std::string& text) {
    const std::lock_guard<std::mutex> lock(mutex);
    std::printf("\n== %s\n", text.c_str());
}

void Timeline::Note(const std::string& text) {
    const std::lock_guard<std::mutex> lock(mutex);
    Line("  ..", text);
}

UVA_STATUS Timeline::Call(const std::string& call, UVA_STATUS status, UVA_STATUS expected) {
    const std::lock_guard<std::mutex> lock(mutex);
    ++calls;
    ++statuses[status];
    Line("call", call + " -> " + StatusName(status));
    if (status != expected) {
        failures.push_back(call + " answered " + StatusName(status) + ", expected " + StatusName(expected));
        Line("FAIL", failures.back());
    }
    return status;
}

void Timeline::Event(const std::string& text) {
    const std::lock_guard<std::mutex> lock(mutex);
    ++events;
    Line("event", text);
}

void Timeline::Log(const std::string& text) {
    const std::lock_guard<std::mutex> lock(mutex);
    Line("log", text);
}

bool Timeline::Expect(bool condition, const std::string& what) {
    const std::lock_guard<std::mutex> lock(mutex);
    if (!condition) {
        failures.push_back(what);
        Line("FAIL", what);
    }
    return condition;
}

void Timeline::AddBytes(std::uint64_t count) {
    const std::lock_guard<std::mutex> lock(mutex);
    bytes += count;
}

void Timeline::PrintSummary(long alive) {
    const std::lock_guard<std::mutex> lock(mutex);
    std::printf(
        "\n== Summary\n  browser calls:   %u\n  events:          %u\n  bytes written:   %llu\n  statuses:       ",
        calls, events, static_cast<unsigned long long>(bytes));
    for (const auto& [status, count] : statuses) {
        std::printf(" %s x%u", StatusName(static_cast<UVA_STATUS>(status)), count);
    }
    std::printf("\n  objects alive:   %ld\n  broken:          %zu\n", alive, failures.size());
    for (const auto& failure : failures) {
        std::printf("    - %s\n", failure.c_str());
    }
    std::printf("%s\n", failures.empty() ? "PASSED" : "FAILED");
    std::fflush(stdout);
}

bool Timeline::Failed() const {
    const std::lock_guard<std::mutex> lock(mutex);
    return !failures.empty();
}

}  // namespace Simulator
