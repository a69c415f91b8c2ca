// One range a split would cut: its 1-based source pages, the name captured
// for it and the output path it would be written to.
#pragma once

#include <cstddef>
#include <string>

namespace vellira {

struct PlannedRange {
    int first = 0;
    int last = 0;
    std::string name;
    std::string path;
    // Of its pages, those read from their image, and the mean confidence of
    // the words read there.
    int pagesRecognized = 0;
    int meanConfidence = 0;
    // The check the piece breaks, when it breaks one.
    std::string exception;
};

// One output a planned run would save, for another process to write: the
// source's 1-based pages, the output path, the name captured and the
// sequence number taken, whether the source's bookmarks come along and
// whether the pages are appended to the output as it stands then. `row` is
// the batch list row it comes from.
struct PlannedWrite {
    std::size_t row = 0;
    std::string source;
    int first = 0;
    int last = 0;
    std::string output;
    std::string name;
    long sequence = 0;
    bool bookmarks = false;
    bool append = false;
};

}  // namespace vellira
