// Parameters files as users keep them: what survives a save and load, and how
// hand-edited files are read.
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

std::filesystem::path writeText(const std::filesystem::path& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
    return path;
}

SplitSettings readText(const testing::TempDir& dir, const std::string& text, SplitSettings settings = {},
                       bool probe = false) {
    std::string name = writeText(dir / "job.pcs", text).string();
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
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 58);
    EXPECT_NE(text.find("\r\nEMAILMSG;Dear customer,(return)(newline)your statement.(newline) \r\n"),
              std::string::npos);
    EXPECT_NE(text.find("\r\nUNTILWORDISFILENAME;"), std::string::npos);
    EXPECT_EQ(text.find("EMAILPASSWORD"), std::string::npos);

    // What the file never holds keeps the value it had in memory.
    SplitSettings loaded;
    loaded.EMAILLOGIN = "me";
    loaded.EMAILPASSWORD = "secret";
    loaded.UNTILCHARACTERFILENAME = "until";
    loaded.OFFSETFIRST = 3;
    std::string name = path;
    readParameters(name, loaded, {dir / "legacy", false});

    SplitSettings expected = saved;
    expected.EMAILLOGIN = "me";
    expected.EMAILPASSWORD = "secret";
    expected.UNTILCHARACTERFILENAME = "until";
    expected.OFFSETFIRST = 3;
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
    EXPECT_EQ(read("FINDSTRING;Gr\xFC\xDF"
                   "e \r\n")
                  .FINDSTRING,
              "Grüße");
    EXPECT_EQ(read("FINDSTRING;Grüße \n").FINDSTRING, "Grüße");
    EXPECT_EQ(read("TOPAGE;-12abc \r\n").TOPAGE, -12);
    EXPECT_EQ(read("TOPAGE;abc \r\n").TOPAGE, 0);
    EXPECT_EQ(read("TOPAGE; +3.9 \r\n").TOPAGE, 3);
    const auto huge = read("TOPAGE;99999999999 \r\nSTARTFROMPAGE;-99999999999 \r\n");
    EXPECT_EQ(std::pair(huge.TOPAGE, huge.STARTFROMPAGE), std::pair(INT_MAX, INT_MIN));
    const auto post = read("USESOURCEFILENAMEPOST;1 \r\nEMAILMATCHHORIZTO;9 \r\n");
    EXPECT_EQ(post.USESOURCEFILENAME, 0);
    EXPECT_EQ(post.USESOURCEFILENAMEPOST, 1);
    EXPECT_EQ(post.EMAILMATCHHORIZ, 0);
    EXPECT_EQ(post.EMAILMATCHHORIZTO, 9);
    // A value that names a later key is taken as that key.
    const auto chained = read("FINDSTRING;OUTPUTDIR;/srv/out \r\n");
    EXPECT_EQ(chained.FINDSTRING, "OUTPUTDIR");
    EXPECT_EQ(chained.OUTPUTDIR, "/srv/out");
    const auto automation = read("AUTOMATION\r\nUSECURRENT;1 \r\n");
    EXPECT_EQ(automation.AUTOMATION, 1);
    EXPECT_EQ(automation.USECURRENT, 0);
    EXPECT_EQ(read("USECURRENT;1 \r\n").USECURRENT, 1);
    const auto offsets = read("OFFSETFIRST;3 \r\nOFFSETFIRST;5 \r\n");
    EXPECT_EQ(offsets.offsetFirstWorking, 5);
    EXPECT_EQ(offsets.OFFSETFIRST, before.OFFSETFIRST);
    EXPECT_EQ(offsets.STRIPEND, 0);
    EXPECT_EQ(read("LASTPATH;/home/me \r\n").LASTPATH, "/home/me ");
    EXPECT_EQ(read("OUTPUTDIR;~/statements \r\n").OUTPUTDIR, std::string(std::getenv("HOME")) + "/statements");
    EXPECT_EQ(read("FINDSTRING;one \r\nFINDSTRING;two \r\n").FINDSTRING, "two");

    // A probe looks at the first line only.
    const auto probed = readText(dir, "USECURRENT;1 \r\nFINDSTRING;x \r\n", before, true);
    EXPECT_EQ(probed.USECURRENT, 0);
    EXPECT_EQ(probed.FINDSTRING, "kept");
    EXPECT_EQ(probed.STRIPEND, 0);

    // A line longer than the reader's buffer is read in pieces.
    const auto longLine = read("FINDSTRING;" + std::string(20000, 'a') + " \r\nTOPAGE;4 \r\n");
    EXPECT_EQ(longLine.FINDSTRING, std::string(16383 - 11, 'a'));
    EXPECT_EQ(longLine.TOPAGE, 4);

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
    writeText(dir / "legacy" / "Vellira.ini", "FINDSTRING;legacy \r\n");
    std::string asked = writeText(dir / "job.pcs", "FINDSTRING;mine \r\n").string();
    SplitSettings settings;
    readParameters(asked, settings, {dir / "legacy", false});
    EXPECT_EQ(settings.FINDSTRING, "legacy");
    EXPECT_EQ(asked, (dir / "legacy" / "Vellira.ini").string());
}

}  // namespace
}  // namespace vellira
