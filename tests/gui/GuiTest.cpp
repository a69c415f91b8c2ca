// The desktop application on its real windows, off-screen: setups through
// every control, the rules the mode lists apply, runs from "Process Batch
// List" with their status window, Stop, and questions from the worker.
#include "files/ParametersFile.h"
#include "fixtures/PdfFixture.h"
#include "gui/GuiTests.h"
#include "host/MupdfHost.h"
#include "support/Files.h"
#include "support/TempDir.h"
#include "ui/ApplicationWindow.h"
#include "ui/MainDialog.h"
#include "ui/PageView.h"
#include "ui/RunController.h"
#include "ui/StatusDialog.h"
#include "ui/ThumbnailStrip.h"

#include <QAbstractScrollArea>
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QProcess>
#include <QPushButton>
#include <QScrollBar>
#include <QSpinBox>
#include <QStatusBar>
#include <QTableWidget>
#include <QTest>
#include <QTextBrowser>
#include <QTimer>
#include <QToolButton>
#include <nlohmann/json.hpp>

#include <fstream>
#include <memory>

namespace vellira::ui {
namespace {

QString qt(std::string_view text) { return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size())); }

// What a control shows, as the user sees it.
QString shown(const QWidget* control) {
    if (const auto* box = qobject_cast<const QCheckBox*>(control)) return box->isChecked() ? "1" : "0";
    if (const auto* line = qobject_cast<const QLineEdit*>(control)) return line->text();
    if (const auto* combo = qobject_cast<const QComboBox*>(control)) return combo->currentText();
    if (const auto* text = qobject_cast<const QPlainTextEdit*>(control)) return text->toPlainText();
    return "?";
}

void click(QWidget* parent, const char* button) {
    auto* found = parent->findChild<QPushButton*>(button);
    QVERIFY2(found, button);
    QTest::mouseClick(found, Qt::LeftButton);
}

// The option dialog `name` that `button` opens from `parent`.
QDialog* openOptions(QWidget* parent, const char* button, const char* name) {
    click(parent, button);
    // One closed before may wait for its deletion.
    for (auto* each : parent->findChildren<QDialog*>(name))
        if (each->isVisible()) return each;
    return nullptr;
}

int pageCount(const std::filesystem::path& pdf) {
    MupdfHost host;
    return host.pageCount(host.openDocument(pdf));
}

}  // namespace

class GuiTest : public QObject {
    Q_OBJECT

    std::unique_ptr<testing::TempDir> dir_;
    std::unique_ptr<ApplicationWindow> window_;
    QStringList opened_;  // what the system's "open" action was given

    // A settings folder whose default list holds `rows`.
    void writeDefaultList(const std::vector<std::filesystem::path>& rows) {
        std::filesystem::create_directories(*dir_ / "config" / "vellira");
        std::ofstream list(*dir_ / "config" / "vellira" / "default.lst");
        for (const auto& row : rows) list << "+" << row.string() << "|\n";
    }

    // A window over its own settings folder, whose default list holds `rows`.
    MainDialog* openApplication(const std::vector<std::filesystem::path>& rows = {}) {
        qputenv("XDG_CONFIG_HOME", QByteArray::fromStdString((*dir_ / "config").string()));
        qputenv("XDG_STATE_HOME", QByteArray::fromStdString((*dir_ / "state").string()));
        writeDefaultList(rows);
        window_ = std::make_unique<ApplicationWindow>();
        window_->setOpenAction([this](const QString& path) { opened_ << path; });
        window_->show();
        MainDialog* dialog = window_->openMainDialog();
        dialog->findChild<QLineEdit*>("OUTPUTDIR")->setText(qt((*dir_ / "out").string()));
        return dialog;
    }

    std::filesystem::path writeStatements(int pages) {
        const auto pdf = *dir_ / "statements.pdf";
        fixtures::writePdf(fixtures::statements(pages, 5), pdf);
        return pdf;
    }

private slots:
    void init() {
        dir_ = std::make_unique<testing::TempDir>();
        opened_.clear();
    }
    void cleanup() {
        window_.reset();
        dir_.reset();
    }

    // Every key goes from a setup file through "&Load Setup" into its control
    // and back out through "&Save Setup" unchanged, and its control's tooltip
    // says what the key means; an option dialog's edits are kept on
    // "Save/Exit" and dropped on "Cancel".
    void everyKeyRoundTripsThroughItsControl() {
        MainDialog* dialog = openApplication();
        SplitSettings saved;
        int number = 0;
        for (const SettingsKey& key : settingsKeys()) {
            ++number;
            if (key.type == KeyType::Text)
                assignKey(saved, key, "value of " + std::string(key.name));
            else
                assignKey(saved, key, std::to_string(key.type == KeyType::Flag ? number % 2 : 100 + number));
        }
        saved.EXTRACT = modeText(FilenameMode::NameAfterText);
        saved.PAGEEXTRACT = modeText(PageExtractMode::UntilMatchAtPosition);
        saved.OCR = kOcrModes[0];
        saved.CODES = kOcrModes[2];
        saved.SEPARATOR = kSeparatorModes[1];
        saved.LOOKUPMISSING = kLookupMissingModes[1];
        saved.OCRRESOLUTION = 400;
        saved.OCRCONFIDENCE = 60;
        saved.EMAILMSG = "Dear customer,\r\nyour statement.";
        saved.OFFSETFIRST = 0;
        saved.offsetFirstWorking = 7;
        // The batch list window's folders are its own: a setup does not move them.
        saved.LASTPATH = saved.LASTPATHSUB = "";
        const std::string text = parametersText(saved, true);
        const auto setup = *dir_ / "job.pcs";
        std::ofstream(setup, std::ios::binary) << text;

        dialog->loadSetupFrom(qt(setup.string()));
        // The main dialog's own controls, then those of the option dialogs.
        int checked = 0;
        const auto checkControls = [&](QWidget* root) {
            for (const SettingsKey& key : settingsKeys()) {
                const QWidget* control = root->findChild<QWidget*>(qt(key.name));
                if (!control) continue;
                // The meaning `vellira-batch keys` prints, after the control's own tip.
                const QString tip = control->toolTip();
                QVERIFY2(tip == qt(key.meaning) || tip.endsWith("\n\n" + qt(key.meaning)), qPrintable(tip));
                if (key.name == "OFFSETFIRST" || key.name == "UNTILCHARACTERFILENAME" || key.name == "EMAILLOGIN" ||
                    key.name == "EMAILPASSWORD")
                    continue;  // the file never brings these back
                QCOMPARE(shown(control), qt(keyValueText(key, saved)).replace("\r\n", "\n"));
                ++checked;
            }
        };
        checkControls(dialog->findChild<QWidget*>("settingsForm"));
        for (const auto& [button, name] : {std::pair{"reportOptions", "ReportOptionsDialog"},
                                           {"emailOptions", "EmailSettingsDialog"},
                                           {"scanOptions", "ScanOptionsDialog"},
                                           {"pieceOptions", "PieceOptionsDialog"}}) {
            auto* options = openOptions(dialog, button, name);
            QVERIFY(options);
            checkControls(options);
            saveScreenshot(options, name);
            click(options, "saveExit");
        }
        QCOMPARE(checked, 80);

        // Edits in an option dialog count on "Save/Exit" only. A control is
        // greyed while the lists above it leave it without effect.
        const auto editScanOptions = [&](const char* button) {
            auto* options = openOptions(dialog, "scanOptions", "ScanOptionsDialog");
            QVERIFY(options);
            const auto choose = [&](const char* list, std::string_view mode) {
                options->findChild<QComboBox*>(list)->setCurrentText(qt(mode));
            };
            const auto enabled = [&](std::initializer_list<const char*> keys) {
                QString which;
                for (const char* key : keys) which += options->findChild<QWidget*>(key)->isEnabled() ? "1" : "0";
                return which;
            };
            choose("OCR", "All pages");
            QVERIFY(options->findChild<QLineEdit*>("OCRLANGUAGES")->isEnabled());
            options->findChild<QLineEdit*>("OCRLANGUAGES")->setText("eng+deu");
            choose("SEPARATOR", kSeparatorModes[0]);
            choose("CODES", kOcrModes[0]);
            QCOMPARE(enabled({"CODEFORMATS", "CODERESOLUTION"}), QString("00"));
            choose("CODES", kOcrModes[1]);
            QCOMPARE(enabled({"CODEFORMATS", "CODERESOLUTION"}), QString("11"));
            // The value, "keep" and "names" serve code sheets only; blank
            // sheets leave blank pages out already.
            for (const auto& [mode, expected] :
                 {std::pair{kSeparatorModes[0], "0001"}, {kSeparatorModes[4], "0000"}, {kSeparatorModes[3], "1111"}}) {
                choose("SEPARATOR", mode);
                QCOMPARE(enabled({"SEPARATORTEXT", "KEEPSEPARATOR", "SEPARATORNAMES", "DROPBLANKPAGES"}),
                         QString(expected));
            }
            // Sheets found by their code have codes read even with codes off.
            choose("CODES", kOcrModes[0]);
            QCOMPARE(enabled({"CODEFORMATS", "CODERESOLUTION"}), QString("11"));
            choose("CODES", kOcrModes[1]);
            options->findChild<QLineEdit*>("CODEFORMATS")->setText("QRCode+Code128");
            options->findChild<QLineEdit*>("SEPARATORTEXT")->setText("QRCode");
            saveScreenshot(options, "ScanOptionsDialog");
            click(options, button);
        };
        editScanOptions("cancel");
        MessageBoxes said;
        const auto again = *dir_ / "again.pcs";
        dialog->saveSetupTo(qt(again.string()));
        QCOMPARE(said.texts, QStringList{qt(again.string() + " saved.")});
        QCOMPARE(testing::readFile(again), text);
        editScanOptions("saveExit");
        QCOMPARE(dialog->settings().OCR, std::string("All pages"));
        QCOMPARE(dialog->settings().OCRLANGUAGES, std::string("eng+deu"));
        QCOMPARE(dialog->settings().CODES, std::string(kOcrModes[1]));
        QCOMPARE(dialog->settings().SEPARATOR, std::string(kSeparatorModes[3]));
        QCOMPARE(dialog->settings().SEPARATORTEXT, std::string("QRCode"));
    }

    // The mode lists apply their rules to the controls as they change.
    void modeListsApplyTheirRules() {
        MainDialog* dialog = openApplication();
        const auto choose = [&](const char* list, auto mode) {
            auto* combo = dialog->findChild<QComboBox*>(list);
            combo->setCurrentIndex(combo->findText(qt(modeText(mode))));
        };
        const auto control = [&](const char* key) { return dialog->findChild<QWidget*>(key); };
        dialog->findChild<QLineEdit*>("EXTRACTFILENAME")->setText("Customer:");

        choose("PAGEEXTRACT", PageExtractMode::MatchedPageOnly);
        choose("EXTRACT", FilenameMode::Bookmark);
        QCOMPARE(shown(control("PAGEEXTRACT")), qt(modeText(PageExtractMode::Bookmarks)));
        QCOMPARE(shown(control("EXTRACTFILENAME")), QString());
        QVERIFY(!control("EXTRACTFILENAME")->isEnabled());

        choose("PAGEEXTRACT", PageExtractMode::NextMatchAtPosition);
        QVERIFY(control("MATCHPOSH")->isEnabled());
        QVERIFY(!control("UNTILMATCHPOSV")->isEnabled());
        choose("EXTRACT", FilenameMode::NameAfterText);
        QCOMPARE(shown(control("TAKENWORDSFORFILENAME")), QString("999"));
        QVERIFY(control("UNTILHHPOSLESSTHAN")->isEnabled());
        QVERIFY(!control("TAKENWORDSFORFILENAME")->toolTip().contains("still cuts"));
        choose("EXTRACT", FilenameMode::NameAfterTextRestOfLine);
        QVERIFY(control("EXTRACTFILENAME")->isEnabled());
        QVERIFY(!control("ADDBWORDS")->isEnabled());
        // Greyed, the word limit still cuts the line taken: it says so.
        QVERIFY(!control("TAKENWORDSFORFILENAME")->isEnabled());
        QVERIFY(control("TAKENWORDSFORFILENAME")->toolTip().endsWith("yet its value still cuts the name."));

        // A bookmark split names by the bookmark, whatever the search text
        // but one that starts "Page start".
        choose("PAGEEXTRACT", PageExtractMode::BookmarksLevel2);
        QCOMPARE(shown(control("EXTRACT")), qt(modeText(FilenameMode::Bookmark)));
        QVERIFY(!control("MATCHPOSH")->isEnabled());
        saveScreenshot(dialog, "MainDialog");
    }

    // "Process Batch List" splits the application's list on a worker thread:
    // the rows show their status as it changes, the status window counts the
    // pages, and Stop ends a long run between pages with every file left whole.
    void processBatchListSplitsTheListUntilStopped() {
        const auto pdf = writeStatements(3000);
        MainDialog* dialog = openApplication({pdf});
        saveScreenshot(window_.get(), "ApplicationWindow");
        QStringList statuses;
        connect(&dialog->runs(), &RunController::rowStatus, this,
                [&](int row, const QString& status) { statuses << QString("%1 %2").arg(row).arg(status); });
        int reached = 0;
        connect(&dialog->runs(), &RunController::progress, this,
                [&, shot = false](const QString&, int page, int) mutable {
                    reached = std::max(reached, page);
                    auto* status = dialog->findChild<StatusDialog*>("StatusDialog");
                    if (!shot && status && page > 20) shot = true, saveScreenshot(status, "StatusDialog");
                    if (page >= 100) {
                        if (auto* stop = dialog->findChild<QPushButton*>("stopButton"); stop && stop->isEnabled())
                            stop->click();
                    }
                });
        BatchResult ended;
        connect(dialog, &MainDialog::runFinished, this, [&](const BatchResult& result) { ended = result; });
        click(dialog, "process");
        QVERIFY(dialog->running());
        QVERIFY(!dialog->findChild<QWidget*>("settingsForm")->isEnabled());
        QTRY_VERIFY_WITH_TIMEOUT(!dialog->running(), 60000);
        QCOMPARE(statuses, (QStringList{"0 Processing", "0 Done"}));
        QCOMPARE(window_->batchRows()[0].status, std::string("Done"));
        QVERIFY2(reached >= 100 && reached < 3000, "the run went on to the last page");
        QVERIFY(ended.filesWritten > 0 && ended.filesWritten < 600);
        int files = 0;
        for (const auto& entry : std::filesystem::directory_iterator(*dir_ / "out")) {
            const std::string name = entry.path().filename().string();
            QVERIFY2(name.starts_with("extract_") && name.ends_with(".pdf"), name.c_str());
            QCOMPARE(pageCount(entry.path()), 5);
            ++files;
        }
        QCOMPARE(files, ended.filesWritten);
        QVERIFY(dialog->findChild<QWidget*>("settingsForm")->isEnabled());
    }

    // Questions the run asks on its worker thread are windows on the interface
    // thread, and their answers go back to the run: the mail list is shown as a
    // table, and each mail sent from it is kept in the mail journal (here
    // failed: the pages hold no address); a "Yes" opens the text report.
    void questionsFromTheRunAreAnsweredOnTheInterfaceThread() {
        const auto pdf = writeStatements(10);
        MainDialog* dialog = openApplication();
        QVERIFY(window_->openDocument(qt(pdf.string())));
        QCOMPARE(window_->findChild<QLabel*>("documentDetails")->text().left(10), QString("10 page(s)"));
        dialog->findChild<QCheckBox*>("USECURRENT")->setChecked(true);
        SplitSettings settings = dialog->settings();
        settings.REPORTOPTIONSTXT = settings.EMAILENABLE = settings.EMAILCONFIRM = 1;
        dialog->showInControls(settings);
        QStringList rows;
        QTimer answer;
        connect(&answer, &QTimer::timeout, this, [&] {
            auto* list = qobject_cast<QDialog*>(QApplication::activeModalWidget());
            if (!list || list->objectName() != "EmailListDialog") return;
            auto* table = list->findChild<QTableWidget*>("emailList");
            for (int row = 0; row < table->rowCount(); ++row)
                rows << table->item(row, 1)->text() + " " + table->item(row, 2)->text() + "-" +
                            table->item(row, 3)->text();
            answer.stop();
            click(list, "sendButton");
        });
        answer.start(20);
        MessageBoxes asked;
        click(dialog, "process");
        QTRY_VERIFY_WITH_TIMEOUT(!dialog->running(), 20000);
        const QString out = qt((*dir_ / "out").string());
        QCOMPARE(rows, (QStringList{out + "/extract_100000.pdf 1-5", out + "/extract_100001.pdf 6-10"}));
        QCOMPARE(asked.texts, (QStringList{"Done! - 2 PDF file(s) output\r\n\r\nReport files have been generated, do "
                                           "you want to view text report ?",
                                           "(2) Emails sent ok: 0, errors: 2"}));
        QVERIFY(asked.onInterfaceThread);
        QProcess status;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("XDG_STATE_HOME", qt((*dir_ / "state").string()));
        status.setProcessEnvironment(environment);
        status.start(VELLIRA_BATCH_EXE, {"mail-status", "--failed"});
        QVERIFY(status.waitForFinished(10000));
        const QString listed = QString::fromUtf8(status.readAllStandardOutput());
        QCOMPARE(listed.count("no address found"), 2);
        QTRY_COMPARE(opened_, QStringList{qt(pdf.string() + "_report.txt")});
    }

    // A run stopped part-way ends with its summary, which says where it
    // stopped; the status window listed the pieces as they were written.
    void aStoppedRunIsSummedUpWhereItStopped() {
#ifdef _WIN32
        QSKIP("a file is made busy here by running a program from it");
#endif
        const auto pdf = writeStatements(40);
        MainDialog* dialog = openApplication({pdf});
        // The fourth piece's file is busy while a program runs from it: the
        // run waits there until Stop is pressed and the program ends.
        const auto busy = *dir_ / "out" / "extract_100003.pdf";
        std::filesystem::create_directories(busy.parent_path());
        std::filesystem::copy_file("/bin/sleep", busy);
        std::filesystem::permissions(busy, std::filesystem::perms::owner_all);
        QProcess program;
        program.start(qt(busy.string()), {"60"});
        QVERIFY(program.waitForStarted());
        click(dialog, "process");
        QPointer<StatusDialog> status;
        QTRY_VERIFY_WITH_TIMEOUT((status = dialog->findChild<StatusDialog*>("StatusDialog")) &&
                                     status->findChild<QLabel*>("statusLine")->text().startsWith("Waiting for file"),
                                 20000);
        auto* pieces = status->findChild<QListWidget*>("statusPieces");
        QCOMPARE(pieces->count(), 3);
        QCOMPARE(pieces->item(2)->text(), QString::fromUtf8("extract_100002.pdf    pages 11\u201315"));
        click(status, "stopButton");
        program.kill();
        program.waitForFinished();
        QTRY_VERIFY_WITH_TIMEOUT(!dialog->running(), 20000);
        RunSummary* summary = dialog->runs().summary();
        QVERIFY(summary && summary->isVisible());
        QCOMPARE(summary->headline(), QString("Stopped at file 1, page 20"));
        const QString out = qt((*dir_ / "out").string());
        QVERIFY2(summary->details().contains(QString::fromUtf8(
                     "statements.pdf, page 20 of 40 (file 1 of 1). Pages 21\u201340 were not split.")) &&
                     summary->details().contains("4 files in " + out + "\n"),
                 qPrintable(summary->details()));
        QCOMPARE(window_->batchRows()[0].status, std::string("Done"));
        saveScreenshot(summary, "RunSummary");
    }

    // Ranges of one name replace each other's pieces: the summary lists them,
    // with no box for each, beside the files that failed and why.
    void aRunWithCollisionsListsTheReplacedPieces() {
        const auto pdf = writeStatements(15);
        const auto broken = *dir_ / "broken.pdf";
        std::ofstream(broken) << "not a PDF";
        MainDialog* dialog = openApplication({pdf, broken, *dir_ / "missing.pdf"});
        // Every statement is named after the bank's name.
        dialog->findChild<QLineEdit*>("FINDSTRING")->setText("Vellira");
        MessageBoxes said;
        click(dialog, "process");
        QTRY_VERIFY_WITH_TIMEOUT(!dialog->running(), 20000);
        QVERIFY2(said.texts.size() == 2, qPrintable(said.texts.join(" | ")));
        QVERIFY2(said.texts[0].startsWith(qt("Can't open file: " + broken.string() + ": ")), qPrintable(said.texts[0]));
        QCOMPARE(said.texts[1], QString("Done, some errors occurred."));
        RunSummary* summary = dialog->runs().summary();
        QVERIFY(summary);
        QCOMPARE(summary->headline(), QString("Done: 1 file written, 2 files with problems"));
        const QString details = summary->details();
        for (const QString& part :
             {QString::fromUtf8("extract_Savings.pdf\n  pages 11\u201315\n"),
              "broken.pdf \u2014 Can't open\n" + qt(broken.string()) + "\n\u2022 " + said.texts[0] + "\n",
              QString::fromUtf8("missing.pdf \u2014 file error\n") + qt((*dir_ / "missing.pdf").string()) +
                  QString::fromUtf8("\n\u2022 The file is not there.\n"),
              QString::fromUtf8("Pieces replaced by a later range of this run\n"
                                "extract_Savings.pdf\n  pages 1\u20135, replaced by pages 6\u201310\n"
                                "extract_Savings.pdf\n  pages 6\u201310, replaced by pages 11\u201315")})
            QVERIFY2(details.contains(part), qPrintable(details + "\n--- wanted:\n" + part));
        QCOMPARE(window_->batchRows()[1].status, std::string("Can't open"));
        saveScreenshot(summary, "RunSummaryProblems");
    }

    // A setup marked AUTOMATION runs the batch list by itself and closes the
    // application when the run ends.
    void anAutomationSetupRunsUnattended() {
        const auto pdf = writeStatements(10);
        writeDefaultList({pdf});
        const auto setup = *dir_ / "auto.pcs";
        std::ofstream(setup, std::ios::binary) << "AUTOMATION\r\nOUTPUTDIR;" << (*dir_ / "out").string() << " \r\n";
        QProcess program;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("XDG_CONFIG_HOME", qt((*dir_ / "config").string()));
        environment.insert("QT_QPA_PLATFORM", "offscreen");
        program.setProcessEnvironment(environment);
        program.start(VELLIRA_GUI_EXE, {"--params", qt(setup.string())});
        QVERIFY(program.waitForFinished(30000));
        QCOMPARE(program.exitCode(), 0);
        QCOMPARE(std::distance(std::filesystem::directory_iterator(*dir_ / "out"), {}), 2);
    }

    // "&Show" draws each match over its word on its page in the view, and
    // asks for the next as the run asks. Clicking a word then offers its
    // position to the settings, and the preview lists the ranges they cut.
    void showHighlightsEachMatchAndAClickedWordGivesItsPosition() {
        const auto pdf = writeStatements(12);
        MainDialog* dialog = openApplication();
        // No file named: "&Show" says why, and with a document in the view
        // shows its matches there.
        dialog->findChild<QComboBox*>("FILENAME")->setEditText("");
        QTimer::singleShot(100, this, [&] {
            if (auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget())) {
                QVERIFY(box->text().startsWith("There is nothing to show"));
                box->button(QMessageBox::Ok)->click();
            }
        });
        click(dialog, "show");
        QVERIFY(!dialog->running());
        QVERIFY(window_->openDocument(qt(pdf.string())));
        QStringList seen;  // "page: word" of the highlight in view when each question came
        QTimer answer;
        connect(&answer, &QTimer::timeout, this, [&] {
            auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
            if (!box) return;
            if (box->text() == "Show next highlight") {
                const auto word = window_->pageView().highlightedWord();
                if (!word) return;  // the page is still being drawn
                seen << QString("%1: %2").arg(window_->pageView().currentPage() + 1).arg(word->text);
                if (seen.size() == 2) saveScreenshot(window_.get(), "PageViewHighlight");
                box->button(QMessageBox::Yes)->click();
            } else {
                seen << box->text();
                box->button(box->button(QMessageBox::Yes) ? QMessageBox::Yes : QMessageBox::Ok)->click();
            }
        });
        answer.start(20);
        click(dialog, "show");
        QTRY_VERIFY_WITH_TIMEOUT(!dialog->running(), 20000);
        QCOMPARE(seen, (QStringList{"1: account:", "6: account:", "11: account:", "No more matches found."}));
        QCOMPARE(window_->currentDocument(), qt(pdf.string()));
        QTRY_COMPARE(window_->statusBar()->currentMessage(), QString("page 11: account: (match 3 of 3)"));

        auto* preview = window_->findChild<QTableWidget*>("previewRanges");
        QTRY_COMPARE_WITH_TIMEOUT(preview->rowCount(), 3, 10000);
        QCOMPARE(preview->item(1, 0)->text(), QString("6-10"));
        QCOMPARE(preview->item(1, 2)->text(), QString("extract_100001.pdf"));
        PageView& view = window_->pageView();
        QTRY_VERIFY(!view.words().empty());
        const ViewWord label = view.words().front();
        QCOMPARE(label.text, QString("account:"));
        QTimer choose;
        connect(&choose, &QTimer::timeout, this, [&] {
            if (auto* menu = qobject_cast<QMenu*>(QApplication::activePopupWidget())) {
                choose.stop();
                menu->setActiveAction(menu->findChild<QAction*>("positionSearch"));
                QTest::keyClick(menu, Qt::Key_Return);
            }
        });
        choose.start(20);
        QWidget* canvas = view.findChild<QWidget*>("pageCanvas");
        QTest::mouseClick(canvas, Qt::LeftButton, {}, canvas->mapFrom(&view, view.wordCentre(label)));
        QTRY_COMPARE(shown(dialog->findChild<QWidget*>("MATCHPOSH")), QString::number(label.h));
        QCOMPARE(shown(dialog->findChild<QWidget*>("MATCHPOSV")), QString::number(label.v));
        QCOMPARE(shown(dialog->findChild<QWidget*>("FINDSTRING")), QString("account:"));
        // The plain split mode has no use for a position: the mode that has
        // is offered, and taken.
        QCOMPARE(seen.last(), QString("The position %1,%2 is used by the split mode \"%3\". Switch to it?")
                                  .arg(label.h)
                                  .arg(label.v)
                                  .arg(qt(modeText(PageExtractMode::NextMatchAtPosition))));
        QCOMPARE(shown(dialog->findChild<QWidget*>("PAGEEXTRACT")), qt(modeText(PageExtractMode::NextMatchAtPosition)));

        // Matched pages only: the preview follows the settings.
        dialog->findChild<QComboBox*>("PAGEEXTRACT")->setCurrentText(qt(modeText(PageExtractMode::MatchedPageOnly)));
        // A cell's text, or none while the list is being filled again.
        const auto cell = [&](int row, int column) {
            const QTableWidgetItem* item = preview->item(row, column);
            return item ? item->text() : QString();
        };
        QTRY_COMPARE_WITH_TIMEOUT(cell(1, 0), QString("6"), 10000);

        // The bank's name is the same on every statement: the file is
        // written by every range, and it is there already.
        std::filesystem::create_directories(*dir_ / "out");
        std::ofstream(*dir_ / "out" / "extract_Savings.pdf") << "old";
        dialog->findChild<QLineEdit*>("FINDSTRING")->setText("Vellira");
        QTRY_COMPARE_WITH_TIMEOUT(cell(2, 2), QString("extract_Savings.pdf"), 10000);
        QStringList marks;
        for (int row = 0; row < preview->rowCount(); ++row) {
            const QTableWidgetItem* file = preview->item(row, 2);
            QVERIFY(!file->icon().isNull());
            marks << file->toolTip().section("\n\n", 1);
        }
        QCOMPARE(marks, (QStringList{"Written again by pages 6, 11: only the last range's piece is kept\n"
                                     "Replaces an existing file",
                                     "Written again by pages 11: only the last range's piece is kept",
                                     "Written before by pages 1, 6: only this last range's piece is kept"}));
        QVERIFY(window_->findChild<QLabel*>("previewSummary")
                    ->text()
                    .endsWith(QString::fromUtf8(" \u2014 1 file written more than once, 1 replaces an existing file")));
        saveScreenshot(window_.get(), "PreviewPane");

        // Pieces that break a check are marked before anything is written.
        dialog->findChild<QLineEdit*>("FINDSTRING")->setText("account:");
        auto* pieces = openOptions(dialog, "pieceOptions", "PieceOptionsDialog");
        QVERIFY(pieces);
        pieces->findChild<QLineEdit*>("CHECKVALUE")->setText("100001");
        click(pieces, "saveExit");
        QTRY_VERIFY_WITH_TIMEOUT(
            window_->findChild<QLabel*>("previewSummary")->text().endsWith(QString::fromUtf8(" \u2014 2 exceptions")),
            10000);
        QCOMPARE(preview->item(0, 1)->toolTip(),
                 QString("Captured text: 100000\nException: value does not match 100001"));
        QVERIFY(preview->item(1, 1)->icon().isNull());
        saveScreenshot(window_.get(), "PreviewExceptions");

        // A scanned page shows the words read from its image, where the
        // words of the page it was printed from stand.
        const auto printed = *dir_ / "printed.pdf";
        const auto scanned = *dir_ / "scanned.pdf";
        fixtures::writePdf(fixtures::statements(1, 5), printed);
        fixtures::writeScanned(printed, scanned);
        QVERIFY(window_->openDocument(qt(scanned.string())));
        QTRY_VERIFY_WITH_TIMEOUT(!view.words().empty() && view.words().front().text == "account:", 60000);
        QVERIFY(std::abs(view.words().front().h - label.h) <= 4 && std::abs(view.words().front().v - label.v) <= 4);
    }

    // The codes on a scanned page are words of the page view over the
    // codes, that tell their kind, as a run reads them.
    void aScannedPageShowsItsCodes() {
        openApplication();
        const auto pdf = *dir_ / "sheet.pdf";
        fixtures::Sheet sheet;
        sheet.lines = {"Invoice", "", "Please pay within 30 days of the invoice date."};
        sheet.codes = {{"Code128", "INV-100001", 380, 160, 180}, {"QRCode", "NEXT", 72, 300, 100}};
        fixtures::writeSheets({sheet}, pdf);
        QVERIFY(window_->openDocument(qt(pdf.string())));
        const PageView& view = window_->pageView();
        QTRY_VERIFY_WITH_TIMEOUT(!view.words().empty(), 60000);
        QStringList codes;
        for (const ViewWord& word : view.words()) {
            if (word.code == CodeFormat::None) continue;
            codes << word.text + " " + wordNote(word);
            if (word.code == CodeFormat::QRCode) QVERIFY(QRectF(62, 290, 120, 120).contains(word.box));
        }
        QCOMPARE(codes, (QStringList{"INV-100001 Code: Code128", "NEXT Code: QRCode"}));
        saveScreenshot(window_.get(), "PageViewCodes");
    }

    // A 40-page run of eight statements: the view marks where each of its
    // eight pieces begins with the piece's name, and the thumbnail strip
    // lists the 40 pages, drawn as they come into view, each beside its
    // piece's bar. A click on a thumbnail shows that page from its top.
    void piecesAreMarkedOnThePagesAndTheirThumbnails() {
        const auto pdf = writeStatements(40);
        openApplication();
        QVERIFY(window_->openDocument(qt(pdf.string())));
        auto* preview = window_->findChild<QTableWidget*>("previewRanges");
        QTRY_COMPARE_WITH_TIMEOUT(preview->rowCount(), 8, 10000);
        PageView& view = window_->pageView();
        ThumbnailStrip& strip = view.thumbnails();
        QCOMPARE(strip.model()->rowCount(), 40);
        QStringList names;
        for (int page = 0; page < 40; ++page) {
            const QModelIndex index = strip.model()->index(page, 0);
            QCOMPARE(index.data(ThumbnailStrip::PieceRole).toInt(), page / 5);
            const QString name = index.data(ThumbnailStrip::PieceNameRole).toString();
            if (!name.isEmpty()) names << QString("%1: %2").arg(page + 1).arg(name);
        }
        QCOMPARE(names, (QStringList{"1: 100000", "6: 100001", "11: 100002", "16: 100003", "21: 100004", "26: 100005",
                                     "31: 100006", "36: 100007"}));
        QTRY_VERIFY(strip.hasImage(0));
        QVERIFY(!strip.hasImage(39));

        // A tab of the piece's colour over the first page of each piece,
        // none over a page within one.
        const auto tabOver = [&](int page) {
            view.goToPage(page);
            const QRect area = view.pageArea(page);
            return QColor(view.grab().toImage().pixel(area.right() - 6, area.top() - 4));
        };
        QCOMPARE(tabOver(5), pieceColour(1));
        QCOMPARE(tabOver(35), pieceColour(7));
        QVERIFY(tabOver(6) != pieceColour(1));

        const QModelIndex thumbnail = strip.model()->index(22, 0);
        strip.scrollTo(thumbnail);
        QTest::mouseClick(strip.viewport(), Qt::LeftButton, {}, strip.visualRect(thumbnail).center());
        QCOMPARE(view.currentPage(), 22);
        QCOMPARE(view.findChild<QSpinBox*>("pageNumber")->value(), 23);
        QWidget* canvas = view.findChild<QWidget*>("pageCanvas");
        QCOMPARE(view.pageArea(22).top() - canvas->mapTo(&view, QPoint()).y(), 6);
        QTRY_VERIFY(strip.hasImage(22) && view.words().size() > 2);
        QCOMPARE(view.words()[2].text, QString("3"));  // "continued page 3"

        // The end of one piece and the start of the next, side by side.
        view.goToPage(20);
        QScrollBar* bar = view.findChild<QAbstractScrollArea*>("pageScroll")->verticalScrollBar();
        bar->setValue(bar->value() - canvas->height() / 3);
        QTRY_VERIFY(view.words().size() > 2 && view.words()[0].text == "account:" && strip.hasImage(20));
        QTest::qWait(200);
        saveScreenshot(window_.get(), "PageViewPieces");
    }

    // File > Open Recent lists the PDFs opened, newest first and a missing
    // one greyed, from one session to the next; "&Load Setup" offers the
    // setups saved or loaded last.
    void recentDocumentsAndSetupsAreOfferedAgain() {
        MainDialog* dialog = openApplication();
        const auto first = *dir_ / "first.pdf";
        const auto gone = *dir_ / "gone.pdf";
        fixtures::writePdf(fixtures::statements(2, 5), first);
        fixtures::writePdf(fixtures::statements(3, 5), gone);
        QVERIFY(window_->openDocument(qt(first.string())));
        QVERIFY(window_->openDocument(qt(gone.string())));
        std::filesystem::remove(gone);
        MessageBoxes said;
        dialog->findChild<QLineEdit*>("FINDSTRING")->setText("Customer:");
        dialog->saveSetupTo(qt((*dir_ / "statements.pcs").string()));

        window_ = std::make_unique<ApplicationWindow>();
        window_->show();
        auto* recent = window_->findChild<QMenu*>("recentDocuments");
        emit recent->aboutToShow();
        QStringList items;
        for (QAction* item : recent->actions())
            if (!item->data().toString().isEmpty()) items << item->text() + (item->isEnabled() ? "" : ", greyed");
        QCOMPARE(items, (QStringList{"&1 gone.pdf (not found), greyed", "&2 first.pdf"}));
        recent->actions()[1]->trigger();
        QCOMPARE(window_->currentDocument(), qt(first.string()));
        QCOMPARE(window_->currentPageCount(), 2);

        dialog = window_->openMainDialog();
        dialog->findChild<QLineEdit*>("FINDSTRING")->setText("other");
        QMenu* setups = dialog->findChild<QToolButton*>("recentSetups")->menu();
        emit setups->aboutToShow();
        QCOMPARE(setups->actions().size(), 1);
        QCOMPARE(setups->actions()[0]->text(), QString("statements.pcs"));
        setups->actions()[0]->trigger();
        QCOMPARE(dialog->findChild<QLineEdit*>("FINDSTRING")->text(), QString("Customer:"));
    }

    // ExRun opens the main dialog as the menu item does, replacing one.
    // The preview names the files `vellira-batch split` writes with the same
    // setup, in every naming mode, a greyed limit and "Add:" included.
    void thePreviewNamesTheFilesTheCommandLineWrites() {
        const auto pdf = writeStatements(15);
        MainDialog* dialog = openApplication();
        QVERIFY(window_->openDocument(qt(pdf.string())));
        auto* preview = window_->findChild<QTableWidget*>("previewRanges");
        // The files the preview lists, each once, in the order first written.
        const auto previewed = [&] {
            QStringList files;
            for (int row = 0; row < preview->rowCount(); ++row)
                if (const auto* file = preview->item(row, 2); file && !files.contains(file->text()))
                    files << file->text();
            return files;
        };
        for (const auto& [mode, text] : kFilenameModes) {
            if (mode == FilenameMode::Bookmark) continue;  // no bookmarks in the run
            const auto setup = *dir_ / "setup.pcs";
            std::ofstream(setup, std::ios::binary)
                << "EXTRACT;" << text << "\r\nEXTRACTFILENAME;account:\r\nADDBWORDS;_\r\nTAKENWORDSFORFILENAME;2\r\n"
                << "PREFIXFILENAME;stmt_\r\nOUTPUTDIR;" << (*dir_ / "cli").string() << "\r\n";
            dialog->loadSetupFrom(qt(setup.string()));
            QProcess split;
            split.start(VELLIRA_BATCH_EXE, {"split", "--json", "--params", qt(setup.string()), qt(pdf.string())});
            QVERIFY(split.waitForFinished(30000));
            QStringList written;
            const auto json = nlohmann::json::parse(split.readAllStandardOutput().toStdString());
            for (const auto& output : json["outputs"])
                written << QFileInfo(qt(output["path"].get<std::string>())).fileName();
            QVERIFY2(!written.isEmpty(), qPrintable(qt(text) + ": " + split.readAllStandardError()));
            // The preview follows the setup a moment later.
            QTRY_COMPARE_WITH_TIMEOUT(previewed(), written, 20000);
        }
    }

    // The main dialog docks beside the view and preview, opens there again
    // in the next session, and does not open at start once closed.
    void theSettingsDockBesideTheViewAndStayThere() {
        const auto pdf = writeStatements(40);
        MainDialog* dialog = openApplication();
        QVERIFY(window_->openDocument(qt(pdf.string())));
        window_->findChild<QAction*>("dockSettingsAction")->trigger();
        QCOMPARE(dialog->window(), window_.get());
        QTRY_COMPARE_WITH_TIMEOUT(window_->findChild<QTableWidget*>("previewRanges")->rowCount(), 8, 10000);
        window_->resize(1920, 1000);
        QTest::qWait(300);
        saveScreenshot(window_.get(), "DockedSettings");

        window_ = std::make_unique<ApplicationWindow>();
        window_->show();
        QVERIFY(window_->mainDialogAtStart());
        dialog = window_->openMainDialog();
        QCOMPARE(dialog->window(), window_.get());
        click(dialog, "cancel");
        QTRY_VERIFY(!window_->mainDialog());
        window_ = std::make_unique<ApplicationWindow>();
        QVERIFY(!window_->mainDialogAtStart());
        window_->findChild<QAction*>("dockSettingsAction")->trigger();  // floating again
        dialog = window_->openMainDialog();
        QVERIFY(dialog->isWindow());
        QVERIFY(window_->mainDialogAtStart());
    }

    // "Help" opens the README's usage and every setting's meaning, the
    // settings narrowed to a word.
    void helpShowsTheUsageAndEverySetting() {
        MainDialog* dialog = openApplication();
        click(dialog, "help");
        auto* help = dialog->findChild<QWidget*>("HelpWindow");
        QTRY_VERIFY(help && help->isVisible());
        QVERIFY(help->findChild<QTextBrowser*>("helpUsage")->toPlainText().contains("Running vellira-batch by hand"));
        auto* settings = help->findChild<QTextBrowser*>("helpSettings");
        for (const SettingsKey& key : settingsKeys()) QVERIFY(settings->toPlainText().contains(qt(key.name)));
        help->findChild<QLineEdit*>("helpFilter")->setText("separator");
        const QString narrowed = settings->toPlainText();
        QVERIFY(narrowed.contains("KEEPSEPARATOR") && !narrowed.contains("FINDSTRING"));
        saveScreenshot(help, "HelpWindow");
    }

    void exRunReplacesTheMainDialog() {
        QPointer<MainDialog> first = openApplication();
        QCOMPARE(ExRun(nullptr), 1);
        QTRY_VERIFY(!first);
        QVERIFY(window_->mainDialog());
        QCOMPARE(window_->mainDialog()->windowTitle(), QString("Vellira Batch v4.01 -= Ornwick Software =-"));
    }
};

int runApplicationTests(int argc, char** argv) { return runTests<GuiTest>(argc, argv); }

}  // namespace vellira::ui

#include "GuiTest.moc"
