#pragma once
// The readable record of a session: every browser call with its status, every event the browser
// receives, on which thread, and the expectations that broke. Thread-safe: events arrive on the media
// stack's threads.

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Uva/UVAStatus.h"

namespace Simulator {

class Timeline {
public:
    // The thread that calls this becomes "browser"; every other thread is named "media#N" when first seen.
    void MarkBrowserThread();

    void Heading(const std::string& text);
    void Note(const std::string& text);
    // A browser call and its status; the status must be `expected`.
    UVA_STATUS Call(const std::string& call, UVA_STATUS status, UVA_STATUS expected = UVA_STATUS_OK);
    void Event(const std::string& text);
    void Log(const std::string& text);
    bool Expect(bool condition, const std::string& what);
    void AddBytes(std::uint64_t bytes);

    // Prints the totals; `alive` is the number of browser-side objects left over.
    void PrintSummary(long alive);
    bool Failed() const;

private:
    void Line(const char* kind, const std::string& text);
    std::string ThreadName();

    mutable std::mutex mutex;
    std::thread::id browser;
    std::map<std::thread::id, std::string> names;
    std::uint32_t calls = 0;
    std::uint32_t events = 0;
    std::uint64_t bytes = 0;
    std::map<int, std::uint32_t> statuses;
    std::vector<std::string> failures;
};

const char* StatusName(UVA_STATUS status);

}  // namespace Simulator
