// Writing the ranges: appending, replacing, numbered parts, bookmarks, folders
// that are missing or cannot be made, failed saves, the split list, the mail
// list, the first pages left out, and sources that are never touched.
#include "fixtures/PdfFixture.h"
#include "host/MupdfHost.h"
#include "run/BatchJob.h"
#include "support/Files.h"
#include "support/Jobs.h"
#include "support/OutputPdf.h"
#include "support/RecordingInterface.h"
#include "support/ScriptedHost.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <map>
#include <tuple>

namespace vellira {
namespace {

using testing::outlineText;
using testing::pageMarkers;
using testing::readFile;

// Pages "p1".."pN"; "account: NAME" opens the pages named in `accounts`.
std::filesystem::path writeStatements(const std::filesystem::path& path, int pages,
                                      const std::map<int, std::string>& accounts,
                                      std::vector<fixtures::Bookmark> bookmarks = {}) {
    fixtures::Document document;
    for (int page = 1; page <= pages; ++page) {
        std::vector<std::string> lines;
        if (const auto found = accounts.find(page); found != accounts.end())
            lines.push_back("account: " + found->second);
        lines.push_back("text p" + std::to_string(page));
        document.pages.push_back(fixtures::textPage(lines));
    }
    document.bookmarks = std::move(bookmarks);
    fixtures::writePdf(document, path);
    return path;
}

std::vector<std::string> markers(int first, int last) {
    std::vector<std::string> out;
    for (int page = first; page <= last; ++page) out.push_back("p" + std::to_string(page));
    return out;
}

std::vector<std::string> folderEntries(const std::filesystem::path& folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

using Configure = std::function<void(BatchJob&)>;

struct Run {
    std::vector<BatchRow> rows;
    std::vector<std::string> notes;
};

// One batch run over `sources` with the real host; the run's settings files
// stay beside the first source.
Run split(const std::vector<std::filesystem::path>& sources, const Configure& configure) {
    MupdfHost host;
    testing::RecordingInterface ui;
    BatchJob job;
    job.settingsFile = sources.front().parent_path() / "VelliraBatch.ini";
    job.legacyFolder = sources.front().parent_path() / "legacy";
    for (const auto& source : sources) job.rows.push_back({"Yes", source.string(), "Ready.", ""});
    configure(job);
    return {runBatch(job, host, ui).rows, ui.notes};
}

Run split(const std::filesystem::path& source, const Configure& configure) {
    return split(std::vector{source}, configure);
}

TEST(PageExtraction, ExistingOutputsAreAppendedToReplacedOrNumbered) {
    testing::TempDir dir;
    const auto source = writeStatements(dir / "run.pdf", 8, {{1, "N1"}, {6, "N6"}});
    const std::string before = readFile(source);
    const auto out = dir / "out";
    const auto target = out / "extract_N6.pdf";
    const auto part2 = out / "extract_N6_part002.pdf";
    const auto part3 = out / "extract_N6_part003.pdf";
    const auto oldFile = writeStatements(dir / "old.pdf", 5, {});
    const auto pagesOf = [](const std::filesystem::path& pdf) {
        return std::filesystem::exists(pdf) ? pageMarkers(pdf) : std::vector<std::string>{};
    };

    struct Case {
        std::string what;
        bool append, overwrite;
        bool earlierPart;                 // an extract_N6_part002.pdf exists before the run
        std::vector<std::string> target;  // pages of extract_N6.pdf afterwards
        std::vector<std::string> part2, part3;
    } const cases[] = {
        {"append: old pages first", true, true, false, markers(1, 8), {}, {}},
        {"append wins over numbered parts", true, false, false, markers(1, 8), {}, {}},
        {"replace", false, true, false, markers(6, 8), {}, {}},
        {"numbered part when not overwriting", false, false, false, markers(1, 5), markers(6, 8), {}},
        {"next free part", false, false, true, markers(1, 5), markers(1, 5), markers(6, 8)},
    };
    for (const auto& c : cases) {
        std::filesystem::remove_all(out);
        std::filesystem::create_directories(out);
        std::filesystem::copy_file(oldFile, target);
        if (c.earlierPart) std::filesystem::copy_file(oldFile, part2);
        const auto run = split(source, [&](BatchJob& job) {
            job.settings.OUTPUTDIR = out.string();
            job.settings.ALWAYSAPPEND = c.append;
            job.overwrite = c.overwrite;
        });
        EXPECT_EQ(run.rows[0].status, "Done") << c.what;
        EXPECT_EQ(pagesOf(target), c.target) << c.what;
        EXPECT_EQ(pagesOf(part2), c.part2) << c.what;
        EXPECT_EQ(pagesOf(part3), c.part3) << c.what;
        EXPECT_EQ(pageMarkers(out / "extract_N1.pdf"), markers(1, 5)) << c.what;
        EXPECT_EQ(readFile(source), before) << c.what;
    }
}

// Named and action destinations are carried as well as plain page ones.
TEST(PageExtraction, BookmarksComeAlongOnlyWhenKept) {
    testing::TempDir dir;
    const auto source = writeStatements(
        dir / "run.pdf", 6, {{1, "N1"}, {4, "N4"}},
        {{"Anna", 0, fixtures::Destination::Explicit, {{"Anna fees", 1}}},
         {"Bo", 3, fixtures::Destination::Named, {{"Bo fees", 4, fixtures::Destination::GoToAction, {}}}},
         {"Summary", 5}});
    const std::string before = readFile(source);
    const auto oldFile = dir / "old.pdf";
    fixtures::writePdf({{fixtures::textPage({"old o1"}), fixtures::textPage({"old o2"})}, {{"Old", 0}}}, oldFile);
    const auto out = dir / "out";

    struct Case {
        int keep;
        bool append;  // onto an earlier two-page extract_N4.pdf with a bookmark of its own
        std::string first, second;
    } const cases[] = {
        {1, false, "Anna@1[Anna fees@2]", "Bo@1[Bo fees@2] Summary@3"},
        {0, false, "", ""},
        {1, true, "Anna@1[Anna fees@2]", "Old@1 Bo@3[Bo fees@4] Summary@5"},
        {0, true, "", ""},
    };
    for (const auto& c : cases) {
        std::filesystem::remove_all(out);
        std::filesystem::create_directories(out);
        if (c.append) std::filesystem::copy_file(oldFile, out / "extract_N4.pdf");
        const auto run = split(source, [&](BatchJob& job) {
            auto& s = job.settings;
            s.OUTPUTDIR = out.string();
            s.KEEPBOOKMARKS = c.keep;
            s.ALWAYSAPPEND = c.append;
        });
        const std::string what = "keep " + std::to_string(c.keep) + (c.append ? ", append" : "");
        EXPECT_EQ(run.rows[0].status, "Done") << what;
        EXPECT_EQ(outlineText(out / "extract_N1.pdf"), c.first) << what;
        EXPECT_EQ(outlineText(out / "extract_N4.pdf"), c.second) << what;
        EXPECT_EQ(pageMarkers(out / "extract_N4.pdf"), markers(4, 6)) << what;
        EXPECT_EQ(readFile(source), before) << what;
    }
}

TEST(PageExtraction, FoldersAreMadeOrTheSaveFailsAndTheRunGoesOn) {
    testing::TempDir dir;
    const auto source = writeStatements(dir / "run.pdf", 6, {{1, "N1"}, {4, "N4"}});
    std::ofstream(dir / "plain") << "x";
    std::filesystem::create_directories(dir / "taken" / "extract_N1.pdf" / "inside");
    const std::vector<std::string> both = {"extract_N1.pdf", "extract_N4.pdf"};
    struct Case {
        std::string what;
        std::filesystem::path out;
        std::vector<std::string> failed;  // the outputs whose save fails, in order
    } const cases[] = {
        {"missing folders are made, no temporary file is left", dir / "a" / "b" / "c", {}},
        // Each range says so, and the run goes on.
        {"no folder can be made under a plain file", dir / "plain" / "out", both},
        // That save fails, the other is written, nothing half-written is left.
        {"a folder where one output should go", dir / "taken", {"extract_N1.pdf"}},
    };
    for (const auto& c : cases) {
        const auto run = split(source, [&](BatchJob& job) { job.settings.OUTPUTDIR = c.out.string(); });
        EXPECT_EQ(run.rows[0].status, "Done") << c.what;
        ASSERT_EQ(run.notes.size(), c.failed.size()) << c.what;
        for (std::size_t i = 0; i < c.failed.size(); ++i) {
            EXPECT_TRUE(run.notes[i].starts_with("Abort!! Save Error message: ")) << run.notes[i];
            EXPECT_TRUE(run.notes[i].ends_with(", file: '" + (c.out / c.failed[i]).string() + "'")) << run.notes[i];
        }
        if (c.failed.size() == both.size()) continue;
        EXPECT_EQ(pageMarkers(c.out / "extract_N4.pdf"), markers(4, 6)) << c.what;
        EXPECT_EQ(folderEntries(c.out), both) << c.what;
    }
    EXPECT_TRUE(std::filesystem::is_directory(dir / "taken" / "extract_N1.pdf" / "inside"));
}

// A scripted host whose saves all fail, as on a full disk.
class FailingSaveHost : public testing::ScriptedHost {
public:
    void saveDocument(DocHandle, const std::filesystem::path&) override {
        throw HostError(HostError::kIo, "No space left on device");
    }
};

TEST(PageExtraction, SourcesAreNeverWrittenOverAndLongNamesAreSaved) {
    testing::TempDir dir;
    // "run" names the first range like its source; the second name fills a
    // 250-byte file name.
    const std::string longName(246, 'n');
    const auto source = writeStatements(dir / "run.pdf", 6, {{1, "run"}, {4, longName}});
    const std::string before = readFile(source);
    for (const int append : {0, 1}) {
        const auto run = split(source, [&](BatchJob& job) {
            job.settings.OUTPUTDIR = dir.path().string();
            job.settings.PREFIXFILENAME = "";
            job.settings.ALWAYSAPPEND = append;
        });
        EXPECT_EQ(readFile(source), before) << append;
        EXPECT_EQ(run.notes, std::vector<std::string>{"Abort!! Save Error message: the output would replace its "
                                                      "source, file: '" +
                                                      source.string() + "'"})
            << append;
        EXPECT_EQ(pageMarkers(dir / (longName + ".pdf")), markers(4, 6)) << append;
        for (const auto& name : folderEntries(dir.path())) EXPECT_FALSE(name.starts_with(".vellira-")) << name;
        std::filesystem::remove(dir / (longName + ".pdf"));
    }
}

TEST(PageExtraction, AFailedSaveLeavesTheEarlierFileAsItWas) {
    for (const int append : {0, 1}) {
        testing::TempDir dir;
        const std::string source = (dir / "run.pdf").string();
        std::ofstream(source) << "scripted";
        const auto out = dir / "out";
        const std::string target = (out / "extract_N1.pdf").string();
        std::filesystem::create_directories(out);
        std::ofstream(target, std::ios::binary) << "%PDF-1.7 earlier output\n";
        FailingSaveHost host;
        host.files[source] = {{{"account:", 72, 700}, {"N1", 150, 700}}, {{"text", 72, 700}}};
        host.files[target] = {{{"earlier", 72, 700}}};
        testing::RecordingInterface ui;
        BatchJob job = testing::jobIn(dir, {source});
        job.settings.OUTPUTDIR = out.string();
        job.settings.ALWAYSAPPEND = append;
        const BatchResult result = runBatch(job, host, ui);
        EXPECT_EQ(result.rows[0].status, "Done") << append;
        EXPECT_EQ(std::tuple(result.filesWritten, result.rangesFailed), std::tuple(0, 1)) << append;
        EXPECT_EQ(ui.notes, std::vector<std::string>{"Abort!! Save Error message: No space left on device, file: '" +
                                                     target + "'"})
            << append;
        EXPECT_EQ(readFile(target), "%PDF-1.7 earlier output\n") << append;
        EXPECT_EQ(folderEntries(out), std::vector<std::string>{"extract_N1.pdf"}) << append;
    }
}

TEST(PageExtraction, SplitListInsteadOfPdfs) {
    testing::TempDir dir;
    const auto first = writeStatements(dir / "run.pdf", 6, {{1, "N1"}, {4, "N4"}});
    const auto second = writeStatements(dir / "more.pdf", 3, {{2, "M2"}});
    const auto out = dir / "out";
    const std::string o = out.string() + "/";
    const std::string a = first.string(), b = second.string();
    struct Case {
        int keep, offset;
        std::string list;
    } const cases[] = {
        {0, 0,
         a + "; 1-3; 6; Ready.; ; " + o + "; Y; ; N; extract_N1 ;0\r\n" + a + "; 4-6; 6; Ready.; ; " + o +
             "; Y; ; N; extract_N4 ;0\r\n" + b + "; 2-3; 3; Ready.; ; " + o + "; Y; ; N; extract_M2 ;0\r\n"},
        // The pages listed are the ones that would be written.
        {1, 1,
         a + "; 2-3; 6; Ready.; ; " + o + "; Y; ; Y; extract_N1 ;0\r\n" + a + "; 5-6; 6; Ready.; ; " + o +
             "; Y; ; Y; extract_N4 ;0\r\n" + b + "; 3-3; 3; Ready.; ; " + o + "; Y; ; Y; extract_M2 ;0\r\n"},
    };
    for (const auto& c : cases) {
        // The list is named after the FILENAME the run starts with, and one
        // list serves every PDF of the run.
        const auto run = split(std::vector{first, second}, [&](BatchJob& job) {
            auto& s = job.settings;
            s.OUTPUTDIR = out.string();
            s.CREATELIST = 1;
            s.KEEPBOOKMARKS = c.keep;
            s.OFFSETFIRST = c.offset;
            s.FILENAME = (dir / "job").string();
        });
        EXPECT_EQ(run.rows[0].status, "Done");
        EXPECT_EQ(run.rows[1].status, "Done");
        EXPECT_FALSE(std::filesystem::exists(out)) << "no PDF is written";
        EXPECT_EQ(readFile(dir / "job_splitlist.spl"), c.list);
    }
}

// The mail list as the confirm question shows it (declined: nothing is sent).
std::string confirmList(const Run& run) {
    for (const auto& note : run.notes)
        if (note.starts_with("Email List to Send\n")) return note;
    return {};
}

TEST(PageExtraction, MailListHoldsEachOutputOnceWithItsPages) {
    testing::TempDir dir;
    // Names A, A, B: the unique mode writes A twice, 1-2 and then 1-5.
    const auto source = writeStatements(dir / "run.pdf", 8, {{1, "A"}, {3, "A"}, {6, "B"}});
    const auto out = dir / "out";
    const std::string header = "Email List to Send\nEmail\tFile\tExtract Page Start\tExtract Page End\n";
    const auto mailed = [&](int offset) {
        return split(source, [&](BatchJob& job) {
            auto& s = job.settings;
            s.OUTPUTDIR = out.string();
            s.PAGEEXTRACT = modeText(PageExtractMode::NextUniqueMatch);
            s.OFFSETFIRST = offset;
            s.EMAILENABLE = 1;
            s.EMAILCONFIRM = 1;
        });
    };
    EXPECT_EQ(confirmList(mailed(0)), header + "\t" + (out / "extract_A.pdf").string() + "\t1\t5\n\t" +
                                          (out / "extract_B.pdf").string() + "\t6\t8\nOK - Send");
    EXPECT_EQ(pageMarkers(out / "extract_A.pdf"), markers(1, 5));
    // Removing the first two pages moves only the start of each range.
    EXPECT_EQ(confirmList(mailed(2)), header + "\t" + (out / "extract_A.pdf").string() + "\t3\t5\n\t" +
                                          (out / "extract_B.pdf").string() + "\t8\t8\nOK - Send");
    EXPECT_EQ(pageMarkers(out / "extract_B.pdf"), markers(8, 8));

    const auto off = split(source, [&](BatchJob& job) { job.settings.OUTPUTDIR = out.string(); });
    EXPECT_EQ(confirmList(off), "");
}

// A scripted host that counts how often one document is opened.
class CountingHost : public testing::ScriptedHost {
public:
    std::string counted;
    int opens = 0;

protected:
    DocHandle openFile(const std::filesystem::path& path, bool makeCurrent) override {
        if (path.string() == counted) ++opens;
        return ScriptedHost::openFile(path, makeCurrent);
    }
};

TEST(PageExtraction, LongRunsOnLargeSourcesReopenThemEveryHundredRanges) {
    // A statement every 5 pages: 300, 201 and 200 ranges. The 101st and the
    // 201st range reopen a source of at least 1001 pages; a smaller one never.
    for (const auto& [pages, opens] : {std::pair{1500, 3}, {1001, 3}, {1000, 1}}) {
        testing::TempDir dir;
        const std::string source = (dir / "big.pdf").string();
        std::ofstream(source) << "scripted";
        CountingHost host;
        host.counted = source;
        for (int page = 0; page < pages; ++page)
            host.files[source].push_back(
                page % 5 == 0 ? testing::ScriptedPage{{"account:", 72, 700}, {"N" + std::to_string(page), 150, 700}}
                              : testing::ScriptedPage{{"text", 72, 700}});
        testing::RecordingInterface ui;
        BatchJob job = testing::jobIn(dir, {source});
        job.settings.OUTPUTDIR = (dir / "out").string();
        const int ranges = (pages + 4) / 5;
        EXPECT_EQ(runBatch(job, host, ui).rows[0].status, "Done") << pages;
        EXPECT_EQ(host.opens, opens) << pages;
        // Every range after a reopen is still written, from the right pages.
        EXPECT_EQ(host.files.size(), static_cast<std::size_t>(ranges + 1)) << pages;
        const int lastStart = 5 * (ranges - 1);
        const auto& last = host.files[(dir / "out" / ("extract_N" + std::to_string(lastStart) + ".pdf")).string()];
        ASSERT_EQ(last.size(), static_cast<std::size_t>(pages - lastStart)) << pages;
        EXPECT_EQ(last.front().at(1).text, "N" + std::to_string(lastStart)) << pages;
    }
}

// Every file under a folder (reports without their dated first line), by its
// path inside the folder.
std::map<std::string, std::string> folderFiles(const std::filesystem::path& folder) {
    std::map<std::string, std::string> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        if (!entry.is_regular_file()) continue;
        std::string bytes = readFile(entry.path());
        if (entry.path().string().find("_report.") != std::string::npos) bytes.erase(0, bytes.find('\n'));
        files[std::filesystem::relative(entry.path(), folder).string()] = bytes;
    }
    return files;
}

TEST(PageExtraction, WorkSideBySideWritesWhatOneJobWrites) {
    testing::TempDir dir;
    // One long source with bookmarks and addresses, whose pages are read by
    // workers; then a list whose rows are split side by side, with rows
    // that depend on the rows before them: a parameters file that stays in
    // force, sequential names, and two rows appending to the same outputs.
    const auto folder = dir / "run";
    const auto runWith = [&](int jobs) {
        std::filesystem::remove_all(folder);
        std::filesystem::create_directories(folder);
        fixtures::writePdf(fixtures::statements(600, 5, {.email = true, .bookmarks = true}), folder / "long.pdf");
        std::vector<BatchRow> rows;
        const auto add = [&](const std::string& name, int pages, const std::string& params) {
            const auto pdf = folder / (name + ".pdf");
            fixtures::writePdf(fixtures::statements(pages, 5), pdf);
            std::string paramsFile;
            if (!params.empty()) {
                paramsFile = (folder / (name + ".pcs")).string();
                std::ofstream(paramsFile, std::ios::binary) << params;
            }
            rows.push_back({"Yes", pdf.string(), "Ready.", paramsFile});
        };
        add("a", 40, "");
        add("b", 35, "PREFIXFILENAME;b_ \r\n");
        add("c", 30, "");
        add("d", 25, "EXTRACT;Sequential Number \r\nPREFIXFILENAME;seq_ \r\n");
        add("e", 20, "");
        add("f", 30, "EXTRACT;Next word as filename \r\nPREFIXFILENAME;joined_ \r\nALWAYSAPPEND;1 \r\n");
        add("g", 45, "");
        add("h", 50, "ALWAYSAPPEND;0 \r\nPREFIXFILENAME;h_ \r\n");
        add("i", 15, "");
        rows.push_back({"Yes", (folder / "missing.pdf").string(), "Ready.", ""});

        testing::RecordingInterface ui;
        MupdfHost host;
        std::vector<std::string> heard;
        std::vector<BatchResult> results;
        for (const bool list : {false, true}) {
            BatchJob job = testing::jobIn(dir);
            job.settingsFile = folder / "settings.ini";
            job.jobs = jobs;
            job.newHost = [] { return std::make_unique<MupdfHost>(); };
            job.settings.OUTPUTDIR = (folder / "out").string();
            job.settings.REPORTOPTIONSTXT = job.settings.REPORTOPTIONSCSV = 1;
            if (list) {
                job.rows = rows;
            } else {
                job.rows = {{"Yes", (folder / "long.pdf").string(), "Ready.", ""}};
                job.settings.KEEPBOOKMARKS = job.settings.EMAILENABLE = job.settings.EMAILCONFIRM = 1;
                job.settings.EMAILMATCHVERT = job.settings.EMAILMATCHVERTTO = -1;
                job.settings.EMAILMATCHHORIZ = job.settings.EMAILMATCHHORIZTO = -1;
                job.settings.OUTPUTDIR = (folder / "long").string();
            }
            results.push_back(runBatch(job, host, ui));
        }
        return std::tuple{folderFiles(folder), ui.notes, ui.statuses, ui.written, results};
    };
    const auto [serialFiles, serialNotes, serialStatuses, serialWritten, serialResults] = runWith(1);
    const auto [files, notes, statuses, written, results] = runWith(2);
    EXPECT_EQ(serialResults[0].filesWritten, 120);
    EXPECT_GT(serialResults[1].filesWritten, 40);
    EXPECT_EQ(serialResults[1].rows.back().status, "file error");
    EXPECT_TRUE(serialFiles.count("out/seq_000001.pdf") && serialFiles.count("out/b_100000.pdf"));
    // Every statement's address is found on its own pages.
    const std::string mailLine = "customer00119@example.com\t" + (folder / "long" / "extract_100119.pdf").string();
    EXPECT_TRUE(std::any_of(serialNotes.begin(), serialNotes.end(),
                            [&](const std::string& note) { return note.find(mailLine) != std::string::npos; }));

    ASSERT_EQ(files.size(), serialFiles.size());
    for (const auto& [path, bytes] : serialFiles) {
        const auto found = files.find(path);
        ASSERT_NE(found, files.end()) << path;
        EXPECT_EQ(found->second, bytes) << path;
    }
    EXPECT_EQ(notes, serialNotes);
    EXPECT_EQ(statuses, serialStatuses);
    EXPECT_EQ(written, serialWritten);
    for (std::size_t run = 0; run < results.size(); ++run) {
        EXPECT_EQ(results[run].filesWritten, serialResults[run].filesWritten);
        EXPECT_EQ(results[run].outputs.size(), serialResults[run].outputs.size());
    }
}

}  // namespace
}  // namespace vellira
