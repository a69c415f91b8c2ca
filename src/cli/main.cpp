// vellira-batch: split PDF runs by their text, from the command line.
#include "cli/Commands.h"
#include "core/Platform.h"
#include "host/MupdfHost.h"
#include "mail/MailSender.h"

#include <CLI/CLI.hpp>

#include <iostream>
#include <limits>

namespace {

void addSettingsOptions(CLI::App* command, vellira::cli::SettingsOptions& options) {
    command
        ->add_option("--params", options.params,
                     "read a parameters file (.pcs), as Load Setup does; repeatable, read in order before any --set")
        ->type_name("FILE")
        ->allow_extra_args(false);
    command
        ->add_option("--set", options.sets,
                     "set one setting, by its parameters-file key (FINDSTRING, PAGEEXTRACT, EXTRACT, OUTPUTDIR, "
                     "...); repeatable, applied in order")
        ->type_name("KEY=VALUE")
        ->allow_extra_args(false);
}

// The options of split; plan takes them too, but for --json.
void addSplitOptions(CLI::App* command, vellira::cli::SplitOptions& options, bool json = true) {
    addSettingsOptions(command, options.settings);
    command->add_flag("--yes", options.yes, "answer yes to the run's questions (the default answer is no)");
    command->add_flag("-q,--quiet", options.quiet, "show only the run's messages: no progress, no summary line");
    if (json)
        command->add_flag("--json", options.json,
                          "print one JSON document of the rows and the outputs written (path, pages, name, mail) "
                          "instead of the status lines");
    command
        ->add_option("--jobs", options.jobs,
                     "work on N threads: up to N PDFs of the list side by side, or the pages of one PDF read by N "
                     "workers; the files, reports and messages are those of --jobs 1 (default: one per core)")
        ->type_name("N")
        ->check(CLI::Range(1, 256));
    command->add_option("--trace", options.trace, "write the debug trace into FILE")->type_name("FILE");
    command
        ->add_option("--list", options.list,
                     "a batch list file (.lst): its rows are processed first, each with its own parameters file")
        ->type_name("FILE");
    command->add_option("PDF", options.pdfs, "the PDFs to split, in order, after the rows of --list");
}

}  // namespace

int main(int argc, char** argv) {
    vellira::keepFreedMemoryForReuse();
    CLI::App app{"Vellira Batch: cut PDF runs into one PDF per customer, account or chapter, named by their own text.",
                 "vellira-batch"};
    app.require_subcommand(1);
    app.footer(
        "Settings are the keys of parameters files: 'vellira-batch keys' lists every one with its\n"
        "default and meaning, both mode lists and the filename macros; 'vellira-batch keys KEY' tells\n"
        "one in full (MATCHPOSH for the position syntax). Run 'vellira-batch COMMAND --help' for a\n"
        "command's options.\n"
        "\n"
        "Examples:\n"
        "  vellira-batch split --set OUTPUTDIR=parts statements.pdf\n"
        "      cut at every \"account:\", each piece named by the word after it\n"
        "  vellira-batch positions invoices.pdf --page 1\n"
        "      the h and v of every word on page 1, to pin a match to its position\n"
        "  vellira-batch split --set FINDSTRING= --set MATCHPOSH=450-470 --set MATCHPOSV=700 \\\n"
        "      --set 'PAGEEXTRACT=From match to next match using position h,v' \\\n"
        "      --set 'EXTRACT=h,v match as filename' --set OUTPUTDIR=invoices invoices.pdf\n"
        "      cut where a word stands at h 450 to 470, v 700 (the invoice number), named by it\n"
        "  vellira-batch setup --set FINDSTRING= --set MATCHPOSH=450-470 ... --save invoices.pcs\n"
        "      the same settings kept as a setup file (the --set options of the split, then --save);\n"
        "      split with them later: vellira-batch split --params invoices.pcs invoices.pdf\n"
        "\n"
        "Exit status: 0 all done, 3 done with failed saves or mails, exceptions, or stopped, 1 failed, 2 usage.");
    // Asked only for --version: the mail libraries are loaded to tell theirs.
    app.set_version_flag("--version", [] {
        return std::string("vellira-batch ") + std::string(vellira::kVersionText) + "\nMuPDF " +
               vellira::mupdfVersion() + "\nlibcurl " + vellira::mailTransportVersion();
    });

    vellira::cli::SplitOptions split;
    auto* splitCommand = app.add_subcommand(
        "split",
        "Split each PDF at its search text into named PDFs, with text and CSV reports. Prints each PDF's status "
        "(Done, file error, Can't open, Permissions error) and path when it ends.");
    addSplitOptions(splitCommand, split);

    vellira::cli::PlanOptions plan;
    auto* planCommand = app.add_subcommand(
        "plan",
        "Scan the PDFs as split would and write a plan (JSON) of every output, with the rows' settings, reports and "
        "messages, writing no PDF: 'apply' then writes it in shards, on other machines, and finishes it.");
    addSplitOptions(planCommand, plan.split, false);
    planCommand->add_option("-o,--output", plan.output, "the plan file to write")->type_name("PLAN.json")->required();

    vellira::cli::ApplyOptions apply;
    auto* applyCommand = app.add_subcommand(
        "apply",
        "Write the outputs of one shard of a plan (--shard I/N; rows sharing an output are in one shard), beside "
        "which its result is kept; then, once every shard is written, --finish writes the reports, prints the "
        "statuses and sends the mail, as split does.");
    applyCommand->add_option("PLAN", apply.plan, "the plan file 'plan' wrote")->required();
    applyCommand->add_option("--shard", apply.shard, "the shard to write, I of N (1-based); 1/1 by default")
        ->type_name("I/N");
    applyCommand->add_flag("--finish", apply.finish, "finish the plan once all its shards are written");
    applyCommand->add_flag("--yes", apply.yes, "answer yes to the run's questions (the default answer is no)");
    applyCommand->add_flag("-q,--quiet", apply.quiet, "show only the run's messages");
    applyCommand->add_flag("--json", apply.json, "with --finish: print the rows and outputs as split --json does");

    vellira::cli::ShowOptions show;
    auto* showCommand =
        app.add_subcommand("show", "List every match of the search text in a PDF as 'page P: WORD', writing nothing.");
    addSettingsOptions(showCommand, show.settings);
    showCommand->add_flag("-q,--quiet", show.quiet, "show only the matches and the messages");
    showCommand->add_option("PDF", show.pdf, "the PDF to search")->required();

    vellira::cli::SettingsOptions mailTest;
    auto* mailTestCommand = app.add_subcommand(
        "mail-test", "Send one test mail, with the e-mail settings, to the from address (EMAILFROM).");
    addSettingsOptions(mailTestCommand, mailTest);

    vellira::cli::WatchOptions watch;
    auto* watchCommand = app.add_subcommand(
        "watch",
        "Split each PDF that arrives in an INBOX folder once it is complete, then move it to INBOX/done, or to "
        "INBOX/error beside a .txt saying why. Runs until stopped (TERM, Ctrl-C: after the pieces in hand); HUP reads "
        "the job files again. "
        "A journal in the state folder makes every piece and mail go once, across crashes.");
    addSettingsOptions(watchCommand, watch.settings);
    watchCommand
        ->add_option("--list", watch.list,
                     "a watch list (.lst form): each row an inbox folder with its own parameters file")
        ->type_name("FILE");
    watchCommand->add_option("--jobs", watch.jobs, "split up to N PDFs at once (default 1)")
        ->type_name("N")
        ->check(CLI::Range(1, 256));
    watchCommand
        ->add_option("--settle", watch.settleSeconds,
                     "seconds a file's size and time must stay unchanged before it is taken (default 5)")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.0, 86400.0));
    watchCommand
        ->add_option("--poll", watch.pollSeconds,
                     "seconds between looks at folders that send no change events, such as network shares "
                     "(default 10)")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.05, 86400.0));
    watchCommand->add_flag("--poll-only", watch.pollOnly, "look at every folder every --poll seconds");
    watchCommand->add_option("INBOX", watch.inboxes, "the folders to watch");

    vellira::cli::MailStatusOptions mailStatus;
    auto* mailStatusCommand = app.add_subcommand(
        "mail-status",
        "List the mail attempts kept in the journal: time, status (sent, failed, retrying, sending), attempts, "
        "recipient, file and the server's answer.");
    mailStatusCommand->add_option("--since", mailStatus.since, "only mails tried at or after DATE")
        ->type_name("YYYY-MM-DD[ HH:MM]");
    mailStatusCommand->add_flag("--failed", mailStatus.failed, "only the mails that failed");
    mailStatusCommand->add_flag("--csv", mailStatus.csv, "CSV with a header line instead of tab lines");

    vellira::cli::MailResendOptions mailResend;
    auto* mailResendCommand = app.add_subcommand(
        "mail-resend",
        "Send again, with the same message, each mail the journal has as failed. The password comes from "
        "VELLIRA_EMAILPASSWORD or the settings options.");
    addSettingsOptions(mailResendCommand, mailResend.settings);
    mailResendCommand->add_flag("--failed", mailResend.failed, "the mails that failed (required)");
    mailResendCommand->add_option("--since", mailResend.since, "only mails tried at or after DATE")
        ->type_name("YYYY-MM-DD[ HH:MM]");
    mailResendCommand->add_flag("-q,--quiet", mailResend.quiet, "show only the run's messages");

    vellira::cli::PositionsOptions positions;
    auto* positionsCommand =
        app.add_subcommand("positions",
                           "Write the page positions file (every word of a page with its h and v) into the temporary "
                           "folder and print it.");
    positionsCommand->add_option("PDF", positions.pdf, "the PDF to read")->required();
    positionsCommand->add_option("--page", positions.page, "the page to list, 1-based")
        ->check(CLI::Range(1, std::numeric_limits<int>::max()))
        ->default_val(1);

    vellira::cli::KeysOptions keys;
    auto* keysCommand = app.add_subcommand(
        "keys",
        "List every setting (KEY for --set and .pcs files) with its type, default, label and meaning, the texts of the "
        "split modes (PAGEEXTRACT) and naming modes (EXTRACT), and the filename macros; with KEY, that setting in "
        "full.");
    keysCommand->add_option("KEY", keys.key, "one setting to describe, such as MATCHPOSH");

    vellira::cli::SetupOptions setup;
    auto* setupCommand = app.add_subcommand(
        "setup", "Save the settings the options give as a parameters file (.pcs), as Save Setup does, or print them.");
    addSettingsOptions(setupCommand, setup.settings);
    setupCommand->add_option("--save", setup.save, "write the settings into FILE.pcs")->type_name("FILE.pcs");
    setupCommand->add_flag("--print", setup.print, "print the settings as the file would hold them");

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
    if (*splitCommand) return vellira::cli::runSplit(split);
    if (*planCommand) return vellira::cli::runPlan(plan);
    if (*applyCommand) return vellira::cli::runApply(apply);
    if (*showCommand) return vellira::cli::runShow(show);
    if (*positionsCommand) return vellira::cli::runPositions(positions);
    if (*mailTestCommand) return vellira::cli::runMailTest(mailTest);
    if (*watchCommand) return vellira::cli::runWatch(watch);
    if (*mailStatusCommand) return vellira::cli::runMailStatus(mailStatus);
    if (*mailResendCommand) return vellira::cli::runMailResend(mailResend);
    if (*keysCommand) return vellira::cli::runKeys(keys);
    if (*setupCommand) return vellira::cli::runSetup(setup);
    return 2;
}
