#include "core/FileLock.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#endif

namespace vellira {

#ifdef _WIN32
// A byte-range lock over the whole file, taken through a handle that lets
// others read, write, rename and delete it as before. Where nothing stands at
// the path yet there is no file to hold, so the holder goes on unlocked: the
// file is made by the append that follows.
FileLock::FileLock(const std::filesystem::path& path) {
    for (;;) {
        HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                  nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
        if (file == INVALID_HANDLE_VALUE) return;
        OVERLAPPED whole{};
        if (!LockFileEx(file, LOCKFILE_EXCLUSIVE_LOCK, 0, MAXDWORD, MAXDWORD, &whole)) {
            CloseHandle(file);
            return;
        }
        // The lock holds the file that was opened: what stands at the path
        // now must still be that file.
        HANDLE now = CreateFileW(path.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                 OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
        BY_HANDLE_FILE_INFORMATION held{}, atPath{};
        const bool same = now != INVALID_HANDLE_VALUE && GetFileInformationByHandle(file, &held) &&
                          GetFileInformationByHandle(now, &atPath) &&
                          held.dwVolumeSerialNumber == atPath.dwVolumeSerialNumber &&
                          held.nFileIndexHigh == atPath.nFileIndexHigh && held.nFileIndexLow == atPath.nFileIndexLow;
        if (now != INVALID_HANDLE_VALUE) CloseHandle(now);
        if (same) {
            handle_ = file;
            there_ = true;
            return;
        }
        CloseHandle(file);  // closing releases the lock
    }
}

FileLock::~FileLock() {
    if (handle_) CloseHandle(static_cast<HANDLE>(handle_));  // closing releases the lock
}
#else
FileLock::FileLock(const std::filesystem::path& path) {
    for (;;) {
        const int file = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
        struct stat now {};
        if (file < 0 && errno != ENOENT) {
            // A link, or a file this user may not read, is not held.
            there_ = ::lstat(path.c_str(), &now) == 0;
            return;
        }
        int fd = file;
        // A folder not made yet: the nearest one that is.
        for (auto folder = path.parent_path(); fd < 0; folder = folder.parent_path()) {
            fd = ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
            if (fd < 0 && (errno != ENOENT || folder.empty() || folder == folder.parent_path())) return;
        }
        while (::flock(fd, LOCK_EX) != 0 && errno == EINTR) {
        }
        // Flock holds an inode, not a name: what stands at the path now must
        // still be what was locked.
        const bool atPath = ::lstat(path.c_str(), &now) == 0;
        struct stat held {};
        if (file >= 0 ? atPath && ::fstat(fd, &held) == 0 && held.st_dev == now.st_dev && held.st_ino == now.st_ino
                      : !atPath) {
            fd_ = fd;
            there_ = file >= 0;
            return;
        }
        ::close(fd);
    }
}

FileLock::~FileLock() {
    if (fd_ >= 0) ::close(fd_);  // closing releases the lock
}
#endif

}  // namespace vellira
