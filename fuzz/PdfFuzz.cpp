// Any bytes as a source PDF, along the whole path a user's file takes: opened
// by the MuPDF host, the words of every page and the bookmarks read, then
// split in each family of modes (search text, position, bookmarks) into a
// folder of its own, with the address capture on every output. A damaged or
// hostile file may fail with HostError and nothing else: no crash, no other
// exception, no sanitizer report, no leak.
#include "host/MupdfHost.h"
#include "mail/AddressCapture.h"
#include "run/BatchJob.h"
#include "support/TempDir.h"

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <vector>

namespace {

using namespace vellira;

// Questions take their default answer; every output saved is kept for the
// address capture.
class FuzzInterface : public RunInterface {
public:
    std::vector<std::string> written;
    void note(std::string_view) override {}
    bool question(std::string_view) override { return false; }
    void fileWritten(std::string_view path, int, int) override { written.emplace_back(path); }
};

using testing::TempDir;  // a fresh folder for one input, removed afterwards

void walkOutline(DocumentHost& host, BookmarkHandle parent, std::set<int>& seen) {
    for (BookmarkHandle item = host.firstChild(parent); item; item = host.nextSibling(item)) {
        if (!seen.insert(item.item).second) return;
        host.bookmarkTitle(item);
        host.bookmarkIndent(item);
        host.bookmarkPage(item);
        walkOutline(host, item, seen);
    }
}

// What a viewer and the positions command read: every word of every page,
// and the whole outline.
void readEverything(const std::filesystem::path& pdf) {
    MupdfHost host;
    DocHandle doc;
    try {
        doc = host.openDocument(pdf);
        const int pages = host.pageCount(doc);
        for (int page = 0; page < pages; ++page) {
            try {
                host.pageRotation(doc, page);
                host.enumerateWords(doc, page, [](const Word&) { return true; });
            } catch (const HostError&) {
                // A damaged page does not end the reading of the others.
            }
        }
        std::set<int> seen;
        if (const BookmarkHandle root = host.bookmarkRoot(doc)) walkOutline(host, root, seen);
    } catch (const HostError&) {
    }
    if (doc) host.closeDocument(doc);
}

struct Modes {
    const char* extract;
    const char* filename;
    const char* matchH;
    const char* matchV;
    bool keepBookmarks;
    bool reports;
};

// One family of modes each, on the texts and places the seed corpus prints.
constexpr Modes kModes[] = {
    {"From match to next match", "Next word as filename", "", "", false, true},
    {"Matched page only", "Page start-end as filename", "", "", true, false},
    {"From match to next match using position h,v", "h,v match as filename", "72", "720", false, false},
    {"From match to until match", "USE 'use as filename name after text' - take rest of line", "", "", false, false},
    {"Bookmarks", "Use bookmark as filename", "", "", true, true},
    {"Bookmarks Level 2", "Use bookmark as filename", "", "", true, false},
};

void splitInEveryMode(const TempDir& scratch, const std::filesystem::path& pdf) {
    for (const Modes& modes : kModes) {
        BatchJob job;
        job.settingsFile = scratch / "VelliraBatch.ini";
        job.legacyFolder = scratch / "legacy";
        job.rows.push_back({"Yes", pdf.string(), "Ready.", ""});
        SplitSettings& s = job.settings;
        s.OUTPUTDIR = (scratch / "out").string();
        s.PAGEEXTRACT = modes.extract;
        s.EXTRACT = modes.filename;
        s.MATCHPOSH = modes.matchH;
        s.MATCHPOSV = modes.matchV;
        s.EXTRACTUNTIL = "Closing";
        s.EXTRACTFILENAME = "account:";
        s.KEEPBOOKMARKS = modes.keepBookmarks;
        s.REPORTOPTIONSTXT = s.REPORTOPTIONSCSV = modes.reports;
        // Any address anywhere on an output's pages.
        s.EMAILMATCHVERT = s.EMAILMATCHVERTTO = s.EMAILMATCHHORIZ = s.EMAILMATCHHORIZTO = -1;

        MupdfHost host;
        FuzzInterface ui;
        try {
            runBatch(job, host, ui);
            for (const auto& output : ui.written) captureAddress(host, ui, s, output);
        } catch (const HostError&) {
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const TempDir scratch;
    const auto pdf = scratch / "in.pdf";
    std::ofstream(pdf, std::ios::binary).write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    readEverything(pdf);
    splitInEveryMode(scratch, pdf);
    return 0;
}
