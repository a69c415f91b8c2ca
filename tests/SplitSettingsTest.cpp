#include "core/SplitSettings.h"

#include <gtest/gtest.h>

#include <set>

namespace vellira {
namespace {

TEST(SplitSettings, FreshSetupHasTheDocumentedDefaults) {
    const SplitSettings settings;
    const std::map<std::string_view, std::string> nonEmpty = {
        {"FINDSTRING", "account:"},
        {"PREFIXFILENAME", "extract_"},
        {"OUTPUTDIR", defaultOutputDir()},
        {"EXTRACT", "Next word as filename"},
        {"PAGEEXTRACT", "From match to next match"},
        {"TAKENWORDSFORFILENAME", "999"},
        {"TAKENCHARSFORFILENAME", "999"},
        {"UNTILHHPOSLESSTHAN", "9999"},
        {"STARTFROMPAGE", "1"},
    };
    for (const auto& key : settingsKeys()) {
        const auto expected = nonEmpty.find(key.name);
        const std::string fallback = key.type == KeyType::Text ? "" : "0";
        EXPECT_EQ(keyValueText(key, settings), expected != nonEmpty.end() ? expected->second : fallback) << key.name;
    }
    EXPECT_TRUE(defaultOutputDir().ends_with("splitoutput"));
}

TEST(SplitSettings, KeyTableReachesEveryFieldByItsExactName) {
    std::set<std::string_view> names;
    for (const auto& key : settingsKeys()) {
        EXPECT_TRUE(names.insert(key.name).second) << "duplicate key " << key.name;
        SplitSettings settings;
        assignKey(settings, key, "42 rest");
        EXPECT_EQ(keyValueText(key, settings), key.type == KeyType::Text ? "42 rest" : "42") << key.name;
        // Only the named field moved.
        assignKey(settings, key, keyValueText(key, SplitSettings{}));
        EXPECT_EQ(settings, SplitSettings{}) << key.name;
    }
    EXPECT_EQ(names.size(), 60u);
    EXPECT_EQ(findSettingsKey("USESOURCEFILENAME"), findSettingsKey("USESOURCEFILENAME"));
    EXPECT_NE(findSettingsKey("USESOURCEFILENAME"), findSettingsKey("USESOURCEFILENAMEPOST"));
    EXPECT_EQ(findSettingsKey("findstring"), nullptr);
    EXPECT_EQ(findSettingsKey("UNTILWORDISFILENAME"), nullptr);
}

TEST(SplitSettings, LeadingIntegerReadsOnlyTheLeadingDigits) {
    const std::pair<std::string_view, int> cases[] = {
        {"12", 12},
        {"12 ", 12},
        {"-7x", -7},
        {"+5", 5},
        {"abc", 0},
        {"", 0},
        {" 3", 3},
        {"1.9", 1},
        {"99999999999", 2147483647},
        {"-99999999999", -2147483647 - 1},
    };
    for (const auto& [text, value] : cases) EXPECT_EQ(leadingInteger(text), value) << text;
}

struct FilenameCase {
    const char* name;
    std::string extract;
    std::string pageExtract;
    int takenWords, takenChars;
    // Expected afterwards.
    std::string expectPageExtract;
    int expectWords, expectChars;
    bool expectCleared;  // text limits emptied and h limit back to 9999
    FilenameControls controls;
};

TEST(SplitSettings, FilenameModeNormalisation) {
    const std::string matchedPage{kExtractModes[6]};
    const std::string level2{kExtractModes[9]};
    const FilenameCase cases[] = {
        {"plain mode clears the name-after-text fields",
         std::string(kFilenameModes[0]),
         matchedPage,
         5,
         7,
         matchedPage,
         0,
         0,
         true,
         {}},
        {"rest of line keeps the word and character limits",
         std::string(kFilenameModes[6]),
         matchedPage,
         5,
         -2,
         matchedPage,
         5,
         -2,
         true,
         {true, false, false, false, false, false}},
        {"rest of line + next page behaves the same",
         std::string(kFilenameModes[7]),
         matchedPage,
         0,
         3,
         matchedPage,
         0,
         3,
         true,
         {true, false, false, false, false, false}},
        {"name after text repairs the limits",
         std::string(kFilenameModes[5]),
         matchedPage,
         0,
         -1,
         matchedPage,
         999,
         999,
         false,
         {true, true, true, true, true, true}},
        {"name after text keeps sound limits",
         std::string(kFilenameModes[5]),
         matchedPage,
         1,
         0,
         matchedPage,
         1,
         0,
         false,
         {true, true, true, true, true, true}},
        {"bookmark name forces a bookmark split",
         std::string(kFilenameModes[8]),
         matchedPage,
         3,
         3,
         std::string(kExtractModes[7]),
         0,
         0,
         true,
         {}},
        {"bookmark name keeps a bookmark split", std::string(kFilenameModes[8]), level2, 3, 3, level2, 0, 0, true, {}},
    };
    for (const auto& c : cases) {
        SplitSettings s;
        s.EXTRACT = c.extract;
        s.PAGEEXTRACT = c.pageExtract;
        s.TAKENWORDSFORFILENAME = c.takenWords;
        s.TAKENCHARSFORFILENAME = c.takenChars;
        s.EXTRACTFILENAME = "Customer:";
        s.FIRSTCHAROFWORD = "#";
        s.ADDBWORDS = "_";
        s.UNTILHHPOSLESSTHAN = 300;
        const auto controls = normaliseFilenameMode(s);
        EXPECT_EQ(controls, c.controls) << c.name;
        EXPECT_EQ(s.PAGEEXTRACT, c.expectPageExtract) << c.name;
        EXPECT_EQ(s.TAKENWORDSFORFILENAME, c.expectWords) << c.name;
        EXPECT_EQ(s.TAKENCHARSFORFILENAME, c.expectChars) << c.name;
        EXPECT_EQ(s.FIRSTCHAROFWORD.empty(), c.expectCleared) << c.name;
        EXPECT_EQ(s.ADDBWORDS.empty(), c.expectCleared) << c.name;
        EXPECT_EQ(s.UNTILHHPOSLESSTHAN, c.expectCleared ? 9999 : 300) << c.name;
        const bool keepsAfterText = c.controls.extractFilename;
        EXPECT_EQ(s.EXTRACTFILENAME, keepsAfterText ? "Customer:" : "") << c.name;
    }
}

TEST(SplitSettings, ExtractModeNormalisation) {
    const std::string bookmarkName{kFilenameModes[8]};
    const std::string nextWord{kFilenameModes[0]};
    const std::string pageStart{kFilenameModes[1]};
    struct Case {
        int mode;
        std::string findString, extract, expectExtract;
        PositionControls controls;
    } const cases[] = {
        {0, "account:", pageStart, pageStart, {false, false}},
        {2, "account:", pageStart, pageStart, {true, false}},
        {3, "account:", pageStart, pageStart, {true, false}},
        {4, "account:", pageStart, pageStart, {false, true}},
        {5, "account:", pageStart, pageStart, {true, true}},
        {9, "account:", pageStart, bookmarkName, {false, false}},
        {7, "Page start here", pageStart, pageStart, {false, false}},
        {8, "Page star", pageStart, bookmarkName, {false, false}},
        // Only the search text is compared, never the filename mode.
        {6, "account:", bookmarkName, bookmarkName, {false, false}},
        {6, bookmarkName, bookmarkName, nextWord, {false, false}},
        {1, bookmarkName, pageStart, nextWord, {false, false}},
        {8, bookmarkName, pageStart, bookmarkName, {false, false}},
    };
    for (const auto& c : cases) {
        SplitSettings s;
        s.PAGEEXTRACT = kExtractModes[c.mode];
        s.FINDSTRING = c.findString;
        s.EXTRACT = c.extract;
        EXPECT_EQ(normaliseExtractMode(s), c.controls) << c.mode << " " << c.findString;
        EXPECT_EQ(s.EXTRACT, c.expectExtract) << c.mode << " " << c.findString;
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
    EXPECT_EQ(replaceDesktopToken("/srv/out", "/home/ann/Desktop"), "/srv/out");
    EXPECT_EQ(replaceDesktopToken("/srv/[desktop]", "/d"), "/srv/[desktop]");
}

}  // namespace
}  // namespace vellira
