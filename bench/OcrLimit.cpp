// The limit OCR cannot beat: only what MuPDF and Tesseract must do to read a
// scanned run. Renders every page grey at the resolution and has one
// Tesseract reader, made once, read the pages one after the other.
//
//   vellira-bench-ocr-limit SOURCE.pdf [--dpi 300] [--lang eng]
//
// Time it with OMP_THREAD_LIMIT=1: Tesseract otherwise spreads its work over
// OpenMP threads, and the limit is that of one thread.
#include <tesseract/baseapi.h>
#include <tesseract/resultiterator.h>

extern "C" {
#include <mupdf/fitz.h>
#include <mupdf/pdf.h>
}

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

namespace {

// Renders a page grey at `dpi`, has `reader` read it and counts its words.
long readPage(fz_context* ctx, fz_document* doc, int page, int dpi, tesseract::TessBaseAPI& reader) {
    fz_page* loaded = fz_load_page(ctx, doc, page);
    fz_pixmap* pixmap = nullptr;
    fz_var(pixmap);
    fz_try(ctx) pixmap =
        fz_new_pixmap_from_page(ctx, loaded, fz_scale(dpi / 72.0f, dpi / 72.0f), fz_device_gray(ctx), 0);
    fz_always(ctx) fz_drop_page(ctx, loaded);
    fz_catch(ctx) fz_rethrow(ctx);
    reader.SetImage(fz_pixmap_samples(ctx, pixmap), fz_pixmap_width(ctx, pixmap), fz_pixmap_height(ctx, pixmap), 1,
                    fz_pixmap_stride(ctx, pixmap));
    reader.SetSourceResolution(dpi);
    long words = 0;
    if (reader.Recognize(nullptr) == 0) {
        std::unique_ptr<tesseract::ResultIterator> word(reader.GetIterator());
        for (bool more = word && !word->Empty(tesseract::RIL_WORD); more; more = word->Next(tesseract::RIL_WORD))
            ++words;
    }
    reader.Clear();
    fz_drop_pixmap(ctx, pixmap);
    return words;
}

// Reads every page of `source` in order, counting its pages and words.
void readAll(fz_context* ctx, const char* source, int dpi, tesseract::TessBaseAPI& reader, int& pages, long& words) {
    pdf_document* doc = nullptr;
    fz_var(doc);
    fz_try(ctx) {
        doc = pdf_open_document(ctx, source);
        // Pages by number in constant time, as any reader of many pages needs.
        pdf_load_page_tree(ctx, doc);
        pages = pdf_count_pages(ctx, doc);
        for (int page = 0; page < pages; ++page) words += readPage(ctx, &doc->super, page, dpi, reader);
    }
    fz_always(ctx) {
        if (doc) pdf_drop_page_tree(ctx, doc);
        pdf_drop_document(ctx, doc);
    }
    fz_catch(ctx) fz_rethrow(ctx);
}

// Reads the source and prints what it read; 1 with MuPDF's message when it
// cannot.
int run(const char* source, int dpi, tesseract::TessBaseAPI& reader) {
    fz_context* ctx = fz_new_context(nullptr, nullptr, FZ_STORE_DEFAULT);
    volatile int status = 0;
    fz_try(ctx) {
        int pages = 0;
        long words = 0;
        readAll(ctx, source, dpi, reader, pages, words);
        std::printf("%d pages, %ld words\n", pages, words);
    }
    fz_catch(ctx) {
        std::fprintf(stderr, "vellira-bench-ocr-limit: %s\n", fz_caught_message(ctx));
        status = 1;
    }
    fz_drop_context(ctx);
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    const char* source = nullptr;
    int dpi = 300;
    std::string language = "eng";
    bool usage = false;
    for (int i = 1; i < argc && !usage; ++i) {
        if (std::strcmp(argv[i], "--dpi") == 0 && i + 1 < argc)
            dpi = std::atoi(argv[++i]);
        else if (std::strcmp(argv[i], "--lang") == 0 && i + 1 < argc)
            language = argv[++i];
        else if (!source && argv[i][0] != '-')
            source = argv[i];
        else
            usage = true;
    }
    if (usage || !source || dpi < 1 || dpi > 2400) {
        std::fprintf(stderr, "usage: vellira-bench-ocr-limit SOURCE.pdf [--dpi 300] [--lang eng]\n");
        return 2;
    }
    tesseract::TessBaseAPI reader;
    if (reader.Init(nullptr, language.c_str()) != 0) {
        std::fprintf(stderr, "vellira-bench-ocr-limit: no Tesseract data for language \"%s\"\n", language.c_str());
        return 1;
    }
    reader.SetPageSegMode(tesseract::PSM_SPARSE_TEXT_OSD);
    const int status = run(source, dpi, reader);
    reader.End();
    return status;
}
