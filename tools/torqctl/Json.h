#pragma once

// A small JSON value for torqctl's --json output: objects keep their keys in insertion order.

#include <cstdint>
#include <string>
#include <vector>

namespace torqctl {

class Json {
  public:
    Json() : type_(Type::kNull) {}
    Json(const char* text) : type_(Type::kString), text_(text) {}  // NOLINT: implicit on purpose
    Json(std::string text) : type_(Type::kString), text_(std::move(text)) {}  // NOLINT
    Json(int64_t number) : type_(Type::kNumber), number_(number) {}           // NOLINT
    Json(int32_t number) : type_(Type::kNumber), number_(number) {}           // NOLINT
    Json(bool value) : type_(Type::kBool), bool_(value) {}                    // NOLINT

    static Json object();
    static Json array();

    // Objects: adds or replaces a member. Arrays: appends.
    Json& set(const std::string& key, Json value);
    Json& push(Json value);
    bool isObject() const { return type_ == Type::kObject; }
    size_t size() const { return values_.size(); }
    // Copies every member of `other` (an object) into this object.
    void merge(const Json& other);

    std::string dump() const;

  private:
    enum class Type { kNull, kBool, kNumber, kString, kObject, kArray };
    explicit Json(Type type) : type_(type) {}
    void dumpTo(std::string* out) const;

    Type type_;
    std::string text_;
    int64_t number_ = 0;
    bool bool_ = false;
    std::vector<std::string> keys_;
    std::vector<Json> values_;
};

// A JSON string literal for `text`: quotes, backslashes and control bytes escaped; bytes above
// 0x7f are written as \u00XX so the output is valid UTF-8 whatever the input.
std::string jsonQuote(const std::string& text);

}  // namespace torqctl
