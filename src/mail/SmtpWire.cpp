// The side of mail that speaks to the libraries: GMime builds the message
// (MailMessage.cpp), libcurl carries it to the server. Built as a module of
// its own, loaded with the first mail (mail/MailWire.h).
#include "mail/MailWire.h"

#include <curl/curl.h>

#include <algorithm>
#include <cstring>
#include <memory>

namespace vellira {

namespace {

struct CurlDeleter {
    void operator()(CURL* curl) const { curl_easy_cleanup(curl); }
    void operator()(curl_mime* mime) const { curl_mime_free(mime); }
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};
template <typename T>
using CurlPtr = std::unique_ptr<T, CurlDeleter>;

// Below this rate for the stall time, a transfer counts as stalled.
constexpr long kStallBytesPerSecond = 64;

// The message as libcurl reads it for the upload.
struct MessageReader {
    const std::string* text;
    std::size_t at;
};
std::size_t readMessage(char* buffer, std::size_t size, std::size_t count, void* data) {
    auto& reader = *static_cast<MessageReader*>(data);
    const std::size_t n = std::min(size * count, reader.text->size() - reader.at);
    std::memcpy(buffer, reader.text->data() + reader.at, n);
    reader.at += n;
    return n;
}

SendResult send(const SplitSettings& s, const MailServer& server, const std::string& message,
                const std::string& recipient, const std::vector<std::string>& cc, const MailTransport& transport) {
    CurlPtr<CURL> curl(curl_easy_init());
    if (!curl) return {false, "cannot start the mail transport", {}};
    CURL* c = curl.get();
    std::string url = server.ssl ? "smtps://" : "smtp://";
    url += server.host;
    if (server.port > 0) url.append(":").append(std::to_string(server.port));
    char error[CURL_ERROR_SIZE] = {};
    curl_easy_setopt(c, CURLOPT_ERRORBUFFER, error);
    curl_easy_setopt(c, CURLOPT_URL, url.c_str());
    // STARTTLS when the server offers it, and required with "tls:"; a
    // certificate that does not verify fails the mail either way.
    curl_easy_setopt(c, CURLOPT_USE_SSL, static_cast<long>(server.starttls ? CURLUSESSL_ALL : CURLUSESSL_TRY));
    curl_easy_setopt(c, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(c, CURLOPT_SSL_VERIFYHOST, 2L);
    if (!transport.caFile.empty()) curl_easy_setopt(c, CURLOPT_CAINFO, transport.caFile.c_str());
    if (!s.EMAILLOGIN.empty()) {
        curl_easy_setopt(c, CURLOPT_USERNAME, s.EMAILLOGIN.c_str());
        curl_easy_setopt(c, CURLOPT_PASSWORD, s.EMAILPASSWORD.c_str());
    }
    // A large file on a slow link takes the time it needs; a transfer that
    // stalls fails.
    curl_easy_setopt(c, CURLOPT_CONNECTTIMEOUT, 30L);
    curl_easy_setopt(c, CURLOPT_LOW_SPEED_LIMIT, kStallBytesPerSecond);
    curl_easy_setopt(c, CURLOPT_LOW_SPEED_TIME, transport.stallSeconds);
    curl_easy_setopt(c, CURLOPT_NOSIGNAL, 1L);
    const std::string from = "<" + s.EMAILFROM + ">";
    curl_easy_setopt(c, CURLOPT_MAIL_FROM, from.c_str());
    curl_easy_setopt(c, CURLOPT_UPLOAD, 1L);
    curl_easy_setopt(c, CURLOPT_READFUNCTION, readMessage);
    curl_easy_setopt(c, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(message.size()));

    // One transaction for the recipient, then one for each copy: a copy
    // that is refused does not fail the mail.
    CURLcode code = CURLE_OK;
    const auto transmit = [&](const std::string& to) -> std::string {
        MessageReader reader{&message, 0};
        curl_easy_setopt(c, CURLOPT_READDATA, &reader);
        CurlPtr<curl_slist> rcpt(curl_slist_append(nullptr, ("<" + to + ">").c_str()));
        curl_easy_setopt(c, CURLOPT_MAIL_RCPT, rcpt.get());
        error[0] = 0;
        code = curl_easy_perform(c);
        if (code == CURLE_OK) return {};
        return error[0] ? std::string(error) : std::string(curl_easy_strerror(code));
    };
    SendResult result;
    result.error = transmit(recipient);
    result.sent = result.error.empty();
    if (!result.sent) {
        curl_easy_getinfo(c, CURLINFO_RESPONSE_CODE, &result.code);
        // A 4xx answer asks to come back later; a server out of reach or
        // silent may be back later too. A 5xx answer is final.
        switch (code) {
            case CURLE_COULDNT_RESOLVE_HOST:
            case CURLE_COULDNT_CONNECT:
            case CURLE_OPERATION_TIMEDOUT:
            case CURLE_SEND_ERROR:
            case CURLE_RECV_ERROR:
            case CURLE_GOT_NOTHING: result.temporary = result.code / 100 != 5; break;
            default: result.temporary = result.code / 100 == 4;
        }
        return result;
    }
    for (const auto& copy : cc)
        if (const std::string refused = transmit(copy); !refused.empty())
            result.ccErrors.push_back("copy to " + copy + ": " + refused);
    return result;
}

std::string version() { return curl_version_info(CURLVERSION_NOW)->version; }

constexpr MailWire kWire{buildMessage, send, version};

}  // namespace

}  // namespace vellira

extern "C" VELLIRA_MAIL_WIRE_EXPORT const vellira::MailWire* vellira_mail_wire() { return &vellira::kWire; }
