// The keys command as a user reads it: every setting with its type, default
// and label, the exact mode texts and macros, and help for a mistyped name.
#include "core/SplitSettings.h"
#include "support/RunProgram.h"

#include <gtest/gtest.h>

#include <sstream>

namespace vellira {
namespace {

using testing::runProgram;

// The text with every run of blanks and line ends made one blank, so that
// wrapped prose compares with its one-line source.
std::string flat(std::string_view text) {
    std::istringstream words{std::string(text)};
    std::string result;
    for (std::string word; words >> word;) result += (result.empty() ? "" : " ") + word;
    return result;
}

// The line of `text` that begins with `start`, or empty.
std::string lineStarting(const std::string& text, const std::string& start) {
    const std::string all = "\n" + text;
    const auto at = all.find("\n" + start);
    return at == std::string::npos ? "" : all.substr(at + 1, all.find('\n', at + 1) - at - 1);
}

std::string inQuotes(std::string_view text) { return "\"" + std::string(text) + "\""; }

TEST(KeysCommand, ListsEveryKeyWithTypeDefaultLabelAndMeaningThenModesAndMacros) {
    testing::TempDir dir;
    const auto result = runProgram(dir, "keys");
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "");
    const SplitSettings defaults;
    for (const auto& key : settingsKeys()) {
        const std::string line = lineStarting(result.out, std::string(key.name) + " ");
        ASSERT_FALSE(line.empty()) << key.name;
        const std::string value = keyValueText(key, defaults);
        EXPECT_NE(line.find(" " + std::string(keyTypeName(key.type)) + " "), std::string::npos) << line;
        EXPECT_NE(line.find(" " + (key.type == KeyType::Text ? inQuotes(value) : value) + " "), std::string::npos)
            << line;
        EXPECT_TRUE(line.ends_with(key.label.empty() ? "(none)" : inQuotes(key.label))) << line;
        EXPECT_NE(flat(result.out).find(flat(key.meaning)), std::string::npos) << key.name;
        // Asked for alone, a key is told in full.
        const auto one = runProgram(dir, "keys " + std::string(key.name));
        ASSERT_EQ(one.status, 0) << key.name << one.err;
        EXPECT_TRUE(one.out.starts_with(std::string(key.name) + "\n")) << one.out;
        EXPECT_NE(flat(one.out).find(flat(std::string(key.meaning) + " " + std::string(key.details))),
                  std::string::npos)
            << key.name;
    }
    // Both mode lists, in the list and with their keys.
    const std::string split = runProgram(dir, "keys PAGEEXTRACT").out, naming = runProgram(dir, "keys EXTRACT").out;
    const auto lists = [](const std::string& text, std::string_view mode) {
        return text.find(inQuotes(mode)) != std::string::npos;
    };
    for (const auto& [mode, text] : kExtractModes) EXPECT_TRUE(lists(result.out, text) && lists(split, text)) << text;
    for (const auto& [mode, text] : kFilenameModes) EXPECT_TRUE(lists(result.out, text) && lists(naming, text)) << text;
    std::vector<std::string_view> macros(kFilenameMacros.begin(), kFilenameMacros.end());
    macros.insert(macros.end(), {"[EXTRACTTEXT]", "[EXTRACTTEXTDIR]", "[YY]", "[YYYY]", "[MM]", "[M]", "[DD]", "[D]",
                                 "[hh]", "[mm]", "[ss]"});
    for (const auto macro : macros)
        EXPECT_FALSE(lineStarting(result.out, "  " + std::string(macro) + " ").empty()) << macro;
    const std::string position = runProgram(dir, "keys MATCHPOSH").out;
    for (const auto* syntax : {"LO-HI ", "LO|ALT ", "MATCHPOSH -N ", "MATCHPOSV 0 ", "vellira-batch positions PDF"})
        EXPECT_NE(position.find(syntax), std::string::npos) << syntax;
}

TEST(KeysCommand, AnUnknownKeyIsAUsageErrorThatSuggestsTheNearest) {
    testing::TempDir dir;
    const std::pair<std::string, std::string> cases[] = {
        {"MATCHPOS", "did you mean MATCHPOSH, MATCHPOSV?"}, {"matchposh", "did you mean MATCHPOSH?"},
        {"FINDSTRNG", "did you mean FINDSTRING?"},          {"OUTDIR", "did you mean OUTPUTDIR?"},
        {"NOSUCH", "'vellira-batch keys' lists them all"},
    };
    for (const auto& [wanted, suggestion] : cases) {
        const auto result = runProgram(dir, "keys " + wanted);
        EXPECT_EQ(result.status, 2) << wanted;
        EXPECT_EQ(result.out, "") << wanted;
        EXPECT_EQ(result.err, "vellira-batch keys: unknown setting '" + wanted + "'; " + suggestion + "\n");
    }
}

}  // namespace
}  // namespace vellira
