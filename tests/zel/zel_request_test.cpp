// What the HAL receives from the acquisition, release, notify, system-info and rule calls, what
// the caller gets back, and the log and trace lines around them.

#include <climits>
#include <string>
#include <vector>

#include "ZelTest.h"

namespace zel_test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ZelAcquireTest : public ZelTest {};

TEST_F(ZelAcquireTest, EventSendsKind8WithCommandEntryBeforeResources) {
    FakeTorqHal& hal = startHal();
    hal.setAnswer("request", result(42));

    EXPECT_EQ(42, ZelEventAcquire(11, "com.example.cam", "cameraserver", 3000,
                                  {{0x010108a0, "1500"}, {0x02, std::nullopt}, {0, ""}}));

    TorqRequestParcel expected;  // every field not set here must arrive at its default
    expected.kind = 8;
    expected.data = {entry(11), entry(0x010108a0, "1500"), entry(0x02, ""), entry(0, "")};
    expected.pkg = "com.example.cam";
    expected.identity = "cameraserver";
    expected.duration = 3000;
    ASSERT_EQ(1u, hal.count("request"));
    EXPECT_EQ(expected, hal.last("request").parcel);
    EXPECT_FALSE(hal.last("request").hasCallback);
    EXPECT_THAT(zelLog(), ElementsAre(info("ZelEventAcquire, cmdid:11, pkg:com.example.cam, "
                                           "identity:cameraserver")));
}

TEST_F(ZelAcquireTest, EmptyTextsTravelPresentAndShowAsNone) {
    FakeTorqHal& hal = startHal();

    ZelEventAcquire(5, "", "", 0, {});

    TorqRequestParcel expected;
    expected.kind = 8;
    expected.data = {entry(5)};
    expected.pkg = "";
    expected.identity = "";
    EXPECT_EQ(expected, hal.last("request").parcel);
    EXPECT_THAT(zelLog(), ElementsAre(info("ZelEventAcquire, cmdid:5, pkg:none, identity:none")));
    const std::vector<TraceEvent> events = trace_.events();
    ASSERT_EQ(2u, events.size());
    EXPECT_EQ(TraceEvent::kBegin, events[0].kind);
    EXPECT_EQ("ZelEventAcquire  cmd_id:5 pkg:none identity:none duration:0", events[0].name);
    EXPECT_EQ(TraceEvent::kEnd, events[1].kind);
}

TEST_F(ZelAcquireTest, ResAcquireSendsKind1WithoutCommandEntry) {
    FakeTorqHal& hal = startHal();
    hal.setAnswer("request", result(7));

    EXPECT_EQ(7, ZelResAcquire({{0x00404000, "1"}, {0x00408000, std::nullopt}}, 99, "launcher", -1));

    TorqRequestParcel expected;
    expected.kind = 1;
    expected.data = {entry(0x00404000, "1"), entry(0x00408000, "")};
    expected.pkg = "";
    expected.identity = "launcher";
    expected.duration = -1;  // sign-extended, not 4294967295
    EXPECT_EQ(expected, hal.last("request").parcel);
    EXPECT_THAT(zelLog(),
                ElementsAre(info("ZelResAcquire"), info("ZelEventAcquire, cmdid:-2, pkg:none, "
                                                        "identity:launcher")));
    ASSERT_FALSE(trace_.events().empty());
    EXPECT_EQ("ZelEventAcquire  cmd_id:-2 pkg:none identity:launcher duration:-1",
              trace_.events()[0].name);
}

TEST_F(ZelAcquireTest, PlatformResAcquireSendsKind12WithPackage) {
    FakeTorqHal& hal = startHal();

    ZelPlatformResAcquire({{0x00404000, "2"}}, 0, "svc", "com.vendor.game", INT32_MIN);

    TorqRequestParcel expected;
    expected.kind = 12;
    expected.data = {entry(0x00404000, "2")};
    expected.pkg = "com.vendor.game";
    expected.identity = "svc";
    expected.duration = INT32_MIN;
    EXPECT_EQ(expected, hal.last("request").parcel);
    EXPECT_THAT(zelLog(), ElementsAre(info("ZelPlatformResAcquire"),
                                      info("ZelEventAcquire, cmdid:-3, pkg:com.vendor.game, "
                                           "identity:svc")));
}

TEST_F(ZelAcquireTest, HandleFromAnOkCallIsReturnedUnchecked) {
    FakeTorqHal& hal = startHal();
    for (int32_t handle : {0, -5, INT32_MAX}) {
        hal.setAnswer("request", result(handle));
        EXPECT_EQ(handle, ZelEventAcquire(1, "p", "i", 10, {}));
    }
}

TEST_F(ZelAcquireTest, RefusedRequestReturnsMinusOneAndLogsBothLines) {
    FakeTorqHal& hal = startHal();
    for (const Answer& bad : {refused(), transactionFailed()}) {
        clearCaptures();
        hal.answerOnce("request", bad);
        EXPECT_EQ(-1, ZelEventAcquire(3, "p", "i", 10, {}));
        EXPECT_THAT(zelLog(),
                    ElementsAre(info("ZelEventAcquire, cmdid:3, pkg:p, identity:i"),
                                error("ZelEventAcquire() failed : torq HAL service not available"),
                                error("torqResCtlRequest error:-1")));
    }
}

TEST_F(ZelAcquireTest, TraceNameIsCutButParcelKeepsTheWholeText) {
    FakeTorqHal& hal = startHal();
    // The description " cmd_id:1 pkg:" + pkg + " identity:i duration:2" is 36 characters plus
    // the package; the name holds "ZelEventAcquire " and at most 1006 characters of it.
    for (size_t pkgLength : {970u, 971u, 2000u}) {
        trace_.clear();
        const std::string pkg(pkgLength, 'p');
        const std::string full = "ZelEventAcquire  cmd_id:1 pkg:" + pkg + " identity:i duration:2";
        ZelEventAcquire(1, pkg, "i", 2, {});
        ASSERT_FALSE(trace_.events().empty());
        EXPECT_EQ(full.substr(0, 1022), trace_.events()[0].name) << "package of " << pkgLength;
        EXPECT_EQ(pkg, hal.last("request").parcel.pkg);
    }
}

TEST_F(ZelAcquireTest, TraceNameEndsAtAnEmbeddedNul) {
    FakeTorqHal& hal = startHal();
    const std::string pkg("ab\0cd", 5);

    ZelEventAcquire(1, pkg, "i", 2, {});

    ASSERT_FALSE(trace_.events().empty());
    EXPECT_EQ("ZelEventAcquire  cmd_id:1 pkg:ab", trace_.events()[0].name);
    EXPECT_THAT(zelLog(), ElementsAre(info("ZelEventAcquire, cmdid:1, pkg:ab, identity:i")));
    EXPECT_EQ(pkg, hal.last("request").parcel.pkg);
}

TEST_F(ZelAcquireTest, NoTraceSectionUnlessTheAlwaysTagIsOn) {
    FakeTorqHal& hal = startHal();
    for (uint64_t tags : {uint64_t{0}, uint64_t{~1ull}}) {
        trace_.setEnabledTags(tags);
        ZelEventAcquire(1, "p", "i", 2, {});
        ZelRelease(4);
        EXPECT_THAT(trace_.events(), IsEmpty()) << "tags " << tags;
    }
    EXPECT_EQ(2u, hal.count("request"));
    EXPECT_EQ(2u, hal.count("release"));
}

// The mark records the request itself, so it is made before (and whether or not) a HAL is reached.
TEST_F(ZelAcquireTest, TraceMarksAreMadeWithoutAHal) {
    EXPECT_EQ(-1, ZelEventAcquire(2, "p", "i", 3, {}));
    ZelRelease(8);

    const std::vector<TraceEvent> events = trace_.events();
    ASSERT_EQ(4u, events.size());
    EXPECT_EQ(TraceEvent::kBegin, events[0].kind);
    EXPECT_EQ("ZelEventAcquire  cmd_id:2 pkg:p identity:i duration:3", events[0].name);
    EXPECT_EQ(TraceEvent::kEnd, events[1].kind);
    EXPECT_EQ(TraceEvent::kBegin, events[2].kind);
    EXPECT_EQ("ZelRelease: 8", events[2].name);
    EXPECT_EQ(TraceEvent::kEnd, events[3].kind);
}

TEST_F(ZelAcquireTest, ReleaseSendsTheHandle) {
    FakeTorqHal& hal = startHal();

    ZelRelease(-17);

    EXPECT_EQ(-17, hal.last("release").handle);
    EXPECT_THAT(zelLog(), ElementsAre(info("ZelRelease, handle:-17")));
    const std::vector<TraceEvent> events = trace_.events();
    ASSERT_EQ(2u, events.size());
    EXPECT_EQ(TraceEvent::kBegin, events[0].kind);
    EXPECT_EQ("ZelRelease: -17", events[0].name);
    EXPECT_EQ(TraceEvent::kEnd, events[1].kind);
}

class ZelNotifyTest : public ZelTest {};

TEST_F(ZelNotifyTest, OneIdenticalEntryPerValueAndNoExtras) {
    FakeTorqHal& hal = startHal();
    hal.setAnswer("request", result(-4));

    EXPECT_EQ(-4, ZelNotify(3, 7, {10, 20, 30}));

    TorqRequestParcel expected;  // extras must stay absent although values were given
    expected.kind = 10;
    expected.data = {entry(3, std::nullopt, 7), entry(3, std::nullopt, 7),
                     entry(3, std::nullopt, 7)};
    EXPECT_EQ(expected, hal.last("request").parcel);
    EXPECT_THAT(zelLog(), ElementsAre(info("ZelNotify enter")));
}

TEST_F(ZelNotifyTest, NoValuesStillSendOneEntry) {
    FakeTorqHal& hal = startHal();

    ZelNotify(3, 7, {});

    TorqRequestParcel expected;
    expected.kind = 10;
    expected.data = {entry(3, std::nullopt, 7)};
    EXPECT_EQ(expected, hal.last("request").parcel);
}

TEST_F(ZelNotifyTest, SysInfoForwardsBothValuesUntouchedAndLogsNothing) {
    FakeTorqHal& hal = startHal();
    hal.setAnswer("setRelatedSysInfo", result(-9));

    EXPECT_EQ(-9, setRelatedSysInfo(4, 0x123456789aLL));
    EXPECT_EQ(-9, setRelatedSysInfo(-1, INT64_MIN));

    const std::vector<RecordedCall> calls = hal.calls("setRelatedSysInfo");
    ASSERT_EQ(2u, calls.size());
    EXPECT_EQ(4, calls[0].first);
    EXPECT_EQ(0x123456789aLL, calls[0].second);
    EXPECT_EQ(-1, calls[1].first);
    EXPECT_EQ(INT64_MIN, calls[1].second);
    EXPECT_THAT(zelLog(), IsEmpty());
}

TEST_F(ZelNotifyTest, RuleCtlSendsOneEntryPerResourceWithValuePresent) {
    FakeTorqHal& hal = startHal();
    hal.setAnswer("ruleCtl", result(6));

    EXPECT_EQ(6, zelRuleCtl(200, 3, {{0x100, "1"}, {0x200, std::nullopt}}));
    EXPECT_EQ(6, zelRuleCtl(201, 0, {}));

    const std::vector<RecordedCall> calls = hal.calls("ruleCtl");
    ASSERT_EQ(2u, calls.size());
    EXPECT_EQ(200, calls[0].first);
    EXPECT_EQ(3, calls[0].status);
    EXPECT_THAT(calls[0].entries, ElementsAre(entry(0x100, "1"), entry(0x200, "")));
    EXPECT_EQ(201, calls[1].first);
    EXPECT_EQ(0, calls[1].status);
    EXPECT_THAT(calls[1].entries, IsEmpty());
    EXPECT_THAT(zelLog(), ElementsAre(info("zelRuleCtl, ruleId:200, status:3"),
                                      info("zelRuleCtl, ruleId:201, status:0")));
}

}  // namespace
}  // namespace zel_test
