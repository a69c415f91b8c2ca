// Any settings and any words split by the real run on a scripted host (no
// PDF): whatever the pages say, every range written lies inside the source,
// holds exactly the source's pages it names, and lands inside the folder the
// settings name for it under a file name a file system takes (255 bytes at
// most); the dry run of the preview names no path outside that folder either.
// The address capture then reads every output.
//
// An input is settings, one KEY=VALUE a line as the command line's --set
// takes them, then a line "---", then one line per page:
// words separated by blanks, each optionally placed as WORD@H,V, "|" starting
// a new line of text; a page line starting with ">" is a bookmark instead,
// one ">" per level, as TITLE@PAGE (0-based).
#include "mail/AddressCapture.h"
#include "run/BatchJob.h"
#include "support/ScriptedHost.h"
#include "support/TempDir.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace vellira;
using testing::ScriptedBookmark;
using testing::ScriptedHost;
using testing::ScriptedPage;

[[noreturn]] void fail(const std::string& what) {
    std::string shown;
    for (const char c : what) {
        char escaped[8];
        std::snprintf(escaped, sizeof escaped, "\\x%02x", static_cast<unsigned char>(c));
        shown += c >= 0x20 && c < 0x7F ? std::string(1, c) : std::string(escaped);
    }
    std::fprintf(stderr, "split invariant broken: %s\n", shown.c_str());
    std::abort();
}

using testing::TempDir;  // a fresh folder for one input, removed afterwards

std::vector<std::string_view> split(std::string_view text, char separator) {
    std::vector<std::string_view> parts;
    for (std::size_t at = 0;;) {
        const auto next = text.find(separator, at);
        parts.push_back(text.substr(at, next == std::string_view::npos ? std::string_view::npos : next - at));
        if (next == std::string_view::npos) return parts;
        at = next + 1;
    }
}

int number(std::string_view text) { return static_cast<int>(std::strtol(std::string(text).c_str(), nullptr, 10)); }

// WORD@H,V, or WORD at the next free place of its line.
Word wordOf(std::string_view token, int h, int v) {
    Word word{std::string(token), h, v};
    const auto at = token.rfind('@');
    const auto comma = at == std::string_view::npos ? at : token.find(',', at);
    if (comma != std::string_view::npos && at > 0) {
        word.text = std::string(token.substr(0, at));
        word.h = number(token.substr(at + 1, comma - at - 1));
        word.v = number(token.substr(comma + 1));
    }
    return word;
}

ScriptedPage pageOf(std::string_view line) {
    ScriptedPage page;
    int v = 720;
    for (const auto textLine : split(line, '|')) {
        int h = 72;
        for (const auto token : split(textLine, ' ')) {
            if (token.empty()) continue;
            page.push_back(wordOf(token, h, v));
            h += 12 + 6 * static_cast<int>(token.size());
        }
        v -= 20;
    }
    return page;
}

// ">>TITLE@PAGE" under the last bookmark one level up.
void addBookmark(std::vector<ScriptedBookmark>& outline, std::string_view line) {
    std::size_t level = 0;
    while (level < line.size() && line[level] == '>') ++level;
    std::string_view rest = line.substr(level);
    const auto at = rest.rfind('@');
    ScriptedBookmark bookmark{
        std::string(rest.substr(0, at)), at == std::string_view::npos ? 0 : number(rest.substr(at + 1)), {}};
    std::vector<ScriptedBookmark>* siblings = &outline;
    for (std::size_t depth = 1; depth < level && !siblings->empty(); ++depth) siblings = &siblings->back().children;
    siblings->push_back(std::move(bookmark));
}

// The user's own prefix and postfix may climb out of the output folder on
// purpose ("../done/"); what the pages say may not.
std::string withoutClimbing(std::string text) {
    for (auto at = text.find(".."); at != std::string::npos; at = text.find("..")) text.replace(at, 2, "_");
    return text;
}

// `path` names a file directly or further down inside `folder`, under a name
// of 255 bytes at most.
void checkPlace(const std::string& path, const std::filesystem::path& folder) {
    const auto normal = std::filesystem::path(path).lexically_normal();
    const auto relative = normal.lexically_relative(folder.lexically_normal());
    if (relative.empty() || *relative.begin() == ".." || relative.is_absolute() || relative == ".")
        fail("'" + path + "' is outside " + folder.string());
    if (normal.filename().string().size() > 255)
        fail("'" + path + "' has a name of " + std::to_string(normal.filename().string().size()) + " bytes");
}

// Checks each output as it is reported written.
class CheckingInterface : public RunInterface {
public:
    CheckingInterface(ScriptedHost& host, const std::vector<ScriptedPage>& source, std::filesystem::path folder)
        : host_(host), source_(source), folder_(std::move(folder)) {}

    void note(std::string_view) override {}
    bool question(std::string_view) override { return false; }
    std::vector<std::string> written;
    void fileWritten(std::string_view path, int first, int last) override {
        const std::string where(path);
        written.push_back(where);
        const int pages = static_cast<int>(source_.size());
        if (first < 1 || first > last || last > pages)
            fail("'" + where + "' holds pages " + std::to_string(first) + "-" + std::to_string(last) + " of " +
                 std::to_string(pages));
        checkPlace(where, folder_);
        const auto saved = host_.files.find(where);
        if (saved == host_.files.end()) fail("'" + where + "' was reported but never saved");
        // Appended to or not, the output ends with exactly the range's pages.
        const auto& got = saved->second;
        const auto count = static_cast<std::size_t>(last - first + 1);
        if (got.size() < count) fail("'" + where + "' lacks pages of its range");
        for (std::size_t i = 0; i < count; ++i) {
            const auto& want = source_[first - 1 + i];
            const auto& have = got[got.size() - count + i];
            bool same = want.size() == have.size();
            for (std::size_t w = 0; same && w < want.size(); ++w)
                same = want[w].text == have[w].text && want[w].h == have[w].h && want[w].v == have[w].v;
            if (!same)
                fail("'" + where + "' holds other pages than " + std::to_string(first) + "-" + std::to_string(last));
        }
    }

private:
    ScriptedHost& host_;
    const std::vector<ScriptedPage>& source_;
    std::filesystem::path folder_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const auto cut = input.find("\n---\n");
    const std::string_view settings = input.substr(0, cut);
    const std::string_view body = cut == std::string_view::npos ? std::string_view() : input.substr(cut + 5);

    const TempDir scratch;
    std::filesystem::create_directories(scratch / "source");
    std::filesystem::create_directories(scratch / "reports");
    const auto source = scratch / "source" / "in.pdf";
    std::ofstream(source).put('\n');  // a row's file must be there to be split
    const std::string sourceText = source.string();

    BatchJob job;
    job.settingsFile = scratch / "VelliraBatch.ini";
    job.legacyFolder = scratch / "legacy";
    job.rows.push_back({"Yes", sourceText, "Ready.", ""});
    SplitSettings& s = job.settings;
    for (const auto line : split(settings, '\n')) {
        const auto equals = line.find('=');
        if (const SettingsKey* key = findSettingsKey(line.substr(0, equals)); key && equals != std::string_view::npos)
            assignKey(s, *key, line.substr(equals + 1));
    }
    // Everything the run writes stays in the scratch folder, and nothing is mailed.
    s.FILENAME = sourceText;
    s.USECURRENT = 0;
    s.OUTPUTDIR = (scratch / "out").string();
    s.REPORTOPTIONSOUTPUTFOLDER = (scratch / "reports").string();
    s.EMAILENABLE = 0;
    s.PREFIXFILENAME = withoutClimbing(s.PREFIXFILENAME);
    s.POSTFIXFILENAME = withoutClimbing(s.POSTFIXFILENAME);
    const std::filesystem::path folder = s.SPLITTOSOURCE ? scratch / "source" : scratch / "out";

    std::vector<ScriptedPage> pages;
    std::vector<ScriptedBookmark> outline;
    for (const auto line : split(body, '\n')) {
        if (!line.empty() && line[0] == '>')
            addBookmark(outline, line);
        else if (pages.size() < 200)
            pages.push_back(pageOf(line));
    }

    ScriptedHost host;
    host.files[sourceText] = pages;
    host.outlines[sourceText] = outline;
    CheckingInterface ui(host, pages, folder);
    try {
        runBatch(job, host, ui);
        for (const auto& output : ui.written) captureAddress(host, ui, s, output);
    } catch (const HostError&) {
    }

    ScriptedHost previewHost;
    previewHost.files[sourceText] = pages;
    previewHost.outlines[sourceText] = outline;
    job.currentDocument = sourceText;
    CheckingInterface quiet(previewHost, pages, folder);
    try {
        for (const auto& range : previewRanges(job, previewHost, quiet)) checkPlace(range.path, folder);
    } catch (const HostError&) {
    }
    return 0;
}
