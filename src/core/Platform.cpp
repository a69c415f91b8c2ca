#include "core/Platform.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

#if defined(__GLIBC__)
#include <malloc.h>
#endif

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string_view>

namespace vellira {

std::tm localNow() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
#ifdef _WIN32
    localtime_s(&local, &now);
#else
    localtime_r(&now, &local);
#endif
    return local;
}

void keepFreedMemoryForReuse() {
#if defined(__GLIBC__)
    mallopt(M_MMAP_THRESHOLD, 32 << 20);  // blocks below 32 MB come from the heap and are reused
    mallopt(M_TRIM_THRESHOLD, 256 << 20);
    mallopt(M_TOP_PAD, 16 << 20);  // the heap grows by 16 MB at a time, touched only when used
#endif
}

FileHandle openFile(const std::filesystem::path& path, const char* mode) {
#ifdef _WIN32
    const std::string narrow(mode);
    return FileHandle(_wfopen(path.c_str(), std::wstring(narrow.begin(), narrow.end()).c_str()));
#else
    const std::string_view how(mode);
    const bool reading = how.front() == 'r' && how.find('+') == std::string_view::npos;
    int flags = O_CLOEXEC | O_NONBLOCK;  // a pipe at the name must not hold the program
    if (reading) {
        flags |= O_RDONLY;
    } else {
        // A link planted at the name is not followed.
        flags |= O_WRONLY | O_CREAT | O_NOFOLLOW | (how.front() == 'a' ? O_APPEND : O_TRUNC);
    }
    const int fd = ::open(path.c_str(), flags, 0644);
    if (fd < 0) return {};
    struct stat status;
    if (::fstat(fd, &status) != 0 || !S_ISREG(status.st_mode) ||
        ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK) != 0) {
        // Only plain files are read or written: not a pipe, a device or a folder.
        ::close(fd);
        return {};
    }
    FileHandle file(::fdopen(fd, mode));
    if (!file) ::close(fd);
    return file;
#endif
}

namespace {

constexpr std::string_view kTemporaryStart = ".vellira-";
constexpr std::string_view kTemporaryEnd = ".tmp";
constexpr std::size_t kTemporaryLength = 9 + 8 + 1 + 8 + 4;

long processId() {
    // Asked for every file saved: taken once, it never changes.
#ifdef _WIN32
    static const long id = static_cast<long>(GetCurrentProcessId());
#else
    static const long id = static_cast<long>(::getpid());
#endif
    return id;
}

bool processRuns(long pid) {
#ifdef _WIN32
    HANDLE process = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, static_cast<DWORD>(pid));
    if (!process) return false;
    CloseHandle(process);
    return true;
#else
    return ::kill(static_cast<pid_t>(pid), 0) == 0 || errno != ESRCH;
#endif
}

}  // namespace

std::filesystem::path temporaryBeside(const std::filesystem::path& target, std::uint32_t unique) {
    char name[kTemporaryLength + 1];
    std::snprintf(name, sizeof name, ".vellira-%08lx-%08lx.tmp", static_cast<unsigned long>(processId()) & 0xFFFFFFFFul,
                  static_cast<unsigned long>(unique));
    return target.parent_path() / name;
}

std::optional<std::string> readWholeFile(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) return std::nullopt;
    std::ostringstream bytes;
    bytes << file.rdbuf();
    if (file.bad()) return std::nullopt;
    return bytes.str();
}

bool isTemporaryName(const std::filesystem::path& path) {
    const std::string name = pathText(path.filename());
    return name.size() == kTemporaryLength && name.starts_with(kTemporaryStart) && name.ends_with(kTemporaryEnd);
}

void removeStaleTemporaries(const std::filesystem::path& folder) {
    std::error_code error;
    for (auto it = std::filesystem::directory_iterator(folder.empty() ? "." : folder, error);
         !error && it != std::filesystem::directory_iterator(); it.increment(error)) {
        const std::string name = pathText(it->path().filename());
        if (!isTemporaryName(it->path())) continue;
        const long pid = std::strtol(name.substr(kTemporaryStart.size(), 8).c_str(), nullptr, 16);
        std::error_code ignored;
        if (pid > 0 && !processRuns(pid) && it->is_regular_file(ignored)) std::filesystem::remove(it->path(), ignored);
    }
}

FolderLock::FolderLock(const std::filesystem::path& folder) {
#ifndef _WIN32
    fd_ = ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd_ >= 0) ::flock(fd_, LOCK_EX);
#else
    static_cast<void>(folder);
#endif
}

FolderLock::~FolderLock() {
#ifndef _WIN32
    if (fd_ >= 0) ::close(fd_);  // closing releases the lock
#endif
}

bool isPlainFileOrMissing(const std::filesystem::path& path) {
    std::error_code error;
    const auto status = std::filesystem::status(path, error);
    return !std::filesystem::exists(status) || std::filesystem::is_regular_file(status);
}

#ifdef _WIN32
void FileSet::add(const std::filesystem::path& path) { paths_.push_back(path); }

bool FileSet::contains(const std::filesystem::path& path) const {
    for (const auto& known : paths_) {
        std::error_code unknown;
        if (std::filesystem::equivalent(path, known, unknown)) return true;
    }
    return false;
}
#else
void FileSet::add(const std::filesystem::path& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) == 0) ids_.emplace(status.st_dev, status.st_ino);
}

bool FileSet::contains(const std::filesystem::path& path) const {
    struct stat status {};
    return !ids_.empty() && ::stat(path.c_str(), &status) == 0 && ids_.count({status.st_dev, status.st_ino}) > 0;
}
#endif

}  // namespace vellira
