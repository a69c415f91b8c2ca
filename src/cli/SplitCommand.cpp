// split and show: the "Process Batch List" and "&Show" commands.
#include "cli/Commands.h"
#include "cli/ConsoleInterface.h"
#include "cli/JournaledConsole.h"
#include "core/Text.h"
#include "files/BatchListFile.h"
#include "files/ParametersFile.h"
#include "files/SettingsLocations.h"
#include "host/MupdfHost.h"
#include "run/BatchJob.h"
#include "run/BatchPlan.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iostream>
#include <optional>
#include <sstream>
#include <thread>

namespace vellira::cli {

namespace {

// Ctrl-C (or a TERM or HUP signal, from a shutdown, a time limit or a closed
// terminal) sets the Stop flag: the range being written is finished, the
// reports are closed and what was kept under temporary names is removed,
// then the run ends.
RunInterface* interrupted = nullptr;
extern "C" void onInterrupt(int) {
    if (interrupted) interrupted->requestCancel();
}

// A signal ignored when the program started (HUP under nohup, INT in a
// background job) stays ignored.
struct StopOnInterrupt {
    static constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};
    explicit StopOnInterrupt(RunInterface& ui) {
        interrupted = &ui;
        for (std::size_t i = 0; i < std::size(kSignals); ++i) {
            before[i] = std::signal(kSignals[i], onInterrupt);
            if (before[i] == SIG_IGN) std::signal(kSignals[i], SIG_IGN);
        }
    }
    ~StopOnInterrupt() {
        for (std::size_t i = 0; i < std::size(kSignals); ++i) std::signal(kSignals[i], before[i]);
        interrupted = nullptr;
    }
    using Handler = void (*)(int);
    Handler before[std::size(kSignals)] = {};
};

// The show command's console: every highlight is a line on standard output
// and "Show next highlight" is always answered yes.
class ShowConsole final : public ConsoleInterface {
public:
    explicit ShowConsole(bool quiet) : ConsoleInterface(false, quiet) {}
    bool question(std::string_view) override { return true; }
    void highlight(int page, std::string_view word, std::uint16_t) override {
        std::cout << "page " << page + 1 << ": " << word << "\n";
    }
};

}  // namespace

// The texts a mode setting may hold; none for other settings.
std::vector<std::string> modeTexts(const std::string& key) {
    std::vector<std::string> texts;
    if (key == "PAGEEXTRACT")
        for (const auto& [mode, text] : kExtractModes) texts.emplace_back(text);
    if (key == "EXTRACT")
        for (const auto& [mode, text] : kFilenameModes) texts.emplace_back(text);
    return texts;
}

// "; did you mean A, B?" for the names found near, or nothing.
std::string suggestion(const std::vector<std::string>& near) {
    if (near.empty()) return {};
    std::string text = "; did you mean ";
    for (std::size_t i = 0; i < near.size(); ++i) text += (i ? ", " : "") + near[i];
    return text + "?";
}

std::string applySettings(const SettingsOptions& options, SplitSettings& settings) {
    // The password is best kept out of the process list: in a parameters
    // file only its owner can read, or in the environment.
    if (const char* password = std::getenv("VELLIRA_EMAILPASSWORD"); password && *password)
        settings.EMAILPASSWORD = password;
    for (const auto& params : options.params) {
        if (!std::ifstream(params, std::ios::binary)) return "cannot read the parameters file '" + params + "'";
        std::string name = params;
        readParameters(name, settings, {legacyFolder(), false});
    }
    for (const auto& pair : options.sets) {
        const auto equals = pair.find('=');
        if (equals == std::string::npos) return "--set needs KEY=VALUE: '" + pair + "'";
        const std::string key = pair.substr(0, equals);
        const std::string value = pair.substr(equals + 1);
        const SettingsKey* found = findSettingsKey(key);
        if (!found) {
            std::vector<std::string> names;
            for (const auto& each : settingsKeys()) names.emplace_back(each.name);
            return "unknown setting '" + key + "'" + suggestion(nearestNames(key, names)) +
                   " ('vellira-batch keys' lists them all)";
        }
        if (const auto modes = modeTexts(key); !modes.empty() && !(key == "EXTRACT" && value.empty()) &&
                                               std::find(modes.begin(), modes.end(), value) == modes.end())
            return "'" + value + "' is no " + key + " mode" + suggestion(nearestNames(value, modes)) +
                   " ('vellira-batch keys' lists them all)";
        if (key == "EMAILPASSWORD")
            std::cerr << "vellira-batch: warning: a password given with --set can be read by every user of this "
                         "machine while the run works; keep it in a parameters file only you can read, or in "
                         "VELLIRA_EMAILPASSWORD\n";
        assignKey(settings, *found, value);
    }
    return {};
}

int runMailTest(const SettingsOptions& options) {
    SplitSettings settings;
    if (const auto error = applySettings(options, settings); !error.empty()) {
        std::cerr << "vellira-batch mail-test: " << error << "\n";
        return 2;
    }
    ConsoleInterface ui;
    return sendTestMail(settings, ui, mailTransportFromEnvironment()) ? 0 : 1;
}

// The run as one JSON document: each row with its status, each output saved
// with its pages, captured name and mail status (null when not mailed), and
// the counts.
std::string jsonReport(const BatchResult& result) {
    // A byte that is not UTF-8 in a path is shown replaced: the document
    // stays JSON.
    const auto jsonString = [](const std::string& text) {
        return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    };
    std::string json = "{\n  \"rows\": [";
    for (std::size_t i = 0; i < result.rows.size(); ++i) {
        const BatchRow& row = result.rows[i];
        json += (i ? ",\n    " : "\n    ") + std::string("{\"use\": ") + jsonString(row.use) +
                ", \"status\": " + jsonString(row.status) + ", \"path\": " + jsonString(row.path) + "}";
    }
    json += "\n  ],\n  \"outputs\": [";
    for (std::size_t i = 0; i < result.outputs.size(); ++i) {
        const PlannedRange& output = result.outputs[i];
        std::string mail = "null";
        for (const auto& [file, status] : result.mails)
            if (file == output.path) mail = jsonString(status);
        json += (i ? ",\n    " : "\n    ") + std::string("{\"path\": ") + jsonString(output.path) +
                ", \"first\": " + std::to_string(output.first) + ", \"last\": " + std::to_string(output.last) +
                ", \"name\": " + jsonString(output.name) + ", \"mail\": " + mail;
        // Outputs with pages read from their image say how many, and how
        // sure the reading was.
        if (output.pagesRecognized > 0)
            json += ", \"ocrPages\": " + std::to_string(output.pagesRecognized) +
                    ", \"ocrConfidence\": " + std::to_string(output.meanConfidence);
        json += "}";
    }
    json += "\n  ],\n  \"filesWritten\": " + std::to_string(result.filesWritten) +
            ",\n  \"savesFailed\": " + std::to_string(result.rangesFailed) +
            ",\n  \"mailsSent\": " + std::to_string(result.mailsSent) +
            ",\n  \"mailsFailed\": " + std::to_string(result.mailsFailed) +
            ",\n  \"stopped\": " + (result.stopped ? "true" : "false") + "\n}\n";
    return json;
}

// 1 when a row failed or the run was refused; 3 when every row is "Done"
// but a range or a mail failed, a document gave no range or was not read to
// its end, a piece is an exception, or the run was stopped; 0 when all was
// done.
int exitStatus(const BatchResult& result) {
    bool left = false;
    for (const auto& row : result.rows) {
        if (row.use != "Yes" || row.status == "Done") continue;
        if (row.status != "Ready.") return 1;
        left = true;
    }
    if (!result.completed && !result.stopped) return 1;
    const bool warned = result.stopped || left || result.rangesFailed > 0 || result.mailsFailed > 0 ||
                        result.documentsWithoutRanges > 0 || result.scansFailed > 0 || result.exceptions > 0;
    return warned ? 3 : 0;
}

int buildJob(const SplitOptions& options, const char* command, BatchJob& job, ConsoleInterface& ui) {
    if (const auto error = applySettings(options.settings, job.settings); !error.empty()) {
        std::cerr << "vellira-batch " << command << ": " << error << "\n";
        return 2;
    }
    if (!options.list.empty() && !loadBatchList(options.list, job.rows, ui)) return 1;
    for (const auto& pdf : options.pdfs) job.rows.push_back(BatchRow{"Yes", pdf, "Ready.", ""});
    if (job.settings.USECURRENT) job.currentDocument = job.settings.FILENAME;
    job.trace = options.trace;
    job.mail = mailTransportFromEnvironment();
    job.jobs = options.jobs > 0 ? options.jobs : static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
    job.newHost = [] { return std::make_unique<MupdfHost>(); };
    return 0;
}

int reportResult(const BatchResult& result, ConsoleInterface& ui, bool json, bool quiet) {
    ui.endProgress();
    if (json) {
        std::cout << jsonReport(result);
    } else {
        for (const auto& row : result.rows) std::cout << row.status << "\t" << row.path << "\n";
    }
    std::cout << std::flush;
    std::string summary = ui.writtenSummary();
    if (result.rangesFailed > 0) summary += "; " + std::to_string(result.rangesFailed) + " save(s) failed";
    if (result.mailsFailed > 0) summary += "; " + std::to_string(result.mailsFailed) + " mail(s) failed";
    if (result.scansFailed > 0) summary += "; " + std::to_string(result.scansFailed) + " scan(s) failed";
    if (result.pagesRecognized > 0) summary += "; " + std::to_string(result.pagesRecognized) + " page(s) read by OCR";
    if (result.exceptions > 0) summary += "; " + std::to_string(result.exceptions) + " exception(s)";
    // Quiet, the line is left out unless something failed.
    if (!quiet || result.rangesFailed > 0 || result.mailsFailed > 0 || result.scansFailed > 0 || result.exceptions > 0)
        std::cerr << summary << "\n";
    return std::cout ? exitStatus(result) : 1;
}

int runSplit(const SplitOptions& options) {
    BatchJob job;
    JournaledConsole ui(options.yes, options.quiet);
    if (const int status = buildJob(options, "split", job, ui); status != 0) return status;
    MupdfHost host;
    BatchResult result;
    {
        StopOnInterrupt stop(ui);
        result = runBatch(job, host, ui);
    }
    ui.warnIfNotKept();
    return reportResult(result, ui, options.json, options.quiet);
}

namespace {

std::filesystem::path shardResultPath(const std::string& plan, int shard, int shards) {
    return plan + ".shard-" + std::to_string(shard) + "-of-" + std::to_string(shards) + ".json";
}

// Writes a document whole or not at all.
bool writeDocument(const std::filesystem::path& path, const std::string& text) {
    // Shards on several machines write beside one another: the name of the
    // file written sets the temporary name apart, not the process alone.
    removeStaleTemporaries(path.parent_path());
    const auto temporary =
        temporaryBeside(path, static_cast<std::uint32_t>(std::hash<std::string>{}(pathText(path.filename()))));
    FileHandle file = openFile(temporary, "wb");
    const bool written =
        file && std::fwrite(text.data(), 1, text.size(), file.get()) == text.size() && std::fclose(file.release()) == 0;
    std::error_code failed;
    if (written) std::filesystem::rename(temporary, path, failed);
    if (!written || failed) {
        std::filesystem::remove(temporary, failed);
        return false;
    }
    return true;
}

// Reads a plan or a shard's result with `read`; none, said on standard
// error, when it cannot be read or is not one. These say which files to
// write: one that someone else may have written is not followed.
template <typename Read>
auto readDocument(const std::filesystem::path& path, const char* what, Read read)
    -> std::optional<decltype(read(std::string_view()))> {
    if (const auto why = notOwnedAlone(path)) {
        std::cerr << "vellira-batch apply: refused the " << what << " '" << pathText(path) << "': " << *why << "\n";
        return std::nullopt;
    }
    const auto text = readWholeFile(path);
    if (!text) {
        std::cerr << "vellira-batch apply: cannot read the " << what << " '" << pathText(path) << "'\n";
        return std::nullopt;
    }
    try {
        return read(*text);
    } catch (const PlanError& error) {
        std::cerr << "vellira-batch apply: '" << pathText(path) << "': " << error.what() << "\n";
        return std::nullopt;
    }
}

}  // namespace

int runPlan(const PlanOptions& options) {
    BatchJob job;
    ConsoleInterface ui(options.split.yes, options.split.quiet);
    if (const int status = buildJob(options.split, "plan", job, ui); status != 0) return status;
    if (job.settings.USECURRENT || job.rows.empty()) {
        std::cerr << "vellira-batch plan: give the PDFs to plan (or --list); a plan does not work on a current "
                     "document\n";
        return 2;
    }
    MupdfHost host;
    BatchPlan plan;
    {
        StopOnInterrupt stop(ui);
        plan = planBatch(job, host, ui);
    }
    ui.endProgress();
    try {
        if (!writeDocument(options.output, planText(plan))) {
            std::cerr << "vellira-batch plan: cannot write '" << options.output << "'\n";
            return 1;
        }
    } catch (const PlanError& error) {
        std::cerr << "vellira-batch plan: cannot write '" << options.output << "': " << error.what() << "\n";
        return 1;
    }
    if (!options.split.quiet)
        std::cerr << plan.writes.size() << " output(s) of " << plan.rows.size() << " row(s) planned in "
                  << options.output << "\n";
    return plan.completed ? 0 : 1;
}

int runApply(const ApplyOptions& options) {
    auto read = readDocument(options.plan, "plan", planFromText);
    if (!read) return 1;
    const BatchPlan plan = std::move(*read);
    if (const auto why = pathOutsideItsJob(plan)) {
        std::cerr << "vellira-batch apply: refused the plan '" << options.plan << "': " << *why << "\n";
        return 1;
    }
    JournaledConsole ui(options.yes, options.quiet);
    if (!options.finish) {
        int shard = 1;
        int shards = 1;
        char slash = 0;
        std::istringstream given(options.shard.empty() ? "1/1" : options.shard);
        if (!(given >> shard >> slash >> shards) || slash != '/' || !given.eof() || shards < 1 || shard < 1 ||
            shard > shards) {
            std::cerr << "vellira-batch apply: --shard takes I/N with 1 <= I <= N, not '" << options.shard << "'\n";
            return 2;
        }
        MupdfHost host;
        ShardResult result;
        {
            StopOnInterrupt stop(ui);
            result = applyShard(plan, shard, shards, host, ui);
        }
        ui.endProgress();
        if (ui.cancelled()) return 3;
        if (!writeDocument(shardResultPath(options.plan, shard, shards), shardText(result))) {
            std::cerr << "vellira-batch apply: cannot write '" << pathText(shardResultPath(options.plan, shard, shards))
                      << "'\n";
            return 1;
        }
        if (!options.quiet) std::cerr << ui.writtenSummary() << "\n";
        return result.failed.empty() ? 0 : 3;
    }
    // Every shard of one count must have been written.
    std::vector<ShardResult> shards;
    const std::filesystem::path planPath(options.plan);
    const std::string prefix = pathText(planPath.filename()) + ".shard-";
    std::error_code error;
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(
             planPath.has_parent_path() ? planPath.parent_path() : std::filesystem::path("."), error)) {
        const std::string name = pathText(entry.path().filename());
        const auto of = name.find("-of-");
        if (!name.starts_with(prefix) || of == std::string::npos) continue;
        const int found = std::atoi(name.c_str() + of + 4);
        if (count != 0 && found != count) {
            std::cerr << "vellira-batch apply: shards of " << count << " and of " << found
                      << " were written for this plan; remove the older ones\n";
            return 1;
        }
        count = found;
    }
    for (int shard = 1; shard <= count; ++shard) {
        auto result = readDocument(shardResultPath(options.plan, shard, count), "shard result", shardFromText);
        if (!result) return 1;
        shards.push_back(std::move(*result));
    }
    if (count == 0 && !plan.writes.empty()) {
        std::cerr << "vellira-batch apply: no shard of this plan has been written; run 'apply PLAN --shard I/N' "
                     "first\n";
        return 1;
    }
    const char* password = std::getenv("VELLIRA_EMAILPASSWORD");
    BatchResult result;
    {
        StopOnInterrupt stop(ui);
        result = finishPlan(plan, shards, password ? password : "", mailTransportFromEnvironment(), ui);
    }
    ui.warnIfNotKept();
    return reportResult(result, ui, options.json, options.quiet);
}

int runSetup(const SetupOptions& options) {
    if (options.save.empty() && !options.print) {
        std::cerr << "vellira-batch setup: give --save FILE.pcs, --print or both\n";
        return 2;
    }
    SplitSettings settings;
    if (const auto error = applySettings(options.settings, settings); !error.empty()) {
        std::cerr << "vellira-batch setup: " << error << "\n";
        return 2;
    }
    if (options.print) std::cout << parametersText(settings, false) << std::flush;
    if (!options.save.empty()) {
        ConsoleInterface ui;
        if (!writeParameters(options.save, settings, false, legacyFolder(), &ui)) {
            std::cerr << "vellira-batch setup: cannot write '" << options.save << "'\n";
            return 1;
        }
    }
    return std::cout ? 0 : 1;
}

int runShow(const ShowOptions& options) {
    BatchJob job;
    if (const auto error = applySettings(options.settings, job.settings); !error.empty()) {
        std::cerr << "vellira-batch show: " << error << "\n";
        return 2;
    }
    job.settings.FILENAME = options.pdf;
    job.settings.USECURRENT = 0;
    ShowConsole ui(options.quiet);
    MupdfHost host;
    StopOnInterrupt stop(ui);
    const bool shown = vellira::runShow(job, host, ui).completed;
    std::cout << std::flush;
    return shown && std::cout ? 0 : 1;
}

}  // namespace vellira::cli
