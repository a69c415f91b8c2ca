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

// A file written under a temporary name beside its own and put in place
// only once written whole, so that a write that fails (a full disk, a
// folder gone read-only) leaves the earlier file as it was. The null device
// is written directly.
class StagedFile {
public:
    // Opens the temporary of `path`, numbered from `unique` (moved past the
    // number taken).
    bool open(const std::filesystem::path& path, std::uint32_t& unique);
    bool isOpen() const { return file_ != nullptr || off_; }
    // Writes text and answers its length.
    long put(std::string_view text);
    std::FILE* get() const { return file_.get(); }  // none for the null device
    // Ends the temporary where the last write ended and closes it. When
    // anything failed, says "file error! can't finish writing file: PATH
    // (REASON)", removes it and answers false.
    bool close(RunInterface& ui);
    // After close: the temporary replaces the file of its name; says so and
    // answers false when it cannot.
    bool putInPlace(RunInterface& ui);
    void discard();
    const std::filesystem::path& path() const { return path_; }
    const std::filesystem::path& temporary() const { return temporary_; }

private:
    bool fail(RunInterface& ui, const std::string& reason);

    FileHandle file_;
    std::filesystem::path path_;
    std::filesystem::path temporary_;  // none once put in place or removed
    int error_ = 0;                    // of the first write that failed
    bool off_ = false;                 // opened on the null device: writes go nowhere
};

// The text and CSV reports of one source document, each a staged file.
class Reports {
public:
    // Opens both reports under temporary names (numbered from `unique`) and
    // writes their headers, stamped with `now`. Shows "file error! can't
    // write to report file: %s" and answers false when either cannot be
    // opened.
    bool open(const SplitSettings& settings, std::string_view source, const std::tm& now, RunInterface& ui,
              std::uint32_t& unique);
    // One line per range written: 1-based first and last page, the captured
    // name and the output path.
    void rangeLine(int first, int last, std::string_view name, std::string_view output);
    // Moves both reports back over their last range line, so the next line
    // overwrites it.
    void takeBack();
    // The output-file count; 1 when ranges were handled but none was counted.
    void footer(int files, int ranges);
    // Ends both files; answers how many could not be written whole (said,
    // and their temporaries removed).
    int close(RunInterface& ui);
    // After close: the reports written whole replace the reports of their
    // names; answers how many could not.
    int putStagedInPlace(RunInterface& ui);
    void discardStaged();
    // The reports still under their temporary names: (temporary, report).
    std::vector<std::pair<std::filesystem::path, std::filesystem::path>> staged() const;

private:
    StagedFile text_;
    StagedFile csv_;
    long g_nWrittenRep = 0;  // length of the last range line of the text report
    long csvWritten_ = 0;    // the same for the CSV report
};

// The split list of a run: one line per range instead of a PDF.
class SplitList {
public:
    // Opens "FILENAME_splitlist.spl" under a temporary name (numbered from
    // `unique`); shows "Unable to write to file: " and the path, and answers
    // false, when it cannot.
    bool open(std::string_view filename, RunInterface& ui, std::uint32_t& unique);
    bool isOpen() const { return file_.isOpen(); }
    // `first` and `last` 1-based; `output` the composed output path.
    void line(std::string_view source, int first, int last, int sourcePages, std::string_view output,
              bool keepBookmarks);
    // Ends the list and puts it in place; false, said, when it could not be
    // written whole. Nothing to do when none is open.
    bool close(RunInterface& ui);

private:
    StagedFile file_;
};

}  // namespace vellira
