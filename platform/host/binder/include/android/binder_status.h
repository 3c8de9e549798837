#pragma once

// Status and exception codes of the NDK binder API, and the AStatus object that carries them
// through AIDL method calls.

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Low-level results of parcel and transaction operations (the values of the platform's status_t).
enum {
    STATUS_OK = 0,
    STATUS_UNKNOWN_ERROR = (-2147483647 - 1),  // INT32_MIN
    STATUS_NO_MEMORY = -12,
    STATUS_INVALID_OPERATION = -38,
    STATUS_BAD_VALUE = -22,
    STATUS_BAD_TYPE = (STATUS_UNKNOWN_ERROR + 1),
    STATUS_NAME_NOT_FOUND = -2,
    STATUS_PERMISSION_DENIED = -1,
    STATUS_NO_INIT = -19,
    STATUS_ALREADY_EXISTS = -17,
    STATUS_DEAD_OBJECT = -32,
    STATUS_FAILED_TRANSACTION = (STATUS_UNKNOWN_ERROR + 2),
    STATUS_BAD_INDEX = -75,
    STATUS_NOT_ENOUGH_DATA = -61,
    STATUS_WOULD_BLOCK = -11,
    STATUS_TIMED_OUT = -110,
    STATUS_UNKNOWN_TRANSACTION = -74,
    STATUS_FDS_NOT_ALLOWED = (STATUS_UNKNOWN_ERROR + 7),
    STATUS_UNEXPECTED_NULL = (STATUS_UNKNOWN_ERROR + 8),
};

typedef int32_t binder_status_t;

// Exceptions an AIDL method reports to its caller.
enum {
    EX_NONE = 0,
    EX_SECURITY = -1,
    EX_BAD_PARCELABLE = -2,
    EX_ILLEGAL_ARGUMENT = -3,
    EX_NULL_POINTER = -4,
    EX_ILLEGAL_STATE = -5,
    EX_NETWORK_MAIN_THREAD = -6,
    EX_UNSUPPORTED_OPERATION = -7,
    EX_SERVICE_SPECIFIC = -8,
    EX_PARCELABLE = -9,
    // The transaction itself failed; the AStatus carries a binder_status_t.
    EX_TRANSACTION_FAILED = -129,
};

typedef int32_t binder_exception_t;

typedef struct AStatus AStatus;

// A successful status. The object may be shared; AStatus_delete accepts it.
AStatus* AStatus_newOk(void);
// EX_NONE gives a successful status; unknown codes become EX_TRANSACTION_FAILED.
AStatus* AStatus_fromExceptionCode(binder_exception_t exception);
AStatus* AStatus_fromExceptionCodeWithMessage(binder_exception_t exception, const char* message);
AStatus* AStatus_fromServiceSpecificError(int32_t serviceSpecific);
AStatus* AStatus_fromServiceSpecificErrorWithMessage(int32_t serviceSpecific, const char* message);
// STATUS_OK gives a successful status, anything else EX_TRANSACTION_FAILED carrying the status.
AStatus* AStatus_fromStatus(binder_status_t status);

bool AStatus_isOk(const AStatus* status);
binder_exception_t AStatus_getExceptionCode(const AStatus* status);
// The code of an EX_SERVICE_SPECIFIC status, otherwise 0.
int32_t AStatus_getServiceSpecificError(const AStatus* status);
// The status of an EX_TRANSACTION_FAILED status, otherwise STATUS_OK.
binder_status_t AStatus_getStatus(const AStatus* status);
// Never null: empty when the status has no message.
const char* AStatus_getMessage(const AStatus* status);
// A readable description; free it with AStatus_deleteDescription.
const char* AStatus_getDescription(const AStatus* status);
void AStatus_deleteDescription(const char* description);
void AStatus_delete(AStatus* status);

#ifdef __cplusplus
}  // extern "C"
#endif
