#include "core/Platform.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

#if defined(__GLIBC__)
#include <malloc.h>
#endif

#include <cerrno>
#include <charconv>
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

// ".vellira-" HOST "-" PROCESS "-" STARTED "-" UNIQUE ".tmp", in hexadecimal
// digits of fixed length.
constexpr std::string_view kTemporaryStart = ".vellira-";
constexpr std::string_view kTemporaryEnd = ".tmp";
constexpr std::size_t kTemporaryLength = 9 + 8 + 1 + 8 + 1 + 16 + 1 + 8 + 4;

// When a process started, in the system's own units: 0 when it runs but the
// system does not say when it started, none when it does not run.
std::optional<std::uint64_t> processStarted(std::uint32_t pid) {
#ifdef _WIN32
    HANDLE process = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, static_cast<DWORD>(pid));
    if (!process) return GetLastError() == ERROR_ACCESS_DENIED ? std::optional<std::uint64_t>(0) : std::nullopt;
    std::optional<std::uint64_t> started;
    DWORD code = 0;
    FILETIME created, exited, kernel, user;
    if (GetExitCodeProcess(process, &code) && code == STILL_ACTIVE)
        started = GetProcessTimes(process, &created, &exited, &kernel, &user)
                      ? (static_cast<std::uint64_t>(created.dwHighDateTime) << 32) | created.dwLowDateTime
                      : 0;
    CloseHandle(process);
    return started;
#else
    // Linux says it in the 22nd field of /proc/PID/stat (clock ticks since
    // boot), after a command name that ends at the line's last ')'.
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string line;
    if (std::getline(stat, line) && line.rfind(')') != std::string::npos) {
        std::istringstream fields(line.substr(line.rfind(')') + 1));
        std::string field;
        for (int number = 3; number <= 22 && fields >> field; ++number)
            if (number == 22) return std::strtoull(field.c_str(), nullptr, 10);
    }
    if (::kill(static_cast<pid_t>(pid), 0) == 0 || errno != ESRCH) return 0;
    return std::nullopt;
#endif
}

// The run a temporary file's name names; none for any other name.
std::optional<RunIdentity> temporaryRun(std::string_view name) {
    if (name.size() != kTemporaryLength || !name.starts_with(kTemporaryStart) || !name.ends_with(kTemporaryEnd))
        return std::nullopt;
    const auto hex = [&](std::size_t at, std::size_t digits, auto& value) {
        const char* end = name.data() + at + digits;
        const auto [stop, error] = std::from_chars(name.data() + at, end, value, 16);
        return error == std::errc() && stop == end && (*end == '-' || *end == '.');
    };
    RunIdentity run;
    std::uint32_t unique = 0;
    if (!hex(9, 8, run.host) || !hex(18, 8, run.process) || !hex(27, 16, run.started) || !hex(44, 8, unique))
        return std::nullopt;
    return run;
}

// Whether the run is known to have ended: only a run of this host can be
// looked up, and a process that runs under its id but started at another
// time is another process.
bool runEnded(const RunIdentity& run) {
    if (run.host != thisRun().host) return false;
    const auto started = processStarted(run.process);
    return !started || (*started != 0 && run.started != 0 && *started != run.started);
}

}  // namespace

const RunIdentity& thisRun() {
    // Taken once: nothing of it changes while the process runs.
    static const RunIdentity run = [] {
        RunIdentity identity;
        char name[256] = "";
#ifdef _WIN32
        DWORD size = sizeof name;
        GetComputerNameA(name, &size);
        identity.process = static_cast<std::uint32_t>(GetCurrentProcessId());
#else
        ::gethostname(name, sizeof name - 1);
        identity.process = static_cast<std::uint32_t>(::getpid());
#endif
        identity.host = 2166136261u;  // FNV-1a
        for (const char* c = name; *c; ++c)
            identity.host = (identity.host ^ static_cast<unsigned char>(*c)) * 16777619u;
        identity.started = processStarted(identity.process).value_or(0);
        return identity;
    }();
    return run;
}

std::filesystem::path temporaryBeside(const std::filesystem::path& target, std::uint32_t unique,
                                      const RunIdentity& run) {
    char name[kTemporaryLength + 1];
    std::snprintf(name, sizeof name, ".vellira-%08x-%08x-%016llx-%08x.tmp", static_cast<unsigned>(run.host),
                  static_cast<unsigned>(run.process), static_cast<unsigned long long>(run.started),
                  static_cast<unsigned>(unique));
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

std::filesystem::path unusedTemporaryBeside(const std::filesystem::path& target, std::uint32_t& unique) {
    std::filesystem::path temporary;
    std::error_code ignored;
    do temporary = temporaryBeside(target, unique++);
    while (std::filesystem::exists(temporary, ignored));
    return temporary;
}

bool isTemporaryName(const std::filesystem::path& path) { return temporaryRun(pathText(path.filename())).has_value(); }

void removeStaleTemporaries(const std::filesystem::path& folder) {
    std::error_code error;
    for (auto it = std::filesystem::directory_iterator(folder.empty() ? "." : folder, error);
         !error && it != std::filesystem::directory_iterator(); it.increment(error)) {
        const auto run = temporaryRun(pathText(it->path().filename()));
        std::error_code ignored;
        if (run && runEnded(*run) && it->is_regular_file(ignored) && !it->is_symlink(ignored))
            std::filesystem::remove(it->path(), ignored);
    }
}

void removeStaleTemporaries(const std::filesystem::path& folder, std::unordered_set<std::string>& tidied) {
    if (tidied.insert(pathText(folder)).second) removeStaleTemporaries(folder);
}

void* moduleFunction(const std::string& relativePath, const char* name, std::string& failure) {
#ifdef _WIN32
    failure = "modules are linked into the program on Windows";
    static_cast<void>(relativePath);
    static_cast<void>(name);
    return nullptr;
#else
    std::error_code error;
    auto folder = std::filesystem::read_symlink("/proc/self/exe", error).parent_path();
    if (error) {
        Dl_info info{};
        if (dladdr(reinterpret_cast<void*>(&moduleFunction), &info) && info.dli_fname)
            folder = std::filesystem::absolute(info.dli_fname, error).parent_path();
    }
    const auto path = folder / relativePath;
    void* module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!module) {
        const char* why = dlerror();
        failure = why ? why : pathText(path) + ": cannot be loaded";
        return nullptr;
    }
    void* function = dlsym(module, name);
    if (!function) failure = pathText(path) + ": no " + name;
    return function;
#endif
}

bool isPlainFileOrMissing(const std::filesystem::path& path) {
    std::error_code error;
    const auto status = std::filesystem::status(path, error);
    return !std::filesystem::exists(status) || std::filesystem::is_regular_file(status);
}

FileSet::Known& FileSet::toAdd() {
    if (!known_)
        known_ = std::make_shared<Known>();
    else if (known_.use_count() > 1)
        known_ = std::make_shared<Known>(*known_);
    return *known_;
}

#ifdef _WIN32
void FileSet::add(const std::filesystem::path& path) { toAdd().push_back(path); }

bool FileSet::contains(const std::filesystem::path& path) const {
    if (!known_) return false;
    for (const auto& known : *known_) {
        std::error_code unknown;
        if (std::filesystem::equivalent(path, known, unknown)) return true;
    }
    return false;
}
#else
void FileSet::add(const std::filesystem::path& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) == 0) toAdd().emplace(status.st_dev, status.st_ino);
}

bool FileSet::contains(const std::filesystem::path& path) const {
    struct stat status {};
    return known_ && !known_->empty() && ::stat(path.c_str(), &status) == 0 &&
           known_->count({status.st_dev, status.st_ino}) > 0;
}
#endif

std::optional<std::string> notOwnedAlone(const std::filesystem::path& file) {
#ifdef _WIN32
    static_cast<void>(file);
    return std::nullopt;
#else
    std::error_code error;
    const auto real = std::filesystem::canonical(file, error);
    if (error) return std::nullopt;
    const uid_t me = ::geteuid();
    for (auto at = real;; at = at.parent_path()) {
        struct stat status {};
        const bool folder = at != real;
        const std::string named = (folder ? "the folder '" : "'") + pathText(at) + "'";
        if (::stat(at.c_str(), &status) != 0) return named + " cannot be looked at";
        if (status.st_uid != me && status.st_uid != 0) return named + " belongs to another user";
        if ((status.st_mode & (S_IWGRP | S_IWOTH)) && !(folder && (status.st_mode & S_ISVTX)))
            return named + " may be written by " + ((status.st_mode & S_IWOTH) ? "every user" : "its group") +
                   (folder ? " and has no sticky bit" : "");
        if (at == at.parent_path()) return std::nullopt;
    }
#endif
}

bool FolderBounds::liesInside(std::string_view path, std::string_view folder) {
    const auto separator = [](char c) { return c == '/' || c == std::filesystem::path::preferred_separator; };
    if (folder.empty() || path.size() <= folder.size() || !path.starts_with(folder) ||
        !(separator(folder.back()) || separator(path[folder.size()])))
        return false;
    for (const auto& part : pathFromText(path.substr(folder.size())))
        if (part == "..") return false;
    // The file itself may be a link: outputs replace what stands at their
    // name rather than write through it.
    const auto& base = real(std::string(folder));
    const auto& at = real(pathText(pathFromText(path).parent_path()));
    if (base.empty() || at.empty()) return false;
    const auto relative = at.lexically_relative(base);
    return !relative.empty() && *relative.begin() != "..";
}

const std::filesystem::path& FolderBounds::real(const std::string& folder) {
    const auto known = real_.find(folder);
    if (known != real_.end()) return known->second;
    std::error_code error;
    auto resolved = std::filesystem::absolute(pathFromText(folder), error);
    if (!error) resolved = std::filesystem::weakly_canonical(resolved, error);
    return real_[folder] = error ? std::filesystem::path() : resolved;
}

}  // namespace vellira
