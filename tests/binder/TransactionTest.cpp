// Transactions inside and across emulated processes: threads, binder translation, references,
// oneway ordering and concurrency.

#include <android/binder_ibinder.h>
#include <android/binder_parcel_utils.h>
#include <android/binder_process.h>
#include <gtest/gtest.h>

#include <future>
#include <vector>

#include "BinderTestSupport.h"

namespace {

using binder_host::currentProcess;
using binder_host::kDefaultProcess;
using binder_host::ProcessId;
using binder_test::BinderTest;
using binder_test::call;
using binder_test::getService;
using binder_test::Latch;
using binder_test::makeBinder;
using binder_test::startService;

constexpr transaction_code_t kEcho = FIRST_CALL_TRANSACTION;
constexpr transaction_code_t kCallBack = FIRST_CALL_TRANSACTION + 1;
constexpr transaction_code_t kKeep = FIRST_CALL_TRANSACTION + 2;
constexpr transaction_code_t kDrop = FIRST_CALL_TRANSACTION + 3;
constexpr transaction_code_t kWhere = FIRST_CALL_TRANSACTION + 4;

// Where a call ran.
struct Place {
    ProcessId process = 0;
    std::thread::id thread;
    pid_t callingPid = 0;
    bool binderThread = false;
    bool handling = false;
};

Place here() {
    return Place{currentProcess(), std::this_thread::get_id(), AIBinder_getCallingPid(),
                 binder_host::onBinderThread(), AIBinder_isHandlingTransaction()};
}

void writePlace(AParcel* out) {
    const Place p = here();
    AParcel_writeInt32(out, p.process);
    AParcel_writeInt32(out, p.callingPid);
    AParcel_writeBool(out, p.binderThread);
    AParcel_writeBool(out, p.handling);
}

class TransactionTest : public BinderTest {
  protected:
    void SetUp() override {
        BinderTest::SetUp();
        hal = binder_host::createProcess("hal", 4);
    }
    ProcessId hal = 0;
};

TEST_F(TransactionTest, CallCrossesToABinderThreadOfTheOwningProcess) {
    startService(hal, "echo",
                 [](AIBinder*, transaction_code_t code, const AParcel* in,
                    AParcel* out) -> binder_status_t {
                     if (code == kWhere) {
                         writePlace(out);
                         return STATUS_OK;
                     }
                     std::string text;
                     binder_status_t status = ndk::AParcel_readData(in, &text);
                     if (status != STATUS_OK) return status;
                     return ndk::AParcel_writeData(out, text + "!");
                 });
    ndk::SpAIBinder echo = getService("echo");
    ASSERT_NE(nullptr, echo.get());
    EXPECT_TRUE(AIBinder_isRemote(echo.get()));
    EXPECT_TRUE(AIBinder_isAlive(echo.get()));
    EXPECT_EQ(STATUS_OK, AIBinder_ping(echo.get()));
    EXPECT_EQ(nullptr, AIBinder_getUserData(echo.get()));

    std::string reply;
    ASSERT_EQ(STATUS_OK, call(
                                 echo, kEcho,
                                 [](AParcel* in) { ndk::AParcel_writeData(in, std::string("hi")); },
                                 [&](const AParcel* out) { ndk::AParcel_readData(out, &reply); }));
    EXPECT_EQ("hi!", reply);

    int32_t process = 0, callingPid = 0;
    bool binderThread = false, handling = false;
    ASSERT_EQ(STATUS_OK, call(echo, kWhere, nullptr, [&](const AParcel* out) {
                  AParcel_readInt32(out, &process);
                  AParcel_readInt32(out, &callingPid);
                  AParcel_readBool(out, &binderThread);
                  AParcel_readBool(out, &handling);
              }));
    EXPECT_EQ(hal, process);
    EXPECT_EQ(kDefaultProcess, callingPid);
    EXPECT_TRUE(binderThread);
    EXPECT_TRUE(handling);
    EXPECT_FALSE(AIBinder_isHandlingTransaction());
    EXPECT_EQ(kDefaultProcess, AIBinder_getCallingPid());
}

TEST_F(TransactionTest, LocalCallRunsOnTheCallingThread) {
    std::thread::id ranOn;
    ndk::SpAIBinder local = makeBinder(
            [&](AIBinder*, transaction_code_t, const AParcel* in, AParcel* out) -> binder_status_t {
                ranOn = std::this_thread::get_id();
                int32_t v = 0;
                AParcel_readInt32(in, &v);
                return AParcel_writeInt32(out, v * 2);
            });
    EXPECT_FALSE(AIBinder_isRemote(local.get()));
    int32_t doubled = 0;
    ASSERT_EQ(STATUS_OK, call(
                                 local, kEcho, [](AParcel* in) { AParcel_writeInt32(in, 21); },
                                 [&](const AParcel* out) { AParcel_readInt32(out, &doubled); }));
    EXPECT_EQ(42, doubled);
    EXPECT_EQ(std::this_thread::get_id(), ranOn);
}

TEST_F(TransactionTest, BinderPassedBackRunsOnABinderThreadOfItsOwnProcess) {
    // The HAL reads the client's binder twice (one proxy there), calls it, and sends it back.
    startService(
            hal, "svc",
            [&](AIBinder*, transaction_code_t, const AParcel* in, AParcel* out) -> binder_status_t {
                ndk::SpAIBinder callback, again;
                binder_status_t status = ndk::AParcel_readData(in, &callback);
                if (status == STATUS_OK) status = ndk::AParcel_readData(in, &again);
                if (status != STATUS_OK) return status;
                if (callback != again || !AIBinder_isRemote(callback.get()) ||
                    currentProcess() == kDefaultProcess) {
                    return STATUS_INVALID_OPERATION;
                }
                AIBinder_associateClass(callback.get(), binder_test::serviceClass());
                status = call(callback, kWhere, nullptr, [&](const AParcel* reply) {
                    AParcel_appendFrom(reply, out, 0, AParcel_getDataSize(reply));
                });
                if (status != STATUS_OK) return status;
                return ndk::AParcel_writeData(out, callback);
            });

    Place callbackPlace;
    ndk::SpAIBinder callback = makeBinder(
            [&](AIBinder*, transaction_code_t, const AParcel*, AParcel* out) -> binder_status_t {
                callbackPlace = here();
                writePlace(out);
                return STATUS_OK;
            });
    ndk::SpAIBinder svc = getService("svc");
    for (int round = 0; round < 2; ++round) {
        ndk::SpAIBinder returned;
        int32_t process = 0, callingPid = 0;
        ASSERT_EQ(STATUS_OK, call(
                                     svc, kEcho,
                                     [&](AParcel* in) {
                                         ndk::AParcel_writeData(in, callback);
                                         ndk::AParcel_writeData(in, callback);
                                     },
                                     [&](const AParcel* out) {
                                         AParcel_readInt32(out, &process);
                                         AParcel_readInt32(out, &callingPid);
                                         bool flag;
                                         AParcel_readBool(out, &flag);
                                         AParcel_readBool(out, &flag);
                                         ASSERT_EQ(STATUS_OK, ndk::AParcel_readData(out, &returned));
                                     }));
        EXPECT_EQ(kDefaultProcess, process);
        EXPECT_EQ(hal, callingPid);
        EXPECT_EQ(kDefaultProcess, callbackPlace.process);
        EXPECT_NE(std::this_thread::get_id(), callbackPlace.thread);
        EXPECT_TRUE(callbackPlace.binderThread);
        // Back home the binder is the local object again.
        EXPECT_EQ(callback.get(), returned.get());
    }
}

TEST_F(TransactionTest, BadCodesAndTokensAreRefusedAndTheRequestIsAlwaysConsumed) {
    std::atomic<int> calls{0};
    startService(hal, "svc",
                 [&](AIBinder*, transaction_code_t, const AParcel*, AParcel*) -> binder_status_t {
                     ++calls;
                     return STATUS_OK;
                 });
    ndk::SpAIBinder svc = getService("svc");
    for (transaction_code_t code : {0u, static_cast<unsigned>(LAST_CALL_TRANSACTION) + 1}) {
        AParcel* in = nullptr;
        ASSERT_EQ(STATUS_OK, AIBinder_prepareTransaction(svc.get(), &in));
        AParcel* out = nullptr;
        EXPECT_EQ(STATUS_UNKNOWN_TRANSACTION, AIBinder_transact(svc.get(), code, &in, &out, 0));
        EXPECT_EQ(nullptr, in);
        EXPECT_EQ(nullptr, out);
    }
    EXPECT_EQ(STATUS_OK, call(svc, LAST_CALL_TRANSACTION));

    // A class with the same descriptor but no interface token: the receiver rejects the request.
    static AIBinder_Class* tokenless = [] {
        AIBinder_Class* clazz = AIBinder_Class_define(
                binder_test::kDescriptor, [](void* a) { return a; }, [](void*) {},
                [](AIBinder*, transaction_code_t, const AParcel*, AParcel*) -> binder_status_t {
                    return STATUS_OK;
                });
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
            AIBinder_Class_define("test.binder.Other", nullptr, nullptr,
                                  [](AIBinder*, transaction_code_t, const AParcel*,
                                     AParcel*) -> binder_status_t { return STATUS_OK; });
    raw.set(nullptr);
    ndk::SpAIBinder fresh(AServiceManager_checkService("svc"));
    EXPECT_FALSE(AIBinder_associateClass(fresh.get(), other));
    AParcel* in = nullptr;
    EXPECT_EQ(STATUS_INVALID_OPERATION, AIBinder_prepareTransaction(fresh.get(), &in));

    // A request prepared for another binder is refused.
    ASSERT_TRUE(AIBinder_associateClass(fresh.get(), binder_test::serviceClass()));
    ndk::SpAIBinder local = makeBinder(nullptr);
    ASSERT_EQ(STATUS_OK, AIBinder_prepareTransaction(local.get(), &in));
    AParcel* out = nullptr;
    EXPECT_EQ(STATUS_BAD_VALUE, AIBinder_transact(fresh.get(), kEcho, &in, &out, 0));
    EXPECT_EQ(nullptr, in);
    EXPECT_EQ(1, calls.load());
}

TEST_F(TransactionTest, ObjectLivesUntilTheOtherProcessDropsItsLastReference) {
    // The HAL keeps proxies it is given (kKeep) until asked to drop them (kDrop).
    std::vector<ndk::SpAIBinder> kept;
    startService(hal, "keeper",
                 [&](AIBinder*, transaction_code_t code, const AParcel* in,
                     AParcel*) -> binder_status_t {
                     if (code == kDrop) {
                         kept.clear();
                         return STATUS_OK;
                     }
                     ndk::SpAIBinder binder;
                     binder_status_t status = ndk::AParcel_readData(in, &binder);
                     if (status == STATUS_OK) kept.push_back(binder);
                     return status;
                 });
    ndk::SpAIBinder keeper = getService("keeper");
    std::atomic<int> destroyed{0};
    const size_t before = binder_host::liveBinderCount(kDefaultProcess);
    {
        ndk::SpAIBinder object = makeBinder(nullptr, &destroyed);
        EXPECT_EQ(before + 1, binder_host::liveBinderCount(kDefaultProcess));
        ASSERT_EQ(STATUS_OK,
                  call(keeper, kKeep, [&](AParcel* in) { ndk::AParcel_writeData(in, object); }));
        ASSERT_EQ(STATUS_OK,
                  call(keeper, kKeep, [&](AParcel* in) { ndk::AParcel_writeData(in, object); }));
    }
    ASSERT_TRUE(binder_host::drain());
    EXPECT_EQ(0, destroyed.load());
    EXPECT_EQ(before + 1, binder_host::liveBinderCount(kDefaultProcess));

    ASSERT_EQ(STATUS_OK, call(keeper, kDrop));
    ASSERT_TRUE(binder_host::drain());
    EXPECT_EQ(1, destroyed.load());
    EXPECT_EQ(before, binder_host::liveBinderCount(kDefaultProcess));
}

TEST_F(TransactionTest, OnewayCallsDoNotWaitAndArriveInOrderOneAtATime) {
    Latch release;
    std::mutex orderMutex;
    std::vector<int32_t> order;
    std::atomic<int> running{0};
    std::atomic<int> maxRunning{0};
    startService(hal, "sink",
                 [&](AIBinder*, transaction_code_t, const AParcel* in, AParcel*) -> binder_status_t {
                     const int now = ++running;
                     int seen = maxRunning.load();
                     while (now > seen && !maxRunning.compare_exchange_weak(seen, now)) {
                     }
                     int32_t value = 0;
                     AParcel_readInt32(in, &value);
                     if (value == 0) release.wait();
                     if (value % 7 == 0)
                         std::this_thread::sleep_for(std::chrono::microseconds(200));
                     {
                         std::lock_guard<std::mutex> lock(orderMutex);
                         order.push_back(value);
                     }
                     --running;
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
    release.open();
    ASSERT_TRUE(binder_host::drain());
    ASSERT_EQ(static_cast<size_t>(kCalls), order.size());
    for (int32_t i = 0; i < kCalls; ++i) EXPECT_EQ(i, order[static_cast<size_t>(i)]);
    EXPECT_EQ(1, maxRunning.load());
}

TEST_F(TransactionTest, ManyCallersAtOnceAndThreadLimitRespected) {
    const ProcessId narrow = binder_host::createProcess("narrow", 2);
    std::atomic<int> running{0};
    std::atomic<int> maxRunning{0};
    startService(
            narrow, "narrow",
            [&](AIBinder*, transaction_code_t, const AParcel* in, AParcel* out) -> binder_status_t {
                const int now = ++running;
                int seen = maxRunning.load();
                while (now > seen && !maxRunning.compare_exchange_weak(seen, now)) {
                }
                int32_t v = 0;
                AParcel_readInt32(in, &v);
                std::this_thread::sleep_for(std::chrono::microseconds(50));
                --running;
                return AParcel_writeInt32(out, v + 1);
            });
    ndk::SpAIBinder svc = getService("narrow");
    std::vector<std::thread> callers;
    std::atomic<int> wrong{0};
    for (int t = 0; t < 6; ++t) {
        callers.emplace_back([&, t] {
            for (int32_t i = 0; i < 100; ++i) {
                const int32_t sent = t * 1000 + i;
                int32_t got = -1;
                binder_status_t status = call(
                        svc, kEcho, [sent](AParcel* in) { AParcel_writeInt32(in, sent); },
                        [&](const AParcel* out) { AParcel_readInt32(out, &got); });
                if (status != STATUS_OK || got != sent + 1) ++wrong;
            }
        });
    }
    for (std::thread& caller : callers) caller.join();
    EXPECT_EQ(0, wrong.load());
    EXPECT_LE(maxRunning.load(), 2);
    EXPECT_GE(maxRunning.load(), 1);
}

TEST_F(TransactionTest, TwoProcessesCallingEachOtherDoNotDeadlock) {
    const ProcessId a = binder_host::createProcess("a", 4);
    const ProcessId b = binder_host::createProcess("b", 4);
    // Code kCallBack: call the other side's kEcho, then answer.
    auto handler = [](const char* peer) {
        return [peer](AIBinder*, transaction_code_t code, const AParcel*,
                      AParcel* out) -> binder_status_t {
            if (code == kEcho) return AParcel_writeInt32(out, binder_host::currentProcess());
            ndk::SpAIBinder other = getService(peer);
            int32_t answeredBy = 0;
            binder_status_t status = call(other, kEcho, nullptr, [&](const AParcel* reply) {
                AParcel_readInt32(reply, &answeredBy);
            });
            if (status != STATUS_OK) return status;
            return AParcel_writeInt32(out, answeredBy);
        };
    };
    startService(a, "a", handler("b"));
    startService(b, "b", handler("a"));

    auto hammer = [](ProcessId from, const char* target, ProcessId expected) {
        std::atomic<int> wrong{0};
        binder_host::runInProcess(from, [&] {
            ndk::SpAIBinder peer = getService(target);
            for (int i = 0; i < 200; ++i) {
                int32_t answeredBy = 0;
                binder_status_t status = call(peer, kCallBack, nullptr, [&](const AParcel* out) {
                    AParcel_readInt32(out, &answeredBy);
                });
                if (status != STATUS_OK || answeredBy != expected) ++wrong;
            }
        });
        return wrong.load();
    };
    auto fromA = std::async(std::launch::async, hammer, a, "b", a);
    auto fromB = std::async(std::launch::async, hammer, b, "a", b);
    ASSERT_EQ(std::future_status::ready, fromA.wait_for(std::chrono::seconds(30)));
    ASSERT_EQ(std::future_status::ready, fromB.wait_for(std::chrono::seconds(30)));
    EXPECT_EQ(0, fromA.get());
    EXPECT_EQ(0, fromB.get());
}

TEST_F(TransactionTest, ProcessesAreSeparateWorlds) {
    EXPECT_EQ("hal", binder_host::processName(hal));
    EXPECT_EQ("default", binder_host::processName(kDefaultProcess));
    EXPECT_EQ("", binder_host::processName(9999));
    EXPECT_FALSE(binder_host::runInProcess(9999, [] {}));

    AIBinder* created = nullptr;
    ProcessId seen = 0;
    ASSERT_TRUE(binder_host::runInProcess(hal, [&] {
        seen = currentProcess();
        created = AIBinder_new(binder_test::serviceClass(), new binder_test::Service{});
    }));
    EXPECT_EQ(hal, seen);
    EXPECT_EQ(1u, binder_host::liveBinderCount(hal));
    // A binder smuggled out of its process still runs there when called.
    ndk::SpAIBinder smuggled(created);
    static_cast<binder_test::Service*>(AIBinder_getUserData(created))->handler =
            [](AIBinder*, transaction_code_t, const AParcel*, AParcel* out) -> binder_status_t {
        return AParcel_writeInt32(out, currentProcess());
    };
    int32_t ranIn = 0;
    ASSERT_EQ(STATUS_OK, call(smuggled, kEcho, nullptr,
                              [&](const AParcel* out) { AParcel_readInt32(out, &ranIn); }));
    EXPECT_EQ(hal, ranIn);
    smuggled.set(nullptr);
    ASSERT_TRUE(binder_host::drain());
    EXPECT_EQ(0u, binder_host::liveBinderCount(hal));

    EXPECT_TRUE(ABinderProcess_setThreadPoolMaxThreadCount(3));
    ABinderProcess_startThreadPool();
    EXPECT_TRUE(ABinderProcess_isThreadPoolStarted());
}

}  // namespace
