// vellira-batch: split PDF runs by their text, from the command line.
#include "cli/Commands.h"

#include <CLI/CLI.hpp>

#include <iostream>
#include <limits>

int main(int argc, char** argv) {
    CLI::App app{"Vellira Batch: cut PDF runs into one PDF per customer, account or chapter, named by their own text.",
                 "vellira-batch"};
    app.require_subcommand(1);

    vellira::cli::PositionsOptions positions;
    auto* positionsCommand =
        app.add_subcommand("positions",
                           "Write the page positions file (every word of a page with its h and v) into the temporary "
                           "folder and print it.");
    positionsCommand->add_option("PDF", positions.pdf, "the PDF to read")->required();
    positionsCommand->add_option("--page", positions.page, "the page to list, 1-based")
        ->check(CLI::Range(1, std::numeric_limits<int>::max()))
        ->default_val(1);

    if (argc < 2) {
        std::cerr << app.help();
        return 2;
    }
    if (argv[1][0] != '-' &&
        app.get_subcommands([&](CLI::App* command) { return command->check_name(argv[1]); }).empty()) {
        std::cerr << "vellira-batch: unknown command '" << argv[1] << "'\nRun with --help for more information.\n";
        return 2;
    }

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        // Help and version exit 0; every other parse failure is a usage error.
        return app.exit(error) == 0 ? 0 : 2;
    }
    if (*positionsCommand) return vellira::cli::runPositions(positions);
    return 2;
}
