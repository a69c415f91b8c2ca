// The status window of a run: the file being processed, page n of N, the
// files written so far, a progress bar, and Stop.
#pragma once

#include <QDialog>

class QLabel;
class QProgressBar;

namespace vellira::ui {

class StatusDialog : public QDialog {
    Q_OBJECT
public:
    explicit StatusDialog(QWidget* parent = nullptr);
    // `recognized`: the document's pages read from their image so far.
    void showProgress(const QString& file, int page, int pages, int filesWritten, int recognized = 0);
    // A line of status while the run waits or sends.
    void showStatus(const QString& text);

signals:
    void stopRequested();

private:
    QLabel* file_;
    QLabel* page_;
    QLabel* files_;
    QLabel* status_;
    QProgressBar* bar_;
};

}  // namespace vellira::ui
