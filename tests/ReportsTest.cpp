#include "files/Reports.h"
#include "support/Files.h"
#include "support/RecordingInterface.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

namespace vellira {
namespace {

using testing::readFile;

std::tm when() {
    std::tm t{};
    t.tm_year = 126, t.tm_mon = 10, t.tm_mday = 3, t.tm_hour = 9, t.tm_min = 5, t.tm_sec = 7;
    return t;
}

TEST(Reports, PathsFollowTheReportOptions) {
    const std::string source = "/in/a.pdf";
    struct Case {
        int txt, csv, current;
        std::string folder;
        std::string text, comma;
    } const cases[] = {
        {1, 1, 0, "", "/in/a.pdf_report.txt", "/in/a.pdf_report.csv"},
        {1, 1, 0, "/", "/in/a.pdf_report.txt", "/in/a.pdf_report.csv"},  // one character: beside the source
        {1, 1, 0, "/out", "/out/a_report.txt", "/out/a_report.csv"},
        {1, 1, 1, "/out", "/in/a.pdf_report.txt", "/in/a.pdf_report.csv"},
        {0, 1, 0, "/out", nullDevice().string(), "/out/a_report.csv"},
        {1, 0, 0, "", "/in/a.pdf_report.txt", nullDevice().string()},
    };
    for (const auto& c : cases) {
        SplitSettings settings;
        settings.REPORTOPTIONSTXT = c.txt;
        settings.REPORTOPTIONSCSV = c.csv;
        settings.REPORTOPTIONSCURRENT = c.current;
        settings.REPORTOPTIONSOUTPUTFOLDER = c.folder;
        const auto paths = reportPaths(settings, source);
        EXPECT_EQ(paths.text.string(), c.text) << c.folder;
        EXPECT_EQ(paths.csv.string(), c.comma) << c.folder;
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
    EXPECT_FALSE(reports.open(settings, source, when(), ui, unique));
    EXPECT_EQ(ui.notes, (std::vector<std::string>{"file error! can't write to report file: " +
                                                  (dir / "missing" / "run_report.csv").string()}));
}

}  // namespace
}  // namespace vellira
