// keys: what every setting is, from the key table.
#include "cli/Commands.h"

#include <algorithm>
#include <iostream>
#include <numeric>

namespace vellira::cli {

namespace {

// Prose is wrapped to this width.
constexpr std::size_t kWidth = 100;

std::string_view meaningOf(PageExtractMode mode) {
    switch (mode) {
        case PageExtractMode::NextMatch: return "a range from each match to the next";
        case PageExtractMode::NextUniqueMatch: return "as the first, merging consecutive ranges of one name";
        case PageExtractMode::NextMatchAtPosition: return "as the first, the match standing at MATCHPOSH,MATCHPOSV";
        case PageExtractMode::NextUniqueMatchAtPosition:
            return "as the second, the match standing at MATCHPOSH,MATCHPOSV";
        case PageExtractMode::UntilMatch: return "from a match to the page of EXTRACTUNTIL";
        case PageExtractMode::UntilMatchAtPosition: return "from a match to EXTRACTUNTIL, both at their positions";
        case PageExtractMode::MatchedPageOnly: return "each matching page alone";
        case PageExtractMode::Bookmarks: return "one file per bookmark";
        case PageExtractMode::BookmarksRootLevel: return "one file per top-level bookmark";
        case PageExtractMode::BookmarksLevel2: return "one file per second-level bookmark";
    }
    return {};
}

std::string_view meaningOf(FilenameMode mode) {
    switch (mode) {
        case FilenameMode::NextWord: return "the word(s) after the match";
        case FilenameMode::PageStart: return "the first page number of the range";
        case FilenameMode::PageStartEnd: return "the first and last page numbers, as 3-5";
        case FilenameMode::PositionMatch: return "the word found at MATCHPOSH,MATCHPOSV";
        case FilenameMode::SequentialNumber: return "a number running over the whole run: 000001, 000002, ...";
        case FilenameMode::NameAfterText: return "the words after EXTRACTFILENAME, within the word limits";
        case FilenameMode::NameAfterTextRestOfLine: return "the rest of the line after EXTRACTFILENAME";
        case FilenameMode::NameAfterTextRestOfLineAndNextPage:
            return "as above, then \"_\" and the first line of the next page";
        case FilenameMode::Bookmark: return "the bookmark's title (bookmark split modes)";
    }
    return {};
}

// Every macro the filename composer expands: the entries of the prefix and
// postfix lists, then the pieces they are made of and the two name macros.
struct MacroNote {
    std::string_view macro;
    std::string_view meaning;
};
constexpr MacroNote kMacroNotes[] = {
    {"[FILETITLE]", "the source file's name, without its folder and .pdf"},
    {"[PAGESTART]", "first page of the range, six digits: 000003"},
    {"[PAGEEND]", "last page of the range, six digits"},
    {"[PAGESTARTNOMASK]", "first page written (after OFFSETFIRST): 3"},
    {"[PAGEENDNOMASK]", "last page of the range: 5"},
    {"[PAGES]", "pages in the range, six digits"},
    {"[TOTALPAGES]", "pages in the source document, six digits"},
    {"[YYYY]-[MM]-[DD]", "the run's date: 2024-07-05"},
    {"[YYYY]-[M]-[D]", "the run's date: 2024-7-5"},
    {"[hh][mm][ss]", "the run's time: 093015"},
    {"[POSn,n]", "the words of the range within h,v; each a number or a-b, -1 for no bound: [POS100-300,700-720]"},
    {"[EXTRACTTEXT]", "the text taken for the name, before the STRIPEND and character cuts"},
    {"[EXTRACTTEXTDIR]", "the same, and the folder OUTPUTDIR/TEXT is made: [EXTRACTTEXTDIR]/ files each range in it"},
    {"[GROUP2]", "with PATTERNSEARCH, what the search pattern's second group took; [GROUP3] the third, and so on"},
    {"[COL:NAME]", "with LOOKUPFILE, the column NAME of the lookup list's row of the range's value: [COL:Name]"},
    {"[YYYY]", "year, four digits"},
    {"[YY]", "year, four digits too"},
    {"[MM]", "month, two digits"},
    {"[M]", "month"},
    {"[DD]", "day of the month, two digits"},
    {"[D]", "day of the month"},
    {"[hh]", "hour, 00-23"},
    {"[mm]", "minute, two digits"},
    {"[ss]", "second, two digits"},
};
constexpr std::string_view kMacroFootnote =
    "Dates and times are those of the run's start. They are filled in only when one of [YYYY] [MM] [DD] [M] [D] "
    "[hh] [mm] [ss] is present, so [YY] alone stays as typed.";

// Writes `text`, each line indented; prose lines are wrapped, lines that
// begin with a blank are tables and stand as written.
void printWrapped(std::ostream& out, std::string_view text, std::string_view indent) {
    while (!text.empty()) {
        const auto end = std::min(text.find('\n'), text.size());
        const std::string_view line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        if (line.empty() || line.front() == ' ') {
            out << (line.empty() ? "" : indent) << line << "\n";
            continue;
        }
        std::size_t used = 0;
        for (std::string_view rest = line; !rest.empty();) {
            const auto blank = std::min(rest.find(' '), rest.size());
            const std::string_view word = rest.substr(0, blank);
            rest.remove_prefix(std::min(blank + 1, rest.size()));
            if (used > 0 && indent.size() + used + 1 + word.size() > kWidth) {
                out << "\n";
                used = 0;
            }
            out << (used == 0 ? indent : " ") << word;
            used += (used == 0 ? 0 : 1) + word.size();
        }
        out << "\n";
    }
}

std::string padded(std::string_view text, std::size_t width) {
    std::string result(text);
    if (result.size() < width) result.append(width - result.size(), ' ');
    return result;
}

std::string quoted(std::string_view text) { return "\"" + std::string(text) + "\""; }

// Rows of two columns: the left one as wide as its widest entry up to
// `widest`; an entry wider than that puts its right side on the next line.
struct Row {
    std::string left;
    std::string_view right;
};
void printRows(std::ostream& out, const std::vector<Row>& rows, std::size_t widest) {
    std::size_t column = 0;
    for (const auto& row : rows)
        if (row.left.size() <= widest) column = std::max(column, row.left.size());
    for (const auto& row : rows) {
        const bool wide = row.left.size() > column;
        out << "  " << (wide ? row.left + "\n  " + std::string(column, ' ') : padded(row.left, column)) << "  "
            << row.right << "\n";
    }
}

template <typename Mode, std::size_t N>
void printModes(std::ostream& out, std::string_view heading,
                const std::array<std::pair<Mode, std::string_view>, N>& modes) {
    out << heading << "\n";
    std::vector<Row> rows;
    for (const auto& [mode, text] : modes) rows.push_back({quoted(text), meaningOf(mode)});
    printRows(out, rows, 56);
}
void printSplitModes(std::ostream& out) { printModes(out, "SPLIT MODES  (PAGEEXTRACT=TEXT)", kExtractModes); }
void printNamingModes(std::ostream& out) { printModes(out, "NAMING MODES  (EXTRACT=TEXT)", kFilenameModes); }

void printMacros(std::ostream& out) {
    out << "FILENAME MACROS  (in PREFIXFILENAME and POSTFIXFILENAME; pages count from 1)\n";
    std::vector<Row> rows;
    const auto noteOf = [](std::string_view macro) {
        const auto note = std::find_if(std::begin(kMacroNotes), std::end(kMacroNotes),
                                       [&](const MacroNote& each) { return each.macro == macro; });
        return note == std::end(kMacroNotes) ? std::string_view() : note->meaning;
    };
    for (const auto macro : kFilenameMacros) rows.push_back({std::string(macro), noteOf(macro)});
    for (const auto& note : kMacroNotes)
        if (std::find(kFilenameMacros.begin(), kFilenameMacros.end(), note.macro) == kFilenameMacros.end())
            rows.push_back({std::string(note.macro), note.meaning});
    printRows(out, rows, 24);
    printWrapped(out, kMacroFootnote, "  ");
}

std::string defaultText(const SettingsKey& key, const SplitSettings& defaults) {
    const std::string value = keyValueText(key, defaults);
    return key.type == KeyType::Text ? quoted(value) : value;
}

std::string labelText(const SettingsKey& key) { return key.label.empty() ? "(none)" : quoted(key.label); }

void printAll(std::ostream& out) {
    const SplitSettings defaults;
    std::size_t nameWidth = 0;
    std::size_t defaultWidth = 0;
    for (const auto& key : settingsKeys()) {
        nameWidth = std::max(nameWidth, key.name.size());
        defaultWidth = std::max(defaultWidth, std::min<std::size_t>(defaultText(key, defaults).size(), 30));
    }
    out << "SETTINGS  (--set KEY=VALUE, or a KEY;VALUE line of a .pcs file; 'vellira-batch keys KEY' for more)\n\n"
        << padded("KEY", nameWidth) << "  " << padded("TYPE", 7) << "  " << padded("DEFAULT", defaultWidth)
        << "  CONTROL\n";
    for (const auto& key : settingsKeys()) {
        out << padded(key.name, nameWidth) << "  " << padded(keyTypeName(key.type), 7) << "  "
            << padded(defaultText(key, defaults), defaultWidth) << "  " << labelText(key) << "\n";
        printWrapped(out, key.meaning, "      ");
    }
    out << "\n";
    printSplitModes(out);
    out << "\n";
    printNamingModes(out);
    out << "\n";
    printMacros(out);
}

void printKey(std::ostream& out, const SettingsKey& key) {
    out << key.name << "\n"
        << "  Type:     " << keyTypeName(key.type) << "\n"
        << "  Default:  " << defaultText(key, SplitSettings{}) << "\n"
        << "  Control:  " << labelText(key) << "\n"
        << "  Meaning:  " << key.meaning << "\n";
    if (!key.details.empty()) {
        out << "\n";
        printWrapped(out, key.details, "  ");
    }
    if (key.name == "PAGEEXTRACT") {
        out << "\n";
        printSplitModes(out);
    } else if (key.name == "EXTRACT") {
        out << "\n";
        printNamingModes(out);
    } else if (key.name == "PREFIXFILENAME" || key.name == "POSTFIXFILENAME") {
        out << "\n";
        printMacros(out);
    }
}

std::string upper(std::string_view text) {
    std::string result(text);
    for (char& c : result)
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    return result;
}

// Edits (insert, delete, replace, swap two neighbours) that turn `a` into `b`.
std::size_t editDistance(std::string_view a, std::string_view b) {
    std::vector<std::size_t> before(b.size() + 1), previous(b.size() + 1), current(b.size() + 1);
    std::iota(previous.begin(), previous.end(), std::size_t{0});
    for (std::size_t i = 1; i <= a.size(); ++i) {
        current[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t replace = previous[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
            current[j] = std::min({previous[j] + 1, current[j - 1] + 1, replace});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                current[j] = std::min(current[j], before[j - 2] + 1);
        }
        before.swap(previous);
        previous.swap(current);
    }
    return previous[b.size()];
}

}  // namespace

int runKeys(const KeysOptions& options) {
    if (options.key.empty()) {
        printAll(std::cout);
        return std::cout.flush() ? 0 : 1;
    }
    const SettingsKey* key = findSettingsKey(options.key);
    if (!key) {
        std::vector<std::string> names;
        for (const auto& each : settingsKeys()) names.emplace_back(each.name);
        const auto near = nearestNames(options.key, names);
        std::cerr << "vellira-batch keys: unknown setting '" << options.key << "'";
        if (near.empty()) {
            std::cerr << "; 'vellira-batch keys' lists them all\n";
        } else {
            std::cerr << "; did you mean ";
            for (std::size_t i = 0; i < near.size(); ++i) std::cerr << (i ? ", " : "") << near[i];
            std::cerr << "?\n";
        }
        return 2;
    }
    printKey(std::cout, *key);
    return std::cout.flush() ? 0 : 1;
}

// A name that differs only in case is the answer alone. Otherwise a name is
// near when a few edits make it (about one in three characters), or when it
// begins with the wanted text; a name that merely contains it, or is
// contained in it, is offered only when nothing nearer is.
std::vector<std::string> nearestNames(std::string_view wanted, const std::vector<std::string>& names) {
    const std::string want = upper(wanted);
    if (want.empty()) return {};
    struct Candidate {
        std::size_t distance;
        std::size_t index;
        bool close;
    };
    std::vector<Candidate> candidates;
    for (std::size_t i = 0; i < names.size(); ++i) {
        const std::string name = upper(names[i]);
        if (name == want) return {names[i]};
        const std::size_t distance = editDistance(want, name);
        const bool prefix = want.size() >= 3 && name.starts_with(want);
        const bool inside = want.size() >= 3 && name.size() >= 3 &&
                            (name.find(want) != std::string::npos || want.find(name) != std::string::npos);
        const bool close = prefix || distance <= std::max<std::size_t>(2, std::max(want.size(), name.size()) / 3);
        if (close || inside) candidates.push_back({distance, i, close});
    }
    const bool anyClose = std::any_of(candidates.begin(), candidates.end(), [](const auto& c) { return c.close; });
    std::erase_if(candidates, [&](const auto& c) { return anyClose && !c.close; });
    std::stable_sort(candidates.begin(), candidates.end(),
                     [](const auto& a, const auto& b) { return a.distance < b.distance; });
    std::vector<std::string> result;
    for (const auto& candidate : candidates) {
        if (result.size() == 3) break;
        result.push_back(names[candidate.index]);
    }
    return result;
}

}  // namespace vellira::cli
