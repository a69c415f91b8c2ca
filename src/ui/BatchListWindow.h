// "Batch List": the rows a batch run walks, each with its use flag, status
// and parameters file. Files are added by menu, by folder scans and by drag
// and drop; rows are reordered, removed, sorted, given parameters files and
// opened in the view; lists are loaded and saved. Every edit of the rows can
// be undone, one step at a time back to the list the window started with.
// The window's rows are the application's batch list: runs take them from
// here and write their statuses back (a status a run writes is no edit). The
// default list is loaded when the window is made and saved when it closes.
#pragma once

#include "core/BatchRow.h"

#include <QString>
#include <QStringList>
#include <QWidget>

#include <functional>
#include <vector>

class QAction;
class QTableWidget;

namespace vellira::ui {

class BatchListWindow : public QWidget {
    Q_OBJECT
public:
    // `open` makes a PDF the current document of the view; false after
    // saying why it cannot.
    using OpenInView = std::function<bool(const QString& path)>;
    explicit BatchListWindow(OpenInView open, QWidget* parent = nullptr);
    ~BatchListWindow() override;

    std::vector<BatchRow> rows() const;
    void setRows(const std::vector<BatchRow>& rows);
    void showStatus(int row, const QString& status);

    // The folder and sub-folder last used (LASTPATH, LASTPATHSUB).
    QString lastPath() const { return lastPath_; }
    QString lastPathSub() const { return lastPathSub_; }
    void setLastPaths(const QString& path, const QString& sub);

    // The list file "Save List" writes to: the default list until another
    // list is loaded or saved under a new name.
    QString listFile() const { return listFile_; }

public slots:
    // What the menu commands do once their dialog has answered.

    // Adds each file as a row to use, "Ready.".
    void addFiles(const QStringList& paths);
    // Adds the PDFs of a folder (and of its sub-folders), says "Files Loaded"
    // and remembers the folder for the next scan of the same kind.
    void addFolder(const QString& folder, bool subFolders);
    // Reads a list file: its rows replace the list, or follow it with
    // `append`. A file that cannot be read leaves the list as it is.
    void loadListFrom(const QString& path, bool append);
    // Writes the list to `path`, which becomes the list file.
    void saveListTo(const QString& path);
    // Gives the selected rows, or every row when none is selected, this
    // parameters file.
    void addParametersFile(const QString& path);

    void deleteSelected();
    void moveUp();
    void moveDown();
    // Toggles the use flag of the first selected row; a row taken back into
    // use is "Ready." again, a row left out loses its status.
    void toggleUse();
    void clearAll();
    // Puts the rows back as they were before the last edit that changed them
    // (order, use flags, statuses and parameters files).
    void undo();
    // Sorts the rows on a column's text, ignoring case; equal texts keep
    // their order.
    void sortOn(int column, Qt::SortOrder order);

    // Opens the selected rows' PDFs in the view, or every row's when none is
    // selected, first to last.
    void openSelected();
    void openAll(bool reverse);

protected:
    void showEvent(QShowEvent* event) override;
    void closeEvent(QCloseEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dragMoveEvent(QDragMoveEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    void buildMenus();
    void chooseFiles();
    void scanFolder(bool subFolders);
    void chooseList(bool append);
    void chooseListName();
    void chooseParametersFile();
    void showContextMenu(const QPoint& at);
    void headerClicked(int column);

    std::vector<int> selectedRows() const;
    void selectRows(const std::vector<int>& rows);
    void appendRows(const std::vector<BatchRow>& rows);
    void swapRows(int first, int second);
    void openRows(const std::vector<int>& rows);
    void saveDefaultList() const;
    void forgetSortOrder();
    void remember(std::vector<BatchRow> before);

    OpenInView open_;
    QTableWidget* table_;
    QString lastPath_;
    QString lastPathSub_;
    QString listFile_;
    int sortColumn_ = -1;
    Qt::SortOrder sortOrder_ = Qt::AscendingOrder;
    bool opening_ = false;  // an open command is under way
    bool shown_ = false;    // shown and not closed since
    // The rows before each edit, the latest last.
    std::vector<std::vector<BatchRow>> undoRows_;

    QAction* deleteAction_ = nullptr;
    QAction* undoAction_ = nullptr;
    QAction* moveUpAction_ = nullptr;
    QAction* moveDownAction_ = nullptr;
    QAction* parametersAction_ = nullptr;
    QAction* openAction_ = nullptr;
};

}  // namespace vellira::ui
