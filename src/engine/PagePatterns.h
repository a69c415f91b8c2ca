// Search and until texts as patterns (regular expressions, RE2) over the
// text of a page: its words joined by single blanks, so that a pattern may
// take in several words and lines. RE2 matches in time linear in the text,
// so no pattern and no page can hang a run.
#pragma once

#include "core/DocumentHost.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace re2 {
class RE2;
}

namespace vellira {

// A pattern as RE2 takes it, without writing its errors anywhere; none for
// an empty text or one that is not a pattern.
std::unique_ptr<re2::RE2> compiledPattern(const std::string& pattern, bool ignoreCase);

class PagePatterns {
public:
    // What the patterns found at one word of a page.
    struct Hit {
        bool start = false;     // a match of the search pattern begins here
        bool until = false;     // a match of the until pattern begins here
        bool captured = false;  // the search pattern has a group: `capture` is what it took
        std::string capture;
        std::string whole;                // the search pattern's match
        std::vector<std::string> groups;  // what each of its groups took, the first first
    };

    // The message for a pattern that is not one ("" for an empty text), or
    // none.
    static std::optional<std::string> error(const std::string& pattern, bool ignoreCase);

    PagePatterns(const std::string& find, const std::string& until, bool ignoreCase);
    ~PagePatterns();

    // Finds the matches on a page's words; `hit` then tells word by word.
    void read(const std::vector<Word>& words);
    const Hit& hit(std::size_t word) const { return word < hits_.size() ? hits_[word] : none_; }

private:
    std::unique_ptr<re2::RE2> find_;
    std::unique_ptr<re2::RE2> until_;
    std::vector<Hit> hits_;
    Hit none_;
};

}  // namespace vellira
