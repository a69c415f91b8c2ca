// Output names as users configure them: modes, macros, cuts and prefixes.
#include "engine/FilenameComposer.h"
#include "support/RecordingInterface.h"
#include "support/ScriptedHost.h"

#include <gtest/gtest.h>

#include <functional>

namespace vellira {
namespace {

struct Composer {
    SplitSettings settings;
    testing::ScriptedHost host;
    testing::RecordingInterface ui;
    Trace trace;
    FilenameComposer composer{settings, host, ui, trace};

    Composer() {
        settings.OUTPUTDIR = "/out";
        // 5 July 2024, 09:03:07.
        composer.runTime = {.tm_sec = 7, .tm_min = 3, .tm_hour = 9, .tm_mday = 5, .tm_mon = 6, .tm_year = 2024 - 1900};
    }
    std::string name(std::string_view capture, NameRange range = {2, 4, 10}, std::string line = {}) {
        composer.takeMode(settings.EXTRACT);
        return composer.AquireFilename(capture, line, range);
    }
};

TEST(FilenameComposer, ModesMacrosAndCuts) {
    struct Case {
        std::string what;
        std::function<void(SplitSettings&)> configure;
        std::string capture;
        std::string expected;
    } const cases[] = {
        {"characters names cannot hold are dropped", [](SplitSettings&) {}, "Inv/01:A?", "/out/extract_Inv01A.pdf"},
        {"page macros", [](SplitSettings& s) { s.PREFIXFILENAME = "[PAGESTART]_[PAGEEND]_[PAGES]_[TOTALPAGES]_"; }, "x",
         "/out/000003_000005_000003_000010_x.pdf"},
        {"only the start carries the offset",
         [](SplitSettings& s) { s.offsetFirstWorking = 1, s.PREFIXFILENAME = "[PAGESTARTNOMASK]-[PAGEENDNOMASK]_"; },
         "x", "/out/4-5_x.pdf"},
        {"[YY] alone stays as typed", [](SplitSettings& s) { s.PREFIXFILENAME = "[YY]_"; }, "x", "/out/[YY]_x.pdf"},
        {"with a date it is the full year", [](SplitSettings& s) { s.POSTFIXFILENAME = "_[YY]-[MM]"; }, "x",
         "/out/extract_x_2024-07.pdf"},
        {"date and time", [](SplitSettings& s) { s.PREFIXFILENAME = "[YYYY][M][D]-[DD]-[hh][mm][ss]_"; }, "x",
         "/out/202475-05-090307_x.pdf"},
        {"title and text", [](SplitSettings& s) { s.PREFIXFILENAME = "[FILETITLE]-[EXTRACTTEXT]-"; }, "a:b",
         "/out/Run-ab-ab.pdf"},
        {"999 characters never cut", [](SplitSettings& s) { s.TAKENCHARSFORFILENAME = 999; }, "ABCDEFG",
         "/out/extract_ABCDEFG.pdf"},
        {"0 characters never cut", [](SplitSettings& s) { s.TAKENCHARSFORFILENAME = 0; }, "ABCDEFG",
         "/out/extract_ABCDEFG.pdf"},
        {"5 characters", [](SplitSettings& s) { s.TAKENCHARSFORFILENAME = 5; }, "ABCDEFG", "/out/extract_ABCDE.pdf"},
        {"5 characters, not bytes", [](SplitSettings& s) { s.TAKENCHARSFORFILENAME = 5; }, "ÄÖÜßéX",
         "/out/extract_ÄÖÜßé.pdf"},
        {"strip the end", [](SplitSettings& s) { s.STRIPEND = 2; }, "ABC12", "/out/extract_ABC.pdf"},
        {"strip it all", [](SplitSettings& s) { s.STRIPEND = 9; }, "ABC12", "/out/extract_.pdf"},
        {"strip counts characters", [](SplitSettings& s) { s.STRIPEND = 1; }, "Grüß", "/out/extract_Grü.pdf"},
        {"until a word", [](SplitSettings& s) { s.UNTILCHARACTERFILENAME = "Ltd"; }, "SmithLtdLondon",
         "/out/extract_Smith.pdf"},
        {"source title as prefix", [](SplitSettings& s) { s.USESOURCEFILENAME = 1, s.FILENAME = "/in/Report.PDF"; },
         "x", "/out/Report_x.pdf"},
        {"source title from a Windows path",
         [](SplitSettings& s) { s.USESOURCEFILENAME = 1, s.FILENAME = "D:\\in\\Report.PDF"; }, "x",
         "/out/Report_x.pdf"},
        {"bare source name gets no _", [](SplitSettings& s) { s.USESOURCEFILENAME = 1, s.FILENAME = "Report.pdf"; },
         "x", "/out/Reportx.pdf"},
        {"source title as postfix",
         [](SplitSettings& s) { s.USESOURCEFILENAMEPOST = 1, s.FILENAME = "/in/Report.pdf"; }, "x",
         "/out/extract_xReport.pdf"},
        {"a name fits the folder's 255 bytes, cut before .pdf on a character boundary",
         [](SplitSettings& s) { s.PREFIXFILENAME = ""; }, std::string(250, 'a') + "éé",
         "/out/" + std::string(250, 'a') + ".pdf"},
        {"no mode at all names by the text", [](SplitSettings& s) { s.EXTRACT = ""; }, "x", "/out/extract_x.pdf"},
    };
    for (const auto& c : cases) {
        Composer composer;
        composer.settings.FILENAME = "/in/Run.pdf";
        c.configure(composer.settings);
        EXPECT_EQ(composer.name(c.capture), c.expected) << c.what;
    }
}

// The rest of a line names the output cut to its characters, and the line
// itself is left cleaned for the report.
TEST(FilenameComposer, RestOfLineIsCleanedInPlace) {
    Composer c;
    c.settings.EXTRACT = modeText(FilenameMode::NameAfterTextRestOfLine);
    c.settings.TAKENCHARSFORFILENAME = 8;
    c.composer.takeMode(c.settings.EXTRACT);
    std::string line = "Smith: & <Sons>";
    EXPECT_EQ(c.composer.AquireFilename("ignored", line, {0, 0, 1}), "/out/extract_Smith & .pdf");
    EXPECT_EQ(line, "Smith & ");
}

TEST(FilenameComposer, PositionMacroReadsTheRangesPages) {
    // Without a document in view the token gives nothing, and says why.
    Composer c;
    c.settings.PREFIXFILENAME = "[POS100-200,700]_";
    EXPECT_EQ(c.name("x", {0, 1, 3}), "/out/_x.pdf");
    EXPECT_EQ(c.ui.notes, std::vector<std::string>{"WordFinder Can't open current file"});
    c.ui.notes.clear();

    // Words of the range's pages inside the rectangle h 100-200, v 700 to any.
    c.host.files["/in/doc.pdf"] = {{{"out", 50, 700}, {"In", 150, 700}, {"Low", 150, 600}},
                                   {{"voice", 100, 720}, {"No", 201, 700}},
                                   {{"Later", 150, 700}}};
    c.host.openDocument("/in/doc.pdf");
    c.settings.PREFIXFILENAME = "[POS100-200,700--1]_";
    EXPECT_EQ(c.name("x", {0, 1, 3}), "/out/Invoice_x.pdf");
    c.settings.offsetFirstWorking = 1;
    EXPECT_EQ(c.name("x", {0, 1, 3}), "/out/voice_x.pdf");
    c.settings.PREFIXFILENAME = "[POS100]_";
    EXPECT_EQ(c.name("x", {0, 1, 3}), "/out/_x.pdf");
    EXPECT_TRUE(c.ui.notes.empty());
}

}  // namespace
}  // namespace vellira
