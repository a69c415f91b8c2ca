#include "ui/MainDialog.h"

#include "files/ParametersFile.h"
#include "files/SettingsLocations.h"
#include "host/MupdfHost.h"
#include "ui/ApplicationWindow.h"
#include "ui/BatchListWindow.h"
#include "ui/EmailSettingsDialog.h"
#include "ui/FolderChooser.h"
#include "ui/HelpWindow.h"
#include "ui/MatchCounter.h"
#include "ui/PageView.h"
#include "ui/PieceOptionsDialog.h"
#include "ui/ReportOptionsDialog.h"
#include "ui/RunController.h"
#include "ui/ScanOptionsDialog.h"
#include "ui/SettingsBinding.h"

#include <QApplication>
#include <QCheckBox>
#include <QCloseEvent>
#include <QComboBox>
#include <QFileDialog>
#include <QFileInfo>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QIntValidator>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QScreen>
#include <QStatusBar>
#include <QToolButton>
#include <QVBoxLayout>

#include <filesystem>

namespace vellira::ui {

namespace {

constexpr const char* kSetupFilter = "*.pcs;;All Files (*.*)";

QString qt(std::string_view text) { return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size())); }

// A control's own tooltip, kept while another is shown for a while.
constexpr const char* kOwnTip = "velliraOwnTip";

// The controls the filename and extract rules enable and disable.
struct RuleControls {
    const char* key;
    bool FilenameControls::*name = nullptr;
    bool PositionControls::*position = nullptr;
};
constexpr RuleControls kRuleControls[] = {
    {"EXTRACTFILENAME", &FilenameControls::extractFilename},
    {"TAKENWORDSFORFILENAME", &FilenameControls::takenWords},
    {"FIRSTCHAROFWORD", &FilenameControls::firstChar},
    {"TAKENCHARSFORFILENAME", &FilenameControls::takenChars},
    {"ADDBWORDS", &FilenameControls::addWords},
    {"UNTILHHPOSLESSTHAN", &FilenameControls::untilHPos},
    {"MATCHPOSH", nullptr, &PositionControls::matchPosition},
    {"MATCHPOSV", nullptr, &PositionControls::matchPosition},
    {"UNTILMATCHPOSH", nullptr, &PositionControls::untilPosition},
    {"UNTILMATCHPOSV", nullptr, &PositionControls::untilPosition},
};

}  // namespace

MainDialog::MainDialog(ApplicationWindow& window)
    : QDialog(&window),
      window_(window),
      runs_(new RunController(this, window.opener())),
      counter_(new MatchCounter(this)) {
    setObjectName("MainDialog");
    setWindowTitle(windowTitleText());
    setModal(false);
    build();
    showKeyMeanings(form_);
    // The settings a fresh dialog starts with, then the settings file.
    std::string settingsFile = pathText(settingsFilePath());
    readParameters(settingsFile, record_, {legacyFolder(), false});
    record_.AUTOMATION = 0;
    window_.batchList().setLastPaths(QString::fromStdString(record_.LASTPATH),
                                     QString::fromStdString(record_.LASTPATHSUB));
    showInControls(record_);
    connect(runs_, &RunController::rowStatus, &window_, &ApplicationWindow::setRowStatus);
    connect(runs_, &RunController::highlighted, this, [this](int page, const QString& word, int number) {
        ++matchShown_;
        showMatchCount(page, word);
        window_.pageView().showHighlight(page, number);
    });
    connect(&window_.pageView(), &PageView::highlightRevealed, this, &MainDialog::keepClearOf);
    connect(counter_, &MatchCounter::counted, this, [this](int matches) {
        matchCount_ = matches;
        if (matchShown_ > 0) showMatchCount(matchPage_, matchWord_);
    });
    connect(runs_, &RunController::finished, &window_.pageView(), &PageView::clearHighlight);
    // Every edit of a setting shows its ranges anew.
    for (auto* line : form_->findChildren<QLineEdit*>())
        connect(line, &QLineEdit::textChanged, this, &MainDialog::settingsEdited);
    for (auto* box : form_->findChildren<QCheckBox*>())
        connect(box, &QCheckBox::toggled, this, &MainDialog::settingsEdited);
    for (auto* combo : form_->findChildren<QComboBox*>())
        connect(combo, &QComboBox::currentTextChanged, this, &MainDialog::settingsEdited);
    connect(this, &MainDialog::settingsEdited, &window_, &ApplicationWindow::schedulePreview);
    window_.schedulePreview();
    connect(runs_, &RunController::finished, this, &MainDialog::runEnded);
}

MainDialog::~MainDialog() {
    // A run still working is stopped first, then the settings are saved.
    delete runs_;
    runs_ = nullptr;
    writeSettingsFile();
}

QPushButton* MainDialog::button(const char* name, const QString& text) {
    auto* pushButton = new QPushButton(text, this);
    pushButton->setObjectName(name);
    pushButton->setAutoDefault(false);
    return pushButton;
}

QLineEdit* MainDialog::edit(const char* key, bool integer) {
    auto* line = new QLineEdit(form_);
    line->setObjectName(key);
    if (integer) {
        line->setValidator(new QIntValidator(line));
        line->setMaximumWidth(70);
    }
    return line;
}

QComboBox* MainDialog::modeList(const char* key) {
    auto* combo = new QComboBox(form_);
    combo->setObjectName(key);
    if (std::string_view(key) == "EXTRACT") {
        for (const auto& [mode, text] : kFilenameModes) combo->addItem(qt(text));
    } else {
        for (const auto& [mode, text] : kExtractModes) combo->addItem(qt(text));
    }
    return combo;
}

QComboBox* MainDialog::macroList(const char* key) {
    auto* combo = new QComboBox(form_);
    combo->setObjectName(key);
    combo->setEditable(true);
    combo->setInsertPolicy(QComboBox::NoInsert);
    for (const auto macro : kFilenameMacros) combo->addItem(qt(macro));
    return combo;
}

void MainDialog::build() {
    auto* layout = new QVBoxLayout(this);

    auto* top = new QHBoxLayout;
    auto* loadSetup = button("loadSetup", "&Load Setup");
    auto* saveSetup = button("saveSetup", "&Save Setup");
    auto* reportOptions = button("reportOptions", "&Report Options");
    auto* emailOptions = button("emailOptions", "&Email Options");
    auto* scanOptions = button("scanOptions", "S&can Options");
    auto* pieceOptions = button("pieceOptions", "&Values and Checks");
    auto* batchList = button("batchList", "&Setup Batch Files List");
    auto* help = button("help", "Help");
    for (QPushButton* each : {loadSetup, saveSetup, reportOptions, emailOptions, scanOptions, pieceOptions, batchList})
        top->addWidget(each);
    // The setups loaded or saved last, on a small menu beside "&Load Setup".
    auto* recentSetups = new QToolButton(this);
    recentSetups->setObjectName("recentSetups");
    recentSetups->setText("Recent");
    recentSetups->setToolTip("Load a recent setup");
    recentSetups->setPopupMode(QToolButton::InstantPopup);
    recentSetups->setMenu(new QMenu(recentSetups));
    recentSetups->setFixedHeight(loadSetup->sizeHint().height());
    connect(recentSetups->menu(), &QMenu::aboutToShow, this, [this, menu = recentSetups->menu()] {
        menu->clear();
        const QStringList paths = window_.recentSetups();
        for (const QString& path : paths) {
            QAction* item = menu->addAction(QFileInfo(path).fileName().replace("&", "&&"));
            item->setToolTip(path);
            item->setData(path);
            item->setEnabled(QFileInfo::exists(path));
            connect(item, &QAction::triggered, this, [this, path] { loadSetupFrom(path); });
        }
        if (paths.isEmpty()) menu->addAction("No recent setups")->setEnabled(false);
        menu->setToolTipsVisible(true);
    });
    top->insertWidget(1, recentSetups);
    top->addStretch();
    top->addWidget(help);
    layout->addLayout(top);

    form_ = new QWidget(this);
    form_->setObjectName("settingsForm");
    auto* columns = new QGridLayout(form_);
    columns->setContentsMargins(0, 0, 0, 0);
    const auto check = [this](const char* key, const char* label) {
        auto* box = new QCheckBox(label, form_);
        box->setObjectName(key);
        return box;
    };
    const auto label = [this](const char* text) { return new QLabel(text, form_); };

    // The source document.
    auto* source = new QGroupBox("Source", form_);
    auto* sourceGrid = new QGridLayout(source);
    auto* filename = new QComboBox(form_);
    filename->setObjectName("FILENAME");
    filename->setEditable(true);
    filename->setInsertPolicy(QComboBox::NoInsert);
    filename->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    auto* browseFile = button("browseFile", "&Browse");
    auto* viewFile = button("viewFile", "V");
    viewFile->setMaximumWidth(32);
    sourceGrid->addWidget(label("Filename:"), 0, 0);
    sourceGrid->addWidget(filename, 0, 1, 1, 3);
    sourceGrid->addWidget(browseFile, 0, 4);
    sourceGrid->addWidget(viewFile, 0, 5);
    sourceGrid->addWidget(check("USECURRENT", "Use current open PDF document"), 1, 1);
    sourceGrid->addWidget(check("ROTATED", "landscape layout"), 1, 2);
    sourceGrid->addWidget(check("CREATELIST", "Create file list for Tessary"), 1, 3);
    sourceGrid->setColumnStretch(3, 1);
    columns->addWidget(source, 0, 0, 1, 2);

    // What is searched for.
    auto* search = new QGroupBox("Search", form_);
    auto* searchGrid = new QGridLayout(search);
    const auto position = [&](int row, const char* h, const char* v, bool integer) {
        searchGrid->addWidget(label("At Position h:"), row, 2);
        auto* hEdit = edit(h, integer);
        auto* vEdit = edit(v, integer);
        hEdit->setMaximumWidth(80);
        vEdit->setMaximumWidth(80);
        searchGrid->addWidget(hEdit, row, 3);
        searchGrid->addWidget(label("v:"), row, 4);
        searchGrid->addWidget(vEdit, row, 5);
    };
    searchGrid->addWidget(label("Find word(s):"), 0, 0);
    searchGrid->addWidget(edit("FINDSTRING"), 0, 1);
    position(0, "MATCHPOSH", "MATCHPOSV", false);
    searchGrid->addWidget(label("Extract until word(s):"), 1, 0);
    searchGrid->addWidget(edit("EXTRACTUNTIL"), 1, 1);
    position(1, "UNTILMATCHPOSH", "UNTILMATCHPOSV", true);
    searchGrid->addWidget(label("Use as filename after text:"), 2, 0);
    searchGrid->addWidget(edit("EXTRACTFILENAME"), 2, 1);
    searchGrid->addWidget(check("IGNORECASE", "Ignore case senstivie text"), 2, 2, 1, 4);
    searchGrid->addWidget(check("PATTERNSEARCH", "Search texts are patterns (regular expressions)"), 3, 0, 1, 2);
    auto* positions = button("viewPositions", "View Current Page h,v");
    searchGrid->addWidget(positions, 3, 2, 1, 4, Qt::AlignRight);
    searchGrid->setColumnStretch(1, 1);
    columns->addWidget(search, 1, 0, 1, 2);

    // Where the outputs go and what they are called around the name.
    auto* output = new QGroupBox("Output", form_);
    auto* outputGrid = new QGridLayout(output);
    auto* browseOutput = button("browseOutput", "&Browse");
    auto* viewOutput = button("viewOutput", "V");
    viewOutput->setMaximumWidth(32);
    auto* folderRow = new QHBoxLayout;
    folderRow->addWidget(edit("OUTPUTDIR"), 1);
    folderRow->addWidget(browseOutput);
    folderRow->addWidget(viewOutput);
    outputGrid->addWidget(label("Output Directory:"), 0, 0);
    outputGrid->addLayout(folderRow, 0, 1, 1, 2);
    outputGrid->addWidget(label("Prefix output filename:"), 1, 0);
    outputGrid->addWidget(macroList("PREFIXFILENAME"), 1, 1);
    outputGrid->addWidget(check("USESOURCEFILENAME", "Prefix with source filename"), 1, 2);
    outputGrid->addWidget(label("Postfix output filename:"), 2, 0);
    outputGrid->addWidget(macroList("POSTFIXFILENAME"), 2, 1);
    outputGrid->addWidget(check("USESOURCEFILENAMEPOST", "Postfix with source filename"), 2, 2);
    auto* switches = new QHBoxLayout;
    switches->addWidget(check("SPLITTOSOURCE", "Always split to source file directory (override below)"));
    switches->addWidget(check("ALWAYSOVERWRITE", "Always overwrite output file (if exists)"));
    switches->addWidget(check("ALWAYSAPPEND", "Append (if exists)"));
    switches->addStretch();
    outputGrid->addLayout(switches, 3, 0, 1, 3);
    outputGrid->setColumnStretch(1, 1);
    columns->addWidget(output, 2, 0, 1, 2);

    // How the name is taken from the text.
    auto* naming = new QGroupBox("Filename", form_);
    auto* namingGrid = new QGridLayout(naming);
    namingGrid->addWidget(label("Filename extract:"), 0, 0);
    namingGrid->addWidget(modeList("EXTRACT"), 0, 1, 1, 3);
    namingGrid->addWidget(label("Only take first:"), 1, 0);
    namingGrid->addWidget(edit("TAKENWORDSFORFILENAME", true), 1, 1);
    namingGrid->addWidget(label("words for filename extract / until first of word is:"), 1, 2);
    namingGrid->addWidget(edit("FIRSTCHAROFWORD"), 1, 3);
    namingGrid->addWidget(label("Only take first:"), 2, 0);
    namingGrid->addWidget(edit("TAKENCHARSFORFILENAME", true), 2, 1);
    namingGrid->addWidget(label("characters"), 2, 2, 1, 2);
    namingGrid->addWidget(label("or/and until word:"), 3, 0);
    namingGrid->addWidget(edit("UNTILCHARACTERFILENAME"), 3, 1, 1, 3);
    namingGrid->addWidget(label("Add:"), 4, 0);
    auto* between = edit("ADDBWORDS");
    between->setMaximumWidth(70);
    namingGrid->addWidget(between, 4, 1);
    namingGrid->addWidget(label("between words in output filename"), 4, 2, 1, 2);
    namingGrid->addWidget(label("while h position is less than"), 5, 0, 1, 2);
    namingGrid->addWidget(edit("UNTILHHPOSLESSTHAN", true), 5, 2);
    namingGrid->setColumnStretch(3, 1);
    columns->addWidget(naming, 3, 0);

    // Which pages make a range.
    auto* pages = new QGroupBox("Pages", form_);
    auto* pagesGrid = new QGridLayout(pages);
    pagesGrid->addWidget(label("Page extract:"), 0, 0);
    pagesGrid->addWidget(modeList("PAGEEXTRACT"), 0, 1, 1, 4);
    pagesGrid->addWidget(check("KEEPBOOKMARKS", "Keep Bookmarks"), 1, 1, 1, 4);
    pagesGrid->addWidget(label("Remove first:"), 2, 0);
    pagesGrid->addWidget(edit("OFFSETFIRST", true), 2, 1);
    pagesGrid->addWidget(label("output pages"), 2, 2, 1, 3);
    pagesGrid->addWidget(label("Start from page:"), 3, 0);
    pagesGrid->addWidget(edit("STARTFROMPAGE", true), 3, 1);
    pagesGrid->addWidget(label("to:"), 3, 2);
    pagesGrid->addWidget(edit("TOPAGE", true), 3, 3);
    pagesGrid->setColumnStretch(4, 1);
    pagesGrid->setRowStretch(4, 1);
    columns->addWidget(pages, 3, 1);
    columns->setColumnStretch(0, 3);
    columns->setColumnStretch(1, 2);
    layout->addWidget(form_);

    auto* bottom = new QHBoxLayout;
    auto* show = button("show", "&Show");
    auto* process = button("process", "Process Batch List");
    auto* cancel = button("cancel", "Cancel");
    process->setDefault(true);
    bottom->addStretch();
    bottom->addWidget(show);
    bottom->addWidget(process);
    bottom->addWidget(cancel);
    layout->addLayout(bottom);

    connect(loadSetup, &QPushButton::clicked, this, [this] {
        const QString path = QFileDialog::getOpenFileName(this, "Load pcs parameters file", {}, kSetupFilter);
        if (!path.isEmpty()) loadSetupFrom(path);
    });
    connect(saveSetup, &QPushButton::clicked, this, [this] {
        QString path = QFileDialog::getSaveFileName(this, "Save pcs parameters file", {}, kSetupFilter);
        if (path.isEmpty()) return;
        if (QFileInfo(path).suffix().isEmpty()) path += ".pcs";
        saveSetupTo(path);
    });
    connect(reportOptions, &QPushButton::clicked, this, &MainDialog::openReportOptions);
    connect(emailOptions, &QPushButton::clicked, this, &MainDialog::openEmailOptions);
    connect(scanOptions, &QPushButton::clicked, this, &MainDialog::openScanOptions);
    connect(pieceOptions, &QPushButton::clicked, this,
            [this] { openOptions(new PieceOptionsDialog(settings(), this)); });
    connect(batchList, &QPushButton::clicked, &window_, &ApplicationWindow::showBatchList);
    connect(help, &QPushButton::clicked, this, [this] {
        // One help window, brought back to the front when asked again.
        if (!help_) {
            help_ = new HelpWindow(this);
            help_->setAttribute(Qt::WA_DeleteOnClose);
        }
        help_->show();
        help_->raise();
        help_->activateWindow();
    });
    connect(browseFile, &QPushButton::clicked, this, [this, filename] {
        const QString path =
            QFileDialog::getOpenFileName(this, "Load PDF file", QFileInfo(filename->currentText()).path(), "*.pdf");
        if (path.isEmpty()) return;
        if (filename->findText(path) < 0) filename->addItem(path);
        filename->setEditText(path);
    });
    connect(viewFile, &QPushButton::clicked, this, [this, filename] {
        if (!filename->currentText().isEmpty()) window_.opener()(filename->currentText());
    });
    connect(browseOutput, &QPushButton::clicked, this, [this] {
        auto* folder = form_->findChild<QLineEdit*>("OUTPUTDIR");
        const std::string start = replaceDesktopToken(folder->text().toStdString(), pathText(desktopFolder()));
        if (const auto chosen = chooseFolder(this, kSaveFolderTitle, kSaveFolderPrompt, QString::fromStdString(start)))
            folder->setText(*chosen);
    });
    connect(viewOutput, &QPushButton::clicked, this, [this] {
        const std::string folder = replaceDesktopToken(form_->findChild<QLineEdit*>("OUTPUTDIR")->text().toStdString(),
                                                       pathText(desktopFolder()));
        if (!folder.empty()) window_.opener()(QString::fromStdString(folder));
    });
    connect(positions, &QPushButton::clicked, this, &MainDialog::viewCurrentPagePositions);
    connect(show, &QPushButton::clicked, this, &MainDialog::showMatches);
    connect(process, &QPushButton::clicked, this, &MainDialog::processBatchList);
    connect(cancel, &QPushButton::clicked, this, &QWidget::close);
    connect(form_->findChild<QComboBox*>("EXTRACT"), &QComboBox::currentIndexChanged, this,
            &MainDialog::filenameModeChosen);
    connect(form_->findChild<QComboBox*>("PAGEEXTRACT"), &QComboBox::currentIndexChanged, this,
            &MainDialog::extractModeChosen);
}

SplitSettings MainDialog::settings() const {
    SplitSettings settings = record_;
    takeSettings(form_, settings);
    settings.LASTPATH = window_.batchList().lastPath().toStdString();
    settings.LASTPATHSUB = window_.batchList().lastPathSub().toStdString();
    return settings;
}

void MainDialog::showInControls(const SplitSettings& settings) {
    record_ = settings;
    showing_ = true;
    showSettings(form_, settings);
    showing_ = false;
    enableForModes();
}

void MainDialog::enableFor(const FilenameControls& name, const PositionControls& position) {
    for (const auto& rule : kRuleControls) {
        QWidget* control = controlFor(form_, rule.key);
        control->setEnabled(rule.name ? name.*rule.name : position.*rule.position);
    }
}

void MainDialog::enableForModes() {
    // The rules on a copy tell which controls the current modes use.
    SplitSettings copy = settings();
    const FilenameControls name = normaliseFilenameMode(copy);
    copy = settings();
    enableFor(name, normaliseExtractMode(copy));
    // The rest-of-line modes grey the word and character limits, as the
    // dialog always has, yet the limits still cut the name: their tooltips
    // say so.
    const auto mode = filenameModeOf(copy.EXTRACT);
    const bool restOfLine = mode && takesRestOfLine(*mode);
    for (const char* key : {"TAKENWORDSFORFILENAME", "TAKENCHARSFORFILENAME"}) {
        QWidget* control = controlFor(form_, key);
        if (!control->property(kOwnTip).isValid()) control->setProperty(kOwnTip, control->toolTip());
        const QString own = control->property(kOwnTip).toString();
        control->setToolTip(restOfLine ? own + "\n\nGreyed in this naming mode, yet its value still cuts the name."
                                       : own);
    }
}

void MainDialog::filenameModeChosen() {
    if (showing_) return;
    SplitSettings changed = settings();
    normaliseFilenameMode(changed);
    showInControls(changed);
}

void MainDialog::extractModeChosen() {
    if (showing_) return;
    SplitSettings changed = settings();
    normaliseExtractMode(changed);
    showInControls(changed);
}

void MainDialog::loadSetupFrom(const QString& path) {
    SplitSettings loaded = settings();
    std::string name = path.toStdString();
    readParameters(name, loaded, {legacyFolder(), false});
    showInControls(loaded);
    if (QFileInfo::exists(path)) window_.rememberSetup(path);
}

void MainDialog::saveSetupTo(const QString& path) {
    MessageBoxInterface ui(this, window_.opener());
    // The batch list window exists: its folders are saved too.
    if (writeParameters(path.toStdString(), settings(), true, legacyFolder(), &ui)) window_.rememberSetup(path);
}

void MainDialog::writeSettingsFile() {
    const auto file = settingsFilePath();
    std::error_code ignored;
    std::filesystem::create_directories(file.parent_path(), ignored);
    writeParameters(pathText(file), settings(), true, legacyFolder(), nullptr);
}

void MainDialog::openOptions(OptionsDialog* dialog) {
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    connect(dialog, &QDialog::accepted, this, [this, dialog] {
        dialog->takeInto(record_);
        emit settingsEdited();
    });
    dialog->open();
}

void MainDialog::openReportOptions() { openOptions(new ReportOptionsDialog(settings(), this)); }

void MainDialog::openEmailOptions() {
    openOptions(new EmailSettingsDialog(settings(), mailTransportFromEnvironment(), window_.opener(), this));
}

void MainDialog::openScanOptions() { openOptions(new ScanOptionsDialog(settings(), this)); }

void MainDialog::viewCurrentPagePositions() {
    BatchJob job;
    job.settings = settings();
    job.currentDocument = window_.currentDocument().toStdString();
    MessageBoxInterface ui(this, window_.opener());
    MupdfHost host;
    if (const auto path = runPagePositions(job, host, ui, window_.currentPage())) window_.opener()(qt(pathText(*path)));
}

void MainDialog::takePosition(PositionUse use, const QString& word, int h, int v) {
    SplitSettings changed = settings();
    const std::string text = word.toStdString();
    switch (use) {
        case PositionUse::Search:
            changed.FINDSTRING = text;
            changed.MATCHPOSH = std::to_string(h);
            changed.MATCHPOSV = std::to_string(v);
            break;
        case PositionUse::Until:
            changed.EXTRACTUNTIL = text;
            changed.UNTILMATCHPOSH = h;
            changed.UNTILMATCHPOSV = v;
            break;
        case PositionUse::Email:
            changed.EMAILMATCHVERT = changed.EMAILMATCHVERTTO = v;
            changed.EMAILMATCHHORIZ = h;
            changed.EMAILMATCHHORIZTO = -1;
            break;
    }
    // Boxes the split mode does not use say which mode does, and offer it.
    const auto mode = pageExtractModeOf(changed.PAGEEXTRACT);
    const bool search = use == PositionUse::Search && !(mode && startsAtPosition(*mode));
    const bool until = use == PositionUse::Until && mode != PageExtractMode::UntilMatchAtPosition;
    if (search || until) {
        const std::string_view wanted =
            modeText(search ? PageExtractMode::NextMatchAtPosition : PageExtractMode::UntilMatchAtPosition);
        const QString question =
            QString("The position %1,%2 is used by the split mode \"%3\". Switch to it?").arg(h).arg(v).arg(qt(wanted));
        if (QMessageBox::question(this, windowTitle(), question) == QMessageBox::Yes) {
            changed.PAGEEXTRACT = wanted;
            normaliseExtractMode(changed);
        }
    }
    showInControls(changed);
    emit settingsEdited();
}

bool MainDialog::running() const { return runs_ && runs_->running(); }

void MainDialog::processBatchList() { startRun(true); }

void MainDialog::showMatches() { startRun(false); }

void MainDialog::showMatchCount(int page, const QString& word) {
    matchPage_ = page;
    matchWord_ = word;
    const QString of = matchCount_ < 0 ? QString("counting") : QString::number(matchCount_);
    window_.statusBar()->showMessage(
        QString("page %1: %2 (match %3 of %4)").arg(page + 1).arg(word).arg(matchShown_).arg(of));
}

// A window of the settings (the dialog, or the dock it floats in) that
// covers the highlight moves aside, to the side of it with the most room.
void MainDialog::keepClearOf(const QRect& mark) {
    QWidget* top = window();
    if (top == &window_ || !top->frameGeometry().intersects(mark)) return;
    const QRect frame = top->frameGeometry();
    const QRect screen = top->screen() ? top->screen()->availableGeometry() : QRect();
    const int right = mark.right() + 8;
    const int left = mark.left() - 8 - frame.width();
    const bool roomRight = screen.isEmpty() || right + frame.width() <= screen.right();
    const bool roomLeft = screen.isEmpty() || left >= screen.left();
    int x = roomRight || !roomLeft ? right : left;
    if (!roomRight && !roomLeft) x = screen.right() - frame.width();  // as far aside as the screen allows
    top->move(x, frame.top());
}

void MainDialog::startRun(bool batch) {
    if (running()) return;
    BatchJob job;
    job.settings = settings();
    if (!batch) {
        // "&Show" works on what the user sees: with no file named, or the
        // open document asked for, on the document in the view.
        if (job.settings.FILENAME.empty() || job.settings.USECURRENT) {
            if (window_.currentDocument().isEmpty()) {
                QMessageBox::information(this, windowTitle(),
                                         "There is nothing to show: name a PDF under Filename, or open one in the "
                                         "view.");
                return;
            }
            if (job.settings.FILENAME.empty()) job.settings.FILENAME = window_.currentDocument().toStdString();
        }
    }
    // "&Show" shows its matches on the document in view: the named file
    // becomes the current document.
    if (!batch && !job.settings.USECURRENT) {
        const QString file = QString::fromStdString(job.settings.FILENAME);
        if (QFileInfo(file).absoluteFilePath() != window_.currentDocument() && !window_.openDocument(file)) return;
    }
    if (batch) job.rows = window_.batchRows();
    if (job.settings.USECURRENT) job.currentDocument = window_.currentDocument().toStdString();
    job.mail = mailTransportFromEnvironment();
    if (!batch) {
        matchShown_ = 0;
        matchCount_ = -1;
        counter_->count(job);
    }
    setRunning(true);
    runs_->start(batch ? RunController::Kind::Batch : RunController::Kind::Show, std::move(job));
}

void MainDialog::setRunning(bool running) {
    // The settings and the buttons that start work stay still while a run
    // works; "Help" and "Cancel" (which stops the run) do not.
    form_->setEnabled(!running);
    for (auto* each : findChildren<QPushButton*>(QString(), Qt::FindDirectChildrenOnly))
        if (each->objectName() != "cancel" && each->objectName() != "help") each->setEnabled(!running);
    if (!running) enableForModes();
}

void MainDialog::runEnded(const BatchResult& result) {
    // What the rows' parameters files set stays for the fields without a
    // control here; the controls keep what the user set.
    record_ = result.settings;
    setRunning(false);
    emit runFinished(result);
}

void MainDialog::closeEvent(QCloseEvent* event) {
    if (running()) runs_->stop();
    QDialog::closeEvent(event);
}

}  // namespace vellira::ui
