#include "run/BatchRun.h"

#include "core/Platform.h"
#include "core/Text.h"
#include "files/Csv.h"
#include "files/ParametersFile.h"
#include "files/SettingsLocations.h"
#include "mail/AddressCapture.h"
#include "run/BatchPlan.h"

namespace vellira {

namespace {

// The next-match position modes take one word only: that word is the position.
// The until position mode is deliberately not refused.
bool refusesMultiWordPosition(const SplitSettings& settings) {
    const auto mode = pageExtractModeOf(settings.PAGEEXTRACT);
    return settings.FINDSTRING.find(' ') != std::string::npos &&
           (mode == PageExtractMode::NextMatchAtPosition || mode == PageExtractMode::NextUniqueMatchAtPosition);
}

constexpr std::string_view kPositionOneWord =
    "When using h,v position only one word is allowed in search, that word is the position";

}  // namespace

bool readableFile(const std::filesystem::path& path) {
    std::error_code error;
    return std::filesystem::is_regular_file(path, error) && openFile(path, "rb") != nullptr;
}

BatchRun::BatchRun(DocumentHost& host_, RunInterface& ui_, SplitSettings& settings_)
    : host(host_), ui(ui_), settings(settings_), engine(host_, ui_, settings_, run) {
    engine.addressFromWords = [this](std::vector<Word> words) { return addressAmong(std::move(words), settings); };
}

void BatchRun::setStatus(BatchRow& row, std::size_t index, const char* status) {
    row.status = status;
    ui.rowStatus(static_cast<int>(index), status);
}

bool BatchRun::prepare() {
    inBatch = false;
    errorFlag = false;
    // The settings the run starts with are the ones saved, before any check
    // can refuse the run and with "[DESKTOP]" as the user wrote it; a failure
    // is silent.
    std::error_code ignored;
    std::filesystem::create_directories(settingsFile.parent_path(), ignored);
    writeParameters(pathText(settingsFile), settings, false, legacyFolder, nullptr);
    return beginRun();
}

bool BatchRun::beginRun() {
    runTime = localNow();
    ui.clearCancel();
    if (!engine.beginRun(runTime)) return false;
    if (settings.OUTPUTDIR.find("[DESKTOP]") != std::string::npos)
        settings.OUTPUTDIR = replaceDesktopToken(settings.OUTPUTDIR, pathText(desktopFolder()));
    if (refusesMultiWordPosition(settings)) {
        ui.note(kPositionOneWord);
        return false;
    }
    return true;
}

bool BatchRun::process(std::vector<BatchRow>& rows) {
    if (settings.USECURRENT && !host.activeViewDocument()) {
        ui.note("Please open a document first or set it to use a filename");
        return false;
    }
    if (!prepare()) return false;
    // No output may replace a source of the run.
    for (const auto& row : rows)
        if (row.use == "Yes") run.sources.add(host.makeHostPath(row.path));
    if (settings.CREATELIST && !run.splitList.open(settings.FILENAME, ui, run.stagingId)) return false;

    bool completed = true;
    if (settings.USECURRENT) {
        completed = processDocument(true) == kProcessed;
    } else if (rows.empty()) {
        ui.note(
            "Please add files to batch list to process or load a pdf and check use current to process a single pdf");
        completed = false;
    } else {
        completed = sideBySide(rows) ? processSideBySide(rows) : processInOrder(rows);
        if (errorFlag) ui.note("Done, some errors occurred.");
    }
    finishPieces();
    if (!run.splitList.close(ui)) ++run.rangesFailed;
    return completed;
}

void BatchRun::finishPieces() {
    if (settings.GROUPBYVALUE) {
        const auto held = engine.judgePieces();
        std::erase_if(groupedMail, [&](const MailEntry& entry) { return held.contains(entry.file); });
        if (!groupedMail.empty() && !ui.cancelled()) {
            if (planned)
                planned->mails.push_back({run.plannedRow, std::move(groupedMail), eventsTold ? eventsTold() : 0});
            else
                sendMails(std::move(groupedMail));
        }
        groupedMail.clear();
    }
    if (run.exceptions.empty() || run.plan) return;
    // One report of the run, in the exceptions folder of the first piece
    // held back.
    std::string text = "Source,Pages,Value,Check,File\r\n";
    for (const auto& exception : run.exceptions)
        text += csvField(exception.source) + "," + csvField(exception.pages) + "," + csvField(exception.value) + "," +
                csvField(exception.check) + "," + csvField(exception.path) + "\r\n";
    const std::filesystem::path report = std::filesystem::path(run.exceptions.front().folder) / "exceptions.csv";
    if (planned) {
        planned->files.emplace_back(pathText(report), text);
        return;
    }
    std::error_code ignored;
    std::filesystem::create_directories(report.parent_path(), ignored);
    StagedFile file;
    if (!file.open(report, run.stagingId)) {
        ui.note(formatText("file error! can't write to report file: %s", pathText(report).c_str()));
        ++run.rangesFailed;
        return;
    }
    file.put(text);
    if (!file.close(ui) || !file.putInPlace(ui)) ++run.rangesFailed;
}

void BatchRun::sendMails(std::vector<MailEntry> entries) {
    const MailCounts counts = sendMailList(settings, entries, ui, mail);
    mailsSent += counts.sent;
    mailsFailed += counts.failed;
    mailResults.insert(mailResults.end(), counts.results.begin(), counts.results.end());
    ui.note(formatText("(%d) Emails sent ok: %d, errors: %d", counts.handled, counts.sent, counts.failed));
}

bool BatchRun::processInOrder(std::vector<BatchRow>& rows) {
    for (std::size_t index = 0; index < rows.size(); ++index) {
        if (ui.cancelled()) return false;
        if (!processRow(rows[index], index)) return false;
    }
    return true;
}

bool BatchRun::processRow(BatchRow& row, std::size_t index) {
    inBatch = true;
    if (row.use != "Yes") return true;
    if (!readableFile(host.makeHostPath(row.path))) {
        setStatus(row, index, "file error");
        return true;
    }
    setStatus(row, index, "Processing");
    if (row.params.size() > 1) {
        // A row's own settings stay in force for the rows after it.
        std::string params = row.params;
        readParameters(params, settings, {legacyFolder, false});
        if (!engine.takeSettings()) {
            setStatus(row, index, "Can't open");
            errorFlag = true;
            return true;
        }
    }
    settings.USECURRENT = 0;
    settings.FILENAME = row.path;
    if (planned) {
        SplitSettings kept = settings;
        kept.EMAILPASSWORD.clear();
        planned->rowSettings[index] = parametersText(kept, false);
        run.plannedRow = index;
    }
    if (settings.FILENAME.empty()) {
        ui.note(
            "No filename specified, click 'Use current open PDF document' if you want to use current open "
            "document");
        return false;
    }
    switch (processDocument(false)) {
        case kNotOpened:
            setStatus(row, index, "Can't open");
            errorFlag = true;
            break;
        case kLocked:
            setStatus(row, index, "Permissions error");
            errorFlag = true;
            break;
        case kProcessed: setStatus(row, index, "Done"); break;
    }
    return true;
}

DocumentResult BatchRun::processDocument(bool useCurrent) {
    engine.beginDocument();
    ui.clearCancel();
    auto& doc = engine.doc;
    if (useCurrent) {
        const auto view = host.activeViewDocument();
        if (!view) {
            ui.note("Can't open current file");
            return kNotOpened;
        }
        DocHandle current;
        try {
            current = host.documentOfView(*view);
        } catch (const HostError&) {
        }
        if (!current) {
            ui.note("Can't open the current file");
            return kNotOpened;
        }
        settings.FILENAME = host.filePath(current);
        run.sources.add(host.makeHostPath(settings.FILENAME));
    }
    if (settings.FILENAME.empty()) return kNotOpened;

    ui.progress({settings.FILENAME, 0, 0, 0});
    // Reports are written under temporary names too: their folders are
    // tidied as output folders are.
    const auto reports = reportPaths(settings, settings.FILENAME);
    for (const auto& report : {reports.text, reports.csv})
        if (report != nullDevice()) removeStaleTemporaries(report.parent_path(), run.tidiedFolders);
    if (!doc.reports.open(settings, settings.FILENAME, localNow(), ui, run.stagingId)) return kNotOpened;
    // Reports written whole replace those of their names: now, or in its
    // turn for a row split beside others; a plan carries them instead.
    const auto closeReports = [&] {
        run.rangesFailed += doc.reports.close(ui);
        if (planned) {
            for (const auto& [temporary, report] : doc.reports.staged())
                planned->files.emplace_back(pathText(report), readWholeFile(temporary).value_or(""));
            doc.reports.discardStaged();
        } else if (!run.staging) {
            run.rangesFailed += doc.reports.putStagedInPlace(ui);
        }
    };
    if (!useCurrent) {
        try {
            doc.source = host.openDocument(host.makeHostPath(settings.FILENAME));
        } catch (const HostError& error) {
            closeReports();
            if (error.code() == HostError::kNeedsPassword) return kLocked;
            ui.note("Can't open file: " + settings.FILENAME + ": " + error.text());
            return kNotOpened;
        }
    }
    engine.scan(ScanView::Split);
    // Pieces are judged once whole: those gathered by value at the run's end.
    if (!settings.GROUPBYVALUE) engine.judgePieces();
    if (doc.ranges == 0 && !ui.cancelled()) ++run.documentsWithoutRanges;
    doc.reports.footer(doc.outputFiles, doc.extractCnt);
    closeReports();

    const auto closeSource = [&] {
        if (!useCurrent && doc.source) host.closeDocument(doc.source);
        doc.source = {};
    };
    if (doc.extractCnt == 0 && doc.ranges == 0 && !ui.cancelled() && !inBatch) {
        ui.note(
            "Done! and no matches we're found!,\r\nplease note: word searching is case sensitive & must contain the "
            "full word");
        closeSource();
        return kNotOpened;
    }
    if (doc.ranges > 0 && doc.extractCnt == 0) doc.extractCnt = 1;
    if (run.trace.on()) {
        char now[64];
        const std::tm local = localNow();
        std::strftime(now, sizeof now, "%c", &local);
        run.trace.write("Time: \t%s\r\n", now);
    }
    if (settings.REPORTOPTIONSTXT && !ui.cancelled() && !inBatch) {
        const std::string question = "Done! - " + std::to_string(doc.extractCnt) +
                                     " PDF file(s) output\r\n\r\nReport files have been generated, do you want to "
                                     "view text report ?";
        if (ui.question(question)) ui.showFile(pathText(reportPaths(settings, settings.FILENAME).text));
    }
    closeSource();
    if (settings.EMAILENABLE && !ui.cancelled()) {
        std::vector<MailEntry> entries;
        for (const auto& range : doc.mailList)
            entries.push_back(
                {range.path, range.first, range.last,
                 range.address ? *range.address : captureAddress(host, ui, settings, host.makeHostPath(range.path)),
                 range.subject});
        if (settings.GROUPBYVALUE) {
            // Gathered pieces go out once the run has gathered them all.
            for (auto& entry : entries) {
                std::erase_if(groupedMail, [&](const MailEntry& kept) { return kept.file == entry.file; });
                groupedMail.push_back(std::move(entry));
            }
            return kProcessed;
        }
        if (planned) {
            planned->mails.push_back(
                {planned->rows.empty() ? 0 : run.plannedRow, std::move(entries), eventsTold ? eventsTold() : 0});
            return kProcessed;
        }
        sendMails(std::move(entries));
    }
    return kProcessed;
}

bool BatchRun::preview(std::vector<PlannedRange>& plan) {
    // The current document only, with no report, list, mail or folder made.
    settings.USECURRENT = 1;
    settings.REPORTOPTIONSTXT = settings.REPORTOPTIONSCSV = settings.CREATELIST = settings.EMAILENABLE = 0;
    if (!beginRun()) return false;
    run.plan = &plan;
    engine.composer.makeFolders = false;
    inBatch = true;  // no closing messages
    const bool previewed = processDocument(true) == kProcessed;
    run.plan = nullptr;
    return previewed;
}

bool BatchRun::show() {
    if (!beginRun()) return false;
    engine.beginDocument();
    if (!settings.USECURRENT) {
        try {
            engine.doc.source = host.openDocument(host.makeHostPath(settings.FILENAME));
        } catch (const HostError& error) {
            ui.note("Abort!! Error message: " + error.text());
            return false;
        }
    }
    engine.scan(ScanView::ShowHighlights);
    if (!settings.USECURRENT) host.closeDocument(engine.doc.source);
    return true;
}

}  // namespace vellira
