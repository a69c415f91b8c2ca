// The batch list window on its real widgets, off-screen: the row commands as
// a user gives them, lists saved and read back, folder scans, the list kept
// from one window to the next, and files dropped on the window.
#include "gui/GuiTests.h"
#include "support/TempDir.h"
#include "ui/BatchListWindow.h"

#include <QAction>
#include <QApplication>
#include <QHeaderView>
#include <QMimeData>
#include <QPushButton>
#include <QTableWidget>
#include <QTest>
#include <QUrl>

#include <algorithm>
#include <fstream>
#include <memory>

namespace vellira::ui {
namespace {

QString qt(const std::filesystem::path& path) { return QString::fromStdString(path.string()); }

// The rows as the user reads them: "+" for a row in use, "~" for one left out,
// then "path:status" and ":parameters" where the row has its own.
QString shown(const BatchListWindow& window) {
    QStringList rows;
    for (const BatchRow& row : window.rows())
        rows << QString::fromStdString((row.use == "Yes" ? "+" : "~") + row.path + ":" + row.status +
                                       (row.params.empty() ? "" : ":" + row.params));
    return rows.join(' ');
}

using Rows = QList<int>;

Rows selection(const QTableWidget* table) {
    Rows rows;
    for (const QModelIndex& index : table->selectionModel()->selectedRows()) rows << index.row();
    std::sort(rows.begin(), rows.end());
    return rows;
}

class BatchListTest : public QObject {
    Q_OBJECT

    std::unique_ptr<testing::TempDir> dir_;

    // A window shown over its own settings folder.
    static std::unique_ptr<BatchListWindow> openWindow() {
        auto window = std::make_unique<BatchListWindow>([](const QString&) { return true; });
        window->show();
        window->activateWindow();
        if (!QTest::qWaitForWindowActive(window.get())) qWarning("the batch list window never became active");
        return window;
    }

private slots:
    void init() {
        dir_ = std::make_unique<testing::TempDir>();
        qputenv("XDG_CONFIG_HOME", QByteArray::fromStdString((*dir_ / "config").string()));
    }
    void cleanup() { dir_.reset(); }

    void rowCommands_data() {
        QTest::addColumn<Rows>("selected");
        QTest::addColumn<QString>("commands");
        QTest::addColumn<QString>("rows");
        QTest::addColumn<Rows>("selectedAfter");
        const auto add = [](const char* name, Rows selected, const char* commands, const char* rows, Rows after) {
            QTest::newRow(name) << selected << QString(commands) << QString(rows) << after;
        };
        const char* start = "+c:Done ~a: +b:Ready. +D:Ready.";
        add("double click takes a row back", {1}, "doubleClick", "+c:Done +a:Ready. +b:Ready. +D:Ready.", {1});
        add("double click leaves a row out", {2}, "doubleClick", "+c:Done ~a: ~b: +D:Ready.", {2});
        add("move up on the first row", {0}, "moveUp", start, {0});
        add("move down on the last row", {3}, "moveDown", start, {3});
        add("move down in the middle", {1}, "moveDown", "+c:Done +b:Ready. ~a: +D:Ready.", {2});
        add("move up twice", {2}, "moveUp moveUp", "+b:Ready. +c:Done ~a: +D:Ready.", {0});
        add("delete key removes every selected row", {0, 2}, "deleteKey", "~a: +D:Ready.", {});
        add("parameters file for every row", {}, "parameters",
            "+c:Done:set.pcs ~a::set.pcs +b:Ready.:set.pcs +D:Ready.:set.pcs", {});
        add("parameters file for the selected rows", {1, 3}, "parameters",
            "+c:Done ~a::set.pcs +b:Ready. +D:Ready.:set.pcs", {1, 3});
        add("header sorts on names, ignoring case", {2}, "header", "~a: +b:Ready. +c:Done +D:Ready.", {1});
        add("second click on the header reverses", {2}, "header header", "+D:Ready. +c:Done +b:Ready. ~a:", {2});
        add("sort on use keeps the order of equals", {}, "sortUse", "~a: +c:Done +b:Ready. +D:Ready.", {});
        add("Ctrl+Z brings deleted rows back", {0, 2}, "deleteKey ctrlZ", start, {});
        add("Clear ALL is undone", {}, "clearAll undo", start, {});
        add("undo goes back one edit at a time", {1}, "moveDown deleteKey undo", "+c:Done +b:Ready. ~a: +D:Ready.", {});
        add("undo with nothing to undo", {}, "undo", start, {});
    }

    void rowCommands() {
        QFETCH(Rows, selected);
        QFETCH(QString, commands);
        auto window = openWindow();
        window->setRows({{"Yes", "c", "Done", ""}, {"No", "a", "", ""}, {"Yes", "b"}, {"Yes", "D"}});
        auto* table = window->findChild<QTableWidget*>("batchRows");
        QHeaderView* header = table->horizontalHeader();
        for (int row : selected)
            table->selectionModel()->select(table->model()->index(row, 0),
                                            QItemSelectionModel::Select | QItemSelectionModel::Rows);
        for (const QString& command : commands.split(' ')) {
            if (command == "doubleClick") {
                const QRect cell = table->visualRect(table->model()->index(selected.front(), 1));
                QTest::mouseClick(table->viewport(), Qt::LeftButton, {}, cell.center());
                QTest::mouseDClick(table->viewport(), Qt::LeftButton, {}, cell.center());
            } else if (command == "deleteKey") {
                QTest::keyClick(table, Qt::Key_Delete);
            } else if (command == "ctrlZ") {
                QTest::keyClick(table, Qt::Key_Z, Qt::ControlModifier);
            } else if (command == "clearAll") {
                QTest::mouseClick(window->findChild<QPushButton*>("clearAllButton"), Qt::LeftButton);
            } else if (command == "parameters") {
                window->addParametersFile("set.pcs");
            } else if (command == "header") {
                QTest::mouseClick(header->viewport(), Qt::LeftButton, {},
                                  QPoint(header->sectionViewportPosition(1) + 20, header->height() / 2));
            } else {
                auto* action = window->findChild<QAction*>(command + "Action");
                QVERIFY2(action, qPrintable(command));
                action->trigger();
            }
        }
        QTEST(shown(*window), "rows");
        QTEST(selection(table), "selectedAfter");
    }

    // A saved list reads back with every row "Ready."; Append adds after the
    // rows there; a list that cannot be read changes nothing; folder scans add
    // the PDFs and remember their folder; closing keeps the list for the next
    // window.
    void listsFoldersAndTheDefaultList() {
        const QString list = qt(*dir_ / "saved.lst");
        const auto pdfs = *dir_ / "pdfs";
        std::filesystem::create_directories(pdfs / "sub" / "deeper");
        for (const char* name : {"b.pdf", "A.PDF", "notes.txt", "sub/c.pdf", "sub/deeper/d.pdf"})
            std::ofstream(pdfs / name) << "x";
        MessageBoxes boxes;
        QString kept;
        {
            auto window = openWindow();
            window->setRows({{"Yes", "/x/one.pdf", "Done", "/x/one.pcs"}, {"No", "/x/two.pdf", "", ""}});
            window->saveListTo(list);
            QTest::mouseClick(window->findChild<QPushButton*>("clearAllButton"), Qt::LeftButton);
            QVERIFY(window->rows().empty());
            window->loadListFrom(list, false);
            const QString loaded = "+/x/one.pdf:Ready.:/x/one.pcs ~/x/two.pdf:Ready.";
            QCOMPARE(shown(*window), loaded);
            window->loadListFrom(list, true);
            QCOMPARE(shown(*window), loaded + " " + loaded);
            window->loadListFrom(qt(*dir_ / "missing.lst"), false);
            QCOMPARE(window->rows().size(), std::size_t{4});
            QCOMPARE(window->listFile(), list);

            window->clearAll();
            window->addFolder(qt(pdfs / "sub"), false);
            window->addFolder(qt(pdfs), true);
            // The PDFs in name order, those of the folders below after them.
            QStringList added;
            for (const char* name : {"sub/c.pdf", "A.PDF", "b.pdf", "sub/c.pdf", "sub/deeper/d.pdf"})
                added << "+" + qt(pdfs / name) + ":Ready.";
            kept = shown(*window);
            QCOMPARE(kept, added.join(' '));
            QCOMPARE(window->lastPath(), qt(pdfs / "sub"));
            QCOMPARE(window->lastPathSub(), qt(pdfs));
            QTest::mouseClick(window->findChild<QPushButton*>("closeButton"), Qt::LeftButton);
            QVERIFY(!window->isVisible());
        }
        QCOMPARE(boxes.texts,
                 QStringList({"List saved to file: " + list, "Can't read list file.", "Files Loaded", "Files Loaded"}));
        QCOMPARE(shown(*openWindow()), kept);
    }

    // Local files named "*.pdf", in any case, become rows, and a folder
    // gives the PDFs in it.
    void droppedPdfsBecomeRows() {
        auto window = openWindow();
        const auto folder = *dir_ / "scans";
        std::filesystem::create_directories(folder / "old");
        for (const char* name : {"b.pdf", "a.PDF", "notes.txt", "old/c.pdf"}) std::ofstream(folder / name) << "x";
        QMimeData data;
        data.setUrls({QUrl::fromLocalFile("/home/ann/Statements/March 2024.PDF"),
                      QUrl::fromLocalFile("/home/ann/Statements/notes.txt"), QUrl("https://example.com/remote.pdf"),
                      QUrl::fromLocalFile(qt(folder)), QUrl::fromLocalFile("/home/ann/Statements/April 2024.pdf")});
        QWidget* list = window->findChild<QTableWidget*>("batchRows")->viewport();
        QDragEnterEvent enter(QPoint(200, 100), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(list, &enter);
        QVERIFY(enter.isAccepted());
        QDropEvent drop(QPointF(200, 100), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(list, &drop);
        QCOMPARE(shown(*window), "+/home/ann/Statements/March 2024.PDF:Ready. +" + qt(folder / "a.PDF") + ":Ready. +" +
                                     qt(folder / "b.pdf") + ":Ready. +/home/ann/Statements/April 2024.pdf:Ready.");
        window->addParametersFile("/home/ann/Setups/statements.pcs");
        saveScreenshot(window.get(), "BatchListWindow");
    }
};

}  // namespace

int runBatchListTests(int argc, char** argv) { return runTests<BatchListTest>(argc, argv); }

}  // namespace vellira::ui

#include "BatchListTest.moc"
