#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ZelWrapper.h"

namespace {

// (opcode, value) with the value always engaged; a disengaged value shows as "<absent>".
using Entry = std::pair<uint32_t, std::string>;
using Entries = std::vector<Entry>;

Entries entriesOf(const std::vector<ZelClient::Resource>& list) {
    Entries out;
    for (const ZelClient::Resource& r : list) {
        out.emplace_back(static_cast<uint32_t>(r.id), r.value ? *r.value : "<absent>");
    }
    return out;
}

TEST(OpcodeTables, HoldTheirOpcodes) {
    const std::vector<uint32_t> targetLoad(std::begin(opCodeTargetLoad), std::end(opCodeTargetLoad));
    EXPECT_EQ(targetLoad, (std::vector<uint32_t>{0x010108A0, 0x010108B0, 0x010108C0}));
    const std::vector<std::vector<uint32_t>> adp = {
            {std::begin(opCodeAdpXpuCoreBoost), std::end(opCodeAdpXpuCoreBoost)},
            {std::begin(opCodeAdpXpuCoreLimit), std::end(opCodeAdpXpuCoreLimit)},
            {std::begin(opCodeAdpXpuFreqBoost), std::end(opCodeAdpXpuFreqBoost)},
            {std::begin(opCodeAdpXpuFreqLimit), std::end(opCodeAdpXpuFreqLimit)},
    };
    EXPECT_EQ(adp, (std::vector<std::vector<uint32_t>>{
                           {0x01010B10, 0x01010B20, 0x01010B30, 0x01020070},
                           {0x01010B90, 0x01010BA0, 0x01010BB0, 0x01020080},
                           {0x01010010, 0x01010020, 0x01010030, 0x01020050},
                           {0x010100A0, 0x010100B0, 0x010100C0, 0x01020060},
                   }));
}

// The tables form one block in the library's writable data: each starts where the previous ends.
TEST(OpcodeTables, LieBackToBackInTheLibrary) {
    // The test binary is built position independent so that it uses the library's own tables
    // rather than copies the linker would place in the executable.
    Dl_info info{};
    ASSERT_NE(dladdr(opCodeTargetLoad, &info), 0);
    ASSERT_NE(info.dli_fname, nullptr);
    EXPECT_NE(std::string(info.dli_fname).find("quarn-zel-client"), std::string::npos)
            << info.dli_fname;

    const auto at = [](const uint32_t* p) { return reinterpret_cast<uintptr_t>(p); };
    EXPECT_EQ(at(opCodeAdpXpuCoreBoost), at(std::end(opCodeTargetLoad)));
    EXPECT_EQ(at(opCodeAdpXpuCoreLimit), at(std::end(opCodeAdpXpuCoreBoost)));
    EXPECT_EQ(at(opCodeAdpXpuFreqBoost), at(std::end(opCodeAdpXpuCoreLimit)));
    EXPECT_EQ(at(opCodeAdpXpuFreqLimit), at(std::end(opCodeAdpXpuFreqBoost)));
    EXPECT_EQ(at(opCodeTargetLoad) % alignof(uint32_t), 0u);
}

TEST(ZelResourceInfo, SetsOpcodeAndEngagedValue) {
    const ZelClient::Resource r = ZelResourceInfo(0x01011040, "12");
    EXPECT_EQ(r.id, 0x01011040);
    ASSERT_TRUE(r.value.has_value());
    EXPECT_EQ(*r.value, "12");
    const ZelClient::Resource empty = ZelResourceInfo(-1, "");
    EXPECT_EQ(empty.id, -1);
    ASSERT_TRUE(empty.value.has_value());
    EXPECT_EQ(*empty.value, "");
}

TEST(GetTargetLoadList, PairedFormTakesTheValueAfterTheDash) {
    EXPECT_EQ(entriesOf(getTargetLoadList("1-200,2-300")),
              (Entries{{0x010108A0, "200"}, {0x010108B0, "300"}}));
    EXPECT_EQ(entriesOf(getTargetLoadList("a-10,b-20,c-30")),
              (Entries{{0x010108A0, "10"}, {0x010108B0, "20"}, {0x010108C0, "30"}}));
    // Pieces past the second are ignored.
    EXPECT_EQ(entriesOf(getTargetLoadList("a-10-99")), (Entries{{0x010108A0, "10"}}));
}

TEST(GetTargetLoadList, SkippedPairedItemsKeepTheirPosition) {
    // "-5" splits into the single piece "5".
    EXPECT_EQ(entriesOf(getTargetLoadList("-5,2-300")), (Entries{{0x010108B0, "300"}}));
    // One '-' anywhere puts the whole text in the paired form.
    EXPECT_EQ(entriesOf(getTargetLoadList("x,2-300")), (Entries{{0x010108B0, "300"}}));
    EXPECT_EQ(entriesOf(getTargetLoadList("1-100,x,3-300")),
              (Entries{{0x010108A0, "100"}, {0x010108C0, "300"}}));
}

TEST(GetTargetLoadList, PlainFormTakesEachItem) {
    EXPECT_EQ(entriesOf(getTargetLoadList("10,20,30")),
              (Entries{{0x010108A0, "10"}, {0x010108B0, "20"}, {0x010108C0, "30"}}));
    // Empty items vanish in splitting and take no position.
    EXPECT_EQ(entriesOf(getTargetLoadList("5,,7")), (Entries{{0x010108A0, "5"}, {0x010108B0, "7"}}));
    EXPECT_EQ(entriesOf(getTargetLoadList(",,5")), (Entries{{0x010108A0, "5"}}));
    // Values are carried as they are, untrimmed.
    EXPECT_EQ(entriesOf(getTargetLoadList(" 5")), (Entries{{0x010108A0, " 5"}}));
}

TEST(GetTargetLoadList, EmptyOrSeparatorOnlyTextGivesNothing) {
    EXPECT_TRUE(getTargetLoadList("").empty());
    EXPECT_TRUE(getTargetLoadList(",,,").empty());
    EXPECT_TRUE(getTargetLoadList("-").empty());
    EXPECT_TRUE(getTargetLoadList("---,-").empty());
}

TEST(GetTargetLoadList, StopsAtTheEndOfItsTable) {
    EXPECT_EQ(entriesOf(getTargetLoadList("1,2,3,4,5")),
              (Entries{{0x010108A0, "1"}, {0x010108B0, "2"}, {0x010108C0, "3"}}));
    EXPECT_EQ(entriesOf(getTargetLoadList("a-1,b-2,c-3,d-4")),
              (Entries{{0x010108A0, "1"}, {0x010108B0, "2"}, {0x010108C0, "3"}}));
    EXPECT_EQ(entriesOf(getTargetLoadList("a,b,c-3,d-4,e-5")), (Entries{{0x010108C0, "3"}}));
    std::string many;
    for (int i = 0; i < 1000; ++i) many += std::to_string(i) + ",";
    EXPECT_EQ(getTargetLoadList(many).size(), std::size(opCodeTargetLoad));
}

TEST(GetColocationList, MapsColocationKey) {
    EXPECT_EQ(entriesOf(getColocationList("colocation:1")), (Entries{{0x01011040, "1"}}));
    EXPECT_TRUE(getColocationList("colocation=1").empty());
    EXPECT_TRUE(getColocationList("").empty());
    // The key must match exactly.
    EXPECT_TRUE(getColocationList("Colocation:1").empty());
    EXPECT_TRUE(getColocationList(" colocation:1").empty());
    EXPECT_TRUE(getColocationList("colocations:1").empty());
    // Only the first piece after the key is the value.
    EXPECT_EQ(entriesOf(getColocationList("colocation:1:2")), (Entries{{0x01011040, "1"}}));
    EXPECT_TRUE(getColocationList("colocation:").empty());
    EXPECT_TRUE(getColocationList(":1").empty());
}

TEST(GetColocationList, GroupMigrateNeedsADescendingPair) {
    EXPECT_EQ(entriesOf(getColocationList("groupmigrate:5-3")),
              (Entries{{0x01010FB0, "5"}, {0x01010FC0, "3"}}));
    EXPECT_TRUE(getColocationList("groupmigrate:3-5").empty());
    EXPECT_TRUE(getColocationList("groupmigrate:4-4").empty());
    EXPECT_TRUE(getColocationList("groupmigrate:5").empty());
    EXPECT_TRUE(getColocationList("groupmigrate:-5").empty());
    // Numbers are written back in canonical decimal form.
    EXPECT_EQ(entriesOf(getColocationList("groupmigrate:07-2x")),
              (Entries{{0x01010FB0, "7"}, {0x01010FC0, "2"}}));
}

TEST(GetColocationList, UnreadableNumbersCountAsZero) {
    // x reads as 0 and 0 > 3 fails.
    EXPECT_TRUE(getColocationList("groupmigrate:x-3").empty());
    EXPECT_EQ(entriesOf(getColocationList("groupmigrate:3-x")),
              (Entries{{0x01010FB0, "3"}, {0x01010FC0, "0"}}));
    EXPECT_EQ(entriesOf(getColocationList("groupmigrate:7-99999999999")),
              (Entries{{0x01010FB0, "7"}, {0x01010FC0, "0"}}));
    EXPECT_TRUE(getColocationList("groupmigrate:99999999999-7").empty());
    // The minus sign is a separator: "5--1" is 5 and 1.
    EXPECT_EQ(entriesOf(getColocationList("groupmigrate:5--1")),
              (Entries{{0x01010FB0, "5"}, {0x01010FC0, "1"}}));
}

TEST(GetColocationList, ItemsAreHandledInOrderAndUnknownKeysSkipped) {
    EXPECT_EQ(entriesOf(getColocationList("foo:1,groupmigrate:9-2,,bad,colocation:0")),
              (Entries{{0x01010FB0, "9"}, {0x01010FC0, "2"}, {0x01011040, "0"}}));
}

TEST(GetGameAdpList, GroupsSelectTheirTables) {
    EXPECT_EQ(entriesOf(getGameAdpList("1,2;3,4;5,6;7,8")), (Entries{{0x01010B10, "1"},
                                                                     {0x01010B20, "2"},
                                                                     {0x01010B90, "3"},
                                                                     {0x01010BA0, "4"},
                                                                     {0x01010010, "5"},
                                                                     {0x01010020, "6"},
                                                                     {0x010100A0, "7"},
                                                                     {0x010100B0, "8"}}));
    EXPECT_EQ(entriesOf(getGameAdpList("1,2,3,4")),
              (Entries{{0x01010B10, "1"}, {0x01010B20, "2"}, {0x01010B30, "3"}, {0x01020070, "4"}}));
}

TEST(GetGameAdpList, GroupWithoutCommaIsSkippedButCounts) {
    EXPECT_EQ(entriesOf(getGameAdpList("1,2;3")), (Entries{{0x01010B10, "1"}, {0x01010B20, "2"}}));
    EXPECT_EQ(entriesOf(getGameAdpList("3;1,2")), (Entries{{0x01010B90, "1"}, {0x01010BA0, "2"}}));
    // A comma beside a lone value makes it count.
    EXPECT_EQ(entriesOf(getGameAdpList("7,")), (Entries{{0x01010B10, "7"}}));
    EXPECT_TRUE(getGameAdpList("7").empty());
    EXPECT_TRUE(getGameAdpList("").empty());
    EXPECT_TRUE(getGameAdpList(";;;").empty());
}

TEST(GetGameAdpList, ValuesAreTrimmedAndEmptyGroupsVanish) {
    EXPECT_EQ(entriesOf(getGameAdpList(" 1 , 2 ;;5,6")),
              (Entries{{0x01010B10, "1"}, {0x01010B20, "2"}, {0x01010B90, "5"}, {0x01010BA0, "6"}}));
    // A blank value trims to an empty (but present) value.
    EXPECT_EQ(entriesOf(getGameAdpList("1, ,3")),
              (Entries{{0x01010B10, "1"}, {0x01010B20, ""}, {0x01010B30, "3"}}));
    EXPECT_EQ(entriesOf(getGameAdpList("\t9\r\n,")), (Entries{{0x01010B10, "9"}}));
}

TEST(GetGameAdpList, StopsAtTheEndOfEachTableAndAfterFourGroups) {
    EXPECT_EQ(entriesOf(getGameAdpList("1,2,3,4,5,6;7,8,9,10,11")), (Entries{{0x01010B10, "1"},
                                                                             {0x01010B20, "2"},
                                                                             {0x01010B30, "3"},
                                                                             {0x01020070, "4"},
                                                                             {0x01010B90, "7"},
                                                                             {0x01010BA0, "8"},
                                                                             {0x01010BB0, "9"},
                                                                             {0x01020080, "10"}}));
    EXPECT_EQ(entriesOf(getGameAdpList("x;x;x;1,;2,;3,")), (Entries{{0x010100A0, "1"}}));
}

TEST(GetGameUpgradeList, ReadsOnlyLevelAndText) {
    EXPECT_TRUE(getGameUpgradeList(0, 0, 0, 0, 0, "").empty());
    EXPECT_TRUE(getGameUpgradeList(9, 9, -1, 9, 9, "").empty());
    EXPECT_EQ(entriesOf(getGameUpgradeList(0, 0, 1, 0, 0, "")), (Entries{{0x01011040, "1"}}));
    EXPECT_EQ(entriesOf(getGameUpgradeList(5, 6, 0, 7, 8, "pkg")), (Entries{{0x010115B0, "pkg"}}));
    EXPECT_EQ(entriesOf(getGameUpgradeList(-4, -4, 12, -4, -4, " a,b ")),
              (Entries{{0x01011040, "12"}, {0x010115B0, " a,b "}}));
}

// Texts of every shape from a small alphabet: nothing throws, reads past a table or yields a
// value-less entry, and every opcode comes from the builder's own tables.
TEST(Builders, AcceptAnyText) {
    const std::string alphabet = "1x-,;: ";
    std::vector<std::string> texts{""};
    for (size_t len = 1, begin = 0; len <= 5; ++len) {
        const size_t end = texts.size();
        for (size_t i = begin; i < end; ++i) {
            for (char c : alphabet) texts.push_back(texts[i] + c);
        }
        begin = end;
    }
    const auto inTables = [](uint32_t opcode, std::initializer_list<const uint32_t*> firsts,
                             std::initializer_list<const uint32_t*> lasts) {
        auto last = lasts.begin();
        for (const uint32_t* first : firsts) {
            if (std::find(first, *last, opcode) != *last) return true;
            ++last;
        }
        return false;
    };
    for (const std::string& text : texts) {
        SCOPED_TRACE("text: \"" + text + "\"");
        for (const Entry& e : entriesOf(getTargetLoadList(text))) {
            EXPECT_TRUE(inTables(e.first, {opCodeTargetLoad}, {std::end(opCodeTargetLoad)}));
            EXPECT_NE(e.second, "<absent>");
        }
        for (const Entry& e : entriesOf(getGameAdpList(text))) {
            EXPECT_TRUE(
                    inTables(e.first,
                             {opCodeAdpXpuCoreBoost, opCodeAdpXpuCoreLimit, opCodeAdpXpuFreqBoost,
                              opCodeAdpXpuFreqLimit},
                             {std::end(opCodeAdpXpuCoreBoost), std::end(opCodeAdpXpuCoreLimit),
                              std::end(opCodeAdpXpuFreqBoost), std::end(opCodeAdpXpuFreqLimit)}));
            EXPECT_NE(e.second, "<absent>");
        }
        for (const char* key : {"colocation:", "groupmigrate:"}) {
            for (const Entry& e : entriesOf(getColocationList(std::string(key) + text))) {
                EXPECT_TRUE(e.first == 0x01011040 || e.first == 0x01010FB0 || e.first == 0x01010FC0);
                EXPECT_NE(e.second, "<absent>");
            }
        }
    }
}

}  // namespace
