// The fake HAL itself: answers, records, handles, callbacks, death and restart.

#include <aidl/vendor/quarn/hardware/torq/BnTorqCallback.h>
#include <android/binder_ibinder.h>
#include <android/binder_manager.h>
#include <binder_host/process.h>
#include <gtest/gtest.h>
#include <torq_test/FakeTorqHal.h>

#include <atomic>
#include <thread>

namespace {

using ::aidl::vendor::quarn::hardware::torq::BnTorqCallback;
using namespace torq_test;

class CountingCallback : public BnTorqCallback {
  public:
    ndk::ScopedAStatus onCallback(const std::vector<TorqRequestData>& data) override {
        received += data.size();
        ++calls;
        return ndk::ScopedAStatus::ok();
    }
    std::atomic<size_t> received{0};
    std::atomic<int> calls{0};
};

class FakeHalTest : public ::testing::Test {
  protected:
    void SetUp() override { binder_host::reset(); }
    void TearDown() override { binder_host::reset(); }

    static std::shared_ptr<ITorq> connect() {
        ndk::SpAIBinder binder(AServiceManager_checkService(kTorqInstance));
        return ITorq::fromBinder(binder);
    }
};

TEST_F(FakeHalTest, RegistersInItsOwnProcessAndDeclaresOnRequest) {
    {
        FakeTorqHal hal;
        EXPECT_TRUE(hal.alive());
        EXPECT_NE(hal.pid(), binder_host::kDefaultProcess);
        EXPECT_TRUE(AServiceManager_isDeclared(kTorqInstance));
        auto torq = connect();
        ASSERT_NE(torq, nullptr);
        EXPECT_TRUE(torq->isRemote());
    }
    // Gone with the fake: not registered, not declared.
    EXPECT_EQ(ndk::SpAIBinder(AServiceManager_checkService(kTorqInstance)).get(), nullptr);
    EXPECT_FALSE(AServiceManager_isDeclared(kTorqInstance));

    FakeTorqHal undeclared(/*declare=*/false);
    EXPECT_FALSE(AServiceManager_isDeclared(kTorqInstance));
    EXPECT_NE(connect(), nullptr);
}

TEST_F(FakeHalTest, HandlesCountUpAcrossHandleMethodsUnlessFixed) {
    FakeTorqHal hal;
    auto torq = connect();
    auto cb = ndk::SharedRefBase::make<CountingCallback>();
    int32_t h = 0;
    ASSERT_TRUE(torq->request({}, &h).isOk());
    EXPECT_EQ(h, 1);
    ASSERT_TRUE(torq->listeningRegister({}, cb, &h).isOk());
    EXPECT_EQ(h, 2);
    ASSERT_TRUE(torq->thermalListeningRegister({7}, cb, &h).isOk());
    EXPECT_EQ(h, 3);
    ASSERT_TRUE(torq->release(3, &h).isOk());
    EXPECT_EQ(h, 1);  // not a handle method: the default result

    Answer fixed;
    fixed.result = 500;
    hal.setAnswer("request", fixed);
    Answer once;
    once.result = -9;
    hal.answerOnce("request", once);
    ASSERT_TRUE(torq->request({}, &h).isOk());
    EXPECT_EQ(h, -9);
    ASSERT_TRUE(torq->request({}, &h).isOk());
    EXPECT_EQ(h, 500);
    ASSERT_TRUE(torq->request({}, &h).isOk());
    EXPECT_EQ(h, 500);

    hal.setDefaultAnswers();
    ASSERT_TRUE(torq->request({}, &h).isOk());
    EXPECT_EQ(h, 4);
    hal.setAutoHandles(false);
    ASSERT_TRUE(torq->request({}, &h).isOk());
    EXPECT_EQ(h, 1);
}

TEST_F(FakeHalTest, AnswerWithoutResultKeepsThePresetValueOnlyOnFailure) {
    FakeTorqHal hal;
    auto torq = connect();
    Answer failing;
    failing.exception = EX_ILLEGAL_STATE;
    failing.writeResult = false;
    hal.answerOnce("release", failing);
    int32_t r = -1;
    EXPECT_FALSE(torq->release(1, &r).isOk());
    EXPECT_EQ(r, -1);

    Answer silent;
    silent.writeResult = false;
    hal.answerOnce("release", silent);
    EXPECT_TRUE(torq->release(1, &r).isOk());
    EXPECT_EQ(r, 0);  // an OK reply always carries a value
}

TEST_F(FakeHalTest, RecordsCallsInOrderWithTheCallingProcess) {
    FakeTorqHal hal;
    auto torq = connect();
    int32_t r = 0;
    ASSERT_TRUE(torq->init().isOk());
    ASSERT_TRUE(torq->release(5, &r).isOk());
    binder_host::ProcessId client = binder_host::createProcess("client");
    ASSERT_TRUE(binder_host::runInProcess(client, [&] {
        auto t = connect();
        ASSERT_NE(t, nullptr);
        int32_t x = 0;
        EXPECT_TRUE(t->listeningUnregister(6, &x).isOk());
    }));

    auto calls = hal.calls();
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[0].method, "init");
    EXPECT_EQ(calls[1].method, "release");
    EXPECT_EQ(calls[1].handle, 5);
    EXPECT_EQ(calls[1].callingProcess, binder_host::kDefaultProcess);
    EXPECT_EQ(calls[2].method, "listeningUnregister");
    EXPECT_EQ(calls[2].callingProcess, client);
    EXPECT_EQ(hal.count("release"), 1u);
    EXPECT_EQ(hal.calls("init").size(), 1u);
    EXPECT_EQ(hal.last("listeningUnregister").handle, 6);

    hal.clearCalls();
    EXPECT_TRUE(hal.calls().empty());
}

TEST_F(FakeHalTest, WaitForCallsSeesCallsFromOtherThreads) {
    FakeTorqHal hal;
    EXPECT_FALSE(hal.waitForCalls("release", 1, 50));
    std::thread caller([] {
        auto torq = connect();
        int32_t r = 0;
        for (int i = 0; i < 3; ++i) EXPECT_TRUE(torq->release(i, &r).isOk());
    });
    EXPECT_TRUE(hal.waitForCalls("release", 3));
    caller.join();
}

TEST_F(FakeHalTest, KeepsInvokesAndDropsCallbacks) {
    FakeTorqHal hal;
    auto torq = connect();
    auto a = ndk::SharedRefBase::make<CountingCallback>();
    auto b = ndk::SharedRefBase::make<CountingCallback>();
    TorqRequestParcel withCallback;
    withCallback.callback = a;
    int32_t h = 0;
    ASSERT_TRUE(torq->request(withCallback, &h).isOk());
    ASSERT_TRUE(torq->request({}, &h).isOk());  // no callback: nothing kept
    ASSERT_TRUE(torq->thermalListeningRegister({}, b, &h).isOk());
    ASSERT_EQ(hal.callbackCount(), 2u);
    EXPECT_TRUE(hal.last("thermalListeningRegister").hasCallback);
    EXPECT_EQ(hal.last("request").parcel.callback, nullptr);  // records keep no callback

    ASSERT_TRUE(hal.invokeCallback(1, {idRecord(1), idRecord(2)}).isOk());
    ASSERT_TRUE(hal.invokeCallback(0, {idRecord(1)}).isOk());
    ASSERT_TRUE(binder_host::drain());
    EXPECT_EQ(a->received, 1u);
    EXPECT_EQ(b->received, 2u);
    EXPECT_EQ(hal.invokeCallback(2, {}).getStatus(), STATUS_BAD_INDEX);

    hal.dropCallbacks();
    EXPECT_EQ(hal.callbackCount(), 0u);
    EXPECT_EQ(hal.invokeCallback(0, {}).getStatus(), STATUS_BAD_INDEX);
}

void onDeath(void* cookie) {
    static_cast<std::atomic<int>*>(cookie)->fetch_add(1);
}

TEST_F(FakeHalTest, KillFiresDeathNoticesAndRestartServesAgain) {
    FakeTorqHal hal;
    auto torq = connect();
    auto cb = ndk::SharedRefBase::make<CountingCallback>();
    int32_t h = 0;
    ASSERT_TRUE(torq->listeningRegister({}, cb, &h).isOk());
    std::atomic<int> deaths{0};
    ndk::ScopedAIBinder_DeathRecipient recipient(AIBinder_DeathRecipient_new(onDeath));
    ASSERT_EQ(AIBinder_linkToDeath(torq->asBinder().get(), recipient.get(), &deaths), STATUS_OK);
    binder_host::ProcessId first = hal.pid();

    hal.kill();
    EXPECT_FALSE(hal.alive());
    ASSERT_TRUE(binder_host::drain());
    EXPECT_EQ(deaths, 1);
    EXPECT_EQ(hal.callbackCount(), 0u);  // a dead HAL holds nothing
    int32_t r = -1;
    EXPECT_EQ(torq->release(1, &r).getStatus(), STATUS_DEAD_OBJECT);
    EXPECT_EQ(ndk::SpAIBinder(AServiceManager_checkService(kTorqInstance)).get(), nullptr);
    EXPECT_TRUE(AServiceManager_isDeclared(kTorqInstance));  // still in the manifest

    hal.restart();
    EXPECT_TRUE(hal.alive());
    EXPECT_NE(hal.pid(), first);
    auto again = connect();
    ASSERT_NE(again, nullptr);
    ASSERT_TRUE(again->request({}, &h).isOk());
    EXPECT_EQ(h, 1);                                // a new HAL counts from 1 again
    EXPECT_EQ(hal.count("listeningRegister"), 1u);  // the record survives the restart
}

TEST_F(FakeHalTest, DeadProcessGivesDeadObjectForCallbacks) {
    FakeTorqHal hal;
    auto torq = connect();
    auto cb = ndk::SharedRefBase::make<CountingCallback>();
    int32_t h = 0;
    ASSERT_TRUE(torq->listeningRegister({}, cb, &h).isOk());
    binder_host::killProcess(hal.pid());
    EXPECT_EQ(hal.invokeCallback(0, {}).getStatus(), STATUS_DEAD_OBJECT);
}

}  // namespace
