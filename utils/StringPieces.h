#pragma once

// The non-copying core of stringUtils, for the library's own hot paths: the same splitting,
// trimming and search rules as the exported functions (which are built on these), but over views
// into the caller's text, so that parsing a data text allocates nothing but its results.
// Not exported; a view is only valid while the text it points into lives.

#include <cstddef>
#include <string_view>

namespace stringUtils::pieces {

// True when `part` occurs in `text`; the empty part is everywhere.
inline bool contains(std::string_view text, std::string_view part) {
    return text.find(part) != std::string_view::npos;
}

namespace detail {

// find_first_of / find_first_not_of, with the common one-byte set searched as a byte.
inline size_t findIn(std::string_view text, std::string_view set, size_t from) {
    return set.size() == 1 ? text.find(set[0], from) : text.find_first_of(set, from);
}

inline size_t findNotIn(std::string_view text, std::string_view set, size_t from) {
    return set.size() == 1 ? text.find_first_not_of(set[0], from)
                           : text.find_first_not_of(set, from);
}

}  // namespace detail

// Calls `visit(piece)` for each non-empty piece of `text` between bytes listed in `delimiters`,
// in order, until it returns false. Runs of delimiters and delimiters at either end yield nothing;
// with no delimiters the whole text is the one piece (none if it is empty).
template <typename Visit>
void forEachPiece(std::string_view text, std::string_view delimiters, Visit&& visit) {
    size_t start = detail::findNotIn(text, delimiters, 0);
    while (start != std::string_view::npos) {
        const size_t end = detail::findIn(text, delimiters, start);
        if (!visit(text.substr(start, end == std::string_view::npos ? end : end - start))) return;
        if (end == std::string_view::npos) return;
        start = detail::findNotIn(text, delimiters, end);
    }
}

// The piece at `index` (0-based) as forEachPiece counts them; false when there are fewer.
inline bool pieceAt(std::string_view text, std::string_view delimiters, size_t index,
                    std::string_view* piece) {
    bool found = false;
    forEachPiece(text, delimiters, [&](std::string_view p) {
        if (index-- > 0) return true;
        *piece = p;
        found = true;
        return false;
    });
    return found;
}

// The set of bytes a C string lists; a null pointer lists none.
inline std::string_view byteSet(const char* chars) {
    return chars == nullptr ? std::string_view() : std::string_view(chars);
}

// Without the bytes listed in `chars` at the start / at the end. An empty set leaves the text as
// it is.
inline std::string_view trimLeft(std::string_view text, std::string_view chars) {
    if (chars.empty()) return text;
    const size_t first = text.find_first_not_of(chars);
    return first == std::string_view::npos ? std::string_view() : text.substr(first);
}

inline std::string_view trimRight(std::string_view text, std::string_view chars) {
    if (chars.empty()) return text;
    const size_t last = text.find_last_not_of(chars);
    return last == std::string_view::npos ? std::string_view() : text.substr(0, last + 1);
}

inline std::string_view trim(std::string_view text, std::string_view chars) {
    return trimRight(trimLeft(text, chars), chars);
}

}  // namespace stringUtils::pieces
