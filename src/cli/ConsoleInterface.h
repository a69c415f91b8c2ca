// The command line's side of a run: messages to standard error as they
// stand, questions answered by their default (no) unless --yes was given, and
// a progress line kept on standard error when it is a terminal.
#pragma once

#include "core/RunInterface.h"

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
    // Clears the progress line before the program's own output.
    void endProgress() { clearProgress(); }

private:
    bool answerYes_;
    bool terminal_;
    bool progressShown_ = false;
    void clearProgress();
};

}  // namespace vellira::cli
