// The text files a run leaves for the user. Every line carries its own
// "\r\n"; files are written byte for byte as formatted.
#pragma once

#include "core/DocumentHost.h"
#include "core/RunInterface.h"
#include "core/SplitSettings.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace vellira {

// "page_positions.txt" in the temporary folder.
std::filesystem::path pagePositionsPath();

// One word line of the page positions file: "%-20s\t%-3d\t%-3d\r\n", widths
// counted in characters.
std::string pagePositionsLine(std::string_view word, int h, int v);

// Writes the page positions file for a 0-based page of the document in view:
// every word of the page with its h and v, so the user can pick an
// "At position" value. Returns the file's path, or none after showing why
// it could not be written.
std::optional<std::filesystem::path> writePagePositions(DocumentHost& host, RunInterface& ui,
                                                        const SplitSettings& settings, int page);

}  // namespace vellira
