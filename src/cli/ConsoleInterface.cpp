#include "cli/ConsoleInterface.h"

#include <unistd.h>
#include <algorithm>
#include <cstdio>
#include <filesystem>

namespace vellira::cli {

ConsoleInterface::ConsoleInterface(bool answerYes, bool quiet)
    : answerYes_(answerYes), quiet_(quiet), terminal_(::isatty(STDERR_FILENO) != 0) {}

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
    if (!quiet_) std::fputs(answerYes_ ? "(answered yes)\n" : "(answered no)\n", stderr);
    return answerYes_;
}

namespace {

// How many of a document's pages were read from their image, when any were.
std::string recognizedText(const Progress& progress) {
    return progress.pagesRecognized > 0 ? ", " + std::to_string(progress.pagesRecognized) + " read by OCR" : "";
}

}  // namespace

void ConsoleInterface::progress(const Progress& progress) {
    if (quiet_) return;
    if (progress.file != document_.file) {
        documentDone();
        documentFiles_ = 0;
    }
    document_ = progress;
    if (!terminal_) return;
    std::fprintf(stderr, "\r\033[K%s: page %d of %d, %d file(s) written%s", progress.file.c_str(), progress.page,
                 progress.pages, progress.filesWritten, recognizedText(progress).c_str());
    progressShown_ = true;
}

void ConsoleInterface::documentDone() {
    if (terminal_ || document_.pages == 0) return;
    std::fprintf(stderr, "%s: %d page(s), %d file(s) written%s\n", document_.file.c_str(), document_.pages,
                 documentFiles_, recognizedText(document_).c_str());
}

void ConsoleInterface::endProgress() {
    clearProgress();
    documentDone();
    document_ = {};
    documentFiles_ = 0;
}

void ConsoleInterface::status(std::string_view text) {
    if (!terminal_ || quiet_) return;
    clearProgress();
    std::fwrite(text.data(), 1, text.size(), stderr);
    progressShown_ = true;
}

void ConsoleInterface::showFile(std::string_view path) { note(path); }

void ConsoleInterface::fileWritten(std::string_view path, int, int) {
    ++documentFiles_;
    const auto cut = path.find_last_of(static_cast<char>(std::filesystem::path::preferred_separator));
    const std::string folder(cut == std::string_view::npos ? std::string_view(".") : path.substr(0, cut));
    const auto known =
        std::find_if(folders_.begin(), folders_.end(), [&](const auto& each) { return each.first == folder; });
    if (known == folders_.end())
        folders_.emplace_back(folder, 1);
    else
        ++known->second;
}

std::string ConsoleInterface::writtenSummary() const {
    if (folders_.empty()) return "0 file(s) written";
    std::string summary;
    for (const auto& [folder, files] : folders_) {
        if (!summary.empty()) summary += ", ";
        summary += std::to_string(files) + " file(s) written to " + folder;
    }
    return summary;
}

}  // namespace vellira::cli
