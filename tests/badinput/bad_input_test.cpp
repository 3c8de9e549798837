// Arguments that callers push to the extremes. The library validates almost nothing: huge lists
// must reach the HAL exactly as given, in order and whole. Text that is not UTF-8 fails the call
// like a failed transaction.

#include <torqHalclient.h>
#include <torq_test/HalTest.h>
#include <zel.h>

#include <list>
#include <string>
#include <vector>

namespace {

using torq_test::idRecord;
using torq_test::pathRecord;
using torq_test::TorqRequestData;
using Resources = std::list<ZelClient::Resource>;

constexpr int kHuge = 10000;

class BadInput : public torq_test::HalTest {
  protected:
    std::vector<TorqRequestData> sent() { return hal().last("request").parcel.data; }
};

TEST_F(BadInput, TenThousandResourcesArriveWholeAndInOrder) {
    Resources many;
    std::vector<std::string> paths, values;
    std::vector<TorqRequestData> records, pathRecords;
    for (int i = 0; i < kHuge; ++i) {
        many.push_back({0x01000000 + i, std::to_string(i * 7)});
        records.push_back(idRecord(0x01000000 + i, std::to_string(i * 7)));
        paths.push_back("/sys/" + std::to_string(i));
        values.push_back(std::to_string(i * 7));
        pathRecords.push_back(pathRecord(paths.back(), values.back()));
    }
    EXPECT_GE(torqHalclient::torqResCtlRequest(100, many, 0), 1);
    EXPECT_TRUE(sent() == records);
    EXPECT_GE(torqHalclient::torq_resctl_request_by_path(0, 0, paths, values, 0, 0, 0), 1);
    EXPECT_TRUE(sent() == pathRecords);
    EXPECT_GE(ZelEventAcquire(3, "p", "i", 100, {many.begin(), many.end()}), 1);
    records.insert(records.begin(), idRecord(3));  // the event id comes first
    EXPECT_TRUE(sent() == records);

    // And back: a HAL answer of ten thousand records reaches the caller whole.
    torq_sim::SentAnswer answer;
    answer.records = records;
    hal().answerOnce("stateRequest", answer);
    Resources out;
    EXPECT_EQ(torqHalclient::torqResStateRequest(many, 0, out), kHuge + 1);
    ASSERT_EQ(out.size(), static_cast<size_t>(kHuge + 1));
    EXPECT_EQ(out.back().id, 0x01000000 + kHuge - 1);
    EXPECT_EQ(out.back().value, std::to_string((kHuge - 1) * 7));
}

TEST_F(BadInput, TextThatIsNotUtf8FailsTheCallAndTheNextCallReconnects) {
    // AIDL strings travel as UTF-16: the parcel refuses bytes that are not UTF-8, the call fails
    // before it leaves, and each front end treats that like any failed transaction.
    const std::string notUtf8("\xff\xfe", 2);
    Resources bad{{0x010108A0, notUtf8}}, good{{0x010108A0, "1"}};
    EXPECT_EQ(torqHalclient::torqResCtlRequest(1, bad, 0), -1);
    EXPECT_EQ(ZelEventAcquire(1, notUtf8, "i", 1, {}), -1);
    EXPECT_EQ(hal().count("request"), 0u);
    EXPECT_EQ(log_.count("torqResCtlRequest() failed: torq HAL service not available"), 1u);
    EXPECT_EQ(log_.count("ZelEventAcquire() failed : torq HAL service not available"), 1u);

    EXPECT_GE(torqHalclient::torqResCtlRequest(1, good, 0), 1);
    EXPECT_GE(ZelEventAcquire(1, "p", "i", 1, {}), 1);
    EXPECT_EQ(hal().count("request"), 2u);
}

}  // namespace
