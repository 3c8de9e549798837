// torqctl's --json output on arbitrary text: whatever bytes a value or a key holds, the line is
// one JSON object, valid UTF-8 with no raw control byte, that jsoncpp reads back; each string
// comes back with only its invalid bytes escaped (as \xNN).
//
// Input: the text, split at the first NUL into a value and a key.

#include <Output.h>
#include <json/reader.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "FuzzCheck.h"

namespace {

void checkText(const std::string& text, const Json::Value& back) {
    const std::string valid = torqctl::validUtf8(text);
    FUZZ_CHECK(back.isString() && back.asString() == valid,
               "a string did not come back as validUtf8 made it");
    // An escape turns one byte into the four of \xNN; a byte above 0x7f is never valid alone.
    FUZZ_CHECK(valid.size() >= text.size() && (valid.size() - text.size()) % 3 == 0,
               "validUtf8 changed more than invalid bytes");
    for (unsigned char c : text) {
        FUZZ_CHECK(c < 0x80 || torqctl::validUtf8(std::string(1, c)).size() == 4,
                   "a lone byte kept");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::unique_ptr<Json::CharReader> reader = [] {
        Json::CharReaderBuilder builder;
        builder["failIfExtra"] = true;
        return std::unique_ptr<Json::CharReader>(builder.newCharReader());
    }();
    const std::string input(reinterpret_cast<const char*>(data), size);
    const size_t nul = input.find('\0');
    const std::string value = input.substr(0, nul);
    const std::string key = nul == std::string::npos ? std::string() : "k" + input.substr(nul + 1);

    Json::Value object(Json::objectValue);
    object["value"] = value;
    object[key] = key;
    const std::string line = torqctl::toJsonLine(object);
    FUZZ_CHECK(std::none_of(line.begin(), line.end(),
                            [](char c) { return static_cast<unsigned char>(c) < 0x20; }),
               "a control byte written raw");
    FUZZ_CHECK(torqctl::validUtf8(line) == line, "the JSON line is not valid UTF-8");
    Json::Value back;
    FUZZ_CHECK(reader->parse(line.data(), line.data() + line.size(), &back, nullptr),
               "torqctl wrote JSON that does not parse");
    FUZZ_CHECK(back.isObject() && back.size() == 2, "not the object written");
    checkText(value, back["value"]);
    checkText(key, back[torqctl::validUtf8(key)]);
    return 0;
}
