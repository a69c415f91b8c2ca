// SplitEngine: one source document cut into page ranges by its text.
//
// The page scan feeds every word of every page to the match engine, which
// recognises the search text (or the start position), the until text and the
// text that names the output; the range rules turn those matches into
// inclusive page ranges, each named by the FilenameComposer and written by
// ExtractPages. The state the rules share lives in three explicit records:
// RunState for a whole run, DocumentState per source document, MatchState for
// the word-by-word matching.
#pragma once

#include "core/DocumentHost.h"
#include "core/RunInterface.h"
#include "core/SplitSettings.h"
#include "core/Trace.h"
#include "engine/FilenameComposer.h"
#include "engine/PageWords.h"
#include "files/Reports.h"

#include <array>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

namespace vellira {

// Extract modes by ordinal (`lAquireType`).
enum AquireType : int {
    e_from_to_next = 0,
    e_from_to_nextu = 1,
    e_from_to_next_position = 2,
    e_from_to_nextu_position = 3,
    e_from_to_until = 4,
    e_from_to_until_position = 5,
    e_matched_page = 6,
    e_bookmarks = 7,
    e_bookmarks_root = 8,
    e_bookmarks_level2 = 9,
};

// What a scan is for: a real split, or the show view that highlights each
// match without writing anything.
enum class ScanView { Split, ShowHighlights };

// Longest search text, in words, the recent-word rings can match.
inline constexpr int kMaxSearchWords = 20;

// Settings and counters of one run over any number of documents.
struct RunState {
    int lAquireType = e_from_to_next;
    int lExtractOnCharsNumWords = 1;
    int lExtractUntilCharsNumWords = 1;
    int lExtractFilenameNumWords = 1;
    bool g_createList = false;
    SplitList splitList;
    // While on, an existing output is replaced (or appended to); while off, a
    // free "_partNNN" name is taken instead. Nothing in a run turns it off.
    bool overwrite = true;
    Trace trace;
};

// One output file of a document, for mailing.
struct MailRange {
    std::string path;
    int first = 0;  // 1-based
    int last = 0;
};

// Per source document; reset when the document's processing starts.
struct DocumentState {
    DocHandle source;
    int totalPages = 0;
    int extractCnt = 0;         // ranges handled, also those written again
    int outputFiles = 0;        // output files, less the ranges taken back
    int ranges = 0;             // ranges written
    int rangesSinceReopen = 0;  // ranges since the source was last (re)opened
    int lStartPage = -1;
    int lEndPage = -1;
    int lUniqueStartPage = -1;
    std::string g_szBuf;            // captured name of the current range
    std::string g_szLastBuf2;       // name of the previous range (unique modes)
    std::string szOutFilenameLine;  // captured rest-of-line text
    bool bStopScan = false;
    int highlightCount = 0;
    std::vector<MailRange> mailList;
    std::unordered_map<std::string, std::size_t> mailIndex;  // output path -> its entry in mailList
    Reports reports;
};

// The last words seen, for search texts of more than one word. It goes on
// across lines and pages.
class RecentWords {
public:
    void clear();
    // Adds a word and answers the last `count` words joined by single blanks.
    const std::string& add(std::string_view word, int count);

private:
    std::array<std::string, kMaxSearchWords> slots_;
    std::string joined_;
};

struct MatchState {
    std::string wdbuf;
    std::string multiBuf;
    std::string multiEndBuf;
    std::string multiFilenameBuf;
    RecentWords onRing;
    RecentWords untilRing;
    RecentWords filenameRing;
    bool bMatch = false;
    bool bFileMatch = false;
    bool fromMatchUntil = false;
    bool fromMatchUntilPos = false;
    bool bConcatLine = false;
    bool bConcatLine2 = false;
    int lLineCoord = -1;
    long lLineWordCount = 0;
    bool bFirstFileMatch = true;
    std::string lastPositionWord;  // names the final range when nothing else does
};

// A position test of the start text: "lo", "lo-hi", "lo|alt", "lo-hi|alt".
struct PositionSpec {
    int lo = 0;
    int hi = 0;
    int alt = 0;
};
PositionSpec parsePosition(std::string_view text);
// Whether a word at (h, v) of `chars` characters passes the start position.
bool startPositionPasses(const PositionSpec& h, const PositionSpec& v, int wordH, int wordV, std::size_t chars);
// Whether it passes the until position (U_h, U_v).
bool untilPositionPasses(int untilH, int untilV, int wordH, int wordV, std::size_t chars);

// Case-insensitive equality by Unicode case folding.
bool equalsIgnoringCase(std::string_view a, std::string_view b);

class SplitEngine {
public:
    SplitEngine(DocumentHost& host, RunInterface& ui, SplitSettings& settings, RunState& run);

    DocumentHost& host;
    RunInterface& ui;
    SplitSettings& settings;
    RunState& run;
    FilenameComposer composer;
    DocumentState doc;
    MatchState match;

    // Prepares a run: word counts of the search texts, the extract mode, the
    // run's clock and counters. Answers false after saying why when the search
    // text has more words than the engine can match.
    bool beginRun(const std::tm& now);
    // Takes the search texts and the extract mode from the settings again,
    // after a batch row loaded its own.
    bool takeSettings();
    // Forgets everything about the previous document.
    void beginDocument();

    // Scans the document in view. 1 on completion, 0 when it cannot be read
    // or the host failed during a page.
    int scan(ScanView view = ScanView::Split);

    // One word of the page being scanned; false stops the page.
    bool onWord(const Word& word);

    // Writes pages start..end (0-based, inclusive) of the source to `outFile`,
    // or its split list line; reports it. Answers 1 when written, 0 when the
    // save failed or the run was cancelled, 0xFFFF/0xFFFE without a document.
    int ExtractPages(const std::string& outFile, int start, int end);
    // Saves and closes `target` at `path`: 1 on success, 0 on failure.
    int SavePDDoc(DocHandle target, const std::string& path);

    // Cuts the document in view at the pages its bookmarks point to.
    int splitAtBookmarks();
    // Names the range lStartPage..lEndPage from `capture` and writes it;
    // `letter`, when given, tells the trace which rule closed it.
    void extractNamed(const std::string& capture, const char* letter);

private:
    void startMatch(int page);
    void untilMatch(int page);
    void uniqueRule(const char* same, const char* fresh);
    void highlight(const Word& word);
    void captureLineWord(const Word& word, bool nextPageLine);
    bool textMatches(std::string_view wanted, int words, const std::string& single, const std::string& multi) const;
    int lineCoordinate(int h, int v) const;
    void reopenSource();
    std::string nameFor(const std::string& capture);
    // The two filename modes named by the rest of the captured line.
    bool restOfLineNames() const;

    ScanView view_ = ScanView::Split;
    int pageRotation_ = 0;
};

}  // namespace vellira
