// The split and show commands as a user runs them on a real PDF.
#include "core/Platform.h"
#include "files/ParametersFile.h"
#include "fixtures/PdfFixture.h"
#include "support/OutputPdf.h"
#include "support/RunProgram.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <algorithm>
#include <chrono>
#include <fstream>
#include <future>
#include <optional>
#include <regex>
#include <thread>

namespace vellira {
namespace {

using testing::pageMarkers;
using testing::quoted;
using testing::readFile;
using testing::runProgram;

// Ten pages; "account:" and a customer number open pages 1, 4 and 9.
std::filesystem::path writeTenPages(const testing::TempDir& dir) {
    fixtures::Document document;
    for (int page = 1; page <= 10; ++page) {
        std::vector<std::string> lines;
        if (page == 1 || page == 4 || page == 9) lines.push_back("account: C" + std::to_string(page * 100));
        lines.push_back("Statement page p" + std::to_string(page));
        document.pages.push_back(fixtures::textPage(lines));
    }
    const auto pdf = dir / "run.pdf";
    fixtures::writePdf(document, pdf);
    return pdf;
}

// A copy of a PDF with the `index`-th kid of its page tree (0-based) made
// `kid`, in as many bytes, so that the file is damaged only there.
std::filesystem::path withKid(const std::filesystem::path& pdf, std::size_t index, const std::string& kid,
                              const std::string& name) {
    std::string bytes = readFile(pdf);
    std::smatch kids;
    std::regex_search(bytes, kids, std::regex(R"(/Kids\[([^\]]*)\])"));
    std::size_t at = static_cast<std::size_t>(kids.position(1));
    for (std::size_t skip = 0; skip < index; ++skip) at = bytes.find(" R", at) + 3;
    const std::size_t end = bytes.find(" R", at) + 2;
    bytes.replace(at, end - at, (kid + std::string(end - at, ' ')).substr(0, end - at));
    const auto copy = pdf.parent_path() / name;
    std::ofstream(copy, std::ios::binary) << bytes;
    return copy;
}

// Report text with the run's date and time masked.
std::string masked(std::string text) {
    text = std::regex_replace(text, std::regex(R"(\d\d/\d\d/\d\d)"), "MM/DD/YY");
    return std::regex_replace(text, std::regex(R"(\d\d:\d\d:\d\d)"), "hh:mm:ss");
}

TEST(SplitCommand, CutsAtEachMatchNamesByTheNextWordAndReports) {
    testing::TempDir dir;
    const auto pdf = writeTenPages(dir);
    const auto out = dir / "out";
    const auto result =
        runProgram(dir, "split --set OUTPUTDIR=" + quoted(out) + " --set REPORTOPTIONSTXT=1 " + quoted(pdf));
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "Done\t" + pdf.string() + "\n");
    // Without a terminal, one line per document tells a log how it went.
    EXPECT_EQ(result.err,
              pdf.string() + ": 10 page(s), 3 file(s) written\n3 file(s) written to " + out.string() + "\n");

    const std::vector<std::pair<std::string, std::vector<std::string>>> expected = {
        {"extract_C100.pdf", {"p1", "p2", "p3"}},
        {"extract_C400.pdf", {"p4", "p5", "p6", "p7", "p8"}},
        {"extract_C900.pdf", {"p9", "p10"}},
    };
    std::size_t files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(out)) {
        ++files;
        EXPECT_TRUE(entry.is_regular_file()) << entry.path();
    }
    EXPECT_EQ(files, expected.size());
    for (const auto& [name, markers] : expected) EXPECT_EQ(pageMarkers(out / name), markers) << name;

    const std::string o = out.string() + "/";
    EXPECT_EQ(masked(readFile(pdf.string() + "_report.txt")),
              "\t\t\t\tVellira v4.01 Report\t\t\tMM/DD/YY hh:mm:ss\r\n\r\n"
              "\tPDF Filename: " +
                  pdf.string() +
                  "\r\n\tFind: account:\r\n\r\n"
                  "Page: 1  - 3 \tC100                          \tOutput file:" +
                  o +
                  "extract_C100.pdf\r\n"
                  "Page: 4  - 8 \tC400                          \tOutput file:" +
                  o +
                  "extract_C400.pdf\r\n"
                  "Page: 9  - 10\tC900                          \tOutput file:" +
                  o + "extract_C900.pdf\r\n\r\n\t3 PDF file(s)\r\n");
    const auto shown = runProgram(dir, "show " + quoted(pdf));
    EXPECT_EQ(shown.status, 0) << shown.err;
    EXPECT_EQ(shown.out, "page 1: account:\npage 4: account:\npage 9: account:\n");
    EXPECT_EQ(shown.err, "No more matches found.\n");
}

TEST(SplitCommand, EveryRowGetsItsStatusAndTheRunGoesOn) {
    testing::TempDir dir;
    const auto good = writeTenPages(dir);
    std::ofstream(dir / "damaged.pdf") << "%PDF-1.4\nthis is not a PDF at all\n";
    fixtures::Document locked{{fixtures::textPage({"account: X1"})}, {}, "secret"};
    fixtures::writePdf(locked, dir / "locked.pdf");
    const auto out = dir / "out";

    const auto result = runProgram(dir, "split --set OUTPUTDIR=" + quoted(out) + " " + quoted(dir / "missing.pdf") +
                                            " " + quoted(dir / "damaged.pdf") + " " + quoted(dir / "locked.pdf") + " " +
                                            quoted(good) + " " + quoted(dir / "tmp"));
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "file error\t" + (dir / "missing.pdf").string() + "\nCan't open\t" +
                              (dir / "damaged.pdf").string() + "\nPermissions error\t" + (dir / "locked.pdf").string() +
                              "\nDone\t" + good.string() + "\nfile error\t" + (dir / "tmp").string() + "\n");
    EXPECT_EQ(result.err, "Can't open file: " + (dir / "damaged.pdf").string() +
                              ": no objects found\nDone, some errors occurred.\n" + good.string() +
                              ": 10 page(s), 3 file(s) written\n3 file(s) written to " + out.string() + "\n");
    EXPECT_TRUE(std::filesystem::exists(out / "extract_C900.pdf"));

    // A missing file alone is not an error of the run's PDFs.
    const auto missingOnly = runProgram(
        dir, "split --set OUTPUTDIR=" + quoted(out) + " " + quoted(dir / "missing.pdf") + " " + quoted(good));
    EXPECT_EQ(missingOnly.status, 1);
    EXPECT_EQ(missingOnly.err,
              good.string() + ": 10 page(s), 3 file(s) written\n3 file(s) written to " + out.string() + "\n");
}

TEST(SplitCommand, BatchListRowsCarryTheirOwnSettingsOnward) {
    testing::TempDir dir;
    const auto pdf = writeTenPages(dir);
    std::filesystem::copy_file(pdf, dir / "second.pdf");
    std::filesystem::copy_file(pdf, dir / "third.pdf");
    std::ofstream(dir / "notes.pdf") << "plain text, not a PDF";
    // The row's own setup cuts at "Statement" (every page), names by page, into
    // another folder.
    std::ofstream(dir / "pages.pcs", std::ios::binary)
        << "FINDSTRING;Statement \r\nEXTRACT;Page start as filename \r\nOUTPUTDIR;" << (dir / "pages").string()
        << " \r\n";
    std::ofstream(dir / "run.lst") << "~" << (dir / "skipped.pdf").string() << "|\n+" << (dir / "missing.pdf").string()
                                   << "|\n+" << (dir / "notes.pdf").string() << "|\n+" << (dir / "second.pdf").string()
                                   << "|" << (dir / "pages.pcs").string() << "\n+" << (dir / "third.pdf").string()
                                   << "|\n";
    std::ofstream(dir / "job.pcs", std::ios::binary)
        << "REPORTOPTIONSTXT;1 \r\nOUTPUTDIR;" << (dir / "accounts").string() << " \r\n";
    const auto result = runProgram(
        dir, "split --params " + quoted(dir / "job.pcs") + " --list " + quoted(dir / "run.lst") + " " + quoted(pdf));
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "Ready.\t" + (dir / "skipped.pdf").string() + "\nfile error\t" +
                              (dir / "missing.pdf").string() + "\nCan't open\t" + (dir / "notes.pdf").string() +
                              "\nDone\t" + (dir / "second.pdf").string() + "\nDone\t" + (dir / "third.pdf").string() +
                              "\nDone\t" + pdf.string() + "\n");
    EXPECT_TRUE(result.err.ends_with("Done, some errors occurred.\n" + pdf.string() +
                                     ": 10 page(s), 10 file(s) written\n30 file(s) written to " +
                                     (dir / "pages").string() + "\n"))
        << result.err;
    // The later rows write the same names again: each page's file is said to
    // be written over, twice.
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), 'W'), 20) << result.err;
    EXPECT_NE(result.err.find("Warning: '" + (dir / "pages" / "extract_4.pdf").string() +
                              "' was written again with pages 4-4, replacing pages 4-4 written earlier in this run\n"),
              std::string::npos);
    // Before the row with its own setup nothing was cut; from it on, every
    // page is a file of its own in the other folder, for all later rows.
    EXPECT_FALSE(std::filesystem::exists(dir / "accounts"));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir / "pages"), {}), 10);
    EXPECT_EQ(pageMarkers(dir / "pages" / "extract_4.pdf"), std::vector<std::string>{"p4"});
    EXPECT_NE(readFile(pdf.string() + "_report.txt").find("\tFind: Statement\r\n"), std::string::npos);
    EXPECT_NE(readFile(dir / "third.pdf_report.txt").find("\t10 PDF file(s)\r\n"), std::string::npos);
    // The settings the run started with were saved first.
    EXPECT_NE(readFile(dir / "config" / "vellira" / "VelliraBatch.ini")
                  .find("\r\nOUTPUTDIR;" + (dir / "accounts").string() + " \r\n"),
              std::string::npos);
}

TEST(SplitCommand, RefusesWhatCannotRun) {
    testing::TempDir dir;
    const auto pdf = writeTenPages(dir);
    std::ofstream(dir / "bad.pcs", std::ios::binary) << "EXTRACT;next word as filename \r\n";
    const auto out = dir / "out";
    const auto rootless = dir / "rootless.pdf";
    std::ofstream(rootless, std::ios::binary)
        << std::regex_replace(readFile(pdf), std::regex("/Root \\d+"), "/Root 999");
    struct Case {
        std::string arguments;
        int status;
        std::string err;  // what standard error must contain
    } const cases[] = {
        {"split --set NOSUCHKEY=1 " + quoted(pdf), 2, "NOSUCHKEY"},
        {"split --set FINDSTRING " + quoted(pdf), 2, "KEY=VALUE"},
        {"split --set 'FINDSTRING=account: C100' --set 'PAGEEXTRACT=From match to next match using position h,v' " +
             quoted(pdf),
         1, "When using h,v position only one word is allowed in search, that word is the position\n"},
        {"split --set 'FINDSTRING=a b c d e f g h i j k l m n o p q r s t u' " + quoted(pdf), 1, "at most 20"},
        {"split --set USECURRENT=1", 1, "Please open a document first or set it to use a filename\n"},
        {"split " + quoted(rootless), 1, "Can't open file: " + rootless.string() + ": object out of range (999 0 R)"},
        {"split --set 'EXTRACT=next word as filename' " + quoted(pdf), 2,
         "'next word as filename' is no EXTRACT mode; did you mean Next word as filename?"},
        {"split --params " + quoted(dir / "bad.pcs") + " " + quoted(pdf), 1,
         "Unknown filename mode: \"next word as filename\". The filename modes are:\n\"Next word as filename\"\n"},
        {"split", 1,
         "Please add files to batch list to process or load a pdf and check use current to process a single pdf\n"},
        {"show --set 'PAGEEXTRACT=Bookmarks' " + quoted(pdf), 0, "Sorry can't show with bookmarks, can extract only\n"},
        {"show --set FINDSTRING=nowhere " + quoted(pdf), 0,
         "No matches found,\r\nplease note: word searching is case sensitive & must contain the full word\n"},
    };
    for (const auto& c : cases) {
        const auto result = runProgram(dir, c.arguments + " --set OUTPUTDIR=" + quoted(out));
        EXPECT_EQ(result.status, c.status) << c.arguments << "\n" << result.err;
        EXPECT_NE(result.err.find(c.err), std::string::npos) << c.arguments << "\n" << result.err;
        EXPECT_FALSE(std::filesystem::exists(out)) << c.arguments;
    }

    // A refused run still saves the settings it was given, "[DESKTOP]" as written.
    const auto refused =
        runProgram(dir,
                   "split --set 'FINDSTRING=account: C100' --set 'PAGEEXTRACT=From match to next match using "
                   "position h,v' --set 'OUTPUTDIR=[DESKTOP]/parts' " +
                       quoted(pdf));
    EXPECT_EQ(refused.status, 1);
    const std::string saved = readFile(dir / "config" / "vellira" / "VelliraBatch.ini");
    EXPECT_NE(saved.find("\r\nOUTPUTDIR;[DESKTOP]/parts \r\n"), std::string::npos) << saved;
}

TEST(SplitCommand, CurrentDocumentRunAsksAboutTheReport) {
    testing::TempDir dir;
    const auto pdf = writeTenPages(dir);
    const auto out = dir / "out";
    const auto result = runProgram(dir, "split --yes --set USECURRENT=1 --set FILENAME=" + quoted(pdf) +
                                            " --set REPORTOPTIONSTXT=1 --set OUTPUTDIR=" + quoted(out));
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err,
              "Done! - 3 PDF file(s) output\r\n\r\nReport files have been generated, do you want to view text report "
              "?\n(answered yes)\n" +
                  pdf.string() + "_report.txt\n" + pdf.string() +
                  ": 10 page(s), 3 file(s) written\n3 file(s) written to " + out.string() + "\n");

    const auto none =
        runProgram(dir, "split --set FINDSTRING=nowhere --set USECURRENT=1 --set FILENAME=" + quoted(pdf) +
                            " --set OUTPUTDIR=" + quoted(dir / "none"));
    EXPECT_EQ(none.status, 1);
    EXPECT_EQ(none.err,
              "Done! and no matches we're found!,\r\nplease note: word searching is case sensitive & must contain "
              "the full word\n" +
                  pdf.string() + ": 10 page(s), 0 file(s) written\n0 file(s) written\n");
}

// The exit status and the last line of standard error tell a scheduled job
// what came of the run: 0 all written, 3 written with warnings, 1 failed.
// While it lives, the programs started write no file past `bytes`, as on a
// full disk.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) : handler_(signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &before_);
        rlimit limit = before_;
        limit.rlim_cur = bytes;
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &before_);
        signal(SIGXFSZ, handler_);
    }

private:
    rlimit before_{};
    sighandler_t handler_;
};

TEST(SplitCommand, ExitStatusAndSummaryTellWhatHappened) {
    testing::TempDir dir;
    const auto pdf = writeTenPages(dir);
    const auto many = dir / "many.pdf";  // 60 one-page statements
    fixtures::writePdf(fixtures::statements(60, 1), many);
    const auto out = dir / "out";
    const std::string to = " file(s) written to " + out.string();
    struct Case {
        std::string what, settings;
        int status;
        std::string summary;
        std::filesystem::path source;  // the ten pages when none
        // Files that hold "earlier" before the run and after it, the run
        // writing no file past 4 KB.
        std::vector<std::filesystem::path> kept;
    } const cases[] = {
        {"all written", "", 0, "3" + to},
        {"a save fails", "", 3, "2" + to + "; 1 save(s) failed"},
        {"nothing matches", "--set FINDSTRING=nowhere", 3, "0 file(s) written"},
        {"the mails fail", "--set EMAILENABLE=1 --set EMAILSMTP=127.0.0.1:1 --set EMAILFROM=a@b.test", 3,
         "3" + to + "; 3 mail(s) failed"},
        // Damage MuPDF reads past opens: the lost page is left out.
        {"a page is lost", "", 0, "3" + to, withKid(pdf, 9, "999 0 R", "lost.pdf")},
        // A page that cannot be found ends the scan: the open range is not written.
        {"a page cannot be read", "", 3, "1" + to + "; 1 scan(s) failed", withKid(pdf, 5, "2 0 R", "cycle.pdf")},
        // A report or a split list that cannot be written whole, split
        // beside another row too.
        {"the reports fail",
         "--jobs 2 --set REPORTOPTIONSTXT=1 --set REPORTOPTIONSCSV=1 " + quoted(pdf),
         3,
         "63" + to + "; 2 save(s) failed",
         many,
         {many.string() + "_report.txt", many.string() + "_report.csv"}},
        {"the split list fails",
         "--set CREATELIST=1 --set FILENAME=" + quoted(dir / "job"),
         3,
         "0 file(s) written; 1 save(s) failed",
         many,
         {dir / "job_splitlist.spl"}},
    };
    for (const auto& c : cases) {
        std::filesystem::remove_all(out);
        // A folder where an output should go makes its save fail.
        if (c.what == "a save fails") std::filesystem::create_directories(out / "extract_C400.pdf" / "inside");
        const auto source = c.source.empty() ? pdf : c.source;
        for (const auto& file : c.kept) std::ofstream(file, std::ios::binary) << "earlier\r\n";
        std::optional<FileSizeLimit> full;
        if (!c.kept.empty()) full.emplace(4096);
        const auto result =
            runProgram(dir, "split " + c.settings + " --set OUTPUTDIR=" + quoted(out) + " " + quoted(source));
        full.reset();
        EXPECT_EQ(result.status, c.status) << c.what << "\n" << result.err;
        const bool twoRows = c.settings.find(quoted(pdf)) != std::string::npos;
        EXPECT_EQ(result.out, (twoRows ? "Done\t" + pdf.string() + "\n" : "") + "Done\t" + source.string() + "\n")
            << c.what;
        for (const auto& file : c.kept) {
            EXPECT_EQ(readFile(file), "earlier\r\n") << file;
            EXPECT_NE(
                result.err.find("file error! can't finish writing file: " + file.string() + " (File too large)\n"),
                std::string::npos)
                << result.err;
        }
        for (const auto& entry : std::filesystem::directory_iterator(dir.path()))
            EXPECT_FALSE(entry.path().filename().string().starts_with(".vellira-")) << c.what;
        EXPECT_TRUE(result.err.ends_with("\n" + c.summary + "\n") || result.err == c.summary + "\n") << c.what << "\n"
                                                                                                     << result.err;
    }

    // Stopped by Ctrl-C, TERM or HUP, alone or beside another row: each row
    // is done as far as it went, the run says so with 3 and leaves no
    // temporary file. It first removes those of runs that no longer run on
    // this host (a process id used again counts as ended), never those of a
    // live run, of another host, or anything else.
    fixtures::writePdf(fixtures::statements(3000, 5), dir / "long.pdf");
    std::filesystem::copy_file(dir / "long.pdf", dir / "long2.pdf");
    const RunIdentity& me = thisRun();
    const std::vector<std::filesystem::path> others = {temporaryBeside(out / "x", 1),
                                                       temporaryBeside(out / "x", 2, {me.host + 1, 0x3ffffff0u, 1}),
                                                       out / ".vellira-notes.tmp"};
    const std::vector<std::filesystem::path> ended = {
        temporaryBeside(out / "x", 3, {me.host, 0x3ffffff0u, 1}),
        temporaryBeside(out / "x", 4, {me.host, me.process, me.started + 1})};
    for (const auto& [signal, rows] : {std::pair{SIGINT, "long.pdf"}, std::pair{SIGTERM, "long.pdf long2.pdf"},
                                       std::pair{SIGHUP, "long.pdf long2.pdf"}}) {
        std::filesystem::remove_all(out);
        std::filesystem::create_directories(out);
        for (const auto& planted : others) std::ofstream(planted) << "kept";
        for (const auto& planted : ended) std::ofstream(planted) << "left by a killed run";
        const std::string command = "cd " + quoted(dir.path()) +
                                    " && exec '" VELLIRA_BATCH_EXE "' split --jobs 2 --set OUTPUTDIR=" + quoted(out) +
                                    " " + rows + " >stdout.txt 2>stderr.txt";
        const pid_t pid = fork();
        if (pid == 0) {
            setenv("XDG_CONFIG_HOME", (dir / "config").c_str(), 1);
            execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char*>(nullptr));
            _exit(127);
        }
        for (int wait = 0; wait < 2000; ++wait) {
            std::error_code missing;
            if (std::distance(std::filesystem::directory_iterator(out, missing), {}) >= 10) break;
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        kill(pid, signal);
        int status = 0;
        waitpid(pid, &status, 0);
        ASSERT_TRUE(WIFEXITED(status)) << signal;
        EXPECT_EQ(WEXITSTATUS(status), 3) << signal;
        for (const auto& planted : others) EXPECT_TRUE(std::filesystem::exists(planted)) << planted;
        long written = 0;
        for (const auto& entry : std::filesystem::directory_iterator(out)) {
            const bool other = std::find(others.begin(), others.end(), entry.path()) != others.end();
            EXPECT_TRUE(other || !isTemporaryName(entry.path())) << signal << " left " << entry.path();
            written += !other;
        }
        EXPECT_LT(written, 1200) << signal;
        if (signal == SIGINT) {
            EXPECT_TRUE(readFile(dir / "stderr.txt").ends_with(std::to_string(written) + to + "\n"))
                << readFile(dir / "stderr.txt");
        }
    }
}

// A setup made on the command line is the file "&Save Setup" writes, and a
// split can speak JSON to a script.
TEST(SplitCommand, SetupFilesAndJsonForScripts) {
    testing::TempDir dir;
    const auto pdf = writeTenPages(dir);
    const std::vector<std::pair<std::string, std::string>> sets = {{"FINDSTRING", "Invoice No"},
                                                                   {"MATCHPOSH", "100-120|130"},
                                                                   {"PAGEEXTRACT", "Matched page only"},
                                                                   {"TOPAGE", "-2"},
                                                                   {"OUTPUTDIR", "/srv/out"},
                                                                   {"EMAILMSG", "Dear customer,\nhere it is."}};
    std::string arguments = "setup --print --save " + quoted(dir / "job.pcs");
    SplitSettings expected;
    for (const auto& [key, value] : sets) {
        arguments += " --set '" + key + "=" + value + "'";
        assignKey(expected, *findSettingsKey(key), value);
    }
    const auto saved = runProgram(dir, arguments);
    EXPECT_EQ(saved.status, 0) << saved.err;
    EXPECT_EQ(saved.err, (dir / "job.pcs").string() + " saved.\n");
    EXPECT_EQ(saved.out, readFile(dir / "job.pcs"));
    SplitSettings loaded;
    std::string name = (dir / "job.pcs").string();
    readParameters(name, loaded, {dir / "legacy", false});
    EXPECT_EQ(loaded, expected);
    EXPECT_EQ(runProgram(dir, "setup --set FINDSTRING=x").status, 2);

    const auto out = dir / "out";
    const auto split = runProgram(dir, "split --json --set OUTPUTDIR=" + quoted(out) + " " + quoted(pdf));
    EXPECT_EQ(split.status, 0) << split.err;
    // The JSON parses, and lists each file the split wrote with its pages.
    const auto json = nlohmann::json::parse(split.out);
    std::string listed = json["rows"][0]["status"].get<std::string>() + "\n";
    for (const auto& o : json["outputs"])
        listed += o["path"].get<std::string>() + " " + o["first"].dump() + " " + o["last"].dump() + " " +
                  o["name"].get<std::string>() + "\n";
    const std::string o = out.string() + "/";
    EXPECT_EQ(listed, "Done\n" + o + "extract_C100.pdf 1 3 C100\n" + o + "extract_C400.pdf 4 8 C400\n" + o +
                          "extract_C900.pdf 9 10 C900\n");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(out), {}), 3);
}

// PDFs that lie about themselves cost what their real size costs, and a
// bookmark that points nowhere does not cut.
TEST(SplitCommand, HostilePdfsStayCheap) {
    testing::TempDir dir;
    const auto honest = writeTenPages(dir);
    const std::string bytes = readFile(honest);
    for (const std::string claim : {"50000000", "2147483647", "-5"}) {
        std::string lying = bytes;
        const auto count = lying.find("/Count 10");
        ASSERT_NE(count, std::string::npos);
        lying.replace(count, 9, "/Count " + claim);
        const auto pdf = dir / ("count" + claim + ".pdf");
        std::ofstream(pdf, std::ios::binary) << lying;
        const auto start = std::chrono::steady_clock::now();
        const auto result = runProgram(dir, "split --set OUTPUTDIR=" + quoted(dir / "out") + " " + quoted(pdf));
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10)) << claim;
        EXPECT_NE(result.status, 2) << claim << "\n" << result.err;
    }

    fixtures::Document book;
    for (int page = 1; page <= 4; ++page) book.pages.push_back(fixtures::textPage({"p" + std::to_string(page)}));
    book.bookmarks = {{"A", 0}, {"Nowhere", 99}, {"B", 2}};
    fixtures::writePdf(book, dir / "book.pdf");
    const auto out = dir / "chapters";
    const auto result = runProgram(dir,
                                   "split --set PAGEEXTRACT=Bookmarks --set 'EXTRACT=Use bookmark as filename' "
                                   "--set PREFIXFILENAME= --set OUTPUTDIR=" +
                                       quoted(out) + " " + quoted(dir / "book.pdf"));
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(pageMarkers(out / "A.pdf"), (std::vector<std::string>{"p1", "p2"}));
    EXPECT_EQ(pageMarkers(out / "B.pdf"), (std::vector<std::string>{"p3", "p4"}));
}

// Whatever the text of a PDF says, nothing is written outside the output
// folder, no planted link is followed and no pipe holds the run.
TEST(SplitCommand, HostileNamesStayInTheirFolder) {
    testing::TempDir dir;
    fixtures::Document document;
    document.pages = {fixtures::textPage({"account: .."}), fixtures::textPage({"account: /etc/passwd"}),
                      fixtures::textPage({"account: C3"}), fixtures::Page{612, 792, 0, {{"../../../x", 300, 100}}}};
    const auto pdf = dir / "run.pdf";
    fixtures::writePdf(document, pdf);
    const auto out = dir / "a" / "out";
    std::filesystem::create_directories(out);
    std::ofstream(dir / "victim.txt") << "keep";
    std::filesystem::create_symlink(dir / "victim.txt", dir / "run.pdf_report.csv");
    ASSERT_EQ(mkfifo((out / "extract_C3.pdf").c_str(), 0600), 0);
    struct Case {
        std::string what, settings;
    } const cases[] = {
        {"captured text as a folder", "--set 'PREFIXFILENAME=[EXTRACTTEXTDIR]/'"},
        {"a word of the page in the name",
         "--set 'PREFIXFILENAME=[POS300,100]_' --set EXTRACT=\"Page start as filename\""},
        {"a planted report link", "--set REPORTOPTIONSCSV=1"},
    };
    for (const auto& c : cases) {
        const auto result =
            runProgram(dir, "split " + c.settings + " --set OUTPUTDIR=" + quoted(out) + " " + quoted(pdf));
        EXPECT_NE(result.status, 2) << c.what << "\n" << result.err;
        EXPECT_EQ(readFile(dir / "victim.txt"), "keep") << c.what;
        // Only the source, the victim, its link, the settings and the output tree.
        std::vector<std::string> outside;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(dir.path())) {
            const auto relative = std::filesystem::relative(entry.path(), dir.path()).string();
            if (!relative.starts_with("a") && !relative.starts_with("config") && !relative.starts_with("tmp") &&
                relative != "run.pdf" && relative != "victim.txt" && relative != "run.pdf_report.csv" &&
                relative != "stderr.txt")
                outside.push_back(relative);
        }
        EXPECT_EQ(outside, std::vector<std::string>{}) << c.what;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(dir / "a"))
            EXPECT_TRUE(entry.path().string().starts_with(out.string())) << c.what << ": " << entry.path();
    }
    EXPECT_TRUE(std::filesystem::is_directory(out / "__")) << "the captured \"..\" is a folder of its own";
    EXPECT_TRUE(std::filesystem::exists(out / "etcpasswd" / "etcpasswd.pdf"));
}

// Two runs at once append to the same outputs and write the same reports
// and split list: every output holds the pages of both, and each report and
// list is the whole one of a run, as that run alone writes it.
TEST(SplitCommand, TwoRunsAppendingAtOnceLoseNothing) {
    testing::TempDir dir, first, second;  // each run's own settings folder
    const auto a = dir / "a" / "s.pdf", b = dir / "b" / "s.pdf";
    std::filesystem::create_directories(a.parent_path());
    std::filesystem::create_directories(b.parent_path());
    std::filesystem::create_directories(dir / "reports");
    fixtures::writePdf(fixtures::statements(2000, 5), a);
    std::filesystem::copy_file(a, b);
    const auto out = dir / "out";
    const std::string split =
        "split -q --set ALWAYSAPPEND=1 --set REPORTOPTIONSTXT=1 --set REPORTOPTIONSCSV=1 "
        "--set REPORTOPTIONSOUTPUTFOLDER=" +
        quoted(dir / "reports") + " --set OUTPUTDIR=" + quoted(out) + " --set FILENAME=" + quoted(dir / "job") + " ";
    const auto asB = [&](std::string text) {
        for (std::size_t at = 0; (at = text.find(a.string(), at)) != std::string::npos;)
            text.replace(at, a.string().size(), b.string());
        return text;
    };
    for (const std::string list : {"", "--set CREATELIST=1 "}) {
        std::vector<std::filesystem::path> files = {dir / "reports" / "s_report.txt", dir / "reports" / "s_report.csv"};
        if (!list.empty()) files.push_back(dir / "job_splitlist.spl");
        std::filesystem::remove_all(out);
        ASSERT_EQ(runProgram(first, split + list + quoted(a)).status, 0);
        std::vector<std::string> alone;
        for (const auto& file : files) alone.push_back(masked(readFile(file)));

        std::filesystem::remove_all(out);
        auto one = std::async(std::launch::async, [&] { return runProgram(first, split + list + quoted(a)); });
        const auto other = runProgram(second, split + list + quoted(b));
        EXPECT_EQ(one.get().status, 0);
        EXPECT_EQ(other.status, 0) << other.err;
        for (std::size_t i = 0; i < files.size(); ++i) {
            const std::string written = masked(readFile(files[i]));
            EXPECT_TRUE(written == alone[i] || written == asB(alone[i])) << files[i];
        }
        if (!list.empty()) continue;
        std::size_t outputs = 0;
        MupdfHost host;
        for (const auto& entry : std::filesystem::directory_iterator(out)) {
            ++outputs;
            const DocHandle doc = host.openDocument(entry.path());
            EXPECT_EQ(host.pageCount(doc), 10) << entry.path();
            host.closeDocument(doc);
        }
        EXPECT_EQ(outputs, 400u);
    }
}

}  // namespace
}  // namespace vellira
