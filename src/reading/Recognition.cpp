#include "reading/Recognition.h"

#include "core/Platform.h"

#include <algorithm>
#include <stdexcept>

namespace vellira {

namespace {

struct Loaded {
    const OcrWire* wire = nullptr;
    std::string failure;
};

Loaded load() {
#ifdef VELLIRA_OCR_WIRE_LINKED
    return {vellira_ocr_wire(), {}};
#else
    Loaded loaded;
    if (void* entry = moduleFunction(VELLIRA_OCR_WIRE_PATH, "vellira_ocr_wire", loaded.failure))
        loaded.wire = reinterpret_cast<const OcrWire* (*)()>(entry)();
    return loaded;
#endif
}

}  // namespace

const OcrWire& ocrWire() {
    static const Loaded loaded = load();
    if (!loaded.wire) throw std::runtime_error("cannot load the text recognition (OCR): " + loaded.failure);
    return *loaded.wire;
}

TextRecognition textRecognitionFor(const SplitSettings& settings) {
    TextRecognition recognition;
    if (settings.OCR == kOcrModes[1])
        recognition.pages = TextRecognition::Pages::WithoutText;
    else if (settings.OCR == kOcrModes[2])
        recognition.pages = TextRecognition::Pages::All;
    recognition.dpi = std::clamp(settings.OCRRESOLUTION, 36, 1200);
    const std::string languages = settings.OCRLANGUAGES.empty() ? "eng" : settings.OCRLANGUAGES;
    const int confidence = std::clamp(settings.OCRCONFIDENCE, 0, 100);
    recognition.key = languages + "/" + std::to_string(confidence);
    recognition.textLayer = settings.OCRTEXTLAYER != 0;
    recognition.make = [languages, confidence] { return ocrWire().create(languages, confidence); };
    return recognition;
}

}  // namespace vellira
