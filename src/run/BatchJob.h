// A batch job and the one call that runs it.
//
// A front end builds a BatchJob (the settings, the batch list's rows, the
// options of the run) and calls runBatch with a document host and the run's
// interface. The run works on its own copy of the job: it reports what
// happens as it happens through the interface (row statuses, files written,
// progress, messages, questions) and answers what it came to. The cancel flag
// of the interface is the only thing another thread may touch while it runs.
#pragma once

#include "core/BatchRow.h"
#include "core/DocumentHost.h"
#include "core/PlannedRange.h"
#include "core/RunInterface.h"
#include "core/SplitSettings.h"
#include "mail/MailSender.h"

#include <filesystem>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

namespace vellira {

struct BatchJob {
    SplitSettings settings;
    std::vector<BatchRow> rows;
    // The document open in the user's viewer, if any: the run opens it on its
    // own host and works on it as the current document (USECURRENT).
    std::string currentDocument;
    // Where the debug trace goes; none when empty.
    std::filesystem::path trace;
    // How outputs are mailed when EMAILENABLE is on.
    MailTransport mail;
    // The settings file the run writes first, and where an older
    // installation's settings are looked for.
    std::filesystem::path settingsFile;
    std::filesystem::path legacyFolder;
    // While on, an existing output is replaced (or appended to); while off, a
    // free "_partNNN" name is taken instead. The dialog keeps it on.
    bool overwrite = true;
    // Work side by side: up to `jobs` rows of the list split at once, or one
    // document's pages read by `jobs` workers, each on a host newHost makes.
    // What is written, reported and told is the same as with one job.
    int jobs = 1;
    HostFactory newHost;
    // Output and report folders already rid of what killed runs left there
    // (BatchResult::tidiedFolders of an earlier run): a program that runs
    // job after job, such as a watcher, reads each folder once, not once a
    // job.
    std::unordered_set<std::string> tidiedFolders;

    // A job with the platform's settings locations.
    BatchJob();
};

struct BatchResult {
    // False when the run was refused, or stopped before its rows were done.
    bool completed = false;
    std::vector<BatchRow> rows;  // with their final statuses
    SplitSettings settings;      // as the run left them, after the rows' own parameters files
    int filesWritten = 0;        // output PDFs saved
    int rangesFailed = 0;        // ranges whose PDF could not be made or saved
    int mailsSent = 0;
    int mailsFailed = 0;
    int documentsWithoutRanges = 0;  // documents scanned to their end that gave no range
    int scansFailed = 0;             // documents whose scan a host error ended early: later ranges not written
    int pagesRecognized = 0;         // pages read from their image (OCR)
    int exceptions = 0;              // pieces that broke a check, or whose value the lookup list lacks
    bool stopped = false;            // Stop was pressed
    // Every output saved, in the order first saved, with the source pages and
    // name of its last range; and each mail sent, by output file, with its
    // log status ("OK" or "Error - " and the transport's text).
    std::vector<PlannedRange> outputs;
    std::vector<std::pair<std::string, std::string>> mails;
    // The job's tidied folders and those the run tidied.
    std::unordered_set<std::string> tidiedFolders;
};

// "Process Batch List": the job's rows in order (or, with USECURRENT, the
// current document), each source cut into its ranges, reported and mailed.
BatchResult runBatch(const BatchJob& job, DocumentHost& host, RunInterface& ui);

// "&Show": every match of the search text in FILENAME (or the current
// document) highlighted in turn through the interface, nothing written.
// `completed` is false when the show was refused.
BatchResult runShow(const BatchJob& job, DocumentHost& host, RunInterface& ui);

// The ranges the job's settings would cut the current document (the job's,
// or the one the host has made current) into, with their names and output
// paths, from a scan that writes nothing. Empty after saying why when the
// settings are refused or there is no document.
std::vector<PlannedRange> previewRanges(const BatchJob& job, DocumentHost& host, RunInterface& ui);

// "View Current Page h,v": the page positions file of a 0-based page of the
// current document (the job's, or the one the host has made current), written
// into the temporary folder. Answers its path, or none after saying why it
// could not be written.
std::optional<std::filesystem::path> runPagePositions(const BatchJob& job, DocumentHost& host, RunInterface& ui,
                                                      int page);

}  // namespace vellira
