// What differs between the platforms the product runs on, in one place:
// local time, paths as UTF-8 text, and C files opened by path.
#pragma once

#include <cstdio>
#include <ctime>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

namespace vellira {

// The local date and time now.
std::tm localNow();

// A path as UTF-8 text, and back.
inline std::string pathText(const std::filesystem::path& path) {
    const auto text = path.u8string();
    return std::string(text.begin(), text.end());
}
inline std::filesystem::path pathFromText(std::string_view text) {
    return std::filesystem::path(std::u8string(text.begin(), text.end()));
}

// An open C file, closed when dropped.
struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using FileHandle = std::unique_ptr<std::FILE, FileCloser>;

// fopen by path, whatever characters the path holds.
FileHandle openFile(const std::filesystem::path& path, const char* mode);

}  // namespace vellira
