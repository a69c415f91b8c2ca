#include "files/Reports.h"
#include "support/RecordingInterface.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

namespace vellira {
namespace {

TEST(Reports, PathsFollowTheReportOptions) {
    // Text report, CSV report, beside the current document, report folder; the paths of both.
    const std::tuple<int, int, int, std::string, std::string, std::string> cases[] = {
        {1, 1, 0, "", "/in/a.pdf_report.txt", "/in/a.pdf_report.csv"},
        {1, 1, 0, "/", "/in/a.pdf_report.txt", "/in/a.pdf_report.csv"},  // one character: beside the source
        {1, 1, 0, "/out", "/out/a_report.txt", "/out/a_report.csv"},
        {1, 1, 1, "/out", "/in/a.pdf_report.txt", "/in/a.pdf_report.csv"},
        {0, 1, 0, "/out", nullDevice().string(), "/out/a_report.csv"},
        {1, 0, 0, "", "/in/a.pdf_report.txt", nullDevice().string()},
    };
    for (const auto& [txt, csv, current, folder, text, comma] : cases) {
        SplitSettings s;
        s.REPORTOPTIONSTXT = txt, s.REPORTOPTIONSCSV = csv, s.REPORTOPTIONSCURRENT = current;
        s.REPORTOPTIONSOUTPUTFOLDER = folder;
        const auto paths = reportPaths(s, "/in/a.pdf");
        EXPECT_EQ(paths.text.string() + " " + paths.csv.string(), text + " " + comma) << folder;
    }
}

TEST(Reports, AReportThatCannotBeWrittenSaysSo) {
    testing::TempDir dir;
    testing::RecordingInterface ui;
    const std::string source = (dir / "run.pdf").string();
    SplitSettings settings;
    Reports reports;
    settings.REPORTOPTIONSCSV = 1;
    settings.REPORTOPTIONSOUTPUTFOLDER = (dir / "missing").string();
    std::uint32_t unique = 0;
    EXPECT_FALSE(reports.open(settings, source, std::tm{.tm_mday = 3, .tm_mon = 10, .tm_year = 126}, ui, unique));
    EXPECT_EQ(ui.notes, (std::vector<std::string>{"file error! can't write to report file: " +
                                                  (dir / "missing" / "run_report.csv").string()}));
}

}  // namespace
}  // namespace vellira
