// Every split mode against the naming modes on one shared statement run, so a
// change to one rule that breaks another shows up here.
#include "core/SplitSettings.h"
#include "fixtures/PdfFixture.h"
#include "support/OutputPdf.h"
#include "support/RunProgram.h"

#include <gtest/gtest.h>

#include <map>

namespace vellira {
namespace {

using testing::quoted;

// Twelve pages, each ending in a line "text pN". Statements open with
// "account: NAME" as their first line (the label at h 72, v 720, the name at
// h 144, v 720) and a "customer:" line below it: ANNA on page 1, BO on pages 4
// and 6 (the same account twice), CARL on page 9. Page 11 mentions
// "account: ZED" further along its first line (h 108) with a customer line of
// its own. "total:" opens the first line of pages 3, 7 and 12 (h 72, v 720);
// on page 10 it stands further along the line (h 122).
std::filesystem::path writeRun(const testing::TempDir& dir) {
    const std::map<int, std::vector<std::string>> text = {
        {1, {"account: ANNA", "customer: Anna Berg"}},
        {3, {"total: 30"}},
        {4, {"account: BO", "customer: Bo Lind"}},
        {6, {"account: BO", "customer: Bo Lind"}},
        {7, {"total: 70"}},
        {9, {"account: CARL", "customer: Carl Dahl"}},
        {10, {"grand total: 90"}},
        {11, {"old account: ZED", "customer: Zoe Ek"}},
        {12, {"total: 120"}},
    };
    fixtures::Document document;
    for (int page = 1; page <= 12; ++page) {
        auto lines = text.count(page) ? text.at(page) : std::vector<std::string>{};
        lines.push_back("text p" + std::to_string(page));
        document.pages.push_back(fixtures::textPage(lines));
    }
    const auto pdf = dir / "run.pdf";
    fixtures::writePdf(document, pdf);
    return pdf;
}

// Output file name (without "extract_" and ".pdf") -> its pages, first and
// last (1-based), all pages between them in order.
using Outputs = std::map<std::string, std::pair<int, int>>;

Outputs found(const std::filesystem::path& out) {
    Outputs outputs;
    if (!std::filesystem::exists(out)) return outputs;
    for (const auto& entry : std::filesystem::directory_iterator(out)) {
        const std::string name = entry.path().filename().string();
        const auto markers = testing::pageMarkers(entry.path());
        // Pages must run without a gap from the first to the last.
        int first = markers.empty() ? 0 : std::stoi(markers.front().substr(1));
        int last = first - 1;
        for (const auto& marker : markers) last = std::stoi(marker.substr(1)) == last + 1 ? last + 1 : -1000;
        const bool named = name.starts_with("extract_") && name.ends_with(".pdf");
        outputs[named ? name.substr(8, name.size() - 12) : "?" + name] = {first, last};
    }
    return outputs;
}

TEST(SplitModes, EverySplitModeWithTheNamingModes) {
    testing::TempDir dir;
    const auto pdf = writeRun(dir);
    const auto mode = [](int split, int name) {
        return "--set 'PAGEEXTRACT=" + std::string(kExtractModes[split]) +
               "' --set \"EXTRACT=" + std::string(kFilenameModes[name]) + "\"";
    };
    const std::string label = " --set EXTRACTFILENAME=customer:";
    const std::string position = " --set MATCHPOSH=72 --set MATCHPOSV=720";
    const std::string until = " --set EXTRACTUNTIL=total:";
    const std::string untilPosition = until + " --set UNTILMATCHPOSH=72 --set UNTILMATCHPOSV=720";
    // No search text: the word standing where the account names stand starts a
    // range.
    const std::string namePosition = " --set FINDSTRING= --set MATCHPOSH=144 --set MATCHPOSV=720";
    struct Case {
        std::string settings;
        Outputs expected;
    } const cases[] = {
        // Each split mode, named by the word after "account:".
        // A later range of the same name replaces the earlier one (BO 4-5).
        {mode(0, 0), {{"ANNA", {1, 3}}, {"BO", {6, 8}}, {"CARL", {9, 10}}, {"ZED", {11, 12}}}},
        // Consecutive ranges of one name become one.
        {mode(1, 0), {{"ANNA", {1, 3}}, {"BO", {4, 8}}, {"CARL", {9, 10}}, {"ZED", {11, 12}}}},
        // "account:" off its position (page 11) starts nothing; the last
        // range is named by the matched word itself.
        {mode(2, 0) + position, {{"ANNA", {1, 3}}, {"BO", {6, 8}}, {"account", {9, 12}}}},
        // The until page belongs to the range; "account:" inside an open range
        // (page 6) is ignored, "total:" anywhere on the page ends it (page 10).
        {mode(4, 0) + until, {{"ANNA", {1, 3}}, {"BO", {4, 7}}, {"CARL", {9, 10}}, {"ZED", {11, 12}}}},
        // The until page is left out, and "total:" off its position (page 10)
        // ends nothing.
        {mode(5, 0) + position + untilPosition, {{"ANNA", {1, 2}}, {"BO", {4, 6}}, {"CARL", {9, 11}}}},
        {mode(6, 0), {{"ANNA", {1, 1}}, {"BO", {6, 6}}, {"CARL", {9, 9}}, {"ZED", {11, 11}}}},

        // Each naming mode on the ranges of the first mode.
        {mode(0, 1), {{"1", {1, 3}}, {"4", {4, 5}}, {"6", {6, 8}}, {"9", {9, 10}}, {"11", {11, 12}}}},
        {mode(0, 2), {{"1-3", {1, 3}}, {"4-5", {4, 5}}, {"6-8", {6, 8}}, {"9-10", {9, 10}}, {"11-12", {11, 12}}}},
        {mode(0, 4),
         {{"000001", {1, 3}}, {"000002", {4, 5}}, {"000003", {6, 8}}, {"000004", {9, 10}}, {"000005", {11, 12}}}},
        {mode(0, 5) + label, {{"Anna", {1, 3}}, {"Bo", {6, 8}}, {"Carl", {9, 10}}, {"Zoe", {11, 12}}}},
        {mode(0, 6) + label, {{"AnnaBerg", {1, 3}}, {"BoLind", {6, 8}}, {"CarlDahl", {9, 10}}, {"ZoeEk", {11, 12}}}},
        // The first line of the page after the customer line comes after "_".
        {mode(0, 7) + label,
         {{"AnnaBerg_textp2", {1, 3}},
          {"BoLind_textp5", {4, 5}},
          {"BoLind_total70", {6, 8}},
          {"CarlDahl_grandtotal90", {9, 10}},
          {"ZoeEk_total120", {11, 12}}}},

        // Mixed: the rules of one mode seen through another.
        {mode(1, 6) + label, {{"AnnaBerg", {1, 3}}, {"BoLind", {4, 8}}, {"CarlDahl", {9, 10}}, {"ZoeEk", {11, 12}}}},
        // Only the first customer line after a cut names the range: Zoe's on
        // page 11 falls inside CARL's range here.
        {mode(2, 6) + position + label, {{"AnnaBerg", {1, 3}}, {"BoLind", {6, 8}}, {"CarlDahl", {9, 12}}}},
        {mode(3, 3) + namePosition, {{"ANNA", {1, 3}}, {"BO", {4, 8}}, {"CARL", {9, 12}}}},
        {mode(4, 4) + until, {{"000001", {1, 3}}, {"000002", {4, 7}}, {"000003", {9, 10}}, {"000004", {11, 12}}}},
        {mode(5, 2) + position + untilPosition, {{"1-2", {1, 2}}, {"4-6", {4, 6}}, {"9-11", {9, 11}}}},
        {mode(6, 1), {{"1", {1, 1}}, {"4", {4, 4}}, {"6", {6, 6}}, {"9", {9, 9}}, {"11", {11, 11}}}},
    };
    int run = 0;
    for (const auto& c : cases) {
        const auto out = dir / ("out" + std::to_string(++run));
        const auto result =
            testing::runProgram(dir, "split " + c.settings + " --set OUTPUTDIR=" + quoted(out) + " " + quoted(pdf));
        EXPECT_EQ(result.status, 0) << c.settings << "\n" << result.err;
        EXPECT_EQ(result.out, "Done\t" + pdf.string() + "\n") << c.settings;
        EXPECT_EQ(found(out), c.expected) << c.settings;
    }
}

}  // namespace
}  // namespace vellira
