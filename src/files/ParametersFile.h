// Parameters files: one complete job setup per file (".pcs"), and the
// product's own settings file "VelliraBatch.ini" in the same format.
//
// One line per setting, "KEY;VALUE \r\n". The writer and the reader keep
// their own key lists, and they do not agree in full: a saved setup loses the
// SMTP login and password and the until-word text, and the reader takes
// OFFSETFIRST into the working copy only. Users' existing files depend on
// these rules, so they stay as they are.
#pragma once

#include "core/RunInterface.h"
#include "core/SplitSettings.h"

#include <cstdio>
#include <filesystem>
#include <string>
#include <string_view>

namespace vellira {

struct ParametersOptions {
    // Where "Vellira.ini" of an older installation is looked for; when it
    // exists, it is read instead of the file asked for.
    std::filesystem::path legacyFolder;
    // Read the first line only, to learn whether a file is an automation file.
    bool probe = false;
};

// Reads a parameters file into `settings`. STRIPEND and the working
// OFFSETFIRST are reset first; keys the file lacks keep their values. A file
// that cannot be read changes nothing else and says nothing. `filename` is
// replaced by the legacy file's path when that one was read.
void readParameters(std::string& filename, SplitSettings& settings, const ParametersOptions& options);
// The same from an open file, from where it stands.
void readParameters(std::FILE* file, SplitSettings& settings, bool probe);

// Writes every setting, in the writer's order; LASTPATH and LASTPATHSUB only
// `withLastPaths` (while the batch list window exists). A ".pcs" file that
// was written is announced with "%s saved."; a failure is silent. Answers
// whether the file was written.
bool writeParameters(const std::string& filename, const SplitSettings& settings, bool withLastPaths,
                     const std::filesystem::path& legacyFolder, RunInterface* ui);

// The text of a parameters file, as writeParameters writes it.
std::string parametersText(const SplitSettings& settings, bool withLastPaths);

}  // namespace vellira
