// The simulator's model, driven directly with a hand-moved clock.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "SimTestUtil.h"
#include "torq_sim/Catalog.h"
#include "torq_sim/SimModel.h"

namespace torq_sim_test {
namespace {

using torq_sim::Delivery;
using torq_sim::SimModel;

constexpr int32_t kLoad0 = 0x010108A0;  // default "80"
constexpr int32_t kLoad1 = 0x010108B0;  // default "85"
constexpr char kLoad0Path[] = "/proc/sys/walt/cluster0/target_load";
constexpr int32_t kUnknown = 0x7ABC0001;

class ModelTest : public ::testing::Test {
  protected:
    ModelTest() : model(clock.clock()) {}

    int32_t set(int32_t id, const std::string& value, int64_t duration = 0,
                const std::shared_ptr<RecordingCallback>& cb = nullptr) {
        TorqRequestParcel p = parcel(torq_sim::kKindResourceControl, {idEntry(id, value)}, duration);
        p.callback = cb;
        return model.request(p);
    }

    int32_t listen(std::vector<TorqRequestData> what) {
        return model.listeningRegister(parcel(0, std::move(what)), callback);
    }

    ManualClock clock;
    SimModel model;
    std::shared_ptr<RecordingCallback> callback = ::ndk::SharedRefBase::make<RecordingCallback>();
};

TEST_F(ModelTest, HandlesCountUpFromOneAndRefusalsTakeNone) {
    EXPECT_EQ(set(kLoad0, "50"), 1);
    EXPECT_EQ(model.request(parcel(torq_sim::kKindSaControl, {idEntry(7)})), 2);
    EXPECT_EQ(listen({idEntry(kLoad0)}), 3);
    EXPECT_EQ(model.request(parcel(99, {})), torq_sim::kRejected);
    EXPECT_EQ(set(kLoad0, ""), torq_sim::kRejected);
    EXPECT_EQ(model.thermalListeningRegister({}, callback), 4);
}

TEST_F(ModelTest, NewestActiveRequestWinsAndReleaseFallsBack) {
    const int32_t older = set(kLoad0, "50");
    const int32_t newer = set(kLoad0, "60");
    EXPECT_EQ(model.value(kLoad0), "60");

    // Releasing the older one leaves the newer in force.
    EXPECT_EQ(model.release(older), torq_sim::kResultOk);
    EXPECT_EQ(model.value(kLoad0), "60");

    const int32_t third = set(kLoad0, "70");
    EXPECT_EQ(model.release(third), torq_sim::kResultOk);
    EXPECT_EQ(model.value(kLoad0), "60");
    EXPECT_EQ(model.release(newer), torq_sim::kResultOk);
    EXPECT_EQ(model.value(kLoad0), "80");  // the catalog default

    EXPECT_EQ(model.release(newer), torq_sim::kRejected);
    EXPECT_EQ(model.release(12345), torq_sim::kRejected);
}

TEST_F(ModelTest, LastEntryOfOneRequestWinsWithinIt) {
    model.request(parcel(torq_sim::kKindResourceControl,
                         {idEntry(kLoad0, "1"), idEntry(kLoad1, "2"), idEntry(kLoad0, "3")}));
    EXPECT_EQ(model.value(kLoad0), "3");
    EXPECT_EQ(model.value(kLoad1), "2");
}

TEST_F(ModelTest, TimedRequestsExpireOnTheInjectedClock) {
    const int32_t forever = set(kLoad0, "55");
    const int32_t timed = set(kLoad0, "99", 1000);
    set(kLoad1, "1", -5);  // negative: until released, like 0
    EXPECT_EQ(model.nextDeadline(), clock.now + 1000);

    clock.advance(999);
    model.tick();
    EXPECT_EQ(model.value(kLoad0), "99");
    EXPECT_TRUE(model.isActive(timed));

    clock.advance(1);
    model.tick();
    EXPECT_EQ(model.value(kLoad0), "55");
    EXPECT_FALSE(model.isActive(timed));
    EXPECT_EQ(model.release(timed), torq_sim::kRejected);
    EXPECT_FALSE(model.nextDeadline().has_value());

    clock.advance(1000000000);
    model.tick();
    EXPECT_TRUE(model.isActive(forever));
    EXPECT_EQ(model.value(kLoad1), "1");
}

TEST_F(ModelTest, ExpiryHappensAtTheNextCallEvenWithoutTick) {
    set(kLoad0, "99", 10);
    clock.advance(10);
    const auto records = model.stateRequest(parcel(torq_sim::kKindState, {idEntry(kLoad0)}));
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].value, "80");
}

TEST_F(ModelTest, StateAnswersByIdAndByPathOverOneResource) {
    EXPECT_GT(model.request(parcel(torq_sim::kKindResourceControl, {pathEntry(kLoad0Path, "42")})),
              0);
    EXPECT_EQ(model.value(kLoad0), "42");

    const auto records = model.stateRequest(
            parcel(torq_sim::kKindState, {idEntry(kLoad0), pathEntry(kLoad0Path), idEntry(kUnknown),
                                          pathEntry("/no/such"), TorqRequestData{}}));
    ASSERT_EQ(records.size(), 4u);  // the entry naming nothing gets no record
    EXPECT_EQ(records[0].id, kLoad0);
    EXPECT_EQ(records[0].value, "42");
    EXPECT_EQ(records[1].id, 0);
    EXPECT_EQ(records[1].path, kLoad0Path);
    EXPECT_EQ(records[1].value, "42");
    EXPECT_EQ(records[2].id, kUnknown);
    EXPECT_FALSE(records[2].value.has_value());  // not catalogued, never set
    EXPECT_EQ(records[3].path, "/no/such");
    EXPECT_FALSE(records[3].value.has_value());
}

TEST_F(ModelTest, UncataloguedResourcesFallBackToNoValue) {
    const int32_t h = set(kUnknown, "7");
    EXPECT_EQ(model.value(kUnknown), "7");
    const int32_t p =
            model.request(parcel(torq_sim::kKindResourceControl, {pathEntry("/sys/x/y", "on")}));
    EXPECT_EQ(model.valueAtPath("/sys/x/y"), "on");
    model.release(h);
    model.release(p);
    EXPECT_FALSE(model.value(kUnknown).has_value());
    EXPECT_FALSE(model.valueAtPath("/sys/x/y").has_value());
}

TEST_F(ModelTest, RequestsWithAnEmptyValueAreRefusedWhole) {
    EXPECT_EQ(model.request(parcel(torq_sim::kKindResourceControl,
                                   {idEntry(kLoad1, "1"), idEntry(kLoad0, "")})),
              torq_sim::kRejected);
    EXPECT_EQ(model.request(parcel(torq_sim::kKindResourceControl, {idEntry(kLoad0)})),
              torq_sim::kRejected);
    EXPECT_EQ(model.value(kLoad1), "85");
    EXPECT_EQ(model.activeCount(), 0u);
    // An entry that names nothing carries nothing; the request stands.
    EXPECT_GT(model.request(parcel(torq_sim::kKindResourceControl, {idEntry(0, "")})), 0);
}

TEST_F(ModelTest, ListenersHearOnlyChangesOfWhatTheyWatch) {
    const int32_t byId = listen({idEntry(kLoad0), idEntry(kLoad1)});
    const int32_t byPath = listen({pathEntry(kLoad0Path)});
    ASSERT_GT(byId, 0);
    ASSERT_GT(byPath, 0);

    set(kLoad0, "80");  // the default: nothing changes
    EXPECT_TRUE(model.takeDeliveries().empty());

    const int32_t h = set(kLoad0, "51");
    auto d = model.takeDeliveries();
    ASSERT_EQ(d.size(), 2u);
    EXPECT_EQ(d[0].handle, byId);
    EXPECT_EQ(d[0].reason, Delivery::Reason::kListener);
    ASSERT_EQ(d[0].records.size(), 1u);  // kLoad1 did not change
    EXPECT_EQ(d[0].records[0].id, kLoad0);
    EXPECT_EQ(d[0].records[0].value, "51");
    EXPECT_EQ(d[1].handle, byPath);
    ASSERT_EQ(d[1].records.size(), 1u);
    EXPECT_EQ(d[1].records[0].id, 0);
    EXPECT_EQ(d[1].records[0].path, kLoad0Path);
    EXPECT_EQ(d[1].records[0].value, "51");

    set(kUnknown, "1");  // watched by nobody
    EXPECT_TRUE(model.takeDeliveries().empty());

    EXPECT_EQ(model.listeningUnregister(byPath), torq_sim::kResultOk);
    model.release(h);
    d = model.takeDeliveries();
    ASSERT_EQ(d.size(), 1u);
    EXPECT_EQ(d[0].handle, byId);
    EXPECT_EQ(d[0].records[0].value, "80");

    EXPECT_EQ(model.listeningUnregister(byPath), torq_sim::kRejected);
    EXPECT_EQ(model.listeningRegister(parcel(0, {idEntry(kLoad0)}), nullptr), torq_sim::kRejected);
    EXPECT_EQ(listen({}), torq_sim::kRejected);
}

TEST_F(ModelTest, ExpiryIsReportedToListeners) {
    const int32_t l = listen({idEntry(kLoad1)});
    set(kLoad1, "10", 50);
    model.takeDeliveries();
    clock.advance(50);
    model.tick();
    auto d = model.takeDeliveries();
    ASSERT_EQ(d.size(), 1u);
    EXPECT_EQ(d[0].handle, l);
    EXPECT_EQ(d[0].records[0].value, "85");
}

TEST_F(ModelTest, RequestCallbackIsAnsweredOnceWhenApplied) {
    auto answer = ::ndk::SharedRefBase::make<RecordingCallback>();
    const int32_t h = set(kLoad0, "66", 0, answer);
    auto d = model.takeDeliveries();
    ASSERT_EQ(d.size(), 1u);
    EXPECT_EQ(d[0].reason, Delivery::Reason::kRequestAnswer);
    EXPECT_EQ(d[0].handle, h);
    EXPECT_EQ(d[0].callback, answer);
    ASSERT_EQ(d[0].records.size(), 1u);
    EXPECT_EQ(d[0].records[0].id, kLoad0);
    EXPECT_EQ(d[0].records[0].value, "66");

    set(kLoad0, "67");
    model.release(h);
    EXPECT_TRUE(model.takeDeliveries().empty());

    TorqRequestParcel sa = parcel(torq_sim::kKindSaControl, {idEntry(9)});
    sa.callback = answer;
    model.request(sa);
    d = model.takeDeliveries();
    ASSERT_EQ(d.size(), 1u);
    EXPECT_EQ(d[0].records[0].id, 9);
    EXPECT_EQ(d[0].records[0].value, "1");

    set(kLoad0, "", 0, answer);  // refused: not applied, not answered
    EXPECT_TRUE(model.takeDeliveries().empty());
}

TEST_F(ModelTest, EventsApplyTheirCatalogSettingsPlusTheirOwn) {
    TorqRequestParcel camera =
            parcel(torq_sim::kKindEventAcquire, {idEntry(11), idEntry(kLoad1, "33")});
    camera.pkg = "scene";
    const int32_t h = model.request(camera);
    ASSERT_GT(h, 0);
    const torq_sim::EventEntry* entry = torq_sim::findEvent(11);
    ASSERT_NE(entry, nullptr);
    for (const auto& [opcode, value] : entry->settings) EXPECT_EQ(model.value(opcode), value);
    EXPECT_EQ(model.value(kLoad1), "33");
    model.release(h);
    for (const auto& [opcode, value] : entry->settings) {
        EXPECT_EQ(model.value(opcode), torq_sim::findResource(opcode)->defaultValue);
    }

    EXPECT_GT(model.request(parcel(torq_sim::kKindEventAcquire, {idEntry(3)})), 0);
    EXPECT_EQ(model.request(parcel(torq_sim::kKindEventAcquire, {idEntry(199)})),
              torq_sim::kRejected);
    EXPECT_EQ(model.request(parcel(torq_sim::kKindEventAcquire, {idEntry(-1)})),
              torq_sim::kRejected);
    EXPECT_EQ(model.request(parcel(torq_sim::kKindEventAcquire, {})), torq_sim::kRejected);

    EXPECT_GT(model.request(parcel(torq_sim::kKindPlatformAcquire, {idEntry(kLoad0, "12")})), 0);
    EXPECT_EQ(model.value(kLoad0), "12");
}

TEST_F(ModelTest, HistoryIsRecordedOnlyWhileSwitchedOn) {
    auto history = [&] { return model.stateRequest(parcel(torq_sim::kKindHistory, {})); };
    set(kLoad0, "1");
    EXPECT_TRUE(history().empty());

    EXPECT_GT(model.request(parcel(torq_sim::kKindCommand, {idEntry(10)})), 0);
    set(kLoad0, "2");
    model.ruleCtl(200, 3, {});
    EXPECT_GT(model.request(parcel(torq_sim::kKindCommand, {idEntry(11)})), 0);
    set(kLoad0, "3");

    const auto records = history();
    ASSERT_EQ(records.size(), 4u);
    for (size_t i = 0; i < records.size(); ++i) {
        EXPECT_EQ(records[i].id, static_cast<int32_t>(i + 1));
        ASSERT_TRUE(records[i].extra.has_value());
        EXPECT_FALSE(records[i].value.has_value());
    }
    EXPECT_NE(records[0].extra->find("history recording on"), std::string::npos);
    EXPECT_NE(records[1].extra->find("0x010108a0=2"), std::string::npos);
    EXPECT_NE(records[2].extra->find("rule 200 status=3"), std::string::npos);
    EXPECT_NE(records[3].extra->find("history recording off"), std::string::npos);
}

TEST_F(ModelTest, HistoryKeepsTheNewestRecords) {
    model.request(parcel(torq_sim::kKindCommand, {idEntry(10)}));
    for (size_t i = 0; i < torq_sim::kHistoryCapacity + 10; ++i) model.setRelatedSysInfo(1, i);
    const auto records = model.stateRequest(parcel(torq_sim::kKindHistory, {}));
    ASSERT_EQ(records.size(), torq_sim::kHistoryCapacity);
    EXPECT_NE(records.back().extra->find("sysinfo 1=" +
                                         std::to_string(torq_sim::kHistoryCapacity + 9)),
              std::string::npos);
}

TEST_F(ModelTest, PowerModeStatusFollowsTheProperty) {
    auto status = [&](int32_t mode) {
        return model.stateRequest(parcel(torq_sim::kKindPowerMode, {idEntry(mode)}));
    };
    ASSERT_EQ(status(0).size(), 1u);
    EXPECT_EQ(status(0)[0].value, "1");
    EXPECT_EQ(status(2)[0].value, "0");
    EXPECT_EQ(model.propertySet(torq_sim::kPropPowerMode, "2"), torq_sim::kResultOk);
    EXPECT_EQ(status(2)[0].value, "1");
    EXPECT_EQ(status(0)[0].value, "0");
    EXPECT_EQ(model.propertyGet(torq_sim::kPropPowerMode), "2");

    EXPECT_TRUE(status(9).empty());
    EXPECT_TRUE(model.stateRequest(parcel(torq_sim::kKindPowerMode, {})).empty());
    EXPECT_EQ(model.propertySet(torq_sim::kPropPowerMode, "9"), torq_sim::kRejected);
    EXPECT_EQ(model.propertySet(torq_sim::kPropPowerMode, "1x"), torq_sim::kRejected);
    EXPECT_EQ(model.powerMode(), 2);
}

TEST_F(ModelTest, Properties) {
    EXPECT_EQ(model.propertyGet("vendor.unset"), "");
    EXPECT_EQ(model.propertySet("vendor.a", "b"), torq_sim::kResultOk);
    EXPECT_EQ(model.propertyGet("vendor.a"), "b");
    EXPECT_EQ(model.propertySet("", "b"), torq_sim::kRejected);
    EXPECT_EQ(model.propertyGet(torq_sim::kPropVersion), torq_sim::kSimVersion);
    EXPECT_EQ(model.propertySet(torq_sim::kPropVersion, "x"), torq_sim::kRejected);
    // The client's buffer holds 255 characters and a terminator.
    EXPECT_EQ(model.propertySet("vendor.long", std::string(255, 'x')), torq_sim::kResultOk);
    EXPECT_EQ(model.propertySet("vendor.long", std::string(256, 'x')), torq_sim::kRejected);
    EXPECT_EQ(model.propertyGet("vendor.long"), std::string(255, 'x'));

    EXPECT_EQ(model.propertySet(torq_sim::kPropHistory, "1"), torq_sim::kResultOk);
    EXPECT_TRUE(model.historyRecording());
    EXPECT_EQ(model.propertyGet(torq_sim::kPropHistory), "1");
    EXPECT_EQ(model.propertySet(torq_sim::kPropHistory, "yes"), torq_sim::kRejected);
}

TEST_F(ModelTest, ThermalLevelsReachTheirListenersOnChange) {
    const int32_t one = model.thermalListeningRegister({1}, callback);
    auto every = ::ndk::SharedRefBase::make<RecordingCallback>();
    const int32_t all = model.thermalListeningRegister({}, every);
    EXPECT_EQ(model.thermalListeningRegister({1}, nullptr), torq_sim::kRejected);

    EXPECT_GT(
            model.request(parcel(torq_sim::kKindThermalNotify, {idEntry(1, "3"), idEntry(2, "1")})),
            0);
    auto d = model.takeDeliveries();
    ASSERT_EQ(d.size(), 2u);
    EXPECT_EQ(d[0].handle, one);
    EXPECT_EQ(d[0].reason, Delivery::Reason::kThermalListener);
    ASSERT_EQ(d[0].records.size(), 1u);
    EXPECT_EQ(d[0].records[0].id, 1);
    EXPECT_EQ(d[0].records[0].value, "3");
    EXPECT_EQ(d[1].handle, all);
    EXPECT_EQ(d[1].records.size(), 2u);
    EXPECT_EQ(model.thermalLevel(2), "1");

    model.request(parcel(torq_sim::kKindThermalNotify, {idEntry(1, "3")}));
    EXPECT_TRUE(model.takeDeliveries().empty());
    EXPECT_EQ(model.request(parcel(torq_sim::kKindThermalNotify, {idEntry(1)})),
              torq_sim::kRejected);

    // Each kind of registration is removed only by its own call.
    EXPECT_EQ(model.listeningUnregister(one), torq_sim::kRejected);
    EXPECT_EQ(model.thermalListeningUnregister(one), torq_sim::kResultOk);
    const int32_t ids = listen({idEntry(kLoad0)});
    EXPECT_EQ(model.thermalListeningUnregister(ids), torq_sim::kRejected);
}

TEST_F(ModelTest, DumpCommandsPrintTheirTable) {
    const int32_t h = set(kLoad0, "50", 2000);
    EXPECT_GT(model.request(parcel(torq_sim::kKindCommand, {idEntry(1)})), 0);
    auto out = model.takeDumpOutput();
    ASSERT_GE(out.size(), 2u);
    EXPECT_EQ(out[0], "dump 1 RunMap:");
    EXPECT_NE(out[1].find("#" + std::to_string(h) + " resources {0x010108a0=50}, 2000 ms left"),
              std::string::npos)
            << out[1];

    model.request(parcel(torq_sim::kKindCommand, {idEntry(2)}));
    out = model.takeDumpOutput();
    ASSERT_EQ(out.size(), 2u);
    EXPECT_NE(out[1].find("0x010108a0 sched.cluster0.target_load = 50 by #" + std::to_string(h)),
              std::string::npos)
            << out[1];

    for (int32_t code = 0; code <= 8; ++code) {
        model.request(parcel(torq_sim::kKindCommand, {idEntry(code)}));
        out = model.takeDumpOutput();
        ASSERT_GE(out.size(), 2u) << "code " << code;
        EXPECT_EQ(out[0],
                  "dump " + std::to_string(code) + " " + torq_sim::dumpTableName(code) + ":");
    }
    EXPECT_EQ(model.request(parcel(torq_sim::kKindCommand, {idEntry(9)})), torq_sim::kRejected);
    EXPECT_EQ(model.request(parcel(torq_sim::kKindCommand, {})), torq_sim::kRejected);
    EXPECT_TRUE(model.takeDumpOutput().empty());
}

TEST_F(ModelTest, RulesSysInfoAndNotificationsAreKept) {
    EXPECT_EQ(model.ruleCtl(200, 3, {idEntry(kLoad0, "1")}), torq_sim::kResultOk);
    EXPECT_EQ(model.ruleCtl(200, 0, {}), torq_sim::kResultOk);
    EXPECT_EQ(model.ruleStatus(200), 0);
    EXPECT_FALSE(model.ruleStatus(201).has_value());
    EXPECT_EQ(model.setRelatedSysInfo(4, int64_t{1} << 40), torq_sim::kResultOk);
    EXPECT_EQ(model.sysInfo(4), int64_t{1} << 40);

    TorqRequestData entry;
    entry.id = 3;
    entry.subId = 7;
    EXPECT_GT(model.request(parcel(torq_sim::kKindNotify, {entry, entry, entry})), 0);
    ASSERT_EQ(model.notifications().size(), 1u);
    EXPECT_NE(model.notifications()[0].find("notify id=3 subId=7 entries=3"), std::string::npos);
    EXPECT_EQ(model.activeCount(), 0u);  // notifications hold nothing
}

TEST_F(ModelTest, UnknownKindsAreRefusedOrAnsweredEmpty) {
    EXPECT_EQ(model.request(parcel(torq_sim::kKindHistory, {})), torq_sim::kRejected);
    EXPECT_EQ(model.request(parcel(0, {idEntry(kLoad0, "1")})), torq_sim::kRejected);
    EXPECT_TRUE(
            model.stateRequest(parcel(torq_sim::kKindResourceControl, {idEntry(kLoad0)})).empty());
}

TEST_F(ModelTest, AForgottenCallbackLosesItsListeners) {
    listen({idEntry(kLoad0)});
    model.thermalListeningRegister({}, callback);
    auto other = ::ndk::SharedRefBase::make<RecordingCallback>();
    model.listeningRegister(parcel(0, {idEntry(kLoad0)}), other);
    model.forgetCallback(callback);
    EXPECT_EQ(model.listenerCount(), 1u);
    set(kLoad0, "1");
    auto d = model.takeDeliveries();
    ASSERT_EQ(d.size(), 1u);
    EXPECT_EQ(d[0].callback, other);
}

}  // namespace
}  // namespace torq_sim_test
