// The flat API's own connection: no HAL, a HAL that refuses, a HAL that dies, callers that race to
// connect, and the cached interface in between.

#include <aidl/vendor/quarn/hardware/torq/BnTorq.h>
#include <android/binder_manager.h>
#include <dlfcn.h>

#include <atomic>
#include <climits>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "ZelTest.h"

namespace zel_test {
namespace {

// Answers that AServiceManager_isDeclared hands out before it asks the service manager again, and
// how often it was asked. A test cannot make the real service manager change its answer between two
// questions asked back to back.
std::mutex gDeclaredMutex;
std::deque<bool> gScriptedDeclared;
int gDeclaredQueries = 0;

}  // namespace
}  // namespace zel_test

// Interposes the binder runtime's function for the library (which calls it through the PLT); it
// forwards to the real one unless a test scripted the answers.
extern "C" bool AServiceManager_isDeclared(const char* instance) {
    {
        std::lock_guard<std::mutex> lock(zel_test::gDeclaredMutex);
        ++zel_test::gDeclaredQueries;
        if (!zel_test::gScriptedDeclared.empty()) {
            const bool answer = zel_test::gScriptedDeclared.front();
            zel_test::gScriptedDeclared.pop_front();
            return answer;
        }
    }
    using IsDeclared = bool (*)(const char*);
    static const auto real = reinterpret_cast<IsDeclared>(dlsym(RTLD_NEXT, __func__));
    return real(instance);
}

namespace zel_test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::Not;

// Result reported for the entry points that return nothing (and did not write their output).
constexpr int32_t kNoResult = INT32_MIN + 7;
// Result reported when an entry point wrote its output although it failed.
constexpr int32_t kOutputWritten = INT32_MIN + 9;

struct EntryPoint {
    const char* name;
    std::function<int32_t()> call;
    const char* method;                 // the ITorq method it calls
    int32_t failure;                    // its result when the HAL is missing
    int32_t refusal;                    // its result when the HAL refuses the call
    std::vector<LogLine> entryLines;    // what it logs before connecting
    std::vector<LogLine> refusalLines;  // its whole log when the HAL refuses the call
};

std::vector<LogLine> operator+(std::vector<LogLine> a, const std::vector<LogLine>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

LogLine failedStep(const std::string& step) {
    return error(step + "() failed : torq HAL service not available");
}

const std::vector<EntryPoint>& entryPoints() {
    static const std::vector<EntryPoint> kEntryPoints = [] {
        const LogLine acquire = info("ZelEventAcquire, cmdid:1, pkg:p, identity:i");
        const std::vector<LogLine> acquireRefused = {failedStep("ZelEventAcquire"),
                                                     error("torqResCtlRequest error:-1")};
        const std::vector<LogLine> multiState = {info("ZelMutiResStateRequest enter")};
        std::vector<EntryPoint> v;
        v.push_back({"zelInit",
                     [] { return zelInit(); },
                     "init",
                     -1,
                     -2,
                     {error("zelInit enter")},
                     {error("zelInit enter"), failedStep("torq_init")}});
        v.push_back({"ZelEventAcquire",
                     [] { return ZelEventAcquire(1, "p", "i", 5, {}); },
                     "request",
                     -1,
                     -1,
                     {acquire},
                     std::vector<LogLine>{acquire} + acquireRefused});
        const std::vector<LogLine> res = {info("ZelResAcquire"),
                                          info("ZelEventAcquire, cmdid:-2, pkg:none, identity:i")};
        v.push_back({"ZelResAcquire",
                     [] {
                         return ZelResAcquire({{0x10, "1"}}, 0, "i", 5);
                     },
                     "request", -1, -1, res, res + acquireRefused});
        const std::vector<LogLine> plat = {info("ZelPlatformResAcquire"),
                                           info("ZelEventAcquire, cmdid:-3, pkg:p, identity:i")};
        v.push_back({"ZelPlatformResAcquire",
                     [] {
                         return ZelPlatformResAcquire({{0x10, "1"}}, 0, "i", "p", 5);
                     },
                     "request", -1, -1, plat, plat + acquireRefused});
        v.push_back({"ZelRelease",
                     [] {
                         ZelRelease(3);
                         return kNoResult;
                     },
                     "release",
                     kNoResult,
                     kNoResult,
                     {info("ZelRelease, handle:3")},
                     {info("ZelRelease, handle:3"), failedStep("torqResCtlRelease")}});
        v.push_back({"ZelNotify",
                     [] { return ZelNotify(1, 2, {3}); },
                     "request",
                     -1,
                     -1,
                     {info("ZelNotify enter")},
                     {info("ZelNotify enter"), failedStep("ZelNotify")}});
        v.push_back({"setRelatedSysInfo",
                     [] { return setRelatedSysInfo(1, 2); },
                     "setRelatedSysInfo",
                     -1,
                     -1,
                     {},
                     {failedStep("setRelatedSysInfo")}});
        v.push_back({"zelRuleCtl",
                     [] { return zelRuleCtl(200, 3, {}); },
                     "ruleCtl",
                     -1,
                     -1,
                     {info("zelRuleCtl, ruleId:200, status:3")},
                     {info("zelRuleCtl, ruleId:200, status:3"), failedStep("zelRuleCtl")}});
        v.push_back({"ZelMutiResStateRequest",
                     [] {
                         std::vector<ZelClient::Resource> r = {{0x10, "old"}};
                         const int32_t n = ZelMutiResStateRequest(r);
                         return r[0].value == "old" ? n : kOutputWritten;
                     },
                     "stateRequest", -1, -1, multiState,
                     multiState + std::vector<LogLine>{failedStep("ZelMutiResStateRequest")}});
        const std::vector<LogLine> single = {info("ZelResStateRequest enter"), multiState[0]};
        v.push_back({"ZelResStateRequest",
                     [] {
                         std::string value = "old";
                         ZelResStateRequest(0x10, value);
                         return value == "old" ? kNoResult : kOutputWritten;
                     },
                     "stateRequest", kNoResult, kNoResult, single,
                     single + std::vector<LogLine>{failedStep("ZelMutiResStateRequest")}});
        v.push_back({"ZelGetHistory",
                     [] {
                         std::string history = "old";
                         const int32_t r = ZelGetHistory(history);
                         return history == "old" ? r : kOutputWritten;
                     },
                     "stateRequest",
                     -1,
                     -1,
                     {info("zel client ZelGetHistory")},
                     {info("zel client ZelGetHistory"), info("zel client hal ZelGetHistory"),
                      failedStep("ZelGetHistory"),
                      error("failed to get history or return vector empty, data vector size 0")}});
        v.push_back({"ZelGetPMStatus",
                     [] { return ZelGetPMStatus(4); },
                     "stateRequest",
                     -1,
                     -1,
                     {info("zel client ZelGetPMStatus")},
                     {info("zel client ZelGetPMStatus"), info("zel client hal ZelGetPMStatus"),
                      failedStep("ZelGetPMStatus"),
                      error("failed to get power mode status, mode 4, data vector size 0")}});
        return v;
    }();
    return kEntryPoints;
}

const LogLine kNotDeclared = error("Torq is not declared, AServiceManager_isDeclared:0");
const LogLine kConnectError = error("zel_get_torq_hal_and_link_to_death error:-1");

class ZelEntryPointTest : public ZelTest, public ::testing::WithParamInterface<size_t> {
  protected:
    const EntryPoint& ep() const { return entryPoints()[GetParam()]; }
};

TEST_P(ZelEntryPointTest, UndeclaredHalIsNeverContacted) {
    FakeTorqHal& hal = startHal(/*declare=*/false);

    EXPECT_EQ(ep().failure, ep().call());

    EXPECT_THAT(zelLog(), ElementsAreArray(ep().entryLines +
                                           std::vector<LogLine>{kNotDeclared, kConnectError}));
    EXPECT_TRUE(hal.calls().empty());
}

TEST_P(ZelEntryPointTest, RefusedCallDropsTheConnection) {
    FakeTorqHal& hal = startHal();
    hal.answerOnce(ep().method, refused());

    EXPECT_EQ(ep().refusal, ep().call());
    EXPECT_THAT(zelLog(), ElementsAreArray(ep().refusalLines));
    EXPECT_EQ(1u, hal.count(ep().method));

    // The next call looks the service up again...
    undeclare();
    clearCaptures();
    ep().call();
    EXPECT_THAT(zelLog(), Contains(kNotDeclared));
    // ...and gets through once it can be found.
    declare();
    clearCaptures();
    ep().call();
    EXPECT_EQ(2u, hal.count(ep().method));
    EXPECT_THAT(zelLog(), Not(Contains(kConnectError)));
}

TEST_P(ZelEntryPointTest, WorkingConnectionIsKept) {
    FakeTorqHal& hal = startHal();
    ep().call();

    undeclare();  // a new look-up would fail now
    clearCaptures();
    ep().call();

    EXPECT_EQ(2u, hal.count(ep().method));
    EXPECT_THAT(zelLog(), Not(Contains(kNotDeclared)));
}

INSTANTIATE_TEST_SUITE_P(AllEntryPoints, ZelEntryPointTest,
                         ::testing::Range<size_t>(0, entryPoints().size()),
                         [](const ::testing::TestParamInfo<size_t>& info) {
                             return std::string(entryPoints()[info.param].name);
                         });

class ZelConnectionTest : public ZelTest {};

// The instance may become declared between the two questions: the line reports the second answer,
// and the connection attempt still fails.
TEST_F(ZelConnectionTest, UndeclaredInstanceIsAskedTwiceAndTheSecondAnswerLogged) {
    FakeTorqHal& hal = startHal();
    {
        std::lock_guard<std::mutex> lock(gDeclaredMutex);
        gScriptedDeclared = {false, true};
        gDeclaredQueries = 0;
    }

    EXPECT_EQ(-1, ZelEventAcquire(1, "p", "i", 5, {}));

    EXPECT_THAT(zelLog(), ElementsAre(info("ZelEventAcquire, cmdid:1, pkg:p, identity:i"),
                                      error("Torq is not declared, AServiceManager_isDeclared:1"),
                                      kConnectError));
    EXPECT_EQ(0u, hal.count("request"));
    {
        std::lock_guard<std::mutex> lock(gDeclaredMutex);
        EXPECT_EQ(2, gDeclaredQueries);
        EXPECT_TRUE(gScriptedDeclared.empty());
    }
    // Nothing was cached: the next call asks again and gets through.
    EXPECT_GT(ZelEventAcquire(1, "p", "i", 5, {}), 0);
}

TEST_F(ZelConnectionTest, DeclaredButUnregisteredHalIsNotWaitedFor) {
    declare();

    EXPECT_EQ(-1, ZelEventAcquire(1, "p", "i", 5, {}));

    EXPECT_THAT(zelLog(), ElementsAre(info("ZelEventAcquire, cmdid:1, pkg:p, identity:i"),
                                      error("Torq HAL Service not found"), kConnectError));
}

TEST_F(ZelConnectionTest, InitCallsTheHalOnce) {
    FakeTorqHal& hal = startHal();

    EXPECT_EQ(0, zelInit());

    EXPECT_EQ(1u, hal.count("init"));
    EXPECT_THAT(zelLog(), ElementsAre(error("zelInit enter")));
}

// A HAL in the caller's own process: its binder is local, so no death link can be made.
class LocalTorq : public aidl::vendor::quarn::hardware::torq::BnTorq {
  public:
    std::atomic<int> calls{0};

    ndk::ScopedAStatus init() override { return count(); }
    ndk::ScopedAStatus request(const TorqRequestParcel&, int32_t*) override { return count(); }
    ndk::ScopedAStatus release(int32_t, int32_t*) override { return count(); }
    ndk::ScopedAStatus stateRequest(const TorqRequestParcel&,
                                    std::vector<TorqRequestData>*) override {
        return count();
    }
    ndk::ScopedAStatus listeningRegister(const TorqRequestParcel&,
                                         const std::shared_ptr<torq_test::ITorqCallback>&,
                                         int32_t*) override {
        return count();
    }
    ndk::ScopedAStatus listeningUnregister(int32_t, int32_t*) override { return count(); }
    ndk::ScopedAStatus propertyGet(const std::string&, std::string*) override { return count(); }
    ndk::ScopedAStatus propertySet(const std::string&, const std::string&, int32_t*) override {
        return count();
    }
    ndk::ScopedAStatus thermalListeningRegister(const std::vector<int32_t>&,
                                                const std::shared_ptr<torq_test::ITorqCallback>&,
                                                int32_t*) override {
        return count();
    }
    ndk::ScopedAStatus thermalListeningUnregister(int32_t, int32_t*) override { return count(); }
    ndk::ScopedAStatus notifyEvent(const TorqRequestParcel&, int32_t*) override { return count(); }
    ndk::ScopedAStatus setRelatedSysInfo(int32_t, int64_t, int32_t*) override { return count(); }
    ndk::ScopedAStatus ruleCtl(int32_t, int32_t, const std::vector<TorqRequestData>&,
                               int32_t*) override {
        return count();
    }

  private:
    ndk::ScopedAStatus count() {
        ++calls;
        return ndk::ScopedAStatus::ok();
    }
};

TEST_F(ZelConnectionTest, HalWithoutDeathNoticeIsNotUsed) {
    auto local = ndk::SharedRefBase::make<LocalTorq>();
    ASSERT_EQ(EX_NONE,
              AServiceManager_addService(local->asBinder().get(), torq_test::kTorqInstance));
    declare();

    const std::vector<LogLine> expected = {
            info("ZelEventAcquire, cmdid:1, pkg:p, identity:i"),
            error("Unable to link to g_zel_hal death notifications!"), kConnectError};
    for (int attempt = 0; attempt < 2; ++attempt) {
        clearCaptures();
        EXPECT_EQ(-1, ZelEventAcquire(1, "p", "i", 5, {}));
        EXPECT_THAT(zelLog(), ElementsAreArray(expected)) << "attempt " << attempt;
    }
    EXPECT_EQ(0, local->calls.load());
}

TEST_F(ZelConnectionTest, HalDeathDropsTheConnectionUntilARestart) {
    FakeTorqHal& hal = startHal();
    for (int i = 0; i < 3; ++i) ASSERT_GT(ZelEventAcquire(1, "p", "i", 5, {}), 0);

    clearCaptures();
    hal.kill();
    ASSERT_TRUE(binder_host::drain());
    // One connection, linked once: one notice.
    EXPECT_THAT(zelLog(), ElementsAre(error("Torq HAL Service died")));

    clearCaptures();
    EXPECT_EQ(-1, ZelEventAcquire(1, "p", "i", 5, {}));
    EXPECT_THAT(zelLog(), Contains(error("Torq HAL Service not found")));

    hal.restart();
    hal.clearCalls();
    clearCaptures();
    EXPECT_GT(ZelEventAcquire(1, "p", "i", 5, {}), 0);
    EXPECT_EQ(1u, hal.count("request"));
    EXPECT_THAT(zelLog(), ElementsAre(info("ZelEventAcquire, cmdid:1, pkg:p, identity:i")));
}

TEST_F(ZelConnectionTest, CallRacingTheDeathNoticeFailsThenRecovers) {
    FakeTorqHal& hal = startHal();
    ASSERT_GT(ZelEventAcquire(1, "p", "i", 5, {}), 0);

    hal.kill();
    // Either the transaction finds the HAL dead or the notice has already dropped the interface.
    EXPECT_EQ(-1, ZelEventAcquire(1, "p", "i", 5, {}));
    ASSERT_TRUE(binder_host::drain());

    hal.restart();
    hal.clearCalls();
    EXPECT_GT(ZelEventAcquire(1, "p", "i", 5, {}), 0);
    EXPECT_EQ(1u, hal.count("request"));
}

TEST_F(ZelConnectionTest, ConcurrentFirstCallsAllGetThrough) {
    FakeTorqHal& hal = startHal();
    constexpr int kThreads = 4;
    constexpr int kRounds = 8;
    for (int round = 0; round < kRounds; ++round) {
        // Every round starts disconnected: the previous round's HAL has died.
        std::atomic<int> ready{0};
        std::atomic<bool> go{false};
        std::vector<int32_t> results(kThreads, 0);
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t) {
            threads.emplace_back([&, t] {
                ++ready;
                while (!go.load()) std::this_thread::yield();
                results[t] = ZelEventAcquire(t, "p", "i", 5, {});
            });
        }
        while (ready.load() < kThreads) std::this_thread::yield();
        go = true;
        for (std::thread& th : threads) th.join();

        for (int t = 0; t < kThreads; ++t) EXPECT_GT(results[t], 0) << "round " << round;
        EXPECT_GT(ZelEventAcquire(99, "p", "i", 5, {}), 0) << "round " << round;
        EXPECT_EQ(static_cast<size_t>(kThreads + 1), hal.count("request"));

        hal.kill();
        ASSERT_TRUE(binder_host::drain());
        hal.restart();
        hal.clearCalls();
    }
    EXPECT_THAT(zelLog(), Not(Contains(kConnectError)));
}

}  // namespace
}  // namespace zel_test
