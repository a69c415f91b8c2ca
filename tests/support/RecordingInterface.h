// A RunInterface that records every message, row status and file written,
// and answers questions from a fixed reply.
#pragma once

#include "core/RunInterface.h"

#include <string>
#include <vector>

namespace vellira::testing {

class RecordingInterface : public RunInterface {
public:
    std::vector<std::string> notes;
    std::vector<std::string> statuses;  // "ROW STATUS", as reported
    std::vector<std::string> written;   // "PATH FIRST-LAST", as reported
    bool answer = false;
    void note(std::string_view message) override { notes.emplace_back(message); }
    bool question(std::string_view message) override {
        notes.emplace_back(message);
        return answer;
    }
    void rowStatus(int row, std::string_view status) override {
        statuses.push_back(std::to_string(row) + " " + std::string(status));
    }
    void fileWritten(std::string_view path, int first, int last) override {
        written.push_back(std::string(path) + " " + std::to_string(first) + "-" + std::to_string(last));
    }
};

}  // namespace vellira::testing
