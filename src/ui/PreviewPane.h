// The ranges the current settings would cut on the current document, with
// their names and output files, from a dry run of the split that writes
// nothing. It runs on a thread and host of its own; a newer request replaces
// one still working. An output file that two ranges would write, or that is
// there already, is marked in the list and counted in its summary.
#pragma once

#include "run/BatchJob.h"

#include <QWidget>

#include <memory>
#include <optional>
#include <thread>

class QLabel;
class QTableWidget;

namespace vellira::ui {

class PreviewPane : public QWidget {
    Q_OBJECT
public:
    explicit PreviewPane(QWidget* parent = nullptr);
    ~PreviewPane() override;

    // Lists the ranges `job` would cut on its current document.
    void preview(BatchJob job);
    // Shows no ranges, with a line saying why.
    void clear(const QString& why);
    bool working() const { return worker_.joinable(); }
    // The ranges listed now, in the order they are cut.
    const std::vector<PlannedRange>& ranges() const { return ranges_; }

signals:
    // A range was double-clicked: its first page, 0-based.
    void rangeChosen(int page);
    // A preview has been listed.
    void listed(int ranges);

private:
    class Interface;
    void start(BatchJob job);
    // `existing` tells, range by range, whether its output file is there
    // before the run; `appending` whether a run adds to such a file, and
    // `gathering` whether later ranges of a name add to the earlier ones.
    void show(const std::vector<PlannedRange>& ranges, const std::vector<bool>& existing, bool appending,
              bool gathering, const QString& message);

    std::unique_ptr<Interface> interface_;
    std::thread worker_;
    std::optional<BatchJob> next_;  // asked for while another preview worked
    QLabel* summary_;
    QTableWidget* table_;
    std::vector<PlannedRange> ranges_;
};

}  // namespace vellira::ui
