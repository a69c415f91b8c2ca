#include "ui/SettingsBinding.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QWidget>

namespace vellira::ui {

namespace {

QString qt(const std::string& text) { return QString::fromStdString(text); }

constexpr const char* kCrLf = "velliraCrLf";

}  // namespace

QWidget* controlFor(const QWidget* root, std::string_view key) {
    return root->findChild<QWidget*>(QString::fromUtf8(key.data(), static_cast<qsizetype>(key.size())));
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
