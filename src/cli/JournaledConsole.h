// The console of a run that mails: each mail attempt is also kept in the
// journal of the state folder, for mail-status and mail-resend. The journal
// is opened with the first mail; when it cannot be, the mails still go and
// a warning says they were not kept.
#pragma once

#include "cli/ConsoleInterface.h"
#include "service/MailJournal.h"

namespace vellira::cli {

class JournaledConsole final : public ConsoleInterface {
public:
    using ConsoleInterface::ConsoleInterface;
    bool mailStarting(const MailAttempt& attempt) override;
    void mailAttempted(const MailAttempt& attempt) override;
    // The journal's problem, said once on standard error, if there was one.
    void warnIfNotKept();

private:
    service::RunMailJournal mails_;
};

}  // namespace vellira::cli
