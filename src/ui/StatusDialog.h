// The status window of a run: the file being processed (file k of n), page n
// of N, the files written so far and the latest pieces among them, the time
// taken and the time left, a progress bar (also on the taskbar entry, where
// the desktop shows one), and Stop.
#pragma once

#include "ui/TaskbarProgress.h"

#include <QDialog>
#include <QElapsedTimer>

class QLabel;
class QListWidget;
class QProgressBar;

namespace vellira::ui {

class StatusDialog : public QDialog {
    Q_OBJECT
public:
    explicit StatusDialog(QWidget* parent = nullptr);
    // The number of files the run processes, for "File k of n" and the time
    // left; none told, the run is taken as one file.
    void setFileCount(int files);
    // `recognized`: the document's pages read from their image so far.
    void showProgress(const QString& file, int page, int pages, int filesWritten, int recognized = 0);
    // A line of status while the run waits or sends.
    void showStatus(const QString& text);
    // A piece was saved: its file and the 1-based source pages it holds.
    void pieceWritten(const QString& path, int first, int last);

signals:
    void stopRequested();

private:
    QLabel* file_;
    QLabel* page_;
    QLabel* files_;
    QLabel* time_;
    QLabel* status_;
    QProgressBar* bar_;
    QListWidget* pieces_;
    QElapsedTimer clock_;
    TaskbarProgress taskbar_;  // the share done, on the application's taskbar entry
    QString shownFile_;        // the file of the last progress
    int fileCount_ = 1;
    int fileNumber_ = 0;  // of the file in progress, from 1
};

}  // namespace vellira::ui
