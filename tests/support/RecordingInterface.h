// A RunInterface that records every message and answers questions from a
// fixed reply.
#pragma once

#include "core/RunInterface.h"

#include <string>
#include <vector>

namespace vellira::testing {

class RecordingInterface : public RunInterface {
public:
    std::vector<std::string> notes;
    bool answer = false;
    void note(std::string_view message) override { notes.emplace_back(message); }
    bool question(std::string_view message) override {
        notes.emplace_back(message);
        return answer;
    }
};

}  // namespace vellira::testing
