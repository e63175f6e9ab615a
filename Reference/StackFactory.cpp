// The reference stack's factory, so that an owner can load it by path like any other media stack.
// Options: `clock=threaded|manual` (default threaded) and `step-ms=N` (1 to 10000, default 40).

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include "ReferenceUva.h"
#include "Velmora/StackFactory.h"

namespace {

bool ApplyOption(const std::string& name, const std::string& value, Velmora::Reference::StackOptions& options) {
    if (name == "clock" && (value == "threaded" || value == "manual")) {
        options.clock = value == "manual" ? Velmora::Reference::Clock::Manual : Velmora::Reference::Clock::Threaded;
        return true;
    }
    if (name == "step-ms" && !value.empty()) {
        char* end = nullptr;
        errno = 0;
        const long milliseconds = std::strtol(value.c_str(), &end, 10);
        if (errno == 0 && *end == '\0' && milliseconds >= 1 && milliseconds <= 10000) {
            options.stepPeriod = std::chrono::milliseconds(milliseconds);
            return true;
        }
    }
    return false;
}

bool ParseOptions(const char* text, Velmora::Reference::StackOptions& options) {
    std::string refused;
    if (Velmora::ForEachStackOption(
            text, [&](const std::string& name, const std::string& value) { return ApplyOption(name, value, options); },
            refused)) {
        return true;
    }
    std::fprintf(stderr, "velmora reference stack: unknown option or bad value: %s\n", refused.c_str());
    return false;
}

}  // namespace

VELMORA_STACK_FACTORY Velmora::IUva* VelmoraCreateStack(unsigned interfaceVersion, const char* options) {
    if (interfaceVersion != VELMORA_STACK_INTERFACE_VERSION) {
        std::fprintf(stderr, "velmora reference stack: built for interface version %u, asked for %u\n",
                     VELMORA_STACK_INTERFACE_VERSION, interfaceVersion);
        return nullptr;
    }
    try {
        Velmora::Reference::StackOptions stackOptions;
        return ParseOptions(options, stackOptions) ? new Velmora::Reference::ReferenceUva(stackOptions) : nullptr;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "velmora reference stack: %s\n", failure.what());
    } catch (...) {
        std::fprintf(stderr, "velmora reference stack: unknown failure\n");
    }
    return nullptr;
}
