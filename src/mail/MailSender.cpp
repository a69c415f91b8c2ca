#include "mail/MailSender.h"

#include "core/FileLock.h"
#include "core/Platform.h"
#include "core/Text.h"
#include "files/SettingsLocations.h"
#include "mail/MailMessage.h"
#include "mail/MailWire.h"

#ifdef _WIN32
#include <ole2.h>
#include <oleauto.h>
#include <windows.h>
#endif

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

namespace vellira {

namespace {

// The addresses of a list written with "," or ";" between them, trimmed;
// empty entries left out.
std::vector<std::string> addressList(std::string_view text) {
    std::vector<std::string> addresses;
    std::size_t start = 0;
    while (start <= text.size()) {
        const auto end = std::min(text.find_first_of(",;", start), text.size());
        std::string_view one = text.substr(start, end - start);
        while (!one.empty() && (one.front() == ' ' || one.front() == '\t')) one.remove_prefix(1);
        while (!one.empty() && (one.back() == ' ' || one.back() == '\t')) one.remove_suffix(1);
        if (!one.empty()) addresses.emplace_back(one);
        start = end + 1;
    }
    return addresses;
}

// EMAILLOGFILE, or "emails_log.txt" in the settings folder when it is empty.
std::string mailLogPath(const SplitSettings& s) {
    return s.EMAILLOGFILE.empty() ? pathText(settingsFolder() / "emails_log.txt") : s.EMAILLOGFILE;
}

void appendToLog(const std::string& path, const std::string& text) {
    if (path.empty()) return;
    // Runs mailing at the same time share the log: each line goes in whole.
    const auto file = pathFromText(path);
    const FileLock held(file);
    if (FileHandle log = openFile(file, "ab")) std::fwrite(text.data(), 1, text.size(), log.get());
}

#ifdef _WIN32
// Calls a method or sets a property of an automation object by name.
HRESULT automation(IDispatch* object, WORD kind, const wchar_t* name, VARIANT* result, std::vector<VARIANT> args) {
    DISPID id = 0;
    LPOLESTR member = const_cast<LPOLESTR>(name);
    HRESULT hr = object->GetIDsOfNames(IID_NULL, &member, 1, LOCALE_USER_DEFAULT, &id);
    if (FAILED(hr)) return hr;
    std::reverse(args.begin(), args.end());  // automation takes them last first
    DISPPARAMS params = {args.data(), nullptr, static_cast<UINT>(args.size()), 0};
    DISPID named = DISPID_PROPERTYPUT;
    if (kind == DISPATCH_PROPERTYPUT) {
        params.rgdispidNamedArgs = &named;
        params.cNamedArgs = 1;
    }
    return object->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, kind, &params, result, nullptr, nullptr);
}

VARIANT text(const std::string& value) {
    VARIANT v;
    VariantInit(&v);
    v.vt = VT_BSTR;
    const int length = MultiByteToWideChar(CP_UTF8, 0, value.c_str(), -1, nullptr, 0);
    std::wstring wide(length > 0 ? length : 1, L'\0');
    MultiByteToWideChar(CP_UTF8, 0, value.c_str(), -1, wide.data(), length);
    v.bstrVal = SysAllocString(wide.c_str());
    return v;
}

// Hands one mail to the desktop mail client: an item of its "MAPI"
// namespace with recipient, CC, subject, message and attachment, then sent.
SendResult sendThroughOutlook(const SplitSettings& s, const std::string& recipient,
                              const std::filesystem::path& attachment) {
    const SendResult unreachable{false, "Couldn't get Outlook Application"};
    if (FAILED(CoInitialize(nullptr))) return unreachable;
    SendResult result = unreachable;
    CLSID id;
    IDispatch* outlook = nullptr;
    if (SUCCEEDED(CLSIDFromProgID(L"Outlook.Application", &id)) &&
        SUCCEEDED(
            CoCreateInstance(id, nullptr, CLSCTX_LOCAL_SERVER, IID_IDispatch, reinterpret_cast<void**>(&outlook)))) {
        VARIANT ns, item, attachments, ignored;
        VariantInit(&ns);
        VariantInit(&item);
        VariantInit(&attachments);
        VariantInit(&ignored);
        VARIANT mapi = text("MAPI");
        VARIANT kind;
        VariantInit(&kind);
        kind.vt = VT_I4;
        kind.lVal = 0;  // a mail item
        bool sent = SUCCEEDED(automation(outlook, DISPATCH_METHOD, L"GetNamespace", &ns, {mapi})) &&
                    SUCCEEDED(automation(outlook, DISPATCH_METHOD, L"CreateItem", &item, {kind}));
        std::vector<VARIANT> values;
        if (sent) {
            IDispatch* mail = item.pdispVal;
            values = {text(recipient), text(s.EMAILSUBJECT), text(s.EMAILMSG), text(s.EMAILCC),
                      text(attachment.string())};
            sent =
                SUCCEEDED(automation(mail, DISPATCH_PROPERTYPUT, L"To", nullptr, {values[0]})) &&
                SUCCEEDED(automation(mail, DISPATCH_PROPERTYPUT, L"Subject", nullptr, {values[1]})) &&
                SUCCEEDED(automation(mail, DISPATCH_PROPERTYPUT, L"Body", nullptr, {values[2]})) &&
                (s.EMAILCC.empty() || SUCCEEDED(automation(mail, DISPATCH_PROPERTYPUT, L"CC", nullptr, {values[3]}))) &&
                SUCCEEDED(automation(mail, DISPATCH_PROPERTYGET, L"Attachments", &attachments, {})) &&
                SUCCEEDED(automation(attachments.pdispVal, DISPATCH_METHOD, L"Add", &ignored, {values[4]})) &&
                SUCCEEDED(automation(mail, DISPATCH_METHOD, L"Send", nullptr, {}));
            result = sent ? SendResult{true, {}} : SendResult{false, "Outlook did not send the message"};
        }
        for (auto& value : values) VariantClear(&value);
        VariantClear(&mapi);
        VariantClear(&ignored);
        VariantClear(&attachments);
        VariantClear(&item);
        VariantClear(&ns);
        outlook->Release();
    }
    CoUninitialize();
    return result;
}
#endif

// The longest wait between two tries of a mail put off.
constexpr std::chrono::seconds kLongestRetryWait{300};

}  // namespace

SendResult sendRetrying(const SplitSettings& s, MailAttempt& attempt, const MailTransport& transport,
                        RunInterface& ui) {
    using Clock = std::chrono::steady_clock;
    const auto until = Clock::now() + std::chrono::seconds(std::max(0, s.EMAILRETRYSECONDS));
    std::chrono::seconds wait{1};
    for (;;) {
        SendResult result = sendMail(s, attempt.recipient, attempt.file, transport);
        if (result.sent || !result.temporary || ui.cancelled() || Clock::now() + wait > until) return result;
        attempt.status = "retrying";
        attempt.answer = result.error;
        ui.mailAttempted(attempt);
        ui.status("Sending email: " + attempt.recipient + " put off (" + result.error + "), trying again in " +
                  std::to_string(wait.count()) + " s");
        // Stop ends the wait, not only the next try.
        for (const auto end = Clock::now() + wait; Clock::now() < end && !ui.cancelled();)
            std::this_thread::sleep_for(std::min<Clock::duration>(std::chrono::milliseconds(100), end - Clock::now()));
        if (ui.cancelled()) return result;
        wait = std::min(wait * 2, kLongestRetryWait);
        ++attempt.attempt;
        attempt.status = "sending";
        ui.mailAttempted(attempt);
    }
}

MailTransport mailTransportFromEnvironment() {
    MailTransport transport;
    if (const char* bundle = std::getenv("SSL_CERT_FILE"); bundle && *bundle) transport.caFile = bundle;
    return transport;
}

std::string mailTransportVersion() {
    try {
        return mailWire().version();
    } catch (const std::runtime_error& error) {
        return std::string("unavailable (") + error.what() + ")";
    }
}

MailServer parseMailServer(std::string_view text) {
    MailServer server;
    std::string rest(text);
    if (rest.starts_with("ssl:")) {
        server.ssl = true;
        replaceAll(rest, "ssl:", "");
    }
    if (rest.starts_with("tls:")) {
        server.starttls = true;
        replaceAll(rest, "tls:", "");
    }
    const auto colon = rest.find(':');
    server.host = rest.substr(0, colon);
    if (colon != std::string::npos) server.port = leadingInteger(std::string_view(rest).substr(colon + 1));
    return server;
}

SendResult sendMail(const SplitSettings& s, const std::string& recipient, const std::filesystem::path& attachment,
                    const MailTransport& transport, const std::string& attachmentType) {
    MailContent content{s.EMAILFROMNAME, s.EMAILFROM,      recipient,  addressList(s.EMAILCC), s.EMAILSUBJECT,
                        s.EMAILMSG,      s.EMAILHTML != 0, attachment, attachmentType};
    try {
        const MailWire& wire = mailWire();
        return wire.send(s, parseMailServer(s.EMAILSMTP), wire.buildMessage(content), recipient, content.cc, transport);
    } catch (const std::runtime_error& error) {
        return {false, error.what(), {}};
    }
}

std::string mailLogLine(const std::tm& when, const std::string& recipient, const std::string& status,
                        const std::string& attachment) {
    const std::string stamp = formatText("%4.4d-%2.2d-%2.2d %2.2d:%2.2d:%2.2d", when.tm_year + 1900, when.tm_mon + 1,
                                         when.tm_mday, when.tm_hour, when.tm_min, when.tm_sec);
    return formatText("%-20s%-100s %-80s %s\r\n", stamp.c_str(), recipient.c_str(), status.c_str(), attachment.c_str());
}

MailCounts sendMailList(const SplitSettings& s, const std::vector<MailEntry>& entries, RunInterface& ui,
                        const MailTransport& transport) {
    MailCounts counts;
    if (entries.empty()) return counts;
    if (s.EMAILCONFIRM && !ui.confirmMails(entries)) return counts;
    const std::string log = mailLogPath(s);
    for (const auto& entry : entries) {
        if (ui.cancelled()) break;
        const std::string recipient = s.EMAILTEST ? s.EMAILFROM : entry.email;
        // A mail with a subject of its own (named from the lookup list).
        std::optional<SplitSettings> own;
        if (!entry.subject.empty() && entry.subject != s.EMAILSUBJECT) {
            own = s;
            own->EMAILSUBJECT = entry.subject;
        }
        const SplitSettings& settings = own ? *own : s;
        MailAttempt attempt{entry.file, entry.first, entry.last, recipient, &settings, "sending", {}, 1};
        if (!ui.mailStarting(attempt)) {
            // Sent before, by a run that did not get to finish.
            ++counts.handled;
            ++counts.sent;
            counts.results.emplace_back(entry.file, "OK");
            continue;
        }
        ui.mailStatus({recipient, counts.handled, counts.sent, counts.failed});
        std::string status = "OK";
        if (recipient.empty() || recipient == "-1") {
            // Nobody to send it to: sent to the copies alone, it would look
            // delivered while the customer got nothing.
            status = "Error - no address found on the file's pages";
        } else if (s.USEOUTLOOK) {
#ifdef _WIN32
            const SendResult result = sendThroughOutlook(settings, recipient, entry.file);
#else
            const SendResult result{false, "Couldn't get Outlook Application"};
#endif
            if (!result.sent) {
                if (result.error == "Couldn't get Outlook Application")
                    ui.note("Couldn't get Outlook Application, please make sure Microsoft Outlook 2000+ installed");
                status = "Error - " + result.error;
            }
        } else {
            const SendResult result = sendRetrying(settings, attempt, transport, ui);
            attempt.answer = result.error;
            if (!result.sent) {
                appendToLog(log, "error: " + result.error + "\n");
                status = "Error - " + result.error;
            }
            for (const auto& refused : result.ccErrors) appendToLog(log, "error: " + refused + "\n");
        }
        ++counts.handled;
        ++(status == "OK" ? counts.sent : counts.failed);
        attempt.status = status == "OK" ? "sent" : "failed";
        if (attempt.answer.empty() && status != "OK") attempt.answer = status.substr(std::string("Error - ").size());
        ui.mailAttempted(attempt);
        appendToLog(log, mailLogLine(localNow(), recipient, status, entry.file));
        counts.results.emplace_back(entry.file, status);
        ui.mailStatus({recipient, counts.handled, counts.sent, counts.failed});
    }
    return counts;
}

bool sendTestMail(const SplitSettings& s, RunInterface& ui, const MailTransport& transport) {
    // The test mail carries a small attachment of its own.
    const auto own = privateTemporaryFolder().value_or(settingsFolder());
    const auto sample = own / "vellira_mail_test.txt";
    if (FileHandle file = openFile(sample, "wb")) std::fputs("Vellira Batch test mail\r\n", file.get());
    const SendResult result = sendMail(s, s.EMAILFROM, sample, transport, "text/plain");
    std::error_code ignored;
    std::filesystem::remove(sample, ignored);
    if (result.sent) {
        ui.note("Message(s) Sent Successfully.\n\nNOTE: mailto and cc message sent to from address.");
        return true;
    }
    const auto errorFile = own / "vellira_mail_error.txt";
    if (FileHandle file = openFile(errorFile, "wb")) std::fprintf(file.get(), "%s\r\n", result.error.c_str());
    ui.note("Error in configuration, message not sent to: " + s.EMAILFROM +
            "\nError report output to file: " + errorFile.string());
    ui.showFile(errorFile.string());
    return false;
}

}  // namespace vellira
