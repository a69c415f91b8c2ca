#include "core/Text.h"

#include <array>
#include <cstdarg>
#include <cstdio>

namespace vellira {

namespace {

// What 0x80..0x9F stand for in Windows-1252 (0 where nothing is assigned).
constexpr std::array<char32_t, 32> kCp1252High = {0x20AC, 0,      0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                                  0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0,      0x017D, 0,
                                                  0,      0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                                  0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0,      0x017E, 0x0178};

bool validUtf8(std::string_view text) {
    for (std::size_t i = 0; i < text.size();) {
        const auto c = static_cast<unsigned char>(text[i]);
        const std::size_t length = c < 0x80 ? 1 : (c >> 5) == 6 ? 2 : (c >> 4) == 14 ? 3 : (c >> 3) == 30 ? 4 : 0;
        if (length == 0 || (length == 2 && c < 0xC2) || i + length > text.size()) return false;
        for (std::size_t k = 1; k < length; ++k)
            if ((static_cast<unsigned char>(text[i + k]) & 0xC0) != 0x80) return false;
        i += length;
    }
    return true;
}

void appendUtf8(std::string& out, char32_t code) {
    if (code < 0x80) {
        out += static_cast<char>(code);
    } else if (code < 0x800) {
        out += static_cast<char>(0xC0 | (code >> 6));
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else {
        out += static_cast<char>(0xE0 | (code >> 12));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    }
}

}  // namespace

std::string formatText(const char* format, ...) {
    std::va_list args;
    va_start(args, format);
    std::va_list copy;
    va_copy(copy, args);
    const int size = std::vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    std::string text;
    if (size > 0) {
        text.resize(static_cast<std::size_t>(size));
        std::vsnprintf(text.data(), text.size() + 1, format, args);
    }
    va_end(args);
    return text;
}

void replaceAll(std::string& text, std::string_view token, std::string_view with) {
    if (token.empty()) return;
    for (auto at = text.find(token); at != std::string::npos; at = text.find(token, at + with.size()))
        text.replace(at, token.size(), with);
}

std::size_t characterCount(std::string_view text) {
    std::size_t count = 0;
    for (const char c : text) count += (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    return count;
}

std::string_view firstCharacters(std::string_view text, std::size_t maxChars) {
    std::size_t chars = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        // A character starts at every byte that is not a UTF-8 continuation.
        if ((static_cast<unsigned char>(text[i]) & 0xC0) != 0x80 && chars++ == maxChars) return text.substr(0, i);
    }
    return text;
}

std::string padRight(std::string_view text, std::size_t width) {
    std::string out(text);
    for (std::size_t n = characterCount(text); n < width; ++n) out += ' ';
    return out;
}

std::string textAsUtf8(std::string_view text) {
    if (validUtf8(text)) return std::string(text);
    std::string out;
    out.reserve(text.size() + text.size() / 2);
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        char32_t code = byte;
        if (byte >= 0x80 && byte < 0xA0) code = kCp1252High[byte - 0x80] ? kCp1252High[byte - 0x80] : 0xFFFD;
        appendUtf8(out, code);
    }
    return out;
}

}  // namespace vellira
