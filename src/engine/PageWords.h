// The words of a page, as every text decision of the split engine sees them.
//
// Words come from the host in reading order, each with its text (at most 255
// characters here) and its anchor point. They are consumed two ways: streamed
// one at a time to the match engine, or collected into a PageWordStore and
// searched afterwards. The page positions file lists them for the user.
#pragma once

#include "core/DocumentHost.h"
#include "core/RunInterface.h"
#include "core/SplitSettings.h"

#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vellira {

inline constexpr std::size_t kMaxWordChars = 255;

// The character limit TAKENCHARSFORFILENAME puts on streamed words: N when
// N > 0 and N != 999 (999 means no limit), else none.
std::optional<std::size_t> streamedWordLimit(int takenCharsForFilename);

// Streams the words of a 0-based page to `consumer` until it returns false.
// Texts are cut to 255 characters, then to `limit` when given; the cut comes
// before any comparison the consumer makes. Throws HostError.
void streamPageWords(DocumentHost& host, DocHandle doc, int page, std::optional<std::size_t> limit,
                     const WordCallback& consumer);

// The document the word finder reads: always the one active in the viewer.
// Shows "WordFinder Can't open current file" and answers none when there is
// no such document.
std::optional<DocHandle> wordFinderDocument(DocumentHost& host, RunInterface& ui);

// The words of one page, held for searching. Room for 32769 words is kept
// from one page to the next; the store refuses words only from the 32770th on.
class PageWordStore {
public:
    static constexpr int kLimit = 32768;

    std::vector<Word> words;

    int count() const { return static_cast<int>(words.size()); }

    // Reads a 0-based page into the store. With `rotated`, h and v are saved
    // swapped so that v is the line coordinate of vertical text. Stops the page
    // with "Too many words on the page for internal memory to handle! 32768"
    // when it overflows, and quietly when the run is cancelled. A host failure
    // is shown as "Abort!! Error message: %s" and rethrown.
    void readPage(DocumentHost& host, DocHandle doc, int page, bool rotated, RunInterface& ui);

    // The check a consumer makes before using the page: shows "Too many words
    // on the page!" and answers true when the store holds more than 32768.
    bool tooManyWords(RunInterface& ui) const;
};

// "page_positions.txt" in the temporary folder.
std::filesystem::path pagePositionsPath();

// One word line of the page positions file: "%-20s\t%-3d\t%-3d\r\n", widths
// counted in characters.
std::string pagePositionsLine(std::string_view word, int h, int v);

// Writes the page positions file for a 0-based page of the document in view:
// every word of the page with its h and v, so the user can pick an
// "At position" value. Returns the file's path, or none after showing why
// it could not be written.
std::optional<std::filesystem::path> writePagePositions(DocumentHost& host, RunInterface& ui,
                                                        const SplitSettings& settings, int page);

}  // namespace vellira
