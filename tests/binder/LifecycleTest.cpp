// Process death, death notification, the service manager and reset().

#include <android/binder_ibinder.h>
#include <android/binder_manager.h>
#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <set>
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
using Clock = std::chrono::steady_clock;

constexpr transaction_code_t kEcho = FIRST_CALL_TRANSACTION;
constexpr transaction_code_t kKeep = FIRST_CALL_TRANSACTION + 1;

binder_status_t echo(AIBinder*, transaction_code_t, const AParcel*, AParcel* out) {
    return AParcel_writeInt32(out, binder_host::currentProcess());
}

// What death notices arrived, and where.
struct Notices {
    std::mutex mutex;
    std::condition_variable cv;
    struct Notice {
        void* cookie;
        ProcessId process;
        bool binderThread;
    };
    std::vector<Notice> received;

    size_t waitFor(size_t n) {
        std::unique_lock<std::mutex> lock(mutex);
        cv.wait_for(lock, std::chrono::seconds(5), [&] { return received.size() >= n; });
        return received.size();
    }
};
Notices* gNotices = nullptr;

void onDied(void* cookie) {
    std::lock_guard<std::mutex> lock(gNotices->mutex);
    gNotices->received.push_back({cookie, currentProcess(), binder_host::onBinderThread()});
    gNotices->cv.notify_all();
}

class LifecycleTest : public BinderTest {
  protected:
    void SetUp() override {
        BinderTest::SetUp();
        gNotices = &notices;
        hal = binder_host::createProcess("hal");
    }
    void TearDown() override {
        BinderTest::TearDown();
        gNotices = nullptr;
    }
    Notices notices;
    ProcessId hal = 0;
};

TEST_F(LifecycleTest, DeathIsNotifiedOnceAndTheServiceIsGone) {
    startService(hal, "svc", echo);
    ndk::SpAIBinder svc = getService("svc");
    ndk::ScopedAIBinder_DeathRecipient recipient(AIBinder_DeathRecipient_new(onDied));
    int cookieA = 0, cookieB = 0;
    ASSERT_EQ(STATUS_OK, AIBinder_linkToDeath(svc.get(), recipient.get(), &cookieA));
    ASSERT_EQ(STATUS_OK, AIBinder_linkToDeath(svc.get(), recipient.get(), &cookieB));
    ASSERT_EQ(STATUS_OK, call(svc, kEcho));

    binder_host::killProcess(hal);
    binder_host::killProcess(hal);  // a second kill changes nothing
    EXPECT_FALSE(binder_host::isAlive(hal));
    ASSERT_EQ(2u, notices.waitFor(2));
    ASSERT_TRUE(binder_host::drain());
    ASSERT_EQ(2u, notices.received.size());
    std::set<void*> cookies;
    for (const auto& notice : notices.received) {
        cookies.insert(notice.cookie);
        EXPECT_EQ(kDefaultProcess, notice.process);
        EXPECT_TRUE(notice.binderThread);
    }
    EXPECT_EQ((std::set<void*>{&cookieA, &cookieB}), cookies);

    EXPECT_FALSE(AIBinder_isAlive(svc.get()));
    EXPECT_EQ(STATUS_DEAD_OBJECT, AIBinder_ping(svc.get()));
    EXPECT_EQ(STATUS_DEAD_OBJECT, call(svc, kEcho));
    EXPECT_EQ(STATUS_DEAD_OBJECT, AIBinder_linkToDeath(svc.get(), recipient.get(), &cookieA));
    EXPECT_EQ(nullptr, AServiceManager_checkService("svc"));
    EXPECT_FALSE(binder_host::runInProcess(hal, [] {}));

    // A new process takes over the instance.
    const ProcessId restarted = binder_host::createProcess("hal2");
    startService(restarted, "svc", echo);
    ndk::SpAIBinder fresh = getService("svc");
    ASSERT_NE(nullptr, fresh.get());
    int32_t answeredBy = 0;
    ASSERT_EQ(STATUS_OK, call(fresh, kEcho, nullptr,
                              [&](const AParcel* out) { AParcel_readInt32(out, &answeredBy); }));
    EXPECT_EQ(restarted, answeredBy);
    EXPECT_EQ(STATUS_DEAD_OBJECT, call(svc, kEcho));  // the old handle stays dead
    EXPECT_EQ(2u, notices.received.size());
}

TEST_F(LifecycleTest, NoticeGoesToABinderThreadOfTheLinkingProcess) {
    startService(hal, "svc", echo);
    const ProcessId watcher = binder_host::createProcess("watcher");
    ndk::ScopedAIBinder_DeathRecipient recipient(AIBinder_DeathRecipient_new(onDied));
    ndk::SpAIBinder held;  // the watcher's proxy, kept alive past runInProcess
    ASSERT_TRUE(binder_host::runInProcess(watcher, [&] {
        held = getService("svc");
        ASSERT_EQ(STATUS_OK, AIBinder_linkToDeath(held.get(), recipient.get(), nullptr));
    }));
    binder_host::killProcess(hal);
    ASSERT_EQ(1u, notices.waitFor(1));
    EXPECT_EQ(watcher, notices.received[0].process);
    EXPECT_TRUE(notices.received[0].binderThread);
}

TEST_F(LifecycleTest, LinkingRulesAndUnlinking) {
    EXPECT_EQ(nullptr, AIBinder_DeathRecipient_new(nullptr));
    startService(hal, "svc", echo);
    ndk::SpAIBinder svc = getService("svc");
    ndk::SpAIBinder local = makeBinder(nullptr);
    ndk::ScopedAIBinder_DeathRecipient recipient(AIBinder_DeathRecipient_new(onDied));
    EXPECT_EQ(STATUS_INVALID_OPERATION, AIBinder_linkToDeath(local.get(), recipient.get(), nullptr));
    EXPECT_EQ(STATUS_UNEXPECTED_NULL, AIBinder_linkToDeath(nullptr, recipient.get(), nullptr));
    EXPECT_EQ(STATUS_UNEXPECTED_NULL, AIBinder_linkToDeath(svc.get(), nullptr, nullptr));

    int cookie = 0;
    ASSERT_EQ(STATUS_OK, AIBinder_linkToDeath(svc.get(), recipient.get(), &cookie));
    EXPECT_EQ(STATUS_NAME_NOT_FOUND, AIBinder_unlinkToDeath(svc.get(), recipient.get(), nullptr));
    EXPECT_EQ(STATUS_OK, AIBinder_unlinkToDeath(svc.get(), recipient.get(), &cookie));
    // A second recipient, deleted before the death: it must not fire either.
    AIBinder_DeathRecipient* deleted = AIBinder_DeathRecipient_new(onDied);
    ASSERT_EQ(STATUS_OK, AIBinder_linkToDeath(svc.get(), deleted, &cookie));
    AIBinder_DeathRecipient_delete(deleted);

    binder_host::killProcess(hal);
    ASSERT_TRUE(binder_host::drain());
    EXPECT_EQ(0u, notices.received.size());
}

TEST_F(LifecycleTest, CallerWaitingOnADyingProcessGetsDeadObject) {
    Latch entered, release;
    startService(hal, "slow",
                 [&](AIBinder*, transaction_code_t, const AParcel*, AParcel*) -> binder_status_t {
                     entered.open();
                     release.wait(std::chrono::seconds(10));
                     return STATUS_OK;
                 });
    ndk::SpAIBinder slow = getService("slow");
    auto pending = std::async(std::launch::async, [&] { return call(slow, kEcho); });
    ASSERT_TRUE(entered.wait());
    binder_host::killProcess(hal);
    ASSERT_EQ(std::future_status::ready, pending.wait_for(std::chrono::seconds(5)));
    EXPECT_EQ(STATUS_DEAD_OBJECT, pending.get());
    release.open();  // the HAL thread finishes; its late reply goes nowhere
    EXPECT_TRUE(binder_host::drain());
}

TEST_F(LifecycleTest, DeadProcessDropsTheReferencesItHeld) {
    // The HAL keeps the client's object; only the HAL keeps it alive.
    std::vector<ndk::SpAIBinder> kept;
    startService(hal, "keeper",
                 [&](AIBinder*, transaction_code_t, const AParcel* in, AParcel*) -> binder_status_t {
                     ndk::SpAIBinder binder;
                     binder_status_t status = ndk::AParcel_readData(in, &binder);
                     if (status == STATUS_OK) kept.push_back(binder);
                     return status;
                 });
    std::atomic<int> destroyed{0};
    {
        ndk::SpAIBinder keeper = getService("keeper");
        ndk::SpAIBinder object = makeBinder(nullptr, &destroyed);
        ASSERT_EQ(STATUS_OK,
                  call(keeper, kKeep, [&](AParcel* in) { ndk::AParcel_writeData(in, object); }));
    }
    ASSERT_TRUE(binder_host::drain());
    EXPECT_EQ(0, destroyed.load());
    binder_host::killProcess(hal);
    ASSERT_TRUE(binder_host::drain());
    EXPECT_EQ(1, destroyed.load());
    binder_host::reset();
    kept.clear();  // the dead HAL's handles can still be dropped safely
}

TEST_F(LifecycleTest, ServiceManagerLookups) {
    EXPECT_EQ(EX_ILLEGAL_ARGUMENT, AServiceManager_addService(nullptr, "x"));
    ndk::SpAIBinder local = makeBinder(echo);
    EXPECT_EQ(EX_ILLEGAL_ARGUMENT, AServiceManager_addService(local.get(), nullptr));

    auto start = Clock::now();
    EXPECT_EQ(nullptr, AServiceManager_checkService("missing"));
    EXPECT_LT(Clock::now() - start, std::chrono::milliseconds(200));
    start = Clock::now();
    EXPECT_EQ(nullptr, AServiceManager_getService("missing"));
    const auto waited = Clock::now() - start;
    EXPECT_GE(waited, std::chrono::milliseconds(500));
    EXPECT_LT(waited, std::chrono::seconds(3));

    // In its own process a service is the local object.
    ASSERT_EQ(EX_NONE, AServiceManager_addService(local.get(), "local"));
    ndk::SpAIBinder same(AServiceManager_getService("local"));
    EXPECT_EQ(local.get(), same.get());
    EXPECT_FALSE(AIBinder_isRemote(same.get()));

    // waitForService blocks until another process registers the instance.
    std::atomic<bool> registered{false};
    auto waiter = std::async(std::launch::async, [&] {
        ndk::SpAIBinder found(AServiceManager_waitForService("late"));
        return std::make_pair(registered.load(), AIBinder_isRemote(found.get()));
    });
    EXPECT_EQ(std::future_status::timeout, waiter.wait_for(std::chrono::milliseconds(200)));
    registered = true;
    startService(hal, "late", echo);
    ASSERT_EQ(std::future_status::ready, waiter.wait_for(std::chrono::seconds(5)));
    const auto result = waiter.get();
    EXPECT_TRUE(result.first);
    EXPECT_TRUE(result.second);
}

TEST_F(LifecycleTest, ManifestDeclarations) {
    EXPECT_FALSE(AServiceManager_isDeclared("pkg.IFoo/default"));
    EXPECT_FALSE(AServiceManager_isDeclared(nullptr));
    binder_host::declareInstance("pkg.IFoo/default");
    binder_host::declareInstance("pkg.IFoo/second");
    binder_host::declareInstance("pkg.IBar/default");
    EXPECT_TRUE(AServiceManager_isDeclared("pkg.IFoo/default"));
    std::vector<std::string> names;
    AServiceManager_forEachDeclaredInstance("pkg.IFoo", &names, [](const char* name, void* ctx) {
        static_cast<std::vector<std::string>*>(ctx)->push_back(name);
    });
    EXPECT_EQ((std::vector<std::string>{"default", "second"}), names);
    binder_host::undeclareInstance("pkg.IFoo/default");
    EXPECT_FALSE(AServiceManager_isDeclared("pkg.IFoo/default"));
}

TEST_F(LifecycleTest, DrainWaitsForRunningWork) {
    Latch release;
    startService(hal, "svc",
                 [&](AIBinder*, transaction_code_t, const AParcel*, AParcel*) -> binder_status_t {
                     release.wait();
                     return STATUS_OK;
                 });
    ndk::SpAIBinder svc = getService("svc");
    ASSERT_EQ(STATUS_OK, call(svc, kEcho, nullptr, nullptr, FLAG_ONEWAY));
    EXPECT_FALSE(binder_host::drain(50));
    release.open();
    EXPECT_TRUE(binder_host::drain());
}

TEST_F(LifecycleTest, ResetLeavesNothingBehind) {
    binder_host::declareInstance("svc");
    Latch release;
    std::atomic<int> served{0};
    startService(hal, "svc",
                 [&](AIBinder*, transaction_code_t, const AParcel*, AParcel*) -> binder_status_t {
                     release.wait(std::chrono::milliseconds(300));
                     ++served;
                     return STATUS_OK;
                 });
    ndk::SpAIBinder svc = getService("svc");
    ndk::ScopedAIBinder_DeathRecipient recipient(AIBinder_DeathRecipient_new(onDied));
    ASSERT_EQ(STATUS_OK, AIBinder_linkToDeath(svc.get(), recipient.get(), nullptr));
    for (int i = 0; i < 5; ++i)
        ASSERT_EQ(STATUS_OK, call(svc, kEcho, nullptr, nullptr, FLAG_ONEWAY));

    binder_host::reset();
    const size_t noticesAtReset = notices.received.size();
    EXPECT_EQ(1u, noticesAtReset);  // delivered during reset, not after
    EXPECT_EQ("", binder_host::processName(hal));
    EXPECT_FALSE(binder_host::isAlive(hal));
    EXPECT_FALSE(AServiceManager_isDeclared("svc"));
    EXPECT_EQ(nullptr, AServiceManager_checkService("svc"));
    EXPECT_EQ(0u, binder_host::liveBinderCount(hal));
    EXPECT_LT(served.load(), 5);  // queued oneway calls were dropped, not delivered later
    const int servedAtReset = served.load();
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(noticesAtReset, notices.received.size());
    EXPECT_EQ(servedAtReset, served.load());
    EXPECT_TRUE(binder_host::drain(100));
}

}  // namespace
