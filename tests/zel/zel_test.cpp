// The flat API: its own connection to the HAL and the HAL's death, what the HAL receives from
// each call, what the caller gets back, and the log lines around them. The entry-point table of
// tests/halclient checks, with torqHalclient's, how each entry point fails (no HAL, a HAL that
// refuses) and the parcels of the acquisitions and notifications.

#include <gmock/gmock.h>
#include <torq_test/HalTest.h>
#include <zel.h>

#include <climits>
#include <optional>
#include <string>
#include <vector>

namespace zel_test {
namespace {

using namespace torq_test;
using ::testing::ElementsAre;
using Resources = std::vector<ZelClient::Resource>;
using Strings = std::vector<std::string>;

class ZelTest : public HalTest {
  protected:
    Strings zelLog() const { return lines("[ZEL_CLIENT]"); }
};

// The connection is watched for the HAL's death: its notice drops the interface; calls fail until
// a HAL is registered again, then the first one connects (the stress test checks that this
// connection is watched too).
TEST_F(ZelTest, HalDeathDropsTheConnectionUntilARestart) {
    const std::string acquire = "I ZelEventAcquire, cmdid:1, pkg:p, identity:i";
    ASSERT_GT(ZelEventAcquire(1, "p", "i", 5, {}), 0);

    log_.clear();
    hal().kill();
    ASSERT_TRUE(binder_host::drain());
    EXPECT_THAT(zelLog(), ElementsAre("E Torq HAL Service died"));

    log_.clear();
    EXPECT_EQ(-1, ZelEventAcquire(1, "p", "i", 5, {}));
    EXPECT_THAT(zelLog(), ElementsAre(acquire, "E Torq HAL Service not found",
                                      "E zel_get_torq_hal_and_link_to_death error:-1"));

    hal().restart();
    hal().clearCalls();
    log_.clear();
    EXPECT_GT(ZelEventAcquire(1, "p", "i", 5, {}), 0);
    EXPECT_EQ(1u, hal().count("request"));
    EXPECT_THAT(zelLog(), ElementsAre(acquire));
}

// Lists are converted entry by entry: a long one arrives whole and in order. The duration is
// sign-extended, not 4294967295.
TEST_F(ZelTest, ALongListArrivesWholeAndInOrder) {
    Resources resources;
    std::vector<TorqRequestData> records;
    for (int32_t id = 0; id < 10000; ++id) {
        resources.push_back({id, std::to_string(id)});
        records.push_back(idRecord(id, std::to_string(id)));
    }
    resources.push_back({1, std::nullopt});
    records.push_back(idRecord(1, ""));
    hal().setAnswer("request", result(-5));
    EXPECT_EQ(-5, ZelResAcquire(resources, 0, "svc", -1));
    EXPECT_EQ(acquisition(1, records, "", "svc", -1), hal().last("request").parcel);
    EXPECT_THAT(zelLog(), ElementsAre("I ZelResAcquire",
                                      "I ZelEventAcquire, cmdid:-2, pkg:none, identity:svc"));
}

// Only the ids travel. Each resource takes the value of the first record with its id; one with no
// such record, or whose record has no value, keeps its own. The single query writes only a value
// that came back, up to its first NUL. No records at all is a failure, and so is an empty query.
TEST_F(ZelTest, ResourcesTakeTheValueOfTheFirstMatchingRecord) {
    hal().setAnswer("stateRequest",
                    records({idRecord(0x20, "b"), idRecord(0x10, "a"), idRecord(0x10, "z"),
                             idRecord(0x30), idRecord(0x50, std::string("12") + '\0' + "34")}));
    Resources res = {
            {0x10, std::nullopt}, {0x20, "old"}, {0x10, ""}, {0x30, "keep"}, {0x40, "keep"}};
    EXPECT_EQ(3, ZelMutiResStateRequest(res));
    EXPECT_EQ(parcel(0, {idRecord(0x10), idRecord(0x20), idRecord(0x10), idRecord(0x30),
                         idRecord(0x40)}),
              hal().last("stateRequest").parcel);
    std::vector<std::optional<std::string>> values;
    for (const auto& r : res) values.push_back(r.value);
    EXPECT_EQ(values, (decltype(values){"a", "b", "a", "keep", "keep"}));
    EXPECT_THAT(zelLog(), ElementsAre("I ZelMutiResStateRequest enter",
                                      "D get resource value, opcode 0x00000010, value a",
                                      "D get resource value, opcode 0x00000020, value b",
                                      "D get resource value, opcode 0x00000010, value a",
                                      "I not match any opcode in zelcore"));

    std::string value = "untouched";
    ZelResStateRequest(0x30, value);
    EXPECT_EQ("untouched", value);
    ZelResStateRequest(0x50, value);
    EXPECT_EQ("12", value);

    hal().setAnswer("stateRequest", records({}));
    log_.clear();
    EXPECT_EQ(-1, ZelMutiResStateRequest(res));
    EXPECT_EQ("b", res[1].value);
    Resources none;
    EXPECT_EQ(-1, ZelMutiResStateRequest(none));
    EXPECT_THAT(zelLog(),
                ElementsAre("I ZelMutiResStateRequest enter", "E failed to get resource value",
                            "I ZelMutiResStateRequest enter", "E input resource is empty, return"));
    EXPECT_EQ(4u, hal().count("stateRequest"));
}

// The history joins the records' extras, "none" for an absent one; the power mode is the leading
// number of the first record's value. System info passes its arguments untouched.
TEST_F(ZelTest, HistoryPowerModeAndSysInfo) {
    std::vector<TorqRequestData> recs(3);
    recs[0].extra = "a";
    recs[0].value = "12abc";
    recs[2].extra = "c";
    hal().setAnswer("stateRequest", records(recs));
    std::string history = "old";
    EXPECT_EQ(0, ZelGetHistory(history));
    EXPECT_EQ("start:a;none;c;end", history);
    EXPECT_EQ(parcel(11, {}), hal().last("stateRequest").parcel);
    EXPECT_EQ(12, ZelGetPMStatus(4));
    EXPECT_EQ(parcel(13, {idRecord(4)}), hal().last("stateRequest").parcel);
    EXPECT_THAT(zelLog(),
                ElementsAre("I zel client ZelGetHistory", "I zel client hal ZelGetHistory",
                            "D get history successful: start:a;none;c;end",
                            "I zel client ZelGetPMStatus", "I zel client hal ZelGetPMStatus"));

    hal().setAnswer("setRelatedSysInfo", result(-9));
    EXPECT_EQ(-9, setRelatedSysInfo(-1, INT64_MIN));
    EXPECT_EQ(-1, hal().last("setRelatedSysInfo").first);
    EXPECT_EQ(INT64_MIN, hal().last("setRelatedSysInfo").second);
}

}  // namespace
}  // namespace zel_test
