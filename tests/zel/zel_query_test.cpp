// State, history and power-mode queries: the request the HAL receives and how its answer is read.

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "ZelTest.h"

namespace zel_test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using torq_test::idRecord;
using Resources = std::vector<ZelClient::Resource>;

class ZelStateTest : public ZelTest {};

TEST_F(ZelStateTest, SendsOnlyTheIdsAsKind0) {
    FakeTorqHal& hal = startHal();
    Resources res = {{0x10, "5"}, {0x20, std::nullopt}};

    ZelMutiResStateRequest(res);

    TorqRequestParcel expected;
    expected.data = {entry(0x10), entry(0x20)};
    EXPECT_EQ(expected, hal.last("stateRequest").parcel);
}

TEST_F(ZelStateTest, FillsEachResourceFromTheFirstMatchingRecord) {
    FakeTorqHal& hal = startHal();
    hal.setAnswer("stateRequest",
                  records({idRecord(0x20, "b"), idRecord(0x10, "a"), idRecord(0x10, "z")}));
    Resources res = {{0x10, std::nullopt}, {0x20, "old"}, {0x10, ""}};

    EXPECT_EQ(3, ZelMutiResStateRequest(res));

    EXPECT_EQ("a", res[0].value);
    EXPECT_EQ("b", res[1].value);
    EXPECT_EQ("a", res[2].value);
    EXPECT_THAT(zelLog(), ElementsAre(info("ZelMutiResStateRequest enter"),
                                      debug("get resource value, opcode 0x00000010, value a"),
                                      debug("get resource value, opcode 0x00000020, value b"),
                                      debug("get resource value, opcode 0x00000010, value a")));
}

TEST_F(ZelStateTest, UnmatchedAndValuelessRecordsLeaveResourcesAlone) {
    FakeTorqHal& hal = startHal();
    hal.setAnswer("stateRequest", records({idRecord(0x99, "x"), idRecord(0x30)}));
    Resources res = {{0x10, "keep"}, {0x30, "keep too"}, {0x20, std::nullopt}};

    EXPECT_EQ(0, ZelMutiResStateRequest(res));

    EXPECT_EQ("keep", res[0].value);
    EXPECT_EQ("keep too", res[1].value);
    EXPECT_FALSE(res[2].value.has_value());
    EXPECT_THAT(zelLog(), ElementsAre(info("ZelMutiResStateRequest enter"),
                                      info("not match any opcode in zelcore"),
                                      info("not match any opcode in zelcore")));
}

TEST_F(ZelStateTest, NoRecordsIsAFailure) {
    startHal();
    Resources res = {{0x10, "keep"}};

    EXPECT_EQ(-1, ZelMutiResStateRequest(res));

    EXPECT_EQ("keep", res[0].value);
    EXPECT_THAT(zelLog(), ElementsAre(info("ZelMutiResStateRequest enter"),
                                      error("failed to get resource value")));
}

TEST_F(ZelStateTest, EmptyInputFailsButConnectsFirst) {
    FakeTorqHal& hal = startHal();
    Resources none;

    EXPECT_EQ(-1, ZelMutiResStateRequest(none));
    EXPECT_THAT(zelLog(), ElementsAre(info("ZelMutiResStateRequest enter"),
                                      error("input resource is empty, return")));
    EXPECT_EQ(0u, hal.count("stateRequest"));

    // The connection made by the failed call is used without looking the service up again.
    undeclare();
    std::string history;
    hal.setAnswer("stateRequest", records({historyRecord("h")}));
    EXPECT_EQ(0, ZelGetHistory(history));
}

TEST_F(ZelStateTest, SingleResourceQueryWritesOnlyAFoundValue) {
    FakeTorqHal& hal = startHal();
    std::string value = "untouched";

    hal.setAnswer("stateRequest", records({idRecord(0x0a)}));
    ZelResStateRequest(0x0a, value);
    EXPECT_EQ("untouched", value);
    hal.setAnswer("stateRequest", records({idRecord(0x0b, "7")}));
    ZelResStateRequest(0x0a, value);
    EXPECT_EQ("untouched", value);

    hal.setAnswer("stateRequest", records({idRecord(0x0a, "1500")}));
    clearCaptures();
    ZelResStateRequest(0x0a, value);
    EXPECT_EQ("1500", value);

    TorqRequestParcel expected;
    expected.data = {entry(0x0a)};
    EXPECT_EQ(expected, hal.last("stateRequest").parcel);
    EXPECT_THAT(zelLog(),
                ElementsAre(info("ZelResStateRequest enter"), info("ZelMutiResStateRequest enter"),
                            debug("get resource value, opcode 0x0000000a, value 1500")));
}

TEST_F(ZelStateTest, SingleResourceValueEndsAtItsFirstNul) {
    FakeTorqHal& hal = startHal();
    hal.setAnswer("stateRequest", records({idRecord(0x0a, std::string("12\0"
                                                                      "34",
                                                                      5))}));
    std::string value;

    ZelResStateRequest(0x0a, value);

    EXPECT_EQ("12", value);
}

class ZelHistoryTest : public ZelTest {};

TEST_F(ZelHistoryTest, JoinsExtrasWithNoneForAbsentOnes) {
    FakeTorqHal& hal = startHal();
    hal.setAnswer("stateRequest",
                  records({historyRecord("a"), historyRecord(std::nullopt), historyRecord("c")}));
    std::string history = "old";

    EXPECT_EQ(0, ZelGetHistory(history));

    EXPECT_EQ("start:a;none;c;end", history);
    TorqRequestParcel expected;
    expected.kind = 11;
    EXPECT_EQ(expected, hal.last("stateRequest").parcel);
    EXPECT_THAT(zelLog(),
                ElementsAre(info("zel client ZelGetHistory"), info("zel client hal ZelGetHistory"),
                            debug("get history successful: start:a;none;c;end")));

    hal.setAnswer("stateRequest", records({historyRecord(std::nullopt)}));
    EXPECT_EQ(0, ZelGetHistory(history));
    EXPECT_EQ("start:none;end", history);
}

TEST_F(ZelHistoryTest, NoRecordsLeavesTheOutputUntouched) {
    startHal();
    std::string history = "old";

    EXPECT_EQ(-1, ZelGetHistory(history));

    EXPECT_EQ("old", history);
    EXPECT_THAT(zelLog(),
                ElementsAre(info("zel client ZelGetHistory"), info("zel client hal ZelGetHistory"),
                            error("failed to get history or return vector empty, data vector "
                                  "size 0")));
}

class ZelPowerModeTest : public ZelTest {
  protected:
    // The value the HAL reports for the mode, and what ZelGetPMStatus makes of it.
    int32_t statusFor(std::optional<std::string> value) {
        hal().setAnswer("stateRequest", records({idRecord(4, std::move(value))}));
        return ZelGetPMStatus(4);
    }
    // The message the standard library gives for a failed conversion of `text`.
    template <typename Exception>
    static std::string stoiMessage(const std::string& text) {
        try {
            (void)std::stoi(text);
        } catch (const Exception& e) {
            return e.what();
        }
        return "<no exception>";
    }
};

TEST_F(ZelPowerModeTest, SendsTheModeAsKind13) {
    FakeTorqHal& hal = startHal();

    statusFor("1");

    TorqRequestParcel expected;
    expected.kind = 13;
    expected.data = {entry(4)};
    EXPECT_EQ(expected, hal.last("stateRequest").parcel);
    EXPECT_THAT(zelLog(), ElementsAre(info("zel client ZelGetPMStatus"),
                                      info("zel client hal ZelGetPMStatus")));
}

TEST_F(ZelPowerModeTest, ParsesTheLeadingDecimalNumber) {
    startHal();
    EXPECT_EQ(12, statusFor("12abc"));
    EXPECT_EQ(-7, statusFor("  -7"));
    EXPECT_EQ(INT32_MAX, statusFor("2147483647"));
}

TEST_F(ZelPowerModeTest, UnparsableValuesPrintToStandardOutput) {
    startHal();

    ::testing::internal::CaptureStdout();
    EXPECT_EQ(-1, statusFor("abc"));
    EXPECT_EQ("Invalid argument exception: " + stoiMessage<std::invalid_argument>("abc") + "\n",
              ::testing::internal::GetCapturedStdout());

    ::testing::internal::CaptureStdout();
    EXPECT_EQ(-1, statusFor("2147483648"));
    EXPECT_EQ("Out of range exception: " + stoiMessage<std::out_of_range>("2147483648") + "\n",
              ::testing::internal::GetCapturedStdout());

    // Nothing of it reaches the log.
    for (const LogLine& line : zelLog()) {
        EXPECT_EQ(ANDROID_LOG_INFO, line.priority) << line.text;
    }
}

TEST_F(ZelPowerModeTest, AbsentValueThrowsToTheCaller) {
    startHal();
    EXPECT_THROW(statusFor(std::nullopt), std::bad_optional_access);
}

TEST_F(ZelPowerModeTest, NoRecordsIsAFailure) {
    startHal();

    EXPECT_EQ(-1, ZelGetPMStatus(9));

    EXPECT_THAT(zelLog(), ElementsAre(info("zel client ZelGetPMStatus"),
                                      info("zel client hal ZelGetPMStatus"),
                                      error("failed to get power mode status, mode 9, data vector "
                                            "size 0")));
}

}  // namespace
}  // namespace zel_test
