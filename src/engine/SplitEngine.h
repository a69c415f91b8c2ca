// SplitEngine: one source document cut into page ranges by its text.
//
// The page scan feeds every word of every page to the match engine, which
// recognises the search text (or the start position), the until text and the
// text that names the output; the range rules turn those matches into
// inclusive page ranges, each named by the FilenameComposer and written by
// ExtractPages. The state the rules share lives in three explicit records:
// RunState for a whole run, DocumentState per source document, MatchState for
// the word-by-word matching. Runs are driven by the run layer; nothing above
// it names the engine.
#pragma once

#include "core/DocumentHost.h"
#include "core/PlannedRange.h"
#include "core/RunInterface.h"
#include "core/SplitSettings.h"
#include "core/Trace.h"
#include "engine/FilenameComposer.h"
#include "engine/MatchRules.h"
#include "engine/PagePatterns.h"
#include "engine/PageReader.h"
#include "engine/PageWords.h"
#include "engine/PieceChecks.h"
#include "files/LookupList.h"
#include "files/Reports.h"

#include <array>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

namespace vellira {

// What a scan is for: a real split, or the show view that highlights each
// match without writing anything.
enum class ScanView { Split, ShowHighlights };

// Longest search text, in words, the recent-word rings can match.
inline constexpr int kMaxSearchWords = 20;

// Settings and counters of one run over any number of documents.
struct RunState {
    // The split mode of the settings in force.
    PageExtractMode lAquireType = PageExtractMode::NextMatch;
    int lExtractOnCharsNumWords = 1;
    int lExtractUntilCharsNumWords = 1;
    int lExtractFilenameNumWords = 1;
    bool g_createList = false;
    SplitList splitList;
    // While on, an existing output is replaced (or appended to); while off, a
    // free "_partNNN" name is taken instead. Nothing in a run turns it off.
    bool overwrite = true;
    Trace trace;
    // A dry run: the ranges are listed here instead of being written.
    std::vector<PlannedRange>* plan = nullptr;
    // The output folders whose leftover temporary files were removed, and
    // those made (or found) for a save.
    std::unordered_set<std::string> tidiedFolders;
    std::unordered_set<std::string> madeFolders;
    // The source documents of the run: no output may replace one of them.
    FileSet sources;
    // What the run's ranges came to, over all its documents.
    int filesWritten = 0;            // PDFs saved
    int rangesFailed = 0;            // ranges whose PDF could not be made or saved
    int documentsWithoutRanges = 0;  // documents scanned to their end that gave no range
    int scansFailed = 0;             // documents whose scan a host error ended early: later ranges not written
    int pagesRecognized = 0;         // pages read from their image
    // Every output saved in this run, in the order first saved, with the
    // pages and the name of its last range.
    std::vector<PlannedRange> outputs;
    std::unordered_map<std::string, std::size_t> outputIndex;  // path -> its entry in outputs
    // The source and 1-based pages each output saved in this run holds, so
    // that an output written over by another range is told.
    struct Written {
        std::string source;
        int first = 0;
        int last = 0;
    };
    std::unordered_map<std::string, Written> written;
    // For a row worked on beside others: outputs are saved under a temporary
    // name beside their own and listed here (temporary, output), in the order
    // saved, to be put in place when the row's turn comes. Nothing about
    // other rows is known, so outputs written again are told then.
    // A planned run: no PDF is made; each output a range would save is
    // listed here instead, for other processes to write.
    std::vector<PlannedWrite>* planned = nullptr;
    std::size_t plannedRow = 0;                      // the row being planned
    std::unordered_set<std::string> plannedOutputs;  // outputs the plan has saved so far
    bool staging = false;
    std::uint32_t stagingId = 0;  // numbers the temporary names; each row starts from its own
    std::vector<std::pair<std::filesystem::path, std::filesystem::path>> staged;
    // With checks on: each output written and not yet judged, and the
    // pieces that broke a check (or whose value the lookup list lacks).
    std::map<std::string, PieceRecord> pieces;
    // With GROUPBYVALUE: the file each output name was first saved to (and
    // each such file to itself), for the later ranges of that name.
    std::unordered_map<std::string, std::string> groupedAs;
    std::vector<PieceException> exceptions;
};

// Tells (as a warning) when an output saved in this run is written again
// with pages that do not hold the ones it had, and keeps what it holds now.
void noteRewritten(RunState& run, RunInterface& ui, const std::string& outFile, const RunState::Written& now,
                   bool appended);

// One output file of a document, for mailing.
struct MailRange {
    std::string path;
    int first = 0;  // 1-based
    int last = 0;
    // The address on the pages the file holds, found from the words the scan
    // read; none when the file must be read to find it (it was appended to,
    // or not written by this range).
    std::optional<std::string> address;
    std::string subject;  // EMAILSUBJECT with the lookup list's columns, where it names any
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
    // The pages read from their image: the sum of their words' confidence
    // and how many words, by 0-based page.
    std::map<int, std::pair<long, int>> recognized;
    // What was read from the images of the pages not yet written, for the
    // outputs to carry as an invisible text layer (OCRTEXTLAYER).
    std::map<int, std::shared_ptr<const TextLayer>> layers;
    RecentPages recent;  // the pages the scan read last
    // Separator sheets: the first page of the piece the last sheet (or the
    // document's start) began, until its first match takes it on, and what
    // names it when none does.
    int segmentStart = -1;
    std::string segmentName;
    std::set<int> blankPages;  // pages left out of the pieces, from the open range on
    // With SPLITONCHANGE: the value of the open piece.
    std::optional<std::string> value;
    int valueFrom = 0;  // the first page scanned, where the first piece starts
};

// The last words seen, for search texts of more than one word. It goes on
// across lines and pages.
class RecentWords {
public:
    bool operator==(const RecentWords&) const = default;
    void clear();
    // Adds a word and answers the last `count` words joined by single blanks.
    const std::string& add(std::string_view word, int count);

private:
    std::array<std::string, kMaxSearchWords> slots_;
    std::string joined_;
};

// The word-by-word state of the match engine.
struct MatchState {
    // The word in hand, as the match engine compares it.
    std::string wdbuf;

    // The recent-word rings: the last words seen, joined by blanks, for the
    // search, until and "use as filename" texts of more than one word.
    struct RecentWordRings {
        RecentWords onRing;
        RecentWords untilRing;
        RecentWords filenameRing;
        std::string multiBuf;
        std::string multiEndBuf;
        std::string multiFilenameBuf;
        bool operator==(const RecentWordRings&) const = default;
    } rings;

    // The line capture: the words of the line that names a range, from the
    // word after the match (or after the "use as filename" text) on, and in
    // the "+ 1st line next page" mode the first line of the following page.
    struct LineCapture {
        bool bConcatLine = false;   // capturing on the match's line
        bool bConcatLine2 = false;  // capturing on the next page's first line
        int lLineCoord = -1;        // the line coordinate being captured
        long lLineWordCount = 0;
        bool bFirstFileMatch = true;  // no "use as filename" text seen in this range yet
        bool operator==(const LineCapture&) const = default;
    } line;

    // The position state: what the word before matched, whether an open range
    // waits for its until text (or until position), and the last word a
    // position alone matched, which names the final range when nothing else
    // does.
    struct Position {
        bool bMatch = false;
        bool bFileMatch = false;
        bool fromMatchUntil = false;
        bool fromMatchUntilPos = false;
        std::string lastPositionWord;
        // The page of the match `bMatch` tells of, and whether it was a
        // code: a code's range starts on the code's own page, as a code
        // often stands alone on it.
        int matchPage = -1;
        bool codeMatch = false;
        bool captured = false;  // a search pattern's group named the match: the word after it does not
        bool operator==(const Position&) const = default;
    } position;

    bool operator==(const MatchState&) const = default;
    // What of the state a later document can see: the word in hand and the
    // joined buffers are replaced at its first word, the line word count at
    // its first page; the line coordinate counts only while a line is
    // captured, and the last position word only while a match waits for
    // its range.
    MatchState carried() const;
};

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
    // Pages are read by this many workers, each on a host newHost makes,
    // when the source has enough pages; one reads them on `host`.
    int pageWorkers = 1;
    HostFactory newHost;
    // The workers' hosts, made once and kept for the documents after: what a
    // host sets up once (a text recognizer, above all) serves them all.
    std::vector<std::unique_ptr<DocumentHost>> pageHosts;
    // The mail address among a range's words (in reading order, h and v
    // swapped for rotated text as the settings say); set when mail is on.
    std::function<std::string(std::vector<Word>)> addressFromWords;

    // Prepares a run: word counts of the search texts, the modes, the run's
    // clock and counters. Answers false after saying why when the split mode
    // is unknown or a search text has more words than the engine can match.
    bool beginRun(const std::tm& now);
    // Takes the search texts and the modes from the settings again, after a
    // batch row loaded its own.
    bool takeSettings();
    // Forgets everything about the previous document.
    void beginDocument();

    // Scans the document in view, cutting it into ranges (or, for the show
    // view, highlighting each match). A document that cannot be read, or a
    // host failure during a page, ends the scan after saying so.
    void scan(ScanView view = ScanView::Split);

    // One word of the page being scanned; false stops the page.
    bool onWord(const Word& word);

    // Writes pages start..end (0-based, inclusive) of the source to `outFile`,
    // or its split list line; reports it.
    void ExtractPages(const std::string& outFile, int start, int end);
    // Saves and closes `target` at `path`; false after saying why it failed.
    bool SavePDDoc(DocHandle target, const std::string& path);

    // Cuts the document in view at the pages its bookmarks point to.
    void splitAtBookmarks();
    // Names the range lStartPage..lEndPage from `capture` and writes it;
    // `letter`, when given, tells the trace which rule closed it.
    void extractNamed(const std::string& capture, const char* letter);
    // Judges the pieces written and not yet judged: one that breaks a check
    // is moved into the exceptions folder (or only listed) and not mailed.
    // Answers the outputs held back.
    std::unordered_set<std::string> judgePieces();

private:
    void startMatch(int page);
    void untilMatch(int page);
    void uniqueRule(const char* same, const char* fresh);
    void highlight(const Word& word);
    void captureLineWord(const Word& word, bool nextPageLine);
    bool textMatches(std::string_view wanted, int words, const std::string& single, const std::string& multi) const;
    int lineCoordinate(int h, int v) const;
    void reopenSource();
    std::unique_ptr<PageReader> pageReader(int first, int last);
    // The area of a page that alone can matter to the scan, when the search
    // text must stand within bounds and nothing else needs a page's words:
    // scanned pages are then read there only.
    std::optional<std::array<float, 4>> searchArea() const;
    // The words of 0-based pages first..last as the scan read them, h and v
    // swapped for ROTATED; none when a page is no longer kept or holds more
    // words than a page store takes.
    std::optional<std::vector<Word>> recentWords(int first, int last) const;
    // Writes one range to its PDF (created, or appended to), unless that
    // file is a source of the run. Answers whether it was saved, and tells
    // whether it was appended to an existing file.
    bool writeRange(DocHandle source, const std::string& outFile, int start, int end, bool& appended);
    // The same for a planned run: the output listed, not written.
    bool planRange(DocHandle source, const std::string& outFile, int start, int end, bool& appended);
    // The words of 0-based pages first..last read from the source (for a
    // range the scan no longer keeps), as a page store reads them.
    std::optional<std::vector<Word>> sourceWords(int first, int last);
    std::string nameFor(const std::string& capture);
    // The two filename modes named by the rest of the captured line.
    bool restOfLineNames() const;
    // A search pattern with a group names the range just matched by what
    // the group took.
    void nameByPattern();
    // Ends the range open at `lastPage`, as the end of the document does.
    void closeRange(int lastPage);
    // The value of the code that makes a page a separator sheet ("" for a
    // blank one), when it is one.
    std::optional<std::string> separatorOf(const PageText& page) const;
    // Where a range whose match stands on `page` starts: at the start of
    // the pages a separator sheet began, for its first match.
    int rangeStart(int page);
    // Writes the pages a separator sheet began, up to `lastPage`, as a piece
    // of their own, when no match took them on.
    void writeSegment(int lastPage);
    // Ends everything open at a separator sheet: the pages after it begin
    // afresh.
    void endSegment(int lastPage);

    // Takes the settings of values, lookups and checks; false after saying
    // why when one is refused.
    bool takeValueSettings(PageExtractMode mode);
    // With SPLITONCHANGE: a page's value and the word it begins at; none
    // for a page without one.
    std::optional<std::pair<std::string, const Word*>> pageValue(const PageText& page) const;
    // Starts a piece at `page` when its value differs from the open one's.
    void valueChange(const PageText& page);
    // Where the pieces of an output that break a check go.
    std::filesystem::path exceptionsFolder(const std::string& outFile) const;
    // Records the range of `outFile` just written (into `file`: a free
    // "_partNNN" name may stand for it) into its piece, for the checks.
    void recordPiece(const std::string& outFile, const std::string& file, int start, int end);

    ScanView view_ = ScanView::Split;
    std::size_t separator_ = 0;  // the SEPARATOR mode, an index of kSeparatorModes
    CodeFormat separatorFormat_ = CodeFormat::None;
    // With PATTERNSEARCH: the search and until patterns, and what they found
    // at the word in hand.
    std::unique_ptr<PagePatterns> patterns_;
    const PagePatterns::Hit* patternHit_ = nullptr;
    int pageRotation_ = 0;
    std::optional<std::array<int, 4>> valueArea_;  // VALUEAREA: left, bottom, right, top
    std::unique_ptr<PieceChecks> checks_;
    // The lookup list, and the file and column it was read for.
    std::optional<LookupList> lookup_;
    std::pair<std::string, std::string> lookupFrom_;
    std::string savedAs_;  // the file SavePDDoc last saved
};

}  // namespace vellira
