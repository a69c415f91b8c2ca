// What the option dialogs share: they edit a copy of the settings in controls
// named after their keys; "Save/Exit" accepts the edits, "Cancel" drops them.
#pragma once

#include "core/SplitSettings.h"

#include <QDialog>

class QBoxLayout;
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
    // A note under a control, smaller and paler than a label.
    static QLabel* hint(QWidget* parent, const QString& text);
};

}  // namespace vellira::ui
