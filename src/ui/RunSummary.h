// What a "Process Batch List" run came to, in one window that can be left
// open beside the others: the files written and their folders, each file that
// failed with what the run said about it, the pieces a later range of the
// same run replaced, the mails sent and failed, and where a stopped run
// stopped.
//
// The run's messages, row statuses and files written are gathered as they
// come (RunRecord), so that what the run said about a row stays with that
// row; the window is made from the record and the run's result when it ends.
#pragma once

#include "run/BatchJob.h"
#include "ui/DesktopActions.h"

#include <QDialog>
#include <QString>
#include <QStringList>

#include <map>
#include <optional>
#include <vector>

class QLabel;
class QTextBrowser;

namespace vellira::ui {

class RunRecord {
public:
    // A piece saved earlier in the run that a later range of the same name
    // wrote again: the pages it held, lost, and those the file holds now.
    struct Replaced {
        QString file;
        int first = 0;
        int last = 0;
        int laterFirst = 0;
        int laterLast = 0;
    };
    struct Row {
        QStringList messages;  // what the run said while working on it
        int piecesWritten = 0;
    };

    // The run's warning that a range replaced an earlier piece of its name;
    // none for every other message.
    static std::optional<Replaced> replacement(const QString& message);

    void rowStatus(int row, const QString& status);
    // A message the run showed (or, for a replaced piece, would have shown).
    void note(const QString& message);
    void fileWritten();
    void progress(const QString& file, int page, int pages);

    std::map<int, Row> rows;  // by row of the job, the rows the run reached
    int lastRow = -1;         // the row reached last
    QStringList messages;     // said while no row was in hand
    std::vector<Replaced> replaced;
    // Where the run was when it last told its progress.
    QString file;
    int page = 0;
    int pages = 0;

private:
    bool inRow_ = false;  // the last row reached is being worked on
};

class RunSummary : public QDialog {
    Q_OBJECT
public:
    // `open` is the system's "open" action, for the folders and files listed.
    RunSummary(const RunRecord& record, const BatchResult& result, OpenAction open, QWidget* parent = nullptr);

    // Whether a run gave anything to sum up: a run refused before its first
    // file has said why already.
    static bool worthShowing(const RunRecord& record, const BatchResult& result);

    QString headline() const;
    QString details() const;  // the body, as plain text

private:
    QLabel* headline_;
    QTextBrowser* details_;
};

}  // namespace vellira::ui
