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

// Every key the parameters file can read, with the field it sets.
const SettingsKey kKeys[] = {
    {"AUTOMATION", KeyType::Flag, &S::AUTOMATION},
    {"USECURRENT", KeyType::Flag, &S::USECURRENT},
    {"SPLITTOSOURCE", KeyType::Flag, &S::SPLITTOSOURCE},
    {"ROTATED", KeyType::Flag, &S::ROTATED},
    {"CREATELIST", KeyType::Flag, &S::CREATELIST},
    {"KEEPBOOKMARKS", KeyType::Flag, &S::KEEPBOOKMARKS},
    {"FILENAME", KeyType::Text, &S::FILENAME},
    {"EXTRACT", KeyType::Text, &S::EXTRACT},
    {"TAKENWORDSFORFILENAME", KeyType::Integer, &S::TAKENWORDSFORFILENAME},
    {"UNTILHHPOSLESSTHAN", KeyType::Integer, &S::UNTILHHPOSLESSTHAN},
    {"UNTILCHARACTERFILENAME", KeyType::Text, &S::UNTILCHARACTERFILENAME},
    {"TAKENCHARSFORFILENAME", KeyType::Integer, &S::TAKENCHARSFORFILENAME},
    {"FIRSTCHAROFWORD", KeyType::Text, &S::FIRSTCHAROFWORD},
    {"STARTFROMPAGE", KeyType::Integer, &S::STARTFROMPAGE},
    {"TOPAGE", KeyType::Integer, &S::TOPAGE},
    {"USESOURCEFILENAME", KeyType::Flag, &S::USESOURCEFILENAME},
    {"USESOURCEFILENAMEPOST", KeyType::Flag, &S::USESOURCEFILENAMEPOST},
    {"ALWAYSOVERWRITE", KeyType::Flag, &S::ALWAYSOVERWRITE},
    {"ALWAYSAPPEND", KeyType::Flag, &S::ALWAYSAPPEND},
    {"IGNORECASE", KeyType::Flag, &S::IGNORECASE},
    {"ADDBWORDS", KeyType::Text, &S::ADDBWORDS},
    {"PAGEEXTRACT", KeyType::Text, &S::PAGEEXTRACT},
    {"FINDSTRING", KeyType::Text, &S::FINDSTRING},
    {"PREFIXFILENAME", KeyType::Text, &S::PREFIXFILENAME},
    {"POSTFIXFILENAME", KeyType::Text, &S::POSTFIXFILENAME},
    {"OUTPUTDIR", KeyType::Text, &S::OUTPUTDIR},
    {"EXTRACTUNTIL", KeyType::Text, &S::EXTRACTUNTIL},
    {"EXTRACTFILENAME", KeyType::Text, &S::EXTRACTFILENAME},
    {"MATCHPOSH", KeyType::Text, &S::MATCHPOSH},
    {"MATCHPOSV", KeyType::Text, &S::MATCHPOSV},
    {"UNTILMATCHPOSH", KeyType::Integer, &S::UNTILMATCHPOSH},
    {"UNTILMATCHPOSV", KeyType::Integer, &S::UNTILMATCHPOSV},
    {"REPORTOPTIONSTXT", KeyType::Flag, &S::REPORTOPTIONSTXT},
    {"REPORTOPTIONSCSV", KeyType::Flag, &S::REPORTOPTIONSCSV},
    {"REPORTOPTIONSCURRENT", KeyType::Flag, &S::REPORTOPTIONSCURRENT},
    {"REPORTOPTIONSOUTPUTFOLDER", KeyType::Text, &S::REPORTOPTIONSOUTPUTFOLDER},
    {"STRIPEND", KeyType::Integer, &S::STRIPEND},
    // The dialog's field; the parameters file reads this key into the
    // working copy instead (offsetFirstWorking).
    {"OFFSETFIRST", KeyType::Integer, &S::OFFSETFIRST},
    {"EMAILLOGIN", KeyType::Text, &S::EMAILLOGIN},
    {"EMAILPASSWORD", KeyType::Text, &S::EMAILPASSWORD},
    {"EMAILSMTP", KeyType::Text, &S::EMAILSMTP},
    {"EMAILFROM", KeyType::Text, &S::EMAILFROM},
    {"EMAILCC", KeyType::Text, &S::EMAILCC},
    {"EMAILFROMNAME", KeyType::Text, &S::EMAILFROMNAME},
    {"EMAILSUBJECT", KeyType::Text, &S::EMAILSUBJECT},
    {"EMAILLOGFILE", KeyType::Text, &S::EMAILLOGFILE},
    {"EMAILMSG", KeyType::Text, &S::EMAILMSG},
    {"EMAILHTML", KeyType::Flag, &S::EMAILHTML},
    {"USEOUTLOOK", KeyType::Flag, &S::USEOUTLOOK},
    {"EMAILENABLE", KeyType::Flag, &S::EMAILENABLE},
    {"EMAILCONFIRM", KeyType::Flag, &S::EMAILCONFIRM},
    {"EMAILTEST", KeyType::Flag, &S::EMAILTEST},
    {"EMAILMATCHVERT", KeyType::Integer, &S::EMAILMATCHVERT},
    {"EMAILMATCHVERTTO", KeyType::Integer, &S::EMAILMATCHVERTTO},
    {"EMAILMATCHHORIZ", KeyType::Integer, &S::EMAILMATCHHORIZ},
    {"EMAILMATCHHORIZTO", KeyType::Integer, &S::EMAILMATCHHORIZTO},
    {"EMAILHORIZAFTERTEXT", KeyType::Text, &S::EMAILHORIZAFTERTEXT},
    {"EMAILHORIZBEFORETEXT", KeyType::Text, &S::EMAILHORIZBEFORETEXT},
    {"LASTPATH", KeyType::Text, &S::LASTPATH},
    {"LASTPATHSUB", KeyType::Text, &S::LASTPATHSUB},
};

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
