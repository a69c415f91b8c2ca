// "Scan Options": whether pages are read from their image (OCR), in which
// languages, at what resolution, and the least confidence a word read needs.
#pragma once

#include "ui/OptionsDialog.h"

namespace vellira::ui {

class ScanOptionsDialog : public OptionsDialog {
    Q_OBJECT
public:
    explicit ScanOptionsDialog(const SplitSettings& settings, QWidget* parent = nullptr);
};

}  // namespace vellira::ui
