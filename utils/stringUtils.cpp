#include "stringUtils.h"

#include <stdexcept>

namespace stringUtils {

const char* WHITESPACE = " \n\r\t";

bool contains(std::string text, std::string part) {
    return text.find(part) != std::string::npos;
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
    if (chars == nullptr || *chars == '\0') return text;
    const size_t first = text.find_first_not_of(chars);
    return first == std::string::npos ? std::string() : text.substr(first);
}

std::string trimRight(const std::string& text, const char* chars) {
    if (chars == nullptr || *chars == '\0') return text;
    const size_t last = text.find_last_not_of(chars);
    return last == std::string::npos ? std::string() : text.substr(0, last + 1);
}

std::string trim(const std::string& text, const char* chars) {
    return trimRight(trimLeft(text, chars), chars);
}

std::vector<std::string> split(const std::string& text, std::string delimiters) {
    std::vector<std::string> tokens;
    if (delimiters.empty()) {
        if (!text.empty()) tokens.push_back(text);
        return tokens;
    }
    size_t start = text.find_first_not_of(delimiters);
    while (start != std::string::npos) {
        const size_t end = text.find_first_of(delimiters, start);
        if (end == std::string::npos) {
            tokens.push_back(text.substr(start));
            break;
        }
        tokens.push_back(text.substr(start, end - start));
        start = text.find_first_not_of(delimiters, end);
    }
    return tokens;
}

}  // namespace stringUtils
