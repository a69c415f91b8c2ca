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

extern "C" {
#include <mupdf/fitz.h>
#include <mupdf/pdf.h>
}

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// Renders a page grey at `dpi` and counts the codes found on it.
long readPage(fz_context* ctx, fz_document* doc, int page, int dpi, const ZXing::DecodeHints& hints) {
    fz_page* loaded = fz_load_page(ctx, doc, page);
    fz_pixmap* pixmap = nullptr;
    fz_var(pixmap);
    fz_try(ctx) pixmap =
        fz_new_pixmap_from_page(ctx, loaded, fz_scale(dpi / 72.0f, dpi / 72.0f), fz_device_gray(ctx), 0);
    fz_always(ctx) fz_drop_page(ctx, loaded);
    fz_catch(ctx) fz_rethrow(ctx);
    long codes = 0;
    try {
        const ZXing::ImageView image(fz_pixmap_samples(ctx, pixmap), fz_pixmap_width(ctx, pixmap),
                                     fz_pixmap_height(ctx, pixmap), ZXing::ImageFormat::Lum,
                                     fz_pixmap_stride(ctx, pixmap));
        for (const ZXing::Result& result : ZXing::ReadBarcodes(image, hints)) codes += result.isValid();
    } catch (...) {
        codes = -1;
    }
    fz_drop_pixmap(ctx, pixmap);
    if (codes < 0) fz_throw(ctx, FZ_ERROR_GENERIC, "zxing-cpp failed on page %d", page + 1);
    return codes;
}

// Reads every page of `source` in order, counting its pages and codes.
void readAll(fz_context* ctx, const char* source, int dpi, const ZXing::DecodeHints& hints, int& pages, long& codes) {
    pdf_document* doc = nullptr;
    fz_var(doc);
    fz_try(ctx) {
        doc = pdf_open_document(ctx, source);
        // Pages by number in constant time, as any reader of many pages needs.
        pdf_load_page_tree(ctx, doc);
        pages = pdf_count_pages(ctx, doc);
        for (int page = 0; page < pages; ++page) codes += readPage(ctx, &doc->super, page, dpi, hints);
    }
    fz_always(ctx) {
        if (doc) pdf_drop_page_tree(ctx, doc);
        pdf_drop_document(ctx, doc);
    }
    fz_catch(ctx) fz_rethrow(ctx);
}

// Reads the source and prints what it found; 1 with MuPDF's message when it
// cannot.
int run(const char* source, int dpi, const ZXing::DecodeHints& hints) {
    fz_context* ctx = fz_new_context(nullptr, nullptr, FZ_STORE_DEFAULT);
    if (!ctx) {
        std::fprintf(stderr, "vellira-bench-code-limit: cannot create MuPDF context\n");
        return 1;
    }
    volatile int status = 0;
    fz_try(ctx) {
        int pages = 0;
        long codes = 0;
        readAll(ctx, source, dpi, hints, pages, codes);
        std::printf("%d pages, %ld codes\n", pages, codes);
    }
    fz_catch(ctx) {
        std::fprintf(stderr, "vellira-bench-code-limit: %s\n", fz_caught_message(ctx));
        status = 1;
    }
    fz_drop_context(ctx);
    return status;
}

}  // namespace

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
    return run(source, dpi, hints);
}
