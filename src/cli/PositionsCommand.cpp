#include "cli/Commands.h"
#include "cli/ConsoleInterface.h"
#include "host/MupdfHost.h"
#include "run/BatchJob.h"

#include <fstream>
#include <iostream>
#include <iterator>

namespace vellira::cli {

int runPositions(const PositionsOptions& options) {
    ConsoleInterface ui;
    MupdfHost host;
    BatchJob job;
    job.settings.FILENAME = options.pdf;
    try {
        const DocHandle doc = host.openDocument(host.makeHostPath(options.pdf));
        const int pages = host.pageCount(doc);
        if (options.page > pages) {
            std::cerr << "vellira-batch: page " << options.page << " is out of range: '" << options.pdf << "' has "
                      << pages << " page(s)\n";
            return 1;
        }
    } catch (const HostError& error) {
        std::cerr << "vellira-batch: cannot open '" << options.pdf << "': " << error.text() << "\n";
        return 1;
    }
    const auto path = runPagePositions(job, host, ui, options.page - 1);
    if (!path) return 1;
    std::ifstream written(*path, std::ios::binary);
    std::cout << std::string(std::istreambuf_iterator<char>(written), {}) << std::flush;
    return std::cout ? 0 : 1;
}

}  // namespace vellira::cli
