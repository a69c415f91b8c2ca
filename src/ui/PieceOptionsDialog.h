// "Values and Checks": pieces cut where a value changes and gathered by it,
// names and recipients from a lookup list, and the checks a piece must pass
// before it goes out.
#pragma once

#include "ui/OptionsDialog.h"

namespace vellira::ui {

class PieceOptionsDialog : public OptionsDialog {
    Q_OBJECT
public:
    explicit PieceOptionsDialog(const SplitSettings& settings, QWidget* parent = nullptr);
};

}  // namespace vellira::ui
