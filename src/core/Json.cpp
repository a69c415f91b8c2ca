#include "core/Json.h"

#include "core/Text.h"

#include <cmath>
#include <cstdlib>
#include <type_traits>

namespace vellira {

namespace {

constexpr int kMaxDepth = 64;

class Parser {
public:
    explicit Parser(std::string_view text) : text_(text) {}

    JsonValue document() {
        JsonValue value = parse(0);
        skipBlanks();
        if (at_ != text_.size()) fail("text after the document");
        return value;
    }

private:
    [[noreturn]] void fail(const char* what) const {
        throw JsonError("not a valid plan: " + std::string(what) + " at byte " + std::to_string(at_ + 1));
    }
    void skipBlanks() {
        while (at_ < text_.size() &&
               (text_[at_] == ' ' || text_[at_] == '\n' || text_[at_] == '\r' || text_[at_] == '\t'))
            ++at_;
    }
    bool take(std::string_view word) {
        if (text_.substr(at_, word.size()) != word) return false;
        at_ += word.size();
        return true;
    }

    JsonValue parse(int depth) {
        if (depth > kMaxDepth) fail("too deeply nested");
        skipBlanks();
        if (at_ >= text_.size()) fail("unexpected end");
        const char c = text_[at_];
        if (c == '{') return object(depth);
        if (c == '[') return array(depth);
        if (c == '"') return JsonValue(string());
        if (take("true")) return JsonValue(true);
        if (take("false")) return JsonValue(false);
        if (take("null")) return JsonValue();
        return JsonValue(number());
    }

    JsonValue object(int depth) {
        ++at_;
        JsonValue::Object members;
        skipBlanks();
        if (take("}")) return JsonValue(std::move(members));
        for (;;) {
            skipBlanks();
            if (at_ >= text_.size() || text_[at_] != '"') fail("expected a member name");
            std::string key = string();
            skipBlanks();
            if (!take(":")) fail("expected ':'");
            members[std::move(key)] = parse(depth + 1);
            skipBlanks();
            if (take("}")) return JsonValue(std::move(members));
            if (!take(",")) fail("expected ',' or '}'");
        }
    }

    JsonValue array(int depth) {
        ++at_;
        JsonValue::Array items;
        skipBlanks();
        if (take("]")) return JsonValue(std::move(items));
        for (;;) {
            items.push_back(parse(depth + 1));
            skipBlanks();
            if (take("]")) return JsonValue(std::move(items));
            if (!take(",")) fail("expected ',' or ']'");
        }
    }

    unsigned hex4() {
        if (at_ + 4 > text_.size()) fail("short \\u escape");
        unsigned value = 0;
        for (int i = 0; i < 4; ++i) {
            const char h = text_[at_++];
            value <<= 4;
            if (h >= '0' && h <= '9')
                value |= static_cast<unsigned>(h - '0');
            else if (h >= 'a' && h <= 'f')
                value |= static_cast<unsigned>(h - 'a' + 10);
            else if (h >= 'A' && h <= 'F')
                value |= static_cast<unsigned>(h - 'A' + 10);
            else
                fail("bad \\u escape");
        }
        return value;
    }

    std::string string() {
        ++at_;
        std::string out;
        for (;;) {
            if (at_ >= text_.size()) fail("unterminated string");
            const char c = text_[at_++];
            if (c == '"') return out;
            if (static_cast<unsigned char>(c) < 0x20) fail("control character in a string");
            if (c != '\\') {
                out += c;
                continue;
            }
            if (at_ >= text_.size()) fail("unterminated string");
            switch (text_[at_++]) {
                case '"': out += '"'; break;
                case '\\': out += '\\'; break;
                case '/': out += '/'; break;
                case 'b': out += '\b'; break;
                case 'f': out += '\f'; break;
                case 'n': out += '\n'; break;
                case 'r': out += '\r'; break;
                case 't': out += '\t'; break;
                case 'u': {
                    unsigned code = hex4();
                    if (code >= 0xD800 && code < 0xDC00 && take("\\u")) {
                        const unsigned low = hex4();
                        if (low < 0xDC00 || low > 0xDFFF) fail("bad surrogate pair");
                        code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
                    }
                    appendUtf8(out, code);
                    break;
                }
                default: fail("bad escape");
            }
        }
    }

    static void appendUtf8(std::string& out, unsigned code) {
        if (code < 0x80) {
            out += static_cast<char>(code);
        } else if (code < 0x800) {
            out += static_cast<char>(0xC0 | (code >> 6));
            out += static_cast<char>(0x80 | (code & 0x3F));
        } else if (code < 0x10000) {
            out += static_cast<char>(0xE0 | (code >> 12));
            out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (code & 0x3F));
        } else {
            out += static_cast<char>(0xF0 | (code >> 18));
            out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
            out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (code & 0x3F));
        }
    }

    double number() {
        const std::size_t start = at_;
        if (at_ < text_.size() && text_[at_] == '-') ++at_;
        while (at_ < text_.size() && std::string_view("0123456789.eE+-").find(text_[at_]) != std::string_view::npos)
            ++at_;
        if (at_ == start) fail("unexpected character");
        const std::string digits(text_.substr(start, at_ - start));
        char* end = nullptr;
        const double value = std::strtod(digits.c_str(), &end);
        if (end != digits.c_str() + digits.size() || !std::isfinite(value)) fail("bad number");
        return value;
    }

    std::string_view text_;
    std::size_t at_ = 0;
};

}  // namespace

bool JsonValue::boolean() const {
    if (const auto* v = std::get_if<bool>(&value_)) return *v;
    throw JsonError("not a valid plan: expected true or false");
}

double JsonValue::number() const {
    if (const auto* v = std::get_if<double>(&value_)) return *v;
    throw JsonError("not a valid plan: expected a number");
}

int JsonValue::integer() const {
    const double v = number();
    if (v != std::floor(v) || v < -2147483648.0 || v > 2147483647.0)
        throw JsonError("not a valid plan: expected a whole number");
    return static_cast<int>(v);
}

const std::string& JsonValue::string() const {
    if (const auto* v = std::get_if<std::string>(&value_)) return *v;
    throw JsonError("not a valid plan: expected a string");
}

const JsonValue::Array& JsonValue::array() const {
    if (const auto* v = std::get_if<Array>(&value_)) return *v;
    throw JsonError("not a valid plan: expected an array");
}

const JsonValue::Object& JsonValue::object() const {
    if (const auto* v = std::get_if<Object>(&value_)) return *v;
    throw JsonError("not a valid plan: expected an object");
}

const JsonValue& JsonValue::operator[](std::string_view key) const {
    const Object& members = object();
    const auto found = members.find(key);
    if (found == members.end()) throw JsonError("not a valid plan: no \"" + std::string(key) + "\"");
    return found->second;
}

bool JsonValue::has(std::string_view key) const {
    const auto* members = std::get_if<Object>(&value_);
    return members && members->find(key) != members->end();
}

std::string JsonValue::text() const {
    std::string out;
    std::visit(
        [&out](const auto& v) {
            using T = std::decay_t<decltype(v)>;
            if constexpr (std::is_same_v<T, std::monostate>) {
                out += "null";
            } else if constexpr (std::is_same_v<T, bool>) {
                out += v ? "true" : "false";
            } else if constexpr (std::is_same_v<T, double>) {
                if (v == std::floor(v) && std::fabs(v) < 9e15)
                    out += std::to_string(static_cast<long long>(v));
                else
                    out += formatText("%.17g", v);
            } else if constexpr (std::is_same_v<T, std::string>) {
                out += jsonString(v);
            } else if constexpr (std::is_same_v<T, Array>) {
                out += '[';
                for (std::size_t i = 0; i < v.size(); ++i) out += (i ? "," : "") + v[i].text();
                out += ']';
            } else {
                out += '{';
                bool first = true;
                for (const auto& [key, member] : v) {
                    out += (first ? "" : ",") + jsonString(key) + ":" + member.text();
                    first = false;
                }
                out += '}';
            }
        },
        value_);
    return out;
}

JsonValue parseJson(std::string_view text) { return Parser(text).document(); }

std::string jsonString(std::string_view text) {
    std::string out = "\"";
    for (const char c : text) {
        switch (c) {
            case '"': out += "\\\""; break;
            case '\\': out += "\\\\"; break;
            case '\n': out += "\\n"; break;
            case '\r': out += "\\r"; break;
            case '\t': out += "\\t"; break;
            default:
                if (static_cast<unsigned char>(c) < 0x20)
                    out += formatText("\\u%04x", static_cast<unsigned>(static_cast<unsigned char>(c)));
                else
                    out += c;
        }
    }
    return out + "\"";
}

std::string base64Encode(std::string_view bytes) {
    static constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    out.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        std::uint32_t group = static_cast<unsigned char>(bytes[i]) << 16;
        if (i + 1 < bytes.size()) group |= static_cast<unsigned char>(bytes[i + 1]) << 8;
        if (i + 2 < bytes.size()) group |= static_cast<unsigned char>(bytes[i + 2]);
        out += kDigits[(group >> 18) & 63];
        out += kDigits[(group >> 12) & 63];
        out += i + 1 < bytes.size() ? kDigits[(group >> 6) & 63] : '=';
        out += i + 2 < bytes.size() ? kDigits[group & 63] : '=';
    }
    return out;
}

std::optional<std::string> base64Decode(std::string_view text) {
    if (text.size() % 4 != 0) return std::nullopt;
    const auto value = [](char c) -> int {
        if (c >= 'A' && c <= 'Z') return c - 'A';
        if (c >= 'a' && c <= 'z') return c - 'a' + 26;
        if (c >= '0' && c <= '9') return c - '0' + 52;
        if (c == '+') return 62;
        if (c == '/') return 63;
        return -1;
    };
    std::string out;
    for (std::size_t i = 0; i < text.size(); i += 4) {
        const bool last = i + 4 == text.size();
        const int pad = last ? (text[i + 3] == '=') + (text[i + 2] == '=') : 0;
        std::uint32_t group = 0;
        for (int k = 0; k < 4; ++k) {
            const int v = k >= 4 - pad ? 0 : value(text[i + static_cast<std::size_t>(k)]);
            if (v < 0) return std::nullopt;
            group = (group << 6) | static_cast<std::uint32_t>(v);
        }
        out += static_cast<char>((group >> 16) & 0xFF);
        if (pad < 2) out += static_cast<char>((group >> 8) & 0xFF);
        if (pad < 1) out += static_cast<char>(group & 0xFF);
    }
    return out;
}

}  // namespace vellira
