#include <cstddef>
#include <cstdint>
#include <iterator>
#include <utility>

#include "ZelWrapper.h"
#include "stringUtils.h"
#include "zel.h"

// The five opcode tables form one block of the library's writable data: they are defined here in
// this order, back to back with no padding, because code outside the library has been built
// against that layout. Their own section keeps the compiler from reordering them, from raising
// their alignment and from putting sanitizer redzones between them.
#if defined(__clang__)
#define ZEL_KEEP_ORDER
#else
#define ZEL_KEEP_ORDER __attribute__((no_reorder))
#endif
#define ZEL_OPCODE_TABLE \
    __attribute__((section("zel_opcode_tables"), aligned(alignof(uint32_t)))) ZEL_KEEP_ORDER

ZEL_OPCODE_TABLE uint32_t opCodeTargetLoad[3] = {0x010108A0, 0x010108B0, 0x010108C0};
ZEL_OPCODE_TABLE uint32_t opCodeAdpXpuCoreBoost[4] = {0x01010B10, 0x01010B20, 0x01010B30,
                                                      0x01020070};
ZEL_OPCODE_TABLE uint32_t opCodeAdpXpuCoreLimit[4] = {0x01010B90, 0x01010BA0, 0x01010BB0,
                                                      0x01020080};
ZEL_OPCODE_TABLE uint32_t opCodeAdpXpuFreqBoost[4] = {0x01010010, 0x01010020, 0x01010030,
                                                      0x01020050};
ZEL_OPCODE_TABLE uint32_t opCodeAdpXpuFreqLimit[4] = {0x010100A0, 0x010100B0, 0x010100C0,
                                                      0x01020060};

namespace {

constexpr int kOpcodeGameMode = 0x01011040;  // colocation, game-upgrade level and clearing
constexpr int kOpcodeGameUpgradeText = 0x010115B0;
constexpr int kOpcodeGroupMigrateFrom = 0x01010FB0;
constexpr int kOpcodeGroupMigrateTo = 0x01010FC0;

// Opcodes are 32-bit patterns; the resource id carries them as int32.
int opcodeAt(const uint32_t* table, size_t index) {
    return static_cast<int>(table[index]);
}

}  // namespace

ZelClient::Resource ZelResourceInfo(int opcode, std::string value) {
    ZelClient::Resource resource;
    resource.id = opcode;
    resource.value = std::move(value);
    return resource;
}

std::vector<ZelClient::Resource> getTargetLoadList(std::string list) {
    std::vector<ZelClient::Resource> out;
    if (list.empty()) return out;
    const size_t slots = std::size(opCodeTargetLoad);
    const std::vector<std::string> items = stringUtils::split(list, ",");
    // A '-' anywhere switches the whole text to the "name-value" form.
    if (stringUtils::contains(list, "-")) {
        for (size_t i = 0; i < items.size() && i < slots; ++i) {
            std::vector<std::string> pair = stringUtils::split(items[i], "-");
            // An item without a value still takes its position.
            if (pair.size() < 2) continue;
            out.push_back(ZelResourceInfo(opcodeAt(opCodeTargetLoad, i), std::move(pair[1])));
        }
    } else {
        for (size_t i = 0; i < items.size() && i < slots; ++i) {
            if (items[i] == "-1") continue;
            out.push_back(ZelResourceInfo(opcodeAt(opCodeTargetLoad, i), items[i]));
        }
    }
    return out;
}

std::vector<ZelClient::Resource> getColocationList(std::string list) {
    std::vector<ZelClient::Resource> out;
    if (!stringUtils::contains(list, ":")) return out;
    for (const std::string& item : stringUtils::split(list, ",")) {
        std::vector<std::string> keyValue = stringUtils::split(item, ":");
        if (keyValue.size() < 2) continue;
        const std::string& key = keyValue[0];
        std::string& value = keyValue[1];
        if (stringUtils::equals(key, "colocation")) {
            out.push_back(ZelResourceInfo(kOpcodeGameMode, std::move(value)));
        } else if (stringUtils::equals(key, "groupmigrate")) {
            if (!stringUtils::contains(value, "-")) continue;
            const std::vector<std::string> groups = stringUtils::split(value, "-");
            if (groups.size() < 2) continue;
            // An unreadable number counts as 0. -1 never names a group; with '-' as the
            // separator it cannot actually come out of the split.
            const int from = stringUtils::parseInt(groups[0]);
            const int to = stringUtils::parseInt(groups[1]);
            if (from > to && from != -1 && to != -1) {
                out.push_back(ZelResourceInfo(kOpcodeGroupMigrateFrom, std::to_string(from)));
                out.push_back(ZelResourceInfo(kOpcodeGroupMigrateTo, std::to_string(to)));
            }
        }
    }
    return out;
}

std::vector<ZelClient::Resource> getGameAdpList(std::string list) {
    std::vector<ZelClient::Resource> out;
    if (list.empty()) return out;
    struct Table {
        const uint32_t* opcodes;
        size_t size;
    };
    const Table tables[] = {
            {opCodeAdpXpuCoreBoost, std::size(opCodeAdpXpuCoreBoost)},
            {opCodeAdpXpuCoreLimit, std::size(opCodeAdpXpuCoreLimit)},
            {opCodeAdpXpuFreqBoost, std::size(opCodeAdpXpuFreqBoost)},
            {opCodeAdpXpuFreqLimit, std::size(opCodeAdpXpuFreqLimit)},
    };
    const std::vector<std::string> groups = stringUtils::split(list, ";");
    for (size_t g = 0; g < groups.size() && g < std::size(tables); ++g) {
        // A group counts only when a ',' stands in it, even around a single value ("7,").
        if (!stringUtils::contains(groups[g], ",")) continue;
        const std::vector<std::string> values = stringUtils::split(groups[g], ",");
        for (size_t j = 0; j < values.size() && j < tables[g].size; ++j) {
            out.push_back(ZelResourceInfo(opcodeAt(tables[g].opcodes, j),
                                          stringUtils::trim(values[j], stringUtils::WHITESPACE)));
        }
    }
    return out;
}

std::vector<ZelClient::Resource> getGameUpgradeList(int, int, int level, int, int,
                                                    std::string text) {
    std::vector<ZelClient::Resource> out;
    if (level >= 1) out.push_back(ZelResourceInfo(kOpcodeGameMode, std::to_string(level)));
    if (!text.empty()) out.push_back(ZelResourceInfo(kOpcodeGameUpgradeText, std::move(text)));
    return out;
}

void clrGameUpgradeMode(int src, int type) {
    std::vector<ZelClient::Resource> list;
    list.push_back(ZelResourceInfo(kOpcodeGameMode, "-1"));
    list.push_back(ZelResourceInfo(kOpcodeGameMode, ""));
    zelRuleCtl(src, type, list);
}
