#include "service/Journal.h"

#include "core/Platform.h"
#include "core/Text.h"

#include <sqlite3.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <vector>

namespace vellira::service {

namespace {

constexpr const char* kSchema = R"(
CREATE TABLE IF NOT EXISTS sources(
  id INTEGER PRIMARY KEY, inbox TEXT NOT NULL, name BLOB NOT NULL, size INTEGER, mtime INTEGER,
  state TEXT NOT NULL, reason TEXT, taken TEXT, finished TEXT);
CREATE INDEX IF NOT EXISTS sources_by_name ON sources(inbox, name);
CREATE TABLE IF NOT EXISTS outputs(
  id INTEGER PRIMARY KEY, source INTEGER NOT NULL, path BLOB NOT NULL, first INTEGER, last INTEGER,
  checksum TEXT, written TEXT, times INTEGER DEFAULT 1, UNIQUE(source, path));
CREATE TABLE IF NOT EXISTS mails(
  id INTEGER PRIMARY KEY, source INTEGER NOT NULL DEFAULT 0, file BLOB NOT NULL, first INTEGER, last INTEGER,
  recipient TEXT NOT NULL, status TEXT NOT NULL, answer TEXT, attempts INTEGER DEFAULT 0,
  cut_off INTEGER DEFAULT 0, settings TEXT, started TEXT, updated TEXT);
CREATE INDEX IF NOT EXISTS mails_by_file ON mails(source, file, recipient);
CREATE INDEX IF NOT EXISTS mails_by_time ON mails(updated);
)";

// While it lives, each step the journal takes is on disk when it returns.
class Durable {
public:
    explicit Durable(sqlite3* db) : db_(db) { sqlite3_exec(db_, "PRAGMA synchronous=FULL", nullptr, nullptr, nullptr); }
    ~Durable() { sqlite3_exec(db_, "PRAGMA synchronous=NORMAL", nullptr, nullptr, nullptr); }
    Durable(const Durable&) = delete;
    Durable& operator=(const Durable&) = delete;

private:
    sqlite3* db_;
};

}  // namespace

// One of the journal's statements, bound in order and stepped, then reset
// for its next use.
class JournalStatement {
public:
    JournalStatement(Journal& journal, const char* sql) : db_(journal.db_), statement_(journal.prepared(sql)) {}
    ~JournalStatement() {
        sqlite3_reset(statement_);
        sqlite3_clear_bindings(statement_);
    }
    JournalStatement(const JournalStatement&) = delete;
    JournalStatement& operator=(const JournalStatement&) = delete;

    JournalStatement& bind(const std::string& text) {
        sqlite3_bind_text(statement_, ++at_, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
        return *this;
    }
    JournalStatement& bind(std::int64_t value) {
        sqlite3_bind_int64(statement_, ++at_, value);
        return *this;
    }
    // True while a row is there.
    bool step() {
        const int code = sqlite3_step(statement_);
        if (code == SQLITE_ROW) return true;
        if (code != SQLITE_DONE) throw JournalError(std::string("journal: ") + sqlite3_errmsg(db_));
        return false;
    }
    std::string text(int column) const {
        const auto* bytes = static_cast<const char*>(sqlite3_column_blob(statement_, column));
        return bytes ? std::string(bytes, static_cast<std::size_t>(sqlite3_column_bytes(statement_, column)))
                     : std::string();
    }
    std::int64_t integer(int column) const { return sqlite3_column_int64(statement_, column); }

private:
    sqlite3* db_;
    sqlite3_stmt* statement_;
    int at_ = 0;
};
using Statement = JournalStatement;

sqlite3_stmt* Journal::prepared(const char* sql) {
    auto& statement = statements_[sql];
    if (!statement && sqlite3_prepare_v3(db_, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr) != SQLITE_OK) {
        statements_.erase(sql);
        throw JournalError(std::string("journal: ") + sqlite3_errmsg(db_));
    }
    return statement;
}

std::filesystem::path stateFolder() {
    if (const char* state = std::getenv("XDG_STATE_HOME"); state && *state == '/')
        return std::filesystem::path(state) / "vellira-batch";
    const char* home = std::getenv("HOME");
    return std::filesystem::path(home && *home ? home : "/") / ".local" / "state" / "vellira-batch";
}

std::filesystem::path defaultJournalPath() { return stateFolder() / "journal.sqlite"; }

std::string journalTime() {
    const std::tm now = localNow();
    return formatText("%4.4d-%2.2d-%2.2d %2.2d:%2.2d:%2.2d", now.tm_year + 1900, now.tm_mon + 1, now.tm_mday,
                      now.tm_hour, now.tm_min, now.tm_sec);
}

std::optional<std::string> fileChecksum(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    if (!in) return std::nullopt;
    // Eight bytes a step, each mixed into the whole (the last word padded
    // with zeros); then the length.
    constexpr std::uint64_t kMix = 0x9E3779B97F4A7C15ull;
    std::uint64_t hash = 14695981039346656037ull;
    std::uint64_t length = 0;
    std::vector<char> buffer(1 << 16);
    for (;;) {
        in.read(buffer.data(), static_cast<std::streamsize>(buffer.size()));
        const auto n = static_cast<std::size_t>(in.gcount());
        std::fill(buffer.begin() + static_cast<std::ptrdiff_t>(n),
                  buffer.begin() + static_cast<std::ptrdiff_t>(std::min(buffer.size(), n + 7)), 0);
        for (std::size_t at = 0; at < n; at += 8) {
            std::uint64_t word;
            std::memcpy(&word, buffer.data() + at, 8);
            hash = (hash ^ word) * kMix;
            hash ^= hash >> 29;
        }
        length += n;
        if (n < buffer.size()) break;
    }
    if (in.bad()) return std::nullopt;
    hash = (hash ^ length) * kMix;
    return formatText("%016llx", static_cast<unsigned long long>(hash ^ (hash >> 32)));
}

Journal::Journal(const std::filesystem::path& file) : file_(file) {
    std::error_code ignored;
    if (file.has_parent_path()) std::filesystem::create_directories(file.parent_path(), ignored);
    if (sqlite3_open_v2(pathText(file).c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX,
                        nullptr) != SQLITE_OK) {
        const std::string why = db_ ? sqlite3_errmsg(db_) : "out of memory";
        sqlite3_close(db_);
        db_ = nullptr;
        throw JournalError("cannot open the journal '" + pathText(file) + "': " + why);
    }
    // Other runs may write at the same time: they wait their turn. A power
    // cut may lose the last steps of a WAL journal, never one without the
    // steps before it; the steps that must not be lost (a mail about to go,
    // a source about to be moved) are on disk before they are acted on.
    sqlite3_busy_timeout(db_, 10000);
    try {
        exec("PRAGMA journal_mode=WAL");
        exec("PRAGMA synchronous=NORMAL");
        exec(kSchema);
    } catch (const JournalError& error) {
        sqlite3_close(db_);
        db_ = nullptr;
        throw JournalError("cannot open the journal '" + pathText(file) + "': " + error.what());
    }
}

Journal::~Journal() {
    for (const auto& [sql, statement] : statements_) sqlite3_finalize(statement);
    sqlite3_close(db_);
}

void Journal::exec(const char* sql) {
    char* error = nullptr;
    if (sqlite3_exec(db_, sql, nullptr, nullptr, &error) != SQLITE_OK) {
        const std::string why = error ? error : "unknown error";
        sqlite3_free(error);
        throw JournalError("journal: " + why);
    }
}

std::optional<SourceRecord> Journal::findSource(const std::string& inbox, const std::string& name, std::int64_t size,
                                                std::int64_t mtime) {
    const std::lock_guard hold(lock_);
    Statement find(*this,
                   "SELECT id, state, reason FROM sources WHERE inbox = ? AND name = CAST(? AS BLOB) AND size = ? "
                   "AND mtime = ? ORDER BY id DESC LIMIT 1");
    find.bind(inbox).bind(name).bind(size).bind(mtime);
    if (!find.step()) return std::nullopt;
    return SourceRecord{find.integer(0), inbox, name, size, mtime, find.text(1), find.text(2)};
}

std::int64_t Journal::takeSource(const std::string& inbox, const std::string& name, std::int64_t size,
                                 std::int64_t mtime) {
    const std::lock_guard hold(lock_);
    Statement take(*this,
                   "INSERT INTO sources(inbox, name, size, mtime, state, taken) VALUES(?, CAST(? AS BLOB), ?, ?, "
                   "'taken', ?)");
    take.bind(inbox).bind(name).bind(size).bind(mtime).bind(journalTime()).step();
    return sqlite3_last_insert_rowid(db_);
}

void Journal::recordOutput(std::int64_t source, const OutputRecord& output) {
    const std::lock_guard hold(lock_);
    Statement(*this,
              "INSERT INTO outputs(source, path, first, last, checksum, written) VALUES(?, CAST(? AS BLOB), ?, ?, ?, "
              "?) ON CONFLICT(source, path) DO UPDATE SET first = excluded.first, last = excluded.last, checksum = "
              "excluded.checksum, written = excluded.written, times = times + 1")
        .bind(source)
        .bind(output.path)
        .bind(std::int64_t{output.first})
        .bind(std::int64_t{output.last})
        .bind(output.checksum)
        .bind(journalTime())
        .step();
}

std::vector<OutputRecord> Journal::outputsOf(std::int64_t source) {
    const std::lock_guard hold(lock_);
    std::vector<OutputRecord> outputs;
    Statement list(*this, "SELECT path, first, last, checksum FROM outputs WHERE source = ? ORDER BY id");
    list.bind(source);
    while (list.step())
        outputs.push_back(
            {list.text(0), static_cast<int>(list.integer(1)), static_cast<int>(list.integer(2)), list.text(3)});
    return outputs;
}

void Journal::finishSource(std::int64_t id, const std::string& state, const std::string& reason) {
    const std::lock_guard hold(lock_);
    const Durable durable(db_);  // the source is moved next
    Statement(*this, "UPDATE sources SET state = ?, reason = ?, finished = ? WHERE id = ?")
        .bind(state)
        .bind(reason)
        .bind(journalTime())
        .bind(id)
        .step();
}

std::optional<std::int64_t> Journal::startMail(std::int64_t source, const MailAttempt& attempt) {
    const std::lock_guard hold(lock_);
    const Durable durable(db_);  // the mail goes next
    const std::string now = journalTime();
    if (source != 0) {
        Statement find(*this,
                       "SELECT id, status FROM mails WHERE source = ? AND file = CAST(? AS BLOB) AND recipient = ? "
                       "ORDER BY id DESC LIMIT 1");
        find.bind(source).bind(attempt.file).bind(attempt.recipient);
        if (find.step()) {
            const std::int64_t id = find.integer(0);
            const std::string status = find.text(1);
            if (status == "sent") return std::nullopt;
            Statement(*this, "UPDATE mails SET status = 'sending', updated = ?, cut_off = cut_off + ? WHERE id = ?")
                .bind(now)
                .bind(std::int64_t{status == "sending"})
                .bind(id)
                .step();
            return id;
        }
    }
    Statement add(*this,
                  "INSERT INTO mails(source, file, first, last, recipient, status, settings, started, updated) "
                  "VALUES(?, CAST(? AS BLOB), ?, ?, ?, 'sending', ?, ?, ?)");
    add.bind(source)
        .bind(attempt.file)
        .bind(std::int64_t{attempt.first})
        .bind(std::int64_t{attempt.last})
        .bind(attempt.recipient)
        .bind(attempt.settings ? mailSettingsText(*attempt.settings) : std::string("{}"))
        .bind(now)
        .bind(now)
        .step();
    return sqlite3_last_insert_rowid(db_);
}

void Journal::restartMail(std::int64_t id) {
    const std::lock_guard hold(lock_);
    Statement(*this, "UPDATE mails SET status = 'sending', updated = ? WHERE id = ?")
        .bind(journalTime())
        .bind(id)
        .step();
}

void Journal::updateMail(std::int64_t id, const std::string& status, const std::string& answer) {
    const std::lock_guard hold(lock_);
    // A try that begins again is on disk before the mail goes; each try
    // that ends is counted, over resends too.
    const bool again = status == "sending";
    std::optional<Durable> durable;
    if (again) durable.emplace(db_);
    Statement(*this, "UPDATE mails SET status = ?, answer = ?, updated = ?, attempts = attempts + ? WHERE id = ?")
        .bind(status)
        .bind(answer)
        .bind(journalTime())
        .bind(std::int64_t{again ? 0 : 1})
        .bind(id)
        .step();
}

std::vector<MailRecord> Journal::mails(const std::string& since, bool failedOnly) {
    const std::lock_guard hold(lock_);
    Statement list(*this,
                   "SELECT id, source, updated, file, first, last, recipient, status, answer, attempts, cut_off, "
                   "settings FROM mails WHERE updated >= ? AND (? = 0 OR status = 'failed') ORDER BY id");
    list.bind(since).bind(std::int64_t{failedOnly});
    std::vector<MailRecord> found;
    while (list.step())
        found.push_back({list.integer(0), list.integer(1), list.text(2), list.text(3),
                         static_cast<int>(list.integer(4)), static_cast<int>(list.integer(5)), list.text(6),
                         list.text(7), list.text(8), static_cast<int>(list.integer(9)),
                         static_cast<int>(list.integer(10)), list.text(11)});
    return found;
}

std::string mailSettingsText(const SplitSettings& settings) {
    nlohmann::json keys = nlohmann::json::object();
    for (const auto& key : settingsKeys())
        if ((key.name.starts_with("EMAIL") || key.name == "USEOUTLOOK") && key.name != "EMAILPASSWORD")
            keys[std::string(key.name)] = keyValueText(key, settings);
    return keys.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

bool restoreMailSettings(const std::string& text, SplitSettings& settings) {
    const nlohmann::json keys = nlohmann::json::parse(text, nullptr, false);
    if (!keys.is_object()) return false;
    for (const auto& [name, value] : keys.items()) {
        const SettingsKey* key = findSettingsKey(name);
        if (!key || !value.is_string() || name == "EMAILPASSWORD") return false;
        assignKey(settings, *key, value.get<std::string>());
    }
    return true;
}

}  // namespace vellira::service
