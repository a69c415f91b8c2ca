// The words of a page, as every text decision of the split engine sees them.
//
// Words come from the host in reading order. Each carries its text (at most
// 255 characters) and one anchor point, the bottom-left corner of its first
// character, in whole PDF points truncated toward zero. They are consumed two
// ways: streamed one at a time to the match engine, or collected into a
// PageWordStore and searched afterwards.
#pragma once

#include "core/DocumentHost.h"
#include "core/RunInterface.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vellira {

inline constexpr std::size_t kMaxWordChars = 255;

struct Word {
    std::string_view text;
    int h = 0;
    int v = 0;
    int page = 0;  // 0-based
    std::uint16_t number = 0;
};
using WordConsumer = std::function<bool(const Word&)>;

// A coordinate in points as a whole number: truncated toward zero, so 99.99
// gives 99 and -0.5 gives 0. Values outside 32 bits saturate; NaN gives 0.
int truncateCoordinate(double points);

// Number of characters in a UTF-8 text.
std::size_t characterCount(std::string_view text);

// The first `maxChars` characters of a UTF-8 text; never splits a character.
std::string_view firstCharacters(std::string_view text, std::size_t maxChars);

// The character limit TAKENCHARSFORFILENAME puts on streamed words: N when
// N > 0 and N != 999 (999 means no limit), else none.
std::optional<std::size_t> streamedWordLimit(int takenCharsForFilename);

// Streams the words of a 0-based page to `consumer` until it returns false.
// Texts are cut to 255 characters, then to `limit` when given; the cut comes
// before any comparison the consumer makes. Throws HostError.
void streamPageWords(DocumentHost& host, DocHandle doc, int page, std::optional<std::size_t> limit,
                     const WordConsumer& consumer);

// The document the word finder reads: always the one active in the viewer.
// Shows "WordFinder Can't open current file" and answers none when there is
// no such document.
std::optional<DocHandle> wordFinderDocument(DocumentHost& host, RunInterface& ui);

// The words of one page, held for searching. The position arrays have a fixed
// room of 32769 entries so a page never allocates per coordinate; the store
// refuses words only from the 32770th on.
class PageWordStore {
public:
    static constexpr int kLimit = 32768;

    int count = 0;
    std::vector<int> wordH;
    std::vector<int> wordV;
    std::vector<std::string> wordText;

    PageWordStore();

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

}  // namespace vellira
