// The limit a split cannot beat: only what MuPDF must do for the job. Reads
// the words of every page, then grafts the ranges (one every N pages) into
// new documents and saves each, with nothing else around it.
//
//   vellira-bench-limit SOURCE.pdf OUTPUT-FOLDER PAGES-PER-RANGE
extern "C" {
#include <mupdf/fitz.h>
#include <mupdf/pdf.h>
}

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

long countWords(fz_context* ctx, fz_document* doc, int page) {
    long words = 0;
    fz_page* loaded = fz_load_page(ctx, doc, page);
    fz_stext_options options = {};
    fz_stext_page* text = fz_new_stext_page_from_page(ctx, loaded, &options);
    for (fz_stext_block* block = text->first_block; block; block = block->next) {
        if (block->type != FZ_STEXT_BLOCK_TEXT) continue;
        for (fz_stext_line* line = block->u.t.first_line; line; line = line->next) {
            bool inWord = false;
            for (fz_stext_char* ch = line->first_char; ch; ch = ch->next) {
                const bool blank = ch->c <= 32;
                if (!blank && !inWord) ++words;
                inWord = !blank;
            }
        }
    }
    fz_drop_stext_page(ctx, text);
    fz_drop_page(ctx, loaded);
    return words;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::fprintf(stderr, "usage: vellira-bench-limit SOURCE.pdf OUTPUT-FOLDER PAGES-PER-RANGE\n");
        return 2;
    }
    const std::string folder = argv[2];
    const int every = std::atoi(argv[3]);
    if (every < 1) return 2;
    fz_context* ctx = fz_new_context(nullptr, nullptr, FZ_STORE_DEFAULT);
    volatile int status = 0;
    pdf_document* source = nullptr;
    fz_var(source);
    fz_try(ctx) {
        source = pdf_open_document(ctx, argv[1]);
        // Pages by number in constant time, as any reader of many pages needs.
        pdf_load_page_tree(ctx, source);
        const int pages = pdf_count_pages(ctx, source);
        long words = 0;
        for (int page = 0; page < pages; ++page) words += countWords(ctx, &source->super, page);
        int files = 0;
        for (int first = 0; first < pages; first += every) {
            pdf_document* target = pdf_create_document(ctx);
            pdf_graft_map* map = pdf_new_graft_map(ctx, target);
            for (int page = first; page < first + every && page < pages; ++page)
                pdf_graft_mapped_page(ctx, map, -1, source, page);
            pdf_drop_graft_map(ctx, map);
            const std::string name = folder + "/range_" + std::to_string(++files) + ".pdf";
            pdf_write_options options = pdf_default_write_options;
            pdf_save_document(ctx, target, name.c_str(), &options);
            pdf_drop_document(ctx, target);
        }
        std::printf("%d pages, %ld words, %d files\n", pages, words, files);
    }
    fz_always(ctx) {
        if (source) pdf_drop_page_tree(ctx, source);
        pdf_drop_document(ctx, source);
    }
    fz_catch(ctx) {
        std::fprintf(stderr, "vellira-bench-limit: %s\n", fz_caught_message(ctx));
        status = 1;
    }
    fz_drop_context(ctx);
    return status;
}
