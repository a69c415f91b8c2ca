#include "files/SettingsLocations.h"

#include "core/Platform.h"

#ifdef _WIN32
#include <windows.h>
#include <vector>
#endif

#ifndef _WIN32
#include <sys/stat.h>
#include <unistd.h>
#endif

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <string_view>
#include <system_error>

namespace vellira {

namespace {

std::filesystem::path environmentPath(const char* name) {
    const char* value = std::getenv(name);
    return value && *value ? std::filesystem::path(value) : std::filesystem::path();
}

std::filesystem::path homeFolder() {
#ifdef _WIN32
    return environmentPath("USERPROFILE");
#else
    return environmentPath("HOME");
#endif
}

// Expands a leading "$HOME" as user-dirs.dirs writes it.
std::filesystem::path expandHome(std::string_view value) {
    constexpr std::string_view home = "$HOME";
    if (value.starts_with(home)) return homeFolder().string() + std::string(value.substr(home.size()));
    return std::filesystem::path(std::string(value));
}

std::filesystem::path xdgDesktopFromUserDirs() {
    auto config = environmentPath("XDG_CONFIG_HOME");
    if (config.empty()) config = homeFolder() / ".config";
    std::ifstream file(config / "user-dirs.dirs");
    constexpr std::string_view key = "XDG_DESKTOP_DIR=";
    for (std::string line; std::getline(file, line);) {
        if (!line.starts_with(key)) continue;
        std::string_view value = std::string_view(line).substr(key.size());
        if (value.size() >= 2 && value.front() == '"' && value.back() == '"') value = value.substr(1, value.size() - 2);
        if (!value.empty()) return expandHome(value);
    }
    return {};
}

#ifdef _WIN32
// The folder of the installed product, from its application-path
// registration; empty when it is not registered.
std::filesystem::path installFolder() {
    HKEY key = nullptr;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\App Paths\\VelliraBatch.api",
                      0, KEY_READ, &key) != ERROR_SUCCESS)
        return {};
    char name[1024] = {};
    BYTE data[1024] = {};
    DWORD nameSize = sizeof name - 1, dataSize = sizeof data - 1, type = 0;
    const LONG read = RegEnumValueA(key, 0, name, &nameSize, nullptr, &type, data, &dataSize);
    RegCloseKey(key);
    if (read != ERROR_SUCCESS) return {};
    std::string path(reinterpret_cast<const char*>(data));
    if (path.find(".api") != std::string::npos) {
        const auto slash = path.find_last_of('\\');
        if (slash != std::string::npos) path.resize(slash);
    }
    return path;
}

// A folder of the current user's "Shell Folders" by its exact name.
std::string shellFolder(std::string_view wanted) {
    HKEY key = nullptr;
    if (RegOpenKeyExA(HKEY_CURRENT_USER, "Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\Shell Folders", 0,
                      KEY_READ, &key) != ERROR_SUCCESS)
        return {};
    std::string result;
    for (DWORD index = 0;; ++index) {
        char name[256] = {};
        BYTE data[256] = {};
        DWORD nameSize = sizeof name - 1, dataSize = sizeof data - 1, type = 0;
        if (RegEnumValueA(key, index, name, &nameSize, nullptr, &type, data, &dataSize) != ERROR_SUCCESS) break;
        if (wanted == name && data[0]) result = reinterpret_cast<const char*>(data);
    }
    RegCloseKey(key);
    return result;
}

// Whether the current user may write into a folder, by the system's own
// access check.
bool mayWrite(const std::string& path) {
    const SECURITY_INFORMATION wanted =
        OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION;
    DWORD size = 0;
    if (GetFileSecurityA(path.c_str(), wanted, nullptr, 0, &size) || GetLastError() != ERROR_INSUFFICIENT_BUFFER)
        return false;
    std::vector<char> descriptor(size);
    if (!GetFileSecurityA(path.c_str(), wanted, descriptor.data(), size, &size)) return false;
    HANDLE token = nullptr, impersonation = nullptr;
    bool granted = false;
    if (OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY | TOKEN_DUPLICATE | TOKEN_IMPERSONATE, &token) &&
        DuplicateToken(token, SecurityImpersonation, &impersonation)) {
        GENERIC_MAPPING mapping = {0x120089, 0x120116, 0x1200A0, 0x1F03FF};
        DWORD access = GENERIC_WRITE;
        MapGenericMask(&access, &mapping);
        PRIVILEGE_SET privileges = {};
        DWORD privilegesSize = sizeof privileges, grantedAccess = 0;
        BOOL status = FALSE;
        granted = AccessCheck(descriptor.data(), impersonation, access, &mapping, &privileges, &privilegesSize,
                              &grantedAccess, &status) &&
                  status;
    }
    if (impersonation) CloseHandle(impersonation);
    if (token) CloseHandle(token);
    return granted;
}
#endif

}  // namespace

std::filesystem::path desktopFolder() {
    if (auto fromEnvironment = environmentPath("XDG_DESKTOP_DIR"); !fromEnvironment.empty()) return fromEnvironment;
#ifndef _WIN32
    if (auto fromUserDirs = xdgDesktopFromUserDirs(); !fromUserDirs.empty()) return fromUserDirs;
#endif
    return homeFolder() / "Desktop";
}

std::filesystem::path settingsFolder() {
#ifdef _WIN32
    return installFolder();
#else
    auto config = environmentPath("XDG_CONFIG_HOME");
    if (config.empty()) config = homeFolder() / ".config";
    return config / "vellira";
#endif
}

std::filesystem::path settingsFilePath() { return settingsFolder() / "VelliraBatch.ini"; }

std::filesystem::path legacyFolder() {
#ifdef _WIN32
    return "\\Program Files\\Ornwick Software\\Vellira\\";
#else
    return settingsFolder() / "legacy";
#endif
}

std::filesystem::path defaultListPath() {
#ifdef _WIN32
    return "c:\\default.lst";
#else
    return settingsFolder() / "default.lst";
#endif
}

std::string redirectionBase() {
#ifdef _WIN32
    std::error_code ignored;
    if (mayWrite(std::filesystem::current_path(ignored).string())) return {};
    const std::string local = shellFolder("Local AppData");
    return local + (!local.empty() && local.back() == '\\' ? "VirtualStore" : "\\VirtualStore");
#else
    return {};
#endif
}

int redirectedCopy(const std::string& path, std::string& copy) {
    copy.clear();
    const std::string base = redirectionBase();
    if (base.empty()) return -99;
    const auto colon = path.find(':');
    if (colon != std::string::npos) {
        copy = base + "\\" + path.substr(std::min(path.size(), colon + 2));
    } else if (!path.starts_with("\\\\")) {
        std::error_code ignored;
        std::string working = std::filesystem::current_path(ignored).string();
        const auto drive = working.find(':');
        if (drive != std::string::npos) working = working.substr(std::min(working.size(), drive + 2));
        copy = base + "\\" + working + "\\" + path;
    } else {
        copy = base + "\\" + path;
    }
    std::error_code ignored;
    return std::filesystem::exists(copy, ignored) ? 0 : -1;
}

std::string resolvePath(std::string_view path, const std::filesystem::path& base) {
    if (path.empty()) return {};
    const bool home = path == "~" || path.starts_with("~/")
#ifdef _WIN32
                      || path.starts_with("~\\")
#endif
        ;
    if (home) return pathText(homeFolder()) + std::string(path.substr(1));
    const std::filesystem::path named = pathFromText(path);
    if (base.empty() || named.is_absolute() || named.has_root_name()) return std::string(path);
    return pathText(base / named);
}

std::optional<std::filesystem::path> privateTemporaryFolder() {
#ifdef _WIN32
    return temporaryFolder();  // the user's own already
#else
    const auto folder = temporaryFolder() / ("vellira-" + std::to_string(::getuid()));
    ::mkdir(folder.c_str(), 0700);
    // Only a real folder of this user's, closed to others, will do: not a
    // link or a folder someone else made first.
    struct stat status;
    if (::lstat(folder.c_str(), &status) != 0 || !S_ISDIR(status.st_mode) || status.st_uid != ::getuid() ||
        (status.st_mode & 077) != 0)
        return std::nullopt;
    return folder;
#endif
}

std::filesystem::path temporaryFolder() {
    std::error_code error;
    auto folder = std::filesystem::temp_directory_path(error);
    return error ? std::filesystem::path(".") : folder;
}

}  // namespace vellira
