// The journal of unattended runs: one SQLite database (WAL) in the state
// folder that says which sources a watcher took and how they ended, which
// outputs were written (with a checksum) and every mail attempt, from
// watchers and one-shot runs alike. It is the truth a restart reads: a source
// taken and not finished is taken again, a mail marked sent is not sent
// again, and a mail found "sending" may have gone once already.
#pragma once

#include "core/RunInterface.h"
#include "core/SplitSettings.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace vellira::service {

// A journal that cannot be opened or written, with SQLite's words.
class JournalError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// $XDG_STATE_HOME/vellira-batch, else ~/.local/state/vellira-batch.
std::filesystem::path stateFolder();
// The journal's file in the state folder.
std::filesystem::path defaultJournalPath();

// "YYYY-MM-DD HH:MM:SS", local time: the journal's times, which sort as text.
std::string journalTime();

// A 64-bit FNV-1a checksum of a file's bytes, as 16 hex digits; none when it
// cannot be read.
std::optional<std::string> fileChecksum(const std::filesystem::path& file);

struct SourceRecord {
    std::int64_t id = 0;
    std::string inbox;
    std::string name;
    std::int64_t size = 0;
    std::int64_t mtime = 0;  // nanoseconds
    std::string state;       // "taken", "done", "error"
    std::string reason;
};

// An output as written: its path, 1-based source pages and checksum.
struct OutputRecord {
    std::string path;
    int first = 0;
    int last = 0;
    std::string checksum;
};

struct MailRecord {
    std::int64_t id = 0;
    std::int64_t source = 0;  // 0 for a one-shot run
    std::string time;         // of the last attempt
    std::string file;
    int first = 0;
    int last = 0;
    std::string recipient;
    std::string status;  // "sending", "retrying", "sent", "failed"
    std::string answer;
    int attempts = 0;
    int cutOff = 0;  // tries cut off (a crash) after the mail may have gone: it may have gone this many times more
    std::string settings;  // the e-mail settings it was made with (JSON), the password left out
};

class Journal {
public:
    // Opens (and makes) the journal. Throws JournalError.
    explicit Journal(const std::filesystem::path& file);
    ~Journal();
    Journal(const Journal&) = delete;
    Journal& operator=(const Journal&) = delete;

    const std::filesystem::path& file() const { return file_; }

    // The latest record of this file in this inbox (same name, size and
    // time), if any.
    std::optional<SourceRecord> findSource(const std::string& inbox, const std::string& name, std::int64_t size,
                                           std::int64_t mtime);
    std::int64_t takeSource(const std::string& inbox, const std::string& name, std::int64_t size, std::int64_t mtime);
    // An output of a source, as soon as it is written.
    void recordOutput(std::int64_t source, const OutputRecord& output);
    // The outputs a source wrote so far.
    std::vector<OutputRecord> outputsOf(std::int64_t source);
    // Ends a source: how it ended, in a step that is on disk before the
    // source is moved.
    void finishSource(std::int64_t id, const std::string& state, const std::string& reason);

    // A mail about to be sent for `source` (0: a one-shot run). Answers its
    // record's id, or none when the journal has it sent already. A record
    // found "sending" was cut off: that try is counted, as one that may
    // have reached the recipient.
    std::optional<std::int64_t> startMail(std::int64_t source, const MailAttempt& attempt);
    // A mail sent again by hand: its record goes back to "sending".
    void restartMail(std::int64_t id);
    // How a try ended: "retrying", "sent" or "failed", with the answer; or
    // "sending" as the next try begins.
    void updateMail(std::int64_t id, const std::string& status, const std::string& answer);
    // Mails whose last attempt is at or after `since` (any when empty), in
    // order; only the failed ones with `failedOnly`.
    std::vector<MailRecord> mails(const std::string& since, bool failedOnly);

private:
    friend class JournalStatement;
    void exec(const char* sql);
    // The statement of `sql` (a literal), prepared once.
    sqlite3_stmt* prepared(const char* sql);
    std::filesystem::path file_;
    sqlite3* db_ = nullptr;
    std::map<const char*, sqlite3_stmt*> statements_;
    std::mutex lock_;
};

// The e-mail settings a mail is made from, as JSON; the password is left out.
std::string mailSettingsText(const SplitSettings& settings);
// Those settings put back into `settings`; false when the text is not theirs.
bool restoreMailSettings(const std::string& text, SplitSettings& settings);

}  // namespace vellira::service
