// One function per vellira-batch command; each returns the exit status.
#pragma once

#include <string>

namespace vellira::cli {

struct PositionsOptions {
    std::string pdf;
    int page = 1;  // 1-based
};
int runPositions(const PositionsOptions& options);

}  // namespace vellira::cli
