// One row of a batch list: a source PDF, whether to process it, its status
// and its own parameters file.
#pragma once

#include <string>

namespace vellira {

struct BatchRow {
    std::string use = "Yes";  // only rows reading exactly "Yes" are processed
    std::string path;
    std::string status = "Ready.";
    std::string params;  // the row's own parameters file, if any
};

}  // namespace vellira
