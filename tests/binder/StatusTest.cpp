// AStatus (ScopedAStatus and the interface helpers carry every stub of tests/conformance).

#include <android/binder_status.h>
#include <gtest/gtest.h>

namespace {

TEST(StatusTest, EachAccessorAnswersOnlyForItsOwnKindOfFailure) {
    struct Row {
        AStatus* status;
        binder_exception_t exception;
        binder_status_t transactionStatus;
        int32_t serviceSpecific;
        const char* message;
    };
    const Row rows[] = {
            {AStatus_fromStatus(STATUS_OK), EX_NONE, STATUS_OK, 0, ""},
            {AStatus_fromStatus(STATUS_DEAD_OBJECT), EX_TRANSACTION_FAILED, STATUS_DEAD_OBJECT, 0,
             ""},
            // Values outside the status list are not passed through.
            {AStatus_fromStatus(-12345), EX_TRANSACTION_FAILED, STATUS_UNKNOWN_ERROR, 0, ""},
            {AStatus_fromServiceSpecificErrorWithMessage(-3, "m"), EX_SERVICE_SPECIFIC, STATUS_OK,
             -3, "m"},
            {AStatus_fromServiceSpecificError(0), EX_SERVICE_SPECIFIC, STATUS_OK, 0, ""},
            {AStatus_fromExceptionCode(EX_TRANSACTION_FAILED), EX_TRANSACTION_FAILED,
             STATUS_FAILED_TRANSACTION, 0, ""},
            {AStatus_fromExceptionCode(-77), EX_TRANSACTION_FAILED, STATUS_FAILED_TRANSACTION, 0,
             ""},
            {AStatus_fromExceptionCodeWithMessage(EX_NONE, "fine"), EX_NONE, STATUS_OK, 0, "fine"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(&row - rows);
        EXPECT_EQ(row.exception == EX_NONE, AStatus_isOk(row.status));
        EXPECT_EQ(row.exception, AStatus_getExceptionCode(row.status));
        EXPECT_EQ(row.transactionStatus, AStatus_getStatus(row.status));
        EXPECT_EQ(row.serviceSpecific, AStatus_getServiceSpecificError(row.status));
        EXPECT_STREQ(row.message, AStatus_getMessage(row.status));
        AStatus_delete(row.status);
    }
    // newOk may hand out one shared object; deleting it any number of times is fine.
    AStatus_delete(AStatus_newOk());
    AStatus_delete(AStatus_newOk());
    EXPECT_TRUE(AStatus_isOk(AStatus_newOk()));
}

}  // namespace
