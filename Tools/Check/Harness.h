#pragma once
// One check's view of the stack under test: the stack library opened by path, its root object made by
// the stack factory, the library put in front of it, and what the library logged meanwhile.

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Velmora/IntegrationLayer.h"

namespace Check {

class Harness {
public:
    // Opens `path`, calls its factory with `options` and hands the stack to an IntegrationLayer. On
    // failure Ready() is false and Error() says which step failed and why.
    Harness(const std::string& path, const std::string& options);

    bool Ready() const { return layer != nullptr; }
    const std::string& Error() const { return error; }
    Velmora::Wrapper::IntegrationLayer& Layer() { return *layer; }
    // Destroys the IntegrationLayer, and with it the stack's root object.
    void Stop() { layer.reset(); }

    // The library's log lines of at least `level` that contain `text`, oldest first.
    std::vector<std::string> Logged(int level, const std::string& text) const;
    std::size_t LineCount() const;
    // The last line of at least `level`, or "(nothing logged)".
    std::string LastLine(int level) const;

private:
    struct Line {
        int level;
        std::string text;
    };

    std::string error;
    mutable std::mutex mutex;
    std::vector<Line> lines;
    std::unique_ptr<Velmora::Wrapper::IntegrationLayer> layer;
};

}  // namespace Check
