#include "ui/MailDialogs.h"

#include <QDialogButtonBox>
#include <QFormLayout>
#include <QHeaderView>
#include <QLabel>
#include <QPushButton>
#include <QTableWidget>
#include <QVBoxLayout>

namespace vellira::ui {

EmailListDialog::EmailListDialog(const std::vector<MailEntry>& entries, QWidget* parent) : QDialog(parent) {
    setObjectName("EmailListDialog");
    setWindowTitle("Email List to Send");
    auto* layout = new QVBoxLayout(this);
    auto* table = new QTableWidget(static_cast<int>(entries.size()), 4, this);
    table->setObjectName("emailList");
    table->setHorizontalHeaderLabels({"Email", "File", "Extract Page Start", "Extract Page End"});
    table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    table->setSelectionBehavior(QAbstractItemView::SelectRows);
    table->verticalHeader()->hide();
    for (int row = 0; row < static_cast<int>(entries.size()); ++row) {
        const MailEntry& entry = entries[row];
        table->setItem(row, 0, new QTableWidgetItem(QString::fromStdString(entry.email)));
        table->setItem(row, 1, new QTableWidgetItem(QString::fromStdString(entry.file)));
        table->setItem(row, 2, new QTableWidgetItem(QString::number(entry.first)));
        table->setItem(row, 3, new QTableWidgetItem(QString::number(entry.last)));
    }
    table->resizeColumnsToContents();
    table->horizontalHeader()->setStretchLastSection(true);
    layout->addWidget(table);
    auto* buttons = new QDialogButtonBox(this);
    auto* send = buttons->addButton("OK - Send", QDialogButtonBox::AcceptRole);
    send->setObjectName("sendButton");
    auto* cancel = buttons->addButton("Cancel", QDialogButtonBox::RejectRole);
    cancel->setObjectName("cancelButton");
    cancel->setDefault(true);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    layout->addWidget(buttons);
    resize(760, 360);
}

EmailStatusDialog::EmailStatusDialog(QWidget* parent) : QDialog(parent) {
    setObjectName("EmailStatusDialog");
    setWindowTitle("Email Status");
    auto* form = new QFormLayout(this);
    const auto value = [this](const char* name) {
        auto* label = new QLabel(this);
        label->setObjectName(name);
        return label;
    };
    recipient_ = value("sendingEmail");
    count_ = value("count");
    sent_ = value("sentOk");
    failed_ = value("sentError");
    form->addRow("Sending email:", recipient_);
    form->addRow("Count:", count_);
    form->addRow("Sent OK:", sent_);
    form->addRow("Sent Error:", failed_);
    auto* stop = new QPushButton("&Stop", this);
    stop->setObjectName("stopButton");
    connect(stop, &QPushButton::clicked, this, [this, stop] {
        stop->setEnabled(false);
        emit stopRequested();
    });
    form->addRow(stop);
    setMinimumWidth(380);
    showStatus({});
}

void EmailStatusDialog::showStatus(const MailStatus& status) {
    recipient_->setText(QString::fromStdString(status.recipient));
    count_->setText(QString::number(status.count));
    sent_->setText(QString::number(status.sent));
    failed_->setText(QString::number(status.failed));
}

}  // namespace vellira::ui
