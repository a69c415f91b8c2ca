// What the image limits share: every page of a PDF rendered grey at a
// resolution, one after the other on one thread, each handed to a reader
// that answers how much it found on it.
#pragma once

extern "C" {
#include <mupdf/fitz.h>
#include <mupdf/pdf.h>
}

#include <cstdio>
#include <exception>

// A rendered page: a byte a pixel, rows `stride` bytes apart.
struct PageImage {
    const unsigned char* samples;
    int width, height, stride, dpi;
};

// A page rendered grey at `dpi`. Throws through MuPDF.
inline fz_pixmap* renderPage(fz_context* ctx, pdf_document* doc, int page, int dpi) {
    fz_page* loaded = fz_load_page(ctx, &doc->super, page);
    fz_pixmap* pixmap = nullptr;
    fz_try(ctx) pixmap =
        fz_new_pixmap_from_page(ctx, loaded, fz_scale(dpi / 72.0f, dpi / 72.0f), fz_device_gray(ctx), 0);
    fz_always(ctx) fz_drop_page(ctx, loaded);
    fz_catch(ctx) fz_rethrow(ctx);
    return pixmap;
}

// Every page of `doc` rendered and read, in order: the sum of what `read`
// answered. Throws through MuPDF when a page cannot be rendered or read.
template <typename Read>
long readPages(fz_context* ctx, pdf_document* doc, int dpi, Read& read) {
    long found = 0;
    const int pages = pdf_count_pages(ctx, doc);
    for (int page = 0; page < pages; ++page) {
        fz_pixmap* pixmap = renderPage(ctx, doc, page, dpi);
        long here = -1;
        try {
            here = read(PageImage{fz_pixmap_samples(ctx, pixmap), fz_pixmap_width(ctx, pixmap),
                                  fz_pixmap_height(ctx, pixmap), fz_pixmap_stride(ctx, pixmap), dpi});
        } catch (const std::exception&) {
            here = -1;
        }
        fz_drop_pixmap(ctx, pixmap);
        if (here < 0) fz_throw(ctx, FZ_ERROR_GENERIC, "the reader failed on page %d", page + 1);
        found += here;
    }
    return found;
}

// Renders every page of `source` and prints "N pages, M WHAT", M the sum of
// what `read` answered; 1 with MuPDF's message (or the reader's failure)
// when it cannot.
template <typename Read>
int readEveryPage(const char* program, const char* source, int dpi, const char* what, Read&& read) {
    fz_context* ctx = fz_new_context(nullptr, nullptr, FZ_STORE_DEFAULT);
    if (!ctx) {
        std::fprintf(stderr, "%s: cannot create MuPDF context\n", program);
        return 1;
    }
    volatile int status = 0;
    pdf_document* doc = nullptr;
    fz_var(doc);
    fz_try(ctx) {
        doc = pdf_open_document(ctx, source);
        // Pages by number in constant time, as any reader of many pages needs.
        pdf_load_page_tree(ctx, doc);
        std::printf("%d pages, %ld %s\n", pdf_count_pages(ctx, doc), readPages(ctx, doc, dpi, read), what);
    }
    fz_always(ctx) {
        if (doc) pdf_drop_page_tree(ctx, doc);
        pdf_drop_document(ctx, doc);
    }
    fz_catch(ctx) {
        std::fprintf(stderr, "%s: %s\n", program, fz_caught_message(ctx));
        status = 1;
    }
    fz_drop_context(ctx);
    return status;
}
