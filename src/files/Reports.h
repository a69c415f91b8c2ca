// The text files a run leaves for the user. Every line carries its own
// "\r\n"; files are written byte for byte as formatted.
#pragma once

#include "core/Platform.h"
#include "core/RunInterface.h"
#include "core/SplitSettings.h"

#include <cstdint>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vellira {

// The platform's null device: writes to it are discarded.
std::filesystem::path nullDevice();

struct ReportPaths {
    std::filesystem::path text;
    std::filesystem::path csv;
};

// Where the reports of one source PDF go: "SOURCE_report.txt" and
// "SOURCE_report.csv" beside it (the ".pdf" kept), or "NAME_report.txt" in
// REPORTOPTIONSOUTPUTFOLDER when that is set (longer than one character) and
// REPORTOPTIONSCURRENT is off, NAME being the file name less its last four
// characters. A report that is switched off goes to the null device.
ReportPaths reportPaths(const SplitSettings& settings, std::string_view source);

// The text and CSV reports of one source document.
class Reports {
public:
    // Deletes an earlier text report, opens both reports and writes their
    // headers, stamped with `now`. Shows "file error! can't write to report
    // file: %s" and answers false when either cannot be opened.
    // With `staging`, both are written under temporary names (numbered from
    // it) beside their own, and put in place by putStagedInPlace.
    bool open(const SplitSettings& settings, std::string_view source, const std::tm& now, RunInterface& ui,
              std::optional<std::uint32_t> staging = std::nullopt);
    // One line per range written: 1-based first and last page, the captured
    // name and the output path.
    void rangeLine(int first, int last, std::string_view name, std::string_view output);
    // Moves both reports back over their last range line, so the next line
    // overwrites it.
    void takeBack();
    // The output-file count; 1 when ranges were handled but none was counted.
    void footer(int files, int ranges);
    // Ends both files where the last write ended.
    void close();
    // After close: staged reports replace the reports of their names, or
    // are removed.
    void putStagedInPlace();
    void discardStaged();
    // The staged reports: (temporary, report).
    const std::vector<std::pair<std::filesystem::path, std::filesystem::path>>& staged() const { return staged_; }

private:
    using File = FileHandle;
    File text_;
    File csv_;
    long g_nWrittenRep = 0;  // length of the last range line of the text report
    long csvWritten_ = 0;    // the same for the CSV report
    std::vector<std::pair<std::filesystem::path, std::filesystem::path>> staged_;  // temporary, report
};

// The split list of a run: one line per range instead of a PDF.
class SplitList {
public:
    // Opens "FILENAME_splitlist.spl"; shows "Unable to write to file: " and
    // the path, and answers false, when it cannot.
    bool open(std::string_view filename, RunInterface& ui);
    bool isOpen() const { return file_ != nullptr; }
    // `first` and `last` 1-based; `output` the composed output path.
    void line(std::string_view source, int first, int last, int sourcePages, std::string_view output,
              bool keepBookmarks);
    void close() { file_.reset(); }

private:
    FileHandle file_;
};

}  // namespace vellira
