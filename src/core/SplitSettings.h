// SplitSettings: the one record that describes a split job.
//
// Every field bears the name of its parameters-file key. Modes are stored as
// their display texts, the one form the record and the files know; a run
// converts them to their enums once, when it takes its settings.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

namespace vellira {

// Filename modes (`EXTRACT`), in the order the dialog lists them.
enum class FilenameMode {
    NextWord,
    PageStart,
    PageStartEnd,
    PositionMatch,
    SequentialNumber,
    NameAfterText,
    NameAfterTextRestOfLine,
    NameAfterTextRestOfLineAndNextPage,
    Bookmark,
};
inline constexpr std::array<std::pair<FilenameMode, std::string_view>, 9> kFilenameModes = {{
    {FilenameMode::NextWord, "Next word as filename"},
    {FilenameMode::PageStart, "Page start as filename"},
    {FilenameMode::PageStartEnd, "Page start-end as filename"},
    {FilenameMode::PositionMatch, "h,v match as filename"},
    {FilenameMode::SequentialNumber, "Sequential Number"},
    {FilenameMode::NameAfterText, "USE 'use as filename name after text'"},
    {FilenameMode::NameAfterTextRestOfLine, "USE 'use as filename name after text' - take rest of line"},
    {FilenameMode::NameAfterTextRestOfLineAndNextPage,
     "USE 'use as filename name after text' - take rest of line + 1st line next page"},
    {FilenameMode::Bookmark, "Use bookmark as filename"},
}};

// Extract (split) modes (`PAGEEXTRACT`), in the order the dialog lists them.
enum class PageExtractMode {
    NextMatch,
    NextUniqueMatch,
    NextMatchAtPosition,
    NextUniqueMatchAtPosition,
    UntilMatch,
    UntilMatchAtPosition,
    MatchedPageOnly,
    Bookmarks,
    BookmarksRootLevel,
    BookmarksLevel2,
};
inline constexpr std::array<std::pair<PageExtractMode, std::string_view>, 10> kExtractModes = {{
    {PageExtractMode::NextMatch, "From match to next match"},
    {PageExtractMode::NextUniqueMatch, "From match to next unique match"},
    {PageExtractMode::NextMatchAtPosition, "From match to next match using position h,v"},
    {PageExtractMode::NextUniqueMatchAtPosition, "From match to next unique match using position h,v"},
    {PageExtractMode::UntilMatch, "From match to until match"},
    {PageExtractMode::UntilMatchAtPosition, "From match to until match using position h,v"},
    {PageExtractMode::MatchedPageOnly, "Matched page only"},
    {PageExtractMode::Bookmarks, "Bookmarks"},
    {PageExtractMode::BookmarksRootLevel, "Bookmarks Root Level"},
    {PageExtractMode::BookmarksLevel2, "Bookmarks Level 2"},
}};

// The display text of a mode: the form stored in the settings and in files.
template <typename Mode, std::size_t N>
constexpr std::string_view modeTextIn(const std::array<std::pair<Mode, std::string_view>, N>& table, Mode mode) {
    for (const auto& [each, text] : table)
        if (each == mode) return text;
    return {};
}
constexpr std::string_view modeText(FilenameMode mode) { return modeTextIn(kFilenameModes, mode); }
constexpr std::string_view modeText(PageExtractMode mode) { return modeTextIn(kExtractModes, mode); }

// The mode a text names exactly, or nothing when it names none.
std::optional<FilenameMode> filenameModeOf(std::string_view text);
std::optional<PageExtractMode> pageExtractModeOf(std::string_view text);

// "Bookmarks", "Bookmarks Root Level" and "Bookmarks Level 2".
constexpr bool isBookmarkMode(PageExtractMode mode) { return mode >= PageExtractMode::Bookmarks; }
// The modes whose start match must stand at the "At position" h,v.
constexpr bool startsAtPosition(PageExtractMode mode) {
    return mode == PageExtractMode::NextMatchAtPosition || mode == PageExtractMode::NextUniqueMatchAtPosition ||
           mode == PageExtractMode::UntilMatchAtPosition;
}
// The modes that end a range at the until text.
constexpr bool endsAtUntilText(PageExtractMode mode) {
    return mode == PageExtractMode::UntilMatch || mode == PageExtractMode::UntilMatchAtPosition;
}
// The two modes that name a range by the captured line.
constexpr bool takesRestOfLine(FilenameMode mode) {
    return mode == FilenameMode::NameAfterTextRestOfLine || mode == FilenameMode::NameAfterTextRestOfLineAndNextPage;
}
// The three modes that look for the "use as filename" text.
constexpr bool namesAfterText(FilenameMode mode) {
    return mode == FilenameMode::NameAfterText || takesRestOfLine(mode);
}

// The looser test some callers make: the first 8 characters are "Bookmark".
bool startsWithBookmark(std::string_view extractMode);

// Filename macros offered in the prefix and postfix lists, in order.
inline constexpr std::array<std::string_view, 11> kFilenameMacros = {
    "[FILETITLE]",  "[PAGESTART]",      "[PAGEEND]",      "[PAGESTARTNOMASK]", "[PAGEENDNOMASK]", "[PAGES]",
    "[TOTALPAGES]", "[YYYY]-[MM]-[DD]", "[YYYY]-[M]-[D]", "[hh][mm][ss]",      "[POSn,n]",
};

inline constexpr std::string_view kVersionText = "v4.01";

// The output folder a fresh setup starts with on this platform.
std::string defaultOutputDir();

struct SplitSettings {
    // Job fields.
    std::string FILENAME;
    int USECURRENT = 0;
    std::string FINDSTRING = "account:";
    std::string MATCHPOSH;
    std::string MATCHPOSV;
    std::string EXTRACTUNTIL;
    int UNTILMATCHPOSH = 0;
    int UNTILMATCHPOSV = 0;
    std::string EXTRACTFILENAME;
    std::string PREFIXFILENAME = "extract_";
    std::string POSTFIXFILENAME;
    int USESOURCEFILENAME = 0;
    int USESOURCEFILENAMEPOST = 0;
    std::string OUTPUTDIR = defaultOutputDir();
    int SPLITTOSOURCE = 0;
    int ALWAYSOVERWRITE = 0;
    int ALWAYSAPPEND = 0;
    std::string EXTRACT{modeText(FilenameMode::NextWord)};
    int TAKENWORDSFORFILENAME = 999;
    std::string FIRSTCHAROFWORD;
    int TAKENCHARSFORFILENAME = 999;
    std::string UNTILCHARACTERFILENAME;
    std::string ADDBWORDS;
    int UNTILHHPOSLESSTHAN = 9999;
    std::string PAGEEXTRACT{modeText(PageExtractMode::NextMatch)};
    int KEEPBOOKMARKS = 0;
    // The "Remove first" value each document's scan starts from.
    int OFFSETFIRST = 0;
    int STARTFROMPAGE = 1;
    int TOPAGE = 0;
    int IGNORECASE = 0;
    int ROTATED = 0;
    int CREATELIST = 0;

    // Report options.
    int REPORTOPTIONSTXT = 0;
    int REPORTOPTIONSCSV = 0;
    int REPORTOPTIONSCURRENT = 0;
    std::string REPORTOPTIONSOUTPUTFOLDER;

    // Fields without a control.
    int STRIPEND = 0;
    int AUTOMATION = 0;
    std::string LASTPATH;
    std::string LASTPATHSUB;

    // The working copy of OFFSETFIRST: set from OFFSETFIRST when a document's
    // scan starts, read by naming and extraction. A parameters file restores
    // only this copy, so loading one leaves the "Remove first" value alone.
    int offsetFirstWorking = 0;

    // E-mail settings.
    int EMAILENABLE = 0;
    std::string EMAILSMTP;
    std::string EMAILLOGIN;
    std::string EMAILPASSWORD;
    std::string EMAILFROM;
    std::string EMAILFROMNAME;
    std::string EMAILCC;
    std::string EMAILSUBJECT;
    std::string EMAILMSG;
    int EMAILHTML = 0;
    int USEOUTLOOK = 0;
    int EMAILCONFIRM = 0;
    int EMAILTEST = 0;
    int EMAILRETRYSECONDS = 0;  // how long a mail the server put off is tried again
    std::string EMAILLOGFILE;
    int EMAILMATCHVERT = 0;
    int EMAILMATCHVERTTO = 0;
    int EMAILMATCHHORIZ = 0;
    int EMAILMATCHHORIZTO = 0;
    std::string EMAILHORIZAFTERTEXT;
    std::string EMAILHORIZBEFORETEXT;

    // Reading pages from their image (OCR): which pages (one of kOcrModes),
    // in which languages, at what resolution, and the least confidence a
    // word read needs to count.
    std::string OCR = "Pages without text";
    std::string OCRLANGUAGES = "eng";
    int OCRRESOLUTION = 300;
    int OCRCONFIDENCE = 30;
    int OCRTEXTLAYER = 0;  // outputs carry the text read as an invisible layer

    // Codes read from a page's image as words: which pages (one of
    // kOcrModes), which kinds (names of kCodeFormatNames joined by +, empty
    // for all) and at what resolution.
    std::string CODES = "Pages without text";
    std::string CODEFORMATS;
    int CODERESOLUTION = 150;
    // Separator sheets: what makes a page one (one of kSeparatorModes) with
    // the value, beginning or kind it looks for; whether the sheet stays as
    // the first page of the piece after it, and whether its value names that
    // piece. Blank pages may also be only left out of the pieces.
    std::string SEPARATOR = "None";
    std::string SEPARATORTEXT;
    int KEEPSEPARATOR = 0;
    int SEPARATORNAMES = 1;
    int DROPBLANKPAGES = 0;
    // FINDSTRING and EXTRACTUNTIL are patterns (regular expressions) over
    // each page's text, its words joined by single blanks.
    int PATTERNSEARCH = 0;
    // Pieces cut where a value changes: the value a page's match names it by,
    // or the words inside VALUEAREA ("left,bottom,right,top" in points).
    int SPLITONCHANGE = 0;
    std::string VALUEAREA;
    // Every range of one name goes into one piece, in page order, across the
    // documents of the run.
    int GROUPBYVALUE = 0;
    // A CSV list the captured value is looked up in: its columns are the
    // [COL:NAME] macros; a value missing from it is written under its own
    // name or skipped (one of kLookupMissingModes).
    std::string LOOKUPFILE;
    std::string LOOKUPKEYCOLUMN;
    std::string LOOKUPMISSING = "Write under its value";
    std::string LOOKUPEMAILCOLUMN;
    // Checks each piece must pass before it goes out: "Page N of M" runs
    // 1..M (a pattern with two groups), a number of pages, a value pattern.
    // A piece that fails goes to EXCEPTIONSFOLDER (beside its own folder
    // when relative), or is only listed.
    std::string CHECKPAGEOF;
    int CHECKMINPAGES = 0;
    int CHECKMAXPAGES = 0;
    std::string CHECKVALUE;
    std::string EXCEPTIONSFOLDER = "Exceptions";
    int EXCEPTIONSLISTONLY = 0;

    bool operator==(const SplitSettings&) const = default;
};

// The OCR key's values: which pages are read from their image.
inline constexpr std::array<std::string_view, 3> kOcrModes = {"Off", "Pages without text", "All pages"};

// The SEPARATOR key's values: what makes a page a separator sheet.
inline constexpr std::array<std::string_view, 5> kSeparatorModes = {"None", "Code value is", "Code value begins with",
                                                                    "Any code of format", "Blank page"};

// The LOOKUPMISSING key's values: what becomes of a value the list lacks.
inline constexpr std::array<std::string_view, 2> kLookupMissingModes = {"Write under its value", "Skip"};

// One parameters-file key: its name, its type and the field it names, listed
// in the order the parameters reader compares them, with what a user is told
// about it. The parameters file, the command line and the GUI all reach fields
// through this table. `UNTILWORDISFILENAME` is not here: it is written with a
// meaningless number and never read back. A key's default is what a fresh
// `SplitSettings` holds.
enum class KeyType { Integer, Flag, Text };
struct SettingsKey {
    std::string_view name;
    KeyType type;
    std::variant<int SplitSettings::*, std::string SplitSettings::*> field;
    std::string_view label;         // the text beside its control; empty where it has none
    std::string_view meaning;       // one line
    std::string_view details = {};  // more, where one line is not enough
};
// "text", "integer" or "flag".
std::string_view keyTypeName(KeyType type);

std::span<const SettingsKey> settingsKeys();
const SettingsKey* findSettingsKey(std::string_view name);

// Reads an integer the way the parameters file does: optional sign, then the
// leading digits; anything after them is ignored, no digits give 0, and values
// beyond 32 bits saturate.
int leadingInteger(std::string_view text);

// Sets the field a key names from its text form: integers by leadingInteger,
// text as given.
void assignKey(SplitSettings& settings, const SettingsKey& key, std::string_view value);
// The field's current value as text.
std::string keyValueText(const SettingsKey& key, const SplitSettings& settings);

// Which controls of the main dialog are enabled after a normalisation.
struct FilenameControls {
    bool extractFilename = false;  // "Use as filename after text:"
    bool takenWords = false;       // "Only take first: ... words"
    bool firstChar = false;        // "until first of word is:"
    bool takenChars = false;       // "Only take first: ... characters"
    bool addWords = false;         // "Add: ... between words"
    bool untilHPos = false;        // "while h position is less than"
    bool operator==(const FilenameControls&) const = default;
};
struct PositionControls {
    bool matchPosition = false;  // the h,v boxes of the search text
    bool untilPosition = false;  // the h,v boxes of the until text
    bool operator==(const PositionControls&) const = default;
};

// Applied when the filename mode changes.
FilenameControls normaliseFilenameMode(SplitSettings& settings);
// Applied when the extract mode changes.
PositionControls normaliseExtractMode(SplitSettings& settings);

// Number of words in a search text: 1 plus the blanks that are followed by a
// non-blank; a text shorter than 2 characters counts 1.
int countSearchWords(std::string_view text);

// Replaces "[DESKTOP]" in an output folder by the desktop folder's path.
std::string replaceDesktopToken(std::string_view outputDir, std::string_view desktopFolder);

}  // namespace vellira
