#include "files/Reports.h"

#include "core/Text.h"
#include "files/SettingsLocations.h"

#include <cerrno>
#include <system_error>

#ifndef _WIN32
#include <unistd.h>
#endif

namespace vellira {

namespace {

// A text of a page (a name, a title) with its control characters as blanks,
// so that it cannot break a report's lines.
std::string printable(std::string_view text) {
    std::string out(text);
    for (char& c : out)
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = ' ';
    return out;
}

std::string stamp(const char* format, const std::tm& when) {
    char buffer[32];
    return std::string(buffer, std::strftime(buffer, sizeof buffer, format, &when));
}

}  // namespace

std::filesystem::path nullDevice() {
#ifdef _WIN32
    return "nul";
#else
    return "/dev/null";
#endif
}

ReportPaths reportPaths(const SplitSettings& settings, std::string_view source) {
    const std::filesystem::path sourcePath(std::u8string(source.begin(), source.end()));
    ReportPaths paths{std::string(source) + "_report.txt", std::string(source) + "_report.csv"};
    if (!settings.REPORTOPTIONSCURRENT && settings.REPORTOPTIONSOUTPUTFOLDER.size() > 1) {
        std::string name = pathText(sourcePath.filename());
        name.resize(name.size() > 4 ? name.size() - 4 : 0);
        const std::filesystem::path folder(settings.REPORTOPTIONSOUTPUTFOLDER);
        paths = {folder / (name + "_report.txt"), folder / (name + "_report.csv")};
    }
    if (!settings.REPORTOPTIONSTXT) paths.text = nullDevice();
    if (!settings.REPORTOPTIONSCSV) paths.csv = nullDevice();
    return paths;
}

namespace {

// A copy of a report that the system redirected into the user's own folder
// would be shown instead of the new report.
void removeRedirectedCopy(const std::filesystem::path& report) {
    std::string copy;
    std::error_code ignored;
    if (redirectedCopy(pathText(report), copy) == 0) std::filesystem::remove(copy, ignored);
}

}  // namespace

bool StagedFile::open(const std::filesystem::path& path, std::uint32_t& unique) {
    discard();
    path_ = path;
    error_ = 0;
    // A report turned off is written nowhere: nothing is opened for it.
    off_ = path == nullDevice();
    if (off_) return true;
    // A folder or a pipe at the name is never replaced.
    if (!isPlainFileOrMissing(path)) return false;
    temporary_ = unusedTemporaryBeside(path, unique);
    file_ = openFile(temporary_, "wb");
    if (!file_) temporary_.clear();
    return isOpen();
}

long StagedFile::put(std::string_view text) {
    if (off_) return static_cast<long>(text.size());
    if (std::fwrite(text.data(), 1, text.size(), file_.get()) != text.size() && error_ == 0)
        error_ = errno != 0 ? errno : EIO;
    return static_cast<long>(text.size());
}

bool StagedFile::close(RunInterface& ui) {
    if (!file_) return true;
    int error = error_;
    if ((std::fflush(file_.get()) != 0 || std::ferror(file_.get())) && error == 0) error = errno != 0 ? errno : EIO;
#ifndef _WIN32
    // A line taken back and overwritten by a shorter one must not leave the
    // tail of the longer one behind.
    const long end = std::ftell(file_.get());
    if (!temporary_.empty() && error == 0 && (end < 0 || ::ftruncate(::fileno(file_.get()), end) != 0)) error = errno;
#endif
    if (std::fclose(file_.release()) != 0 && error == 0) error = errno;
    return error == 0 || fail(ui, std::generic_category().message(error));
}

bool StagedFile::putInPlace(RunInterface& ui) {
    if (temporary_.empty()) return true;
    std::error_code failed;
    std::filesystem::rename(temporary_, path_, failed);
    if (failed) return fail(ui, failed.message());
    temporary_.clear();
    return true;
}

void StagedFile::discard() {
    file_.reset();
    off_ = false;
    std::error_code ignored;
    if (!temporary_.empty()) std::filesystem::remove(temporary_, ignored);
    temporary_.clear();
}

bool StagedFile::fail(RunInterface& ui, const std::string& reason) {
    discard();
    ui.note("file error! can't finish writing file: " + pathText(path_) + " (" + reason + ")");
    return false;
}

bool Reports::open(const SplitSettings& settings, std::string_view source, const std::tm& now, RunInterface& ui,
                   std::uint32_t& unique) {
    const auto paths = reportPaths(settings, source);
    if (!text_.open(paths.text, unique) || !csv_.open(paths.csv, unique)) {
        const auto& failed = text_.isOpen() ? paths.csv : paths.text;
        discardStaged();
        ui.note("file error! can't write to report file: " + pathText(failed));
        return false;
    }
    const std::string date = stamp("%m/%d/%y", now);
    const std::string time = stamp("%H:%M:%S", now);
    const std::string version(kVersionText);
    text_.put("\t\t\t\tVellira " + version + " Report\t\t\t" + date + " " + time + "\r\n\r\n");
    text_.put("\tPDF Filename: " + padRight(source, 30) + "\r\n\tFind: " + settings.FINDSTRING + "\r\n\r\n");
    csv_.put("Vellira Batch " + version + " Report,," + date + "," + time + "\r\n\r\n");
    csv_.put("PDF Filename:," + padRight(source, 30) + "\r\nFind:," + settings.FINDSTRING + "\r\n\r\n");
    csv_.put("Start Page,End Page,Matched,Output File\r\n");
    g_nWrittenRep = csvWritten_ = 0;
    return true;
}

void Reports::rangeLine(int first, int last, std::string_view name, std::string_view output) {
    const std::string from = padRight(std::to_string(first), 2);
    const std::string to = padRight(std::to_string(last), 2);
    const std::string shown = padRight(printable(name), 30);
    const std::string path = printable(output);
    g_nWrittenRep = text_.put("Page: " + from + " - " + to + "\t" + shown + "\tOutput file:" + path + "\r\n");
    // A spreadsheet takes a cell opening with = + - @ for a formula.
    const auto cell = [](const std::string& text) {
        return !text.empty() && std::string_view("=+-@").find(text.front()) != std::string_view::npos ? "'" + text
                                                                                                      : text;
    };
    csvWritten_ = csv_.put(from + "," + to + "," + cell(shown) + "," + cell(path) + "\r\n");
}

void Reports::takeBack() {
    if (text_.get()) std::fseek(text_.get(), -g_nWrittenRep, SEEK_CUR);
    if (csv_.get()) std::fseek(csv_.get(), -csvWritten_, SEEK_CUR);
}

void Reports::footer(int files, int ranges) {
    const std::string count = std::to_string(files == 0 && ranges > 0 ? 1 : files);
    text_.put("\r\n\t" + count + " PDF file(s)\r\n");
    csv_.put("\r\n," + count + ", PDF file(s)\r\n");
}

int Reports::close(RunInterface& ui) { return !text_.close(ui) + !csv_.close(ui); }

int Reports::putStagedInPlace(RunInterface& ui) {
    if (!text_.temporary().empty()) removeRedirectedCopy(text_.path());
    return !text_.putInPlace(ui) + !csv_.putInPlace(ui);
}

void Reports::discardStaged() {
    text_.discard();
    csv_.discard();
}

std::vector<std::pair<std::filesystem::path, std::filesystem::path>> Reports::staged() const {
    std::vector<std::pair<std::filesystem::path, std::filesystem::path>> staged;
    for (const StagedFile* report : {&text_, &csv_})
        if (!report->temporary().empty()) staged.emplace_back(report->temporary(), report->path());
    return staged;
}

bool SplitList::open(std::string_view filename, RunInterface& ui, std::uint32_t& unique) {
    const std::string path = std::string(filename) + "_splitlist.spl";
    if (file_.open(pathFromText(path), unique)) return true;
    ui.note("Unable to write to file: " + path);
    return false;
}

void SplitList::line(std::string_view source, int first, int last, int sourcePages, std::string_view output,
                     bool keepBookmarks) {
    if (!file_.isOpen()) return;
    const auto cut = output.find_last_of(std::filesystem::path::preferred_separator);
    const std::string_view folder = cut == std::string_view::npos ? std::string_view() : output.substr(0, cut + 1);
    std::string_view name = cut == std::string_view::npos ? output : output.substr(cut + 1);
    name.remove_suffix(name.size() > 4 ? 4 : name.size());
    file_.put(std::string(source) + "; " + std::to_string(first) + "-" + std::to_string(last) + "; " +
              std::to_string(sourcePages) + "; Ready.; ; " + std::string(folder) + "; Y; ; " +
              (keepBookmarks ? "Y" : "N") + "; " + std::string(name) + " ;0\r\n");
}

bool SplitList::close(RunInterface& ui) { return file_.close(ui) && file_.putInPlace(ui); }

}  // namespace vellira
