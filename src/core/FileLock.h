// Advisory locks that let runs working at the same time take turns on one
// file: they bind only the runs that take them.
#pragma once

#include <filesystem>

namespace vellira {

// Holds the file at a path for its holder alone while it lives, against
// every other holder of the same file, in this process or another. A file
// that another holder replaced (renamed a new one over it) while this one
// waited is held again as the new file. When nothing stands at the path, its
// folder is held instead until the holder is done, so that two holders never
// both take the file for missing.
class FileLock {
public:
    explicit FileLock(const std::filesystem::path& path);
    ~FileLock();
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

    // Whether a file stood at the path once it was held.
    bool fileThere() const { return there_; }

private:
#ifdef _WIN32
    void* handle_ = nullptr;
#else
    int fd_ = -1;
#endif
    bool there_ = false;
};

}  // namespace vellira
