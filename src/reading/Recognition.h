// Reading pages from their image: what a run's OCR settings ask of its
// hosts, and the recognizer that does it. Tesseract, and the libraries it
// brings (leptonica, libarchive, libcurl, OpenMP), live in a module of their
// own ("vellira-ocr"), loaded the first time a page is read from its image:
// a run of text pages never loads them.
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

}  // namespace vellira

#if defined(_WIN32)
#define VELLIRA_OCR_WIRE_EXPORT
#else
#define VELLIRA_OCR_WIRE_EXPORT __attribute__((visibility("default")))
#endif

// The module's one entry point.
extern "C" VELLIRA_OCR_WIRE_EXPORT const vellira::OcrWire* vellira_ocr_wire();
