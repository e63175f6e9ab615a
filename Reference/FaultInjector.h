#pragma once
// Switches that make an operation of the reference stack fail, so that a scenario can show the
// library's firewall at work. Shared by the root object and every back-end it creates; each operation
// calls Check() with its own name first thing, so an armed fault throws before anything changes.

#include <cstdint>
#include <map>
#include <mutex>
#include <string>

#include "Velmora/Exceptions.h"

namespace Velmora {
namespace Reference {

class FaultInjector {
public:
    enum class Kind {
        MediaStackError,    // an ExceptionBase carrying `value` as its error type
        StandardException,  // a std::runtime_error
        Int,                // the int `value` itself: what a careless C library might throw
    };

    struct Fault {
        Kind kind = Kind::MediaStackError;
        std::int32_t value = ExceptionBase::GenericError;
        bool persistent = false;  // false: the fault disarms itself after throwing once
    };

    // `operation` is the name of a media stack operation, as in "Pause", "GenerateKeyRequest" or
    // "CreateBackend". Arming it again replaces the previous fault.
    void Arm(const std::string& operation, Fault fault);
    void Disarm(const std::string& operation);
    void DisarmAll();

    // Throws the fault armed for `operation`, if there is one.
    void Check(const char* operation);

    std::uint32_t Thrown() const;

private:
    mutable std::mutex mutex;
    std::map<std::string, Fault> armed;
    std::uint32_t thrown = 0;
};

}  // namespace Reference
}  // namespace Velmora
