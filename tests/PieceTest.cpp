// Pieces by value: cut where a value changes, gathered across documents,
// named from a lookup list, and held back when they break a check, each run
// from the command line as a user would.
#include "fixtures/PdfFixture.h"
#include "support/Files.h"
#include "support/OutputPdf.h"
#include "support/RunProgram.h"
#include "support/SmtpServer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

namespace vellira {
namespace {

using testing::quoted;
using testing::runProgram;

// A statement page: its marker, the customer number in the box at the top
// right (none on a continuation page) and "Page N of M" at the foot.
fixtures::Page statementPage(const std::string& marker, const std::string& customer, int number, int count) {
    fixtures::Page page;
    page.words = {{marker, 72, 740}, {"Statement", 72, 700},
                  {"Page", 72, 40},  {std::to_string(number), 110, 40},
                  {"of", 130, 40},   {std::to_string(count), 150, 40}};
    if (!customer.empty()) {
        page.words.push_back({"Customer", 380, 760});
        page.words.push_back({customer, 460, 760});
    }
    return page;
}

// Every PDF under `folder` as "PATH: MARKERS", sorted.
std::string piecesIn(const std::filesystem::path& folder) {
    std::set<std::string> pieces;
    if (std::filesystem::exists(folder))
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
            if (entry.path().extension() != ".pdf") continue;
            std::string line = std::filesystem::relative(entry.path(), folder).string() + ":";
            for (const auto& marker : testing::pageMarkers(entry.path())) line += " " + marker;
            pieces.insert(line);
        }
    std::string text;
    for (const auto& piece : pieces) text += piece + "\n";
    return text;
}

TEST(Pieces, CutGatherNameAndCheckFromTheCommandLine) {
    testing::TempDir dir;
    // C-17 has two pages; C-18 three, the middle one a continuation page
    // without the number; C-19 lacks its page 2; the afternoon run holds a
    // credit note for C-17.
    const auto morning = dir / "morning.pdf";
    const auto afternoon = dir / "afternoon.pdf";
    fixtures::writePdf(
        {{statementPage("p1", "C-17", 1, 2), statementPage("p2", "C-17", 2, 2), statementPage("p3", "C-18", 1, 3),
          statementPage("p4", "", 2, 3), statementPage("p5", "C-18", 3, 3), statementPage("p6", "C-19", 1, 3),
          statementPage("p7", "C-19", 3, 3)}},
        morning);
    fixtures::writePdf({{statementPage("p8", "C-17", 1, 1)}}, afternoon);
    testing::writeFile(
        dir / "customers.csv",
        "Number;Name;Email\r\nC-17;Ada Lovelace;ada@example.com\r\n\"C-18\";\"Smith; John\";js@example.com\r\n");

    const std::string byValue = "--set SPLITONCHANGE=1 --set VALUEAREA=450,750,560,780 ";
    struct Case {
        std::string settings;
        std::string pdfs;
        std::string pieces;
        int status;
    };
    const std::string both = quoted(morning) + " " + quoted(afternoon);
    const Case cases[] = {
        {byValue, quoted(morning), "C-17.pdf: p1 p2\nC-18.pdf: p3 p4 p5\nC-19.pdf: p6 p7\n", 0},
        // The value after a search word, and a pattern's group, find the same pieces.
        {"--set SPLITONCHANGE=1 --set FINDSTRING=Customer", quoted(morning),
         "C-17.pdf: p1 p2\nC-18.pdf: p3 p4 p5\nC-19.pdf: p6 p7\n", 0},
        {"--set SPLITONCHANGE=1 --set PATTERNSEARCH=1 --set 'FINDSTRING=Customer C-(\\d+)'", quoted(morning),
         "17.pdf: p1 p2\n18.pdf: p3 p4 p5\n19.pdf: p6 p7\n", 0},
        // Without gathering the afternoon's C-17 replaces the morning's; with it, it follows.
        {byValue, both, "C-17.pdf: p8\nC-18.pdf: p3 p4 p5\nC-19.pdf: p6 p7\n", 0},
        {byValue + "--set GROUPBYVALUE=1", both, "C-17.pdf: p1 p2 p8\nC-18.pdf: p3 p4 p5\nC-19.pdf: p6 p7\n", 0},
        {byValue + "--set LOOKUPFILE=" + quoted(dir / "customers.csv") + " --set 'PREFIXFILENAME=[COL:Name] '",
         quoted(morning), " C-19.pdf: p6 p7\nAda Lovelace C-17.pdf: p1 p2\nSmith; John C-18.pdf: p3 p4 p5\n", 3},
        {byValue + "--set LOOKUPFILE=" + quoted(dir / "customers.csv") +
             " --set LOOKUPKEYCOLUMN=1 --set LOOKUPMISSING=Skip",
         quoted(morning), "C-17.pdf: p1 p2\nC-18.pdf: p3 p4 p5\n", 3},
        // C-19 lacks a page; with gathering, C-17's "1 of 1" credit note makes its page 1 twice.
        {byValue + "--set GROUPBYVALUE=1 --set 'CHECKPAGEOF=Page (\\d+) of (\\d+)'", both,
         "C-18.pdf: p3 p4 p5\nExceptions/C-17.pdf: p1 p2 p8\nExceptions/C-19.pdf: p6 p7\n", 3},
        {byValue + "--set CHECKMINPAGES=3 --set EXCEPTIONSLISTONLY=1", quoted(morning),
         "C-17.pdf: p1 p2\nC-18.pdf: p3 p4 p5\nC-19.pdf: p6 p7\n", 3},
        {byValue + "--set CHECKMAXPAGES=2 --set 'CHECKVALUE=C-1[79]' --set EXCEPTIONSFOLDER=" + quoted(dir / "held"),
         quoted(morning), "C-17.pdf: p1 p2\nC-19.pdf: p6 p7\n", 3},
    };
    int run = 0;
    for (const Case& each : cases) {
        const auto out = dir / ("out" + std::to_string(++run));
        const auto split = runProgram(dir, "split -q --set PREFIXFILENAME= " + each.settings +
                                               " --set OUTPUTDIR=" + quoted(out) + " " + each.pdfs);
        EXPECT_EQ(piecesIn(out), each.pieces) << each.settings << "\n" << split.err;
        EXPECT_EQ(split.status, each.status) << each.settings << "\n" << split.err;
    }
    // The absolute exceptions folder holds the piece too long.
    EXPECT_EQ(piecesIn(dir / "held"), "C-18.pdf: p3 p4 p5\n");

    // The report of the gathered run: each piece held back, with its pages
    // in both documents and the check it broke.
    EXPECT_EQ(testing::readFile(dir / "out8" / "Exceptions" / "exceptions.csv"),
              "Source,Pages,Value,Check,File\r\n" + morning.string() + ",\"1-2, " + afternoon.string() +
                  ":1\",C-17,page numbering: page 1 of 1 among pages of 2," +
                  (dir / "out8" / "Exceptions" / "C-17.pdf").string() + "\r\n" + morning.string() +
                  ",6-7,C-19,page numbering: page 2 of 3 missing," +
                  (dir / "out8" / "Exceptions" / "C-19.pdf").string() + "\r\n");
}

// Gathered pieces go out once the run is done, each to the recipient and
// with the subject its row of the list gives; pieces held back do not.
TEST(Pieces, MailGoesToTheListedRecipientOncePerGatheredPiece) {
    testing::TempDir dir;
    const auto morning = dir / "morning.pdf";
    const auto afternoon = dir / "afternoon.pdf";
    fixtures::writePdf(
        {{statementPage("p1", "C-17", 1, 2), statementPage("p2", "C-18", 1, 2), statementPage("p3", "C-19", 1, 1)}},
        morning);
    fixtures::writePdf({{statementPage("p4", "C-17", 2, 2), statementPage("p5", "C-18", 2, 3)}}, afternoon);
    testing::writeFile(dir / "customers.csv",
                       "Number,Name,Email\nC-17,Ada Lovelace,ada@example.com\nC-18,John Smith,js@example.com\n");
    testing::SmtpServer server(dir, "plain");
    const auto split = runProgram(
        dir,
        "split -q --set PREFIXFILENAME= --set SPLITONCHANGE=1 --set VALUEAREA=450,750,560,780 --set GROUPBYVALUE=1 "
        "--set LOOKUPFILE=" +
            quoted(dir / "customers.csv") +
            " --set LOOKUPEMAILCOLUMN=Email --set 'EMAILSUBJECT=Statement for [COL:Name]' --set 'CHECKPAGEOF=Page "
            "(\\d+) of (\\d+)' --set EMAILENABLE=1 --set EMAILSMTP=127.0.0.1:" +
            std::to_string(server.port()) +
            " --set EMAILLOGIN=clerk --set EMAILFROM=billing@vendor.test --set OUTPUTDIR=" + quoted(dir / "out") + " " +
            quoted(morning) + " " + quoted(afternoon),
        "VELLIRA_EMAILPASSWORD=s3cret");
    // C-18 shows pages 1 and 2 of 3; C-19 is not in the list: only C-17 goes out.
    EXPECT_EQ(split.status, 3) << split.err;
    const auto messages = server.messages();
    ASSERT_EQ(messages.size(), 1u) << split.err;
    EXPECT_EQ(testing::readFile(messages.front() / "envelope.txt"),
              "MAIL FROM: billing@vendor.test\nRCPT TO: ada@example.com\n");
    const std::string headers = testing::readFile(messages.front() / "headers.txt");
    EXPECT_NE(headers.find("Subject: Statement for Ada Lovelace\n"), std::string::npos) << headers;
    EXPECT_EQ(piecesIn(dir / "out"), "C-17.pdf: p1 p4\nC-19.pdf: p3\nExceptions/C-18.pdf: p2 p5\n");
}

TEST(Pieces, RefusesSettingsItCannotUse) {
    testing::TempDir dir;
    const auto pdf = dir / "run.pdf";
    fixtures::writePdf({{statementPage("p1", "C-17", 1, 1)}}, pdf);
    testing::writeFile(dir / "list.csv", "Number,Name\n1,A\n");
    const std::string list = quoted(dir / "list.csv");
    const std::pair<std::string, const char*> cases[] = {
        {"--set SPLITONCHANGE=1 --set VALUEAREA=450,750", "VALUEAREA takes left,bottom,right,top"},
        {"--set SPLITONCHANGE=1 --set FINDSTRING=", "SPLITONCHANGE reads each page's value"},
        {"--set SPLITONCHANGE=1 --set PAGEEXTRACT=Bookmarks", "the bookmark split modes by the bookmarks"},
        {"--set 'CHECKPAGEOF=Page (\\d+)'", "needs two groups"},
        {"--set 'CHECKVALUE=C-(1'", "CHECKVALUE: the pattern \"C-(1\" is not one"},
        {"--set LOOKUPFILE=" + quoted(dir / "missing.csv"), "Can't read the list"},
        {"--set LOOKUPFILE=" + list + " --set LOOKUPKEYCOLUMN=Account", "has no column \"Account\""},
        {"--set LOOKUPMISSING=Drop", "Unknown LOOKUPMISSING mode: \"Drop\""},
    };
    for (const auto& [settings, message] : cases) {
        const auto split =
            runProgram(dir, "split " + settings + " --set OUTPUTDIR=" + quoted(dir / "out") + " " + quoted(pdf));
        EXPECT_NE(split.status, 0) << settings;
        EXPECT_NE(split.err.find(message), std::string::npos) << settings << "\n" << split.err;
        EXPECT_FALSE(std::filesystem::exists(dir / "out")) << settings;
    }
}

}  // namespace
}  // namespace vellira
