#include "Harness.h"

#include <dlfcn.h>

#include <exception>

#include "Tlog/Tlog.h"
#include "Velmora/StackFactory.h"

namespace Check {

Harness::Harness(const std::string& path, const std::string& options) {
    Tlog::SetSink([this](const Tlog::Record& record) {
        const std::lock_guard<std::mutex> lock(mutex);
        lines.push_back({record.level, record.context + ": " + record.text});
    });
    // Kept open for the rest of the process: the stack's code runs its back-ends' destructors.
    void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        error = std::string("cannot load the stack library: ") + dlerror();
        return;
    }
    const auto create = reinterpret_cast<Velmora::StackFactory>(dlsym(library, VELMORA_STACK_FACTORY_SYMBOL));
    if (create == nullptr) {
        error = std::string("the library exports no ") + VELMORA_STACK_FACTORY_SYMBOL;
        return;
    }
    Velmora::IUva* uva = nullptr;
    try {
        uva = create(VELMORA_STACK_INTERFACE_VERSION, options.c_str());
    } catch (const std::exception& failure) {
        error = std::string(VELMORA_STACK_FACTORY_SYMBOL) + " threw (it must never throw): " + failure.what();
        return;
    } catch (...) {
        error = std::string(VELMORA_STACK_FACTORY_SYMBOL) + " threw a foreign type (it must never throw)";
        return;
    }
    if (uva == nullptr) {
        error = std::string(VELMORA_STACK_FACTORY_SYMBOL) + " returned null for options \"" + options + "\"";
        return;
    }
    try {
        layer = std::make_unique<Velmora::Wrapper::IntegrationLayer>(uva);
    } catch (const std::exception& failure) {
        error = std::string("the library could not take the stack: ") + failure.what();
    }
}

std::vector<std::string> Harness::Logged(int level, const std::string& text) const {
    const std::lock_guard<std::mutex> lock(mutex);
    std::vector<std::string> found;
    for (const Line& line : lines) {
        if (line.level >= level && line.text.find(text) != std::string::npos) {
            found.push_back(line.text);
        }
    }
    return found;
}

std::size_t Harness::LineCount() const {
    const std::lock_guard<std::mutex> lock(mutex);
    return lines.size();
}

std::string Harness::LastLine(int level) const {
    const std::lock_guard<std::mutex> lock(mutex);
    for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
        if (line->level >= level) {
            return line->text;
        }
    }
    return "(nothing logged)";
}

}  // namespace Check
