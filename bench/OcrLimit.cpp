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

#include "PageImages.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

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
    const int status = readEveryPage("vellira-bench-ocr-limit", source, dpi, "words", [&](const PageImage& page) {
        reader.SetImage(page.samples, page.width, page.height, 1, page.stride);
        reader.SetSourceResolution(page.dpi);
        long words = 0;
        if (reader.Recognize(nullptr) == 0) {
            std::unique_ptr<tesseract::ResultIterator> word(reader.GetIterator());
            for (bool more = word && !word->Empty(tesseract::RIL_WORD); more; more = word->Next(tesseract::RIL_WORD))
                ++words;
        }
        reader.Clear();
        return words;
    });
    reader.End();
    return status;
}
