// Batch list files (".lst"): the PDFs of a batch run, each with its use flag
// and its own parameters file. One line per row: "+" (use) or "~" (skip),
// the PDF path, "|", the parameters file path.
#pragma once

#include "core/BatchRow.h"
#include "core/RunInterface.h"

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

namespace vellira {

// Appends the rows of a list file, each "Ready.". Shows "Can't read list
// file." and adds nothing when the file cannot be read.
bool loadBatchList(const std::filesystem::path& path, std::vector<BatchRow>& rows, RunInterface& ui);
// The same from an open file, from where it stands.
void loadBatchList(std::FILE* file, std::vector<BatchRow>& rows);

// Writes the rows, replacing the file; the status is not kept. Says "List
// saved to file: PATH" unless it is the default list. A failure is silent.
bool saveBatchList(const std::filesystem::path& path, const std::vector<BatchRow>& rows,
                   const std::filesystem::path& defaultList, RunInterface& ui);

// Adds the PDFs of a folder ("*.pdf", any case), in name order, optionally
// with those of its sub-folders; answers how many were added.
int addFolderToBatchList(const std::filesystem::path& folder, bool subFolders, std::vector<BatchRow>& rows);

}  // namespace vellira
