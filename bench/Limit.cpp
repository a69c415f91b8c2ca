// The limit a split cannot beat: only what MuPDF must do for the job. Reads
// the words of every page, then grafts the ranges into new documents and
// saves each, with nothing else around it.
//
//   vellira-bench-limit SOURCE.pdf OUTPUT-FOLDER PAGES-PER-RANGE
//   vellira-bench-limit SOURCE.pdf OUTPUT-FOLDER --ranges FILE
//
// A ranges file holds one range a line, "FIRST LAST", 1-based and inclusive,
// in the order they are to be written; ranges may overlap or repeat, as the
// ranges a split writes do.
extern "C" {
#include <mupdf/fitz.h>
#include <mupdf/pdf.h>
}

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace {

using Range = std::pair<int, int>;  // 0-based, inclusive

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

// Grafts pages first..last (0-based) into a new document and saves it.
void writeRange(fz_context* ctx, pdf_document* source, int first, int last, const char* path) {
    pdf_document* target = pdf_create_document(ctx);
    pdf_graft_map* map = nullptr;
    fz_var(map);
    fz_try(ctx) {
        map = pdf_new_graft_map(ctx, target);
        for (int page = first; page <= last; ++page) pdf_graft_mapped_page(ctx, map, -1, source, page);
        pdf_drop_graft_map(ctx, map);
        map = nullptr;
        pdf_write_options options = pdf_default_write_options;
        pdf_save_document(ctx, target, path, &options);
    }
    fz_always(ctx) {
        pdf_drop_graft_map(ctx, map);
        pdf_drop_document(ctx, target);
    }
    fz_catch(ctx) fz_rethrow(ctx);
}

// Reads "FIRST LAST" lines; false with a message for a line that is not one.
bool readRanges(const char* path, std::vector<Range>& ranges) {
    std::ifstream in(path);
    if (!in) {
        std::fprintf(stderr, "vellira-bench-limit: cannot read %s\n", path);
        return false;
    }
    int number = 0;
    for (std::string line; std::getline(in, line);) {
        ++number;
        if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
        std::istringstream fields(line);
        int first = 0;
        int last = 0;
        std::string rest;
        if (!(fields >> first >> last) || (fields >> rest) || first < 1 || last < first) {
            std::fprintf(stderr, "vellira-bench-limit: %s:%d: not \"FIRST LAST\": %s\n", path, number, line.c_str());
            return false;
        }
        ranges.emplace_back(first - 1, last - 1);
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    const bool fromFile = argc == 5 && std::strcmp(argv[3], "--ranges") == 0;
    if (argc != 4 && !fromFile) {
        std::fprintf(stderr,
                     "usage: vellira-bench-limit SOURCE.pdf OUTPUT-FOLDER PAGES-PER-RANGE\n"
                     "       vellira-bench-limit SOURCE.pdf OUTPUT-FOLDER --ranges FILE\n");
        return 2;
    }
    const std::string folder = argv[2];
    const int every = fromFile ? 0 : std::atoi(argv[3]);
    std::vector<Range> ranges;
    if (fromFile ? !readRanges(argv[4], ranges) : every < 1) return 2;
    fz_context* ctx = fz_new_context(nullptr, nullptr, FZ_STORE_DEFAULT);
    volatile int status = 0;
    pdf_document* source = nullptr;
    fz_var(source);
    fz_try(ctx) {
        source = pdf_open_document(ctx, argv[1]);
        // Pages by number in constant time, as any reader of many pages needs.
        pdf_load_page_tree(ctx, source);
        const int pages = pdf_count_pages(ctx, source);
        if (!fromFile)
            for (int first = 0; first < pages; first += every)
                ranges.emplace_back(first, first + every <= pages ? first + every - 1 : pages - 1);
        long words = 0;
        for (int page = 0; page < pages; ++page) words += countWords(ctx, &source->super, page);
        int files = 0;
        for (const auto& [first, last] : ranges) {
            if (last >= pages) fz_throw(ctx, FZ_ERROR_GENERIC, "range %d-%d past the last page", first + 1, last + 1);
            const std::string name = folder + "/range_" + std::to_string(++files) + ".pdf";
            writeRange(ctx, source, first, last, name.c_str());
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
