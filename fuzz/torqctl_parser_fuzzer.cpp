// torqctl's command parser on arbitrary text: command lines, shell lines, and its number and
// name parsers. It must not crash or throw; a parse either succeeds or gives a one-line error;
// the number parsers agree with each other.
//
// Input: byte 0 picks what is parsed, the rest is the text (for command lines, one word per line).

#include <CommandParser.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "FuzzCheck.h"

namespace {

void checkResult(const torqctl::ParseResult& result) {
    if (result.ok) {
        FUZZ_CHECK(result.error.empty(), "an accepted command with an error text");
    } else {
        FUZZ_CHECK(!result.error.empty(), "a refused command without an error text");
        FUZZ_CHECK(result.error.find('\n') == std::string::npos, "the error is one line");
    }
}

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> words;
    size_t start = 0;
    for (;;) {
        const size_t end = text.find('\n', start);
        words.push_back(text.substr(start, end == std::string::npos ? end : end - start));
        if (end == std::string::npos) return words;
        start = end + 1;
    }
}

void checkNumbers(const std::string& text) {
    int32_t value32 = 0;
    int64_t value64 = 0;
    int32_t opcode = 0;
    const bool is32 = torqctl::parseInt32(text, &value32);
    const bool is64 = torqctl::parseInt64(text, &value64);
    const bool isOpcode = torqctl::parseOpcode(text, &opcode);
    if (is32) {
        FUZZ_CHECK(is64 && value64 == value32, "parseInt32 and parseInt64 disagree");
        FUZZ_CHECK(isOpcode && opcode == value32, "parseInt32 and parseOpcode disagree");
    }
    const int32_t dump = torqctl::dumpCodeFor(text);
    FUZZ_CHECK(dump >= -1 && dump <= 8, "dump code out of range");
    if (dump >= 0) FUZZ_CHECK(torqctl::dumpName(dump) != nullptr, "a dump code without a name");
    (void)torqctl::commandUsage(text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
    switch (data[0] % 3) {
        case 0:
            checkResult(torqctl::parseShellLine(text));
            break;
        case 1:
            checkResult(torqctl::parseCommandLine(lines(text)));
            break;
        default: {
            std::vector<std::string> words;
            std::string error;
            if (torqctl::tokenize(text, &words, &error)) {
                for (const std::string& word : words) checkNumbers(word);
            } else {
                FUZZ_CHECK(!error.empty(), "tokenize refused a line without saying why");
            }
            checkNumbers(text);
            break;
        }
    }
    return 0;
}
