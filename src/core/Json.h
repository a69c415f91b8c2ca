// JSON as the product writes and reads it: plans and reports of runs.
//
// A small reader and writer for the documents the product makes itself. The
// reader takes any well-formed JSON (a plan may have been edited or damaged)
// and refuses the rest with the place it stopped at.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace vellira {

class JsonValue {
public:
    using Array = std::vector<JsonValue>;
    using Object = std::map<std::string, JsonValue, std::less<>>;

    JsonValue() = default;
    JsonValue(std::nullptr_t) {}
    JsonValue(bool value) : value_(value) {}
    JsonValue(double value) : value_(value) {}
    JsonValue(int value) : value_(static_cast<double>(value)) {}
    JsonValue(long long value) : value_(static_cast<double>(value)) {}
    JsonValue(std::string value) : value_(std::move(value)) {}
    JsonValue(const char* value) : value_(std::string(value)) {}
    JsonValue(Array value) : value_(std::move(value)) {}
    JsonValue(Object value) : value_(std::move(value)) {}

    bool isNull() const { return std::holds_alternative<std::monostate>(value_); }
    // The value as a type; throws JsonError when it is another.
    bool boolean() const;
    double number() const;
    // A whole number in the range of int; throws JsonError otherwise.
    int integer() const;
    const std::string& string() const;
    const Array& array() const;
    const Object& object() const;
    // A member of an object; throws JsonError when there is none.
    const JsonValue& operator[](std::string_view key) const;
    bool has(std::string_view key) const;

    // The value as compact JSON text.
    std::string text() const;

private:
    std::variant<std::monostate, bool, double, std::string, Array, Object> value_;
};

class JsonError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Parses a whole document; throws JsonError naming the byte it stopped at.
JsonValue parseJson(std::string_view text);

// A text as a JSON string, quotes included.
std::string jsonString(std::string_view text);

// Bytes as base64 text, and back (none for text that is not base64).
std::string base64Encode(std::string_view bytes);
std::optional<std::string> base64Decode(std::string_view text);

}  // namespace vellira
