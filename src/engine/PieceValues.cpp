// Pieces by value: a piece starts where the value read from each page
// changes; the lookup list names pieces by their value; the checks judge
// each piece once it is whole and hold back those that fail.
#include "engine/SplitEngine.h"

#include "core/Text.h"
#include "engine/MatchRules.h"

#include <algorithm>

namespace vellira {

bool SplitEngine::takeValueSettings(PageExtractMode mode) {
    valueArea_.reset();
    if (settings.SPLITONCHANGE && !settings.VALUEAREA.empty()) {
        std::array<int, 4> area{};
        std::string_view rest = settings.VALUEAREA;
        bool read = true;
        for (std::size_t at = 0; at < area.size() && read; ++at) {
            const auto comma = rest.find(',');
            const std::string_view number = rest.substr(0, comma);
            read = !number.empty() && (at == 3) == (comma == std::string_view::npos) &&
                   number.find_first_not_of(" -0123456789") == std::string_view::npos;
            if (!read) break;
            area[at] = leadingInteger(number);
            rest = comma == std::string_view::npos ? std::string_view() : rest.substr(comma + 1);
        }
        if (!read || area[0] > area[2] || area[1] > area[3]) {
            ui.note("VALUEAREA takes left,bottom,right,top in points, such as 450,760,580,790, not \"" +
                    settings.VALUEAREA + "\"");
            return false;
        }
        valueArea_ = area;
    }
    const bool atPosition = mode == PageExtractMode::NextMatchAtPosition ||
                            mode == PageExtractMode::NextUniqueMatchAtPosition ||
                            mode == PageExtractMode::UntilMatchAtPosition;
    if (settings.SPLITONCHANGE && isBookmarkMode(mode)) {
        ui.note("SPLITONCHANGE cuts by the pages' text, the bookmark split modes by the bookmarks: choose one");
        return false;
    }
    if (settings.SPLITONCHANGE && !valueArea_ && !atPosition && settings.FINDSTRING.empty()) {
        ui.note(
            "SPLITONCHANGE reads each page's value after the search text, by a pattern, at a position or in "
            "VALUEAREA: set one of them");
        return false;
    }
    if (const auto error = PieceChecks::error(settings)) {
        ui.note(*error);
        return false;
    }
    checks_ = std::make_unique<PieceChecks>(settings);
    if (!checks_->on()) checks_.reset();
    const std::pair<std::string, std::string> from{settings.LOOKUPFILE, settings.LOOKUPKEYCOLUMN};
    if (settings.LOOKUPFILE.empty()) {
        lookup_.reset();
    } else if (!lookup_ || lookupFrom_ != from) {
        std::string error;
        lookup_ = LookupList::read(host.makeHostPath(settings.LOOKUPFILE), settings.LOOKUPKEYCOLUMN, error);
        if (!lookup_) {
            ui.note(error);
            return false;
        }
    }
    if (lookup_ && !settings.LOOKUPEMAILCOLUMN.empty() && !lookup_->column(settings.LOOKUPEMAILCOLUMN)) {
        ui.note("The list '" + settings.LOOKUPFILE + "' has no column \"" + settings.LOOKUPEMAILCOLUMN + "\"");
        return false;
    }
    lookupFrom_ = from;
    composer.lookup = lookup_ ? &*lookup_ : nullptr;
    composer.lookupRow = nullptr;
    return true;
}

std::optional<std::pair<std::string, const Word*>> SplitEngine::pageValue(const PageText& page) const {
    const std::vector<Word>& words = page.words;
    if (valueArea_) {
        const auto [left, bottom, right, top] = *valueArea_;
        std::string value;
        const Word* first = nullptr;
        for (const Word& word : words) {
            if (word.h < left || word.h > right || word.v < bottom || word.v > top) continue;
            if (!first) first = &word;
            if (!value.empty()) value += ' ';
            value += word.text;
        }
        if (!first) return std::nullopt;
        return std::pair{std::move(value), first};
    }
    if (patterns_) {
        for (std::size_t index = 0; index < words.size(); ++index)
            if (const auto& hit = patterns_->hit(index); hit.start)
                return std::pair{hit.captured ? hit.capture : hit.whole, &words[index]};
        return std::nullopt;
    }
    const bool ignoreCase = settings.IGNORECASE != 0;
    const auto same = [&](std::string_view a, std::string_view b) {
        return ignoreCase ? equalsIgnoringCase(a, b) : a == b;
    };
    const PageExtractMode mode = run.lAquireType;
    if (mode == PageExtractMode::NextMatchAtPosition || mode == PageExtractMode::NextUniqueMatchAtPosition ||
        mode == PageExtractMode::UntilMatchAtPosition) {
        const PositionSpec h = parsePosition(settings.MATCHPOSH);
        const PositionSpec v = parsePosition(settings.MATCHPOSV);
        for (const Word& word : words)
            if ((settings.FINDSTRING.empty() || same(word.text, settings.FINDSTRING)) &&
                startPositionPasses(h, v, word.h, word.v, characterCount(word.text)))
                return std::pair{word.text, &word};
        return std::nullopt;
    }
    // The word after the first match of the search text.
    const std::size_t count = static_cast<std::size_t>(std::max(1, run.lExtractOnCharsNumWords));
    std::string joined;
    for (std::size_t index = 0; index + count < words.size(); ++index) {
        joined.clear();
        for (std::size_t at = index; at < index + count; ++at) {
            if (at > index) joined += ' ';
            joined += words[at].text;
        }
        if (same(joined, settings.FINDSTRING)) return std::pair{words[index + count].text, &words[index + count]};
    }
    return std::nullopt;
}

void SplitEngine::valueChange(const PageText& page) {
    auto found = pageValue(page);
    if (!found || (doc.value && *doc.value == found->first)) return;
    const bool first = !doc.value;
    doc.value = found->first;
    if (view_ == ScanView::ShowHighlights) {
        highlight(*found->second);
        return;
    }
    if (doc.lStartPage >= 0) {
        doc.lEndPage = std::max(page.page - 1, doc.lStartPage);
        extractNamed(doc.g_szBuf, "v)");
    }
    // The pages before the first value belong to the first piece.
    doc.lStartPage = rangeStart(first ? std::min(page.page, doc.valueFrom) : page.page);
    doc.g_szBuf = FilenameComposer::cleanName(found->first);
    doc.szOutFilenameLine = found->first;
    if (patterns_ && !valueArea_)
        composer.groups = patterns_->hit(static_cast<std::size_t>(found->second - page.words.data())).groups;
}

void SplitEngine::recordPiece(const std::string& outFile, const std::string& file, int start, int end) {
    PieceRecord& piece = run.pieces[outFile];
    piece.file = file;
    piece.addPages(settings.FILENAME, start + 1, end + 1);
    if (piece.value.empty()) piece.value = doc.g_szBuf;
    if (!checks_ || !checks_->numbersPages()) return;
    auto words = recentWords(start, end);
    if (!words) words = sourceWords(start, end);
    if (!words) return;
    std::string text;
    const auto pageDone = [&] {
        if (const auto number = checks_->numberOf(text)) piece.numbering.push_back(*number);
        text.clear();
    };
    for (std::size_t index = 0; index < words->size(); ++index) {
        if (index > 0 && (*words)[index].page != (*words)[index - 1].page) pageDone();
        if (!text.empty()) text += ' ';
        text += (*words)[index].text;
    }
    pageDone();
}

std::filesystem::path SplitEngine::exceptionsFolder(const std::string& outFile) const {
    const std::filesystem::path folder = host.makeHostPath(settings.EXCEPTIONSFOLDER);
    return folder.is_absolute() ? folder : host.makeHostPath(outFile).parent_path() / folder;
}

std::unordered_set<std::string> SplitEngine::judgePieces() {
    // Each output held back: where it is now, and the check it broke.
    std::unordered_map<std::string, std::pair<std::string, std::string>> held;
    for (auto& [outFile, piece] : run.pieces) {
        const auto broken = checks_ ? checks_->broken(piece) : std::nullopt;
        if (!broken) continue;
        const std::filesystem::path folder = exceptionsFolder(piece.file);
        const std::filesystem::path from = host.makeHostPath(piece.file);
        std::string path = piece.file;
        if (!settings.EXCEPTIONSLISTONLY) {
            path = pathText(folder / from.filename());
            std::error_code failed;
            if (!run.planned && !run.plan) {
                std::filesystem::create_directories(folder, failed);
                if (!failed) std::filesystem::rename(from, folder / from.filename(), failed);
            }
            if (failed) {
                ui.note("Can't move '" + piece.file + "' into the exceptions folder: " + failed.message());
                path = piece.file;
            }
        }
        if (const auto known = run.outputIndex.find(outFile); known != run.outputIndex.end())
            run.outputs[known->second].path = path;
        run.exceptions.push_back({piece.source, piece.pages, piece.value, *broken, path, pathText(folder)});
        held.try_emplace(outFile, path, *broken);
    }
    run.pieces.clear();
    if (held.empty()) return {};
    // A plan writes a held piece where it goes, and a preview shows it
    // there; a piece held back is not mailed.
    if (run.planned)
        for (PlannedWrite& write : *run.planned)
            if (const auto found = held.find(write.output); found != held.end()) write.output = found->second.first;
    if (run.plan)
        for (PlannedRange& range : *run.plan)
            if (const auto found = held.find(range.path); found != held.end()) {
                range.exception = found->second.second;
                range.path = found->second.first;
            }
    std::erase_if(doc.mailList, [&](const MailRange& mail) { return held.contains(mail.path); });
    doc.mailIndex.clear();
    for (std::size_t at = 0; at < doc.mailList.size(); ++at) doc.mailIndex[doc.mailList[at].path] = at;
    std::unordered_set<std::string> names;
    for (const auto& [outFile, where] : held) names.insert(outFile);
    return names;
}

}  // namespace vellira
