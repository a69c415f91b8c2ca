// The recognizer on Tesseract, built as the module "vellira-ocr". Pages are
// read as sparse text with orientation detection: statements, invoices and
// forms set their words apart in fields, where reading whole lines made
// Tesseract misread the words beside wide gaps. A page scanned turned or
// crooked is read the right way round, and each word is given with its box
// and baseline in the image as rendered, in reading order.
#include "reading/Recognition.h"

#include <tesseract/baseapi.h>
#include <tesseract/resultiterator.h>

#include <omp.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

namespace vellira {

namespace {

// Tesseract reports through its own printing; the library never prints.
constexpr const char* kQuiet[] = {"debug_file"};
#ifdef _WIN32
constexpr const char* kNowhere[] = {"NUL"};
#else
constexpr const char* kNowhere[] = {"/dev/null"};
#endif

// Where Tesseract looks for its language data: TESSDATA_PREFIX, else the
// folder the Debian packages fill.
std::filesystem::path dataFolder() {
    if (const char* prefix = std::getenv("TESSDATA_PREFIX"); prefix && *prefix) return prefix;
    for (const char* folder : {"/usr/share/tesseract-ocr/5/tessdata", "/usr/share/tesseract-ocr/4.00/tessdata"})
        if (std::filesystem::exists(std::filesystem::path(folder) / "eng.traineddata")) return folder;
    return "/usr/share/tesseract-ocr/5/tessdata";
}

// Sparse text comes in pieces, not in reading order. Words are put in lines
// across the text's own direction (the mean direction of their baselines,
// so a turned or skewed page reads as an upright one): lines from the first,
// words along each line.
void inReadingOrder(std::vector<RecognizedWord>& words) {
    if (words.size() < 2) return;
    double dx = 0, dy = 0;
    for (std::size_t i = 0; i < words.size(); ++i) {
        const double x = words[i].endX - words[i].baseX;
        const double y = words[i].endY - words[i].baseY;
        if (const double length = std::hypot(x, y); length > 0) {
            dx += x / length;
            dy += y / length;
        }
    }
    const double norm = std::hypot(dx, dy);
    const double ux = norm > 0 ? dx / norm : 1.0;
    const double uy = norm > 0 ? dy / norm : 0.0;
    struct Placed {
        double along;
        double across;
        std::size_t index;
    };
    std::vector<Placed> placed;
    std::vector<double> heights;
    for (std::size_t i = 0; i < words.size(); ++i) {
        const auto& word = words[i];
        placed.push_back({word.baseX * ux + word.baseY * uy, word.baseY * ux - word.baseX * uy, i});
        heights.push_back(std::abs(uy) > std::abs(ux) ? word.x1 - word.x0 : word.y1 - word.y0);
    }
    std::nth_element(heights.begin(), heights.begin() + static_cast<std::ptrdiff_t>(heights.size() / 2), heights.end());
    const double tolerance = std::max(1.0, heights[heights.size() / 2] / 2);
    std::sort(placed.begin(), placed.end(), [](const Placed& a, const Placed& b) { return a.across < b.across; });
    // A line holds the words whose baselines lie within half a word's
    // height of its first word's.
    for (auto line = placed.begin(); line != placed.end();) {
        auto end = line;
        while (end != placed.end() && end->across - line->across <= tolerance) ++end;
        std::sort(line, end, [](const Placed& a, const Placed& b) { return a.along < b.along; });
        line = end;
    }
    std::vector<RecognizedWord> ordered;
    ordered.reserve(words.size());
    for (const auto& each : placed) ordered.push_back(std::move(words[each.index]));
    words = std::move(ordered);
}

class TesseractRecognizer final : public TextRecognizer {
public:
    TesseractRecognizer(const std::string& languages, int minConfidence) : minConfidence_(minConfidence) {
        const auto folder = dataFolder();
        for (std::size_t start = 0; start <= languages.size();) {
            const auto end = std::min(languages.find('+', start), languages.size());
            const std::string language = languages.substr(start, end - start);
            start = end + 1;
            if (language.empty() || language.find_first_of("/\\.") != std::string::npos ||
                !std::filesystem::exists(folder / (language + ".traineddata")))
                throw std::runtime_error("the OCR language \"" + language +
                                         "\" is not installed; install the package " + languagePackage(language));
        }
        const std::vector<std::string> names(std::begin(kQuiet), std::end(kQuiet));
        const std::vector<std::string> values(std::begin(kNowhere), std::end(kNowhere));
        if (api_.Init(folder.string().c_str(), languages.c_str(), tesseract::OEM_DEFAULT, nullptr, 0, &names, &values,
                      false) != 0)
            throw std::runtime_error("the OCR languages \"" + languages + "\" cannot be loaded from " +
                                     folder.string());
        api_.SetPageSegMode(tesseract::PSM_SPARSE_TEXT_OSD);
    }

    std::vector<RecognizedWord> read(const GreyRaster& raster) override {
        // Pages are read side by side by workers, one recognizer each: no
        // recognizer spreads over threads of its own. Tesseract asks for its
        // threads by number, so its parallel regions are made inactive.
        omp_set_max_active_levels(0);
        std::vector<RecognizedWord> words;
        if (raster.width <= 0 || raster.height <= 0) return words;
        // An area of a page is too little to tell a page's orientation by.
        api_.SetPageSegMode(raster.wholePage ? tesseract::PSM_SPARSE_TEXT_OSD : tesseract::PSM_SPARSE_TEXT);
        api_.SetImage(raster.pixels.data(), raster.width, raster.height, 1, raster.width);
        api_.SetSourceResolution(raster.dpi);
        if (api_.Recognize(nullptr) != 0) throw std::runtime_error("the page's image could not be read");
        const std::unique_ptr<tesseract::ResultIterator> word(api_.GetIterator());
        if (!word) return words;
        do {
            const std::unique_ptr<char[]> text(word->GetUTF8Text(tesseract::RIL_WORD));
            if (!text || text[0] == 0) continue;
            const float confidence = word->Confidence(tesseract::RIL_WORD);
            if (confidence < static_cast<float>(minConfidence_)) continue;
            RecognizedWord read;
            read.text = text.get();
            read.confidence = static_cast<int>(confidence + 0.5f);
            int left = 0, top = 0, right = 0, bottom = 0;
            word->BoundingBox(tesseract::RIL_WORD, &left, &top, &right, &bottom);
            read.x0 = static_cast<float>(left);
            read.y0 = static_cast<float>(top);
            read.x1 = static_cast<float>(right);
            read.y1 = static_cast<float>(bottom);
            int x1 = left, y1 = bottom, x2 = right, y2 = bottom;
            if (!word->Baseline(tesseract::RIL_WORD, &x1, &y1, &x2, &y2)) {
                x1 = left;
                x2 = right;
                y1 = y2 = bottom;
            }
            read.baseX = static_cast<float>(x1);
            read.baseY = static_cast<float>(y1);
            read.endX = static_cast<float>(x2);
            read.endY = static_cast<float>(y2);
            words.push_back(std::move(read));
        } while (word->Next(tesseract::RIL_WORD));
        api_.Clear();
        inReadingOrder(words);
        return words;
    }

private:
    tesseract::TessBaseAPI api_;
    int minConfidence_;
};

std::unique_ptr<TextRecognizer> create(const std::string& languages, int minConfidence) {
    return std::make_unique<TesseractRecognizer>(languages, minConfidence);
}

std::string version() { return tesseract::TessBaseAPI::Version(); }

const OcrWire kWire = {create, version};

}  // namespace

}  // namespace vellira

extern "C" const vellira::OcrWire* vellira_ocr_wire() { return &vellira::kWire; }
