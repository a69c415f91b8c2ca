#include "engine/PageWords.h"

#include <climits>
#include <cmath>

namespace vellira {

int truncateCoordinate(double points) {
    if (std::isnan(points)) return 0;
    const double whole = std::trunc(points);
    if (whole >= static_cast<double>(INT_MAX)) return INT_MAX;
    if (whole <= static_cast<double>(INT_MIN)) return INT_MIN;
    return static_cast<int>(whole);
}

std::size_t characterCount(std::string_view text) {
    std::size_t count = 0;
    for (const char c : text) count += (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    return count;
}

std::string_view firstCharacters(std::string_view text, std::size_t maxChars) {
    std::size_t chars = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        // A character starts at every byte that is not a UTF-8 continuation.
        if ((static_cast<unsigned char>(text[i]) & 0xC0) != 0x80 && chars++ == maxChars) return text.substr(0, i);
    }
    return text;
}

std::optional<std::size_t> streamedWordLimit(int takenCharsForFilename) {
    if (takenCharsForFilename > 0 && takenCharsForFilename != 999)
        return static_cast<std::size_t>(takenCharsForFilename);
    return std::nullopt;
}

void streamPageWords(DocumentHost& host, DocHandle doc, int page, std::optional<std::size_t> limit,
                     const WordConsumer& consumer) {
    host.enumerateWords(doc, page, [&](const HostWord& hostWord) {
        Word word;
        word.text = firstCharacters(hostWord.text, kMaxWordChars);
        if (limit) word.text = firstCharacters(word.text, *limit);
        word.h = truncateCoordinate(hostWord.h);
        word.v = truncateCoordinate(hostWord.v);
        word.page = page;
        word.number = hostWord.number;
        return consumer(word);
    });
}

std::optional<DocHandle> wordFinderDocument(DocumentHost& host, RunInterface& ui) {
    std::optional<DocHandle> doc;
    try {
        if (const auto view = host.activeViewDocument()) doc = host.documentOfView(*view);
    } catch (const HostError&) {
        doc.reset();
    }
    if (!doc || !*doc) {
        ui.note("WordFinder Can't open current file");
        return std::nullopt;
    }
    return doc;
}

PageWordStore::PageWordStore() : wordH(kLimit + 1), wordV(kLimit + 1) {}

void PageWordStore::readPage(DocumentHost& host, DocHandle doc, int page, bool rotated, RunInterface& ui) {
    count = 0;
    wordText.clear();
    try {
        host.enumerateWords(doc, page, [&](const HostWord& hostWord) {
            // Deliberately strict: the 32769th word still fits (index 32768).
            if (count > kLimit) {
                ui.note("Too many words on the page for internal memory to handle! 32768");
                return false;
            }
            if (ui.cancelled()) return false;
            const int h = truncateCoordinate(hostWord.h);
            const int v = truncateCoordinate(hostWord.v);
            wordH[count] = rotated ? v : h;
            wordV[count] = rotated ? h : v;
            wordText.emplace_back(firstCharacters(hostWord.text, kMaxWordChars));
            ++count;
            return true;
        });
    } catch (const HostError& error) {
        ui.note("Abort!! Error message: " + error.text());
        throw;
    }
}

bool PageWordStore::tooManyWords(RunInterface& ui) const {
    if (count <= kLimit) return false;
    ui.note("Too many words on the page!");
    return true;
}

}  // namespace vellira
