// The wrapper entry points end to end: through the flat API and the binder to a fake Torq HAL in
// its own process, checked at what the HAL received.

#include <binder_host/process.h>
#include <gtest/gtest.h>
#include <torq_test/Capture.h>
#include <torq_test/FakeTorqHal.h>

#include <android/log.h>
#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "ZelWrapper.h"

namespace {

using torq_test::Answer;
using torq_test::FakeTorqHal;
using torq_test::LogCapture;
using torq_test::LogLine;
using torq_test::RecordedCall;
using torq_test::TorqRequestData;

constexpr const char* kTag = "[ZEL_CLIENT_WRAPPER]";

// (opcode, value) as the HAL received it; an absent value shows as "<absent>".
using Entry = std::pair<uint32_t, std::string>;
using Entries = std::vector<Entry>;

Entries entriesOf(const std::vector<TorqRequestData>& data) {
    Entries out;
    for (const TorqRequestData& d : data) {
        out.emplace_back(static_cast<uint32_t>(d.id), d.value ? *d.value : "<absent>");
        // Only id and value are ever filled in.
        EXPECT_EQ(d.subId, 0);
        EXPECT_FALSE(d.path.has_value());
        EXPECT_FALSE(d.extra.has_value());
    }
    return out;
}

class WrapperHalTest : public ::testing::Test {
  protected:
    void SetUp() override {
        binder_host::reset();
        hal_ = std::make_unique<FakeTorqHal>();
    }
    void TearDown() override {
        // The HAL dies with the fake; the flat API drops its cached connection when the death
        // notice arrives, so wait for that before the next test starts.
        hal_.reset();
        binder_host::drain();
    }

    std::unique_ptr<FakeTorqHal> hal_;
};

// ---------------------------------------------------------------------------------------------
// ZelEventAcquireWrapper / ZelReleaseWapper

TEST_F(WrapperHalTest, AcquireSendsTheActionIndexAsEvent) {
    Answer answer;
    answer.result = 42;
    hal_->setAnswer("request", answer);

    EXPECT_EQ(ZelEventAcquireWrapper("VARDEX_ACTION_CAMERA_OPEN", "com.example.camera", "uid:1047",
                                     3000),
              42);

    ASSERT_EQ(hal_->count("request"), 1u);
    const RecordedCall call = hal_->last("request");
    EXPECT_EQ(call.parcel.kind, 8);
    ASSERT_EQ(call.parcel.data.size(), 1u);
    EXPECT_EQ(call.parcel.data[0].id, 11);
    EXPECT_FALSE(call.parcel.data[0].value.has_value());
    EXPECT_EQ(call.parcel.pkg, std::optional<std::string>("com.example.camera"));
    EXPECT_EQ(call.parcel.identity, std::optional<std::string>("uid:1047"));
    EXPECT_EQ(call.parcel.duration, 3000);
}

TEST_F(WrapperHalTest, AcquirePassesEmptyTextsAndNegativeTimeoutOnUnchanged) {
    ZelEventAcquireWrapper("VARDEX_ACTION_LAUNCH", "", "", -1);
    ASSERT_EQ(hal_->count("request"), 1u);
    const RecordedCall call = hal_->last("request");
    ASSERT_EQ(call.parcel.data.size(), 1u);
    EXPECT_EQ(call.parcel.data[0].id, 0);
    // "none" is only for the log.
    EXPECT_EQ(call.parcel.pkg, std::optional<std::string>(""));
    EXPECT_EQ(call.parcel.identity, std::optional<std::string>(""));
    EXPECT_EQ(call.parcel.duration, -1);
}

// Every name reaches the HAL as the index of its first occurrence: 91-94 and 102, never their
// repeats at 106-109 and 162.
TEST_F(WrapperHalTest, EveryActionNameAcquiresItsFirstIndex) {
    ASSERT_EQ(gActionList.size(), 199u);
    for (size_t i = 0; i < gActionList.size(); ++i) {
        const std::string& name = gActionList[i];
        const auto first = std::find(gActionList.begin(), gActionList.end(), name);
        const int expected = static_cast<int>(first - gActionList.begin());
        hal_->clearCalls();
        ZelEventAcquireWrapper("VARDEX_" + name, "scene", "id", 100);
        ASSERT_EQ(hal_->count("request"), 1u) << name;
        const RecordedCall call = hal_->last("request");
        ASSERT_EQ(call.parcel.data.size(), 1u) << name;
        EXPECT_EQ(call.parcel.data[0].id, expected) << name;
    }
    hal_->clearCalls();
    ZelEventAcquireWrapper("VARDEX_ACTION_CAMERA_APS_CAPTURE_L1", "", "", 0);
    ZelEventAcquireWrapper("VARDEX_ACTION_CAMERA_MULTI_SCENE", "", "", 0);
    ZelEventAcquireWrapper("VARDEX_ACTION_CAMERA_APS_INNER_THDR_CAPTURE_L1", "", "", 0);
    const std::vector<RecordedCall> calls = hal_->calls("request");
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[0].parcel.data.at(0).id, 91);
    EXPECT_EQ(calls[1].parcel.data.at(0).id, 102);
    EXPECT_EQ(calls[2].parcel.data.at(0).id, 198);
}

TEST_F(WrapperHalTest, UnknownNamesAcquireNothing) {
    for (const std::string eventId : {
                 "ACTION_LAUNCH",                        // no prefix
                 "xVARDEX_ACTION_LAUNCH",                // prefix not in front: cut too early
                 " VARDEX_ACTION_LAUNCH",                //
                 "VARDEX_VARDEX_ACTION_LAUNCH",          //
                 "VARDEX_",                              // nothing behind the prefix
                 "",                                     //
                 "VARDEX_action_launch",                 // case matters
                 "VARDEX_ACTION_LAUNCH ",                // no trimming
                 "VARDEX_ACTION_LAUNC",                  // no prefix match
                 "VARDEX_ACTION_CAMERA_STICKER_RECORD",  // the table spells it STIKER
                 "vardex_ACTION_LAUNCH",                 //
         }) {
        EXPECT_EQ(ZelEventAcquireWrapper(eventId, "scene", "id", 10), -1) << '"' << eventId << '"';
    }
    EXPECT_TRUE(hal_->calls().empty());
}

TEST_F(WrapperHalTest, ReleaseForwardsTheHandle) {
    ZelReleaseWapper(7);
    ZelReleaseWapper(-3);
    const std::vector<RecordedCall> calls = hal_->calls("release");
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].handle, 7);
    EXPECT_EQ(calls[1].handle, -3);
}

TEST_F(WrapperHalTest, EntryPointsLogTheirEntryLine) {
    LogCapture log;
    EXPECT_EQ(ZelEventAcquireWrapper("", "", "", 0), -1);
    ZelEventAcquireWrapper("VARDEX_ACTION_WFD", "com.example.cast", "uid:7", 250);
    ZelReleaseWapper(12);
    ZelNotifyWapper("", 3, 1, 0, 0, 0, "");
    ZelNotifyWapper("game", 4, 0, 0, 0, 0, "ignored");

    std::vector<std::string> texts;
    for (const LogLine& line : log.linesWithTag(kTag)) {
        EXPECT_EQ(line.priority, ANDROID_LOG_INFO) << line.text;
        texts.push_back(line.text);
    }
    EXPECT_EQ(texts, (std::vector<std::string>{
                             "[ZelEventAcquireWrapper] eventId:none, scene:none, identity:none, "
                             "timeout:0",
                             "[ZelEventAcquireWrapper] eventId:VARDEX_ACTION_WFD, "
                             "scene:com.example.cast, identity:uid:7, timeout:250",
                             "[ZelReleaseWapper] 12",
                             "[ZelNotifyWapper] none, src:3, type:1",
                             "[ZelNotifyWapper] game, src:4, type:0",
                     }));
}

// ---------------------------------------------------------------------------------------------
// ZelNotifyWapper: one row per dispatch case

struct NotifyCase {
    std::string label;
    int src;
    int type;
    int param;
    std::string data;
    bool sends;  // false: nothing may reach the HAL
    int32_t rule = 0;
    int32_t status = 0;
    Entries entries;
};

void PrintTo(const NotifyCase& c, std::ostream* os) {
    *os << "src " << c.src << ", type " << c.type << ", param " << c.param << ", data \"" << c.data
        << '"';
}

NotifyCase sends(std::string label, int src, int type, int param, std::string data, int32_t rule,
                 int32_t status, Entries entries = {}) {
    return {std::move(label),  src, type, param, std::move(data), true, rule, status,
            std::move(entries)};
}

NotifyCase silent(std::string label, int src, int type, int param = 1,
                  std::string data = "1,2;3,4") {
    return {std::move(label), src, type, param, std::move(data), false, 0, 0, {}};
}

std::vector<NotifyCase> notifyCases() {
    std::vector<NotifyCase> cases = {
            // Forwarded as they are.
            sends("Src1", 1, 5, 9, "x", 1, 5),
            sends("Src10", 10, 0, 0, "", 10, 0),
            sends("Src11", 11, 1, 0, "", 11, 1),
            sends("Src12NegativeType", 12, -3, 0, "", 12, -3),
            sends("Src16", 16, 2, 0, "", 16, 2),
            sends("Src110", 110, 1, 0, "", 110, 1),
            sends("Src129", 129, 0, 0, "", 129, 0),
            sends("Src1000", 1000, 77, 0, "", 1000, 77),
            // Folded into rule 200.
            sends("Src2On", 2, 1, 0, "", 200, 2),
            sends("Src3On", 3, 1, 0, "", 200, 3),
            sends("Src3Off", 3, 0, 0, "", 200, 0),
            sends("Src5On", 5, 1, 0, "", 200, 5),
            sends("Src6On", 6, 1, 0, "", 200, 6),
            sends("Src6OtherType", 6, 2, 0, "", 200, 0),
            // 8
            sends("Src8Type0IgnoresParam", 8, 0, 1, "", 8, 0),
            sends("Src8Type1Param1", 8, 1, 1, "", 8, 1, {{0x010103A0, "0"}}),
            sends("Src8Type2Param1", 8, 2, 1, "", 8, 2, {{0x010103A0, "0"}}),
            sends("Src8Type1Param0", 8, 1, 0, "", 8, 1),
            sends("Src8Type2Param2", 8, 2, 2, "", 8, 2),
            silent("Src8Type3", 8, 3),
            silent("Src8TypeMinus1", 8, -1),
            // 9: switching off carries no entry at all.
            sends("Src9Off", 9, 0, 0, "", 9, 0),
            sends("Src9On", 9, 1, 0, "", 9, 1, {{0x010112F0, "enable 0"}, {0x01011910, "0"}}),
            silent("Src9Type2", 9, 2),
            // 14
            sends("Src14Clear", 14, 0, 5, "pkg", 14, 0, {{0x01011040, "-1"}, {0x01011040, ""}}),
            sends("Src14Upgrade", 14, 1, 3, "com.game", 14, 1,
                  {{0x01011040, "3"}, {0x010115B0, "com.game"}}),
            sends("Src14UpgradeNothingToSet", 14, 1, 0, "", 14, 1),
            silent("Src14Type2", 14, 2),
            // 15: type in the low byte, param above it.
            sends("Src15Type1Param5", 15, 1, 5, "", 15, 0x501),
            sends("Src15TypeMinus1Param0", 15, -1, 0, "", 15, 0xFF),
            sends("Src15Type0", 15, 0, 0x12345678, "", 15, 0x34567800),
            sends("Src15AllBits", 15, -1, -1, "", 15, -1),
            silent("Src15Type2", 15, 2),
            silent("Src15TypeMinus2", 15, -2),
            // 102
            sends("Src102Param0", 102, 1, 0, "", 102, 1, {{0x01011070, "3"}}),
            sends("Src102ParamMinus1", 102, 1, -1, "", 102, 1, {{0x01011070, "3"}}),
            sends("Src102Param7", 102, 1, 7, "", 102, 1, {{0x01011070, "7"}}),
            sends("Src102ParamMinus5", 102, 1, -5, "", 102, 1, {{0x01011070, "-5"}}),
            sends("Src102Off", 102, 0, 9, "", 102, 0, {{0x01011070, "0"}}),
            silent("Src102Type2", 102, 2),
            // 111
            sends("Src111TypeMinus1", 111, -1, 0, "", 111, -1, {{0x010103A0, "-1"}}),
            sends("Src111Type0", 111, 0, 0, "", 111, 0, {{0x010103A0, "0"}}),
            sends("Src111Type1", 111, 1, 0, "", 111, 1, {{0x010103A0, "1"}}),
            silent("Src111Type2", 111, 2),
            // 130: target load
            sends("Src130Off", 130, 0, 0, "1-200", 130, 0),
            sends("Src130On", 130, 1, 0, "1-200,2-300", 130, 1,
                  {{0x010108A0, "200"}, {0x010108B0, "300"}}),
            sends("Src130OnNothingParsed", 130, 1, 0, ",,", 130, 1),
            silent("Src130OnNoData", 130, 1, 0, ""),
            silent("Src130Type2", 130, 2),
            // 131: colocation
            sends("Src131Off", 131, 0, 0, "", 131, 0),
            sends("Src131On", 131, 1, 0, "colocation:1,groupmigrate:5-3", 131, 1,
                  {{0x01011040, "1"}, {0x01010FB0, "5"}, {0x01010FC0, "3"}}),
            sends("Src131OnNothingParsed", 131, 1, 0, "colocation=1", 131, 1),
            silent("Src131OnNoData", 131, 1, 0, ""),
            silent("Src131Type2", 131, 2, 0, "colocation:1"),
            // 9000: game adaptation
            sends("Src9000Off", 9000, 0, 0, "", 9000, 0),
            sends("Src9000On", 9000, 1, 0, "1,2;3", 9000, 1, {{0x01010B10, "1"}, {0x01010B20, "2"}}),
            silent("Src9000OnNoData", 9000, 1, 0, ""),
            silent("Src9000Type2", 9000, 2),
    };
    // Numbers with no row of their own, including the neighbours of every handled one.
    for (int src :
         {-1, 0, 4, 7, 13, 17, 50, 101, 103, 109, 112, 128, 132, 999, 1001, 8999, 9001, -9000}) {
        const std::string name = src < 0 ? "Minus" + std::to_string(-src) : std::to_string(src);
        for (int type : {-1, 0, 1}) {
            const std::string typeName = type < 0 ? "Minus1" : std::to_string(type);
            cases.push_back(silent("Src" + name + "Type" + typeName, src, type));
        }
    }
    return cases;
}

class NotifyDispatchTest : public WrapperHalTest,
                           public ::testing::WithParamInterface<NotifyCase> {};

TEST_P(NotifyDispatchTest, SendsAtMostOneRule) {
    const NotifyCase& c = GetParam();
    EXPECT_EQ(ZelNotifyWapper("notifier", c.src, c.type, c.param, 123, 456, c.data), 0);
    if (!c.sends) {
        EXPECT_TRUE(hal_->calls().empty());
        return;
    }
    ASSERT_EQ(hal_->count("ruleCtl"), 1u);
    EXPECT_EQ(hal_->calls().size(), 1u);
    const RecordedCall call = hal_->last("ruleCtl");
    EXPECT_EQ(call.first, c.rule);
    EXPECT_EQ(call.status, c.status);
    EXPECT_EQ(entriesOf(call.entries), c.entries);
}

INSTANTIATE_TEST_SUITE_P(Rows, NotifyDispatchTest, ::testing::ValuesIn(notifyCases()),
                         [](const ::testing::TestParamInfo<NotifyCase>& info) {
                             return info.param.label;
                         });

TEST_F(WrapperHalTest, ClearGameUpgradeSendsTheClearingList) {
    clrGameUpgradeMode(31, -4);
    ASSERT_EQ(hal_->count("ruleCtl"), 1u);
    const RecordedCall call = hal_->last("ruleCtl");
    EXPECT_EQ(call.first, 31);
    EXPECT_EQ(call.status, -4);
    EXPECT_EQ(entriesOf(call.entries), (Entries{{0x01011040, "-1"}, {0x01011040, ""}}));
}

TEST_F(WrapperHalTest, NotifyReturnsZeroWhenTheHalFails) {
    Answer failure;
    failure.exception = EX_SERVICE_SPECIFIC;
    failure.serviceSpecificError = 5;
    hal_->setAnswer("ruleCtl", failure);
    EXPECT_EQ(ZelNotifyWapper("n", 1, 1, 0, 0, 0, ""), 0);
    EXPECT_EQ(hal_->count("ruleCtl"), 1u);

    hal_->kill();
    binder_host::drain();
    EXPECT_EQ(ZelNotifyWapper("n", 102, 1, 0, 0, 0, ""), 0);
    EXPECT_EQ(ZelEventAcquireWrapper("VARDEX_ACTION_LAUNCH", "", "", 0), -1);
}

// The wrappers keep no state of their own: callers on many threads at once each get their own
// rule and event through.
TEST_F(WrapperHalTest, ConcurrentCallersEachReachTheHal) {
    constexpr int kThreads = 4;
    constexpr int kCalls = 25;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < kCalls; ++i) {
                ZelNotifyWapper("n", 102, 1, 1000 * t + i + 1, 0, 0, "");
                ZelEventAcquireWrapper("VARDEX_" + gActionList[(t * kCalls + i) % 199], "", "", 0);
            }
        });
    }
    for (std::thread& th : threads) th.join();

    std::vector<std::string> values;
    for (const RecordedCall& call : hal_->calls("ruleCtl")) {
        ASSERT_EQ(call.entries.size(), 1u);
        values.push_back(call.entries[0].value.value_or("<absent>"));
    }
    std::vector<std::string> expected;
    for (int t = 0; t < kThreads; ++t) {
        for (int i = 0; i < kCalls; ++i) expected.push_back(std::to_string(1000 * t + i + 1));
    }
    std::sort(values.begin(), values.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(values, expected);
    EXPECT_EQ(hal_->count("request"), static_cast<size_t>(kThreads * kCalls));
}

}  // namespace
