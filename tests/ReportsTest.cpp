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

TEST(Reports, LinesAreWrittenByteForByteAndTakenBack) {
    testing::TempDir dir;
    testing::RecordingInterface ui;
    const std::string source = (dir / "run.pdf").string();
    std::ofstream(source + "_report.txt") << "an old report that is much longer than the new one will be";
    SplitSettings settings;
    settings.REPORTOPTIONSTXT = settings.REPORTOPTIONSCSV = 1;
    Reports reports;
    ASSERT_TRUE(reports.open(settings, source, when(), ui));
    reports.rangeLine(1, 4, "100234", "/out/extract_100234.pdf");
    reports.rangeLine(5, 12, "100235-long-name-for-a-customer-x", "/out/extract_100235.pdf");
    reports.takeBack();  // the same name again: its last line is replaced
    reports.rangeLine(5, 9, "100235", "/out/b.pdf");
    reports.footer(0, 2);
    reports.close();

    const std::string padded =
        std::string("\tPDF Filename: ") + source + std::string(source.size() < 30 ? 30 - source.size() : 0, ' ');
    EXPECT_EQ(readFile(source + "_report.txt"),
              "\t\t\t\tVellira v4.01 Report\t\t\t11/03/26 09:05:07\r\n\r\n" + padded +
                  "\r\n\tFind: account:\r\n\r\n"
                  "Page: 1  - 4 \t100234                        \tOutput file:/out/extract_100234.pdf\r\n"
                  "Page: 5  - 9 \t100235                        \tOutput file:/out/b.pdf\r\n"
                  "\r\n\t1 PDF file(s)\r\n");
    const std::string csvName = source + std::string(source.size() < 30 ? 30 - source.size() : 0, ' ');
    EXPECT_EQ(readFile(source + "_report.csv"), "Vellira Batch v4.01 Report,,11/03/26,09:05:07\r\n\r\nPDF Filename:," +
                                                    csvName +
                                                    "\r\nFind:,account:\r\n\r\n"
                                                    "Start Page,End Page,Matched,Output File\r\n"
                                                    "1 ,4 ,100234                        ,/out/extract_100234.pdf\r\n"
                                                    "5 ,9 ,100235                        ,/out/b.pdf\r\n"
                                                    "\r\n,1, PDF file(s)\r\n");
    EXPECT_TRUE(ui.notes.empty());
}

TEST(Reports, SwitchedOffReportsWriteNothingAndUnwritableOnesSaySo) {
    testing::TempDir dir;
    testing::RecordingInterface ui;
    const std::string source = (dir / "run.pdf").string();
    SplitSettings settings;  // both reports off
    Reports reports;
    ASSERT_TRUE(reports.open(settings, source, when(), ui));
    reports.rangeLine(1, 1, "x", "/out/x.pdf");
    reports.footer(1, 1);
    reports.close();
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 0);
    EXPECT_TRUE(std::filesystem::exists(nullDevice()));

    settings.REPORTOPTIONSCSV = 1;
    settings.REPORTOPTIONSOUTPUTFOLDER = (dir / "missing").string();
    EXPECT_FALSE(reports.open(settings, source, when(), ui));
    EXPECT_EQ(ui.notes, (std::vector<std::string>{"file error! can't write to report file: " +
                                                  (dir / "missing" / "run_report.csv").string()}));
}

}  // namespace
}  // namespace vellira
