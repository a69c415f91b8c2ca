// mail-status and mail-resend: the mails the journal kept, and the failed
// ones sent again.
#include "cli/Commands.h"
#include "cli/JournaledConsole.h"
#include "core/Platform.h"
#include "service/Journal.h"

#include <iostream>
#include <string_view>

namespace vellira::cli {

bool JournaledConsole::mailStarting(const MailAttempt& attempt) { return mails_.starting(attempt); }

void JournaledConsole::mailAttempted(const MailAttempt& attempt) { mails_.attempted(attempt); }

void JournaledConsole::warnIfNotKept() {
    if (const std::string problem = mails_.problem(); !problem.empty())
        std::cerr << "vellira-batch: warning: the mail attempts were not all kept in the journal: " << problem << "\n";
}

namespace {

// DATE as YYYY-MM-DD, optionally with HH:MM or HH:MM:SS; empty for none.
bool validSince(const std::string& since) {
    if (since.empty()) return true;
    for (const std::string_view form : {"dddd-dd-dd", "dddd-dd-dd dd:dd", "dddd-dd-dd dd:dd:dd"}) {
        if (form.size() != since.size()) continue;
        bool matches = true;
        for (std::size_t i = 0; i < form.size() && matches; ++i)
            matches = form[i] == 'd' ? since[i] >= '0' && since[i] <= '9' : since[i] == form[i];
        if (matches) return true;
    }
    return false;
}

// The journal as it stands, or none when there is none yet.
std::unique_ptr<service::Journal> openJournal(const char* command) {
    const auto path = service::defaultJournalPath();
    std::error_code ignored;
    if (!std::filesystem::exists(path, ignored)) return nullptr;
    try {
        return std::make_unique<service::Journal>(path);
    } catch (const service::JournalError& error) {
        std::cerr << "vellira-batch " << command << ": " << error.what() << "\n";
        throw;
    }
}

}  // namespace

int runMailStatus(const MailStatusOptions& options) {
    if (!validSince(options.since)) {
        std::cerr << "vellira-batch mail-status: --since takes YYYY-MM-DD[ HH:MM[:SS]], not '" << options.since
                  << "'\n";
        return 2;
    }
    std::vector<service::MailRecord> mails;
    try {
        if (const auto journal = openJournal("mail-status")) mails = journal->mails(options.since, options.failed);
    } catch (const service::JournalError&) {
        return 1;
    }
    std::cout << service::mailStatusText(mails, options.csv) << std::flush;
    return std::cout ? 0 : 1;
}

int runMailResend(const MailResendOptions& options) {
    if (!options.failed) {
        std::cerr << "vellira-batch mail-resend: give --failed: only failed mails are sent again\n";
        return 2;
    }
    if (!validSince(options.since)) {
        std::cerr << "vellira-batch mail-resend: --since takes YYYY-MM-DD[ HH:MM[:SS]], not '" << options.since
                  << "'\n";
        return 2;
    }
    // Only the password comes from here: the rest is the mail as it was made.
    SplitSettings settings;
    if (const auto error = applySettings(options.settings, settings); !error.empty()) {
        std::cerr << "vellira-batch mail-resend: " << error << "\n";
        return 2;
    }
    std::unique_ptr<service::Journal> journal;
    try {
        journal = openJournal("mail-resend");
    } catch (const service::JournalError&) {
        return 1;
    }
    const auto failed = journal ? journal->mails(options.since, true) : std::vector<service::MailRecord>{};
    if (failed.empty()) {
        std::cerr << "No failed mail to send again.\n";
        return 0;
    }
    ConsoleInterface ui(false, options.quiet);
    const MailCounts counts =
        service::resendMails(*journal, failed, settings.EMAILPASSWORD, mailTransportFromEnvironment(), ui);
    for (std::size_t i = 0; i < counts.results.size(); ++i)
        std::cout << (counts.results[i].second == "OK" ? "sent" : "failed") << "\t" << failed[i].recipient << "\t"
                  << counts.results[i].first << "\n";
    std::cerr << counts.sent << " mail(s) sent again, " << counts.failed << " failed\n";
    return counts.failed > 0 ? 3 : 0;
}

}  // namespace vellira::cli
