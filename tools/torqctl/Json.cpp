#include "Json.h"

#include <cstdio>
#include <utility>

namespace torqctl {

Json Json::object() {
    return Json(Type::kObject);
}

Json Json::array() {
    return Json(Type::kArray);
}

Json& Json::set(const std::string& key, Json value) {
    for (size_t i = 0; i < keys_.size(); ++i) {
        if (keys_[i] == key) {
            values_[i] = std::move(value);
            return *this;
        }
    }
    keys_.push_back(key);
    values_.push_back(std::move(value));
    return *this;
}

Json& Json::push(Json value) {
    values_.push_back(std::move(value));
    return *this;
}

void Json::merge(const Json& other) {
    for (size_t i = 0; i < other.keys_.size(); ++i) set(other.keys_[i], other.values_[i]);
}

std::string jsonQuote(const std::string& text) {
    std::string out = "\"";
    for (unsigned char c : text) {
        switch (c) {
            case '"':
                out += "\\\"";
                break;
            case '\\':
                out += "\\\\";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\r':
                out += "\\r";
                break;
            case '\t':
                out += "\\t";
                break;
            default:
                if (c < 0x20 || c >= 0x7f) {
                    char buf[8];
                    snprintf(buf, sizeof(buf), "\\u%04x", c);
                    out += buf;
                } else {
                    out += static_cast<char>(c);
                }
        }
    }
    out += '"';
    return out;
}

void Json::dumpTo(std::string* out) const {
    switch (type_) {
        case Type::kNull:
            *out += "null";
            break;
        case Type::kBool:
            *out += bool_ ? "true" : "false";
            break;
        case Type::kNumber:
            *out += std::to_string(number_);
            break;
        case Type::kString:
            *out += jsonQuote(text_);
            break;
        case Type::kObject:
            *out += '{';
            for (size_t i = 0; i < keys_.size(); ++i) {
                if (i > 0) *out += ',';
                *out += jsonQuote(keys_[i]);
                *out += ':';
                values_[i].dumpTo(out);
            }
            *out += '}';
            break;
        case Type::kArray:
            *out += '[';
            for (size_t i = 0; i < values_.size(); ++i) {
                if (i > 0) *out += ',';
                values_[i].dumpTo(out);
            }
            *out += ']';
            break;
    }
}

std::string Json::dump() const {
    std::string out;
    dumpTo(&out);
    return out;
}

}  // namespace torqctl
