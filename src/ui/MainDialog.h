// The main dialog: every setting of a split job in its control, setups loaded
// and saved, the option dialogs and the batch list opened from it, and the
// job tried with "&Show" or run with "Process Batch List", on a worker thread.
//
// The controls of the dialog and of its option dialogs edit the settings
// named by their object names (SettingsBinding); the fields without a control
// here (reports, e-mail, reading scanned pages, the working "Remove first"
// copy) are kept in a record of the dialog's own.
#pragma once

#include "core/SplitSettings.h"
#include "run/BatchJob.h"

#include <QDialog>
#include <QPointer>

class QComboBox;
class QGridLayout;
class QLineEdit;
class QPushButton;

namespace vellira::ui {

class ApplicationWindow;
class OptionsDialog;
class HelpWindow;
class MatchCounter;
class RunController;

// Where a word's position taken from the page view goes.
enum class PositionUse {
    Search,  // the search text and its "At Position h:" / "v:"
    Until,   // the until text and its position
    Email,   // the e-mail match bounds: that line, from that word on
};

class MainDialog : public QDialog {
    Q_OBJECT
public:
    // Reads the settings file into the controls.
    explicit MainDialog(ApplicationWindow& window);
    // Writes the settings file from the controls.
    ~MainDialog() override;

    // The settings as the controls and the option dialogs hold them.
    SplitSettings settings() const;
    // Puts settings into the controls, as "&Load Setup" does.
    void showInControls(const SplitSettings& settings);

    // "&Load Setup" and "&Save Setup" once their file is chosen.
    void loadSetupFrom(const QString& path);
    void saveSetupTo(const QString& path);

    // "Process Batch List" and "&Show": a run on the worker thread.
    void processBatchList();
    void showMatches();
    bool running() const;
    RunController& runs() { return *runs_; }

    // Puts a word and its position into the settings `use` names.
    void takePosition(PositionUse use, const QString& word, int h, int v);

signals:
    // A setting was changed, in a control or an option dialog.
    void settingsEdited();
    // A run ended, with what it came to.
    void runFinished(const vellira::BatchResult& result);

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void build();
    QLineEdit* edit(const char* key, bool integer = false);
    QComboBox* modeList(const char* key);
    QComboBox* macroList(const char* key);
    QPushButton* button(const char* name, const QString& text);
    void filenameModeChosen();
    void extractModeChosen();
    void enableFor(const FilenameControls& name, const PositionControls& position);
    void enableForModes();
    // Opens an option dialog; "Save/Exit" takes its fields over.
    void openOptions(OptionsDialog* dialog);
    void openReportOptions();
    void openEmailOptions();
    void openScanOptions();
    void viewCurrentPagePositions();
    void startRun(bool batch);
    void setRunning(bool running);
    void runEnded(const BatchResult& result);
    void writeSettingsFile();
    // "&Show": the match in view, and which of how many, in the status bar;
    // the dialog kept from covering it.
    void showMatchCount(int page, const QString& word);
    void keepClearOf(const QRect& mark);

    ApplicationWindow& window_;
    SplitSettings record_;  // what no control of this dialog holds
    RunController* runs_;
    MatchCounter* counter_;
    QPointer<HelpWindow> help_;
    int matchShown_ = 0;   // the matches "&Show" has shown
    int matchCount_ = -1;  // how many it will show, once counted
    int matchPage_ = 0;
    QString matchWord_;
    bool showing_ = false;  // controls are being filled: no rules apply
    bool closing_ = false;
    QWidget* form_ = nullptr;
};

}  // namespace vellira::ui
