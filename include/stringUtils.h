#pragma once

// Byte-string helpers used to parse the data texts of the wrapper layer. Everything works on raw
// bytes: no locale, no encoding, no state.

#include <cstdint>
#include <string>
#include <vector>

#include "ZelExport.h"

namespace stringUtils {

// The blanks the wrapper trims: space, line feed, carriage return and tab. Form feed and vertical
// tab are deliberately not part of the set.
ZEL_EXPORT extern const char* WHITESPACE;

// True when `part` occurs in `text` as a contiguous byte sequence. The empty part is everywhere.
ZEL_EXPORT bool contains(std::string text, std::string part);

// Same length and same bytes (case-sensitive).
ZEL_EXPORT bool equals(std::string a, std::string b);

// Base-10 conversion as std::stoi does it (leading blanks skipped, optional sign, trailing bytes
// ignored). Returns 0, without any message, when nothing can be read or the value does not fit in
// 32 bits: callers cannot tell "0" from "not a number".
ZEL_EXPORT int32_t parseInt(std::string text);

// Decimal text of the value, "-5" for -5.
ZEL_EXPORT std::string valueOf(int32_t value);

// Strip the bytes listed in `chars` from the start, the end, or both ends (start first).
ZEL_EXPORT std::string trimLeft(const std::string& text, const char* chars);
ZEL_EXPORT std::string trimRight(const std::string& text, const char* chars);
ZEL_EXPORT std::string trim(const std::string& text, const char* chars);

// Splits at every byte listed in `delimiters` (a set of single bytes, not a separator string).
// Runs of delimiters and delimiters at either end produce nothing, so no token is ever empty.
ZEL_EXPORT std::vector<std::string> split(const std::string& text, std::string delimiters);

}  // namespace stringUtils
