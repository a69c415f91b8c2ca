#include "files/Csv.h"

#include <algorithm>
#include <array>

namespace vellira {

namespace {

// Blanks around a field do not belong to it.
std::string_view trimmed(std::string_view text) {
    const auto first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

}  // namespace

char csvDelimiter(std::string_view header) {
    constexpr std::array<char, 4> kDelimiters = {',', ';', '\t', '|'};
    std::array<int, 4> counts{};
    bool quoted = false;
    for (const char c : header) {
        if (c == '"') quoted = !quoted;
        if (quoted) continue;
        for (std::size_t i = 0; i < kDelimiters.size(); ++i)
            if (c == kDelimiters[i]) ++counts[i];
    }
    const auto most = std::max_element(counts.begin(), counts.end());
    return kDelimiters[static_cast<std::size_t>(most - counts.begin())];
}

std::vector<std::string_view> csvLines(std::string_view text) {
    std::vector<std::string_view> lines;
    bool quoted = false;
    std::size_t start = 0;
    for (std::size_t at = 0; at <= text.size(); ++at) {
        if (at < text.size() && text[at] == '"') quoted = !quoted;
        if (at == text.size() || (!quoted && text[at] == '\n')) {
            std::string_view line = text.substr(start, at - start);
            if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
            if (!trimmed(line).empty()) lines.push_back(line);
            start = at + 1;
        }
    }
    return lines;
}

std::vector<std::string> csvFields(std::string_view line, char delimiter) {
    std::vector<std::string> fields(1);
    bool quoted = false;
    bool wasQuoted = false;
    for (std::size_t at = 0; at < line.size(); ++at) {
        const char c = line[at];
        if (quoted) {
            if (c != '"') {
                fields.back() += c;
            } else if (at + 1 < line.size() && line[at + 1] == '"') {
                fields.back() += '"';
                ++at;
            } else {
                quoted = false;
            }
        } else if (c == '"' && trimmed(fields.back()).empty()) {
            fields.back().clear();
            quoted = wasQuoted = true;
        } else if (c == delimiter) {
            if (!wasQuoted) fields.back() = std::string(trimmed(fields.back()));
            fields.emplace_back();
            wasQuoted = false;
        } else if (!wasQuoted) {
            fields.back() += c;
        }
    }
    if (!wasQuoted) fields.back() = std::string(trimmed(fields.back()));
    return fields;
}

std::string csvField(const std::string& text) {
    if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
    std::string quoted = "\"";
    for (const char c : text) quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
    return quoted + "\"";
}

}  // namespace vellira
