#include "ui/OptionsDialog.h"

#include "ui/SettingsBinding.h"

#include <QBoxLayout>
#include <QDialogButtonBox>
#include <QIntValidator>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>

namespace vellira::ui {

OptionsDialog::OptionsDialog(QWidget* parent) : QDialog(parent) {}

void OptionsDialog::takeInto(SplitSettings& settings) const { takeSettings(this, settings); }

QLineEdit* OptionsDialog::edit(const char* key) {
    auto* line = new QLineEdit(this);
    line->setObjectName(key);
    if (const SettingsKey* found = findSettingsKey(key); found && found->type == KeyType::Integer)
        line->setValidator(new QIntValidator(line));
    return line;
}

QLabel* OptionsDialog::hint(QWidget* parent, const QString& text) {
    auto* label = new QLabel(text, parent);
    QFont font = label->font();
    font.setPointSizeF(font.pointSizeF() * 0.9);
    label->setFont(font);
    label->setForegroundRole(QPalette::PlaceholderText);
    return label;
}

void OptionsDialog::finish(QBoxLayout* layout, const SplitSettings& settings) {
    // Every control is in its layout now: the labels beside them are found.
    showSettings(this, settings);
    showKeyMeanings(this);
    auto* buttons = new QDialogButtonBox(this);
    auto* save = buttons->addButton("Save/Exit", QDialogButtonBox::AcceptRole);
    save->setObjectName("saveExit");
    save->setDefault(true);
    buttons->addButton("Cancel", QDialogButtonBox::RejectRole)->setObjectName("cancel");
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    layout->addWidget(buttons);
}

}  // namespace vellira::ui
