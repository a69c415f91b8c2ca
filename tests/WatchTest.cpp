// Unattended runs as an administrator sets them up: a watcher on an inbox,
// killed and started again, the journal's mail status and resend, and the
// service unit.
#include "fixtures/PdfFixture.h"
#include "support/RunProgram.h"
#include "support/SmtpServer.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <chrono>
#include <fstream>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <thread>

namespace vellira {
namespace {

namespace fs = std::filesystem;
using testing::quoted;
using testing::readFile;

// A PDF of statements, one page each: "account: NAME" and its customer's
// address; each output is named by its account.
void writeStatements(const fs::path& path, const std::vector<std::string>& accounts) {
    fixtures::Document document;
    for (const auto& account : accounts)
        document.pages.push_back(fixtures::textPage({"account: " + account, "Email: " + account + "@example.com"}));
    fixtures::writePdf(document, path);
}

// The names in a folder, sorted.
std::set<std::string> names(const fs::path& folder) {
    std::set<std::string> found;
    std::error_code ignored;
    for (fs::directory_iterator it(folder, ignored), end; !ignored && it != end; it.increment(ignored))
        found.insert(it->path().filename().string());
    return found;
}

bool waitFor(const std::function<bool()>& done, std::chrono::milliseconds limit = std::chrono::seconds(20)) {
    for (const auto end = std::chrono::steady_clock::now() + limit; std::chrono::steady_clock::now() < end;) {
        if (done()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return done();
}

// `vellira-batch watch ARGS` running as its own process, with the test's
// state and settings folders, its standard error kept in a log.
class Watcher {
public:
    Watcher(const testing::TempDir& dir, const std::vector<std::string>& args) {
        log_ = dir / ("watch-" + std::to_string(++count_) + ".log");
        pid_ = fork();
        if (pid_ != 0) return;
        setenv("XDG_STATE_HOME", (dir / "state").c_str(), 1);
        setenv("XDG_CONFIG_HOME", (dir / "config").c_str(), 1);
        setenv("VELLIRA_EMAILPASSWORD", "s3cret", 1);
        unsetenv("JOURNAL_STREAM");
        const int err = open(log_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        dup2(err, STDERR_FILENO);
        std::vector<std::string> all = {VELLIRA_BATCH_EXE, "watch"};
        all.insert(all.end(), args.begin(), args.end());
        std::vector<char*> argv;
        for (auto& arg : all) argv.push_back(arg.data());
        argv.push_back(nullptr);
        execv(argv[0], argv.data());
        _exit(127);
    }
    ~Watcher() {
        if (pid_ > 0) kill(pid_, SIGKILL), wait();
    }
    void signal(int number) const { kill(pid_, number); }
    // The exit status, or 128 + the signal that ended it.
    int wait() {
        int status = 0;
        waitpid(pid_, &status, 0);
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    std::string log() const { return readFile(log_); }
    // Once it watches, TERM stops it cleanly.
    bool watching() const {
        return waitFor([&] { return log().find("Journal: ") != std::string::npos; });
    }

private:
    static inline int count_ = 0;
    fs::path log_;
    pid_t pid_ = -1;
};

// An inbox is finished with once only the watcher's own entries are left.
bool emptied(const fs::path& inbox) {
    return names(inbox) == std::set<std::string>{".vellira-watch.lock", "done", "error"};
}

TEST(Watch, TakesCompleteFilesOnlyAndPutsBadInputAsideWithItsReason) {
    testing::TempDir dir;
    const fs::path inbox = dir / "inbox", out = dir / "out";
    fs::create_directories(inbox);
    // A watch list: each row an inbox with its own setup.
    const auto setup = [&](const std::string& name, const fs::path& output) {
        const auto saved =
            testing::runProgram(dir, "setup --set OUTPUTDIR=" + quoted(output) + " --save " + quoted(dir / name));
        EXPECT_EQ(saved.status, 0) << saved.err;
    };
    setup("main.pcs", out);
    std::ofstream(dir / "inboxes.lst") << "+" << inbox.string() << "|" << (dir / "main.pcs").string() << "\r\n";
    // Looked at, as a network folder is (the test below listens for events).
    Watcher watcher(dir, {"--settle", "0.4", "--poll-only", "--poll", "0.1", "--list", (dir / "inboxes.lst").string()});
    ASSERT_TRUE(waitFor([&] { return fs::exists(inbox / ".vellira-watch.lock"); }));

    // A second watcher leaves the inbox to the first.
    const auto rival = testing::runProgram(dir, "watch " + quoted(inbox));
    EXPECT_EQ(rival.status, 1);
    EXPECT_NE(rival.err.find("Another watcher has the inbox '" + inbox.string() + "'"), std::string::npos) << rival.err;

    // A file moved in whole, and one written slowly by a writer that pauses
    // longer than the settle time while it holds the file.
    writeStatements(dir / "a.pdf", {"A1", "A2"});
    fs::rename(dir / "a.pdf", inbox / "a.pdf");
    writeStatements(dir / "slow.pdf", {"S1", "S2", "S3"});
    const std::string slow = readFile(dir / "slow.pdf");
    {
        std::ofstream writer(inbox / "slow.pdf", std::ios::binary);
        writer << slow.substr(0, slow.size() / 2) << std::flush;
        std::this_thread::sleep_for(std::chrono::milliseconds(1200));
        writer << slow.substr(slow.size() / 2);
    }
    // What a print system or a careless user may drop as well.
    std::ofstream(inbox / "empty.pdf").close();
    std::ofstream(inbox / "notes.txt") << "not a PDF at all\n";
    std::ofstream(inbox / "damaged.pdf") << "%PDF-1.4\n" << std::string(3000, 'x');
    writeStatements(dir / "elsewhere.pdf", {"L1"});
    fs::create_symlink(dir / "elsewhere.pdf", inbox / "link.pdf");
    fs::create_directory(inbox / "folder");
    fs::copy_file(dir / "elsewhere.pdf", inbox / "bad\xff.pdf");
    // and a good file after them all: the watcher goes on.
    writeStatements(dir / "b.pdf", {"B1"});
    fs::rename(dir / "b.pdf", inbox / "b.pdf");

    ASSERT_TRUE(waitFor([&] { return emptied(inbox); })) << watcher.log();
    EXPECT_EQ(names(inbox / "done"), (std::set<std::string>{"a.pdf", "b.pdf", "slow.pdf"})) << watcher.log();
    EXPECT_EQ(names(out), (std::set<std::string>{"extract_A1.pdf", "extract_A2.pdf", "extract_B1.pdf", "extract_S1.pdf",
                                                 "extract_S2.pdf", "extract_S3.pdf"}))
        << watcher.log();
    const std::map<std::string, std::string> reasons = {
        {"empty.pdf", "It is empty (0 bytes)."},
        {"notes.txt", "It is not a PDF: no PDF header in its first 1024 bytes."},
        {"damaged.pdf", "The PDF ended \"Can't open\".\nCan't open file: " + (inbox / "damaged.pdf").string()},
        {"link.pdf", "It is a link, not a file: put the file itself in the inbox."},
        {"folder", "It is a folder, not a PDF."},
        {"bad\xff.pdf", "Its name is not valid UTF-8: rename it and put it back."},
    };
    std::set<std::string> errors;
    for (const auto& [name, reason] : reasons) {
        errors.insert({name, name + ".txt"});
        EXPECT_TRUE(readFile(inbox / "error" / (name + ".txt")).starts_with(reason))
            << name << ": " << readFile(inbox / "error" / (name + ".txt"));
    }
    EXPECT_EQ(names(inbox / "error"), errors);
    EXPECT_TRUE(fs::exists(dir / "elsewhere.pdf"));  // a link's target stays where it is

    // HUP reads the watch list again: a second inbox, with a setup of its own.
    const fs::path second = dir / "second", secondOut = dir / "second-out";
    fs::create_directories(second);
    setup("second.pcs", secondOut);
    std::ofstream(dir / "inboxes.lst", std::ios::app)
        << "+" << second.string() << "|" << (dir / "second.pcs").string() << "\r\n";
    watcher.signal(SIGHUP);
    ASSERT_TRUE(waitFor([&] { return fs::exists(second / ".vellira-watch.lock"); })) << watcher.log();
    writeStatements(dir / "c.pdf", {"C1"});
    fs::rename(dir / "c.pdf", second / "c.pdf");
    ASSERT_TRUE(waitFor([&] { return emptied(second); })) << watcher.log();
    EXPECT_EQ(names(secondOut), std::set<std::string>{"extract_C1.pdf"});

    watcher.signal(SIGTERM);
    EXPECT_EQ(watcher.wait(), 0);
    EXPECT_NE(watcher.log().find("Stopping after the pieces in hand"), std::string::npos);
}

// The journal's mails, one line each: recipient -> (status, attempts, tries
// cut off after the mail may have gone).
struct JournalMail {
    std::string status;
    int attempts = 0;
    int cutOff = 0;
};
std::map<std::string, JournalMail> journalMails(const testing::TempDir& dir, const std::string& more = "") {
    const auto listed = testing::runProgram(dir, "mail-status --csv " + more);
    std::map<std::string, JournalMail> mails;
    std::istringstream lines(listed.out);
    std::string line;
    std::getline(lines, line);  // the header
    while (std::getline(lines, line)) {
        std::vector<std::string> fields;
        std::istringstream in(line);
        for (std::string field; std::getline(in, field, ',');) fields.push_back(field);
        if (fields.size() >= 5) mails[fields[4]] = {fields[1], std::stoi(fields[2]), std::stoi(fields[3])};
    }
    return mails;
}

// How many times each recipient got a mail.
std::map<std::string, int> received(const testing::SmtpServer& server) {
    std::map<std::string, int> count;
    for (const auto& message : server.messages()) {
        const std::string envelope = readFile(message / "envelope.txt");
        ++count[envelope.substr(envelope.find("RCPT TO: ") + 9,
                                envelope.find('\n', envelope.find("RCPT TO: ")) - envelope.find("RCPT TO: ") - 9)];
    }
    return count;
}

std::vector<std::string> mailSettings(int port) {
    return {"--set", "EMAILENABLE=1",
            "--set", "EMAILSMTP=127.0.0.1:" + std::to_string(port),
            "--set", "EMAILLOGIN=clerk",
            "--set", "EMAILFROM=billing@vendor.test",
            "--set", "EMAILSUBJECT=Your statement",
            "--set", "EMAILMATCHVERT=-1",
            "--set", "EMAILMATCHVERTTO=-1",
            "--set", "EMAILMATCHHORIZ=-1",
            "--set", "EMAILMATCHHORIZTO=-1",
            "--set", "EMAILHORIZAFTERTEXT=Email:"};
}

// Killed at random points while it splits and mails 20 PDFs, or stopped,
// and started again each time: in the end every piece is there once, under its own
// name, and every customer got one mail; more only where the journal says
// the mail was in flight when the watcher died.
// The pieces of a folder (its temporaries left out), each with its inode: a
// piece written again is a new file.
std::map<std::string, ino_t> piecesOf(const fs::path& folder) {
    std::map<std::string, ino_t> pieces;
    for (const auto& name : names(folder)) {
        struct stat info {};
        if (name.ends_with(".pdf") && stat((folder / name).c_str(), &info) == 0) pieces[name] = info.st_ino;
    }
    return pieces;
}

// A source cut off half-way is taken again: the pieces it wrote stay as they
// are (at most the one in flight is written again), the others are written.
TEST(Watch, ACutOffSourceKeepsThePiecesItWrote) {
    testing::TempDir dir;
    const fs::path inbox = dir / "inbox", out = dir / "out";
    fs::create_directories(inbox);
    std::vector<std::string> accounts;
    for (int n = 1; n <= 300; ++n) accounts.push_back("A" + std::to_string(n));
    writeStatements(dir / "drop.pdf", accounts);
    fs::rename(dir / "drop.pdf", inbox / "run.pdf");
    const std::vector<std::string> args = {"--settle", "0.05", "--set", "OUTPUTDIR=" + out.string(), inbox.string()};
    std::map<std::string, ino_t> before;
    {
        Watcher first(dir, args);
        ASSERT_TRUE(waitFor([&] { return piecesOf(out).size() >= 10; })) << first.log();
        first.signal(SIGKILL);
        first.wait();
        before = piecesOf(out);
    }
    ASSERT_LT(before.size(), accounts.size());
    Watcher second(dir, args);
    ASSERT_TRUE(waitFor([&] { return emptied(inbox); })) << second.log();
    second.signal(SIGTERM);
    EXPECT_EQ(second.wait(), 0);
    const auto after = piecesOf(out);
    EXPECT_EQ(after.size(), accounts.size());
    int writtenAgain = 0;
    for (const auto& [name, inode] : before) writtenAgain += after.at(name) != inode;
    EXPECT_LE(writtenAgain, 1) << second.log();
    EXPECT_EQ(names(inbox / "done"), std::set<std::string>{"run.pdf"});
}

TEST(Watch, KilledAtRandomPointsLeavesEveryPieceAndMailOnce) {
    testing::TempDir dir;
    testing::SmtpServer server(dir, "plain");
    ASSERT_GT(server.port(), 0);
    const fs::path inbox = dir / "inbox", out = dir / "out";
    fs::create_directories(inbox);
    std::set<std::string> pieces, customers;
    for (int file = 1; file <= 20; ++file) {
        std::vector<std::string> accounts;
        for (int piece = 1; piece <= 3; ++piece) {
            accounts.push_back("F" + std::to_string(file) + "P" + std::to_string(piece));
            pieces.insert("extract_" + accounts.back() + ".pdf");
            customers.insert(accounts.back() + "@example.com");
        }
        writeStatements(dir / "drop.pdf", accounts);
        fs::rename(dir / "drop.pdf", inbox / ("run" + std::to_string(file) + ".pdf"));
    }
    std::vector<std::string> args = mailSettings(server.port());
    args.insert(args.end(), {"--settle", "0.05", "--jobs", "2", "--set", "OUTPUTDIR=" + out.string(), inbox.string()});

    std::mt19937 random(20261125);
    int kills = 0;
    for (; kills < 40 && !emptied(inbox); ++kills) {
        Watcher watcher(dir, args);
        // Every third one is stopped as a service is: after the pieces in hand.
        const bool stopped = kills % 3 == 2 && watcher.watching();
        std::this_thread::sleep_for(std::chrono::milliseconds(std::uniform_int_distribution(10, 150)(random)));
        watcher.signal(stopped ? SIGTERM : SIGKILL);
        ASSERT_EQ(watcher.wait(), stopped ? 0 : 128 + SIGKILL) << watcher.log();
    }
    Watcher last(dir, args);
    ASSERT_TRUE(waitFor([&] { return emptied(inbox); }, std::chrono::seconds(40))) << last.log();
    ASSERT_TRUE(last.watching());
    last.signal(SIGTERM);
    EXPECT_EQ(last.wait(), 0);
    // The kills did cut sources off half-way, and they were taken again.
    int takenAgain = 0;
    for (const auto& name : names(dir.path()))
        if (name.starts_with("watch-")) {
            const std::string log = readFile(dir / name);
            for (auto at = log.find("Taking again"); at != std::string::npos; at = log.find("Taking again", at + 1))
                ++takenAgain;
        }
    EXPECT_GT(takenAgain, 0);

    EXPECT_EQ(names(inbox / "done").size(), 20u) << last.log();
    EXPECT_TRUE(names(inbox / "error").empty()) << last.log();
    EXPECT_EQ(names(out), pieces);
    const auto mails = journalMails(dir);
    const auto got = received(server);
    ASSERT_EQ(mails.size(), customers.size());
    for (const auto& customer : customers) {
        const auto& journal = mails.at(customer);
        EXPECT_EQ(journal.status, "sent") << customer;
        const auto count = got.find(customer);
        ASSERT_NE(count, got.end()) << customer << " got no mail";
        EXPECT_LE(count->second, 1 + journal.cutOff) << customer;
    }
    // What went out is what was written.
    for (const auto& message : server.messages())
        for (const auto& name : names(message))
            if (name.starts_with("extract_")) {
                EXPECT_EQ(readFile(message / name), readFile(out / name)) << name;
            }
}

// A mail the server put off is tried again until the server takes it; one it
// refused is not. Mails that failed are listed, and sent again, as they
// were, once the server is back.
TEST(MailFollowUp, RetriesWhatWasPutOffAndResendsWhatFailed) {
    testing::TempDir dir;
    const int port = testing::SmtpServer::freePort();
    writeStatements(dir / "run.pdf", {"C1", "C2"});
    std::string settings = "--set OUTPUTDIR=" + quoted(dir / "out");
    for (const auto& arg : mailSettings(port)) settings += " " + testing::quoted(fs::path(arg));
    const std::string password = "VELLIRA_EMAILPASSWORD=s3cret";

    // No server: both mails fail at once without a retry time.
    const auto failed = testing::runProgram(dir, "split " + settings + " " + quoted(dir / "run.pdf"), password);
    EXPECT_EQ(failed.status, 3) << failed.err;
    auto mails = journalMails(dir, "--failed");
    ASSERT_EQ(mails.size(), 2u);
    EXPECT_EQ(mails["C1@example.com"].status, "failed");
    EXPECT_EQ(journalMails(dir, "--failed --since '2999-01-01'").size(), 0u);
    EXPECT_EQ(testing::runProgram(dir, "mail-status --since yesterday", password).status, 2);

    {
        // The server comes back while the retries wait.
        std::optional<testing::SmtpServer> late;
        std::thread starter([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(1500));
            late.emplace(dir, "plain", std::vector<std::string>{}, port);
        });
        writeStatements(dir / "later.pdf", {"C3"});
        const auto retried = testing::runProgram(
            dir, "split " + settings + " --set EMAILRETRYSECONDS=30 " + quoted(dir / "later.pdf"), password);
        starter.join();
        EXPECT_EQ(retried.status, 0) << retried.err;
        EXPECT_EQ(journalMails(dir)["C3@example.com"].status, "sent");
        EXPECT_GE(journalMails(dir)["C3@example.com"].attempts, 2);

        // A refusal (wrong password: 535) is final at once.
        const auto start = std::chrono::steady_clock::now();
        const auto refused =
            testing::runProgram(dir, "split " + settings + " --set EMAILRETRYSECONDS=30 " + quoted(dir / "later.pdf"),
                                "VELLIRA_EMAILPASSWORD=wrong");
        EXPECT_EQ(refused.status, 3);
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));

        // The three that failed are sent again, with the same message and
        // the right password.
        const auto resent = testing::runProgram(dir, "mail-resend --failed --since 2000-01-01", password);
        EXPECT_EQ(resent.status, 0) << resent.err;
        EXPECT_EQ(received(*late),
                  (std::map<std::string, int>{{"C1@example.com", 1}, {"C2@example.com", 1}, {"C3@example.com", 2}}));
        for (const auto& message : late->messages())
            EXPECT_NE(readFile(message / "headers.txt").find("Subject: Your statement\n"), std::string::npos);
    }
    mails = journalMails(dir);
    EXPECT_EQ(mails["C1@example.com"].status, "sent");
    EXPECT_EQ(mails["C1@example.com"].attempts, 2);
    EXPECT_TRUE(journalMails(dir, "--failed").empty());
    EXPECT_EQ(testing::runProgram(dir, "mail-resend --failed", password).err, "No failed mail to send again.\n");
}

// The service unit as the package installs it, checked by systemd itself.
TEST(ServiceUnit, PassesSystemdAnalyzeVerify) {
    if (std::system("command -v systemd-analyze >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "systemd-analyze is not installed (package systemd)";
    testing::TempDir dir;
    // The unit names the installed program: here the one just built.
    std::string unit = readFile(VELLIRA_SOURCE_DIR "/packaging/vellira-batch-watch@.service");
    ASSERT_NE(unit.find("ExecStart=/usr/bin/vellira-batch watch"), std::string::npos);
    unit.replace(unit.find("/usr/bin/vellira-batch"), 22, VELLIRA_BATCH_EXE);
    std::ofstream(dir / "vellira-batch-watch@.service") << unit;
    const auto output = dir / "verify.txt";
    const int status = std::system(("cd " + quoted(dir.path()) +
                                    " && systemd-analyze verify --man=no ./vellira-batch-watch@month-end.service >" +
                                    quoted(output) + " 2>&1")
                                       .c_str());
    EXPECT_EQ(status, 0) << readFile(output);
    EXPECT_EQ(readFile(output), "");  // not even a warning
}

}  // namespace
}  // namespace vellira
