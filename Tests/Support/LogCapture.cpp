#include "Support/LogCapture.h"

namespace VelmoraTest {

LogCapture::LogCapture() {
    Tlog::SetDefaultThreshold(0);
    Tlog::SetSink([this](const Tlog::Record& record) {
        std::lock_guard<std::mutex> lock(mutex_);
        records_.push_back(record);
    });
}

LogCapture::~LogCapture() {
    Tlog::SetSink(nullptr);
    Tlog::ResetThresholds();
}

std::vector<Tlog::Record> LogCapture::Records() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return records_;
}

std::vector<Tlog::Record> LogCapture::Records(const std::string& context) const {
    std::vector<Tlog::Record> selected;
    for (const auto& record : Records()) {
        if (record.context == context) {
            selected.push_back(record);
        }
    }
    return selected;
}

void LogCapture::Clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    records_.clear();
}

}  // namespace VelmoraTest
