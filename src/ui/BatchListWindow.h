// "Batch List": the rows a batch run walks, with their use flag, status and
// parameters file. For now it shows the application's list and follows the
// statuses of a run; editing the list comes with the full window.
#pragma once

#include "core/BatchRow.h"

#include <QWidget>

#include <vector>

class QTableWidget;

namespace vellira::ui {

class BatchListWindow : public QWidget {
    Q_OBJECT
public:
    explicit BatchListWindow(QWidget* parent = nullptr);
    void showRows(const std::vector<BatchRow>& rows);
    void showStatus(int row, const QString& status);

private:
    QTableWidget* table_;
};

}  // namespace vellira::ui
