// AStatus and ndk::ScopedAStatus rules.

#include <android/binder_auto_utils.h>
#include <android/binder_status.h>
#include <gtest/gtest.h>

#include <string>

namespace {

TEST(StatusTest, FromStatusMapsOkAndFailures) {
    ndk::ScopedAStatus ok = ndk::ScopedAStatus::fromStatus(STATUS_OK);
    EXPECT_TRUE(ok.isOk());
    EXPECT_EQ(EX_NONE, ok.getExceptionCode());
    EXPECT_EQ(STATUS_OK, ok.getStatus());

    ndk::ScopedAStatus dead = ndk::ScopedAStatus::fromStatus(STATUS_DEAD_OBJECT);
    EXPECT_FALSE(dead.isOk());
    EXPECT_EQ(EX_TRANSACTION_FAILED, dead.getExceptionCode());
    EXPECT_EQ(STATUS_DEAD_OBJECT, dead.getStatus());
    EXPECT_EQ(0, dead.getServiceSpecificError());

    // Values outside the status list are not passed through.
    ndk::ScopedAStatus odd = ndk::ScopedAStatus::fromStatus(-12345);
    EXPECT_EQ(EX_TRANSACTION_FAILED, odd.getExceptionCode());
    EXPECT_EQ(STATUS_UNKNOWN_ERROR, odd.getStatus());
}

TEST(StatusTest, AccessorsOnlyAnswerForTheirOwnException) {
    ndk::ScopedAStatus specific = ndk::ScopedAStatus::fromServiceSpecificErrorWithMessage(-3, "m");
    EXPECT_FALSE(specific.isOk());
    EXPECT_EQ(EX_SERVICE_SPECIFIC, specific.getExceptionCode());
    EXPECT_EQ(-3, specific.getServiceSpecificError());
    EXPECT_EQ(STATUS_OK, specific.getStatus());
    EXPECT_STREQ("m", specific.getMessage());

    ndk::ScopedAStatus exception = ndk::ScopedAStatus::fromExceptionCode(EX_SECURITY);
    EXPECT_EQ(EX_SECURITY, exception.getExceptionCode());
    EXPECT_EQ(0, exception.getServiceSpecificError());
    EXPECT_EQ(STATUS_OK, exception.getStatus());
    ASSERT_NE(nullptr, exception.getMessage());
    EXPECT_STREQ("", exception.getMessage());

    ndk::ScopedAStatus failed = ndk::ScopedAStatus::fromExceptionCode(EX_TRANSACTION_FAILED);
    EXPECT_EQ(STATUS_FAILED_TRANSACTION, failed.getStatus());

    // EX_NONE, even with a message, is success; unknown exceptions are failed transactions.
    EXPECT_TRUE(ndk::ScopedAStatus::fromExceptionCodeWithMessage(EX_NONE, "fine").isOk());
    EXPECT_EQ(EX_TRANSACTION_FAILED, ndk::ScopedAStatus::fromExceptionCode(-77).getExceptionCode());
    EXPECT_TRUE(ndk::ScopedAStatus::fromServiceSpecificError(0).getExceptionCode() ==
                EX_SERVICE_SPECIFIC);
}

TEST(StatusTest, NullAndSharedStatuses) {
    ndk::ScopedAStatus empty;
    EXPECT_FALSE(empty.isOk());
    EXPECT_FALSE(AStatus_isOk(nullptr));
    EXPECT_STREQ("", AStatus_getMessage(nullptr));

    // newOk may hand out one shared object; deleting it any number of times is fine.
    AStatus* a = AStatus_newOk();
    AStatus* b = AStatus_newOk();
    EXPECT_TRUE(AStatus_isOk(a));
    AStatus_delete(a);
    AStatus_delete(b);
    EXPECT_TRUE(AStatus_isOk(AStatus_newOk()));

    ndk::ScopedAStatus moved = ndk::ScopedAStatus::ok();
    ndk::ScopedAStatus target = std::move(moved);
    EXPECT_TRUE(target.isOk());
    EXPECT_EQ(nullptr, moved.get());  // NOLINT(bugprone-use-after-move)
}

TEST(StatusTest, DescriptionsNameTheFailure) {
    EXPECT_EQ("No error", ndk::ScopedAStatus::ok().getDescription());
    const std::string specific =
            ndk::ScopedAStatus::fromServiceSpecificErrorWithMessage(7, "boom").getDescription();
    EXPECT_NE(std::string::npos, specific.find("EX_SERVICE_SPECIFIC"));
    EXPECT_NE(std::string::npos, specific.find("7: boom"));
    const std::string dead = ndk::ScopedAStatus::fromStatus(STATUS_DEAD_OBJECT).getDescription();
    EXPECT_NE(std::string::npos, dead.find("STATUS_DEAD_OBJECT"));

    const char* raw = AStatus_getDescription(nullptr);
    ASSERT_NE(nullptr, raw);
    AStatus_deleteDescription(raw);
}

}  // namespace
