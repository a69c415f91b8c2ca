// One function per vellira-batch command; each returns the exit status.
#pragma once

#include "core/SplitSettings.h"

#include <string>
#include <string_view>
#include <vector>

namespace vellira::cli {

struct PositionsOptions {
    std::string pdf;
    int page = 1;  // 1-based
};
int runPositions(const PositionsOptions& options);

// Settings as the command line gives them: parameters files read in order,
// then KEY=VALUE pairs applied in order.
struct SettingsOptions {
    std::vector<std::string> params;
    std::vector<std::string> sets;
};
// Reads the --params files and applies the --set pairs; answers an error text
// for a usage error.
std::string applySettings(const SettingsOptions& options, SplitSettings& settings);

struct SplitOptions {
    SettingsOptions settings;
    bool yes = false;
    bool quiet = false;
    bool json = false;  // one JSON document of rows and outputs instead of the tab lines
    std::string trace;
    std::string list;
    std::vector<std::string> pdfs;
    int jobs = 0;  // 0: one per core
};
int runSplit(const SplitOptions& options);

// "plan": the split options, and the plan file to write.
struct PlanOptions {
    SplitOptions split;
    std::string output;
};
int runPlan(const PlanOptions& options);

// "apply": one shard of a plan written, or a plan finished.
struct ApplyOptions {
    std::string plan;
    std::string shard;  // "I/N"
    bool finish = false;
    bool yes = false;
    bool quiet = false;
    bool json = false;
};
int runApply(const ApplyOptions& options);

int runMailTest(const SettingsOptions& options);

struct ShowOptions {
    SettingsOptions settings;
    bool quiet = false;
    std::string pdf;
};
int runShow(const ShowOptions& options);

// "watch": inboxes split as PDFs arrive, each with the settings options, or
// the inboxes of a watch list, each with its own parameters file.
struct WatchOptions {
    SettingsOptions settings;
    std::string list;
    std::vector<std::string> inboxes;
    int jobs = 1;
    double settleSeconds = 5;
    double pollSeconds = 10;
    bool pollOnly = false;
};
int runWatch(const WatchOptions& options);

// "mail-status": the mails kept in the journal.
struct MailStatusOptions {
    std::string since;  // YYYY-MM-DD[ HH:MM[:SS]]
    bool failed = false;
    bool csv = false;
};
int runMailStatus(const MailStatusOptions& options);

// "mail-resend": the failed mails sent again, as they were made; the
// settings options give the password.
struct MailResendOptions {
    SettingsOptions settings;
    std::string since;
    bool failed = false;
    bool quiet = false;
};
int runMailResend(const MailResendOptions& options);

// "keys": every parameters-file key, both mode lists and the filename
// macros; with a key, that key in full.
struct KeysOptions {
    std::string key;
};
int runKeys(const KeysOptions& options);

// The valid names nearest to a mistyped one, nearest first (at most three).
std::vector<std::string> nearestNames(std::string_view wanted, const std::vector<std::string>& names);

// "setup": the settings the options give, saved as a parameters file as
// "&Save Setup" saves one, or printed as the file would hold them.
struct SetupOptions {
    SettingsOptions settings;
    std::string save;
    bool print = false;
};
int runSetup(const SetupOptions& options);

}  // namespace vellira::cli
