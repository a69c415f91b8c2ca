// vellira-fuzz-seeds FOLDER: writes the seed corpus of the PDF fuzz target,
// small PDFs that reach every path of a split: statements with an address on
// each, bookmarks of every kind of destination on two levels, rotated pages,
// an outline that runs in a circle, a file that needs a password, and pages
// with notes, links within and out of each statement and a filled form.
#include "fixtures/PdfFixture.h"

#include <cstdio>
#include <exception>
#include <filesystem>

namespace {

using namespace vellira::fixtures;

// Statements of two pages, each with an address line and a closing line,
// and an outline of a bookmark per statement with a child per page.
Document statementsWithOutline() {
    Document document = statements(6, 2);
    for (std::size_t page = 0; page < document.pages.size(); ++page) {
        auto& words = document.pages[page].words;
        words.push_back({"Mail:", 72, 650});
        words.push_back({"customer" + std::to_string(page / 2) + "@example.com", 110, 650});
        words.push_back({"Closing", 72, 100});
    }
    const Destination kinds[] = {Destination::Explicit, Destination::Named, Destination::GoToAction};
    for (int statement = 0; statement < 3; ++statement) {
        Bookmark top{"Statement " + std::to_string(statement + 1), statement * 2, kinds[statement], {}};
        top.children.push_back({"First page", statement * 2, Destination::Explicit, {}});
        top.children.push_back({"Second page", statement * 2 + 1, kinds[(statement + 1) % 3], {}});
        document.bookmarks.push_back(top);
    }
    document.bookmarks.push_back({"Nowhere", 0, Destination::None, {}});
    return document;
}

Document rotated() {
    Document document = statements(4, 2);
    const int turns[] = {90, 180, 270, 0};
    for (std::size_t page = 0; page < document.pages.size(); ++page) document.pages[page].rotate = turns[page];
    document.pages[1].width = 842;
    document.pages[1].height = 595;
    return document;
}

Document circle() {
    Document document = statements(3, 1);
    document.bookmarks = {{"One", 0, Destination::Explicit, {}},
                          {"Two", 1, Destination::Named, {}},
                          {"Three", 2, Destination::Explicit, {}}};
    document.cyclicOutline = true;
    return document;
}

Document annotated() {
    using Kind = Annotation::Kind;
    Document document = statements(4, 2);
    document.pages[0].annotations = {{Kind::Note, "Paid"},
                                     {Kind::Link, "", "", 1},
                                     {Kind::Link, "", "", 3},
                                     {Kind::NamedLink, "", "", 2},
                                     {Kind::TextField, "total", "980.25"}};
    document.pages[1].annotations = {{Kind::Highlight, "due"}, {Kind::ActionLink, "", "", 0}};
    document.pages[2].annotations = {{Kind::TextField, "total", "980.25"}, {Kind::UriLink, "https://example.com"}};
    document.bookmarks = {{"First", 0, Destination::Named, {}}, {"Second", 2, Destination::Explicit, {}}};
    return document;
}

Document locked() {
    Document document = statements(2, 1);
    document.userPassword = "secret";
    return document;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: vellira-fuzz-seeds FOLDER\n");
        return 2;
    }
    const std::filesystem::path folder = argv[1];
    try {
        std::filesystem::create_directories(folder);
        writePdf(statementsWithOutline(), folder / "statements.pdf");
        writePdf(rotated(), folder / "rotated.pdf");
        writePdf(circle(), folder / "circle.pdf");
        writePdf(locked(), folder / "locked.pdf");
        writePdf(annotated(), folder / "annotated.pdf");
    } catch (const std::exception& error) {
        std::fprintf(stderr, "vellira-fuzz-seeds: %s\n", error.what());
        return 1;
    }
    return 0;
}
