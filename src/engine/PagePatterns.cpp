#include "engine/PagePatterns.h"

#include <re2/re2.h>

#include <algorithm>

namespace vellira {

namespace {

RE2::Options optionsFor(bool ignoreCase) {
    RE2::Options options;
    options.set_log_errors(false);
    options.set_case_sensitive(!ignoreCase);
    return options;
}

}  // namespace

std::unique_ptr<RE2> compiledPattern(const std::string& pattern, bool ignoreCase) {
    if (pattern.empty()) return nullptr;
    auto re = std::make_unique<RE2>(pattern, optionsFor(ignoreCase));
    return re->ok() ? std::move(re) : nullptr;
}

std::optional<std::string> PagePatterns::error(const std::string& pattern, bool ignoreCase) {
    if (pattern.empty()) return std::nullopt;
    const RE2 re(pattern, optionsFor(ignoreCase));
    if (re.ok()) return std::nullopt;
    std::string message = "The pattern \"" + pattern + "\" is not one";
    if (const auto at = re.error_arg().empty() ? std::string::npos : pattern.find(re.error_arg());
        at != std::string::npos)
        message += " at column " + std::to_string(at + 1);
    return message + ": " + re.error();
}

PagePatterns::PagePatterns(const std::string& find, const std::string& until, bool ignoreCase)
    : find_(compiledPattern(find, ignoreCase)), until_(compiledPattern(until, ignoreCase)) {}

PagePatterns::~PagePatterns() = default;

void PagePatterns::read(const std::vector<Word>& words) {
    hits_.assign(words.size(), Hit{});
    if (words.empty() || (!find_ && !until_)) return;
    std::string text;
    std::vector<std::size_t> starts;  // where each word begins in `text`
    starts.reserve(words.size());
    for (const Word& word : words) {
        if (!text.empty()) text.push_back(' ');
        starts.push_back(text.size());
        text += word.text;
    }
    // The word a match beginning at `offset` begins in (or after, at a blank).
    const auto wordAt = [&](std::size_t offset) {
        const auto after = std::upper_bound(starts.begin(), starts.end(), offset);
        std::size_t word = static_cast<std::size_t>(after - starts.begin()) - 1;
        if (offset < text.size() && text[offset] == ' ' && word + 1 < words.size()) ++word;
        return word;
    };
    const auto scan = [&](const RE2& re, auto&& found) {
        const int groups = re.NumberOfCapturingGroups();
        const auto named = re.NamedCapturingGroups().find("name");
        const int taken = named != re.NamedCapturingGroups().end() ? named->second : groups > 0 ? 1 : 0;
        std::vector<re2::StringPiece> parts(static_cast<std::size_t>(groups) + 1);
        for (std::size_t from = 0; from <= text.size();) {
            if (!re.Match(text, from, text.size(), RE2::UNANCHORED, parts.data(), static_cast<int>(parts.size())))
                break;
            const auto begin = static_cast<std::size_t>(parts[0].data() - text.data());
            found(hits_[wordAt(begin)], taken, parts);
            from = parts[0].empty() ? begin + 1 : begin + parts[0].size();
        }
    };
    const auto piece = [](const re2::StringPiece& part) { return std::string(part.data(), part.size()); };
    if (find_)
        scan(*find_, [&](Hit& hit, int taken, const std::vector<re2::StringPiece>& parts) {
            if (hit.start) return;  // the first match at a word counts
            hit.start = true;
            hit.captured = taken > 0;
            hit.capture = piece(parts[static_cast<std::size_t>(taken)]);
            hit.whole = piece(parts[0]);
            for (std::size_t group = 1; group < parts.size(); ++group) hit.groups.push_back(piece(parts[group]));
        });
    if (until_) scan(*until_, [](Hit& hit, int, const std::vector<re2::StringPiece>&) { hit.until = true; });
}

}  // namespace vellira
