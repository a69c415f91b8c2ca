// Batch jobs for tests: settings files kept inside the test's own folder.
#pragma once

#include "run/BatchJob.h"
#include "support/TempDir.h"

#include <string>
#include <vector>

namespace vellira::testing {

// A job whose settings files stay in `dir`, with a row for each path.
inline BatchJob jobIn(const TempDir& dir, const std::vector<std::string>& paths = {}) {
    BatchJob job;
    job.settingsFile = dir / "VelliraBatch.ini";
    job.legacyFolder = dir / "legacy";
    for (const auto& path : paths) job.rows.push_back({"Yes", path, "Ready.", ""});
    return job;
}

}  // namespace vellira::testing
