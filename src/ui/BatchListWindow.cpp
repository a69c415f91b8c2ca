#include "ui/BatchListWindow.h"

#include "files/BatchListFile.h"
#include "files/SettingsLocations.h"

#include <QHeaderView>
#include <QTableWidget>
#include <QVBoxLayout>

namespace vellira::ui {

namespace {

// A list that cannot be read starts empty, without a message.
class QuietInterface : public RunInterface {
public:
    void note(std::string_view) override {}
    bool question(std::string_view) override { return false; }
};

}  // namespace

BatchListWindow::BatchListWindow(OpenInView open, QWidget* parent)
    : QWidget(parent, Qt::Window), open_(std::move(open)) {
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
    std::vector<BatchRow> rows;
    QuietInterface quiet;
    loadBatchList(defaultListPath(), rows, quiet);
    setRows(rows);
}

std::vector<BatchRow> BatchListWindow::rows() const {
    std::vector<BatchRow> rows;
    for (int row = 0; row < table_->rowCount(); ++row) {
        const auto text = [&](int column) {
            const QTableWidgetItem* item = table_->item(row, column);
            return item ? item->text().toStdString() : std::string();
        };
        rows.push_back({text(0), text(1), text(2), text(3)});
    }
    return rows;
}

void BatchListWindow::setRows(const std::vector<BatchRow>& rows) {
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

void BatchListWindow::setLastPaths(const QString& path, const QString& sub) {
    lastPath_ = path;
    lastPathSub_ = sub;
}

}  // namespace vellira::ui
