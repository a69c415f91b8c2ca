#include "run/BatchJob.h"

#include "engine/PageWords.h"
#include "files/SettingsLocations.h"
#include "run/BatchPlan.h"
#include "run/BatchRun.h"
#include "run/EventRecorder.h"

#include <mutex>

namespace vellira {

namespace {

// A run on a working copy of the job's settings, with the job's options.
struct JobRun {
    SplitSettings settings;
    BatchRun batch;

    JobRun(const BatchJob& job, DocumentHost& host, RunInterface& ui)
        : settings(job.settings), batch(host, ui, settings) {
        batch.settingsFile = job.settingsFile;
        batch.legacyFolder = job.legacyFolder;
        batch.mail = job.mail;
        batch.run.overwrite = job.overwrite;
        batch.run.tidiedFolders = job.tidiedFolders;
        batch.jobs = job.jobs;
        batch.newHost = job.newHost;
        batch.engine.pageWorkers = job.jobs;
        batch.engine.newHost = job.newHost;
    }

    // Opens what the run needs before its first row: the trace file and the
    // viewer's document. Answers false after saying why it cannot start.
    bool open(const BatchJob& job, DocumentHost& host, RunInterface& ui) {
        if (!job.trace.empty() && !batch.run.trace.open(job.trace)) {
            ui.note("Can't write the trace file: " + pathText(job.trace));
            return false;
        }
        if (!job.currentDocument.empty()) {
            try {
                host.openDocument(host.makeHostPath(job.currentDocument));
            } catch (const HostError& error) {
                // The run then finds no current document and says so.
                ui.note("Abort!! Error message: " + error.text());
            }
        }
        return true;
    }
};

}  // namespace

BatchJob::BatchJob() : settingsFile(settingsFilePath()), legacyFolder(vellira::legacyFolder()) {}

BatchResult runBatch(const BatchJob& job, DocumentHost& host, RunInterface& ui) {
    BatchResult result;
    result.rows = job.rows;
    JobRun run(job, host, ui);
    if (run.open(job, host, ui)) result.completed = run.batch.process(result.rows);
    result.settings = run.settings;
    result.filesWritten = run.batch.run.filesWritten;
    result.rangesFailed = run.batch.run.rangesFailed;
    result.mailsSent = run.batch.mailsSent;
    result.mailsFailed = run.batch.mailsFailed;
    result.documentsWithoutRanges = run.batch.run.documentsWithoutRanges;
    result.scansFailed = run.batch.run.scansFailed;
    result.pagesRecognized = run.batch.run.pagesRecognized;
    result.exceptions = static_cast<int>(run.batch.run.exceptions.size());
    result.outputs = run.batch.run.outputs;
    result.mails = run.batch.mailResults;
    result.tidiedFolders = std::move(run.batch.run.tidiedFolders);
    result.stopped = ui.cancelled();
    return result;
}

BatchResult runShow(const BatchJob& job, DocumentHost& host, RunInterface& ui) {
    BatchResult result;
    result.rows = job.rows;
    JobRun run(job, host, ui);
    if (run.open(job, host, ui)) result.completed = run.batch.show();
    result.settings = run.settings;
    return result;
}

std::vector<PlannedRange> previewRanges(const BatchJob& job, DocumentHost& host, RunInterface& ui) {
    std::vector<PlannedRange> plan;
    JobRun run(job, host, ui);
    if (run.open(job, host, ui) && !run.batch.preview(plan)) plan.clear();
    return plan;
}

std::optional<std::filesystem::path> runPagePositions(const BatchJob& job, DocumentHost& host, RunInterface& ui,
                                                      int page) {
    JobRun run(job, host, ui);
    if (!run.open(job, host, ui)) return std::nullopt;
    return writePagePositions(host, ui, run.settings, page);
}

BatchPlan planBatch(const BatchJob& job, DocumentHost& host, RunInterface& ui) {
    BatchPlan plan;
    plan.rows = job.rows;
    plan.rowSettings.resize(job.rows.size());
    std::mutex asking;
    EventRecorder planning(ui, asking, true);
    JobRun run(job, host, planning);
    run.batch.planned = &plan;
    run.batch.run.planned = &plan.writes;
    run.batch.eventsTold = [&planning] { return planning.events.size(); };
    if (run.open(job, host, planning)) plan.completed = run.batch.process(plan.rows);
    plan.rangesFailed = run.batch.run.rangesFailed;
    plan.documentsWithoutRanges = run.batch.run.documentsWithoutRanges;
    plan.scansFailed = run.batch.run.scansFailed;
    plan.pagesRecognized = run.batch.run.pagesRecognized;
    plan.exceptions = static_cast<int>(run.batch.run.exceptions.size());
    plan.stopped = ui.cancelled();
    plan.events = std::move(planning.events);
    return plan;
}

}  // namespace vellira
