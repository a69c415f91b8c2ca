#include "ui/StatusDialog.h"

#include <QDialogButtonBox>
#include <QFileInfo>
#include <QLabel>
#include <QListWidget>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

#include <algorithm>

namespace vellira::ui {

StatusDialog::StatusDialog(QWidget* parent) : QDialog(parent) {
    setObjectName("StatusDialog");
    setWindowTitle("Processing");
    setModal(false);
    auto* layout = new QVBoxLayout(this);
    file_ = new QLabel(this);
    file_->setObjectName("statusFile");
    file_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    page_ = new QLabel(this);
    page_->setObjectName("statusPage");
    files_ = new QLabel(this);
    files_->setObjectName("statusFiles");
    time_ = new QLabel(this);
    time_->setObjectName("statusTime");
    status_ = new QLabel(this);
    status_->setObjectName("statusLine");
    bar_ = new QProgressBar(this);
    bar_->setObjectName("statusProgress");
    bar_->setRange(0, 1);
    bar_->setValue(0);
    // The latest pieces, newest last: enough to follow the names as they come.
    pieces_ = new QListWidget(this);
    pieces_->setObjectName("statusPieces");
    pieces_->setSelectionMode(QAbstractItemView::NoSelection);
    pieces_->setFocusPolicy(Qt::NoFocus);
    pieces_->setUniformItemSizes(true);
    pieces_->setFixedHeight(pieces_->fontMetrics().height() * 6 + 2 * pieces_->frameWidth() + 4);
    auto* stop = new QPushButton("Stop", this);
    stop->setObjectName("stopButton");
    connect(stop, &QPushButton::clicked, this, [this, stop] {
        stop->setEnabled(false);
        status_->setText("Stopping...");
        emit stopRequested();
    });
    layout->addWidget(file_);
    layout->addWidget(page_);
    layout->addWidget(files_);
    layout->addWidget(time_);
    layout->addWidget(bar_);
    layout->addWidget(new QLabel("Pieces written:", this));
    layout->addWidget(pieces_);
    layout->addWidget(status_);
    auto* buttons = new QDialogButtonBox(this);
    buttons->addButton(stop, QDialogButtonBox::RejectRole);
    layout->addWidget(buttons);
    setMinimumWidth(460);
    clock_.start();
    showProgress({}, 0, 0, 0);
}

void StatusDialog::setFileCount(int files) { fileCount_ = std::max(files, 1); }

namespace {

// Minutes and seconds, or hours too: "0:07", "1:02:03".
QString duration(qint64 milliseconds) {
    const qint64 seconds = milliseconds / 1000;
    const QString minutesSeconds = QString("%1:%2").arg(seconds / 60 % 60).arg(seconds % 60, 2, 10, QChar('0'));
    return seconds >= 3600 ? QString("%1:%2").arg(seconds / 3600).arg(minutesSeconds.rightJustified(5, '0'))
                           : minutesSeconds;
}

}  // namespace

void StatusDialog::showProgress(const QString& file, int page, int pages, int filesWritten, int recognized) {
    if (!file.isEmpty() && file != shownFile_) {
        shownFile_ = file;
        fileNumber_ = std::min(fileNumber_ + 1, fileCount_);
    }
    QString fileText = "File: " + (file.isEmpty() ? QString() : QFileInfo(file).fileName());
    if (fileCount_ > 1 && fileNumber_ > 0) fileText += QString("  (file %1 of %2)").arg(fileNumber_).arg(fileCount_);
    file_->setText(fileText);
    file_->setToolTip(file);
    QString pageText = pages > 0 ? QString("Page %1 of %2").arg(page).arg(pages) : QString("Opening...");
    if (recognized > 0) pageText += QString(" (%1 read by OCR)").arg(recognized);
    page_->setText(pageText);
    files_->setText(QString("Files written: %1").arg(filesWritten));
    bar_->setRange(0, pages > 0 ? pages : 1);
    bar_->setValue(pages > 0 ? page : 0);
    // The time left, from the share of the work done so far: the files
    // before this one, and this one's pages.
    const qint64 elapsed = clock_.elapsed();
    const double done =
        fileNumber_ > 0 ? (fileNumber_ - 1 + (pages > 0 ? static_cast<double>(page) / pages : 0.0)) / fileCount_ : 0.0;
    QString timeText = "Elapsed: " + duration(elapsed);
    if (done > 0.02 && elapsed > 2000)
        timeText += ", about " + duration(static_cast<qint64>(elapsed * (1 - done) / done)) + " left";
    time_->setText(timeText);
    taskbar_.show(done);
}

void StatusDialog::showStatus(const QString& text) { status_->setText(text); }

void StatusDialog::pieceWritten(const QString& path, int first, int last) {
    constexpr int kShown = 100;
    if (pieces_->count() >= kShown) delete pieces_->takeItem(0);
    const QString pages =
        first == last ? QString("page %1").arg(first) : QString("pages %1\u2013%2").arg(first).arg(last);
    auto* item = new QListWidgetItem(QFileInfo(path).fileName() + "    " + pages, pieces_);
    item->setToolTip(path);
    pieces_->scrollToBottom();
}

}  // namespace vellira::ui
