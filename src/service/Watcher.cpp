#include "service/Watcher.h"

#include "core/Platform.h"
#include "core/Text.h"
#include "run/BatchJob.h"
#include "service/Journal.h"
#include "service/MailJournal.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <fstream>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <thread>
#include <unordered_set>

namespace vellira::service {

namespace {

using Clock = std::chrono::steady_clock;
namespace fs = std::filesystem;

// Folders on these file systems send no change events for what other
// machines write: they are looked at instead.
bool networkFolder(const fs::path& folder) {
    struct statfs info {};
    if (statfs(folder.c_str(), &info) != 0) return false;
    switch (static_cast<unsigned long>(info.f_type)) {
        case 0x6969:      // NFS
        case 0x517B:      // SMB
        case 0xFF534D42:  // CIFS
        case 0xFE534D42:  // SMB2
        case 0x01021997:  // 9P
        case 0x65735546:  // FUSE (sshfs and the like)
            return true;
        default: return false;
    }
}

// Names a writer uses while it works, and the watcher's own.
bool ignoredName(const std::string& name) {
    return name.empty() || name[0] == '.' || name == "done" || name == "error" || name.ends_with(".part") ||
           name.ends_with(".tmp") || name.ends_with("~") || name.ends_with(".crdownload");
}

std::int64_t nanoseconds(const struct timespec& time) {
    return static_cast<std::int64_t>(time.tv_sec) * 1000000000 + time.tv_nsec;
}

// Whether another process has the file open for writing: a read lease is
// refused then. Where leases are not allowed (a file of another user, a
// network folder) the settle time alone decides.
bool heldByWriter(const fs::path& file) {
    const int fd = open(file.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) return false;
    bool held = false;
    if (fcntl(fd, F_SETLEASE, F_RDLCK) == 0)
        fcntl(fd, F_SETLEASE, F_UNLCK);
    else
        held = errno == EAGAIN;
    close(fd);
    return held;
}

// Why a file cannot be split, or nothing when it may be.
std::string badInput(const fs::path& file, const std::string& name, const struct stat& info) {
    if (textAsUtf8(name) != name) return "Its name is not valid UTF-8: rename it and put it back.";
    if (S_ISLNK(info.st_mode)) return "It is a link, not a file: put the file itself in the inbox.";
    if (S_ISDIR(info.st_mode)) return "It is a folder, not a PDF.";
    if (!S_ISREG(info.st_mode)) return "It is not a plain file.";
    if (info.st_size == 0) return "It is empty (0 bytes).";
    std::ifstream in(file, std::ios::binary);
    char head[1024] = {};
    in.read(head, sizeof head);
    if (std::string_view(head, static_cast<std::size_t>(in.gcount())).find("%PDF-") == std::string_view::npos)
        return "It is not a PDF: no PDF header in its first 1024 bytes.";
    return {};
}

// Writes a text whole or not at all.
bool writeWhole(const fs::path& path, const std::string& text) {
    const fs::path temporary = path.string() + ".tmp";
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        if (!(out << text) || !out.flush()) return false;
    }
    std::error_code failed;
    fs::rename(temporary, path, failed);
    return !failed;
}

}  // namespace

struct Watcher::State {
    WatchOptions options;
    InboxLoader load;
    WatchFront& front;
    std::unique_ptr<Journal> journal;

    int wake = -1;     // eventfd: a signal's request
    int inotify = -1;  // -1: every folder is looked at
    std::atomic<int> stopRequests{0};
    std::atomic<bool> reloadRequested{false};

    struct Watched {
        Inbox inbox;
        std::string key;  // the folder as text
        int lock = -1;
        int watch = -1;  // inotify watch, -1 when looked at
    };
    std::map<std::string, std::unique_ptr<Watched>> inboxes;
    std::map<int, Watched*> byWatch;

    // Files seen and not yet complete, by (inbox, name).
    struct Candidate {
        std::int64_t size = -1;
        std::int64_t mtime = -1;
        Clock::time_point quietSince;
        Clock::time_point nextLook;
    };
    std::map<std::pair<std::string, std::string>, Candidate> candidates;
    Clock::time_point nextPoll;

    // The queue, in the order files became complete, and what workers hold.
    struct Task {
        fs::path folder;
        std::string key;
        std::string name;
        SplitSettings settings;
        std::int64_t size = 0;
        std::int64_t mtime = 0;
        std::int64_t resume = 0;  // a journal record taken before and not finished
    };
    std::mutex lock;
    std::condition_variable changed;
    std::deque<Task> queue;
    std::set<std::pair<std::string, std::string>> busy;  // queued or in work
    std::set<RunInterface*> working;
    std::string lastTaken;
    bool stopping = false;

    State(WatchOptions o, InboxLoader l, WatchFront& f) : options(std::move(o)), load(std::move(l)), front(f) {}

    void log(LogLevel level, const std::string& text) { front.log(level, text); }

    void tellStatus() {
        std::size_t queued = 0, inWork = 0;
        std::string last;
        {
            const std::lock_guard hold(lock);
            queued = queue.size();
            inWork = working.size();
            last = lastTaken;
        }
        front.notify("STATUS=" + (last.empty() ? std::string("Nothing taken yet") : "Last taken: " + last) +
                     "; queued: " + std::to_string(queued) + "; splitting: " + std::to_string(inWork));
    }

    bool attach(Inbox inbox);
    void detach(const std::string& key);
    bool reloadInboxes(bool first);
    void rescan(Watched& watched);
    void noteFile(Watched& watched, const std::string& name, Clock::time_point now);
    void lookAtCandidates(Clock::time_point now);
    void readEvents(Clock::time_point now);
    std::optional<Clock::time_point> nextWake() const;
    void putAside(const fs::path& folder, const std::string& name, bool done, const std::string& reason,
                  std::int64_t id);
    void work();
    bool waitForRoom(const Task& task);
    // Output folders a worker has rid of what killed runs left there, and
    // since when: they are read again after an hour.
    struct Tidied {
        std::unordered_set<std::string> folders;
        Clock::time_point since = Clock::now();
    };
    void split(Task task, DocumentHost& host, Tidied& tidied);
};

bool Watcher::State::attach(Inbox inbox) {
    std::error_code error;
    const fs::path folder = fs::absolute(inbox.folder, error).lexically_normal();
    const std::string key = pathText(folder);
    if (!fs::is_directory(folder, error)) {
        log(LogLevel::Error, "The inbox '" + key + "' is not a folder.");
        return false;
    }
    fs::create_directories(folder / "done", error);
    fs::create_directories(folder / "error", error);
    auto watched = std::make_unique<Watched>();
    watched->inbox = std::move(inbox);
    watched->inbox.folder = folder;
    watched->key = key;
    // One watcher per inbox, on this machine or another one sharing it.
    watched->lock = open((folder / ".vellira-watch.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (watched->lock < 0 || flock(watched->lock, LOCK_EX | LOCK_NB) != 0) {
        log(LogLevel::Error, watched->lock < 0 ? "Cannot write in the inbox '" + key + "': " + std::strerror(errno)
                                               : "Another watcher has the inbox '" + key + "': left to it.");
        if (watched->lock >= 0) close(watched->lock);
        return false;
    }
    if (inotify >= 0 && !options.pollOnly && !networkFolder(folder)) {
        watched->watch = inotify_add_watch(
            inotify, folder.c_str(),
            IN_CLOSE_WRITE | IN_MOVED_TO | IN_CREATE | IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR);
        if (watched->watch >= 0) byWatch[watched->watch] = watched.get();
    }
    log(LogLevel::Notice,
        "Watching '" + key + "'" +
            (watched->watch >= 0
                 ? std::string()
                 : formatText(", looked at every %g s", static_cast<double>(options.pollEvery.count()) / 1000)));
    Watched& added = *watched;
    inboxes[key] = std::move(watched);
    rescan(added);
    return true;
}

void Watcher::State::detach(const std::string& key) {
    const auto found = inboxes.find(key);
    if (found == inboxes.end()) return;
    if (found->second->watch >= 0) {
        inotify_rm_watch(inotify, found->second->watch);
        byWatch.erase(found->second->watch);
    }
    close(found->second->lock);
    std::erase_if(candidates, [&](const auto& each) { return each.first.first == key; });
    log(LogLevel::Notice, "No longer watching '" + key + "'");
    inboxes.erase(found);
}

bool Watcher::State::reloadInboxes(bool first) {
    std::string error;
    std::vector<Inbox> loaded = load(error);
    if (!error.empty()) {
        log(LogLevel::Error, (first ? "Cannot start: " : "Reload refused, the inboxes stay as they were: ") + error);
        return false;
    }
    std::set<std::string> wanted;
    for (auto& inbox : loaded) {
        std::error_code ignored;
        const std::string key = pathText(fs::absolute(inbox.folder, ignored).lexically_normal());
        wanted.insert(key);
        if (const auto found = inboxes.find(key); found != inboxes.end())
            found->second->inbox.settings = inbox.settings;  // taken with the next file
        else
            attach(std::move(inbox));
    }
    std::vector<std::string> gone;
    for (const auto& [key, watched] : inboxes)
        if (!wanted.contains(key)) gone.push_back(key);
    for (const auto& key : gone) detach(key);
    return !inboxes.empty();
}

void Watcher::State::rescan(Watched& watched) {
    std::error_code error;
    const auto now = Clock::now();
    for (fs::directory_iterator it(watched.inbox.folder, error), end; !error && it != end; it.increment(error))
        noteFile(watched, it->path().filename().string(), now);
    if (error) log(LogLevel::Warning, "Cannot read the inbox '" + watched.key + "': " + error.message());
}

void Watcher::State::noteFile(Watched& watched, const std::string& name, Clock::time_point now) {
    if (ignoredName(name)) return;
    const auto key = std::make_pair(watched.key, name);
    {
        const std::lock_guard hold(lock);
        if (busy.contains(key)) return;
    }
    auto [candidate, added] = candidates.try_emplace(key);
    if (added) candidate->second.quietSince = now;
    candidate->second.nextLook = now;
}

void Watcher::State::lookAtCandidates(Clock::time_point now) {
    const auto wallNow = std::chrono::system_clock::now();
    for (auto it = candidates.begin(); it != candidates.end();) {
        Candidate& candidate = it->second;
        if (candidate.nextLook > now) {
            ++it;
            continue;
        }
        const auto inbox = inboxes.find(it->first.first);
        const std::string name = it->first.second;
        struct stat info {};
        if (inbox == inboxes.end() || lstat((inbox->second->inbox.folder / name).c_str(), &info) != 0) {
            it = candidates.erase(it);
            continue;
        }
        const fs::path file = inbox->second->inbox.folder / name;
        const std::int64_t mtime = nanoseconds(info.st_mtim);
        if (info.st_size != candidate.size || mtime != candidate.mtime) {
            // Changed since the last look (or first seen): quiet from now, or
            // from its time when that lies further back.
            const auto age = std::chrono::duration_cast<Clock::duration>(wallNow.time_since_epoch() -
                                                                         std::chrono::nanoseconds(mtime));
            const bool firstLook = candidate.size < 0;
            candidate.size = info.st_size;
            candidate.mtime = mtime;
            candidate.quietSince =
                now - (firstLook ? std::clamp<Clock::duration>(age, Clock::duration::zero(), options.settle)
                                 : Clock::duration::zero());
        }
        const auto settledAt = candidate.quietSince + options.settle;
        if (now < settledAt || (S_ISREG(info.st_mode) && heldByWriter(file))) {
            // Looked at again once it may have settled; a file held open is
            // looked at a few times a settle time, and never in a spin.
            candidate.nextLook =
                std::max(settledAt, now + std::max<Clock::duration>(options.settle / 4, std::chrono::milliseconds(50)));
            ++it;
            continue;
        }
        Task task{inbox->second->inbox.folder,   it->first.first, name,
                  inbox->second->inbox.settings, info.st_size,    mtime};
        it = candidates.erase(it);
        try {
            // A file the journal has finished with was only not moved yet.
            if (const auto known = journal->findSource(task.key, name, task.size, task.mtime)) {
                if (known->state != "taken") {
                    putAside(task.folder, name, known->state == "done", known->reason, known->id);
                    continue;
                }
                task.resume = known->id;
            }
            if (const std::string why = badInput(file, name, info); !why.empty()) {
                const std::int64_t id = journal->takeSource(task.key, name, task.size, task.mtime);
                journal->finishSource(id, "error", why);
                putAside(task.folder, name, false, why, id);
                continue;
            }
        } catch (const JournalError& error) {
            log(LogLevel::Error, std::string(error.what()) + "; '" + name + "' is left in its inbox");
            continue;
        }
        {
            const std::lock_guard hold(lock);
            busy.insert({task.key, name});
            queue.push_back(std::move(task));
        }
        changed.notify_one();
        tellStatus();
    }
}

void Watcher::State::putAside(const fs::path& folder, const std::string& name, bool done, const std::string& reason,
                              std::int64_t id) {
    const fs::path aside = folder / (done ? "done" : "error");
    std::error_code error;
    fs::create_directories(aside, error);
    fs::path target = aside / name;
    if (fs::exists(fs::symlink_status(target, error))) {
        // An earlier file of the same name is kept: this one takes its record's number.
        const fs::path plain(name);
        target = aside / (plain.stem().string() + "-" + std::to_string(id) + plain.extension().string());
    }
    // The reason is there before the file is.
    if (!done && !writeWhole(target.string() + ".txt", reason + "\n"))
        log(LogLevel::Warning, "Cannot write the reason beside '" + pathText(target) + "'");
    fs::rename(folder / name, target, error);
    if (error)
        log(LogLevel::Error, "Cannot move '" + name + "' to '" + pathText(aside) + "': " + error.message());
    else if (done)
        log(LogLevel::Info, "'" + name + "' moved to " + pathText(aside));
    else
        log(LogLevel::Warning, "'" + name + "' moved to " + pathText(aside) + ": " + reason);
}

void Watcher::State::readEvents(Clock::time_point now) {
    alignas(inotify_event) char buffer[16384];
    for (;;) {
        const ssize_t n = read(inotify, buffer, sizeof buffer);
        if (n <= 0) return;
        for (ssize_t at = 0; at < n;) {
            const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
            at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
            if (event->mask & IN_Q_OVERFLOW) {
                // Events were lost: every folder is looked at again.
                log(LogLevel::Warning, "Too many changes at once: looking at every inbox again");
                for (auto& [key, watched] : inboxes) rescan(*watched);
                continue;
            }
            const auto found = byWatch.find(event->wd);
            if (found == byWatch.end()) continue;
            Watched& watched = *found->second;
            if (event->mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED)) {
                log(LogLevel::Warning, "The inbox '" + watched.key + "' was removed or moved: looked at instead");
                byWatch.erase(found);
                watched.watch = -1;
                continue;
            }
            if (event->len > 0) noteFile(watched, event->name, now);
        }
    }
}

std::optional<Clock::time_point> Watcher::State::nextWake() const {
    std::optional<Clock::time_point> next;
    for (const auto& [key, candidate] : candidates)
        if (!next || candidate.nextLook < *next) next = candidate.nextLook;
    const bool anyLookedAt =
        std::any_of(inboxes.begin(), inboxes.end(), [](const auto& each) { return each.second->watch < 0; });
    if (anyLookedAt && (!next || nextPoll < *next)) next = nextPoll;
    return next;
}

// Runs on each worker thread: the queue's files, one at a time.
void Watcher::State::work() {
    // One host per worker, for every file it splits.
    const auto host = options.newHost();
    Tidied tidied;
    for (;;) {
        Task task;
        {
            std::unique_lock hold(lock);
            changed.wait(hold, [&] { return stopping || !queue.empty(); });
            if (stopping) break;
            task = std::move(queue.front());
            queue.pop_front();
        }
        if (waitForRoom(task)) split(task, *host, tidied);
        {
            const std::lock_guard hold(lock);
            busy.erase({task.key, task.name});
        }
        tellStatus();
    }
}

// A full output disk stops the taking of files until there is room again.
bool Watcher::State::waitForRoom(const Task& task) {
    fs::path folder = task.settings.SPLITTOSOURCE ? task.folder : fs::path(task.settings.OUTPUTDIR);
    std::error_code error;
    folder = fs::absolute(folder, error);
    while (!folder.empty() && !fs::exists(folder, error) && folder != folder.root_path()) folder = folder.parent_path();
    const auto room = [&] {
        struct statvfs info {};
        if (statvfs(folder.c_str(), &info) != 0) return true;
        const std::uint64_t free = static_cast<std::uint64_t>(info.f_bavail) * info.f_frsize;
        return free >= std::max<std::uint64_t>(2 * static_cast<std::uint64_t>(task.size), 16u << 20);
    };
    if (room()) return true;
    log(LogLevel::Error, "The output disk of '" + pathText(folder) + "' is full: no file is taken until there is room");
    std::unique_lock hold(lock);
    while (!stopping) {
        changed.wait_for(hold, std::chrono::seconds(5));
        hold.unlock();
        const bool enough = room();
        hold.lock();
        if (enough) {
            log(LogLevel::Notice, "There is room on the output disk again: taking files");
            return true;
        }
    }
    return false;
}

namespace {

// A source's run, as the watcher hears it: its messages go to the log, its
// questions take their default (no), its outputs and mails to the journal.
class SourceInterface final : public RunInterface {
public:
    // A source taken again (`resumed`) keeps the outputs it wrote before as
    // they stand.
    SourceInterface(WatchFront& front, Journal& journal, std::int64_t source, std::string name, bool resumed)
        : front_(front), journal_(journal), source_(source), name_(std::move(name)), mails_(&journal, source) {
        try {
            if (resumed)
                for (auto& output : journal.outputsOf(source)) before_.emplace(output.path, std::move(output));
        } catch (const JournalError& error) {
            front_.log(LogLevel::Error, name_ + ": " + error.what() + "; its outputs are written again");
        }
    }
    void note(std::string_view message) override {
        notes.emplace_back(message);
        front_.log(LogLevel::Info, name_ + ": " + std::string(message));
    }
    bool question(std::string_view message) override {
        front_.log(LogLevel::Info, name_ + ": " + std::string(message) + " (answered no)");
        return false;
    }
    bool outputWanted(std::string_view path, int first, int last) override {
        const auto known = before_.find(std::string(path));
        if (known == before_.end() || known->second.first != first || known->second.last != last ||
            fileChecksum(pathFromText(known->first)) != known->second.checksum)
            return true;
        front_.log(LogLevel::Info, name_ + ": '" + known->first + "' was written before the cut-off: kept");
        return false;
    }
    // Each output in the journal as soon as it is written.
    void fileWritten(std::string_view path, int first, int last) override {
        const std::string file(path);
        try {
            const std::string checksum = fileChecksum(pathFromText(file)).value_or("");
            journal_.recordOutput(source_, {file, first, last, checksum});
            if (const auto known = before_.find(file); known != before_.end() && known->second.checksum != checksum)
                front_.log(LogLevel::Warning,
                           "'" + file + "' was written again with other contents than before the cut-off");
        } catch (const JournalError& error) {
            front_.log(LogLevel::Error, name_ + ": " + error.what() + "; '" + file + "' is not in the journal");
        }
    }
    bool mailStarting(const MailAttempt& attempt) override {
        if (mails_.starting(attempt)) return true;
        front_.log(LogLevel::Info, name_ + ": the mail of '" + attempt.file + "' to " + attempt.recipient +
                                       " went before: not sent again");
        return false;
    }
    void mailAttempted(const MailAttempt& attempt) override {
        mails_.attempted(attempt);
        if (attempt.status == "sending") return;
        const LogLevel level = attempt.status == "sent" ? LogLevel::Info : LogLevel::Warning;
        front_.log(level, name_ + ": mail to " + attempt.recipient + " " + attempt.status +
                              (attempt.answer.empty() ? "" : ": " + attempt.answer));
    }
    const MailJournalHook& mails() const { return mails_; }
    std::vector<std::string> notes;

private:
    WatchFront& front_;
    Journal& journal_;
    std::int64_t source_;
    std::map<std::string, OutputRecord> before_;  // path -> the output as a run cut off before wrote it
    std::string name_;
    MailJournalHook mails_;
};

}  // namespace

void Watcher::State::split(Task task, DocumentHost& host, Tidied& tidied) {
    const fs::path file = task.folder / task.name;
    std::int64_t id = task.resume;
    try {
        if (id == 0) id = journal->takeSource(task.key, task.name, task.size, task.mtime);
    } catch (const JournalError& error) {
        log(LogLevel::Error, std::string(error.what()) + "; '" + task.name + "' is left in its inbox");
        return;
    }
    log(LogLevel::Info, (task.resume ? "Taking again (cut off before): " : "Taking: ") + pathText(file));
    SourceInterface ui(front, *journal, id, task.name, task.resume != 0);
    {
        const std::lock_guard hold(lock);
        lastTaken = task.name;
        working.insert(&ui);
        if (stopping) ui.requestCancel();
    }
    tellStatus();

    BatchJob job;
    job.settings = task.settings;
    job.rows = {BatchRow{"Yes", pathText(file), "Ready.", ""}};
    job.settingsFile.clear();  // watchers leave the desktop's settings file alone
    job.mail = options.mail;
    job.newHost = options.newHost;
    job.jobs = 1;
    job.overwrite = true;  // taken again, a source writes the same outputs again, not beside them
    if (Clock::now() - tidied.since > std::chrono::hours(1)) tidied = {};
    job.tidiedFolders = std::move(tidied.folders);
    BatchResult result = runBatch(job, host, ui);
    tidied.folders = std::move(result.tidiedFolders);
    {
        const std::lock_guard hold(lock);
        working.erase(&ui);
    }
    if (result.stopped || ui.cancelled()) {
        log(LogLevel::Notice, "Stopped while splitting '" + task.name + "': finished at the next start");
        return;
    }
    std::string reason;
    const std::string status = result.rows.empty() ? std::string("not run") : result.rows.front().status;
    if (status != "Done") {
        reason = "The PDF ended \"" + status + "\".";
        for (const auto& note : ui.notes) reason += "\n" + note;
    }
    if (result.rangesFailed > 0)
        reason +=
            (reason.empty() ? "" : "\n") + std::to_string(result.rangesFailed) + " range(s) could not be written.";
    if (result.scansFailed > 0) {
        reason += (reason.empty() ? "" : "\n") + std::string("The scan ended early: later ranges were not written.");
        for (const auto& note : ui.notes) reason += "\n" + note;
    }
    if (result.mailsFailed > 0) {
        reason += (reason.empty() ? "" : "\n") + std::to_string(result.mailsFailed) + " mail(s) failed:";
        for (const auto& failure : ui.mails().failures()) reason += "\n" + failure;
    }
    if (!ui.mails().problem().empty()) log(LogLevel::Error, ui.mails().problem());
    try {
        journal->finishSource(id, reason.empty() ? "done" : "error", reason);
    } catch (const JournalError& error) {
        log(LogLevel::Error, std::string(error.what()) + "; '" + task.name + "' is left in its inbox");
        return;
    }
    log(LogLevel::Notice, "'" + task.name + "': " + std::to_string(result.filesWritten) + " file(s) written, " +
                              std::to_string(result.mailsSent) + " mail(s) sent");
    putAside(task.folder, task.name, reason.empty(), reason, id);
}

Watcher::Watcher(WatchOptions options, InboxLoader load, WatchFront& front)
    : state_(std::make_unique<State>(std::move(options), std::move(load), front)) {
    state_->wake = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
}

Watcher::~Watcher() {
    for (auto& [key, watched] : state_->inboxes) close(watched->lock);
    if (state_->inotify >= 0) close(state_->inotify);
    if (state_->wake >= 0) close(state_->wake);
}

void Watcher::stop() {
    state_->stopRequests.fetch_add(1);
    const std::uint64_t one = 1;
    if (write(state_->wake, &one, sizeof one) < 0) {
    }
}

void Watcher::reload() {
    state_->reloadRequested.store(true);
    const std::uint64_t one = 1;
    if (write(state_->wake, &one, sizeof one) < 0) {
    }
}

int Watcher::run() {
    State& s = *state_;
    try {
        s.journal = std::make_unique<Journal>(s.options.journal.empty() ? defaultJournalPath() : s.options.journal);
    } catch (const JournalError& error) {
        s.log(LogLevel::Error, error.what());
        return 1;
    }
    if (!s.options.pollOnly) s.inotify = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (s.wake < 0 || !s.reloadInboxes(true)) return 1;
    s.log(LogLevel::Notice, "Journal: " + pathText(s.journal->file()));

    const int jobs = std::max(1, s.options.jobs);
    std::vector<std::thread> workers;
    for (int i = 0; i < jobs; ++i) workers.emplace_back([&s] { s.work(); });
    s.nextPoll = Clock::now() + s.options.pollEvery;
    s.lookAtCandidates(Clock::now());
    s.front.notify("READY=1");
    s.tellStatus();

    while (s.stopRequests.load() == 0) {
        const auto next = s.nextWake();
        int timeout = -1;  // nothing to look at: asleep until something happens
        if (next) {
            const auto wait = std::chrono::ceil<std::chrono::milliseconds>(*next - Clock::now()).count();
            timeout = static_cast<int>(std::clamp<long long>(wait, 0, 24 * 3600 * 1000));
        }
        pollfd fds[2] = {{s.wake, POLLIN, 0}, {s.inotify, POLLIN, 0}};
        if (poll(fds, s.inotify >= 0 ? 2 : 1, timeout) < 0 && errno != EINTR) break;
        std::uint64_t ignored;
        if (fds[0].revents & POLLIN && read(s.wake, &ignored, sizeof ignored) < 0) {
        }
        const auto now = Clock::now();
        if (s.inotify >= 0 && (fds[1].revents & POLLIN)) s.readEvents(now);
        if (s.reloadRequested.exchange(false)) {
            s.front.notify("RELOADING=1");
            if (s.reloadInboxes(false)) s.log(LogLevel::Notice, "Job files read again");
            s.front.notify("READY=1");
        }
        if (now >= s.nextPoll) {
            for (auto& [key, watched] : s.inboxes)
                if (watched->watch < 0) s.rescan(*watched);
            s.nextPoll = now + s.options.pollEvery;
        }
        s.lookAtCandidates(now);
    }

    // The PDFs in hand stop after the piece each is writing (or the mail it
    // is sending): the journal has them taken, and the next start finishes
    // them.
    s.front.notify("STOPPING=1");
    s.log(LogLevel::Notice, "Stopping after the pieces in hand");
    {
        const std::lock_guard hold(s.lock);
        s.stopping = true;
        for (RunInterface* ui : s.working) ui->requestCancel();
    }
    s.changed.notify_all();
    for (auto& worker : workers) worker.join();
    return 0;
}

}  // namespace vellira::service
