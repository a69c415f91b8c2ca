// The checks a piece must pass before it goes out: its pages' "Page N of M"
// numbering runs 1..M with no gap, its number of pages lies within bounds,
// the value naming it has the shape it must. What a piece is made of is
// gathered as its ranges are written; it is judged once it is whole.
#pragma once

#include "core/DocumentHost.h"
#include "core/SplitSettings.h"

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace re2 {
class RE2;
}

namespace vellira {

// A piece as its ranges made it.
struct PieceRecord {
    std::string file;    // where it is saved
    std::string source;  // the source of its first range
    std::string pages;   // its 1-based source pages: "1-3, 7"
    std::string value;   // what names it
    int pageCount = 0;
    // The (N, M) of "Page N of M" on each of its pages that shows one, in order.
    std::vector<std::pair<long, long>> numbering;
    // Adds 1-based pages first..last of `source`.
    void addPages(const std::string& source, int first, int last);
};

// One line of the exceptions report: a piece that broke a check, and where
// it went.
struct PieceException {
    std::string source;
    std::string pages;
    std::string value;
    std::string check;
    std::string path;    // where the piece is now
    std::string folder;  // the exceptions folder, where the report goes
};

class PieceChecks {
public:
    // The message for a check pattern that is not one, or none.
    static std::optional<std::string> error(const SplitSettings& settings);

    explicit PieceChecks(const SplitSettings& settings);
    ~PieceChecks();

    bool on() const { return numbering_ || value_ || minPages_ > 0 || maxPages_ > 0; }
    bool numbersPages() const { return numbering_ != nullptr; }
    // The "Page N of M" a page's text shows, when it shows one.
    std::optional<std::pair<long, long>> numberOf(const std::string& pageText) const;
    // The first check the piece breaks, as the exceptions report tells it;
    // none when it passes them all.
    std::optional<std::string> broken(const PieceRecord& piece) const;

private:
    std::unique_ptr<re2::RE2> numbering_;
    std::unique_ptr<re2::RE2> value_;
    int minPages_ = 0;
    int maxPages_ = 0;
};

}  // namespace vellira
