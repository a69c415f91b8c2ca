// Mailing the outputs: the address found on each file, and real sends to an
// SMTP server on loopback in all three connection forms.
#include "fixtures/PdfFixture.h"
#include "mail/AddressCapture.h"
#include "mail/MailSender.h"
#include "support/RecordingInterface.h"
#include "support/RunProgram.h"
#include "support/ScriptedHost.h"
#include "support/SmtpServer.h"

#include <gtest/gtest.h>

#include <unistd.h>
#include <algorithm>
#include <sstream>

namespace vellira {
namespace {

using testing::quoted;
using testing::readFile;
using testing::SmtpServer;

// Words given as "TEXT H V ...".
std::vector<Word> words(const std::string& text) {
    std::vector<Word> found;
    std::istringstream in(text);
    for (Word word; in >> word.text >> word.h >> word.v;) found.push_back(word);
    return found;
}

// Address bounds that take in the whole page, then "KEY=VALUE ..." as a setup sets them.
SplitSettings addressSettings(const std::string& pairs) {
    SplitSettings settings;
    settings.EMAILMATCHVERT = settings.EMAILMATCHVERTTO = settings.EMAILMATCHHORIZ = settings.EMAILMATCHHORIZTO = -1;
    std::istringstream in(pairs);
    for (std::string pair; in >> pair;)
        assignKey(settings, *findSettingsKey(pair.substr(0, pair.find('='))), pair.substr(pair.find('=') + 1));
    return settings;
}

TEST(AddressCapture, FindsTheAddressOnTheFilesPages) {
    const std::string sendTo = "Send 72 700 to: 120 700 bob@example.com 160 700 please 300 700 x 72 650";
    const std::string zero = "EMAILMATCHVERT=0 EMAILMATCHVERTTO=0 EMAILMATCHHORIZ=0 EMAILMATCHHORIZTO=0";
    const struct {
        std::string words, settings, expected;
    } cases[] = {
        {sendTo, "", "Sendto:bob@example.complease"},  // the whole line, blanks dropped
        {sendTo, "EMAILHORIZAFTERTEXT=to: EMAILHORIZBEFORETEXT=please", "bob@example.com"},
        {"to: 72 700 x 110 700 to: 140 700 bob@ex.com 180 700 y 72 650", "EMAILHORIZAFTERTEXT=to:", "xto:bob@ex.com"},
        {"bob@ex.com 72 100 tail 200 100 Dear 72 700", "", "bob@ex.comtail"},  // nothing on its left
        {"a@b.c 72 700 a@b.c 73 700 z 72 600", "", "a@b.c"},                   // drawn twice, counted once
        {"low@x.y 72 200 high@x.y 72 700 z 72 100", "", "high@x.y"},
        {"bob@ex.com 72 700 z 72 100", zero, ""},  // a fresh setup's bounds
        {"bob@ex.com 72 700 z 72 100", "EMAILMATCHVERTTO=600", ""},
        {"Mail 72 700 to 150 700 bob@ex.com 200 700 z 72 100", "EMAILMATCHHORIZ=100", "tobob@ex.com"},
        {"nothing 72 700 here 150 700", "", ""},
    };
    for (const auto& c : cases)
        EXPECT_EQ(addressAmong(words(c.words), addressSettings(c.settings)), c.expected)
            << c.words << " / " << c.settings;

    testing::ScriptedHost host;
    host.files["/many.pdf"] = {testing::ScriptedPage(32769, Word{"word", 1, 1})};
    testing::RecordingInterface ui;
    EXPECT_EQ(captureAddress(host, ui, SplitSettings{}, "/many.pdf"), "-1");
    EXPECT_EQ(ui.notes, std::vector<std::string>{"Too many words on the page!"});
    EXPECT_EQ(captureAddress(host, ui, SplitSettings{}, "/missing.pdf"), "");
}

// The connection forms with a port are used by the sends below; a bare
// host name leaves the port to the connection's default.
TEST(MailSender, ServerTextsAndLogLines) {
    const MailServer bare = parseMailServer("mail.example.com");
    EXPECT_EQ((std::tuple{bare.host, bare.port, bare.ssl, bare.starttls}),
              (std::tuple{std::string("mail.example.com"), 0, false, false}));
    const std::tm when{.tm_sec = 7, .tm_min = 3, .tm_hour = 9, .tm_mday = 5, .tm_mon = 6, .tm_year = 124};
    EXPECT_EQ(
        mailLogLine(when, "bob@ex.com", "OK", "/out/a.pdf"),
        "2024-07-05 09:03:07 bob@ex.com" + std::string(90, ' ') + " OK" + std::string(78, ' ') + " /out/a.pdf\r\n");
}

class MailRun : public ::testing::Test {
protected:
    testing::TempDir dir;
    std::filesystem::path pdf = dir / "statements.pdf";
    std::filesystem::path out = dir / "out";

    void SetUp() override {
        ASSERT_EQ(std::system(("openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=localhost "
                               "-addext subjectAltName=DNS:localhost,IP:127.0.0.1 -keyout " +
                               quoted(dir / "key.pem") + " -out " + quoted(dir / "cert.pem") + " 2>/dev/null")
                                  .c_str()),
                  0);
        fixtures::Document document;
        document.pages = {fixtures::textPage({"account: Müller", "Email: customer1@example.com"}),
                          fixtures::textPage({"account: Ørsted", "Email: customer2@example.com"}),
                          fixtures::textPage({"account: C3", "no address here"})};
        fixtures::writePdf(document, pdf);
        while (body.size() < 1500) body += " Grüße aus dem Büro, Ihre Rechnung liegt bei.";
    }

    std::string body = "Sehr geehrte Kundin,\n";  // then a line longer than SMTP allows

    testing::ProgramResult split(const std::string& server, const std::string& more, bool trusted = true,
                                 const std::string& password = "s3cret") {
        return testing::runProgram(
            dir,
            "split --set OUTPUTDIR=" + quoted(out) + " --set EMAILENABLE=1 --set EMAILSMTP=" + server +
                " --set EMAILLOGIN=clerk --set EMAILFROM=billing@vendor.test --set 'EMAILFROMNAME=Büro \"Nord\"'"
                " --set 'EMAILCC=archive@vendor.test; audit@vendor.test' --set 'EMAILSUBJECT=Ihre Rechnung für März'"
                " --set 'EMAILMSG=" +
                body +
                "' --set EMAILMATCHVERT=-1 --set EMAILMATCHVERTTO=-1 --set EMAILMATCHHORIZ=-1"
                " --set EMAILMATCHHORIZTO=-1 --set EMAILHORIZAFTERTEXT=Email: --set EMAILLOGFILE=" +
                quoted(dir / "mail.log") + " " + more + " " + quoted(pdf),
            "VELLIRA_EMAILPASSWORD=" + password + (trusted ? " SSL_CERT_FILE=" + quoted(dir / "cert.pem") : ""));
    }

    // What a run of the three statements says when `sent` of their mails went.
    std::string said(int sent) const {
        const std::string failed = std::to_string(3 - sent);
        return "(3) Emails sent ok: " + std::to_string(sent) + ", errors: " + failed + "\n" + pdf.string() +
               ": 3 page(s), 3 file(s) written\n3 file(s) written to " + out.string() +
               (sent < 3 ? "; " + failed + " mail(s) failed\n" : "\n");
    }
};

// In each connection form every addressed output reaches its customer and
// both copies, and a strict reader gets it as it was written: names and
// texts outside ASCII, a long line. The file with no address mails nobody
// but the sender in test mode.
TEST_F(MailRun, EveryOutputReachesItsAddressInEachConnectionForm) {
    const struct {
        std::string mode, server, more;  // server with PORT for the port
        bool toSender;
        std::string bodyType;
    } cases[] = {
        {"plain", "127.0.0.1:PORT", "--set EMAILHTML=1", false, "text/html"},
        {"ssl", "ssl:localhost:PORT", "--set EMAILLOGFILE=", false, "text/plain"},
        {"starttls", "tls:localhost:PORT", "--set EMAILTEST=1", true, "text/plain"},
    };
    std::string sentBody = body;
    sentBody.replace(sentBody.find('\n'), 1, "\r\n");
    for (const auto& c : cases) {
        SmtpServer server(dir, c.mode);
        std::string address = c.server;
        address.replace(address.find("PORT"), 4, std::to_string(server.port()));
        // Without a log file named, the log is in the settings folder.
        const auto logFile = c.mode == "ssl" ? dir / "config" / "vellira" / "emails_log.txt" : dir / "mail.log";
        std::filesystem::remove(logFile);
        const auto result = split(address, c.more);
        const int mailed = c.toSender ? 3 : 2;
        EXPECT_EQ(result.status, c.toSender ? 0 : 3) << c.mode << "\n" << result.err;
        EXPECT_EQ(result.err, said(mailed)) << c.mode;
        const auto messages = server.messages();
        ASSERT_EQ(messages.size(), 3u * mailed) << c.mode;
        for (int n = 1; n <= mailed; ++n) {
            const auto& mail = messages[3 * n - 3];
            const std::string name = std::vector{"extract_Müller.pdf", "extract_Ørsted.pdf", "extract_C3.pdf"}[n - 1];
            const std::string from = "MAIL FROM: billing@vendor.test\nRCPT TO: ";
            const std::string to = c.toSender ? "billing@vendor.test" : "customer" + std::to_string(n) + "@example.com";
            std::string envelopes;
            for (int m = 0; m < 3; ++m) envelopes += readFile(messages[3 * n - 3 + m] / "envelope.txt");
            EXPECT_EQ(envelopes, from + to + "\n" + from + "archive@vendor.test\n" + from + "audit@vendor.test\n");
            const std::string headers = readFile(mail / "headers.txt");
            for (const char* header :
                 {"From: \"Büro \\\"Nord\\\"\" <billing@vendor.test>\n", "Subject: Ihre Rechnung für März\n", "Cc: "})
                EXPECT_NE(headers.find(header), std::string::npos) << headers;
            EXPECT_EQ(readFile(mail / "body.txt"), sentBody) << c.mode;
            EXPECT_EQ(readFile(mail / "body-type.txt"), c.bodyType);
            EXPECT_EQ(readFile(mail / name), readFile(out / name)) << c.mode << " " << name;
            // On the wire: CRLF lines of at most 998 characters, ASCII headers
            // with a Date and a Message-ID.
            const std::string raw = readFile(mail / "raw.eml");
            const std::string head = "\r\n" + raw.substr(0, raw.find("\r\n\r\n"));
            EXPECT_TRUE(std::all_of(head.begin(), head.end(), [](char c) { return (c & 0x80) == 0; })) << head;
            EXPECT_NE(head.find("\r\nDate: "), std::string::npos) << head;
            EXPECT_NE(head.find("\r\nMessage-Id: "), std::string::npos) << head;
            for (std::size_t at = 0, end; (end = raw.find('\n', at)) != std::string::npos; at = end + 1) {
                ASSERT_TRUE(end > at && raw[end - 1] == '\r') << "a bare line end at " << at;
                ASSERT_LE(end - at - 1, 998u);
            }
        }
        const std::string log = readFile(logFile);
        EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 3) << log;
        const auto noAddress = log.find("Error - no address found on the file's pages");
        EXPECT_EQ(noAddress == std::string::npos, c.toSender) << log;
        EXPECT_EQ(log.find("Error"), noAddress) << log;
    }
}

TEST_F(MailRun, FailedSendsAreLoggedAndTheRunGoesOn) {
    SmtpServer server(dir, "ssl");
    const std::string address = "ssl:localhost:" + std::to_string(server.port());
    const struct {
        std::string what, password;
        bool trusted;
        std::string logHas;
    } cases[] = {
        {"wrong password", "guess", true, "Login denied"},
        {"untrusted certificate", "s3cret", false, "certificate"},
    };
    for (const auto& c : cases) {
        std::filesystem::remove(dir / "mail.log");
        const auto result = split(address, "", c.trusted, c.password);
        EXPECT_EQ(result.status, 3) << c.what;
        EXPECT_EQ(result.err, said(0)) << c.what;
        const std::string log = readFile(dir / "mail.log");
        EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 5) << log;  // two lines for each failed send
        EXPECT_TRUE(log.starts_with("error: ")) << log;
        EXPECT_NE(log.find(c.logHas), std::string::npos) << log;
        EXPECT_EQ(log.find("s3cret"), std::string::npos) << log;
        EXPECT_TRUE(std::filesystem::exists(out / "extract_C3.pdf"));
    }
    EXPECT_TRUE(server.messages().empty());

    // Asked to confirm, the command line sends only with --yes.
    const auto unconfirmed = split(address, "--set EMAILCONFIRM=1");
    EXPECT_NE(unconfirmed.err.find("Email List to Send\n"), std::string::npos) << unconfirmed.err;
    EXPECT_NE(unconfirmed.err.find("customer2@example.com\t" + (out / "extract_Ørsted.pdf").string() + "\t2\t2\n"),
              std::string::npos)
        << unconfirmed.err;
    EXPECT_NE(unconfirmed.err.find("(0) Emails sent ok: 0, errors: 0\n"), std::string::npos);
    EXPECT_TRUE(server.messages().empty());

    // A server that goes away fails only the mails after it: the first mail
    // and its two copies go.
    SmtpServer leaving(dir, "starttls", {"--stop-after", "3"});
    const auto cut = split("tls:localhost:" + std::to_string(leaving.port()), "");
    EXPECT_EQ(cut.status, 3);
    EXPECT_EQ(cut.err, said(1));
    EXPECT_EQ(leaving.messages().size(), 3u);
}

TEST_F(MailRun, TestMailReportsSuccessOrWhereTheErrorWent) {
    SmtpServer server(dir, "plain");
    const std::string settings = "--set EMAILSMTP=127.0.0.1:" + std::to_string(server.port()) +
                                 " --set EMAILLOGIN=clerk --set EMAILFROM=billing@vendor.test";
    const auto sent = testing::runProgram(dir, "mail-test " + settings, "VELLIRA_EMAILPASSWORD=s3cret");
    EXPECT_EQ(sent.status, 0) << sent.err;
    EXPECT_EQ(sent.err, "Message(s) Sent Successfully.\n\nNOTE: mailto and cc message sent to from address.\n");
    EXPECT_EQ(server.messages().size(), 1u);

    const auto refused = testing::runProgram(dir, "mail-test " + settings + " --set EMAILPASSWORD=wrong");
    EXPECT_NE(refused.err.find("warning: a password given with --set can be read by every user"), std::string::npos);
    const auto errorFile = dir / "tmp" / ("vellira-" + std::to_string(getuid())) / "vellira_mail_error.txt";
    EXPECT_EQ(refused.status, 1);
    EXPECT_TRUE(refused.err.find("Error in configuration, message not sent to: billing@vendor.test\nError "
                                 "report output to file: " +
                                 errorFile.string() + "\n") != std::string::npos)
        << refused.err;
    EXPECT_TRUE(readFile(errorFile).ends_with("\r\n"));
    EXPECT_NE(readFile(errorFile).find("Login denied"), std::string::npos) << readFile(errorFile);
}

}  // namespace
}  // namespace vellira
