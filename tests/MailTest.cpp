// Mailing the outputs: the address found on each file, and real sends to an
// SMTP server on loopback in all three connection forms.
#include "fixtures/PdfFixture.h"
#include "host/MupdfHost.h"
#include "mail/AddressCapture.h"
#include "mail/MailSender.h"
#include "support/RecordingInterface.h"
#include "support/RunProgram.h"
#include "support/ScriptedHost.h"

#include <gtest/gtest.h>

#include <signal.h>
#include <unistd.h>
#include <algorithm>
#include <chrono>
#include <fstream>
#include <thread>

namespace vellira {
namespace {

using testing::quoted;
using testing::readFile;

TEST(AddressCapture, FindsTheAddressOnTheFilesPages) {
    struct Case {
        std::string what;
        std::vector<Word> words;
        std::function<void(SplitSettings&)> configure;
        std::string expected;
    } const cases[] = {
        {"the whole line, blanks dropped",
         {{"Send", 72, 700}, {"to:", 120, 700}, {"bob@example.com", 160, 700}, {"please", 300, 700}, {"x", 72, 650}},
         [](SplitSettings&) {},
         "Sendto:bob@example.complease"},
        {"between its labels",
         {{"Send", 72, 700}, {"to:", 120, 700}, {"bob@example.com", 160, 700}, {"please", 300, 700}, {"x", 72, 650}},
         [](SplitSettings& s) { s.EMAILHORIZAFTERTEXT = "to:", s.EMAILHORIZBEFORETEXT = "please"; },
         "bob@example.com"},
        {"the farther label cuts",
         {{"to:", 72, 700}, {"x", 110, 700}, {"to:", 140, 700}, {"bob@ex.com", 180, 700}, {"y", 72, 650}},
         [](SplitSettings& s) { s.EMAILHORIZAFTERTEXT = "to:"; },
         "xto:bob@ex.com"},
        {"first word of all has nothing on its left",
         {{"bob@ex.com", 72, 100}, {"tail", 200, 100}, {"Dear", 72, 700}},
         [](SplitSettings&) {},
         "bob@ex.comtail"},
        {"text drawn twice counts once",
         {{"a@b.c", 72, 700}, {"a@b.c", 73, 700}, {"z", 72, 600}},
         [](SplitSettings&) {},
         "a@b.c"},
        {"the higher of two wins",
         {{"low@x.y", 72, 200}, {"high@x.y", 72, 700}, {"z", 72, 100}},
         [](SplitSettings&) {},
         "high@x.y"},
        {"a fresh setup's bounds find nothing",
         {{"bob@ex.com", 72, 700}, {"z", 72, 100}},
         [](SplitSettings& s) { s.EMAILMATCHVERT = s.EMAILMATCHVERTTO = s.EMAILMATCHHORIZ = s.EMAILMATCHHORIZTO = 0; },
         ""},
        {"outside the rectangle",
         {{"bob@ex.com", 72, 700}, {"z", 72, 100}},
         [](SplitSettings& s) { s.EMAILMATCHVERTTO = 600; },
         ""},
        {"left part stops at the left bound",
         {{"Mail", 72, 700}, {"to", 150, 700}, {"bob@ex.com", 200, 700}, {"z", 72, 100}},
         [](SplitSettings& s) { s.EMAILMATCHHORIZ = 100; },
         "tobob@ex.com"},
        {"no address", {{"nothing", 72, 700}, {"here", 150, 700}}, [](SplitSettings&) {}, ""},
    };
    for (const auto& c : cases) {
        SplitSettings settings;
        settings.EMAILMATCHVERT = settings.EMAILMATCHVERTTO = settings.EMAILMATCHHORIZ = settings.EMAILMATCHHORIZTO =
            -1;
        c.configure(settings);
        EXPECT_EQ(addressAmong(c.words, settings), c.expected) << c.what;
    }

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

// An SMTP server on loopback, run by Debian's python3-aiosmtpd for one test.
class SmtpServer {
public:
    SmtpServer(const testing::TempDir& dir, const std::string& mode, const std::vector<std::string>& extra = {}) {
        received_ = dir / ("received-" + mode + std::to_string(++count_));
        std::filesystem::create_directories(received_);
        const auto portFile = received_.string() + ".port";
        std::vector<std::string> args = {"/usr/bin/python3", VELLIRA_SMTP_SERVER, received_.string(), portFile, mode};
        args.insert(args.end(), {"--cert", (dir / "cert.pem").string(), "--key", (dir / "key.pem").string(), "--user",
                                 "clerk", "--password", "s3cret"});
        args.insert(args.end(), extra.begin(), extra.end());
        pid_ = fork();
        if (pid_ == 0) {
            std::vector<char*> argv;
            for (auto& arg : args) argv.push_back(arg.data());
            argv.push_back(nullptr);
            // The server's own warnings are not the test's output.
            if (!std::freopen("/dev/null", "w", stderr)) _exit(126);
            execv(argv[0], argv.data());
            _exit(127);
        }
        for (int wait = 0; wait < 300 && !std::filesystem::exists(portFile); ++wait)
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        port_ = std::stoi(readFile(portFile));
    }
    ~SmtpServer() {
        kill(pid_, SIGTERM);
        waitpid(pid_, nullptr, 0);
    }
    int port() const { return port_; }
    // The messages received, in order.
    std::vector<std::filesystem::path> messages() const {
        std::vector<std::filesystem::path> found;
        for (int n = 1; std::filesystem::exists(received_ / ("msg-" + std::to_string(n))); ++n)
            found.push_back(received_ / ("msg-" + std::to_string(n)));
        return found;
    }

private:
    static inline int count_ = 0;
    std::filesystem::path received_;
    pid_t pid_ = -1;
    int port_ = 0;
};

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
        for (int n = 1; n <= 3; ++n)
            document.pages.push_back(fixtures::textPage(
                {"account: C" + std::to_string(n), "Email: customer" + std::to_string(n) + "@example.com"}));
        fixtures::writePdf(document, pdf);
    }

    testing::ProgramResult split(const std::string& server, const std::string& more, bool trusted = true,
                                 const std::string& password = "s3cret") {
        return testing::runProgram(
            dir,
            "split --set OUTPUTDIR=" + quoted(out) + " --set EMAILENABLE=1 --set EMAILSMTP=" + server +
                " --set EMAILLOGIN=clerk --set EMAILFROM=billing@vendor.test"
                " --set 'EMAILFROMNAME=Billing Dept' --set EMAILCC=archive@vendor.test"
                " --set 'EMAILSUBJECT=Your statement' --set 'EMAILMSG=Dear customer,\nattached.'"
                " --set EMAILMATCHVERT=-1 --set EMAILMATCHVERTTO=-1 --set EMAILMATCHHORIZ=-1 --set EMAILMATCHHORIZTO=-1"
                " --set EMAILHORIZAFTERTEXT=Email: --set EMAILLOGFILE=" +
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

TEST_F(MailRun, EveryOutputReachesItsAddressInEachConnectionForm) {
    struct Case {
        std::string mode;
        std::string server;  // with PORT for the port
        std::string more;
        bool toSender;
        std::string bodyType;
    } const cases[] = {
        {"plain", "127.0.0.1:PORT", "--set EMAILHTML=1", false, "text/html"},
        {"ssl", "ssl:localhost:PORT", "", false, "text/plain"},
        {"starttls", "tls:localhost:PORT", "--set EMAILTEST=1", true, "text/plain"},
    };
    for (const auto& c : cases) {
        SmtpServer server(dir, c.mode);
        std::string address = c.server;
        address.replace(address.find("PORT"), 4, std::to_string(server.port()));
        std::filesystem::remove(dir / "mail.log");
        const auto result = split(address, c.more);
        EXPECT_EQ(result.status, 0) << c.mode << "\n" << result.err;
        EXPECT_EQ(result.err, said(3)) << c.mode;
        // Each mail goes to its recipient, then as a copy to the CC address.
        const auto messages = server.messages();
        ASSERT_EQ(messages.size(), 6u) << c.mode;
        for (int n = 1; n <= 3; ++n) {
            const std::string name = "extract_C" + std::to_string(n) + ".pdf";
            const std::string to = c.toSender ? "billing@vendor.test" : "customer" + std::to_string(n) + "@example.com";
            EXPECT_EQ(readFile(messages[2 * n - 1] / "envelope.txt"),
                      "MAIL FROM: billing@vendor.test\nRCPT TO: archive@vendor.test\n")
                << c.mode;
            const auto& message = messages[2 * n - 2];
            EXPECT_EQ(readFile(message / "envelope.txt"), "MAIL FROM: billing@vendor.test\nRCPT TO: " + to + "\n")
                << c.mode;
            const std::string headers = readFile(message / "headers.txt");
            EXPECT_NE(headers.find("Subject: Your statement\n"), std::string::npos) << headers;
            EXPECT_NE(headers.find("From: Billing Dept <billing@vendor.test>\n"), std::string::npos) << headers;
            EXPECT_NE(headers.find("Cc: "), std::string::npos) << headers;
            EXPECT_EQ(readFile(message / "body.txt"), "Dear customer,\r\nattached.");
            EXPECT_EQ(readFile(message / "body-type.txt"), c.bodyType);
            EXPECT_EQ(readFile(message / name), readFile(out / name)) << c.mode << " " << name;
        }
        const std::string log = readFile(dir / "mail.log");
        EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 3) << log;
        EXPECT_EQ(log.find("Error"), std::string::npos) << log;
    }
}

// Names and texts outside ASCII, long lines, several copies and a file with
// no address: a strict reader gets every addressed mail as it was written.
TEST_F(MailRun, MessagesReadBackAsWrittenAndNobodyIsMailedByMistake) {
    fixtures::Document document;
    document.pages = {fixtures::textPage({"account: Müller", "Email: customer1@example.com"}),
                      fixtures::textPage({"account: Ørsted", "Email: customer2@example.com"}),
                      fixtures::textPage({"account: C3", "no address here"})};
    fixtures::writePdf(document, pdf);
    std::string message;
    while (message.size() < 1500) message += "Grüße aus dem Büro, Ihre Rechnung liegt bei. ";
    SmtpServer server(dir, "plain");
    const auto result =
        split("127.0.0.1:" + std::to_string(server.port()),
              "--set 'EMAILFROMNAME=Büro \"Nord\"' --set 'EMAILSUBJECT=Ihre Rechnung für März' "
              "--set 'EMAILMSG=" +
                  message + "' --set 'EMAILCC=archive@vendor.test; audit@vendor.test' --set EMAILLOGFILE=");
    EXPECT_EQ(result.status, 3) << result.err;
    EXPECT_NE(result.err.find("(3) Emails sent ok: 2, errors: 1\n"), std::string::npos) << result.err;
    // Two mails, each to its customer and to both copies; none for C3.
    const auto messages = server.messages();
    ASSERT_EQ(messages.size(), 6u);
    for (const int first : {0, 3}) {
        const auto& mail = messages[first];
        const std::string name = first == 0 ? "extract_Müller.pdf" : "extract_Ørsted.pdf";
        EXPECT_EQ(readFile(mail / "subject.txt"), "Ihre Rechnung für März");
        EXPECT_EQ(readFile(mail / "from-name.txt"), "Büro \"Nord\"");
        EXPECT_EQ(readFile(mail / "body.txt"), message);
        EXPECT_EQ(readFile(mail / name), readFile(out / name));
        EXPECT_EQ(readFile(messages[first + 2] / "envelope.txt"),
                  "MAIL FROM: billing@vendor.test\nRCPT TO: audit@vendor.test\n");
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
    // Without a log file named, the log is in the settings folder.
    const std::string log = readFile(dir / "config" / "vellira" / "emails_log.txt");
    EXPECT_NE(log.find("Error - no address found on the file's pages"), std::string::npos) << log;
}

TEST_F(MailRun, FailedSendsAreLoggedAndTheRunGoesOn) {
    SmtpServer server(dir, "ssl");
    const std::string address = "ssl:localhost:" + std::to_string(server.port());
    struct Case {
        std::string what;
        std::string password;
        bool trusted;
        std::string logHas;
    } const cases[] = {
        {"wrong password", "guess", true, "Login denied"},
        {"untrusted certificate", "s3cret", false, "certificate"},
    };
    for (const auto& c : cases) {
        std::filesystem::remove(dir / "mail.log");
        const auto result = split(address, "", c.trusted, c.password);
        EXPECT_EQ(result.status, 3) << c.what;
        EXPECT_EQ(result.err, said(0)) << c.what;
        const std::string log = readFile(dir / "mail.log");
        EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 6) << log;
        EXPECT_TRUE(log.starts_with("error: ")) << log;
        EXPECT_NE(log.find(c.logHas), std::string::npos) << log;
        EXPECT_EQ(log.find("s3cret"), std::string::npos) << log;
        EXPECT_TRUE(std::filesystem::exists(out / "extract_C3.pdf"));
    }
    EXPECT_TRUE(server.messages().empty());

    // Asked to confirm, the command line sends only with --yes.
    const auto unconfirmed = split(address, "--set EMAILCONFIRM=1");
    EXPECT_NE(unconfirmed.err.find("Email List to Send\n"), std::string::npos) << unconfirmed.err;
    EXPECT_NE(unconfirmed.err.find("customer2@example.com\t" + (out / "extract_C2.pdf").string() + "\t2\t2\n"),
              std::string::npos)
        << unconfirmed.err;
    EXPECT_NE(unconfirmed.err.find("(0) Emails sent ok: 0, errors: 0\n"), std::string::npos);
    EXPECT_TRUE(server.messages().empty());

    // A server that goes away fails only the mails after it.
    SmtpServer leaving(dir, "starttls", {"--stop-after", "1"});
    const auto cut = split("tls:localhost:" + std::to_string(leaving.port()), "");
    EXPECT_EQ(cut.status, 3);
    EXPECT_EQ(cut.err, said(1));
    EXPECT_EQ(leaving.messages().size(), 1u);
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
