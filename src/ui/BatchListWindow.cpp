#include "ui/BatchListWindow.h"

#include "files/BatchListFile.h"
#include "files/SettingsLocations.h"
#include "ui/DesktopActions.h"
#include "ui/FolderChooser.h"

#include <QCloseEvent>
#include <QDir>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileDialog>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QMimeData>
#include <QPushButton>
#include <QTableWidget>
#include <QUrl>
#include <QVBoxLayout>

#include <algorithm>
#include <filesystem>
#include <numeric>
#include <tuple>

namespace vellira::ui {

namespace {

enum Column { kUse = 0, kFilename = 1, kStatus = 2, kParameters = 3 };

constexpr const char* kListFilter = "*.lst;;All Files *.*";

// The default list is read and written without a word: a list that cannot
// be read starts empty, one that cannot be written is lost.
class QuietInterface : public RunInterface {
public:
    void note(std::string_view) override {}
    bool question(std::string_view) override { return false; }
};

std::filesystem::path fsPath(const QString& path) { return std::filesystem::path(path.toStdU16String()); }

QString qt(const std::string& text) { return QString::fromStdString(text); }

// A row for a file added by hand: in use and "Ready.".
BatchRow addedRow(const QString& path) { return {"Yes", QDir::toNativeSeparators(path).toStdString(), "Ready.", ""}; }

bool sameRows(const std::vector<BatchRow>& a, const std::vector<BatchRow>& b) {
    const auto fields = [](const BatchRow& row) { return std::tie(row.use, row.path, row.status, row.params); };
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [&](const BatchRow& x, const BatchRow& y) { return fields(x) == fields(y); });
}

}  // namespace

BatchListWindow::BatchListWindow(OpenInView open, QWidget* parent)
    : QWidget(parent, Qt::Window),
      open_(std::move(open)),
      listFile_(QString::fromStdU16String(defaultListPath().u16string())) {
    setObjectName("BatchListWindow");
    setWindowTitle("Batch List");
    setAcceptDrops(true);

    table_ = new QTableWidget(0, 4, this);
    table_->setObjectName("batchRows");
    table_->setHorizontalHeaderLabels({"Use", "Filename", "Status", "Parameters File"});
    table_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    table_->setSelectionBehavior(QAbstractItemView::SelectRows);
    table_->setSelectionMode(QAbstractItemView::ExtendedSelection);
    table_->setShowGrid(true);
    table_->setWordWrap(false);
    table_->setTextElideMode(Qt::ElideMiddle);
    table_->setContextMenuPolicy(Qt::CustomContextMenu);
    table_->verticalHeader()->hide();
    table_->verticalHeader()->setDefaultSectionSize(table_->fontMetrics().height() + 8);
    QHeaderView* header = table_->horizontalHeader();
    header->setSectionsMovable(true);
    header->setSectionsClickable(true);
    header->setHighlightSections(false);
    header->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    header->setStretchLastSection(true);
    for (const auto& [column, width] : {std::pair{kUse, 60}, {kFilename, 270}, {kStatus, 102}, {kParameters, 300}})
        table_->setColumnWidth(column, width);
    connect(header, &QHeaderView::sectionClicked, this, &BatchListWindow::headerClicked);
    connect(table_, &QTableWidget::cellDoubleClicked, this, &BatchListWindow::toggleUse);
    connect(table_, &QWidget::customContextMenuRequested, this, &BatchListWindow::showContextMenu);

    auto* notes = new QVBoxLayout;
    notes->setSpacing(2);
    auto* dropNote = new QLabel("Drag and drop files into list", this);
    dropNote->setObjectName("dropNote");
    auto* processNote = new QLabel("Note: to process above list click'Process Batch List' in previous menu", this);
    processNote->setObjectName("processNote");
    notes->addWidget(dropNote);
    notes->addWidget(processNote);

    auto* clear = new QPushButton("&Clear ALL", this);
    clear->setObjectName("clearAllButton");
    connect(clear, &QPushButton::clicked, this, &BatchListWindow::clearAll);
    auto* close = new QPushButton("&Close", this);
    close->setObjectName("closeButton");
    connect(close, &QPushButton::clicked, this, &QWidget::close);

    auto* bottom = new QHBoxLayout;
    bottom->addLayout(notes);
    bottom->addStretch();
    bottom->addWidget(clear, 0, Qt::AlignBottom);
    bottom->addWidget(close, 0, Qt::AlignBottom);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(table_, 1);
    layout->addLayout(bottom);
    buildMenus();
    resize(800, 420);

    std::vector<BatchRow> rows;
    QuietInterface quiet;
    loadBatchList(defaultListPath(), rows, quiet);
    setRows(rows);
}

// An application that ends with the list on screen closes it too.
BatchListWindow::~BatchListWindow() {
    if (shown_) saveDefaultList();
}

void BatchListWindow::buildMenus() {
    auto* bar = new QMenuBar(this);
    layout()->setMenuBar(bar);
    const auto add = [this](QMenu* menu, const char* name, const char* text, auto slot) {
        auto* action = new QAction(text, this);
        action->setObjectName(name);
        connect(action, &QAction::triggered, this, slot);
        if (menu) menu->addAction(action);
        return action;
    };

    QMenu* file = bar->addMenu("File");
    add(file, "addFilesAction", "Add PDF File(s) to List", [this] { chooseFiles(); });
    add(file, "scanAction", "&Scan for files", [this] { scanFolder(false); });
    add(file, "scanSubFoldersAction", "&Scan for files including sub folders", [this] { scanFolder(true); });
    file->addSeparator();
    add(file, "loadListAction", "Load List", [this] { chooseList(false); });
    add(file, "appendListAction", "Append List", [this] { chooseList(true); });
    add(file, "saveListAction", "Save List", [this] { saveListTo(listFile_); });
    add(file, "saveAsListAction", "SaveAs List", [this] { chooseListName(); });
    file->addSeparator();
    add(file, "exitAction", "&Exit", [this] { close(); });

    QMenu* action = bar->addMenu("Action");
    deleteAction_ = add(action, "deleteAction", "&Delete\tDELETE", [this] { deleteSelected(); });
    deleteAction_->setShortcut(QKeySequence::Delete);
    addAction(deleteAction_);
    undoAction_ = add(action, "undoAction", "&Undo\tCtrl+Z", [this] { undo(); });
    undoAction_->setShortcut(QKeySequence::Undo);
    undoAction_->setEnabled(false);
    addAction(undoAction_);
    moveUpAction_ = add(action, "moveUpAction", "&Move Up", [this] { moveUp(); });
    moveDownAction_ = add(action, "moveDownAction", "&Move Down", [this] { moveDown(); });
    parametersAction_ =
        add(action, "parametersAction", "Add Parameter files to all or selected", [this] { chooseParametersFile(); });
    action->addSeparator();
    add(action, "openAllAction", "Open All", [this] { openAll(false); });
    add(action, "openAllReverseAction", "Open All in Reverse", [this] { openAll(true); });
    openAction_ = add(nullptr, "openRowsAction", "Open", [this] { openSelected(); });

    QMenu* sort = bar->addMenu("Sort");
    add(sort, "sortFilenameAction", "Sort on Filename", [this] { sortOn(kFilename, Qt::AscendingOrder); });
    add(sort, "sortStatusAction", "Sort on Status", [this] { sortOn(kStatus, Qt::AscendingOrder); });
    add(sort, "sortUseAction", "Sort on Use", [this] { sortOn(kUse, Qt::AscendingOrder); });
}

std::vector<BatchRow> BatchListWindow::rows() const {
    std::vector<BatchRow> rows;
    for (int row = 0; row < table_->rowCount(); ++row) {
        const auto text = [&](int column) {
            const QTableWidgetItem* item = table_->item(row, column);
            return item ? item->text().toStdString() : std::string();
        };
        rows.push_back({text(kUse), text(kFilename), text(kStatus), text(kParameters)});
    }
    return rows;
}

void BatchListWindow::setRows(const std::vector<BatchRow>& rows) {
    table_->setRowCount(0);
    appendRows(rows);
}

void BatchListWindow::appendRows(const std::vector<BatchRow>& rows) {
    forgetSortOrder();
    int row = table_->rowCount();
    table_->setRowCount(row + static_cast<int>(rows.size()));
    for (const BatchRow& each : rows) {
        int column = 0;
        for (const std::string* text : {&each.use, &each.path, &each.status, &each.params}) {
            auto* item = new QTableWidgetItem(qt(*text));
            if (column == kFilename || column == kParameters) item->setToolTip(item->text());
            table_->setItem(row, column++, item);
        }
        ++row;
    }
}

void BatchListWindow::showStatus(int row, const QString& status) {
    if (QTableWidgetItem* item = table_->item(row, kStatus)) item->setText(status);
}

void BatchListWindow::setLastPaths(const QString& path, const QString& sub) {
    lastPath_ = path;
    lastPathSub_ = sub;
}

std::vector<int> BatchListWindow::selectedRows() const {
    std::vector<int> rows;
    for (const QModelIndex& index : table_->selectionModel()->selectedRows()) rows.push_back(index.row());
    std::sort(rows.begin(), rows.end());
    return rows;
}

void BatchListWindow::selectRows(const std::vector<int>& rows) {
    table_->clearSelection();
    for (int row : rows)
        table_->selectionModel()->select(table_->model()->index(row, 0),
                                         QItemSelectionModel::Select | QItemSelectionModel::Rows);
}

void BatchListWindow::addFiles(const QStringList& paths) {
    std::vector<BatchRow> rows;
    for (const QString& path : paths)
        if (!path.isEmpty()) rows.push_back(addedRow(path));
    std::vector<BatchRow> before = this->rows();
    appendRows(rows);
    remember(std::move(before));
}

void BatchListWindow::addFolder(const QString& folder, bool subFolders) {
    if (folder.isEmpty()) return;
    std::vector<BatchRow> rows;
    addFolderToBatchList(fsPath(folder), subFolders, rows);
    std::vector<BatchRow> before = this->rows();
    appendRows(rows);
    remember(std::move(before));
    (subFolders ? lastPathSub_ : lastPath_) = folder;
    MessageBoxInterface(this, systemOpen()).note("Files Loaded");
}

void BatchListWindow::loadListFrom(const QString& path, bool append) {
    if (path.isEmpty()) return;
    std::vector<BatchRow> loaded;
    MessageBoxInterface messages(this, systemOpen());
    if (!loadBatchList(fsPath(path), loaded, messages)) return;
    std::vector<BatchRow> before = rows();
    if (!append) {
        table_->setRowCount(0);
        listFile_ = path;
    }
    appendRows(loaded);
    remember(std::move(before));
}

void BatchListWindow::saveListTo(const QString& path) {
    if (path.isEmpty()) return;
    const std::filesystem::path target = fsPath(path);
    const std::filesystem::path defaultList = defaultListPath();
    std::error_code ignored;
    if (target == defaultList) std::filesystem::create_directories(defaultList.parent_path(), ignored);
    MessageBoxInterface messages(this, systemOpen());
    if (saveBatchList(target, rows(), defaultList, messages)) listFile_ = path;
}

void BatchListWindow::saveDefaultList() const {
    if (table_->rowCount() == 0) return;
    const std::filesystem::path defaultList = defaultListPath();
    std::error_code ignored;
    std::filesystem::create_directories(defaultList.parent_path(), ignored);
    QuietInterface quiet;
    saveBatchList(defaultList, rows(), defaultList, quiet);
}

void BatchListWindow::addParametersFile(const QString& path) {
    if (path.isEmpty()) return;
    std::vector<int> rows = selectedRows();
    if (rows.empty()) {
        rows.resize(table_->rowCount());
        std::iota(rows.begin(), rows.end(), 0);
    }
    const QString shown = QDir::toNativeSeparators(path);
    std::vector<BatchRow> before = this->rows();
    for (int row : rows) {
        table_->item(row, kParameters)->setText(shown);
        table_->item(row, kParameters)->setToolTip(shown);
    }
    remember(std::move(before));
}

void BatchListWindow::deleteSelected() {
    const std::vector<int> rows = selectedRows();
    std::vector<BatchRow> before = this->rows();
    for (auto row = rows.rbegin(); row != rows.rend(); ++row) table_->removeRow(*row);
    remember(std::move(before));
}

void BatchListWindow::swapRows(int first, int second) {
    std::vector<BatchRow> before = rows();
    for (int column = 0; column < table_->columnCount(); ++column) {
        QTableWidgetItem* a = table_->takeItem(first, column);
        QTableWidgetItem* b = table_->takeItem(second, column);
        table_->setItem(first, column, b);
        table_->setItem(second, column, a);
    }
    remember(std::move(before));
    forgetSortOrder();
    table_->setCurrentCell(second, 0, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    table_->scrollToItem(table_->item(second, 0));
}

void BatchListWindow::moveUp() {
    const std::vector<int> rows = selectedRows();
    if (rows.empty()) return;
    const int row = rows.front();
    if (row >= 1 && table_->rowCount() >= 2) swapRows(row, row - 1);
}

void BatchListWindow::moveDown() {
    const std::vector<int> rows = selectedRows();
    if (rows.empty()) return;
    const int row = rows.front();
    if (table_->rowCount() > 1 && row < table_->rowCount() - 1) swapRows(row, row + 1);
}

void BatchListWindow::toggleUse() {
    const std::vector<int> rows = selectedRows();
    if (rows.empty()) return;
    const int row = rows.front();
    std::vector<BatchRow> before = this->rows();
    const bool use = table_->item(row, kUse)->text() != "Yes";
    table_->item(row, kUse)->setText(use ? "Yes" : "No");
    table_->item(row, kStatus)->setText(use ? "Ready." : "");
    remember(std::move(before));
}

void BatchListWindow::clearAll() {
    std::vector<BatchRow> before = rows();
    table_->setRowCount(0);
    remember(std::move(before));
}

void BatchListWindow::undo() {
    if (undoRows_.empty()) return;
    setRows(undoRows_.back());
    undoRows_.pop_back();
    undoAction_->setEnabled(!undoRows_.empty());
}

// Keeps the rows as they were before an edit for Undo; an edit that changed
// nothing (a sort of sorted rows, Clear ALL on an empty list) is no step.
void BatchListWindow::remember(std::vector<BatchRow> before) {
    if (sameRows(before, rows())) return;
    undoRows_.push_back(std::move(before));
    undoAction_->setEnabled(true);
}

void BatchListWindow::sortOn(int column, Qt::SortOrder order) {
    if (column < 0 || column >= table_->columnCount()) return;
    const std::vector<BatchRow> before = rows();
    const std::vector<int> selected = selectedRows();
    const auto key = [&](int row) { return table_->item(row, column)->text(); };
    std::vector<int> sorted(before.size());
    std::iota(sorted.begin(), sorted.end(), 0);
    std::stable_sort(sorted.begin(), sorted.end(), [&](int a, int b) {
        const int compared = QString::compare(key(a), key(b), Qt::CaseInsensitive);
        return order == Qt::AscendingOrder ? compared < 0 : compared > 0;
    });
    std::vector<BatchRow> after;
    std::vector<int> stillSelected;
    for (int place = 0; place < static_cast<int>(sorted.size()); ++place) {
        after.push_back(before[sorted[place]]);
        if (std::binary_search(selected.begin(), selected.end(), sorted[place])) stillSelected.push_back(place);
    }
    setRows(after);
    remember(before);
    selectRows(stillSelected);
    sortColumn_ = column;
    sortOrder_ = order;
    table_->horizontalHeader()->setSortIndicatorShown(true);
    table_->horizontalHeader()->setSortIndicator(column, order);
}

// A click on a header sorts on its column; a second click on the same header
// turns the order round.
void BatchListWindow::headerClicked(int column) {
    sortOn(column,
           column == sortColumn_ && sortOrder_ == Qt::AscendingOrder ? Qt::DescendingOrder : Qt::AscendingOrder);
}

// Rows added or moved by hand leave the list in no particular order.
void BatchListWindow::forgetSortOrder() {
    sortColumn_ = -1;
    table_->horizontalHeader()->setSortIndicatorShown(false);
}

void BatchListWindow::openSelected() {
    std::vector<int> rows = selectedRows();
    if (rows.empty()) {
        rows.resize(table_->rowCount());
        std::iota(rows.begin(), rows.end(), 0);
    }
    openRows(rows);
}

void BatchListWindow::openAll(bool reverse) {
    std::vector<int> rows(table_->rowCount());
    std::iota(rows.begin(), rows.end(), 0);
    if (reverse) std::reverse(rows.begin(), rows.end());
    openRows(rows);
}

// The paths are taken before the first is opened: a message box on the way
// lets the user change the list.
void BatchListWindow::openRows(const std::vector<int>& rows) {
    if (opening_) return;
    opening_ = true;
    QStringList paths;
    for (int row : rows) paths << table_->item(row, kFilename)->text();
    MessageBoxInterface messages(this, systemOpen());
    for (const QString& path : paths)
        if (!open_ || !open_(path)) messages.note("Invalid File: " + path.toStdString());
    opening_ = false;
}

void BatchListWindow::showEvent(QShowEvent* event) {
    shown_ = true;
    QWidget::showEvent(event);
}

void BatchListWindow::closeEvent(QCloseEvent* event) {
    saveDefaultList();
    shown_ = false;
    QWidget::closeEvent(event);
}

void BatchListWindow::dragEnterEvent(QDragEnterEvent* event) {
    if (event->mimeData()->hasUrls()) event->acceptProposedAction();
}

void BatchListWindow::dragMoveEvent(QDragMoveEvent* event) {
    if (event->mimeData()->hasUrls()) event->acceptProposedAction();
}

// Local files named "*.pdf", in any case, become rows, and a folder gives the
// PDFs in it (not those of its sub-folders), as "&Scan for files" does, in
// the order they were dropped. Anything else is passed over without a word.
void BatchListWindow::dropEvent(QDropEvent* event) {
    std::vector<BatchRow> dropped;
    for (const QUrl& url : event->mimeData()->urls()) {
        if (!url.isLocalFile()) continue;
        const QString path = url.toLocalFile();
        if (QFileInfo(path).isDir())
            addFolderToBatchList(fsPath(path), false, dropped);
        else if (path.endsWith(".pdf", Qt::CaseInsensitive))
            dropped.push_back(addedRow(path));
    }
    if (dropped.empty()) {
        event->ignore();
        return;
    }
    std::vector<BatchRow> before = rows();
    appendRows(dropped);
    remember(std::move(before));
    event->acceptProposedAction();
}

void BatchListWindow::showContextMenu(const QPoint& at) {
    if (selectedRows().empty()) return;
    QMenu menu("Action", this);
    menu.setObjectName("rowMenu");
    menu.addActions({deleteAction_, moveUpAction_, moveDownAction_, parametersAction_, openAction_});
    menu.exec(table_->viewport()->mapToGlobal(at));
}

void BatchListWindow::chooseFiles() {
    addFiles(QFileDialog::getOpenFileNames(this, "Add PDF File(s) to List", lastPath_, "*.pdf"));
}

void BatchListWindow::scanFolder(bool subFolders) {
    const std::optional<QString> folder =
        chooseFolder(this, kLoadFolderTitle, kLoadFolderPrompt, subFolders ? lastPathSub_ : lastPath_);
    if (folder) addFolder(*folder, subFolders);
}

void BatchListWindow::chooseList(bool append) {
    loadListFrom(QFileDialog::getOpenFileName(this, "Open List File", QFileInfo(listFile_).path(), kListFilter),
                 append);
}

void BatchListWindow::chooseListName() {
    saveListTo(QFileDialog::getSaveFileName(this, "Save List File", listFile_, kListFilter));
}

void BatchListWindow::chooseParametersFile() {
    addParametersFile(QFileDialog::getOpenFileName(this, "Open Parameters File", lastPath_, "*.pcs"));
}

}  // namespace vellira::ui
