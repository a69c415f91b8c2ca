// Watch folders: each PDF that arrives in an inbox is split, once it is
// complete, with that inbox's settings, and then moved to the inbox's done/
// folder, or to error/ beside a .txt saying why. The journal records each
// source taken, each output written and each mail sent, so that a watcher
// started again after a crash finishes what was half done, and nothing twice.
#pragma once

#include "core/DocumentHost.h"
#include "core/SplitSettings.h"
#include "mail/MailSender.h"

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace vellira::service {

enum class LogLevel { Error, Warning, Notice, Info };

// What a watcher tells whoever runs it: log lines with their level, from any
// of its threads, and its state for the service manager ("READY=1",
// "RELOADING=1", "STOPPING=1", "STATUS=...").
class WatchFront {
public:
    virtual ~WatchFront() = default;
    virtual void log(LogLevel level, std::string_view text) = 0;
    virtual void notify(std::string_view /*state*/) {}
};

// One watched folder and the settings its PDFs are split with.
struct Inbox {
    std::filesystem::path folder;
    SplitSettings settings;
};

// Reads the job files into the inboxes to watch: at the start and on every
// reload. Sets `error` when they cannot be read.
using InboxLoader = std::function<std::vector<Inbox>(std::string& error)>;

struct WatchOptions {
    int jobs = 1;  // PDFs split at once
    // How long a file's size and time must stay unchanged before it is taken.
    std::chrono::milliseconds settle{5000};
    // How often folders that send no change events are looked at.
    std::chrono::milliseconds pollEvery{10000};
    bool pollOnly = false;          // look, never listen for change events
    std::filesystem::path journal;  // the journal's file; the state folder's when empty
    MailTransport mail;
    HostFactory newHost;
};

class Watcher {
public:
    Watcher(WatchOptions options, InboxLoader load, WatchFront& front);
    ~Watcher();
    Watcher(const Watcher&) = delete;
    Watcher& operator=(const Watcher&) = delete;

    // Watches until stopped. Answers 0 after a clean stop, 1 when it could
    // not start (no journal, no inbox it could hold).
    int run();

    // Both may be called from a signal handler. stop: no more files are
    // taken, and those in hand stop after the piece each is writing, to be
    // finished at the next start. reload: the job files are read again.
    void stop();
    void reload();

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace vellira::service
