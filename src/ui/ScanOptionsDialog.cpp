#include "ui/ScanOptionsDialog.h"

#include "core/DocumentHost.h"

#include <QCheckBox>
#include <QComboBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QIntValidator>
#include <QLabel>
#include <QLineEdit>
#include <QVBoxLayout>

#include <algorithm>

namespace vellira::ui {

namespace {

QString qt(std::string_view text) { return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size())); }

}  // namespace

ScanOptionsDialog::ScanOptionsDialog(const SplitSettings& settings, QWidget* parent) : OptionsDialog(parent) {
    setObjectName("ScanOptionsDialog");
    setWindowTitle("Scan Options");
    auto* layout = new QVBoxLayout(this);

    auto* text = new QGroupBox("Text recognition", this);
    auto* textGrid = new QGridLayout(text);
    auto* mode = modeList(text, "OCR", kOcrModes);
    auto* languages = edit("OCRLANGUAGES");
    languages->setMinimumWidth(220);
    auto* resolution = number("OCRRESOLUTION", 36, 1200);
    auto* confidence = number("OCRCONFIDENCE", 0, 100);
    auto* layer = check(text, "OCRTEXTLAYER");
    layer->setToolTip("Each output page read from its image gets the words read as invisible text under the image");
    textGrid->addWidget(new QLabel(labelOf("OCR"), text), 0, 0);
    textGrid->addWidget(mode, 0, 1, 1, 2);
    textGrid->addWidget(new QLabel(labelOf("OCRLANGUAGES"), text), 1, 0);
    textGrid->addWidget(languages, 1, 1, 1, 2);
    textGrid->addWidget(hint(text, "Each language is a package: tesseract-ocr-eng, tesseract-ocr-deu, ..."), 2, 1, 1,
                        2);
    textGrid->addWidget(new QLabel(labelOf("OCRRESOLUTION"), text), 3, 0);
    textGrid->addWidget(resolution, 3, 1);
    textGrid->addWidget(new QLabel(labelOf("OCRCONFIDENCE"), text), 4, 0);
    textGrid->addWidget(confidence, 4, 1);
    textGrid->addWidget(layer, 5, 0, 1, 3);
    textGrid->setColumnStretch(2, 1);
    layout->addWidget(text);

    auto* code = new QGroupBox("Codes", this);
    auto* codeGrid = new QGridLayout(code);
    auto* codes = modeList(code, "CODES", kOcrModes);
    auto* formats = edit("CODEFORMATS");
    formats->setPlaceholderText("every kind");
    // The kinds' names on two lines, as wide as the languages' hint.
    QStringList names;
    for (std::size_t kind = 1; kind < kCodeFormatNames.size(); ++kind) names << qt(kCodeFormatNames[kind]);
    const auto half = names.size() / 2 + 1;
    auto* formatNames =
        hint(code, "Any of " + names.first(half).join(", ") + ",\n" + names.sliced(half).join(", ") + ", joined by +");
    auto* codeResolution = number("CODERESOLUTION", 36, 1200);
    codeGrid->addWidget(new QLabel(labelOf("CODES"), code), 0, 0);
    codeGrid->addWidget(codes, 0, 1, 1, 2);
    codeGrid->addWidget(new QLabel(labelOf("CODEFORMATS"), code), 1, 0);
    codeGrid->addWidget(formats, 1, 1, 1, 2);
    codeGrid->addWidget(formatNames, 2, 1, 1, 2);
    codeGrid->addWidget(new QLabel(labelOf("CODERESOLUTION"), code), 3, 0);
    codeGrid->addWidget(codeResolution, 3, 1);
    codeGrid->setColumnStretch(2, 1);
    layout->addWidget(code);

    auto* sheets = new QGroupBox("Separator sheets and blank pages", this);
    auto* sheetGrid = new QGridLayout(sheets);
    auto* separator = modeList(sheets, "SEPARATOR", kSeparatorModes);
    auto* value = edit("SEPARATORTEXT");
    auto* keep = check(sheets, "KEEPSEPARATOR");
    auto* naming = check(sheets, "SEPARATORNAMES");
    auto* drop = check(sheets, "DROPBLANKPAGES");
    sheetGrid->addWidget(new QLabel(labelOf("SEPARATOR"), sheets), 0, 0);
    sheetGrid->addWidget(separator, 0, 1, 1, 2);
    sheetGrid->addWidget(new QLabel(labelOf("SEPARATORTEXT"), sheets), 1, 0);
    sheetGrid->addWidget(value, 1, 1, 1, 2);
    sheetGrid->addWidget(keep, 2, 0, 1, 3);
    sheetGrid->addWidget(naming, 3, 0, 1, 3);
    sheetGrid->addWidget(drop, 4, 0, 1, 3);
    sheetGrid->setColumnStretch(2, 1);
    layout->addWidget(sheets);
    alignLabels({textGrid, codeGrid, sheetGrid});

    // A control is greyed while the settings before it leave it without
    // effect: a list that shows none of its modes counts as its first.
    const auto follow = [=] {
        const bool reading = mode->currentIndex() > 0;
        for (QWidget* each : std::initializer_list<QWidget*>{languages, resolution, confidence, layer})
            each->setEnabled(reading);

        // Only a sheet found by its code has a value to look for, to name a
        // piece by, and can be kept; a blank sheet is always left out, so
        // blank pages are left out already. Sheets found by their code have
        // codes read even with codes off.
        const QString kind = separator->currentText();
        const bool blankSheet = kind == qt(kSeparatorModes[4]);
        const bool codeSheet = separator->currentIndex() > 0 && !blankSheet;
        const bool readingCodes = codes->currentIndex() > 0 || codeSheet;
        for (QWidget* each : std::initializer_list<QWidget*>{formats, formatNames, codeResolution})
            each->setEnabled(readingCodes);

        for (QWidget* each : std::initializer_list<QWidget*>{value, keep, naming}) each->setEnabled(codeSheet);
        drop->setEnabled(!blankSheet);
        value->setPlaceholderText(kind == qt(kSeparatorModes[1])   ? "the whole value, such as NEXT"
                                  : kind == qt(kSeparatorModes[2]) ? "its beginning, such as SEP-"
                                  : kind == qt(kSeparatorModes[3]) ? "a kind, such as QRCode"
                                                                   : QString());
    };
    for (QComboBox* list : {mode, codes, separator}) connect(list, &QComboBox::currentIndexChanged, this, follow);
    finish(layout, settings);
    follow();
}

}  // namespace vellira::ui
