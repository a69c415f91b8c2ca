// "Report Options": which reports a run writes, and where.
#pragma once

#include "ui/OptionsDialog.h"

namespace vellira::ui {

class ReportOptionsDialog : public OptionsDialog {
    Q_OBJECT
public:
    explicit ReportOptionsDialog(const SplitSettings& settings, QWidget* parent = nullptr);
};

}  // namespace vellira::ui
