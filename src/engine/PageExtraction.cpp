// Writing one page range: a new PDF of the source's pages (or a split list
// line), its report lines, its e-mail entry, and the save that never leaves a
// half-written file behind.
#include "core/FileLock.h"
#include "core/Text.h"
#include "engine/SplitEngine.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <thread>

#ifdef _WIN32
#include <share.h>
#else
#include <fcntl.h>
#include <unistd.h>
#endif

namespace vellira {

namespace {

constexpr int kReopenEvery = 101;
constexpr int kReopenFromPages = 1001;

// Whether a file is held by another program right now. Only a file that is
// busy counts: a file that cannot be opened for any other reason is left to
// the save, which reports why.
bool fileInUse(const std::filesystem::path& path, bool forWriting) {
#ifdef _WIN32
    std::error_code error;
    if (!std::filesystem::exists(path, error)) return false;
    // Windows refuses a file another program holds with a sharing violation.
    FILE* file = _wfsopen(path.c_str(), forWriting ? L"r+b" : L"rb", _SH_DENYNO);
    if (file) {
        std::fclose(file);
        return false;
    }
    return errno == EACCES;
#else
    // Here a file is busy only for writing, while a program runs from it.
    if (!forWriting) return false;
    const int fd = ::open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd >= 0) {
        ::close(fd);
        return false;
    }
    return errno == EBUSY || errno == ETXTBSY;
#endif
}

void waitWhileInUse(RunInterface& ui, const std::filesystem::path& path, bool forWriting) {
    const char* waiting = forWriting ? "Waiting for file system to write to file: %s, file in use!"
                                     : "Waiting for file system to open file: %s, file in use!";
    while (fileInUse(path, forWriting)) {
        ui.status(formatText(waiting, pathText(path).c_str()));
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
}

}  // namespace

bool SplitEngine::SavePDDoc(DocHandle target, const std::string& path) {
    if (run.trace.on()) run.trace.write("SavePDDoc szPathName: %s\r\n\r\n", path.c_str());
    std::string destination = path;
    std::error_code ignored;
    const bool grouped = settings.GROUPBYVALUE && run.groupedAs.contains(path);
    if (!run.overwrite && !settings.ALWAYSAPPEND && !grouped && path.size() > 3 &&
        std::filesystem::exists(host.makeHostPath(path), ignored)) {
        for (int part = 2;; ++part) {
            destination = formatText("%.*s_part%.3d.pdf", static_cast<int>(path.size() - 4), path.c_str(), part);
            if (!std::filesystem::exists(host.makeHostPath(destination), ignored)) break;
        }
    }
    if (settings.GROUPBYVALUE && !grouped) {
        run.groupedAs.try_emplace(path, destination);
        run.groupedAs.try_emplace(destination, destination);
    }
    const auto hostPath = host.makeHostPath(destination);
    // Every level of a missing output folder; a folder that cannot be made
    // fails the save below with the host's own words.
    if (hostPath.has_parent_path() && run.madeFolders.insert(pathText(hostPath.parent_path())).second)
        std::filesystem::create_directories(hostPath.parent_path(), ignored);
    waitWhileInUse(ui, hostPath, true);
    try {
        // The host writes beside the target and renames into place, so an
        // existing file is replaced only by a complete one. A staged output
        // stays under a temporary name of its own until its row's turn.
        if (run.staging) {
            const auto staged = unusedTemporaryBeside(hostPath, run.stagingId);
            host.saveDocument(target, staged);
            run.staged.emplace_back(staged, hostPath);
        } else {
            host.saveDocument(target, hostPath);
        }
        host.closeDocument(target);
    } catch (const HostError& error) {
        host.closeDocument(target);
        ui.note("Abort!! Save Error message: " + error.text() + ", file: '" + destination + "'");
        return false;
    }
    if (run.trace.on()) run.trace.write("SavePDDoc return 1\n");
    savedAs_ = destination;
    return true;
}

void SplitEngine::ExtractPages(const std::string& outFile, int start, int end) {
    // The shifted start in 64 bits: no "Remove first" value can overflow it;
    // one past the range leaves the range empty, as the host then says.
    start = static_cast<int>(
        std::clamp<long long>(static_cast<long long>(start) + settings.offsetFirstWorking, -1, INT_MAX - 1));
    composer.nameTextUsed = false;
    match.line.bFirstFileMatch = true;
    if (ui.cancelled()) return;

    const auto view = host.activeViewDocument();
    if (!view) {
        if (run.trace.on()) run.trace.write("CurrentAVDoc error\r\n");
        return;
    }
    DocHandle source;
    try {
        source = host.documentOfView(*view);
    } catch (const HostError& error) {
        ui.note("AVDocGetPDDoc Abort!! Error message: " + error.text());
    }
    if (!source) {
        if (run.trace.on()) run.trace.write("CurrentPDDoc error\r\n");
        return;
    }
    ++doc.extractCnt;

    // A row that switched the split list on after the run opened none still
    // gets its PDFs.
    bool saved = false;
    bool appended = false;
    if (run.plan) {
        // A dry run writes nothing.
    } else if (!run.g_createList || !run.splitList.isOpen()) {
        saved = writeRange(source, outFile, start, end, appended);
    } else {
        int sourcePages = 0;
        try {
            sourcePages = host.pageCount(source);
        } catch (const HostError&) {
            sourcePages = doc.totalPages;
        }
        run.splitList.line(settings.FILENAME, start + 1, end + 1, sourcePages, outFile, settings.KEEPBOOKMARKS != 0);
    }

    // A range that continues the one before under the same name replaces
    // that range's report lines.
    const PageExtractMode mode = run.lAquireType;
    const bool restOfLine = restOfLineNames();
    if ((mode == PageExtractMode::NextUniqueMatchAtPosition ||
         (mode == PageExtractMode::NextUniqueMatch && restOfLine)) &&
        (doc.g_szBuf == doc.g_szLastBuf2 || doc.szOutFilenameLine == doc.g_szLastBuf2)) {
        doc.reports.takeBack();
        if (run.plan && !run.plan->empty()) run.plan->pop_back();
        if (doc.outputFiles > 0) --doc.outputFiles;
        if (doc.rangesSinceReopen > 0) --doc.rangesSinceReopen;
        if (restOfLine) {
            const std::string line = FilenameComposer::cleanName(doc.szOutFilenameLine);
            if (!line.empty()) doc.g_szBuf = line;
        }
    }
    doc.reports.rangeLine(start + 1, end + 1, doc.g_szBuf, outFile);
    if (run.plan) run.plan->push_back({start + 1, end + 1, doc.g_szBuf, outFile});
    if (checks_ && (saved || run.plan)) recordPiece(outFile, saved && !run.planned ? savedAs_ : outFile, start, end);
    if (saved) {
        PlannedRange output{start + 1, end + 1, doc.g_szBuf, outFile};
        long confidence = 0;
        int words = 0;
        for (auto page = doc.recognized.lower_bound(start); page != doc.recognized.end() && page->first <= end;
             ++page) {
            ++output.pagesRecognized;
            confidence += page->second.first;
            words += page->second.second;
        }
        if (words > 0) output.meanConfidence = static_cast<int>((confidence + words / 2) / words);
        const auto [known, added] = run.outputIndex.try_emplace(outFile, run.outputs.size());
        if (added)
            run.outputs.push_back(std::move(output));
        else
            run.outputs[known->second] = std::move(output);
    }

    if (settings.EMAILENABLE) {
        const auto [known, added] = doc.mailIndex.try_emplace(outFile, doc.mailList.size());
        MailRange& mail =
            added ? doc.mailList.emplace_back(MailRange{outFile, start + 1, end + 1, {}}) : doc.mailList[known->second];
        mail.last = end + 1;
        // A file that holds exactly this range's pages has their words.
        mail.address.reset();
        const auto listed = lookup_ && composer.lookupRow ? lookup_->column(settings.LOOKUPEMAILCOLUMN) : std::nullopt;
        if (composer.lookupRow && settings.EMAILSUBJECT.find("[COL:") != std::string::npos)
            mail.subject = composer.expandColumns(settings.EMAILSUBJECT, false);
        if (listed) {
            mail.address = (*composer.lookupRow)[*listed];
        } else if (saved && !appended && addressFromWords) {
            auto words = recentWords(start, end);
            // A planned output is never there to be read later.
            if (!words && run.planned) words = sourceWords(start, end);
            if (words) mail.address = addressFromWords(std::move(*words));
        }
    }
    ++doc.outputFiles;
    ++doc.ranges;
    ++doc.rangesSinceReopen;
    if (doc.rangesSinceReopen >= kReopenEvery && doc.totalPages >= kReopenFromPages) reopenSource();
    ui.progress({settings.FILENAME, end + 1, doc.totalPages, doc.outputFiles});
}

std::optional<std::vector<Word>> SplitEngine::recentWords(int first, int last) const {
    std::vector<Word> words;
    for (int page = first; page <= last; ++page) {
        const std::vector<Word>* kept = doc.recent.words(page);
        if (!kept || kept->size() + words.size() > static_cast<std::size_t>(PageWordStore::kLimit)) return std::nullopt;
        for (const Word& word : *kept) {
            Word& copy = words.emplace_back(word);
            if (settings.ROTATED) std::swap(copy.h, copy.v);
        }
    }
    return words;
}

std::optional<std::vector<Word>> SplitEngine::sourceWords(int first, int last) {
    std::vector<Word> words;
    PageWordStore store;
    for (int page = first; page <= last; ++page) {
        try {
            store.readPage(host, doc.source, page, settings.ROTATED != 0, ui);
        } catch (const HostError&) {
            return std::nullopt;
        }
        if (store.count() + words.size() > static_cast<std::size_t>(PageWordStore::kLimit)) return std::nullopt;
        words.insert(words.end(), store.words.begin(), store.words.end());
    }
    return words;
}

bool SplitEngine::planRange(DocHandle source, const std::string& outFile, int start, int end, bool& appended) {
    std::error_code ignored;
    appended = (settings.GROUPBYVALUE && run.plannedOutputs.count(outFile)) ||
               (settings.ALWAYSAPPEND &&
                (run.plannedOutputs.count(outFile) || std::filesystem::exists(host.makeHostPath(outFile), ignored)));
    int pages = 0;
    try {
        pages = host.pageCount(source);
    } catch (const HostError& error) {
        ui.note("Abort!! Extract Error message: " + error.text() + ", file: '" + outFile + "'");
        ++run.rangesFailed;
        return false;
    }
    if (start < 0 || end < start || end >= pages) {
        // What the host says of pages that are not there.
        ui.note("Extract Pages Abort!! Error message: invalid page range: " + std::to_string(start + 1) + "-" +
                std::to_string(end + 1) + " of " + std::to_string(pages));
        ++run.rangesFailed;
        return false;
    }
    run.planned->push_back({run.plannedRow, settings.FILENAME, start + 1, end + 1, outFile, doc.g_szBuf,
                            composer.sequence, settings.KEEPBOOKMARKS != 0, appended});
    run.plannedOutputs.insert(outFile);
    ++run.filesWritten;
    ui.fileWritten(outFile, start + 1, end + 1);
    noteRewritten(run, ui, outFile, {settings.FILENAME, start + 1, end + 1}, appended);
    return true;
}

bool SplitEngine::writeRange(DocHandle source, const std::string& named, int start, int end, bool& appended) {
    // Grouped by value, a range goes after the ranges of its name this run
    // wrote before it, into the file they were saved to.
    const auto group = settings.GROUPBYVALUE ? run.groupedAs.find(named) : run.groupedAs.end();
    const bool grouped = group != run.groupedAs.end();
    const std::string& outFile = grouped ? group->second : named;
    const auto hostPath = host.makeHostPath(outFile);
    // A name nothing stands at yet is neither a source nor anything but a
    // plain file to be.
    std::error_code unknown;
    const auto status = std::filesystem::status(hostPath, unknown);
    const bool there = std::filesystem::exists(status);
    if (there && run.sources.contains(hostPath)) {
        ui.note("Abort!! Save Error message: the output would replace its source, file: '" + outFile + "'");
        ++run.rangesFailed;
        return false;
    }
    if (there && !std::filesystem::is_regular_file(status)) {
        // A pipe, a device or a folder at the name is never opened.
        ui.note("Abort!! Save Error message: not a plain file, file: '" + outFile + "'");
        ++run.rangesFailed;
        return false;
    }
    if (run.planned) return planRange(source, outFile, start, end, appended);
    if (there && !grouped && !settings.ALWAYSAPPEND && !run.staging && !ui.outputWanted(outFile, start + 1, end + 1)) {
        // Written whole by a run cut off before: kept as it is.
        appended = false;
        ++run.filesWritten;
        ui.fileWritten(outFile, start + 1, end + 1);
        noteRewritten(run, ui, outFile, {settings.FILENAME, start + 1, end + 1}, false);
        return true;
    }
    removeStaleTemporaries(hostPath.parent_path(), run.tidiedFolders);
    // Appends of two runs to one output are one after the other: the old
    // file is read and the new one saved under the output's lock.
    std::optional<FileLock> appending;
    if (settings.ALWAYSAPPEND || grouped) appending.emplace(hostPath);
    const bool append = appending && appending->fileThere();
    appended = append;
    DocHandle target;
    try {
        target = host.createDocument();
        if (append) {
            const DocHandle old = host.openDocumentUnseen(hostPath);
            try {
                host.insertPages(target, old, 0, host.pageCount(old), settings.KEEPBOOKMARKS != 0);
            } catch (const HostError&) {
                host.closeDocument(old);
                throw;
            }
            host.closeDocument(old);
        }
    } catch (const HostError& error) {
        if (target) host.closeDocument(target);
        ui.note("Abort!! Extract Error message: " + error.text() + ", file: '" + outFile + "'");
        ++run.rangesFailed;
        return false;
    }
    bool inserted = true;
    try {
        // The range's pages in runs, less blank pages left out; a range the
        // host cannot take is still asked for, so that it says why.
        std::vector<std::pair<int, int>> runs;
        for (int first = start; first <= end;) {
            const auto blank = doc.blankPages.lower_bound(first);
            const int stop = blank != doc.blankPages.end() && *blank <= end ? *blank - 1 : end;
            if (stop >= first) runs.emplace_back(first, stop);
            first = stop + 2;
        }
        if (runs.empty() && doc.blankPages.empty()) runs.emplace_back(start, end);
        for (const auto& [first, last] : runs) {
            const int placed = host.pageCount(target);
            host.insertPages(target, source, first, last - first + 1, settings.KEEPBOOKMARKS != 0);
            // Pages read from their image carry what was read, as searchable text.
            for (auto layer = doc.layers.lower_bound(first); layer != doc.layers.end() && layer->first <= last; ++layer)
                host.addTextLayer(target, placed + layer->first - first, *layer->second);
        }
    } catch (const HostError& error) {
        ui.note("Extract Pages Abort!! Error message: " + error.text());
        inserted = false;
    }
    if (host.pageCount(target) == 0) {
        // Nothing to write (a range that OFFSETFIRST moved past its end): no
        // file rather than a PDF without pages.
        host.closeDocument(target);
        if (!inserted) ++run.rangesFailed;
        return false;
    }
    // An output appended to is saved again even when this range's pages
    // could not be added; the range still counts as failed.
    const bool saved = SavePDDoc(target, outFile);
    appending.reset();
    waitWhileInUse(ui, hostPath, false);
    if (!saved || !inserted) {
        ++run.rangesFailed;
        return false;
    }
    ++run.filesWritten;
    ui.fileWritten(outFile, start + 1, end + 1);
    if (!run.staging) noteRewritten(run, ui, outFile, {settings.FILENAME, start + 1, end + 1}, append);
    return true;
}

void noteRewritten(RunState& run, RunInterface& ui, const std::string& outFile, const RunState::Written& now,
                   bool appended) {
    // Two ranges of one name: unless the later one holds the earlier one's
    // pages (or was appended to it), the earlier pages are gone. Say so.
    const auto [earlier, first] = run.written.try_emplace(outFile, now);
    if (first) return;
    RunState::Written& before = earlier->second;
    const bool holdsEarlier = before.source == now.source && now.first <= before.first && now.last >= before.last;
    if (!appended && !holdsEarlier)
        ui.note(
            formatText("Warning: '%s' was written again with pages %d-%d, replacing pages %d-%d written earlier "
                       "in this run",
                       outFile.c_str(), now.first, now.last, before.first, before.last));
    if (appended && before.source == now.source)
        before = {now.source, std::min(before.first, now.first), std::max(before.last, now.last)};
    else
        before = now;
}

// A long run on a very large source reopens it every hundred ranges, so the
// memory of the pages read so far is given back.
void SplitEngine::reopenSource() {
    try {
        doc.source = host.reopenDocument(doc.source);
    } catch (const HostError&) {
        doc.source = {};
        ui.note("Error opening active doc");
        doc.bStopScan = true;
        return;
    }
    doc.rangesSinceReopen = 1;
}

}  // namespace vellira
