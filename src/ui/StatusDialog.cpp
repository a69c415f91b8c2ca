#include "ui/StatusDialog.h"

#include <QDialogButtonBox>
#include <QFileInfo>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

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
    status_ = new QLabel(this);
    status_->setObjectName("statusLine");
    bar_ = new QProgressBar(this);
    bar_->setObjectName("statusProgress");
    bar_->setRange(0, 1);
    bar_->setValue(0);
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
    layout->addWidget(bar_);
    layout->addWidget(status_);
    auto* buttons = new QDialogButtonBox(this);
    buttons->addButton(stop, QDialogButtonBox::RejectRole);
    layout->addWidget(buttons);
    setMinimumWidth(460);
    showProgress({}, 0, 0, 0);
}

void StatusDialog::showProgress(const QString& file, int page, int pages, int filesWritten, int recognized) {
    file_->setText("File: " + (file.isEmpty() ? QString() : QFileInfo(file).fileName()));
    file_->setToolTip(file);
    QString pageText = pages > 0 ? QString("Page %1 of %2").arg(page).arg(pages) : QString("Opening...");
    if (recognized > 0) pageText += QString(" (%1 read by OCR)").arg(recognized);
    page_->setText(pageText);
    files_->setText(QString("Files written: %1").arg(filesWritten));
    bar_->setRange(0, pages > 0 ? pages : 1);
    bar_->setValue(pages > 0 ? page : 0);
}

void StatusDialog::showStatus(const QString& text) { status_->setText(text); }

}  // namespace vellira::ui
