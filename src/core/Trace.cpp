#include "core/Trace.h"

#include <cstdarg>
#include <cstdio>

namespace vellira {

bool Trace::open(const std::filesystem::path& path) {
    file_ = openFile(path, "ab");
    return on();
}

void Trace::write(const char* format, ...) {
    if (!file_) return;
    std::va_list args;
    va_start(args, format);
    std::vfprintf(file_.get(), format, args);
    va_end(args);
    std::fflush(file_.get());
}

}  // namespace vellira
