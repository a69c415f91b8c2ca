#include "mail/AddressCapture.h"

#include "engine/PageWords.h"

#include <algorithm>
#include <cstdlib>

namespace vellira {

namespace {

constexpr std::size_t kMaxPartWords = 255;

bool below(int bound, int value) { return bound == -1 || bound <= value; }
bool above(int bound, int value) { return bound == -1 || bound >= value; }

// Text drawn twice at the same place (or one unit off) counts once. The
// distances are taken in 64 bits: positions span the whole range of int.
bool doubled(const Word& a, const Word& b) {
    if (a.text != b.text) return false;
    const long long dv = std::llabs(static_cast<long long>(a.v) - b.v);
    const long long dh = std::llabs(static_cast<long long>(a.h) - b.h);
    return (dv == 0 && dh <= 1) || (dh == 0 && dv == 1);
}

void sortByLine(std::vector<Word>& words) {
    std::stable_sort(words.begin(), words.end(), [](const Word& a, const Word& b) { return a.v < b.v; });
}

}  // namespace

std::string addressAmong(std::vector<Word> words, const SplitSettings& s) {
    sortByLine(words);
    bool blanked = false;
    for (std::size_t i = 1; i < words.size(); ++i) {
        if (!words[i].text.empty() && doubled(words[i - 1], words[i])) {
            words[i] = Word{};
            blanked = true;
        }
    }
    if (blanked) sortByLine(words);

    std::string result;
    for (std::size_t i = 0; i < words.size(); ++i) {
        const Word& word = words[i];
        if (!below(s.EMAILMATCHVERT, word.v) || !above(s.EMAILMATCHVERTTO, word.v) ||
            !below(s.EMAILMATCHHORIZ, word.h) || !above(s.EMAILMATCHHORIZTO, word.h) ||
            word.text.find('@') == std::string::npos)
            continue;
        // Left part: the address word and its left neighbours on its line,
        // nearest first.
        std::vector<const Word*> left;
        if (i > 0) {
            for (std::size_t k = i + 1; k-- > 0 && left.size() < kMaxPartWords;) {
                if (words[k].v != word.v || !below(s.EMAILMATCHHORIZ, words[k].h)) break;
                left.push_back(&words[k]);
            }
        }
        std::vector<const Word*> right;
        for (std::size_t k = i + 1; k < words.size() && right.size() < kMaxPartWords; ++k) {
            if (words[k].v != word.v || !above(s.EMAILMATCHHORIZTO, words[k].h)) break;
            right.push_back(&words[k]);
        }
        // The farthest "After text" on the left cuts it and all before it.
        std::size_t keep = left.size();
        if (!s.EMAILHORIZAFTERTEXT.empty()) {
            for (std::size_t slot = left.size(); slot-- > 1;) {
                if (left[slot]->text == s.EMAILHORIZAFTERTEXT) {
                    keep = slot;
                    break;
                }
            }
        }
        std::string joined;
        for (std::size_t slot = keep; slot-- > 1;) joined += left[slot]->text;
        joined += word.text;
        for (const Word* next : right) {
            if (!s.EMAILHORIZBEFORETEXT.empty() && next->text == s.EMAILHORIZBEFORETEXT) break;
            joined += next->text;
        }
        result = std::move(joined);
    }
    return result;
}

std::string captureAddress(DocumentHost& host, RunInterface& ui, const SplitSettings& settings,
                           const std::filesystem::path& file) {
    DocHandle doc;
    try {
        doc = host.openDocumentUnseen(file);
    } catch (const HostError&) {
        return {};
    }
    std::vector<Word> words;
    bool tooMany = false;
    PageWordStore store;
    try {
        const int pages = host.pageCount(doc);
        for (int page = 0; page < pages && !tooMany && !ui.cancelled(); ++page) {
            store.readPage(host, doc, page, settings.ROTATED != 0, ui);
            tooMany = store.count() > PageWordStore::kLimit ||
                      words.size() + store.words.size() > static_cast<std::size_t>(PageWordStore::kLimit);
            if (!tooMany) words.insert(words.end(), store.words.begin(), store.words.end());
        }
    } catch (const HostError&) {
        host.closeDocument(doc);
        return {};
    }
    host.closeDocument(doc);
    if (tooMany) {
        ui.note("Too many words on the page!");
        return "-1";
    }
    return addressAmong(std::move(words), settings);
}

}  // namespace vellira
