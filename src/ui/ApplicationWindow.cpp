#include "ui/ApplicationWindow.h"

#include "core/Platform.h"
#include "core/SplitSettings.h"
#include "files/SettingsLocations.h"
#include "host/MupdfHost.h"
#include "reading/Recognition.h"
#include "ui/BatchListWindow.h"
#include "ui/MainDialog.h"
#include "ui/PageView.h"
#include "ui/PreviewPane.h"

#include <QApplication>
#include <QDockWidget>
#include <QFileDialog>
#include <QFileInfo>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QSettings>
#include <QSplitter>
#include <QStatusBar>
#include <QStyle>
#include <QTimer>
#include <QToolBar>
#include <QToolButton>
#include <QVBoxLayout>

#include <filesystem>

namespace vellira::ui {

namespace {

QString qt(const std::string& text) { return QString::fromStdString(text); }

constexpr int kRecentKept = 8;

// The lists of recent files, beside the product's other settings.
QString recentFile() { return qt(pathText(settingsFolder() / "recent.ini")); }

// Where the main dialog was left: docked or floating, closed or open.
QSettings placeSettings() {
    std::error_code ignored;
    std::filesystem::create_directories(settingsFolder(), ignored);
    return QSettings(qt(pathText(settingsFolder() / "window.ini")), QSettings::IniFormat);
}

}  // namespace

QString windowTitleText() {
    return QString("Vellira Batch %1 -= Ornwick Software =-")
        .arg(QString::fromUtf8(kVersionText.data(), static_cast<qsizetype>(kVersionText.size())));
}

ApplicationWindow::ApplicationWindow(QWidget* parent) : QMainWindow(parent) {
    setObjectName("ApplicationWindow");
    setWindowTitle(windowTitleText());

    auto* openAction = new QAction(style()->standardIcon(QStyle::SP_DialogOpenButton), "&Open...", this);
    openAction->setObjectName("openAction");
    openAction->setShortcut(QKeySequence::Open);
    connect(openAction, &QAction::triggered, this, &ApplicationWindow::chooseDocument);
    auto* quit = new QAction("E&xit", this);
    quit->setShortcut(QKeySequence::Quit);
    connect(quit, &QAction::triggered, this, &QWidget::close);
    QMenu* file = menuBar()->addMenu("&File");
    file->addAction(openAction);
    recentMenu_ = file->addMenu("Open &Recent");
    recentMenu_->setObjectName("recentDocuments");
    connect(recentMenu_, &QMenu::aboutToShow, this, &ApplicationWindow::fillRecentMenu);
    fillRecentMenu();
    file->addSeparator();
    file->addAction(quit);

    auto* run = new QAction(style()->standardIcon(QStyle::SP_FileDialogContentsView), "&Vellira Batch", this);
    run->setObjectName("extensionsAction");
    connect(run, &QAction::triggered, this, &ApplicationWindow::openMainDialog);
    menuBar()->addMenu("Extensions")->addAction(run);
    QMenu* view = menuBar()->addMenu("&View");
    dockAction_ = view->addAction("&Settings Beside the View");
    dockAction_->setObjectName("dockSettingsAction");
    dockAction_->setCheckable(true);
    dockAction_->setChecked(placeSettings().value("mainDialog/docked", false).toBool());
    connect(dockAction_, &QAction::toggled, this, &ApplicationWindow::dockMainDialog);

    QMenu* help = menuBar()->addMenu("&Help");
    auto* helpItem = help->addAction("Vellira Batch", this, &ApplicationWindow::showHelpNote);
    helpItem->setObjectName("helpAction");
    auto* aboutItem = help->addAction("Vellira Batch...", this, &ApplicationWindow::showAboutNote);
    aboutItem->setObjectName("aboutAction");

    QToolBar* tools = addToolBar("Tools");
    tools->setObjectName("tools");
    tools->setMovable(false);
    tools->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    tools->addAction(openAction);
    tools->addSeparator();
    auto* button = new QToolButton(tools);
    button->setObjectName("velliraBatchButton");
    button->setText("Vellira Batch");
    button->setToolTip("Vellira Batch");
    button->setIcon(run->icon());
    button->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    connect(button, &QToolButton::clicked, this, &ApplicationWindow::openMainDialog);
    tools->addWidget(button);

    auto* split = new QSplitter(this);
    pageView_ = new PageView(split);
    // Scanned pages show their words from the first, as a run reads them.
    pageView_->setTextRecognition(textRecognitionFor(SplitSettings{}));
    preview_ = new PreviewPane(split);
    split->addWidget(pageView_);
    split->addWidget(preview_);
    split->setStretchFactor(0, 3);
    split->setStretchFactor(1, 2);
    split->setSizes({740, 440});
    setCentralWidget(split);
    documentDetails_ = new QLabel(this);
    documentDetails_->setObjectName("documentDetails");
    statusBar()->addPermanentWidget(documentDetails_);
    statusBar()->showMessage("Ready");
    resize(1180, 800);

    previewTimer_ = new QTimer(this);
    previewTimer_->setSingleShot(true);
    previewTimer_->setInterval(400);
    connect(previewTimer_, &QTimer::timeout, this, &ApplicationWindow::updatePreview);
    connect(preview_, &PreviewPane::rangeChosen, pageView_, &PageView::goToPage);
    // The pieces listed are marked on the pages they cut.
    connect(preview_, &PreviewPane::listed, this, [this] { pageView_->setPieces(preview_->ranges()); });
    connect(pageView_, &PageView::wordHovered, this, [this](const ViewWord& word) {
        if (word.text.isEmpty())
            statusBar()->clearMessage();
        else
            statusBar()->showMessage(QString("h: %1   v: %2   %3").arg(word.h).arg(word.v).arg(word.text));
    });
    connect(pageView_, &PageView::wordClicked, this, &ApplicationWindow::offerPosition);

    settingsDock_ = new QDockWidget(this);
    settingsDock_->setObjectName("settingsDock");
    settingsDock_->setFeatures(QDockWidget::DockWidgetMovable | QDockWidget::DockWidgetFloatable);
    settingsDock_->setAllowedAreas(Qt::LeftDockWidgetArea | Qt::RightDockWidgetArea);
    addDockWidget(Qt::LeftDockWidgetArea, settingsDock_);
    settingsDock_->hide();

    batchList_ = new BatchListWindow([this](const QString& path) { return openDocument(path, true); }, this);
    showDocument();
}

// The main dialog saves its settings when it goes, reading the batch list's
// folders from this window: it goes first, while the window is still whole.
ApplicationWindow::~ApplicationWindow() {
    leaving_ = true;
    delete mainDialog_;
}

OpenAction ApplicationWindow::opener() {
    return [window = QPointer<ApplicationWindow>(this)](const QString& path) {
        if (window) window->open_(path);
    };
}

MainDialog* ApplicationWindow::openMainDialog() {
    if (mainDialog_) {
        mainDialog_->close();
        delete mainDialog_;
    }
    mainDialog_ = new MainDialog(*this);
    mainDialog_->setAttribute(Qt::WA_DeleteOnClose);
    placeSettings().setValue("mainDialog/closed", false);
    connect(mainDialog_, &QObject::destroyed, this, [this] {
        settingsDock_->hide();
        if (!leaving_) placeSettings().setValue("mainDialog/closed", true);
    });
    dockMainDialog(dockAction_->isChecked());
    mainDialog_->raise();
    mainDialog_->activateWindow();
    return mainDialog_;
}

void ApplicationWindow::dockMainDialog(bool docked) {
    placeSettings().setValue("mainDialog/docked", docked);
    if (dockAction_->isChecked() != docked) dockAction_->setChecked(docked);
    if (!mainDialog_) return;
    if (docked) {
        settingsDock_->setWindowTitle(mainDialog_->windowTitle());
        mainDialog_->setWindowFlags(Qt::Widget);
        settingsDock_->setWidget(mainDialog_);
        settingsDock_->setFloating(false);
        settingsDock_->show();
    } else if (settingsDock_->widget() == mainDialog_) {
        settingsDock_->setWidget(nullptr);
        mainDialog_->setParent(this, Qt::Dialog);
        settingsDock_->hide();
    }
    mainDialog_->show();
}

bool ApplicationWindow::mainDialogAtStart() const {
    return !placeSettings().value("mainDialog/closed", false).toBool();
}

bool ApplicationWindow::openDocument(const QString& path, bool quiet) {
    MupdfHost host;
    try {
        const DocHandle doc = host.openDocument(std::filesystem::path(path.toStdString()));
        pages_ = host.pageCount(doc);
    } catch (const HostError& error) {
        if (quiet) return false;
        QMessageBox::warning(this, kMessageTitle,
                             QString("Can't open %1: %2").arg(QFileInfo(path).fileName(), qt(error.text())));
        return false;
    }
    currentDocument_ = QFileInfo(path).absoluteFilePath();
    // Documents the user opens are offered again; those a run opens are not.
    if (!quiet) remember("documents", currentDocument_);
    pageView_->showDocument(currentDocument_);
    showDocument();
    schedulePreview();
    return true;
}

QStringList ApplicationWindow::recentDocuments() const {
    return QSettings(recentFile(), QSettings::IniFormat).value("documents").toStringList();
}

QStringList ApplicationWindow::recentSetups() const {
    return QSettings(recentFile(), QSettings::IniFormat).value("setups").toStringList();
}

void ApplicationWindow::rememberSetup(const QString& path) { remember("setups", path); }

void ApplicationWindow::remember(const char* list, const QString& path) {
    std::error_code ignored;
    std::filesystem::create_directories(settingsFolder(), ignored);
    QSettings recent(recentFile(), QSettings::IniFormat);
    QStringList paths = recent.value(list).toStringList();
    const QString full = QFileInfo(path).absoluteFilePath();
    paths.removeAll(full);
    paths.prepend(full);
    while (paths.size() > kRecentKept) paths.removeLast();
    recent.setValue(list, paths);
}

// The recent documents, newest first; one that is no longer there is greyed.
void ApplicationWindow::fillRecentMenu() {
    recentMenu_->clear();
    const QStringList paths = recentDocuments();
    int number = 0;
    for (const QString& path : paths) {
        ++number;
        QAction* item =
            recentMenu_->addAction(QString("&%1 %2").arg(number).arg(QFileInfo(path).fileName().replace("&", "&&")));
        item->setToolTip(path);
        item->setStatusTip(path);
        item->setData(path);
        if (!QFileInfo::exists(path)) {
            item->setEnabled(false);
            item->setText(item->text() + " (not found)");
        }
        connect(item, &QAction::triggered, this, [this, path] { openDocument(path); });
    }
    if (paths.isEmpty()) recentMenu_->addAction("No recent documents")->setEnabled(false);
    recentMenu_->addSeparator();
    QAction* clear = recentMenu_->addAction("&Clear Recent", this,
                                            [] { QSettings(recentFile(), QSettings::IniFormat).remove("documents"); });
    clear->setObjectName("clearRecentDocuments");
    clear->setEnabled(!paths.isEmpty());
    recentMenu_->setToolTipsVisible(true);
}

void ApplicationWindow::chooseDocument() {
    const QString path = QFileDialog::getOpenFileName(this, "Open", QFileInfo(currentDocument_).path(),
                                                      "PDF files (*.pdf);;All Files (*.*)");
    if (!path.isEmpty()) openDocument(path);
}

void ApplicationWindow::showDocument() {
    if (currentDocument_.isEmpty()) {
        documentDetails_->setText("No document open");
        return;
    }
    documentDetails_->setText(QString("%1 page(s)  %2").arg(pages_).arg(currentDocument_));
    setWindowTitle(QFileInfo(currentDocument_).fileName() + " - " + windowTitleText());
}

int ApplicationWindow::currentPage() const { return pageView_->currentPage(); }

void ApplicationWindow::schedulePreview() { previewTimer_->start(); }

void ApplicationWindow::updatePreview() {
    if (currentDocument_.isEmpty() || !mainDialog_) {
        pageView_->setPieces({});
        return preview_->clear(currentDocument_.isEmpty() ? "Open a document to see the ranges its settings cut."
                                                          : "Open Extensions > Vellira Batch to set up the split.");
    }
    BatchJob job;
    job.settings = mainDialog_->settings();
    job.currentDocument = currentDocument_.toStdString();
    pageView_->setTextRecognition(textRecognitionFor(job.settings));
    preview_->preview(std::move(job));
}

// A clicked word's position, offered to the settings it can go into.
void ApplicationWindow::offerPosition(const ViewWord& word, const QPoint& at) {
    QMenu menu(this);
    menu.setObjectName("positionMenu");
    const QString where = QString("\"%1\" at h %2, v %3").arg(word.text).arg(word.h).arg(word.v);
    menu.addSection(where);
    QAction* search = menu.addAction("Find word(s) at this position");
    search->setObjectName("positionSearch");
    QAction* until = menu.addAction("Extract until word(s) at this position");
    until->setObjectName("positionUntil");
    QAction* email = menu.addAction("Email match position: this line, from here on");
    email->setObjectName("positionEmail");
    QAction* chosen = menu.exec(at);
    if (!chosen) return;
    MainDialog* dialog = mainDialog_ ? mainDialog_.data() : openMainDialog();
    dialog->takePosition(chosen == search  ? PositionUse::Search
                         : chosen == until ? PositionUse::Until
                                           : PositionUse::Email,
                         word.text, word.h, word.v);
}

std::vector<BatchRow> ApplicationWindow::batchRows() const { return batchList_->rows(); }

void ApplicationWindow::setRowStatus(int row, const QString& status) { batchList_->showStatus(row, status); }

void ApplicationWindow::showBatchList() {
    batchList_->show();
    batchList_->raise();
    batchList_->activateWindow();
}

void ApplicationWindow::showHelpNote() { QMessageBox::information(this, kMessageTitle, "Vellira Batch help."); }

void ApplicationWindow::showAboutNote() {
    QMessageBox::about(this, kMessageTitle,
                       QString("Vellira Batch %1\nWritten By Ornwick Software\n\n"
                               "www.ornwicksoftware.com\nsupport@ornwicksoftware.com")
                           .arg(QString::fromUtf8(kVersionText.data(), static_cast<qsizetype>(kVersionText.size()))));
}

}  // namespace vellira::ui

extern "C" int ExRun(const char*) {
    for (QWidget* widget : QApplication::topLevelWidgets()) {
        if (auto* window = qobject_cast<vellira::ui::ApplicationWindow*>(widget)) {
            window->openMainDialog();
            return 1;
        }
    }
    return 0;
}
