// torqctl's command parser, without running anything.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CommandParser.h"

namespace torqctl {
namespace {

constexpr auto parse = &parseCommandLine;

TEST(ParserNumbers, RangesHexSignsAndOpcodeBits) {
    int32_t v = 0;
    EXPECT_TRUE(parseInt32("-2147483648", &v) && v == INT32_MIN);
    EXPECT_TRUE(parseInt32("-0X1f", &v) && v == -31);
    for (const char* bad : {"", "-", "0x", "2147483648", "-2147483649", "12a", " 1", "1 ", "0x-1",
                            "99999999999999999999999", "--1", "0b1", "+-1", "0x+1", "1e3", "0x1g"}) {
        EXPECT_FALSE(parseInt32(bad, &v)) << bad;
    }
    // Opcodes are unsigned 32-bit values that keep their bits.
    EXPECT_TRUE(parseOpcode("0xffffffff", &v) && v == -1);
    EXPECT_FALSE(parseOpcode("0x100000000", &v));
    int64_t w = 0;
    EXPECT_TRUE(parseInt64("-9223372036854775808", &w) && w == INT64_MIN);
    EXPECT_FALSE(parseInt64("9223372036854775808", &w));
}

// That each error is one line: the torqctl_parser fuzz target. Where the fields of a command end
// up: torqctl_test, through the calls torqctl makes.
TEST(ParserCommands, BadInputIsRefusedAndSaysWhy) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> bad = {
            {{}, "missing command"},
            {{"frob\xff\tnicate"}, "unknown command 'frob??nicate'"},  // shown printable
            {{"resctl"}, "missing argument for 'resctl'"},
            {{"init", "now"}, "too many arguments for 'init'"},
            {{"resctl", "0x010108a0"}, "expected OPCODE=VALUE"},
            {{"resctl", "0x010108a0="}, "missing value"},
            {{"resctl", "--duration"}, "option --duration needs a value"},
            {{"resctl", "--duration", "8589934592", "0x1=1"}, "malformed milliseconds"},
            {{"resctl", "--colour", "0x1=1"}, "unknown option '--colour'"},
            {{"resctl", "--callback=yes", "0x1=1"}, "option --callback takes no value"},
            {{"state", "--via", "wrapper", "0x1"}, "unknown front end"},
            {{"state", "--via", "zel-one", "0x1", "0x2"}, "exactly one opcode"},
            {{"state-path", "--map", "/a=1", "/b"}, "--map needs PATH=VALUE"},
            {{"resctl-path", "=1"}, "missing path"},
            {{"listen", "0x1", "/proc/x"}, "not both"},
            {{"listen", "--for", "-5", "0x1"}, "--for cannot be negative"},
            {{"history", "maybe"}, "history takes on, off or show"},
            {{"prop", "set", "a"}, "usage: prop get NAME"},
            {{"dump", "ToDo"}, "unknown dump table 'ToDo'"},
            {{"acquire", ""}, "missing action name"},
            // ZelResAcquire takes no package: --pkg does not quietly pick another function.
            {{"res-acquire", "--pkg", "com.x", "0x1=1"}, "--pkg needs --platform"},
            {{"--version", "actions"}, "--version takes no command"},
    };
    for (const auto& [words, part] : bad) {
        SCOPED_TRACE(part);
        ParseResult r = parse(words);
        EXPECT_FALSE(r.ok);
        EXPECT_NE(r.error.find(part), std::string::npos) << r.error;
    }
}

// Words as in sh; a shell runs no shell or tour of its own. (Global options and an unterminated '
// quote on a shell line: torqctl_test's shell runs.)
TEST(ParserShell, WordsQuotesCommentsAndNesting) {
    std::vector<std::string> words;
    std::string error;
    ASSERT_TRUE(tokenize("a  'b c' \"d \\\"e\\\\\" f\\ g h#i # rest", &words, &error));
    EXPECT_EQ(words, (std::vector<std::string>{"a", "b c", "d \"e\\", "f g", "h#i"}));
    ASSERT_TRUE(tokenize("x '' y '\\\\ \\\"'", &words, &error));  // no escapes inside '...'
    EXPECT_EQ(words, (std::vector<std::string>{"x", "", "y", "\\\\ \\\""}));
    EXPECT_FALSE(tokenize("a \"b\\\"", &words, &error));
    EXPECT_EQ(error, "unterminated \" quote");

    ParseResult r = parseShellLine("  # nothing here");
    ASSERT_TRUE(r.ok);
    EXPECT_TRUE(r.command.word.empty());
    EXPECT_FALSE(parseShellLine("shell").ok);
    EXPECT_FALSE(parseShellLine("tour").ok);
    EXPECT_TRUE(parseShellLine("tour --help").ok);
}

}  // namespace
}  // namespace torqctl
