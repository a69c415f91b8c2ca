// The match engine: every word of a scanned page, in reading order, tested
// against the search text (or start position), the "use as filename" text and
// the until text, with the capture of the words that name a range.
#include "core/Text.h"
#include "engine/SplitEngine.h"

#include <utf8proc.h>

#include <algorithm>
#include <cctype>
#include <climits>

namespace vellira {

namespace {

constexpr std::size_t kMaxLineChars = 1023;

// Printable, but neither letter, digit nor blank.
bool isPunctuation(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte > 0x20 && byte < 0x7F && !std::isalnum(byte);
}

void appendLimited(std::string& line, std::string_view text) {
    const std::size_t room = kMaxLineChars - std::min(kMaxLineChars, characterCount(line));
    line += firstCharacters(text, room);
}

// Case folding of one character of `text` from `at`; answers the folded code
// points in `out` and moves `at` on.
int foldNext(std::string_view text, std::size_t& at, utf8proc_int32_t (&out)[8]) {
    utf8proc_int32_t code = 0;
    const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(text.data() + at);
    const utf8proc_ssize_t used = utf8proc_iterate(bytes, static_cast<utf8proc_ssize_t>(text.size() - at), &code);
    if (used <= 0) {
        // Not UTF-8: compare the byte as it stands.
        out[0] = static_cast<unsigned char>(text[at++]) | 0x110000;
        return 1;
    }
    at += static_cast<std::size_t>(used);
    int boundary = 0;
    const utf8proc_ssize_t count = utf8proc_decompose_char(code, out, 8, UTF8PROC_CASEFOLD, &boundary);
    if (count <= 0 || count > 8) {
        out[0] = code;
        return 1;
    }
    return static_cast<int>(count);
}

}  // namespace

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    if (a == b) return true;
    utf8proc_int32_t foldedA[8], foldedB[8];
    int countA = 0, countB = 0, nextA = 0, nextB = 0;
    std::size_t atA = 0, atB = 0;
    for (;;) {
        if (nextA == countA && atA < a.size()) countA = foldNext(a, atA, foldedA), nextA = 0;
        if (nextB == countB && atB < b.size()) countB = foldNext(b, atB, foldedB), nextB = 0;
        const bool endA = nextA == countA, endB = nextB == countB;
        if (endA || endB) return endA && endB;
        if (foldedA[nextA++] != foldedB[nextB++]) return false;
    }
}

void RecentWords::clear() {
    for (auto& slot : slots_) slot.clear();
    joined_.clear();
}

const std::string& RecentWords::add(std::string_view word, int count) {
    const int n = std::clamp(count, 1, kMaxSearchWords);
    int free = 0;
    while (free < n && !slots_[free].empty()) ++free;
    if (free == n) {
        std::rotate(slots_.begin(), slots_.begin() + 1, slots_.begin() + n);
        free = n - 1;
    }
    slots_[free].assign(word);
    joined_.clear();
    for (int i = 0; i < n; ++i) {
        if (i) joined_ += ' ';
        joined_ += slots_[i];
    }
    return joined_;
}

PositionSpec parsePosition(std::string_view text) {
    PositionSpec position;
    position.lo = position.hi = position.alt = leadingInteger(text);
    if (text.size() > 1) {
        if (const auto dash = text.find('-', 1); dash != std::string_view::npos)
            position.hi = leadingInteger(text.substr(dash + 1));
        if (const auto bar = text.find('|', 1); bar != std::string_view::npos)
            position.alt = leadingInteger(text.substr(bar + 1));
    }
    return position;
}

bool startPositionPasses(const PositionSpec& h, const PositionSpec& v, int wordH, int wordV, std::size_t chars) {
    const auto length = static_cast<long long>(chars);
    if ((v.lo <= wordV && wordV <= v.hi) || wordV == v.alt) {
        if ((h.lo <= wordH && wordH <= h.hi) || wordH == h.alt) return true;
    }
    return (wordV == v.lo && h.lo < 0 && length == -static_cast<long long>(h.lo)) ||
           (v.lo < 0 && wordH == h.lo && length == -static_cast<long long>(v.lo)) || (wordV == v.lo && h.lo == 0) ||
           (v.lo == 0 && wordH == h.lo);
}

bool untilPositionPasses(int untilH, int untilV, int wordH, int wordV, std::size_t chars) {
    const auto length = static_cast<long long>(chars);
    return (wordV == untilV && wordH == untilH) ||
           (wordV == untilV && untilH < 0 && length == -static_cast<long long>(untilH)) ||
           (untilV < 0 && wordH == untilH && length == -static_cast<long long>(untilV)) ||
           (wordV == untilV && untilH == 0) || (untilV == 0 && wordH == untilH);
}

int SplitEngine::lineCoordinate(int h, int v) const {
    const bool vertical = settings.ROTATED || pageRotation_ == 90 || pageRotation_ == 270;
    return vertical ? h : v;
}

bool SplitEngine::textMatches(std::string_view wanted, int words, const std::string& single,
                              const std::string& multi) const {
    if (wanted.empty()) return false;
    if ((words <= 1 && wanted == single) || (words > 1 && wanted == multi)) return true;
    if (!settings.IGNORECASE) return false;
    return (words <= 1 && equalsIgnoringCase(wanted, single)) || (words > 1 && equalsIgnoringCase(wanted, multi));
}

bool SplitEngine::restOfLineNames() const { return composer.mode && takesRestOfLine(*composer.mode); }

std::string SplitEngine::nameFor(const std::string& capture) {
    return FilenameComposer::cleanName(restOfLineNames() ? doc.szOutFilenameLine : capture);
}

void SplitEngine::captureLineWord(const Word& word, bool nextPageLine) {
    const long limit = settings.TAKENWORDSFORFILENAME;
    if (++match.line.lLineWordCount > limit) return;
    const std::string_view text = match.wdbuf;
    const bool firstCharStop = !settings.FIRSTCHAROFWORD.empty() && text.starts_with(settings.FIRSTCHAROFWORD);
    const bool columnStop = settings.UNTILHHPOSLESSTHAN != 0 && word.h >= settings.UNTILHHPOSLESSTHAN;
    if (firstCharStop || columnStop) {
        match.line.lLineWordCount = limit == LONG_MAX ? limit : limit + 1;
        return;
    }
    std::string& line = doc.szOutFilenameLine;
    const std::string& between = settings.ADDBWORDS;
    const bool endsInPunctuation = !line.empty() && isPunctuation(line.back()) && line.back() != ':';
    if (nextPageLine && between == "*") {
        // On the next page's line "*" stands for a blank, kept out of
        // "(x" and before a comma.
        const bool noBlank =
            line.empty() || line.back() == '(' || (text == "," && !(isPunctuation(line.back()) && line.back() != ','));
        if (!noBlank) appendLimited(line, " ");
    } else if (!between.empty() && !line.empty() && !endsInPunctuation) {
        appendLimited(line, between);
    }
    appendLimited(line, text);
}

MatchState MatchState::carried() const {
    MatchState kept = *this;
    kept.wdbuf.clear();
    kept.rings.multiBuf.clear();
    kept.rings.multiEndBuf.clear();
    kept.rings.multiFilenameBuf.clear();
    kept.line.lLineWordCount = 0;
    if (!kept.line.bConcatLine) kept.line.lLineCoord = -1;
    if (!kept.position.bMatch) {
        kept.position.lastPositionWord.clear();
        kept.position.matchPage = -1;
        kept.position.codeMatch = false;
        kept.position.captured = false;
    }
    return kept;
}

void SplitEngine::nameByPattern() {
    if (!patternHit_) return;
    composer.groups = patternHit_->groups;
    if (!patternHit_->captured) return;
    doc.g_szBuf = FilenameComposer::cleanName(patternHit_->capture);
    doc.szOutFilenameLine = patternHit_->capture;
    match.position.captured = true;
}

bool SplitEngine::onWord(const Word& word) {
    if (doc.bStopScan) return false;
    const PageExtractMode mode = run.lAquireType;
    match.wdbuf.assign(word.text);
    match.rings.multiBuf.clear();
    match.rings.multiEndBuf.clear();
    match.rings.multiFilenameBuf.clear();
    if (run.lExtractOnCharsNumWords > 1)
        match.rings.multiBuf = match.rings.onRing.add(word.text, run.lExtractOnCharsNumWords);
    if (run.lExtractUntilCharsNumWords > 1)
        match.rings.multiEndBuf = match.rings.untilRing.add(word.text, run.lExtractUntilCharsNumWords);
    if (run.lExtractFilenameNumWords > 1)
        match.rings.multiFilenameBuf = match.rings.filenameRing.add(word.text, run.lExtractFilenameNumWords);
    const int line = lineCoordinate(word.h, word.v);

    // The word after a match: its range starts on this word's page, and it
    // may start the capture of the name.
    if (match.position.bMatch) {
        doc.lStartPage = rangeStart(match.position.codeMatch ? match.position.matchPage : word.page);
        if (match.position.captured) {
            match.position.captured = false;  // the pattern's group named it
        } else if (!match.position.bFileMatch && composer.mode != FilenameMode::PositionMatch) {
            doc.g_szBuf = FilenameComposer::cleanName(match.wdbuf);
            if (run.trace.on()) run.trace.write("bMatch g_szBuf: %s\r\n", doc.g_szBuf.c_str());
            if (composer.mode && namesAfterText(*composer.mode)) composer.nameTextUsed = true;
            if (restOfLineNames()) {
                // A new line capture starts from nothing.
                doc.szOutFilenameLine.clear();
                match.line.bConcatLine2 = false;
                match.line.bConcatLine = true;
                match.line.lLineCoord = line;
            }
        }
    }
    if (match.position.bFileMatch && match.line.bFirstFileMatch) {
        match.line.bFirstFileMatch = false;
        doc.g_szBuf = match.wdbuf;
        doc.szOutFilenameLine.clear();
        match.line.bConcatLine = true;
        match.line.lLineCoord = line;
    }

    if (match.line.bConcatLine) {
        if (line == match.line.lLineCoord)
            captureLineWord(word, false);
        else
            match.line.lLineWordCount = 0;
    }
    if (match.line.bConcatLine2) {
        if (match.line.lLineCoord == -1 && match.wdbuf != " ") match.line.lLineCoord = line;
        if (line == match.line.lLineCoord)
            captureLineWord(word, true);
        else
            match.line.lLineWordCount = 0;
    }
    match.position.bMatch = false;
    match.position.bFileMatch = false;

    if (composer.nameTextUsed && !settings.EXTRACTFILENAME.empty()) {
        const auto& wanted = settings.EXTRACTFILENAME;
        match.position.bFileMatch =
            wanted == match.wdbuf || (run.lExtractFilenameNumWords > 1 && wanted == match.rings.multiFilenameBuf);
    }

    const bool positionMode =
        startsAtPosition(mode) && (mode != PageExtractMode::UntilMatchAtPosition || !match.position.fromMatchUntilPos);
    // A search pattern found where its match begins, a search text word by word.
    const auto startFound = [&] {
        return patternHit_
                   ? patternHit_->start
                   : textMatches(settings.FINDSTRING, run.lExtractOnCharsNumWords, match.wdbuf, match.rings.multiBuf);
    };
    if (!positionMode) {
        if (startFound()) {
            const bool waitingForUntil =
                (mode == PageExtractMode::UntilMatch && match.position.fromMatchUntil) ||
                (mode == PageExtractMode::UntilMatchAtPosition && match.position.fromMatchUntilPos);
            if (!waitingForUntil) {
                startMatch(word.page);
                match.position.bMatch = true;
                match.position.matchPage = word.page;
                match.position.codeMatch = word.code != CodeFormat::None;
                match.position.fromMatchUntil = true;
                nameByPattern();
                if (view_ == ScanView::ShowHighlights) highlight(word);
            }
        }
    } else {
        const bool textPasses = settings.FINDSTRING.empty() || startFound();
        if (textPasses && startPositionPasses(parsePosition(settings.MATCHPOSH), parsePosition(settings.MATCHPOSV),
                                              word.h, word.v, characterCount(match.wdbuf))) {
            if (run.trace.on())
                run.trace.write("matched blh=%d,horiz=%d\tblv=%d,vert=%d\r\n", leadingInteger(settings.MATCHPOSH),
                                word.h, leadingInteger(settings.MATCHPOSV), word.v);
            startMatch(word.page);
            doc.szOutFilenameLine = match.wdbuf;
            if (composer.mode == FilenameMode::PositionMatch) doc.g_szBuf = FilenameComposer::cleanName(match.wdbuf);
            if (settings.FINDSTRING.empty()) match.position.lastPositionWord = match.wdbuf;
            match.position.bMatch = true;
            match.position.matchPage = word.page;
            match.position.codeMatch = word.code != CodeFormat::None;
            match.position.fromMatchUntil = false;
            match.position.fromMatchUntilPos = true;
            nameByPattern();
            if (view_ == ScanView::ShowHighlights) highlight(word);
        }
    }

    const auto untilFound = [&] {
        return patternHit_ ? patternHit_->until
                           : textMatches(settings.EXTRACTUNTIL, run.lExtractUntilCharsNumWords, match.wdbuf,
                                         match.rings.multiEndBuf);
    };
    if (endsAtUntilText(mode) && untilFound()) {
        if (run.trace.on())
            run.trace.write("checkend -  fromMatchUntil: %d\r\n", match.position.fromMatchUntil ? 1 : 0);
        if (mode == PageExtractMode::UntilMatch && match.position.fromMatchUntil) {
            untilMatch(word.page);
            match.position.fromMatchUntil = false;
            match.position.bMatch = false;
        } else if (mode == PageExtractMode::UntilMatchAtPosition && match.position.fromMatchUntilPos &&
                   untilPositionPasses(settings.UNTILMATCHPOSH, settings.UNTILMATCHPOSV, word.h, word.v,
                                       characterCount(match.wdbuf))) {
            untilMatch(word.page);
            match.position.fromMatchUntilPos = false;
            match.position.bMatch = false;
            match.position.fromMatchUntil = false;
        }
    }
    return !doc.bStopScan;
}

}  // namespace vellira
