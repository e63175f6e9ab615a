#include "Velmora/Exceptions.h"

namespace Velmora {

ExceptionBase::ExceptionBase(std::int32_t errorType, const std::string& message)
    : errorType_(errorType), message_(message) {}

ExceptionBase::~ExceptionBase() = default;

std::int32_t ExceptionBase::GetErrorType() const { return errorType_; }

const char* ExceptionBase::What() const { return message_.c_str(); }

GenericErrorException::GenericErrorException(const std::string& message) : ExceptionBase(GenericError, message) {}

GenericErrorException::~GenericErrorException() = default;

}  // namespace Velmora
