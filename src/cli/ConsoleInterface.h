// The command line's side of a run: messages to standard error as they
// stand, questions answered by their default (no) unless --yes was given, and
// a progress line kept on standard error when it is a terminal.
#pragma once

#include "core/RunInterface.h"

#include <string>
#include <utility>
#include <vector>

namespace vellira::cli {

class ConsoleInterface : public RunInterface {
public:
    explicit ConsoleInterface(bool answerYes = false);
    void note(std::string_view message) override;
    bool question(std::string_view message) override;
    void progress(const Progress& progress) override;
    void status(std::string_view text) override;
    // The CLI has no viewer: it names the file instead.
    void showFile(std::string_view path) override;
    // Counts the files written into each folder, for the run's summary.
    void fileWritten(std::string_view path, int firstPage, int lastPage) override;
    // Clears the progress line before the program's own output.
    void endProgress() { clearProgress(); }
    // "N file(s) written to DIR", a part per folder in the order first
    // written to; "0 file(s) written" when none was.
    std::string writtenSummary() const;

private:
    std::vector<std::pair<std::string, int>> folders_;  // folder -> files written into it
    bool answerYes_;
    bool terminal_;
    bool progressShown_ = false;
    void clearProgress();
};

}  // namespace vellira::cli
