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
    LogCapture() {
        Tlog::SetDefaultThreshold(0);
        Tlog::SetSink([this](const Tlog::Record& record) {
            std::lock_guard<std::mutex> lock(mutex_);
            records_.push_back(record);
        });
    }
    ~LogCapture() {
        Tlog::SetSink(nullptr);
        Tlog::ResetThresholds();
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    // Every record, or only those of one context (for example "Velmora::M").
    std::vector<Tlog::Record> Records(const std::string& context = "") const {
        std::lock_guard<std::mutex> lock(mutex_);
        std::vector<Tlog::Record> selected;
        for (const auto& record : records_) {
            if (context.empty() || record.context == context) selected.push_back(record);
        }
        return selected;
    }
    void Clear() {
        std::lock_guard<std::mutex> lock(mutex_);
        records_.clear();
    }

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
