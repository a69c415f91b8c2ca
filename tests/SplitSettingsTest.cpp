#include "core/SplitSettings.h"

#include <gtest/gtest.h>

namespace vellira {
namespace {

TEST(SplitSettings, FilenameModeNormalisation) {
    using N = FilenameMode;
    const auto matchedPage = PageExtractMode::MatchedPageOnly, level2 = PageExtractMode::BookmarksLevel2;
    const FilenameControls none{}, lineOnly{true, false, false, false, false, false},
        all{true, true, true, true, true, true};
    // Name mode, split mode, word and character limits; then the split mode, the fields as "WORDS CHARS
    // FIRSTCHAR+BLANKS+HLIMIT LABEL" and the controls shown.
    const std::tuple<N, PageExtractMode, int, int, PageExtractMode, std::string, FilenameControls> cases[] = {
        {N::NextWord, matchedPage, 5, 7, matchedPage, "0 0 9999 ", none},
        {N::NameAfterTextRestOfLine, matchedPage, 5, -2, matchedPage, "5 -2 9999 Customer:", lineOnly},
        {N::NameAfterTextRestOfLineAndNextPage, matchedPage, 0, 3, matchedPage, "0 3 9999 Customer:", lineOnly},
        {N::NameAfterText, matchedPage, 0, -1, matchedPage, "999 999 #_300 Customer:", all},  // unsound limits repaired
        {N::NameAfterText, matchedPage, 1, 0, matchedPage, "1 0 #_300 Customer:", all},
        {N::Bookmark, matchedPage, 3, 3, PageExtractMode::Bookmarks, "0 0 9999 ", none},  // forces a bookmark split
        {N::Bookmark, level2, 3, 3, level2, "0 0 9999 ", none},
    };
    for (const auto& [mode, split, words, chars, expectSplit, expected, controls] : cases) {
        SplitSettings s;
        s.EXTRACT = modeText(mode), s.PAGEEXTRACT = modeText(split);
        s.TAKENWORDSFORFILENAME = words, s.TAKENCHARSFORFILENAME = chars;
        s.EXTRACTFILENAME = "Customer:", s.FIRSTCHAROFWORD = "#", s.ADDBWORDS = "_", s.UNTILHHPOSLESSTHAN = 300;
        EXPECT_EQ(normaliseFilenameMode(s), controls) << modeText(mode);
        EXPECT_EQ(s.PAGEEXTRACT, modeText(expectSplit)) << modeText(mode);
        EXPECT_EQ(std::to_string(s.TAKENWORDSFORFILENAME) + " " + std::to_string(s.TAKENCHARSFORFILENAME) + " " +
                      s.FIRSTCHAROFWORD + s.ADDBWORDS + std::to_string(s.UNTILHHPOSLESSTHAN) + " " + s.EXTRACTFILENAME,
                  expected)
            << modeText(mode);
    }
}

TEST(SplitSettings, ExtractModeNormalisation) {
    using M = PageExtractMode;
    const std::string bookmarkName{modeText(FilenameMode::Bookmark)};
    const std::string nextWord{modeText(FilenameMode::NextWord)};
    const std::string pageStart{modeText(FilenameMode::PageStart)};
    // Split mode, search text, filename mode before and after, which position fields show.
    const std::tuple<M, std::string, std::string, std::string, PositionControls> cases[] = {
        {M::NextMatch, "account:", pageStart, pageStart, {false, false}},
        {M::NextMatchAtPosition, "account:", pageStart, pageStart, {true, false}},
        {M::NextUniqueMatchAtPosition, "account:", pageStart, pageStart, {true, false}},
        {M::UntilMatch, "account:", pageStart, pageStart, {false, true}},
        {M::UntilMatchAtPosition, "account:", pageStart, pageStart, {true, true}},
        {M::BookmarksLevel2, "account:", pageStart, bookmarkName, {false, false}},
        {M::Bookmarks, "Page start here", pageStart, pageStart, {false, false}},
        {M::BookmarksRootLevel, "Page star", pageStart, bookmarkName, {false, false}},
        // Only the search text is compared, never the filename mode.
        {M::MatchedPageOnly, "account:", bookmarkName, bookmarkName, {false, false}},
        {M::MatchedPageOnly, bookmarkName, bookmarkName, nextWord, {false, false}},
        {M::NextUniqueMatch, bookmarkName, pageStart, nextWord, {false, false}},
        {M::BookmarksRootLevel, bookmarkName, pageStart, bookmarkName, {false, false}},
    };
    for (const auto& [mode, findString, extract, expected, controls] : cases) {
        SplitSettings s;
        s.PAGEEXTRACT = modeText(mode), s.FINDSTRING = findString, s.EXTRACT = extract;
        EXPECT_EQ(normaliseExtractMode(s), controls) << modeText(mode) << " " << findString;
        EXPECT_EQ(s.EXTRACT, expected) << modeText(mode) << " " << findString;
    }
}

TEST(SplitSettings, SearchWordCount) {
    const std::pair<std::string_view, int> cases[] = {
        {"", 1},   {"a", 1},    {" ", 1},     {"ab", 1},          {"a b", 2}, {"a  b", 2},
        {" a", 2}, {"a b ", 2}, {"a b c", 3}, {"account: 12", 2}, {"  ", 1},  {"x  y  z ", 3},
    };
    for (const auto& [text, words] : cases) EXPECT_EQ(countSearchWords(text), words) << '"' << text << '"';
}

TEST(SplitSettings, DesktopTokenBecomesTheDesktopFolder) {
    EXPECT_EQ(replaceDesktopToken("[DESKTOP]\\statements", "/home/ann/Desktop"), "/home/ann/Desktop\\statements");
    EXPECT_EQ(replaceDesktopToken("[DESKTOP]/out", "/home/ann/Desktop"), "/home/ann/Desktop/out");
    EXPECT_EQ(replaceDesktopToken("/srv/[desktop]", "/d"), "/srv/[desktop]");
}

TEST(SplitSettings, EveryKeyHoldsItsOwnValue) {
    // Two keys naming one field would read back each other's values from a parameters file, and both would still
    // round-trip alone.
    const auto keys = settingsKeys();
    SplitSettings settings;
    for (std::size_t i = 0; i < keys.size(); ++i) assignKey(settings, keys[i], std::to_string(1000 + i));
    for (std::size_t i = 0; i < keys.size(); ++i)
        EXPECT_EQ(keyValueText(keys[i], settings), std::to_string(1000 + i)) << keys[i].name;
}

}  // namespace
}  // namespace vellira
