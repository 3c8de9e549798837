// The simulator's model, driven directly with a hand-moved clock.

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "SimTestUtil.h"
#include "torq_sim/Catalog.h"
#include "torq_sim/SimModel.h"

namespace torq_sim_test {
namespace {

using namespace torq_sim;

constexpr int32_t kLoad0 = 0x010108A0;  // default "80"
constexpr int32_t kLoad1 = 0x010108B0;  // default "85"
constexpr char kLoad0Path[] = "/proc/sys/walt/cluster0/target_load";
constexpr int32_t kUnknown = 0x7ABC0001;

class ModelTest : public ::testing::Test {
  protected:
    ModelTest() : model(clock.clock()) {}

    int32_t set(int32_t id, const std::string& value, int64_t duration = 0,
                const std::shared_ptr<RecordingCallback>& cb = nullptr) {
        TorqRequestParcel p = parcel(kKindResourceControl, {idRecord(id, value)}, duration);
        p.callback = cb;
        return model.request(p);
    }
    int32_t listen(Records what, const std::shared_ptr<RecordingCallback>& cb = nullptr) {
        return model.listeningRegister(parcel(0, std::move(what)), cb ? cb : callback);
    }
    Records state(int32_t kind, Records what) {
        return model.stateRequest(parcel(kind, std::move(what)));
    }
    // The callbacks the model asked for since the last look: (handle, records) each.
    using Sent = std::vector<std::pair<int32_t, Records>>;
    static Sent summary(const std::vector<Delivery>& deliveries) {
        Sent out;
        for (const Delivery& d : deliveries) out.emplace_back(d.handle, d.records);
        return out;
    }
    Sent sent() { return summary(model.takeDeliveries()); }

    ManualClock clock;
    SimModel model;
    std::shared_ptr<RecordingCallback> callback = ::ndk::SharedRefBase::make<RecordingCallback>();
};

TEST_F(ModelTest, HandlesCountUpAcrossKindsAndRefusedRequestsTakeNoneAndChangeNothing) {
    EXPECT_EQ(set(kLoad0, "50"), 1);
    EXPECT_EQ(model.request(parcel(kKindSaControl, {idRecord(7)})), 2);
    EXPECT_EQ(listen({idRecord(kLoad1)}), 3);
    EXPECT_EQ(model.thermalListeningRegister({}, callback), 4);

    const std::vector<TorqRequestParcel> refused = {
            // One entry without a value refuses the whole request.
            parcel(kKindResourceControl, {idRecord(kLoad1, "1"), idRecord(kLoad0, "")}),
            parcel(kKindResourceControl, {idRecord(kLoad1)}),
            // Event ids index the client's action table.
            parcel(kKindEventAcquire, {idRecord(199)}),
            parcel(kKindEventAcquire, {idRecord(-1)}),
            parcel(kKindEventAcquire, {}),
            parcel(kKindCommand, {idRecord(9)}),
            parcel(kKindCommand, {}),
            parcel(kKindThermalNotify, {idRecord(1)}),  // a thermal id without a level
            parcel(kKindState, {idRecord(kLoad1, "1")}),
            parcel(kKindHistory, {}),
            parcel(99, {}),
    };
    for (size_t i = 0; i < refused.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(model.request(refused[i]), kRejected);
    }
    EXPECT_EQ(model.value(kLoad1), "85");
    EXPECT_FALSE(model.thermalLevel(1).has_value());
    EXPECT_EQ(model.activeCount(), 2u);
    EXPECT_TRUE(sent().empty());
    EXPECT_TRUE(model.takeDumpOutput().empty());
    // An entry that names nothing carries nothing; the request stands.
    EXPECT_EQ(model.request(parcel(kKindResourceControl, {idRecord(0, "")})), 5);
}

TEST_F(ModelTest, NewestActiveRequestWinsAndReleaseFallsBack) {
    const int32_t older = set(kLoad0, "50");
    // Within one request the last entry wins.
    const int32_t newer = model.request(
            parcel(kKindResourceControl,
                   {idRecord(kLoad0, "1"), idRecord(kLoad1, "2"), idRecord(kLoad0, "60")}));
    EXPECT_EQ(model.value(kLoad0), "60");
    EXPECT_EQ(model.value(kLoad1), "2");

    EXPECT_EQ(model.release(older), kResultOk);
    EXPECT_EQ(model.value(kLoad0), "60");
    EXPECT_EQ(model.release(set(kLoad0, "70")), kResultOk);
    EXPECT_EQ(model.value(kLoad0), "60");
    EXPECT_EQ(model.release(newer), kResultOk);
    EXPECT_EQ(model.value(kLoad0), "80");  // the catalog default

    EXPECT_EQ(model.release(newer), kRejected);
    EXPECT_EQ(model.release(12345), kRejected);
}

TEST_F(ModelTest, TimedRequestsExpireOnTheClockAndListenersHearIt) {
    const int32_t l = listen({idRecord(kLoad0)});
    const int32_t forever = set(kLoad0, "55");
    const int32_t timed = set(kLoad0, "99", 1000);
    set(kLoad1, "1", -5);  // negative: until released, like 0
    sent();
    EXPECT_EQ(model.nextDeadline(), clock.now + 1000);

    clock.advance(999);
    model.tick();
    EXPECT_TRUE(model.isActive(timed));
    clock.advance(1);
    // Every call first expires what is due.
    EXPECT_EQ(state(kKindState, {idRecord(kLoad0)}), Records{idRecord(kLoad0, "55")});
    EXPECT_FALSE(model.isActive(timed));
    EXPECT_EQ(model.release(timed), kRejected);
    EXPECT_FALSE(model.nextDeadline().has_value());
    EXPECT_EQ(sent(), (Sent{{l, {idRecord(kLoad0, "55")}}}));

    clock.advance(1000000000);
    model.tick();
    EXPECT_TRUE(model.isActive(forever));
    EXPECT_EQ(model.value(kLoad1), "1");
}

TEST_F(ModelTest, StateAnswersByIdAndByPathOverOneResource) {
    ASSERT_GT(model.request(parcel(kKindResourceControl, {pathEntry(kLoad0Path, "42")})), 0);
    const int32_t other = model.request(
            parcel(kKindResourceControl, {idRecord(kUnknown, "7"), pathEntry("/sys/x/y", "on")}));
    EXPECT_EQ(model.value(kLoad0), "42");
    EXPECT_EQ(model.valueAtPath("/sys/x/y"), "on");
    // Answered as asked; the entry naming nothing gets no record.
    EXPECT_EQ(state(kKindState, {idRecord(kLoad0), pathEntry(kLoad0Path), idRecord(kUnknown),
                                 pathEntry("/no/such"), TorqRequestData{}}),
              (Records{idRecord(kLoad0, "42"), pathEntry(kLoad0Path, "42"), idRecord(kUnknown, "7"),
                       pathEntry("/no/such")}));

    // What the catalog does not know falls back to no value at all.
    model.release(other);
    EXPECT_FALSE(model.value(kUnknown).has_value());
    EXPECT_FALSE(model.valueAtPath("/sys/x/y").has_value());
    // Only state, history and power mode queries have answers.
    EXPECT_TRUE(state(kKindResourceControl, {idRecord(kLoad0)}).empty());
}

TEST_F(ModelTest, ListenersHearOnlyChangesOfWhatTheyWatch) {
    const int32_t byId = listen({idRecord(kLoad0), idRecord(kLoad1)});
    const int32_t byPath = listen({pathEntry(kLoad0Path)});
    auto other = ::ndk::SharedRefBase::make<RecordingCallback>();
    const int32_t third = listen({idRecord(kLoad0)}, other);

    set(kLoad0, "80");   // the default: nothing changes
    set(kUnknown, "1");  // watched by nobody
    EXPECT_TRUE(sent().empty());
    const int32_t h = set(kLoad0, "51");
    // One record per changed watched resource (kLoad1 did not change), addressed as registered.
    auto d = model.takeDeliveries();
    ASSERT_EQ(summary(d), (Sent{{byId, {idRecord(kLoad0, "51")}},
                                {byPath, {pathEntry(kLoad0Path, "51")}},
                                {third, {idRecord(kLoad0, "51")}}}));
    EXPECT_EQ(d[2].callback, other);

    EXPECT_EQ(model.listeningUnregister(byPath), kResultOk);
    EXPECT_EQ(model.listeningUnregister(byPath), kRejected);
    model.release(h);
    EXPECT_EQ(sent(), (Sent{{byId, {idRecord(kLoad0, "80")}}, {third, {idRecord(kLoad0, "80")}}}));

    // A callback that cannot be reached any more loses its listeners, thermal ones too.
    model.thermalListeningRegister({}, callback);
    model.forgetCallback(callback);
    EXPECT_EQ(model.listenerCount(), 1u);
    set(kLoad0, "1");
    EXPECT_EQ(sent(), (Sent{{third, {idRecord(kLoad0, "1")}}}));

    EXPECT_EQ(model.listeningRegister(parcel(0, {idRecord(kLoad0)}), nullptr), kRejected);
    EXPECT_EQ(listen({}), kRejected);
}

TEST_F(ModelTest, RequestCallbackIsAnsweredOnceWhenApplied) {
    // An SA control is answered with its id; a refused request is not answered.
    const int32_t h = set(kLoad0, "66", 0, callback);
    TorqRequestParcel sa = parcel(kKindSaControl, {idRecord(9)});
    sa.callback = callback;
    const int32_t saHandle = model.request(sa);
    set(kLoad0, "", 0, callback);
    EXPECT_EQ(sent(), (Sent{{h, {idRecord(kLoad0, "66")}}, {saHandle, {idRecord(9, "1")}}}));
    // Once: later changes to what it set call nobody.
    set(kLoad0, "67");
    model.release(h);
    EXPECT_TRUE(sent().empty());
}

TEST_F(ModelTest, EventsApplyTheirCatalogSettingsPlusTheirOwn) {
    const EventEntry* camera = findEvent(11);
    ASSERT_NE(camera, nullptr);
    const int32_t h =
            model.request(parcel(kKindEventAcquire, {idRecord(11), idRecord(kLoad1, "33")}));
    for (const auto& [opcode, value] : camera->settings) EXPECT_EQ(model.value(opcode), value);
    EXPECT_EQ(model.value(kLoad1), "33");
    model.release(h);
    for (const auto& [opcode, value] : camera->settings) {
        EXPECT_EQ(model.value(opcode), findResource(opcode)->defaultValue);
    }
    // Other ids in range apply only their own entries; kind 12 is a plain resource request.
    EXPECT_GT(model.request(parcel(kKindEventAcquire, {idRecord(3), idRecord(kLoad0, "5")})), 0);
    EXPECT_EQ(model.value(kLoad0), "5");
    EXPECT_GT(model.request(parcel(kKindPlatformAcquire, {idRecord(kLoad0, "12")})), 0);
    EXPECT_EQ(model.value(kLoad0), "12");
}

TEST_F(ModelTest, HistoryIsRecordedOnlyWhileSwitchedOnAndKeepsTheNewest) {
    set(kLoad0, "1");
    EXPECT_TRUE(state(kKindHistory, {}).empty());
    model.request(parcel(kKindCommand, {idRecord(10)}));
    set(kLoad0, "2");
    model.ruleCtl(200, 3, {});
    model.request(parcel(kKindCommand, {idRecord(11)}));
    set(kLoad0, "3");
    // One record per text: id 1, 2, ... and the text in `extra`, no value.
    std::vector<std::string> texts;
    for (const auto& r : state(kKindHistory, {})) {
        texts.push_back(std::to_string(r.id) + (r.value ? " value " : " ") + r.extra.value_or("-"));
    }
    EXPECT_EQ(texts, (std::vector<std::string>{
                             "1 t=0ms history recording on",
                             "2 t=0ms request #3 resources {0x010108a0=2}, until released",
                             "3 t=0ms rule 200 status=3 []", "4 t=0ms history recording off"}));

    model.request(parcel(kKindCommand, {idRecord(10)}));
    for (size_t i = 0; i < kHistoryCapacity + 10; ++i) model.setRelatedSysInfo(1, i);
    Records records = state(kKindHistory, {});
    ASSERT_EQ(records.size(), kHistoryCapacity);
    EXPECT_EQ(records.front().extra, "t=0ms sysinfo 1=10");
    EXPECT_EQ(records.back().extra, "t=0ms sysinfo 1=" + std::to_string(kHistoryCapacity + 9));
}

TEST_F(ModelTest, PropertiesAndThePowerModeTheyControl) {
    auto modeStatus = [&](int32_t mode) {
        Records records = state(kKindPowerMode, {idRecord(mode)});
        return records.empty() ? std::string("none") : records[0].value.value_or("absent");
    };
    EXPECT_EQ(modeStatus(0), "1");
    // Each set, then what the name reads: a refused set leaves the value as it was.
    const std::string k255(255, 'x');
    const std::vector<std::tuple<std::string, std::string, int32_t, std::string>> sets = {
            {"vendor.a", "b", kResultOk, "b"},
            {"", "b", kRejected, ""},
            {kPropVersion, "x", kRejected, kSimVersion},
            // A client's buffer holds 255 characters and a terminator.
            {"vendor.long", k255, kResultOk, k255},
            {"vendor.long", k255 + "x", kRejected, k255},
            {kPropHistory, "1", kResultOk, "1"},
            {kPropHistory, "yes", kRejected, "1"},
            {kPropPowerMode, "2", kResultOk, "2"},
            {kPropPowerMode, "9", kRejected, "2"},
            {kPropPowerMode, "1x", kRejected, "2"},
    };
    for (const auto& [name, value, expected, reads] : sets) {
        SCOPED_TRACE(name + "=" + value);
        EXPECT_EQ(model.propertySet(name, value), expected);
        EXPECT_EQ(model.propertyGet(name), reads);
    }
    EXPECT_EQ(model.propertyGet("vendor.unset"), "");
    EXPECT_TRUE(model.historyRecording());
    EXPECT_EQ(model.powerMode(), 2);

    EXPECT_EQ(modeStatus(2), "1");
    EXPECT_EQ(modeStatus(0), "0");
    EXPECT_EQ(modeStatus(9), "none");
    EXPECT_TRUE(state(kKindPowerMode, {}).empty());
}

TEST_F(ModelTest, ThermalLevelsReachTheirListenersOnChange) {
    const int32_t one = model.thermalListeningRegister({1}, callback);
    const int32_t all = model.thermalListeningRegister({}, callback);
    EXPECT_EQ(model.thermalListeningRegister({1}, nullptr), kRejected);

    EXPECT_GT(model.request(parcel(kKindThermalNotify, {idRecord(1, "3"), idRecord(2, "1")})), 0);
    EXPECT_EQ(model.takeDeliveries()[0].reason, Delivery::Reason::kThermalListener);
    model.request(parcel(kKindThermalNotify, {idRecord(1, "3"), idRecord(2, "2")}));
    EXPECT_EQ(sent(), (Sent{{all, {idRecord(2, "2")}}}));  // level 1 did not change
    model.request(parcel(kKindThermalNotify, {idRecord(1, "4"), idRecord(3, "1")}));
    EXPECT_EQ(sent(),
              (Sent{{one, {idRecord(1, "4")}}, {all, {idRecord(1, "4"), idRecord(3, "1")}}}));
    EXPECT_EQ(model.thermalLevel(2), "2");

    // Each kind of registration is removed only by its own call.
    EXPECT_EQ(model.listeningUnregister(one), kRejected);
    EXPECT_EQ(model.thermalListeningUnregister(one), kResultOk);
    EXPECT_EQ(model.thermalListeningUnregister(listen({idRecord(kLoad0)})), kRejected);
}

TEST_F(ModelTest, DumpCommandsPrintTheirTable) {
    ASSERT_EQ(set(kLoad0, "50", 2000), 1);
    const std::map<int32_t, std::string> details = {
            {1, "#1 resources {0x010108a0=50}, 2000 ms left"},
            {2, "0x010108a0 sched.cluster0.target_load = 50 by #1"}};
    for (int32_t code = 0; code <= 8; ++code) {
        SCOPED_TRACE(code);
        EXPECT_GT(model.request(parcel(kKindCommand, {idRecord(code)})), 0);
        auto out = model.takeDumpOutput();
        ASSERT_GE(out.size(), 2u);
        EXPECT_EQ(out[0], "dump " + std::to_string(code) + " " + dumpTableName(code) + ":");
        if (details.count(code)) {
            EXPECT_NE(out[1].find(details.at(code)), std::string::npos) << out[1];
        }
    }
}

}  // namespace
}  // namespace torq_sim_test
