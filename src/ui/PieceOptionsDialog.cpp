#include "ui/PieceOptionsDialog.h"

#include <QCheckBox>
#include <QFileDialog>
#include <QGridLayout>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace vellira::ui {

PieceOptionsDialog::PieceOptionsDialog(const SplitSettings& settings, QWidget* parent) : OptionsDialog(parent) {
    setObjectName("PieceOptionsDialog");
    setWindowTitle("Values and Checks");
    auto* layout = new QVBoxLayout(this);

    auto* values = new QGroupBox("Pieces by value", this);
    auto* valueGrid = new QGridLayout(values);
    auto* change = check(values, "SPLITONCHANGE");
    auto* area = edit("VALUEAREA");
    area->setPlaceholderText("left,bottom,right,top, such as 450,760,580,790");
    auto* group = check(values, "GROUPBYVALUE");
    valueGrid->addWidget(change, 0, 0, 1, 3);
    valueGrid->addWidget(new QLabel(labelOf("VALUEAREA"), values), 1, 0);
    valueGrid->addWidget(area, 1, 1, 1, 2);
    valueGrid->addWidget(hint(values,
                              "Empty: the word after the search text, its pattern's group,\n"
                              "or the word at the position of the position split modes"),
                         2, 1, 1, 2);
    valueGrid->addWidget(group, 3, 0, 1, 3);
    valueGrid->setColumnStretch(2, 1);
    layout->addWidget(values);

    auto* lookup = new QGroupBox("Lookup list", this);
    auto* lookupGrid = new QGridLayout(lookup);
    auto* file = edit("LOOKUPFILE");
    file->setPlaceholderText("no list");
    file->setMinimumWidth(260);
    auto* browse = new QPushButton("Browse...", lookup);
    browse->setObjectName("browseLookup");
    auto* key = edit("LOOKUPKEYCOLUMN");
    key->setPlaceholderText("the first column");
    auto* email = edit("LOOKUPEMAILCOLUMN");
    email->setPlaceholderText("the address on the pages");
    auto* missing = modeList(lookup, "LOOKUPMISSING", kLookupMissingModes);
    lookupGrid->addWidget(new QLabel(labelOf("LOOKUPFILE"), lookup), 0, 0);
    lookupGrid->addWidget(file, 0, 1, 1, 2);
    lookupGrid->addWidget(browse, 0, 3);
    lookupGrid->addWidget(hint(lookup, "Each column is a macro for the names and the mail subject: [COL:Name]"), 1, 1,
                          1, 3);
    lookupGrid->addWidget(new QLabel(labelOf("LOOKUPKEYCOLUMN"), lookup), 2, 0);
    lookupGrid->addWidget(key, 2, 1, 1, 2);
    lookupGrid->addWidget(new QLabel(labelOf("LOOKUPEMAILCOLUMN"), lookup), 3, 0);
    lookupGrid->addWidget(email, 3, 1, 1, 2);
    lookupGrid->addWidget(new QLabel(labelOf("LOOKUPMISSING"), lookup), 4, 0);
    lookupGrid->addWidget(missing, 4, 1);
    lookupGrid->setColumnStretch(2, 1);
    layout->addWidget(lookup);
    connect(browse, &QPushButton::clicked, this, [this, file] {
        const QString chosen = QFileDialog::getOpenFileName(this, "List of values", file->text(),
                                                            "CSV lists (*.csv *.txt);;All files (*)");
        if (!chosen.isEmpty()) file->setText(chosen);
    });

    auto* checks = new QGroupBox("Checks before the pieces go out", this);
    auto* checkGrid = new QGridLayout(checks);
    auto* pageOf = edit("CHECKPAGEOF");
    pageOf->setPlaceholderText("Page (\\d+) of (\\d+)");
    auto* fewest = number("CHECKMINPAGES", 0, 1000000);
    auto* most = number("CHECKMAXPAGES", 0, 1000000);
    auto* shape = edit("CHECKVALUE");
    shape->setPlaceholderText("any value, or a pattern such as C-\\d{5}");
    auto* folder = edit("EXCEPTIONSFOLDER");
    auto* listOnly = check(checks, "EXCEPTIONSLISTONLY");
    checkGrid->addWidget(new QLabel(labelOf("CHECKPAGEOF"), checks), 0, 0);
    checkGrid->addWidget(pageOf, 0, 1, 1, 3);
    checkGrid->addWidget(new QLabel(labelOf("CHECKMINPAGES"), checks), 1, 0);
    checkGrid->addWidget(fewest, 1, 1);
    checkGrid->addWidget(new QLabel(labelOf("CHECKMAXPAGES"), checks), 1, 2, Qt::AlignRight);
    checkGrid->addWidget(most, 1, 3);
    checkGrid->addWidget(hint(checks, "0: no bound"), 2, 1, 1, 3);
    checkGrid->addWidget(new QLabel(labelOf("CHECKVALUE"), checks), 3, 0);
    checkGrid->addWidget(shape, 3, 1, 1, 3);
    checkGrid->addWidget(new QLabel(labelOf("EXCEPTIONSFOLDER"), checks), 4, 0);
    checkGrid->addWidget(folder, 4, 1, 1, 3);
    checkGrid->addWidget(hint(checks,
                              "Beside each piece's own folder unless a full path;\nexceptions.csv there lists "
                              "every exception"),
                         5, 1, 1, 3);
    checkGrid->addWidget(listOnly, 6, 0, 1, 4);
    checkGrid->setColumnStretch(4, 1);
    layout->addWidget(checks);
    alignLabels({valueGrid, lookupGrid, checkGrid});

    // A control is greyed while the settings before it leave it without
    // effect.
    const auto follow = [=] {
        area->setEnabled(change->isChecked());
        const bool listed = !file->text().trimmed().isEmpty();
        for (QWidget* each : std::initializer_list<QWidget*>{key, email, missing}) each->setEnabled(listed);
        folder->setEnabled(!listOnly->isChecked());
    };
    connect(change, &QCheckBox::toggled, this, follow);
    connect(listOnly, &QCheckBox::toggled, this, follow);
    connect(file, &QLineEdit::textChanged, this, follow);
    finish(layout, settings);
    follow();
}

}  // namespace vellira::ui
