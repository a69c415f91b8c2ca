#include "ui/OptionsDialog.h"

#include "ui/SettingsBinding.h"

#include <QBoxLayout>
#include <QCheckBox>
#include <QDialogButtonBox>
#include <QGridLayout>
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

QLineEdit* OptionsDialog::number(const char* key, int bottom, int top) {
    auto* line = edit(key);
    line->setValidator(new QIntValidator(bottom, top, line));
    line->setMaximumWidth(70);
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

QString OptionsDialog::labelOf(const char* key) {
    const std::string_view label = findSettingsKey(key)->label;
    return QString::fromUtf8(label.data(), static_cast<qsizetype>(label.size()));
}

QCheckBox* OptionsDialog::check(QWidget* parent, const char* key) {
    auto* box = new QCheckBox(labelOf(key), parent);
    box->setObjectName(key);
    return box;
}

void OptionsDialog::alignLabels(std::initializer_list<QGridLayout*> grids) {
    int width = 0;
    for (QGridLayout* grid : grids)
        for (int row = 0; row < grid->rowCount(); ++row)
            if (QLayoutItem* item = grid->itemAtPosition(row, 0); item && qobject_cast<QLabel*>(item->widget()))
                width = std::max(width, item->widget()->sizeHint().width());
    for (QGridLayout* grid : grids) grid->setColumnMinimumWidth(0, width);
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
