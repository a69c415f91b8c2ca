// The split rules, through a scripted host: words at exact positions, every split mode and naming rule, and what each
// output holds.
#include "engine/MatchRules.h"
#include "run/BatchJob.h"
#include "support/Files.h"
#include "support/Jobs.h"
#include "support/RecordingInterface.h"
#include "support/ScriptedHost.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <fstream>
#include <functional>
#include <map>
#include <regex>

namespace vellira {
namespace {

using testing::ScriptedPage;

// One page of text lines: line i at v = 700 - 20 i, words 60 points apart from h = 72.
ScriptedPage page(const std::vector<std::string>& lines) {
    ScriptedPage words;
    int v = 700;
    for (const auto& line : lines) {
        int h = 72;
        std::size_t start = 0;
        while (start < line.size()) {
            const auto end = std::min(line.find(' ', start), line.size());
            if (end > start) words.push_back({line.substr(start, end - start), h, v});
            h += 60;
            start = end + 1;
        }
        v -= 20;
    }
    return words;
}

// A document of `count` pages; `text` gives the lines of a 1-based page. Pages must differ, so that each output page
// can be told by its words.
std::vector<ScriptedPage> document(int count, const std::function<std::vector<std::string>(int)>& text) {
    std::vector<ScriptedPage> pages;
    for (int number = 1; number <= count; ++number) pages.push_back(page(text(number)));
    return pages;
}

// `count` pages: the lines given for some, "text N" on the others.
std::vector<ScriptedPage> withLines(int count, const std::map<int, std::vector<std::string>>& lines) {
    return document(count, [&](int n) {
        return lines.count(n) ? lines.at(n) : std::vector<std::string>{"text " + std::to_string(n)};
    });
}

std::string joined(const std::vector<std::string>& items) {
    std::string text;
    for (const auto& item : items) text += (text.empty() ? "" : ", ") + item;
    return text;
}

// Records what the run says and how far it got, and presses Stop once the scan reports a page.
class StopAtPage : public testing::RecordingInterface {
public:
    int page = INT_MAX;
    int reached = 0;
    void progress(const Progress& progress) override {
        reached = std::max(reached, progress.page);
        if (progress.page >= page) requestCancel();
    }
};

// A scripted source document and a batch run over it.
struct Fixture {
    testing::TempDir dir;
    std::string source = (dir / "doc.pdf").string();
    testing::ScriptedHost host;
    StopAtPage ui;
    BatchJob job = testing::jobIn(dir);
    SplitSettings& settings = job.settings;
    BatchResult result;

    explicit Fixture(const std::vector<ScriptedPage>& pages) {
        addSource("doc.pdf", pages);
        settings.OUTPUTDIR = (dir / "out").string();
    }

    std::string addSource(const std::string& name, const std::vector<ScriptedPage>& pages) {
        const std::string path = (dir / name).string();
        std::ofstream(path) << "scripted";
        host.files[path] = pages;
        return path;
    }

    // Runs one batch over the rows `paths`; answers the rows' statuses.
    std::string run(const std::vector<std::string>& paths) {
        job.rows = testing::jobIn(dir, paths).rows;
        result = runBatch(job, host, ui);
        std::vector<std::string> statuses;
        for (const auto& row : result.rows) statuses.push_back(row.status);
        return joined(statuses);
    }
    std::string run(int times = 1) { return run(std::vector<std::string>(times, source)); }

    // Every output by first page, then name, as "NAME PAGES" without ".pdf"; PAGES 1-based: "FIRST-LAST", "N", or
    // "A,B,..." when not a run.
    std::string outputs() const {
        const auto words = [](const ScriptedPage& page) {
            std::string text;
            for (const auto& word : page) text += word.text + " ";
            return text;
        };
        std::map<std::string, int> numbers;  // the source's pages by their words
        for (const auto& page : host.files.at(source)) numbers.emplace(words(page), numbers.size() + 1);
        std::map<std::pair<int, std::string>, std::string> found;
        for (const auto& [path, saved] : host.files) {
            if (!path.starts_with(settings.OUTPUTDIR)) continue;
            std::vector<int> n;
            for (const auto& page : saved) n.push_back(numbers.at(words(page)));
            std::string span;
            for (const int number : n) span += (span.empty() ? "" : ",") + std::to_string(number);
            if (n.size() > 1 &&
                std::adjacent_find(n.begin(), n.end(), [](int a, int b) { return b != a + 1; }) == n.end())
                span = std::to_string(n.front()) + "-" + std::to_string(n.back());
            const auto name = path.rfind('/') + 1;
            found[{n.empty() ? 0 : n[0], path.substr(name, path.size() - name - 4)}] = span;
        }
        std::vector<std::string> listed;
        for (const auto& [file, span] : found) listed.push_back(file.second + " " + span);
        return joined(listed);
    }
};

// Splits a scripted document with no file name prefix and the settings `configure` makes.
std::string split(const std::vector<ScriptedPage>& pages, const std::function<void(SplitSettings&)>& configure) {
    Fixture fixture(pages);
    fixture.settings.PREFIXFILENAME = "";
    configure(fixture.settings);
    fixture.run();
    return fixture.outputs();
}

// "account: NAME" on the given pages, filler text elsewhere.
std::function<std::vector<std::string>(int)> accountsOn(std::map<int, std::string> names) {
    return [names](int number) -> std::vector<std::string> {
        const auto found = names.find(number);
        if (found == names.end()) return {"Balance carried forward " + std::to_string(number)};
        return {"Statement " + std::to_string(number), "account: " + found->second, "Balance due"};
    };
}

// Every split mode against the naming modes on one shared statement run, so a change to one rule that breaks another
// shows up here.
TEST(SplitRules, EverySplitModeWithTheNamingModes) {
    // Twelve pages ending in "text pN". "account: NAME" (label at h 72, v 700, name at h 132) over a "customer:" line
    // opens pages 1, 4, 6 (BO again) and 9; on page 11 it stands further along the line. "total:" opens the second line
    // of pages 3, 7 and 12 (h 72, v 680); on page 10 it is further along.
    const std::map<int, std::vector<std::string>> text = {
        {1, {"account: ANNA", "customer: Anna Berg"}},
        {3, {"", "total: 30"}},
        {4, {"account: BO", "customer: Bo Lind"}},
        {6, {"account: BO", "customer: Bo Lind"}},
        {7, {"", "total: 70"}},
        {9, {"account: CARL", "customer: Carl Dahl"}},
        {10, {"", "grand total: 90"}},
        {11, {"ref:  account: ZED", "customer: Zoe Ek"}},
        {12, {"", "total: 120"}},
    };
    const auto pages = document(12, [&](int n) {
        auto lines = text.count(n) ? text.at(n) : std::vector<std::string>{""};
        lines.push_back("text p" + std::to_string(n));
        return lines;
    });
    using enum PageExtractMode;
    using enum FilenameMode;
    using Configure = std::function<void(SplitSettings&)>;
    const auto label = [](SplitSettings& s) { s.EXTRACTFILENAME = "customer:"; };
    const auto position = [](SplitSettings& s) { s.MATCHPOSH = "72", s.MATCHPOSV = "700"; };
    const auto until = [](SplitSettings& s) { s.EXTRACTUNTIL = "total:"; };
    const auto untilAt = [](SplitSettings& s) {
        s.EXTRACTUNTIL = "total:", s.UNTILMATCHPOSH = 72, s.UNTILMATCHPOSV = 680;
    };
    // No search text: the word standing where the account names stand starts a range.
    const auto namePosition = [](SplitSettings& s) { s.FINDSTRING = "", s.MATCHPOSH = "132", s.MATCHPOSV = "700"; };
    const std::tuple<PageExtractMode, FilenameMode, std::vector<Configure>, std::string> cases[] = {
        // A later range of the same name replaces the earlier one (BO 4-5).
        {NextMatch, NextWord, {}, "ANNA 1-3, BO 6-8, CARL 9-10, ZED 11-12"},
        // Consecutive ranges of one name become one.
        {NextUniqueMatch, NextWord, {}, "ANNA 1-3, BO 4-8, CARL 9-10, ZED 11-12"},
        // "account:" off its position (page 11) starts nothing; the last range is named by the matched word itself.
        {NextMatchAtPosition, NextWord, {position}, "ANNA 1-3, BO 6-8, account 9-12"},
        // The until page belongs to the range; "account:" inside an open range (page 6) is ignored, "total:" anywhere
        // on the page ends it (page 10).
        {UntilMatch, NextWord, {until}, "ANNA 1-3, BO 4-7, CARL 9-10, ZED 11-12"},
        // The until page is left out, and "total:" off its position (page 10) ends nothing.
        {UntilMatchAtPosition, NextWord, {position, untilAt}, "ANNA 1-2, BO 4-6, CARL 9-11"},
        {MatchedPageOnly, NextWord, {}, "ANNA 1, BO 6, CARL 9, ZED 11"},
        {NextMatch, NameAfterText, {label}, "Anna 1-3, Bo 6-8, Carl 9-10, Zoe 11-12"},
        {NextMatch, NameAfterTextRestOfLine, {label}, "AnnaBerg 1-3, BoLind 6-8, CarlDahl 9-10, ZoeEk 11-12"},
        // The first line of the page after the customer line comes after "_".
        {NextMatch,
         NameAfterTextRestOfLineAndNextPage,
         {label},
         "AnnaBerg_textp2 1-3, BoLind_textp5 4-5, BoLind_total70 6-8, CarlDahl_grandtotal90 9-10, ZoeEk_total120 "
         "11-12"},
        {NextUniqueMatch, NameAfterTextRestOfLine, {label}, "AnnaBerg 1-3, BoLind 4-8, CarlDahl 9-10, ZoeEk 11-12"},
        // Only the first customer line after a cut names the range: Zoe's on page 11 falls inside CARL's range here.
        {NextMatchAtPosition, NameAfterTextRestOfLine, {position, label}, "AnnaBerg 1-3, BoLind 6-8, CarlDahl 9-12"},
        {NextUniqueMatchAtPosition, PositionMatch, {namePosition}, "ANNA 1-3, BO 4-8, CARL 9-12"},
        {UntilMatch, SequentialNumber, {until}, "000001 1-3, 000002 4-7, 000003 9-10, 000004 11-12"},
        {UntilMatchAtPosition, PageStartEnd, {position, untilAt}, "1-2 1-2, 4-6 4-6, 9-11 9-11"},
        {MatchedPageOnly, PageStart, {}, "1 1, 4 4, 6 6, 9 9, 11 11"},
    };
    for (const auto& [mode, naming, more, expected] : cases) {
        const auto configure = [&](SplitSettings& s) {
            s.PAGEEXTRACT = modeText(mode), s.EXTRACT = modeText(naming);
            for (const auto& step : more) step(s);
        };
        EXPECT_EQ(split(pages, configure), expected) << modeText(mode) << " / " << modeText(naming);
    }
}

// Page limits, what a search text matches, and names taken from the rest of a line, each on a document of its own.
TEST(SplitRules, PageLimitsSearchTextsAndNamesFromTheRestOfTheLine) {
    const auto ten = document(10, accountsOn({{1, "A1"}, {4, "B4"}, {9, "C9"}}));
    const auto named = document(10, accountsOn({{1, "Ärger"}, {4, "Mayer"}, {6, "Li"}}));
    const std::string all = "A1 1-3, B4 4-8, C9 9-10";
    // "Invoice" ends a line and "No" starts the next; on page 3 "Invoice" ends the page and "No" opens page 4.
    const auto invoices = withLines(6, {{1, {"Dear Invoice", "No 17 due"}}, {3, {"total", "Invoice"}}, {4, {"No 42"}}});
    const std::string bothInvoices = "17 1-3, 42 4-6";
    // Twenty words, the most a search text may have.
    std::string twenty;
    for (int n = 1; n <= 20; ++n) twenty += (n > 1 ? " w" : "w") + std::to_string(n);
    const auto longText =
        withLines(3, {{2, {"w1 w2 w3 w4 w5 w6 w7 w8 w9 w10", "w11 w12 w13 w14 w15 w16 w17 w18 w19 w20 Name"}}});
    // The match is the last word of page 2.
    const auto lastWord = withLines(4, {{2, {"text", "account:"}}, {3, {"Name3"}}});
    const auto lines = withLines(4, {{1, {"Invoice: Smith & Sons Ltd #77 London", "Customer: Acme (UK) plc", "amount"}},
                                     {3, {"Invoice: Jones (UK) plc", "Customer: Brown, Kent", "amount"}},
                                     {4, {"Berlin ( Mitte ) Branch , Kent", "more"}}});
    using S = SplitSettings;
    using Configure = std::function<void(S&)>;
    // The rest of an "Invoice:" line names the range, after `more`.
    const auto rest = [](Configure more) -> Configure {
        return [more](S& s) {
            s.FINDSTRING = "Invoice:";
            s.EXTRACT = modeText(FilenameMode::NameAfterTextRestOfLine);
            more(s);
        };
    };
    const std::tuple<std::string, std::vector<ScriptedPage>, Configure, std::string> cases[] = {
        {"pages 2 to 8 only", ten, [](S& s) { s.STARTFROMPAGE = 2, s.TOPAGE = -2; }, "B4 4-8"},
        {"start page 0 is page 1", ten, [](S& s) { s.STARTFROMPAGE = 0; }, all},
        {"INT_MIN to INT_MAX", ten, [](S& s) { s.STARTFROMPAGE = INT_MIN, s.TOPAGE = INT_MAX; }, all},
        {"a start beyond every range", ten, [](S& s) { s.OFFSETFIRST = INT_MAX; }, {}},
        {"only the start moves", ten, [](S& s) { s.OFFSETFIRST = 2; }, "A1 3, B4 6-8"},
        // Length is counted in characters: "Ärger" is five of them.
        {"any five-character word on the line", named,
         [](S& s) {
             s.FINDSTRING = "", s.MATCHPOSH = "-5", s.MATCHPOSV = "680";
             s.PAGEEXTRACT = modeText(PageExtractMode::NextMatchAtPosition);
             s.EXTRACT = modeText(FilenameMode::PositionMatch);
         },
         "Ärger 1-3, Mayer 4-10"},
        {"a search text that is nowhere", ten, [](S& s) { s.FINDSTRING = "Invoice"; }, {}},
        {"whole words only", ten, [](S& s) { s.FINDSTRING = "account"; }, {}},
        {"case counts", ten, [](S& s) { s.FINDSTRING = "ACCOUNT:"; }, {}},
        {"unless told otherwise", ten, [](S& s) { s.FINDSTRING = "ACCOUNT:", s.IGNORECASE = 1; }, all},
        {"across lines and pages", invoices, [](S& s) { s.FINDSTRING = "Invoice No"; }, bothInvoices},
        {"and in any case", invoices, [](S& s) { s.FINDSTRING = "INVOICE NO", s.IGNORECASE = 1; }, bothInvoices},
        {"twenty words", longText, [&](S& s) { s.FINDSTRING = twenty; }, "Name 2-3"},
        // A match that is the last word of a page opens its range on the next.
        {"last word of a page", lastWord, [](S&) {}, "Name3 3-4"},
        {"whole line", lines, rest([](S&) {}), "Smith&SonsLtd#77London 1-2, Jones(UK)plc 3-4"},
        {"two words", lines, rest([](S& s) { s.TAKENWORDSFORFILENAME = 2, s.ADDBWORDS = " "; }),
         "Smith & 1-2, Jones (UK) 3-4"},
        // No separator after punctuation other than ":".
        {"until #", lines, rest([](S& s) { s.FIRSTCHAROFWORD = "#", s.ADDBWORDS = "_"; }),
         "Smith_&Sons_Ltd 1-2, Jones_(UK)plc 3-4"},
        {"eight characters", lines, rest([](S& s) { s.TAKENCHARSFORFILENAME = 8; }), "Smith&So 1-2, Jones(UK 3-4"},
        {"only left of h 250", lines, rest([](S& s) { s.UNTILHHPOSLESSTHAN = 250; }), "Smith& 1-2, Jones(UK) 3-4"},
        {"the label's line", lines, rest([](S& s) { s.EXTRACTFILENAME = "Customer:"; }),
         "Acme(UK)plc 1-2, Brown,Kent 3-4"},
        // On the next page's line "*" is a blank, after the "_" that joins the lines, but none after "(" nor before
        // ","; on the match's line it is itself, which names cannot hold.
        {"and the next page's", lines,
         rest([](S& s) { s.EXTRACT = modeText(FilenameMode::NameAfterTextRestOfLineAndNextPage), s.ADDBWORDS = "*"; }),
         "Smith&SonsLtd#77London_ text 2 1-2, Jones(UK)plc_ Berlin (Mitte ) Branch, Kent 3-4"},
    };
    for (const auto& [name, pages, configure, expected] : cases) EXPECT_EQ(split(pages, configure), expected) << name;
}

// The reports list what was written: a range written again under its name takes its earlier line back, and removed
// first pages move each start.
TEST(SplitRules, ReportsListWhatWasWritten) {
    const auto reported = [](Fixture& f) {
        f.settings.REPORTOPTIONSCSV = f.settings.REPORTOPTIONSTXT = 1;
        f.settings.REPORTOPTIONSOUTPUTFOLDER = f.dir.path().string();
        f.run();
        return std::regex_replace(testing::readFile(f.dir / "doc_report.csv"),
                                  std::regex(R"(,\d\d/\d\d/\d\d,\d\d:\d\d:\d\d\r)"), ",MM/DD/YY,hh:mm:ss\r");
    };
    // Names A, A, B on pages 1, 3 and 6: A holds 1-5, written twice.
    Fixture position(document(8, accountsOn({{1, "A"}, {3, "A"}, {6, "B"}})));
    auto& s = position.settings;
    s.PAGEEXTRACT = modeText(PageExtractMode::NextUniqueMatchAtPosition);
    s.FINDSTRING = "", s.MATCHPOSH = "132", s.MATCHPOSV = "680";
    s.EXTRACT = modeText(FilenameMode::PositionMatch);
    const std::string csv = reported(position);
    EXPECT_EQ(position.outputs(), "extract_A 1-5, extract_B 6-8");
    const std::string out = s.OUTPUTDIR, padded = std::string(29, ' ');
    EXPECT_EQ(csv, "Vellira Batch v4.01 Report,,MM/DD/YY,hh:mm:ss\r\n\r\nPDF Filename:," + position.source +
                       "\r\nFind:,\r\n\r\nStart Page,End Page,Matched,Output File\r\n1 ,5 ,A" + padded + "," + out +
                       "/extract_A.pdf\r\n6 ,8 ,B" + padded + "," + out + "/extract_B.pdf\r\n\r\n,2, PDF file(s)\r\n");
    const std::string txt = testing::readFile(position.dir / "doc_report.txt");
    EXPECT_NE(
        txt.find("\r\n\r\nPage: 1  - 5 \tA" + padded + "\tOutput file:" + out + "/extract_A.pdf\r\nPage: 6  - 8 \tB"),
        std::string::npos)
        << txt;

    // Removing the first two pages: 1-4 is written and reported as 3-4.
    Fixture offset(document(8, accountsOn({{1, "A"}, {5, "B"}})));
    offset.settings.OFFSETFIRST = 2;
    EXPECT_NE(reported(offset).find("Output File\r\n3 ,4 ,A" + padded + "," + offset.settings.OUTPUTDIR +
                                    "/extract_A.pdf\r\n7 ,8 ,B "),
              std::string::npos);

    // Nothing found: no file, and the report counts none.
    Fixture nothing(document(2, accountsOn({{1, "A"}})));
    nothing.settings.FINDSTRING = "Invoice";
    EXPECT_TRUE(reported(nothing).ends_with("\r\n\r\n,0, PDF file(s)\r\n"));
}

// What one document of a run leaves to the next.
TEST(SplitRules, ADocumentLeavesItsNumbersAndModeToTheNext) {
    // Sequential numbers run on.
    Fixture numbered(document(8, accountsOn({{1, "A"}, {5, "B"}})));
    numbered.settings.EXTRACT = modeText(FilenameMode::SequentialNumber);
    EXPECT_EQ(numbered.run(2), "Done, Done");
    EXPECT_EQ(numbered.outputs(), "extract_000001 1-4, extract_000003 1-4, extract_000002 5-8, extract_000004 5-8");

    // A one-page document turns the unique mode into the plain one for the rest of the run: in the next document A and
    // A are two ranges, the later written over the earlier, and each time that is said.
    const auto pages = document(8, accountsOn({{1, "A"}, {3, "A"}, {6, "B"}}));
    Fixture after(pages);
    after.settings.PAGEEXTRACT = modeText(PageExtractMode::NextUniqueMatch);
    after.run({after.addSource("one.pdf", {pages[0]}), after.source});
    EXPECT_EQ(after.outputs(), "extract_A 3-5, extract_B 6-8");
    const std::string a = "Warning: '" + after.settings.OUTPUTDIR + "/extract_A.pdf' was written again with pages ";
    EXPECT_EQ(after.ui.notes, (std::vector<std::string>{a + "1-2, replacing pages 1-1 written earlier in this run",
                                                        a + "3-5, replacing pages 1-2 written earlier in this run"}));
}

TEST(SplitRules, IgnoringCaseFoldsLettersAndNothingElse) {
    const std::tuple<std::string_view, std::string_view, bool> cases[] = {
        {"INVOICE", "invoice", true}, {"ÄRGER", "ärger", true},       {"STRASSE", "straße", true},
        {"Øre", "øRE", true},         {"Invoice", "Invoice:", false}, {"Invoice", "Invoices", false},
        {"ärger", "arger", false},    {"straße", "strase", false},    {"", "a", false},
    };
    for (const auto& [a, b, equal] : cases) {
        EXPECT_EQ(equalsIgnoringCase(a, b), equal) << a << " / " << b;
        EXPECT_EQ(equalsIgnoringCase(b, a), equal) << b << " / " << a;
    }
}

TEST(SplitRules, PositionsPickTheWordsThatStandThere) {
    // h and v as typed, the word's h and v, the word, whether it passes.
    const std::tuple<std::string, std::string, int, int, std::string, bool> cases[] = {
        {"100-120", "700", 110, 700, "x", true},
        {"100-120", "700", 121, 700, "x", false},
        {"100-120|130", "700", 130, 700, "x", true},
        {"-5", "700", 300, 700, "abcde", true},
        {"-5", "700", 300, 700, "abcd", false},
        {"-5", "700", 300, 699, "abcde", false},
        {"0", "700", 5, 700, "any", true},
        {"72", "0", 72, 10, "col", true},
        {"72", "-3", 72, 10, "abc", true},
        {"72", "-3", 72, 10, "ab", false},
        {"", "", 0, 0, "origin", true},
        {"", "", 1, 5, "x", false}};
    for (const auto& [h, v, wordH, wordV, word, passes] : cases)
        EXPECT_EQ(startPositionPasses(parsePosition(h), parsePosition(v), wordH, wordV, word.size()), passes)
            << h << "," << v << " at " << wordH << "," << wordV << " " << word;
    EXPECT_TRUE(untilPositionPasses(-5, 700, 3, 700, 5));
    EXPECT_FALSE(untilPositionPasses(72, 700, 73, 700, 5));
}

TEST(SplitRules, StopsAndHostErrorsEndTheDocumentCleanly) {
    const auto pages = document(10, accountsOn({{1, "A1"}, {4, "B4"}, {9, "C9"}}));
    // What was written stays; the open range and the next row are not. Each case: where Stop is pressed or the host
    // fails, the rows, the outputs, the statuses, the notes and the last page the scan went to.
    const std::tuple<std::string, std::function<void(Fixture&)>, int, std::string, std::string, std::string, int>
        cases[] = {
            {"stopped before the first page", [](Fixture& f) { f.ui.page = 0; }, 2, "", "Done, Ready.", "", 0},
            {"stopped on page 6", [](Fixture& f) { f.ui.page = 6; }, 2, "extract_A1 1-3", "Done, Ready.", "", 6},
            {"page 6 cannot be read", [](Fixture& f) { f.host.failOnPage = 5; }, 1, "extract_A1 1-3", "Done",
             "Abort!! Find Word Error message: cannot read page 6", 6},
        };
    for (const auto& [name, configure, times, expected, statuses, notes, reached] : cases) {
        Fixture fixture(pages);
        configure(fixture);
        EXPECT_EQ(fixture.run(times), statuses) << name;
        EXPECT_EQ(fixture.outputs(), expected) << name;
        EXPECT_EQ(joined(fixture.ui.notes), notes) << name;
        EXPECT_EQ(fixture.ui.reached, reached) << name;
    }
}

// Each row's status and each file are reported as they happen; a row's own setup holds for the rows after it, here with
// each output beside its source.
TEST(SplitRules, RowsAndFilesAreReportedAsTheyHappen) {
    Fixture f(document(8, accountsOn({{1, "A"}, {5, "B"}})));
    std::filesystem::create_directories(f.dir / "other");
    const std::string more = f.addSource("other/more.pdf", document(3, accountsOn({{2, "C"}})));
    std::ofstream(f.dir / "own.pcs", std::ios::binary) << "PREFIXFILENAME;own_ \r\nSPLITTOSOURCE;1 \r\n";
    f.job.rows = {{"Yes", (f.dir / "missing.pdf").string(), "Ready.", ""},
                  {"No", f.source, "Ready.", ""},
                  {"Yes", f.source, "Ready.", (f.dir / "own.pcs").string()},
                  {"Yes", more, "Ready.", ""}};
    f.result = runBatch(f.job, f.host, f.ui);
    EXPECT_TRUE(f.result.completed);
    EXPECT_EQ(joined(f.ui.statuses), "0 file error, 2 Processing, 2 Done, 3 Processing, 3 Done");
    const std::string d = f.dir.path().string();
    EXPECT_EQ(joined(f.ui.written), d + "/own_A.pdf 1-4, " + d + "/own_B.pdf 5-8, " + d + "/other/own_C.pdf 2-3");
    EXPECT_EQ(f.result.rows[1].status, "Ready.");
    EXPECT_EQ(std::tuple(f.result.filesWritten, f.result.rangesFailed), std::tuple(3, 0));
    // The run left its settings as the row's file made them; the job's own settings are untouched.
    EXPECT_EQ(f.result.settings.PREFIXFILENAME, "own_");
    EXPECT_EQ(f.settings.PREFIXFILENAME, "extract_");
}

// The preview lists the ranges a split writes, with their names and paths, and writes nothing itself.
TEST(SplitRules, PreviewListsWhatTheSplitWrites) {
    Fixture f(document(10, accountsOn({{1, "A"}, {3, "A"}, {6, "B"}})));
    f.settings.PAGEEXTRACT = modeText(PageExtractMode::NextUniqueMatch);
    f.settings.PREFIXFILENAME = "[EXTRACTTEXTDIR]/";
    f.job.currentDocument = f.source;
    std::filesystem::create_directories(f.dir / "out");
    std::string planned;
    for (const auto& range : previewRanges(f.job, f.host, f.ui))
        planned += range.path.substr(f.settings.OUTPUTDIR.size()) + " " + std::to_string(range.first) + "-" +
                   std::to_string(range.last) + "; ";
    EXPECT_EQ(planned, "/A/A.pdf 1-2; /A/A.pdf 1-5; /B/B.pdf 6-10; ");
    EXPECT_EQ(f.outputs(), "");
    EXPECT_TRUE(std::filesystem::is_empty(f.dir / "out")) << "no folder is made";
    f.job.currentDocument.clear();
    f.run();
    EXPECT_EQ(f.outputs(), "A 1-5, B 6-10");
}

TEST(SplitRules, BookmarksCutAtTheirOwnLevel) {
    using enum PageExtractMode;
    using Outline = std::vector<testing::ScriptedBookmark>;
    // Ten pages; A on page 1 with its child A1 on page 2, B on page 4.
    const Outline chapters = {{"A", 0, {{"A1", 1, {}}}}, {"B", 3, {}}};
    // Five levels; a title with characters a file name cannot hold; an empty title and one without destination that
    // never cut; one pointing back.
    const Outline deep = {{"Intro",
                           2,
                           {{"Part 1/2: Scope?", 4, {{"Überblick", 5, {{"L4", 6, {{"L5", 8, {}}}}}}}},
                            {"", 9, {}},
                            {"Nowhere", -1, {}},
                            {"Back", 1, {}}}}};
    const Outline broken = {{"A", 0, {}}, {"B", 2, {}}, {"C", 4, {}}};
    // Pages, outline, whether its last bookmark leads back to the first, mode, outputs, notes.
    const std::tuple<int, Outline, bool, PageExtractMode, std::string, std::string> cases[] = {
        {10, chapters, false, Bookmarks, "A 1, A1 2-3, B 4-10", ""},
        {10, chapters, false, BookmarksRootLevel, "A 1-3, B 4-10", ""},
        {10, chapters, false, BookmarksLevel2, "A1 2-10", ""},
        {3, {}, false, Bookmarks, "", ""},
        // Pages 1-2 come before the first bookmark and are never written; "Back" points before L5's page and leaves L5
        // a one-page range.
        {12, deep, false, Bookmarks, "Back 2-12, Intro 3-4, Part 12 Scope 5, Überblick 6, L4 7-8, L5 9", ""},
        {12, deep, false, BookmarksLevel2, "Back 2-12, Part 12 Scope 5", ""},
        // A broken outline says so, and keeps what was written before the break.
        {6, broken, true, Bookmarks, "A 1-2, B 3-4, C 5-6", "error! please check your bookmarks are valid."},
    };
    for (const auto& [pages, outline, cyclic, mode, expected, notes] : cases) {
        const std::string what = std::string(modeText(mode)) + " on " + std::to_string(pages) + " pages";
        Fixture f(withLines(pages, {}));
        f.host.outlines[f.source] = outline;
        f.host.cyclicOutline = cyclic;
        f.settings.PAGEEXTRACT = modeText(mode);
        f.settings.EXTRACT = modeText(FilenameMode::Bookmark);
        f.settings.PREFIXFILENAME = "";
        EXPECT_EQ(f.run(), "Done") << what;
        EXPECT_EQ(f.outputs(), expected) << what;
        EXPECT_EQ(joined(f.ui.notes), notes) << what;
    }
}

}  // namespace
}  // namespace vellira
