// The split rules, through a scripted host: words at exact positions, every
// split mode and naming rule, and what each output holds.
#include "core/BatchRun.h"
#include "support/Files.h"
#include "support/RecordingInterface.h"
#include "support/ScriptedHost.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <map>

namespace vellira {
namespace {

using testing::ScriptedPage;
using testing::ScriptedWord;

// One page of text lines: line i at v = 700 - 20 i, words 60 points apart
// from h = 72.
ScriptedPage page(const std::vector<std::string>& lines) {
    ScriptedPage words;
    double v = 700;
    for (const auto& line : lines) {
        double h = 72;
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
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const ScriptedWord& x, const ScriptedWord& y) {
        return x.text == y.text && x.h == y.h && x.v == y.v;
    });
}

// A document of `count` pages; `text` gives the lines of a 1-based page. Pages
// must differ, so that each output page can be told by its words.
std::vector<ScriptedPage> document(int count, const std::function<std::vector<std::string>(int)>& text) {
    std::vector<ScriptedPage> pages;
    for (int number = 1; number <= count; ++number) pages.push_back(page(text(number)));
    return pages;
}

using Outputs = std::map<std::string, std::string>;  // file name -> "FIRST-LAST" or "N", 1-based

// A scripted source document and a batch run over it.
struct Fixture {
    testing::TempDir dir;
    std::string source = (dir / "doc.pdf").string();
    testing::ScriptedHost host;
    testing::RecordingInterface ui;
    SplitSettings settings;

    explicit Fixture(const std::vector<ScriptedPage>& pages) {
        std::ofstream(source) << "scripted";
        host.files[source] = pages;
        settings.OUTPUTDIR = (dir / "out").string();
    }

    // Runs the batch over the document; answers the row's status.
    std::string run() {
        BatchRun batch(host, ui, settings);
        batch.settingsFile = dir / "VelliraBatch.ini";
        batch.legacyFolder = dir / "legacy";
        std::vector<BatchRow> rows{{"Yes", source, "Ready.", ""}};
        batch.process(rows);
        return rows[0].status;
    }

    // Every output by file name, with the source pages it holds.
    Outputs outputs() const {
        const auto& pages = host.files.at(source);
        Outputs found;
        for (const auto& [path, saved] : host.files) {
            if (path == source) continue;
            std::vector<int> numbers;
            for (const auto& words : saved) {
                const auto at = std::find_if(pages.begin(), pages.end(),
                                             [&](const ScriptedPage& candidate) { return samePage(candidate, words); });
                numbers.push_back(static_cast<int>(at - pages.begin()) + 1);
            }
            std::string span = numbers.empty() ? "" : std::to_string(numbers.front());
            if (numbers.size() > 1) span += "-" + std::to_string(numbers.back());
            found[path.substr(path.rfind('/') + 1)] = span;
        }
        return found;
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
        return {"Statement", "account: " + found->second, "Balance due"};
    };
}

TEST(SplitRules, EachSplitModeCutsWhereItShould) {
    const auto ten = document(10, accountsOn({{1, "A1"}, {4, "B4"}, {9, "C9"}}));
    // Start text on page 2, until text on page 5, a second start before it.
    const auto until = document(8, [](int n) -> std::vector<std::string> {
        if (n == 2) return {"Invoice X2"};
        if (n == 3) return {"Invoice Y3"};
        if (n == 5) return {"Total due"};
        if (n == 6) return {"Invoice Z6"};
        return {"text " + std::to_string(n)};
    });
    struct Case {
        std::string name;
        std::vector<ScriptedPage> pages;
        std::function<void(SplitSettings&)> configure;
        Outputs expected;
    } const cases[] = {
        {"next match",
         ten,
         [](SplitSettings&) {},
         {{"extract_A1.pdf", "1-3"}, {"extract_B4.pdf", "4-8"}, {"extract_C9.pdf", "9-10"}}},
        {"matched page only",
         ten,
         [](SplitSettings& s) { s.PAGEEXTRACT = kExtractModes[6]; },
         {{"extract_A1.pdf", "1"}, {"extract_B4.pdf", "4"}, {"extract_C9.pdf", "9"}}},
        {"page start-end names",
         ten,
         [](SplitSettings& s) { s.EXTRACT = kFilenameModes[2]; },
         {{"extract_1-3.pdf", "1-3"}, {"extract_4-8.pdf", "4-8"}, {"extract_9-10.pdf", "9-10"}}},
        {"pages 2 to 8 only",
         ten,
         [](SplitSettings& s) {
             s.STARTFROMPAGE = 2;
             s.TOPAGE = -2;
         },
         {{"extract_B4.pdf", "4-8"}}},
        {"start page 0 is page 1",
         ten,
         [](SplitSettings& s) { s.STARTFROMPAGE = 0; },
         {{"extract_A1.pdf", "1-3"}, {"extract_B4.pdf", "4-8"}, {"extract_C9.pdf", "9-10"}}},
        {"only the start moves with OFFSETFIRST",
         ten,
         [](SplitSettings& s) { s.OFFSETFIRST = 2; },
         {{"extract_A1.pdf", "3"}, {"extract_B4.pdf", "6-8"}}},
        {"until text, its page included, later starts ignored",
         until,
         [](SplitSettings& s) {
             s.FINDSTRING = "Invoice";
             s.EXTRACTUNTIL = "Total";
             s.PAGEEXTRACT = kExtractModes[4];
         },
         {{"extract_X2.pdf", "2-5"}, {"extract_Z6.pdf", "6-8"}}},
        {"until position, its page excluded",
         until,
         [](SplitSettings& s) {
             s.FINDSTRING = "Invoice";
             s.MATCHPOSH = "72";
             s.MATCHPOSV = "700";
             s.EXTRACTUNTIL = "Total";
             s.UNTILMATCHPOSH = 72;
             s.UNTILMATCHPOSV = 700;
             s.PAGEEXTRACT = kExtractModes[5];
         },
         {{"extract_X2.pdf", "2-4"}, {"extract_Z6.pdf", "6-8"}}},
        {"a search text that is nowhere", ten, [](SplitSettings& s) { s.FINDSTRING = "Invoice"; }, {}},
        {"whole words only", ten, [](SplitSettings& s) { s.FINDSTRING = "account"; }, {}},
        {"case counts", ten, [](SplitSettings& s) { s.FINDSTRING = "ACCOUNT:"; }, {}},
        {"unless told otherwise",
         ten,
         [](SplitSettings& s) {
             s.FINDSTRING = "ACCOUNT:";
             s.IGNORECASE = 1;
         },
         {{"extract_A1.pdf", "1-3"}, {"extract_B4.pdf", "4-8"}, {"extract_C9.pdf", "9-10"}}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(split(c.pages, c.configure), c.expected) << c.name;
    }
}

TEST(SplitRules, UniqueModesMergeRangesOfTheSameName) {
    // Names A, A, B on pages 1, 3 and 6: A holds 1-5, written twice.
    const auto pages = document(8, accountsOn({{1, "A"}, {3, "A"}, {6, "B"}}));
    EXPECT_EQ(split(pages, [](SplitSettings& s) { s.PAGEEXTRACT = kExtractModes[1]; }),
              (Outputs{{"extract_A.pdf", "1-5"}, {"extract_B.pdf", "6-8"}}));

    // The unique position mode takes the earlier report line back.
    Fixture position(pages);
    auto& s = position.settings;
    s.PAGEEXTRACT = kExtractModes[3];
    s.FINDSTRING = "";
    s.MATCHPOSH = "132";
    s.MATCHPOSV = "680";
    s.EXTRACT = kFilenameModes[3];
    s.REPORTOPTIONSCSV = 1;
    s.REPORTOPTIONSOUTPUTFOLDER = position.dir.path().string();
    position.run();
    EXPECT_EQ(position.outputs(), (Outputs{{"extract_A.pdf", "1-5"}, {"extract_B.pdf", "6-8"}}));
    const std::string csv = testing::readFile(position.dir / "doc_report.csv");
    const std::string out = position.settings.OUTPUTDIR;
    EXPECT_NE(csv.find("Output File\r\n1 ,5 ,A                             ," + out + "/extract_A.pdf\r\n6 ,8 ,B "),
              std::string::npos)
        << csv;
    EXPECT_NE(csv.find("\r\n,2, PDF file(s)\r\n"), std::string::npos) << csv;

    // A one-page document turns the unique mode into the plain one for the run.
    EXPECT_EQ(split(document(1, accountsOn({{1, "A"}})), [](SplitSettings& s) { s.PAGEEXTRACT = kExtractModes[1]; }),
              (Outputs{{"extract_A.pdf", "1"}}));
}

TEST(SplitRules, MatchesReachAcrossLinesAndPages) {
    // "Invoice" ends a line and "No" starts the next; on page 3 "Invoice"
    // ends the page and "No" opens page 4.
    const auto pages = document(6, [](int n) -> std::vector<std::string> {
        if (n == 1) return {"Dear Invoice", "No 17 due"};
        if (n == 3) return {"total", "Invoice"};
        if (n == 4) return {"No 42"};
        return {"text " + std::to_string(n)};
    });
    EXPECT_EQ(split(pages, [](SplitSettings& s) { s.FINDSTRING = "Invoice No"; }),
              (Outputs{{"extract_17.pdf", "1-3"}, {"extract_42.pdf", "4-6"}}));

    // A match that is the last word of a page opens its range on the next page.
    const auto last = document(4, [](int n) -> std::vector<std::string> {
        if (n == 2) return {"text", "account:"};
        return {"Name" + std::to_string(n)};
    });
    EXPECT_EQ(split(last, [](SplitSettings&) {}), (Outputs{{"extract_Name3.pdf", "3-4"}}));

    // More than twenty words cannot be matched: nothing is written.
    Fixture refused(pages);
    refused.settings.FINDSTRING = "a b c d e f g h i j k l m n o p q r s t u";
    refused.run();
    EXPECT_TRUE(refused.outputs().empty());
    ASSERT_FALSE(refused.ui.notes.empty());
    EXPECT_NE(refused.ui.notes[0].find("at most 20"), std::string::npos);
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

TEST(SplitRules, NamesFromTheRestOfTheLine) {
    const auto pages = document(4, [](int n) -> std::vector<std::string> {
        if (n == 1) return {"Invoice: Smith & Sons Ltd #77 London", "Customer: Acme (UK) plc", "amount"};
        if (n == 3) return {"Invoice: Jones (UK) plc", "Customer: Brown, Kent", "amount"};
        if (n == 4) return {"Berlin Branch", "more"};
        return {"text " + std::to_string(n)};
    });
    const auto restOfLine = [](SplitSettings& s) {
        s.FINDSTRING = "Invoice:";
        s.EXTRACT = kFilenameModes[6];
    };
    struct Case {
        std::string name;
        std::function<void(SplitSettings&)> configure;
        Outputs expected;
    } const cases[] = {
        {"whole line",
         restOfLine,
         {{"extract_Smith&SonsLtd#77London.pdf", "1-2"}, {"extract_Jones(UK)plc.pdf", "3-4"}}},
        {"two words, blanks between",
         [&](SplitSettings& s) {
             restOfLine(s);
             s.TAKENWORDSFORFILENAME = 2;
             s.ADDBWORDS = " ";
         },
         {{"extract_Smith &.pdf", "1-2"}, {"extract_Jones (UK).pdf", "3-4"}}},
        // No separator after punctuation other than ":".
        {"until a word starting with #",
         [&](SplitSettings& s) {
             restOfLine(s);
             s.FIRSTCHAROFWORD = "#";
             s.ADDBWORDS = "_";
         },
         {{"extract_Smith_&Sons_Ltd.pdf", "1-2"}, {"extract_Jones_(UK)plc.pdf", "3-4"}}},
        {"only left of h 250",
         [&](SplitSettings& s) {
             restOfLine(s);
             s.UNTILHHPOSLESSTHAN = 250;
         },
         {{"extract_Smith&.pdf", "1-2"}, {"extract_Jones(UK).pdf", "3-4"}}},
        {"the line after a label instead",
         [&](SplitSettings& s) {
             restOfLine(s);
             s.EXTRACTFILENAME = "Customer:";
         },
         {{"extract_Acme(UK)plc.pdf", "1-2"}, {"extract_Brown,Kent.pdf", "3-4"}}},
        // On the next page's line "*" is a blank, after the "_" that joins the
        // lines; on the match's line it is itself, which names cannot hold.
        {"and the first line of the next page",
         [&](SplitSettings& s) {
             restOfLine(s);
             s.EXTRACT = kFilenameModes[7];
             s.ADDBWORDS = "*";
         },
         {{"extract_Smith&SonsLtd#77London_ text 2.pdf", "1-2"}, {"extract_Jones(UK)plc_ Berlin Branch.pdf", "3-4"}}},
    };
    for (const auto& c : cases) EXPECT_EQ(split(pages, c.configure), c.expected) << c.name;
}

// Cancels the run once the scan has reached a page.
class CancelAtPage : public testing::RecordingInterface {
public:
    int page = 0;
    void progress(const Progress& progress) override {
        if (progress.page >= page) requestCancel();
    }
};

TEST(SplitRules, StopsAndHostErrorsEndTheDocumentCleanly) {
    const auto pages = document(10, accountsOn({{1, "A1"}, {4, "B4"}, {9, "C9"}}));
    {
        // Stopped on page 6: what was written stays, nothing more is.
        testing::TempDir dir;
        const std::string source = (dir / "doc.pdf").string();
        std::ofstream(source) << "scripted";
        testing::ScriptedHost host;
        host.files[source] = pages;
        CancelAtPage ui;
        ui.page = 6;
        SplitSettings settings;
        settings.OUTPUTDIR = (dir / "out").string();
        BatchRun batch(host, ui, settings);
        batch.settingsFile = dir / "VelliraBatch.ini";
        std::vector<BatchRow> rows{{"Yes", source, "Ready.", ""}, {"Yes", source, "Ready.", ""}};
        batch.process(rows);
        EXPECT_EQ(host.files.size(), 2u);
        EXPECT_TRUE(host.files.count((dir / "out" / "extract_A1.pdf").string()));
        EXPECT_EQ(rows[1].status, "Ready.");
    }

    // Page 6 cannot be read: the range before it was written, the open one is dropped.
    Fixture failing(pages);
    failing.host.failOnPage = 5;
    EXPECT_EQ(failing.run(), "Done");
    EXPECT_EQ(failing.outputs(), (Outputs{{"extract_A1.pdf", "1-3"}}));
    EXPECT_EQ(failing.ui.notes, std::vector<std::string>{"Abort!! Find Word Error message: cannot read page 6"});
}

}  // namespace
}  // namespace vellira
