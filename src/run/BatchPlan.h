// A batch run planned once and written in shards, by processes on other
// machines, then finished: the same files as a run on one machine.
//
// planBatch scans every row as the run would, with everything that depends
// on the rows before fixed in list order (the settings rows load, sequence
// numbers, appends, names written twice), and lists each output it would
// save instead of saving it; the reports and messages are kept in the plan.
// applyShard writes the outputs of one shard of the rows: rows that share an
// output are always in one shard, in list order. finishPlan writes the
// reports, tells the run's messages and the outputs written, and sends the
// mail.
#pragma once

#include "core/BatchRow.h"
#include "core/DocumentHost.h"
#include "core/PlannedRange.h"
#include "core/RunInterface.h"
#include "mail/MailSender.h"
#include "run/BatchJob.h"
#include "run/EventRecorder.h"

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vellira {

struct BatchPlan {
    std::vector<BatchRow> rows;            // with the statuses the run gives them
    std::vector<std::string> rowSettings;  // per row: its settings as a parameters file (no password)
    std::vector<PlannedWrite> writes;      // in the order the run saves them
    // The reports (path, bytes), in the order written.
    std::vector<std::pair<std::string, std::string>> files;
    std::vector<EventRecorder::Event> events;  // what the run told, in order
    struct Mails {
        std::size_t row = 0;
        std::vector<MailEntry> entries;
        std::size_t afterEvent = 0;  // sent once this many events are told, as the run sent it
    };
    std::vector<Mails> mails;  // each document's mail list, in order
    bool completed = false;
    bool stopped = false;
    int rangesFailed = 0;
    int documentsWithoutRanges = 0;
    int scansFailed = 0;      // documents whose scan an error ended
    int pagesRecognized = 0;  // pages read from their image
    int exceptions = 0;       // pieces held back or listed as exceptions
};

// A plan or a shard's result that cannot be read (or a plan that cannot be
// written): what is wrong, and where the reading stopped.
class PlanError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A plan as the JSON document it is kept in, and back. Throws PlanError for
// a plan holding text that is not UTF-8, and for a document that is not a
// plan.
std::string planText(const BatchPlan& plan);
BatchPlan planFromText(std::string_view text);

// The first path a plan names outside the places its own rows' settings
// give, and why: an output or a file to mail outside its row's output folder
// (by ".." or a link as well), a report not where its row's report settings
// put it. None when every path is in its place.
std::optional<std::string> pathOutsideItsJob(const BatchPlan& plan);

// Scans the job's rows and plans their outputs; no PDF is written.
BatchPlan planBatch(const BatchJob& job, DocumentHost& host, RunInterface& ui);

// The rows of shard `shard` (1-based) of `shards`: rows that write the same
// output are in one shard, and shards get about as many outputs each.
std::vector<bool> shardRows(const BatchPlan& plan, int shard, int shards);

// What one shard came to: the writes that failed (index in the plan, and
// why), and how many were written.
struct ShardResult {
    int shard = 0;
    int shards = 0;
    int written = 0;
    std::vector<std::pair<std::size_t, std::string>> failed;
};
std::string shardText(const ShardResult& result);
// Throws PlanError for a document that is not a shard's result.
ShardResult shardFromText(std::string_view text);

// Writes the outputs of one shard, in plan order, telling each file written.
// Stop ends it between outputs.
ShardResult applyShard(const BatchPlan& plan, int shard, int shards, DocumentHost& host, RunInterface& ui);

// The end of a planned run, once every shard is written: the reports, then
// what the run told, in order, each output told as written or failed, and
// the mail sent.
// `password` is the mail password, which plans never hold.
BatchResult finishPlan(const BatchPlan& plan, const std::vector<ShardResult>& shards, const std::string& password,
                       const MailTransport& transport, RunInterface& ui);

}  // namespace vellira
