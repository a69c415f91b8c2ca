// Runs a batch job, or a show, on a worker thread. The run's messages and
// questions become message boxes on the interface thread, answered there
// while the worker waits; progress, row statuses and files written arrive as
// signals. The status window and the mail windows come and go with the run;
// a "Process Batch List" run ends with its summary, which stays until closed
// or the next run starts.
#pragma once

#include "run/BatchJob.h"
#include "ui/DesktopActions.h"
#include "ui/RunSummary.h"

#include <QObject>
#include <QPointer>
#include <QTimer>

#include <atomic>
#include <memory>
#include <thread>

class QWidget;

namespace vellira::ui {

class EmailStatusDialog;
class StatusDialog;

class RunController : public QObject {
    Q_OBJECT
public:
    enum class Kind { Batch, Show };

    // Message boxes and run windows open over `window`.
    RunController(QWidget* window, OpenAction open);
    // Stops a run still working and waits for it.
    ~RunController() override;

    bool running() const { return worker_.joinable(); }
    // Starts a run of `job`; false when one is already working.
    bool start(Kind kind, BatchJob job);
    // The Stop button: the run ends after the page (or mail) in hand.
    void stop();
    // The summary of the last batch run, while it is open.
    RunSummary* summary() const { return summary_; }

signals:
    void rowStatus(int row, const QString& status);
    void fileWritten(const QString& path, int firstPage, int lastPage);
    void progress(const QString& file, int page, int pages, int filesWritten);
    void highlighted(int page, const QString& word, int number);
    void finished(const vellira::BatchResult& result);

private:
    class Bridge;
    void finishRun(const BatchResult& result);
    void showProgress();

    QWidget* window_;
    OpenAction open_;
    std::unique_ptr<Bridge> bridge_;
    std::thread worker_;
    std::atomic<bool> finishedFlag_{true};  // the worker has returned from the run
    QTimer progressTimer_;
    QPointer<StatusDialog> status_;
    QPointer<EmailStatusDialog> mailStatus_;
    Kind kind_ = Kind::Batch;
    RunRecord record_;  // what the run in hand told, for its summary
    QPointer<RunSummary> summary_;
};

}  // namespace vellira::ui
