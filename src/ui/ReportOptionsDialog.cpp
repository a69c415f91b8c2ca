#include "ui/ReportOptionsDialog.h"

#include "ui/FolderChooser.h"

#include <QCheckBox>
#include <QFileDialog>
#include <QGridLayout>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace vellira::ui {

ReportOptionsDialog::ReportOptionsDialog(const SplitSettings& settings, QWidget* parent) : OptionsDialog(parent) {
    setObjectName("ReportOptionsDialog");
    setWindowTitle("Report Options");
    auto* layout = new QVBoxLayout(this);
    auto* group = new QGroupBox("Reports", this);
    auto* grid = new QGridLayout(group);
    const auto check = [&](const char* key, const char* label, int row) {
        auto* box = new QCheckBox(label, group);
        box->setObjectName(key);
        grid->addWidget(box, row, 0, 1, 3);
        return box;
    };
    check("REPORTOPTIONSTXT", "Always write out a txt report file", 0);
    check("REPORTOPTIONSCSV", "Always write out a csv report file", 1);
    auto* beside = check("REPORTOPTIONSCURRENT", "Always write to current source file folder", 2);
    auto* folder = edit("REPORTOPTIONSOUTPUTFOLDER");
    folder->setMinimumWidth(320);
    auto* browse = new QPushButton("&Browse", group);
    browse->setObjectName("browseReportFolder");
    grid->addWidget(new QLabel("Output folder:", group), 3, 0);
    grid->addWidget(folder, 3, 1);
    grid->addWidget(browse, 3, 2);
    layout->addWidget(group);
    connect(browse, &QPushButton::clicked, this, [this, folder] {
        if (const auto chosen = chooseFolder(this, kSaveFolderTitle, kSaveFolderPrompt, folder->text()))
            folder->setText(*chosen);
    });
    // The folder is used only while the reports do not go beside the source.
    const auto follow = [folder, browse](bool besideSource) {
        folder->setEnabled(!besideSource);
        browse->setEnabled(!besideSource);
    };
    connect(beside, &QCheckBox::toggled, this, follow);
    finish(layout, settings);
    follow(beside->isChecked());
}

}  // namespace vellira::ui
