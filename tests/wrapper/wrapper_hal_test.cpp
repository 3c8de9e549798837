// The wrapper entry points end to end: through the flat API and the binder to the reference Torq
// HAL in its own process, checked at what the HAL received.

#include <torq_test/HalTest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "ZelWrapper.h"

namespace {

using namespace torq_test;
using torq_sim::ReceivedCall;
using Entries = std::vector<std::pair<int32_t, std::string>>;  // (opcode, value)
using WrapperHalTest = HalTest;

// The records the HAL must receive: these ids and values, every other field at its default.
std::vector<TorqRequestData> sent(const Entries& entries) {
    std::vector<TorqRequestData> out;
    for (const auto& [id, value] : entries) out.push_back(idRecord(id, value));
    return out;
}

// Every name reaches the HAL as the index of its first occurrence: 91-94 and 102, never their
// repeats at 106-109 and 162. Anything else acquires nothing.
TEST_F(WrapperHalTest, ActionNamesResolveToTheirFirstIndex) {
    for (const std::string& name : gActionList) {
        const auto first = std::find(gActionList.begin(), gActionList.end(), name);
        hal().clearCalls();
        ZelEventAcquireWrapper("VARDEX_" + name, "scene", "id", 100);
        ASSERT_EQ(hal().count("request"), 1u) << name;
        const int32_t id = first - gActionList.begin();
        EXPECT_EQ(hal().last("request").parcel.data, std::vector{idRecord(id)}) << name;
    }
    // The texts and the timeout go on unchanged.
    hal().answerOnce("request", result(42));
    EXPECT_EQ(ZelEventAcquireWrapper("VARDEX_ACTION_CAMERA_OPEN", "com.example.camera", "uid:1047",
                                     3000),
              42);
    EXPECT_EQ(hal().last("request").parcel,
              acquisition(8, {idRecord(11)}, "com.example.camera", "uid:1047", 3000));
    hal().clearCalls();
    for (const std::string eventId : {
                 "ACTION_LAUNCH",          // no prefix
                 "xVARDEX_ACTION_LAUNCH",  // prefix not in front: cut too early
                 "VARDEX_ACTION_LAUNC",    // no prefix match
         }) {
        EXPECT_EQ(ZelEventAcquireWrapper(eventId, "scene", "id", 10), -1) << '"' << eventId << '"';
    }
    EXPECT_TRUE(hal().calls().empty());
    // A release goes on with the caller's handle.
    ZelReleaseWapper(-3);
    EXPECT_EQ(hal().last("release").handle, -3);
}

struct NotifyRow {
    int src;
    int type;
    int param;
    std::string data;
    bool sends;  // false: nothing may reach the HAL
    int32_t rule;
    int32_t status;
    Entries entries;
};

NotifyRow sends(int src, int type, int param, std::string data, int32_t rule, int32_t status,
                Entries entries = {}) {
    return {src, type, param, std::move(data), true, rule, status, std::move(entries)};
}

NotifyRow silent(int src, int type, int param = 1, std::string data = "1,2;3,4") {
    return {src, type, param, std::move(data), false, 0, 0, {}};
}

// One row per dispatch branch: at most one rule goes out, with exactly these entries. The HAL
// refuses every rule: the notification still answers 0.
TEST_F(WrapperHalTest, NotifySendsAtMostOneRule) {
    hal().setAnswer("ruleCtl", refused());
    std::vector<NotifyRow> rows = {
            // Forwarded as they are.
            sends(1, 5, 9, "x", 1, 5), sends(12, -3, 0, "", 12, -3),
            sends(1000, 77, 0, "", 1000, 77),
            // Folded into rule 200: the notification number while on, else 0.
            sends(2, 1, 0, "", 200, 2), sends(6, 1, 0, "", 200, 6), sends(6, 2, 0, "", 200, 0),
            // 8: the camera boost entry only with param 1.
            sends(8, 0, 1, "", 8, 0), sends(8, 1, 0, "", 8, 1),
            sends(8, 2, 1, "", 8, 2, {{0x010103A0, "0"}}), silent(8, 3),
            // 9: switching off carries no entry at all.
            sends(9, 0, 0, "", 9, 0),
            sends(9, 1, 0, "", 9, 1, {{0x010112F0, "enable 0"}, {0x01011910, "0"}}), silent(9, 2),
            sends(14, 0, 5, "pkg", 14, 0, {{0x01011040, "-1"}, {0x01011040, ""}}),
            sends(14, 1, 3, " com.game ", 14, 1, {{0x01011040, "3"}, {0x010115B0, " com.game "}}),
            sends(14, 1, 0, "", 14, 1), silent(14, 2),
            // 15: type in the low byte, the low 24 bits of param above it.
            sends(15, -1, 5, "", 15, 0x5FF), sends(15, 0, 0x12345678, "", 15, 0x34567800),
            silent(15, 2), silent(15, -2),
            // 102: level 3 stands in for 0 and -1.
            sends(102, 1, 0, "", 102, 1, {{0x01011070, "3"}}),
            sends(102, 1, -1, "", 102, 1, {{0x01011070, "3"}}),
            sends(102, 1, -5, "", 102, 1, {{0x01011070, "-5"}}),
            sends(102, 0, 9, "", 102, 0, {{0x01011070, "0"}}), silent(102, 2),
            sends(111, -1, 0, "", 111, -1, {{0x010103A0, "-1"}}), silent(111, 2),
            // 130, 131, 9000: switching on needs data, even if nothing in it parses.
            sends(130, 0, 0, "1-200", 130, 0),
            sends(130, 1, 0, "1-200,2-300", 130, 1, {{0x010108A0, "200"}, {0x010108B0, "300"}}),
            sends(130, 1, 0, ",,", 130, 1), silent(130, 1, 0, ""),
            sends(131, 1, 0, "colocation:1,groupmigrate:5-3", 131, 1,
                  {{0x01011040, "1"}, {0x01010FB0, "5"}, {0x01010FC0, "3"}}),
            silent(131, 2, 0, "colocation:1"),
            sends(9000, 1, 0, "1,2;3", 9000, 1, {{0x01010B10, "1"}, {0x01010B20, "2"}}),
            silent(9000, 1, 0, "")};
    // Numbers with no branch of their own, next to handled ones.
    for (int src : {0, 4, 7, 13, 17, 101, 103, 999, 9001}) {
        for (int type : {-1, 0, 1}) rows.push_back(silent(src, type));
    }
    for (const NotifyRow& row : rows) {
        SCOPED_TRACE(::testing::Message() << "src " << row.src << ", type " << row.type << ", param "
                                          << row.param << ", data \"" << row.data << '"');
        hal().clearCalls();
        EXPECT_EQ(ZelNotifyWapper("notifier", row.src, row.type, row.param, 123, 456, row.data), 0);
        if (!row.sends) {
            EXPECT_TRUE(hal().calls().empty());
            continue;
        }
        ASSERT_EQ(hal().calls().size(), 1u);
        const ReceivedCall call = hal().last("ruleCtl");
        EXPECT_EQ(call.first, row.rule);
        EXPECT_EQ(call.status, row.status);
        EXPECT_EQ(call.entries, sent(row.entries));
    }
}

}  // namespace
