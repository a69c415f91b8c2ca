// What a piece keeps of its pages' notes, highlights, links and filled form
// fields, read back by another PDF reader (qpdf) than the one that wrote it.
#include "fixtures/PdfFixture.h"
#include "support/RunProgram.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdio>
#include <map>

namespace vellira {
namespace {

using fixtures::Annotation;
using Kind = fixtures::Annotation::Kind;
using testing::quoted;
using testing::runProgram;

// qpdf's JSON of a PDF: its objects, pages and form fields.
nlohmann::json qpdfJson(const std::filesystem::path& pdf) {
    const std::string command = "qpdf --json=2 --json-key=qpdf --json-key=pages --json-key=acroform " + quoted(pdf);
    std::string text;
    FILE* pipe = popen(command.c_str(), "r");
    char buffer[4096];
    for (std::size_t n; (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;) text.append(buffer, n);
    EXPECT_EQ(pclose(pipe), 0) << command;
    return nlohmann::json::parse(text);
}

// A PDF's annotations as a user would list them, page by page: each one's
// kind, where a link leads ("#2" for page 2 of the same file, a name "link0#1"
// for a named destination and the page it names, or the URI); then every form
// field with its value and page.
std::string annotationsOf(const std::filesystem::path& pdf) {
    const nlohmann::json json = qpdfJson(pdf);
    const nlohmann::json& objects = json["qpdf"][1];
    const auto resolve = [&](const nlohmann::json& value) -> nlohmann::json {
        if (value.is_string() && value.get<std::string>().size() > 2 && value.get<std::string>().ends_with(" R")) {
            const nlohmann::json& object = objects.value("obj:" + value.get<std::string>(), nlohmann::json());
            return object.contains("stream") ? object["stream"]["dict"] : object.value("value", nlohmann::json());
        }
        return value;
    };
    std::map<std::string, int> pageOf;  // page object -> page number
    for (const auto& page : json["pages"]) pageOf[page["object"]] = page["pageposfrom1"];
    const auto target = [&](const nlohmann::json& dest) -> std::string {
        if (dest.is_array()) return "#" + std::to_string(pageOf[dest[0]]);
        // A named destination, looked up in the catalog's name tree.
        const nlohmann::json names =
            resolve(resolve(resolve(objects["trailer"]["value"]["/Root"])["/Names"])["/Dests"]);
        const nlohmann::json leaf = resolve(names["/Names"]);
        for (std::size_t i = 0; i + 1 < leaf.size(); i += 2)
            if (leaf[i] == dest)
                return " " + dest.get<std::string>().substr(2) + "#" + std::to_string(pageOf[resolve(leaf[i + 1])[0]]);
        return " " + dest.get<std::string>().substr(2) + "#none";
    };

    std::string text;
    for (const auto& page : json["pages"]) {
        text += "p" + std::to_string(page["pageposfrom1"].get<int>()) + ":";
        for (const auto& ref : resolve(resolve(page["object"])["/Annots"])) {
            const nlohmann::json annot = resolve(ref);
            text += " " + annot["/Subtype"].get<std::string>().substr(1);
            if (annot.contains("/Dest")) text += target(annot["/Dest"]);
            const nlohmann::json action = resolve(annot.value("/A", nlohmann::json()));
            if (action.contains("/D")) text += target(action["/D"]);
            if (action.contains("/URI")) text += " " + action["/URI"].get<std::string>().substr(2);
            if (annot.contains("/P") && pageOf[annot["/P"]] != page["pageposfrom1"]) text += "(wrong page)";
        }
        text += "\n";
    }
    for (const auto& field : json["acroform"]["fields"])
        text += field["fullname"].get<std::string>() + "=" + field["value"].get<std::string>().substr(2) + "@p" +
                std::to_string(field["pageposfrom1"].get<int>()) + "\n";
    return text;
}

TEST(CarriedAnnotations, EachPieceKeepsWhatItsPagesShowAndLinksStayInside) {
    testing::TempDir dir;
    // Six pages, a statement every two: notes, links within and across the
    // statements, and one filled field whose widgets stand in two statements.
    fixtures::Document document;
    const std::vector<std::vector<Annotation>> annotations = {
        {{Kind::Note, "Please pay"},
         {Kind::Highlight, "due"},
         {Kind::Link, "", "", 1},
         {Kind::Link, "", "", 4},
         {Kind::TextField, "total", "1,204.50"}},
        {{Kind::NamedLink, "", "", 0}, {Kind::UriLink, "https://example.com/pay"}},
        {{Kind::TextField, "total", "1,204.50"}, {Kind::ActionLink, "", "", 3}},
        {{Kind::NamedLink, "", "", 5}},
        {},
        {},
    };
    for (int page = 0; page < 6; ++page) {
        std::vector<std::string> lines;
        if (page % 2 == 0) lines.push_back("account: A" + std::to_string(page + 1));
        lines.push_back("page p" + std::to_string(page + 1));
        document.pages.push_back(fixtures::textPage(lines));
        document.pages.back().annotations = annotations[page];
    }
    for (const char* title : {"A1", "A3", "A5"}) document.bookmarks.push_back({title, title[1] - '1'});
    const auto pdf = dir / "run.pdf";
    fixtures::writePdf(document, pdf);

    const std::map<std::string, std::string> expected = {
        {"extract_A1.pdf",
         "p1: Text Highlight Link#2 Widget\np2: Link link0#1 Link https://example.com/pay\n"
         "form.total=1,204.50@p1\n"},
        {"extract_A3.pdf", "p1: Widget Link#2\np2:\nform.total=1,204.50@p1\n"},
        {"extract_A5.pdf", "p1:\np2:\n"},
    };
    struct Case {
        const char* name;
        std::string settings;
    };
    for (const Case& run :
         {Case{"search text", ""}, Case{"bookmarks, kept",
                                        "--set 'PAGEEXTRACT=Bookmarks' --set 'EXTRACT=Use bookmark as "
                                        "filename' --set KEEPBOOKMARKS=1"}}) {
        const auto out = dir / (std::string("out ") + run.name);
        const auto result =
            runProgram(dir, "split --set OUTPUTDIR=" + quoted(out) + " " + run.settings + " " + quoted(pdf));
        ASSERT_EQ(result.status, 0) << run.name << ": " << result.err;
        for (const auto& [name, annotationList] : expected)
            EXPECT_EQ(annotationsOf(out / name), annotationList) << run.name << ": " << name;
    }
}

}  // namespace
}  // namespace vellira
