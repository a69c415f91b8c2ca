// Splitting at bookmarks, run as a user runs it, on PDFs with real outlines.
#include "fixtures/PdfFixture.h"
#include "support/OutputPdf.h"
#include "support/RunProgram.h"

#include <gtest/gtest.h>

#include <map>

namespace vellira {
namespace {

using fixtures::Bookmark;
using fixtures::Destination;
using testing::quoted;

// Pages that carry their marker "p1", "p2", ...
fixtures::Document markedPages(int count, std::vector<Bookmark> bookmarks) {
    fixtures::Document document;
    for (int page = 1; page <= count; ++page)
        document.pages.push_back(fixtures::textPage({"Chapter text p" + std::to_string(page)}));
    document.bookmarks = std::move(bookmarks);
    return document;
}

// Markers "pFIRST".."pLAST".
std::vector<std::string> pages(int first, int last) {
    std::vector<std::string> markers;
    for (int page = first; page <= last; ++page) markers.push_back("p" + std::to_string(page));
    return markers;
}

struct Run {
    std::filesystem::path out;
    testing::ProgramResult result;
    std::map<std::string, std::vector<std::string>> outputs;  // file name -> page markers
};

Run splitAtBookmarks(const testing::TempDir& dir, const fixtures::Document& document, const std::string& mode,
                     const std::string& more = "") {
    const auto pdf = dir / "book.pdf";
    const auto out = dir / ("out-" + std::to_string(std::rand()));
    fixtures::writePdf(document, pdf);
    Run run;
    run.out = out;
    run.result = testing::runProgram(dir, "split --set 'PAGEEXTRACT=" + mode +
                                              "' --set 'EXTRACT=Use bookmark as filename' --set PREFIXFILENAME= "
                                              "--set OUTPUTDIR=" +
                                              quoted(out) + " " + more + " " + quoted(pdf));
    if (std::filesystem::exists(out))
        for (const auto& entry : std::filesystem::directory_iterator(out))
            run.outputs[entry.path().filename().string()] = testing::pageMarkers(entry.path());
    return run;
}

using Outputs = std::map<std::string, std::vector<std::string>>;

TEST(BookmarkSplit, EachModeCutsAtItsOwnLevelOfOneTree) {
    testing::TempDir dir;
    // A (page 1, explicit) with child A1 (page 2, named destination); B (page 4, GoTo action).
    const auto document = markedPages(10, {{"A", 0, Destination::Explicit, {{"A1", 1, Destination::Named, {}}}},
                                           {"B", 3, Destination::GoToAction, {}}});
    struct Case {
        std::string mode;
        Outputs expected;
    } const cases[] = {
        {"Bookmarks", {{"A.pdf", pages(1, 1)}, {"A1.pdf", pages(2, 3)}, {"B.pdf", pages(4, 10)}}},
        {"Bookmarks Root Level", {{"A.pdf", pages(1, 3)}, {"B.pdf", pages(4, 10)}}},
        {"Bookmarks Level 2", {{"A1.pdf", pages(2, 10)}}},
    };
    for (const auto& c : cases) {
        const auto run = splitAtBookmarks(dir, document, c.mode);
        EXPECT_EQ(run.result.status, 0) << c.mode << "\n" << run.result.err;
        EXPECT_EQ(run.outputs, c.expected) << c.mode;
    }
}

TEST(BookmarkSplit, DeepTreesOddTitlesAndBookmarksThatNeverCut) {
    testing::TempDir dir;
    // Five levels; a title with characters a file name cannot hold; an empty
    // title and one without destination that never cut; one pointing back.
    const auto document =
        markedPages(12, {{"Intro",
                          2,
                          Destination::Explicit,
                          {{"Part 1/2: Scope?",
                            4,
                            Destination::Explicit,
                            {{"Überblick",
                              5,
                              Destination::Explicit,
                              {{"L4", 6, Destination::Named, {{"L5", 8, Destination::GoToAction, {}}}}}}}},
                           {"", 9, Destination::Explicit, {}},
                           {"Nowhere", 10, Destination::None, {}},
                           {"Back", 1, Destination::Explicit, {}}}}});
    const auto all = splitAtBookmarks(dir, document, "Bookmarks");
    EXPECT_EQ(all.result.status, 0) << all.result.err;
    // Pages 1-2 come before the first bookmark and are never written; "Back"
    // points before L5's page and leaves L5 a one-page range.
    EXPECT_EQ(all.outputs, (Outputs{{"Intro.pdf", pages(3, 4)},
                                    {"Part 12 Scope.pdf", pages(5, 5)},
                                    {"Überblick.pdf", pages(6, 6)},
                                    {"L4.pdf", pages(7, 8)},
                                    {"L5.pdf", pages(9, 9)},
                                    {"Back.pdf", pages(2, 12)}}));

    const auto second = splitAtBookmarks(dir, document, "Bookmarks Level 2");
    EXPECT_EQ(second.outputs, (Outputs{{"Part 12 Scope.pdf", pages(5, 5)}, {"Back.pdf", pages(2, 12)}}));

    const auto none = splitAtBookmarks(dir, markedPages(3, {}), "Bookmarks");
    EXPECT_EQ(none.result.status, 0);
    EXPECT_TRUE(none.outputs.empty());
}

TEST(BookmarkSplit, BrokenOutlineSaysSoKeepsWhatWasWrittenAndEnds) {
    testing::TempDir dir;
    auto document = markedPages(6, {{"A", 0, Destination::Explicit, {}},
                                    {"B", 2, Destination::Explicit, {}},
                                    {"C", 4, Destination::Explicit, {}}});
    document.cyclicOutline = true;
    const auto run = splitAtBookmarks(dir, document, "Bookmarks");
    EXPECT_EQ(run.result.status, 0);
    EXPECT_EQ(run.result.err, "error! please check your bookmarks are valid.\n");
    EXPECT_EQ(run.outputs, (Outputs{{"A.pdf", pages(1, 2)}, {"B.pdf", pages(3, 4)}, {"C.pdf", pages(5, 6)}}));
}

TEST(BookmarkSplit, ThousandBookmarksKeepTheirOwnInEachPiece) {
    testing::TempDir dir;
    std::vector<Bookmark> chapters;
    for (int chapter = 0; chapter < 1000; ++chapter)
        chapters.push_back({"Chapter " + std::to_string(chapter + 1),
                            2 * chapter,
                            Destination::Explicit,
                            {{"Section " + std::to_string(chapter + 1), 2 * chapter + 1, Destination::Explicit, {}}}});
    fixtures::Document document;
    document.pages.assign(2000, fixtures::textPage({"text"}));
    document.bookmarks = chapters;
    const auto pdf = dir / "long.pdf";
    const auto out = dir / "out";
    fixtures::writePdf(document, pdf);
    const auto result =
        testing::runProgram(dir,
                            "split --set 'PAGEEXTRACT=Bookmarks Root Level' --set 'EXTRACT=Use bookmark as filename' "
                            "--set PREFIXFILENAME= --set KEEPBOOKMARKS=1 --set OUTPUTDIR=" +
                                quoted(out) + " " + quoted(pdf));
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(out), {}), 1000);
    for (const int chapter : {1, 500, 1000}) {
        const auto piece = out / ("Chapter " + std::to_string(chapter) + ".pdf");
        EXPECT_EQ(testing::outlineText(piece),
                  "Chapter " + std::to_string(chapter) + "@1[Section " + std::to_string(chapter) + "@2]");
    }

    // Without the setting the pieces carry no bookmarks.
    const auto plain =
        splitAtBookmarks(dir, markedPages(4, {{"A", 0, Destination::Explicit, {{"A1", 1, Destination::Explicit, {}}}}}),
                         "Bookmarks Root Level");
    EXPECT_EQ(plain.outputs, (Outputs{{"A.pdf", pages(1, 4)}}));
    EXPECT_EQ(testing::outlineText(plain.out / "A.pdf"), "");
}

}  // namespace
}  // namespace vellira
