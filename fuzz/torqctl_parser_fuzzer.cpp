// torqctl's command parser on arbitrary text, as a shell line and, split into words, as a command
// line. It must not crash or throw; a parse either succeeds or gives a one-line error; nothing
// after the first "--" is read as an option; words quoted as sh quotes them read back unchanged.

#include <CommandParser.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "FuzzCheck.h"

namespace {

using torqctl::ParseResult;

void checkResult(const ParseResult& result) {
    FUZZ_CHECK(result.ok == result.error.empty(), "an error text exactly when refused");
    FUZZ_CHECK(result.error.find('\n') == std::string::npos, "the error is one line");
}

// After "--", neither a global option nor --help counts: the globals are those of the words
// before it, and only a --help before it asks for help. A "--" right after an option may be that
// option's value ("--scene --"), which ends nothing for the command, so --help is not checked then.
void checkEndMarker(const std::vector<std::string>& args, const ParseResult& result) {
    const auto end = std::find(args.begin(), args.end(), "--");
    if (end == args.end()) return;
    const std::vector<std::string> words(args.begin(), end);
    const torqctl::GlobalOptions before = torqctl::parseCommandLine(words).global;
    FUZZ_CHECK(before.json == result.global.json && before.log == result.global.log &&
                       before.noSim == result.global.noSim &&
                       before.version == result.global.version,
               "a global option after -- was taken");
    const bool mayBeAValue = !words.empty() && words.back().rfind("--", 0) == 0 &&
                             words.back().find('=') == std::string::npos;
    if (!mayBeAValue && std::find(args.begin(), end, "--help") == end &&
        std::find(args.begin(), end, "-h") == end) {
        FUZZ_CHECK(!result.command.help, "a --help after -- was taken");
    }
}

// The words as sh would quote them, '...' and "..." in turn.
std::string quoted(const std::vector<std::string>& words) {
    std::string line;
    for (size_t i = 0; i < words.size(); ++i) {
        const char quote = i % 2 == 0 ? '\'' : '"';
        line += ' ';
        line += quote;
        for (char c : words[i]) {
            if (quote == '\'' && c == '\'') {
                line += "'\\''";  // end the quote, an escaped quote, quote again
                continue;
            }
            if (quote == '"' && (c == '"' || c == '\\')) line += '\\';
            line += c;
        }
        line += quote;
    }
    return line;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string line(reinterpret_cast<const char*>(data), size);
    const ParseResult shell = torqctl::parseShellLine(line);
    checkResult(shell);
    std::vector<std::string> words;
    std::string error;
    if (!torqctl::tokenize(line, &words, &error)) {
        FUZZ_CHECK(!error.empty(), "tokenize refused a line without saying why");
        return 0;
    }
    std::vector<std::string> again;
    FUZZ_CHECK(torqctl::tokenize(quoted(words), &again, &error) && again == words,
               "quoted words read back differently");
    // The same words as a command line.
    const ParseResult result = torqctl::parseCommandLine(words);
    checkResult(result);
    checkEndMarker(words, result);
    // A shell line refuses global options, but only those the command line would take.
    const torqctl::GlobalOptions& global = result.global;
    if (!global.json && !global.log && !global.noSim && !global.version) {
        FUZZ_CHECK(shell.error.rfind("global option", 0) != 0, "a global option after -- refused");
    }
    return 0;
}
