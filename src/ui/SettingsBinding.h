// Where controls and settings meet: every control that edits a setting is
// named after its parameters-file key (its object name), and these two calls
// move values between such controls and a SplitSettings record through the
// one key table. Line edits hold text or integers as the key's type says,
// check boxes flags, combo boxes texts (mode lists only their modes), and
// plain text edits several lines of text.
#pragma once

#include "core/SplitSettings.h"

class QWidget;

namespace vellira::ui {

// Shows the value of every key that has a control under `root`.
void showSettings(QWidget* root, const SplitSettings& settings);

// Takes the value of every control under `root` into the key it edits.
void takeSettings(const QWidget* root, SplitSettings& settings);

// Gives every control under `root` that edits a key the key's meaning as its
// tooltip, the text `vellira-batch keys` shows for it, after a blank line
// where the control has a tooltip of its own; the label beside the control
// (its buddy, or the label just left of it in its grid) shows the same.
// Called once, when the controls are laid out.
void showKeyMeanings(QWidget* root);

// The control under `root` that edits `key`, if any.
QWidget* controlFor(const QWidget* root, std::string_view key);

}  // namespace vellira::ui
