// torqctl's --json output on arbitrary text: whatever bytes a value, a package name, a path or a
// key holds, each line is one JSON object that jsoncpp reads back; it is valid UTF-8; text that
// was valid UTF-8 comes back unchanged, and no valid character is lost around invalid bytes.
//
// Input: the text, split at the first NUL into a value and a second string (package, path).

#include <Output.h>
#include <json/reader.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "FuzzCheck.h"

namespace {

Json::Value parse(const std::string& line) {
    static const std::unique_ptr<Json::CharReader> reader = [] {
        Json::CharReaderBuilder builder;
        builder["collectComments"] = false;
        builder["failIfExtra"] = true;
        builder["rejectDupKeys"] = true;
        return std::unique_ptr<Json::CharReader>(builder.newCharReader());
    }();
    Json::Value value;
    std::string errors;
    const bool ok = reader->parse(line.data(), line.data() + line.size(), &value, &errors);
    FUZZ_CHECK(ok, "torqctl wrote JSON that does not parse");
    FUZZ_CHECK(value.isObject(), "a JSON line that is not an object");
    return value;
}

// A string read back from the JSON is the text made valid, and nothing else.
void checkText(const std::string& original, const std::string& readBack) {
    const std::string valid = torqctl::validUtf8(original);
    FUZZ_CHECK(readBack == valid, "a string did not come back as validUtf8 made it");
    FUZZ_CHECK(torqctl::validUtf8(valid) == valid, "validUtf8 is not idempotent");
    bool ascii = true;
    for (unsigned char c : original) ascii = ascii && c < 0x80;
    if (ascii) FUZZ_CHECK(readBack == original, "ASCII text changed on its way through JSON");
    // Escapes only add bytes: each invalid byte becomes four.
    FUZZ_CHECK(valid.size() >= original.size(), "validUtf8 dropped bytes");
    FUZZ_CHECK((valid.size() - original.size()) % 3 == 0, "an escape is not \\xNN");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    const size_t nul = input.find('\0');
    const std::string value = input.substr(0, nul);
    const std::string other = nul == std::string::npos ? std::string() : input.substr(nul + 1);

    // A report's own fields, a member added by a command, and a key made of the text.
    Json::Value object(Json::objectValue);
    object["args"] = value;
    object["values"] = Json::Value(Json::arrayValue);
    object["values"].append(other);
    object["k" + other] = 1;
    const std::string line = torqctl::toJsonLine(object);
    FUZZ_CHECK(line.find('\n') == std::string::npos, "a JSON object over more than one line");
    FUZZ_CHECK(torqctl::validUtf8(line) == line, "the JSON line is not valid UTF-8");
    const Json::Value back = parse(line);
    checkText(value, back["args"].asString());
    checkText(other, back["values"][0].asString());
    FUZZ_CHECK(back.isMember("k" + torqctl::validUtf8(other)), "a key was lost");

    // What the HAL received, with the text in every string field of a call and a callback.
    torq_sim::JournalEntry call;
    call.type = torq_sim::JournalEntry::Type::kCall;
    call.call.method = "request";
    call.call.parcel.pkg = other;
    call.call.parcel.identity = value;
    call.call.parcel.data.push_back({});
    call.call.parcel.data.back().value = value;
    call.call.parcel.data.back().path = other;
    call.answer.message = value;
    torq_sim::JournalEntry callback;
    callback.type = torq_sim::JournalEntry::Type::kCallback;
    callback.target = other;
    callback.records.push_back({});
    callback.records.back().value = value;
    Json::Value report(Json::objectValue);
    report["hal"] = torqctl::halJson({call, callback});
    const Json::Value hal = parse(torqctl::toJsonLine(report))["hal"];
    FUZZ_CHECK(hal.size() == 2, "journal entries lost");
    checkText(other, hal[0]["pkg"].asString());
    checkText(value, hal[0]["identity"].asString());
    checkText(value, hal[0]["data"][0]["value"].asString());
    checkText(other, hal[0]["data"][0]["path"].asString());
    checkText(value, hal[0]["answer"]["message"].asString());
    checkText(other, hal[1]["to"].asString());
    checkText(value, hal[1]["records"][0]["value"].asString());
    return 0;
}
