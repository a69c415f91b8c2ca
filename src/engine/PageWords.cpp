#include "engine/PageWords.h"

#include "core/Text.h"
#include "files/SettingsLocations.h"
#include "reading/Recognition.h"

#include <sstream>

namespace vellira {

std::optional<std::size_t> streamedWordLimit(int takenCharsForFilename) {
    if (takenCharsForFilename > 0 && takenCharsForFilename != 999)
        return static_cast<std::size_t>(takenCharsForFilename);
    return std::nullopt;
}

void streamPageWords(DocumentHost& host, DocHandle doc, int page, std::optional<std::size_t> limit,
                     const WordCallback& consumer) {
    const std::size_t most = limit ? std::min(*limit, kMaxWordChars) : kMaxWordChars;
    host.enumerateWords(doc, page, [&](const Word& word) {
        const std::size_t kept = firstCharacters(word.text, most).size();
        if (kept == word.text.size()) return consumer(word);
        Word cut = word;
        cut.text.resize(kept);
        return consumer(cut);
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

void PageWordStore::readPage(DocumentHost& host, DocHandle doc, int page, bool rotated, RunInterface& ui) {
    words.clear();
    // The room is taken when first needed: a run that never reads a page
    // into a store does not pay for it.
    if (words.capacity() == 0) words.reserve(kLimit + 1);
    try {
        host.enumerateWords(doc, page, [&](const Word& word) {
            // Deliberately strict: the 32769th word still fits (index 32768).
            if (count() > kLimit) {
                ui.note("Too many words on the page for internal memory to handle! 32768");
                return false;
            }
            if (ui.cancelled()) return false;
            Word& kept = words.emplace_back(word);
            kept.text.resize(firstCharacters(word.text, kMaxWordChars).size());
            if (rotated) std::swap(kept.h, kept.v);
            return true;
        });
    } catch (const HostError& error) {
        ui.note("Abort!! Error message: " + error.text());
        throw;
    }
}

bool PageWordStore::tooManyWords(RunInterface& ui) const {
    if (count() <= kLimit) return false;
    ui.note("Too many words on the page!");
    return true;
}

std::filesystem::path pagePositionsPath() {
    // In the user's own temporary folder: a name in the shared one could be
    // planted by someone else.
    return privateTemporaryFolder().value_or(settingsFolder()) / "page_positions.txt";
}

std::string pagePositionsLine(std::string_view word, int h, int v) {
    return padRight(word, 20) + "\t" + padRight(std::to_string(h), 3) + "\t" + padRight(std::to_string(v), 3) + "\r\n";
}

std::optional<std::filesystem::path> writePagePositions(DocumentHost& host, RunInterface& ui,
                                                        const SplitSettings& settings, int page) {
    std::optional<DocHandle> doc;
    if (const auto view = host.activeViewDocument()) doc = host.documentOfView(*view);
    if (!doc) {
        ui.note("Please open a file first!");
        return std::nullopt;
    }
    host.setTextRecognition(textRecognitionFor(settings));
    const auto path = pagePositionsPath();
    const std::string shownPath = pathText(path);
    std::ostringstream file;
    file << "Vellira Batch " << kVersionText << "  -= Ornwick Software =-\r\n\r\n"
         << "View file: " << shownPath << "\r\n"
         << "Source PDF File: " << settings.FILENAME << "\r\n\r\n"
         << "Below are the coordinate positions of every word on the current page in view,\r\n"
            "to optionally match on this position enter the coordinates in the main screen 'At position' "
            "boxes\r\n"
            "i.e. h=horizontal position, v=vertical position\r\n\r\n"
         << padRight("Word", 20) << "\t" << padRight("Horiz", 3) << "\t" << padRight("Vert", 3) << "\r\n"
         << padRight("----", 20) << "\t" << padRight("-----", 3) << "\t" << padRight("----", 3) << "\r\n\r\n";
    try {
        streamPageWords(host, *doc, page, streamedWordLimit(settings.TAKENCHARSFORFILENAME), [&](const Word& word) {
            std::string line = pagePositionsLine(word.text, word.h, word.v);
            // A word read from the page's image says so, with how sure the
            // reading was; a code says its kind.
            if (word.confidence >= 0) line.insert(line.size() - 2, "\tOCR " + std::to_string(word.confidence) + "%");
            if (word.code != CodeFormat::None)
                line.insert(line.size() - 2, "\tcode " + std::string(codeFormatName(word.code)));
            file << line;
            return true;
        });
    } catch (const HostError& error) {
        ui.note("Abort!! Find Word Error message: " + error.text());
        return std::nullopt;
    }
    const std::string text = file.str();
    FileHandle written = openFile(path, "wb");
    if (!written || std::fwrite(text.data(), 1, text.size(), written.get()) != text.size() ||
        std::fclose(written.release()) != 0) {
        ui.note("file error! can't write to page positions file: " + shownPath);
        return std::nullopt;
    }
    return path;
}

}  // namespace vellira
