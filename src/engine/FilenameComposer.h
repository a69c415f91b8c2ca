// FilenameComposer: the full path of the PDF a page range is written to.
//
// The path is the output folder, a prefix, a body chosen by the filename mode
// and a postfix; prefix and postfix may hold macros ("[FILETITLE]",
// "[PAGESTART]", "[YYYY]", "[POSh,v]", ...) that are expanded for each range.
// The composer only builds names; whether the file exists is the extraction's
// business.
#pragma once

#include "core/DocumentHost.h"
#include "core/RunInterface.h"
#include "core/SplitSettings.h"
#include "core/Trace.h"
#include "engine/PageReader.h"
#include "engine/PageWords.h"
#include "files/LookupList.h"

#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vellira {

// The range being named: 0-based inclusive pages and the document's page count.
struct NameRange {
    int start = 0;
    int end = 0;
    int totalPages = 0;
};

class FilenameComposer {
public:
    FilenameComposer(const SplitSettings& settings, DocumentHost& host, RunInterface& ui, Trace& trace)
        : settings_(settings), host_(host), ui_(ui), trace_(trace) {}

    // Run-wide: the time stamp every date macro of the run shows, and the
    // counter of "Sequential Number", which runs on across the run's files.
    std::tm runTime{};
    long sequence = 0;
    // Set once a name-after-text mode has composed a name: from then on the
    // match engine looks for the "use as filename" text.
    bool nameTextUsed = false;
    // Off for a dry run: "[EXTRACTTEXTDIR]" then makes no folder.
    bool makeFolders = true;
    // The pages the scan read last, whose words "[POSh,v]" takes rather than
    // reading the pages again.
    const RecentPages* recentPages = nullptr;
    // The filename mode names are composed by; none for a text that names no
    // mode, which answers the previous path again.
    std::optional<FilenameMode> mode = FilenameMode::NextWord;
    // For the range being named: what the search pattern's groups took
    // ("[GROUP2]"...), and its row of the lookup list ("[COL:NAME]").
    std::vector<std::string> groups;
    const LookupList* lookup = nullptr;
    const std::vector<std::string>* lookupRow = nullptr;

    // Takes the filename mode from its text, once per run and after a batch
    // row loaded its own settings. An empty text names by the captured text,
    // as "Next word as filename" does.
    void takeMode(std::string_view extract) { mode = namingMode(extract); }
    // The filename mode a text names; an empty text is "Next word as
    // filename".
    static std::optional<FilenameMode> namingMode(std::string_view extract);

    // The output path for a range named by `capture`. `szOutFilenameLine` is
    // cleaned and cut in place; the "take rest of line" modes use it as the
    // body.
    const std::string& AquireFilename(std::string_view capture, std::string& szOutFilenameLine, const NameRange& range);

    // The name text a capture gives: characters that cannot be in a file name
    // (controls and < > : ? * " / \ |) dropped, at most 255 characters.
    static std::string cleanName(std::string_view text);

    // The words of the range inside the rectangle of the first "[POSh,v]" token
    // of `text`: pages `firstPage`..`lastPage`, 1-based.
    std::string GetPos(std::string_view text, int firstPage, int lastPage);
    // `text` with each "[COL:NAME]" the lookup list's column NAME of the
    // range being named: cleaned for a file name, or as it stands.
    std::string expandColumns(std::string text, bool clean) const;
    // The words of pages pageStart..pageEnd (1-based) of the current document
    // whose position lies within the bounds (-1: no bound), joined without
    // separator.
    std::string GetDataFromPDF2(int horizStart, int horizEnd, int vertStart, int vertEnd, int pageStart, int pageEnd);

private:
    void expandMacros(std::string& text, std::string_view cleaned, const NameRange& range);
    // Replaces each "[HEAD...]" token of `text` by what `value` answers for
    // the text between the head and the bracket, cleaned for a file name
    // when `clean` is set.
    template <typename Value>
    static void expandTokens(std::string& text, std::string_view head, bool clean, Value&& value);
    std::string cutBody(std::string text, bool stripEnd) const;

    const SplitSettings& settings_;
    DocumentHost& host_;
    RunInterface& ui_;
    Trace& trace_;
    PageWordStore store_;  // the words of the pages a "[POS" token reads
    std::string result_;
};

// The folder a source's outputs go to (the names may add a folder of their
// own under it): OUTPUTDIR, or the source's own folder with SPLITTOSOURCE.
std::string outputFolder(const SplitSettings& settings);

// The title of a source file: its name without folder and without a final
// ".pdf" (any case).
std::string sourceTitle(std::string_view filename, bool* hadFolder = nullptr);

}  // namespace vellira
