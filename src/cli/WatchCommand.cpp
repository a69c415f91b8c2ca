// watch: the inboxes of the command line or of a watch list, split as PDFs
// arrive, until TERM (or Ctrl-C) stops it after the pieces in hand; HUP
// reads the job files again. Logs go to
// the system journal with their levels, or to standard error on a terminal;
// the service manager hears READY, STATUS and STOPPING.
#include "cli/Commands.h"
#include "files/BatchListFile.h"
#include "files/ParametersFile.h"
#include "host/MupdfHost.h"
#include "service/Watcher.h"

#include <syslog.h>
#include <systemd/sd-daemon.h>
#include <systemd/sd-journal.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <iostream>
#include <mutex>

namespace vellira::cli {

namespace {

class ServiceFront final : public service::WatchFront {
public:
    void log(service::LogLevel level, std::string_view text) override {
        static constexpr int kPriorities[] = {LOG_ERR, LOG_WARNING, LOG_NOTICE, LOG_INFO};
        static constexpr const char* kNames[] = {"error: ", "warning: ", "", ""};
        const int priority = kPriorities[static_cast<int>(level)];
        if (journal_ && sd_journal_send("MESSAGE=%.*s", static_cast<int>(text.size()), text.data(), "PRIORITY=%i",
                                        priority, "SYSLOG_IDENTIFIER=vellira-batch", nullptr) >= 0)
            return;
        const std::lock_guard hold(lock_);
        std::cerr << "vellira-batch watch: " << kNames[static_cast<int>(level)] << text << std::endl;
    }
    void notify(std::string_view state) override { sd_notify(0, std::string(state).c_str()); }

private:
    // The system journal takes the lines, with their levels, where standard
    // error goes to it anyway: a service's (JOURNAL_STREAM), not a terminal.
    static bool toJournal() {
        const char* stream = std::getenv("JOURNAL_STREAM");
        return stream && *stream && isatty(STDERR_FILENO) == 0;
    }
    bool journal_ = toJournal();
    std::mutex lock_;
};

service::Watcher* running = nullptr;
extern "C" void onStop(int) {
    if (running) running->stop();
}
extern "C" void onReload(int) {
    if (running) running->reload();
}

// The inboxes as the options say: each INBOX with the settings of --params
// and --set; each used row of the watch list with those, its own parameters
// file read after the --params files.
std::vector<service::Inbox> loadInboxes(const WatchOptions& options, std::string& error) {
    std::vector<service::Inbox> inboxes;
    for (const auto& folder : options.inboxes) {
        service::Inbox inbox{folder, {}};
        if (error = applySettings(options.settings, inbox.settings); !error.empty()) return {};
        inboxes.push_back(std::move(inbox));
    }
    if (options.list.empty()) return inboxes;
    std::vector<BatchRow> rows;
    FileHandle file = openFile(pathFromText(options.list), "rb");
    if (!file) {
        error = "cannot read the watch list '" + options.list + "'";
        return {};
    }
    loadBatchList(file.get(), rows);
    for (const auto& row : rows) {
        if (row.use != "Yes") continue;
        SettingsOptions settings = options.settings;
        if (!row.params.empty()) settings.params.push_back(row.params);
        service::Inbox inbox{pathFromText(row.path), {}};
        if (error = applySettings(settings, inbox.settings); !error.empty()) {
            error = "watch list row '" + row.path + "': " + error;
            return {};
        }
        inboxes.push_back(std::move(inbox));
    }
    if (inboxes.empty()) error = "the watch list '" + options.list + "' names no inbox to use";
    return inboxes;
}

}  // namespace

int runWatch(const WatchOptions& options) {
    if (options.inboxes.empty() && options.list.empty()) {
        std::cerr << "vellira-batch watch: give the INBOX folders to watch, or --list WATCHLIST\n";
        return 2;
    }
    std::string error;
    loadInboxes(options, error);
    if (!error.empty()) {
        std::cerr << "vellira-batch watch: " << error << "\n";
        return 2;
    }
    service::WatchOptions watch;
    watch.jobs = options.jobs;
    watch.settle = std::chrono::milliseconds(static_cast<long long>(options.settleSeconds * 1000));
    watch.pollEvery = std::chrono::milliseconds(static_cast<long long>(options.pollSeconds * 1000));
    watch.pollOnly = options.pollOnly;
    watch.mail = mailTransportFromEnvironment();
    watch.newHost = [] { return std::make_unique<MupdfHost>(); };
    ServiceFront front;
    service::Watcher watcher(
        watch, [&options](std::string& why) { return loadInboxes(options, why); }, front);

    running = &watcher;
    struct sigaction stop {
    }, reload{}, before[3]{};
    stop.sa_handler = onStop;
    reload.sa_handler = onReload;
    sigemptyset(&stop.sa_mask);
    sigemptyset(&reload.sa_mask);
    sigaction(SIGTERM, &stop, &before[0]);
    sigaction(SIGINT, &stop, &before[1]);
    sigaction(SIGHUP, &reload, &before[2]);
    const int status = watcher.run();
    sigaction(SIGTERM, &before[0], nullptr);
    sigaction(SIGINT, &before[1], nullptr);
    sigaction(SIGHUP, &before[2], nullptr);
    running = nullptr;
    return status;
}

}  // namespace vellira::cli
