// Search and until texts as patterns over a page's text: a group names the
// range, a pattern spans words and lines, case is ignored when asked, and a
// pattern that is not one is refused before the run.
#include "fixtures/PdfFixture.h"
#include "support/RunProgram.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace vellira {
namespace {

using testing::quoted;
using testing::runProgram;

TEST(Patterns, CutAndNameStatementsFromTheCommandLine) {
    testing::TempDir dir;
    const auto pdf = dir / "statements.pdf";
    fixtures::writePdf(fixtures::statements(15, 5), pdf);
    struct Case {
        const char* settings;
        const char* pieces;  // "FILE FIRST-LAST" each, FILE without folder and .pdf
    };
    const Case cases[] = {
        {"--set 'FINDSTRING=account: (\\d{6})'", "100000 1-5 100001 6-10 100002 11-15 "},
        // Each further group is a macro.
        {"--set 'FINDSTRING=account: (\\d{3})(\\d{3})' --set 'POSTFIXFILENAME=-[GROUP2]'",
         "100-000 1-5 100-001 6-10 100-002 11-15 "},
        // The group ends the match: the name is what it took, not the word after.
        {"--set 'FINDSTRING=(?P<name>\\d{6}) Vellira Savings'", "100000 1-5 100001 6-10 100002 11-15 "},
        // "Bank" ends the first line; the group takes the next line's first word.
        {"--set 'FINDSTRING=Bank (\\S+)'", "Statement 1-5 period 6-10 Opening 11-15 "},
        {"--set 'FINDSTRING=ACCOUNT: (\\d+)' --set IGNORECASE=1", "100000 1-5 100001 6-10 100002 11-15 "},
        {"--set 'FINDSTRING=ACCOUNT: (\\d+)'", ""},
        {"--set 'FINDSTRING=account: \\d+' --set 'PAGEEXTRACT=From match to until match' "
         "--set 'EXTRACTUNTIL=continued page [3]'",
         "100000 1-3 100001 6-8 100002 11-13 "},
    };
    int run = 0;
    for (const Case& each : cases) {
        const auto split =
            runProgram(dir, "split --json --set PATTERNSEARCH=1 --set PREFIXFILENAME= " + std::string(each.settings) +
                                " --set OUTPUTDIR=" + quoted(dir / std::to_string(++run)) + " " + quoted(pdf));
        std::string pieces;
        const auto json = nlohmann::json::parse(split.out);
        for (const auto& output : json["outputs"])
            pieces += std::filesystem::path(output["path"].get<std::string>()).stem().string() + " " +
                      std::to_string(output["first"].get<int>()) + "-" + std::to_string(output["last"].get<int>()) +
                      " ";
        EXPECT_EQ(pieces, each.pieces) << each.settings << "\n" << split.err;
    }

    const auto refused = runProgram(dir, "split --set PATTERNSEARCH=1 --set 'FINDSTRING=acc(ount' " + quoted(pdf));
    EXPECT_NE(refused.status, 0);
    EXPECT_NE(refused.err.find("The pattern \"acc(ount\" is not one"), std::string::npos) << refused.err;
    EXPECT_NE(refused.err.find("missing )"), std::string::npos) << refused.err;
}

}  // namespace
}  // namespace vellira
