// One range a split would cut: its 1-based source pages, the name captured
// for it and the output path it would be written to.
#pragma once

#include <string>

namespace vellira {

struct PlannedRange {
    int first = 0;
    int last = 0;
    std::string name;
    std::string path;
};

}  // namespace vellira
