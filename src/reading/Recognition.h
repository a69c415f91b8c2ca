// Reading pages from their image: what a run's OCR and code settings ask of
// its hosts, the readers that do it, and the blank-page test. Tesseract, and
// the libraries it brings (leptonica, libarchive, libcurl, OpenMP), live in a
// module of their own ("vellira-ocr"), loaded the first time a page is read
// from its image: a run of text pages never loads them.
#pragma once

#include "core/DocumentHost.h"
#include "core/SplitSettings.h"

#include <memory>
#include <string>
#include <string_view>

namespace vellira {

// The recognition a run's settings ask for: which pages (OCR), and a
// recognizer for OCRLANGUAGES keeping words of at least OCRCONFIDENCE.
TextRecognition textRecognitionFor(const SplitSettings& settings);

// The Debian package that holds a Tesseract language: tesseract-ocr-eng for
// "eng", tesseract-ocr-chi-sim for "chi_sim".
inline std::string languagePackage(std::string_view language) {
    std::string name = "tesseract-ocr-";
    for (const char c : language) name.push_back(c == '_' ? '-' : c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c);
    return name;
}

struct OcrWire {
    // A recognizer for `languages` (Tesseract's names joined by +) that
    // keeps words of at least `minConfidence`. Throws std::runtime_error
    // naming the package of a language that is not installed.
    std::unique_ptr<TextRecognizer> (*create)(const std::string& languages, int minConfidence);
    // The version of Tesseract.
    std::string (*version)();
};

// The module's functions, loaded with the first call and kept for the life
// of the process. Throws std::runtime_error when the module cannot be loaded.
const OcrWire& ocrWire();

// Codes are read by zxing-cpp in a module of their own ("vellira-codes"),
// loaded the first time a page's codes are read.
struct CodeWire {
    // A reader of the kinds whose bit (1 << CodeFormat) is set in `formats`,
    // or of every kind for 0.
    std::unique_ptr<CodeReader> (*create)(unsigned formats);
    // The version of zxing-cpp.
    std::string (*version)();
};
const CodeWire& codeWire();

// The kinds CODEFORMATS names, joined by + (in any case), as CodeWire takes
// them; the first name that is no kind, when one is not.
struct CodeFormats {
    unsigned bits = 0;
    std::string unknown;
};
CodeFormats codeFormatsOf(std::string_view names);
// The kind a name gives, in any case; None for a name that is no kind.
CodeFormat codeFormatOf(std::string_view name);

// Whether a page's image shows almost no ink: nothing but specks, a punched
// hole, a stray dot or a scanner's shadow along an edge. A signature, a line
// of writing or a stamp is ink.
bool looksBlank(const GreyRaster& raster);

}  // namespace vellira

#if defined(_WIN32)
#define VELLIRA_OCR_WIRE_EXPORT
#else
#define VELLIRA_OCR_WIRE_EXPORT __attribute__((visibility("default")))
#endif

// The modules' entry points.
extern "C" VELLIRA_OCR_WIRE_EXPORT const vellira::OcrWire* vellira_ocr_wire();
extern "C" VELLIRA_OCR_WIRE_EXPORT const vellira::CodeWire* vellira_code_wire();
