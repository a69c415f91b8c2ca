#include "service/Journal.h"

#include "core/Platform.h"
#include "core/Text.h"

#include <sqlite3.h>
#include <nlohmann/json.hpp>

#include <cstdio>
#include <cstdlib>
#include <fstream>

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

// One prepared statement, bound in order and stepped.
class Statement {
public:
    Statement(sqlite3* db, const char* sql) : db_(db) {
        if (sqlite3_prepare_v2(db, sql, -1, &statement_, nullptr) != SQLITE_OK)
            throw JournalError(std::string("journal: ") + sqlite3_errmsg(db));
    }
    ~Statement() { sqlite3_finalize(statement_); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    Statement& bind(const std::string& text) {
        sqlite3_bind_text(statement_, ++at_, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
        return *this;
    }
    Statement& bind(std::int64_t value) {
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
    sqlite3_stmt* statement_ = nullptr;
    int at_ = 0;
};

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
    std::uint64_t hash = 14695981039346656037ull;
    char buffer[65536];
    while (in.read(buffer, sizeof buffer) || in.gcount() > 0) {
        for (std::streamsize i = 0; i < in.gcount(); ++i) {
            hash ^= static_cast<unsigned char>(buffer[i]);
            hash *= 1099511628211ull;
        }
        if (!in) break;
    }
    return formatText("%016llx", static_cast<unsigned long long>(hash));
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

Journal::~Journal() { sqlite3_close(db_); }

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
    Statement find(db_,
                   "SELECT id, state, reason FROM sources WHERE inbox = ? AND name = CAST(? AS BLOB) AND size = ? "
                   "AND mtime = ? ORDER BY id DESC LIMIT 1");
    find.bind(inbox).bind(name).bind(size).bind(mtime);
    if (!find.step()) return std::nullopt;
    return SourceRecord{find.integer(0), inbox, name, size, mtime, find.text(1), find.text(2)};
}

std::int64_t Journal::takeSource(const std::string& inbox, const std::string& name, std::int64_t size,
                                 std::int64_t mtime) {
    const std::lock_guard hold(lock_);
    Statement take(db_,
                   "INSERT INTO sources(inbox, name, size, mtime, state, taken) VALUES(?, CAST(? AS BLOB), ?, ?, "
                   "'taken', ?)");
    take.bind(inbox).bind(name).bind(size).bind(mtime).bind(journalTime()).step();
    return sqlite3_last_insert_rowid(db_);
}

void Journal::finishSource(std::int64_t id, const std::string& state, const std::string& reason) {
    const std::lock_guard hold(lock_);
    const Durable durable(db_);  // the source is moved next
    Statement(db_, "UPDATE sources SET state = ?, reason = ?, finished = ? WHERE id = ?")
        .bind(state)
        .bind(reason)
        .bind(journalTime())
        .bind(id)
        .step();
}

std::optional<std::string> Journal::recordOutput(std::int64_t source, const std::string& path, int first, int last,
                                                 const std::string& checksum) {
    const std::lock_guard hold(lock_);
    Statement find(db_, "SELECT checksum FROM outputs WHERE source = ? AND path = CAST(? AS BLOB)");
    find.bind(source).bind(path);
    std::optional<std::string> before;
    if (find.step()) before = find.text(0);
    if (before)
        Statement(db_,
                  "UPDATE outputs SET checksum = ?, written = ?, times = times + 1 WHERE source = ? AND path = "
                  "CAST(? AS BLOB)")
            .bind(checksum)
            .bind(journalTime())
            .bind(source)
            .bind(path)
            .step();
    else
        Statement(db_,
                  "INSERT INTO outputs(source, path, first, last, checksum, written) VALUES(?, CAST(? AS BLOB), "
                  "?, ?, ?, ?)")
            .bind(source)
            .bind(path)
            .bind(std::int64_t{first})
            .bind(std::int64_t{last})
            .bind(checksum)
            .bind(journalTime())
            .step();
    return before;
}

int Journal::outputCount(std::int64_t source) {
    const std::lock_guard hold(lock_);
    Statement count(db_, "SELECT COUNT(*) FROM outputs WHERE source = ?");
    count.bind(source).step();
    return static_cast<int>(count.integer(0));
}

std::optional<std::int64_t> Journal::startMail(std::int64_t source, const MailAttempt& attempt) {
    const std::lock_guard hold(lock_);
    const Durable durable(db_);  // the mail goes next
    const std::string now = journalTime();
    if (source != 0) {
        Statement find(db_,
                       "SELECT id, status FROM mails WHERE source = ? AND file = CAST(? AS BLOB) AND recipient = ? "
                       "ORDER BY id DESC LIMIT 1");
        find.bind(source).bind(attempt.file).bind(attempt.recipient);
        if (find.step()) {
            const std::int64_t id = find.integer(0);
            const std::string status = find.text(1);
            if (status == "sent") return std::nullopt;
            Statement(db_, "UPDATE mails SET status = 'sending', updated = ?, cut_off = cut_off + ? WHERE id = ?")
                .bind(now)
                .bind(std::int64_t{status == "sending"})
                .bind(id)
                .step();
            return id;
        }
    }
    Statement add(db_,
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
    Statement(db_, "UPDATE mails SET status = 'sending', updated = ? WHERE id = ?").bind(journalTime()).bind(id).step();
}

void Journal::updateMail(std::int64_t id, const std::string& status, const std::string& answer) {
    const std::lock_guard hold(lock_);
    // Each try ends here once, over resends too.
    Statement(db_, "UPDATE mails SET status = ?, answer = ?, updated = ?, attempts = attempts + 1 WHERE id = ?")
        .bind(status)
        .bind(answer)
        .bind(journalTime())
        .bind(id)
        .step();
}

std::vector<MailRecord> Journal::mails(const std::string& since, bool failedOnly) {
    const std::lock_guard hold(lock_);
    Statement list(db_,
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
