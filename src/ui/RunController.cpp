#include "ui/RunController.h"

#include "host/MupdfHost.h"
#include "service/MailJournal.h"
#include "ui/MailDialogs.h"
#include "ui/StatusDialog.h"

#include <QCoreApplication>
#include <QThread>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <optional>

namespace vellira::ui {

namespace {

QString qt(std::string_view text) { return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size())); }

}  // namespace

// The run's interface as the worker sees it: every call is carried over to
// the interface thread. Calls that need an answer wait for it; the others
// are queued. Once the controller is going away, nothing waits any more:
// notes are dropped and questions take their default answer.
class RunController::Bridge : public RunInterface {
public:
    explicit Bridge(RunController& controller) : controller_(controller) {}
    std::atomic<bool> closing{false};

    void note(std::string_view message) override {
        const std::string text(message);
        // A piece replaced by a later range of the run is listed in the
        // summary rather than stopping the run with a box each.
        if (RunRecord::replacement(qt(text))) {
            post([this, line = qt(text)] { controller_.record_.note(line); });
            return;
        }
        waitFor([&] {
            controller_.record_.note(qt(text));
            MessageBoxInterface(controller_.window_, controller_.open_).note(text);
        });
    }
    bool question(std::string_view message) override {
        const std::string text(message);
        bool answer = false;
        waitFor([&] { answer = MessageBoxInterface(controller_.window_, controller_.open_).question(text); });
        return answer;
    }
    bool confirmMails(const std::vector<MailEntry>& entries) override {
        bool send = false;
        waitFor([&] { send = EmailListDialog(entries, controller_.window_).exec() == QDialog::Accepted; });
        return send;
    }
    // Progress comes page by page, far faster than a window repaints: the
    // latest is kept here and the interface thread looks at it on a timer.
    void progress(const Progress& p) override {
        const std::lock_guard lock(progressLock_);
        latest_ = p;
        progressChanged_ = true;
    }
    std::optional<Progress> takeProgress() {
        const std::lock_guard lock(progressLock_);
        if (!progressChanged_) return std::nullopt;
        progressChanged_ = false;
        return latest_;
    }
    void status(std::string_view text) override {
        post([this, line = qt(text)] {
            if (controller_.status_) controller_.status_->showStatus(line);
        });
    }
    void showFile(std::string_view path) override {
        post([this, file = qt(path)] { controller_.open_(file); });
    }
    void highlight(int page, std::string_view word, std::uint16_t number) override {
        post([this, page, text = qt(word), number] { emit controller_.highlighted(page, text, number); });
    }
    void rowStatus(int row, std::string_view text) override {
        post([this, row, line = qt(text)] {
            controller_.record_.rowStatus(row, line);
            emit controller_.rowStatus(row, line);
        });
    }
    void fileWritten(std::string_view path, int first, int last) override {
        post([this, file = qt(path), first, last] {
            controller_.record_.fileWritten();
            if (controller_.status_) controller_.status_->pieceWritten(file, first, last);
            emit controller_.fileWritten(file, first, last);
        });
    }
    // Each mail attempt is kept in the journal of the state folder too, for
    // mail-status and mail-resend; the journal of a run is opened with its
    // first mail. Mails go only from the run's own thread.
    bool mailStarting(const MailAttempt& attempt) override { return mails_->starting(attempt); }
    void mailAttempted(const MailAttempt& attempt) override { mails_->attempted(attempt); }
    // A fresh journal for a run about to start; what kept the last one's
    // mails out of it, once it has ended.
    void newMailJournal() { mails_.emplace(); }
    std::string mailJournalProblem() const { return mails_ ? mails_->problem() : std::string(); }

    void mailStatus(const MailStatus& progress) override {
        post([this, progress] {
            if (!controller_.mailStatus_) {
                controller_.mailStatus_ = new EmailStatusDialog(controller_.window_);
                controller_.mailStatus_->setAttribute(Qt::WA_DeleteOnClose);
                QObject::connect(controller_.mailStatus_, &EmailStatusDialog::stopRequested, &controller_,
                                 &RunController::stop);
                controller_.mailStatus_->show();
            }
            controller_.mailStatus_->showStatus(progress);
        });
    }

private:
    template <typename Work>
    void post(Work&& work) {
        QMetaObject::invokeMethod(&controller_, std::forward<Work>(work), Qt::QueuedConnection);
    }
    template <typename Work>
    void waitFor(Work&& work) {
        if (closing) return;
        QMetaObject::invokeMethod(
            &controller_,
            [&] {
                if (!closing) work();
            },
            Qt::BlockingQueuedConnection);
    }

    RunController& controller_;
    std::mutex progressLock_;
    std::optional<service::RunMailJournal> mails_;
    Progress latest_;
    bool progressChanged_ = false;
};

RunController::RunController(QWidget* window, OpenAction open)
    : QObject(window), window_(window), open_(std::move(open)), bridge_(std::make_unique<Bridge>(*this)) {
    progressTimer_.setInterval(50);
    connect(&progressTimer_, &QTimer::timeout, this, &RunController::showProgress);
}

void RunController::showProgress() {
    const auto latest = bridge_->takeProgress();
    if (!latest) return;
    const QString file = qt(latest->file);
    record_.progress(file, latest->page, latest->pages);
    if (status_)
        status_->showProgress(file, latest->page, latest->pages, latest->filesWritten, latest->pagesRecognized);
    emit progress(file, latest->page, latest->pages, latest->filesWritten);
}

RunController::~RunController() {
    if (!running()) return;
    bridge_->closing = true;
    bridge_->requestCancel();
    // The worker may be waiting for this thread: let it through until it ends.
    while (!finishedFlag_.load()) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(5);
    }
    worker_.join();
}

bool RunController::start(Kind kind, BatchJob job) {
    if (running()) return false;
    bridge_->clearCancel();
    bridge_->newMailJournal();
    finishedFlag_ = false;
    kind_ = kind;
    record_ = {};
    if (summary_) summary_->close();
    status_ = new StatusDialog(window_);
    status_->setAttribute(Qt::WA_DeleteOnClose);
    connect(status_, &StatusDialog::stopRequested, this, &RunController::stop);
    status_->setFileCount(job.settings.USECURRENT
                              ? 1
                              : static_cast<int>(std::count_if(job.rows.begin(), job.rows.end(),
                                                               [](const BatchRow& row) { return row.use == "Yes"; })));
    if (kind == Kind::Batch) status_->show();
    progressTimer_.start();
    // As many rows (or pages of one document) side by side as there are
    // cores; what the run writes and tells is the same as with one.
    job.jobs = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
    job.newHost = [] { return std::make_unique<MupdfHost>(); };
    worker_ = std::thread([this, kind, job = std::move(job)] {
        MupdfHost host;
        const BatchResult result = kind == Kind::Batch ? runBatch(job, host, *bridge_) : runShow(job, host, *bridge_);
        finishedFlag_ = true;
        QMetaObject::invokeMethod(
            this, [this, result] { finishRun(result); }, Qt::QueuedConnection);
    });
    return true;
}

void RunController::stop() { bridge_->requestCancel(); }

void RunController::finishRun(const BatchResult& result) {
    if (worker_.joinable()) worker_.join();
    progressTimer_.stop();
    showProgress();
    if (status_) status_->close();
    if (mailStatus_) mailStatus_->close();
    if (const std::string problem = bridge_->mailJournalProblem(); !problem.empty())
        record_.note(qt("The mail attempts were not all kept in the journal: " + problem));
    if (kind_ == Kind::Batch && RunSummary::worthShowing(record_, result)) {
        summary_ = new RunSummary(record_, result, open_, window_);
        summary_->setAttribute(Qt::WA_DeleteOnClose);
        summary_->show();
    }
    emit finished(result);
}

}  // namespace vellira::ui
