// A CSV list the value that names a piece is looked up in: its first line
// names the columns, each further line is a row. The delimiter (comma,
// semicolon, tab or bar) is the one the first line holds most of; fields may
// be quoted with "" for a quote inside. Text is read as UTF-8 when valid,
// else as Windows-1252.
#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace vellira {

class LookupList {
public:
    // Reads `path`, keyed by `keyColumn` (a column's name or 1-based number;
    // the first column when empty). Answers none and says why in `error`
    // when the file cannot be read or names no such column.
    static std::optional<LookupList> read(const std::filesystem::path& path, std::string_view keyColumn,
                                          std::string& error);

    const std::vector<std::string>& columns() const { return columns_; }
    // The row of a value, its fields in column order; none when the list
    // lacks it. A value listed twice answers its first row.
    const std::vector<std::string>* find(std::string_view value) const;
    // The index of a column by its name, or none.
    std::optional<std::size_t> column(std::string_view name) const;

private:
    std::vector<std::string> columns_;
    std::vector<std::vector<std::string>> rows_;
    std::unordered_map<std::string, std::size_t> index_;  // key -> row
};

}  // namespace vellira
