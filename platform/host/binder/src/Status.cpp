// AStatus: the result of an AIDL method as its caller sees it.

#include <android/binder_status.h>

#include <cstring>
#include <string>

#include "Internal.h"

namespace {

// The shared successful status handed out by AStatus_newOk. Never destroyed, so that binder
// threads still running at exit can use it.
AStatus* const gOk = new AStatus;

bool isKnownStatus(binder_status_t status) {
    switch (status) {
        case STATUS_OK:
        case STATUS_UNKNOWN_ERROR:
        case STATUS_NO_MEMORY:
        case STATUS_INVALID_OPERATION:
        case STATUS_BAD_VALUE:
        case STATUS_BAD_TYPE:
        case STATUS_NAME_NOT_FOUND:
        case STATUS_PERMISSION_DENIED:
        case STATUS_NO_INIT:
        case STATUS_ALREADY_EXISTS:
        case STATUS_DEAD_OBJECT:
        case STATUS_FAILED_TRANSACTION:
        case STATUS_BAD_INDEX:
        case STATUS_NOT_ENOUGH_DATA:
        case STATUS_WOULD_BLOCK:
        case STATUS_TIMED_OUT:
        case STATUS_UNKNOWN_TRANSACTION:
        case STATUS_FDS_NOT_ALLOWED:
        case STATUS_UNEXPECTED_NULL:
            return true;
        default:
            return false;
    }
}

// Statuses outside the NDK's list collapse into STATUS_UNKNOWN_ERROR, as the platform does.
binder_status_t pruneStatus(binder_status_t status) {
    return isKnownStatus(status) ? status : STATUS_UNKNOWN_ERROR;
}

const char* exceptionName(binder_exception_t exception) {
    switch (exception) {
        case EX_NONE:
            return "EX_NONE";
        case EX_SECURITY:
            return "EX_SECURITY";
        case EX_BAD_PARCELABLE:
            return "EX_BAD_PARCELABLE";
        case EX_ILLEGAL_ARGUMENT:
            return "EX_ILLEGAL_ARGUMENT";
        case EX_NULL_POINTER:
            return "EX_NULL_POINTER";
        case EX_ILLEGAL_STATE:
            return "EX_ILLEGAL_STATE";
        case EX_NETWORK_MAIN_THREAD:
            return "EX_NETWORK_MAIN_THREAD";
        case EX_UNSUPPORTED_OPERATION:
            return "EX_UNSUPPORTED_OPERATION";
        case EX_SERVICE_SPECIFIC:
            return "EX_SERVICE_SPECIFIC";
        case EX_PARCELABLE:
            return "EX_PARCELABLE";
        case EX_TRANSACTION_FAILED:
            return "EX_TRANSACTION_FAILED";
        default:
            return "UNKNOWN";
    }
}

// Exceptions outside the NDK's list are reported as a failed transaction.
binder_exception_t pruneException(binder_exception_t exception) {
    if (std::strcmp(exceptionName(exception), "UNKNOWN") == 0) return EX_TRANSACTION_FAILED;
    return exception;
}

const char* statusName(binder_status_t status) {
    switch (status) {
        case STATUS_OK:
            return "STATUS_OK";
        case STATUS_UNKNOWN_ERROR:
            return "STATUS_UNKNOWN_ERROR";
        case STATUS_NO_MEMORY:
            return "STATUS_NO_MEMORY";
        case STATUS_INVALID_OPERATION:
            return "STATUS_INVALID_OPERATION";
        case STATUS_BAD_VALUE:
            return "STATUS_BAD_VALUE";
        case STATUS_BAD_TYPE:
            return "STATUS_BAD_TYPE";
        case STATUS_NAME_NOT_FOUND:
            return "STATUS_NAME_NOT_FOUND";
        case STATUS_PERMISSION_DENIED:
            return "STATUS_PERMISSION_DENIED";
        case STATUS_NO_INIT:
            return "STATUS_NO_INIT";
        case STATUS_ALREADY_EXISTS:
            return "STATUS_ALREADY_EXISTS";
        case STATUS_DEAD_OBJECT:
            return "STATUS_DEAD_OBJECT";
        case STATUS_FAILED_TRANSACTION:
            return "STATUS_FAILED_TRANSACTION";
        case STATUS_BAD_INDEX:
            return "STATUS_BAD_INDEX";
        case STATUS_NOT_ENOUGH_DATA:
            return "STATUS_NOT_ENOUGH_DATA";
        case STATUS_WOULD_BLOCK:
            return "STATUS_WOULD_BLOCK";
        case STATUS_TIMED_OUT:
            return "STATUS_TIMED_OUT";
        case STATUS_UNKNOWN_TRANSACTION:
            return "STATUS_UNKNOWN_TRANSACTION";
        case STATUS_FDS_NOT_ALLOWED:
            return "STATUS_FDS_NOT_ALLOWED";
        case STATUS_UNEXPECTED_NULL:
            return "STATUS_UNEXPECTED_NULL";
        default:
            return "STATUS_UNKNOWN_ERROR";
    }
}

AStatus* make(binder_exception_t exception, int32_t errorCode, const char* message) {
    auto* status = new AStatus;
    status->exception = exception;
    status->errorCode = errorCode;
    if (message != nullptr) status->message = message;
    return status;
}

AStatus* fromException(binder_exception_t exception, const char* message) {
    exception = pruneException(exception);
    // A failed transaction without a specific status is reported as STATUS_FAILED_TRANSACTION.
    const int32_t code = exception == EX_TRANSACTION_FAILED ? STATUS_FAILED_TRANSACTION : 0;
    return make(exception, code, message);
}

}  // namespace

extern "C" {

AStatus* AStatus_newOk(void) {
    return gOk;
}

AStatus* AStatus_fromExceptionCode(binder_exception_t exception) {
    return fromException(exception, nullptr);
}

AStatus* AStatus_fromExceptionCodeWithMessage(binder_exception_t exception, const char* message) {
    return fromException(exception, message);
}

AStatus* AStatus_fromServiceSpecificError(int32_t serviceSpecific) {
    return make(EX_SERVICE_SPECIFIC, serviceSpecific, nullptr);
}

AStatus* AStatus_fromServiceSpecificErrorWithMessage(int32_t serviceSpecific, const char* message) {
    return make(EX_SERVICE_SPECIFIC, serviceSpecific, message);
}

AStatus* AStatus_fromStatus(binder_status_t status) {
    status = pruneStatus(status);
    // Every proxy call ends here on success: hand out the shared object rather than allocate.
    if (status == STATUS_OK) return gOk;
    return make(EX_TRANSACTION_FAILED, status, nullptr);
}

// A null status is treated as a failed transaction that carries no detail: callers that forget
// to check for null get a failure, not a crash.
bool AStatus_isOk(const AStatus* status) {
    return status != nullptr && status->exception == EX_NONE;
}

binder_exception_t AStatus_getExceptionCode(const AStatus* status) {
    return status == nullptr ? EX_TRANSACTION_FAILED : status->exception;
}

int32_t AStatus_getServiceSpecificError(const AStatus* status) {
    if (status == nullptr || status->exception != EX_SERVICE_SPECIFIC) return 0;
    return status->errorCode;
}

binder_status_t AStatus_getStatus(const AStatus* status) {
    if (status == nullptr) return STATUS_UNEXPECTED_NULL;
    if (status->exception != EX_TRANSACTION_FAILED) return STATUS_OK;
    return status->errorCode;
}

const char* AStatus_getMessage(const AStatus* status) {
    return status == nullptr ? "" : status->message.c_str();
}

const char* AStatus_getDescription(const AStatus* status) {
    std::string text;
    if (status == nullptr) {
        text = "Status(null)";
    } else if (status->exception == EX_NONE) {
        text = "No error";
    } else {
        text = "Status(" + std::to_string(status->exception) + ", " +
               exceptionName(status->exception) + "): '";
        if (status->exception == EX_SERVICE_SPECIFIC) {
            text += std::to_string(status->errorCode) + ": ";
        } else if (status->exception == EX_TRANSACTION_FAILED) {
            text += std::string(statusName(status->errorCode)) + ": ";
        }
        text += status->message + "'";
    }
    char* copy = new char[text.size() + 1];
    std::memcpy(copy, text.c_str(), text.size() + 1);
    return copy;
}

void AStatus_deleteDescription(const char* description) {
    delete[] description;
}

void AStatus_delete(AStatus* status) {
    if (status != gOk) delete status;
}

}  // extern "C"
