// RunInterface: how a run talks to the person who started it.
//
// The library never prints. Messages, questions, progress, what the run does
// to its rows and files, and the cancel flag all pass through the interface a
// run is given: message boxes and list windows in the GUI, standard error and
// default answers in the command line. A run calls it from the thread it runs
// on; only the cancel flag may be set from another thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vellira {

struct Progress {
    std::string file;
    int page = 0;   // 1-based page being scanned, 0 when none
    int pages = 0;  // pages in the document
    int filesWritten = 0;
    int pagesRecognized = 0;  // pages of the document read from their image so far
};

// One mail of a run's mail list: the output file, the 1-based source pages
// it holds, and the address captured from its pages.
struct MailEntry {
    std::string file;
    int first = 0;
    int last = 0;
    std::string email;
    std::string subject;  // its own subject; EMAILSUBJECT when empty
};

// Where the sending of a run's mails stands: the mail being sent, the mails
// handled so far, and how many of them were sent and failed.
struct MailStatus {
    std::string recipient;
    int count = 0;
    int sent = 0;
    int failed = 0;
};

struct SplitSettings;

// One attempt to send a mail, as it goes: the output file and its 1-based
// source pages, the recipient, the settings the mail is made from, and
// where it stands ("sending", "retrying", "sent", "failed") with the server's
// answer or the transport's text.
struct MailAttempt {
    std::string file;
    int first = 0;
    int last = 0;
    std::string recipient;
    const SplitSettings* settings = nullptr;
    std::string status;
    std::string answer;
    int attempt = 1;  // 1 for the first try
};

class RunInterface {
public:
    virtual ~RunInterface() = default;
    // Shows one of the system's messages, as it stands, and waits.
    virtual void note(std::string_view message) = 0;
    // Asks a yes/no question; the default answer is no.
    virtual bool question(std::string_view message) = 0;
    virtual void progress(const Progress&) {}
    // A line of status while the run waits (for a file in use, say).
    virtual void status(std::string_view) {}
    // Offers a file the run produced (the text report) to the user's viewer.
    virtual void showFile(std::string_view /*path*/) {}
    // Shows one match of the search text: the word and its 0-based page, with
    // its number on the page as the host counts it.
    virtual void highlight(int /*page*/, std::string_view /*word*/, std::uint16_t /*number*/) {}
    // A row of the batch list (0-based, in the job's order) has a new status:
    // "Processing", "Done", "file error", ...
    virtual void rowStatus(int /*row*/, std::string_view /*status*/) {}
    // An output PDF was saved: its path and the 1-based source pages it holds.
    virtual void fileWritten(std::string_view /*path*/, int /*firstPage*/, int /*lastPage*/) {}
    // "Email List to Send": the mails about to be sent; true for "OK - Send".
    // By default the list is asked as one question, a line per mail.
    virtual bool confirmMails(const std::vector<MailEntry>& entries);
    // "Email Status": called before and after each mail. By default the
    // mail being sent is shown as a status line.
    virtual void mailStatus(const MailStatus& progress);
    // Before a mail is sent: false leaves it out, as one already sent (a
    // journal that knows it went). Then how each try ended, and each try
    // that begins again ("sending").
    virtual bool mailStarting(const MailAttempt&) { return true; }
    virtual void mailAttempted(const MailAttempt&) {}
    // Before an output holding 1-based source pages first..last is saved
    // (not appended to): false when it stands already as a run cut off
    // before wrote it, and so counts as written.
    virtual bool outputWanted(std::string_view /*path*/, int /*first*/, int /*last*/) { return true; }
    // The Stop flag, read before every row, page and mail.
    bool cancelled() const { return cancel_.load(std::memory_order_relaxed); }
    void requestCancel() { cancel_.store(true, std::memory_order_relaxed); }
    void clearCancel() { cancel_.store(false, std::memory_order_relaxed); }

private:
    std::atomic<bool> cancel_{false};
};

}  // namespace vellira
