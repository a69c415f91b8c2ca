// Where this platform keeps the folders a run needs.
#pragma once

#include <filesystem>
#include <string>

namespace vellira {

// The user's desktop folder: on Windows the "Desktop" shell folder; elsewhere
// the XDG desktop directory (XDG_DESKTOP_DIR, or its line in user-dirs.dirs),
// else ~/Desktop.
std::filesystem::path desktopFolder();

// The system's temporary folder.
std::filesystem::path temporaryFolder();

}  // namespace vellira
