// Runs the real vellira-batch program and checks what a user sees.
#include "fixtures/PdfFixture.h"
#include "support/RunProgram.h"

#include <gtest/gtest.h>

#include <unistd.h>
#include <fstream>

namespace vellira {
namespace {

using testing::readFile;
using testing::runProgram;

// A page's words with their positions, on screen and in the view file; bad
// input gets one line and a status.
TEST(PositionsCommand, ListsEveryWordOfThePageWithItsPositionAndRefusesBadInput) {
    testing::TempDir dir;
    fixtures::Document document;
    document.pages.push_back(fixtures::textPage({"cover"}));
    document.pages.push_back({612, 792, 0, {{"Invoice", 99.99, 700.25}, {"No.", 300, 700}, {"edge", -0.5, 20.75}}});
    const auto pdf = dir / "statements.pdf";
    fixtures::writePdf(document, pdf);
    std::ofstream(dir / "notes.pdf") << "not a pdf";

    const auto result = runProgram(dir, "positions '" + pdf.string() + "' --page 2");
    ASSERT_EQ(result.status, 0) << result.err;
    const auto positions = dir / "tmp" / ("vellira-" + std::to_string(getuid())) / "page_positions.txt";
    const std::string expected = "Vellira Batch v4.01  -= Ornwick Software =-\r\n\r\nView file: " + positions.string() +
                                 "\r\nSource PDF File: " + pdf.string() + "\r\n\r\n" +
                                 "Below are the coordinate positions of every word on the current page in view,\r\n"
                                 "to optionally match on this position enter the coordinates in the main screen 'At "
                                 "position' boxes\r\ni.e. h=horizontal position, v=vertical position\r\n\r\n"
                                 "Word                \tHoriz\tVert\r\n----                \t-----\t----\r\n\r\n"
                                 "Invoice             \t99 \t700\r\nNo.                 \t300\t700\r\n"
                                 "edge                \t0  \t20 \r\n";
    EXPECT_EQ(result.out, expected);
    EXPECT_EQ(readFile(positions), expected);
    EXPECT_EQ(result.err, "");

    const struct {
        std::string arguments;
        int status;
        std::string errHas;
    } cases[] = {
        {"positions '" + (dir / "missing.pdf").string() + "'", 1, "missing.pdf"},
        {"positions '" + (dir / "notes.pdf").string() + "'", 1, "notes.pdf"},
        {"positions '" + pdf.string() + "' --page 3", 1, "page 3"},
        {"positions '" + pdf.string() + "' --page 0", 2, "page"},
        {"positions", 2, "PDF"},
        {"", 2, "positions"},
        {"unknown-command", 2, "unknown-command"},
    };
    for (const auto& c : cases) {
        const auto bad = runProgram(dir, c.arguments);
        EXPECT_EQ(bad.status, c.status) << c.arguments << "\n" << bad.err;
        EXPECT_NE(bad.err.find(c.errHas), std::string::npos) << c.arguments << "\n" << bad.err;
        EXPECT_EQ(bad.out, "") << c.arguments;
        if (c.status == 1) {
            EXPECT_EQ(std::count(bad.err.begin(), bad.err.end(), '\n'), 1) << bad.err;
        }
    }
}

}  // namespace
}  // namespace vellira
