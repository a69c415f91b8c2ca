// The limit reading codes cannot beat: only what MuPDF and zxing-cpp must do
// to find the codes of a scanned run. Renders every page grey at the
// resolution and reads it for codes of every kind the product knows, trying
// hard and turned, as a careful reader of scans does, page after page on one
// thread.
//
//   vellira-bench-code-limit SOURCE.pdf [--dpi 150]
//
// zxing-cpp's downscaled second look is left off: Debian's zxing-cpp 1.4
// asserts when it meets a linear code again in the smaller image.
#define ZX_USE_UTF8 1
#include <ZXing/ReadBarcode.h>

#include "PageImages.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

int main(int argc, char** argv) {
    const char* source = nullptr;
    int dpi = 150;
    bool usage = false;
    for (int i = 1; i < argc && !usage; ++i) {
        if (std::strcmp(argv[i], "--dpi") == 0 && i + 1 < argc)
            dpi = std::atoi(argv[++i]);
        else if (!source && argv[i][0] != '-')
            source = argv[i];
        else
            usage = true;
    }
    if (usage || !source || dpi < 1 || dpi > 2400) {
        std::fprintf(stderr, "usage: vellira-bench-code-limit SOURCE.pdf [--dpi 150]\n");
        return 2;
    }
    ZXing::DecodeHints hints;
    using ZXing::BarcodeFormat;
    hints
        .setFormats(BarcodeFormat::QRCode | BarcodeFormat::DataMatrix | BarcodeFormat::Code128 | BarcodeFormat::Code39 |
                    BarcodeFormat::EAN13 | BarcodeFormat::EAN8 | BarcodeFormat::UPCA | BarcodeFormat::UPCE |
                    BarcodeFormat::ITF | BarcodeFormat::PDF417 | BarcodeFormat::Aztec)
        .setTryHarder(true)
        .setTryRotate(true)
        .setTryDownscale(false);
    return readEveryPage("vellira-bench-code-limit", source, dpi, "codes", [&](const PageImage& page) {
        long codes = 0;
        const ZXing::ImageView image(page.samples, page.width, page.height, ZXing::ImageFormat::Lum, page.stride);
        for (const ZXing::Result& result : ZXing::ReadBarcodes(image, hints)) codes += result.isValid();
        return codes;
    });
}
