// The limit a split cannot beat: only what MuPDF must do for the job. Reads
// the words of every page, then grafts the ranges into new documents and
// saves each, with nothing else around it.
//
//   vellira-bench-limit SOURCE.pdf OUTPUT-FOLDER PAGES-PER-RANGE
//   vellira-bench-limit SOURCE.pdf OUTPUT-FOLDER --ranges FILE
//   vellira-bench-limit --sources FILE OUTPUT-FOLDER
//
// A ranges file holds one range a line, "FIRST LAST", 1-based and inclusive,
// in the order they are to be written; ranges may overlap or repeat, as the
// ranges a split writes do. A sources file holds "FIRST LAST SOURCE.pdf"
// lines: each source is read once, in the order of its first line, and its
// ranges written, as a batch of documents in one process would be.
extern "C" {
#include <mupdf/fitz.h>
#include <mupdf/pdf.h>
}

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
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

// One source and the ranges to write of it.
struct Job {
    std::string source;
    std::vector<Range> ranges;
};

// Reads "FIRST LAST" lines into `job`, or with `sources` "FIRST LAST
// SOURCE" lines into `jobs`; false with a message for a line that is not one.
bool readRanges(const char* path, bool sources, std::vector<Job>& jobs) {
    std::ifstream in(path);
    if (!in) {
        std::fprintf(stderr, "vellira-bench-limit: cannot read %s\n", path);
        return false;
    }
    std::map<std::string, std::size_t> known;  // source -> its job
    int number = 0;
    for (std::string line; std::getline(in, line);) {
        ++number;
        if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
        std::istringstream fields(line);
        int first = 0;
        int last = 0;
        std::string rest;
        fields >> first >> last;
        std::getline(fields >> std::ws, rest);
        if (!fields.eof() || first < 1 || last < first || rest.empty() == sources) {
            std::fprintf(stderr, "vellira-bench-limit: %s:%d: not \"FIRST LAST%s\": %s\n", path, number,
                         sources ? " SOURCE" : "", line.c_str());
            return false;
        }
        const auto [at, added] = known.try_emplace(rest, jobs.size());
        if (sources && added) jobs.push_back({rest, {}});
        jobs[sources ? at->second : 0].ranges.emplace_back(first - 1, last - 1);
    }
    return true;
}

// Reads the words of every page of a source, then writes its ranges, named
// on from `files`.
void runJob(fz_context* ctx, Job& job, int every, const std::string& folder, int& files, long& words) {
    pdf_document* source = nullptr;
    fz_var(source);
    fz_try(ctx) {
        source = pdf_open_document(ctx, job.source.c_str());
        // Pages by number in constant time, as any reader of many pages needs.
        pdf_load_page_tree(ctx, source);
        const int pages = pdf_count_pages(ctx, source);
        if (every > 0)
            for (int first = 0; first < pages; first += every)
                job.ranges.emplace_back(first, first + every <= pages ? first + every - 1 : pages - 1);
        for (int page = 0; page < pages; ++page) words += countWords(ctx, &source->super, page);
        for (const auto& [first, last] : job.ranges) {
            if (last >= pages) fz_throw(ctx, FZ_ERROR_GENERIC, "range %d-%d past the last page", first + 1, last + 1);
            const std::string name = folder + "/range_" + std::to_string(++files) + ".pdf";
            writeRange(ctx, source, first, last, name.c_str());
        }
    }
    fz_always(ctx) {
        if (source) pdf_drop_page_tree(ctx, source);
        pdf_drop_document(ctx, source);
    }
    fz_catch(ctx) fz_rethrow(ctx);
}

}  // namespace

int main(int argc, char** argv) {
    const bool fromFile = argc == 5 && std::strcmp(argv[3], "--ranges") == 0;
    const bool batch = argc == 4 && std::strcmp(argv[1], "--sources") == 0;
    if (argc != 4 && !fromFile) {
        std::fprintf(stderr,
                     "usage: vellira-bench-limit SOURCE.pdf OUTPUT-FOLDER PAGES-PER-RANGE\n"
                     "       vellira-bench-limit SOURCE.pdf OUTPUT-FOLDER --ranges FILE\n"
                     "       vellira-bench-limit --sources FILE OUTPUT-FOLDER\n");
        return 2;
    }
    const std::string folder = batch ? argv[3] : argv[2];
    const int every = fromFile || batch ? 0 : std::atoi(argv[3]);
    std::vector<Job> jobs;
    if (!batch) jobs.push_back({argv[1], {}});
    if (batch ? !readRanges(argv[2], true, jobs) : fromFile ? !readRanges(argv[4], false, jobs) : every < 1) return 2;
    fz_context* ctx = fz_new_context(nullptr, nullptr, FZ_STORE_DEFAULT);
    volatile int status = 0;
    int files = 0;
    long words = 0;
    fz_try(ctx) {
        for (auto& job : jobs) runJob(ctx, job, every, folder, files, words);
        std::printf("%zu sources, %ld words, %d files\n", jobs.size(), words, files);
    }
    fz_catch(ctx) {
        std::fprintf(stderr, "vellira-bench-limit: %s\n", fz_caught_message(ctx));
        status = 1;
    }
    fz_drop_context(ctx);
    return status;
}
