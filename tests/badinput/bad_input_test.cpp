// Arguments that callers get wrong or push to the extremes. The library validates almost nothing:
// empty strings and lists and huge lists must reach the HAL exactly as
// given, in order and whole. Text that is not UTF-8 fails the call like a failed transaction.

#include <binder_host/process.h>
#include <gtest/gtest.h>
#include <torq_sim/SimHost.h>
#include <torq_test/Capture.h>
#include <torq_test/Records.h>

#include <ZelWrapper.h>
#include <torqHalclient.h>
#include <zel.h>

#include <cstdint>
#include <list>
#include <optional>
#include <string>
#include <vector>

namespace {

using torq_sim::ReceivedCall;
using torq_sim::SimHost;
using torq_test::TorqRequestData;
using Resources = std::list<ZelClient::Resource>;
using Vector = std::vector<ZelClient::Resource>;

constexpr int kHuge = 10000;

// Constructed before the HAL: a clean emulated world for it.
struct CleanWorld {
    CleanWorld() { binder_host::reset(); }
};

class BadInput : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(hal.start()); }
    void TearDown() override {
        // Death notices of this test's HAL must not reach the next one.
        hal.kill();
        binder_host::drain();
    }
    const torq_sim::TorqRequestParcel& lastRequest() {
        mLast = hal.last("request");
        return mLast.parcel;
    }

    CleanWorld clean;
    torq_test::LogCapture log;  // keeps the library's lines off the test output
    SimHost hal;                // the reference HAL

  private:
    ReceivedCall mLast;
};

std::string valueFor(int i) {
    return std::to_string(i * 7);
}

TEST_F(BadInput, EmptyListsAndStringsReachTheHalAsTheyAre) {
    Resources none;
    EXPECT_GE(torqHalclient::torqResCtlRequest(0, none, 0), 1);
    EXPECT_EQ(lastRequest().kind, 1);
    EXPECT_TRUE(lastRequest().data.empty());
    EXPECT_EQ(torqHalclient::torqThermalNotify(none, 0), 0);
    EXPECT_EQ(lastRequest().kind, 7);
    EXPECT_TRUE(lastRequest().data.empty());
    EXPECT_GE(torqHalclient::torq_resctl_request_by_path(0, 0, {}, {}, 0, 0, 0), 1);
    EXPECT_TRUE(lastRequest().data.empty());
    EXPECT_EQ(lastRequest().extras, (std::vector<std::optional<std::string>>{"zdbdebug"}));

    // The HAL has nothing to say about nothing: -1, and the output stays as it was.
    Resources out{{1, "kept"}};
    EXPECT_EQ(torqHalclient::torqResStateRequest(none, 0, out), -1);
    EXPECT_TRUE(hal.last("stateRequest").parcel.data.empty());
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out.front().value, "kept");
    // Empty paths are paths: present and empty, one entry each.
    std::vector<std::string> values;
    // (the simulator knows no such path: two records without a value)
    EXPECT_EQ(torqHalclient::torq_res_state_request_by_path({"", ""}, {}, 0, values), 2);
    EXPECT_EQ(hal.last("stateRequest").parcel.data,
              (std::vector<TorqRequestData>{torq_test::pathRecord("", std::nullopt),
                                            torq_test::pathRecord("", std::nullopt)}));

    char* property = torqHalclient::torqPropertyGet("");
    EXPECT_STREQ(property, "");
    delete[] property;

    // The flat API sends an empty list as no entries. (Its empty texts, notifications and rules,
    // and the refusal of an empty state query: zel_test.)
    EXPECT_GE(ZelResAcquire({}, 0, "", 0), 1);
    EXPECT_EQ(lastRequest().kind, 1);
    EXPECT_TRUE(lastRequest().data.empty());
}

TEST_F(BadInput, TenThousandResourcesArriveWholeAndInOrder) {
    Resources many;
    std::vector<std::string> paths, values;
    std::vector<TorqRequestData> records, pathRecords;
    for (int i = 0; i < kHuge; ++i) {
        many.push_back({0x01000000 + i, valueFor(i)});
        records.push_back(torq_test::idRecord(0x01000000 + i, valueFor(i)));
        paths.push_back("/sys/" + std::to_string(i));
        values.push_back(valueFor(i));
        pathRecords.push_back(torq_test::pathRecord(paths.back(), values.back()));
    }
    const Vector manyVector(many.begin(), many.end());

    EXPECT_GE(torqHalclient::torqResCtlRequest(100, many, 0), 1);
    EXPECT_TRUE(lastRequest().data == records);
    EXPECT_GE(torqHalclient::torq_resctl_request_by_path(0, 0, paths, values, 0, 0, 0), 1);
    EXPECT_TRUE(lastRequest().data == pathRecords);
    EXPECT_GE(ZelEventAcquire(3, "p", "i", 100, manyVector), 1);
    records.insert(records.begin(), torq_test::idRecord(3));  // the event id comes first
    EXPECT_TRUE(lastRequest().data == records);

    // And back: a HAL answer of ten thousand records reaches the caller whole.
    torq_sim::SentAnswer answer;
    answer.records.emplace();
    for (int i = 0; i < kHuge; ++i) answer.records->push_back(torq_test::idRecord(i, valueFor(i)));
    hal.answerOnce("stateRequest", answer);
    Resources out;
    EXPECT_EQ(torqHalclient::torqResStateRequest(many, 0, out), kHuge);
    ASSERT_EQ(out.size(), static_cast<size_t>(kHuge));
    EXPECT_EQ(out.back().id, kHuge - 1);
    EXPECT_EQ(out.back().value, valueFor(kHuge - 1));
}

TEST_F(BadInput, LongTextsAndEmbeddedZerosTravelWhole) {
    const std::string longValue(64 * 1024, 'x');
    const std::string withZero("ab\0cd", 5);
    Resources res{{0x010108A0, longValue}, {0x010108B0, withZero}};
    EXPECT_GE(torqHalclient::torqResCtlRequest(1, res, 0), 1);
    ASSERT_EQ(lastRequest().data.size(), 2u);
    EXPECT_EQ(lastRequest().data[0].value, longValue);
    EXPECT_EQ(lastRequest().data[1].value, withZero);

    // (The flat API's texts, cut in logs and trace names but sent whole: zel_test.)
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
