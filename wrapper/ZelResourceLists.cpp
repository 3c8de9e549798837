#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string_view>
#include <utility>

#include "../utils/StringPieces.h"
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

namespace pieces = stringUtils::pieces;

constexpr int kOpcodeGameMode = 0x01011040;  // colocation, game-upgrade level and clearing
constexpr int kOpcodeGameUpgradeText = 0x010115B0;
constexpr int kOpcodeGroupMigrateFrom = 0x01010FB0;
constexpr int kOpcodeGroupMigrateTo = 0x01010FC0;

// Opcodes are 32-bit patterns; the resource id carries them as int32.
int opcodeAt(const uint32_t* table, size_t index) {
    return static_cast<int>(table[index]);
}

// Appends (opcode, value) in place: what push_back(ZelResourceInfo(opcode, value)) gives, without
// the temporaries.
void appendResource(std::vector<ZelClient::Resource>& out, int opcode, std::string_view value) {
    ZelClient::Resource& resource = out.emplace_back();
    resource.id = opcode;
    resource.value.emplace(value);
}

}  // namespace

ZelClient::Resource ZelResourceInfo(int opcode, std::string value) {
    ZelClient::Resource resource;
    resource.id = opcode;
    resource.value = std::move(value);
    return resource;
}

// The builders parse over views into the caller's text, so that the only allocations are the
// result list and values too long for the small-string buffer.

std::vector<ZelClient::Resource> getTargetLoadList(std::string list) {
    std::vector<ZelClient::Resource> out;
    if (list.empty()) return out;
    const size_t slots = std::size(opCodeTargetLoad);
    out.reserve(slots);
    // A '-' anywhere switches the whole text to the "name-value" form.
    const bool paired = pieces::contains(list, "-");
    size_t i = 0;
    pieces::forEachPiece(list, ",", [&](std::string_view item) {
        if (i >= slots) return false;
        std::string_view value = item;
        // An item without a value still takes its position.
        const bool usable = paired ? pieces::pieceAt(item, "-", 1, &value) : item != "-1";
        if (usable) appendResource(out, opcodeAt(opCodeTargetLoad, i), value);
        ++i;
        return true;
    });
    return out;
}

std::vector<ZelClient::Resource> getColocationList(std::string list) {
    std::vector<ZelClient::Resource> out;
    if (!pieces::contains(list, ":")) return out;
    pieces::forEachPiece(list, ",", [&](std::string_view item) {
        std::string_view key;
        std::string_view value;
        if (!pieces::pieceAt(item, ":", 0, &key) || !pieces::pieceAt(item, ":", 1, &value)) {
            return true;
        }
        if (key == "colocation") {
            appendResource(out, kOpcodeGameMode, value);
        } else if (key == "groupmigrate") {
            std::string_view first;
            std::string_view second;
            if (!pieces::contains(value, "-") || !pieces::pieceAt(value, "-", 0, &first) ||
                !pieces::pieceAt(value, "-", 1, &second)) {
                return true;
            }
            // An unreadable number counts as 0. -1 never names a group; with '-' as the
            // separator it cannot actually come out of the split.
            const int from = stringUtils::parseInt(std::string(first));
            const int to = stringUtils::parseInt(std::string(second));
            if (from > to && from != -1 && to != -1) {
                out.push_back(ZelResourceInfo(kOpcodeGroupMigrateFrom, std::to_string(from)));
                out.push_back(ZelResourceInfo(kOpcodeGroupMigrateTo, std::to_string(to)));
            }
        }
        return true;
    });
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
    size_t slots = 0;
    for (const Table& table : tables) slots += table.size;
    out.reserve(slots);
    // Read once: the set is a global the caller may point elsewhere.
    const std::string_view blanks = pieces::byteSet(stringUtils::WHITESPACE);
    size_t g = 0;
    pieces::forEachPiece(list, ";", [&](std::string_view group) {
        if (g >= std::size(tables)) return false;
        const Table& table = tables[g++];
        // A group counts only when a ',' stands in it, even around a single value ("7,").
        if (!pieces::contains(group, ",")) return true;
        size_t j = 0;
        pieces::forEachPiece(group, ",", [&](std::string_view value) {
            if (j >= table.size) return false;
            appendResource(out, opcodeAt(table.opcodes, j++), pieces::trim(value, blanks));
            return true;
        });
        return true;
    });
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
