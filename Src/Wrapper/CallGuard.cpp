#include "CallGuard.h"

#include <exception>

#include "Velmora/Exceptions.h"

namespace Velmora {
namespace Wrapper {

UVA_STATUS StatusForErrorType(const LogSite& site, int errorType) {
    switch (errorType) {
        case ExceptionBase::GenericError: return UVA_STATUS_ERROR;
        case ExceptionBase::NotSupported:
        case ExceptionBase::NotImplemented: return UVA_STATUS_ERROR_2;
        case ExceptionBase::InvalidState: return UVA_STATUS_ERROR_3;
        default: VELMORA_LOG_QUIET(site, 5) << "Unknown error type caught: " << errorType; return UVA_STATUS_ERROR;
    }
}

UVA_STATUS ReportCurrentException(const CallPolicy& policy, bool mapErrorType) noexcept {
    const LogSite& site = *policy.site;
    UVA_STATUS status = UVA_STATUS_ERROR;
    try {
        try {
            throw;
        } catch (const ExceptionBase& failure) {
            const int errorType = failure.GetErrorType();
            Tracing::NoteFailure(errorType, failure.What());
            VELMORA_LOG_QUIET(site, policy.exceptionBaseLevel)
                << "Exception type " << errorType << ": " << failure.What();
            if (mapErrorType) {
                status = StatusForErrorType(site, errorType);
            }
        } catch (const std::exception& failure) {
            Tracing::NoteFailure(-1, failure.what());
            VELMORA_LOG_QUIET(site, 5) << policy.name << policy.failureSentence << failure.what();
        } catch (...) {
            Tracing::NoteFailure(-1, policy.unknownText);
            VELMORA_LOG_QUIET(site, 5) << policy.unknownText;
        }
    } catch (...) {
        // Nothing but the rethrow itself can land here; the browser still gets its answer.
    }
    return status;
}

void ReportTeardownFailure(const LogSite& site, const char* text) noexcept {
    Tracing::NoteFailure(-1, text);
    VELMORA_LOG_QUIET(site, 5) << text;
}

}  // namespace Wrapper
}  // namespace Velmora
