// Transactions across emulated processes (binder translation and references, oneway ordering,
// the thread limit), process death and death notices.

#include <android/binder_ibinder.h>
#include <android/binder_manager.h>
#include <android/binder_parcel_utils.h>
#include <gtest/gtest.h>

#include <future>
#include <map>
#include <numeric>
#include <vector>

#include "BinderTestSupport.h"

namespace {

using binder_host::currentProcess;
using binder_host::kDefaultProcess;
using binder_host::ProcessId;
using namespace binder_test;

constexpr transaction_code_t kEcho = FIRST_CALL_TRANSACTION;
constexpr transaction_code_t kBlock = FIRST_CALL_TRANSACTION + 1;
constexpr transaction_code_t kKeep = FIRST_CALL_TRANSACTION + 2;
constexpr transaction_code_t kFail = FIRST_CALL_TRANSACTION + 3;

binder_status_t echo(AIBinder*, transaction_code_t, const AParcel*, AParcel* out) {
    return AParcel_writeInt32(out, currentProcess());
}

// A call whose request and reply are one int32 each (the reply is 0 when there is none).
int32_t callWith(const ndk::SpAIBinder& binder, int32_t arg, binder_flags_t flags = 0) {
    int32_t value = 0;
    EXPECT_EQ(STATUS_OK,
              call(
                      binder, kEcho, [arg](AParcel* in) { AParcel_writeInt32(in, arg); },
                      [&](const AParcel* out) { AParcel_readInt32(out, &value); }, flags));
    return value;
}

// Death notices that arrived: cookie -> the process whose binder thread it arrived on.
using Notices = std::multimap<void*, ProcessId>;
std::mutex gNoticeMutex;
std::condition_variable gNoticeCv;
Notices gNotices;

void onDied(void* cookie) {
    std::lock_guard<std::mutex> lock(gNoticeMutex);
    gNotices.emplace(cookie, binder_host::onBinderThread() ? currentProcess() : -1);
    gNoticeCv.notify_all();
}

Notices notices(size_t waitFor = 0) {
    std::unique_lock<std::mutex> lock(gNoticeMutex);
    gNoticeCv.wait_for(lock, std::chrono::seconds(5), [&] { return gNotices.size() >= waitFor; });
    return gNotices;
}

class TransactionTest : public BinderTest {
  protected:
    void SetUp() override {
        BinderTest::SetUp();
        std::lock_guard<std::mutex> lock(gNoticeMutex);
        gNotices.clear();
        hal = binder_host::createProcess("hal", 4);
    }
    ProcessId hal = 0;
};

// A binder sent to another process arrives there as one proxy however often it is read, can be
// called back through, and dropping the proxy releases the object.
TEST_F(TransactionTest, BindersCrossAsOneProxyAndAreReleasedWhenDropped) {
    startService(hal, "svc",
                 [](AIBinder*, transaction_code_t, const AParcel* in, AParcel*) -> binder_status_t {
                     ndk::SpAIBinder callback, again;
                     binder_status_t status = ndk::AParcel_readData(in, &callback);
                     if (status == STATUS_OK) status = ndk::AParcel_readData(in, &again);
                     if (status != STATUS_OK) return status;
                     if (callback != again || !AIBinder_isRemote(callback.get())) {
                         return STATUS_BAD_VALUE;
                     }
                     AIBinder_associateClass(callback.get(), serviceClass());
                     return call(callback, kEcho);
                 });
    std::atomic<int> destroyed{0};
    ndk::SpAIBinder callback = makeBinder(
            [](AIBinder*, transaction_code_t, const AParcel*, AParcel*) { return STATUS_OK; },
            &destroyed);
    ASSERT_EQ(STATUS_OK, call(getService("svc"), kEcho, [&](AParcel* in) {
                  ndk::AParcel_writeData(in, callback);
                  ndk::AParcel_writeData(in, callback);
              }));
    callback.set(nullptr);
    ASSERT_TRUE(binder_host::drain());
    EXPECT_EQ(1, destroyed.load()) << "the HAL's dropped proxy still holds the object";
}

// A caller's transaction record and its parcels are reused for its next call: nothing of a failed
// call (its reply and the binders in it) may show in a later one.
TEST_F(TransactionTest, AFailedCallLeavesNothingInTheNextOne) {
    startService(hal, "svc",
                 [](AIBinder*, transaction_code_t code, const AParcel* in,
                    AParcel* out) -> binder_status_t {
                     int32_t words = 0;
                     AParcel_readInt32(in, &words);
                     for (int32_t i = 0; i < words; ++i) AParcel_writeInt32(out, 7);
                     if (code != kFail) return STATUS_OK;
                     ndk::AParcel_writeData(out, makeBinder(nullptr));
                     return STATUS_BAD_VALUE;
                 });
    ndk::SpAIBinder svc = getService("svc");
    for (int32_t words : {32, 1, 0}) {
        auto writeWords = [words](AParcel* in) { AParcel_writeInt32(in, words); };
        EXPECT_EQ(STATUS_BAD_VALUE, call(svc, kFail, writeWords));
        ASSERT_TRUE(binder_host::drain());  // the HAL has let go of the record: it is reused
        int32_t size = -1;
        EXPECT_EQ(STATUS_OK, call(svc, kEcho, writeWords,
                                  [&](const AParcel* out) { size = AParcel_getDataSize(out); }));
        EXPECT_EQ(words * 4, size);
    }
    svc.set(nullptr);
    binder_host::killProcess(hal);
    ASSERT_TRUE(binder_host::drain());
    EXPECT_EQ(0u, binder_host::liveBinderCount(hal)) << "a failed reply's binder is still held";
}

// Records the int32 of each request in the order served and answers it plus one; a negative one
// first holds the binder thread until released.
struct Recorder {
    Latch held, release;
    std::mutex mutex;
    std::vector<int32_t> order;

    Handler handler() {
        return [this](AIBinder*, transaction_code_t, const AParcel* in, AParcel* out) {
            int32_t value = 0;
            AParcel_readInt32(in, &value);
            if (value < 0) {
                held.open();
                release.wait();
            }
            std::lock_guard<std::mutex> lock(mutex);
            order.push_back(value);
            return AParcel_writeInt32(out, value + 1);
        };
    }
    std::vector<int32_t> served() {
        std::lock_guard<std::mutex> lock(mutex);
        return order;
    }
};

// -1, then 0 to n - 1.
std::vector<int32_t> heldThen(int32_t n) {
    std::vector<int32_t> values(static_cast<size_t>(n) + 1);
    std::iota(values.begin(), values.end(), -1);
    return values;
}

TEST_F(TransactionTest, OnewayCallsDoNotWaitAndArriveInOrderOneAtATime) {
    Recorder recorder;
    startService(hal, "sink", recorder.handler());
    ndk::SpAIBinder sink = getService("sink");
    constexpr int32_t kCalls = 300;
    // The first call holds a binder thread of the HAL; the caller goes on regardless, and the
    // rest wait behind it although the HAL has threads to spare.
    for (int32_t i = -1; i < kCalls; ++i) callWith(sink, i, FLAG_ONEWAY);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_TRUE(recorder.served().empty()) << "a oneway call waited, or overtook the held one";
    recorder.release.open();
    ASSERT_TRUE(binder_host::drain());
    EXPECT_EQ(heldThen(kCalls), recorder.served());
}

TEST_F(TransactionTest, WorkQueuedBehindABusyThreadIsServedInOrderAndSleepingCallersWake) {
    // One binder thread: while it is held, the first call to each other object waits in the
    // process's queue, more of them than the queue has room for at first.
    const ProcessId single = binder_host::createProcess("single", 1);
    Recorder recorder;
    constexpr int32_t kObjects = 40;
    const Handler record = recorder.handler();
    startService(single, "gate", record);
    for (int32_t i = 0; i < kObjects; ++i) startService(single, "n" + std::to_string(i), record);
    ndk::SpAIBinder gate = getService("gate");
    std::vector<ndk::SpAIBinder> objects;
    for (int32_t i = 0; i < kObjects; ++i) objects.push_back(getService("n" + std::to_string(i)));
    // Served calls move the queue's start away from its first slot before it has to grow.
    for (int32_t i = 0; i < 5; ++i) ASSERT_EQ(i + 1, callWith(gate, i));
    recorder.order.clear();

    auto holder = std::async(std::launch::async, [&] { return callWith(gate, -1); });
    ASSERT_TRUE(recorder.held.wait());
    for (int32_t i = 0; i < kObjects; ++i)
        callWith(objects[static_cast<size_t>(i)], i, FLAG_ONEWAY);
    // Queued behind them all: its caller polls in vain, sleeps, and must be woken by the reply.
    auto last = std::async(std::launch::async, [&] { return callWith(objects[0], kObjects); });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_TRUE(recorder.served().empty()) << "a second thread took up the queued work";
    recorder.release.open();
    EXPECT_EQ(0, holder.get());
    EXPECT_EQ(kObjects + 1, last.get());
    ASSERT_TRUE(binder_host::drain());
    EXPECT_EQ(heldThen(kObjects + 1), recorder.served());
}

TEST_F(TransactionTest, DeathFailsPendingCallsReleasesWhatTheDeadHeldAndIsNotifiedOncePerLink) {
    // kBlock blocks in the HAL until released; kKeep hands it a binder it keeps.
    Latch entered, release;
    std::vector<ndk::SpAIBinder> kept;
    startService(hal, "svc",
                 [&](AIBinder* self, transaction_code_t code, const AParcel* in, AParcel* out) {
                     if (code == kKeep) {
                         kept.emplace_back();
                         return ndk::AParcel_readData(in, &kept.back());
                     }
                     if (code == kBlock) {
                         entered.open();
                         release.wait(std::chrono::seconds(10));
                     }
                     return echo(self, code, in, out);
                 });
    ndk::SpAIBinder svc = getService("svc");
    std::atomic<int> destroyed{0};
    {
        ndk::SpAIBinder object = makeBinder(nullptr, &destroyed);
        ASSERT_EQ(STATUS_OK,
                  call(svc, kKeep, [&](AParcel* in) { ndk::AParcel_writeData(in, object); }));
    }
    ASSERT_TRUE(binder_host::drain());
    EXPECT_EQ(0, destroyed.load());
    ndk::ScopedAIBinder_DeathRecipient recipient(AIBinder_DeathRecipient_new(onDied));
    int cookieA = 0, cookieB = 0;
    ASSERT_EQ(STATUS_OK, AIBinder_linkToDeath(svc.get(), recipient.get(), &cookieA));
    ASSERT_EQ(STATUS_OK, AIBinder_linkToDeath(svc.get(), recipient.get(), &cookieB));

    auto pending = std::async(std::launch::async, [&] { return call(svc, kBlock); });
    ASSERT_TRUE(entered.wait());
    binder_host::killProcess(hal);
    ASSERT_EQ(std::future_status::ready, pending.wait_for(std::chrono::seconds(5)));
    EXPECT_EQ(STATUS_DEAD_OBJECT, pending.get());
    release.open();  // the HAL thread finishes; its late reply goes nowhere
    ASSERT_EQ(2u, notices(2).size());
    ASSERT_TRUE(binder_host::drain());
    EXPECT_EQ(1, destroyed.load());  // the dead let go of everything they held
    EXPECT_EQ((Notices{{&cookieA, kDefaultProcess}, {&cookieB, kDefaultProcess}}), notices());

    EXPECT_EQ(STATUS_DEAD_OBJECT, call(svc, kEcho));
    EXPECT_EQ(nullptr, AServiceManager_checkService("svc"));
}

}  // namespace
