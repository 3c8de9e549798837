// The simulator's model, driven directly with a clock that stands still. What torqctl's tour and
// runs show of its rules is not checked again here: expiry and its notices, thermal levels, an SA
// control's answer, a request's callback, a catalogued path and its opcode sharing a value, an
// event's catalog settings and their release, the power mode query.

#include <aidl/vendor/quarn/hardware/torq/BnTorqCallback.h>
#include <gtest/gtest.h>

#include <optional>
#include <ostream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "torq_sim/SimModel.h"
#include "torq_test/Records.h"

namespace aidl::vendor::quarn::hardware::torq {
inline void PrintTo(const TorqRequestData& d, std::ostream* os) {
    *os << d.toString();
}
}  // namespace aidl::vendor::quarn::hardware::torq

namespace {

using namespace torq_sim;
using ::aidl::vendor::quarn::hardware::torq::BnTorqCallback;
using torq_test::idRecord;
using torq_test::pathRecord;
using Records = std::vector<TorqRequestData>;

constexpr int32_t kLoad0 = 0x010108A0;  // default "80"
constexpr int32_t kLoad1 = 0x010108B0;  // default "85"
constexpr char kLoad0Path[] = "/proc/sys/walt/cluster0/target_load";
constexpr int32_t kUnknown = 0x7ABC0001;

// The model only keeps its callbacks and hands them back with each delivery.
class Callback : public BnTorqCallback {
    ndk::ScopedAStatus onCallback(const Records&) override { return ndk::ScopedAStatus::ok(); }
};

TorqRequestParcel parcel(int32_t kind, Records data) {
    TorqRequestParcel p;
    p.kind = kind;
    p.data = std::move(data);
    return p;
}

class ModelTest : public ::testing::Test {
  protected:
    int32_t set(int32_t id, const std::string& value) {
        return model.request(parcel(kKindResourceControl, {idRecord(id, value)}));
    }
    int32_t listen(Records what, const std::shared_ptr<Callback>& cb = nullptr) {
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

    SimModel model{[] { return int64_t{1000}; }};  // time stands still
    std::shared_ptr<Callback> callback = ndk::SharedRefBase::make<Callback>();
};

TEST_F(ModelTest, HandlesCountUpAcrossKindsAndRefusedRequestsTakeNoneAndChangeNothing) {
    // An event applies its entries after its id; kind 12 is a plain resource request.
    EXPECT_EQ(model.request(parcel(kKindEventAcquire, {idRecord(3), idRecord(kLoad0, "5")})), 1);
    EXPECT_EQ(model.value(kLoad0), "5");
    EXPECT_EQ(model.request(parcel(kKindPlatformAcquire, {idRecord(kLoad0, "12")})), 2);
    EXPECT_EQ(model.value(kLoad0), "12");
    EXPECT_EQ(model.request(parcel(kKindSaControl, {idRecord(7)})), 3);
    EXPECT_EQ(listen({idRecord(kLoad1)}), 4);
    EXPECT_EQ(model.thermalListeningRegister({}, callback), 5);

    const std::vector<TorqRequestParcel> refused = {
            // One entry without a value refuses the whole request.
            parcel(kKindResourceControl, {idRecord(kLoad1, "1"), idRecord(kLoad0, "")}),
            parcel(kKindResourceControl, {idRecord(kLoad1)}),
            // Event ids index the client's action table.
            parcel(kKindEventAcquire, {idRecord(199)}),
            parcel(kKindEventAcquire, {}),
            parcel(kKindCommand, {idRecord(9)}),
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
    EXPECT_EQ(model.activeCount(), 3u);
    EXPECT_TRUE(sent().empty());
    EXPECT_TRUE(model.takeDumpOutput().empty());
    // An entry that names nothing carries nothing; the request stands.
    EXPECT_EQ(model.request(parcel(kKindResourceControl, {idRecord(0, "")})), 6);
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

TEST_F(ModelTest, StateAnswersAsAskedAndTheUncataloguedFallBackToNoValue) {
    const int32_t h = model.request(
            parcel(kKindResourceControl, {idRecord(kUnknown, "7"), pathRecord("/sys/x/y", "on")}));
    // Answered as asked; the entry naming nothing gets no record.
    EXPECT_EQ(state(kKindState, {idRecord(kUnknown), pathRecord("/sys/x/y", std::nullopt),
                                 pathRecord("/no/such", std::nullopt), TorqRequestData{}}),
              (Records{idRecord(kUnknown, "7"), pathRecord("/sys/x/y", "on"),
                       pathRecord("/no/such", std::nullopt)}));
    model.release(h);
    EXPECT_FALSE(model.value(kUnknown).has_value());
    EXPECT_FALSE(model.valueAtPath("/sys/x/y").has_value());
    // Only state, history and power mode queries have answers.
    EXPECT_TRUE(state(kKindResourceControl, {idRecord(kLoad0)}).empty());
}

TEST_F(ModelTest, ListenersHearOnlyChangesOfWhatTheyWatch) {
    const int32_t byId = listen({idRecord(kLoad0), idRecord(kLoad1)});
    const int32_t byPath = listen({pathRecord(kLoad0Path, std::nullopt)});
    auto other = ndk::SharedRefBase::make<Callback>();
    const int32_t third = listen({idRecord(kLoad0)}, other);

    set(kLoad0, "80");   // the default: nothing changes
    set(kUnknown, "1");  // watched by nobody
    EXPECT_TRUE(sent().empty());
    const int32_t h = set(kLoad0, "51");
    // One record per changed watched resource (kLoad1 did not change), addressed as registered.
    auto d = model.takeDeliveries();
    ASSERT_EQ(summary(d), (Sent{{byId, {idRecord(kLoad0, "51")}},
                                {byPath, {pathRecord(kLoad0Path, "51")}},
                                {third, {idRecord(kLoad0, "51")}}}));
    EXPECT_EQ(d[2].callback, other);

    EXPECT_EQ(model.listeningUnregister(byPath), kResultOk);
    EXPECT_EQ(model.listeningUnregister(byPath), kRejected);
    model.release(h);
    EXPECT_EQ(sent(), (Sent{{byId, {idRecord(kLoad0, "80")}}, {third, {idRecord(kLoad0, "80")}}}));
    EXPECT_EQ(model.listeningRegister(parcel(0, {idRecord(kLoad0)}), nullptr), kRejected);
    EXPECT_EQ(listen({}), kRejected);
}

TEST_F(ModelTest, HistoryIsRecordedOnlyWhileSwitchedOnAndKeepsTheNewest) {
    set(kLoad0, "1");
    EXPECT_TRUE(state(kKindHistory, {}).empty());
    model.request(parcel(kKindCommand, {idRecord(10)}));
    for (size_t i = 0; i < kHistoryCapacity + 10; ++i) model.setRelatedSysInfo(1, i);
    model.request(parcel(kKindCommand, {idRecord(11)}));
    set(kLoad0, "2");
    // Numbered from 1, the text in `extra`; switching off is the last record.
    Records records = state(kKindHistory, {});
    ASSERT_EQ(records.size(), kHistoryCapacity);
    EXPECT_EQ(records.front().id, 1);
    EXPECT_EQ(records.front().extra, "t=0ms sysinfo 1=11");
    EXPECT_EQ(records.back().extra, "t=0ms history recording off");
}

TEST_F(ModelTest, PropertiesAndThePowerModeTheyControl) {
    // Each set, then what the name reads: a refused set leaves the value as it was.
    const std::string k255(255, 'x');
    const std::vector<std::tuple<std::string, std::string, int32_t, std::string>> sets = {
            {"vendor.a", "b", kResultOk, "b"},
            {"", "b", kRejected, ""},
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
}

}  // namespace
