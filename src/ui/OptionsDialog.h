// What the option dialogs share: they edit a copy of the settings in controls
// named after their keys; "Save/Exit" accepts the edits, "Cancel" drops them.
#pragma once

#include "core/SplitSettings.h"

#include <QComboBox>
#include <QDialog>

#include <array>
#include <initializer_list>
#include <string_view>

class QBoxLayout;
class QCheckBox;
class QGridLayout;
class QLabel;
class QLineEdit;

namespace vellira::ui {

class OptionsDialog : public QDialog {
    Q_OBJECT
public:
    // The dialog's fields taken over into `settings`.
    void takeInto(SplitSettings& settings) const;

protected:
    explicit OptionsDialog(QWidget* parent);
    // Shows the settings in the controls made so far and adds "Save/Exit" and
    // "Cancel" under `layout`; called last by each dialog's constructor.
    void finish(QBoxLayout* layout, const SplitSettings& settings);
    // A line edit for the key `key`; integer keys take digits only.
    QLineEdit* edit(const char* key);
    // A short line edit for an integer key that takes only bottom..top.
    QLineEdit* number(const char* key, int bottom, int top);
    // A note under a control, smaller and paler than a label.
    static QLabel* hint(QWidget* parent, const QString& text);
    // The label of a key's control, and a check box for a flag key.
    static QString labelOf(const char* key);
    static QCheckBox* check(QWidget* parent, const char* key);
    // A list of a key's modes; it offers only them.
    template <std::size_t N>
    static QComboBox* modeList(QWidget* parent, const char* key, const std::array<std::string_view, N>& modes) {
        auto* list = new QComboBox(parent);
        list->setObjectName(key);
        for (const auto text : modes)
            list->addItem(QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size())));
        return list;
    }
    // The labels of the groups' first columns take one width, so their
    // controls stand in one line down the dialog.
    static void alignLabels(std::initializer_list<QGridLayout*> grids);
};

}  // namespace vellira::ui
