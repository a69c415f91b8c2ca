#include "ui/PreviewPane.h"

#include "host/MupdfHost.h"

#include <QFileInfo>
#include <QHeaderView>
#include <QLabel>
#include <QStyle>
#include <QTableWidget>
#include <QVBoxLayout>

#include <filesystem>
#include <map>

namespace vellira::ui {

namespace {

QString pagesText(const PlannedRange& range) {
    return range.first == range.last ? QString::number(range.first) : QString("%1-%2").arg(range.first).arg(range.last);
}

// "1 file", "2 files".
QString counted(int count, const char* one, const char* more) {
    return count == 1 ? QString("1 %1").arg(one) : QString("%1 %2").arg(count).arg(more);
}

}  // namespace

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
        std::vector<bool> existing;
        for (const PlannedRange& range : ranges) {
            std::error_code ignored;
            existing.push_back(std::filesystem::exists(host.makeHostPath(range.path), ignored));
        }
        // Ranges gathered by value are appended to the first of their name,
        // which replaces a file already there unless the run appends.
        const bool appending = job.settings.ALWAYSAPPEND != 0;
        const bool gathering = appending || job.settings.GROUPBYVALUE != 0;
        const bool stopped = interface_->cancelled();
        const QString message = QString::fromStdString(interface_->firstNote);
        QMetaObject::invokeMethod(
            this,
            [this, ranges, existing, appending, gathering, stopped, message] {
                worker_.join();
                if (next_) {
                    BatchJob job = std::move(*next_);
                    next_.reset();
                    start(std::move(job));
                } else if (!stopped) {
                    show(ranges, existing, appending, gathering, message);
                }
            },
            Qt::QueuedConnection);
    });
}

void PreviewPane::show(const std::vector<PlannedRange>& ranges, const std::vector<bool>& existing, bool appending,
                       bool gathering, const QString& message) {
    // The rows that write each output file, in the order they write it.
    std::map<std::string, std::vector<int>> writers;
    for (int row = 0; row < static_cast<int>(ranges.size()); ++row) writers[ranges[row].path].push_back(row);
    int writtenAgain = 0;
    int there = 0;
    int exceptions = 0;
    for (const auto& [path, rows] : writers) {
        if (rows.size() > 1) ++writtenAgain;
        if (existing[rows.front()]) ++there;
    }
    const QIcon mark =
        style()->standardIcon(gathering ? QStyle::SP_MessageBoxInformation : QStyle::SP_MessageBoxWarning);
    const QIcon held = style()->standardIcon(QStyle::SP_MessageBoxCritical);

    table_->setRowCount(static_cast<int>(ranges.size()));
    for (int row = 0; row < static_cast<int>(ranges.size()); ++row) {
        const PlannedRange& range = ranges[row];
        auto* pages = new QTableWidgetItem(pagesText(range));
        pages->setData(Qt::UserRole, range.first - 1);
        table_->setItem(row, 0, pages);
        // The name the piece is written under, as its file will be named;
        // the text captured for it, where that differs, in its tooltip.
        auto* name = new QTableWidgetItem(QFileInfo(QString::fromStdString(range.path)).completeBaseName());
        name->setToolTip(QString("Captured text: %1").arg(QString::fromStdString(range.name)));
        if (!range.exception.empty()) {
            // A piece that breaks a check, or whose value the list lacks.
            ++exceptions;
            name->setIcon(held);
            name->setForeground(QColor(0xb0, 0x1c, 0x1c));
            name->setToolTip(name->toolTip() + "\nException: " + QString::fromStdString(range.exception));
            if (range.path.empty()) name->setText(QString::fromStdString(range.name) + " (not written)");
        }
        table_->setItem(row, 1, name);
        auto* file = new QTableWidgetItem(QFileInfo(QString::fromStdString(range.path)).fileName());
        QString tip = QString::fromStdString(range.path);
        // Ranges of one name each replace the piece before them, unless the
        // run appends; only the first of them meets a file already there.
        const std::vector<int>& same = writers[range.path];
        QStringList earlier, later;
        for (int other : same)
            if (other != row) (other < row ? earlier : later) << pagesText(ranges[other]);
        QStringList marks;
        if (!later.isEmpty())
            marks << (gathering ? QString("Written again by pages %1: their pages are appended to this range's")
                                : QString("Written again by pages %1: only the last range's piece is kept"))
                         .arg(later.join(", "));
        else if (!earlier.isEmpty())
            marks << (gathering ? QString("Written before by pages %1: this range's pages are appended to theirs")
                                : QString("Written before by pages %1: only this last range's piece is kept"))
                         .arg(earlier.join(", "));
        if (row == same.front() && existing[row])
            marks << (appending ? QString("Appends to an existing file") : QString("Replaces an existing file"));
        if (!marks.isEmpty()) {
            file->setIcon(mark);
            if (!gathering) file->setForeground(QColor(0xb3, 0x59, 0x00));
            tip += "\n\n" + marks.join("\n");
        }
        file->setToolTip(tip);
        table_->setItem(row, 2, file);
    }
    if (ranges.empty()) {
        summary_->setText(message.isEmpty() ? QString("No range: the search text is not found.") : message);
    } else {
        QString summary = QString("%1 range(s). Double-click a range to see its first page.").arg(ranges.size());
        QStringList counts;
        if (writtenAgain > 0) counts << counted(writtenAgain, "file", "files") + " written more than once";
        if (there > 0)
            counts << (appending ? counted(there, "appends to an existing file", "append to existing files")
                                 : counted(there, "replaces an existing file", "replace existing files"));
        if (exceptions > 0) counts << counted(exceptions, "exception", "exceptions");
        if (!counts.isEmpty()) summary += QString::fromUtf8(" \u2014 ") + counts.join(", ");
        summary_->setText(summary);
    }
    ranges_ = ranges;
    emit listed(static_cast<int>(ranges.size()));
}

void PreviewPane::clear(const QString& why) {
    ranges_.clear();
    table_->setRowCount(0);
    summary_->setText(why);
}

}  // namespace vellira::ui
