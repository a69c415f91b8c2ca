// "Scan Options": how pages are read from their image. Text (OCR): which
// pages, in which languages, at what resolution, and the least confidence a
// word read needs. Codes: which pages, which kinds, at what resolution.
// Separator sheets: what makes a page one, and what becomes of it; and
// whether blank pages are left out.
#pragma once

#include "ui/OptionsDialog.h"

namespace vellira::ui {

class ScanOptionsDialog : public OptionsDialog {
    Q_OBJECT
public:
    explicit ScanOptionsDialog(const SplitSettings& settings, QWidget* parent = nullptr);
};

}  // namespace vellira::ui
