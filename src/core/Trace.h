// The debug trace: fixed-format lines appended to a file for diagnosis, off
// unless a file was given.
#pragma once

#include "core/Platform.h"

#include <filesystem>

namespace vellira {

class Trace {
public:
    // Starts tracing into `path` (appended to); answers false when it cannot
    // be opened.
    bool open(const std::filesystem::path& path);
    bool on() const { return file_ != nullptr; }
    // Writes one formatted entry as it stands; the format carries its own
    // line ends.
    void write(const char* format, ...) __attribute__((format(printf, 2, 3)));

private:
    FileHandle file_;
};

}  // namespace vellira
