// The stubs across emulated processes: statuses each way. What each ITorq method carries is
// checked through the library's own tests against the reference HAL, and byte for byte against
// generated code in tests/conformance.

#include <aidl/vendor/quarn/hardware/torq/ITorq.h>
#include <android/binder_manager.h>
#include <binder_host/process.h>
#include <gtest/gtest.h>
#include <torq_sim/SimHost.h>

namespace {

using ::aidl::vendor::quarn::hardware::torq::ITorq;

class RemoteStubTest : public ::testing::Test {
  protected:
    void SetUp() override { binder_host::reset(); }
    void TearDown() override { binder_host::reset(); }
};

// A call's status reaches the caller, who keeps its preset result when the call failed.
TEST_F(RemoteStubTest, StatusesReachTheCaller) {
    torq_sim::SimHost hal;
    ASSERT_TRUE(hal.start());
    std::shared_ptr<ITorq> torq = ITorq::fromBinder(
            ndk::SpAIBinder(AServiceManager_checkService(torq_sim::kTorqInstance)));
    ASSERT_NE(torq, nullptr);
    // The HAL answers each with this status; the last one with the result 7.
    struct Case {
        int32_t exception;
        int32_t error;
        int32_t specific;
        const char* message;
    };
    const Case cases[] = {{EX_SERVICE_SPECIFIC, 0, 17, "busy"},
                          {EX_ILLEGAL_ARGUMENT, 0, 0, "no"},
                          {EX_TRANSACTION_FAILED, STATUS_NO_MEMORY, 0, ""},
                          {EX_NONE, 0, 0, ""}};
    int32_t r = -1;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.exception);
        torq_sim::SentAnswer answer;
        answer.exception = c.error == STATUS_OK ? c.exception : EX_NONE;
        answer.transactionError = c.error;
        answer.serviceSpecificError = c.specific;
        answer.message = c.message;
        if (c.exception == EX_NONE) answer.result = 7;
        hal.answerOnce("release", answer);
        const ndk::ScopedAStatus st = torq->release(8, &r);
        EXPECT_EQ(st.getExceptionCode(), c.exception);
        EXPECT_EQ(st.getStatus(), c.error);
        EXPECT_EQ(st.getServiceSpecificError(), c.specific);
        EXPECT_STREQ(st.getMessage(), c.message);
        EXPECT_EQ(r, c.exception == EX_NONE ? 7 : -1);  // a failed reply's result is not read
    }
    hal.kill();
    EXPECT_EQ(torq->release(3, &r).getStatus(), STATUS_DEAD_OBJECT);
    EXPECT_EQ(r, 7);
}

}  // namespace
