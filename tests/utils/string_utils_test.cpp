#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "stringUtils.h"

namespace {

using stringUtils::WHITESPACE;

TEST(StringUtils, ContainsAndEqualsCompareRawBytes) {
    const std::string aNulB("a\0b", 3);
    EXPECT_TRUE(stringUtils::contains("xVARDEX_", "VARDEX_"));
    EXPECT_FALSE(stringUtils::contains("vardex_ACTION", "VARDEX_"));
    EXPECT_FALSE(stringUtils::contains("VARDEX", "VARDEX_"));
    EXPECT_TRUE(stringUtils::contains("abc", ""));
    EXPECT_FALSE(stringUtils::contains("", "a"));
    // An embedded NUL is an ordinary byte, not the end of the text.
    EXPECT_TRUE(stringUtils::contains(aNulB, std::string("\0b", 2)));
    EXPECT_FALSE(stringUtils::contains(aNulB, std::string("\0c", 2)));

    EXPECT_TRUE(stringUtils::equals("", ""));
    EXPECT_FALSE(stringUtils::equals("abc", "ABC"));
    EXPECT_FALSE(stringUtils::equals("abc", "abc "));
    EXPECT_FALSE(stringUtils::equals(std::string("ab\0", 3), "ab"));
}

TEST(StringUtils, ParseIntReadsALeadingDecimalOrGivesZero) {
    EXPECT_EQ(stringUtils::parseInt(" 42abc"), 42);
    EXPECT_EQ(stringUtils::parseInt("\t\n-17"), -17);
    EXPECT_EQ(stringUtils::parseInt("+8"), 8);
    EXPECT_EQ(stringUtils::parseInt("007"), 7);
    EXPECT_EQ(stringUtils::parseInt("2147483647"), INT32_MAX);
    EXPECT_EQ(stringUtils::parseInt("-2147483648"), INT32_MIN);
    // Base 10 only ("0x10" is 0 and ignored text); nothing readable and out of range are 0 too.
    for (const char* text : {"0x10", "abc", "", "-", "  ", "2147483648", "-2147483649"}) {
        EXPECT_EQ(stringUtils::parseInt(text), 0) << '"' << text << '"';
    }
    EXPECT_EQ(stringUtils::valueOf(INT32_MIN), "-2147483648");
    for (int32_t v : {INT32_MIN, -5, 0, 1200, INT32_MAX}) {
        EXPECT_EQ(stringUtils::parseInt(stringUtils::valueOf(v)), v);
    }
}

// Tokens are the maximal runs of non-delimiter bytes; a one-byte set takes another search path
// than a longer one, and an empty set splits nothing. (The fuzzer holds both functions to these
// rules on arbitrary text.)
TEST(StringUtils, SplitAndTrimCutOnlyBytesOfTheirSet) {
    using Tokens = std::vector<std::string>;
    EXPECT_EQ(stringUtils::split(",a,,b;c,", ","), (Tokens{"a", "b;c"}));
    EXPECT_EQ(stringUtils::split(",a,,b;c;", ",;"), (Tokens{"a", "b", "c"}));
    EXPECT_EQ(stringUtils::split("a,b", ""), (Tokens{"a,b"}));
    EXPECT_EQ(stringUtils::split(",,", ","), Tokens{});
    EXPECT_EQ(stringUtils::split("", ","), Tokens{});

    EXPECT_EQ(stringUtils::trim("\t x y \r\n", WHITESPACE), "x y");
    EXPECT_EQ(stringUtils::trim("\f x\v", WHITESPACE), "\f x\v");  // not blanks here
    EXPECT_EQ(stringUtils::trimLeft("abxab", "ab"), "xab");
    EXPECT_EQ(stringUtils::trimRight("abxab", "ab"), "abx");
    EXPECT_EQ(stringUtils::trim("abxab", "ab"), "x");
    EXPECT_EQ(stringUtils::trim("abab", "ab"), "");
    EXPECT_EQ(stringUtils::trim(" a ", ""), " a ");
}

}  // namespace
