#include "files/Reports.h"

#include "core/Text.h"
#include "files/SettingsLocations.h"

#include <system_error>

#ifndef _WIN32
#include <sys/stat.h>
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

// Writes text to a report and answers its length.
long put(std::FILE* file, const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), file);
    return static_cast<long>(text.size());
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

void removeEarlierTextReport(const std::filesystem::path& text) {
    if (text == nullDevice()) return;
    std::error_code ignored;
    std::filesystem::remove(text, ignored);
    // Also a copy the system redirected into the user's own folder.
    std::string copy;
    if (redirectedCopy(pathText(text), copy) == 0) std::filesystem::remove(copy, ignored);
}

}  // namespace

bool Reports::open(const SplitSettings& settings, std::string_view source, const std::tm& now, RunInterface& ui,
                   std::optional<std::uint32_t> staging) {
    const auto paths = reportPaths(settings, source);
    staged_.clear();
    if (!staging) removeEarlierTextReport(paths.text);
    // A report switched off is written to the null device, the one file
    // here that is not a plain one. A staged report is written under a
    // temporary name beside its own.
    const auto openReport = [&](const std::filesystem::path& path) {
        if (path == nullDevice()) return FileHandle(std::fopen(pathText(path).c_str(), "wb"));
        if (!staging) return openFile(path, "wb");
        const auto temporary = temporaryBeside(path, (*staging)++);
        staged_.emplace_back(temporary, path);
        return openFile(temporary, "wb");
    };
    text_ = openReport(paths.text);
    csv_ = openReport(paths.csv);
    for (const auto* failed : {text_ ? nullptr : &paths.text, csv_ ? nullptr : &paths.csv}) {
        if (!failed) continue;
        text_.reset();
        csv_.reset();
        discardStaged();
        ui.note("file error! can't write to report file: " + pathText(*failed));
        return false;
    }
    const std::string date = stamp("%m/%d/%y", now);
    const std::string time = stamp("%H:%M:%S", now);
    const std::string version(kVersionText);
    put(text_.get(), "\t\t\t\tVellira " + version + " Report\t\t\t" + date + " " + time + "\r\n\r\n");
    put(text_.get(), "\tPDF Filename: " + padRight(source, 30) + "\r\n\tFind: " + settings.FINDSTRING + "\r\n\r\n");
    put(csv_.get(), "Vellira Batch " + version + " Report,," + date + "," + time + "\r\n\r\n");
    put(csv_.get(), "PDF Filename:," + padRight(source, 30) + "\r\nFind:," + settings.FINDSTRING + "\r\n\r\n");
    put(csv_.get(), "Start Page,End Page,Matched,Output File\r\n");
    g_nWrittenRep = csvWritten_ = 0;
    return true;
}

void Reports::rangeLine(int first, int last, std::string_view name, std::string_view output) {
    const std::string from = padRight(std::to_string(first), 2);
    const std::string to = padRight(std::to_string(last), 2);
    const std::string shown = padRight(printable(name), 30);
    const std::string path = printable(output);
    g_nWrittenRep = put(text_.get(), "Page: " + from + " - " + to + "\t" + shown + "\tOutput file:" + path + "\r\n");
    // A spreadsheet takes a cell opening with = + - @ for a formula.
    const auto cell = [](const std::string& text) {
        return !text.empty() && std::string_view("=+-@").find(text.front()) != std::string_view::npos ? "'" + text
                                                                                                      : text;
    };
    csvWritten_ = put(csv_.get(), from + "," + to + "," + cell(shown) + "," + cell(path) + "\r\n");
}

void Reports::takeBack() {
    std::fseek(text_.get(), -g_nWrittenRep, SEEK_CUR);
    std::fseek(csv_.get(), -csvWritten_, SEEK_CUR);
}

void Reports::footer(int files, int ranges) {
    const std::string count = std::to_string(files == 0 && ranges > 0 ? 1 : files);
    put(text_.get(), "\r\n\t" + count + " PDF file(s)\r\n");
    put(csv_.get(), "\r\n," + count + ", PDF file(s)\r\n");
}

void Reports::discardStaged() {
    std::error_code ignored;
    for (const auto& [temporary, report] : staged_) std::filesystem::remove(temporary, ignored);
    staged_.clear();
}

void Reports::putStagedInPlace() {
    for (const auto& [temporary, report] : staged_) {
        if (report.extension() == ".txt") removeEarlierTextReport(report);
        std::error_code ignored;
        std::filesystem::rename(temporary, report, ignored);
    }
    staged_.clear();
}

void Reports::close() {
    // A line taken back and overwritten by a shorter one must not leave the
    // tail of the longer one behind.
    for (File* report : {&text_, &csv_}) {
        if (!*report) continue;
        std::fflush(report->get());
#ifndef _WIN32
        const int fd = ::fileno(report->get());
        struct stat status;
        if (::fstat(fd, &status) == 0 && S_ISREG(status.st_mode)) {
            const long end = std::ftell(report->get());
            if (end >= 0 && ::ftruncate(fd, end) != 0) {
                // Nothing to do: the file keeps its old tail, as it would have anyway.
            }
        }
#endif
        report->reset();
    }
}

bool SplitList::open(std::string_view filename, RunInterface& ui) {
    const std::string path = std::string(filename) + "_splitlist.spl";
    file_ = openFile(pathFromText(path), "wb");
    if (!file_) ui.note("Unable to write to file: " + path);
    return file_ != nullptr;
}

void SplitList::line(std::string_view source, int first, int last, int sourcePages, std::string_view output,
                     bool keepBookmarks) {
    if (!file_) return;
    const auto cut = output.find_last_of(std::filesystem::path::preferred_separator);
    const std::string_view folder = cut == std::string_view::npos ? std::string_view() : output.substr(0, cut + 1);
    std::string_view name = cut == std::string_view::npos ? output : output.substr(cut + 1);
    name.remove_suffix(name.size() > 4 ? 4 : name.size());
    put(file_.get(), std::string(source) + "; " + std::to_string(first) + "-" + std::to_string(last) + "; " +
                         std::to_string(sourcePages) + "; Ready.; ; " + std::string(folder) + "; Y; ; " +
                         (keepBookmarks ? "Y" : "N") + "; " + std::string(name) + " ;0\r\n");
    std::fflush(file_.get());
}

}  // namespace vellira
