// The flat API: its own connection to the HAL (no HAL, a HAL that refuses, a HAL that dies, callers
// that race to connect), what the HAL receives from each call, what the caller gets back, and the
// log and trace lines around them.

#include <android/binder_ibinder.h>
#include <android/log.h>
#include <binder_host/process.h>
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <torqHalclient.h>
#include <torq_sim/SimHost.h>
#include <torq_test/Capture.h>
#include <torq_test/Records.h>
#include <zel.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <deque>
#include <functional>
#include <future>
#include <list>
#include <memory>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

// Scripted answers of the binder runtime, for what a test cannot make the real one do: change the
// answer of AServiceManager_isDeclared between two questions asked back to back, or refuse a death
// link to a remote binder. Scripts are written only while no other thread calls the library.
namespace {
std::deque<bool> gScriptedDeclared;
int gFailingLinks = 0;

template <typename F>
F real(const char* name) {
    return reinterpret_cast<F>(dlsym(RTLD_NEXT, name));
}
}  // namespace

// These interpose the binder runtime's functions for the library (which calls them through the
// PLT) and forward to the real ones unless a test scripted the answer.
extern "C" bool AServiceManager_isDeclared(const char* instance) {
    if (!gScriptedDeclared.empty()) {
        const bool answer = gScriptedDeclared.front();
        gScriptedDeclared.pop_front();
        return answer;
    }
    static const auto fn = real<bool (*)(const char*)>(__func__);
    return fn(instance);
}

extern "C" binder_status_t AIBinder_linkToDeath(AIBinder* binder, AIBinder_DeathRecipient* r,
                                                void* cookie) {
    if (gFailingLinks > 0) {
        --gFailingLinks;
        return STATUS_INVALID_OPERATION;
    }
    static const auto fn =
            real<binder_status_t (*)(AIBinder*, AIBinder_DeathRecipient*, void*)>(__func__);
    return fn(binder, r, cookie);
}

namespace aidl::vendor::quarn::hardware::torq {
void PrintTo(const TorqRequestParcel& p, std::ostream* os) {
    *os << p.toString();
}
void PrintTo(const TorqRequestData& d, std::ostream* os) {
    *os << d.toString();
}
}  // namespace aidl::vendor::quarn::hardware::torq

namespace torq_test {
void PrintTo(const LogLine& l, std::ostream* os) {
    *os << "{prio " << l.priority << ", " << (l.hasTag ? l.tag : "<no tag>") << ", \"" << l.text
        << "\"}";
}
}  // namespace torq_test

namespace zel_test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using ::testing::Not;
using Answer = torq_sim::SentAnswer;
using torq_sim::SimHost;
using torq_sim::TorqRequestParcel;
using torq_test::idRecord;
using torq_test::LogLine;
using torq_test::TorqRequestData;
using torq_test::TraceEvent;
using Resources = std::vector<ZelClient::Resource>;

constexpr char kZelTag[] = "[ZEL_CLIENT]";

LogLine info(const std::string& text) {
    return LogLine{ANDROID_LOG_INFO, true, kZelTag, text};
}
LogLine debug(const std::string& text) {
    return LogLine{ANDROID_LOG_DEBUG, true, kZelTag, text};
}
LogLine error(const std::string& text) {
    return LogLine{ANDROID_LOG_ERROR, true, kZelTag, text};
}

std::vector<LogLine> operator+(std::vector<LogLine> a, const std::vector<LogLine>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// A request entry as the HAL should see it; texts absent unless given.
TorqRequestData entry(int32_t id, std::optional<std::string> value = std::nullopt,
                      int32_t subId = 0) {
    TorqRequestData d;
    d.id = id;
    d.subId = subId;
    d.value = std::move(value);
    return d;
}

TorqRequestParcel parcel(int32_t kind, std::vector<TorqRequestData> data) {
    TorqRequestParcel p;
    p.kind = kind;
    p.data = std::move(data);
    return p;
}

Answer result(int32_t value) {
    Answer a;
    a.result = value;
    return a;
}
Answer records(std::vector<TorqRequestData> recs) {
    Answer a;
    a.records = std::move(recs);
    return a;
}

class ZelTest : public ::testing::Test {
  protected:
    void SetUp() override {
        // The library's cached interface outlives a test. Killing the previous test's HAL fires
        // the death notice (reset drains), which clears it, so every test starts disconnected.
        binder_host::reset();
        clearCaptures();
    }
    void TearDown() override {
        hal_.reset();
        binder_host::reset();
    }

    // The reference HAL, running, declared in the manifest or not.
    SimHost& startHal(bool declare = true) {
        SimHost::Options options;
        options.declare = declare;
        hal_ = std::make_unique<SimHost>(options);
        EXPECT_TRUE(hal_->start());
        return *hal_;
    }
    SimHost& hal() { return *hal_; }

    std::vector<LogLine> zelLog() const { return log_.linesWithTag(kZelTag); }
    // The trace as "name" for a section's start and "end" for its end.
    std::vector<std::string> marks() const {
        std::vector<std::string> out;
        for (const TraceEvent& e : trace_.events()) {
            out.push_back(e.kind == TraceEvent::kBegin ? e.name : "end");
        }
        return out;
    }
    void clearCaptures() {
        log_.clear();
        trace_.clear();
    }

    static void undeclare() { binder_host::undeclareInstance(torq_sim::kTorqInstance); }
    static void declare() { binder_host::declareInstance(torq_sim::kTorqInstance); }

    torq_test::LogCapture log_;
    torq_test::TraceCapture trace_;
    std::unique_ptr<SimHost> hal_;
};

// ---- The connection ------------------------------------------------------------------------

// Results of the entry points that return nothing, or that wrote their output although they
// failed: the output must stay as it was then.
constexpr int32_t kNoResult = INT32_MIN + 7;
constexpr int32_t kOutputWritten = INT32_MIN + 9;

int32_t multiState() {
    Resources r = {{0x10, "old"}};
    const int32_t n = ZelMutiResStateRequest(r);
    return r[0].value == "old" ? n : kOutputWritten;
}
int32_t singleState() {
    std::string value = "old";
    ZelResStateRequest(0x10, value);
    return value == "old" ? kNoResult : kOutputWritten;
}
int32_t history() {
    std::string history = "old";
    const int32_t r = ZelGetHistory(history);
    return history == "old" ? r : kOutputWritten;
}

struct EntryPoint {
    const char* name;
    const char* method;  // the ITorq method it calls
    int32_t failure;     // its result when the HAL is missing
    int32_t refusal;     // its result when the HAL call fails
    std::function<int32_t()> call;
    std::vector<LogLine> entryLines;    // what it logs before connecting
    std::vector<LogLine> refusalLines;  // what follows when the HAL call fails
};

LogLine failedStep(const std::string& step) {
    return error(step + "() failed : torq HAL service not available");
}

const std::vector<EntryPoint>& entryPoints() {
    static const std::vector<EntryPoint> kEntryPoints = [] {
        const LogLine multiEnter = info("ZelMutiResStateRequest enter");
        std::vector<EntryPoint> v;
        auto add = [&v](const char* name, const char* method, int32_t failure, int32_t refusal,
                        std::function<int32_t()> call, std::vector<LogLine> entryLines,
                        std::vector<LogLine> refusalLines) {
            v.push_back({name, method, failure, refusal, std::move(call), std::move(entryLines),
                         std::move(refusalLines)});
        };
        add("zelInit", "init", -1, -2, zelInit, {error("zelInit enter")}, {failedStep("torq_init")});
        add("ZelEventAcquire", "request", -1, -1, [] { return ZelEventAcquire(1, "p", "i", 5, {}); },
            {info("ZelEventAcquire, cmdid:1, pkg:p, identity:i")},
            {failedStep("ZelEventAcquire"), error("torqResCtlRequest error:-1")});
        add("ZelRelease", "release", kNoResult, kNoResult, [] { return ZelRelease(3), kNoResult; },
            {info("ZelRelease, handle:3")}, {failedStep("torqResCtlRelease")});
        add("ZelNotify", "request", -1, -1, [] { return ZelNotify(1, 2, {3}); },
            {info("ZelNotify enter")}, {failedStep("ZelNotify")});
        add("setRelatedSysInfo", "setRelatedSysInfo", -1, -1,
            [] { return setRelatedSysInfo(1, 2); }, {}, {failedStep("setRelatedSysInfo")});
        add("zelRuleCtl", "ruleCtl", -1, -1, [] { return zelRuleCtl(200, 3, {}); },
            {info("zelRuleCtl, ruleId:200, status:3")}, {failedStep("zelRuleCtl")});
        add("ZelMutiResStateRequest", "stateRequest", -1, -1, multiState, {multiEnter},
            {failedStep("ZelMutiResStateRequest")});
        add("ZelResStateRequest", "stateRequest", kNoResult, kNoResult, singleState,
            {info("ZelResStateRequest enter"), multiEnter}, {failedStep("ZelMutiResStateRequest")});
        add("ZelGetHistory", "stateRequest", -1, -1, history, {info("zel client ZelGetHistory")},
            {info("zel client hal ZelGetHistory"), failedStep("ZelGetHistory"),
             error("failed to get history or return vector empty, data vector size 0")});
        add("ZelGetPMStatus", "stateRequest", -1, -1, [] { return ZelGetPMStatus(4); },
            {info("zel client ZelGetPMStatus")},
            {info("zel client hal ZelGetPMStatus"), failedStep("ZelGetPMStatus"),
             error("failed to get power mode status, mode 4, data vector size 0")});
        return v;
    }();
    return kEntryPoints;
}

const LogLine kNotDeclared = error("Torq is not declared, AServiceManager_isDeclared:0");
const LogLine kConnectError = error("zel_get_torq_hal_and_link_to_death error:-1");

class ZelEntryPointTest : public ZelTest, public ::testing::WithParamInterface<size_t> {};

// Every entry point: without a declared HAL it fails without contacting one; once connected it
// keeps the connection while calls work; a failed call drops it, so the next call looks the
// service up again.
TEST_P(ZelEntryPointTest, ConnectsOnceAndAgainAfterAFailedCall) {
    const EntryPoint& ep = entryPoints()[GetParam()];
    SimHost& hal = startHal(/*declare=*/false);

    EXPECT_EQ(ep.failure, ep.call());
    EXPECT_THAT(zelLog(),
                ElementsAreArray(ep.entryLines + std::vector{kNotDeclared, kConnectError}));
    EXPECT_TRUE(hal.calls().empty());

    declare();
    ep.call();
    undeclare();  // a new look-up would fail now
    clearCaptures();
    ep.call();
    EXPECT_EQ(2u, hal.count(ep.method));
    EXPECT_THAT(zelLog(), Not(Contains(kNotDeclared)));

    Answer refused, broken;  // a service-specific error; a failed transaction
    refused.exception = EX_SERVICE_SPECIFIC;
    broken.transactionError = STATUS_FAILED_TRANSACTION;
    for (const Answer& bad : {refused, broken}) {
        SCOPED_TRACE(bad.exception != 0 ? "refused" : "transaction failed");
        hal.answerOnce(ep.method, bad);
        clearCaptures();
        EXPECT_EQ(ep.refusal, ep.call());
        EXPECT_THAT(zelLog(), ElementsAreArray(ep.entryLines + ep.refusalLines));

        clearCaptures();
        ep.call();
        EXPECT_THAT(zelLog(), Contains(kNotDeclared));

        declare();  // found again: the next call gets through, and the connection stays
        const size_t before = hal.count(ep.method);
        ep.call();
        undeclare();
        ep.call();
        EXPECT_EQ(before + 2, hal.count(ep.method));
    }
}

INSTANTIATE_TEST_SUITE_P(AllEntryPoints, ZelEntryPointTest,
                         ::testing::Range<size_t>(0, entryPoints().size()),
                         [](const ::testing::TestParamInfo<size_t>& info) {
                             return std::string(entryPoints()[info.param].name);
                         });

class ZelConnectionTest : public ZelTest {};

// Each way a connection attempt can fail leaves nothing cached: the next call tries again. An
// instance that becomes declared between the two questions is reported with the second answer.
TEST_F(ZelConnectionTest, FailedConnectionAttemptsAreNotKept) {
    const LogLine acquire = info("ZelEventAcquire, cmdid:1, pkg:p, identity:i");
    struct Row {
        const char* name;
        std::function<void()> setUp;
        LogLine line;
    };
    const std::vector<Row> rows = {
            {"declared, not registered", declare, error("Torq HAL Service not found")},
            {"declared at the second question",
             [this] {
                 startHal();
                 gScriptedDeclared = {false, true};
             },
             error("Torq is not declared, AServiceManager_isDeclared:1")},
            {"death link refused", [] { gFailingLinks = 1; },
             error("Unable to link to g_zel_hal death notifications!")},
            {"death link refused again", [] { gFailingLinks = 1; },
             error("Unable to link to g_zel_hal death notifications!")},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        row.setUp();
        clearCaptures();
        EXPECT_EQ(-1, ZelEventAcquire(1, "p", "i", 5, {}));
        EXPECT_THAT(zelLog(), ElementsAre(acquire, row.line, kConnectError));
    }
    EXPECT_TRUE(hal().calls().empty());
    EXPECT_EQ(0, zelInit());
    EXPECT_EQ(1u, hal().count("init"));
}

// The death notice (one per connection) drops the interface; calls fail until a HAL is registered
// again, then the first one gets through. A call racing the notice fails, whichever comes first.
TEST_F(ZelConnectionTest, HalDeathDropsTheConnectionUntilARestart) {
    const LogLine acquire = info("ZelEventAcquire, cmdid:1, pkg:p, identity:i");
    SimHost& hal = startHal();
    for (int i = 0; i < 3; ++i) ASSERT_GT(ZelEventAcquire(1, "p", "i", 5, {}), 0);

    clearCaptures();
    hal.kill();
    ASSERT_TRUE(binder_host::drain());
    EXPECT_THAT(zelLog(), ElementsAre(error("Torq HAL Service died")));

    clearCaptures();
    EXPECT_EQ(-1, ZelEventAcquire(1, "p", "i", 5, {}));
    EXPECT_THAT(zelLog(), ElementsAre(acquire, error("Torq HAL Service not found"), kConnectError));

    for (int round = 0; round < 2; ++round) {
        hal.restart();
        hal.clearCalls();
        clearCaptures();
        EXPECT_GT(ZelEventAcquire(1, "p", "i", 5, {}), 0);
        EXPECT_EQ(1u, hal.count("request"));
        EXPECT_THAT(zelLog(), ElementsAre(acquire));

        hal.kill();
        EXPECT_EQ(-1, ZelEventAcquire(1, "p", "i", 5, {}));
        ASSERT_TRUE(binder_host::drain());
    }
}

// Both front ends hold their interface lock shared for the whole transaction: a call waiting in
// the HAL must not hold back callers on other threads.
TEST_F(ZelConnectionTest, CallInFlightDoesNotHoldBackOtherCallers) {
    SimHost& hal = startHal();
    ASSERT_GT(ZelEventAcquire(1, "p", "i", 5, {}), 0);  // both connect before the hold
    std::list<ZelClient::Resource> boost{{0x01010020, "2000000"}};
    ASSERT_GT(torqHalclient::torqResCtlRequest(100, boost, 0), 0);
    hal.clearCalls();

    hal.holdCalls("request");
    std::thread zelCaller([] { ZelEventAcquire(2, "p", "i", 5, {}); });
    std::thread halclientCaller([&] { torqHalclient::torqResCtlRequest(100, boost, 0); });
    const bool bothInFlight = hal.waitForCalls("request", 2);
    // Other calls of both front ends get through meanwhile (were they serialised, they would
    // wait for the held calls).
    std::future<int32_t> others;
    bool othersDone = false;
    if (bothInFlight) {
        others = std::async(std::launch::async, [] {
            ZelRelease(7);
            return torqHalclient::torqResCtlRelease(8);
        });
        othersDone = others.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
    }
    const size_t releasesWhileHeld = hal.count("release");
    hal.releaseHeld();
    zelCaller.join();
    halclientCaller.join();
    if (others.valid()) others.get();
    ASSERT_TRUE(bothInFlight);
    EXPECT_TRUE(othersDone);
    EXPECT_EQ(releasesWhileHeld, 2u);
    EXPECT_EQ(hal.count("request"), 2u);
}

TEST_F(ZelConnectionTest, ConcurrentFirstCallsAllGetThrough) {
    SimHost& hal = startHal();
    constexpr int kThreads = 4;
    for (int round = 0; round < 8; ++round) {
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

// ---- The calls -----------------------------------------------------------------------------

class ZelAcquireTest : public ZelTest {
  protected:
    // The parcel an acquisition must send; every field not set here must arrive at its default.
    static TorqRequestParcel acquisition(int32_t kind, std::vector<TorqRequestData> data,
                                         const char* pkg, const char* identity, int64_t duration) {
        TorqRequestParcel p = parcel(kind, std::move(data));
        p.pkg = pkg;
        p.identity = identity;
        p.duration = duration;
        return p;
    }
    // What the HAL, the log and the trace got from the call just made.
    void expectSent(const TorqRequestParcel& expected, const std::vector<LogLine>& log,
                    const std::string& mark) {
        EXPECT_EQ(expected, hal().last("request").parcel);
        EXPECT_FALSE(hal().last("request").hasCallback);
        EXPECT_THAT(zelLog(), ElementsAreArray(log));
        EXPECT_THAT(marks(), ElementsAre(mark, "end"));
        clearCaptures();
    }
};

// The three acquisitions share one path: the command id picks the kind, an event gets its command
// entry first, values travel present (empty when the caller gave none), empty texts show as
// "none", and the HAL's handle comes back unchecked.
TEST_F(ZelAcquireTest, EachAcquisitionSendsItsKindAndReturnsTheHandle) {
    SimHost& hal = startHal();
    hal.setAnswer("request", result(42));
    EXPECT_EQ(42, ZelEventAcquire(11, "com.example.cam", "cameraserver", 3000,
                                  {{0x010108a0, "1500"}, {0x02, std::nullopt}, {0, ""}}));
    expectSent(
            acquisition(8, {entry(11), entry(0x010108a0, "1500"), entry(0x02, ""), entry(0, "")},
                        "com.example.cam", "cameraserver", 3000),
            {info("ZelEventAcquire, cmdid:11, pkg:com.example.cam, identity:cameraserver")},
            "ZelEventAcquire  cmd_id:11 pkg:com.example.cam identity:cameraserver duration:3000");

    hal.setAnswer("request", result(0));
    EXPECT_EQ(0, ZelEventAcquire(5, "", "", 0, {}));
    expectSent(acquisition(8, {entry(5)}, "", "", 0),
               {info("ZelEventAcquire, cmdid:5, pkg:none, identity:none")},
               "ZelEventAcquire  cmd_id:5 pkg:none identity:none duration:0");

    hal.setAnswer("request", result(-5));
    EXPECT_EQ(-5,
              ZelResAcquire({{0x00404000, "1"}, {0x00408000, std::nullopt}}, 99, "launcher", -1));
    // The duration is sign-extended, not 4294967295.
    expectSent(
            acquisition(1, {entry(0x00404000, "1"), entry(0x00408000, "")}, "", "launcher", -1),
            {info("ZelResAcquire"), info("ZelEventAcquire, cmdid:-2, pkg:none, identity:launcher")},
            "ZelEventAcquire  cmd_id:-2 pkg:none identity:launcher duration:-1");

    hal.setAnswer("request", result(INT32_MAX));
    EXPECT_EQ(INT32_MAX,
              ZelPlatformResAcquire({{0x00404000, "2"}}, 0, "svc", "com.vendor.game", INT32_MIN));
    expectSent(acquisition(12, {entry(0x00404000, "2")}, "com.vendor.game", "svc", INT32_MIN),
               {info("ZelPlatformResAcquire"),
                info("ZelEventAcquire, cmdid:-3, pkg:com.vendor.game, identity:svc")},
               "ZelEventAcquire  cmd_id:-3 pkg:com.vendor.game identity:svc duration:-2147483648");
}

// The trace name holds at most 1022 characters and ends at an embedded NUL; the parcel keeps the
// whole text.
TEST_F(ZelAcquireTest, TraceNameIsCutButTheParcelKeepsTheWholeText) {
    SimHost& hal = startHal();
    const std::string prefix = "ZelEventAcquire  cmd_id:1 pkg:";
    const std::string suffix = " identity:i duration:2";  // 30 + 22 characters around the package
    for (const std::string& pkg : {std::string(970, 'p'), std::string(971, 'p'),
                                   std::string(2000, 'p'), std::string("ab") + '\0' + "cd"}) {
        SCOPED_TRACE("package of " + std::to_string(pkg.size()));
        trace_.clear();
        ZelEventAcquire(1, pkg, "i", 2, {});
        const std::string name = pkg.size() == 5 ? prefix + "ab" : prefix + pkg + suffix;
        EXPECT_THAT(marks(), ElementsAre(name.substr(0, 1022), "end"));
        EXPECT_EQ(pkg, hal.last("request").parcel.pkg);
    }
    EXPECT_EQ(info("ZelEventAcquire, cmdid:1, pkg:ab, identity:i"), zelLog().back());
}

// A mark records the request itself, so it is made whether or not a HAL is reached, and only
// while the always-on trace tag is enabled.
TEST_F(ZelAcquireTest, ReleaseSendsTheHandleAndTraceMarksFollowTheAlwaysTag) {
    EXPECT_EQ(-1, ZelEventAcquire(2, "p", "i", 3, {}));
    ZelRelease(8);
    EXPECT_THAT(marks(), ElementsAre("ZelEventAcquire  cmd_id:2 pkg:p identity:i duration:3", "end",
                                     "ZelRelease: 8", "end"));

    SimHost& hal = startHal();
    clearCaptures();
    ZelRelease(-17);
    EXPECT_EQ(-17, hal.last("release").handle);
    EXPECT_THAT(zelLog(), ElementsAre(info("ZelRelease, handle:-17")));
    EXPECT_THAT(marks(), ElementsAre("ZelRelease: -17", "end"));

    trace_.clear();
    for (uint64_t tags : {uint64_t{0}, ~uint64_t{1}}) {
        trace_.setEnabledTags(tags);
        ZelEventAcquire(1, "p", "i", 2, {});
        ZelRelease(4);
        EXPECT_THAT(marks(), IsEmpty()) << "tags " << tags;
    }
    EXPECT_EQ(2u, hal.count("request"));
    EXPECT_EQ(3u, hal.count("release"));
}

class ZelForwardTest : public ZelTest {};

// HALs in the field read one identical notify entry per value (at least one) and expect no
// extras. System info and rules pass their arguments untouched.
TEST_F(ZelForwardTest, NotifySysInfoAndRulesSendTheirArgumentsAndReturnTheResult) {
    SimHost& hal = startHal();
    const TorqRequestData same = entry(3, std::nullopt, 7);
    hal.setAnswer("request", result(-4));
    hal.setAnswer("setRelatedSysInfo", result(-9));
    hal.setAnswer("ruleCtl", result(6));

    EXPECT_EQ(-4, ZelNotify(3, 7, {10, 20, 30}));
    EXPECT_EQ(parcel(10, {same, same, same}), hal.last("request").parcel);
    EXPECT_EQ(-4, ZelNotify(3, 7, {}));
    EXPECT_EQ(parcel(10, {same}), hal.last("request").parcel);

    EXPECT_EQ(-9, setRelatedSysInfo(-1, INT64_MIN));
    EXPECT_EQ(-1, hal.last("setRelatedSysInfo").first);
    EXPECT_EQ(INT64_MIN, hal.last("setRelatedSysInfo").second);

    EXPECT_EQ(6, zelRuleCtl(200, 3, {{0x100, "1"}, {0x200, std::nullopt}}));
    EXPECT_EQ(200, hal.last("ruleCtl").first);
    EXPECT_EQ(3, hal.last("ruleCtl").status);
    EXPECT_THAT(hal.last("ruleCtl").entries, ElementsAre(entry(0x100, "1"), entry(0x200, "")));
    EXPECT_EQ(6, zelRuleCtl(201, 0, {}));
    EXPECT_THAT(hal.last("ruleCtl").entries, IsEmpty());

    EXPECT_THAT(zelLog(), ElementsAre(info("ZelNotify enter"), info("ZelNotify enter"),
                                      info("zelRuleCtl, ruleId:200, status:3"),
                                      info("zelRuleCtl, ruleId:201, status:0")));
}

class ZelStateTest : public ZelTest {};

// Only the ids travel. Each resource takes the value of the first record with its id; one with no
// such record, or whose record has no value, keeps its own. No records at all is a failure.
TEST_F(ZelStateTest, ResourcesTakeTheValueOfTheFirstMatchingRecord) {
    SimHost& hal = startHal();
    hal.setAnswer("stateRequest", records({idRecord(0x20, "b"), idRecord(0x10, "a"),
                                           idRecord(0x10, "z"), idRecord(0x30)}));
    Resources res = {
            {0x10, std::nullopt}, {0x20, "old"}, {0x10, ""}, {0x30, "keep"}, {0x40, "keep"}};

    EXPECT_EQ(3, ZelMutiResStateRequest(res));

    EXPECT_EQ(parcel(0, {entry(0x10), entry(0x20), entry(0x10), entry(0x30), entry(0x40)}),
              hal.last("stateRequest").parcel);
    EXPECT_EQ("a", res[0].value);
    EXPECT_EQ("b", res[1].value);
    EXPECT_EQ("a", res[2].value);
    EXPECT_EQ("keep", res[3].value);
    EXPECT_EQ("keep", res[4].value);
    EXPECT_THAT(zelLog(), ElementsAre(info("ZelMutiResStateRequest enter"),
                                      debug("get resource value, opcode 0x00000010, value a"),
                                      debug("get resource value, opcode 0x00000020, value b"),
                                      debug("get resource value, opcode 0x00000010, value a"),
                                      info("not match any opcode in zelcore")));

    hal.setAnswer("stateRequest", records({}));
    clearCaptures();
    EXPECT_EQ(-1, ZelMutiResStateRequest(res));
    EXPECT_EQ("b", res[1].value);
    EXPECT_THAT(zelLog(), ElementsAre(info("ZelMutiResStateRequest enter"),
                                      error("failed to get resource value")));
}

TEST_F(ZelStateTest, EmptyInputFailsButConnectsFirst) {
    SimHost& hal = startHal();
    Resources none;

    EXPECT_EQ(-1, ZelMutiResStateRequest(none));
    EXPECT_THAT(zelLog(), ElementsAre(info("ZelMutiResStateRequest enter"),
                                      error("input resource is empty, return")));
    EXPECT_EQ(0u, hal.count("stateRequest"));

    // The connection made by the failed call is used without looking the service up again.
    undeclare();
    hal.setAnswer("stateRequest", records({}));  // the HAL knows no such mode
    EXPECT_EQ(-1, ZelGetPMStatus(1));
    EXPECT_EQ(1u, hal.count("stateRequest"));
}

// The single query writes only a value that came back, and only up to its first NUL.
TEST_F(ZelStateTest, SingleResourceQueryWritesOnlyAFoundValue) {
    SimHost& hal = startHal();
    std::string value = "untouched";
    for (const TorqRequestData& record : {idRecord(0x0a), idRecord(0x0b, "7")}) {
        hal.setAnswer("stateRequest", records({record}));
        ZelResStateRequest(0x0a, value);
        EXPECT_EQ("untouched", value);
    }

    hal.setAnswer("stateRequest", records({idRecord(0x0a, "1500")}));
    clearCaptures();
    ZelResStateRequest(0x0a, value);
    EXPECT_EQ("1500", value);
    EXPECT_EQ(parcel(0, {entry(0x0a)}), hal.last("stateRequest").parcel);
    EXPECT_THAT(zelLog(),
                ElementsAre(info("ZelResStateRequest enter"), info("ZelMutiResStateRequest enter"),
                            debug("get resource value, opcode 0x0000000a, value 1500")));

    hal.setAnswer("stateRequest", records({idRecord(0x0a, std::string("12") + '\0' + "34")}));
    ZelResStateRequest(0x0a, value);
    EXPECT_EQ("12", value);
}

TEST_F(ZelStateTest, HistoryJoinsExtrasWithNoneForAbsentOnes) {
    SimHost& hal = startHal();
    std::vector<TorqRequestData> recs(3);
    recs[0].extra = "a";
    recs[2].extra = "c";
    hal.setAnswer("stateRequest", records(recs));
    std::string history = "old";

    EXPECT_EQ(0, ZelGetHistory(history));
    EXPECT_EQ("start:a;none;c;end", history);
    EXPECT_EQ(parcel(11, {}), hal.last("stateRequest").parcel);
    EXPECT_THAT(zelLog(),
                ElementsAre(info("zel client ZelGetHistory"), info("zel client hal ZelGetHistory"),
                            debug("get history successful: start:a;none;c;end")));

    hal.setAnswer("stateRequest", records({}));
    clearCaptures();
    EXPECT_EQ(-1, ZelGetHistory(history));
    EXPECT_EQ("start:a;none;c;end", history);
    EXPECT_THAT(zelLog(),
                ElementsAre(info("zel client ZelGetHistory"), info("zel client hal ZelGetHistory"),
                            error("failed to get history or return vector empty, data vector "
                                  "size 0")));
}

// The message the standard library gives for a failed conversion of `text`.
template <typename Exception>
std::string stoiMessage(const std::string& text) {
    try {
        (void)std::stoi(text);
    } catch (const Exception& e) {
        return e.what();
    }
    return "<no exception>";
}

// The leading decimal number of the first record's value counts. What does not convert gives -1
// and a line on standard output, never in the log; an absent value throws to the caller.
TEST_F(ZelStateTest, PowerModeParsesTheLeadingNumber) {
    struct Row {
        const char* value;
        int32_t status;
        std::string out;
    };
    const std::vector<Row> rows = {
            {"12abc", 12, ""},
            {"2147483647", INT32_MAX, ""},
            {"abc", -1,
             "Invalid argument exception: " + stoiMessage<std::invalid_argument>("abc") + "\n"},
            {"2147483648", -1,
             "Out of range exception: " + stoiMessage<std::out_of_range>("2147483648") + "\n"},
    };
    SimHost& hal = startHal();
    for (const Row& row : rows) {
        SCOPED_TRACE(row.value);
        hal.setAnswer("stateRequest", records({idRecord(4, row.value)}));
        clearCaptures();
        ::testing::internal::CaptureStdout();
        EXPECT_EQ(row.status, ZelGetPMStatus(4));
        EXPECT_EQ(row.out, ::testing::internal::GetCapturedStdout());
        EXPECT_EQ(parcel(13, {entry(4)}), hal.last("stateRequest").parcel);
        EXPECT_THAT(zelLog(), ElementsAre(info("zel client ZelGetPMStatus"),
                                          info("zel client hal ZelGetPMStatus")));
    }

    hal.setAnswer("stateRequest", records({idRecord(4)}));
    EXPECT_THROW(ZelGetPMStatus(4), std::bad_optional_access);

    hal.setAnswer("stateRequest", records({}));
    clearCaptures();
    EXPECT_EQ(-1, ZelGetPMStatus(9));
    EXPECT_THAT(zelLog(), ElementsAre(info("zel client ZelGetPMStatus"),
                                      info("zel client hal ZelGetPMStatus"),
                                      error("failed to get power mode status, mode 9, data vector "
                                            "size 0")));
}

}  // namespace
}  // namespace zel_test
