// The wrapper: its static data (action table, opcode tables), the resource-list builders, and its
// entry points end to end, through the flat API and the binder to the reference Torq HAL in its own
// process, checked at what the HAL received.

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <torq_test/HalTest.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "ZelWrapper.h"

namespace {

TEST(ActionTable, KeepsEveryNameAtItsEventId) {
    ASSERT_EQ(gActionList.size(), 199u);
    // A name dropped, added, swapped or respelt anywhere changes the digest (FNV-1a over the
    // names, each followed by '\n') of its block of ten ids.
    const uint32_t expected[] = {
            0xdc1035c3, 0x13d3d2c8, 0xe262f272, 0x3e04dd69, 0x93e64a08, 0x8bedcda9, 0x0bfac6eb,
            0xab763874, 0xdb21a78d, 0x0ee7fdf3, 0x761b3de4, 0x2485636f, 0x22d12777, 0xc025f135,
            0x94fbc93b, 0x26afc910, 0x97e43511, 0x529e875c, 0xa53d4846, 0xd453bea5,
    };
    for (size_t block = 0; block < std::size(expected); ++block) {
        uint32_t digest = 0x811c9dc5;
        const size_t end = std::min(gActionList.size(), (block + 1) * 10);
        for (size_t i = block * 10; i < end; ++i) {
            for (unsigned char c : gActionList[i] + '\n') digest = (digest ^ c) * 0x01000193u;
        }
        EXPECT_EQ(digest, expected[block]) << "ids " << block * 10 << " to " << end - 1;
    }
}

// The tables form one block in the library's writable data: each starts where the previous ends.
// (The test binary is built position independent so that it sees the library's own tables rather
// than copies the linker would place in the executable.)
TEST(OpcodeTables, LieBackToBackInTheLibrary) {
    Dl_info info{};
    ASSERT_NE(dladdr(opCodeTargetLoad, &info), 0);
    EXPECT_THAT(info.dli_fname, ::testing::HasSubstr("quarn-zel-client"));
    const auto at = [](const uint32_t* p) { return reinterpret_cast<uintptr_t>(p); };
    EXPECT_EQ(at(opCodeAdpXpuCoreBoost), at(std::end(opCodeTargetLoad)));
    EXPECT_EQ(at(opCodeAdpXpuCoreLimit), at(std::end(opCodeAdpXpuCoreBoost)));
    EXPECT_EQ(at(opCodeAdpXpuFreqBoost), at(std::end(opCodeAdpXpuCoreLimit)));
    EXPECT_EQ(at(opCodeAdpXpuFreqLimit), at(std::end(opCodeAdpXpuFreqBoost)));
    EXPECT_EQ(at(opCodeTargetLoad) % alignof(uint32_t), 0u);
}

// (opcode, value) of resources or records; a disengaged value shows as "<absent>".
using Entries = std::vector<std::pair<uint32_t, std::string>>;

template <typename Resource>
Entries entriesOf(const std::vector<Resource>& list) {
    Entries out;
    for (const Resource& r : list) {
        out.emplace_back(static_cast<uint32_t>(r.id), r.value ? *r.value : "<absent>");
    }
    return out;
}

using Builder = std::vector<ZelClient::Resource> (*)(std::string);

struct BuilderRow {
    Builder build;
    std::string text;
    Entries expected;
};

TEST(Builders, TurnTextsIntoResourceLists) {
    const Builder load = getTargetLoadList, coloc = getColocationList, adp = getGameAdpList;
    const std::vector<BuilderRow> rows = {
            // Target load. One '-' anywhere switches the whole text to "name-value" items; an
            // item without a value still takes its position. Pieces past the second are ignored.
            {load, "a-10,b-20,c-30", {{0x010108A0, "10"}, {0x010108B0, "20"}, {0x010108C0, "30"}}},
            {load, "a-10-99", {{0x010108A0, "10"}}},
            {load, "1-100,x,3-300", {{0x010108A0, "100"}, {0x010108C0, "300"}}},
            {load, "a,b,c-3,d-4,e-5", {{0x010108C0, "3"}}},
            // Plain items: empty ones vanish and take no position; values are not trimmed.
            {load, ",,5,,7", {{0x010108A0, "5"}, {0x010108B0, "7"}}},
            {load, " 5", {{0x010108A0, " 5"}}},
            {load, "", {}},
            // Colocation: exact keys, the first piece after the key is the value.
            {coloc, "colocation:1:2", {{0x01011040, "1"}}},
            {coloc, "colocation=1", {}},
            {coloc, "Colocation:1", {}},
            {coloc, "colocation:", {}},
            // groupmigrate needs a descending pair; numbers are rewritten in decimal, an
            // unreadable one counts as 0 and '-' is a separator ("5--1" is 5 and 1).
            {coloc, "groupmigrate:07-2x", {{0x01010FB0, "7"}, {0x01010FC0, "2"}}},
            {coloc, "groupmigrate:3-x", {{0x01010FB0, "3"}, {0x01010FC0, "0"}}},
            {coloc, "groupmigrate:5--1", {{0x01010FB0, "5"}, {0x01010FC0, "1"}}},
            {coloc, "groupmigrate:5", {}},
            {coloc, "groupmigrate:-5", {}},
            {coloc,
             "foo:1,groupmigrate:9-2,,bad,colocation:0",
             {{0x01010FB0, "9"}, {0x01010FC0, "2"}, {0x01011040, "0"}}},
            // Game adaptation (see below): a group without ',' is skipped but counts; values
            // are trimmed of blanks (of " \n\r\t", not of '\v').
            {adp, "3;1,2", {{0x01010B90, "1"}, {0x01010BA0, "2"}}},
            {adp, "x;x;x;1,;2,", {{0x010100A0, "1"}}},
            {adp,
             " 1 , ,3\v;;\t9\r\n,",
             {{0x01010B10, "1"}, {0x01010B20, ""}, {0x01010B30, "3\v"}, {0x01010B90, "9"}}},
    };
    for (const BuilderRow& row : rows) {
        EXPECT_EQ(entriesOf(row.build(row.text)), row.expected) << '"' << row.text << '"';
    }
}

// ';'-separated groups pick the core boost, core limit, freq boost and freq limit tables in
// turn; each group is cut at its table's size and groups past the fourth are ignored.
TEST(Builders, GameAdpGroupsPickTheirTables) {
    const uint32_t opcodes[] = {0x01010B10, 0x01010B20, 0x01010B30, 0x01020070,
                                0x01010B90, 0x01010BA0, 0x01010BB0, 0x01020080,
                                0x01010010, 0x01010020, 0x01010030, 0x01020050,
                                0x010100A0, 0x010100B0, 0x010100C0, 0x01020060};
    Entries expected;
    for (size_t i = 0; i < std::size(opcodes); ++i) {
        expected.emplace_back(opcodes[i], std::to_string(i + 1));
    }
    EXPECT_EQ(entriesOf(getGameAdpList("1,2,3,4,0;5,6,7,8;9,10,11,12;13,14,15,16;17,18")), expected);
}

using namespace torq_test;
using torq_sim::ReceivedCall;
using WrapperHalTest = HalTest;

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
    // The texts and the timeout go on unchanged (empty ones too: "none" is only for the log).
    hal().answerOnce("request", result(42));
    EXPECT_EQ(ZelEventAcquireWrapper("VARDEX_ACTION_CAMERA_OPEN", "com.example.camera", "uid:1047",
                                     3000),
              42);
    EXPECT_EQ(hal().last("request").parcel,
              acquisition(8, {idRecord(11)}, "com.example.camera", "uid:1047", 3000));
    ZelEventAcquireWrapper("VARDEX_ACTION_LAUNCH", "", "", -1);
    EXPECT_EQ(hal().last("request").parcel, acquisition(8, {idRecord(0)}, "", "", -1));
    hal().clearCalls();
    for (const std::string eventId : {
                 "ACTION_LAUNCH",                        // no prefix
                 "xVARDEX_ACTION_LAUNCH",                // prefix not in front: cut too early
                 "VARDEX_",                              // nothing behind the prefix
                 "VARDEX_action_launch",                 // case matters
                 "VARDEX_ACTION_LAUNCH ",                // no trimming
                 "VARDEX_ACTION_LAUNC",                  // no prefix match
                 "VARDEX_ACTION_CAMERA_STICKER_RECORD",  // the table spells it STIKER
         }) {
        EXPECT_EQ(ZelEventAcquireWrapper(eventId, "scene", "id", 10), -1) << '"' << eventId << '"';
    }
    EXPECT_TRUE(hal().calls().empty());
}

TEST_F(WrapperHalTest, EntryPointsLogTheirEntryLineAndForward) {
    EXPECT_EQ(ZelEventAcquireWrapper("", "", "", 0), -1);
    ZelEventAcquireWrapper("VARDEX_ACTION_WFD", "com.example.cast", "uid:7", 250);
    ZelReleaseWapper(12);
    ZelReleaseWapper(-3);
    ZelNotifyWapper("", 3, 1, 0, 0, 0, "");
    ZelNotifyWapper("game", 4, 0, 0, 0, 0, "ignored");
    EXPECT_EQ(lines("[ZEL_CLIENT_WRAPPER]"),
              (std::vector<std::string>{
                      "I [ZelEventAcquireWrapper] eventId:none, scene:none, identity:none, "
                      "timeout:0",
                      "I [ZelEventAcquireWrapper] eventId:VARDEX_ACTION_WFD, "
                      "scene:com.example.cast, identity:uid:7, timeout:250",
                      "I [ZelReleaseWapper] 12",
                      "I [ZelReleaseWapper] -3",
                      "I [ZelNotifyWapper] none, src:3, type:1",
                      "I [ZelNotifyWapper] game, src:4, type:0",
              }));
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
            sends(1, 5, 9, "x", 1, 5), sends(10, 0, 0, "", 10, 0), sends(11, 1, 0, "", 11, 1),
            sends(12, -3, 0, "", 12, -3), sends(16, 2, 0, "", 16, 2), sends(110, 1, 0, "", 110, 1),
            sends(129, 0, 0, "", 129, 0), sends(1000, 77, 0, "", 1000, 77),
            // Folded into rule 200: the notification number while on, else 0.
            sends(2, 1, 0, "", 200, 2), sends(3, 1, 0, "", 200, 3), sends(5, 1, 0, "", 200, 5),
            sends(6, 1, 0, "", 200, 6), sends(6, 2, 0, "", 200, 0),
            // 8: the camera boost entry only with param 1.
            sends(8, 0, 1, "", 8, 0), sends(8, 1, 0, "", 8, 1),
            sends(8, 2, 1, "", 8, 2, {{0x010103A0, "0"}}), silent(8, 3), silent(8, -1),
            // 9: switching off carries no entry at all.
            sends(9, 0, 0, "", 9, 0),
            sends(9, 1, 0, "", 9, 1, {{0x010112F0, "enable 0"}, {0x01011910, "0"}}), silent(9, 2),
            sends(14, 0, 5, "pkg", 14, 0, {{0x01011040, "-1"}, {0x01011040, ""}}),
            sends(14, 1, 3, " com.game ", 14, 1, {{0x01011040, "3"}, {0x010115B0, " com.game "}}),
            sends(14, 1, 0, "", 14, 1), silent(14, 2),
            // 15: type in the low byte, the low 24 bits of param above it.
            sends(15, 1, 5, "", 15, 0x501), sends(15, -1, 0, "", 15, 0xFF),
            sends(15, 0, 0x12345678, "", 15, 0x34567800), silent(15, 2), silent(15, -2),
            // 102: level 3 stands in for 0 and -1.
            sends(102, 1, 0, "", 102, 1, {{0x01011070, "3"}}),
            sends(102, 1, -1, "", 102, 1, {{0x01011070, "3"}}),
            sends(102, 1, 7, "", 102, 1, {{0x01011070, "7"}}),
            sends(102, 1, -5, "", 102, 1, {{0x01011070, "-5"}}),
            sends(102, 0, 9, "", 102, 0, {{0x01011070, "0"}}), silent(102, 2),
            sends(111, -1, 0, "", 111, -1, {{0x010103A0, "-1"}}),
            sends(111, 1, 0, "", 111, 1, {{0x010103A0, "1"}}), silent(111, 2), silent(111, -2),
            // 130, 131, 9000: switching on needs data, even if nothing in it parses.
            sends(130, 0, 0, "1-200", 130, 0),
            sends(130, 1, 0, "1-200,2-300", 130, 1, {{0x010108A0, "200"}, {0x010108B0, "300"}}),
            sends(130, 1, 0, ",,", 130, 1), silent(130, 1, 0, ""), silent(130, 2),
            sends(131, 0, 0, "", 131, 0),
            sends(131, 1, 0, "colocation:1,groupmigrate:5-3", 131, 1,
                  {{0x01011040, "1"}, {0x01010FB0, "5"}, {0x01010FC0, "3"}}),
            silent(131, 1, 0, ""), silent(131, 2, 0, "colocation:1"), sends(9000, 0, 0, "", 9000, 0),
            sends(9000, 1, 0, "1,2;3", 9000, 1, {{0x01010B10, "1"}, {0x01010B20, "2"}}),
            silent(9000, 1, 0, "")};
    // Numbers with no branch of their own, including the neighbours of every handled one.
    for (int src :
         {-1, 0, 4, 7, 13, 17, 50, 101, 103, 109, 112, 128, 132, 999, 1001, 8999, 9001, -9000}) {
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
        EXPECT_EQ(entriesOf(call.entries), row.entries);
        for (const auto& d : call.entries) {
            EXPECT_EQ(d, idRecord(d.id, d.value)) << "only id and value are filled in";
        }
    }

    // The clearing list goes out under whatever rule and status it is given.
    hal().clearCalls();
    clrGameUpgradeMode(31, -4);
    const ReceivedCall call = hal().last("ruleCtl");
    EXPECT_EQ(call.first, 31);
    EXPECT_EQ(call.status, -4);
    EXPECT_EQ(entriesOf(call.entries), (Entries{{0x01011040, "-1"}, {0x01011040, ""}}));
}

}  // namespace
