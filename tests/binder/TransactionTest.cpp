// Transactions inside and across emulated processes (threads, binder translation, references,
// oneway ordering, concurrency), process death and death notices, the service manager, drain()
// and reset().

#include <android/binder_ibinder.h>
#include <android/binder_manager.h>
#include <android/binder_parcel_utils.h>
#include <gtest/gtest.h>

#include <future>
#include <map>
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

binder_status_t echo(AIBinder*, transaction_code_t, const AParcel*, AParcel* out) {
    return AParcel_writeInt32(out, currentProcess());
}

// Where a handler ran.
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

// Death notices that arrived, and where.
struct Notice {
    void* cookie;
    ProcessId process;
    bool binderThread;
};
std::mutex gNoticeMutex;
std::condition_variable gNoticeCv;
std::vector<Notice> gNotices;

void onDied(void* cookie) {
    std::lock_guard<std::mutex> lock(gNoticeMutex);
    gNotices.push_back({cookie, currentProcess(), binder_host::onBinderThread()});
    gNoticeCv.notify_all();
}

std::vector<Notice> notices(size_t waitFor = 0) {
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

TEST_F(TransactionTest, CallsRunInTheObjectsProcessAndBindersComeHomeAsTheLocalObject) {
    // The HAL reads the client's binder twice (one proxy there), calls it, and sends it back.
    Place halPlace, place;
    startService(
            hal, "svc",
            [&](AIBinder*, transaction_code_t, const AParcel* in, AParcel* out) -> binder_status_t {
                halPlace = here();
                ndk::SpAIBinder callback, again;
                binder_status_t status = ndk::AParcel_readData(in, &callback);
                if (status == STATUS_OK) status = ndk::AParcel_readData(in, &again);
                if (status != STATUS_OK) return status;
                if (callback != again || !AIBinder_isRemote(callback.get())) {
                    return STATUS_BAD_VALUE;
                }
                AIBinder_associateClass(callback.get(), serviceClass());
                status = call(callback, kEcho);
                return status != STATUS_OK ? status : ndk::AParcel_writeData(out, callback);
            });
    ndk::SpAIBinder callback =
            makeBinder([&](AIBinder*, transaction_code_t, const AParcel*, AParcel*) {
                place = here();
                return STATUS_OK;
            });
    ndk::SpAIBinder svc = getService("svc");
    ASSERT_NE(nullptr, svc.get());
    EXPECT_TRUE(AIBinder_isRemote(svc.get()));
    EXPECT_EQ(nullptr, AIBinder_getUserData(svc.get()));  // the object lives in another process
    EXPECT_FALSE(AIBinder_isRemote(callback.get()));
    // Twice: the HAL's proxy from the first round is gone by the second.
    for (int round = 0; round < 2; ++round) {
        SCOPED_TRACE(round);
        ndk::SpAIBinder returned;
        ASSERT_EQ(STATUS_OK,
                  call(
                          svc, kEcho,
                          [&](AParcel* in) {
                              ndk::AParcel_writeData(in, callback);
                              ndk::AParcel_writeData(in, callback);
                          },
                          [&](const AParcel* out) { ndk::AParcel_readData(out, &returned); }));
        EXPECT_EQ(callback.get(), returned.get());
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

    // A local object is called on the calling thread.
    ASSERT_EQ(STATUS_OK, call(callback, kEcho));
    EXPECT_EQ(std::this_thread::get_id(), place.thread);
    EXPECT_FALSE(place.binderThread);
}

TEST_F(TransactionTest, BadCodesTokensAndTargetsAreRefusedAndTheRequestIsAlwaysConsumed) {
    std::atomic<int> calls{0};
    startService(hal, "svc", [&](AIBinder*, transaction_code_t, const AParcel*, AParcel*) {
        ++calls;
        return STATUS_OK;
    });
    ndk::SpAIBinder svc = getService("svc");
    // Prepares a request for `from` and sends it to `to`.
    auto transact = [](AIBinder* from, AIBinder* to, transaction_code_t code) {
        AParcel* in = nullptr;
        EXPECT_EQ(STATUS_OK, AIBinder_prepareTransaction(from, &in));
        AParcel* out = nullptr;
        binder_status_t status = AIBinder_transact(to, code, &in, &out, 0);
        EXPECT_EQ(nullptr, in);
        EXPECT_EQ(nullptr, out);
        return status;
    };
    EXPECT_EQ(STATUS_UNKNOWN_TRANSACTION, transact(svc.get(), svc.get(), 0));
    EXPECT_EQ(STATUS_UNKNOWN_TRANSACTION, transact(svc.get(), svc.get(), LAST_CALL_TRANSACTION + 1));
    EXPECT_EQ(STATUS_OK, call(svc, LAST_CALL_TRANSACTION));
    ndk::SpAIBinder local = makeBinder(nullptr);
    EXPECT_EQ(STATUS_BAD_VALUE, transact(local.get(), svc.get(), kEcho));  // meant for another

    // A class with the same descriptor but no interface token: the receiver rejects the request.
    static AIBinder_Class* tokenless = [] {
        AIBinder_Class* clazz = AIBinder_Class_define(kDescriptor, nullptr, nullptr, noop);
        AIBinder_Class_disableInterfaceTokenHeader(clazz);
        return clazz;
    }();
    svc.set(nullptr);  // one proxy per process and object: let it go to get an unassociated one
    ndk::SpAIBinder raw(AServiceManager_checkService("svc"));
    ASSERT_EQ(nullptr, AIBinder_getClass(raw.get()));
    ASSERT_TRUE(AIBinder_associateClass(raw.get(), tokenless));
    EXPECT_EQ(STATUS_BAD_TYPE, call(raw, kEcho));
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
    ASSERT_NE(nullptr, svc.get());
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
            if (step.words > 0) {
                EXPECT_EQ(7, first);
            }
        }
        // Oneway calls in between take records and parcels of their own.
        ASSERT_EQ(STATUS_OK, call(
                                     svc, kEcho, [](AParcel* in) { AParcel_writeInt32(in, 5); },
                                     nullptr, FLAG_ONEWAY));
    }
    // The binders left in failed replies were dropped: none of the HAL's stays alive.
    svc = ndk::SpAIBinder();
    binder_host::killProcess(hal);
    ASSERT_TRUE(binder_host::drain());
    EXPECT_EQ(0u, binder_host::liveBinderCount(hal));
}

TEST_F(TransactionTest, ObjectLivesUntilEveryOtherProcessHasDroppedIt) {
    // The HAL keeps the proxies it is given until asked to drop them (kDrop) or killed.
    std::vector<ndk::SpAIBinder> kept;
    startService(hal, "keeper",
                 [&](AIBinder*, transaction_code_t code, const AParcel* in,
                     AParcel*) -> binder_status_t {
                     if (code == kDrop) {
                         kept.clear();
                         return STATUS_OK;
                     }
                     kept.emplace_back();
                     return ndk::AParcel_readData(in, &kept.back());
                 });
    ndk::SpAIBinder keeper = getService("keeper");
    std::atomic<int> destroyed{0};
    auto handOver = [&](int times) {
        ndk::SpAIBinder object = makeBinder(nullptr, &destroyed);
        for (int i = 0; i < times; ++i) {
            EXPECT_EQ(STATUS_OK, call(keeper, kEcho,
                                      [&](AParcel* in) { ndk::AParcel_writeData(in, object); }));
        }
    };
    const size_t before = binder_host::liveBinderCount(kDefaultProcess);
    handOver(2);
    ASSERT_TRUE(binder_host::drain());
    EXPECT_EQ(0, destroyed.load());
    EXPECT_EQ(before + 1, binder_host::liveBinderCount(kDefaultProcess));
    ASSERT_EQ(STATUS_OK, call(keeper, kDrop));
    ASSERT_TRUE(binder_host::drain());
    EXPECT_EQ(1, destroyed.load());
    EXPECT_EQ(before, binder_host::liveBinderCount(kDefaultProcess));

    // A process that dies lets go of everything it held.
    handOver(1);
    ASSERT_TRUE(binder_host::drain());
    EXPECT_EQ(1, destroyed.load());
    binder_host::killProcess(hal);
    ASSERT_TRUE(binder_host::drain());
    EXPECT_EQ(2, destroyed.load());
    binder_host::reset();
    kept.clear();  // the dead HAL's handles can still be dropped safely
}

TEST_F(TransactionTest, OnewayCallsDoNotWaitAndArriveInOrderOneAtATime) {
    Latch release;
    std::mutex orderMutex;
    std::vector<int32_t> order;
    startService(hal, "sink", [&](AIBinder*, transaction_code_t, const AParcel* in, AParcel*) {
        int32_t value = 0;
        AParcel_readInt32(in, &value);
        if (value == 0) release.wait();
        {
            std::lock_guard<std::mutex> lock(orderMutex);
            order.push_back(value);
        }
        return STATUS_OK;
    });
    ndk::SpAIBinder sink = getService("sink");
    constexpr int kCalls = 300;
    for (int32_t i = 0; i < kCalls; ++i) {
        // The first call blocks in the HAL; the caller goes on regardless.
        ASSERT_EQ(STATUS_OK, call(
                                     sink, kEcho, [i](AParcel* in) { AParcel_writeInt32(in, i); },
                                     nullptr, FLAG_ONEWAY));
    }
    {
        // The first call is still held in the HAL and the rest wait behind it.
        std::lock_guard<std::mutex> lock(orderMutex);
        EXPECT_TRUE(order.empty()) << "a oneway call waited for the HAL";
    }
    release.open();
    ASSERT_TRUE(binder_host::drain());
    // Had they run side by side, the later ones would have overtaken the first.
    ASSERT_EQ(static_cast<size_t>(kCalls), order.size());
    for (int32_t i = 0; i < kCalls; ++i) EXPECT_EQ(i, order[static_cast<size_t>(i)]);
}

TEST_F(TransactionTest, WorkQueuedBehindABusyThreadIsServedInOrderAndSleepingCallersWake) {
    // One binder thread: while it is held, the first call to each other object waits in the
    // process's queue, more of them than the queue has room for at first.
    const ProcessId single = binder_host::createProcess("single", 1);
    Latch held, release;
    std::mutex orderMutex;
    std::vector<int32_t> order;
    const Handler record = [&](AIBinder*, transaction_code_t, const AParcel* in, AParcel* out) {
        int32_t value = 0;
        AParcel_readInt32(in, &value);
        if (value < 0) {
            held.open();
            release.wait();
        } else {
            std::lock_guard<std::mutex> lock(orderMutex);
            order.push_back(value);
        }
        return AParcel_writeInt32(out, value + 1);
    };
    constexpr int32_t kObjects = 40;
    startService(single, "gate", record);
    for (int32_t i = 0; i < kObjects; ++i) startService(single, "n" + std::to_string(i), record);
    ndk::SpAIBinder gate = getService("gate");
    std::vector<ndk::SpAIBinder> objects;
    for (int32_t i = 0; i < kObjects; ++i) objects.push_back(getService("n" + std::to_string(i)));
    // Served calls move the queue's start away from its first slot before it has to grow.
    for (int32_t i = 0; i < 5; ++i) ASSERT_EQ(i + 1, callForInt(gate, kEcho, i));
    order.clear();

    auto holder = std::async(std::launch::async, [&] { return callForInt(gate, kEcho, -1); });
    ASSERT_TRUE(held.wait());
    for (int32_t i = 0; i < kObjects; ++i) {
        ASSERT_EQ(STATUS_OK,
                  call(
                          objects[static_cast<size_t>(i)], kEcho,
                          [i](AParcel* in) { AParcel_writeInt32(in, i); }, nullptr, FLAG_ONEWAY));
    }
    // Queued behind them all: its caller polls in vain, sleeps, and must be woken by the reply.
    auto last =
            std::async(std::launch::async, [&] { return callForInt(objects[0], kEcho, kObjects); });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    release.open();
    EXPECT_EQ(0, holder.get());
    EXPECT_EQ(kObjects + 1, last.get());
    ASSERT_TRUE(binder_host::drain());
    std::lock_guard<std::mutex> lock(orderMutex);
    ASSERT_EQ(static_cast<size_t>(kObjects + 1), order.size());
    for (int32_t i = 0; i <= kObjects; ++i) EXPECT_EQ(i, order[static_cast<size_t>(i)]);
}

TEST_F(TransactionTest, ManyCallersAtOnceGetTheirOwnRepliesWithinTheThreadLimit) {
    const ProcessId narrow = binder_host::createProcess("narrow", 2);
    std::atomic<int> running{0}, maxRunning{0};
    startService(
            narrow, "narrow", [&](AIBinder*, transaction_code_t, const AParcel* in, AParcel* out) {
                const int now = ++running;
                int seen = maxRunning;
                while (now > seen && !maxRunning.compare_exchange_weak(seen, now)) {
                }
                int32_t v = 0;
                AParcel_readInt32(in, &v);
                std::this_thread::sleep_for(std::chrono::microseconds(50));  // let calls overlap
                --running;
                return AParcel_writeInt32(out, v + 1);
            });
    ndk::SpAIBinder svc = getService("narrow");
    std::vector<std::thread> callers;
    std::atomic<int> wrong{0};
    for (int t = 0; t < 6; ++t) {
        callers.emplace_back([&, t] {
            for (int32_t sent = t * 1000; sent < t * 1000 + 100; ++sent) {
                if (callForInt(svc, kEcho, sent) != sent + 1) ++wrong;
            }
        });
    }
    for (std::thread& caller : callers) caller.join();
    EXPECT_EQ(0, wrong.load());
    EXPECT_LE(maxRunning.load(), 2);
}

TEST_F(LifecycleTest, DeathFailsPendingCallsAndIsNotifiedOncePerLinkInTheLinkingProcess) {
    // kBlock blocks in the HAL until released.
    Latch entered, release;
    startService(hal, "svc",
                 [&](AIBinder* self, transaction_code_t code, const AParcel* in, AParcel* out) {
                     if (code == kBlock) {
                         entered.open();
                         release.wait(std::chrono::seconds(10));
                     }
                     return echo(self, code, in, out);
                 });
    ndk::SpAIBinder svc = getService("svc");
    ndk::SpAIBinder local = makeBinder(nullptr);
    EXPECT_EQ(nullptr, AIBinder_DeathRecipient_new(nullptr));
    EXPECT_EQ(STATUS_INVALID_OPERATION, AIBinder_linkToDeath(local.get(), recipient.get(), nullptr));
    EXPECT_EQ(STATUS_UNEXPECTED_NULL, AIBinder_linkToDeath(nullptr, recipient.get(), nullptr));
    EXPECT_EQ(STATUS_UNEXPECTED_NULL, AIBinder_linkToDeath(svc.get(), nullptr, nullptr));

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
    EXPECT_FALSE(binder_host::isAlive(hal));
    ASSERT_EQ(std::future_status::ready, pending.wait_for(std::chrono::seconds(5)));
    EXPECT_EQ(STATUS_DEAD_OBJECT, pending.get());
    release.open();  // the HAL thread finishes; its late reply goes nowhere
    ASSERT_EQ(3u, notices(3).size());
    ASSERT_TRUE(binder_host::drain());
    std::map<void*, ProcessId> where;
    for (const Notice& notice : notices()) {
        EXPECT_TRUE(notice.binderThread);
        EXPECT_TRUE(where.emplace(notice.cookie, notice.process).second);
    }
    EXPECT_EQ(
            (std::map<void*, ProcessId>{
                    {&cookieA, kDefaultProcess}, {&cookieB, kDefaultProcess}, {&cookieW, watcher}}),
            where);

    EXPECT_FALSE(AIBinder_isAlive(svc.get()));
    EXPECT_EQ(STATUS_DEAD_OBJECT, AIBinder_ping(svc.get()));
    EXPECT_EQ(STATUS_DEAD_OBJECT, call(svc, kEcho));
    EXPECT_EQ(STATUS_DEAD_OBJECT, AIBinder_linkToDeath(svc.get(), recipient.get(), &cookieA));
    EXPECT_EQ(nullptr, AServiceManager_checkService("svc"));
    EXPECT_FALSE(binder_host::runInProcess(hal, [] {}));

    // A new process takes over the instance; the old handle stays dead.
    const ProcessId restarted = binder_host::createProcess("hal2");
    startService(restarted, "svc", echo);
    ndk::SpAIBinder fresh = getService("svc");
    ASSERT_NE(nullptr, fresh.get());
    EXPECT_EQ(restarted, callForInt(fresh, kEcho));
    EXPECT_EQ(STATUS_DEAD_OBJECT, call(svc, kEcho));
    EXPECT_EQ(3u, notices().size());
}

TEST_F(LifecycleTest, ServiceManagerLookups) {
    EXPECT_EQ(EX_ILLEGAL_ARGUMENT, AServiceManager_addService(nullptr, "x"));
    ndk::SpAIBinder local = makeBinder(echo);
    EXPECT_EQ(EX_ILLEGAL_ARGUMENT, AServiceManager_addService(local.get(), nullptr));
    EXPECT_EQ(nullptr, AServiceManager_checkService("missing"));

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
    EXPECT_FALSE(AServiceManager_isDeclared(nullptr));
}

// A death notice that also opens the latch its cookie points to.
void onDiedOpen(void* latch) {
    onDied(latch);
    static_cast<Latch*>(latch)->open();
}

TEST_F(LifecycleTest, DrainWaitsForQueuedWorkAndResetDropsItAll) {
    binder_host::declareInstance("svc");
    Latch release;
    std::atomic<int> served{0};
    startService(hal, "svc", [&](AIBinder*, transaction_code_t, const AParcel*, AParcel*) {
        release.wait();
        ++served;
        return STATUS_OK;
    });
    ndk::SpAIBinder svc = getService("svc");
    // The death notice releases the call in progress, so reset need not wait for it.
    ndk::ScopedAIBinder_DeathRecipient releaser(AIBinder_DeathRecipient_new(onDiedOpen));
    ASSERT_EQ(STATUS_OK, AIBinder_linkToDeath(svc.get(), releaser.get(), &release));
    for (int i = 0; i < 5; ++i) {
        ASSERT_EQ(STATUS_OK, call(svc, kEcho, nullptr, nullptr, FLAG_ONEWAY));
    }
    EXPECT_FALSE(binder_host::drain(50));

    binder_host::reset();
    EXPECT_EQ(1u, notices().size());  // delivered during reset, not after
    EXPECT_LE(served.load(), 1);      // queued oneway calls were dropped, not delivered
    EXPECT_EQ("", binder_host::processName(hal));
    EXPECT_FALSE(binder_host::isAlive(hal));
    EXPECT_FALSE(AServiceManager_isDeclared("svc"));
    EXPECT_EQ(nullptr, AServiceManager_checkService("svc"));
    EXPECT_EQ(0u, binder_host::liveBinderCount(hal));
    const int servedAtReset = served.load();
    EXPECT_TRUE(binder_host::drain(100));
    EXPECT_EQ(servedAtReset, served.load());
    EXPECT_EQ(1u, notices().size());
}

}  // namespace
