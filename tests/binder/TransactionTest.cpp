// Transactions inside and across emulated processes (threads, binder translation, references,
// oneway ordering, concurrency), process death and death notices, and the service manager.

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
constexpr transaction_code_t kDrop = FIRST_CALL_TRANSACTION + 2;
constexpr transaction_code_t kKeep = FIRST_CALL_TRANSACTION + 3;

binder_status_t echo(AIBinder*, transaction_code_t, const AParcel*, AParcel* out) {
    return AParcel_writeInt32(out, currentProcess());
}

struct Place {
    ProcessId process = 0;
    pid_t callingPid = 0;
    bool binderThread = false;
    bool handling = false;
    std::thread::id thread;
};

Place here() {
    return Place{currentProcess(), AIBinder_getCallingPid(), binder_host::onBinderThread(),
                 AIBinder_isHandlingTransaction(), std::this_thread::get_id()};
}

// Death notices that arrived: cookie -> the process whose binder thread it arrived on (-1 when
// not on a binder thread).
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
    ndk::ScopedAIBinder_DeathRecipient recipient{AIBinder_DeathRecipient_new(onDied)};
};
using LifecycleTest = TransactionTest;

TEST_F(TransactionTest, CallsRunInTheObjectsProcessOnABinderThread) {
    // The HAL reads the client's binder twice (one proxy there) and calls it.
    Place halPlace, place;
    startService(hal, "svc",
                 [&](AIBinder*, transaction_code_t, const AParcel* in, AParcel*) -> binder_status_t {
                     halPlace = here();
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
    ndk::SpAIBinder callback =
            makeBinder([&](AIBinder*, transaction_code_t, const AParcel*, AParcel*) {
                place = here();
                return STATUS_OK;
            });
    ndk::SpAIBinder svc = getService("svc");
    EXPECT_FALSE(AIBinder_isRemote(callback.get()));
    // Twice: the HAL's proxy from the first round is gone by the second.
    for (int round = 0; round < 2; ++round) {
        SCOPED_TRACE(round);
        ASSERT_EQ(STATUS_OK, call(svc, kEcho, [&](AParcel* in) {
                      ndk::AParcel_writeData(in, callback);
                      ndk::AParcel_writeData(in, callback);
                  }));
        EXPECT_EQ(hal, halPlace.process);
        EXPECT_EQ(kDefaultProcess, halPlace.callingPid);
        EXPECT_TRUE(halPlace.binderThread);
        EXPECT_TRUE(halPlace.handling);
        EXPECT_EQ(kDefaultProcess, place.process);
        EXPECT_EQ(hal, place.callingPid);
        EXPECT_TRUE(place.binderThread);
        EXPECT_NE(std::this_thread::get_id(), place.thread);
    }
    EXPECT_FALSE(AIBinder_isHandlingTransaction());
    EXPECT_EQ(kDefaultProcess, AIBinder_getCallingPid());
}

// Only a binder of the interface's own descriptor, whose requests carry its interface token,
// reaches the object.
TEST_F(TransactionTest, ForeignTokensAndClassesAreRefused) {
    std::atomic<int> calls{0};
    startService(hal, "svc", [&](AIBinder*, transaction_code_t, const AParcel*, AParcel*) {
        ++calls;
        return STATUS_OK;
    });
    ndk::SpAIBinder svc = getService("svc");
    EXPECT_EQ(STATUS_OK, call(svc, kEcho));

    // Another interface's token (of the same length), sent through a class that writes none.
    static AIBinder_Class* tokenless = [] {
        AIBinder_Class* clazz = AIBinder_Class_define(kDescriptor, nullptr, nullptr, noop);
        AIBinder_Class_disableInterfaceTokenHeader(clazz);
        return clazz;
    }();
    svc.set(nullptr);  // one proxy per process and object: let it go to get an unassociated one
    ndk::SpAIBinder raw(AServiceManager_checkService("svc"));
    ASSERT_TRUE(AIBinder_associateClass(raw.get(), tokenless));
    EXPECT_EQ(STATUS_BAD_TYPE, call(raw, kEcho, [](AParcel* in) {
                  for (int32_t word : {0, 0, 0}) AParcel_writeInt32(in, word);
                  ndk::AParcel_writeData(in, std::string("test.binder.IServicf"));
              }));
    EXPECT_EQ(1, calls.load());

    // A different descriptor does not associate, and an unassociated binder cannot transact.
    static AIBinder_Class* other =
            AIBinder_Class_define("test.binder.Other", nullptr, nullptr, noop);
    raw.set(nullptr);
    raw.set(AServiceManager_checkService("svc"));
    EXPECT_FALSE(AIBinder_associateClass(raw.get(), other));
    EXPECT_EQ(STATUS_INVALID_OPERATION, call(raw, kEcho));
}

// Parcels, their buffers and transaction records are reused from one call to the next; nothing
// of an earlier call (bytes, binders, a failed call's reply) may show in a later one.
TEST_F(TransactionTest, ReusedParcelsAndRecordsCarryNothingIntoTheNextCall) {
    startService(hal, "svc",
                 [](AIBinder*, transaction_code_t code, const AParcel* in,
                    AParcel* out) -> binder_status_t {
                     int32_t count = 0;
                     if (AParcel_readInt32(in, &count) != STATUS_OK) return STATUS_BAD_VALUE;
                     for (int32_t i = 0; i < count; ++i) AParcel_writeInt32(out, 7);
                     if (code == kDrop) {
                         // A reply with a binder, then a failure: the reply stays behind.
                         ndk::SpAIBinder extra = makeBinder(noop);
                         ndk::AParcel_writeData(out, extra);
                         return STATUS_BAD_VALUE;
                     }
                     return STATUS_OK;
                 });
    ndk::SpAIBinder svc = getService("svc");
    struct Step {
        transaction_code_t code;
        int32_t words;      // int32 words the HAL writes into the reply
        size_t requestPad;  // extra request bytes (large ones are not kept for reuse)
        binder_status_t expected;
    };
    const Step steps[] = {
            {kEcho, 64, 0, STATUS_OK},    {kDrop, 32, 0, STATUS_BAD_VALUE},
            {kEcho, 1, 0, STATUS_OK},     {kEcho, 0, 0, STATUS_OK},
            {kEcho, 2, 40000, STATUS_OK}, {kDrop, 8, 40000, STATUS_BAD_VALUE},
            {kEcho, 3, 0, STATUS_OK},     {kEcho, 1, 20, STATUS_OK},
    };
    for (int round = 0; round < 3; ++round) {
        for (const Step& step : steps) {
            SCOPED_TRACE(::testing::Message() << "round " << round << ", " << step.words
                                              << " words, code " << step.code);
            int32_t size = -1;
            int32_t first = 0;
            const std::vector<int8_t> pad(step.requestPad, 1);
            const binder_status_t status = call(
                    svc, step.code,
                    [&](AParcel* in) {
                        AParcel_writeInt32(in, step.words);
                        if (!pad.empty()) ndk::AParcel_writeVector(in, pad);
                    },
                    [&](const AParcel* out) {
                        size = AParcel_getDataSize(out);
                        if (step.words > 0) AParcel_readInt32(out, &first);
                    });
            ASSERT_EQ(step.expected, status);
            if (status != STATUS_OK) continue;
            EXPECT_EQ(step.words * 4, size);
            EXPECT_EQ(step.words > 0 ? 7 : 0, first);
        }
        // Oneway calls in between take records and parcels of their own.
        ASSERT_EQ(STATUS_OK, callOneway(svc, kEcho, 5));
    }
    // The binders left in failed replies were dropped: none of the HAL's stays alive.
    svc = ndk::SpAIBinder();
    binder_host::killProcess(hal);
    ASSERT_TRUE(binder_host::drain());
    EXPECT_EQ(0u, binder_host::liveBinderCount(hal));
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
    for (int32_t i = -1; i < kCalls; ++i) ASSERT_EQ(STATUS_OK, callOneway(sink, kEcho, i));
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
    for (int32_t i = 0; i < 5; ++i) ASSERT_EQ(i + 1, callForInt(gate, kEcho, i));
    recorder.order.clear();

    auto holder = std::async(std::launch::async, [&] { return callForInt(gate, kEcho, -1); });
    ASSERT_TRUE(recorder.held.wait());
    for (int32_t i = 0; i < kObjects; ++i) {
        ASSERT_EQ(STATUS_OK, callOneway(objects[static_cast<size_t>(i)], kEcho, i));
    }
    // Queued behind them all: its caller polls in vain, sleeps, and must be woken by the reply.
    auto last =
            std::async(std::launch::async, [&] { return callForInt(objects[0], kEcho, kObjects); });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_TRUE(recorder.served().empty()) << "a second thread took up the queued work";
    recorder.release.open();
    EXPECT_EQ(0, holder.get());
    EXPECT_EQ(kObjects + 1, last.get());
    ASSERT_TRUE(binder_host::drain());
    EXPECT_EQ(heldThen(kObjects + 1), recorder.served());
}

TEST_F(LifecycleTest, DeathFailsPendingCallsReleasesWhatTheDeadHeldAndIsNotifiedOncePerLink) {
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
        // Handed over twice, held by the HAL's one proxy.
        ndk::SpAIBinder object = makeBinder(nullptr, &destroyed);
        for (int i = 0; i < 2; ++i) {
            ASSERT_EQ(STATUS_OK,
                      call(svc, kKeep, [&](AParcel* in) { ndk::AParcel_writeData(in, object); }));
        }
    }
    ASSERT_TRUE(binder_host::drain());
    EXPECT_EQ(0, destroyed.load());
    int cookieA = 0, cookieB = 0, cookieW = 0, unlinked = 0;
    ASSERT_EQ(STATUS_OK, AIBinder_linkToDeath(svc.get(), recipient.get(), &cookieA));
    ASSERT_EQ(STATUS_OK, AIBinder_linkToDeath(svc.get(), recipient.get(), &cookieB));
    ASSERT_EQ(STATUS_OK, AIBinder_linkToDeath(svc.get(), recipient.get(), &unlinked));
    EXPECT_EQ(STATUS_NAME_NOT_FOUND, AIBinder_unlinkToDeath(svc.get(), recipient.get(), nullptr));
    EXPECT_EQ(STATUS_OK, AIBinder_unlinkToDeath(svc.get(), recipient.get(), &unlinked));
    // A recipient deleted before the death does not fire either.
    AIBinder_DeathRecipient* deleted = AIBinder_DeathRecipient_new(onDied);
    ASSERT_EQ(STATUS_OK, AIBinder_linkToDeath(svc.get(), deleted, &unlinked));
    AIBinder_DeathRecipient_delete(deleted);
    const ProcessId watcher = binder_host::createProcess("watcher");
    ndk::SpAIBinder held;  // the watcher's proxy, kept alive past runInProcess
    ASSERT_TRUE(binder_host::runInProcess(watcher, [&] {
        held = getService("svc");
        ASSERT_EQ(STATUS_OK, AIBinder_linkToDeath(held.get(), recipient.get(), &cookieW));
    }));

    auto pending = std::async(std::launch::async, [&] { return call(svc, kBlock); });
    ASSERT_TRUE(entered.wait());
    binder_host::killProcess(hal);
    binder_host::killProcess(hal);  // a second kill changes nothing
    ASSERT_EQ(std::future_status::ready, pending.wait_for(std::chrono::seconds(5)));
    EXPECT_EQ(STATUS_DEAD_OBJECT, pending.get());
    release.open();  // the HAL thread finishes; its late reply goes nowhere
    ASSERT_EQ(3u, notices(3).size());
    ASSERT_TRUE(binder_host::drain());
    EXPECT_EQ(1, destroyed.load());  // the dead let go of everything they held
    EXPECT_EQ(
            (Notices{{&cookieA, kDefaultProcess}, {&cookieB, kDefaultProcess}, {&cookieW, watcher}}),
            notices());

    EXPECT_FALSE(AIBinder_isAlive(svc.get()));
    EXPECT_EQ(STATUS_DEAD_OBJECT, call(svc, kEcho));
    EXPECT_EQ(STATUS_DEAD_OBJECT, AIBinder_linkToDeath(svc.get(), recipient.get(), &cookieA));
    EXPECT_EQ(nullptr, AServiceManager_checkService("svc"));
    EXPECT_EQ(3u, notices().size());
}

TEST_F(LifecycleTest, ServiceManagerLookups) {
    binder_host::declareInstance("late");
    ndk::SpAIBinder local = makeBinder(echo);

    // In its own process a service is the local object.
    ASSERT_EQ(EX_NONE, AServiceManager_addService(local.get(), "local"));
    EXPECT_EQ(local, ndk::SpAIBinder(AServiceManager_checkService("local")));

    // waitForService blocks until another process registers the instance.
    std::atomic<bool> registered{false};
    auto waiter = std::async(std::launch::async, [&] {
        ndk::SpAIBinder found(AServiceManager_waitForService("late"));
        return registered.load() && AIBinder_isRemote(found.get());
    });
    registered = true;
    startService(hal, "late", echo);
    ASSERT_EQ(std::future_status::ready, waiter.wait_for(std::chrono::seconds(5)));
    EXPECT_TRUE(waiter.get());
    // What a test declares is gone for the next one.
    EXPECT_TRUE(AServiceManager_isDeclared("late"));
    binder_host::reset();
    EXPECT_FALSE(AServiceManager_isDeclared("late"));
}

}  // namespace
