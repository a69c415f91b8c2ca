// The command line's side of a run: messages to standard error as they
// stand, questions answered by their default (no) unless --yes was given, and
// progress on standard error: a line kept up to date on a terminal, one line
// per document otherwise (for logs). Quiet, only the messages are shown.
#pragma once

#include "core/RunInterface.h"

#include <string>
#include <utility>
#include <vector>

namespace vellira::cli {

class ConsoleInterface : public RunInterface {
public:
    explicit ConsoleInterface(bool answerYes = false, bool quiet = false);
    void note(std::string_view message) override;
    bool question(std::string_view message) override;
    void progress(const Progress& progress) override;
    void status(std::string_view text) override;
    // The CLI has no viewer: it names the file instead.
    void showFile(std::string_view path) override;
    // Counts the files written into each folder, for the run's summary.
    void fileWritten(std::string_view path, int firstPage, int lastPage) override;
    // Ends the progress of the run before the program's own output.
    void endProgress();
    // "N file(s) written to DIR", a part per folder in the order first
    // written to; "0 file(s) written" when none was.
    std::string writtenSummary() const;

private:
    // The document whose line a log gets when it is done.
    void documentDone();

    std::vector<std::pair<std::string, int>> folders_;  // folder -> files written into it
    Progress document_;
    int documentFiles_ = 0;  // files saved from document_, as the summary counts them
    bool answerYes_;
    bool quiet_;
    bool terminal_;
    bool progressShown_ = false;
    void clearProgress();
};

}  // namespace vellira::cli
