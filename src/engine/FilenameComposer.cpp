#include "engine/FilenameComposer.h"

#include "core/Text.h"

#include <algorithm>
#include <array>
#include <climits>
#include <filesystem>
#include <optional>

namespace vellira {

namespace {

constexpr std::size_t kMaxNameChars = 255;
constexpr char kSeparator = static_cast<char>(std::filesystem::path::preferred_separator);

bool keptInName(unsigned char c) {
    if (c >= 0x80) return true;
    if (c < 0x20 || c == 0x7F) return false;
    return std::string_view("<>:?*\"/\\|").find(static_cast<char>(c)) == std::string_view::npos;
}

// The last `count` characters removed; a text that is not longer becomes empty.
std::string dropLastCharacters(std::string_view text, std::size_t count) {
    const std::size_t length = characterCount(text);
    return length <= count ? std::string() : std::string(firstCharacters(text, length - count));
}

// One bound of a "[POSh,v]" rectangle: "a" or "a-b" (a minus after the first
// character starts b).
std::pair<int, int> boundsOf(std::string_view text) {
    const int low = leadingInteger(text);
    const auto dash = text.size() > 1 ? text.find('-', 1) : std::string_view::npos;
    return {low, dash == std::string_view::npos ? low : leadingInteger(text.substr(dash + 1))};
}

bool within(int value, int low, int high) { return (low == -1 || low <= value) && (high == -1 || value <= high); }

// Folders take names of at most 255 bytes: a longer last component is cut
// before its ".pdf", on a character boundary, so the save does not fail.
std::string fitLastComponent(std::string path) {
    constexpr std::size_t kMaxNameBytes = 255;
    const auto slash = path.find_last_of(kSeparator == '/' ? "/" : "\\/");
    const std::size_t start = slash == std::string::npos ? 0 : slash + 1;
    if (path.size() - start <= kMaxNameBytes) return path;
    const std::string extension = path.substr(path.size() - 4);
    std::size_t cut = start + kMaxNameBytes - extension.size();
    while (cut > start && (static_cast<unsigned char>(path[cut]) & 0xC0) == 0x80) --cut;
    path.resize(cut);
    return path + extension;
}

}  // namespace

std::optional<FilenameMode> FilenameComposer::namingMode(std::string_view extract) {
    return extract.empty() ? FilenameMode::NextWord : filenameModeOf(extract);
}

std::string FilenameComposer::cleanName(std::string_view text) {
    std::string cleaned;
    cleaned.reserve(text.size());
    for (const char c : text)
        if (keptInName(static_cast<unsigned char>(c))) cleaned += c;
    // "." and ".." name folders, not files: a text of dots alone could climb
    // out of the output folder.
    if (!cleaned.empty() && cleaned.find_first_not_of('.') == std::string::npos)
        std::replace(cleaned.begin(), cleaned.end(), '.', '_');
    return std::string(firstCharacters(cleaned, kMaxNameChars));
}

std::string sourceTitle(std::string_view filename, bool* hadFolder) {
    std::string_view title = filename;
    for (std::size_t at = title.size(); at-- > 1;) {
        if (at + 4 > title.size()) continue;
        const std::string_view tail = title.substr(at, 4);
        if ((tail[0] == '.') && (tail[1] == 'p' || tail[1] == 'P') && (tail[2] == 'd' || tail[2] == 'D') &&
            (tail[3] == 'f' || tail[3] == 'F')) {
            title = title.substr(0, at);
            break;
        }
    }
    const auto slash = title.size() > 1 ? title.find_last_of("\\/") : std::string_view::npos;
    const bool folder = slash != std::string_view::npos && slash > 0;
    if (folder) title = title.substr(slash + 1);
    if (hadFolder) *hadFolder = folder;
    return std::string(title);
}

std::string FilenameComposer::cutBody(std::string text, bool stripEnd) const {
    if (stripEnd && settings_.STRIPEND > 0)
        text = dropLastCharacters(text, static_cast<std::size_t>(settings_.STRIPEND));
    if (const auto limit = streamedWordLimit(settings_.TAKENCHARSFORFILENAME))
        text = std::string(firstCharacters(text, *limit));
    if (!settings_.UNTILCHARACTERFILENAME.empty()) {
        const auto at = text.find(settings_.UNTILCHARACTERFILENAME);
        if (at != std::string::npos) text.resize(at);
    }
    return text;
}

template <typename Value>
void FilenameComposer::expandTokens(std::string& text, std::string_view head, bool clean, Value&& value) {
    for (std::size_t at = text.find(head); at != std::string::npos; at = text.find(head, at)) {
        const auto close = text.find(']', at);
        if (close == std::string::npos) break;
        std::string found = value(std::string_view(text).substr(at + head.size(), close - at - head.size()));
        if (clean) found = cleanName(found);
        text.replace(at, close - at + 1, found);
        at += found.size();
    }
}

std::string FilenameComposer::expandColumns(std::string text, bool clean) const {
    expandTokens(text, "[COL:", clean, [&](std::string_view name) {
        const auto column = lookup && lookupRow ? lookup->column(name) : std::nullopt;
        return column ? (*lookupRow)[*column] : std::string();
    });
    return text;
}

void FilenameComposer::expandMacros(std::string& text, std::string_view cleaned, const NameRange& range) {
    if (text.find('[') == std::string::npos) return;
    const auto number = [](const char* format, long value) { return formatText(format, value); };
    replaceAll(text, "[FILETITLE]", sourceTitle(settings_.FILENAME));
    replaceAll(text, "[EXTRACTTEXT]", cleaned);
    if (text.find("[EXTRACTTEXTDIR]") != std::string::npos) {
        std::error_code ignored;
        if (makeFolders)
            std::filesystem::create_directory(
                host_.makeHostPath(outputFolder(settings_) + kSeparator + std::string(cleaned)), ignored);
        replaceAll(text, "[EXTRACTTEXTDIR]", cleaned);
    }
    expandTokens(text, "[GROUP", true, [&](std::string_view number) {
        const long group = leadingInteger(number);
        return group >= 1 && static_cast<std::size_t>(group) <= groups.size() ? groups[group - 1] : std::string();
    });
    text = expandColumns(std::move(text), true);
    replaceAll(text, "[PAGESTART]", number("%6.6ld", range.start + 1L));
    replaceAll(text, "[PAGEEND]", number("%6.6ld", range.end + 1L));
    replaceAll(text, "[PAGESTARTNOMASK]",
               number("%ld", range.start + static_cast<long>(settings_.offsetFirstWorking) + 1L));
    replaceAll(text, "[PAGEENDNOMASK]", number("%ld", range.end + 1L));
    replaceAll(text, "[PAGES]", number("%6.6ld", range.end - range.start + 1L));
    replaceAll(text, "[TOTALPAGES]", number("%6.6ld", range.totalPages));
    const long long first = range.start + static_cast<long long>(settings_.offsetFirstWorking) + 1;
    expandTokens(text, "[POS", false, [&](std::string_view bounds) {
        return GetPos("[POS" + std::string(bounds) + "]",
                      static_cast<int>(std::clamp<long long>(first, INT_MIN, INT_MAX)), range.end + 1);
    });
    // "[YY]" alone does not start the date group, so it stays as typed.
    static constexpr std::array<std::string_view, 8> kDateStarters = {"[MM]", "[DD]", "[YYYY]", "[M]",
                                                                      "[D]",  "[hh]", "[mm]",   "[ss]"};
    bool dated = false;
    for (const auto token : kDateStarters) dated = dated || text.find(token) != std::string::npos;
    if (!dated) return;
    const std::tm& t = runTime;
    replaceAll(text, "[MM]", formatText("%.2d", t.tm_mon + 1));
    replaceAll(text, "[DD]", formatText("%.2d", t.tm_mday));
    replaceAll(text, "[YY]", formatText("%.2d", t.tm_year + 1900));
    replaceAll(text, "[YYYY]", formatText("%.4d", t.tm_year + 1900));
    replaceAll(text, "[M]", formatText("%d", t.tm_mon + 1));
    replaceAll(text, "[D]", formatText("%d", t.tm_mday));
    replaceAll(text, "[hh]", formatText("%.2d", t.tm_hour));
    replaceAll(text, "[mm]", formatText("%.2d", t.tm_min));
    replaceAll(text, "[ss]", formatText("%.2d", t.tm_sec));
}

const std::string& FilenameComposer::AquireFilename(std::string_view capture, std::string& szOutFilenameLine,
                                                    const NameRange& range) {
    std::string prefix(firstCharacters(settings_.PREFIXFILENAME, kMaxNameChars));
    std::string postfix(firstCharacters(settings_.POSTFIXFILENAME, kMaxNameChars));
    if (trace_.on()) trace_.write("AquireFilename buf: %s\r\n", std::string(capture).c_str());
    const std::string cleaned = cleanName(capture);
    {
        std::string line;
        for (const char c : szOutFilenameLine)
            if (keptInName(static_cast<unsigned char>(c))) line += c;
        szOutFilenameLine = std::move(line);
    }
    if (!mode) return result_;

    bool hadFolder = false;
    if (settings_.USESOURCEFILENAME) {
        prefix = sourceTitle(settings_.FILENAME, &hadFolder);
        if (hadFolder) prefix += '_';
    }
    if (settings_.USESOURCEFILENAMEPOST) postfix = sourceTitle(settings_.FILENAME);
    expandMacros(prefix, cleaned, range);
    expandMacros(postfix, cleaned, range);

    const std::string body = cutBody(cleaned, true);
    szOutFilenameLine = cutBody(szOutFilenameLine, false);

    const std::string head = outputFolder(settings_) + kSeparator + prefix;
    switch (*mode) {
        case FilenameMode::PageStart: result_ = head + std::to_string(range.start + 1L) + postfix + ".pdf"; break;
        case FilenameMode::PageStartEnd:
            result_ = head + std::to_string(range.start + 1L) + "-" + std::to_string(range.end + 1L) + postfix + ".pdf";
            break;
        case FilenameMode::SequentialNumber:
            result_ = head + formatText("%6.6ld", ++sequence) + postfix + ".pdf";
            break;
        case FilenameMode::NameAfterTextRestOfLine:
        case FilenameMode::NameAfterTextRestOfLineAndNextPage:
            result_ = head + std::string(firstCharacters(szOutFilenameLine, kMaxNameChars)) + postfix + ".pdf";
            break;
        default: result_ = head + body + postfix + ".pdf"; break;
    }
    result_ = fitLastComponent(std::move(result_));
    if (namesAfterText(*mode)) nameTextUsed = true;
    return result_;
}

std::string outputFolder(const SplitSettings& settings) {
    if (!settings.SPLITTOSOURCE) return settings.OUTPUTDIR;
    // Beside the source: its folder as written, or the current folder for a
    // bare file name.
    const auto cut = settings.FILENAME.find_last_of(kSeparator == '/' ? "/" : "\\/");
    return cut == std::string::npos ? std::string(".") : settings.FILENAME.substr(0, cut == 0 ? 1 : cut);
}

std::string FilenameComposer::GetPos(std::string_view text, int firstPage, int lastPage) {
    const auto open = text.find("[POS");
    if (open == std::string_view::npos) return {};
    const auto close = text.find(']', open);
    if (close == std::string_view::npos) return {};
    const std::string_view box = text.substr(open + 4, close - open - 4);
    const auto comma = box.size() > 1 ? box.find(',', 1) : std::string_view::npos;
    if (comma == std::string_view::npos) return {};
    const auto [horizStart, horizEnd] = boundsOf(box.substr(0, comma));
    const auto [vertStart, vertEnd] = boundsOf(box.substr(comma + 1));
    if (trace_.on())
        trace_.write("GetPos pos: %s, szFilename: %s\r\n", std::string(box).c_str(), settings_.FILENAME.c_str());
    // Words of the page go into a path: cleaned like every captured name.
    std::string found = cleanName(GetDataFromPDF2(horizStart, horizEnd, vertStart, vertEnd, firstPage, lastPage));
    if (trace_.on()) trace_.write("GetPos found: %s\r\n", found.c_str());
    return found;
}

std::string FilenameComposer::GetDataFromPDF2(int horizStart, int horizEnd, int vertStart, int vertEnd, int pageStart,
                                              int pageEnd) {
    if (trace_.on())
        trace_.write("GetDataFromPDF2 m_szFilename: %s, horizStart: %d, horizEnd: %d, pageStart: %d, pageEnd: %d\r\n",
                     settings_.FILENAME.c_str(), horizStart, horizEnd, pageStart, pageEnd);
    if (pageStart < 1 || pageEnd < pageStart) return {};
    const auto doc = wordFinderDocument(host_, ui_);
    if (!doc) return {};
    std::string found;
    int collected = 0;
    for (int page = pageStart; page <= pageEnd; ++page) {
        // The scan has the words of the pages it read last: taken from there
        // unless the page is more than a page store takes.
        const std::vector<Word>* kept = recentPages ? recentPages->words(page - 1) : nullptr;
        if (kept && kept->size() <= static_cast<std::size_t>(PageWordStore::kLimit)) {
            store_.words.assign(kept->begin(), kept->end());
            if (settings_.ROTATED)
                for (Word& word : store_.words) std::swap(word.h, word.v);
        } else {
            try {
                store_.readPage(host_, *doc, page - 1, settings_.ROTATED != 0, ui_);
            } catch (const HostError&) {
                return {};  // the store has said why
            }
        }
        if (store_.tooManyWords(ui_)) return {};
        collected += store_.count();
        if (collected > PageWordStore::kLimit) {
            ui_.note("Too many words on the page!");
            return {};
        }
        for (const Word& word : store_.words)
            if (within(word.v, vertStart, vertEnd) && within(word.h, horizStart, horizEnd)) found += word.text;
    }
    return found;
}

}  // namespace vellira
