#pragma once
// Captures every line the library logs (all levels), so tests can assert exact lines and levels.

#include <gmock/gmock.h>

#include <mutex>
#include <string>
#include <vector>

#include "Tlog/Tlog.h"

namespace VelmoraTest {

class LogCapture {
public:
    // Lets every level through and captures instead of writing to stderr.
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<Tlog::Record> Records() const;
    // Only the records of one context (for example "Velmora::M").
    std::vector<Tlog::Record> Records(const std::string& context) const;
    void Clear();

private:
    mutable std::mutex mutex_;
    std::vector<Tlog::Record> records_;
};

// Matches a record of exactly this level and text.
MATCHER_P2(LogLine, level, text, std::string("a level-") + std::to_string(level) + " line \"" + text + "\"") {
    *result_listener << "level " << arg.level << " \"" << arg.text << "\"";
    return arg.level == level && arg.text == std::string(text);
}

}  // namespace VelmoraTest
