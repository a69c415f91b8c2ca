#include "files/SettingsLocations.h"

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

}  // namespace

std::filesystem::path desktopFolder() {
    if (auto fromEnvironment = environmentPath("XDG_DESKTOP_DIR"); !fromEnvironment.empty()) return fromEnvironment;
#ifndef _WIN32
    if (auto fromUserDirs = xdgDesktopFromUserDirs(); !fromUserDirs.empty()) return fromUserDirs;
#endif
    return homeFolder() / "Desktop";
}

std::filesystem::path temporaryFolder() {
    std::error_code error;
    auto folder = std::filesystem::temp_directory_path(error);
    return error ? std::filesystem::path(".") : folder;
}

}  // namespace vellira
