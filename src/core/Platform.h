// What differs between the platforms the product runs on, in one place:
// local time, paths as UTF-8 text, and C files opened by path.
#pragma once

#include <cstdint>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vellira {

// The local date and time now.
std::tm localNow();

// Sets up the process's memory allocator for long splits: a split allocates
// and frees the same few megabytes for every page it reads, and with glibc's
// defaults that memory goes back to the system and is mapped in again, page
// after page (a tenth of a run's time). Freed memory is kept for reuse
// instead; the peak is unchanged. Called once, first thing, by a program's
// main.
void keepFreedMemoryForReuse();

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

// fopen by path, whatever characters the path holds. Only a plain file is
// opened: a pipe, a device or a folder at the name gives none, and a file
// opened for writing is never reached through a link planted at its name.
FileHandle openFile(const std::filesystem::path& path, const char* mode);

// The temporary file a file is written into before it is renamed into place:
// beside it, under a short name of fixed length (".vellira-PID-UNIQUE.tmp")
// that names the process writing it.
std::filesystem::path temporaryBeside(const std::filesystem::path& target, std::uint32_t unique);
// Whether a path names such a temporary file.
bool isTemporaryName(const std::filesystem::path& path);

// A whole file's bytes; none when it cannot be read.
std::optional<std::string> readWholeFile(const std::filesystem::path& path);
// Removes from a folder the temporary files of processes that no longer run
// (left by a run that was killed).
void removeStaleTemporaries(const std::filesystem::path& folder);

// Holds a folder for this process alone while it lives, against other
// processes that hold it too (appends of two runs to one output file).
class FolderLock {
public:
    explicit FolderLock(const std::filesystem::path& folder);
    ~FolderLock();
    FolderLock(const FolderLock&) = delete;
    FolderLock& operator=(const FolderLock&) = delete;

private:
    int fd_ = -1;
};

// Whether nothing, or a plain file (or a link to one), stands at a path.
bool isPlainFileOrMissing(const std::filesystem::path& path);

// Files known by what they are, not by the path that names them: a path
// that reaches one of them by another spelling or a link still counts.
// Answers with one look-up of the path asked about.
class FileSet {
public:
    // Adds the file at `path`; nothing when there is none.
    void add(const std::filesystem::path& path);
    bool contains(const std::filesystem::path& path) const;

private:
#ifdef _WIN32
    std::vector<std::filesystem::path> paths_;
#else
    std::set<std::pair<std::uintmax_t, std::uintmax_t> > ids_;  // device, inode
#endif
};

}  // namespace vellira
