// Batch list files as users keep them: what survives a save and load, and how hand-edited files are read.
#include "files/BatchListFile.h"
#include "support/Files.h"
#include "support/RecordingInterface.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <fstream>

namespace vellira {
namespace {

using testing::readFile;

TEST(BatchListFile, RowsComeBackAsListedAndOddLinesAreSkipped) {
    testing::TempDir dir;
    testing::RecordingInterface ui;
    const std::vector<BatchRow> rows = {
        {"Yes", "/in/a.pdf", "Done", "/jobs/a.pcs"}, {"No", "/in/b.pdf", "Ready.", ""}, {"Maybe", "/in/c.pdf", "", ""}};
    ASSERT_TRUE(saveBatchList(dir / "run.lst", rows, dir / "default.lst", ui));
    EXPECT_EQ(readFile(dir / "run.lst"), "+/in/a.pdf|/jobs/a.pcs\n~/in/b.pdf|\n");
    EXPECT_EQ(ui.notes, std::vector<std::string>{"List saved to file: " + (dir / "run.lst").string()});
    ASSERT_TRUE(saveBatchList(dir / "default.lst", rows, dir / "default.lst", ui));
    EXPECT_EQ(ui.notes.size(), 1u);

    // A piece of a line holds 512 characters, not bytes: 300 accented letters are one path.
    std::string accented = "/in/";
    for (int i = 0; i < 300; ++i) accented += "\xC3\xA9";
    std::ofstream(dir / "hand.lst", std::ios::binary)
        << "+/in/a|b.pdf|/jobs/x.pcs\r\n\r\n~/in/no.pdf\n#comment\n"
        << std::string(600, '+') << "\n+" << accented << "|\n+/in/last.pdf|";
    std::vector<BatchRow> loaded;
    ASSERT_TRUE(loadBatchList(dir / "hand.lst", loaded, ui));
    // Relative paths are taken from the list's folder.
    const std::string here = dir.path().string() + "/";
    std::string listed;
    for (const auto& row : loaded) listed += row.use + " " + row.path + " [" + row.params + "] " + row.status + "\n";
    EXPECT_EQ(listed, "Yes /in/a [" + here + "b.pdf|/jobs/x.pcs] Ready.\nNo /in/no.pdf [] Ready.\nYes " + here +
                          std::string(511, '+') + " [] Ready.\nYes " + here + std::string(87, '+') +
                          " [] Ready.\nYes " + accented + " [] Ready.\nYes /in/last.pdf [] Ready.\n");

    std::vector<BatchRow> none;
    EXPECT_FALSE(loadBatchList(dir / "missing.lst", none, ui));
    EXPECT_EQ(ui.notes.back(), "Can't read list file.");
    EXPECT_TRUE(none.empty());
}

}  // namespace
}  // namespace vellira
