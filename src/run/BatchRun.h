// BatchRun: one "Process Batch List" run over the rows of a batch list, and
// the document processor that takes one source PDF from opening to its
// reports and mail. The run layer's own: fronts call runBatch and runShow.
#pragma once

#include "core/BatchRow.h"
#include "core/DocumentHost.h"
#include "core/RunInterface.h"
#include "core/SplitSettings.h"
#include "engine/SplitEngine.h"
#include "mail/MailSender.h"

#include <ctime>
#include <filesystem>
#include <functional>
#include <vector>

namespace vellira {

// What a document processor run came to.
enum DocumentResult : int {
    kNotOpened = 0,  // not opened, or nothing found outside a batch
    kProcessed = 1,
    kLocked = 2,  // the source needs a password
};

// A file a row can be read from: a plain file (a folder, a device or a pipe
// is not one), open for reading.
bool readableFile(const std::filesystem::path& path);

class BatchRun {
public:
    BatchRun(DocumentHost& host, RunInterface& ui, SplitSettings& settings);

    DocumentHost& host;
    RunInterface& ui;
    SplitSettings& settings;
    RunState run;
    SplitEngine engine;
    std::tm runTime{};     // the run time stamp
    bool inBatch = false;  // set while rows are processed: no closing messages per document
    bool errorFlag = false;
    std::filesystem::path settingsFile;
    std::filesystem::path legacyFolder;
    MailTransport mail;
    int mailsSent = 0;
    int mailsFailed = 0;
    std::vector<std::pair<std::string, std::string>> mailResults;  // file -> log status
    // Work side by side: up to `jobs` rows at once, or one document's pages
    // read by `jobs` workers, each on a host newHost makes.
    int jobs = 1;
    HostFactory newHost;
    // A planned run: outputs, reports, row settings and mail lists go into
    // the plan instead of being written and sent.
    struct BatchPlan* planned = nullptr;
    // How many events the planned run has told so far.
    std::function<std::size_t()> eventsTold;

    // The process command over `rows`, whose statuses it updates and
    // reports. Answers false when the run was refused or stopped before its
    // rows were done.
    bool process(std::vector<BatchRow>& rows);

    // One source document: the host's current document, or FILENAME.
    DocumentResult processDocument(bool useCurrent);

    // A dry run on the current document: the ranges the settings would cut,
    // listed in `plan`; nothing is written. Answers false when refused.
    bool preview(std::vector<PlannedRange>& plan);

    // The show command on FILENAME (or the current document): every match
    // highlighted in turn, nothing written. Answers false when refused.
    bool show();

private:
    // Saves the settings file, then begins the run.
    bool prepare();
    // The run's clock, counters and modes; "[DESKTOP]" in OUTPUTDIR; the
    // refusal of a multi-word search with a position mode.
    bool beginRun();
    void setStatus(BatchRow& row, std::size_t index, const char* status);
    // One row of the list: its own parameters file, then its document.
    // Answers false when the run must stop.
    bool processRow(BatchRow& row, std::size_t index);
    bool processInOrder(std::vector<BatchRow>& rows);
    // Whether rows are split side by side: several jobs and several rows,
    // and nothing that the run as a whole keeps in order (a split list, a
    // trace, free "_partNNN" names). One row has its pages read side by side.
    bool sideBySide(const std::vector<BatchRow>& rows) const;
    bool processSideBySide(std::vector<BatchRow>& rows);
    // At the run's end: pieces gathered by value judged and mailed, and the
    // exceptions report written.
    void finishPieces();
    void sendMails(std::vector<MailEntry> entries);
    std::vector<MailEntry> groupedMail;  // with GROUPBYVALUE: the mails of the pieces gathered so far
};

}  // namespace vellira
