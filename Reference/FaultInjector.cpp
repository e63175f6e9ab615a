#include "FaultInjector.h"

#include <stdexcept>

namespace Velmora {
namespace Reference {

void FaultInjector::Arm(const std::string& operation, Fault fault) {
    const std::lock_guard<std::mutex> lock(mutex);
    armed[operation] = fault;
}

void FaultInjector::Disarm(const std::string& operation) {
    const std::lock_guard<std::mutex> lock(mutex);
    armed.erase(operation);
}

void FaultInjector::DisarmAll() {
    const std::lock_guard<std::mutex> lock(mutex);
    armed.clear();
}

void FaultInjector::Check(const char* operation) {
    Fault fault;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        const auto found = armed.find(operation);
        if (found == armed.end()) {
            return;
        }
        fault = found->second;
        if (!fault.persistent) {
            armed.erase(found);
        }
        ++thrown;
    }
    const std::string message = std::string("injected fault in ") + operation;
    switch (fault.kind) {
        case Kind::MediaStackError: throw ExceptionBase(fault.value, message);
        case Kind::StandardException: throw std::runtime_error(message);
        case Kind::Int: throw static_cast<int>(fault.value);
    }
}

std::uint32_t FaultInjector::Thrown() const {
    const std::lock_guard<std::mutex> lock(mutex);
    return thrown;
}

}  // namespace Reference
}  // namespace Velmora
