// What differs between the platforms the product runs on, in one place:
// local time, paths as UTF-8 text, and C files opened by path.
#pragma once

#include <cstdint>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_set>
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

// What tells the run that wrote a temporary file from every other run that
// writes into the same folder, on this host or another sharing the folder:
// its host, its process, and when that process started (so that a process
// id used again later is not taken for the run).
struct RunIdentity {
    std::uint32_t host = 0;     // a hash of the host's name
    std::uint32_t process = 0;  // its process id
    std::uint64_t started = 0;  // the process's start, in the system's own units; 0 when unknown
};
// This process's identity.
const RunIdentity& thisRun();

// The temporary file a file is written into before it is renamed into place:
// beside it, under a short name of fixed length
// (".vellira-HOST-PROCESS-STARTED-UNIQUE.tmp") that names the run writing it.
std::filesystem::path temporaryBeside(const std::filesystem::path& target, std::uint32_t unique,
                                      const RunIdentity& run = thisRun());
// The first such name, numbered from `unique` on (which moves past it), at
// which nothing stands.
std::filesystem::path unusedTemporaryBeside(const std::filesystem::path& target, std::uint32_t& unique);
// Whether a path names such a temporary file.
bool isTemporaryName(const std::filesystem::path& path);

// A whole file's bytes; none when it cannot be read.
std::optional<std::string> readWholeFile(const std::filesystem::path& path);
// Removes from a folder the temporary files left by runs of this host that
// no longer run (killed before they could tidy up). Those of live runs, of
// other hosts and every other file are left alone.
void removeStaleTemporaries(const std::filesystem::path& folder);
// The same, once for each folder: `tidied` holds the folders done.
void removeStaleTemporaries(const std::filesystem::path& folder, std::unordered_set<std::string>& tidied);

// A function a module of this program exports. The module is found at
// `relativePath` from the program's own folder (the same in the build tree
// as installed), loaded the first time and kept for the life of the
// process. None, with the loader's words in `failure`, when it cannot be.
void* moduleFunction(const std::string& relativePath, const char* name, std::string& failure);

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
    using Known = std::vector<std::filesystem::path>;
#else
    using Known = std::set<std::pair<std::uintmax_t, std::uintmax_t>>;  // device, inode
#endif
    // Copies share what they know until one of them adds to it: a run hands
    // its sources to every worker.
    std::shared_ptr<Known> known_;
    Known& toAdd();
};

// Why a file that says what this process writes (a plan) may have been
// written by someone else: the rule it breaks, naming the file or the folder.
// None when the file and every folder above it belong to this user or to
// root and no one else may write them; a folder others may write is fine
// with its sticky bit (as /tmp has it), where only a file's owner may replace
// it. Nothing is checked on Windows, nor for a file that is not there.
std::optional<std::string> notOwnedAlone(const std::filesystem::path& file);

// Whether paths lie inside folders: spelled under the folder with no ".."
// after it, and under it still once the links on the way are followed. What
// it resolved is kept, for many paths in a few folders.
class FolderBounds {
public:
    bool liesInside(std::string_view path, std::string_view folder);

private:
    // A folder's path as written, and where it really is (empty when that
    // cannot be told).
    const std::filesystem::path& real(const std::string& folder);
    std::map<std::string, std::filesystem::path, std::less<>> real_;
};

}  // namespace vellira
