#include "core/Trace.h"

namespace vellira {

namespace {

std::string formatList(const char* format, std::va_list args) {
    std::va_list copy;
    va_copy(copy, args);
    const int size = std::vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    if (size <= 0) return {};
    std::string text(static_cast<std::size_t>(size), '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, args);
    return text;
}

}  // namespace

std::string formatText(const char* format, ...) {
    std::va_list args;
    va_start(args, format);
    std::string text = formatList(format, args);
    va_end(args);
    return text;
}

void replaceAll(std::string& text, std::string_view token, std::string_view with) {
    if (token.empty()) return;
    for (auto at = text.find(token); at != std::string::npos; at = text.find(token, at + with.size()))
        text.replace(at, token.size(), with);
}

bool Trace::open(const std::filesystem::path& path) {
    file_ = openFile(path, "ab");
    return on();
}

void Trace::write(const char* format, ...) {
    if (!file_) return;
    std::va_list args;
    va_start(args, format);
    const std::string text = formatList(format, args);
    va_end(args);
    std::fwrite(text.data(), 1, text.size(), file_.get());
    std::fflush(file_.get());
}

}  // namespace vellira
