// The application window: it plays the PDF host's part. It holds the current
// document (the one the user opened, or the one the batch list opened last)
// and the application's batch list, carries the "Extensions" and help menus
// and the "Vellira Batch" tool button, and opens the main dialog.
#pragma once

#include "core/BatchRow.h"
#include "ui/DesktopActions.h"

#include <QMainWindow>
#include <QPointer>

class QTimer;

#include <vector>

class QLabel;
class QDockWidget;
class QMenu;

namespace vellira::ui {

class BatchListWindow;
class MainDialog;
class PageView;
class PreviewPane;
struct ViewWord;

// "Vellira Batch v4.01 -= Ornwick Software =-"
QString windowTitleText();

class ApplicationWindow : public QMainWindow {
    Q_OBJECT
public:
    explicit ApplicationWindow(QWidget* parent = nullptr);
    ~ApplicationWindow() override;

    // Opens the main dialog as the menu item does, replacing one that is open:
    // docked beside the view, or floating over it, as the user left it.
    MainDialog* openMainDialog();
    MainDialog* mainDialog() const { return mainDialog_; }
    // Docks the main dialog beside the page view and preview, or lets it
    // float; remembered for the next time it opens.
    void dockMainDialog(bool docked);
    // Whether the main dialog opens with the application: not once the user
    // closed it, until it is opened again.
    bool mainDialogAtStart() const;

    // Makes a PDF the current document; false when it cannot be, after
    // saying why unless `quiet` (the caller then says so itself).
    bool openDocument(const QString& path, bool quiet = false);
    QString currentDocument() const { return currentDocument_; }
    int currentPageCount() const { return pages_; }
    // The 0-based page of the current document in view.
    int currentPage() const;
    PageView& pageView() { return *pageView_; }
    PreviewPane& preview() { return *preview_; }
    // Lists again, a moment after the last change, the ranges the main
    // dialog's settings would cut on the current document.
    void schedulePreview();

    // The batch list a run walks: the rows of the batch list window, which
    // starts with the default list.
    std::vector<BatchRow> batchRows() const;
    BatchListWindow& batchList() { return *batchList_; }
    void setRowStatus(int row, const QString& status);
    void showBatchList();

    // The system's "open" action; tests put their own in its place.
    void setOpenAction(OpenAction open) { open_ = std::move(open); }
    // Forwards to the open action in place when it is called.
    OpenAction opener();

    void showHelpNote();
    void showAboutNote();

    // The PDFs opened last and the setups loaded or saved last, newest
    // first, kept in the settings folder from one session to the next.
    QStringList recentDocuments() const;
    QStringList recentSetups() const;
    void rememberSetup(const QString& path);

private:
    void remember(const char* list, const QString& path);
    void fillRecentMenu();
    void chooseDocument();
    void showDocument();
    void updatePreview();
    void offerPosition(const ViewWord& word, const QPoint& at);

    OpenAction open_ = systemOpen();
    PageView* pageView_;
    PreviewPane* preview_;
    QLabel* documentDetails_;
    QMenu* recentMenu_;
    QTimer* previewTimer_;
    QString currentDocument_;
    int pages_ = 0;
    QPointer<MainDialog> mainDialog_;
    QDockWidget* settingsDock_;  // holds the main dialog while it is docked
    QAction* dockAction_;
    bool leaving_ = false;  // the window is going: a dialog closing now was not closed by the user
    BatchListWindow* batchList_;
};

}  // namespace vellira::ui

// Opens the main dialog of the running application exactly as its menu item
// does, replacing an open one. The argument is not used. Answers 1, or 0
// when there is no application window to open it in.
extern "C" int ExRun(const char* unused);
