#include "ui/SettingsBinding.h"

#include <QCheckBox>
#include <QComboBox>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QWidget>

namespace vellira::ui {

namespace {

QString qt(const std::string& text) { return QString::fromStdString(text); }

constexpr const char* kCrLf = "velliraCrLf";

// The label that names `control`: its buddy, or else the label in the cell
// just left of it in the grid of its parent, where it or the row of controls
// it stands in has a cell of its own.
QLabel* labelOf(const QWidget* control) {
    QWidget* parent = control->parentWidget();
    if (!parent) return nullptr;
    for (QLabel* label : parent->findChildren<QLabel*>(QString(), Qt::FindDirectChildrenOnly))
        if (label->buddy() == control) return label;
    auto* grid = qobject_cast<QGridLayout*>(parent->layout());
    if (!grid) return nullptr;
    for (int index = 0; index < grid->count(); ++index) {
        QLayoutItem* item = grid->itemAt(index);
        if (item->widget() != control && !(item->layout() && item->layout()->indexOf(control) >= 0)) continue;
        int row = 0, column = 0, rows = 0, columns = 0;
        grid->getItemPosition(index, &row, &column, &rows, &columns);
        QLayoutItem* left = column > 0 ? grid->itemAtPosition(row, column - 1) : nullptr;
        return left ? qobject_cast<QLabel*>(left->widget()) : nullptr;
    }
    return nullptr;
}

}  // namespace

QWidget* controlFor(const QWidget* root, std::string_view key) {
    return root->findChild<QWidget*>(QString::fromUtf8(key.data(), static_cast<qsizetype>(key.size())));
}

void showKeyMeanings(QWidget* root) {
    for (const SettingsKey& key : settingsKeys()) {
        QWidget* control = controlFor(root, key.name);
        if (!control) continue;
        const QString meaning = QString::fromUtf8(key.meaning.data(), static_cast<qsizetype>(key.meaning.size()));
        const QString own = control->toolTip();
        control->setToolTip(own.isEmpty() ? meaning : own + "\n\n" + meaning);
        if (QLabel* label = labelOf(control); label && label->toolTip().isEmpty())
            label->setToolTip(control->toolTip());
    }
}

void showSettings(QWidget* root, const SplitSettings& settings) {
    for (const SettingsKey& key : settingsKeys()) {
        QWidget* control = controlFor(root, key.name);
        if (!control) continue;
        const QString value = qt(keyValueText(key, settings));
        if (auto* box = qobject_cast<QCheckBox*>(control)) {
            box->setChecked(value != "0");
        } else if (auto* line = qobject_cast<QLineEdit*>(control)) {
            line->setText(value);
        } else if (auto* combo = qobject_cast<QComboBox*>(control)) {
            if (combo->isEditable()) {
                combo->setEditText(value);
            } else {
                combo->setCurrentIndex(combo->findText(value));
            }
        } else if (auto* text = qobject_cast<QPlainTextEdit*>(control)) {
            // The editor knows only "\n"; a text written with "\r\n" gets
            // its line ends back when it is taken.
            text->setProperty(kCrLf, value.contains("\r\n"));
            text->setPlainText(QString(value).replace("\r\n", "\n"));
        }
    }
}

void takeSettings(const QWidget* root, SplitSettings& settings) {
    for (const SettingsKey& key : settingsKeys()) {
        const QWidget* control = controlFor(root, key.name);
        if (!control) continue;
        QString value;
        if (const auto* box = qobject_cast<const QCheckBox*>(control)) {
            value = box->isChecked() ? "1" : "0";
        } else if (const auto* line = qobject_cast<const QLineEdit*>(control)) {
            value = line->text();
        } else if (const auto* combo = qobject_cast<const QComboBox*>(control)) {
            // A mode list without a choice keeps the setting as it was.
            if (!combo->isEditable() && combo->currentIndex() < 0) continue;
            value = combo->currentText();
        } else if (const auto* text = qobject_cast<const QPlainTextEdit*>(control)) {
            value = text->toPlainText();
            if (text->property(kCrLf).toBool()) value.replace("\n", "\r\n");
        } else {
            continue;
        }
        assignKey(settings, key, value.toStdString());
    }
}

}  // namespace vellira::ui
