// Sending the output files: one mail per file through an SMTP server (plain,
// "ssl:" HOST ":" PORT, or "tls:" HOST ":" PORT with STARTTLS), with login,
// the message, the file as a PDF attachment, and a log line per mail.
#pragma once

#include "core/RunInterface.h"
#include "core/SplitSettings.h"

#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

namespace vellira {

// Where the server text points.
struct MailServer {
    std::string host;
    int port = 0;  // 0: the protocol's own
    bool ssl = false;
    bool starttls = false;
};
MailServer parseMailServer(std::string_view text);

// The version of the mail transport (libcurl), or why it cannot be loaded.
std::string mailTransportVersion();

// Certificates are always verified; `caFile`, when set, is the bundle of
// authorities trusted instead of the system's.
struct MailTransport {
    std::string caFile;
    long stallSeconds = 60;  // a transfer slower than a trickle for this long fails
};
// The transport as the environment sets it up: SSL_CERT_FILE names the
// certificate authorities to trust instead of the system's, as for OpenSSL.
MailTransport mailTransportFromEnvironment();

struct SendResult {
    bool sent = false;
    std::string error;                  // the transport's text when not sent
    std::vector<std::string> ccErrors;  // each copy the server refused, with why
    // A failure that may pass: the server answered 4xx, or it could not be
    // reached or did not answer in time. A 5xx answer is final.
    bool temporary = false;
    long code = 0;  // the server's last reply code, 0 when none came
};

// Sends `attachment` (of `attachmentType`) to `recipient`, and a copy to each
// CC address, with the e-mail settings. Sent means the recipient's server took
// it; a refused copy is told in ccErrors.
SendResult sendMail(const SplitSettings& settings, const std::string& recipient,
                    const std::filesystem::path& attachment, const MailTransport& transport,
                    const std::string& attachmentType = "application/pdf");

struct MailCounts {
    int handled = 0;
    int sent = 0;
    int failed = 0;
    // Each mail handled, in order: its file and its log status ("OK" or
    // "Error - " and the transport's text).
    std::vector<std::pair<std::string, std::string>> results;
};

// Sends every entry (to EMAILFROM in test mode), logging each, until the
// run's Stop flag is set; the mail in progress is finished. Confirm mode
// asks the user first and sends nothing without a yes. A temporary failure
// is tried again, waiting twice as long each time, for EMAILRETRYSECONDS;
// each attempt is told to the interface (mailStarting, mailAttempted).
MailCounts sendMailList(const SplitSettings& settings, const std::vector<MailEntry>& entries, RunInterface& ui,
                        const MailTransport& transport);

// Sends one mail of a run, trying a temporary failure again with back-off
// for EMAILRETRYSECONDS (or until Stop); each failed try that is tried again
// is told to the interface as "retrying", and the next try as "sending", with
// `attempt` counting the tries.
SendResult sendRetrying(const SplitSettings& settings, MailAttempt& attempt, const MailTransport& transport,
                        RunInterface& ui);

// The log line of one mail: time, recipient, status ("OK" or "Error - "
// and the transport's text) and the attachment.
std::string mailLogLine(const std::tm& when, const std::string& recipient, const std::string& status,
                        const std::string& attachment);

// "&Send Test": one mail to the from address, with the success or failure
// message; a failure's text goes to "vellira_mail_error.txt" in the
// temporary folder. Answers whether it was sent.
bool sendTestMail(const SplitSettings& settings, RunInterface& ui, const MailTransport& transport);

}  // namespace vellira
