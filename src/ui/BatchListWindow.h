// "Batch List": the rows a batch run walks, each with its use flag, status
// and parameters file. Files are added by menu, by folder scans and by drag
// and drop; rows are reordered, removed, sorted, given parameters files and
// opened in the view; lists are loaded and saved. The window's rows are the
// application's batch list: runs take them from here and write their
// statuses back. The default list is loaded when the window is made and
// saved when it closes.
#pragma once

#include "core/BatchRow.h"

#include <QWidget>

#include <functional>
#include <vector>

class QTableWidget;

namespace vellira::ui {

class BatchListWindow : public QWidget {
    Q_OBJECT
public:
    // `open` makes a PDF the current document of the view; false after
    // saying why it cannot.
    using OpenInView = std::function<bool(const QString& path)>;
    explicit BatchListWindow(OpenInView open, QWidget* parent = nullptr);

    std::vector<BatchRow> rows() const;
    void setRows(const std::vector<BatchRow>& rows);
    void showStatus(int row, const QString& status);

    // The folder and sub-folder last used (LASTPATH, LASTPATHSUB).
    QString lastPath() const { return lastPath_; }
    QString lastPathSub() const { return lastPathSub_; }
    void setLastPaths(const QString& path, const QString& sub);

private:
    OpenInView open_;
    QTableWidget* table_;
    QString lastPath_;
    QString lastPathSub_;
};

}  // namespace vellira::ui
