#include "ui/BatchListWindow.h"

#include <QHeaderView>
#include <QTableWidget>
#include <QVBoxLayout>

namespace vellira::ui {

BatchListWindow::BatchListWindow(QWidget* parent) : QWidget(parent, Qt::Window) {
    setObjectName("BatchListWindow");
    setWindowTitle("Batch List");
    auto* layout = new QVBoxLayout(this);
    table_ = new QTableWidget(0, 4, this);
    table_->setObjectName("batchRows");
    table_->setHorizontalHeaderLabels({"Use", "Filename", "Status", "Parameters File"});
    table_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    table_->setSelectionBehavior(QAbstractItemView::SelectRows);
    table_->setShowGrid(true);
    table_->verticalHeader()->hide();
    table_->horizontalHeader()->setSectionsMovable(true);
    for (const auto& [column, width] : {std::pair{0, 60}, {1, 270}, {2, 102}, {3, 300}})
        table_->setColumnWidth(column, width);
    layout->addWidget(table_);
    resize(760, 320);
}

void BatchListWindow::showRows(const std::vector<BatchRow>& rows) {
    table_->setRowCount(static_cast<int>(rows.size()));
    for (int row = 0; row < static_cast<int>(rows.size()); ++row) {
        const BatchRow& each = rows[row];
        int column = 0;
        for (const std::string* text : {&each.use, &each.path, &each.status, &each.params})
            table_->setItem(row, column++, new QTableWidgetItem(QString::fromStdString(*text)));
    }
}

void BatchListWindow::showStatus(int row, const QString& status) {
    if (QTableWidgetItem* item = table_->item(row, 2)) item->setText(status);
}

}  // namespace vellira::ui
