// The string utilities and the scenario resource-list builders on arbitrary text: no crash or
// out-of-bounds read, and their rules kept: split gives non-empty tokens free of delimiters that
// together hold every other byte in order; the trims cut exactly the bytes of their set at their
// end; parseInt reads what strtol reads when it fits, or 0; the builders keep to their tables'
// sizes and give group migration only as a descending pair.
//
// Input: byte 0 picks how many of the next bytes (0-4) form the delimiter and trim set, one more
// byte is the game-upgrade level, the rest is the text.

#include <ZelWrapper.h>
#include <stringUtils.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "FuzzCheck.h"

namespace {

int32_t referenceParseInt(const std::string& text) {
    errno = 0;
    char* end = nullptr;
    const long value = std::strtol(text.c_str(), &end, 10);
    const bool fits = errno == 0 && value >= INT32_MIN && value <= INT32_MAX;
    return end != text.c_str() && fits ? static_cast<int32_t>(value) : 0;
}

void checkSplit(const std::string& text, const std::string& delimiters) {
    std::string joined;
    for (const std::string& token : stringUtils::split(text, delimiters)) {
        FUZZ_CHECK(!token.empty(), "split gave an empty token");
        FUZZ_CHECK(token.find_first_of(delimiters) == std::string::npos,
                   "split left a delimiter in a token");
        joined += token;
    }
    std::string kept;
    for (char c : text) {
        if (delimiters.find(c) == std::string::npos) kept += c;
    }
    FUZZ_CHECK(joined == kept, "split lost or reordered bytes");
}

void checkTrims(const std::string& text, const char* chars) {
    const size_t first = text.find_first_not_of(chars);
    const size_t last = text.find_last_not_of(chars);
    const bool none = first == std::string::npos;
    FUZZ_CHECK(stringUtils::trimLeft(text, chars) == (none ? "" : text.substr(first)), "trimLeft");
    FUZZ_CHECK(stringUtils::trimRight(text, chars) == (none ? "" : text.substr(0, last + 1)),
               "trimRight");
    FUZZ_CHECK(stringUtils::trim(text, chars) == (none ? "" : text.substr(first, last - first + 1)),
               "trim");
}

void checkBuilders(const std::string& text, int level) {
    FUZZ_CHECK(getTargetLoadList(text).size() <= 3, "target load went past its table");
    FUZZ_CHECK(getGameAdpList(text).size() <= 16, "game adaptation went past its tables");
    const std::vector<ZelClient::Resource> colocation = getColocationList(text);
    for (size_t i = 0; i < colocation.size(); ++i) {
        if (static_cast<uint32_t>(colocation[i].id) != 0x01010FB0) continue;
        FUZZ_CHECK(i + 1 < colocation.size() &&
                           static_cast<uint32_t>(colocation[i + 1].id) == 0x01010FC0 &&
                           std::stoi(*colocation[i].value) > std::stoi(*colocation[i + 1].value),
                   "group migration is a pair from the larger group to the smaller");
    }
    const size_t upgrade = getGameUpgradeList(0, 0, level, 0, 0, text).size();
    FUZZ_CHECK(upgrade == static_cast<size_t>(level >= 1) + static_cast<size_t>(!text.empty()),
               "game upgrade: one resource for a level, one for a text");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const size_t setSize = std::min<size_t>(data[0] % 5, size - 2);
    const std::string set(reinterpret_cast<const char*>(data + 1), setSize);
    const int level = static_cast<int8_t>(data[1 + setSize]);
    const std::string text(reinterpret_cast<const char*>(data + 2 + setSize), size - 2 - setSize);

    checkSplit(text, set);
    checkTrims(text, set.c_str());
    FUZZ_CHECK(stringUtils::parseInt(text) == referenceParseInt(text), "parseInt");
    checkBuilders(text, level);
    return 0;
}
