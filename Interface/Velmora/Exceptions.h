#pragma once
// How the media stack reports failures: by throwing an ExceptionBase (or a subclass). The library
// catches every exception at its boundary and turns the error type into the browser's status:
// 1 -> 0, 2 -> 2, 3 -> 3, 4 -> 2, anything else -> 0. The library itself throws only
// GenericErrorException. what() keeps the standard text; the message is reached through What().

#include <cstdint>
#include <exception>
#include <string>

#include "Velmora/Export.h"

namespace Velmora {

class VELMORA_EXPORT ExceptionBase : public std::exception {
public:
    enum ErrorType : std::int32_t {
        GenericError = 1,
        NotSupported = 2,
        InvalidState = 3,
        NotImplemented = 4,
    };

    ExceptionBase(std::int32_t errorType, const std::string& message);
    ~ExceptionBase() override;

    virtual std::int32_t GetErrorType() const;
    virtual const char* What() const;

private:
    std::int32_t errorType_;
    std::string message_;
};

class VELMORA_EXPORT GenericErrorException : public ExceptionBase {
public:
    explicit GenericErrorException(const std::string& message);
    ~GenericErrorException() override;
};

}  // namespace Velmora
