// The flat API: its own connection to the HAL (no HAL, a HAL that refuses, a HAL that dies), what
// the HAL receives from each call, what the caller gets back, and the log and trace lines around
// them.

#include <android/log.h>
#include <binder_host/process.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <torqHalclient.h>
#include <torq_sim/SimHost.h>
#include <torq_test/Answers.h>
#include <torq_test/Capture.h>
#include <zel.h>

#include <climits>
#include <functional>
#include <future>
#include <list>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace zel_test {
namespace {

using namespace torq_test;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using ::testing::Not;
using torq_sim::SimHost;
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

    LogCapture log_;
    TraceCapture trace_;
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

    for (const SentAnswer& bad : {refused(), broken()}) {
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
    // Were the calls serialised, these would wait for the held ones.
    std::future<int32_t> others;
    if (bothInFlight) {
        others = std::async(std::launch::async, [] {
            ZelRelease(7);
            return torqHalclient::torqResCtlRelease(8);
        });
        others.wait_for(std::chrono::seconds(10));
    }
    const size_t releasesWhileHeld = hal.count("release");
    hal.releaseHeld();
    zelCaller.join();
    halclientCaller.join();
    if (others.valid()) others.get();
    ASSERT_TRUE(bothInFlight);
    EXPECT_EQ(releasesWhileHeld, 2u);
    EXPECT_EQ(hal.count("request"), 2u);
}

// ---- The calls -----------------------------------------------------------------------------

// The parcel an acquisition must send; every field not set here must arrive at its default.
TorqRequestParcel acquisition(int32_t kind, std::vector<TorqRequestData> data, const char* pkg,
                              const char* identity, int64_t duration) {
    TorqRequestParcel p = parcel(kind, std::move(data));
    p.pkg = pkg;
    p.identity = identity;
    p.duration = duration;
    return p;
}

// The three acquisitions share one path: the command id picks the kind, an event gets its command
// entry first, values travel present (empty when the caller gave none), empty texts show as
// "none", and the HAL's handle comes back unchecked.
TEST_F(ZelTest, EachAcquisitionSendsItsKindAndReturnsTheHandle) {
    struct Row {
        std::function<int32_t()> call;
        int32_t handle;
        TorqRequestParcel parcel;
        std::vector<LogLine> log;
        std::string mark;
    };
    const std::vector<Row> rows = {
            {[] {
                 return ZelEventAcquire(11, "com.example.cam", "cameraserver", 3000,
                                        {{0x010108a0, "1500"}, {0x02, std::nullopt}, {0, ""}});
             },
             42,
             acquisition(8,
                         {idRecord(11), idRecord(0x010108a0, "1500"), idRecord(0x02, ""),
                          idRecord(0, "")},
                         "com.example.cam", "cameraserver", 3000),
             {info("ZelEventAcquire, cmdid:11, pkg:com.example.cam, identity:cameraserver")},
             "ZelEventAcquire  cmd_id:11 pkg:com.example.cam identity:cameraserver duration:3000"},
            {[] { return ZelEventAcquire(5, "", "", 0, {}); },
             0,
             acquisition(8, {idRecord(5)}, "", "", 0),
             {info("ZelEventAcquire, cmdid:5, pkg:none, identity:none")},
             "ZelEventAcquire  cmd_id:5 pkg:none identity:none duration:0"},
            // The duration is sign-extended, not 4294967295.
            {[] {
                 return ZelResAcquire({{0x00404000, "1"}, {0x00408000, {}}}, 99, "launcher", -1);
             },
             -5,
             acquisition(1, {idRecord(0x00404000, "1"), idRecord(0x00408000, "")}, "", "launcher",
                         -1),
             {info("ZelResAcquire"),
              info("ZelEventAcquire, cmdid:-2, pkg:none, identity:launcher")},
             "ZelEventAcquire  cmd_id:-2 pkg:none identity:launcher duration:-1"},
            {[] {
                 return ZelPlatformResAcquire({{0x00404000, "2"}}, 0, "svc", "com.vendor.game",
                                              INT32_MIN);
             },
             INT32_MAX,
             acquisition(12, {idRecord(0x00404000, "2")}, "com.vendor.game", "svc", INT32_MIN),
             {info("ZelPlatformResAcquire"),
              info("ZelEventAcquire, cmdid:-3, pkg:com.vendor.game, identity:svc")},
             "ZelEventAcquire  cmd_id:-3 pkg:com.vendor.game identity:svc duration:-2147483648"},
    };
    SimHost& hal = startHal();
    for (const Row& row : rows) {
        SCOPED_TRACE(row.mark);
        hal.setAnswer("request", result(row.handle));
        clearCaptures();
        EXPECT_EQ(row.handle, row.call());
        EXPECT_EQ(row.parcel, hal.last("request").parcel);
        EXPECT_FALSE(hal.last("request").hasCallback);
        EXPECT_THAT(zelLog(), ElementsAreArray(row.log));
        EXPECT_THAT(marks(), ElementsAre(row.mark, "end"));
    }
}

// The trace name holds at most 1022 characters and ends at an embedded NUL; the parcel keeps the
// whole text.
TEST_F(ZelTest, TraceNameIsCutButTheParcelKeepsTheWholeText) {
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
TEST_F(ZelTest, ReleaseSendsTheHandleAndTraceMarksFollowTheAlwaysTag) {
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

// HALs in the field read one identical notify entry per value (at least one) and expect no
// extras. System info and rules pass their arguments untouched.
TEST_F(ZelTest, NotifySysInfoAndRulesSendTheirArgumentsAndReturnTheResult) {
    SimHost& hal = startHal();
    TorqRequestData same = idRecord(3);
    same.subId = 7;
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
    EXPECT_THAT(hal.last("ruleCtl").entries, ElementsAre(idRecord(0x100, "1"), idRecord(0x200, "")));
    EXPECT_EQ(6, zelRuleCtl(201, 0, {}));
    EXPECT_THAT(hal.last("ruleCtl").entries, IsEmpty());

    EXPECT_THAT(zelLog(), ElementsAre(info("ZelNotify enter"), info("ZelNotify enter"),
                                      info("zelRuleCtl, ruleId:200, status:3"),
                                      info("zelRuleCtl, ruleId:201, status:0")));
}

// Only the ids travel. Each resource takes the value of the first record with its id; one with no
// such record, or whose record has no value, keeps its own. No records at all is a failure, and
// so is an empty query, which connects first nonetheless.
TEST_F(ZelTest, ResourcesTakeTheValueOfTheFirstMatchingRecord) {
    SimHost& hal = startHal();
    hal.setAnswer("stateRequest", records({idRecord(0x20, "b"), idRecord(0x10, "a"),
                                           idRecord(0x10, "z"), idRecord(0x30)}));
    Resources res = {
            {0x10, std::nullopt}, {0x20, "old"}, {0x10, ""}, {0x30, "keep"}, {0x40, "keep"}};
    EXPECT_EQ(3, ZelMutiResStateRequest(res));
    EXPECT_EQ(parcel(0, {idRecord(0x10), idRecord(0x20), idRecord(0x10), idRecord(0x30),
                         idRecord(0x40)}),
              hal.last("stateRequest").parcel);
    std::vector<std::optional<std::string>> values;
    for (const auto& r : res) values.push_back(r.value);
    EXPECT_EQ(values, (decltype(values){"a", "b", "a", "keep", "keep"}));
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

    hal.clearCalls();
    clearCaptures();
    Resources none;
    EXPECT_EQ(-1, ZelMutiResStateRequest(none));
    EXPECT_THAT(zelLog(), ElementsAre(info("ZelMutiResStateRequest enter"),
                                      error("input resource is empty, return")));
    EXPECT_EQ(0u, hal.count("stateRequest"));
    undeclare();  // the connection the failed call made is used
    EXPECT_EQ(-1, ZelGetPMStatus(1));
    EXPECT_EQ(1u, hal.count("stateRequest"));
}

// The single query writes only a value that came back, and only up to its first NUL.
TEST_F(ZelTest, SingleResourceQueryWritesOnlyAFoundValue) {
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
    EXPECT_EQ(parcel(0, {idRecord(0x0a)}), hal.last("stateRequest").parcel);
    EXPECT_THAT(zelLog(),
                ElementsAre(info("ZelResStateRequest enter"), info("ZelMutiResStateRequest enter"),
                            debug("get resource value, opcode 0x0000000a, value 1500")));

    hal.setAnswer("stateRequest", records({idRecord(0x0a, std::string("12") + '\0' + "34")}));
    ZelResStateRequest(0x0a, value);
    EXPECT_EQ("12", value);
}

TEST_F(ZelTest, HistoryJoinsExtrasWithNoneForAbsentOnes) {
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
TEST_F(ZelTest, PowerModeParsesTheLeadingNumber) {
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
        EXPECT_EQ(parcel(13, {idRecord(4)}), hal.last("stateRequest").parcel);
        EXPECT_THAT(zelLog(), ElementsAre(info("zel client ZelGetPMStatus"),
                                          info("zel client hal ZelGetPMStatus")));
    }
    hal.setAnswer("stateRequest", records({idRecord(4)}));
    EXPECT_THROW(ZelGetPMStatus(4), std::bad_optional_access);
}

}  // namespace
}  // namespace zel_test
