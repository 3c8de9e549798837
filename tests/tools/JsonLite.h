#pragma once

// A strict little JSON reader for checking torqctl's --json output: a line either parses as one
// complete JSON value or is rejected.

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace torqctl_test {

struct JValue {
    enum class Type { kNull, kBool, kNumber, kString, kArray, kObject } type = Type::kNull;
    bool boolean = false;
    double number = 0;
    std::string text;
    std::vector<JValue> items;
    std::map<std::string, JValue> members;

    bool has(const std::string& key) const { return members.count(key) != 0; }
    const JValue& operator[](const std::string& key) const {
        static const JValue kNull;
        auto it = members.find(key);
        return it == members.end() ? kNull : it->second;
    }
    const JValue& operator[](size_t i) const { return items.at(i); }
    int64_t asInt() const { return static_cast<int64_t>(number); }
};

class JsonReader {
  public:
    static bool parse(const std::string& text, JValue* out) {
        JsonReader r(text);
        r.ws();
        if (!r.value(out)) return false;
        r.ws();
        return r.pos_ == text.size();
    }

  private:
    explicit JsonReader(const std::string& text) : s_(text) {}

    void ws() {
        while (pos_ < s_.size() &&
               (s_[pos_] == ' ' || s_[pos_] == '\n' || s_[pos_] == '\t' || s_[pos_] == '\r')) {
            ++pos_;
        }
    }
    bool literal(const char* word) {
        const std::string w(word);
        if (s_.compare(pos_, w.size(), w) != 0) return false;
        pos_ += w.size();
        return true;
    }
    bool string(std::string* out) {
        if (pos_ >= s_.size() || s_[pos_] != '"') return false;
        ++pos_;
        while (pos_ < s_.size()) {
            const unsigned char c = static_cast<unsigned char>(s_[pos_++]);
            if (c == '"') return true;
            if (c < 0x20) return false;
            if (c != '\\') {
                out->push_back(static_cast<char>(c));
                continue;
            }
            if (pos_ >= s_.size()) return false;
            const char e = s_[pos_++];
            switch (e) {
                case '"':
                case '\\':
                case '/':
                    out->push_back(e);
                    break;
                case 'n':
                    out->push_back('\n');
                    break;
                case 't':
                    out->push_back('\t');
                    break;
                case 'r':
                    out->push_back('\r');
                    break;
                case 'b':
                    out->push_back('\b');
                    break;
                case 'f':
                    out->push_back('\f');
                    break;
                case 'u': {
                    if (pos_ + 4 > s_.size()) return false;
                    const unsigned long code = std::stoul(s_.substr(pos_, 4), nullptr, 16);
                    pos_ += 4;
                    if (code > 0xff) return false;  // torqctl only escapes single bytes
                    out->push_back(static_cast<char>(code));
                    break;
                }
                default:
                    return false;
            }
        }
        return false;
    }
    bool value(JValue* out) {
        ws();
        if (pos_ >= s_.size()) return false;
        const char c = s_[pos_];
        if (c == '{') {
            out->type = JValue::Type::kObject;
            ++pos_;
            ws();
            if (pos_ < s_.size() && s_[pos_] == '}') {
                ++pos_;
                return true;
            }
            for (;;) {
                ws();
                std::string key;
                if (!string(&key)) return false;
                ws();
                if (pos_ >= s_.size() || s_[pos_++] != ':') return false;
                JValue v;
                if (!value(&v)) return false;
                out->members[key] = std::move(v);
                ws();
                if (pos_ >= s_.size()) return false;
                if (s_[pos_] == ',') {
                    ++pos_;
                    continue;
                }
                if (s_[pos_] == '}') {
                    ++pos_;
                    return true;
                }
                return false;
            }
        }
        if (c == '[') {
            out->type = JValue::Type::kArray;
            ++pos_;
            ws();
            if (pos_ < s_.size() && s_[pos_] == ']') {
                ++pos_;
                return true;
            }
            for (;;) {
                JValue v;
                if (!value(&v)) return false;
                out->items.push_back(std::move(v));
                ws();
                if (pos_ >= s_.size()) return false;
                if (s_[pos_] == ',') {
                    ++pos_;
                    continue;
                }
                if (s_[pos_] == ']') {
                    ++pos_;
                    return true;
                }
                return false;
            }
        }
        if (c == '"') {
            out->type = JValue::Type::kString;
            return string(&out->text);
        }
        if (literal("true")) {
            out->type = JValue::Type::kBool;
            out->boolean = true;
            return true;
        }
        if (literal("false")) {
            out->type = JValue::Type::kBool;
            return true;
        }
        if (literal("null")) return true;
        size_t end = pos_;
        if (end < s_.size() && s_[end] == '-') ++end;
        const size_t digits = end;
        while (end < s_.size() && s_[end] >= '0' && s_[end] <= '9') ++end;
        if (end == digits) return false;
        out->type = JValue::Type::kNumber;
        out->number = std::stod(s_.substr(pos_, end - pos_));
        pos_ = end;
        return true;
    }

    const std::string& s_;
    size_t pos_ = 0;
};

}  // namespace torqctl_test
