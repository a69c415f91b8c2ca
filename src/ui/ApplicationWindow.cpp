#include "ui/ApplicationWindow.h"

#include "core/SplitSettings.h"
#include "host/MupdfHost.h"
#include "ui/BatchListWindow.h"
#include "ui/MainDialog.h"

#include <QApplication>
#include <QFileDialog>
#include <QFileInfo>
#include <QLabel>
#include <QMenuBar>
#include <QMessageBox>
#include <QStatusBar>
#include <QStyle>
#include <QToolBar>
#include <QToolButton>
#include <QVBoxLayout>

#include <filesystem>

namespace vellira::ui {

namespace {

QString qt(const std::string& text) { return QString::fromStdString(text); }

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
    file->addSeparator();
    file->addAction(quit);

    auto* run = new QAction(style()->standardIcon(QStyle::SP_FileDialogContentsView), "&Vellira Batch", this);
    run->setObjectName("extensionsAction");
    connect(run, &QAction::triggered, this, &ApplicationWindow::openMainDialog);
    menuBar()->addMenu("Extensions")->addAction(run);

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

    auto* central = new QWidget(this);
    auto* layout = new QVBoxLayout(central);
    layout->addStretch();
    documentTitle_ = new QLabel(central);
    documentTitle_->setObjectName("documentTitle");
    documentTitle_->setAlignment(Qt::AlignCenter);
    QFont big = documentTitle_->font();
    big.setPointSizeF(big.pointSizeF() * 1.6);
    documentTitle_->setFont(big);
    documentDetails_ = new QLabel(central);
    documentDetails_->setObjectName("documentDetails");
    documentDetails_->setAlignment(Qt::AlignCenter);
    documentDetails_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    layout->addWidget(documentTitle_);
    layout->addWidget(documentDetails_);
    layout->addStretch();
    setCentralWidget(central);
    statusBar()->showMessage("Ready");
    resize(900, 620);

    batchList_ = new BatchListWindow([this](const QString& path) { return openDocument(path); }, this);
    showDocument();
}

ApplicationWindow::~ApplicationWindow() = default;

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
    mainDialog_->show();
    mainDialog_->raise();
    mainDialog_->activateWindow();
    return mainDialog_;
}

bool ApplicationWindow::openDocument(const QString& path) {
    MupdfHost host;
    try {
        const DocHandle doc = host.openDocument(std::filesystem::path(path.toStdString()));
        pages_ = host.pageCount(doc);
    } catch (const HostError& error) {
        QMessageBox::warning(this, kMessageTitle,
                             QString("Can't open %1: %2").arg(QFileInfo(path).fileName(), qt(error.text())));
        return false;
    }
    currentDocument_ = QFileInfo(path).absoluteFilePath();
    showDocument();
    return true;
}

void ApplicationWindow::chooseDocument() {
    const QString path = QFileDialog::getOpenFileName(this, "Open", QFileInfo(currentDocument_).path(),
                                                      "PDF files (*.pdf);;All Files (*.*)");
    if (!path.isEmpty()) openDocument(path);
}

void ApplicationWindow::showDocument() {
    if (currentDocument_.isEmpty()) {
        documentTitle_->setText("No document open");
        documentDetails_->setText(
            "Open a PDF with File > Open, then set up the split with Extensions > Vellira Batch.");
        return;
    }
    documentTitle_->setText(QFileInfo(currentDocument_).fileName());
    documentDetails_->setText(QString("%1 page(s)\n%2").arg(pages_).arg(currentDocument_));
    statusBar()->showMessage(QString("%1: %2 page(s)").arg(QFileInfo(currentDocument_).fileName()).arg(pages_));
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
