// Finding the recipient of an output file on its own pages: a word holding
// "@" within the position bounds of the e-mail settings, joined with its
// neighbours on the same line and cut at the "After text" and "Before text"
// words.
#pragma once

#include "core/DocumentHost.h"
#include "core/RunInterface.h"
#include "core/SplitSettings.h"

#include <filesystem>
#include <string>
#include <vector>

namespace vellira {

// The address among words in reading order; empty when none qualifies.
std::string addressAmong(std::vector<Word> words, const SplitSettings& settings);

// The address printed on an output file: empty when none qualifies or the
// file cannot be read, "-1" when the file holds more than 32768 words.
std::string captureAddress(DocumentHost& host, RunInterface& ui, const SplitSettings& settings,
                           const std::filesystem::path& file);

}  // namespace vellira
