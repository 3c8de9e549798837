// The stubs across emulated processes: every ITorq method against a BnTorq in another process,
// statuses, callbacks travelling to the HAL and back, their lifetime, the transaction log hooks,
// version and hash, class checks, and peers that speak a broken or older protocol.

#include <aidl/vendor/quarn/hardware/torq/BnTorq.h>
#include <aidl/vendor/quarn/hardware/torq/BnTorqCallback.h>
#include <aidl/vendor/quarn/hardware/torq/BpTorq.h>
#include <aidl/vendor/quarn/hardware/torq/BpTorqCallback.h>
#include <aidl/vendor/quarn/hardware/torq/ITorq.h>
#include <android/binder_ibinder.h>
#include <android/binder_manager.h>
#include <binder_host/process.h>
#include <gtest/gtest.h>
#include <torq_test/FakeTorqHal.h>

#include <atomic>
#include <climits>
#include <condition_variable>
#include <fstream>
#include <mutex>
#include <thread>

namespace {

using namespace ::aidl::vendor::quarn::hardware::torq;
using torq_test::Answer;
using torq_test::FakeTorqHal;
using torq_test::idRecord;
using torq_test::kTorqInstance;
using torq_test::pathRecord;

std::string frozenHash() {
    std::ifstream in(TORQ_AIDL_HASH_FILE);
    std::string hash;
    in >> hash;
    return hash;
}

// A callback that records what it receives, where it ran, and when it dies.
class RecordingCallback : public BnTorqCallback {
  public:
    struct Call {
        std::vector<TorqRequestData> data;
        std::thread::id thread;
        binder_host::ProcessId process;
    };

    explicit RecordingCallback(std::atomic<bool>* destroyed = nullptr) : destroyed_(destroyed) {}
    ~RecordingCallback() override {
        if (destroyed_ != nullptr) *destroyed_ = true;
    }

    ndk::ScopedAStatus onCallback(const std::vector<TorqRequestData>& data) override {
        std::lock_guard<std::mutex> lock(mu_);
        calls_.push_back({data, std::this_thread::get_id(), binder_host::currentProcess()});
        cv_.notify_all();
        return ndk::ScopedAStatus::ok();
    }

    bool waitForCalls(size_t n) {
        std::unique_lock<std::mutex> lock(mu_);
        return cv_.wait_for(lock, std::chrono::seconds(5), [&] { return calls_.size() >= n; });
    }
    std::vector<Call> calls() {
        std::lock_guard<std::mutex> lock(mu_);
        return calls_;
    }

  private:
    std::atomic<bool>* destroyed_;
    std::mutex mu_;
    std::condition_variable cv_;
    std::vector<Call> calls_;
};

class RemoteStubTest : public ::testing::Test {
  protected:
    void SetUp() override {
        binder_host::reset();
        hal_ = std::make_unique<FakeTorqHal>();
        torq_ = connect(kTorqInstance);
        ASSERT_NE(torq_, nullptr);
    }
    void TearDown() override {
        torq_.reset();
        hal_.reset();
        binder_host::drain();
        BnTorq::logFunc = nullptr;
        BpTorq::logFunc = nullptr;
        BnTorqCallback::logFunc = nullptr;
        BpTorqCallback::logFunc = nullptr;
        binder_host::reset();
    }

    static std::shared_ptr<ITorq> connect(const char* instance) {
        ndk::SpAIBinder binder(AServiceManager_checkService(instance));
        return ITorq::fromBinder(binder);
    }

    std::unique_ptr<FakeTorqHal> hal_;
    std::shared_ptr<ITorq> torq_;
};

TEST_F(RemoteStubTest, ProxyIsRemoteAndLocalObjectIsNot) {
    EXPECT_TRUE(torq_->isRemote());
    auto local = ndk::SharedRefBase::make<RecordingCallback>();
    auto again = ITorqCallback::fromBinder(local->asBinder());
    EXPECT_EQ(again.get(), local.get());  // a local binder gives the object itself, no proxy
    EXPECT_FALSE(again->isRemote());
}

TEST_F(RemoteStubTest, RequestCarriesEveryFieldAcrossProcesses) {
    TorqRequestParcel parcel;
    parcel.kind = 1;
    parcel.data = {idRecord(0x010108a0, std::string("1200000")), idRecord(0, std::string()),
                   idRecord(0x01010000), pathRecord(std::string("/p"), std::nullopt)};
    parcel.data[3].extra = "extra";
    parcel.data[3].subId = -7;
    parcel.flag = true;
    parcel.option = -1;
    parcel.tag = 77;
    parcel.duration = -1;
    parcel.extras = std::vector<std::optional<std::string>>{"zdbdebug", std::nullopt, ""};
    parcel.param = INT32_MIN;
    parcel.pkg = "pkg";
    parcel.identity = "";
    parcel.numbers = std::vector<int32_t>{};

    int32_t handle = -1;
    ASSERT_TRUE(torq_->request(parcel, &handle).isOk());
    EXPECT_EQ(handle, 1);
    auto got = hal_->last("request");
    EXPECT_EQ(got.parcel, parcel) << got.parcel.toString();
    EXPECT_FALSE(got.hasCallback);
    EXPECT_EQ(got.callingProcess, binder_host::kDefaultProcess);

    // All optionals absent, and present but empty.
    TorqRequestParcel empty;
    ASSERT_TRUE(torq_->request(empty, &handle).isOk());
    EXPECT_EQ(handle, 2);
    EXPECT_EQ(hal_->last("request").parcel, empty);
    empty.extras = std::vector<std::optional<std::string>>{};
    empty.pkg = "";
    ASSERT_TRUE(torq_->notifyEvent(empty, &handle).isOk());
    auto notified = hal_->last("notifyEvent").parcel;
    ASSERT_TRUE(notified.extras.has_value());
    EXPECT_TRUE(notified.extras->empty());
    EXPECT_EQ(notified.pkg, std::optional<std::string>(""));
}

TEST_F(RemoteStubTest, EveryMethodPassesItsArgumentsAndResult) {
    ASSERT_TRUE(torq_->init().isOk());
    EXPECT_EQ(hal_->count("init"), 1u);

    Answer a;
    a.result = 31;
    for (const char* m : {"release", "listeningUnregister", "propertySet",
                          "thermalListeningUnregister", "setRelatedSysInfo", "ruleCtl"}) {
        hal_->setAnswer(m, a);
    }
    int32_t r = -1;
    ASSERT_TRUE(torq_->release(12, &r).isOk());
    EXPECT_EQ(r, 31);
    EXPECT_EQ(hal_->last("release").handle, 12);

    r = -1;
    ASSERT_TRUE(torq_->listeningUnregister(-4, &r).isOk());
    EXPECT_EQ(r, 31);
    EXPECT_EQ(hal_->last("listeningUnregister").handle, -4);

    r = -1;
    ASSERT_TRUE(torq_->thermalListeningUnregister(INT32_MAX, &r).isOk());
    EXPECT_EQ(hal_->last("thermalListeningUnregister").handle, INT32_MAX);

    ASSERT_TRUE(torq_->propertySet("vendor.torq.mode", "game \xe2\x98\x83", &r).isOk());
    EXPECT_EQ(hal_->last("propertySet").name, "vendor.torq.mode");
    EXPECT_EQ(hal_->last("propertySet").value, "game \xe2\x98\x83");

    Answer text;
    text.text = "value-of-prop";
    hal_->setAnswer("propertyGet", text);
    std::string s;
    ASSERT_TRUE(torq_->propertyGet("", &s).isOk());
    EXPECT_EQ(s, "value-of-prop");
    EXPECT_EQ(hal_->last("propertyGet").name, "");

    ASSERT_TRUE(torq_->setRelatedSysInfo(3, INT64_MIN, &r).isOk());
    EXPECT_EQ(hal_->last("setRelatedSysInfo").first, 3);
    EXPECT_EQ(hal_->last("setRelatedSysInfo").second, INT64_MIN);
    ASSERT_TRUE(torq_->setRelatedSysInfo(-1, 0x1122334455667788LL, &r).isOk());
    EXPECT_EQ(hal_->last("setRelatedSysInfo").second, 0x1122334455667788LL);

    std::vector<TorqRequestData> entries = {idRecord(1, std::string("a")), idRecord(2)};
    ASSERT_TRUE(torq_->ruleCtl(9, -1, entries, &r).isOk());
    EXPECT_EQ(r, 31);
    auto rule = hal_->last("ruleCtl");
    EXPECT_EQ(rule.first, 9);
    EXPECT_EQ(rule.status, -1);
    EXPECT_EQ(rule.entries, entries);
}

TEST_F(RemoteStubTest, StateRequestReturnsRecordsWithAbsentEmptyAndPresentTexts) {
    Answer a;
    a.records = {idRecord(0x1, std::nullopt), idRecord(0x2, std::string()),
                 pathRecord(std::string("/sys/x"), std::string("42"))};
    a.records[2].extra = "";
    hal_->setAnswer("stateRequest", a);
    TorqRequestParcel parcel;
    parcel.data = {idRecord(0x1), idRecord(0x2)};
    parcel.tag = 5;
    std::vector<TorqRequestData> out;
    ASSERT_TRUE(torq_->stateRequest(parcel, &out).isOk());
    EXPECT_EQ(out, a.records);
    EXPECT_EQ(hal_->last("stateRequest").parcel, parcel);

    hal_->setAnswer("stateRequest", Answer{});
    ASSERT_TRUE(torq_->stateRequest(parcel, &out).isOk());
    EXPECT_TRUE(out.empty());
}

TEST_F(RemoteStubTest, BadStatusesReachTheCallerAndLeaveThePresetResult) {
    Answer ss;
    ss.exception = EX_SERVICE_SPECIFIC;
    ss.serviceSpecificError = 17;
    ss.message = "busy";
    ss.result = 99;
    hal_->answerOnce("request", ss);
    int32_t handle = -1;
    ndk::ScopedAStatus st = torq_->request(TorqRequestParcel{}, &handle);
    EXPECT_FALSE(st.isOk());
    EXPECT_EQ(st.getExceptionCode(), EX_SERVICE_SPECIFIC);
    EXPECT_EQ(st.getServiceSpecificError(), 17);
    EXPECT_STREQ(st.getMessage(), "busy");
    EXPECT_EQ(handle, -1);  // the result is not read from a failed reply

    Answer ex;
    ex.exception = EX_ILLEGAL_ARGUMENT;
    hal_->answerOnce("propertyGet", ex);
    std::string s = "untouched";
    st = torq_->propertyGet("x", &s);
    EXPECT_EQ(st.getExceptionCode(), EX_ILLEGAL_ARGUMENT);
    EXPECT_EQ(s, "untouched");

    Answer tx;
    tx.transactionError = STATUS_PERMISSION_DENIED;
    hal_->answerOnce("release", tx);
    int32_t r = -1;
    st = torq_->release(1, &r);
    EXPECT_EQ(st.getExceptionCode(), EX_TRANSACTION_FAILED);
    EXPECT_EQ(st.getStatus(), STATUS_PERMISSION_DENIED);
    EXPECT_EQ(r, -1);
}

TEST_F(RemoteStubTest, CallsToADeadHalFailWithDeadObject) {
    hal_->kill();
    int32_t r = -1;
    ndk::ScopedAStatus st = torq_->release(1, &r);
    EXPECT_EQ(st.getExceptionCode(), EX_TRANSACTION_FAILED);
    EXPECT_EQ(st.getStatus(), STATUS_DEAD_OBJECT);
    EXPECT_EQ(r, -1);
}

TEST_F(RemoteStubTest, VersionAndHashAreTheFrozenOnes) {
    const std::string hash = frozenHash();
    ASSERT_EQ(hash.size(), 40u);
    EXPECT_EQ(ITorq::hash, hash);
    EXPECT_EQ(ITorqCallback::hash, hash);
    EXPECT_EQ(ITorq::version, 1);

    for (int round = 0; round < 2; ++round) {  // the second answer comes from the proxy's cache
        int32_t version = 0;
        ASSERT_TRUE(torq_->getInterfaceVersion(&version).isOk());
        EXPECT_EQ(version, 1);
        std::string remoteHash;
        ASSERT_TRUE(torq_->getInterfaceHash(&remoteHash).isOk());
        EXPECT_EQ(remoteHash, hash);
    }

    // The same through a callback living in another process.
    binder_host::ProcessId other = binder_host::createProcess("callback-owner");
    ASSERT_TRUE(binder_host::runInProcess(other, [] {
        auto cb = ndk::SharedRefBase::make<RecordingCallback>();
        EXPECT_EQ(AServiceManager_addService(cb->asBinder().get(), "torq.test.callback"), EX_NONE);
    }));
    ndk::SpAIBinder binder(AServiceManager_checkService("torq.test.callback"));
    auto callback = ITorqCallback::fromBinder(binder);
    ASSERT_NE(callback, nullptr);
    EXPECT_TRUE(callback->isRemote());
    int32_t version = 0;
    ASSERT_TRUE(callback->getInterfaceVersion(&version).isOk());
    EXPECT_EQ(version, 1);
    std::string remoteHash;
    ASSERT_TRUE(callback->getInterfaceHash(&remoteHash).isOk());
    EXPECT_EQ(remoteHash, hash);
}

TEST_F(RemoteStubTest, FromBinderRefusesAnotherInterfacesBinder) {
    ndk::SpAIBinder halBinder(AServiceManager_checkService(kTorqInstance));
    EXPECT_EQ(ITorqCallback::fromBinder(halBinder), nullptr);
    EXPECT_EQ(ITorq::fromBinder(ndk::SpAIBinder()), nullptr);

    auto local = ndk::SharedRefBase::make<RecordingCallback>();
    EXPECT_EQ(ITorq::fromBinder(local->asBinder()), nullptr);

    binder_host::ProcessId other = binder_host::createProcess("callback-owner");
    ASSERT_TRUE(binder_host::runInProcess(other, [] {
        auto cb = ndk::SharedRefBase::make<RecordingCallback>();
        EXPECT_EQ(AServiceManager_addService(cb->asBinder().get(), "torq.test.callback"), EX_NONE);
    }));
    ndk::SpAIBinder remoteCallback(AServiceManager_checkService("torq.test.callback"));
    ASSERT_NE(remoteCallback.get(), nullptr);
    EXPECT_EQ(ITorq::fromBinder(remoteCallback), nullptr);
}

TEST_F(RemoteStubTest, CallbackRunsOnABinderThreadOfTheCallersProcess) {
    auto callback = ndk::SharedRefBase::make<RecordingCallback>();
    TorqRequestParcel parcel;
    parcel.callback = callback;
    int32_t handle = -1;
    ASSERT_TRUE(torq_->request(parcel, &handle).isOk());
    EXPECT_TRUE(hal_->last("request").hasCallback);
    ASSERT_EQ(hal_->callbackCount(), 1u);

    std::vector<TorqRequestData> data = {idRecord(0x010108a0, std::string("1")),
                                         pathRecord(std::string("/a"), std::nullopt)};
    ASSERT_TRUE(hal_->invokeCallback(0, data).isOk());
    ASSERT_TRUE(callback->waitForCalls(1));
    auto calls = callback->calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].data, data);
    EXPECT_EQ(calls[0].process, binder_host::kDefaultProcess);
    EXPECT_NE(calls[0].thread, std::this_thread::get_id());

    // The listening form hands the callback as an argument.
    auto listener = ndk::SharedRefBase::make<RecordingCallback>();
    ASSERT_TRUE(torq_->listeningRegister(TorqRequestParcel{}, listener, &handle).isOk());
    EXPECT_EQ(handle, 2);
    ASSERT_TRUE(torq_->thermalListeningRegister({1, 2, 3}, listener, &handle).isOk());
    EXPECT_EQ(handle, 3);
    EXPECT_EQ(hal_->last("thermalListeningRegister").ids, (std::vector<int32_t>{1, 2, 3}));
    ASSERT_EQ(hal_->callbackCount(), 3u);
    ASSERT_TRUE(hal_->invokeCallback(2, {}).isOk());
    ASSERT_TRUE(listener->waitForCalls(1));
    EXPECT_TRUE(listener->calls()[0].data.empty());
}

TEST_F(RemoteStubTest, CallbackObjectDiesWhenTheHalDropsIt) {
    std::atomic<bool> destroyed{false};
    size_t before = binder_host::liveBinderCount(binder_host::kDefaultProcess);
    {
        auto callback = ndk::SharedRefBase::make<RecordingCallback>(&destroyed);
        int32_t handle = -1;
        ASSERT_TRUE(torq_->listeningRegister(TorqRequestParcel{}, callback, &handle).isOk());
    }
    ASSERT_TRUE(binder_host::drain());
    EXPECT_FALSE(destroyed) << "the HAL still holds the callback";
    EXPECT_EQ(binder_host::liveBinderCount(binder_host::kDefaultProcess), before + 1);

    hal_->dropCallbacks();
    ASSERT_TRUE(binder_host::drain());
    EXPECT_TRUE(destroyed);
    EXPECT_EQ(binder_host::liveBinderCount(binder_host::kDefaultProcess), before);
}

TEST_F(RemoteStubTest, CallbackObjectDiesWhenTheHalProcessDies) {
    std::atomic<bool> destroyed{false};
    {
        auto callback = ndk::SharedRefBase::make<RecordingCallback>(&destroyed);
        TorqRequestParcel parcel;
        parcel.callback = callback;
        int32_t handle = -1;
        ASSERT_TRUE(torq_->request(parcel, &handle).isOk());
    }
    ASSERT_TRUE(binder_host::drain());
    EXPECT_FALSE(destroyed);
    binder_host::killProcess(hal_->pid());
    ASSERT_TRUE(binder_host::drain());
    EXPECT_TRUE(destroyed);
}

TEST_F(RemoteStubTest, ServerSideLogHookSeesMethodAndStatus) {
    std::mutex mu;
    std::vector<BnTorq::TransactionLog> logs;
    BnTorq::logFunc = [&](const BnTorq::TransactionLog& log) {
        std::lock_guard<std::mutex> lock(mu);
        logs.push_back(log);
    };
    Answer ss;
    ss.exception = EX_SERVICE_SPECIFIC;
    ss.serviceSpecificError = 5;
    ss.message = "boom";
    hal_->answerOnce("release", ss);
    int32_t r = -1;
    EXPECT_FALSE(torq_->release(8, &r).isOk());
    Answer tx;
    tx.transactionError = STATUS_NO_MEMORY;
    hal_->answerOnce("propertySet", tx);
    EXPECT_FALSE(torq_->propertySet("a", "b", &r).isOk());
    ASSERT_TRUE(torq_->request(TorqRequestParcel{}, &r).isOk());
    ASSERT_TRUE(binder_host::drain());

    std::lock_guard<std::mutex> lock(mu);
    ASSERT_EQ(logs.size(), 3u);
    EXPECT_EQ(logs[0].interface_name, "vendor.quarn.hardware.torq.ITorq");
    EXPECT_EQ(logs[0].method_name, "release");
    EXPECT_EQ(logs[0].exception_code, EX_SERVICE_SPECIFIC);
    EXPECT_EQ(logs[0].exception_message, "boom");
    EXPECT_EQ(logs[0].service_specific_error_code, 5);
    EXPECT_EQ(logs[0].transaction_error, 0);
    EXPECT_EQ(logs[0].proxy_address, nullptr);
    EXPECT_NE(logs[0].stub_address, nullptr);
    ASSERT_EQ(logs[0].input_args.size(), 1u);
    EXPECT_EQ(logs[0].input_args[0], (std::pair<std::string, std::string>("in_handle", "8")));

    EXPECT_EQ(logs[1].method_name, "propertySet");
    EXPECT_EQ(logs[1].exception_code, EX_TRANSACTION_FAILED);
    EXPECT_EQ(logs[1].transaction_error, STATUS_NO_MEMORY);
    EXPECT_EQ(logs[1].service_specific_error_code, 0);

    EXPECT_EQ(logs[2].method_name, "request");
    EXPECT_EQ(logs[2].exception_code, EX_NONE);
    EXPECT_EQ(logs[2].exception_message, "");
    EXPECT_EQ(logs[2].result, "1");
}

TEST_F(RemoteStubTest, CallbackLogHookRunsOnTheReceivingSide) {
    std::mutex mu;
    std::vector<BnTorqCallback::TransactionLog> logs;
    BnTorqCallback::logFunc = [&](const BnTorqCallback::TransactionLog& log) {
        std::lock_guard<std::mutex> lock(mu);
        logs.push_back(log);
    };
    auto callback = ndk::SharedRefBase::make<RecordingCallback>();
    int32_t handle = -1;
    ASSERT_TRUE(torq_->listeningRegister(TorqRequestParcel{}, callback, &handle).isOk());
    ASSERT_TRUE(hal_->invokeCallback(0, {idRecord(3, std::string("v"))}).isOk());
    ASSERT_TRUE(callback->waitForCalls(1));
    ASSERT_TRUE(binder_host::drain());

    std::lock_guard<std::mutex> lock(mu);
    ASSERT_EQ(logs.size(), 1u);
    EXPECT_EQ(logs[0].interface_name, "vendor.quarn.hardware.torq.ITorqCallback");
    EXPECT_EQ(logs[0].method_name, "onCallback");
    EXPECT_EQ(logs[0].exception_code, EX_NONE);
    EXPECT_EQ(logs[0].exception_message, "");
    EXPECT_EQ(logs[0].transaction_error, 0);
    EXPECT_EQ(logs[0].service_specific_error_code, 0);
    EXPECT_EQ(logs[0].stub_address, static_cast<const void*>(callback.get()));
    ASSERT_EQ(logs[0].input_args.size(), 1u);
    EXPECT_EQ(logs[0].input_args[0].first, "in_data");
    EXPECT_NE(logs[0].input_args[0].second.find("id: 3"), std::string::npos);
}

TEST_F(RemoteStubTest, ProxyLogHookSeesResultAndTransportErrors) {
    std::vector<BpTorq::TransactionLog> logs;
    BpTorq::logFunc = [&](const BpTorq::TransactionLog& log) { logs.push_back(log); };
    Answer a;
    a.result = 44;
    hal_->setAnswer("release", a);
    int32_t r = -1;
    ASSERT_TRUE(torq_->release(3, &r).isOk());
    hal_->kill();
    EXPECT_FALSE(torq_->release(3, &r).isOk());

    ASSERT_EQ(logs.size(), 2u);
    EXPECT_EQ(logs[0].method_name, "release");
    EXPECT_EQ(logs[0].result, "44");
    EXPECT_EQ(logs[0].proxy_address, static_cast<const void*>(torq_.get()));
    EXPECT_EQ(logs[0].stub_address, nullptr);
    EXPECT_EQ(logs[1].exception_code, EX_TRANSACTION_FAILED);
    EXPECT_EQ(logs[1].transaction_error, STATUS_DEAD_OBJECT);
}

// --- Peers that do not follow the protocol ------------------------------------------------

// A server for the ITorq descriptor with its own class: it answers every transaction the way
// `g_rawMode` says, like a HAL built from another (broken or older) version would.
enum class RawMode { kUnknown, kStatusOnly, kBadRecords, kShortRecord };
std::atomic<RawMode> g_rawMode{RawMode::kUnknown};

binder_status_t rawTransact(AIBinder*, transaction_code_t, const AParcel*, AParcel* out) {
    switch (g_rawMode.load()) {
        case RawMode::kUnknown:
            return STATUS_UNKNOWN_TRANSACTION;
        case RawMode::kStatusOnly: {
            ndk::ScopedAStatus ok = ndk::ScopedAStatus::ok();
            return AParcel_writeStatusHeader(out, ok.get());  // and no result
        }
        case RawMode::kBadRecords: {
            ndk::ScopedAStatus ok = ndk::ScopedAStatus::ok();
            AParcel_writeStatusHeader(out, ok.get());
            AParcel_writeInt32(out, 1);  // one record
            AParcel_writeInt32(out, 1);  // present
            AParcel_writeInt32(out, 2);  // size below its own header
            return STATUS_OK;
        }
        case RawMode::kShortRecord: {
            // A record from a sender that only knew `id`.
            ndk::ScopedAStatus ok = ndk::ScopedAStatus::ok();
            AParcel_writeStatusHeader(out, ok.get());
            AParcel_writeInt32(out, 1);
            AParcel_writeInt32(out, 1);
            AParcel_writeInt32(out, 8);
            AParcel_writeInt32(out, 0x55);
            return STATUS_OK;
        }
    }
    return STATUS_UNKNOWN_ERROR;
}

void* rawCreate(void*) {
    static int userData;
    return &userData;
}
void rawDestroy(void*) {}

class RawPeerTest : public RemoteStubTest {
  protected:
    void SetUp() override {
        RemoteStubTest::SetUp();
        binder_host::ProcessId other = binder_host::createProcess("raw-torq");
        ASSERT_TRUE(binder_host::runInProcess(other, [] {
            static AIBinder_Class* clazz =
                    AIBinder_Class_define(ITorq::descriptor, rawCreate, rawDestroy, rawTransact);
            ndk::SpAIBinder binder(AIBinder_new(clazz, nullptr));
            EXPECT_EQ(AServiceManager_addService(binder.get(),
                                                 "vendor.quarn.hardware.torq.ITorq/raw"),
                      EX_NONE);
        }));
        raw_ = connect("vendor.quarn.hardware.torq.ITorq/raw");
        ASSERT_NE(raw_, nullptr);
    }
    void TearDown() override {
        raw_.reset();
        RemoteStubTest::TearDown();
    }
    std::shared_ptr<ITorq> raw_;
};

TEST_F(RawPeerTest, ReplyMissingItsResultIsAnError) {
    g_rawMode = RawMode::kStatusOnly;
    int32_t r = -1;
    ndk::ScopedAStatus st = raw_->request(TorqRequestParcel{}, &r);
    EXPECT_FALSE(st.isOk());
    EXPECT_EQ(st.getExceptionCode(), EX_TRANSACTION_FAILED);
    EXPECT_NE(st.getStatus(), STATUS_OK);
    // init has no result: the status header alone is a complete reply.
    EXPECT_TRUE(raw_->init().isOk());
}

TEST_F(RawPeerTest, MalformedRecordInAReplyIsAnError) {
    g_rawMode = RawMode::kBadRecords;
    std::vector<TorqRequestData> out;
    ndk::ScopedAStatus st = raw_->stateRequest(TorqRequestParcel{}, &out);
    EXPECT_EQ(st.getExceptionCode(), EX_TRANSACTION_FAILED);
    EXPECT_EQ(st.getStatus(), STATUS_BAD_VALUE);
}

TEST_F(RawPeerTest, RecordFromAnOlderSenderIsAccepted) {
    g_rawMode = RawMode::kShortRecord;
    std::vector<TorqRequestData> out;
    ASSERT_TRUE(raw_->stateRequest(TorqRequestParcel{}, &out).isOk());
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0], idRecord(0x55));
}

class OldHalDefault : public ITorqDefault {
  public:
    ndk::ScopedAStatus release(int32_t handle, int32_t* ret) override {
        *ret = handle * 2;
        return ndk::ScopedAStatus::ok();
    }
};

TEST_F(RawPeerTest, UnknownTransactionFallsBackToTheDefaultImplementation) {
    g_rawMode = RawMode::kUnknown;
    int32_t r = -1;
    if (!ITorq::getDefaultImpl()) {
        ndk::ScopedAStatus st = raw_->release(21, &r);
        EXPECT_EQ(st.getExceptionCode(), EX_TRANSACTION_FAILED);
        EXPECT_EQ(st.getStatus(), STATUS_UNKNOWN_TRANSACTION);
        EXPECT_EQ(r, -1);
        // Once per process: the default implementation cannot be replaced.
        ASSERT_TRUE(ITorq::setDefaultImpl(ndk::SharedRefBase::make<OldHalDefault>()));
    }
    ASSERT_TRUE(raw_->release(21, &r).isOk());
    EXPECT_EQ(r, 42);
    // Methods the default does not implement report an unknown transaction.
    ndk::ScopedAStatus st = raw_->init();
    EXPECT_EQ(st.getStatus(), STATUS_UNKNOWN_TRANSACTION);
    // A HAL that knows the transaction is not affected.
    ASSERT_TRUE(torq_->release(21, &r).isOk());
    EXPECT_EQ(r, 1);
}

// A client that sends garbage: the HAL refuses the transaction and does not crash.
TEST_F(RemoteStubTest, MalformedRequestsAreRefusedWithoutReachingTheHal) {
    ndk::SpAIBinder binder(AServiceManager_checkService(kTorqInstance));
    ASSERT_NE(binder.get(), nullptr);
    struct Case {
        transaction_code_t code;
        std::function<void(AParcel*)> write;
    };
    const Case cases[] = {
            {ITorq::TRANSACTION_request, [](AParcel*) {}},  // nothing after the token
            {ITorq::TRANSACTION_request,
             [](AParcel* p) {
                 AParcel_writeInt32(p, 1);  // present
                 AParcel_writeInt32(p, 2);  // size below its header
             }},
            {ITorq::TRANSACTION_request,
             [](AParcel* p) {
                 AParcel_writeInt32(p, 0);  // a null parcelable
             }},
            {ITorq::TRANSACTION_ruleCtl,
             [](AParcel* p) {
                 AParcel_writeInt32(p, 1);
                 AParcel_writeInt32(p, 1);
                 AParcel_writeInt32(p, -5);  // vector length
             }},
            {ITorq::TRANSACTION_propertySet,
             [](AParcel* p) {
                 AParcel_writeInt32(p, 1000);  // string length past the end
                 AParcel_writeInt32(p, 0x00410041);
             }},
            {ITorq::TRANSACTION_thermalListeningRegister,
             [](AParcel* p) {
                 AParcel_writeInt32(p, INT32_MAX);  // ids length
             }},
    };
    for (const auto& c : cases) {
        AParcel* in = nullptr;
        ASSERT_EQ(AIBinder_prepareTransaction(binder.get(), &in), STATUS_OK);
        c.write(in);
        AParcel* out = nullptr;
        binder_status_t st = AIBinder_transact(binder.get(), c.code, &in, &out, 0);
        EXPECT_NE(st, STATUS_OK) << "code " << c.code;
        if (out != nullptr) AParcel_delete(out);
    }
    EXPECT_TRUE(hal_->calls().empty());
    EXPECT_TRUE(hal_->alive());
    int32_t r = -1;
    EXPECT_TRUE(torq_->release(1, &r).isOk());
}

TEST_F(RemoteStubTest, UnknownCodeIsAnUnknownTransaction) {
    ndk::SpAIBinder binder(AServiceManager_checkService(kTorqInstance));
    AParcel* in = nullptr;
    ASSERT_EQ(AIBinder_prepareTransaction(binder.get(), &in), STATUS_OK);
    AParcel* out = nullptr;
    EXPECT_EQ(AIBinder_transact(binder.get(), ITorq::TRANSACTION_ruleCtl + 1, &in, &out, 0),
              STATUS_UNKNOWN_TRANSACTION);
    if (out != nullptr) AParcel_delete(out);
}

}  // namespace
