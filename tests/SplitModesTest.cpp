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

// Ten pages. Statements open on pages 1, 4 and 6 ("account:" at h 72, v 720,
// then its number), each with a customer line; "total:" ends pages 3 and 7.
std::filesystem::path writeRun(const testing::TempDir& dir) {
    const std::map<int, std::vector<std::string>> text = {
        {1, {"account: AAA Invoice", "Customer: Alpha Ltd"}},
        {3, {"total: 10"}},
        {4, {"account: BBB", "Customer: Beta plc"}},
        {6, {"account: CCC", "Customer: Beta plc"}},
        {7, {"total: 20"}},
    };
    fixtures::Document document;
    for (int page = 1; page <= 10; ++page) {
        auto lines = text.count(page) ? text.at(page) : std::vector<std::string>{};
        lines.push_back("text p" + std::to_string(page));
        document.pages.push_back(fixtures::textPage(lines));
    }
    const auto pdf = dir / "run.pdf";
    fixtures::writePdf(document, pdf);
    return pdf;
}

using Outputs = std::map<std::string, std::string>;  // name less ".pdf" -> "pFIRST-pLAST" or "pN"

TEST(SplitModes, EverySplitModeWithTheNamingModes) {
    testing::TempDir dir;
    const auto pdf = writeRun(dir);
    const auto mode = [](int split, int name) {
        return "--set 'PAGEEXTRACT=" + std::string(kExtractModes[split]) +
               "' --set \"EXTRACT=" + std::string(kFilenameModes[name]) + "\"";
    };
    const std::string position = " --set MATCHPOSH=72 --set MATCHPOSV=720";
    const std::string until = " --set EXTRACTUNTIL=total: --set UNTILMATCHPOSH=72 --set UNTILMATCHPOSV=720";
    const std::string label = " --set EXTRACTFILENAME=Customer:";
    struct Case {
        std::string settings;
        Outputs expected;
    } const cases[] = {
        // Each split mode, named by the next word.
        {mode(0, 0), {{"AAA", "p1-p3"}, {"BBB", "p4-p5"}, {"CCC", "p6-p10"}}},
        {mode(1, 0), {{"AAA", "p1-p3"}, {"BBB", "p4-p5"}, {"CCC", "p6-p10"}}},
        // The last range of this mode is named by the matched word itself.
        {mode(2, 0) + position, {{"AAA", "p1-p3"}, {"BBB", "p4-p5"}, {"account", "p6-p10"}}},
        {mode(3, 0) + position, {{"AAA", "p1-p3"}, {"BBB", "p4-p5"}, {"CCC", "p6-p10"}}},
        // A start inside an open until range (page 6) is ignored.
        {mode(4, 0) + until, {{"AAA", "p1-p3"}, {"BBB", "p4-p7"}}},
        {mode(5, 0) + position + until, {{"AAA", "p1-p2"}, {"BBB", "p4-p6"}}},
        {mode(6, 0), {{"AAA", "p1"}, {"BBB", "p4"}, {"CCC", "p6"}}},
        // Each naming mode, cut at every match.
        {mode(0, 1), {{"1", "p1-p3"}, {"4", "p4-p5"}, {"6", "p6-p10"}}},
        {mode(0, 2), {{"1-3", "p1-p3"}, {"4-5", "p4-p5"}, {"6-10", "p6-p10"}}},
        // The h,v word names only position matches: every range gets the
        // same empty name and the last one is what stays.
        {mode(0, 3), {{"", "p6-p10"}}},
        {mode(3, 3) + position, {{"account", "p1-p10"}}},
        {mode(0, 4), {{"000001", "p1-p3"}, {"000002", "p4-p5"}, {"000003", "p6-p10"}}},
        {mode(0, 5) + label, {{"Alpha", "p1-p3"}, {"Beta", "p6-p10"}}},
        {mode(0, 6) + label, {{"AlphaLtd", "p1-p3"}, {"Betaplc", "p6-p10"}}},
        {mode(0, 7) + label,
         {{"AlphaLtd_textp2", "p1-p3"}, {"Betaplc_textp5", "p4-p5"}, {"Betaplc_total20", "p6-p10"}}},
        // Unique modes merge ranges of the same name.
        {mode(1, 6) + label, {{"AlphaLtd", "p1-p3"}, {"Betaplc", "p4-p10"}}},
        {mode(6, 2), {{"1-1", "p1"}, {"4-4", "p4"}, {"6-6", "p6"}}},
        {mode(4, 4) + until, {{"000001", "p1-p3"}, {"000002", "p4-p7"}}},
    };
    int run = 0;
    for (const auto& c : cases) {
        const auto out = dir / ("out" + std::to_string(++run));
        const auto result = testing::runProgram(
            dir, "split " + c.settings + " --set PREFIXFILENAME= --set OUTPUTDIR=" + quoted(out) + " " + quoted(pdf));
        EXPECT_EQ(result.status, 0) << c.settings << "\n" << result.err;
        Outputs found;
        if (std::filesystem::exists(out)) {
            for (const auto& entry : std::filesystem::directory_iterator(out)) {
                const auto markers = testing::pageMarkers(entry.path());
                const std::string span = markers.empty()       ? ""
                                         : markers.size() == 1 ? markers[0]
                                                               : markers.front() + "-" + markers.back();
                const std::string name = entry.path().filename().string();
                found[name.substr(0, name.size() - 4)] = span;
            }
        }
        EXPECT_EQ(found, c.expected) << c.settings;
    }
}

}  // namespace
}  // namespace vellira
