#include "engine/PageWords.h"
#include "fixtures/PdfFixture.h"
#include "host/MupdfHost.h"
#include "run/BatchJob.h"
#include "support/Jobs.h"
#include "support/RecordingInterface.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <random>
#include <tuple>

namespace vellira {
namespace {

using fixtures::Bookmark;
using fixtures::Destination;
using WordAt = std::tuple<std::string, int, int>;

std::vector<WordAt> wordsOf(DocumentHost& host, DocHandle doc, int page) {
    std::vector<WordAt> words;
    streamPageWords(host, doc, page, std::nullopt, [&](const Word& word) {
        words.emplace_back(word.text, word.h, word.v);
        return true;
    });
    return words;
}

fixtures::Document namedPages(int count) {
    fixtures::Document document;
    for (int i = 0; i < count; ++i) document.pages.push_back(fixtures::textPage({"p" + std::to_string(i + 1)}));
    return document;
}

struct Outline {
    std::string title;
    int indent;
    int page;
};

// Depth first, parent before children, as the bookmark split walks it.
void walk(DocumentHost& host, BookmarkHandle parent, std::vector<Outline>& out) {
    for (auto item = host.firstChild(parent); item; item = host.nextSibling(item)) {
        out.push_back({host.bookmarkTitle(item), host.bookmarkIndent(item), host.bookmarkPage(item)});
        walk(host, item, out);
    }
}

std::vector<Outline> outlineOf(DocumentHost& host, DocHandle doc) {
    std::vector<Outline> out;
    if (const auto root = host.bookmarkRoot(doc)) walk(host, root, out);
    return out;
}

bool operator==(const Outline& a, const Outline& b) {
    return std::tie(a.title, a.indent, a.page) == std::tie(b.title, b.indent, b.page);
}
std::ostream& operator<<(std::ostream& out, const Outline& o) {
    return out << o.title << "@" << o.indent << ":" << o.page;
}

class MupdfHostTest : public ::testing::Test {
protected:
    testing::TempDir dir;
    MupdfHost host;

    std::filesystem::path write(const fixtures::Document& document, const std::string& name = "in.pdf") {
        const auto path = dir / name;
        fixtures::writePdf(document, path);
        return path;
    }
};

TEST_F(MupdfHostTest, WordsComeBackAtTheirBottomLeftCornerTruncated) {
    const std::vector<fixtures::TextWord> placed = {
        {"Invoice", 99.99, 700.25}, {"edge", -0.5, -0.5}, {"No.", 300, 700}, {"left", -12.7, 400.9}, {"72", 72, 72},
    };
    const std::vector<WordAt> expected = {
        {"Invoice", 99, 700}, {"No.", 300, 700}, {"left", -12, 400}, {"72", 72, 72}, {"edge", 0, 0},
    };
    struct Layout {
        double width, height;
        int rotate;
    } const layouts[] = {{612, 792, 0},   {792, 612, 0},   {612, 792, 90},
                         {612, 792, 180}, {612, 792, 270}, {842, 595, 90}};
    fixtures::Document document;
    for (const auto& layout : layouts) document.pages.push_back({layout.width, layout.height, layout.rotate, placed});
    const auto doc = host.openDocument(write(document));
    ASSERT_EQ(host.pageCount(doc), 6);
    for (int page = 0; page < 6; ++page) {
        auto words = wordsOf(host, doc, page);
        // Reading order is MuPDF's; positions must not depend on it.
        std::sort(words.begin(), words.end(), [](auto& a, auto& b) { return std::get<2>(a) > std::get<2>(b); });
        auto sorted = expected;
        std::sort(sorted.begin(), sorted.end(), [](auto& a, auto& b) { return std::get<2>(a) > std::get<2>(b); });
        EXPECT_EQ(words, sorted) << "page " << page + 1 << " rotate " << layouts[page].rotate;
    }
}

TEST_F(MupdfHostTest, BookmarkOperationsResolveEveryKindOfDestination) {
    auto document = namedPages(10);
    document.bookmarks = {
        {"A", 0, Destination::Explicit, {{"A1", 1, Destination::Named, {{"A1x", 2, Destination::GoToAction, {}}}}}},
        {"B", 3, Destination::Explicit, {}},
        {"Nowhere", 0, Destination::None, {}},
        {"Zürich / Q3: résumé", 9, Destination::Named, {}},
    };
    const auto doc = host.openDocument(write(document));
    EXPECT_EQ(
        outlineOf(host, doc),
        (std::vector<Outline>{
            {"A", 0, 0}, {"A1", 1, 1}, {"A1x", 2, 2}, {"B", 0, 3}, {"Nowhere", 0, -1}, {"Zürich / Q3: résumé", 0, 9}}));
    const auto plain = host.openDocument(write(namedPages(2), "plain.pdf"));
    EXPECT_FALSE(host.bookmarkRoot(plain));
}

// Outside files may be broken or hostile: a damaged PDF gets HostError, or
// opens repaired, and never crashes any read path, nor a split at its
// bookmarks or at its matches.
TEST_F(MupdfHostTest, DamagedCopiesOfARealFileNeverCrash) {
    fixtures::Document document;
    for (int i = 0; i < 4; ++i) document.pages.push_back(fixtures::textPage({"account: " + std::to_string(100 + i)}));
    document.bookmarks = {{"A", 0, Destination::Named, {{"A1", 1, Destination::GoToAction, {}}}},
                          {"B", 2, Destination::Explicit, {}}};
    std::ifstream in(write(document), std::ios::binary);
    const std::string good((std::istreambuf_iterator<char>(in)), {});
    std::vector<std::string> damaged;
    for (const double keep : {0.1, 0.5, 0.9, 0.99}) damaged.push_back(good.substr(0, good.size() * keep));
    std::mt19937 random(7);
    for (int copy = 0; copy < 40; ++copy) {
        std::string bytes = good;
        for (int flip = 0; flip < 1 + copy % 8; ++flip) bytes[random() % bytes.size()] = static_cast<char>(random());
        damaged.push_back(bytes);
    }
    int opened = 0;
    for (std::size_t i = 0; i < damaged.size(); ++i) {
        const auto path = dir / ("damaged" + std::to_string(i) + ".pdf");
        std::ofstream(path, std::ios::binary) << damaged[i];
        try {
            const auto doc = host.openDocument(path);
            ++opened;
            for (int page = 0; page < host.pageCount(doc); ++page) {
                try {
                    wordsOf(host, doc, page);
                } catch (const HostError&) {
                }
            }
            try {
                outlineOf(host, doc);
            } catch (const HostError&) {
            }
            const auto out = host.createDocument();
            if (host.pageCount(doc) > 0) host.insertPages(out, doc, 0, host.pageCount(doc), true);
            host.saveDocument(out, dir / "copy.pdf");
            host.closeDocument(out);
            host.closeDocument(doc);
        } catch (const HostError& error) {
            EXPECT_FALSE(error.text().empty()) << i;
        }
        for (const auto& [extract, filename] : {std::pair{"Bookmarks", "Use bookmark as filename"},
                                                std::pair{"Matched page only", "Page start-end as filename"}}) {
            auto job = testing::jobIn(dir, {path.string()});
            job.settings.PAGEEXTRACT = extract;
            job.settings.EXTRACT = filename;
            job.settings.KEEPBOOKMARKS = 1;
            job.settings.OUTPUTDIR = (dir / "out").string();
            MupdfHost splitter;
            testing::RecordingInterface ui;
            EXPECT_NO_THROW(runBatch(job, splitter, ui)) << i << " " << extract;
        }
    }
    EXPECT_GT(opened, 0);  // MuPDF repairs most of them: the read paths really ran
}

}  // namespace
}  // namespace vellira
