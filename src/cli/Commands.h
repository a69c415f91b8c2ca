// One function per vellira-batch command; each returns the exit status.
#pragma once

#include "core/SplitSettings.h"

#include <string>
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
    std::string trace;
    std::string list;
    std::vector<std::string> pdfs;
};
int runSplit(const SplitOptions& options);

int runMailTest(const SettingsOptions& options);

struct ShowOptions {
    SettingsOptions settings;
    std::string pdf;
};
int runShow(const ShowOptions& options);

}  // namespace vellira::cli
