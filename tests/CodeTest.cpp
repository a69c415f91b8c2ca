// Codes and separator sheets: codes read from a page's image are words the
// search, names and separator sheets use; sheets with a code, or blank ones,
// cut a scanned run into its documents.
#include "core/SplitSettings.h"
#include "fixtures/PdfFixture.h"
#include "host/MupdfHost.h"
#include "reading/Recognition.h"
#include "support/RunProgram.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace vellira {
namespace {

using fixtures::Sheet;
using testing::quoted;
using testing::runProgram;

// Each output as "NAME FIRST-LAST:PAGES", PAGES the pages its file holds.
std::string piecesOf(const testing::ProgramResult& split) {
    std::string listed;
    MupdfHost host;
    const auto json = nlohmann::json::parse(split.out);
    for (const auto& output : json["outputs"]) {
        const DocHandle piece = host.openDocumentUnseen(output["path"].get<std::string>());
        listed += output["name"].get<std::string>() + " " + std::to_string(output["first"].get<int>()) + "-" +
                  std::to_string(output["last"].get<int>()) + ":" + std::to_string(host.pageCount(piece)) + "\n";
        host.closeDocument(piece);
    }
    return listed;
}

Sheet lines(std::vector<std::string> text) { return {.lines = std::move(text)}; }
Sheet marked(Sheet::Marks marks) { return {.marks = marks}; }
Sheet invoice(const std::string& number) {
    return {.lines = {"Invoice", "Total 12.00"}, .codes = {{"Code128", number, 400, 40, 180}}};
}

// The Code 128 at the top right names each piece.
constexpr const char* kNamedByInvoice =
    "--set FINDSTRING= --set 'PAGEEXTRACT=From match to next match using position h,v' --set 'EXTRACT=h,v match as "
    "filename' --set MATCHPOSH=395-420 --set MATCHPOSV=690-760";

// Each separator setting on a scanned run, from the command line: the pieces
// (first-last of the run, and the pages their files hold) and their names.
TEST(Codes, SeparatorSheetsCutScannedRuns) {
    testing::TempDir dir;
    using Marks = Sheet::Marks;
    const auto separated = dir / "separated.pdf";
    fixtures::writeSheets(fixtures::separatedRun(12, 4), separated);
    const auto blanks = dir / "blanks.pdf";
    fixtures::writeSheets({lines({"Dear Ann,"}), marked(Marks::Specks), lines({"Dear Bob,"}), marked(Marks::PunchHoles),
                           lines({"Dear Cy,"}), marked(Marks::Signature), marked(Marks::NoteLine)},
                          blanks);
    const auto invoices = dir / "invoices.pdf";
    fixtures::writeSheets({invoice("INV-7"), marked(Marks::Specks), lines({"page 2"}), invoice("INV-8"),
                           marked(Marks::PunchHoles), marked(Marks::Signature)},
                          invoices);
    struct Case {
        const char* name;
        std::string settings;
        std::filesystem::path pdf;
        const char* pieces;
    };
    const Case cases[] = {
        {"QR sheets dropped, pieces named by their invoice code",
         "--set 'SEPARATOR=Any code of format' --set SEPARATORTEXT=QRCode " + std::string(kNamedByInvoice), separated,
         "INV-100001 1-4:4\nINV-100002 6-8:3\nINV-100003 10-12:3\n"},
        {"kept sheets lead the invoice after them",
         "--set 'SEPARATOR=Code value is' --set SEPARATORTEXT=NEXT --set KEEPSEPARATOR=1 " +
             std::string(kNamedByInvoice),
         separated, "INV-100001 1-4:4\nINV-100002 5-8:4\nINV-100003 9-12:4\n"},
        {"sheets alone cut, kept as first pages, named by their pages",
         "--set 'SEPARATOR=Code value is' --set SEPARATORTEXT=NEXT --set KEEPSEPARATOR=1 --set SEPARATORNAMES=0",
         separated, "1-4 1-4:4\n5-8 5-8:4\n9-12 9-12:4\n"},
        {"a sheet's value names the pages after it",
         "--set 'SEPARATOR=Code value begins with' --set SEPARATORTEXT=NE --set 'EXTRACT=Page start as filename'",
         separated, "1-4 1-4:4\nNEXT 6-8:3\nNEXT 10-12:3\n"},
        {"blank sheets, with specks or punched holes, cut; a signed or written one does not",
         "--set 'SEPARATOR=Blank page'", blanks, "1 1-1:1\n3 3-3:1\n5-7 5-7:3\n"},
        {"blank pages left out without cutting", "--set DROPBLANKPAGES=1 " + std::string(kNamedByInvoice), invoices,
         "INV-7 1-3:2\nINV-8 4-6:2\n"},
    };
    int run = 0;
    for (const Case& each : cases) {
        const auto split = runProgram(dir, "split --json --set OCR=Off " + each.settings + " --set OUTPUTDIR=" +
                                               quoted(dir / std::to_string(++run)) + " " + quoted(each.pdf));
        ASSERT_EQ(split.status, 0) << each.name << "\n" << split.err;
        EXPECT_EQ(piecesOf(split), each.pieces) << each.name << "\n" << split.err;
    }

    // Settings that name no mode or no kind are refused before the run.
    for (const auto& [setting, message] :
         {std::pair{"'SEPARATOR=Code is'", "Unknown separator mode: \"Code is\". The separator modes are:\n\"None\""},
          std::pair{"CODEFORMATS=QRCode+QR", "Unknown code format: \"QR\". The code formats are: QRCode DataMatrix"}}) {
        const auto refused = runProgram(dir, std::string("split --set ") + setting + " " + quoted(separated));
        EXPECT_NE(refused.status, 0) << setting;
        EXPECT_NE(refused.err.find(message), std::string::npos) << refused.err;
    }
}

// Codes are words after a page's text, at the bottom-left corner of their
// box in the page's own points, on a sheet fed sideways too; on pages with
// text they are read only when asked for every page.
TEST(Codes, CodesAreWordsWhereTheyStand) {
    testing::TempDir dir;
    const auto printed = dir / "printed.pdf";
    const Sheet sheet{.lines = {"Order 12"},
                      .codes = {{"QRCode", "K-42", 72, 200, 90}, {"DataMatrix", "LOT-2024-11", 300, 200, 90}}};
    fixtures::writeSheets({sheet}, printed, 200, true);
    const auto turned = dir / "turned.pdf";
    Sheet sideways = sheet;
    sideways.turned = 90;
    fixtures::writeSheets({sideways}, turned);

    const auto wordsOf = [](const std::filesystem::path& pdf, const char* codes) {
        SplitSettings settings;
        settings.OCR = "Off";
        settings.CODES = codes;
        settings.CODEFORMATS = "QRCode+DataMatrix";
        MupdfHost host;
        host.setTextRecognition(textRecognitionFor(settings));
        std::vector<Word> words;
        host.appendWords(host.openDocument(pdf), 0, words);
        std::string listed;
        for (const Word& word : words)
            listed +=
                word.text + (word.code == CodeFormat::None ? "" : "/" + std::string(codeFormatName(word.code))) + " ";
        return std::pair(listed, words);
    };
    EXPECT_EQ(wordsOf(printed, "Pages without text").first, "Order 12 ");
    const auto [listed, words] = wordsOf(printed, "All pages");
    EXPECT_EQ(listed, "Order 12 K-42/QRCode LOT-2024-11/DataMatrix ");
    // The QR code's box starts 72 points from the left, 290 from the top.
    ASSERT_EQ(words.size(), 4u);
    EXPECT_NEAR(words[2].h, 72, 6);
    EXPECT_NEAR(words[2].v, 792 - 290, 6);
    const auto [sidewaysListed, sidewaysWords] = wordsOf(turned, "Pages without text");
    EXPECT_EQ(sidewaysListed, "K-42/QRCode LOT-2024-11/DataMatrix ");

    // The positions file marks codes as such.
    const auto positions = runProgram(dir, "positions " + quoted(turned));
    ASSERT_EQ(positions.status, 0) << positions.err;
    EXPECT_NE(positions.out.find("\tcode QRCode\r\n"), std::string::npos) << positions.out;
}

}  // namespace
}  // namespace vellira
