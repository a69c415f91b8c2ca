// The page scan: the pages of one document in order, every word into the
// match engine, and the range rules that turn start and until matches into
// page ranges.
#include "engine/SplitEngine.h"

#include "core/Text.h"
#include "engine/MatchRules.h"
#include "reading/Recognition.h"

#include <algorithm>
#include <type_traits>

namespace vellira {

namespace {

// "Unknown KIND mode: "TEXT"", then the texts the setting may hold: a mode
// table's names, or a list of names.
template <typename Table>
std::string unknownModeMessage(const char* kind, const std::string& text, const Table& table) {
    std::string message = std::string("Unknown ") + kind + " mode: \"" + text + "\". The " + kind + " modes are:";
    for (const auto& entry : table) {
        if constexpr (std::is_convertible_v<decltype(entry), std::string_view>)
            message.append("\n\"").append(entry).append("\"");
        else
            message.append("\n\"").append(entry.second).append("\"");
    }
    return message;
}

// The SEPARATOR modes, as indexes of kSeparatorModes.
constexpr std::size_t kNoSeparator = 0;
constexpr std::size_t kCodeValueIs = 1;
constexpr std::size_t kCodeValueBegins = 2;
constexpr std::size_t kAnyCodeOfFormat = 3;
constexpr std::size_t kBlankPage = 4;

constexpr std::string_view kNoMatches =
    "No matches found,\r\nplease note: word searching is case sensitive & must contain the full word";

}  // namespace

SplitEngine::SplitEngine(DocumentHost& host_, RunInterface& ui_, SplitSettings& settings_, RunState& run_)
    : host(host_), ui(ui_), settings(settings_), run(run_), composer(settings_, host_, ui_, run_.trace) {
    composer.recentPages = &doc.recent;
}

bool SplitEngine::beginRun(const std::tm& now) {
    composer.runTime = now;
    composer.sequence = 0;
    match = MatchState{};
    run.filesWritten = run.rangesFailed = run.documentsWithoutRanges = run.scansFailed = run.pagesRecognized = 0;
    run.written.clear();
    run.outputs.clear();
    run.groupedAs.clear();
    run.pieces.clear();
    run.exceptions.clear();
    run.outputIndex.clear();
    // The split list is taken once per run: a row's own settings cannot turn
    // a split-list run into one that writes PDFs.
    run.g_createList = settings.CREATELIST != 0;
    return takeSettings();
}

bool SplitEngine::takeSettings() {
    const auto mode = pageExtractModeOf(settings.PAGEEXTRACT);
    if (!mode) {
        ui.note(unknownModeMessage("split", settings.PAGEEXTRACT, kExtractModes));
        return false;
    }
    composer.takeMode(settings.EXTRACT);
    if (!composer.mode) {
        ui.note(unknownModeMessage("filename", settings.EXTRACT, kFilenameModes));
        return false;
    }
    const auto separator = std::find(kSeparatorModes.begin(), kSeparatorModes.end(), settings.SEPARATOR);
    if (separator == kSeparatorModes.end()) {
        ui.note(unknownModeMessage("separator", settings.SEPARATOR, kSeparatorModes));
        return false;
    }
    if (std::find(kLookupMissingModes.begin(), kLookupMissingModes.end(), settings.LOOKUPMISSING) ==
        kLookupMissingModes.end()) {
        ui.note(unknownModeMessage("LOOKUPMISSING", settings.LOOKUPMISSING, kLookupMissingModes));
        return false;
    }
    separator_ = static_cast<std::size_t>(separator - kSeparatorModes.begin());
    separatorFormat_ = codeFormatOf(settings.SEPARATORTEXT);
    const std::string unknownFormat = codeFormatsOf(settings.CODEFORMATS).unknown;
    if (!unknownFormat.empty() || (separator_ == kAnyCodeOfFormat && separatorFormat_ == CodeFormat::None)) {
        std::string message = "Unknown code format: \"" +
                              (unknownFormat.empty() ? settings.SEPARATORTEXT : unknownFormat) +
                              "\". The code formats are:";
        for (std::size_t kind = 1; kind < kCodeFormatNames.size(); ++kind)
            message.append(" ").append(kCodeFormatNames[kind]);
        ui.note(message);
        return false;
    }
    patterns_.reset();
    if (settings.PATTERNSEARCH) {
        for (const std::string* pattern : {&settings.FINDSTRING, &settings.EXTRACTUNTIL}) {
            if (const auto error = PagePatterns::error(*pattern, settings.IGNORECASE != 0)) {
                ui.note(*error);
                return false;
            }
        }
        patterns_ =
            std::make_unique<PagePatterns>(settings.FINDSTRING, settings.EXTRACTUNTIL, settings.IGNORECASE != 0);
    }
    if (!takeValueSettings(*mode)) return false;
    run.lAquireType = *mode;
    run.lExtractOnCharsNumWords = countSearchWords(settings.FINDSTRING);
    run.lExtractUntilCharsNumWords = countSearchWords(settings.EXTRACTUNTIL);
    run.lExtractFilenameNumWords = countSearchWords(settings.EXTRACTFILENAME);
    // A pattern is matched over the page's text, not word by word.
    if (patterns_) run.lExtractOnCharsNumWords = run.lExtractUntilCharsNumWords = 1;
    for (const auto& [text, words] : {std::pair{&settings.FINDSTRING, run.lExtractOnCharsNumWords},
                                      {&settings.EXTRACTUNTIL, run.lExtractUntilCharsNumWords},
                                      {&settings.EXTRACTFILENAME, run.lExtractFilenameNumWords}}) {
        if (words > kMaxSearchWords) {
            ui.note("The search text \"" + *text + "\" has " + std::to_string(words) + " words; at most " +
                    std::to_string(kMaxSearchWords) + " can be matched.");
            return false;
        }
    }
    return true;
}

std::optional<std::array<float, 4>> SplitEngine::searchArea() const {
    // A range starts only at a word standing within the bounds, and names
    // itself by that word or by pages alone: no other word of a page counts.
    const auto mode = run.lAquireType;
    const auto naming = composer.mode;
    const bool atPosition =
        mode == PageExtractMode::NextMatchAtPosition || mode == PageExtractMode::NextUniqueMatchAtPosition;
    const bool namedWithoutWords = naming == FilenameMode::PositionMatch || naming == FilenameMode::PageStart ||
                                   naming == FilenameMode::PageStartEnd || naming == FilenameMode::SequentialNumber;
    const auto usesPositions = [](const std::string& text) { return text.find("[POS") != std::string::npos; };
    if (!atPosition || !namedWithoutWords || settings.EMAILENABLE || run.lExtractOnCharsNumWords > 1 ||
        separator_ != kNoSeparator || settings.DROPBLANKPAGES || patterns_ || settings.SPLITONCHANGE ||
        !settings.CHECKPAGEOF.empty() || usesPositions(settings.PREFIXFILENAME) ||
        usesPositions(settings.POSTFIXFILENAME))
        return std::nullopt;
    const PositionSpec h = parsePosition(settings.MATCHPOSH);
    const PositionSpec v = parsePosition(settings.MATCHPOSV);
    // 0 or a negative bound stands for a whole line or column: no area.
    if (h.lo <= 0 || v.lo <= 0) return std::nullopt;
    // A word stands at the bottom-left of its first character: the area
    // reaches up a line's height and right to the page's edge from there.
    constexpr float kBelow = 8;
    constexpr float kAbove = 48;
    constexpr float kRight = 1000;
    const float left = static_cast<float>(std::min({h.lo, h.hi, h.alt})) - 4;
    const float right = static_cast<float>(std::max({h.lo, h.hi, h.alt})) + kRight;
    const float bottom = static_cast<float>(std::min({v.lo, v.hi, v.alt})) - kBelow;
    const float top = static_cast<float>(std::max({v.lo, v.hi, v.alt})) + kAbove;
    return std::array<float, 4>{left, bottom, right, top};
}

std::unique_ptr<PageReader> SplitEngine::pageReader(int first, int last) {
    // Workers pay for a copy of the source each: not for a few pages.
    constexpr int kPagesPerWorker = 16;
    if (pageWorkers > 1 && newHost && last - first >= kPagesPerWorker * 2) {
        const std::string path = host.filePath(doc.source);
        if (!path.empty())
            return std::make_unique<ParallelPageReader>(newHost, pageHosts, pageWorkers, host.makeHostPath(path), first,
                                                        last, host, doc.source);
    }
    return std::make_unique<HostPageReader>(host, doc.source);
}

void SplitEngine::beginDocument() {
    doc = DocumentState{};
    composer.nameTextUsed = false;
}

void SplitEngine::highlight(const Word& word) {
    ui.highlight(word.page, word.text, word.number);
    ++doc.highlightCount;
    if (!ui.question("Show next highlight")) doc.bStopScan = true;
}

void SplitEngine::extractNamed(const std::string& capture, const char* letter) {
    if (lookup_) composer.lookupRow = lookup_->find(capture);
    const std::string path =
        composer.AquireFilename(capture, doc.szOutFilenameLine, {doc.lStartPage, doc.lEndPage, doc.totalPages});
    if (lookup_ && !composer.lookupRow) {
        // Listed as an exception, and written under its own value or not
        // at all.
        const bool skip = settings.LOOKUPMISSING == kLookupMissingModes[1];
        PieceRecord piece;
        piece.addPages(settings.FILENAME, doc.lStartPage + 1, doc.lEndPage + 1);
        run.exceptions.push_back({piece.source, piece.pages, capture, "not in the list", skip ? "" : path,
                                  pathText(exceptionsFolder(path))});
        if (skip) {
            if (run.plan)
                run.plan->push_back({doc.lStartPage + 1, doc.lEndPage + 1, capture, "", 0, 0, "not in the list"});
            return;
        }
    }
    if (letter && run.trace.on())
        run.trace.write("%s ExtractPages: %s, start: %d, end: %d\r\n", letter, path.c_str(), doc.lStartPage,
                        doc.lEndPage);
    ExtractPages(path, doc.lStartPage, doc.lEndPage);
    if (lookup_ && !composer.lookupRow && run.plan && !run.plan->empty())
        run.plan->back().exception = "not in the list";
}

void SplitEngine::uniqueRule(const char* same, const char* fresh) {
    doc.g_szBuf = nameFor(doc.g_szBuf);
    const bool continues =
        doc.lUniqueStartPage >= 0 && (doc.g_szBuf == doc.g_szLastBuf2 || doc.szOutFilenameLine == doc.g_szLastBuf2);
    if (continues) {
        // Same name as the range before: that output is written again with
        // the pages of both.
        doc.lStartPage = doc.lUniqueStartPage;
        extractNamed(doc.g_szBuf, same);
    } else {
        doc.lUniqueStartPage = doc.lStartPage;
        extractNamed(doc.g_szBuf, fresh);
        doc.lStartPage = -1;
    }
}

int SplitEngine::rangeStart(int page) {
    if (doc.segmentStart < 0) return page;
    page = std::min(page, doc.segmentStart);
    doc.segmentStart = -1;
    return page;
}

void SplitEngine::startMatch(int page) {
    if (doc.lStartPage < 0) return;
    doc.lEndPage = std::max(page - 1, doc.lStartPage);
    if (view_ != ScanView::Split) return;
    const PageExtractMode mode = run.lAquireType;
    if (mode == PageExtractMode::NextUniqueMatch || mode == PageExtractMode::NextUniqueMatchAtPosition) {
        if (mode == PageExtractMode::NextUniqueMatch)
            uniqueRule("i)", "h)");
        else
            uniqueRule("f)", "e)");
        doc.g_szLastBuf2 = doc.g_szBuf;
        return;
    }
    if (mode == PageExtractMode::MatchedPageOnly) doc.lEndPage = doc.lStartPage;
    const bool position = mode == PageExtractMode::NextMatchAtPosition || mode == PageExtractMode::UntilMatchAtPosition;
    extractNamed(doc.g_szBuf, position ? "g)" : "j)");
    doc.lStartPage = -1;
}

void SplitEngine::untilMatch(int page) {
    if (doc.lStartPage < 0) return;
    if (run.lAquireType == PageExtractMode::UntilMatch) {
        // The page of the until text belongs to the range...
        if (run.trace.on()) run.trace.write("fromMatchUntil = true\r\n");
        doc.lEndPage = std::max(page, doc.lStartPage);
        if (run.trace.on()) run.trace.write("AquireFilename 4 g_szBuf: %s\r\nExtractPages 5\r\n", doc.g_szBuf.c_str());
        if (view_ == ScanView::Split) extractNamed(doc.g_szBuf, "n)");
    } else {
        // ...but not with the until position, which ends the range before it.
        doc.lEndPage = std::max(page - 1, doc.lStartPage);
        if (view_ == ScanView::Split) extractNamed(doc.g_szBuf, "k)");
        doc.g_szLastBuf2 = doc.g_szBuf;
        if (run.trace.on()) run.trace.write("copy4 - g_szLastBuf2: %s\r\n", doc.g_szLastBuf2.c_str());
    }
    doc.lStartPage = -1;
}

std::optional<std::string> SplitEngine::separatorOf(const PageText& page) const {
    if (separator_ == kBlankPage) return page.blank ? std::optional<std::string>("") : std::nullopt;
    if (separator_ == kNoSeparator) return std::nullopt;
    for (const Word& word : page.words) {
        if (word.code == CodeFormat::None) continue;
        if ((separator_ == kCodeValueIs && word.text == settings.SEPARATORTEXT) ||
            (separator_ == kCodeValueBegins && word.text.starts_with(settings.SEPARATORTEXT)) ||
            (separator_ == kAnyCodeOfFormat && word.code == separatorFormat_))
            return word.text;
    }
    return std::nullopt;
}

void SplitEngine::writeSegment(int lastPage) {
    if (view_ != ScanView::Split || separator_ == kNoSeparator || doc.segmentStart < 0 || doc.segmentStart > lastPage)
        return;
    doc.lStartPage = doc.segmentStart;
    doc.lEndPage = lastPage;
    // Named by the sheet's value, else by its pages.
    doc.g_szBuf = !doc.segmentName.empty() ? doc.segmentName
                  : doc.lStartPage == lastPage
                      ? std::to_string(lastPage + 1)
                      : std::to_string(doc.lStartPage + 1) + "-" + std::to_string(lastPage + 1);
    doc.szOutFilenameLine = doc.g_szBuf;
    doc.g_szLastBuf2.clear();
    extractNamed(doc.g_szBuf, "s)");
    doc.lStartPage = -1;
}

void SplitEngine::endSegment(int lastPage) {
    // A match that was the last word before the sheet (a code alone on its
    // page) starts its range on its own page.
    if (match.position.bMatch && doc.lStartPage < 0) doc.lStartPage = rangeStart(match.position.matchPage);
    if (view_ == ScanView::Split) {
        if (doc.lStartPage >= 0)
            closeRange(lastPage);
        else
            writeSegment(lastPage);
    }
    doc.lStartPage = doc.lUniqueStartPage = doc.segmentStart = -1;
    doc.g_szBuf.clear();
    doc.g_szLastBuf2.clear();
    doc.szOutFilenameLine.clear();
    doc.value.reset();
    match.position.bMatch = match.position.bFileMatch = false;
    match.position.fromMatchUntil = match.position.fromMatchUntilPos = false;
    match.line.bConcatLine = match.line.bConcatLine2 = false;
}

void SplitEngine::closeRange(int lastPage) {
    doc.lEndPage = std::max(lastPage, doc.lStartPage);
    if (settings.FINDSTRING.empty() && doc.g_szBuf.empty()) doc.g_szBuf = match.position.lastPositionWord;
    const PageExtractMode closing = run.lAquireType;
    if (settings.SPLITONCHANGE) {
        extractNamed(doc.g_szBuf, "v)");
        doc.lStartPage = -1;
    } else if (closing == PageExtractMode::NextUniqueMatch || closing == PageExtractMode::NextUniqueMatchAtPosition) {
        uniqueRule("a)", "b)");
        doc.g_szLastBuf2 = doc.g_szBuf;
        if (run.trace.on()) run.trace.write("copy1 - g_szLastBuf2: %s\r\n", doc.g_szLastBuf2.c_str());
    } else if (closing == PageExtractMode::NextMatchAtPosition && !doc.szOutFilenameLine.empty()) {
        doc.g_szBuf = FilenameComposer::cleanName(doc.szOutFilenameLine);
        extractNamed(doc.g_szBuf, "c)");
    } else {
        if (closing == PageExtractMode::MatchedPageOnly) doc.lEndPage = doc.lStartPage;
        extractNamed(doc.g_szBuf, "d)");
        doc.lStartPage = -1;
    }
}

void SplitEngine::scan(ScanView view) {
    view_ = view;
    doc.bStopScan = false;
    doc.lStartPage = doc.lEndPage = -1;
    doc.extractCnt = doc.outputFiles = doc.ranges = doc.rangesSinceReopen = 0;
    settings.offsetFirstWorking = settings.OFFSETFIRST;
    if (isBookmarkMode(run.lAquireType)) {
        // Bookmark modes cut at the outline, not at words.
        if (view == ScanView::ShowHighlights)
            ui.note("Sorry can't show with bookmarks, can extract only");
        else
            splitAtBookmarks();
        return;
    }
    match.rings.onRing.clear();

    const auto source = wordFinderDocument(host, ui);
    if (!source) return;
    doc.source = *source;
    // Pages without text (or all) are read from their image, as set; only
    // where the search text must stand, when nothing else needs words.
    TextRecognition recognition = textRecognitionFor(settings);
    recognition.area = searchArea();
    host.setTextRecognition(recognition);
    int pages = 0;
    try {
        pages = host.pageCount(doc.source);
    } catch (const HostError& error) {
        ui.note("Abort!! Find Word Error message: " + error.text());
        ++run.scansFailed;
        return;
    }
    doc.totalPages = pages;
    // The pages to scan, in 64 bits so that no setting can overflow them; a
    // last page beyond the document is its last page.
    long long last = pages;
    if (settings.TOPAGE < 0 && pages + static_cast<long long>(settings.TOPAGE) > 0)
        last = pages + static_cast<long long>(settings.TOPAGE);
    else if (settings.TOPAGE > 0)
        last = std::min<long long>(settings.TOPAGE, pages);
    const long long first = std::max(settings.STARTFROMPAGE - 1LL, 0LL);
    const auto limit = streamedWordLimit(settings.TAKENCHARSFORFILENAME);
    const int firstPage = static_cast<int>(std::min(first, last));
    std::unique_ptr<PageReader> reader = pageReader(firstPage, static_cast<int>(last));
    doc.recent.clear();
    // With separator sheets every page is in a piece: those before the first
    // sheet too.
    if (separator_ != kNoSeparator) doc.segmentStart = firstPage;
    doc.valueFrom = firstPage;

    for (int page = firstPage; page < last && !doc.bStopScan && !ui.cancelled(); ++page) {
        match.line.lLineWordCount = 0;
        if (run.trace.on()) run.trace.write("Processing PageNum: %d\r\n", page);
        match.line.bConcatLine2 = false;
        if (match.line.bConcatLine) {
            match.line.bConcatLine = false;
            if (composer.mode == FilenameMode::NameAfterTextRestOfLineAndNextPage) {
                match.line.bConcatLine2 = true;
                match.line.lLineCoord = -1;
                doc.szOutFilenameLine += '_';
            }
        }
        if (run.trace.on()) run.trace.write("------ Scanning page: %d out of %lld\r\n", page + 1, last - first);
        ui.progress({settings.FILENAME, page + 1, pages, doc.outputFiles, static_cast<int>(doc.recognized.size())});
        // Pages before the open range (or the one a unique name may carry
        // on) are not looked at again.
        int keepFrom = page;
        const int waiting = match.position.bMatch ? match.position.matchPage : -1;  // a match whose range has not begun
        for (const int start : {doc.lStartPage, doc.lUniqueStartPage, doc.segmentStart, waiting})
            if (start >= 0) keepFrom = std::min(keepFrom, start);
        doc.recent.dropBefore(keepFrom);
        doc.layers.erase(doc.layers.begin(), doc.layers.lower_bound(keepFrom));
        doc.blankPages.erase(doc.blankPages.begin(), doc.blankPages.lower_bound(keepFrom));
        const PageText* text = nullptr;
        try {
            text = &doc.recent.add(reader->read(page));
        } catch (const HostError& error) {
            ui.note("Abort!! Find Word Error message: " + error.text());
            ++run.scansFailed;
            return;
        }
        pageRotation_ = text->rotation;
        if (text->recognized) {
            ++run.pagesRecognized;
            auto& [confidence, words] = doc.recognized[page];
            for (const Word& word : text->words) confidence += word.confidence;
            words = static_cast<int>(text->words.size());
            if (text->layer) doc.layers[page] = text->layer;
        }
        if (const auto value = separatorOf(*text)) {
            // A sheet ends what is open before it, and the next piece starts
            // after it, or with it where it is kept.
            endSegment(page - 1);
            const bool keep = settings.KEEPSEPARATOR && separator_ != kBlankPage;
            doc.segmentStart = keep ? page : page + 1;
            doc.segmentName = settings.SEPARATORNAMES ? *value : std::string();
            if (!keep) continue;
        } else if (text->blank && settings.DROPBLANKPAGES) {
            doc.blankPages.insert(page);
        }
        if (patterns_) patterns_->read(text->words);
        if (settings.SPLITONCHANGE) {
            valueChange(*text);
            continue;
        }
        for (std::size_t index = 0; index < text->words.size(); ++index) {
            const Word& word = text->words[index];
            if (patterns_) patternHit_ = &patterns_->hit(index);
            const std::size_t kept = limit ? firstCharacters(word.text, *limit).size() : word.text.size();
            if (kept == word.text.size()) {
                if (!onWord(word)) break;
                continue;
            }
            Word cut = word;
            cut.text.resize(kept);
            if (!onWord(cut)) break;
        }
    }
    reader.reset();
    patternHit_ = nullptr;

    if (run.trace.on()) run.trace.write("do last one lStartPage: %d\r\n", doc.lStartPage);
    if (match.position.bMatch && match.position.codeMatch && doc.lStartPage < 0) {
        doc.lStartPage = rangeStart(match.position.matchPage);
        match.position.bMatch = false;
    }
    if (doc.lStartPage >= 0 && view == ScanView::Split) {
        // A one-page document turns the unique mode into the plain one for the
        // rest of the run.
        if (last - 1 == 0 && run.lAquireType == PageExtractMode::NextUniqueMatch)
            run.lAquireType = PageExtractMode::NextMatch;
        closeRange(static_cast<int>(last) - 1);
    } else if (!doc.bStopScan && !ui.cancelled()) {
        writeSegment(static_cast<int>(last) - 1);
    }
    if (view == ScanView::ShowHighlights && !doc.bStopScan && !ui.cancelled())
        ui.note(doc.highlightCount > 0 ? std::string_view("No more matches found.") : kNoMatches);
}

}  // namespace vellira
