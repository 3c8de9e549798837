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

// Every string of up to `maxLen` bytes over `alphabet`.
std::vector<std::string> allStrings(const std::string& alphabet, size_t maxLen) {
    std::vector<std::string> out{""};
    for (size_t len = 1, begin = 0; len <= maxLen; ++len) {
        const size_t end = out.size();
        for (size_t i = begin; i < end; ++i) {
            for (char c : alphabet) out.push_back(out[i] + c);
        }
        begin = end;
    }
    return out;
}

// Against a byte-by-byte model over every short text: tokens are the maximal runs of
// non-delimiter bytes. The one-byte set takes another search path than the longer one; the empty
// set splits nothing.
TEST(StringUtils, SplitGivesTheMaximalNonDelimiterRuns) {
    for (const std::string delimiters : {"", ",", ",;"}) {
        for (const std::string& text : allStrings("ab,;", 6)) {
            std::vector<std::string> expected(1);
            for (char c : text) {
                if (delimiters.find(c) == std::string::npos) {
                    expected.back() += c;
                } else if (!expected.back().empty()) {
                    expected.emplace_back();
                }
            }
            if (expected.back().empty()) expected.pop_back();
            EXPECT_EQ(stringUtils::split(text, delimiters), expected)
                    << '"' << text << "\" by \"" << delimiters << '"';
        }
    }
}

// Against a byte-by-byte model: only bytes of the set are cut, and only at the ends.
TEST(StringUtils, TrimCutsExactlyTheSetBytesAtTheEnds) {
    EXPECT_EQ(stringUtils::trim("\t x y \r\n", WHITESPACE), "x y");
    EXPECT_EQ(stringUtils::trim("\f x\v", WHITESPACE), "\f x\v");  // not blanks here
    for (const std::string set : {WHITESPACE, "", "a", "ab"}) {
        const auto inSet = [&](char c) { return set.find(c) != std::string::npos; };
        for (const std::string& text : allStrings("ab \t\f", 5)) {
            SCOPED_TRACE("text: \"" + text + "\" set: \"" + set + "\"");
            std::string left = text;
            while (!left.empty() && inSet(left.front())) left.erase(0, 1);
            std::string right = text;
            while (!right.empty() && inSet(right.back())) right.pop_back();
            std::string both = left;
            while (!both.empty() && inSet(both.back())) both.pop_back();
            EXPECT_EQ(stringUtils::trimLeft(text, set.c_str()), left);
            EXPECT_EQ(stringUtils::trimRight(text, set.c_str()), right);
            EXPECT_EQ(stringUtils::trim(text, set.c_str()), both);
        }
    }
}

}  // namespace
