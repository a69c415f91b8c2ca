#include "ui/PreviewPane.h"

#include "host/MupdfHost.h"

#include <QFileInfo>
#include <QHeaderView>
#include <QLabel>
#include <QTableWidget>
#include <QVBoxLayout>

namespace vellira::ui {

// A dry run says nothing to the user: its first message is kept to explain
// an empty list, and its questions take their default.
class PreviewPane::Interface : public RunInterface {
public:
    std::string firstNote;
    void note(std::string_view message) override {
        if (firstNote.empty()) firstNote = message;
    }
    bool question(std::string_view) override { return false; }
};

PreviewPane::PreviewPane(QWidget* parent) : QWidget(parent), interface_(std::make_unique<Interface>()) {
    setObjectName("PreviewPane");
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(6, 6, 6, 6);
    auto* title = new QLabel("Ranges the settings would cut", this);
    QFont bold = title->font();
    bold.setBold(true);
    title->setFont(bold);
    summary_ = new QLabel(this);
    summary_->setObjectName("previewSummary");
    summary_->setWordWrap(true);
    table_ = new QTableWidget(0, 3, this);
    table_->setObjectName("previewRanges");
    table_->setHorizontalHeaderLabels({"Pages", "Name", "Output file"});
    table_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    table_->setSelectionBehavior(QAbstractItemView::SelectRows);
    table_->verticalHeader()->hide();
    table_->horizontalHeader()->setStretchLastSection(true);
    table_->setColumnWidth(0, 60);
    table_->setColumnWidth(1, 110);
    layout->addWidget(title);
    layout->addWidget(summary_);
    layout->addWidget(table_, 1);
    connect(table_, &QTableWidget::cellDoubleClicked, this, [this](int row) {
        if (const QTableWidgetItem* item = table_->item(row, 0)) emit rangeChosen(item->data(Qt::UserRole).toInt());
    });
    clear("Open a document and the main dialog to see the ranges.");
}

PreviewPane::~PreviewPane() {
    next_.reset();
    interface_->requestCancel();
    if (worker_.joinable()) worker_.join();
}

void PreviewPane::preview(BatchJob job) {
    if (worker_.joinable()) {
        // The newest settings win: the one working stops, this one follows.
        next_ = std::move(job);
        interface_->requestCancel();
        return;
    }
    start(std::move(job));
}

void PreviewPane::start(BatchJob job) {
    summary_->setText("Looking for ranges...");
    interface_->firstNote.clear();
    worker_ = std::thread([this, job = std::move(job)] {
        MupdfHost host;
        const std::vector<PlannedRange> ranges = previewRanges(job, host, *interface_);
        const bool stopped = interface_->cancelled();
        const QString message = QString::fromStdString(interface_->firstNote);
        QMetaObject::invokeMethod(
            this,
            [this, ranges, stopped, message] {
                worker_.join();
                if (next_) {
                    BatchJob job = std::move(*next_);
                    next_.reset();
                    start(std::move(job));
                } else if (!stopped) {
                    show(ranges, message);
                }
            },
            Qt::QueuedConnection);
    });
}

void PreviewPane::show(const std::vector<PlannedRange>& ranges, const QString& message) {
    table_->setRowCount(static_cast<int>(ranges.size()));
    for (int row = 0; row < static_cast<int>(ranges.size()); ++row) {
        const PlannedRange& range = ranges[row];
        auto* pages =
            new QTableWidgetItem(range.first == range.last ? QString::number(range.first)
                                                           : QString("%1-%2").arg(range.first).arg(range.last));
        pages->setData(Qt::UserRole, range.first - 1);
        table_->setItem(row, 0, pages);
        table_->setItem(row, 1, new QTableWidgetItem(QString::fromStdString(range.name)));
        auto* file = new QTableWidgetItem(QFileInfo(QString::fromStdString(range.path)).fileName());
        file->setToolTip(QString::fromStdString(range.path));
        table_->setItem(row, 2, file);
    }
    if (ranges.empty())
        summary_->setText(message.isEmpty() ? QString("No range: the search text is not found.") : message);
    else
        summary_->setText(QString("%1 range(s). Double-click a range to see its first page.").arg(ranges.size()));
    emit listed(static_cast<int>(ranges.size()));
}

void PreviewPane::clear(const QString& why) {
    table_->setRowCount(0);
    summary_->setText(why);
}

}  // namespace vellira::ui
