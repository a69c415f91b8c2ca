// Rows of a batch list split side by side.
//
// Rows are split by up to `jobs` worker threads, each with a host of its
// own, started once for the run. Whatever a row does is kept back: its
// outputs and reports are saved under temporary names, its messages,
// statuses and files written are recorded.
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
#include <functional>
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
    const bool piecesAcrossRows = settings.GROUPBYVALUE || !settings.LOOKUPFILE.empty() ||
                                  !settings.CHECKPAGEOF.empty() || !settings.CHECKVALUE.empty() ||
                                  settings.CHECKMINPAGES > 0 || settings.CHECKMAXPAGES > 0;
    return settings.EMAILENABLE || settings.ALWAYSAPPEND || piecesAcrossRows ||
           naming == FilenameMode::SequentialNumber || namesFolder(settings.PREFIXFILENAME) ||
           namesFolder(settings.POSTFIXFILENAME);
}

// One row on its way: split on a worker, or (for `worker` false) a row this
// thread takes in its turn.
struct RowTask {
    std::size_t index = 0;
    bool worker = false;
    std::unique_ptr<EventRecorder> ui;
    SplitSettings settings;
    BatchRow row;
    Carried assumed;
    RunState start;  // what the row's run starts with
    long sequence = 0;
    std::unique_ptr<BatchRun> batch;  // made by the worker
    bool keepGoing = true;
    std::exception_ptr failure;  // what the row threw, thrown again in its turn
    bool done = false;           // under the run's lock

    // Removes what the row saved under temporary names.
    void discard() {
        if (!batch) return;
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
    std::condition_variable handedOut;  // workers wait for rows
    std::condition_variable finished;   // this thread waits for a row in its turn
    std::mutex asking;
    std::deque<std::unique_ptr<RowTask>> pending;      // in list order
    std::deque<RowTask*> ready;                        // rows handed out that no worker has taken yet, under the lock
    std::vector<std::unique_ptr<DocumentHost>> hosts;  // one each worker
    std::vector<std::thread> workers;
    bool closing = false;              // the workers are to end, under the lock
    const RowTask* awaited = nullptr;  // the row this thread waits for, under the lock
    SplitSettings ahead = settings;    // as the rows handed out so far leave them
    std::size_t next = 0;
    bool blocked = false;  // a row kept in order waits for its turn
    // Whether the last row taken left the state it found, under the lock:
    // only then are rows handed out far ahead, each assuming that state.
    bool settled = false;
    // Rows done ahead of their turn wait with their outputs under temporary
    // names: not too many.
    const std::size_t mostPending = static_cast<std::size_t>(jobs) * 8;
    const auto canHandOut = [&] {
        return next < rows.size() && pending.size() < (settled ? mostPending : static_cast<std::size_t>(jobs)) &&
               !blocked && !ui.cancelled();
    };

    // A worker splits the rows handed out on its own host, one after the
    // other, until the run ends: neither thread nor host is made per row.
    const auto work = [&](DocumentHost& workerHost) {
        std::unique_lock guard(lock);
        for (;;) {
            handedOut.wait(guard, [&] { return closing || !ready.empty(); });
            if (closing) return;
            RowTask* const task = ready.front();
            ready.pop_front();
            guard.unlock();
            try {
                task->batch = std::make_unique<BatchRun>(workerHost, *task->ui, task->settings);
                BatchRun& batch = *task->batch;
                batch.legacyFolder = legacyFolder;
                batch.runTime = runTime;
                batch.inBatch = true;
                batch.run = std::move(task->start);
                batch.engine.composer.runTime = engine.composer.runTime;
                batch.engine.composer.sequence = task->sequence;
                // The engine's own setup of the settings (patterns, separators,
                // values), then what the rows before leave it.
                const bool taken = batch.engine.takeSettings();
                takeCarried(batch, task->assumed);
                task->keepGoing = taken && batch.processRow(task->row, task->index);
            } catch (...) {
                task->failure = std::current_exception();
            }
            guard.lock();
            task->done = true;
            // This thread is woken once the row it waits for is done and the
            // workers are about to run out of rows (or the state is not
            // settled): it then puts in place every row done by then, and
            // hands out more, all at once.
            if (awaited && awaited->done && (!settled || ready.size() <= static_cast<std::size_t>(jobs))) {
                guard.unlock();
                finished.notify_one();
                guard.lock();
            }
        }
    };

    // However the run ends, rows under way are stopped, the workers end, and
    // what the rows not put in place saved is thrown away.
    struct Closing {
        std::function<void()> close;
        ~Closing() { close(); }
    } closeWorkers{[&] {
        for (auto& task : pending)
            if (task->worker) task->ui->requestCancel();
        {
            const std::lock_guard guard(lock);
            closing = true;
        }
        handedOut.notify_all();
        for (auto& worker : workers) worker.join();
        for (auto& task : pending)
            if (task->worker) task->discard();
    }};

    // Up to `jobs` workers, each with a host of its own; none when no host
    // can be made, and the rows are then split here, in their turn.
    bool noMoreHosts = false;
    const auto startWorkers = [&] {
        while (!noMoreHosts && workers.size() < static_cast<std::size_t>(jobs)) {
            try {
                hosts.push_back(newHost());
                workers.emplace_back(work, std::ref(*hosts.back()));
            } catch (const HostError&) {
                noMoreHosts = true;
            }
        }
        return !workers.empty();
    };

    const auto handOut = [&] {
        while (canHandOut()) {
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
            } else if (document && startWorkers()) {
                // What the worker's run starts from, as things stand now.
                task->worker = true;
                task->settings = ahead;
                task->ui = std::make_unique<EventRecorder>(ui, asking);
                task->row = row;
                task->assumed = carriedOf(*this);
                task->sequence = engine.composer.sequence;
                RunState& start = task->start;
                start.sources = run.sources;
                start.overwrite = run.overwrite;
                start.staging = true;
                // Folders already looked after are not looked at again.
                start.tidiedFolders = run.tidiedFolders;
                start.madeFolders = run.madeFolders;
                start.stagingId = static_cast<std::uint32_t>(next + 1) << 16;
                {
                    const std::lock_guard guard(lock);
                    ready.push_back(task.get());
                }
                handedOut.notify_one();
            }
            ahead = std::move(after);
            pending.push_back(std::move(task));
            ++next;
        }
    };

    // Waits for a worker's row, passing Stop on to every row under way.
    const auto waitFor = [&](RowTask& task) {
        std::unique_lock guard(lock);
        awaited = &task;
        while (!task.done) {
            if (ui.cancelled())
                for (auto& each : pending)
                    if (each->worker) each->ui->requestCancel();
            finished.wait_for(guard, std::chrono::milliseconds(50));
        }
        awaited = nullptr;
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
        const std::string& source = task.row.path;
        rows[task.index].status = task.row.status;
        EventRecorder::replay(task.ui->events, ui, [&](const EventRecorder::Event& event, std::size_t) {
            ui.fileWritten(event.text, event.first, event.last);
            noteRewritten(run, ui, event.text, {source, event.first, event.last}, false);
        });
        run.filesWritten += batch.run.filesWritten;
        run.rangesFailed += batch.run.rangesFailed;
        run.documentsWithoutRanges += batch.run.documentsWithoutRanges;
        run.scansFailed += batch.run.scansFailed;
        run.pagesRecognized += batch.run.pagesRecognized;
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
        const Carried before = carriedOf(*this);
        if (task.worker) {
            waitFor(task);
            if (task.failure) std::rethrow_exception(task.failure);
            if (carriedOf(*this) == task.assumed) {
                commit(task);
                completed = task.keepGoing;
            } else {
                task.discard();
                completed = processRow(rows[task.index], task.index);
            }
        } else {
            completed = processRow(rows[task.index], task.index);
            if (blocked && task.index + 1 == next) {
                // The row kept in order is done: the rows after it start from
                // what it left.
                blocked = false;
                ahead = settings;
            }
        }
        pending.pop_front();
        // Rows no worker has begun start from the state the rows taken so
        // far leave. The first row of a run often leaves another state than
        // it found: rows handed out before it was done are split again.
        const Carried now = carriedOf(*this);
        const std::lock_guard guard(lock);
        settled = now == before;
        for (RowTask* waiting : ready) {
            waiting->assumed = now;
            waiting->sequence = engine.composer.sequence;
        }
    }
    return completed;
}

}  // namespace vellira
