// Where this platform keeps the folders a run needs.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace vellira {

// The user's desktop folder: on Windows the "Desktop" shell folder; elsewhere
// the XDG desktop directory (XDG_DESKTOP_DIR, or its line in user-dirs.dirs),
// else ~/Desktop.
std::filesystem::path desktopFolder();

// A path as a list or setup file names it: a "~" alone or before a
// separator at its start is the home folder, and a relative path is taken
// from `base` (the folder of the file that names it); an empty `base` keeps
// a relative path as it is. An empty path stays empty.
std::string resolvePath(std::string_view path, const std::filesystem::path& base = {});

// The system's temporary folder.
std::filesystem::path temporaryFolder();
// A folder of the user's own in the temporary folder, made when missing and
// reachable by nobody else, for files whose names other users must not be
// able to plant; none when such a folder cannot be had.
std::optional<std::filesystem::path> privateTemporaryFolder();

// The folder of the product's own settings: on Windows the folder the product
// is installed in; elsewhere $XDG_CONFIG_HOME/vellira (~/.config/vellira).
std::filesystem::path settingsFolder();
// The settings file every run writes first: "VelliraBatch.ini" there.
std::filesystem::path settingsFilePath();
// Where an older installation kept "Vellira.ini".
std::filesystem::path legacyFolder();
// The batch list kept from one session to the next.
std::filesystem::path defaultListPath();

// The per-user folder that writes to protected folders are redirected into
// (Windows' VirtualStore); empty where there is none.
std::string redirectionBase();
// The redirected copy of a path: 0 when it exists, -1 when it does not, -99
// when there is no redirection base (then `copy` is empty).
int redirectedCopy(const std::string& path, std::string& copy);

}  // namespace vellira
