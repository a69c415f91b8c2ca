// Parameters files as users keep them: what survives a save and load, and how hand-edited files are read.
#include "files/ParametersFile.h"
#include "support/Files.h"
#include "support/RecordingInterface.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <climits>
#include <fstream>

namespace vellira {
namespace {

using testing::readFile;

// Reads `text` as a parameters file over `settings`.
SplitSettings readText(const testing::TempDir& dir, const std::string& text, SplitSettings settings = {},
                       bool probe = false) {
    std::ofstream(dir / "job.pcs", std::ios::binary) << text;
    std::string name = (dir / "job.pcs").string();
    readParameters(name, settings, {dir / "legacy", probe});
    return settings;
}

TEST(ParametersFile, SaveAndLoadKeepsWhatTheWriterWrites) {
    testing::TempDir dir;
    SplitSettings saved;
    int number = 1;
    for (const SettingsKey& key : settingsKeys()) {
        if (key.type == KeyType::Text)
            assignKey(saved, key, "value of " + std::string(key.name) + (number % 2 ? " " : ""));
        else
            assignKey(saved, key, std::to_string(key.type == KeyType::Flag ? number % 2 : 100 + number));
        ++number;
    }
    saved.AUTOMATION = 0;
    saved.EMAILMSG = "Dear customer,\r\nyour statement.\n";
    saved.offsetFirstWorking = 7;
    const std::string path = (dir / "job.pcs").string();
    testing::RecordingInterface ui;
    ASSERT_TRUE(writeParameters(path, saved, true, dir / "legacy", &ui));
    EXPECT_EQ(ui.notes, std::vector<std::string>{path + " saved."});

    const std::string text = readFile(path);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 86);
    EXPECT_NE(text.find("\r\nEMAILMSG;Dear customer,(return)(newline)your statement.(newline) \r\n"),
              std::string::npos);
    EXPECT_NE(text.find("\r\nUNTILWORDISFILENAME;"), std::string::npos);
    EXPECT_EQ(text.find("EMAILPASSWORD"), std::string::npos);

    // What the file never holds keeps the value it had in memory.
    const auto kept = [](SplitSettings s) {
        s.EMAILLOGIN = "me", s.EMAILPASSWORD = "secret", s.UNTILCHARACTERFILENAME = "until", s.OFFSETFIRST = 3;
        return s;
    };
    SplitSettings loaded = kept({});
    std::string name = path;
    readParameters(name, loaded, {dir / "legacy", false});

    SplitSettings expected = kept(saved);
    expected.LASTPATH += ' ';
    expected.LASTPATHSUB += ' ';
    for (const SettingsKey& key : settingsKeys())
        EXPECT_EQ(keyValueText(key, loaded), keyValueText(key, expected)) << key.name;
    EXPECT_EQ(loaded.offsetFirstWorking, 7);
    EXPECT_EQ(loaded.EMAILMSG, saved.EMAILMSG);

    // Without the batch list window the file ends after the e-mail lines.
    ASSERT_TRUE(writeParameters(path, saved, false, dir / "legacy", nullptr));
    EXPECT_EQ(readFile(path).find("LASTPATH"), std::string::npos);
}

TEST(ParametersFile, HandEditedFilesAreReadByTheReadersRules) {
    testing::TempDir dir;
    SplitSettings before;
    before.STRIPEND = 4;
    before.offsetFirstWorking = 2;
    before.FINDSTRING = "kept";
    const auto read = [&](const std::string& text) { return readText(dir, text, before); };

    EXPECT_EQ(read("FINDSTRING;Invoice \r\n").FINDSTRING, "Invoice");
    EXPECT_EQ(read("FINDSTRING;Invoice  \r\n").FINDSTRING, "Invoice ");
    EXPECT_EQ(read("FINDSTRING;\r\n").FINDSTRING, "");
    EXPECT_EQ(read("findstring;lower \r\n").FINDSTRING, "kept");
    EXPECT_EQ(read("FINDSTRING\r\n").FINDSTRING, "kept");  // a key without ";" sets nothing
    EXPECT_EQ(read("FINDSTRING;a;b \r\n").FINDSTRING, "a");
    EXPECT_EQ(read("FINDSTRING;Gr\xFC\xDF\x65 \r\n").FINDSTRING, "Grüße");
    EXPECT_EQ(read("FINDSTRING;Grüße \n").FINDSTRING, "Grüße");
    EXPECT_EQ(read("TOPAGE;-12abc \r\n").TOPAGE, -12);
    EXPECT_EQ(read("TOPAGE;abc \r\n").TOPAGE, 0);
    EXPECT_EQ(read("TOPAGE; +3.9 \r\n").TOPAGE, 3);
    const auto huge = read("TOPAGE;99999999999 \r\nSTARTFROMPAGE;-99999999999 \r\n");
    EXPECT_EQ(std::pair(huge.TOPAGE, huge.STARTFROMPAGE), std::pair(INT_MAX, INT_MIN));
    const auto post = read("USESOURCEFILENAMEPOST;1 \r\nEMAILMATCHHORIZTO;9 \r\n");
    EXPECT_EQ(
        std::tuple(post.USESOURCEFILENAME, post.USESOURCEFILENAMEPOST, post.EMAILMATCHHORIZ, post.EMAILMATCHHORIZTO),
        std::tuple(0, 1, 0, 9));
    // A value that names a later key is taken as that key.
    const auto chained = read("FINDSTRING;OUTPUTDIR;/srv/out \r\n");
    EXPECT_EQ(chained.FINDSTRING + " " + chained.OUTPUTDIR, "OUTPUTDIR /srv/out");
    const auto automation = read("AUTOMATION\r\nUSECURRENT;1 \r\n");
    EXPECT_EQ(std::pair(automation.AUTOMATION, automation.USECURRENT), std::pair(1, 0));
    EXPECT_EQ(read("USECURRENT;1 \r\n").USECURRENT, 1);
    const auto offsets = read("OFFSETFIRST;3 \r\nOFFSETFIRST;5 \r\n");
    EXPECT_EQ(std::tuple(offsets.offsetFirstWorking, offsets.OFFSETFIRST, offsets.STRIPEND), std::tuple(5, 0, 0));
    EXPECT_EQ(read("LASTPATH;/home/me \r\n").LASTPATH, "/home/me ");
    EXPECT_EQ(read("OUTPUTDIR;~/statements \r\n").OUTPUTDIR, std::string(std::getenv("HOME")) + "/statements");
    EXPECT_EQ(read("FINDSTRING;one \r\nFINDSTRING;two \r\n").FINDSTRING, "two");

    // A probe looks at the first line only.
    const auto probed = readText(dir, "USECURRENT;1 \r\nFINDSTRING;x \r\n", before, true);
    EXPECT_EQ(std::tuple(probed.USECURRENT, probed.FINDSTRING, probed.STRIPEND), std::tuple(0, "kept", 0));

    // A line longer than the reader's buffer is read in pieces.
    const auto longLine = read("FINDSTRING;" + std::string(20000, 'a') + " \r\nTOPAGE;4 \r\n");
    EXPECT_EQ(std::pair(longLine.FINDSTRING, longLine.TOPAGE), std::pair(std::string(16383 - 11, 'a'), 4));

    // Binary, empty and missing files change nothing else.
    std::string garbage(5000, '\0');
    for (std::size_t i = 0; i < garbage.size(); ++i) garbage[i] = static_cast<char>((i * 7919) % 256);
    SplitSettings unchanged = before;
    unchanged.STRIPEND = 0;
    unchanged.offsetFirstWorking = 0;
    EXPECT_EQ(read(garbage), unchanged);
    EXPECT_EQ(read(""), unchanged);
    std::string missing = (dir / "missing.pcs").string();
    SplitSettings untouched = before;
    readParameters(missing, untouched, {dir / "legacy", false});
    EXPECT_EQ(untouched, unchanged);

    // An older installation's file is read instead of the one asked for.
    std::filesystem::create_directories(dir / "legacy");
    std::ofstream(dir / "legacy" / "Vellira.ini", std::ios::binary) << "FINDSTRING;legacy \r\n";
    std::string asked = (dir / "job.pcs").string();
    EXPECT_EQ(read("FINDSTRING;mine \r\n").FINDSTRING, "legacy");
    SplitSettings settings;
    readParameters(asked, settings, {dir / "legacy", false});
    EXPECT_EQ(asked, (dir / "legacy" / "Vellira.ini").string());
}

}  // namespace
}  // namespace vellira
