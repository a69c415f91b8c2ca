#include "core/SplitSettings.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdlib>

namespace vellira {

namespace {

template <typename Mode, std::size_t N>
std::optional<Mode> modeIn(const std::array<std::pair<Mode, std::string_view>, N>& table, std::string_view text) {
    for (const auto& [mode, each] : table)
        if (each == text) return mode;
    return std::nullopt;
}

using S = SplitSettings;

// The longer texts of the key table, for the keys that need more than a line.

constexpr std::string_view kFindStringDetails =
    "Compared whole word and exactly: Invoice does not match Invoice: nor invoice (unless IGNORECASE is on). "
    "Several words match consecutive words in reading order, also across a line or a page break.\n"
    "A range starts on the page of the word after the match; in \"Next word as filename\" that word names it. "
    "An empty search text matches nothing, except in the position split modes, where any word at the position "
    "does. The bookmark split modes do not use it.";

constexpr std::string_view kMatchPositionDetails =
    "Used by the split modes \"using position h,v\": a range starts only where the search text (FINDSTRING) "
    "stands at this position; with an empty FINDSTRING any word there starts one. Positions are whole PDF points "
    "from the bottom-left corner of the page, as this command lists them for every word of a page:\n"
    "  vellira-batch positions PDF --page N\n"
    "\n"
    "MATCHPOSH and MATCHPOSV are each written as:\n"
    "  LO           exactly LO                     120\n"
    "  LO-HI        from LO to HI                  100-140\n"
    "  LO|ALT       LO, or exactly ALT             120|300\n"
    "  LO-HI|ALT    from LO to HI, or exactly ALT  100-140|300\n"
    "A word passes when its h passes MATCHPOSH and its v passes MATCHPOSV. A leading minus is a sign, and an "
    "empty value counts as 0. Failing that, a word still passes by the first number (LO) of each:\n"
    "  MATCHPOSH 0     any word on the line MATCHPOSV\n"
    "  MATCHPOSV 0     any word in the column MATCHPOSH\n"
    "  MATCHPOSH -N    any word of exactly N characters on the line MATCHPOSV\n"
    "  MATCHPOSV -N    any word of exactly N characters in the column MATCHPOSH\n"
    "There is no tolerance beyond these. MATCHPOSH=100-120 with MATCHPOSV=700 matches a word at h 110, v 700; "
    "MATCHPOSH=-5 with MATCHPOSV=700 matches any five-character word at v 700.";

constexpr std::string_view kUntilPositionDetails =
    "Used by \"From match to until match using position h,v\" only: the until text (EXTRACTUNTIL) ends a range "
    "only where it stands at UNTILMATCHPOSH, UNTILMATCHPOSV, and that page is left out of the range. Both are plain "
    "numbers (no ranges):\n"
    "  h and v            exactly at UNTILMATCHPOSH, UNTILMATCHPOSV\n"
    "  UNTILMATCHPOSH 0   any word on the line UNTILMATCHPOSV\n"
    "  UNTILMATCHPOSV 0   any word in the column UNTILMATCHPOSH\n"
    "  UNTILMATCHPOSH -N  any word of exactly N characters on the line UNTILMATCHPOSV\n"
    "  UNTILMATCHPOSV -N  any word of exactly N characters in the column UNTILMATCHPOSH\n"
    "Positions are whole PDF points from the bottom-left corner of the page, as this command lists them:\n"
    "  vellira-batch positions PDF --page N";

constexpr std::string_view kExtractDetails =
    "Give the text exactly as listed, case and quotes included; a text that names no mode is refused. The three "
    "\"USE 'use as filename name after text'\" modes read the name after EXTRACTFILENAME, limited by "
    "TAKENWORDSFORFILENAME, FIRSTCHAROFWORD, UNTILCHARACTERFILENAME, TAKENCHARSFORFILENAME and UNTILHHPOSLESSTHAN. "
    "Each output file is named PREFIXFILENAME, the name, POSTFIXFILENAME and .pdf, in OUTPUTDIR; the characters "
    "< > : ? * \" / \\ | are left out of the name.";

constexpr std::string_view kPageExtractDetails =
    "Give the text exactly as listed, case included; a text that names no mode is refused. A range starts on the "
    "page of the word after a match and ends on the page before the next match. In \"From match to until match\" "
    "it ends on the page of the until text (EXTRACTUNTIL), and search matches before that are ignored; in \"From "
    "match to until match using position h,v\" it ends on the page before the until text. The \"unique\" modes "
    "merge consecutive ranges of the same name into one file. The position modes compare where the search text "
    "stands with MATCHPOSH and MATCHPOSV (described under MATCHPOSH). The bookmark modes cut at the pages the "
    "bookmarks point to and ignore the search text.";

constexpr std::string_view kOffsetFirstDetails =
    "Every range written leaves out its first N pages; a range of N pages or fewer writes nothing. "
    "[PAGESTARTNOMASK] counts from the first page written. An OFFSETFIRST line of a parameters file does not set "
    "this value (each document's scan starts again from it), so give it with --set.";

constexpr std::string_view kToPageDetails =
    "0 scans to the last page. A negative value leaves out that many pages at the end: -2 on a 10-page document "
    "scans pages 1-8 (and all of a document that has no more pages than that). A value beyond the page count "
    "scans to the last page.";

constexpr std::string_view kUntilWordDetails =
    "A parameters file restores it under this key, but saving one writes UNTILWORDISFILENAME with a number in its "
    "place, so a saved setup never brings it back; give it with --set.";

constexpr std::string_view kPrefixDetails =
    "Put before the name of every output file, its macros replaced for each range: the prefix "
    "[FILETITLE]_[PAGESTART]_ gives run_000003_ for a range of run.pdf that starts on page 3. With "
    "USESOURCEFILENAME on, the source file's title and \"_\" take its place (just the title when FILENAME has no "
    "folder).";

constexpr std::string_view kSmtpDetails =
    "HOST (or HOST:PORT) speaks SMTP and switches to TLS when the server offers it; ssl:HOST:PORT uses TLS from "
    "the start (usually port 465); tls:HOST:PORT requires STARTTLS (usually port 587). Certificates are always "
    "verified; the environment variable SSL_CERT_FILE names other authorities to trust. The mail-test command "
    "sends one test mail to EMAILFROM.";

constexpr std::string_view kEmailRetryDetails =
    "A mail the server puts off (a 4xx answer), or that cannot reach the server or gets no answer in time, is "
    "tried again after 1 second, then 2, 4, ... (at most 5 minutes apart) until it is sent or this many seconds "
    "have passed since the first try; then it counts as failed. A refusal (a 5xx answer) is final at once. "
    "0 tries each mail once. Unattended runs usually allow an hour: EMAILRETRYSECONDS=3600. Mails that failed "
    "can be sent again later with 'vellira-batch mail-resend --failed'.";

constexpr std::string_view kEmailBoundsDetails =
    "The address is the word holding \"@\" that lies within EMAILMATCHVERT..EMAILMATCHVERTTO and "
    "EMAILMATCHHORIZ..EMAILMATCHHORIZTO on the pages of an output file, joined without blanks to the words beside "
    "it on its line within the horizontal bounds; EMAILHORIZAFTERTEXT and EMAILHORIZBEFORETEXT cut that line down "
    "to the address. All four bounds start at 0, and 0 is a real bound: with 0 as an upper bound only words at "
    "position 0 qualify, so set them (usually to -1, any position) before mailing.";

constexpr std::string_view kOcrDetails =
    "A page is rendered at OCRRESOLUTION dots per inch and read with the Tesseract library in the languages of "
    "OCRLANGUAGES; its words then take part in every search, name and address as a text page's do, at their "
    "places on the page (h, v in points). A page scanned sideways, upside down or a little crooked is read the "
    "right way round. Words read with less than OCRCONFIDENCE (0 to 100) are left out.\n"
    "  \"Off\"                 never\n"
    "  \"Pages without text\"  pages that hold no text (scans), the default\n"
    "  \"All pages\"           every page, its text ignored\n"
    "For a batch of scanned letters in English and German, read at 400 dpi:\n"
    "  OCR;Pages without text\n"
    "  OCRLANGUAGES;eng+deu\n"
    "  OCRRESOLUTION;400\n"
    "Each language is a Debian package: tesseract-ocr-eng, tesseract-ocr-deu, ... ('apt install "
    "tesseract-ocr-deu').";

constexpr std::string_view kOcrLayerDetails =
    "With OCRTEXTLAYER on, each output page that was read from its image gets the words read, as invisible text "
    "at their places under the image, as a scanner's software writes it: the pieces can be searched, and their "
    "text selected and copied, in any PDF viewer. What the page shows is unchanged. Outputs of pages with text of "
    "their own are unchanged. For searchable pieces of a scanned run:\n"
    "  OCR;Pages without text\n"
    "  OCRTEXTLAYER;1";

constexpr std::string_view kCodeDetails =
    "A page is rendered at CODERESOLUTION dots per inch (or at OCRRESOLUTION when it is read for its text as "
    "well) and the codes on it are read: each becomes a word of the page after its text, the code's value at the "
    "bottom-left corner of its box, so search texts, positions, names and addresses take codes as they take "
    "words. CODEFORMATS limits the kinds read (QRCode, DataMatrix, Code128, Code39, EAN13, EAN8, UPCA, UPCE, "
    "ITF, PDF417, Aztec), joined by +; empty reads them all. A small Data Matrix or Aztec code among other "
    "things on a page is found when CODEFORMATS names its kind, which looks for it part by part.\n"
    "  \"Off\"                 never\n"
    "  \"Pages without text\"  pages that hold no text (scans), the default\n"
    "  \"All pages\"           every page, its text kept\n"
    "To name each piece by the Code 128 invoice number at h,v 400,760 on its first page:\n"
    "  CODES;All pages\n"
    "  CODEFORMATS;Code128\n"
    "  PAGEEXTRACT;From match to next match using position h,v\n"
    "  FINDSTRING;\n"
    "  MATCHPOSH;400-450\n"
    "  MATCHPOSV;760-780\n"
    "  EXTRACT;h,v match as filename";

constexpr std::string_view kSeparatorDetails =
    "A separator sheet ends the piece before it, whatever the search text, and a new piece starts after it: the "
    "pages between two sheets are one piece even where the search text is found nowhere, and more where it is "
    "found within them. The sheet itself is left out of the pieces, or with KEEPSEPARATOR it is the first page of "
    "the piece after it. The pages after a sheet up to the search text's first match belong to the piece that "
    "match begins; pages after a sheet where the search text is found nowhere are a piece named by the sheet's "
    "code value (with SEPARATORNAMES) or else by their pages.\n"
    "  \"None\"                    no separators, the default\n"
    "  \"Code value is\"           a page with a code whose value is SEPARATORTEXT\n"
    "  \"Code value begins with\"  a page with a code whose value begins with SEPARATORTEXT\n"
    "  \"Any code of format\"      a page with a code of the format SEPARATORTEXT names (QRCode, Code128, ...)\n"
    "  \"Blank page\"              a page with no text, no code and almost no ink (specks, a punched hole)\n"
    "For a scanned run with a QR code sheet \"NEXT\" between the documents:\n"
    "  SEPARATOR;Code value is\n"
    "  SEPARATORTEXT;NEXT";

constexpr std::string_view kBlankPagesDetails =
    "A page is blank when it holds no text and no code and, rendered, shows almost no "
    "ink: scanner specks, a punched hole, a stray dot or a shadow along an edge still count as blank; a "
    "signature, a stamp or a line of writing does not. For a duplex scan whose empty backs should not reach "
    "the customers:\n"
    "  DROPBLANKPAGES;1";

constexpr std::string_view kPatternDetails =
    "With PATTERNSEARCH on, FINDSTRING and EXTRACTUNTIL are regular expressions (RE2's syntax, the one of most "
    "tools: \\d a digit, {4,} four or more, (...) a group, (?P<name>...) a group named name) matched over each "
    "page's text, its words joined by single blanks, so a pattern may take in several words and lines of a page. "
    "A range starts at the word where a match begins. A pattern with a group names the range by what its first "
    "group (or the group named name) took, in every naming mode that names by the text found; without a group "
    "it is named as a search word is. Each group is also a macro of the prefix and postfix: [GROUP2] is what the "
    "second took, and so on. IGNORECASE makes the pattern ignore case. A pattern that is not one is "
    "refused before the run, with where it goes wrong. For statements whose account numbers are ACC and four or "
    "more digits, each named by its number:\n"
    "  PATTERNSEARCH;1\n"
    "  FINDSTRING;ACC(\\d{4,})";

constexpr std::string_view kValueChangeDetails =
    "With SPLITONCHANGE on, each page's value is read and a new piece starts on every page whose value differs "
    "from the value before it; pages without a value (continuation pages) belong to the piece before them, and "
    "pages before the first value to the first piece. The value names the piece. A page's value is the words "
    "inside VALUEAREA when that is set, written left,bottom,right,top in PDF points as `positions` lists them; "
    "otherwise what the search text's first match on the page names: the word after FINDSTRING, the group of a "
    "pattern (PATTERNSEARCH), or the word at the position in the \"using position h,v\" split modes. For "
    "statements whose customer number stands in a box at the top right of every page:\n"
    "  SPLITONCHANGE;1\n"
    "  VALUEAREA;450,760,580,790";

constexpr std::string_view kGroupDetails =
    "With GROUPBYVALUE on, every range named alike goes into one piece, in the order the run meets them, however "
    "far apart they lie in a document or across the documents of a batch list: the later ranges are appended to "
    "the piece the first one wrote. The run keeps one entry per piece, not per page. Mail, when on, is sent once "
    "the run has gathered every piece. To gather each customer's invoices and credit notes of a day's runs:\n"
    "  GROUPBYVALUE;1\n"
    "  EXTRACT;Next word as filename\n"
    "  FINDSTRING;Customer:";

constexpr std::string_view kLookupDetails =
    "LOOKUPFILE names a CSV list (comma, semicolon, tab or bar between fields, found from its first line; "
    "UTF-8 or Windows-1252) whose first line names its columns. The value that names a piece is looked up in "
    "LOOKUPKEYCOLUMN (a column's name or number; the first column when empty); the row found makes each column "
    "a macro [COL:NAME] for PREFIXFILENAME, POSTFIXFILENAME and EMAILSUBJECT, and LOOKUPEMAILCOLUMN names the "
    "column that holds the piece's mail recipient. A value the list lacks is listed in the exceptions report "
    "and, by LOOKUPMISSING, written under its own value (\"Write under its value\") or not at all (\"Skip\"). "
    "With a list customers.csv of Number;Name;Email:\n"
    "  LOOKUPFILE;/srv/lists/customers.csv\n"
    "  LOOKUPKEYCOLUMN;Number\n"
    "  PREFIXFILENAME;[COL:Name]_\n"
    "  LOOKUPEMAILCOLUMN;Email";

constexpr std::string_view kCheckDetails =
    "Checks a piece must pass before it goes out; each is off when empty or 0. CHECKPAGEOF is a pattern with "
    "two groups, the page's number and the count, that the pages of a piece must show running 1..M with no gap "
    "and no page twice; CHECKMINPAGES and CHECKMAXPAGES bound its number of pages; CHECKVALUE is a pattern the "
    "value naming it must match whole. A piece that fails is written into EXCEPTIONSFOLDER instead (a relative "
    "folder is made beside the piece's own) or, with EXCEPTIONSLISTONLY, where it would go; either way it is not "
    "mailed, it is listed in exceptions.csv in that folder (source, pages, value, the check broken), the summary "
    "counts it and the command line exits with status 3. To hold back statements with a page missing:\n"
    "  CHECKPAGEOF;Page (\\d+) of (\\d+)\n"
    "  EXCEPTIONSFOLDER;Held";

// Every key the parameters file can read, with the field it sets, the label
// of its control and what it means. One entry a key: name, type, field and
// label on its first line, meaning and any details on the next.
// clang-format off
const SettingsKey kKeys[] = {
    {"AUTOMATION", KeyType::Flag, &S::AUTOMATION, "",
     "marks a setup that runs by itself; any AUTOMATION line of a parameters file sets it"},
    {"USECURRENT", KeyType::Flag, &S::USECURRENT, "Use current open PDF document",
     "split the viewer's open document instead of a file; here, FILENAME opened as that document"},
    {"SPLITTOSOURCE", KeyType::Flag, &S::SPLITTOSOURCE, "Always split to source file directory (override below)",
     "write the output files beside each source PDF instead of into OUTPUTDIR"},
    {"ROTATED", KeyType::Flag, &S::ROTATED, "landscape layout",
     "the source pages are in landscape layout: the words of a line share their h, not their v"},
    {"CREATELIST", KeyType::Flag, &S::CREATELIST, "Create file list for Tessary",
     "write a split list for Tessary (FILENAME_splitlist.spl), a line per range, instead of the PDFs"},
    {"KEEPBOOKMARKS", KeyType::Flag, &S::KEEPBOOKMARKS, "Keep Bookmarks",
     "keep the bookmarks that point into a range in its output file"},
    {"FILENAME", KeyType::Text, &S::FILENAME, "Filename:",
     "the PDF to split when no batch list is used and USECURRENT is off"},
    {"EXTRACT", KeyType::Text, &S::EXTRACT, "Filename extract:",
     "the naming mode: how each output file is named (one of the naming mode texts)", kExtractDetails},
    {"TAKENWORDSFORFILENAME", KeyType::Integer, &S::TAKENWORDSFORFILENAME, "Only take first:",
     "how many words after EXTRACTFILENAME make up the name"},
    {"UNTILHHPOSLESSTHAN", KeyType::Integer, &S::UNTILHHPOSLESSTHAN, "while h position is less than",
     "take words for the name only while their h is below this value (0: any h)"},
    {"UNTILCHARACTERFILENAME", KeyType::Text, &S::UNTILCHARACTERFILENAME, "or/and until word:",
     "cut the name where this text first occurs", kUntilWordDetails},
    {"TAKENCHARSFORFILENAME", KeyType::Integer, &S::TAKENCHARSFORFILENAME, "Only take first:",
     "cut the name to this many characters (999, or 0 and less: no cut)"},
    {"FIRSTCHAROFWORD", KeyType::Text, &S::FIRSTCHAROFWORD, "words for filename extract / until first of word is:",
     "stop taking words for the name at the first word that begins with this text"},
    {"STARTFROMPAGE", KeyType::Integer, &S::STARTFROMPAGE, "Start from page:",
     "first page scanned (1-based)"},
    {"TOPAGE", KeyType::Integer, &S::TOPAGE, "to:",
     "last page scanned; 0 is the document's last page, -N leaves out the last N pages", kToPageDetails},
    {"USESOURCEFILENAME", KeyType::Flag, &S::USESOURCEFILENAME, "Prefix with source filename",
     "begin each output name with the source file's title, in place of PREFIXFILENAME"},
    {"USESOURCEFILENAMEPOST", KeyType::Flag, &S::USESOURCEFILENAMEPOST, "Postfix with source filename",
     "end each output name with the source file's title, in place of POSTFIXFILENAME"},
    {"ALWAYSOVERWRITE", KeyType::Flag, &S::ALWAYSOVERWRITE, "Always overwrite output file (if exists)",
     "replace an existing output file without asking"},
    {"ALWAYSAPPEND", KeyType::Flag, &S::ALWAYSAPPEND, "Append (if exists)",
     "append the range's pages to an existing output file of the same name"},
    {"IGNORECASE", KeyType::Flag, &S::IGNORECASE, "Ignore case senstivie text",
     "compare the search and until texts without regard to case"},
    {"ADDBWORDS", KeyType::Text, &S::ADDBWORDS, "Add:",
     "separator put between the words taken for the name"},
    {"PAGEEXTRACT", KeyType::Text, &S::PAGEEXTRACT, "Page extract:",
     "the split mode: how the pages are cut into ranges (one of the split mode texts)", kPageExtractDetails},
    {"FINDSTRING", KeyType::Text, &S::FINDSTRING, "Find word(s):",
     "the search text: one or more words, separated by single spaces", kFindStringDetails},
    {"PREFIXFILENAME", KeyType::Text, &S::PREFIXFILENAME, "Prefix output filename:",
     "text put before the name of each output file; may hold filename macros", kPrefixDetails},
    {"POSTFIXFILENAME", KeyType::Text, &S::POSTFIXFILENAME, "Postfix output filename:",
     "text put after the name of each output file (before .pdf); may hold filename macros"},
    {"OUTPUTDIR", KeyType::Text, &S::OUTPUTDIR, "Output Directory:",
     "folder the output files are written to; [DESKTOP] in it stands for the desktop folder"},
    {"EXTRACTUNTIL", KeyType::Text, &S::EXTRACTUNTIL, "Extract until word(s):",
     "the end text of the until split modes: a range ends at it"},
    {"EXTRACTFILENAME", KeyType::Text, &S::EXTRACTFILENAME, "Use as filename after text:",
     "the text after which the name is read, in the \"USE 'use as filename name after text'\" modes"},
    {"MATCHPOSH", KeyType::Text, &S::MATCHPOSH, "At Position h:",
     "horizontal position the search text must stand at, in the position split modes", kMatchPositionDetails},
    {"MATCHPOSV", KeyType::Text, &S::MATCHPOSV, "v:",
     "vertical position the search text must stand at, in the position split modes", kMatchPositionDetails},
    {"UNTILMATCHPOSH", KeyType::Integer, &S::UNTILMATCHPOSH, "At Position h:",
     "horizontal position the until text must stand at, in the until split mode with position", kUntilPositionDetails},
    {"UNTILMATCHPOSV", KeyType::Integer, &S::UNTILMATCHPOSV, "v:",
     "vertical position the until text must stand at, in the until split mode with position", kUntilPositionDetails},
    {"REPORTOPTIONSTXT", KeyType::Flag, &S::REPORTOPTIONSTXT, "Always write out a txt report file",
     "write a text report of the ranges written (SOURCE.pdf_report.txt)"},
    {"REPORTOPTIONSCSV", KeyType::Flag, &S::REPORTOPTIONSCSV, "Always write out a csv report file",
     "write a comma-separated report of the ranges written (SOURCE.pdf_report.csv)"},
    {"REPORTOPTIONSCURRENT", KeyType::Flag, &S::REPORTOPTIONSCURRENT, "Always write to current source file folder",
     "put the reports beside the source PDF even when REPORTOPTIONSOUTPUTFOLDER is set"},
    {"REPORTOPTIONSOUTPUTFOLDER", KeyType::Text, &S::REPORTOPTIONSOUTPUTFOLDER, "Output folder:",
     "folder for the reports when REPORTOPTIONSCURRENT is off (empty: beside the source PDF)"},
    {"STRIPEND", KeyType::Integer, &S::STRIPEND, "",
     "characters cut off the end of the name's text; reset to 0 before each parameters file is read"},
    // The dialog's field; the parameters file reads this key into the
    // working copy instead (offsetFirstWorking).
    {"OFFSETFIRST", KeyType::Integer, &S::OFFSETFIRST, "Remove first:",
     "leave out the first N pages of every range written", kOffsetFirstDetails},
    {"EMAILLOGIN", KeyType::Text, &S::EMAILLOGIN, "Login:",
     "SMTP login name"},
    {"EMAILPASSWORD", KeyType::Text, &S::EMAILPASSWORD, "Password:",
     "SMTP password, kept in clear text"},
    {"EMAILSMTP", KeyType::Text, &S::EMAILSMTP, "SMTP Server:",
     "mail server: HOST, ssl:HOST:PORT or tls:HOST:PORT", kSmtpDetails},
    {"EMAILFROM", KeyType::Text, &S::EMAILFROM, "From Address:",
     "sender address; test mails, and every mail in test mode, go to it"},
    {"EMAILCC", KeyType::Text, &S::EMAILCC, "CC Address:",
     "copy address of every mail"},
    {"EMAILFROMNAME", KeyType::Text, &S::EMAILFROMNAME, "From Name:",
     "sender display name"},
    {"EMAILSUBJECT", KeyType::Text, &S::EMAILSUBJECT, "Subject:",
     "subject line of every mail"},
    {"EMAILLOGFILE", KeyType::Text, &S::EMAILLOGFILE, "Log file:",
     "the e-mail log: one line per mail sent"},
    {"EMAILMSG", KeyType::Text, &S::EMAILMSG, "Message:",
     "message body of every mail"},
    {"EMAILHTML", KeyType::Flag, &S::EMAILHTML, "html message (SMTP send only)",
     "the message body is HTML (SMTP only)"},
    {"USEOUTLOOK", KeyType::Flag, &S::USEOUTLOOK, "Use Microsoft outlook instead of stmp server",
     "send through Microsoft Outlook instead of an SMTP server (Windows only)"},
    {"EMAILENABLE", KeyType::Flag, &S::EMAILENABLE, "Enable sending of emails",
     "when the run ends, mail each output file to the address found on its pages"},
    {"EMAILCONFIRM", KeyType::Flag, &S::EMAILCONFIRM, "Confirm before sending",
     "list the mails and send them only when confirmed (--yes on the command line)"},
    {"EMAILTEST", KeyType::Flag, &S::EMAILTEST, "Test mode! all emails will be sent to from address instead",
     "send every mail to EMAILFROM instead of the address found"},
    {"EMAILRETRYSECONDS", KeyType::Integer, &S::EMAILRETRYSECONDS, "Retry for (seconds):",
     "how long a mail the server put off, or could not take, is tried again; 0 for once", kEmailRetryDetails},
    {"EMAILMATCHVERT", KeyType::Integer, &S::EMAILMATCHVERT, "Email match vertical position:",
     "lowest v of the address word, -1 for any", kEmailBoundsDetails},
    {"EMAILMATCHVERTTO", KeyType::Integer, &S::EMAILMATCHVERTTO, "to",
     "highest v of the address word, -1 for any", kEmailBoundsDetails},
    {"EMAILMATCHHORIZ", KeyType::Integer, &S::EMAILMATCHHORIZ, "Email match horizontal position:",
     "lowest h of the address word, -1 for any", kEmailBoundsDetails},
    {"EMAILMATCHHORIZTO", KeyType::Integer, &S::EMAILMATCHHORIZTO, "to",
     "highest h of the address word, -1 for any", kEmailBoundsDetails},
    {"EMAILHORIZAFTERTEXT", KeyType::Text, &S::EMAILHORIZAFTERTEXT, "After text:",
     "the address starts after this word, such as the label before it"},
    {"EMAILHORIZBEFORETEXT", KeyType::Text, &S::EMAILHORIZBEFORETEXT, "Before text:",
     "the address ends before this word"},
    {"OCR", KeyType::Text, &S::OCR, "Read pages from their image (OCR):",
     "which pages are read from their image: \"Off\", \"Pages without text\" or \"All pages\"", kOcrDetails},
    {"OCRLANGUAGES", KeyType::Text, &S::OCRLANGUAGES, "Languages:",
     "the languages pages are read in, Tesseract's names joined by +: eng+deu", kOcrDetails},
    {"OCRRESOLUTION", KeyType::Integer, &S::OCRRESOLUTION, "Resolution (dpi):",
     "the dots per inch a page is rendered at to be read (36 to 1200)", kOcrDetails},
    {"OCRCONFIDENCE", KeyType::Integer, &S::OCRCONFIDENCE, "Least confidence:",
     "the least confidence (0 to 100) a word read from an image needs to count", kOcrDetails},
    {"OCRTEXTLAYER", KeyType::Flag, &S::OCRTEXTLAYER, "Make the pieces searchable",
     "write the text read from a page's image into its output as an invisible layer under the image",
     kOcrLayerDetails},
    {"CODES", KeyType::Text, &S::CODES, "Read codes (barcodes, QR codes):",
     "which pages codes are read from: \"Off\", \"Pages without text\" or \"All pages\"", kCodeDetails},
    {"CODEFORMATS", KeyType::Text, &S::CODEFORMATS, "Kinds of code:",
     "the kinds of code read, joined by +: QRCode+Code128; empty for every kind", kCodeDetails},
    {"CODERESOLUTION", KeyType::Integer, &S::CODERESOLUTION, "Code resolution (dpi):",
     "the dots per inch a page is rendered at to read its codes (36 to 1200)", kCodeDetails},
    {"SEPARATOR", KeyType::Text, &S::SEPARATOR, "Separator sheets:",
     "what makes a page a separator sheet that starts a new piece", kSeparatorDetails},
    {"SEPARATORTEXT", KeyType::Text, &S::SEPARATORTEXT, "Separator code:",
     "the code value, its beginning or its format that makes a page a separator sheet", kSeparatorDetails},
    {"KEEPSEPARATOR", KeyType::Flag, &S::KEEPSEPARATOR, "Keep the separator as the first page of the next piece",
     "a code separator sheet stays as the first page of the piece after it, instead of being left out",
     kSeparatorDetails},
    {"SEPARATORNAMES", KeyType::Flag, &S::SEPARATORNAMES, "The separator's code names the piece after it",
     "a separator sheet's code value names the piece after it where no match of the search text does",
     kSeparatorDetails},
    {"DROPBLANKPAGES", KeyType::Flag, &S::DROPBLANKPAGES, "Leave blank pages out of the pieces",
     "pages with no text, no code and almost no ink are left out of the pieces, without cutting at them",
     kBlankPagesDetails},
    {"PATTERNSEARCH", KeyType::Flag, &S::PATTERNSEARCH, "Search texts are patterns (regular expressions)",
     "FINDSTRING and EXTRACTUNTIL are regular expressions over each page's text; a group names the range",
     kPatternDetails},
    {"SPLITONCHANGE", KeyType::Flag, &S::SPLITONCHANGE, "Start a piece where the value changes",
     "a new piece starts on each page whose value differs from the page before; pages without one continue it",
     kValueChangeDetails},
    {"VALUEAREA", KeyType::Text, &S::VALUEAREA, "Value area (left,bottom,right,top):",
     "with SPLITONCHANGE, the value is the words inside this area of each page, in PDF points",
     kValueChangeDetails},
    {"GROUPBYVALUE", KeyType::Flag, &S::GROUPBYVALUE, "Gather the ranges of each name into one piece",
     "ranges named alike go into one piece in page order, across the documents of the run", kGroupDetails},
    {"LOOKUPFILE", KeyType::Text, &S::LOOKUPFILE, "List of values (CSV):",
     "a CSV list the naming value is looked up in; its columns become [COL:NAME] macros", kLookupDetails},
    {"LOOKUPKEYCOLUMN", KeyType::Text, &S::LOOKUPKEYCOLUMN, "Value column:",
     "the list's column (name or number) that holds the value; the first when empty", kLookupDetails},
    {"LOOKUPMISSING", KeyType::Text, &S::LOOKUPMISSING, "A value not in the list:",
     "\"Write under its value\" or \"Skip\" for a value the list lacks", kLookupDetails},
    {"LOOKUPEMAILCOLUMN", KeyType::Text, &S::LOOKUPEMAILCOLUMN, "Recipient column:",
     "the list's column that holds the piece's mail recipient; the address on the pages when empty",
     kLookupDetails},
    {"CHECKPAGEOF", KeyType::Text, &S::CHECKPAGEOF, "Page numbering (N of M):",
     "a pattern with two groups, page and count, that each piece's pages must run 1..M by", kCheckDetails},
    {"CHECKMINPAGES", KeyType::Integer, &S::CHECKMINPAGES, "Fewest pages:",
     "a piece with fewer pages is an exception; 0 for no check", kCheckDetails},
    {"CHECKMAXPAGES", KeyType::Integer, &S::CHECKMAXPAGES, "Most pages:",
     "a piece with more pages is an exception; 0 for no check", kCheckDetails},
    {"CHECKVALUE", KeyType::Text, &S::CHECKVALUE, "Value must match:",
     "a pattern the value naming each piece must match whole", kCheckDetails},
    {"EXCEPTIONSFOLDER", KeyType::Text, &S::EXCEPTIONSFOLDER, "Exceptions folder:",
     "where pieces that fail a check go, with exceptions.csv; relative to the piece's own folder", kCheckDetails},
    {"EXCEPTIONSLISTONLY", KeyType::Flag, &S::EXCEPTIONSLISTONLY, "Only list exceptions",
     "pieces that fail a check are written where they would go and only listed", kCheckDetails},
    {"LASTPATH", KeyType::Text, &S::LASTPATH, "",
     "the last folder used by the batch list window"},
    {"LASTPATHSUB", KeyType::Text, &S::LASTPATHSUB, "",
     "the last sub-folder used by the batch list window"},
};
// clang-format on

}  // namespace

std::optional<FilenameMode> filenameModeOf(std::string_view text) { return modeIn(kFilenameModes, text); }
std::optional<PageExtractMode> pageExtractModeOf(std::string_view text) { return modeIn(kExtractModes, text); }

bool startsWithBookmark(std::string_view extractMode) { return extractMode.starts_with("Bookmark"); }

std::string defaultOutputDir() {
#ifdef _WIN32
    return "c:\\splitoutput";
#else
    const char* home = std::getenv("HOME");
    return (home && *home ? std::string(home) + "/" : std::string()) + "splitoutput";
#endif
}

std::span<const SettingsKey> settingsKeys() { return kKeys; }

std::string_view keyTypeName(KeyType type) {
    switch (type) {
        case KeyType::Integer: return "integer";
        case KeyType::Flag: return "flag";
        case KeyType::Text: return "text";
    }
    return {};
}

const SettingsKey* findSettingsKey(std::string_view name) {
    for (const auto& key : kKeys)
        if (key.name == name) return &key;
    return nullptr;
}

int leadingInteger(std::string_view text) {
    std::size_t i = 0;
    while (i < text.size() && (text[i] == ' ' || text[i] == '\t')) ++i;
    bool negative = false;
    if (i < text.size() && (text[i] == '-' || text[i] == '+')) negative = text[i++] == '-';
    long long value = 0;
    for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
        value = value * 10 + (text[i] - '0');
        if (value > static_cast<long long>(INT_MAX) + 1) value = static_cast<long long>(INT_MAX) + 1;
    }
    if (negative) value = -value;
    return static_cast<int>(std::clamp<long long>(value, INT_MIN, INT_MAX));
}

void assignKey(SplitSettings& settings, const SettingsKey& key, std::string_view value) {
    std::visit(
        [&](auto member) {
            using Member = decltype(member);
            if constexpr (std::is_same_v<Member, int SplitSettings::*>)
                settings.*member = leadingInteger(value);
            else
                settings.*member = std::string(value);
        },
        key.field);
}

std::string keyValueText(const SettingsKey& key, const SplitSettings& settings) {
    return std::visit(
        [&](auto member) -> std::string {
            using Member = decltype(member);
            if constexpr (std::is_same_v<Member, int SplitSettings::*>)
                return std::to_string(settings.*member);
            else
                return settings.*member;
        },
        key.field);
}

FilenameControls normaliseFilenameMode(SplitSettings& s) {
    const auto mode = filenameModeOf(s.EXTRACT);
    FilenameControls controls;
    if (!mode || !namesAfterText(*mode)) {
        s.EXTRACTFILENAME.clear();
        s.FIRSTCHAROFWORD.clear();
        s.ADDBWORDS.clear();
        s.TAKENWORDSFORFILENAME = 0;
        s.TAKENCHARSFORFILENAME = 0;
        s.UNTILHHPOSLESSTHAN = 9999;
    } else if (takesRestOfLine(*mode)) {
        // The word and character limits keep whatever they held.
        s.FIRSTCHAROFWORD.clear();
        s.ADDBWORDS.clear();
        s.UNTILHHPOSLESSTHAN = 9999;
        controls.extractFilename = true;
    } else {
        if (s.TAKENWORDSFORFILENAME < 1) s.TAKENWORDSFORFILENAME = 999;
        if (s.TAKENCHARSFORFILENAME < 0) s.TAKENCHARSFORFILENAME = 999;
        controls = {true, true, true, true, true, true};
    }
    if (mode == FilenameMode::Bookmark && !startsWithBookmark(s.PAGEEXTRACT))
        s.PAGEEXTRACT = modeText(PageExtractMode::Bookmarks);
    return controls;
}

PositionControls normaliseExtractMode(SplitSettings& s) {
    const auto mode = pageExtractModeOf(s.PAGEEXTRACT);
    const PositionControls controls{mode && startsAtPosition(*mode), mode && endsAtUntilText(*mode)};
    const bool bookmarks = mode && isBookmarkMode(*mode);
    const std::string_view bookmarkName = modeText(FilenameMode::Bookmark);
    // Both tests look at the search text, not at the filename mode: with any
    // ordinary search text the second one never fires.
    if (bookmarks && !s.FINDSTRING.starts_with("Page start")) s.EXTRACT = bookmarkName;
    if (s.FINDSTRING == bookmarkName && !bookmarks) s.EXTRACT = modeText(FilenameMode::NextWord);
    return controls;
}

int countSearchWords(std::string_view text) {
    if (text.size() < 2) return 1;
    int words = 1;
    for (std::size_t i = 0; i + 1 < text.size(); ++i)
        if (text[i] == ' ' && text[i + 1] != ' ') ++words;
    return words;
}

std::string replaceDesktopToken(std::string_view outputDir, std::string_view desktopFolder) {
    constexpr std::string_view token = "[DESKTOP]";
    std::string result(outputDir);
    if (const auto at = result.find(token); at != std::string::npos) result.replace(at, token.size(), desktopFolder);
    return result;
}

}  // namespace vellira
