// Mail attempts kept in the journal: what a run's interface does with
// mailStarting and mailAttempted, for one-shot runs and watchers alike, and
// the follow-up of failed mails (list, send again).
#pragma once

#include "core/RunInterface.h"
#include "mail/MailSender.h"
#include "service/Journal.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace vellira::service {

// Records the mail attempts of one source's run (0: a one-shot run). A
// journal that fails is not the mail's failure: the mail goes, and the
// first such problem is kept to be told.
class MailJournalHook {
public:
    MailJournalHook(Journal* journal, std::int64_t source) : journal_(journal), source_(source) {}
    // False when the journal has this mail sent already.
    bool starting(const MailAttempt& attempt);
    void attempted(const MailAttempt& attempt);
    const std::string& problem() const { return problem_; }
    // The mails that failed, as "RECIPIENT: ANSWER".
    const std::vector<std::string>& failures() const { return failures_; }

private:
    Journal* journal_;
    std::int64_t source_;
    std::map<std::pair<std::string, std::string>, std::int64_t> ids_;  // (file, recipient) -> record
    std::string problem_;
    std::vector<std::string> failures_;
};

// The mail journal of a one-shot run (the command line's, the desktop
// application's): opened in the state folder with the run's first mail.
// When it cannot be opened the mails still go, and `problem` tells why they
// were not kept.
class RunMailJournal {
public:
    bool starting(const MailAttempt& attempt);
    void attempted(const MailAttempt& attempt);
    std::string problem() const;

private:
    std::unique_ptr<Journal> journal_;
    std::optional<MailJournalHook> hook_;
    std::string openError_;
};

// "mail-status": the journal's mails as lines of text (time, status,
// attempts, recipient, file, answer; tab-separated) or as CSV with a header.
std::string mailStatusText(const std::vector<MailRecord>& mails, bool csv);

// "mail-resend": each failed mail sent again, with the settings it was made
// with and `password`, through `ui` (whose journal hook records the tries
// on the same records). Answers how many were sent and failed.
MailCounts resendMails(Journal& journal, const std::vector<MailRecord>& mails, const std::string& password,
                       const MailTransport& transport, RunInterface& ui);

}  // namespace vellira::service
