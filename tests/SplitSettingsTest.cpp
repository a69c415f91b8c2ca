#include "core/SplitSettings.h"

#include <gtest/gtest.h>

namespace vellira {
namespace {

TEST(SplitSettings, FilenameModeNormalisation) {
    using N = FilenameMode;
    const auto matchedPage = PageExtractMode::MatchedPageOnly, level2 = PageExtractMode::BookmarksLevel2;
    const FilenameControls none{}, lineOnly{true, false, false, false, false, false},
        all{true, true, true, true, true, true};
    struct Case {
        const char* name;
        N mode;
        PageExtractMode split;
        int words, chars;
        // Expected afterwards.
        PageExtractMode expectSplit;
        int expectWords, expectChars;
        bool expectCleared;  // text limits emptied and h limit back to 9999
        FilenameControls controls;
    } const cases[] = {
        {"plain mode clears the name-after-text fields", N::NextWord, matchedPage, 5, 7, matchedPage, 0, 0, true, none},
        {"rest of line keeps the word and character limits", N::NameAfterTextRestOfLine, matchedPage, 5, -2,
         matchedPage, 5, -2, true, lineOnly},
        {"rest of line + next page behaves the same", N::NameAfterTextRestOfLineAndNextPage, matchedPage, 0, 3,
         matchedPage, 0, 3, true, lineOnly},
        {"name after text repairs the limits", N::NameAfterText, matchedPage, 0, -1, matchedPage, 999, 999, false, all},
        {"name after text keeps sound limits", N::NameAfterText, matchedPage, 1, 0, matchedPage, 1, 0, false, all},
        {"bookmark name forces a bookmark split", N::Bookmark, matchedPage, 3, 3, PageExtractMode::Bookmarks, 0, 0,
         true, none},
        {"bookmark name keeps a bookmark split", N::Bookmark, level2, 3, 3, level2, 0, 0, true, none},
    };
    for (const auto& c : cases) {
        SplitSettings s;
        s.EXTRACT = modeText(c.mode);
        s.PAGEEXTRACT = modeText(c.split);
        s.TAKENWORDSFORFILENAME = c.words;
        s.TAKENCHARSFORFILENAME = c.chars;
        s.EXTRACTFILENAME = "Customer:";
        s.FIRSTCHAROFWORD = "#";
        s.ADDBWORDS = "_";
        s.UNTILHHPOSLESSTHAN = 300;
        EXPECT_EQ(normaliseFilenameMode(s), c.controls) << c.name;
        EXPECT_EQ(s.PAGEEXTRACT, modeText(c.expectSplit)) << c.name;
        EXPECT_EQ(s.TAKENWORDSFORFILENAME, c.expectWords) << c.name;
        EXPECT_EQ(s.TAKENCHARSFORFILENAME, c.expectChars) << c.name;
        EXPECT_EQ(s.FIRSTCHAROFWORD.empty(), c.expectCleared) << c.name;
        EXPECT_EQ(s.ADDBWORDS.empty(), c.expectCleared) << c.name;
        EXPECT_EQ(s.UNTILHHPOSLESSTHAN, c.expectCleared ? 9999 : 300) << c.name;
        EXPECT_EQ(s.EXTRACTFILENAME, c.controls.extractFilename ? "Customer:" : "") << c.name;
    }
}

TEST(SplitSettings, ExtractModeNormalisation) {
    using M = PageExtractMode;
    const std::string bookmarkName{modeText(FilenameMode::Bookmark)};
    const std::string nextWord{modeText(FilenameMode::NextWord)};
    const std::string pageStart{modeText(FilenameMode::PageStart)};
    struct Case {
        M mode;
        std::string findString, extract, expectExtract;
        PositionControls controls;
    } const cases[] = {
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
    for (const auto& c : cases) {
        SplitSettings s;
        s.PAGEEXTRACT = modeText(c.mode);
        s.FINDSTRING = c.findString;
        s.EXTRACT = c.extract;
        EXPECT_EQ(normaliseExtractMode(s), c.controls) << modeText(c.mode) << " " << c.findString;
        EXPECT_EQ(s.EXTRACT, c.expectExtract) << modeText(c.mode) << " " << c.findString;
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
    // Two keys naming one field would read back each other's values from a
    // parameters file, and both would still round-trip alone.
    const auto keys = settingsKeys();
    SplitSettings settings;
    for (std::size_t i = 0; i < keys.size(); ++i) assignKey(settings, keys[i], std::to_string(1000 + i));
    for (std::size_t i = 0; i < keys.size(); ++i)
        EXPECT_EQ(keyValueText(keys[i], settings), std::to_string(1000 + i)) << keys[i].name;
}

}  // namespace
}  // namespace vellira
