// The wrapper's static data (action table, opcode tables) and the game adaptation groups. The
// other list builders are checked through the notification rows, and their invariants by the
// string_utils fuzz target.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <string>
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

// ';'-separated groups pick the core boost, core limit, freq boost and freq limit tables in
// turn; each group is cut at its table's size and groups past the fourth are ignored.
TEST(Builders, GameAdpGroupsPickTheirTables) {
    const uint32_t opcodes[] = {0x01010B10, 0x01010B20, 0x01010B30, 0x01020070,
                                0x01010B90, 0x01010BA0, 0x01010BB0, 0x01020080,
                                0x01010010, 0x01010020, 0x01010030, 0x01020050,
                                0x010100A0, 0x010100B0, 0x010100C0, 0x01020060};
    const auto list = getGameAdpList("1,2,3,4,0;5,6,7,8;9,10,11,12;13,14,15,16;17,18");
    ASSERT_EQ(list.size(), std::size(opcodes));
    for (size_t i = 0; i < list.size(); ++i) {
        EXPECT_EQ(static_cast<uint32_t>(list[i].id), opcodes[i]);
        EXPECT_EQ(list[i].value, std::to_string(i + 1));
    }
}

}  // namespace
