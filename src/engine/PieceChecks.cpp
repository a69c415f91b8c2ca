#include "engine/PieceChecks.h"

#include "engine/PagePatterns.h"

#include <re2/re2.h>

#include <algorithm>
#include <set>

namespace vellira {

void PieceRecord::addPages(const std::string& from, int first, int last) {
    if (source.empty()) source = from;
    if (!pages.empty()) pages += ", ";
    if (from != source) pages += from + ":";
    pages += first == last ? std::to_string(first) : std::to_string(first) + "-" + std::to_string(last);
    pageCount += last - first + 1;
}

std::optional<std::string> PieceChecks::error(const SplitSettings& settings) {
    for (const auto& [key, pattern] :
         {std::pair{"CHECKPAGEOF", &settings.CHECKPAGEOF}, {"CHECKVALUE", &settings.CHECKVALUE}}) {
        if (pattern->empty()) continue;
        RE2::Options options;
        options.set_log_errors(false);
        const RE2 re(*pattern, options);
        if (!re.ok()) return std::string(key) + ": the pattern \"" + *pattern + "\" is not one: " + re.error();
        if (pattern == &settings.CHECKPAGEOF && re.NumberOfCapturingGroups() < 2)
            return std::string(key) + ": the pattern \"" + *pattern +
                   "\" needs two groups, the page's number and the count: Page (\\d+) of (\\d+)";
    }
    return std::nullopt;
}

PieceChecks::PieceChecks(const SplitSettings& settings)
    : numbering_(compiledPattern(settings.CHECKPAGEOF, false)),
      value_(compiledPattern(settings.CHECKVALUE, false)),
      minPages_(std::max(0, settings.CHECKMINPAGES)),
      maxPages_(std::max(0, settings.CHECKMAXPAGES)) {}

PieceChecks::~PieceChecks() = default;

std::optional<std::pair<long, long>> PieceChecks::numberOf(const std::string& pageText) const {
    long number = 0;
    long count = 0;
    if (!numbering_ || !RE2::PartialMatch(pageText, *numbering_, &number, &count)) return std::nullopt;
    return std::pair{number, count};
}

std::optional<std::string> PieceChecks::broken(const PieceRecord& piece) const {
    if (minPages_ > 0 && piece.pageCount < minPages_)
        return "fewer than " + std::to_string(minPages_) + " pages (" + std::to_string(piece.pageCount) + ")";
    if (maxPages_ > 0 && piece.pageCount > maxPages_)
        return "more than " + std::to_string(maxPages_) + " pages (" + std::to_string(piece.pageCount) + ")";
    if (value_ && !RE2::FullMatch(piece.value, *value_)) return "value does not match " + value_->pattern();
    if (!numbering_) return std::nullopt;
    if (piece.numbering.empty()) return "no page numbering found";
    const long count = piece.numbering.front().second;
    std::set<long> seen;
    for (const auto& [number, of] : piece.numbering) {
        if (of != count)
            return "page numbering: page " + std::to_string(number) + " of " + std::to_string(of) + " among pages of " +
                   std::to_string(count);
        if (number < 1 || number > count)
            return "page numbering: page " + std::to_string(number) + " of " + std::to_string(count);
        if (!seen.insert(number).second)
            return "page numbering: page " + std::to_string(number) + " of " + std::to_string(count) + " twice";
    }
    // The first page missing is at most one past those seen: a count read
    // from a hostile page never makes this a long loop.
    const long last = std::min<long>(count, static_cast<long>(seen.size()) + 1);
    for (long number = 1; number <= last; ++number)
        if (!seen.contains(number))
            return "page numbering: page " + std::to_string(number) + " of " + std::to_string(count) + " missing";
    return std::nullopt;
}

}  // namespace vellira
