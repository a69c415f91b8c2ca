// Text helpers every layer shares: printf into a string, token replacement,
// and UTF-8 counted in characters rather than bytes.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace vellira {

// printf into a std::string.
std::string formatText(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Replaces every occurrence of `token`; replaced text is never searched again.
void replaceAll(std::string& text, std::string_view token, std::string_view with);

// Number of characters in a UTF-8 text.
std::size_t characterCount(std::string_view text);

// The first `maxChars` characters of a UTF-8 text; never splits a character.
std::string_view firstCharacters(std::string_view text, std::size_t maxChars);

// printf's "%-Ns", with the width counted in characters rather than bytes.
std::string padRight(std::string_view text, std::size_t width);

// Windows-1252 text as UTF-8; text that already is valid UTF-8 is kept.
std::string textAsUtf8(std::string_view text);

}  // namespace vellira
