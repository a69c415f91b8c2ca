// split and show: the "Process Batch List" and "&Show" commands.
#include "cli/Commands.h"
#include "cli/ConsoleInterface.h"
#include "files/BatchListFile.h"
#include "files/ParametersFile.h"
#include "files/SettingsLocations.h"
#include "host/MupdfHost.h"
#include "run/BatchJob.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>

namespace vellira::cli {

namespace {

// Ctrl-C sets the Stop flag: the range being written is finished, then the run ends.
RunInterface* interrupted = nullptr;
extern "C" void onInterrupt(int) {
    if (interrupted) interrupted->requestCancel();
}

struct StopOnInterrupt {
    explicit StopOnInterrupt(RunInterface& ui) {
        interrupted = &ui;
        std::signal(SIGINT, onInterrupt);
    }
    ~StopOnInterrupt() {
        std::signal(SIGINT, SIG_DFL);
        interrupted = nullptr;
    }
};

// The show command's console: every highlight is a line on standard output
// and "Show next highlight" is always answered yes.
class ShowConsole final : public ConsoleInterface {
public:
    bool question(std::string_view) override { return true; }
    void highlight(int page, std::string_view word, std::uint16_t) override {
        std::cout << "page " << page + 1 << ": " << word << "\n";
    }
};

}  // namespace

std::string applySettings(const SettingsOptions& options, SplitSettings& settings) {
    for (const auto& params : options.params) {
        if (!std::ifstream(params, std::ios::binary)) return "cannot read the parameters file '" + params + "'";
        std::string name = params;
        readParameters(name, settings, {legacyFolder(), false});
    }
    for (const auto& pair : options.sets) {
        const auto equals = pair.find('=');
        if (equals == std::string::npos) return "--set needs KEY=VALUE: '" + pair + "'";
        const std::string key = pair.substr(0, equals);
        const SettingsKey* found = findSettingsKey(key);
        if (!found) return "unknown setting '" + key + "'";
        assignKey(settings, *found, std::string_view(pair).substr(equals + 1));
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

// 1 when a row failed or the run was refused; 3 when every row is "Done"
// but a range or a mail failed, a document gave no range, or the run was
// stopped; 0 when all was done.
int exitStatus(const BatchResult& result) {
    bool left = false;
    for (const auto& row : result.rows) {
        if (row.use != "Yes" || row.status == "Done") continue;
        if (row.status != "Ready.") return 1;
        left = true;
    }
    if (!result.completed && !result.stopped) return 1;
    const bool warned = result.stopped || left || result.rangesFailed > 0 || result.mailsFailed > 0 ||
                        result.documentsWithoutRanges > 0;
    return warned ? 3 : 0;
}

int runSplit(const SplitOptions& options) {
    BatchJob job;
    if (const auto error = applySettings(options.settings, job.settings); !error.empty()) {
        std::cerr << "vellira-batch split: " << error << "\n";
        return 2;
    }
    ConsoleInterface ui(options.yes);
    if (!options.list.empty() && !loadBatchList(options.list, job.rows, ui)) return 1;
    for (const auto& pdf : options.pdfs) job.rows.push_back(BatchRow{"Yes", pdf, "Ready.", ""});
    if (job.settings.USECURRENT) job.currentDocument = job.settings.FILENAME;
    job.trace = options.trace;
    job.mail = mailTransportFromEnvironment();

    MupdfHost host;
    BatchResult result;
    {
        StopOnInterrupt stop(ui);
        result = runBatch(job, host, ui);
    }
    ui.endProgress();
    for (const auto& row : result.rows) std::cout << row.status << "\t" << row.path << "\n";
    std::cout << std::flush;
    std::string summary = ui.writtenSummary();
    if (result.rangesFailed > 0) summary += "; " + std::to_string(result.rangesFailed) + " save(s) failed";
    if (result.mailsFailed > 0) summary += "; " + std::to_string(result.mailsFailed) + " mail(s) failed";
    std::cerr << summary << "\n";
    return std::cout ? exitStatus(result) : 1;
}

int runSetup(const SetupOptions&) { return 1; }

int runShow(const ShowOptions& options) {
    BatchJob job;
    if (const auto error = applySettings(options.settings, job.settings); !error.empty()) {
        std::cerr << "vellira-batch show: " << error << "\n";
        return 2;
    }
    job.settings.FILENAME = options.pdf;
    job.settings.USECURRENT = 0;
    ShowConsole ui;
    MupdfHost host;
    StopOnInterrupt stop(ui);
    const bool shown = vellira::runShow(job, host, ui).completed;
    std::cout << std::flush;
    return shown && std::cout ? 0 : 1;
}

}  // namespace vellira::cli
