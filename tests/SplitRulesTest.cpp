// The split rules, through a scripted host: words at exact positions, every
// split mode and naming rule, and what each output holds.
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

// One page of text lines: line i at v = 700 - 20 i, words 60 points apart
// from h = 72.
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

bool samePage(const ScriptedPage& a, const ScriptedPage& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](const Word& x, const Word& y) { return x.text == y.text && x.h == y.h && x.v == y.v; });
}

// A document of `count` pages; `text` gives the lines of a 1-based page. Pages
// must differ, so that each output page can be told by its words.
std::vector<ScriptedPage> document(int count, const std::function<std::vector<std::string>(int)>& text) {
    std::vector<ScriptedPage> pages;
    for (int number = 1; number <= count; ++number) pages.push_back(page(text(number)));
    return pages;
}

// Files by their first page, then name, each named without ".pdf" and with its
// pages, 1-based: "FIRST-LAST", "N", or "A,B,..." when not a run; "A 1-3, B 4"
// for two files.
using Outputs = std::string;

// Records what the run says and how far it got, and presses Stop once the
// scan reports a page.
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
        std::ofstream(source) << "scripted";
        host.files[source] = pages;
        settings.OUTPUTDIR = (dir / "out").string();
    }

    // Another source document in the same folder.
    std::string addSource(const std::string& name, const std::vector<ScriptedPage>& pages) {
        const std::string path = (dir / name).string();
        std::ofstream(path) << "scripted";
        host.files[path] = pages;
        return path;
    }

    // Runs one batch over the rows `paths`; answers the rows' statuses.
    std::vector<std::string> run(const std::vector<std::string>& paths) {
        job.rows = testing::jobIn(dir, paths).rows;
        result = runBatch(job, host, ui);
        std::vector<std::string> statuses;
        for (const auto& row : result.rows) statuses.push_back(row.status);
        return statuses;
    }
    // The same with the document listed `times` times.
    std::vector<std::string> run(int times = 1) { return run(std::vector<std::string>(times, source)); }

    // Every output, with the source pages it holds.
    Outputs outputs() const {
        const auto& pages = host.files.at(source);
        std::map<std::pair<int, std::string>, std::string> found;
        for (const auto& [path, saved] : host.files) {
            if (!path.starts_with(settings.OUTPUTDIR)) continue;
            std::vector<int> numbers;
            for (const auto& words : saved) {
                const auto at = std::find_if(pages.begin(), pages.end(),
                                             [&](const ScriptedPage& candidate) { return samePage(candidate, words); });
                numbers.push_back(static_cast<int>(at - pages.begin()) + 1);
            }
            // "FIRST-LAST" for a run of pages, each page listed otherwise.
            const bool consecutive = std::adjacent_find(numbers.begin(), numbers.end(),
                                                        [](int a, int b) { return b != a + 1; }) == numbers.end();
            std::string span;
            for (std::size_t i = 0; i < numbers.size(); ++i) {
                if (consecutive && i > 0 && i + 1 < numbers.size()) continue;
                span += (i == 0 ? "" : consecutive ? "-" : ",") + std::to_string(numbers[i]);
            }
            const auto name = path.rfind('/') + 1;
            found[{numbers.empty() ? 0 : numbers[0], path.substr(name, path.size() - name - 4)}] = span;
        }
        Outputs listed;
        for (const auto& [file, span] : found) listed += (listed.empty() ? "" : ", ") + file.second + " " + span;
        return listed;
    }
};

// Splits a scripted document with the settings `configure` makes.
Outputs split(const std::vector<ScriptedPage>& pages, const std::function<void(SplitSettings&)>& configure) {
    Fixture fixture(pages);
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

// Every split mode against the naming modes on one shared statement run, so a
// change to one rule that breaks another shows up here.
TEST(SplitRules, EverySplitModeWithTheNamingModes) {
    // Twelve pages, each ending in a line "text pN". Statements open with
    // "account: NAME" (the label at h 72, v 700, the name at h 132) and a
    // "customer:" line below it: ANNA on page 1, BO on pages 4 and 6 (the same
    // account twice), CARL on page 9. Page 11 mentions "account: ZED" further
    // along its first line. Other pages start on their second line: "total:"
    // opens it on pages 3, 7 and 12 (h 72, v 680); on page 10 it stands
    // further along the line.
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
    using M = PageExtractMode;
    using N = FilenameMode;
    const auto modes = [](M split, N name) {
        return [=](SplitSettings& s) {
            s.PAGEEXTRACT = modeText(split);
            s.EXTRACT = modeText(name);
            s.PREFIXFILENAME = "";
        };
    };
    const auto label = [](SplitSettings& s) { s.EXTRACTFILENAME = "customer:"; };
    const auto position = [](SplitSettings& s) { s.MATCHPOSH = "72", s.MATCHPOSV = "700"; };
    const auto until = [](SplitSettings& s) { s.EXTRACTUNTIL = "total:"; };
    const auto untilPosition = [&](SplitSettings& s) { until(s), s.UNTILMATCHPOSH = 72, s.UNTILMATCHPOSV = 680; };
    // No search text: the word standing where the account names stand starts
    // a range.
    const auto namePosition = [](SplitSettings& s) { s.FINDSTRING = "", s.MATCHPOSH = "132", s.MATCHPOSV = "700"; };
    using Configure = std::function<void(SplitSettings&)>;
    const auto with = [](std::initializer_list<Configure> steps) {
        return [steps = std::vector<Configure>(steps)](SplitSettings& s) {
            for (const auto& step : steps) step(s);
        };
    };
    struct Case {
        std::string what;
        Configure configure;
        Outputs expected;
    } const cases[] = {
        // A later range of the same name replaces the earlier one (BO 4-5).
        {"next match", modes(M::NextMatch, N::NextWord), "ANNA 1-3, BO 6-8, CARL 9-10, ZED 11-12"},
        // Consecutive ranges of one name become one.
        {"next unique match", modes(M::NextUniqueMatch, N::NextWord), "ANNA 1-3, BO 4-8, CARL 9-10, ZED 11-12"},
        // "account:" off its position (page 11) starts nothing; the last range
        // is named by the matched word itself.
        {"next match at a position", with({modes(M::NextMatchAtPosition, N::NextWord), position}),
         "ANNA 1-3, BO 6-8, account 9-12"},
        // The until page belongs to the range; "account:" inside an open range
        // (page 6) is ignored, "total:" anywhere on the page ends it (page 10).
        {"until text", with({modes(M::UntilMatch, N::NextWord), until}), "ANNA 1-3, BO 4-7, CARL 9-10, ZED 11-12"},
        // The until page is left out, and "total:" off its position (page 10)
        // ends nothing.
        {"until position", with({modes(M::UntilMatchAtPosition, N::NextWord), position, untilPosition}),
         "ANNA 1-2, BO 4-6, CARL 9-11"},
        {"matched page only", modes(M::MatchedPageOnly, N::NextWord), "ANNA 1, BO 6, CARL 9, ZED 11"},

        // The naming modes, on the ranges of the first split mode and then
        // mixed with the others.
        {"name after text", with({modes(M::NextMatch, N::NameAfterText), label}),
         "Anna 1-3, Bo 6-8, Carl 9-10, Zoe 11-12"},
        {"rest of line", with({modes(M::NextMatch, N::NameAfterTextRestOfLine), label}),
         "AnnaBerg 1-3, BoLind 6-8, CarlDahl 9-10, ZoeEk 11-12"},
        // The first line of the page after the customer line comes after "_".
        {"rest of line and next page", with({modes(M::NextMatch, N::NameAfterTextRestOfLineAndNextPage), label}),
         "AnnaBerg_textp2 1-3, BoLind_textp5 4-5, BoLind_total70 6-8, CarlDahl_grandtotal90 9-10, ZoeEk_total120 "
         "11-12"},

        {"unique, rest of line", with({modes(M::NextUniqueMatch, N::NameAfterTextRestOfLine), label}),
         "AnnaBerg 1-3, BoLind 4-8, CarlDahl 9-10, ZoeEk 11-12"},
        // Only the first customer line after a cut names the range: Zoe's on
        // page 11 falls inside CARL's range here.
        {"position, rest of line", with({modes(M::NextMatchAtPosition, N::NameAfterTextRestOfLine), position, label}),
         "AnnaBerg 1-3, BoLind 6-8, CarlDahl 9-12"},
        {"unique position, h,v match", with({modes(M::NextUniqueMatchAtPosition, N::PositionMatch), namePosition}),
         "ANNA 1-3, BO 4-8, CARL 9-12"},
        {"until text, numbered", with({modes(M::UntilMatch, N::SequentialNumber), until}),
         "000001 1-3, 000002 4-7, 000003 9-10, 000004 11-12"},
        {"until position, start-end", with({modes(M::UntilMatchAtPosition, N::PageStartEnd), position, untilPosition}),
         "1-2 1-2, 4-6 4-6, 9-11 9-11"},
        {"matched page, page start", modes(M::MatchedPageOnly, N::PageStart), "1 1, 4 4, 6 6, 9 9, 11 11"},
    };
    for (const auto& c : cases) EXPECT_EQ(split(pages, c.configure), c.expected) << c.what;
}

// Page limits, what a search text matches, and names taken from the rest of a
// line, each on a document of its own.
TEST(SplitRules, PageLimitsSearchTextsAndNamesFromTheRestOfTheLine) {
    const auto ten = document(10, accountsOn({{1, "A1"}, {4, "B4"}, {9, "C9"}}));
    const auto named = document(10, accountsOn({{1, "Ärger"}, {4, "Mayer"}, {6, "Li"}}));
    const Outputs all = "extract_A1 1-3, extract_B4 4-8, extract_C9 9-10";
    // "Invoice" ends a line and "No" starts the next; on page 3 "Invoice"
    // ends the page and "No" opens page 4.
    const auto invoices = document(6, [](int n) -> std::vector<std::string> {
        if (n == 1) return {"Dear Invoice", "No 17 due"};
        if (n == 3) return {"total", "Invoice"};
        if (n == 4) return {"No 42"};
        return {"text " + std::to_string(n)};
    });
    const Outputs bothInvoices = "extract_17 1-3, extract_42 4-6";
    // Twenty words, the most a search text may have.
    std::string twenty;
    for (int n = 1; n <= 20; ++n) twenty += (n > 1 ? " w" : "w") + std::to_string(n);
    const auto longText = document(3, [&](int n) -> std::vector<std::string> {
        if (n == 2) return {"w1 w2 w3 w4 w5 w6 w7 w8 w9 w10", "w11 w12 w13 w14 w15 w16 w17 w18 w19 w20 Name"};
        return {"text " + std::to_string(n)};
    });
    // The match is the last word of page 2.
    const auto lastWord = document(4, [](int n) -> std::vector<std::string> {
        if (n == 2) return {"text", "account:"};
        return {"Name" + std::to_string(n)};
    });
    const auto lines = document(4, [](int n) -> std::vector<std::string> {
        if (n == 1) return {"Invoice: Smith & Sons Ltd #77 London", "Customer: Acme (UK) plc", "amount"};
        if (n == 3) return {"Invoice: Jones (UK) plc", "Customer: Brown, Kent", "amount"};
        if (n == 4) return {"Berlin ( Mitte ) Branch , Kent", "more"};
        return {"text " + std::to_string(n)};
    });
    using Configure = std::function<void(SplitSettings&)>;
    // The rest of an "Invoice:" line names the range, after `more`.
    const auto restOfLine = [](Configure more) -> Configure {
        return [more](SplitSettings& s) {
            s.FINDSTRING = "Invoice:";
            s.EXTRACT = modeText(FilenameMode::NameAfterTextRestOfLine);
            more(s);
        };
    };
    struct Case {
        std::string name;
        std::vector<ScriptedPage> pages;
        Configure configure;
        Outputs expected;
    } const cases[] = {
        {"pages 2 to 8 only", ten, [](SplitSettings& s) { s.STARTFROMPAGE = 2, s.TOPAGE = -2; }, "extract_B4 4-8"},
        {"start page 0 is page 1", ten, [](SplitSettings& s) { s.STARTFROMPAGE = 0; }, all},
        {"numbers at the ends of their range", ten,
         [](SplitSettings& s) { s.STARTFROMPAGE = INT_MIN, s.TOPAGE = INT_MAX; }, all},
        {"a start beyond every range", ten, [](SplitSettings& s) { s.OFFSETFIRST = INT_MAX; }, {}},
        {"only the start moves with OFFSETFIRST", ten, [](SplitSettings& s) { s.OFFSETFIRST = 2; },
         "extract_A1 3, extract_B4 6-8"},
        // Length is counted in characters: "Ärger" is five of them.
        {"any five-character word on the line", named,
         [](SplitSettings& s) {
             s.FINDSTRING = "";
             s.MATCHPOSH = "-5";
             s.MATCHPOSV = "680";
             s.PAGEEXTRACT = modeText(PageExtractMode::NextMatchAtPosition);
             s.EXTRACT = modeText(FilenameMode::PositionMatch);
         },
         "extract_Ärger 1-3, extract_Mayer 4-10"},
        {"a search text that is nowhere", ten, [](SplitSettings& s) { s.FINDSTRING = "Invoice"; }, {}},
        {"whole words only", ten, [](SplitSettings& s) { s.FINDSTRING = "account"; }, {}},
        {"case counts", ten, [](SplitSettings& s) { s.FINDSTRING = "ACCOUNT:"; }, {}},
        {"unless told otherwise", ten, [](SplitSettings& s) { s.FINDSTRING = "ACCOUNT:", s.IGNORECASE = 1; }, all},
        {"across lines and pages", invoices, [](SplitSettings& s) { s.FINDSTRING = "Invoice No"; }, bothInvoices},
        {"across lines and pages, any case", invoices,
         [](SplitSettings& s) { s.FINDSTRING = "INVOICE NO", s.IGNORECASE = 1; }, bothInvoices},
        {"twenty words", longText, [&](SplitSettings& s) { s.FINDSTRING = twenty; }, "extract_Name 2-3"},
        // A match that is the last word of a page opens its range on the next.
        {"last word of a page", lastWord, [](SplitSettings&) {}, "extract_Name3 3-4"},
        {"whole line", lines, restOfLine([](SplitSettings&) {}),
         "extract_Smith&SonsLtd#77London 1-2, extract_Jones(UK)plc 3-4"},
        {"two words, blanks between", lines,
         restOfLine([](SplitSettings& s) { s.TAKENWORDSFORFILENAME = 2, s.ADDBWORDS = " "; }),
         "extract_Smith & 1-2, extract_Jones (UK) 3-4"},
        // No separator after punctuation other than ":".
        {"until a word starting with #", lines,
         restOfLine([](SplitSettings& s) { s.FIRSTCHAROFWORD = "#", s.ADDBWORDS = "_"; }),
         "extract_Smith_&Sons_Ltd 1-2, extract_Jones_(UK)plc 3-4"},
        {"only left of h 250", lines, restOfLine([](SplitSettings& s) { s.UNTILHHPOSLESSTHAN = 250; }),
         "extract_Smith& 1-2, extract_Jones(UK) 3-4"},
        {"the line after a label instead", lines, restOfLine([](SplitSettings& s) { s.EXTRACTFILENAME = "Customer:"; }),
         "extract_Acme(UK)plc 1-2, extract_Brown,Kent 3-4"},
        // On the next page's line "*" is a blank, after the "_" that joins the
        // lines, but none after "(" nor before ","; on the match's line it is
        // itself, which names cannot hold.
        {"and the first line of the next page", lines, restOfLine([](SplitSettings& s) {
             s.EXTRACT = modeText(FilenameMode::NameAfterTextRestOfLineAndNextPage), s.ADDBWORDS = "*";
         }),
         "extract_Smith&SonsLtd#77London_ text 2 1-2, extract_Jones(UK)plc_ Berlin (Mitte ) Branch, Kent 3-4"},
    };
    for (const auto& c : cases) EXPECT_EQ(split(c.pages, c.configure), c.expected) << c.name;
}

// The reports list what was written: a range written again under its name
// takes its earlier line back, and removed first pages move each start.
TEST(SplitRules, ReportsListWhatWasWritten) {
    const auto reported = [](Fixture& f) {
        f.settings.REPORTOPTIONSCSV = f.settings.REPORTOPTIONSTXT = 1;
        f.settings.REPORTOPTIONSOUTPUTFOLDER = f.dir.path().string();
        f.run();
        return testing::readFile(f.dir / "doc_report.csv");
    };
    // Names A, A, B on pages 1, 3 and 6: A holds 1-5, written twice.
    Fixture position(document(8, accountsOn({{1, "A"}, {3, "A"}, {6, "B"}})));
    auto& s = position.settings;
    s.PAGEEXTRACT = modeText(PageExtractMode::NextUniqueMatchAtPosition);
    s.FINDSTRING = "";
    s.MATCHPOSH = "132";
    s.MATCHPOSV = "680";
    s.EXTRACT = modeText(FilenameMode::PositionMatch);
    const std::string csv = reported(position);
    EXPECT_EQ(position.outputs(), "extract_A 1-5, extract_B 6-8");
    const std::string out = position.settings.OUTPUTDIR;
    EXPECT_TRUE(
        std::regex_search(csv, std::regex(R"(^Vellira Batch v4\.01 Report,,\d\d/\d\d/\d\d,\d\d:\d\d:\d\d\r\n)")))
        << csv;
    const std::string padded = std::string(29, ' ') + ",";
    EXPECT_EQ(csv.substr(csv.find('\n') + 1), "\r\nPDF Filename:," + position.source +
                                                  "\r\nFind:,\r\n\r\nStart Page,End Page,Matched,Output File\r\n"
                                                  "1 ,5 ,A" +
                                                  padded + out + "/extract_A.pdf\r\n6 ,8 ,B" + padded + out +
                                                  "/extract_B.pdf\r\n\r\n,2, PDF file(s)\r\n");
    const std::string txt = testing::readFile(position.dir / "doc_report.txt");
    EXPECT_NE(txt.find("\r\n\r\nPage: 1  - 5 \tA" + std::string(29, ' ') + "\tOutput file:" + out +
                       "/extract_A.pdf\r\nPage: 6  - 8 \tB"),
              std::string::npos)
        << txt;

    // Removing the first two pages: 1-4 is written and reported as 3-4.
    Fixture offset(document(8, accountsOn({{1, "A"}, {5, "B"}})));
    offset.settings.OFFSETFIRST = 2;
    const std::string moved = reported(offset);
    EXPECT_NE(moved.find("Output File\r\n3 ,4 ,A "), std::string::npos) << moved;
    EXPECT_NE(moved.find("\r\n7 ,8 ,B "), std::string::npos) << moved;

    // Nothing found: no file, and the report counts none.
    Fixture nothing(document(2, accountsOn({{1, "A"}})));
    nothing.settings.FINDSTRING = "Invoice";
    EXPECT_NE(reported(nothing).find("\r\n\r\n,0, PDF file(s)\r\n"), std::string::npos);
}

// What one document of a run leaves to the next.
TEST(SplitRules, ADocumentLeavesItsNumbersAndModeToTheNext) {
    // Sequential numbers run on.
    Fixture numbered(document(8, accountsOn({{1, "A"}, {5, "B"}})));
    numbered.settings.EXTRACT = modeText(FilenameMode::SequentialNumber);
    EXPECT_EQ(numbered.run(2), (std::vector<std::string>{"Done", "Done"}));
    EXPECT_EQ(numbered.outputs(), "extract_000001 1-4, extract_000003 1-4, extract_000002 5-8, extract_000004 5-8");

    // A one-page document turns the unique mode into the plain one for the
    // rest of the run: in the next document A and A are two ranges, the
    // later written over the earlier.
    const auto pages = document(8, accountsOn({{1, "A"}, {3, "A"}, {6, "B"}}));
    Fixture after(pages);
    after.settings.PAGEEXTRACT = modeText(PageExtractMode::NextUniqueMatch);
    after.run({after.addSource("one.pdf", {pages[0]}), after.source});
    EXPECT_EQ(after.outputs(), "extract_A 3-5, extract_B 6-8");
    // Each output written over by a later range is named, with both ranges.
    const std::string a = after.settings.OUTPUTDIR + "/extract_A.pdf";
    EXPECT_EQ(
        after.ui.notes,
        (std::vector<std::string>{
            "Warning: '" + a + "' was written again with pages 1-2, replacing pages 1-1 written earlier in this run",
            "Warning: '" + a + "' was written again with pages 3-5, replacing pages 1-2 written earlier in this run"}));
}

TEST(SplitRules, IgnoringCaseFoldsLettersAndNothingElse) {
    struct Case {
        std::string_view a, b;
        bool equal;
    } const cases[] = {
        {"INVOICE", "invoice", true}, {"ÄRGER", "ärger", true},       {"STRASSE", "straße", true},
        {"Øre", "øRE", true},         {"Invoice", "Invoice:", false}, {"Invoice", "Invoices", false},
        {"ärger", "arger", false},    {"straße", "strase", false},    {"", "a", false},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(equalsIgnoringCase(c.a, c.b), c.equal) << c.a << " / " << c.b;
        EXPECT_EQ(equalsIgnoringCase(c.b, c.a), c.equal) << c.b << " / " << c.a;
    }
}

TEST(SplitRules, PositionsPickTheWordsThatStandThere) {
    struct Case {
        std::string h, v;
        int wordH, wordV;
        std::string word;
        bool passes;
    } const cases[] = {
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
        {"", "", 1, 5, "x", false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(startPositionPasses(parsePosition(c.h), parsePosition(c.v), c.wordH, c.wordV, c.word.size()),
                  c.passes)
            << c.h << "," << c.v << " at " << c.wordH << "," << c.wordV << " " << c.word;
    EXPECT_TRUE(untilPositionPasses(-5, 700, 3, 700, 5));
    EXPECT_FALSE(untilPositionPasses(72, 700, 73, 700, 5));
}

TEST(SplitRules, StopsAndHostErrorsEndTheDocumentCleanly) {
    const auto pages = document(10, accountsOn({{1, "A1"}, {4, "B4"}, {9, "C9"}}));
    struct Case {
        std::string name;
        std::function<void(Fixture&)> configure;
        int times;  // rows of the same document in the batch
        Outputs expected;
        std::vector<std::string> statuses;
        std::vector<std::string> notes;
        int reached;  // the last page the scan went to
    } const cases[] = {
        {"stopped before the first page", [](Fixture& f) { f.ui.page = 0; }, 2, {}, {"Done", "Ready."}, {}, 0},
        // What was written stays; the open range and the next row are not.
        {"stopped on page 6", [](Fixture& f) { f.ui.page = 6; }, 2, "extract_A1 1-3", {"Done", "Ready."}, {}, 6},
        {"page 6 cannot be read",
         [](Fixture& f) { f.host.failOnPage = 5; },
         1,
         "extract_A1 1-3",
         {"Done"},
         {"Abort!! Find Word Error message: cannot read page 6"},
         6},
    };
    for (const auto& c : cases) {
        Fixture fixture(pages);
        c.configure(fixture);
        EXPECT_EQ(fixture.run(c.times), c.statuses) << c.name;
        EXPECT_EQ(fixture.outputs(), c.expected) << c.name;
        EXPECT_EQ(fixture.ui.notes, c.notes) << c.name;
        EXPECT_EQ(fixture.ui.reached, c.reached) << c.name;
    }
}

// Each row's status and each file are reported as they happen; a row's own
// setup holds for the rows after it, here with each output beside its source.
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
    EXPECT_EQ(f.ui.statuses,
              (std::vector<std::string>{"0 file error", "2 Processing", "2 Done", "3 Processing", "3 Done"}));
    EXPECT_EQ(f.ui.written, (std::vector<std::string>{(f.dir / "own_A.pdf").string() + " 1-4",
                                                      (f.dir / "own_B.pdf").string() + " 5-8",
                                                      (f.dir / "other" / "own_C.pdf").string() + " 2-3"}));
    EXPECT_EQ(f.result.rows[1].status, "Ready.");
    EXPECT_EQ(std::tuple(f.result.filesWritten, f.result.rangesFailed), std::tuple(3, 0));
    // The run left its settings as the row's file made them; the job's own
    // settings are untouched.
    EXPECT_EQ(f.result.settings.PREFIXFILENAME, "own_");
    EXPECT_EQ(f.settings.PREFIXFILENAME, "extract_");
}

// The preview lists the ranges a split writes, with their names and paths,
// and writes nothing itself.
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
    EXPECT_TRUE(f.outputs().empty());
    EXPECT_TRUE(std::filesystem::is_empty(f.dir / "out")) << "no folder is made";
    f.job.currentDocument.clear();
    f.run();
    EXPECT_EQ(f.outputs(), "A 1-5, B 6-10");
}

TEST(SplitRules, BookmarksCutAtTheirOwnLevel) {
    using M = PageExtractMode;
    // Ten pages; A on page 1 with its child A1 on page 2, B on page 4.
    const std::vector<testing::ScriptedBookmark> chapters = {{"A", 0, {{"A1", 1, {}}}}, {"B", 3, {}}};
    // Five levels; a title with characters a file name cannot hold; an empty
    // title and one without destination that never cut; one pointing back.
    const std::vector<testing::ScriptedBookmark> deep = {
        {"Intro",
         2,
         {{"Part 1/2: Scope?", 4, {{"Überblick", 5, {{"L4", 6, {{"L5", 8, {}}}}}}}},
          {"", 9, {}},
          {"Nowhere", -1, {}},
          {"Back", 1, {}}}}};
    struct Case {
        int pages;
        std::vector<testing::ScriptedBookmark> outline;
        M mode;
        Outputs expected;
        bool cyclic = false;
        std::vector<std::string> notes = {};
    } const cases[] = {
        {10, chapters, M::Bookmarks, "A 1, A1 2-3, B 4-10"},
        {10, chapters, M::BookmarksRootLevel, "A 1-3, B 4-10"},
        {10, chapters, M::BookmarksLevel2, "A1 2-10"},
        {3, {}, M::Bookmarks, {}},
        // Pages 1-2 come before the first bookmark and are never written;
        // "Back" points before L5's page and leaves L5 a one-page range.
        {12, deep, M::Bookmarks, "Back 2-12, Intro 3-4, Part 12 Scope 5, Überblick 6, L4 7-8, L5 9"},
        {12, deep, M::BookmarksLevel2, "Back 2-12, Part 12 Scope 5"},
        // A broken outline says so, and keeps what was written before the break.
        {6,
         {{"A", 0, {}}, {"B", 2, {}}, {"C", 4, {}}},
         M::Bookmarks,
         "A 1-2, B 3-4, C 5-6",
         true,
         {"error! please check your bookmarks are valid."}},
    };
    for (const auto& c : cases) {
        const std::string what = std::string(modeText(c.mode)) + " on " + std::to_string(c.pages) + " pages";
        Fixture f(
            document(c.pages, [](int n) { return std::vector<std::string>{"Chapter text p" + std::to_string(n)}; }));
        f.host.outlines[f.source] = c.outline;
        f.host.cyclicOutline = c.cyclic;
        f.settings.PAGEEXTRACT = modeText(c.mode);
        f.settings.EXTRACT = modeText(FilenameMode::Bookmark);
        f.settings.PREFIXFILENAME = "";
        EXPECT_EQ(f.run(), std::vector<std::string>{"Done"}) << what;
        EXPECT_EQ(f.outputs(), c.expected) << what;
        EXPECT_EQ(f.ui.notes, c.notes) << what;
    }
}

}  // namespace
}  // namespace vellira
