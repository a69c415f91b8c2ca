#include "cli/ConsoleInterface.h"

#include <unistd.h>
#include <cstdio>

namespace vellira::cli {

ConsoleInterface::ConsoleInterface(bool answerYes) : answerYes_(answerYes), terminal_(::isatty(STDERR_FILENO) != 0) {}

void ConsoleInterface::clearProgress() {
    if (!progressShown_) return;
    std::fputs("\r\033[K", stderr);
    progressShown_ = false;
}

void ConsoleInterface::note(std::string_view message) {
    clearProgress();
    std::fwrite(message.data(), 1, message.size(), stderr);
    std::fputc('\n', stderr);
}

bool ConsoleInterface::question(std::string_view message) {
    note(message);
    std::fputs(answerYes_ ? "(answered yes)\n" : "(answered no)\n", stderr);
    return answerYes_;
}

void ConsoleInterface::progress(const Progress& progress) {
    if (!terminal_) return;
    std::fprintf(stderr, "\r\033[K%s: page %d of %d, %d file(s) written", progress.file.c_str(), progress.page,
                 progress.pages, progress.filesWritten);
    progressShown_ = true;
}

void ConsoleInterface::status(std::string_view text) {
    if (!terminal_) return;
    clearProgress();
    std::fwrite(text.data(), 1, text.size(), stderr);
    progressShown_ = true;
}

void ConsoleInterface::showFile(std::string_view path) { note(path); }

}  // namespace vellira::cli
