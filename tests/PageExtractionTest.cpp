// Writing the ranges: appending, replacing, numbered parts, folders that are
// missing or cannot be made, and sources that are never touched.
#include "core/BatchRun.h"
#include "fixtures/PdfFixture.h"
#include "host/MupdfHost.h"
#include "support/Files.h"
#include "support/OutputPdf.h"
#include "support/RecordingInterface.h"
#include "support/ScriptedHost.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <fstream>

namespace vellira {
namespace {

using testing::pageMarkers;
using testing::readFile;

// Pages "p1".."pN" of statements opening on `starts` (1-based), numbered by page.
std::filesystem::path writeStatements(const std::filesystem::path& path, int pages, std::vector<int> starts) {
    fixtures::Document document;
    for (int page = 1; page <= pages; ++page) {
        std::vector<std::string> lines;
        if (std::find(starts.begin(), starts.end(), page) != starts.end())
            lines.push_back("account: N" + std::to_string(page));
        lines.push_back("text p" + std::to_string(page));
        document.pages.push_back(fixtures::textPage(lines));
    }
    fixtures::writePdf(document, path);
    return path;
}

std::vector<std::string> markers(int first, int last) {
    std::vector<std::string> out;
    for (int page = first; page <= last; ++page) out.push_back("p" + std::to_string(page));
    return out;
}

struct Run {
    std::vector<BatchRow> rows;
    std::vector<std::string> notes;
};

Run split(const std::filesystem::path& source, const std::function<void(SplitSettings&, RunState&)>& configure) {
    MupdfHost host;
    testing::RecordingInterface ui;
    SplitSettings settings;
    BatchRun batch(host, ui, settings);
    batch.settingsFile = source.parent_path() / "VelliraBatch.ini";
    batch.legacyFolder = source.parent_path() / "legacy";
    configure(settings, batch.run);
    Run run{{{"Yes", source.string(), "Ready.", ""}}, {}};
    batch.process(run.rows);
    run.notes = ui.notes;
    return run;
}

TEST(PageExtraction, ExistingOutputsAreAppendedToReplacedOrNumbered) {
    testing::TempDir dir;
    const auto source = writeStatements(dir / "run.pdf", 8, {1, 6});
    const std::string before = readFile(source);
    const auto out = dir / "out";
    const auto target = out / "extract_N6.pdf";
    const auto oldFile = writeStatements(dir / "old.pdf", 5, {});

    const auto reset = [&] {
        std::filesystem::remove_all(out);
        std::filesystem::create_directories(out);
        std::filesystem::copy_file(oldFile, target);
    };
    struct Case {
        std::string what;
        std::function<void(SplitSettings&, RunState&)> configure;
        std::vector<std::string> target;  // pages of extract_N6.pdf afterwards
        std::vector<std::string> part;    // pages of extract_N6_part002.pdf, if any
    } const cases[] = {
        {"append: old pages first",
         [](SplitSettings& s, RunState&) { s.ALWAYSAPPEND = 1; },
         {"p1", "p2", "p3", "p4", "p5", "p6", "p7", "p8"},
         {}},
        {"replace", [](SplitSettings&, RunState&) {}, markers(6, 8), {}},
        {"numbered part when not overwriting", [](SplitSettings&, RunState& run) { run.overwrite = false; },
         markers(1, 5), markers(6, 8)},
    };
    for (const auto& c : cases) {
        reset();
        const auto run = split(source, [&](SplitSettings& s, RunState& state) {
            s.OUTPUTDIR = out.string();
            s.KEEPBOOKMARKS = 1;
            c.configure(s, state);
        });
        EXPECT_EQ(run.rows[0].status, "Done") << c.what;
        EXPECT_EQ(pageMarkers(target), c.target) << c.what;
        const auto part = out / "extract_N6_part002.pdf";
        EXPECT_EQ(std::filesystem::exists(part) ? pageMarkers(part) : std::vector<std::string>{}, c.part) << c.what;
        EXPECT_EQ(pageMarkers(out / "extract_N1.pdf"), markers(1, 5)) << c.what;
        EXPECT_EQ(readFile(source), before) << c.what;
    }
}

TEST(PageExtraction, FoldersAreMadeOrTheSaveFailsAndNothingIsLost) {
    testing::TempDir dir;
    const auto source = writeStatements(dir / "run.pdf", 6, {1, 4});
    const auto deep = dir / "a" / "b" / "c";
    split(source, [&](SplitSettings& s, RunState&) { s.OUTPUTDIR = deep.string(); });
    EXPECT_EQ(pageMarkers(deep / "extract_N4.pdf"), markers(4, 6));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(deep), {}), 2) << "no temporary file is left";

    // A folder under a plain file cannot be made: each range says so, the run goes on.
    std::ofstream(dir / "plain") << "x";
    const auto blocked = (dir / "plain" / "out").string();
    const auto failed = split(source, [&](SplitSettings& s, RunState&) { s.OUTPUTDIR = blocked; });
    EXPECT_EQ(failed.rows[0].status, "Done");
    ASSERT_EQ(failed.notes.size(), 2u);
    for (const char* name : {"N1", "N4"}) {
        const auto& note = failed.notes[name[1] == '1' ? 0 : 1];
        EXPECT_TRUE(note.starts_with("Abort!! Save Error message: ")) << note;
        EXPECT_TRUE(note.ends_with(", file: '" + blocked + "/extract_" + name + ".pdf'")) << note;
    }
}

TEST(PageExtraction, SplitListInsteadOfPdfs) {
    testing::TempDir dir;
    const auto source = writeStatements(dir / "run.pdf", 6, {1, 4});
    const auto out = dir / "out";
    const auto run = split(source, [&](SplitSettings& s, RunState&) {
        s.OUTPUTDIR = out.string();
        s.CREATELIST = 1;
        s.FILENAME = (dir / "job").string();
    });
    EXPECT_EQ(run.rows[0].status, "Done");
    EXPECT_FALSE(std::filesystem::exists(out));
    EXPECT_EQ(readFile(dir / "job_splitlist.spl"),
              source.string() + "; 1-3; 6; Ready.; ; " + out.string() + "/; Y; ; N; extract_N1 ;0\r\n" +
                  source.string() + "; 4-6; 6; Ready.; ; " + out.string() + "/; Y; ; N; extract_N4 ;0\r\n");
}

// A scripted host that counts how often the source is opened.
class CountingHost : public testing::ScriptedHost {
public:
    int opens = 0;

protected:
    DocHandle openFile(const std::filesystem::path& path, bool makeCurrent) override {
        opens += path.filename() == "big.pdf";
        return ScriptedHost::openFile(path, makeCurrent);
    }
};

TEST(PageExtraction, LongRunsOnLargeSourcesReopenThemEveryHundredRanges) {
    for (const auto& [pages, opens] : {std::pair{1500, 3}, {1000, 1}}) {
        testing::TempDir dir;
        const std::string source = (dir / "big.pdf").string();
        std::ofstream(source) << "scripted";
        CountingHost host;
        for (int page = 0; page < pages; ++page)
            host.files[source].push_back(
                page % 5 == 0 ? testing::ScriptedPage{{"account:", 72, 700}, {"N" + std::to_string(page), 150, 700}}
                              : testing::ScriptedPage{{"text", 72, 700}});
        testing::RecordingInterface ui;
        SplitSettings settings;
        settings.OUTPUTDIR = "/out";
        settings.EMAILENABLE = 1;
        BatchRun batch(host, ui, settings);
        batch.settingsFile = dir / "VelliraBatch.ini";
        std::vector<BatchRow> rows{{"Yes", source, "Ready.", ""}};
        batch.process(rows);
        // 300 ranges reopen after the 101st and the 201st; 200 ranges never.
        EXPECT_EQ(host.opens, opens) << pages;
        EXPECT_EQ(host.files.size(), static_cast<std::size_t>(pages / 5 + 1)) << pages;
        ASSERT_EQ(batch.engine.doc.mailList.size(), static_cast<std::size_t>(pages / 5));
        EXPECT_EQ(batch.engine.doc.mailList.back().first, pages - 4);
        EXPECT_EQ(batch.engine.doc.mailList.back().last, pages);
    }
}

}  // namespace
}  // namespace vellira
