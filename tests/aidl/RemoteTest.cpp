// The stubs across emulated processes: statuses, the transaction log hooks, version and hash,
// class checks, and peers that speak a broken or older protocol. What each ITorq method carries
// is checked through the library's own tests against the reference HAL.

#include <aidl/vendor/quarn/hardware/torq/BnTorq.h>
#include <aidl/vendor/quarn/hardware/torq/BnTorqCallback.h>
#include <aidl/vendor/quarn/hardware/torq/BpTorq.h>
#include <aidl/vendor/quarn/hardware/torq/ITorq.h>
#include <android/binder_ibinder.h>
#include <android/binder_manager.h>
#include <binder_host/process.h>
#include <gtest/gtest.h>
#include <torq_sim/SimHost.h>

#include <fstream>
#include <mutex>

namespace {

using namespace ::aidl::vendor::quarn::hardware::torq;
using Answer = torq_sim::SentAnswer;
using torq_sim::kTorqInstance;
using torq_sim::SimHost;

// A callback that ignores what it receives: the tests here look at its class, not its calls.
class NullCallback : public BnTorqCallback {
  public:
    ndk::ScopedAStatus onCallback(const std::vector<TorqRequestData>&) override {
        return ndk::ScopedAStatus::ok();
    }
};

class RemoteStubTest : public ::testing::Test {
  protected:
    void SetUp() override {
        binder_host::reset();
        hal_ = std::make_unique<SimHost>();
        ASSERT_TRUE(hal_->start());
        torq_ = connect(kTorqInstance);
        ASSERT_NE(torq_, nullptr);
    }
    void TearDown() override {
        torq_.reset();
        hal_.reset();
        binder_host::drain();
        BnTorq::logFunc = nullptr;
        BpTorq::logFunc = nullptr;
        binder_host::reset();
    }

    static std::shared_ptr<ITorq> connect(const char* instance) {
        return ITorq::fromBinder(ndk::SpAIBinder(AServiceManager_checkService(instance)));
    }

    std::unique_ptr<SimHost> hal_;
    std::shared_ptr<ITorq> torq_;
};

TEST_F(RemoteStubTest, ClassChecksVersionAndHash) {
    // A local binder gives the object itself; a remote one a proxy of the right class only.
    auto local = ndk::SharedRefBase::make<NullCallback>();
    EXPECT_EQ(ITorqCallback::fromBinder(local->asBinder()).get(), local.get());
    EXPECT_EQ(ITorq::fromBinder(local->asBinder()), nullptr);
    EXPECT_EQ(ITorq::fromBinder(ndk::SpAIBinder()), nullptr);
    EXPECT_EQ(ITorqCallback::fromBinder(torq_->asBinder()), nullptr);
    ASSERT_TRUE(binder_host::runInProcess(binder_host::createProcess("callback-owner"), [] {
        auto cb = ndk::SharedRefBase::make<NullCallback>();
        EXPECT_EQ(AServiceManager_addService(cb->asBinder().get(), "torq.test.callback"), EX_NONE);
    }));
    ndk::SpAIBinder binder(AServiceManager_checkService("torq.test.callback"));
    EXPECT_EQ(ITorq::fromBinder(binder), nullptr);
    auto callback = ITorqCallback::fromBinder(binder);
    ASSERT_NE(callback, nullptr);
    EXPECT_TRUE(callback->isRemote());

    // Both interfaces report the frozen version and hash from the other side; the proxy's second
    // answer comes from its cache.
    std::ifstream hashFile(TORQ_AIDL_HASH_FILE);
    std::string hash;
    hashFile >> hash;
    ASSERT_EQ(hash.size(), 40u);
    EXPECT_EQ(ITorq::hash, hash);
    EXPECT_EQ(ITorqCallback::hash, hash);
    auto expectFrozen = [&](const auto& remote) {
        int32_t version = 0;
        std::string remoteHash;
        ASSERT_TRUE(remote->getInterfaceVersion(&version).isOk());
        ASSERT_TRUE(remote->getInterfaceHash(&remoteHash).isOk());
        EXPECT_EQ(version, 1);
        EXPECT_EQ(remoteHash, hash);
    };
    for (int round = 0; round < 2; ++round) {
        expectFrozen(torq_);
        expectFrozen(callback);
    }
}

// A call's status reaches the caller, who keeps its preset result when the call failed, and both
// ends log the call alike.
TEST_F(RemoteStubTest, StatusesReachTheCallerAndBothLogHooks) {
    std::mutex mu;
    std::vector<BnTorq::TransactionLog> stubLogs;
    std::vector<BpTorq::TransactionLog> proxyLogs;
    BnTorq::logFunc = [&](const BnTorq::TransactionLog& log) {
        std::lock_guard<std::mutex> lock(mu);
        stubLogs.push_back(log);
    };
    BpTorq::logFunc = [&](const BpTorq::TransactionLog& log) { proxyLogs.push_back(log); };
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
        Answer answer;
        answer.exception = c.error == STATUS_OK ? c.exception : EX_NONE;
        answer.transactionError = c.error;
        answer.serviceSpecificError = c.specific;
        answer.message = c.message;
        if (c.exception == EX_NONE) answer.result = 7;
        hal_->answerOnce("release", answer);
        const ndk::ScopedAStatus st = torq_->release(8, &r);
        EXPECT_EQ(st.getExceptionCode(), c.exception);
        EXPECT_EQ(st.getStatus(), c.error);
        EXPECT_EQ(st.getServiceSpecificError(), c.specific);
        EXPECT_STREQ(st.getMessage(), c.message);
        EXPECT_EQ(r, c.exception == EX_NONE ? 7 : -1);  // a failed reply's result is not read
    }
    hal_->kill();
    EXPECT_EQ(torq_->release(3, &r).getStatus(), STATUS_DEAD_OBJECT);
    EXPECT_EQ(r, 7);
    ASSERT_TRUE(binder_host::drain());

    std::lock_guard<std::mutex> lock(mu);
    ASSERT_EQ(stubLogs.size(), std::size(cases));  // the dead HAL logged nothing
    ASSERT_EQ(proxyLogs.size(), std::size(cases) + 1);
    auto expectLogged = [](const Case& want, const auto& log) {
        EXPECT_EQ(log.interface_name, "vendor.quarn.hardware.torq.ITorq");
        EXPECT_EQ(log.method_name, "release");
        EXPECT_EQ(log.exception_code, want.exception);
        EXPECT_EQ(log.transaction_error, want.error);
        EXPECT_EQ(log.service_specific_error_code, want.specific);
        EXPECT_EQ(log.exception_message, want.message);
        EXPECT_EQ(log.input_args,
                  (std::vector<std::pair<std::string, std::string>>{{"in_handle", "8"}}));
    };
    for (size_t i = 0; i < std::size(cases); ++i) {
        SCOPED_TRACE(i);
        expectLogged(cases[i], proxyLogs[i]);
        expectLogged(cases[i], stubLogs[i]);
    }
    EXPECT_EQ(stubLogs.back().result, "7");
    EXPECT_EQ(proxyLogs.back().transaction_error, STATUS_DEAD_OBJECT);
}

// A client that sends garbage: the HAL refuses the transaction and does not crash.
TEST_F(RemoteStubTest, MalformedRequestsAreRefusedWithoutReachingTheHal) {
    ndk::SpAIBinder binder = torq_->asBinder();
    const struct {
        transaction_code_t code;
        std::vector<int32_t> words;  // after the interface token
        binder_status_t expected;    // STATUS_OK: any error
    } cases[] = {
            {ITorq::TRANSACTION_request, {}, STATUS_OK},
            {ITorq::TRANSACTION_request, {1, 2}, STATUS_OK},      // present, size below its header
            {ITorq::TRANSACTION_request, {0}, STATUS_OK},         // a null parcelable
            {ITorq::TRANSACTION_ruleCtl, {1, 1, -5}, STATUS_OK},  // vector length
            {ITorq::TRANSACTION_propertySet, {1000, 0x00410041}, STATUS_OK},  // string length
            {ITorq::TRANSACTION_thermalListeningRegister, {INT32_MAX}, STATUS_OK},
            {ITorq::TRANSACTION_ruleCtl + 1, {}, STATUS_UNKNOWN_TRANSACTION},
    };
    for (const auto& c : cases) {
        AParcel* in = nullptr;
        ASSERT_EQ(AIBinder_prepareTransaction(binder.get(), &in), STATUS_OK);
        for (int32_t w : c.words) AParcel_writeInt32(in, w);
        AParcel* out = nullptr;
        const binder_status_t st = AIBinder_transact(binder.get(), c.code, &in, &out, 0);
        EXPECT_TRUE(c.expected == STATUS_OK ? st != STATUS_OK : st == c.expected)
                << "code " << c.code << " gave " << st;
        if (out != nullptr) AParcel_delete(out);
    }
    EXPECT_TRUE(hal_->calls().empty());
    int32_t r = -1;
    EXPECT_TRUE(torq_->release(1, &r).isOk());
}

// --- Peers that do not follow the protocol ------------------------------------------------

// A server for the ITorq descriptor with its own class, like a HAL built from another (broken
// or older) version: it knows no transaction, or answers each with a bare OK status.
std::shared_ptr<ITorq> rawPeer(bool knowsNothing) {
    static AIBinder_Class* clazz = AIBinder_Class_define(
            ITorq::descriptor, [](void* args) { return args; }, [](void*) {},
            [](AIBinder* binder, transaction_code_t, const AParcel*,
               AParcel* out) -> binder_status_t {
                if (AIBinder_getUserData(binder) != nullptr) return STATUS_UNKNOWN_TRANSACTION;
                return AParcel_writeStatusHeader(out, ndk::ScopedAStatus::ok().get());
            });
    static int knowsNothingTag;
    EXPECT_TRUE(binder_host::runInProcess(binder_host::createProcess("raw-torq"), [&] {
        ndk::SpAIBinder binder(AIBinder_new(clazz, knowsNothing ? &knowsNothingTag : nullptr));
        EXPECT_EQ(AServiceManager_addService(binder.get(), "torq.test.raw"), EX_NONE);
    }));
    return ITorq::fromBinder(ndk::SpAIBinder(AServiceManager_checkService("torq.test.raw")));
}

// An OK status without the result is an error, except for a method without one.
TEST_F(RemoteStubTest, AReplyWithoutItsResultIsAnError) {
    std::shared_ptr<ITorq> raw = rawPeer(false);
    ASSERT_NE(raw, nullptr);
    int32_t r = -1;
    ndk::ScopedAStatus st = raw->request(TorqRequestParcel{}, &r);
    EXPECT_EQ(st.getExceptionCode(), EX_TRANSACTION_FAILED);
    EXPECT_NE(st.getStatus(), STATUS_OK);
    EXPECT_TRUE(raw->init().isOk());
}

class OldHalDefault : public ITorqDefault {
  public:
    ndk::ScopedAStatus release(int32_t handle, int32_t* ret) override {
        *ret = handle * 2;
        return ndk::ScopedAStatus::ok();
    }
};

TEST_F(RemoteStubTest, UnknownTransactionFallsBackToTheDefaultImplementation) {
    std::shared_ptr<ITorq> raw = rawPeer(true);
    ASSERT_NE(raw, nullptr);
    int32_t r = -1;
    if (!ITorq::getDefaultImpl()) {
        ndk::ScopedAStatus st = raw->release(21, &r);
        EXPECT_EQ(st.getExceptionCode(), EX_TRANSACTION_FAILED);
        EXPECT_EQ(st.getStatus(), STATUS_UNKNOWN_TRANSACTION);
        EXPECT_EQ(r, -1);
        // Once per process: the default implementation cannot be replaced.
        ASSERT_TRUE(ITorq::setDefaultImpl(ndk::SharedRefBase::make<OldHalDefault>()));
    }
    ASSERT_TRUE(raw->release(21, &r).isOk());
    EXPECT_EQ(r, 42);
    // Methods the default does not implement report an unknown transaction.
    EXPECT_EQ(raw->init().getStatus(), STATUS_UNKNOWN_TRANSACTION);
    // A HAL that knows the transaction is not affected.
    ASSERT_TRUE(torq_->release(21, &r).isOk());
    EXPECT_EQ(r, -1);  // the simulator's answer: it issued no handle 21
}

}  // namespace
