// The string utilities and the scenario resource-list builders on arbitrary text. Besides not
// crashing (and not reading out of bounds, which AddressSanitizer watches), what they return
// must keep their rules: split gives non-empty tokens free of delimiters that together hold every
// other byte in order; the trims cut only bytes of their set; parseInt reads what std::stoi
// reads, or 0; every resource a builder makes carries a value and an opcode of its table.
//
// Input: byte 0 picks how many of the next bytes (0-4) form the delimiter and trim set, one more
// byte is the game-upgrade level, the rest is the text.

#include <ZelWrapper.h>
#include <stringUtils.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <vector>

#include "FuzzCheck.h"

namespace {

template <size_t N>
bool inTable(const uint32_t (&table)[N], int32_t id) {
    return std::find(std::begin(table), std::end(table), static_cast<uint32_t>(id)) !=
           std::end(table);
}

bool oneOf(int32_t id, std::initializer_list<uint32_t> ids) {
    return std::find(ids.begin(), ids.end(), static_cast<uint32_t>(id)) != ids.end();
}

void checkValues(const std::vector<ZelClient::Resource>& list, const char* builder) {
    for (const ZelClient::Resource& r : list) FUZZ_CHECK(r.value.has_value(), builder);
}

int32_t referenceParseInt(const std::string& text) {
    try {
        return std::stoi(text);
    } catch (const std::invalid_argument&) {
        return 0;
    } catch (const std::out_of_range&) {
        return 0;
    }
}

void checkSplit(const std::string& text, const std::string& delimiters) {
    const std::vector<std::string> tokens = stringUtils::split(text, delimiters);
    std::string joined;
    for (const std::string& token : tokens) {
        FUZZ_CHECK(!token.empty(), "split gave an empty token");
        if (!delimiters.empty()) {
            FUZZ_CHECK(token.find_first_of(delimiters) == std::string::npos,
                       "split left a delimiter in a token");
        }
        joined += token;
    }
    std::string kept;
    for (char c : text) {
        if (delimiters.find(c) == std::string::npos) kept += c;
    }
    FUZZ_CHECK(joined == kept, "split lost or reordered bytes");
}

void checkTrims(const std::string& text, const char* chars) {
    const std::string set(chars);
    const std::string left = stringUtils::trimLeft(text, chars);
    const std::string right = stringUtils::trimRight(text, chars);
    const std::string both = stringUtils::trim(text, chars);
    const size_t first = text.find_first_not_of(set);
    const size_t last = text.find_last_not_of(set);
    FUZZ_CHECK(left == (first == std::string::npos ? "" : text.substr(first)), "trimLeft");
    FUZZ_CHECK(right == (last == std::string::npos ? "" : text.substr(0, last + 1)), "trimRight");
    FUZZ_CHECK(both == stringUtils::trimRight(left, chars), "trim is trimLeft then trimRight");
}

void checkBuilders(const std::string& text, int level) {
    const std::vector<ZelClient::Resource> load = getTargetLoadList(text);
    checkValues(load, "getTargetLoadList");
    FUZZ_CHECK(load.size() <= 3, "getTargetLoadList went past its table");
    for (const auto& r : load) FUZZ_CHECK(inTable(opCodeTargetLoad, r.id), "target-load opcode");

    const std::vector<ZelClient::Resource> colocation = getColocationList(text);
    checkValues(colocation, "getColocationList");
    for (size_t i = 0; i < colocation.size(); ++i) {
        const ZelClient::Resource& r = colocation[i];
        FUZZ_CHECK(oneOf(r.id, {0x01011040, 0x01010FB0, 0x01010FC0}), "colocation opcode");
        if (static_cast<uint32_t>(r.id) == 0x01010FB0) {
            // Group migration comes as a pair of decimal numbers, the first the larger.
            FUZZ_CHECK(i + 1 < colocation.size() &&
                               static_cast<uint32_t>(colocation[i + 1].id) == 0x01010FC0,
                       "group migration pair");
            const int32_t a = std::stoi(*r.value);
            const int32_t b = std::stoi(*colocation[i + 1].value);
            FUZZ_CHECK(a > b, "group migration order");
            FUZZ_CHECK(std::to_string(a) == *r.value, "group migration text");
        }
    }

    const std::vector<ZelClient::Resource> adp = getGameAdpList(text);
    checkValues(adp, "getGameAdpList");
    FUZZ_CHECK(adp.size() <= 16, "getGameAdpList went past its tables");
    for (const auto& r : adp) {
        FUZZ_CHECK(inTable(opCodeAdpXpuCoreBoost, r.id) || inTable(opCodeAdpXpuCoreLimit, r.id) ||
                           inTable(opCodeAdpXpuFreqBoost, r.id) ||
                           inTable(opCodeAdpXpuFreqLimit, r.id),
                   "game adaptation opcode");
        FUZZ_CHECK(*r.value == stringUtils::trim(*r.value, stringUtils::WHITESPACE),
                   "game adaptation values are trimmed");
    }

    const std::vector<ZelClient::Resource> upgrade = getGameUpgradeList(0, 0, level, 0, 0, text);
    checkValues(upgrade, "getGameUpgradeList");
    FUZZ_CHECK(
            upgrade.size() == static_cast<size_t>(level >= 1) + static_cast<size_t>(!text.empty()),
            "getGameUpgradeList size");
    for (const auto& r : upgrade)
        FUZZ_CHECK(oneOf(r.id, {0x01011040, 0x010115B0}), "upgrade opcode");

    const ZelClient::Resource info = ZelResourceInfo(level, text);
    FUZZ_CHECK(info.id == level && info.value == text, "ZelResourceInfo");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const size_t setSize = std::min<size_t>(data[0] % 5, size - 2);
    const std::string set(reinterpret_cast<const char*>(data + 1), setSize);
    const int level = static_cast<int8_t>(data[1 + setSize]);
    const std::string text(reinterpret_cast<const char*>(data + 2 + setSize), size - 2 - setSize);

    checkSplit(text, set);
    checkSplit(text, ",");
    checkTrims(text, set.c_str());
    checkTrims(text, stringUtils::WHITESPACE);

    FUZZ_CHECK(stringUtils::parseInt(text) == referenceParseInt(text), "parseInt");
    FUZZ_CHECK(stringUtils::parseInt(stringUtils::valueOf(level)) == level, "valueOf round trip");
    const std::string half = text.substr(text.size() / 2);
    FUZZ_CHECK(stringUtils::contains(text, half), "contains a suffix");
    FUZZ_CHECK(stringUtils::contains(text, set) == (text.find(set) != std::string::npos),
               "contains");
    FUZZ_CHECK(stringUtils::equals(text, set) == (text == set), "equals");

    checkBuilders(text, level);
    return 0;
}
