// One mail as it goes over the wire, built by GMime to the mail standards:
// CRLF lines no longer than the standard allows, encoded words for headers
// outside ASCII, RFC 2231 file names, quoted addresses, a quoted-printable
// text part, a base64 attachment, Date and Message-ID.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace vellira {

struct MailContent {
    std::string fromName;
    std::string fromAddress;
    std::string to;
    std::vector<std::string> cc;
    std::string subject;
    std::string body;
    bool html = false;
    std::filesystem::path attachment;
    std::string attachmentType = "application/pdf";
};

// The message text. Throws std::runtime_error when the attachment cannot be
// read.
std::string buildMessage(const MailContent& content);

}  // namespace vellira
