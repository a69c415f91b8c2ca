// Output names as users configure them: modes, macros, cuts and prefixes.
#include "engine/FilenameComposer.h"
#include "support/RecordingInterface.h"
#include "support/ScriptedHost.h"

#include <gtest/gtest.h>

#include <algorithm>

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
    // "KEY=VALUE" settings split by "|", the captured text, the output path.
    const std::tuple<std::string, std::string, std::string> cases[] = {
        {"", "Inv/01:A?", "/out/extract_Inv01A.pdf"},  // characters names cannot hold are dropped
        {"PREFIXFILENAME=[PAGESTART]_[PAGEEND]_[PAGES]_[TOTALPAGES]_", "x", "/out/000003_000005_000003_000010_x.pdf"},
        // Only the start carries the offset.
        {"offset=1|PREFIXFILENAME=[PAGESTARTNOMASK]-[PAGEENDNOMASK]_", "x", "/out/4-5_x.pdf"},
        {"PREFIXFILENAME=[YY]_", "x", "/out/[YY]_x.pdf"},  // alone it stays as typed; with a date it is the full year
        {"POSTFIXFILENAME=_[YY]-[MM]", "x", "/out/extract_x_2024-07.pdf"},
        {"PREFIXFILENAME=[YYYY][M][D]-[DD]-[hh][mm][ss]_", "x", "/out/202475-05-090307_x.pdf"},
        {"PREFIXFILENAME=[FILETITLE]-[EXTRACTTEXT]-", "a:b", "/out/Run-ab-ab.pdf"},
        {"TAKENCHARSFORFILENAME=999", "ABCDEFG", "/out/extract_ABCDEFG.pdf"},
        {"TAKENCHARSFORFILENAME=0", "ABCDEFG", "/out/extract_ABCDEFG.pdf"},
        {"TAKENCHARSFORFILENAME=5", "ABCDEFG", "/out/extract_ABCDE.pdf"},
        {"TAKENCHARSFORFILENAME=5", "ÄÖÜßéX", "/out/extract_ÄÖÜßé.pdf"},
        {"STRIPEND=2", "ABC12", "/out/extract_ABC.pdf"},
        {"STRIPEND=9", "ABC12", "/out/extract_.pdf"},
        {"STRIPEND=1", "Grüß", "/out/extract_Grü.pdf"},
        {"UNTILCHARACTERFILENAME=Ltd", "SmithLtdLondon", "/out/extract_Smith.pdf"},
        {"USESOURCEFILENAME=1|FILENAME=/in/Report.PDF", "x", "/out/Report_x.pdf"},
        {"USESOURCEFILENAME=1|FILENAME=D:\\in\\Report.PDF", "x", "/out/Report_x.pdf"},
        {"USESOURCEFILENAME=1|FILENAME=Report.pdf", "x", "/out/Reportx.pdf"},  // a bare name gets no "_"
        {"USESOURCEFILENAMEPOST=1|FILENAME=/in/Report.pdf", "x", "/out/extract_xReport.pdf"},
        // A name fits the folder's 255 bytes, cut before ".pdf" on a character boundary.
        {"PREFIXFILENAME=", std::string(250, 'a') + "éé", "/out/" + std::string(250, 'a') + ".pdf"},
        {"EXTRACT=", "x", "/out/extract_x.pdf"},  // no mode at all names by the text
    };
    for (const auto& [sets, capture, expected] : cases) {
        Composer composer;
        composer.settings.FILENAME = "/in/Run.pdf";
        for (std::size_t at = 0; at < sets.size();) {
            const auto end = std::min(sets.find('|', at), sets.size()), equals = sets.find('=', at);
            const std::string key = sets.substr(at, equals - at), value = sets.substr(equals + 1, end - equals - 1);
            if (key == "offset")
                composer.settings.offsetFirstWorking = std::stoi(value);
            else
                assignKey(composer.settings, *findSettingsKey(key), value);
            at = end + 1;
        }
        EXPECT_EQ(composer.name(capture), expected) << sets;
    }
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
