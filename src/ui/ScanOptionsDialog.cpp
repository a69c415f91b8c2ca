#include "ui/ScanOptionsDialog.h"

#include <QCheckBox>
#include <QComboBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QIntValidator>
#include <QLabel>
#include <QLineEdit>
#include <QVBoxLayout>

namespace vellira::ui {

namespace {

QString labelOf(const char* key) {
    const std::string_view label = findSettingsKey(key)->label;
    return QString::fromUtf8(label.data(), static_cast<qsizetype>(label.size()));
}

QLabel* hint(QWidget* parent, const QString& text) {
    auto* label = new QLabel(text, parent);
    QFont font = label->font();
    font.setPointSizeF(font.pointSizeF() * 0.9);
    label->setFont(font);
    label->setForegroundRole(QPalette::PlaceholderText);
    return label;
}

}  // namespace

ScanOptionsDialog::ScanOptionsDialog(const SplitSettings& settings, QWidget* parent) : OptionsDialog(parent) {
    setObjectName("ScanOptionsDialog");
    setWindowTitle("Scan Options");
    auto* layout = new QVBoxLayout(this);
    auto* group = new QGroupBox("Text recognition", this);
    auto* grid = new QGridLayout(group);

    auto* mode = new QComboBox(group);
    mode->setObjectName("OCR");
    for (const auto text : kOcrModes)
        mode->addItem(QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size())));
    auto* languages = edit("OCRLANGUAGES");
    languages->setMinimumWidth(220);
    // The ranges the reader keeps to: a number above them cannot be typed.
    const auto number = [this](const char* key, int bottom, int top) {
        auto* line = edit(key);
        line->setValidator(new QIntValidator(bottom, top, line));
        line->setMaximumWidth(70);
        return line;
    };
    auto* resolution = number("OCRRESOLUTION", 36, 1200);
    auto* confidence = number("OCRCONFIDENCE", 0, 100);
    auto* layer = new QCheckBox(labelOf("OCRTEXTLAYER"), group);
    layer->setObjectName("OCRTEXTLAYER");
    layer->setToolTip("Each output page read from its image gets the words read as invisible text under the image");

    grid->addWidget(new QLabel(labelOf("OCR"), group), 0, 0);
    grid->addWidget(mode, 0, 1, 1, 2);
    grid->addWidget(new QLabel(labelOf("OCRLANGUAGES"), group), 1, 0);
    grid->addWidget(languages, 1, 1, 1, 2);
    grid->addWidget(hint(group, "Each language is a package: tesseract-ocr-eng, tesseract-ocr-deu, ..."), 2, 1, 1, 2);
    grid->addWidget(new QLabel(labelOf("OCRRESOLUTION"), group), 3, 0);
    grid->addWidget(resolution, 3, 1);
    grid->addWidget(new QLabel(labelOf("OCRCONFIDENCE"), group), 4, 0);
    grid->addWidget(confidence, 4, 1);
    grid->addWidget(layer, 5, 0, 1, 3);
    grid->setColumnStretch(2, 1);
    layout->addWidget(group);

    // The other settings matter only while pages are read.
    const auto follow = [mode, languages, resolution, confidence, layer] {
        const bool reading = mode->currentIndex() != 0;
        for (QLineEdit* each : {languages, resolution, confidence}) each->setEnabled(reading);
        layer->setEnabled(reading);
    };
    connect(mode, &QComboBox::currentIndexChanged, this, follow);
    finish(layout, settings);
    follow();
}

}  // namespace vellira::ui
