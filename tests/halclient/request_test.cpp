// Resource, SA and path control, release, state queries, commands, thermal notify, properties
// and the debug marker: what the HAL receives and what the caller gets back.

#include <functional>
#include <map>
#include <string>

#include "HalclientTest.h"

namespace halclient_test {
namespace {

using namespace torqHalclient;
using ::testing::ElementsAre;

using RequestTest = HalclientTest;

TorqRequestParcel ctl(int32_t kind, int32_t param, int64_t duration, int32_t option, bool flag,
                      int32_t tag, std::vector<TorqRequestData> data, bool marked = false) {
    TorqRequestParcel p = parcel(kind, std::move(data), tag, marked);
    p.param = param;
    p.duration = duration;
    p.option = option;
    p.flag = flag;
    return p;
}

// Every overload lands in one parcel: omitted arguments are -1, level >= 1 sets the flag. A
// callback form registers its client before sending, and keeps it registered when the call
// fails: no answer will ever remove it.
TEST_F(RequestTest, EveryControlFormFillsItsParcelAndReturnsTheHandle) {
    Resources r = res({{0x5, "1"}});
    Resources mixed = res({{0x010108a0, "1200"}, {0x2, "x,y"}, {0, std::nullopt}, {0, ""}});
    const std::vector<TorqRequestData> one{idRecord(0x5, "1")};
    const Strings paths{"/p1", "/p2"}, values{"1", ""};
    const std::vector<TorqRequestData> byPath{pathRecord("/p1", "1"), pathRecord("/p2", "")};
    const int32_t kMin = INT32_MIN;
    const int64_t kLong = INT64_C(1) << 40;
    const char kNew[] = "I new std::shared_ptr TorqCallbackClient callback";
    struct Form {
        Form(std::function<int32_t()> r, TorqRequestParcel p, Strings log = {})
            : run(std::move(r)), parcel(std::move(p)), callbackLog(std::move(log)) {}
        std::function<int32_t()> run;
        TorqRequestParcel parcel;
        Strings callbackLog;  // empty: no callback
    };
    const std::vector<Form> forms = {
            // Every resource goes out, the value empty when the caller gave none.
            {[&] { return torqResCtlRequest(7, -1, mixed, 3, 1, 9); },
             ctl(1, 7, -1, 3, true, 9,
                 {idRecord(0x010108a0, "1200"), idRecord(0x2, "x,y"), idRecord(0, ""),
                  idRecord(0, "")})},
            {[&] { return torqResCtlRequest(10, r, 11); }, ctl(1, -1, 10, -1, false, 11, one)},
            {[&] { return torqResCtlRequest(10, r, 1, 11); }, ctl(1, -1, 10, -1, true, 11, one)},
            {[&] { return torqResCtlRequest(10, r, 0, 11); }, ctl(1, -1, 10, -1, false, 11, one)},
            {[&] { return torqResCtlRequest(10, r, 5, 2, 11); }, ctl(1, -1, 10, 5, true, 11, one)},
            {[&] { return torqResCtlRequest(3, kMin, r, 11); }, ctl(1, 3, kMin, -1, false, 11, one)},
            {[&] { return torqResCtlRequest(3, 10, r, 7, 11); }, ctl(1, 3, 10, -1, true, 11, one)},
            {[&] { return torqResCtlRequest(3, 10, r, 6, -1, 11); },
             ctl(1, 3, 10, 6, false, 11, one)},
            {[&] { return torqResCtlRequest(1, 2, r, 3, 0, 5, cb_); },
             ctl(1, 1, 2, 3, false, 5, one),
             {"I torq client torqResCtlRequest with callback", kNew,
              "I torq client torqResCtlRequest add to request_callbacks"}},
            // SA control: one id, no value.
            {[] { return torqSACtlRequest(1, 2, 0x33, 4, 0, 6); },
             ctl(2, 1, 2, 4, false, 6, {idRecord(0x33)})},
            {[] { return torqSACtlRequest(-5, 0x34, 8); },
             ctl(2, -1, -5, -1, false, 8, {idRecord(0x34)})},
            {[&] { return torqSACtlRequest(4, 5, 0x77, 6, 1, 7, cb_); },
             ctl(2, 4, 5, 6, true, 7, {idRecord(0x77)}),
             {"I torq client torqSACtlRequest with callback", kNew,
              "I torq client torqSACtlRequest add to request_callbacks"}},
            // By path: a -> param, b -> duration, c -> option, d >= 1 -> flag, e -> tag.
            {[&] { return torq_resctl_request_by_path(4, kLong, paths, values, 6, 1, 7); },
             ctl(1, 4, kLong, 6, true, 7, byPath, true)},
            {[&] { return torq_resctl_request_by_path(4, 5, paths, values, 6, 0, 7); },
             ctl(1, 4, 5, 6, false, 7, byPath, true)},
            {[&] {
                 return torq_resctl_request_with_callback_by_path(4, 5, paths, values, 6, -3, 7,
                                                                  cb_);
             },
             ctl(1, 4, 5, 6, false, 7, byPath, true),
             {"I torq client torq_resctl_request_with_callback", kNew,
              "I torq client torq_resctl_request_with_callback add to request_callbacks"}},
    };
    size_t registered = requestCallbacks();
    for (size_t i = 0; i < forms.size(); ++i) {
        SCOPED_TRACE(i);
        hal().setAnswer("request", result(42));
        log_.clear();
        EXPECT_EQ(forms[i].run(), 42);
        EXPECT_EQ(hal().last("request").parcel, forms[i].parcel);
        bool withCallback = !forms[i].callbackLog.empty();
        EXPECT_EQ(hal().last("request").hasCallback, withCallback);
        if (!withCallback) continue;
        EXPECT_EQ(lines(), forms[i].callbackLog);
        hal().setAnswer("request", refused());
        EXPECT_EQ(forms[i].run(), -1);
    }
    EXPECT_EQ(requestCallbacks(), registered + 6);
}

TEST_F(RequestTest, MismatchedInputIsRefusedBeforeAnythingIsSent) {
    size_t registered = requestCallbacks();
    for (Resources r : {res({{0x010108a0, std::nullopt}}), res({{0x010108a0, ""}}),
                        res({{0x1, "1"}, {0, "1"}})}) {
        log_.clear();
        EXPECT_EQ(torqResCtlRequest(1, 2, r, 3), -1);
        EXPECT_EQ(torqResCtlRequest(1, 2, r, 3, 4, 5, cb_), -1);
        EXPECT_EQ(torqThermalNotify(r, 0), -1);
        EXPECT_THAT(
                lines(),
                ElementsAre("I torq client torqResCtlRequest",
                            "E torqResCtlRequest ERROR: size unmatched for id and value ",
                            "I torq client torqResCtlRequest with callback",
                            "E torq client torq_resctl_request ERROR: size unmatched for id and "
                            "value ",
                            "I torq client torqThermalNotify",
                            "E torqThermalNotify ERROR: size unmatched for id and level "));
    }
    log_.clear();
    EXPECT_EQ(torq_resctl_request_by_path(4, 5, {"/p1", "/p2"}, {"1"}, 6, 1, 7), -1);
    EXPECT_EQ(torq_resctl_request_with_callback_by_path(4, 5, {"/p1"}, {}, 6, 1, 7, cb_), -1);
    EXPECT_THAT(
            lines(),
            ElementsAre(
                    "I torq client torq_resctl_request",
                    "E torq_resctl_request ERROR: size unmatched for paths and value ",
                    "I torq client torq_resctl_request_with_callback",
                    "E torq client torq_resctl_request ERROR: size unmatched for id and value "));
    EXPECT_EQ(hal().count("request"), 0u);
    EXPECT_EQ(requestCallbacks(), registered);
}

TEST_F(RequestTest, ReleasesAndPropertySetPassTheirArgumentsAndReturnTheHalsResult) {
    hal().setAnswer("release", result(-3));
    EXPECT_EQ(torqResCtlRelease(17), -3);
    EXPECT_EQ(hal().last("release").handle, 17);
    EXPECT_EQ(torqSACtlRelease(18), -3);
    EXPECT_EQ(hal().last("release").handle, 18);
    hal().setAnswer("propertySet", result(12));
    EXPECT_EQ(torqPropertySet("a.b", "on"), 12);
    EXPECT_EQ(hal().last("propertySet").name, "a.b");
    EXPECT_EQ(hal().last("propertySet").value, "on");
}

// Commands and thermal levels answer 0 when the HAL gave a handle, else -1.
TEST_F(RequestTest, CommandsAndThermalNotifySendTheirParcelAndReportAcceptance) {
    const std::vector<std::pair<int32_t (*)(), int32_t>> commands = {
            {torqDumpToDoQueue, 0},
            {torqDumpRunMap, 1},
            {torqDumpActiveResMap, 2},
            {torqDumpResRequest, 3},
            {torqDumpResInfo, 4},
            {torqDumpSAInfo, 5},
            {torqDumpPidFdList, 6},
            {torqDumpPidfdMonitorMap, 7},
            {torqDumpResRecordList, 8},
            {torqHistoryRequestRecordOn, 10},
            {torqHistoryRequestRecordOff, 11},
    };
    Resources levels = res({{1, "3"}, {2, "0"}});
    std::vector<std::pair<std::function<int32_t()>, TorqRequestParcel>> calls = {
            {[&] { return torqThermalNotify(levels, 8); },
             parcel(7, {idRecord(1, "3"), idRecord(2, "0")}, 8)}};
    for (const auto& [command, code] : commands) {
        calls.emplace_back(command, parcel(5, {idRecord(code)}));
        calls.back().second.option = 1;
    }
    for (size_t i = 0; i < calls.size(); ++i) {
        SCOPED_TRACE(i);
        hal().setAnswer("request", result(6));
        EXPECT_EQ(calls[i].first(), 0);
        EXPECT_EQ(hal().last("request").parcel, calls[i].second);
        hal().setAnswer("request", result(0));
        EXPECT_EQ(calls[i].first(), -1);
    }
}

TEST_F(RequestTest, StateRequestAppendsHalRecordsToOutput) {
    hal().setAnswer("stateRequest",
                    records({idRecord(0x99, "1,2"), idRecord(0x10), pathRecord("/x", "p")}));
    Resources query = res({{0x10, std::nullopt}, {0x20, "5"}});
    Resources out = res({{0x1, "old"}});
    EXPECT_EQ(torqResStateRequest(query, 3, out), 4);
    EXPECT_EQ(hal().last("stateRequest").parcel,
              parcel(0, {idRecord(0x10, ""), idRecord(0x20, "5")}, 3));
    EXPECT_EQ(pairs(out), (Pairs{{0x1, "old"}, {0x99, "1,2"}, {0x10, ""}, {0, "p"}}));
    EXPECT_THAT(lines(), ElementsAre("I torq client torqResStateRequest",
                                     "I torq client hal torqResStateRequest",
                                     "I torq client torqResStateRequest size 4"));

    hal().setAnswer("stateRequest", records({}));
    EXPECT_EQ(torqResStateRequest(query, 3, out), -1);
    hal().setAnswer("stateRequest", refused());
    EXPECT_EQ(torqResStateRequest(query, 3, out), -1);
    EXPECT_EQ(out.size(), 4u);
}

TEST_F(RequestTest, PathStateQueriesFillOutputs) {
    hal().setAnswer("stateRequest", records({pathRecord("/z", "9"), pathRecord(std::nullopt, "8"),
                                             pathRecord("/y", std::nullopt)}));
    const Strings paths{"/a", "/b", "/c"};
    Strings out{"kept"};
    // Values that do not match the paths are dropped: only the paths are asked.
    EXPECT_EQ(torq_res_state_request_by_path(paths, {"1", "2"}, 2, out), 4);
    EXPECT_EQ(hal().last("stateRequest").parcel,
              parcel(0,
                     {pathRecord("/a", std::nullopt), pathRecord("/b", std::nullopt),
                      pathRecord("/c", std::nullopt)},
                     2, true));
    EXPECT_EQ(out, (Strings{"kept", "9", "8", ""}));
    EXPECT_EQ(torq_res_state_request_by_path(paths, {"1", "2", "3"}, 2, out), 7);
    EXPECT_EQ(hal().last("stateRequest").parcel,
              parcel(0, {pathRecord("/a", "1"), pathRecord("/b", "2"), pathRecord("/c", "3")}, 2,
                     true));

    // The map keeps the last value per path and skips records without a path or a value.
    hal().setAnswer("stateRequest", records({pathRecord("/z", "9"), pathRecord(std::nullopt, "8"),
                                             pathRecord("/z", "10"), pathRecord("/y", "")}));
    std::map<std::string, std::string> mapOut{{"/old", "o"}};
    log_.clear();
    EXPECT_EQ(torq_res_state_request_map_by_path({{"/q", "1"}}, 3, mapOut), 3);
    EXPECT_EQ(hal().last("stateRequest").parcel, parcel(0, {pathRecord("/q", "1")}, 3, true));
    EXPECT_EQ(mapOut, (std::map<std::string, std::string>{{"/old", "o"}, {"/y", ""}, {"/z", "10"}}));
    EXPECT_THAT(lines(), ElementsAre("I torq client torq_res_state_request_map",
                                     "E res_Path: /z, res_Value:9", "E res_Path: /z, res_Value:10",
                                     "E res_Path: /y, res_Value:",
                                     "I torq client torq_res_state_request_map size 3"));

    hal().setAnswer("stateRequest", records({}));
    EXPECT_EQ(torq_res_state_request_by_path(paths, {}, 2, out), -1);
    EXPECT_EQ(torq_res_state_request_map_by_path({{"/q", "1"}}, 3, mapOut), -1);
    EXPECT_EQ(out.size(), 7u);
    EXPECT_EQ(mapOut.size(), 3u);
}

TEST_F(RequestTest, PropertyGetReturnsOwnedCopyOfTheValue) {
    Answer a;
    a.text = std::string(255, 'v');
    hal().setAnswer("propertyGet", a);
    char* value = torqPropertyGet("vendor.torq.mode");
    EXPECT_EQ(hal().last("propertyGet").name, "vendor.torq.mode");
    EXPECT_EQ(std::string(value), a.text);
    delete[] value;
    EXPECT_THAT(lines(),
                ElementsAre("I torq client torqPropertyGet", "I torqPropertyGet " + *a.text + " "));

    log_.clear();
    hal().setAnswer("propertyGet", refused());
    value = torqPropertyGet("x");
    EXPECT_STREQ(value, "");
    delete[] value;
    EXPECT_THAT(lines(), ElementsAre("I torq client torqPropertyGet",
                                     "E torqPropertyGet() failed: torq HAL service not available",
                                     "I torqPropertyGet  "));
}

TEST_F(RequestTest, PropertyGetAbortsOnValueTooLongForItsBuffer) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    Answer a;
    a.text = std::string(256, 'v');
    hal().setAnswer("propertyGet", a);
    EXPECT_DEATH(delete[] torqPropertyGet("p"), "");
}

TEST(DebugMarkerTest, ReplacesExtrasWithTheSingleMarker) {
    TorqRequestParcel p;
    p.extras = std::vector<std::optional<std::string>>{std::nullopt, std::string("old")};
    torq_add_zdbdebug_for_request_parcel(p);
    EXPECT_EQ(p, parcel(0, {}, 0, true));
}

}  // namespace
}  // namespace halclient_test
