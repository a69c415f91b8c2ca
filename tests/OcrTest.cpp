// Scanned runs: pages without text are read from their image and split as
// the born-digital run they came from.
#include "core/SplitSettings.h"
#include "fixtures/PdfFixture.h"
#include "host/MupdfHost.h"
#include "reading/Recognition.h"
#include "support/RunProgram.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdlib>

namespace vellira {
namespace {

using testing::quoted;
using testing::runProgram;

// Each output as "NAME FIRST-LAST", in the order written.
std::string outputsOf(const testing::ProgramResult& split) {
    std::string listed;
    const auto json = nlohmann::json::parse(split.out);
    for (const auto& output : json["outputs"])
        listed += output["name"].get<std::string>() + " " + std::to_string(output["first"].get<int>()) + "-" +
                  std::to_string(output["last"].get<int>()) + "\n";
    return listed;
}

// With no setting given, a scanned run (one sheet fed sideways, one upside
// down) gives the pieces and names of the run it was printed from; a
// language that is not installed is named with its package.
TEST(Ocr, AScannedRunSplitsAsTheRunItCameFrom) {
    testing::TempDir dir;
    const auto digital = dir / "digital.pdf";
    const auto scanned = dir / "scanned.pdf";
    fixtures::writePdf(fixtures::statements(9, 3), digital);
    fixtures::writeScanned(digital, scanned, {.turned = {{3, 90}, {6, 180}}, .skewDegrees = 2});

    const auto printed = runProgram(dir, "split --json --set OUTPUTDIR=" + quoted(dir / "a") + " " + quoted(digital));
    const auto read = runProgram(
        dir, "split --json --set OCRTEXTLAYER=1 --set OUTPUTDIR=" + quoted(dir / "b") + " " + quoted(scanned));
    ASSERT_EQ(printed.status, 0) << printed.err;
    ASSERT_EQ(read.status, 0) << read.err;
    EXPECT_EQ(outputsOf(printed), "100000 1-3\n100001 4-6\n100002 7-9\n");
    EXPECT_EQ(outputsOf(read), outputsOf(printed));
    // The run says how many pages it read from their image, each output how
    // many of its own and how sure the reading was.
    EXPECT_NE(read.err.find("3 file(s) written to " + (dir / "b").string() + "; 9 page(s) read by OCR"),
              std::string::npos)
        << read.err;
    const auto json = nlohmann::json::parse(read.out);
    ASSERT_EQ(json["outputs"].size(), 3u);
    for (const auto& output : json["outputs"]) {
        EXPECT_EQ(output["ocrPages"], 3);
        EXPECT_GE(output["ocrConfidence"].get<int>(), 80);
    }
    EXPECT_EQ(printed.out.find("ocr"), std::string::npos);
    // Asked to, the pieces carry the text read, searchable where it was
    // printed, also on the page scanned sideways.
    MupdfHost host;
    for (const auto& [piece, page, expected] : {std::tuple{"b/extract_100000.pdf", 0, "account: 100000 Vellira"},
                                                std::tuple{"b/extract_100001.pdf", 0, "account: 100001 Vellira"}}) {
        std::vector<Word> words;
        host.appendWords(host.openDocument(dir / piece), page, words);
        std::string text;
        for (std::size_t i = 0; i < words.size() && i < 3; ++i) text += (i ? " " : "") + words[i].text;
        EXPECT_EQ(text, expected) << piece;
    }

    // Bounds on where the search text stands: only there is read, and the
    // pieces are the same (of sheets fed upright: positions are the page's).
    const auto upright = dir / "upright.pdf";
    fixtures::writeScanned(digital, upright);
    const auto bounded = runProgram(dir,
                                    "split --json --set FINDSTRING= --set 'PAGEEXTRACT=From match to next match "
                                    "using position h,v' --set 'EXTRACT=h,v match as filename' --set "
                                    "MATCHPOSH=140-150 --set MATCHPOSV=715-725 --set OUTPUTDIR=" +
                                        quoted(dir / "d") + " " + quoted(upright));
    EXPECT_EQ(outputsOf(bounded), "100000 1-3\n100001 4-6\n100002 7-9\n") << bounded.err;

    const auto unknown = runProgram(
        dir, "split --set OCRLANGUAGES=eng+xyz_abc --set OUTPUTDIR=" + quoted(dir / "c") + " " + quoted(scanned));
    EXPECT_EQ(unknown.status, 3);
    EXPECT_NE(unknown.err.find("\"xyz_abc\" is not installed; install the package tesseract-ocr-xyz-abc"),
              std::string::npos)
        << unknown.err;
}

// A word read from the image stands within a few points of where the text
// layer puts it, and says how sure the reading was.
TEST(Ocr, WordsReadFromTheImageStandWhereTheTextWas) {
    testing::TempDir dir;
    const auto digital = dir / "digital.pdf";
    const auto scanned = dir / "scanned.pdf";
    fixtures::writePdf(fixtures::statements(1, 1), digital);
    fixtures::writeScanned(digital, scanned);
    MupdfHost host;
    host.setTextRecognition(textRecognitionFor(SplitSettings{}));
    std::vector<Word> printed;
    std::vector<Word> read;
    host.appendWords(host.openDocument(digital), 0, printed);
    const DocHandle image = host.openDocument(scanned);
    host.appendWords(image, 0, read);
    EXPECT_TRUE(host.pageRecognized(image, 0));
    EXPECT_EQ(host.recognizedLayer(image, 0), nullptr);  // no text layer unless asked
    ASSERT_GE(read.size(), printed.size() * 9 / 10);
    std::size_t placed = 0;
    for (const Word& word : printed) {
        const auto found = std::find_if(read.begin(), read.end(), [&](const Word& each) {
            return each.text == word.text && std::abs(each.h - word.h) <= 4 && std::abs(each.v - word.v) <= 4;
        });
        if (found != read.end() && found->confidence >= 30) ++placed;
    }
    EXPECT_GE(placed, printed.size() * 9 / 10);
    EXPECT_EQ(printed.front().confidence, -1);
}

}  // namespace
}  // namespace vellira
