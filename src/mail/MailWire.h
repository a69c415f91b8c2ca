// What mail needs from the libraries that speak it: GMime builds a message,
// libcurl carries it to the server. Those two bring some forty libraries with
// them, and loading them would cost every start of a program more than
// splitting a small PDF takes; they live in a module of their own
// ("vellira-mail-wire"), loaded the first time a mail is built or sent.
#pragma once

#include "core/SplitSettings.h"
#include "mail/MailMessage.h"
#include "mail/MailSender.h"

#include <string>
#include <vector>

namespace vellira {

struct MailWire {
    // The message text. Throws std::runtime_error when the attachment cannot
    // be read.
    std::string (*buildMessage)(const MailContent& content);
    // Sends a message to the recipient, then to each copy, over one
    // connection with the e-mail settings' login.
    SendResult (*send)(const SplitSettings& settings, const MailServer& server, const std::string& message,
                       const std::string& recipient, const std::vector<std::string>& cc,
                       const MailTransport& transport);
    // The version of libcurl.
    std::string (*version)();
};

// The module's functions, loaded with the first call and kept for the life
// of the process. Throws std::runtime_error, with the loader's words, when
// the module cannot be loaded.
const MailWire& mailWire();

}  // namespace vellira

#if defined(_WIN32)
#define VELLIRA_MAIL_WIRE_EXPORT
#else
#define VELLIRA_MAIL_WIRE_EXPORT __attribute__((visibility("default")))
#endif

// The module's one entry point.
extern "C" VELLIRA_MAIL_WIRE_EXPORT const vellira::MailWire* vellira_mail_wire();
