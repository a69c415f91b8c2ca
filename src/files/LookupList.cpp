#include "files/LookupList.h"

#include "core/Platform.h"
#include "core/Text.h"
#include "files/Csv.h"

#include <charconv>

namespace vellira {

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
    const char delimiter = csvDelimiter(lines.front());
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
