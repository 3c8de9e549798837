// torqctl's command parser, without running anything.

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "CommandParser.h"

namespace torqctl {
namespace {

ParseResult parse(std::vector<std::string> words) {
    return parseCommandLine(words);
}

TEST(ParserNumbers, Int32AcceptsDecimalHexAndSignsWithinRange) {
    int32_t v = 0;
    EXPECT_TRUE(parseInt32("2147483647", &v));
    EXPECT_EQ(v, 2147483647);
    EXPECT_TRUE(parseInt32("-2147483648", &v));
    EXPECT_EQ(v, INT32_MIN);
    EXPECT_TRUE(parseInt32("0x10", &v));
    EXPECT_EQ(v, 16);
    EXPECT_TRUE(parseInt32("-0X1f", &v));
    EXPECT_EQ(v, -31);
    EXPECT_TRUE(parseInt32("+7", &v));
    EXPECT_EQ(v, 7);
    for (const char* bad : {"", "-", "0x", "2147483648", "-2147483649", "12a", " 1", "1 ", "0x-1",
                            "99999999999999999999999", "--1", "0b1"}) {
        EXPECT_FALSE(parseInt32(bad, &v)) << bad;
    }
}

TEST(ParserNumbers, OpcodesKeepTheirBitsUpTo32Bits) {
    int32_t v = 0;
    EXPECT_TRUE(parseOpcode("0x010108a0", &v));
    EXPECT_EQ(v, 0x010108A0);
    EXPECT_TRUE(parseOpcode("0xffffffff", &v));
    EXPECT_EQ(v, -1);
    EXPECT_TRUE(parseOpcode("4294967295", &v));
    EXPECT_EQ(v, -1);
    EXPECT_FALSE(parseOpcode("0x100000000", &v));
    EXPECT_FALSE(parseOpcode("opcode", &v));
    int64_t w = 0;
    EXPECT_TRUE(parseInt64("-9223372036854775808", &w));
    EXPECT_EQ(w, INT64_MIN);
    EXPECT_FALSE(parseInt64("9223372036854775808", &w));
}

TEST(ParserTokenize, QuotesEscapesAndComments) {
    std::vector<std::string> words;
    std::string error;
    ASSERT_TRUE(tokenize("a  'b c' \"d \\\"e\\\\\" f\\ g h#i # rest", &words, &error));
    EXPECT_EQ(words, (std::vector<std::string>{"a", "b c", "d \"e\\", "f g", "h#i"}));
    ASSERT_TRUE(tokenize("x '' y", &words, &error));
    EXPECT_EQ(words, (std::vector<std::string>{"x", "", "y"}));
    ASSERT_TRUE(tokenize("   # only a comment", &words, &error));
    EXPECT_TRUE(words.empty());
    EXPECT_FALSE(tokenize("a 'b", &words, &error));
    EXPECT_NE(error.find("unterminated"), std::string::npos);
    EXPECT_FALSE(tokenize("a \"b\\\"", &words, &error));
}

TEST(ParserCommands, GlobalOptionsStandAnywhereBeforeTheEndMarker) {
    ParseResult r = parse({"resctl", "--json", "0x010108a0=5", "--no-sim", "--log"});
    ASSERT_TRUE(r.ok) << r.error;
    EXPECT_TRUE(r.global.json);
    EXPECT_TRUE(r.global.log);
    EXPECT_TRUE(r.global.noSim);
    ASSERT_EQ(r.command.resources.size(), 1u);

    r = parse({"prop", "set", "--", "name", "--json"});
    ASSERT_TRUE(r.ok) << r.error;
    EXPECT_FALSE(r.global.json);
    EXPECT_EQ(r.command.value, "--json");
}

TEST(ParserCommands, ResourceControlFields) {
    ParseResult r = parse({"resctl", "--duration=1500", "--param", "3", "--option", "-2", "--level",
                           "1", "--tag", "0x10", "--callback", "0x010108a0=50", "17=a=b"});
    ASSERT_TRUE(r.ok) << r.error;
    const Command& c = r.command;
    EXPECT_EQ(c.verb, Verb::kResCtl);
    EXPECT_EQ(c.duration, 1500);
    EXPECT_EQ(c.param, 3);
    EXPECT_EQ(c.option, -2);
    EXPECT_EQ(c.level, 1);
    EXPECT_EQ(c.tag, 16);
    EXPECT_TRUE(c.callback);
    ASSERT_EQ(c.resources.size(), 2u);
    EXPECT_EQ(c.resources[0].id, 0x010108A0);
    EXPECT_EQ(c.resources[0].value, "50");
    EXPECT_EQ(c.resources[1].id, 17);
    EXPECT_EQ(c.resources[1].value, "a=b");

    // Defaults: the library's "not given" values.
    r = parse({"sactl", "9"});
    ASSERT_TRUE(r.ok);
    EXPECT_EQ(r.command.param, -1);
    EXPECT_EQ(r.command.option, -1);
    EXPECT_EQ(r.command.level, -1);
    EXPECT_EQ(r.command.tag, 0);
    EXPECT_EQ(r.command.duration, 0);

    // Only the path form takes a 64-bit duration.
    EXPECT_TRUE(parse({"resctl-path", "--duration", "8589934592", "/a=1"}).ok);
    EXPECT_FALSE(parse({"resctl", "--duration", "8589934592", "0x1=1"}).ok);
}

TEST(ParserCommands, PathsListenersAndStateForms) {
    ParseResult r = parse({"state-path", "--map", "/a=1", "/b=2"});
    ASSERT_TRUE(r.ok) << r.error;
    EXPECT_TRUE(r.command.map);
    ASSERT_EQ(r.command.paths.size(), 2u);
    EXPECT_EQ(r.command.paths[1].value, "2");
    EXPECT_FALSE(parse({"state-path", "--map", "/a=1", "/b"}).ok);

    r = parse({"state-path", "/a", "/b=2"});
    ASSERT_TRUE(r.ok);
    EXPECT_FALSE(r.command.paths[0].value.has_value());

    r = parse({"listen", "--for", "100", "/proc/x", "/proc/y"});
    ASSERT_TRUE(r.ok);
    EXPECT_EQ(r.command.paths.size(), 2u);
    EXPECT_EQ(r.command.forMs, 100);
    r = parse({"listen", "0x010108a0"});
    ASSERT_TRUE(r.ok);
    EXPECT_FALSE(r.command.forMs.has_value());
    EXPECT_FALSE(parse({"listen", "0x1", "/proc/x"}).ok);
    EXPECT_FALSE(parse({"listen", "--for", "-5", "0x1"}).ok);

    EXPECT_TRUE(parse({"state", "--via", "zel-one", "0x1"}).ok);
    EXPECT_FALSE(parse({"state", "--via", "zel-one", "0x1", "0x2"}).ok);
    EXPECT_FALSE(parse({"state", "--via", "other", "0x1"}).ok);
    EXPECT_TRUE(parse({"thermal-listen"}).ok);  // no ids: every thermal id
}

TEST(ParserCommands, NamedArgumentsOfTheSmallerCommands) {
    EXPECT_EQ(parse({"dump", "runmap"}).command.number, 1);
    EXPECT_EQ(parse({"dump", "8"}).command.number, 8);
    EXPECT_TRUE(parse({"dump", "all"}).command.allDumps);
    EXPECT_EQ(dumpCodeFor("9"), -1);
    EXPECT_EQ(dumpCodeFor("PIDFDMONITORMAP"), 7);

    ParseResult r = parse({"notify", "15", "-1", "0x100", "a b", "--name", "N"});
    ASSERT_TRUE(r.ok) << r.error;
    EXPECT_EQ(r.command.number, 15);
    EXPECT_EQ(r.command.number2, -1);
    EXPECT_EQ(r.command.number3, 256);
    EXPECT_EQ(r.command.text, "a b");
    EXPECT_EQ(r.command.notifyName, "N");

    r = parse({"sysinfo", "4", "-9000000000"});
    ASSERT_TRUE(r.ok);
    EXPECT_EQ(r.command.value64, -9000000000LL);

    r = parse({"res-acquire", "--pkg", "com.x", "0x1=1"});
    ASSERT_TRUE(r.ok);
    EXPECT_TRUE(r.command.platform);  // a package means the platform form

    r = parse({"acquire", "ACTION_LAUNCH", "--timeout", "250", "--scene", "s"});
    ASSERT_TRUE(r.ok);
    EXPECT_EQ(r.command.duration, 250);
    EXPECT_EQ(r.command.text, "s");
    EXPECT_EQ(r.command.identity, "torqctl");

    r = parse({"restart-hal", "--after", "20"});
    ASSERT_TRUE(r.ok);
    EXPECT_EQ(r.command.forMs, 20);
}

TEST(ParserCommands, BadInputGivesOneReadableLine) {
    const std::vector<std::vector<std::string>> bad = {
            {},
            {"frobnicate"},
            {"resctl"},
            {"resctl", "0x010108a0"},
            {"resctl", "0x010108a0="},
            {"resctl", "zz=1"},
            {"resctl", "--duration"},
            {"resctl", "--duration", "soon", "0x1=1"},
            {"resctl", "--colour", "0x1=1"},
            {"resctl", "--callback=yes", "0x1=1"},
            {"release"},
            {"release", "1", "2"},
            {"release", "one"},
            {"release", "1", "--via", "carrier-pigeon"},
            {"history", "maybe"},
            {"prop", "get"},
            {"prop", "set", "a"},
            {"prop", "del", "a"},
            {"dump", "ToDo"},
            {"pm"},
            {"thermal", "1"},
            {"wait", "-1"},
            {"help", "frobnicate"},
            {"acquire", ""},
            {"resctl-path", "=1"},
            {"init", "now"},
    };
    for (const auto& words : bad) {
        ParseResult r = parse(words);
        std::string joined;
        for (const auto& w : words) joined += w + " ";
        EXPECT_FALSE(r.ok) << joined;
        EXPECT_FALSE(r.error.empty()) << joined;
        EXPECT_EQ(r.error.find('\n'), std::string::npos) << joined;
    }
}

TEST(ParserCommands, HelpIsAnOptionOfEveryCommand) {
    ParseResult r = parse({"resctl", "--help"});
    ASSERT_TRUE(r.ok);
    EXPECT_TRUE(r.command.help);
    r = parse({"--help"});
    ASSERT_TRUE(r.ok);
    EXPECT_EQ(r.command.verb, Verb::kHelp);
    EXPECT_NE(usage().find("resctl-path"), std::string::npos);
    EXPECT_NE(commandUsage("thermal").find("ID=LEVEL"), std::string::npos);
    EXPECT_TRUE(commandUsage("nothing").empty());
}

TEST(ParserShell, LinesRefuseGlobalOptionsAndNesting) {
    ParseResult r = parseShellLine("  # nothing here");
    ASSERT_TRUE(r.ok);
    EXPECT_EQ(r.command.verb, Verb::kNone);
    r = parseShellLine("prop set name 'two words'");
    ASSERT_TRUE(r.ok) << r.error;
    EXPECT_EQ(r.command.value, "two words");
    EXPECT_FALSE(parseShellLine("resctl --json 0x1=1").ok);
    EXPECT_FALSE(parseShellLine("shell").ok);
    EXPECT_FALSE(parseShellLine("tour").ok);
    EXPECT_TRUE(parseShellLine("tour --help").ok);
    EXPECT_FALSE(parseShellLine("resctl '0x1=1").ok);
}

TEST(ParserShell, ArbitraryTextNeverBreaksTheParser) {
    std::mt19937 rng(1234);
    const std::string alphabet = "resctlpathdump0x19=-/ '\"\\#\t\n\xff\x01--jsonhelp";
    for (int i = 0; i < 20000; ++i) {
        std::string line;
        const size_t length = rng() % 40;
        for (size_t j = 0; j < length; ++j) line += alphabet[rng() % alphabet.size()];
        ParseResult r = parseShellLine(line);
        if (!r.ok) {
            ASSERT_FALSE(r.error.empty());
            for (unsigned char c : r.error) ASSERT_TRUE(c >= 0x20 && c < 0x7f) << r.error;
        }
    }
}

}  // namespace
}  // namespace torqctl
