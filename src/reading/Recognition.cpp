#include "reading/Recognition.h"

#include "core/Platform.h"

#include <algorithm>
#include <stdexcept>

namespace vellira {

namespace {

template <typename Wire>
struct Loaded {
    const Wire* wire = nullptr;
    std::string failure;
};

// A module's entry, loaded once.
template <typename Wire>
Loaded<Wire> load(const char* path, const char* entryName) {
    Loaded<Wire> loaded;
    if (void* entry = moduleFunction(path, entryName, loaded.failure))
        loaded.wire = reinterpret_cast<const Wire* (*)()>(entry)();
    return loaded;
}

bool sameIgnoringCase(std::string_view a, std::string_view b) {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [&](char x, char y) { return lower(x) == lower(y); });
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
    return text;
}

TextRecognition::Pages pagesOf(const std::string& mode) {
    if (mode == kOcrModes[1]) return TextRecognition::Pages::WithoutText;
    if (mode == kOcrModes[2]) return TextRecognition::Pages::All;
    return TextRecognition::Pages::Off;
}

}  // namespace

// Where the modules are built in, their entries are called as they are.
const OcrWire& ocrWire() {
#ifdef VELLIRA_OCR_WIRE_LINKED
    static const Loaded<OcrWire> loaded{vellira_ocr_wire(), {}};
#else
    static const auto loaded = load<OcrWire>(VELLIRA_OCR_WIRE_PATH, "vellira_ocr_wire");
#endif
    if (!loaded.wire) throw std::runtime_error("cannot load the text recognition (OCR): " + loaded.failure);
    return *loaded.wire;
}

const CodeWire& codeWire() {
#ifdef VELLIRA_OCR_WIRE_LINKED
    static const Loaded<CodeWire> loaded{vellira_code_wire(), {}};
#else
    static const auto loaded = load<CodeWire>(VELLIRA_CODE_WIRE_PATH, "vellira_code_wire");
#endif
    if (!loaded.wire) throw std::runtime_error("cannot load the code reader: " + loaded.failure);
    return *loaded.wire;
}

CodeFormat codeFormatOf(std::string_view name) {
    for (std::size_t kind = 1; kind < kCodeFormatNames.size(); ++kind)
        if (sameIgnoringCase(name, kCodeFormatNames[kind])) return static_cast<CodeFormat>(kind);
    return CodeFormat::None;
}

CodeFormats codeFormatsOf(std::string_view names) {
    CodeFormats formats;
    while (!names.empty()) {
        const auto plus = names.find('+');
        const std::string_view name = trimmed(names.substr(0, plus));
        names = plus == std::string_view::npos ? std::string_view() : names.substr(plus + 1);
        if (name.empty()) continue;
        const CodeFormat format = codeFormatOf(name);
        if (format == CodeFormat::None) {
            formats.unknown = name;
            return formats;
        }
        formats.bits |= 1u << static_cast<unsigned>(format);
    }
    return formats;
}

TextRecognition textRecognitionFor(const SplitSettings& settings) {
    TextRecognition recognition;
    recognition.pages = pagesOf(settings.OCR);
    recognition.dpi = std::clamp(settings.OCRRESOLUTION, 36, 1200);
    const std::string languages = settings.OCRLANGUAGES.empty() ? "eng" : settings.OCRLANGUAGES;
    const int confidence = std::clamp(settings.OCRCONFIDENCE, 0, 100);
    recognition.key = languages + "/" + std::to_string(confidence);
    recognition.textLayer = settings.OCRTEXTLAYER != 0;
    recognition.make = [languages, confidence] { return ocrWire().create(languages, confidence); };

    const unsigned formats = codeFormatsOf(settings.CODEFORMATS).bits;
    recognition.codes.pages = pagesOf(settings.CODES);
    // Separator sheets that carry a code are scanned sheets: their codes are
    // read even with codes off.
    const bool codeSeparators = settings.SEPARATOR == kSeparatorModes[1] || settings.SEPARATOR == kSeparatorModes[2] ||
                                settings.SEPARATOR == kSeparatorModes[3];
    if (codeSeparators && recognition.codes.pages == TextRecognition::Pages::Off)
        recognition.codes.pages = TextRecognition::Pages::WithoutText;
    recognition.codes.dpi = std::clamp(settings.CODERESOLUTION, 36, 1200);
    recognition.codes.key = std::to_string(formats);
    recognition.codes.make = [formats] { return codeWire().create(formats); };
    if (settings.DROPBLANKPAGES || settings.SEPARATOR == kSeparatorModes[4]) recognition.blank = looksBlank;
    return recognition;
}

}  // namespace vellira
