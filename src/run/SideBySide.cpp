// Rows of a batch list split side by side.
//
// Each row is split on a thread of its own, with a host of its own, and
// whatever it does is kept back: its outputs and reports are saved under
// temporary names, its messages, statuses and files written are recorded.
// Rows are then taken in list order, as a single thread would take them:
// the outputs and reports are put in place, the record is told, and the
// counters are added up. So the files, the reports and everything the
// interface hears come out as one thread would make them.
//
// What one document leaves for the next (the match engine's state, a split
// mode a one-page document changed) is not known before the document before
// it is done. A row starts from the state the last row taken left; when its
// turn comes and the state it needed turns out otherwise, what it did is
// thrown away and the row is split again, on this thread. Rows that depend
// on the rows before them in other ways (mail, appends, sequential names,
// folders named by text) are split on this thread, in their turn.
#include "core/Text.h"
#include "files/ParametersFile.h"
#include "run/BatchRun.h"
#include "run/EventRecorder.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <thread>

namespace vellira {

namespace {

// What of a run's engine one document leaves for the next.
struct Carried {
    MatchState match;
    PageExtractMode mode = PageExtractMode::NextMatch;
    int onWords = 1;
    int untilWords = 1;
    int filenameWords = 1;
    std::optional<FilenameMode> naming;
    bool operator==(const Carried&) const = default;
};

Carried carriedOf(const BatchRun& batch) {
    return {batch.engine.match.carried(),       batch.run.lAquireType,
            batch.run.lExtractOnCharsNumWords,  batch.run.lExtractUntilCharsNumWords,
            batch.run.lExtractFilenameNumWords, batch.engine.composer.mode};
}

void takeCarried(BatchRun& batch, const Carried& carried) {
    batch.engine.match = carried.match;
    batch.run.lAquireType = carried.mode;
    batch.run.lExtractOnCharsNumWords = carried.onWords;
    batch.run.lExtractUntilCharsNumWords = carried.untilWords;
    batch.run.lExtractFilenameNumWords = carried.filenameWords;
    batch.engine.composer.mode = carried.naming;
}

// A row whose result depends on the rows before it other than through the
// engine's state: it is split in its turn.
bool keptInOrder(const SplitSettings& settings) {
    const auto naming = FilenameComposer::namingMode(settings.EXTRACT);
    const auto namesFolder = [](const std::string& text) { return text.find("[EXTRACTTEXTDIR]") != std::string::npos; };
    return settings.EMAILENABLE || settings.ALWAYSAPPEND || naming == FilenameMode::SequentialNumber ||
           namesFolder(settings.PREFIXFILENAME) || namesFolder(settings.POSTFIXFILENAME);
}

// One row on its way: split on a worker, or (for `worker` false) a row this
// thread takes in its turn.
struct RowTask {
    std::size_t index = 0;
    bool worker = false;
    std::unique_ptr<DocumentHost> host;
    std::unique_ptr<EventRecorder> ui;
    SplitSettings settings;
    std::unique_ptr<BatchRun> batch;
    std::vector<BatchRow> rows;
    Carried assumed;
    bool keepGoing = true;
    std::exception_ptr failure;  // what the row threw, thrown again in its turn
    bool done = false;           // under the run's lock
    std::thread thread;

    // Removes what the row saved under temporary names.
    void discard() {
        std::error_code ignored;
        for (const auto& [temporary, output] : batch->run.staged) std::filesystem::remove(temporary, ignored);
        batch->engine.doc.reports.discardStaged();
    }
};

}  // namespace

bool BatchRun::sideBySide(const std::vector<BatchRow>& rows) const {
    const auto used = std::count_if(rows.begin(), rows.end(), [](const BatchRow& row) { return row.use == "Yes"; });
    return jobs > 1 && newHost && used > 1 && !planned && !run.g_createList && !run.trace.on() && run.overwrite;
}

bool BatchRun::processSideBySide(std::vector<BatchRow>& rows) {
    std::mutex lock;
    std::condition_variable changed;
    std::mutex asking;
    std::deque<std::unique_ptr<RowTask>> pending;  // in list order
    std::vector<std::unique_ptr<DocumentHost>> idleHosts;
    SplitSettings ahead = settings;  // as the rows handed out so far leave them
    std::size_t next = 0;
    int running = 0;       // workers under way, under the lock
    bool blocked = false;  // a row kept in order waits for its turn
    // Rows done ahead of their turn wait with their outputs under temporary
    // names: not too many.
    const std::size_t mostPending = static_cast<std::size_t>(jobs) * 8;
    const auto canHandOut = [&] {
        return next < rows.size() && running < jobs && pending.size() < mostPending && !blocked && !ui.cancelled();
    };

    const auto handOut = [&] {
        std::unique_lock guard(lock);
        while (canHandOut()) {
            guard.unlock();
            auto task = std::make_unique<RowTask>();
            task->index = next;
            const BatchRow& row = rows[next];
            SplitSettings after = ahead;
            const bool document = row.use == "Yes" && readableFile(host.makeHostPath(row.path));
            if (document && row.params.size() > 1) {
                std::string params = row.params;
                readParameters(params, after, {legacyFolder, false});
            }
            if (document && keptInOrder(after)) {
                blocked = true;
            } else if (document) {
                guard.lock();
                if (!idleHosts.empty()) {
                    task->host = std::move(idleHosts.back());
                    idleHosts.pop_back();
                }
                guard.unlock();
                try {
                    if (!task->host) task->host = newHost();
                } catch (const HostError&) {
                    task->host.reset();  // the row is then split here, in its turn
                }
            }
            if (task->host) {
                task->worker = true;
                task->settings = ahead;
                task->ui = std::make_unique<EventRecorder>(ui, asking);
                task->batch = std::make_unique<BatchRun>(*task->host, *task->ui, task->settings);
                BatchRun& batch = *task->batch;
                batch.legacyFolder = legacyFolder;
                batch.runTime = runTime;
                batch.inBatch = true;
                batch.run.sources = run.sources;
                batch.run.overwrite = run.overwrite;
                batch.run.staging = true;
                // Folders already looked after are not looked at again.
                batch.run.tidiedFolders = run.tidiedFolders;
                batch.run.madeFolders = run.madeFolders;
                batch.run.stagingId = static_cast<std::uint32_t>(next + 1) << 16;
                batch.engine.composer.runTime = engine.composer.runTime;
                batch.engine.composer.sequence = engine.composer.sequence;
                task->assumed = carriedOf(*this);
                takeCarried(batch, task->assumed);
                // The worker sees its own row only.
                task->rows.resize(next + 1);
                task->rows[next] = rows[next];
                guard.lock();
                ++running;
                guard.unlock();
                task->thread = std::thread([&, t = task.get()] {
                    try {
                        t->keepGoing = t->batch->processRow(t->rows, t->index);
                    } catch (...) {
                        t->failure = std::current_exception();
                    }
                    {
                        // Its host is free for the next row at once.
                        const std::lock_guard done(lock);
                        t->done = true;
                        --running;
                        idleHosts.push_back(std::move(t->host));
                    }
                    changed.notify_all();
                });
            }
            ahead = std::move(after);
            pending.push_back(std::move(task));
            ++next;
            guard.lock();
        }
    };

    // Waits for a worker, passing Stop on to every row under way, and
    // handing out rows as other workers finish theirs.
    const auto waitFor = [&](RowTask& task) {
        std::unique_lock guard(lock);
        while (!task.done) {
            if (ui.cancelled())
                for (auto& each : pending)
                    if (each->worker) each->ui->requestCancel();
            if (canHandOut()) {
                guard.unlock();
                handOut();
                guard.lock();
                continue;
            }
            changed.wait_for(guard, std::chrono::milliseconds(50));
        }
        guard.unlock();
        task.thread.join();
    };

    const auto commit = [&](RowTask& task) {
        BatchRun& batch = *task.batch;
        for (const auto& [temporary, output] : batch.run.staged) {
            std::error_code failed;
            std::filesystem::rename(temporary, output, failed);
            if (failed) {
                std::error_code ignored;
                std::filesystem::remove(temporary, ignored);
                ui.note("Abort!! Save Error message: " + failed.message() + ", file: '" + pathText(output) + "'");
            }
        }
        run.rangesFailed += batch.engine.doc.reports.putStagedInPlace(ui);
        const std::string& source = task.rows[task.index].path;
        rows[task.index].status = task.rows[task.index].status;
        EventRecorder::replay(task.ui->events, ui, [&](const EventRecorder::Event& event, std::size_t) {
            ui.fileWritten(event.text, event.first, event.last);
            noteRewritten(run, ui, event.text, {source, event.first, event.last}, false);
        });
        run.filesWritten += batch.run.filesWritten;
        run.rangesFailed += batch.run.rangesFailed;
        run.documentsWithoutRanges += batch.run.documentsWithoutRanges;
        run.scansFailed += batch.run.scansFailed;
        for (const auto& output : batch.run.outputs) {
            const auto [known, added] = run.outputIndex.try_emplace(output.path, run.outputs.size());
            if (added)
                run.outputs.push_back(output);
            else
                run.outputs[known->second] = output;
        }
        errorFlag = errorFlag || batch.errorFlag;
        run.tidiedFolders.insert(batch.run.tidiedFolders.begin(), batch.run.tidiedFolders.end());
        run.madeFolders.insert(batch.run.madeFolders.begin(), batch.run.madeFolders.end());
        // The state the row leaves is the next row's. A last position word
        // the row never set is the one it was given.
        std::string lastPositionWord = engine.match.position.lastPositionWord;
        engine.match = batch.engine.match;
        if (engine.match.position.lastPositionWord.empty())
            engine.match.position.lastPositionWord = std::move(lastPositionWord);
        run.lAquireType = batch.run.lAquireType;
        run.lExtractOnCharsNumWords = batch.run.lExtractOnCharsNumWords;
        run.lExtractUntilCharsNumWords = batch.run.lExtractUntilCharsNumWords;
        run.lExtractFilenameNumWords = batch.run.lExtractFilenameNumWords;
        engine.composer.mode = batch.engine.composer.mode;
        settings = task.settings;
    };

    bool completed = true;
    while (completed) {
        handOut();
        if (pending.empty()) break;
        if (ui.cancelled()) {
            completed = false;
            break;
        }
        RowTask& task = *pending.front();
        if (task.worker) {
            waitFor(task);
            if (task.failure) {
                task.discard();
                std::rethrow_exception(task.failure);
            }
            if (carriedOf(*this) == task.assumed) {
                commit(task);
                completed = task.keepGoing;
            } else {
                task.discard();
                completed = processRow(rows, task.index);
            }
        } else {
            completed = processRow(rows, task.index);
            if (blocked && task.index + 1 == next) {
                // The row kept in order is done: the rows after it start from
                // what it left.
                blocked = false;
                ahead = settings;
            }
        }
        pending.pop_front();
    }
    // A stopped run throws away the rows it had not come to.
    for (auto& task : pending) {
        if (!task->worker) continue;
        task->ui->requestCancel();
        waitFor(*task);
        task->discard();
    }
    return completed;
}

}  // namespace vellira
