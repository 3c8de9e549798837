#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "stringUtils.h"

namespace {

using Tokens = std::vector<std::string>;
using stringUtils::WHITESPACE;

TEST(StringUtilsWhitespace, IsExactlySpaceNewlineReturnTab) {
    ASSERT_NE(WHITESPACE, nullptr);
    EXPECT_EQ(std::string(WHITESPACE), std::string(" \n\r\t"));
}

TEST(StringUtilsContains, IsAPlainByteSubstringSearch) {
    EXPECT_TRUE(stringUtils::contains("VARDEX_ACTION", "VARDEX_"));
    EXPECT_TRUE(stringUtils::contains("xVARDEX_", "VARDEX_"));
    EXPECT_FALSE(stringUtils::contains("vardex_ACTION", "VARDEX_"));
    EXPECT_FALSE(stringUtils::contains("VARDEX", "VARDEX_"));
    EXPECT_TRUE(stringUtils::contains("abc", ""));
    EXPECT_TRUE(stringUtils::contains("", ""));
    EXPECT_FALSE(stringUtils::contains("", "a"));
    // Bytes, not C strings: an embedded NUL is an ordinary byte.
    EXPECT_TRUE(stringUtils::contains(std::string("a\0b", 3), std::string("\0b", 2)));
    EXPECT_FALSE(stringUtils::contains(std::string("a\0b", 3), std::string("\0c", 2)));
}

TEST(StringUtilsEquals, ComparesLengthAndBytes) {
    EXPECT_TRUE(stringUtils::equals("abc", "abc"));
    EXPECT_TRUE(stringUtils::equals("", ""));
    EXPECT_FALSE(stringUtils::equals("abc", "ABC"));
    EXPECT_FALSE(stringUtils::equals("abc", "abc "));
    EXPECT_FALSE(stringUtils::equals("abc", "ab"));
    EXPECT_FALSE(stringUtils::equals(std::string("ab\0", 3), "ab"));
}

TEST(StringUtilsParseInt, ReadsLeadingDecimalNumber) {
    EXPECT_EQ(stringUtils::parseInt(" 42abc"), 42);
    EXPECT_EQ(stringUtils::parseInt("\t\n-17"), -17);
    EXPECT_EQ(stringUtils::parseInt("+8"), 8);
    EXPECT_EQ(stringUtils::parseInt("007"), 7);
    // Base 10 only: "0x10" reads as 0 followed by ignored text.
    EXPECT_EQ(stringUtils::parseInt("0x10"), 0);
    EXPECT_EQ(stringUtils::parseInt("2147483647"), INT32_MAX);
    EXPECT_EQ(stringUtils::parseInt("-2147483648"), INT32_MIN);
}

TEST(StringUtilsParseInt, UnreadableOrOutOfRangeIsZero) {
    EXPECT_EQ(stringUtils::parseInt("abc"), 0);
    EXPECT_EQ(stringUtils::parseInt(""), 0);
    EXPECT_EQ(stringUtils::parseInt("-"), 0);
    EXPECT_EQ(stringUtils::parseInt("  "), 0);
    EXPECT_EQ(stringUtils::parseInt("99999999999"), 0);
    EXPECT_EQ(stringUtils::parseInt("2147483648"), 0);
    EXPECT_EQ(stringUtils::parseInt("-2147483649"), 0);
}

TEST(StringUtilsValueOf, IsPlainDecimal) {
    EXPECT_EQ(stringUtils::valueOf(0), "0");
    EXPECT_EQ(stringUtils::valueOf(-5), "-5");
    EXPECT_EQ(stringUtils::valueOf(1200), "1200");
    EXPECT_EQ(stringUtils::valueOf(INT32_MIN), "-2147483648");
    for (int32_t v : {INT32_MIN, -1, 0, 1, 3, 65536, INT32_MAX}) {
        EXPECT_EQ(stringUtils::parseInt(stringUtils::valueOf(v)), v);
    }
}

TEST(StringUtilsTrim, StripsOnlyBytesOfTheSet) {
    EXPECT_EQ(stringUtils::trim("\t x y \r\n", WHITESPACE), "x y");
    // Form feed and vertical tab are not white space here.
    EXPECT_EQ(stringUtils::trim("\f x", WHITESPACE), "\f x");
    EXPECT_EQ(stringUtils::trim("x\v", WHITESPACE), "x\v");
    EXPECT_EQ(stringUtils::trimLeft("   ", WHITESPACE), "");
    EXPECT_EQ(stringUtils::trimRight("   ", WHITESPACE), "");
    EXPECT_EQ(stringUtils::trim("", WHITESPACE), "");
    EXPECT_EQ(stringUtils::trimLeft("  a b  ", WHITESPACE), "a b  ");
    EXPECT_EQ(stringUtils::trimRight("  a b  ", WHITESPACE), "  a b");
    EXPECT_EQ(stringUtils::trim("--7--", "-"), "7");
    EXPECT_EQ(stringUtils::trim("xyabcyx", "xy"), "abc");
}

TEST(StringUtilsTrim, EmptySetLeavesTextUnchanged) {
    EXPECT_EQ(stringUtils::trimLeft("  a  ", ""), "  a  ");
    EXPECT_EQ(stringUtils::trimRight("  a  ", ""), "  a  ");
    EXPECT_EQ(stringUtils::trim("  a  ", ""), "  a  ");
}

TEST(StringUtilsSplit, DelimitersAreASetOfBytes) {
    EXPECT_EQ(stringUtils::split("a,,b,", ","), (Tokens{"a", "b"}));
    EXPECT_EQ(stringUtils::split(",;a;b", ",;"), (Tokens{"a", "b"}));
    EXPECT_EQ(stringUtils::split("", ","), Tokens{});
    EXPECT_EQ(stringUtils::split(",,;,", ",;"), Tokens{});
    EXPECT_EQ(stringUtils::split("abc", ","), (Tokens{"abc"}));
    // "-;" is two separators, not one two-byte separator.
    EXPECT_EQ(stringUtils::split("1-2;3", "-;"), (Tokens{"1", "2", "3"}));
    EXPECT_EQ(stringUtils::split("1-;2", "-;"), (Tokens{"1", "2"}));
    EXPECT_EQ(stringUtils::split(" a b ", " "), (Tokens{"a", "b"}));
}

TEST(StringUtilsSplit, EmptySetGivesWholeText) {
    EXPECT_EQ(stringUtils::split("a,b", ""), (Tokens{"a,b"}));
    EXPECT_EQ(stringUtils::split("", ""), Tokens{});
}

// Every string of up to `maxLen` bytes over `alphabet`.
std::vector<std::string> allStrings(const std::string& alphabet, size_t maxLen) {
    std::vector<std::string> out{""};
    size_t begin = 0;
    for (size_t len = 1; len <= maxLen; ++len) {
        const size_t end = out.size();
        for (size_t i = begin; i < end; ++i) {
            for (char c : alphabet) out.push_back(out[i] + c);
        }
        begin = end;
    }
    return out;
}

// Tokens are exactly the maximal runs of non-delimiter bytes: none is empty, none holds a
// delimiter, together they are the text with its delimiters removed, and there is one per run.
TEST(StringUtilsSplit, TokensAreTheMaximalNonDelimiterRuns) {
    const std::string delimiters = ",;";
    for (const std::string& text : allStrings("ab,;", 6)) {
        SCOPED_TRACE("text: \"" + text + "\"");
        const Tokens tokens = stringUtils::split(text, delimiters);
        std::string joined;
        for (const std::string& t : tokens) {
            EXPECT_FALSE(t.empty());
            EXPECT_EQ(t.find_first_of(delimiters), std::string::npos);
            joined += t;
        }
        std::string stripped;
        size_t runs = 0;
        bool inRun = false;
        for (char c : text) {
            const bool isDelimiter = delimiters.find(c) != std::string::npos;
            if (!isDelimiter) {
                stripped += c;
                if (!inRun) ++runs;
            }
            inRun = !isDelimiter;
        }
        EXPECT_EQ(joined, stripped);
        EXPECT_EQ(tokens.size(), runs);
    }
}

TEST(StringUtilsTrim, TrimIsTrimLeftThenTrimRight) {
    for (const char* chars : {WHITESPACE, "", "a", "ab"}) {
        for (const std::string& text : allStrings(std::string("ab \t\f", 5), 5)) {
            SCOPED_TRACE("text: \"" + text + "\" chars: \"" + chars + "\"");
            const std::string left = stringUtils::trimLeft(text, chars);
            const std::string right = stringUtils::trimRight(text, chars);
            EXPECT_EQ(stringUtils::trim(text, chars), stringUtils::trimRight(left, chars));
            // trimLeft keeps a suffix and cuts only set bytes, up to the first byte outside the
            // set; trimRight mirrors it.
            EXPECT_EQ(text.compare(text.size() - left.size(), left.size(), left), 0);
            EXPECT_EQ(text.compare(0, right.size(), right), 0);
            if (!left.empty()) {
                EXPECT_EQ(std::strchr(chars, left.front()), nullptr);
            }
            if (!right.empty()) {
                EXPECT_EQ(std::strchr(chars, right.back()), nullptr);
            }
            for (size_t i = 0; i < text.size() - left.size(); ++i) {
                EXPECT_NE(std::strchr(chars, text[i]), nullptr);
            }
            for (size_t i = right.size(); i < text.size(); ++i) {
                EXPECT_NE(std::strchr(chars, text[i]), nullptr);
            }
        }
    }
}

}  // namespace
