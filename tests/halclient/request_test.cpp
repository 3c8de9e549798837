// Resource and SA control, release, dump and history commands, properties and the debug marker:
// what the HAL receives and what the caller gets back.

#include <functional>
#include <string>

#include "HalclientTest.h"

namespace halclient_test {
namespace {

using namespace torqHalclient;
using ::testing::ElementsAre;

class RequestTest : public HalclientTest {
  protected:
    void SetUp() override {
        HalclientTest::SetUp();
        startHal();
    }
    TorqRequestParcel lastRequest() { return withoutCallback(hal().last("request").parcel); }
};

TorqRequestParcel control(int32_t kind, int32_t param, int64_t duration, int32_t option, bool flag,
                          int32_t tag, std::vector<TorqRequestData> data) {
    TorqRequestParcel p = parcel(kind, std::move(data));
    p.param = param;
    p.duration = duration;
    p.option = option;
    p.flag = flag;
    p.tag = tag;
    return p;
}

TEST_F(RequestTest, ResCtlRequestSendsEveryResourceAndReturnsTheHandle) {
    hal().setAnswer("request", result(42));
    Resources r = res({{0x010108a0, "1200"}, {0x2, "x,y"}, {0, std::nullopt}, {0, ""}});
    EXPECT_EQ(torqResCtlRequest(7, -1, r, 3, 1, 9), 42);
    EXPECT_EQ(lastRequest(), control(1, 7, -1, 3, true, 9,
                                     {idRecord(0x010108a0, "1200"), idRecord(0x2, "x,y"),
                                      idRecord(0, ""), idRecord(0, "")}));
    EXPECT_FALSE(hal().last("request").hasCallback);
    EXPECT_THAT(lines(), ElementsAre("I torq client torqResCtlRequest"));
    // Nothing to apply is still a request.
    Resources none;
    EXPECT_EQ(torqResCtlRequest(1, 2, none, 0), 42);
    EXPECT_EQ(lastRequest(), control(1, 1, 2, -1, false, 0, {}));
}

TEST_F(RequestTest, ShortFormsFillDefaults) {
    hal().setAnswer("request", result(1));
    Resources r = res({{0x5, "1"}});
    struct Form {
        std::function<int32_t()> run;
        int32_t param, option;
        int64_t duration;
        bool flag;
        int32_t tag;
    };
    const int32_t kMin = INT32_MIN;
    std::vector<Form> forms = {
            {[&] { return torqResCtlRequest(10, r, 11); }, -1, -1, 10, false, 11},
            {[&] { return torqResCtlRequest(10, r, 1, 11); }, -1, -1, 10, true, 11},
            {[&] { return torqResCtlRequest(10, r, 0, 11); }, -1, -1, 10, false, 11},
            {[&] { return torqResCtlRequest(10, r, 5, 2, 11); }, -1, 5, 10, true, 11},
            {[&] { return torqResCtlRequest(3, kMin, r, 11); }, 3, -1, kMin, false, 11},
            {[&] { return torqResCtlRequest(3, 10, r, 7, 11); }, 3, -1, 10, true, 11},
            {[&] { return torqResCtlRequest(3, 10, r, 6, -1, 11); }, 3, 6, 10, false, 11},
    };
    for (size_t i = 0; i < forms.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(forms[i].run(), 1);
        EXPECT_EQ(lastRequest(), control(1, forms[i].param, forms[i].duration, forms[i].option,
                                         forms[i].flag, forms[i].tag, {idRecord(0x5, "1")}));
    }
}

TEST_F(RequestTest, IdAndValueMustComeInPairs) {
    auto cb = std::make_shared<IdCallback>();
    const std::vector<Resources> bad = {
            res({{0x010108a0, std::nullopt}}),
            res({{0x010108a0, ""}}),
            res({{0x1, "1"}, {0, "1"}}),
    };
    size_t registered = requestCallbacks();
    for (Resources r : bad) {
        log_.clear();
        EXPECT_EQ(torqResCtlRequest(1, 2, r, 3), -1);
        EXPECT_EQ(torqResCtlRequest(1, 2, r, 3, 4, 5, cb), -1);
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
    EXPECT_EQ(hal().count("request"), 0u);
    EXPECT_EQ(requestCallbacks(), registered);
}

TEST_F(RequestTest, RequestWithCallbackRegistersClientBeforeSending) {
    auto cb = std::make_shared<IdCallback>();
    size_t registered = requestCallbacks();
    hal().setAnswer("request", result(8));
    Resources r = res({{0x9, "3"}});
    EXPECT_EQ(torqResCtlRequest(1, 2, r, 3, 0, 5, cb), 8);
    EXPECT_TRUE(hal().last("request").hasCallback);
    EXPECT_EQ(lastRequest(), control(1, 1, 2, 3, false, 5, {idRecord(0x9, "3")}));
    EXPECT_EQ(torqSACtlRequest(4, 5, 0x77, 6, 1, 7, cb), 8);
    EXPECT_TRUE(hal().last("request").hasCallback);
    EXPECT_EQ(lastRequest(), control(2, 4, 5, 6, true, 7, {idRecord(0x77)}));
    EXPECT_THAT(lines(), ElementsAre("I torq client torqResCtlRequest with callback",
                                     "I new std::shared_ptr TorqCallbackClient callback",
                                     "I torq client torqResCtlRequest add to request_callbacks",
                                     "I torq client torqSACtlRequest with callback",
                                     "I new std::shared_ptr TorqCallbackClient callback",
                                     "I torq client torqSACtlRequest add to request_callbacks"));
    EXPECT_EQ(requestCallbacks(), registered + 2);

    // A failed transaction leaves its client registered: no answer will ever remove it. The same
    // holds for every request form that takes a callback.
    hal().answerOnce("request", refused());
    EXPECT_EQ(torqResCtlRequest(1, 2, r, 3, 0, 5, cb), -1);
    hal().answerOnce("request", refused());
    EXPECT_EQ(torqSACtlRequest(4, 5, 0x77, 6, 1, 7, cb), -1);
    hal().answerOnce("request", refused());
    EXPECT_EQ(torq_resctl_request_with_callback_by_path(1, 2, {"/p"}, {"1"}, 3, 0, 5,
                                                        std::make_shared<PathCallback>()),
              -1);
    EXPECT_EQ(requestCallbacks(), registered + 5);
}

TEST_F(RequestTest, SaControlSendsOneIdWithoutValue) {
    hal().setAnswer("request", result(5));
    EXPECT_EQ(torqSACtlRequest(1, 2, 0x33, 4, 0, 6), 5);
    EXPECT_EQ(lastRequest(), control(2, 1, 2, 4, false, 6, {idRecord(0x33)}));
    EXPECT_EQ(torqSACtlRequest(-5, 0x34, 8), 5);
    EXPECT_EQ(lastRequest(), control(2, -1, -5, -1, false, 8, {idRecord(0x34)}));
    EXPECT_THAT(lines(),
                ElementsAre("I torq client torqSACtlRequest", "I torq client torqSACtlRequest"));
}

TEST_F(RequestTest, ReleasesPassHandleAndReturnHalResult) {
    hal().setAnswer("release", result(0));
    EXPECT_EQ(torqResCtlRelease(17), 0);
    EXPECT_EQ(hal().last("release").handle, 17);
    hal().setAnswer("release", result(-3));
    EXPECT_EQ(torqSACtlRelease(18), -3);
    EXPECT_EQ(hal().last("release").handle, 18);
    EXPECT_THAT(lines(),
                ElementsAre("I torq client torqResCtlRelease", "I torq client torqSACtlRelease"));
}

TEST_F(RequestTest, CommandsSendTheirCodeAndReportAcceptance) {
    const std::vector<std::pair<std::function<int32_t()>, int32_t>> commands = {
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
    for (const auto& [command, code] : commands) {
        SCOPED_TRACE(code);
        TorqRequestParcel expected = parcel(5, {idRecord(code)});
        expected.option = 1;
        hal().setAnswer("request", result(1));
        EXPECT_EQ(command(), 0);
        EXPECT_EQ(hal().last("request").parcel, expected);
        hal().setAnswer("request", result(0));
        EXPECT_EQ(command(), -1);
        hal().setAnswer("request", result(-2));
        EXPECT_EQ(command(), -1);
    }
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
                ElementsAre("I torq client torqPropertyGet", "I torqPropertyGet " + a.text + " "));

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

TEST_F(RequestTest, PropertySetPassesNameAndValue) {
    hal().setAnswer("propertySet", result(12));
    EXPECT_EQ(torqPropertySet("a.b", "on"), 12);
    RecordedCall call = hal().last("propertySet");
    EXPECT_EQ(call.name, "a.b");
    EXPECT_EQ(call.value, "on");
    EXPECT_THAT(lines(), ElementsAre("I torq client torqPropertySet"));
}

TEST(DebugMarkerTest, ReplacesExtrasWithTheSingleMarker) {
    TorqRequestParcel p;
    torq_add_zdbdebug_for_request_parcel(p);
    torq_add_zdbdebug_for_request_parcel(p);
    EXPECT_EQ(p, marked(TorqRequestParcel()));
    p.extras->push_back(std::nullopt);
    p.extras->push_back(std::string("old"));
    torq_add_zdbdebug_for_request_parcel(p);
    EXPECT_EQ(p, marked(TorqRequestParcel()));
}

}  // namespace
}  // namespace halclient_test
