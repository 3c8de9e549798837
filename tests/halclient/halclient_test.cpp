// torqHalclient's calls, listening registrations and callback client. The table of entry points
// also holds the flat API's, so that the call frame's failures are checked once for every entry
// point of both front ends.

#include <gmock/gmock.h>
#include <torqHalclient.h>
#include <torq_test/HalTest.h>
#include <zel.h>

#include <climits>
#include <functional>
#include <list>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace halclient_test {
namespace {

using namespace torq_test;
using namespace torqHalclient;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Not;
using ::testing::PrintToString;
using Resources = std::list<ZelClient::Resource>;
using Pairs = std::vector<std::pair<int32_t, std::optional<std::string>>>;
using Strings = std::vector<std::string>;

Strings operator+(Strings a, const Strings& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

Pairs pairs(const Resources& resources) {
    Pairs out;
    for (const auto& r : resources) out.emplace_back(r.id, r.value);
    return out;
}

// A caller callback of either kind; it keeps each delivery as text.
class Recorder : public IClientCallback, public IClientCallbackByPath {
  public:
    void onCallback(std::list<ZelClient::Resource> resources) override {
        record(PrintToString(pairs(resources)));
    }
    void onCallback(Strings values, Strings paths) override {
        record(PrintToString(values) + " at " + PrintToString(paths));
    }
    Strings deliveries() const {
        std::lock_guard<std::mutex> guard(mutex_);
        return deliveries_;
    }

  private:
    void record(std::string delivery) {
        std::lock_guard<std::mutex> guard(mutex_);
        deliveries_.push_back(std::move(delivery));
    }
    mutable std::mutex mutex_;
    Strings deliveries_;
};

// The HAL calls nobody back on its own: each test makes the callbacks it wants with answer().
class HalclientTest : public HalTest {
  protected:
    Strings lines() const { return HalTest::lines("TORQFramework-lib-vendor"); }
    Strings callbackLines() const { return HalTest::lines("TorqFramework-lib-vendor"); }

    static size_t requestCallbacks() {
        std::lock_guard<std::mutex> guard(request_callback_mutex);
        return request_callbacks.size();
    }
    static void drain() { ASSERT_TRUE(binder_host::drain()); }
    // The HAL answers the callback it received `index`-th; returns once it was delivered.
    void answer(size_t index, const std::vector<TorqRequestData>& data) {
        ASSERT_TRUE(hal().invokeCallback(index, data).isOk());
        drain();
    }

    std::shared_ptr<Recorder> cb_ = std::make_shared<Recorder>();
};

using CallsTest = HalclientTest;

TorqRequestParcel ctl(int32_t kind, int32_t param, int64_t duration, int32_t option, bool flag,
                      int32_t tag, std::vector<TorqRequestData> data, bool marked = false) {
    TorqRequestParcel p = parcel(kind, std::move(data), tag, marked);
    p.param = param;
    p.duration = duration;
    p.option = option;
    p.flag = flag;
    return p;
}

// Each form appends the HAL's records to its output: by id as (id, value), by path as values, as a
// map the last value per path, skipping records without a path or a value.
TEST_F(CallsTest, StateRequestsAppendTheHalsRecordsToTheOutput) {
    hal().setAnswer("stateRequest", records({idRecord(0x99, "1,2"), pathRecord("/z", "9"),
                                             pathRecord("/z", "10"), pathRecord("/y", {})}));
    Resources query{{0x10, std::nullopt}, {0x20, "5"}};
    Resources out{{0x1, "old"}};
    EXPECT_EQ(torqResStateRequest(query, 3, out), 5);
    EXPECT_EQ(hal().last("stateRequest").parcel,
              parcel(0, {idRecord(0x10, ""), idRecord(0x20, "5")}, 3));
    EXPECT_EQ(pairs(out), (Pairs{{0x1, "old"}, {0x99, "1,2"}, {0, "9"}, {0, "10"}, {0, ""}}));

    Strings strings{"kept"};
    // Values that do not match the paths are dropped: only the paths are asked.
    EXPECT_EQ(torq_res_state_request_by_path({"/a", "/b"}, {"1"}, 2, strings), 5);
    EXPECT_EQ(hal().last("stateRequest").parcel,
              parcel(0, {pathRecord("/a", {}), pathRecord("/b", {})}, 2, true));
    EXPECT_EQ(strings, (Strings{"kept", "1,2", "9", "10", ""}));

    std::map<std::string, std::string> map{{"/old", "o"}};
    EXPECT_EQ(torq_res_state_request_map_by_path({{"/q", "1"}}, 3, map), 2);
    EXPECT_EQ(hal().last("stateRequest").parcel, parcel(0, {pathRecord("/q", "1")}, 3, true));
    EXPECT_EQ(map, (std::map<std::string, std::string>{{"/old", "o"}, {"/z", "10"}}));
    EXPECT_THAT(lines(), ElementsAre("I torq client torqResStateRequest",
                                     "I torq client hal torqResStateRequest",
                                     "I torq client torqResStateRequest size 5",
                                     "I torq client torq_res_state_request",
                                     "I torq client torq_res_state_request size 5",
                                     "I torq client torq_res_state_request_map",
                                     "E res_Path: /z, res_Value:9", "E res_Path: /z, res_Value:10",
                                     "I torq client torq_res_state_request_map size 2"));

    // No records is a failure, and the output stays as it was.
    hal().setAnswer("stateRequest", records({}));
    EXPECT_EQ(torqResStateRequest(query, 3, out), -1);
    EXPECT_EQ(out.size(), 5u);
}

TEST_F(CallsTest, PropertiesTravelWholeAndAValueTooLongForTheReadBufferAborts) {
    hal().setAnswer("propertySet", result(12));
    EXPECT_EQ(torqPropertySet("a.b", "on"), 12);
    EXPECT_EQ(hal().last("propertySet").name, "a.b");
    EXPECT_EQ(hal().last("propertySet").value, "on");
    log_.clear();

    SentAnswer a;
    a.text = std::string(255, 'v');
    hal().setAnswer("propertyGet", a);
    char* value = torqPropertyGet("vendor.torq.mode");
    EXPECT_EQ(hal().last("propertyGet").name, "vendor.torq.mode");
    EXPECT_EQ(std::string(value), a.text);
    delete[] value;
    EXPECT_THAT(lines(),
                ElementsAre("I torq client torqPropertyGet", "I torqPropertyGet " + *a.text + " "));

    // A value that does not fit the caller's buffer is not handed back cut short.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    a.text->push_back('v');
    hal().setAnswer("propertyGet", a);
    EXPECT_DEATH(delete[] torqPropertyGet("p"), "");
}

// One row per entry point of both front ends.
struct Call {
    Strings entry;       // the lines each call starts with
    std::string method;  // the ITorq method it makes
    std::string step;    // the name its failure line reports
    std::function<int32_t()> run;
    std::optional<TorqRequestParcel> parcel = std::nullopt;  // what a torqHalclient request sends
    Strings callbackLog = {};  // the lines a callback form logs before sending
    bool acceptance = false;   // 0 for a handle, -1 for none, instead of the handle
    int32_t refusal = -1;      // the result when the HAL call fails (-1 without a HAL)
    // The flat API's rows only: every line after the entry when the call fails.
    Strings refusalLines = {};
};

// Most torqHalclient calls start with "torq client <name>" and report failures under <name>.
Call named(const std::string& name, const char* method, std::function<int32_t()> run) {
    return {{"I torq client " + name}, method, name, std::move(run)};
}
Call other(const std::string& entry, const char* method, const std::string& step,
           std::function<int32_t()> run) {
    return {{entry}, method, step, std::move(run)};
}
Call sends(Call call, TorqRequestParcel parcel, Strings callbackLog = {}, bool acceptance = false) {
    call.parcel = std::move(parcel);
    call.callbackLog = std::move(callbackLog);
    call.acceptance = acceptance;
    return call;
}
Strings addsClient(const std::string& name, const std::string& added) {
    return {"I torq client " + name, "I new std::shared_ptr TorqCallbackClient callback",
            "I torq client " + added + " add to request_callbacks"};
}
// The flat API's queries log their HAL step before the failure line and their own error after it.
Call zel(const std::string& step, const char* method, std::function<int32_t()> run, Strings entry,
         Strings before = {}, Strings after = {}, int32_t refusal = -1) {
    Call call{std::move(entry), method, step, std::move(run)};
    call.refusal = refusal;
    call.refusalLines =
            before + Strings{"E " + step + "() failed : torq HAL service not available"} + after;
    return call;
}

// The arguments of the calls below (at namespace scope: the rows' lambdas capture nothing).
Resources r{{0x5, "1"}}, levels{{1, "3"}, {2, "0"}}, out;
Resources mixed{{0x010108a0, "1200"}, {0x2, "x,y"}, {0, {}}, {0, ""}};
const std::vector<TorqRequestData> one{idRecord(0x5, "1")};
Strings paths{"/p1", "/p2"}, values{"1", ""}, pathOut;
const std::vector<TorqRequestData> byPath{pathRecord("/p1", "1"), pathRecord("/p2", "")};
std::map<std::string, std::string> pathMap{{"/p", "1"}}, mapOut;
std::vector<ZelClient::Resource> zelQuery{{0x10, "old"}};
const std::vector<ZelClient::Resource> zelResources{
        {0x010108a0, "1500"}, {0x02, std::nullopt}, {0, ""}};
const TorqRequestData notified = [] {
    TorqRequestData d = idRecord(3);
    d.subId = 7;
    return d;
}();
std::string zelText;
const auto cb = std::make_shared<Recorder>();
const int64_t kLong = INT64_C(1) << 40;

Call resCtl(std::function<int32_t()> run, TorqRequestParcel p) {
    return sends(named("torqResCtlRequest", "request", std::move(run)), std::move(p));
}
Call saCtl(std::function<int32_t()> run, TorqRequestParcel p) {
    return sends(named("torqSACtlRequest", "request", std::move(run)), std::move(p));
}
Call pathCtl(std::function<int32_t()> run, TorqRequestParcel p) {
    return sends(other("I torq client torq_resctl_request", "request",
                       "torq_resctl_request_by_path", std::move(run)),
                 std::move(p));
}

// Every entry point. For requests: omitted arguments are -1, level >= 1 sets the flag, every
// resource goes out with its value, empty when the caller gave none; by path, a -> param,
// b -> duration, c -> option, d >= 1 -> flag, e -> tag.
std::vector<Call> everyCall() {
    const std::string multiEntry = "I ZelMutiResStateRequest enter";
    std::vector<Call> v = {
            named("torq_init", "init", [] { return torq_init(), -1; }),
            resCtl([] { return torqResCtlRequest(7, -1, mixed, 3, 1, 9); },
                   ctl(1, 7, -1, 3, true, 9,
                       {idRecord(0x010108a0, "1200"), idRecord(0x2, "x,y"), idRecord(0, ""),
                        idRecord(0, "")})),
            resCtl([] { return torqResCtlRequest(10, r, 11); }, ctl(1, -1, 10, -1, false, 11, one)),
            resCtl([] { return torqResCtlRequest(10, r, 5, 2, 11); },
                   ctl(1, -1, 10, 5, true, 11, one)),
            resCtl([] { return torqResCtlRequest(3, INT32_MIN, r, 11); },
                   ctl(1, 3, INT32_MIN, -1, false, 11, one)),
            // SA control: one id, no value.
            saCtl([] { return torqSACtlRequest(1, 2, 0x33, 4, 0, 6); },
                  ctl(2, 1, 2, 4, false, 6, {idRecord(0x33)})),
            saCtl([] { return torqSACtlRequest(-5, 0x34, 8); },
                  ctl(2, -1, -5, -1, false, 8, {idRecord(0x34)})),
            named("torqResCtlRelease", "release", [] { return torqResCtlRelease(9); }),
            named("torqSACtlRelease", "release", [] { return torqSACtlRelease(9); }),
            named("torqResListeningUnRegister", "listeningUnregister",
                  [] { return torqResListeningUnRegister(-77); }),
            named("torqResStateRequest", "stateRequest",
                  [] { return torqResStateRequest(r, 0, out); }),
            sends(named("torqThermalNotify", "request", [] { return torqThermalNotify(levels, 8); }),
                  parcel(7, {idRecord(1, "3"), idRecord(2, "0")}, 8), {}, true),
            named("torqThermalListeningUnregister", "thermalListeningUnregister",
                  [] { return torqThermalListeningUnregister(9); }),
            pathCtl([] { return torq_resctl_request_by_path(4, kLong, paths, values, 6, 1, 7); },
                    ctl(1, 4, kLong, 6, true, 7, byPath, true)),
            named("torq_res_state_request", "stateRequest",
                  [] { return torq_res_state_request_by_path(paths, values, 0, pathOut); }),
            named("torq_res_state_request_map", "stateRequest",
                  [] { return torq_res_state_request_map_by_path(pathMap, 0, mapOut); }),
            named("torq_res_listening_register", "listeningRegister",
                  [] { return torq_res_listening_register_by_path(paths, 0, cb); }),
            named("torq_res_listening_register_map", "listeningRegister",
                  [] { return torq_res_listening_register_map_by_path(pathMap, 0, cb); }),
            named("torqPropertyGet", "propertyGet",
                  [] { return delete[] torqPropertyGet("p"), -1; }),
            named("torqPropertySet", "propertySet", [] { return torqPropertySet("p", "v"); }),
            // The flat API; the entry points that return nothing report another step's name.
            zel("torq_init", "init", zelInit, {"E zelInit enter"}, {}, {}, -2),
            // An event gets its command entry first; empty texts show as "none".
            sends(zel("ZelEventAcquire", "request",
                      [] { return ZelEventAcquire(11, "com.cam", "camera", 3000, zelResources); },
                      {"I ZelEventAcquire, cmdid:11, pkg:com.cam, identity:camera"}, {},
                      {"E torqResCtlRequest error:-1"}),
                  acquisition(8,
                              {idRecord(11), idRecord(0x010108a0, "1500"), idRecord(0x02, ""),
                               idRecord(0, "")},
                              "com.cam", "camera", 3000)),
            sends(zel("ZelEventAcquire", "request",
                      [] { return ZelPlatformResAcquire(zelResources, 0, "", "com.game", -7); },
                      {"I ZelPlatformResAcquire",
                       "I ZelEventAcquire, cmdid:-3, pkg:com.game, identity:none"},
                      {}, {"E torqResCtlRequest error:-1"}),
                  acquisition(12,
                              {idRecord(0x010108a0, "1500"), idRecord(0x02, ""), idRecord(0, "")},
                              "com.game", "", -7)),
            zel("torqResCtlRelease", "release", [] { return ZelRelease(3), -1; },
                {"I ZelRelease, handle:3"}),
            // HALs in the field read one identical notify entry per value (at least one) and
            // expect no extras.
            sends(zel("ZelNotify", "request",
                      [] {
                          return ZelNotify(3, 7, {10, 20, 30});
                      },
                      {"I ZelNotify enter"}),
                  parcel(10, {notified, notified, notified})),
            sends(zel("ZelNotify", "request", [] { return ZelNotify(3, 7, {}); },
                      {"I ZelNotify enter"}),
                  parcel(10, {notified})),
            zel("setRelatedSysInfo", "setRelatedSysInfo", [] { return setRelatedSysInfo(1, 2); },
                {}),
            zel("zelRuleCtl", "ruleCtl", [] { return zelRuleCtl(200, 3, {}); },
                {"I zelRuleCtl, ruleId:200, status:3"}),
            zel("ZelMutiResStateRequest", "stateRequest",
                [] { return ZelMutiResStateRequest(zelQuery); }, {multiEntry}),
            zel("ZelMutiResStateRequest", "stateRequest",
                [] { return ZelResStateRequest(0x10, zelText), -1; },
                {"I ZelResStateRequest enter", multiEntry}),
            zel("ZelGetHistory", "stateRequest", [] { return ZelGetHistory(zelText); },
                {"I zel client ZelGetHistory"}, {"I zel client hal ZelGetHistory"},
                {"E failed to get history or return vector empty, data vector size 0"}),
            zel("ZelGetPMStatus", "stateRequest", [] { return ZelGetPMStatus(4); },
                {"I zel client ZelGetPMStatus"}, {"I zel client hal ZelGetPMStatus"},
                {"E failed to get power mode status, mode 4, data vector size 0"}),
    };
    // The calls whose entry line or step name is not the usual one.
    v.push_back(sends(other("I torq client torqResCtlRequest with callback", "request",
                            "torq client TorqCallbackClient with callback",
                            [] { return torqResCtlRequest(1, 2, r, 3, 0, 5, cb); }),
                      ctl(1, 1, 2, 3, false, 5, one),
                      addsClient("torqResCtlRequest with callback", "torqResCtlRequest")));
    v.push_back(sends(other("I torq client torqSACtlRequest with callback", "request",
                            "torqSACtlRequest with callback",
                            [] { return torqSACtlRequest(4, 5, 0x77, 6, 1, 7, cb); }),
                      ctl(2, 4, 5, 6, true, 7, {idRecord(0x77)}),
                      addsClient("torqSACtlRequest with callback", "torqSACtlRequest")));
    v.push_back(sends(
            other("I torq client torq_resctl_request_with_callback", "request",
                  "torq client torq_resctl_request_with_callback",
                  [] {
                      return torq_resctl_request_with_callback_by_path(4, 5, paths, values, 6, -3,
                                                                       7, cb);
                  }),
            ctl(1, 4, 5, 6, false, 7, byPath, true),
            addsClient("torq_resctl_request_with_callback", "torq_resctl_request_with_callback")));
    v.push_back(other("I torqResListeningRegister", "listeningRegister",
                      "torq_res_listening_register_map",
                      [] { return torqResListeningRegister(r, 0, cb); }));
    v.push_back(other("I torqThermalListeningRegister", "thermalListeningRegister",
                      "torqThermalListeningRegister",
                      [] { return torqThermalListeningRegister({1}, cb); }));
    // Commands: a kind-5 request whose one entry is the command's code (9 is none); they answer 0
    // when the HAL gave a handle, else -1.
    const std::pair<const char*, int32_t (*)()> commands[] = {
            {"torqDumpToDoQueue", torqDumpToDoQueue},
            {"torqDumpRunMap", torqDumpRunMap},
            {"torqDumpActiveResMap", torqDumpActiveResMap},
            {"torqDumpResRequest", torqDumpResRequest},
            {"torqDumpResInfo", torqDumpResInfo},
            {"torqDumpSAInfo", torqDumpSAInfo},
            {"torqDumpPidFdList", torqDumpPidFdList},
            {"torqDumpPidfdMonitorMap", torqDumpPidfdMonitorMap},
            {"torqDumpResRecordList", torqDumpResRecordList},
            {"torqHistoryRequestRecordOn", torqHistoryRequestRecordOn},
            {"torqHistoryRequestRecordOff", torqHistoryRequestRecordOff}};
    int32_t code = 0;
    for (const auto& [name, command] : commands) {
        TorqRequestParcel p = parcel(5, {idRecord(code)});
        p.option = 1;
        v.push_back(sends(named(name, "request", command), p, {}, true));
        code += code == 8 ? 2 : 1;
    }
    return v;
}

// Without a declared HAL a call fails after its front end's connect lines, having sent nothing. A
// request then sends its parcel and returns its result (a callback form keeps its client
// registered when the HAL answers no handle: no answer will ever remove it). Last, a failing HAL
// call reports its step and drops the cached interface, which the front end's next row proves.
TEST_F(CallsTest, EveryCallSendsItsParcelAndFailsCleanly) {
    const size_t registered = requestCallbacks();
    bool useBroken = false;
    const std::vector<Call> calls = everyCall();
    for (size_t i = 0; i < calls.size(); ++i) {
        const Call& call = calls[i];
        SCOPED_TRACE(::testing::Message() << "row " << i << ", step " << call.step);
        const bool zel = !call.refusalLines.empty();
        const std::string tag = zel ? "[ZEL_CLIENT]" : "TORQFramework-lib-vendor";
        hal().undeclare();
        hal().clearCalls();
        log_.clear();
        EXPECT_EQ(call.run(), -1);
        Strings connect{"E Torq is not declared, AServiceManager_isDeclared:0"};
        if (zel) connect.push_back("E zel_get_torq_hal_and_link_to_death error:-1");
        Strings got = HalTest::lines(tag);
        // Only the property read logs its (unwritten) buffer afterwards.
        if (call.method == "propertyGet" && !got.empty()) got.pop_back();
        EXPECT_EQ(got, call.entry + connect);
        EXPECT_TRUE(hal().calls().empty());

        hal().declare();
        if (call.parcel) {
            hal().setAnswer("request", result(42));
            log_.clear();
            EXPECT_EQ(call.run(), call.acceptance ? 0 : 42);
            EXPECT_EQ(hal().last("request").parcel, *call.parcel);
            EXPECT_EQ(hal().last("request").hasCallback, !call.callbackLog.empty());
            if (!call.callbackLog.empty()) {
                EXPECT_EQ(lines(), call.callbackLog);
            }
            hal().setAnswer("request", result(0));
            EXPECT_EQ(call.run(), call.acceptance ? -1 : 0);
            hal().clearCalls();
        }
        hal().answerOnce(call.method, (useBroken = !useBroken) ? broken() : refused());
        log_.clear();
        EXPECT_EQ(call.run(), call.refusal);
        EXPECT_EQ(hal().count(call.method), 1u);
        if (zel) {
            EXPECT_EQ(HalTest::lines(tag), call.entry + call.refusalLines);
        } else {
            EXPECT_THAT(lines(),
                        Contains("E " + call.step + "() failed: torq HAL service not available"));
        }
    }
    // Three runs of each callback form reached the HAL; the failed queries left their outputs.
    EXPECT_EQ(requestCallbacks(), registered + 9);
    EXPECT_TRUE(out.empty() && pathOut.empty() && mapOut.empty() && zelText.empty());
    EXPECT_EQ(zelQuery[0].value, "old");
}

// Connecting logs nothing; releases send their handle and return the HAL's answer. Each
// connection, also one made after a failed call, is watched for the HAL's death.
TEST_F(CallsTest, ConnectsOnceAndNoticesTheDeathOfAReconnectedHal) {
    hal().setAnswer("release", result(1));
    torq_init();
    EXPECT_EQ(torqResCtlRelease(4), 1);
    EXPECT_EQ(hal().last("release").handle, 4);
    EXPECT_THAT(lines(), ElementsAre("I torq client torq_init", "I torq client torqResCtlRelease"));
    hal().answerOnce("release", refused());
    EXPECT_EQ(torqResCtlRelease(1), -1);
    EXPECT_EQ(torqSACtlRelease(2), 1);
    EXPECT_EQ(hal().last("release").handle, 2);
    log_.clear();
    hal().kill();
    hal().restart();
    drain();
    EXPECT_THAT(lines(), ElementsAre("E Torq HAL Service died"));
    hal().clearCalls();
    log_.clear();
    EXPECT_EQ(torqResCtlRelease(3), 1);
    EXPECT_EQ(hal().count("release"), 1u);
    EXPECT_THAT(lines(), ElementsAre("I torq client torqResCtlRelease"));
}

constexpr char kRegistered[] = "I A callback has been registered to Torq HAL ";
constexpr char kDuplicate[] = "E Same callback interface registered already";
constexpr char kSubsys[] = "I subsys's callback has been registered to Torq HAL";
constexpr char kEntry[] = "I torq client torqResListeningUnRegister";

std::string unregistered(int32_t handle) {
    return "I a callback has been unregistered to Torq HAL handle " + std::to_string(handle);
}

// Registrations outlive a test in the library; each test removes its own, and uses handles of
// its own so that nothing left behind by a failed test can match.
using ListeningTest = HalclientTest;

// One registry holds the id, path and thermal registrations. A list registered already (its ids
// in their order, or its paths) is refused without asking the HAL. Only
// torqResListeningUnRegister removes a registration, whatever the HAL answers.
TEST_F(ListeningTest, OneRegistryRefusesAListTakenAlready) {
    Resources ids{{0x10, std::nullopt}, {0x20, "2"}}, sameIds{{0x10, "9"}, {0x20, {}}};
    hal().setAnswer("listeningRegister", result(501));
    EXPECT_EQ(torqResListeningRegister(ids, 0, cb_), 501);
    EXPECT_EQ(hal().last("listeningRegister").parcel,
              parcel(0, {idRecord(0x10, ""), idRecord(0x20, "2")}));
    EXPECT_EQ(torqResListeningRegister(sameIds, 0, cb_), -1);
    // The map form registers its keys in key order: the path list is then taken.
    hal().setAnswer("listeningRegister", result(502));
    EXPECT_EQ(torq_res_listening_register_map_by_path({{"/b", "2"}, {"/a", "1"}}, 5, cb_), 502);
    EXPECT_EQ(hal().last("listeningRegister").parcel,
              parcel(0, {pathRecord("/a", "1"), pathRecord("/b", "2")}, 5, true));
    EXPECT_TRUE(hal().last("listeningRegister").hasCallback);
    EXPECT_EQ(torq_res_listening_register_by_path({"/a", "/b"}, 4, cb_), -1);
    EXPECT_EQ(hal().count("listeningRegister"), 2u);

    hal().setAnswer("thermalListeningRegister", result(504));
    EXPECT_EQ(torqThermalListeningRegister({3, 1}, cb_), 504);
    EXPECT_EQ(hal().last("thermalListeningRegister").ids, (std::vector<int32_t>{3, 1}));
    EXPECT_TRUE(hal().last("thermalListeningRegister").hasCallback);
    hal().setAnswer("thermalListeningUnregister", result(4));
    EXPECT_EQ(torqThermalListeningUnregister(504), 4);
    EXPECT_EQ(hal().last("thermalListeningUnregister").handle, 504);
    EXPECT_THAT(lines(),
                ElementsAre("I torqResListeningRegister", kRegistered, "I torqResListeningRegister",
                            kDuplicate, "I torq client torq_res_listening_register_map",
                            kRegistered, "I torq client torq_res_listening_register", kDuplicate,
                            "I torqThermalListeningRegister", kSubsys,
                            "I torq client torqThermalListeningUnregister",
                            "I subsys's callback has been unRegistered to Torq HAL"));

    log_.clear();
    hal().setAnswer("listeningUnregister", result(1));
    hal().answerOnce("listeningUnregister", refused());
    EXPECT_EQ(torqResListeningUnRegister(501), -1);
    EXPECT_EQ(hal().last("listeningUnregister").handle, 501);
    EXPECT_EQ(torqResListeningUnRegister(501), 1);  // the HAL is asked even so
    EXPECT_EQ(torqResListeningUnRegister(504), 1);
    EXPECT_THAT(lines(), ElementsAre(kEntry, unregistered(501),
                                     "E torqResListeningUnRegister() failed: torq HAL service not "
                                     "available",
                                     kEntry, "E The callback was not registered before", kEntry,
                                     unregistered(504)));
    hal().setAnswer("listeningRegister", result(505));
    EXPECT_EQ(torqResListeningRegister(ids, 0, cb_), 505);
}

constexpr char kDestroyed[] = "I ndk backend ~TorqCallbackClient";
constexpr char kCalled0[] =
        "I TorqCallback::onCallback call IClientCallback onCallback is_register 0";
constexpr char kFound[] = "I callback is found in request_callbacks";

std::string retired(size_t before, size_t after) {
    return "I TorqCallback::onCallback request callback called , remove from request_callbacks , "
           "request_callbacks size before " +
           std::to_string(before) + " after " + std::to_string(after);
}

// A request client (resource, SA, path; with or without a caller callback) leaves the registry
// with its first answer, also an empty one; a later answer still reaches its caller. A listening
// client is answered any number of times, never touches the request registry and lives until it
// is unregistered.
TEST_F(ListeningTest, CallbackClientsReachTheirCallerAndLeaveTheirRegistry) {
    auto listener = std::make_shared<Recorder>();
    const size_t n = requestCallbacks();
    Resources r{{0x1, "1"}};
    ASSERT_GE(torqResCtlRequest(-1, 100, r, -1, -1, 0, cb_), 1);
    ASSERT_GE(torqSACtlRequest(1, 2, 3, 4, 5, 6, std::shared_ptr<IClientCallback>()), 1);
    ASSERT_GE(torq_resctl_request_with_callback_by_path(0, 0, {"/a"}, {"1"}, 0, 0, 0, cb_), 1);
    const int32_t handle = torqResListeningRegister(r, 0, listener);
    log_.clear();

    answer(0, {idRecord(0x010108a0, "1200"), idRecord(0x2)});
    answer(1, {});
    // Path answers arrive as values, then paths; an absent field as an empty text.
    answer(2,
           {pathRecord("/a", "1"), pathRecord("/b", std::nullopt), pathRecord(std::nullopt, "3")});
    answer(0, {idRecord(0x3, "x")});
    EXPECT_EQ(cb_->deliveries(), (Strings{PrintToString(Pairs{{0x010108a0, "1200"}, {0x2, ""}}),
                                          PrintToString(Strings{"1", "", "3"}) + " at " +
                                                  PrintToString(Strings{"/a", "/b", ""}),
                                          PrintToString(Pairs{{0x3, "x"}})}));
    const std::string onCallback = "I TorqCallbackClient::onCallback res_Id ";
    EXPECT_THAT(callbackLines(),
                ElementsAre(onCallback + "0x10108a0 res_Value 1200 is_register 0",
                            onCallback + "0x2 is_register 0", kCalled0, kFound,
                            retired(n + 3, n + 2), kFound, retired(n + 2, n + 1),
                            onCallback + "/a res_Value 1 is_register 0", kCalled0, kFound,
                            retired(n + 1, n), onCallback + "0x3 res_Value x is_register 0",
                            kCalled0, "E callback not found in request_callbacks", retired(n, n)));

    log_.clear();
    answer(3, {idRecord(0x41, "1")});
    answer(3, {idRecord(0x41, "2")});
    EXPECT_EQ(listener->deliveries(),
              (Strings{PrintToString(Pairs{{0x41, "1"}}), PrintToString(Pairs{{0x41, "2"}})}));
    EXPECT_THAT(callbackLines(), Contains(onCallback + "0x41 res_Value 2 is_register 1"));
    EXPECT_THAT(callbackLines(), Not(Contains(::testing::HasSubstr("request_callbacks"))));
    // Only the HAL holds the answered request clients; the registry keeps the listening one.
    hal().dropCallbacks();
    drain();
    EXPECT_THAT(callbackLines(), Contains(kDestroyed).Times(3));
    hal().setAnswer("listeningUnregister", result(1));
    EXPECT_EQ(torqResListeningUnRegister(handle), 1);
    drain();
    EXPECT_THAT(callbackLines(), Contains(kDestroyed).Times(4));
}

}  // namespace
}  // namespace halclient_test
