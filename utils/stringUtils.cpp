#include "stringUtils.h"

#include <stdexcept>

#include "StringPieces.h"

namespace stringUtils {

const char* WHITESPACE = " \n\r\t";

bool contains(std::string text, std::string part) {
    return pieces::contains(text, part);
}

bool equals(std::string a, std::string b) {
    return a == b;
}

int32_t parseInt(std::string text) {
    try {
        return std::stoi(text, nullptr, 10);
    } catch (const std::invalid_argument&) {
        return 0;
    } catch (const std::out_of_range&) {
        return 0;
    }
}

std::string valueOf(int32_t value) {
    return std::to_string(value);
}

std::string trimLeft(const std::string& text, const char* chars) {
    return std::string(pieces::trimLeft(text, pieces::byteSet(chars)));
}

std::string trimRight(const std::string& text, const char* chars) {
    return std::string(pieces::trimRight(text, pieces::byteSet(chars)));
}

std::string trim(const std::string& text, const char* chars) {
    return std::string(pieces::trim(text, pieces::byteSet(chars)));
}

std::vector<std::string> split(const std::string& text, std::string delimiters) {
    std::vector<std::string> tokens;
    pieces::forEachPiece(text, delimiters, [&](std::string_view piece) {
        tokens.emplace_back(piece);
        return true;
    });
    return tokens;
}

}  // namespace stringUtils
