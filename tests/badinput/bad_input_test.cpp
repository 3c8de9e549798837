// Arguments that callers get wrong or push to the extremes. The library validates almost nothing,
// so empty strings and lists, negative numbers and huge lists travel to the HAL as they are; these
// tests check at the fake HAL that they arrive exactly so, in order and whole, and that nothing
// crashes on the way. The one thing the binder refuses (text that is not UTF-8) fails the call
// like any failed transaction.

#include <binder_host/process.h>
#include <gtest/gtest.h>
#include <torq_test/Capture.h>
#include <torq_test/FakeTorqHal.h>

#include <ZelWrapper.h>
#include <torqHalclient.h>
#include <zel.h>

#include <climits>
#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace {

using torq_test::Answer;
using torq_test::FakeTorqHal;
using torq_test::LogCapture;
using torq_test::RecordedCall;
using torq_test::TorqRequestData;
using Resources = std::list<ZelClient::Resource>;
using Vector = std::vector<ZelClient::Resource>;

constexpr int kHuge = 10000;

class NullCallback : public IClientCallback {
  public:
    void onCallback(std::list<ZelClient::Resource>) override {}
};

// Constructed before the fake HAL: a clean emulated world for it.
struct CleanWorld {
    CleanWorld() { binder_host::reset(); }
};

class BadInput : public ::testing::Test {
  protected:
    void TearDown() override {
        // Death notices of this test's HAL must not reach the next one.
        hal.kill();
        binder_host::drain();
    }

    CleanWorld clean;
    LogCapture log;  // keeps the library's lines off the test output
    FakeTorqHal hal;
};

std::string valueFor(int i) {
    return std::to_string(i * 7);
}

// ---- empty ---------------------------------------------------------------------------------

TEST_F(BadInput, EmptyListsAndStringsReachTheHalAsTheyAre) {
    Resources none;
    EXPECT_GE(torqHalclient::torqResCtlRequest(0, none, 0), 1);
    EXPECT_EQ(hal.last("request").parcel.kind, 1);
    EXPECT_TRUE(hal.last("request").parcel.data.empty());

    EXPECT_EQ(torqHalclient::torqThermalNotify(none, 0), 0);
    EXPECT_EQ(hal.last("request").parcel.kind, 7);
    EXPECT_TRUE(hal.last("request").parcel.data.empty());

    // The HAL has nothing to say about nothing: -1, and the output stays as it was.
    Resources out{{1, "kept"}};
    EXPECT_EQ(torqHalclient::torqResStateRequest(none, 0, out), -1);
    EXPECT_TRUE(hal.last("stateRequest").parcel.data.empty());
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out.front().value, "kept");

    auto callback = std::make_shared<NullCallback>();
    int32_t thermal = torqHalclient::torqThermalListeningRegister({}, callback);
    EXPECT_GE(thermal, 1);
    EXPECT_TRUE(hal.last("thermalListeningRegister").ids.empty());
    EXPECT_EQ(torqHalclient::torqResListeningUnRegister(thermal), 1);

    EXPECT_GE(torqHalclient::torq_resctl_request_by_path(0, 0, {}, {}, 0, 0, 0), 1);
    EXPECT_TRUE(hal.last("request").parcel.data.empty());
    EXPECT_EQ(hal.last("request").parcel.extras,
              (std::vector<std::optional<std::string>>{"zdbdebug"}));

    // Empty paths are paths: present and empty, one entry each.
    std::vector<std::string> values;
    EXPECT_EQ(torqHalclient::torq_res_state_request_by_path({"", ""}, {}, 0, values), -1);
    const std::vector<TorqRequestData> sent = hal.last("stateRequest").parcel.data;
    ASSERT_EQ(sent.size(), 2u);
    for (const TorqRequestData& d : sent) {
        EXPECT_EQ(d.path, std::string());
        EXPECT_EQ(d.value, std::nullopt);
    }

    EXPECT_EQ(torqHalclient::torqPropertySet("", ""), 1);
    EXPECT_EQ(hal.last("propertySet").name, "");
    EXPECT_EQ(hal.last("propertySet").value, "");
    char* property = torqHalclient::torqPropertyGet("");
    EXPECT_STREQ(property, "");
    delete[] property;
    EXPECT_EQ(hal.last("propertyGet").name, "");
}

TEST_F(BadInput, FlatApiSendsEmptyTextsAsPresentAndEmptyListsAsEmpty) {
    EXPECT_GE(ZelEventAcquire(5, "", "", 0, {}), 1);
    RecordedCall acquire = hal.last("request");
    EXPECT_EQ(acquire.parcel.kind, 8);
    EXPECT_EQ(acquire.parcel.pkg, std::string());
    EXPECT_EQ(acquire.parcel.identity, std::string());
    ASSERT_EQ(acquire.parcel.data.size(), 1u);  // the event id alone
    EXPECT_EQ(acquire.parcel.data[0].id, 5);

    EXPECT_GE(ZelResAcquire({}, 0, "", 0), 1);
    EXPECT_EQ(hal.last("request").parcel.kind, 1);
    EXPECT_TRUE(hal.last("request").parcel.data.empty());

    // A notification without values still sends one entry.
    EXPECT_GE(ZelNotify(0, 0, {}), 1);
    EXPECT_EQ(hal.last("request").parcel.data.size(), 1u);

    EXPECT_EQ(zelRuleCtl(0, 0, {}), 1);
    EXPECT_TRUE(hal.last("ruleCtl").entries.empty());
    // A resource without a value goes with an empty one.
    EXPECT_EQ(zelRuleCtl(1, 1, {{0x01011040, std::nullopt}}), 1);
    ASSERT_EQ(hal.last("ruleCtl").entries.size(), 1u);
    EXPECT_EQ(hal.last("ruleCtl").entries[0].value, std::string());

    // An empty state query is refused before the HAL is asked.
    Vector none;
    EXPECT_EQ(ZelMutiResStateRequest(none), -1);
    EXPECT_EQ(hal.count("stateRequest"), 0u);
}

// ---- numbers -------------------------------------------------------------------------------

TEST_F(BadInput, NegativeAndExtremeNumbersAreForwardedUnchanged) {
    Resources one{{0x010108A0, "1"}};
    EXPECT_GE(torqHalclient::torqResCtlRequest(INT32_MIN, INT32_MIN, one, INT32_MIN, INT32_MIN,
                                               INT32_MIN),
              1);
    RecordedCall r = hal.last("request");
    EXPECT_EQ(r.parcel.param, INT32_MIN);
    EXPECT_EQ(r.parcel.duration, static_cast<int64_t>(INT32_MIN));  // widened with its sign
    EXPECT_EQ(r.parcel.option, INT32_MIN);
    EXPECT_FALSE(r.parcel.flag);
    EXPECT_EQ(r.parcel.tag, INT32_MIN);

    EXPECT_GE(torqHalclient::torqResCtlRequest(-1, one, 0), 1);
    EXPECT_EQ(hal.last("request").parcel.duration, -1);

    EXPECT_GE(torqHalclient::torqSACtlRequest(-100, -7, -1), 1);
    ASSERT_EQ(hal.last("request").parcel.data.size(), 1u);
    EXPECT_EQ(hal.last("request").parcel.data[0].id, -7);
    EXPECT_EQ(hal.last("request").parcel.duration, -100);

    for (int64_t duration : {INT64_MIN, INT64_MAX, int64_t{-1}}) {
        EXPECT_GE(torqHalclient::torq_resctl_request_by_path(-1, duration, {"/p"}, {"1"}, -5,
                                                             INT32_MAX, INT32_MIN),
                  1);
        r = hal.last("request");
        EXPECT_EQ(r.parcel.duration, duration);
        EXPECT_EQ(r.parcel.option, -5);
        EXPECT_TRUE(r.parcel.flag);
        EXPECT_EQ(r.parcel.tag, INT32_MIN);
    }

    // Handles the HAL never issued are still sent.
    EXPECT_EQ(torqHalclient::torqResCtlRelease(-1), 1);
    EXPECT_EQ(hal.last("release").handle, -1);
    ZelRelease(INT32_MIN);
    EXPECT_EQ(hal.last("release").handle, INT32_MIN);

    EXPECT_GE(ZelEventAcquire(INT32_MIN, "p", "i", -1, {}), 1);
    r = hal.last("request");
    EXPECT_EQ(r.parcel.kind, 8);
    EXPECT_EQ(r.parcel.duration, -1);
    ASSERT_FALSE(r.parcel.data.empty());
    EXPECT_EQ(r.parcel.data[0].id, INT32_MIN);

    EXPECT_EQ(zelRuleCtl(-1, INT32_MIN, {}), 1);
    EXPECT_EQ(hal.last("ruleCtl").first, -1);
    EXPECT_EQ(hal.last("ruleCtl").status, INT32_MIN);
}

// ---- huge lists ----------------------------------------------------------------------------

TEST_F(BadInput, TenThousandResourcesArriveWholeAndInOrder) {
    Resources many;
    Vector manyVector;
    std::vector<int32_t> ids;
    std::vector<std::string> paths, values;
    for (int i = 0; i < kHuge; ++i) {
        many.push_back({0x01000000 + i, valueFor(i)});
        manyVector.push_back({0x01000000 + i, valueFor(i)});
        ids.push_back(i);
        paths.push_back("/sys/" + std::to_string(i));
        values.push_back(valueFor(i));
    }
    auto checkRecords = [&](const std::vector<TorqRequestData>& data, size_t skip) {
        ASSERT_EQ(data.size(), kHuge + skip);
        for (int i = 0; i < kHuge; ++i) {
            ASSERT_EQ(data[i + skip].id, 0x01000000 + i) << "entry " << i;
            ASSERT_EQ(data[i + skip].value, valueFor(i)) << "entry " << i;
        }
    };

    EXPECT_GE(torqHalclient::torqResCtlRequest(100, many, 0), 1);
    checkRecords(hal.last("request").parcel.data, 0);

    EXPECT_GE(ZelEventAcquire(3, "p", "i", 100, manyVector), 1);
    checkRecords(hal.last("request").parcel.data, 1);  // after the event id

    EXPECT_EQ(zelRuleCtl(130, 1, manyVector), 1);
    checkRecords(hal.last("ruleCtl").entries, 0);

    auto callback = std::make_shared<NullCallback>();
    int32_t listening = torqHalclient::torqResListeningRegister(many, 0, callback);
    EXPECT_GE(listening, 1);
    checkRecords(hal.last("listeningRegister").parcel.data, 0);
    EXPECT_EQ(torqHalclient::torqResListeningUnRegister(listening), 1);

    int32_t thermal = torqHalclient::torqThermalListeningRegister(ids, callback);
    EXPECT_GE(thermal, 1);
    EXPECT_EQ(hal.last("thermalListeningRegister").ids, ids);
    EXPECT_EQ(torqHalclient::torqResListeningUnRegister(thermal), 1);

    EXPECT_GE(torqHalclient::torq_resctl_request_by_path(0, 0, paths, values, 0, 0, 0), 1);
    const std::vector<TorqRequestData> sent = hal.last("request").parcel.data;
    ASSERT_EQ(sent.size(), static_cast<size_t>(kHuge));
    for (int i = 0; i < kHuge; ++i) {
        ASSERT_EQ(sent[i].path, paths[i]);
        ASSERT_EQ(sent[i].value, values[i]);
    }

    // And back: a HAL answer of ten thousand records reaches the caller whole.
    Answer answer;
    for (int i = 0; i < kHuge; ++i) answer.records.push_back(torq_test::idRecord(i, valueFor(i)));
    hal.answerOnce("stateRequest", answer);
    Resources out;
    EXPECT_EQ(torqHalclient::torqResStateRequest(many, 0, out), kHuge);
    ASSERT_EQ(out.size(), static_cast<size_t>(kHuge));
    EXPECT_EQ(out.back().id, kHuge - 1);
    EXPECT_EQ(out.back().value, valueFor(kHuge - 1));
}

// ---- texts ---------------------------------------------------------------------------------

TEST_F(BadInput, LongTextsAndEmbeddedZerosTravelWhole) {
    const std::string longValue(64 * 1024, 'x');
    const std::string withZero("ab\0cd", 5);
    Resources res{{0x010108A0, longValue}, {0x010108B0, withZero}};
    EXPECT_GE(torqHalclient::torqResCtlRequest(1, res, 0), 1);
    RecordedCall r = hal.last("request");
    ASSERT_EQ(r.parcel.data.size(), 2u);
    EXPECT_EQ(r.parcel.data[0].value, longValue);
    EXPECT_EQ(r.parcel.data[1].value, withZero);

    EXPECT_GE(ZelEventAcquire(1, longValue, withZero, 1, {}), 1);
    EXPECT_EQ(hal.last("request").parcel.pkg, longValue);
    EXPECT_EQ(hal.last("request").parcel.identity, withZero);

    // ZelResStateRequest hands the value over as a C string: it ends at the first zero.
    Answer answer;
    answer.records = {torq_test::idRecord(0x010108B0, withZero)};
    hal.answerOnce("stateRequest", answer);
    std::string value;
    ZelResStateRequest(0x010108B0, value);
    EXPECT_EQ(value, "ab");
}

TEST_F(BadInput, TextThatIsNotUtf8FailsTheCallAndTheNextCallReconnects) {
    // AIDL strings travel as UTF-16: the parcel refuses bytes that are not UTF-8, the call fails
    // before it leaves, and each front end treats that like any failed transaction.
    const std::string notUtf8("\xff\xfe", 2);
    Resources bad{{0x010108A0, notUtf8}};
    EXPECT_EQ(torqHalclient::torqResCtlRequest(1, bad, 0), -1);
    EXPECT_EQ(ZelEventAcquire(1, notUtf8, "i", 1, {}), -1);
    EXPECT_EQ(hal.count("request"), 0u);
    EXPECT_EQ(log.count("torqResCtlRequest() failed: torq HAL service not available"), 1u);
    EXPECT_EQ(log.count("ZelEventAcquire() failed : torq HAL service not available"), 1u);

    Resources good{{0x010108A0, "1"}};
    EXPECT_GE(torqHalclient::torqResCtlRequest(1, good, 0), 1);
    EXPECT_GE(ZelEventAcquire(1, "p", "i", 1, {}), 1);
    EXPECT_EQ(hal.count("request"), 2u);
}

// ---- wrappers ------------------------------------------------------------------------------

TEST_F(BadInput, WrappersRefuseUnknownNamesWithoutCallingTheHal) {
    const std::string longName = "VARDEX_" + std::string(100000, 'A');
    EXPECT_EQ(ZelEventAcquireWrapper("", "", "", -1), -1);
    EXPECT_EQ(ZelEventAcquireWrapper("VARDEX_", "s", "i", 1), -1);
    EXPECT_EQ(ZelEventAcquireWrapper(longName, "s", "i", 1), -1);
    EXPECT_EQ(ZelEventAcquireWrapper(std::string("VARDEX_ACTION_LAUNCH\0", 21), "s", "i", 1), -1);
    EXPECT_EQ(hal.count("request"), 0u);

    for (int src : {INT32_MIN, -1, 0, 132, 8999, INT32_MAX}) {
        EXPECT_EQ(ZelNotifyWapper("", src, 1, INT32_MIN, 0, 0, longName), 0);
    }
    EXPECT_EQ(hal.count("ruleCtl"), 0u);
}

TEST_F(BadInput, HugeNotificationTextsYieldNoMoreEntriesThanTheOpcodeTables) {
    std::string targetLoad, gameAdp, colocation;
    for (int i = 0; i < kHuge; ++i) {
        targetLoad += "a-" + std::to_string(i) + ",";
        gameAdp += std::to_string(i) + (i % 1000 == 999 ? ";" : ",");
        colocation += "colocation:" + std::to_string(i) + ",";
    }
    EXPECT_EQ(ZelNotifyWapper("n", 130, 1, 0, 0, 0, targetLoad), 0);
    EXPECT_EQ(hal.last("ruleCtl").entries.size(), 3u);  // opCodeTargetLoad has three entries
    EXPECT_EQ(ZelNotifyWapper("n", 9000, 1, 0, 0, 0, gameAdp), 0);
    EXPECT_EQ(hal.last("ruleCtl").entries.size(), 16u);  // four groups of four opcodes
    // Colocation items all use the one opcode: every one of them goes.
    EXPECT_EQ(ZelNotifyWapper("n", 131, 1, 0, 0, 0, colocation), 0);
    const std::vector<TorqRequestData> entries = hal.last("ruleCtl").entries;
    ASSERT_EQ(entries.size(), static_cast<size_t>(kHuge));
    EXPECT_EQ(entries.back().value, std::to_string(kHuge - 1));
}

}  // namespace
