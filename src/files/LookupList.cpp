#include "files/LookupList.h"

#include "core/Platform.h"
#include "core/Text.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace vellira {

namespace {

// Blanks around a field do not belong to it.
std::string_view trimmed(std::string_view text) {
    const auto first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

// The delimiter the header line holds most of, outside quotes.
char delimiterOf(std::string_view header) {
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

// The logical lines of a CSV text: a line break inside quotes belongs to
// its field.
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

}  // namespace

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

std::optional<LookupList> LookupList::read(const std::filesystem::path& path, std::string_view keyColumn,
                                           std::string& error) {
    // Only a plain file of a list's size is read: a pipe or a device could
    // hold the run forever.
    constexpr std::uintmax_t kMostBytes = 256u << 20;
    std::error_code failed;
    if (!std::filesystem::is_regular_file(path, failed)) {
        error = "Can't read the list '" + pathText(path) + "': not a file";
        return std::nullopt;
    }
    if (std::filesystem::file_size(path, failed) > kMostBytes) {
        error = "The list '" + pathText(path) + "' is larger than 256 MB";
        return std::nullopt;
    }
    const auto raw = readWholeFile(path);
    if (!raw) {
        error = "Can't read the list '" + pathText(path) + "'";
        return std::nullopt;
    }
    std::string text = textAsUtf8(*raw);
    if (text.starts_with("\xEF\xBB\xBF")) text.erase(0, 3);
    const auto lines = csvLines(text);
    if (lines.empty()) {
        error = "The list '" + pathText(path) + "' is empty";
        return std::nullopt;
    }
    const char delimiter = delimiterOf(lines.front());
    LookupList list;
    list.columns_ = csvFields(lines.front(), delimiter);
    std::size_t key = 0;
    if (!keyColumn.empty()) {
        std::size_t number = 0;
        const auto [end, failed] = std::from_chars(keyColumn.data(), keyColumn.data() + keyColumn.size(), number);
        if (const auto named = list.column(keyColumn)) {
            key = *named;
        } else if (failed == std::errc() && end == keyColumn.data() + keyColumn.size() && number >= 1 &&
                   number <= list.columns_.size()) {
            key = number - 1;
        } else {
            error = "The list '" + pathText(path) + "' has no column \"" + std::string(keyColumn) + "\"";
            return std::nullopt;
        }
    }
    list.rows_.reserve(lines.size() - 1);
    for (std::size_t line = 1; line < lines.size(); ++line) {
        auto fields = csvFields(lines[line], delimiter);
        fields.resize(list.columns_.size());
        list.index_.try_emplace(fields[key], list.rows_.size());
        list.rows_.push_back(std::move(fields));
    }
    return list;
}

const std::vector<std::string>* LookupList::find(std::string_view value) const {
    const auto found = index_.find(std::string(value));
    return found == index_.end() ? nullptr : &rows_[found->second];
}

std::optional<std::size_t> LookupList::column(std::string_view name) const {
    for (std::size_t at = 0; at < columns_.size(); ++at)
        if (columns_[at] == name) return at;
    return std::nullopt;
}

}  // namespace vellira
