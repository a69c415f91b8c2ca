#include "core/Platform.h"

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

FileHandle openFile(const std::filesystem::path& path, const char* mode) {
#ifdef _WIN32
    const std::string narrow(mode);
    return FileHandle(_wfopen(path.c_str(), std::wstring(narrow.begin(), narrow.end()).c_str()));
#else
    return FileHandle(std::fopen(path.c_str(), mode));
#endif
}

}  // namespace vellira
