#include "files/ParametersFile.h"

#include "core/Platform.h"
#include "core/Text.h"
#include "files/SettingsLocations.h"

#include <cstdio>
#include <cstring>
#include <vector>

namespace vellira {

namespace {

constexpr std::size_t kLineBuffer = 16384;
constexpr const char* kLegacyName = "Vellira.ini";

// A text value as read: one trailing blank (the writer's) removed.
std::string trimmed(std::string_view value) {
    if (!value.empty() && value.back() == ' ') value.remove_suffix(1);
    return std::string(value);
}

std::vector<std::string_view> tokens(std::string_view line) {
    std::vector<std::string_view> out;
    std::size_t start = 0;
    for (std::size_t i = 0; i <= line.size(); ++i) {
        if (i == line.size() || line[i] == ';' || line[i] == '\r' || line[i] == '\n') {
            if (i > start) out.push_back(line.substr(start, i - start));
            start = i + 1;
        }
    }
    return out;
}

// Applies one line's tokens. A value that is itself the name of a key later
// in the reader's order is taken as that key, with the token after it as its
// value.
void applyLine(std::string_view line, SplitSettings& settings) {
    // A line without a separator sets nothing (AUTOMATION is read apart).
    if (line.find(';') == std::string_view::npos) return;
    const auto parts = tokens(line);
    if (parts.empty()) return;
    std::size_t next = 0;
    std::string current(parts[next++]);
    for (const SettingsKey& key : settingsKeys()) {
        if (current != key.name) continue;
        if (key.name == "AUTOMATION") {
            settings.AUTOMATION = 1;
            continue;
        }
        const std::string raw = next < parts.size() ? textAsUtf8(parts[next++]) : std::string();
        const bool untrimmed = key.name == "LASTPATH" || key.name == "LASTPATHSUB";
        std::string value = key.type == KeyType::Text && !untrimmed ? trimmed(raw) : raw;
        if (key.name == "OFFSETFIRST") {
            settings.offsetFirstWorking = leadingInteger(value);
        } else if (key.name == "EMAILMSG") {
            replaceAll(value, "(return)", "\r");
            replaceAll(value, "(newline)", "\n");
            settings.EMAILMSG = value;
        } else if (key.name == "FILENAME" || key.name == "OUTPUTDIR" || key.name == "REPORTOPTIONSOUTPUTFOLDER" ||
                   key.name == "EMAILLOGFILE") {
            // A "~" at the start of a path is the home folder.
            assignKey(settings, key, resolvePath(value));
        } else {
            assignKey(settings, key, value);
            if (key.name == "USECURRENT" && settings.AUTOMATION) settings.USECURRENT = 0;
        }
        current = trimmed(raw);
    }
}

}  // namespace

void readParameters(std::string& filename, SplitSettings& settings, const ParametersOptions& options) {
    settings.STRIPEND = 0;
    settings.offsetFirstWorking = 0;
    if (!options.legacyFolder.empty()) {
        const auto legacy = options.legacyFolder / kLegacyName;
        if (openFile(legacy, "rb")) filename = pathText(legacy);
    }
    FileHandle file = openFile(pathFromText(filename), "rb");
    if (file) readParameters(file.get(), settings, options.probe);
}

void readParameters(std::FILE* file, SplitSettings& settings, bool probe) {
    std::vector<char> buffer(kLineBuffer);
    while (std::fgets(buffer.data(), static_cast<int>(buffer.size()), file)) {
        // A line holding a NUL ends there, as a C string does.
        const std::string_view line(buffer.data(), std::strlen(buffer.data()));
        const auto parts = tokens(line);
        if (!parts.empty() && parts[0] == "AUTOMATION") settings.AUTOMATION = 1;
        if (probe) return;
        applyLine(line, settings);
        std::memset(buffer.data(), 0, buffer.size());
    }
}

std::string parametersText(const SplitSettings& settings, bool withLastPaths) {
    // The writer's order. OFFSETFIRST comes twice: the dialog's value, then
    // the working copy, which is the one read back.
    static constexpr std::string_view kWriterOrder[] = {
        "USECURRENT",
        "SPLITTOSOURCE",
        "ROTATED",
        "CREATELIST",
        "KEEPBOOKMARKS",
        "USESOURCEFILENAME",
        "USESOURCEFILENAMEPOST",
        "ALWAYSOVERWRITE",
        "ALWAYSAPPEND",
        "IGNORECASE",
        "ADDBWORDS",
        "FILENAME",
        "EXTRACT",
        "TAKENWORDSFORFILENAME",
        "UNTILHHPOSLESSTHAN",
        "UNTILWORDISFILENAME",
        "TAKENCHARSFORFILENAME",
        "FIRSTCHAROFWORD",
        "STARTFROMPAGE",
        "TOPAGE",
        "OFFSETFIRST",
        "PAGEEXTRACT",
        "FINDSTRING",
        "PREFIXFILENAME",
        "POSTFIXFILENAME",
        "OUTPUTDIR",
        "EXTRACTUNTIL",
        "EXTRACTFILENAME",
        "MATCHPOSH",
        "MATCHPOSV",
        "UNTILMATCHPOSH",
        "UNTILMATCHPOSV",
        "REPORTOPTIONSTXT",
        "REPORTOPTIONSCSV",
        "REPORTOPTIONSCURRENT",
        "REPORTOPTIONSOUTPUTFOLDER",
        "STRIPEND",
        "OFFSETFIRST",
        "EMAILSMTP",
        "EMAILFROM",
        "EMAILCC",
        "EMAILFROMNAME",
        "EMAILSUBJECT",
        "EMAILLOGFILE",
        "EMAILMSG",
        "EMAILHTML",
        "USEOUTLOOK",
        "EMAILENABLE",
        "EMAILCONFIRM",
        "EMAILTEST",
        "EMAILRETRYSECONDS",
        "EMAILMATCHVERT",
        "EMAILMATCHVERTTO",
        "EMAILMATCHHORIZ",
        "EMAILMATCHHORIZTO",
        "EMAILHORIZAFTERTEXT",
        "EMAILHORIZBEFORETEXT",
        "OCR",
        "OCRLANGUAGES",
        "OCRRESOLUTION",
        "OCRCONFIDENCE",
        "OCRTEXTLAYER",
        "CODES",
        "CODEFORMATS",
        "CODERESOLUTION",
        "SEPARATOR",
        "SEPARATORTEXT",
        "KEEPSEPARATOR",
        "SEPARATORNAMES",
        "DROPBLANKPAGES",
        "PATTERNSEARCH",
        "SPLITONCHANGE",
        "VALUEAREA",
        "GROUPBYVALUE",
        "LOOKUPFILE",
        "LOOKUPKEYCOLUMN",
        "LOOKUPMISSING",
        "LOOKUPEMAILCOLUMN",
        "CHECKPAGEOF",
        "CHECKMINPAGES",
        "CHECKMAXPAGES",
        "CHECKVALUE",
        "EXCEPTIONSFOLDER",
        "EXCEPTIONSLISTONLY",
        "LASTPATH",
        "LASTPATHSUB",
    };
    // The until-word text's line carries a number that does not encode it.
    constexpr std::string_view kUntilWordPlaceholder = "0";
    std::string text;
    bool offsetWritten = false;
    for (const std::string_view key : kWriterOrder) {
        if (!withLastPaths && (key == "LASTPATH" || key == "LASTPATHSUB")) continue;
        std::string value;
        if (key == "UNTILWORDISFILENAME") {
            value = kUntilWordPlaceholder;
        } else if (key == "OFFSETFIRST") {
            value = std::to_string(offsetWritten ? settings.offsetFirstWorking : settings.OFFSETFIRST);
            offsetWritten = true;
        } else {
            value = keyValueText(*findSettingsKey(key), settings);
            if (key == "EMAILMSG") {
                replaceAll(value, "\r", "(return)");
                replaceAll(value, "\n", "(newline)");
            }
        }
        text.append(key).append(";").append(value).append(" \r\n");
    }
    return text;
}

bool writeParameters(const std::string& filename, const SplitSettings& settings, bool withLastPaths,
                     const std::filesystem::path& legacyFolder, RunInterface* ui) {
    FileHandle file = openFile(pathFromText(filename), "wb");
    if (!file && filename.find(kLegacyName) != std::string::npos && !legacyFolder.empty())
        file = openFile(legacyFolder / kLegacyName, "wb");
    if (!file) return false;
    const std::string text = parametersText(settings, withLastPaths);
    const bool written = std::fwrite(text.data(), 1, text.size(), file.get()) == text.size();
    const bool closed = std::fclose(file.release()) == 0;
    if (written && closed && ui && filename.find(".pcs") != std::string::npos) ui->note(filename + " saved.");
    return written && closed;
}

}  // namespace vellira
