// The fake HAL itself, where a fault would quietly weaken the tests built on it: what it records,
// what it answers without a result, its callbacks, and death and restart.

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
        return ndk::ScopedAStatus::ok();
    }
    std::atomic<size_t> received{0};
};

class FakeHalTest : public ::testing::Test {
  protected:
    void SetUp() override { binder_host::reset(); }
    void TearDown() override { binder_host::reset(); }

    static std::shared_ptr<ITorq> connect() {
        return ITorq::fromBinder(ndk::SpAIBinder(AServiceManager_checkService(kTorqInstance)));
    }
};

TEST_F(FakeHalTest, RecordsEveryCallInOrderWithTheCallingProcess) {
    FakeTorqHal hal;
    auto torq = connect();
    ASSERT_NE(torq, nullptr);
    EXPECT_TRUE(torq->isRemote());
    int32_t r = 0;
    ASSERT_TRUE(torq->init().isOk());
    ASSERT_TRUE(torq->release(5, &r).isOk());
    binder_host::ProcessId client = binder_host::createProcess("client");
    ASSERT_TRUE(binder_host::runInProcess(client, [&] {
        int32_t x = 0;
        EXPECT_TRUE(connect()->listeningUnregister(6, &x).isOk());
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

    EXPECT_FALSE(hal.waitForCalls("release", 1, 50));
    std::thread caller([] {
        int32_t r = 0;
        for (int i = 0; i < 3; ++i) EXPECT_TRUE(connect()->release(i, &r).isOk());
    });
    EXPECT_TRUE(hal.waitForCalls("release", 3));
    caller.join();
}

TEST_F(FakeHalTest, AnswersOnceBeforeTheStandingAnswerAndMayLeaveTheResultUnset) {
    FakeTorqHal hal;
    auto torq = connect();
    Answer fixed;
    fixed.result = 500;
    hal.setAnswer("release", fixed);
    Answer failing;
    failing.exception = EX_ILLEGAL_STATE;
    failing.writeResult = false;
    hal.answerOnce("release", failing);
    int32_t r = -1;
    EXPECT_FALSE(torq->release(1, &r).isOk());
    EXPECT_EQ(r, -1);  // the caller's value stays
    ASSERT_TRUE(torq->release(1, &r).isOk());
    EXPECT_EQ(r, 500);
    Answer silent;
    silent.writeResult = false;
    hal.answerOnce("release", silent);
    ASSERT_TRUE(torq->release(1, &r).isOk());
    EXPECT_EQ(r, 0);  // an OK reply always carries a value
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
    auto hal = std::make_unique<FakeTorqHal>();
    EXPECT_NE(hal->pid(), binder_host::kDefaultProcess);
    EXPECT_TRUE(AServiceManager_isDeclared(kTorqInstance));
    auto torq = connect();
    auto cb = ndk::SharedRefBase::make<CountingCallback>();
    int32_t h = 0;
    ASSERT_TRUE(torq->listeningRegister({}, cb, &h).isOk());
    EXPECT_EQ(h, 1);  // handles count up from 1 across the handle methods
    std::atomic<int> deaths{0};
    ndk::ScopedAIBinder_DeathRecipient recipient(AIBinder_DeathRecipient_new(onDeath));
    ASSERT_EQ(AIBinder_linkToDeath(torq->asBinder().get(), recipient.get(), &deaths), STATUS_OK);
    const binder_host::ProcessId first = hal->pid();

    hal->kill();
    EXPECT_FALSE(hal->alive());
    ASSERT_TRUE(binder_host::drain());
    EXPECT_EQ(deaths, 1);
    EXPECT_EQ(hal->callbackCount(), 0u);  // a dead HAL holds nothing
    EXPECT_EQ(torq->release(1, &h).getStatus(), STATUS_DEAD_OBJECT);
    EXPECT_EQ(connect(), nullptr);
    EXPECT_TRUE(AServiceManager_isDeclared(kTorqInstance));  // still in the manifest

    hal->restart();
    EXPECT_TRUE(hal->alive());
    EXPECT_NE(hal->pid(), first);
    auto again = connect();
    ASSERT_NE(again, nullptr);
    ASSERT_TRUE(again->thermalListeningRegister({}, cb, &h).isOk());
    EXPECT_EQ(h, 1);                                 // a new HAL counts from 1 again
    EXPECT_EQ(hal->count("listeningRegister"), 1u);  // the record survives the restart
    ASSERT_TRUE(again->request({}, &h).isOk());
    EXPECT_EQ(h, 2);

    // Killed behind the fake's back, the HAL still knows its callbacks but cannot reach them.
    binder_host::killProcess(hal->pid());
    EXPECT_EQ(hal->invokeCallback(0, {}).getStatus(), STATUS_DEAD_OBJECT);

    // Gone with the fake: neither registered nor declared.
    hal.reset();
    EXPECT_EQ(connect(), nullptr);
    EXPECT_FALSE(AServiceManager_isDeclared(kTorqInstance));
    FakeTorqHal undeclared(/*declare=*/false);
    EXPECT_FALSE(AServiceManager_isDeclared(kTorqInstance));
    EXPECT_NE(connect(), nullptr);
}

}  // namespace
