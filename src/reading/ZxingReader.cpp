// The code reader on zxing-cpp, built as the module "vellira-codes": every
// kind of code asked for, found anywhere on a page, turned or not, each with
// its value and the box it covers in the image.
#define ZX_USE_UTF8 1
#include "reading/Recognition.h"

#include <ZXing/ReadBarcode.h>
#include <ZXing/ZXVersion.h>

#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <utility>

namespace vellira {

namespace {

// Our kinds and zxing-cpp's, in CodeFormat's order.
constexpr std::array<ZXing::BarcodeFormat, kCodeFormatNames.size()> kZxingFormats = {
    ZXing::BarcodeFormat::None,    ZXing::BarcodeFormat::QRCode, ZXing::BarcodeFormat::DataMatrix,
    ZXing::BarcodeFormat::Code128, ZXing::BarcodeFormat::Code39, ZXing::BarcodeFormat::EAN13,
    ZXing::BarcodeFormat::EAN8,    ZXing::BarcodeFormat::UPCA,   ZXing::BarcodeFormat::UPCE,
    ZXing::BarcodeFormat::ITF,     ZXing::BarcodeFormat::PDF417, ZXing::BarcodeFormat::Aztec};

CodeFormat ourFormat(ZXing::BarcodeFormat format) {
    const auto found = std::find(kZxingFormats.begin() + 1, kZxingFormats.end(), format);
    return found == kZxingFormats.end() ? CodeFormat::None
                                        : static_cast<CodeFormat>(std::distance(kZxingFormats.begin(), found));
}

bool isLinear(CodeFormat format) {
    switch (format) {
        case CodeFormat::Code128:
        case CodeFormat::Code39:
        case CodeFormat::EAN13:
        case CodeFormat::EAN8:
        case CodeFormat::UPCA:
        case CodeFormat::UPCE:
        case CodeFormat::ITF: return true;
        default: return false;
    }
}

// zxing-cpp places a linear code on the lines it read it along, which vary
// with the resolution; its bars reach further. The box is grown along the
// bars while the lines beyond hold at least half as much ink as its middle
// one, so that a code's place is where its bars end.
void growAlongBars(const GreyRaster& raster, FoundCode& code) {
    constexpr unsigned char kDark = 128;
    const bool upright = code.x1 - code.x0 >= code.y1 - code.y0;  // bars standing up: grow up and down
    const int from = static_cast<int>(upright ? code.x0 : code.y0);
    const int to = static_cast<int>(upright ? code.x1 : code.y1);
    const int limit = upright ? raster.height : raster.width;
    const auto ink = [&](int line) {
        int dark = 0;
        for (int along = std::max(from, 0); along <= to && along < (upright ? raster.width : raster.height); ++along) {
            const std::size_t at = upright ? static_cast<std::size_t>(line) * raster.width + along
                                           : static_cast<std::size_t>(along) * raster.width + line;
            dark += raster.pixels[at] < kDark;
        }
        return dark;
    };
    float& low = upright ? code.y0 : code.x0;
    float& high = upright ? code.y1 : code.x1;
    const int middle = std::clamp(static_cast<int>((low + high) / 2), 0, limit - 1);
    const int wanted = (ink(middle) + 1) / 2;
    if (wanted == 0) return;
    int first = middle, last = middle;
    while (first > 0 && ink(first - 1) >= wanted) --first;
    while (last + 1 < limit && ink(last + 1) >= wanted) ++last;
    low = std::min(low, static_cast<float>(first));
    high = std::max(high, static_cast<float>(last));
}

// The box a result covers, in the image's pixels, from the place of the
// part of the image it was read in.
FoundCode placed(const ZXing::Result& result, CodeFormat format, int left, int top) {
    FoundCode code;
    code.text = result.text();
    code.format = format;
    const auto& corners = result.position();
    code.x0 = code.x1 = static_cast<float>(corners[0].x + left);
    code.y0 = code.y1 = static_cast<float>(corners[0].y + top);
    for (const auto& corner : corners) {
        code.x0 = std::min(code.x0, static_cast<float>(corner.x + left));
        code.y0 = std::min(code.y0, static_cast<float>(corner.y + top));
        code.x1 = std::max(code.x1, static_cast<float>(corner.x + left));
        code.y1 = std::max(code.y1, static_cast<float>(corner.y + top));
    }
    return code;
}

class ZxingCodeReader final : public CodeReader {
public:
    explicit ZxingCodeReader(unsigned formats) {
        ZXing::BarcodeFormats wanted;
        for (std::size_t kind = 1; kind < kZxingFormats.size(); ++kind)
            if (formats == 0 || (formats & (1u << kind))) wanted |= kZxingFormats[kind];
        // Downscaled passes make zxing-cpp 1.4 merge a linear code's lines
        // in a way its own checks abort on; a page rendered for reading
        // needs none.
        hints_.setFormats(wanted).setTryHarder(true).setTryRotate(true).setTryDownscale(false);
        // Data Matrix and Aztec codes are looked for from the middle of an
        // image out, so that one among other things on a page is found only
        // in a part of the page around it: asked for by name, they are also
        // looked for part by part.
        ZXing::BarcodeFormats centred;
        for (const CodeFormat format : {CodeFormat::DataMatrix, CodeFormat::Aztec})
            if (formats & (1u << static_cast<unsigned>(format))) centred |= kZxingFormats[static_cast<int>(format)];
        if (!centred.empty()) {
            partHints_ = hints_;
            partHints_->setFormats(centred);
        }
    }

    std::vector<FoundCode> read(const GreyRaster& raster) override {
        std::vector<FoundCode> codes;
        if (raster.width <= 0 || raster.height <= 0) return codes;
        const auto add = [&](const ZXing::Results& results, int left, int top) {
            for (const ZXing::Result& result : results) {
                const CodeFormat format = ourFormat(result.format());
                if (!result.isValid() || format == CodeFormat::None) continue;
                FoundCode code = placed(result, format, left, top);
                if (isLinear(format)) growAlongBars(raster, code);
                // A code found again in an overlapping part is one code.
                const float x = (code.x0 + code.x1) / 2, y = (code.y0 + code.y1) / 2;
                const bool known = std::any_of(codes.begin(), codes.end(), [&](const FoundCode& other) {
                    return other.format == code.format && other.text == code.text && x >= other.x0 && x <= other.x1 &&
                           y >= other.y0 && y <= other.y1;
                });
                if (!known) codes.push_back(std::move(code));
            }
        };
        add(ZXing::ReadBarcodes(
                ZXing::ImageView(raster.pixels.data(), raster.width, raster.height, ZXing::ImageFormat::Lum), hints_),
            0, 0);
        if (partHints_) {
            // Parts three inches square, each overlapping the next by half.
            const int part = std::max(raster.dpi, 36) * 3;
            const int step = part / 2;
            for (int top = 0; top < raster.height; top += step) {
                for (int left = 0; left < raster.width; left += step) {
                    const int width = std::min(part, raster.width - left);
                    const int height = std::min(part, raster.height - top);
                    const ZXing::ImageView view(
                        raster.pixels.data() + static_cast<std::size_t>(top) * raster.width + left, width, height,
                        ZXing::ImageFormat::Lum, raster.width);
                    add(ZXing::ReadBarcodes(view, *partHints_), left, top);
                    if (left + part >= raster.width) break;
                }
                if (top + part >= raster.height) break;
            }
        }
        // Top to bottom in bands of a quarter inch, left to right in a band.
        const float band = static_cast<float>(std::max(raster.dpi, 4)) / 4.0f;
        std::stable_sort(codes.begin(), codes.end(), [band](const FoundCode& a, const FoundCode& b) {
            return std::pair(static_cast<int>(a.y0 / band), a.x0) < std::pair(static_cast<int>(b.y0 / band), b.x0);
        });
        return codes;
    }

private:
    ZXing::DecodeHints hints_;
    std::optional<ZXing::DecodeHints> partHints_;  // Data Matrix and Aztec, part by part
};

std::unique_ptr<CodeReader> create(unsigned formats) { return std::make_unique<ZxingCodeReader>(formats); }

std::string version() {
    return std::to_string(ZXING_VERSION_MAJOR) + "." + std::to_string(ZXING_VERSION_MINOR) + "." +
           std::to_string(ZXING_VERSION_PATCH);
}

const CodeWire kWire = {create, version};

}  // namespace

}  // namespace vellira

extern "C" const vellira::CodeWire* vellira_code_wire() { return &vellira::kWire; }
