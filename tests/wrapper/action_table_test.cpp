#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <map>
#include <set>
#include <string>

#include "ZelWrapper.h"

namespace {

TEST(ActionTable, HasItsFixedSizeAndEnds) {
    ASSERT_EQ(gActionList.size(), 199u);
    // Built once from the full list: no spare room that would hint at later growth.
    EXPECT_EQ(gActionList.capacity(), 199u);
    EXPECT_EQ(gActionList.front(), "ACTION_LAUNCH");
    EXPECT_EQ(gActionList.back(), "ACTION_CAMERA_APS_INNER_THDR_CAPTURE_L1");
}

// A name dropped, added or swapped anywhere shifts every later event id; these entries are spread
// over the table so that such a shift shows.
TEST(ActionTable, EntriesSitAtTheirEventIds) {
    ASSERT_EQ(gActionList.size(), 199u);
    const std::map<size_t, std::string> expected = {
            {1, "ACTION_COLD_LAUNCH"},
            {11, "ACTION_CAMERA_OPEN"},
            {28, "ACTION_KORVA_GAME_LOADING"},
            {37, "ACTION_TOUCH_BOOST"},
            {55, "ACTION_CAMERA_APS_CAPTURE"},
            {59, "ACTION_3RD_CAM_WECHAT_VIDEO_CALL"},
            {73, "ACTION_CTS_PERF"},
            {89, "ACTION_CAMERA_3RD_PARTY_LOW_POWER_EXPORT"},
            {90, "ACTION_CAMERA_3RD_PARTY_MIDDLE_POWER"},
            {105, "ACTION_VIRTUAL_KEY"},
            {110, "ACTION_ROTATION_LATENCY_BOOST"},
            {124, "ACTION_WFD"},
            {133, "ACTION_CAMERA_FRONT_PREVIEW_30FPS_FACE_NUM_2"},
            {148, "ACTION_CAMERA_STICKER_MODE"},
            {161, "ACTION_CAMERA_VIDEO_FHD30_TIMELAPSE"},
            {163, "ACTION_CAMERA_FRONT_NIGHT_CAPTURE"},
            {175, "ACTION_CAST_SCREENOFF_DISABLE_DISPLAY_VOTE"},
            {189, "ACTION_CAMERA_3RD_WECHAT_SCAN"},
            {193, "ACTION_CAST"},
            {197, "ACTION_CAMERA_APS_INNER_THDR_CAPTURE"},
    };
    for (const auto& [index, name] : expected) {
        EXPECT_EQ(gActionList[index], name) << "index " << index;
    }
}

// Every letter of every name counts: callers send the names as they stand. One digest per block of
// ten ids (FNV-1a over the names, each followed by '\n') says which block changed.
TEST(ActionTable, EveryBlockOfTenNamesIsUnchanged) {
    ASSERT_EQ(gActionList.size(), 199u);
    const uint32_t expected[] = {
            0xdc1035c3, 0x13d3d2c8, 0xe262f272, 0x3e04dd69, 0x93e64a08, 0x8bedcda9, 0x0bfac6eb,
            0xab763874, 0xdb21a78d, 0x0ee7fdf3, 0x761b3de4, 0x2485636f, 0x22d12777, 0xc025f135,
            0x94fbc93b, 0x26afc910, 0x97e43511, 0x529e875c, 0xa53d4846, 0xd453bea5,
    };
    for (size_t block = 0; block < std::size(expected); ++block) {
        uint32_t digest = 0x811c9dc5;
        const size_t end = std::min(gActionList.size(), (block + 1) * 10);
        for (size_t i = block * 10; i < end; ++i) {
            for (unsigned char c : gActionList[i] + '\n') {
                digest = (digest ^ c) * 0x01000193u;
            }
        }
        EXPECT_EQ(digest, expected[block]) << "ids " << block * 10 << " to " << end - 1;
    }
}

TEST(ActionTable, KeepsItsDuplicatesAndSpellings) {
    ASSERT_EQ(gActionList.size(), 199u);
    for (size_t i = 0; i < 4; ++i) {
        const std::string name = "ACTION_CAMERA_APS_CAPTURE_L" + std::to_string(i + 1);
        EXPECT_EQ(gActionList[91 + i], name);
        EXPECT_EQ(gActionList[106 + i], name);
    }
    EXPECT_EQ(gActionList[102], "ACTION_CAMERA_MULTI_SCENE");
    EXPECT_EQ(gActionList[162], "ACTION_CAMERA_MULTI_SCENE");
    EXPECT_EQ(gActionList[78], "ACTION_CAMERA_STIKER_RECORD");
    EXPECT_EQ(gActionList[120], "ACTION_CAMERA_PREVIEW_PORTAIT");
    EXPECT_EQ(std::count(gActionList.begin(), gActionList.end(), "ACTION_CAMERA_STICKER_RECORD"), 0);
    // Those five repeats are the only ones.
    const std::set<std::string> distinct(gActionList.begin(), gActionList.end());
    EXPECT_EQ(distinct.size(), 199u - 5u);
}

TEST(ActionTable, NamesAreUpperCaseActionIdentifiers) {
    size_t shortest = SIZE_MAX, longest = 0;
    for (const std::string& name : gActionList) {
        EXPECT_EQ(name.rfind("ACTION_", 0), 0u) << name;
        EXPECT_TRUE(std::all_of(name.begin(), name.end(), [](char c) {
            return (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
        })) << name;
        shortest = std::min(shortest, name.size());
        longest = std::max(longest, name.size());
    }
    EXPECT_EQ(shortest, 10u);  // ACTION_WFD
    EXPECT_EQ(longest, 44u);   // ACTION_CAMERA_FRONT_PREVIEW_30FPS_FACE_NUM_2
}

}  // namespace
